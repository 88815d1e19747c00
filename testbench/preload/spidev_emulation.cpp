// The kernel's spidev driver, played in front of the simulated chip. A
// descriptor opened on a /dev/spidev* path (fixed_paths.cpp) takes the
// driver's ioctls: the set-up requests with the SPI core's checks of the
// controller (modes 0 to 3, CS_HIGH and LSB_FIRST; 1 to 32 bits per word;
// single-wire transfers), and SPI_IOC_MESSAGE(n) with spidev's checks of the
// transfer records. The message itself runs on the chip through spi_frame,
// as the VM bench's chip server runs it.
#include "preload.h"

#include "event_log.h"
#include "spi_frame.h"

#include <cstdarg>
#include <cstring>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

using namespace zbp;
using zb::ChipState;

namespace {

using ioctl_t = int (*)(int, unsigned long, ...);
ioctl_t r_ioctl;

constexpr uint32_t kCtrlModeBits = SPI_CPHA | SPI_CPOL | SPI_CS_HIGH | SPI_LSB_FIRST;
constexpr size_t kBufSize = 4096; // spidev's default bufsiz
constexpr size_t kMaxXfers = (1U << _IOC_SIZEBITS) / sizeof(spi_ioc_transfer);

// Copies between the program's memory and the bench's, failing with EFAULT on
// an address the program could not use either (the kernel's copy_*_user).
bool user_copy(void *dst, const void *src, size_t n, bool to_program) {
    if (n == 0)
        return true;
    void *program = to_program ? dst : const_cast<void *>(src);
    void *bench = to_program ? const_cast<void *>(src) : dst;
    iovec local{bench, n};
    iovec remote{program, n};
    long r = syscall(to_program ? SYS_process_vm_writev : SYS_process_vm_readv, getpid(), &local, 1,
                     &remote, 1, 0);
    if (r == static_cast<long>(n))
        return true;
    if (r < 0 && (errno == ENOSYS || errno == EPERM)) {
        if (program == nullptr)
            return false;
        std::memcpy(dst, src, n);
        return true;
    }
    return false;
}

bool from_user(void *dst, const void *src, size_t n) {
    return user_copy(dst, src, n, false);
}

bool to_user(void *dst, const void *src, size_t n) {
    return user_copy(dst, src, n, true);
}

struct SetupRequest {
    unsigned long req;
    const char *name;
    bool u32; // the argument is 32 bits wide, else 8
};

constexpr SetupRequest kSetupRequests[] = {
    {SPI_IOC_RD_MODE, "RD_MODE", false},
    {SPI_IOC_RD_MODE32, "RD_MODE32", true},
    {SPI_IOC_RD_LSB_FIRST, "RD_LSB_FIRST", false},
    {SPI_IOC_RD_BITS_PER_WORD, "RD_BITS_PER_WORD", false},
    {SPI_IOC_RD_MAX_SPEED_HZ, "RD_MAX_SPEED_HZ", true},
    {SPI_IOC_WR_MODE, "WR_MODE", false},
    {SPI_IOC_WR_MODE32, "WR_MODE32", true},
    {SPI_IOC_WR_LSB_FIRST, "WR_LSB_FIRST", false},
    {SPI_IOC_WR_BITS_PER_WORD, "WR_BITS_PER_WORD", false},
    {SPI_IOC_WR_MAX_SPEED_HZ, "WR_MAX_SPEED_HZ", true},
};

uint32_t setting(const ChipState &s, unsigned long req) {
    switch (req) {
    case SPI_IOC_RD_MODE:
        return s.spi_mode & 0xFF;
    case SPI_IOC_RD_LSB_FIRST:
        return (s.spi_mode & SPI_LSB_FIRST) != 0 ? 1 : 0;
    case SPI_IOC_RD_BITS_PER_WORD:
        return s.spi_bits;
    case SPI_IOC_RD_MAX_SPEED_HZ:
        return s.spi_speed;
    default:
        return s.spi_mode;
    }
}

// Applies a set-up write; returns 0 or the errno the driver gives.
int apply_setting(ChipState &s, unsigned long req, uint32_t v) {
    const zb::Faults &f = s.faults;
    switch (req) {
    case SPI_IOC_WR_MODE:
    case SPI_IOC_WR_MODE32:
        if ((req == SPI_IOC_WR_MODE && f.wr_mode != 0) || ((v & ~kCtrlModeBits) != 0))
            return EINVAL; // the controller cannot do these modes
        s.spi_mode = v;
        return 0;
    case SPI_IOC_WR_LSB_FIRST:
        if (f.wr_lsb != 0)
            return EINVAL;
        s.spi_mode = v != 0 ? (s.spi_mode | SPI_LSB_FIRST) : (s.spi_mode & ~SPI_LSB_FIRST);
        return 0;
    case SPI_IOC_WR_BITS_PER_WORD:
        if (f.wr_bits != 0 || v > 32)
            return EINVAL;
        s.spi_bits = static_cast<uint8_t>(v != 0 ? v : 8);
        return 0;
    default: // SPI_IOC_WR_MAX_SPEED_HZ
        if (f.wr_speed != 0 || v == 0)
            return EINVAL;
        s.spi_speed = v;
        return 0;
    }
}

// A set-up ioctl, or -2 for any other request. Caller holds the Guard.
int setup_ioctl(unsigned long req, void *arg) {
    const SetupRequest *r = nullptr;
    for (const SetupRequest &c : kSetupRequests)
        if (c.req == req)
            r = &c;
    if (r == nullptr)
        return -2;
    ChipState &s = *g.st;
    uint32_t v = setting(s, req);
    uint8_t b = static_cast<uint8_t>(v);
    int err = 0;
    if (_IOC_DIR(req) != _IOC_WRITE) {
        err = (r->u32 ? to_user(arg, &v, 4) : to_user(arg, &b, 1)) ? 0 : EFAULT;
    } else if (!(r->u32 ? from_user(&v, arg, 4) : from_user(&b, arg, 1))) {
        err = EFAULT;
    } else {
        v = r->u32 ? v : b;
        err = apply_setting(s, req, v);
    }
    zb::event("ioctl %d %s %u ok=%d", getpid(), r->name, v, err != 0 ? 0 : 1);
    return err != 0 ? fail(err) : 0;
}

struct Message {
    spi_ioc_transfer xf[kMaxXfers];
    zb::SpiTransfer run[kMaxXfers];
    uint8_t tx[kBufSize];
    uint8_t rx[kBufSize];
    size_t n;
    size_t total;
};

// The word size and the wiring the SPI core accepts for one record; 0 or the
// errno.
int check_wiring(const spi_ioc_transfer &t, const ChipState &s) {
    unsigned bpw = t.bits_per_word != 0 ? t.bits_per_word : s.spi_bits;
    if (bpw < 1 || bpw > 32 || (bpw > 16 && t.len % 4 != 0) || (bpw > 8 && t.len % 2 != 0))
        return EINVAL;
    if (t.tx_nbits > 1 || t.rx_nbits > 1)
        return EINVAL; // no dual or quad wiring on this bus
    return 0;
}

// Checks the records as spidev_message and the SPI core do, and gathers the
// bytes to send; 0 or the errno.
int gather(Message &m, const ChipState &s) {
    size_t tx_total = 0;
    size_t rx_total = 0;
    m.total = 0;
    for (size_t i = 0; i < m.n; ++i) {
        const spi_ioc_transfer &t = m.xf[i];
        size_t aligned = (static_cast<size_t>(t.len) + 7) & ~static_cast<size_t>(7);
        m.total += t.len;
        if (m.total > INT_MAX)
            return EMSGSIZE;
        if ((t.rx_buf != 0 && (rx_total += aligned) > kBufSize) ||
            (t.tx_buf != 0 && tx_total + aligned > kBufSize))
            return EMSGSIZE;
        uint8_t *tx = t.tx_buf != 0 ? m.tx + tx_total : nullptr;
        if (tx != nullptr && !from_user(tx, reinterpret_cast<const void *>(t.tx_buf), t.len))
            return EFAULT;
        tx_total += t.tx_buf != 0 ? aligned : 0;
        if (int err = check_wiring(t, s))
            return err;
        m.run[i] = {tx,
                    t.rx_buf != 0 ? m.rx + rx_total - aligned : nullptr,
                    t.len,
                    t.bits_per_word,
                    t.cs_change != 0,
                    t.rx_buf != 0};
    }
    return 0;
}

int message_ioctl(unsigned long req, void *arg) {
    if (_IOC_NR(req) != _IOC_NR(SPI_IOC_MESSAGE(0)) || _IOC_DIR(req) != _IOC_WRITE)
        return fail(ENOTTY);
    size_t size = _IOC_SIZE(req);
    if (size % sizeof(spi_ioc_transfer) != 0)
        return fail(EINVAL);
    static Message m; // under the Guard; too large for a thread's stack
    m.n = size / sizeof(spi_ioc_transfer);
    if (m.n == 0)
        return 0;
    if (!from_user(m.xf, arg, size))
        return fail(EFAULT);
    if (int err = gather(m, *g.st))
        return fail(err);
    // An injected fault fails the transfer before the chip sees anything.
    bool ok = !zb::spi_message_fails(*g.st);
    zb::spi_message(*g.st, getpid(), m.run, m.n, ok);
    if (!ok)
        return fail(EIO);
    for (size_t i = 0; i < m.n; ++i) {
        const spi_ioc_transfer &t = m.xf[i];
        if (t.rx_buf != 0 && !to_user(reinterpret_cast<void *>(t.rx_buf), m.run[i].rx, t.len))
            return fail(EFAULT);
    }
    return static_cast<int>(m.total);
}

} // namespace

namespace zbp {

int spidev_ioctl(unsigned long req, void *arg) {
    if (_IOC_TYPE(req) != SPI_IOC_MAGIC)
        return fail(ENOTTY);
    Guard guard;
    if (g.st == nullptr)
        return fail(ENODEV);
    int r = setup_ioctl(req, arg);
    if (r != -2)
        return r;
    return message_ioctl(req, arg);
}

} // namespace zbp

#pragma GCC visibility push(default)
extern "C" int ioctl(int fd, unsigned long req, ...) noexcept {
    va_list ap;
    va_start(ap, req);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (active()) {
        FdInfo *info = tracked(fd);
        if (info != nullptr && info->kind == kFdSpidev)
            return spidev_ioctl(req, arg);
    }
    return real_fn(r_ioctl, "ioctl")(fd, req, arg);
}
#pragma GCC visibility pop
