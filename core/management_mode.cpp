// Managed or unmanaged mode on the NAND board: GPIO 191 takes the mode level,
// then GPIO 56 gets a low-high pulse. Written through the sysfs GPIO files.
#include "core/management_mode.h"

#include "core/board.h"
#include "core/spi_access.h"
#include "core/tool_state.h"
#include "core/unique_fd.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace {
constexpr const char *GPIO_EXPORT = "/sys/class/gpio/export";
constexpr const char *GPIO56_DIRECTION = "/sys/class/gpio/gpio56/direction";
constexpr const char *GPIO191_DIRECTION = "/sys/class/gpio/gpio191/direction";
constexpr const char *GPIO191_VALUE = "/sys/class/gpio/gpio191/value";
constexpr const char *GPIO56_VALUE = "/sys/class/gpio/gpio56/value";

// Register 1, bit 0 starts the switch once the chip is in managed mode.
constexpr std::uint8_t REG_START_SWITCH = 0x01;
constexpr std::uint8_t START_SWITCH = 0x01;

constexpr useconds_t PULSE_LOW_US = 20000;
constexpr useconds_t SETTLE_US = 200000;

// The line numbers go without their NUL; every other text is written with it.
struct Text {
    const char *bytes;
    std::size_t length;
};
constexpr Text LINE_56{"56", 2};
constexpr Text LINE_191{"191", 3};
constexpr Text OUT{"out", 4};
constexpr Text HIGH{"1", 2};
constexpr Text LOW{"0", 2};

// Only a negative result is a failure; a short write goes unnoticed.
bool write_text(const UniqueFd &fd, Text text) {
    return write(fd.get(), text.bytes, text.length) >= 0;
}

bool write_file(const char *path, Text text) {
    const UniqueFd fd(open(path, O_RDWR));
    return fd.valid() && write_text(fd, text);
}

// The sequence up to its first failing step; the descriptor open at that
// moment is closed on the way out.
bool run_sequence(std::int32_t mode) {
    {
        const UniqueFd exporter(open(GPIO_EXPORT, O_WRONLY));
        if (!exporter.valid())
            return false;
        // Exported lines stay exported: a later run finds their files and
        // writes nothing here. The two tests differ in their masks.
        if (access(GPIO56_DIRECTION, R_OK | W_OK) != 0 && !write_text(exporter, LINE_56))
            return false;
        if (access(GPIO191_DIRECTION, W_OK) != 0 && !write_text(exporter, LINE_191))
            return false;
    }
    if (!write_file(GPIO56_DIRECTION, OUT) || !write_file(GPIO191_DIRECTION, OUT))
        return false;
    // The level is set before the pulse.
    if (!write_file(GPIO191_VALUE, mode == 1 ? HIGH : LOW))
        return false;

    const UniqueFd pulse(open(GPIO56_VALUE, O_RDWR));
    if (!pulse.valid() || !write_text(pulse, LOW))
        return false;
    usleep(PULSE_LOW_US);
    return write_text(pulse, HIGH);
}
} // namespace

void set_management_mode(std::int32_t mode) {
    if (tool_state.board_kind == BOARD_NOR)
        return;
    if (!run_sequence(mode)) {
        std::puts("error during the management mode change");
        return;
    }
    if (mode != 1)
        return; // unmanaged mode ends with the pulse
    usleep(SETTLE_US);
    reg_write(REG_START_SWITCH, START_SWITCH);
}
