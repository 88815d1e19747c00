// The in-process SPI device and files. These definitions of ioctl and fopen
// take the place of the C library's (and of the sanitizer's interceptors): the
// product's own spi_transfer and file reading run unchanged, and every other
// descriptor and path gets the system's.
#include "tests/fuzz/fuzz_support.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::uint8_t CMD_WRITE = 0x02;
constexpr std::uint8_t CMD_READ = 0x03;

int descriptors[2] = {-1, -1};
zb::ChipState chip;

// One three-byte transfer in one chip-select frame: 0x03, register, 0xFF to
// read (the value comes back in the third byte), 0x02, register, value to
// write. The tool passes a receive buffer and 8 bits per word on both; the
// console's write passes neither (0 bits: the descriptor's 8 apply). Every
// other field stays 0.
int transfer(SpiPath path, const spi_ioc_transfer &t) {
    FUZZ_CHECK(t.len == 3);
    FUZZ_CHECK(t.speed_hz == 0 && t.delay_usecs == 0 && t.cs_change == 0 && t.tx_nbits == 0 &&
               t.rx_nbits == 0 && t.word_delay_usecs == 0 && t.pad == 0);
    const auto *tx = reinterpret_cast<const std::uint8_t *>(t.tx_buf);
    auto *rx = reinterpret_cast<std::uint8_t *>(t.rx_buf);
    FUZZ_CHECK(tx != nullptr && (tx[0] == CMD_READ || tx[0] == CMD_WRITE));
    const bool write = tx[0] == CMD_WRITE;
    const bool console_write = write && path == SpiPath::console;
    FUZZ_CHECK((rx == nullptr) == console_write && t.bits_per_word == (console_write ? 0 : 8));
    FUZZ_CHECK(write || tx[2] == 0xFF);
    if (write)
        zb::chip_spi_write(chip, tx[1], tx[2]);
    const std::uint8_t value = write ? tx[2] : zb::chip_spi_read(chip, tx[1]);
    if (rx != nullptr) {
        rx[0] = rx[1] = 0xFF;
        rx[2] = write ? 0xFF : value;
    }
    spi_log.push_back({write, tx[1], value});
    return 3;
}

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (fd < 0 || (fd != descriptors[0] && fd != descriptors[1]))
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    // The targets make no set-up ioctl: one access is one message.
    FUZZ_CHECK(request == SPI_IOC_MESSAGE(1));
    return transfer(fd == descriptors[0] ? SpiPath::tool : SpiPath::console,
                    *static_cast<const spi_ioc_transfer *>(argument));
}

extern "C" FILE *fopen(const char *path, const char *mode) {
    const auto file = std::find_if(fake_files.begin(), fake_files.end(),
                                   [path](const auto &fake) { return fake.first == path; });
    if (file == fake_files.end())
        return fopen64(path, mode); // the C library's fopen under its other name
    FUZZ_CHECK(std::strcmp(mode, "r") == 0);
    if (!file->second) {
        errno = ENOENT;
        return nullptr;
    }
    return fmemopen(const_cast<char *>(file->second->data()), file->second->size(), "r");
}

int spi_fd(SpiPath path) {
    // A real descriptor, so that no other open can return its number.
    int &fd = descriptors[path == SpiPath::tool ? 0 : 1];
    if (fd < 0)
        fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    FUZZ_CHECK(fd >= 0);
    return fd;
}

zb::ChipState &reset_chip(std::uint8_t board) {
    zb::chip_reset(chip, board);
    spi_log.clear();
    return chip;
}
