include $(sort $(wildcard $(BR2_EXTERNAL_ZORVI_PATH)/package/*/*.mk))
