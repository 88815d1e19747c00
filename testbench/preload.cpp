// libzorvibench.so: runs an unmodified program against a sandbox.
//
// With ZORVI_SANDBOX=SB in the environment the library redirects the board's
// fixed paths into SB, plays the kernel's spidev driver in front of the
// simulated chip (SB/state), plays the sysfs GPIO files, logs what the program
// does to SB/events and shortens its sleeps. Without the variable every call
// passes straight through.
//
// The hooks never allocate and never call a hooked function themselves: the
// bench's own I/O goes through raw system calls.
#include "bench_state.h"
#include "chip_model.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

using zb::ChipState;

namespace {

// ---------------------------------------------------------------------------
// Real functions

template <typename F> F real_fn(F &slot, const char *name) {
    if (!slot)
        slot = reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
    return slot;
}

using open_t = int (*)(const char *, int, ...);
using openat_t = int (*)(int, const char *, int, ...);
using fopen_t = FILE *(*)(const char *, const char *);
using access_t = int (*)(const char *, int);
using faccessat_t = int (*)(int, const char *, int, int);
using close_t = int (*)(int);
using write_t = ssize_t (*)(int, const void *, size_t);
using ioctl_t = int (*)(int, unsigned long, ...);

open_t r_open, r_open64;
openat_t r_openat, r_openat64;
fopen_t r_fopen, r_fopen64;
access_t r_access;
faccessat_t r_faccessat;
close_t r_close;
write_t r_write;
ioctl_t r_ioctl;
int (*r_usleep)(useconds_t);
void (*r_openlog)(const char *, int, int);
void (*r_closelog)();
void (*r_vsyslog)(int, const char *, va_list);
void (*r_vsyslog_chk)(int, int, const char *, va_list);

// ---------------------------------------------------------------------------
// Process context

enum FdKind : uint8_t { kFdNone, kFdSpidev, kFdGpioExport, kFdGpioUnexport, kFdGpioAttr };
enum GpioAttr : uint8_t { kAttrOther, kAttrDirection, kAttrValue };

constexpr int kMaxFd = 4096;
constexpr size_t kFdPath = 96;

struct FdInfo {
    FdKind kind;
    GpioAttr attr;
    int16_t line;
    char path[kFdPath]; // as the program gave it
};

struct Context {
    bool active;
    char sb[PATH_MAX];
    ChipState *st;
    int lock_fd = -1;
    pid_t lock_pid;
    int events_fd = -1;
    pid_t events_pid;
    pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
    FdInfo fds[kMaxFd];
    // openlog's arguments
    char ident[64];
    int log_option;
    int log_facility;
    // ZORVI_REAL_SYSLOG: the messages also go to the real syslog (/dev/log)
    bool real_syslog;
};

Context g;
pthread_once_t g_once = PTHREAD_ONCE_INIT;

void init_once() {
    const char *sb = getenv("ZORVI_SANDBOX");
    if (!sb || !*sb || std::strlen(sb) >= sizeof g.sb - 64)
        return;
    std::strcpy(g.sb, sb);
    g.st = zb::state_map(g.sb);
    g.real_syslog = getenv("ZORVI_REAL_SYSLOG") != nullptr;
    g.active = true;
}

inline bool active() {
    pthread_once(&g_once, init_once);
    return g.active;
}

// Serialises all chip access and event logging of all processes: a process
// mutex for the threads of this process, flock on SB/state between processes.
// A forked child gets its own descriptor, as flock is shared by the fork.
struct Guard {
    Guard() {
        pthread_mutex_lock(&g.mu);
        pid_t pid = getpid();
        if (g.lock_fd < 0 || g.lock_pid != pid) {
            if (g.lock_fd >= 0)
                zb::sys_close(g.lock_fd);
            char path[PATH_MAX + 16];
            g.lock_fd = zb::sandbox_path(path, sizeof path, g.sb, "/state")
                            ? zb::sys_open(path, O_RDWR | O_CLOEXEC, 0)
                            : -1;
            g.lock_pid = pid;
        }
        if (g.lock_fd >= 0)
            while (flock(g.lock_fd, LOCK_EX) != 0 && errno == EINTR) {
            }
    }
    ~Guard() {
        if (g.lock_fd >= 0)
            flock(g.lock_fd, LOCK_UN);
        pthread_mutex_unlock(&g.mu);
    }
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;
};

// Append one line to SB/events; the caller holds the Guard.
void event_locked(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void event_locked(const char *fmt, ...) {
    if (g.st && !g.st->log_on)
        return;
    if (g.events_fd < 0) {
        char path[PATH_MAX + 16];
        if (!zb::sandbox_path(path, sizeof path, g.sb, "/events"))
            return;
        g.events_fd = zb::sys_open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (g.events_fd < 0)
            return;
    }
    char line[8192];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(line, sizeof line - 1, fmt, ap);
    va_end(ap);
    if (n < 0)
        return;
    size_t len =
        static_cast<size_t>(n) < sizeof line - 1 ? static_cast<size_t>(n) : sizeof line - 2;
    line[len++] = '\n';
    zb::sys_write(g.events_fd, line, len);
}

// Keeps errno as the program last saw it while the bench does its own work.
struct ErrnoKeeper {
    int saved = errno;
    ~ErrnoKeeper() { errno = saved; }
    void set(int e) { saved = e; }
};

// ---------------------------------------------------------------------------
// Paths

enum Redir { kRedirNone, kRedirPlain, kRedirSpidev, kRedirGpio };

bool starts(const char *s, const char *prefix) {
    return std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

bool dir_or_below(const char *s, const char *dir) {
    size_t n = std::strlen(dir);
    return std::strncmp(s, dir, n) == 0 && (s[n] == '\0' || s[n] == '/');
}

Redir classify(const char *p) {
    if (!p || p[0] != '/')
        return kRedirNone;
    if (starts(p, "/dev/spidev"))
        return kRedirSpidev;
    if (std::strcmp(p, "/proc/cpuinfo") == 0)
        return kRedirPlain;
    if (dir_or_below(p, "/sys/class/gpio"))
        return kRedirGpio;
    if (dir_or_below(p, "/var/run") || dir_or_below(p, "/tmp/zorvi"))
        return kRedirPlain;
    return kRedirNone;
}

// The sandbox path for p, or nullptr (errno set) when the path is too long.
const char *redirect(char *buf, size_t size, const char *p) {
    if (!zb::sandbox_path(buf, size, g.sb, p)) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    return buf;
}

// "/sys/class/gpio/gpio56/value" -> line 56, kAttrValue.
void parse_gpio_path(const char *p, FdInfo &info) {
    const char *rest = p + std::strlen("/sys/class/gpio");
    info.line = -1;
    info.attr = kAttrOther;
    if (std::strcmp(rest, "/export") == 0) {
        info.kind = kFdGpioExport;
        return;
    }
    if (std::strcmp(rest, "/unexport") == 0) {
        info.kind = kFdGpioUnexport;
        return;
    }
    info.kind = kFdGpioAttr;
    int line = -1;
    char attr[32] = "";
    if (std::sscanf(rest, "/gpio%d/%31s", &line, attr) == 2) {
        info.line = static_cast<int16_t>(line);
        if (std::strcmp(attr, "direction") == 0)
            info.attr = kAttrDirection;
        else if (std::strcmp(attr, "value") == 0)
            info.attr = kAttrValue;
    }
}

void remember_fd(int fd, const FdInfo &info) {
    if (fd >= 0 && fd < kMaxFd)
        g.fds[fd] = info;
}

FdInfo *tracked(int fd) {
    if (fd < 0 || fd >= kMaxFd || g.fds[fd].kind == kFdNone)
        return nullptr;
    return &g.fds[fd];
}

// ---------------------------------------------------------------------------
// open family

template <typename Call> int hooked_open(const char *path, Call &&call) {
    if (!active())
        return call(path);
    Redir r = classify(path);
    if (r == kRedirNone)
        return call(path);
    char buf[PATH_MAX + 64];
    const char *np = redirect(buf, sizeof buf, path);
    if (!np)
        return -1;
    if (r == kRedirPlain)
        return call(np);

    FdInfo info{};
    std::snprintf(info.path, sizeof info.path, "%s", path);
    int fd;
    int err = 0;
    if (r == kRedirSpidev) {
        info.kind = kFdSpidev;
        if (!g.st || g.st->faults.open) {
            fd = -1;
            err = ENOENT;
        } else {
            fd = call(np);
            err = errno;
        }
    } else {
        parse_gpio_path(path, info);
        if (g.st && g.st->faults.gpio_open[0] && std::strcmp(g.st->faults.gpio_open, path) == 0) {
            fd = -1;
            err = EACCES;
        } else {
            fd = call(np);
            err = errno;
        }
    }
    {
        Guard guard;
        if (fd >= 0)
            remember_fd(fd, info);
        event_locked("open %d %s ok=%d", getpid(), path, fd >= 0 ? 1 : 0);
    }
    errno = err;
    return fd;
}

bool needs_mode(int flags) {
    return (flags & O_CREAT) || (flags & __O_TMPFILE) == __O_TMPFILE;
}

// ---------------------------------------------------------------------------
// GPIO emulation

// Parses what a program writes to a sysfs attribute: the text up to a NUL,
// with one trailing newline allowed, as a whole number.
bool parse_sysfs_number(const void *buf, size_t n, long &out) {
    char text[64];
    size_t len = 0;
    const char *b = static_cast<const char *>(buf);
    while (len < n && len < sizeof text - 1 && b[len] != '\0')
        ++len;
    if (len == sizeof text - 1 && len < n)
        return false;
    std::memcpy(text, b, len);
    if (len > 0 && text[len - 1] == '\n')
        --len;
    text[len] = '\0';
    if (len == 0)
        return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtol(text, &end, 0);
    return errno == 0 && end && *end == '\0';
}

bool sysfs_streq(const void *buf, size_t n, const char *word) {
    const char *b = static_cast<const char *>(buf);
    size_t len = 0;
    while (len < n && b[len] != '\0')
        ++len;
    if (len > 0 && b[len - 1] == '\n')
        --len;
    return std::strlen(word) == len && std::strncmp(b, word, len) == 0;
}

void put_file(const char *rel_dir, const char *name, const char *text) {
    char path[PATH_MAX + 64];
    char rel[256];
    std::snprintf(rel, sizeof rel, "%s/%s", rel_dir, name);
    if (!zb::sandbox_path(path, sizeof path, g.sb, rel))
        return;
    int fd = zb::sys_open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) {
        zb::sys_write(fd, text, std::strlen(text));
        zb::sys_close(fd);
    }
}

// Replace the attribute file's content, as a sysfs attribute reads back.
int set_attr_content(int fd, const char *text) {
    size_t len = std::strlen(text);
    if (syscall(SYS_pwrite64, fd, text, len, 0) < 0)
        return -1;
    return static_cast<int>(syscall(SYS_ftruncate, fd, len));
}

// Returns the write's result, errno set on failure. Caller holds the Guard.
ssize_t gpio_write_locked(int fd, FdInfo &info, const void *buf, size_t n) {
    if (g.st && g.st->faults.gpio_write[0] &&
        std::strcmp(g.st->faults.gpio_write, info.path) == 0) {
        errno = EIO;
        return -1;
    }
    long v = 0;
    char dir[64];
    char path[PATH_MAX + 64];
    switch (info.kind) {
    case kFdGpioExport:
    case kFdGpioUnexport: {
        if (!parse_sysfs_number(buf, n, v) || v < 0 || v > 1023) {
            errno = EINVAL;
            return -1;
        }
        std::snprintf(dir, sizeof dir, "/sys/class/gpio/gpio%ld", v);
        if (!zb::sandbox_path(path, sizeof path, g.sb, dir)) {
            errno = ENAMETOOLONG;
            return -1;
        }
        struct stat sb {};
        bool exported = stat(path, &sb) == 0;
        if (info.kind == kFdGpioUnexport) {
            if (!exported) {
                errno = EINVAL;
                return -1;
            }
            char f[PATH_MAX + 80];
            std::snprintf(f, sizeof f, "%s/direction", path);
            unlink(f);
            std::snprintf(f, sizeof f, "%s/value", path);
            unlink(f);
            rmdir(path);
            return static_cast<ssize_t>(n);
        }
        if (exported || (g.st && g.st->faults.export_busy == v)) {
            errno = EBUSY; // the line is already exported or taken
            return -1;
        }
        if (mkdir(path, 0755) != 0) {
            errno = EIO;
            return -1;
        }
        put_file(dir, "direction", "in\n");
        put_file(dir, "value", "0\n");
        return static_cast<ssize_t>(n);
    }
    case kFdGpioAttr:
        break;
    default:
        errno = EBADF;
        return -1;
    }
    if (info.attr == kAttrDirection) {
        const char *content = nullptr;
        int level = -1;
        if (sysfs_streq(buf, n, "in")) {
            content = "in\n";
        } else if (sysfs_streq(buf, n, "out") || sysfs_streq(buf, n, "low")) {
            content = "out\n";
            level = sysfs_streq(buf, n, "low") ? 0 : -1;
        } else if (sysfs_streq(buf, n, "high")) {
            content = "out\n";
            level = 1;
        } else {
            errno = EINVAL;
            return -1;
        }
        if (set_attr_content(fd, content) != 0)
            return -1;
        if (level >= 0 && g.st) {
            char dirv[64];
            std::snprintf(dirv, sizeof dirv, "/sys/class/gpio/gpio%d", info.line);
            put_file(dirv, "value", level ? "1\n" : "0\n");
            zb::chip_gpio_level(*g.st, info.line, level);
        }
        return static_cast<ssize_t>(n);
    }
    if (info.attr == kAttrValue) {
        if (!parse_sysfs_number(buf, n, v)) {
            errno = EINVAL;
            return -1;
        }
        if (set_attr_content(fd, v ? "1\n" : "0\n") != 0)
            return -1;
        if (g.st)
            zb::chip_gpio_level(*g.st, info.line, v ? 1 : 0);
        return static_cast<ssize_t>(n);
    }
    return r_write(fd, buf, n);
}

ssize_t gpio_write(int fd, FdInfo &info, const void *buf, size_t n) {
    char hex[2 * 64 + 4];
    size_t shown = n < 64 ? n : 64;
    for (size_t i = 0; i < shown; ++i)
        std::snprintf(hex + 2 * i, 3, "%02x", static_cast<const unsigned char *>(buf)[i]);
    hex[2 * shown] = '\0';
    if (shown == 0)
        std::strcpy(hex, "-");
    Guard guard;
    ssize_t r = gpio_write_locked(fd, info, buf, n);
    int err = errno;
    event_locked("gpio %d %s %s ok=%d", getpid(), info.path, hex, r >= 0 ? 1 : 0);
    errno = err;
    return r;
}

// ---------------------------------------------------------------------------
// spidev emulation

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
        if (!program)
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

// The simulated controller: mode 0 to 3, CS_HIGH and LSB_FIRST; 1 to 32 bits
// per word; single-wire transfers only.
constexpr uint32_t kCtrlModeBits = SPI_CPHA | SPI_CPOL | SPI_CS_HIGH | SPI_LSB_FIRST;
constexpr size_t kBufSize = 4096; // spidev's default bufsiz
constexpr size_t kMaxXfers = (1u << _IOC_SIZEBITS) / sizeof(spi_ioc_transfer);

int fail(int e) {
    errno = e;
    return -1;
}

// A set-up ioctl. Caller holds the Guard.
int setup_ioctl(unsigned long req, void *arg) {
    ChipState &s = *g.st;
    const char *name = nullptr;
    uint32_t v = 0;
    int err = 0;
    bool is_u32 = false;
    switch (req) {
    case SPI_IOC_RD_MODE:
        name = "RD_MODE";
        v = s.spi_mode & 0xFF;
        break;
    case SPI_IOC_RD_MODE32:
        name = "RD_MODE32";
        v = s.spi_mode;
        is_u32 = true;
        break;
    case SPI_IOC_RD_LSB_FIRST:
        name = "RD_LSB_FIRST";
        v = (s.spi_mode & SPI_LSB_FIRST) ? 1 : 0;
        break;
    case SPI_IOC_RD_BITS_PER_WORD:
        name = "RD_BITS_PER_WORD";
        v = s.spi_bits;
        break;
    case SPI_IOC_RD_MAX_SPEED_HZ:
        name = "RD_MAX_SPEED_HZ";
        v = s.spi_speed;
        is_u32 = true;
        break;
    case SPI_IOC_WR_MODE:
        name = "WR_MODE";
        break;
    case SPI_IOC_WR_MODE32:
        name = "WR_MODE32";
        is_u32 = true;
        break;
    case SPI_IOC_WR_LSB_FIRST:
        name = "WR_LSB_FIRST";
        break;
    case SPI_IOC_WR_BITS_PER_WORD:
        name = "WR_BITS_PER_WORD";
        break;
    case SPI_IOC_WR_MAX_SPEED_HZ:
        name = "WR_MAX_SPEED_HZ";
        is_u32 = true;
        break;
    default:
        return -2; // not a set-up request
    }
    bool write = _IOC_DIR(req) == _IOC_WRITE;
    if (!write) {
        uint8_t b = static_cast<uint8_t>(v);
        if (!(is_u32 ? to_user(arg, &v, 4) : to_user(arg, &b, 1)))
            err = EFAULT;
    } else {
        uint8_t b = 0;
        if (!(is_u32 ? from_user(&v, arg, 4) : from_user(&b, arg, 1)))
            err = EFAULT;
        else if (!is_u32)
            v = b;
        if (!err) {
            switch (req) {
            case SPI_IOC_WR_MODE:
            case SPI_IOC_WR_MODE32:
                if (req == SPI_IOC_WR_MODE ? s.faults.wr_mode : 0)
                    err = EINVAL;
                else if (v & ~kCtrlModeBits)
                    err = EINVAL; // the controller cannot do these modes
                else
                    s.spi_mode = v;
                break;
            case SPI_IOC_WR_LSB_FIRST:
                if (s.faults.wr_lsb)
                    err = EINVAL;
                else
                    s.spi_mode = v ? (s.spi_mode | SPI_LSB_FIRST) : (s.spi_mode & ~SPI_LSB_FIRST);
                break;
            case SPI_IOC_WR_BITS_PER_WORD:
                if (s.faults.wr_bits || v > 32)
                    err = EINVAL;
                else
                    s.spi_bits = static_cast<uint8_t>(v ? v : 8);
                break;
            case SPI_IOC_WR_MAX_SPEED_HZ:
                if (s.faults.wr_speed || v == 0)
                    err = EINVAL;
                else
                    s.spi_speed = v;
                break;
            }
        }
    }
    event_locked("ioctl %d %s %u ok=%d", getpid(), name, v, err ? 0 : 1);
    return err ? fail(err) : 0;
}

struct Frame {
    size_t len;
    uint8_t cmd;
    uint8_t reg;
    uint8_t first_val;
    uint8_t next_reg; // auto-incremented register
    uint8_t bpw;
    bool rx;
};

void log_frame(const Frame &f, bool ok) {
    if (f.len == 0)
        return;
    const char *op = f.cmd == 0x03 ? "R" : f.cmd == 0x02 ? "W" : "?";
    char reg[8] = "-";
    char val[8] = "-";
    if (f.len >= 2)
        std::snprintf(reg, sizeof reg, "%u", f.reg);
    if (f.len >= 3)
        std::snprintf(val, sizeof val, "%u", f.first_val);
    event_locked("xfer %d %s %s %s bpw=%u rx=%d len=%zu ok=%d", getpid(), op, reg, val, f.bpw,
                 f.rx ? 1 : 0, f.len, ok ? 1 : 0);
}

// One byte on the wire within a chip-select frame; returns the byte the chip
// shifts out. With `apply` false (a failed transfer) the chip sees nothing.
uint8_t frame_byte(Frame &f, uint8_t tx, bool apply) {
    size_t pos = f.len++;
    ChipState &s = *g.st;
    uint8_t idle = s.managed ? 0x00 : 0xFF;
    if (pos == 0) {
        f.cmd = tx;
        return idle;
    }
    if (pos == 1) {
        f.reg = tx;
        f.next_reg = tx;
        return idle;
    }
    uint8_t out = idle;
    uint8_t reg = f.next_reg++;
    if (f.cmd == 0x03) {
        out = apply ? zb::chip_spi_read(s, reg) : tx;
        if (pos == 2)
            f.first_val = out;
    } else if (f.cmd == 0x02) {
        if (apply)
            zb::chip_spi_write(s, reg, tx);
        if (pos == 2)
            f.first_val = tx;
    } else if (pos == 2) {
        f.first_val = tx;
    }
    return out;
}

int message_ioctl(unsigned long req, void *arg) {
    if (_IOC_NR(req) != _IOC_NR(SPI_IOC_MESSAGE(0)) || _IOC_DIR(req) != _IOC_WRITE)
        return fail(ENOTTY);
    size_t size = _IOC_SIZE(req);
    if (size % sizeof(spi_ioc_transfer) != 0)
        return fail(EINVAL);
    size_t n = size / sizeof(spi_ioc_transfer);
    if (n == 0)
        return 0;
    if (n > kMaxXfers)
        return fail(EINVAL);
    spi_ioc_transfer xf[kMaxXfers];
    if (!from_user(xf, arg, size))
        return fail(EFAULT);

    // Validate and gather the bytes to send, as spidev_message does.
    static_assert(kBufSize % 8 == 0);
    uint8_t tx[kBufSize];
    uint8_t rx[kBufSize];
    size_t tx_off[kMaxXfers];
    size_t rx_off[kMaxXfers];
    uint64_t total = 0;
    size_t tx_total = 0;
    size_t rx_total = 0;
    ChipState &s = *g.st;
    for (size_t i = 0; i < n; ++i) {
        const spi_ioc_transfer &t = xf[i];
        size_t aligned = (static_cast<size_t>(t.len) + 7) & ~static_cast<size_t>(7);
        total += t.len;
        if (total > INT_MAX || t.len > INT_MAX)
            return fail(EMSGSIZE);
        if (t.rx_buf) {
            rx_off[i] = rx_total;
            rx_total += aligned;
            if (rx_total > kBufSize)
                return fail(EMSGSIZE);
        }
        if (t.tx_buf) {
            tx_off[i] = tx_total;
            tx_total += aligned;
            if (tx_total > kBufSize)
                return fail(EMSGSIZE);
            if (!from_user(tx + tx_off[i], reinterpret_cast<const void *>(t.tx_buf), t.len))
                return fail(EFAULT);
        }
        unsigned bpw = t.bits_per_word ? t.bits_per_word : s.spi_bits;
        if (bpw < 1 || bpw > 32)
            return fail(EINVAL);
        if ((bpw > 16 && t.len % 4) || (bpw > 8 && t.len % 2))
            return fail(EINVAL);
        if (t.tx_nbits > 1 || t.rx_nbits > 1)
            return fail(EINVAL); // no dual or quad wiring on this bus
    }

    // The transfer itself; an injected fault fails it with EIO before the
    // chip sees anything.
    ++s.xfers;
    bool ok = !s.faults.xfer_all;
    if (s.faults.xfer_from) {
        ++s.faults.xfer_seen;
        if (s.faults.xfer_seen >= s.faults.xfer_from)
            ok = false;
    }
    Frame f{};
    for (size_t i = 0; i < n; ++i) {
        const spi_ioc_transfer &t = xf[i];
        if (f.len == 0) {
            f.bpw = t.bits_per_word;
            f.rx = false;
        }
        if (t.rx_buf)
            f.rx = true;
        for (size_t k = 0; k < t.len; ++k) {
            uint8_t out = frame_byte(f, t.tx_buf ? tx[tx_off[i] + k] : 0, ok);
            if (t.rx_buf)
                rx[rx_off[i] + k] = out;
        }
        if (t.cs_change || i + 1 == n) {
            log_frame(f, ok);
            f = Frame{};
        }
    }
    if (!ok)
        return fail(EIO);
    for (size_t i = 0; i < n; ++i) {
        const spi_ioc_transfer &t = xf[i];
        if (t.rx_buf && !to_user(reinterpret_cast<void *>(t.rx_buf), rx + rx_off[i], t.len))
            return fail(EFAULT);
    }
    return static_cast<int>(total);
}

int spidev_ioctl(unsigned long req, void *arg) {
    if (_IOC_TYPE(req) != SPI_IOC_MAGIC)
        return fail(ENOTTY);
    Guard guard;
    if (!g.st)
        return fail(ENODEV);
    int r = setup_ioctl(req, arg);
    if (r != -2)
        return r;
    return message_ioctl(req, arg);
}

// ---------------------------------------------------------------------------
// syslog

// C-escape a message for the one-line event format.
void escape(char *out, size_t size, const char *in) {
    size_t o = 0;
    for (const unsigned char *p = reinterpret_cast<const unsigned char *>(in); *p && o + 5 < size;
         ++p) {
        unsigned char c = *p;
        if (c == '\n') {
            out[o++] = '\\';
            out[o++] = 'n';
        } else if (c == '\t') {
            out[o++] = '\\';
            out[o++] = 't';
        } else if (c == '\\') {
            out[o++] = '\\';
            out[o++] = '\\';
        } else if (c < 0x20 || c >= 0x7F) {
            o += static_cast<size_t>(std::snprintf(out + o, size - o, "\\x%02x", c));
        } else {
            out[o++] = static_cast<char>(c);
        }
    }
    out[o] = '\0';
}

// With ZORVI_REAL_SYSLOG the message goes to the real syslog as well, for the
// tests with a real syslog receiver; the caller's errno stays for %m.
void real_vsyslog(int pri, const char *fmt, va_list ap) {
    if (!g.real_syslog)
        return;
    const int saved = errno;
    va_list copy;
    va_copy(copy, ap);
    real_fn(r_vsyslog, "vsyslog")(pri, fmt, copy);
    va_end(copy);
    errno = saved;
}

void bench_vsyslog(int pri, const char *fmt, va_list ap) {
    char msg[2048];
    std::vsnprintf(msg, sizeof msg, fmt ? fmt : "", ap); // errno is still the caller's for %m
    char esc[4 * sizeof msg + 1];
    escape(esc, sizeof esc, msg);
    Guard guard;
    event_locked("syslog %d %d %s", getpid(), pri & 7, esc);
}

} // namespace

// ---------------------------------------------------------------------------
// Hooks

// Declares `mode`, the mode argument of the variadic opens: there only when
// the call creates a file. A macro, since va_start needs the hook's own frame.
#define TAKE_OPEN_MODE(flags)                                                                      \
    mode_t mode = 0;                                                                               \
    if (needs_mode(flags)) {                                                                       \
        va_list ap;                                                                                \
        va_start(ap, flags);                                                                       \
        mode = static_cast<mode_t>(va_arg(ap, int));                                               \
        va_end(ap);                                                                                \
    }

#pragma GCC visibility push(default)
extern "C" {

int open(const char *path, int flags, ...) {
    TAKE_OPEN_MODE(flags)
    return hooked_open(path,
                       [&](const char *p) { return real_fn(r_open, "open")(p, flags, mode); });
}

int open64(const char *path, int flags, ...) {
    TAKE_OPEN_MODE(flags)
    return hooked_open(path,
                       [&](const char *p) { return real_fn(r_open64, "open64")(p, flags, mode); });
}

int __open_2(const char *path, int flags) {
    return hooked_open(path, [&](const char *p) { return real_fn(r_open, "open")(p, flags, 0); });
}

int __open64_2(const char *path, int flags) {
    return hooked_open(path,
                       [&](const char *p) { return real_fn(r_open64, "open64")(p, flags, 0); });
}

int openat(int dirfd, const char *path, int flags, ...) {
    TAKE_OPEN_MODE(flags)
    return hooked_open(
        path, [&](const char *p) { return real_fn(r_openat, "openat")(dirfd, p, flags, mode); });
}

int openat64(int dirfd, const char *path, int flags, ...) {
    TAKE_OPEN_MODE(flags)
    return hooked_open(path, [&](const char *p) {
        return real_fn(r_openat64, "openat64")(dirfd, p, flags, mode);
    });
}

int __openat_2(int dirfd, const char *path, int flags) {
    return hooked_open(
        path, [&](const char *p) { return real_fn(r_openat, "openat")(dirfd, p, flags, 0); });
}

int __openat64_2(int dirfd, const char *path, int flags) {
    return hooked_open(
        path, [&](const char *p) { return real_fn(r_openat64, "openat64")(dirfd, p, flags, 0); });
}

FILE *fopen(const char *path, const char *mode) {
    char buf[PATH_MAX + 64];
    if (active() && classify(path) != kRedirNone) {
        path = redirect(buf, sizeof buf, path);
        if (!path)
            return nullptr;
    }
    return real_fn(r_fopen, "fopen")(path, mode);
}

FILE *fopen64(const char *path, const char *mode) {
    char buf[PATH_MAX + 64];
    if (active() && classify(path) != kRedirNone) {
        path = redirect(buf, sizeof buf, path);
        if (!path)
            return nullptr;
    }
    return real_fn(r_fopen64, "fopen64")(path, mode);
}

int access(const char *path, int mode) noexcept {
    if (!active() || classify(path) == kRedirNone)
        return real_fn(r_access, "access")(path, mode);
    char buf[PATH_MAX + 64];
    const char *np = redirect(buf, sizeof buf, path);
    int r = np ? real_fn(r_access, "access")(np, mode) : -1;
    int err = errno;
    {
        Guard guard;
        event_locked("access %d %s %d %d", getpid(), path, mode, r);
    }
    errno = err;
    return r;
}

int faccessat(int dirfd, const char *path, int mode, int flags) noexcept {
    if (!active() || classify(path) == kRedirNone)
        return real_fn(r_faccessat, "faccessat")(dirfd, path, mode, flags);
    char buf[PATH_MAX + 64];
    const char *np = redirect(buf, sizeof buf, path);
    int r = np ? real_fn(r_faccessat, "faccessat")(dirfd, np, mode, flags) : -1;
    int err = errno;
    {
        Guard guard;
        event_locked("access %d %s %d %d", getpid(), path, mode, r);
    }
    errno = err;
    return r;
}

int close(int fd) {
    if (active() && fd >= 0 && (tracked(fd) || fd == g.events_fd || fd == g.lock_fd)) {
        ErrnoKeeper keep;
        Guard guard;
        if (fd >= 0 && fd == g.events_fd)
            g.events_fd = -1; // the program closed it under us: reopen on next use
        if (fd >= 0 && fd == g.lock_fd)
            g.lock_fd = -1;
        if (FdInfo *info = tracked(fd)) {
            event_locked("close %d %s", getpid(), info->path);
            info->kind = kFdNone;
        }
    }
    return real_fn(r_close, "close")(fd);
}

ssize_t write(int fd, const void *buf, size_t n) {
    if (active()) {
        if (FdInfo *info = tracked(fd)) {
            if (info->kind != kFdSpidev)
                return gpio_write(fd, *info, buf, n);
        }
    }
    return real_fn(r_write, "write")(fd, buf, n);
}

int ioctl(int fd, unsigned long req, ...) noexcept {
    va_list ap;
    va_start(ap, req);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (active()) {
        FdInfo *info = tracked(fd);
        if (info && info->kind == kFdSpidev)
            return spidev_ioctl(req, arg);
    }
    return real_fn(r_ioctl, "ioctl")(fd, req, arg);
}

int usleep(useconds_t us) {
    if (!active())
        return real_fn(r_usleep, "usleep")(us);
    ErrnoKeeper keep;
    uint32_t scale = 1000;
    {
        Guard guard;
        event_locked("usleep %d %u", getpid(), static_cast<unsigned>(us));
        if (g.st)
            scale = g.st->time_scale;
    }
    if (scale == 0)
        return 0; // time scale 0: no real waiting at all
    uint64_t ns = static_cast<uint64_t>(us) * 1000u / scale;
    timespec ts{static_cast<time_t>(ns / 1000000000u), static_cast<long>(ns % 1000000000u)};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
    return 0;
}

void openlog(const char *ident, int option, int facility) {
    if (!active())
        return real_fn(r_openlog, "openlog")(ident, option, facility);
    ErrnoKeeper keep;
    std::snprintf(g.ident, sizeof g.ident, "%s", ident ? ident : "-");
    g.log_option = option;
    g.log_facility = facility;
    Guard guard;
    event_locked("openlog %d %s %d %d", getpid(), g.ident, option, facility);
    if (g.real_syslog)
        real_fn(r_openlog, "openlog")(ident, option, facility);
}

void closelog(void) {
    if (!active() || g.real_syslog)
        real_fn(r_closelog, "closelog")();
}

void vsyslog(int pri, const char *fmt, va_list ap) {
    if (!active())
        return real_fn(r_vsyslog, "vsyslog")(pri, fmt, ap);
    ErrnoKeeper keep;
    real_vsyslog(pri, fmt, ap);
    bench_vsyslog(pri, fmt, ap);
}

void syslog(int pri, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    if (!active()) {
        real_fn(r_vsyslog, "vsyslog")(pri, fmt, ap);
    } else {
        ErrnoKeeper keep;
        real_vsyslog(pri, fmt, ap);
        bench_vsyslog(pri, fmt, ap);
    }
    va_end(ap);
}

void __vsyslog_chk(int pri, int flag, const char *fmt, va_list ap) {
    if (!active())
        return real_fn(r_vsyslog_chk, "__vsyslog_chk")(pri, flag, fmt, ap);
    ErrnoKeeper keep;
    real_vsyslog(pri, fmt, ap);
    bench_vsyslog(pri, fmt, ap);
}

void __syslog_chk(int pri, int flag, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    if (!active()) {
        real_fn(r_vsyslog_chk, "__vsyslog_chk")(pri, flag, fmt, ap);
    } else {
        ErrnoKeeper keep;
        real_vsyslog(pri, fmt, ap);
        bench_vsyslog(pri, fmt, ap);
    }
    va_end(ap);
}

} // extern "C"
#pragma GCC visibility pop
