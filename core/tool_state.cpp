#include "core/tool_state.h"

ToolState tool_state{};

const char *spi_device = "/dev/spidev0.0";
const char *config_path = nullptr;
