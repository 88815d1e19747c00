#include "kernel_side.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace zb {

namespace {

constexpr const char *kParams = "/sys/module/zorvi_chip/parameters/";
constexpr unsigned kModeBits = SPI_CPHA | SPI_CPOL | SPI_CS_HIGH | SPI_LSB_FIRST;
// Under the fault wr-speed the controller's slowest clock is above the
// 4 MHz that the product asks for.
constexpr unsigned kSlowestClock = 5000000;
constexpr unsigned kDeviceSpeed = 10000000; // the device's speed when bound
constexpr int kLines = 256;

void put(const char *path, const char *text) {
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd >= 0) {
        ssize_t n = write(fd, text, std::strlen(text));
        (void)n; // a refused write (a line not exported) changes nothing
        close(fd);
    }
}

void param(const char *name, long value) {
    char path[128];
    char text[32];
    std::snprintf(path, sizeof path, "%s%s", kParams, name);
    std::snprintf(text, sizeof text, "%ld", value);
    put(path, text);
}

void bind_spidev(bool bound) {
    bool is_bound = access("/sys/bus/spi/devices/spi0.0/driver", F_OK) == 0;
    if (bound != is_bound)
        put(bound ? "/sys/bus/spi/drivers/spidev/bind" : "/sys/bus/spi/drivers/spidev/unbind",
            "spi0.0");
}

// Mode 0, 8 bits per word, the device's speed: what spidev has when bound.
void default_settings() {
    int fd = open("/dev/spidev0.0", O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    uint32_t mode = 0;
    uint8_t bits = 8;
    uint32_t speed = kDeviceSpeed;
    ioctl(fd, SPI_IOC_WR_MODE32, &mode);
    ioctl(fd, SPI_IOC_WR_BITS_PER_WORD, &bits);
    ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, &speed);
    close(fd);
}

} // namespace

void kernel_reset() {
    if (access("/dev/spidev0.0", F_OK) != 0)
        bind_spidev(false); // binding it again makes the node anew
    kernel_fault("clear", 0);
    char path[64];
    char text[8];
    for (int line = 0; line < kLines; ++line) {
        std::snprintf(path, sizeof path, "/sys/class/gpio/gpio%d", line);
        std::snprintf(text, sizeof text, "%d", line);
        if (access(path, F_OK) == 0)
            put("/sys/class/gpio/unexport", text);
    }
    default_settings();
}

bool kernel_fault(const char *name, long arg) {
    if (std::strcmp(name, "clear") == 0) {
        bind_spidev(true);
        param("mode_bits", kModeBits);
        param("min_speed_hz", 0);
        param("busy_line", -1);
    } else if (std::strcmp(name, "open") == 0) {
        bind_spidev(false); // spidev's node goes with it
    } else if (std::strcmp(name, "wr-mode") == 0) {
        param("mode_bits", SPI_CS_HIGH | SPI_LSB_FIRST); // clock modes 1 to 3 refused
    } else if (std::strcmp(name, "wr-speed") == 0) {
        param("min_speed_hz", kSlowestClock);
    } else if (std::strcmp(name, "export-busy") == 0) {
        param("busy_line", arg); // the module holds the line: export gives EBUSY
    } else {
        // The chip's own faults (xfer, xfer-from, gpio-stuck) need nothing
        // here. The kernel answers every LSB-first and 8-bit set-up and
        // every open and write of a GPIO file for root.
        for (const char *cannot : {"wr-lsb", "wr-bits", "gpio-open", "gpio-write"})
            if (std::strcmp(name, cannot) == 0)
                return false;
    }
    return true;
}

} // namespace zb
