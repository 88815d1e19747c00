################################################################################
#
# zorvi-switch
#
################################################################################

ZORVI_SWITCH_VERSION = 1.0.2
# This external tree lives in packaging/buildroot of the source tree.
ZORVI_SWITCH_SITE = $(BR2_EXTERNAL_ZORVI_PATH)/../..
ZORVI_SWITCH_SITE_METHOD = local
ZORVI_SWITCH_LICENSE = Proprietary

# The start scripts come from the init hooks below, for the init system of
# the configuration; the CMake install brings the executable, the
# switch_daemon link, the man pages, /etc/default/switch_daemon and the
# firewall rules in /usr/share/zorvi-switch.
ZORVI_SWITCH_CONF_OPTS = \
	-DSWITCH_TESTS=OFF \
	-DSWITCH_INSTALL_SYSV_INIT=OFF \
	-DSWITCH_INSTALL_SYSTEMD_UNIT=OFF \
	-DCMAKE_CXX_FLAGS="$(TARGET_CXXFLAGS) -ffunction-sections -fdata-sections" \
	-DCMAKE_EXE_LINKER_FLAGS="$(TARGET_LDFLAGS) -Wl,--gc-sections"

# The start scripts name the installed paths ($(SED) edits in place).
ZORVI_SWITCH_SUBSTITUTIONS = s,@SBINDIR@,/usr/sbin,g;s,@DEFAULTS_FILE@,/etc/default/switch_daemon,g;s,@TMPFILES_CONF@,/usr/lib/tmpfiles.d/switch_daemon.conf,g

define ZORVI_SWITCH_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/init.d/switch_daemon.in \
		$(TARGET_DIR)/etc/init.d/S60switch_daemon
	$(SED) '$(ZORVI_SWITCH_SUBSTITUTIONS)' $(TARGET_DIR)/etc/init.d/S60switch_daemon
endef

define ZORVI_SWITCH_INSTALL_INIT_SYSTEMD
	$(INSTALL) -D -m 0644 $(@D)/packaging/systemd/switch_daemon.service.in \
		$(TARGET_DIR)/usr/lib/systemd/system/switch_daemon.service
	$(SED) '$(ZORVI_SWITCH_SUBSTITUTIONS)' $(TARGET_DIR)/usr/lib/systemd/system/switch_daemon.service
	$(INSTALL) -D -m 0644 $(@D)/packaging/tmpfiles.d/switch_daemon.conf \
		$(TARGET_DIR)/usr/lib/tmpfiles.d/switch_daemon.conf
endef

$(eval $(cmake-package))
