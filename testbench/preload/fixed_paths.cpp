// The board's fixed paths: /dev/spidev*, /proc/cpuinfo, /sys/class/gpio/...,
// /var/run/... and /tmp/zorvi/... go into the sandbox. Opens of the spidev
// and GPIO paths are logged and their descriptors tracked for the emulations.
// On the VM bench the kernel has these paths itself, and the test's mount
// namespace binds the sandbox's files over /proc/cpuinfo, /var/run and
// /tmp/zorvi.
#include "preload.h"

#include "bench_state.h"
#include "event_log.h"

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

using namespace zbp;

namespace {

using open_t = int (*)(const char *, int, ...);
using openat_t = int (*)(int, const char *, int, ...);
using fopen_t = FILE *(*)(const char *, const char *);
using access_t = int (*)(const char *, int);
using faccessat_t = int (*)(int, const char *, int, int);
using close_t = int (*)(int);

open_t r_open, r_open64;
openat_t r_openat, r_openat64;
fopen_t r_fopen, r_fopen64;
access_t r_access;
faccessat_t r_faccessat;
close_t r_close;

enum Redir { kRedirNone, kRedirPlain, kRedirSpidev, kRedirGpio };

bool starts(const char *s, const char *prefix) {
    return std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

bool dir_or_below(const char *s, const char *dir) {
    size_t n = std::strlen(dir);
    return std::strncmp(s, dir, n) == 0 && (s[n] == '\0' || s[n] == '/');
}

Redir classify(const char *p) {
    if (p == nullptr || p[0] != '/')
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
    info.kind = std::strcmp(rest, "/export") == 0     ? kFdGpioExport
                : std::strcmp(rest, "/unexport") == 0 ? kFdGpioUnexport
                                                      : kFdGpioAttr;
    int line = -1;
    char attr[32] = "";
    if (info.kind == kFdGpioAttr && std::sscanf(rest, "/gpio%d/%31s", &line, attr) == 2) {
        info.line = static_cast<int16_t>(line);
        if (std::strcmp(attr, "direction") == 0)
            info.attr = kAttrDirection;
        else if (std::strcmp(attr, "value") == 0)
            info.attr = kAttrValue;
    }
}

// Opens a spidev or GPIO path (already redirected to np), with the faults
// that make the open fail; returns the descriptor, errno in err.
template <typename Call> int open_device(const char *np, FdInfo &info, Call &&call, int &err) {
    bool refused = false;
    if (info.kind == kFdSpidev) {
        refused = !g.st || g.st->faults.open;
        err = ENOENT;
    } else {
        refused = g.st && g.st->faults.gpio_open[0] &&
                  std::strcmp(g.st->faults.gpio_open, info.path) == 0;
        err = EACCES;
    }
    if (refused)
        return -1;
    int fd = call(np);
    err = errno;
    return fd;
}

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
    if (r == kRedirSpidev)
        info.kind = kFdSpidev;
    else
        parse_gpio_path(path, info);
    int err = 0;
    int fd = open_device(np, info, call, err);
    {
        Guard guard;
        if (fd >= 0)
            remember_fd(fd, info);
        zb::event("open %d %s ok=%d", getpid(), path, fd >= 0 ? 1 : 0);
    }
    errno = err;
    return fd;
}

bool needs_mode(int flags) {
    return (flags & O_CREAT) != 0 || (flags & __O_TMPFILE) == __O_TMPFILE;
}

template <typename Call> int hooked_access(const char *path, int mode, Call &&call) {
    if (!active() || classify(path) == kRedirNone)
        return call(path);
    char buf[PATH_MAX + 64];
    const char *np = redirect(buf, sizeof buf, path);
    int r = np ? call(np) : -1;
    int err = errno;
    {
        Guard guard;
        zb::event("access %d %s %d %d", getpid(), path, mode, r);
    }
    errno = err;
    return r;
}

template <typename Fopen> FILE *hooked_fopen(const char *path, Fopen &&call) {
    char buf[PATH_MAX + 64];
    if (active() && classify(path) != kRedirNone) {
        path = redirect(buf, sizeof buf, path);
        if (!path)
            return nullptr;
    }
    return call(path);
}

} // namespace

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
    return hooked_fopen(path, [&](const char *p) { return real_fn(r_fopen, "fopen")(p, mode); });
}

FILE *fopen64(const char *path, const char *mode) {
    return hooked_fopen(path,
                        [&](const char *p) { return real_fn(r_fopen64, "fopen64")(p, mode); });
}

int access(const char *path, int mode) noexcept {
    return hooked_access(path, mode,
                         [&](const char *p) { return real_fn(r_access, "access")(p, mode); });
}

int faccessat(int dirfd, const char *path, int mode, int flags) noexcept {
    return hooked_access(path, mode, [&](const char *p) {
        return real_fn(r_faccessat, "faccessat")(dirfd, p, mode, flags);
    });
}

int close(int fd) {
    if (active() && fd >= 0 &&
        (tracked(fd) != nullptr || fd == zb::event_log_fd() || fd == g.lock_fd)) {
        ErrnoKeeper keep;
        Guard guard;
        if (fd == zb::event_log_fd())
            zb::event_log_forget(); // the program closed it under us: reopen on next use
        if (fd == g.lock_fd)
            g.lock_fd = -1;
        if (FdInfo *info = tracked(fd)) {
            zb::event("close %d %s", getpid(), info->path);
            info->kind = kFdNone;
        }
    }
    return real_fn(r_close, "close")(fd);
}

} // extern "C"
#pragma GCC visibility pop
