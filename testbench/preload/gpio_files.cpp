// The sysfs GPIO files, as the kernel's legacy interface answers them for a
// chip of 256 lines (the VM bench's zorvi_chip module has the same).
// Writing a line number to export makes gpioN/direction ("in") and
// gpioN/value ("0"); a line that is exported or taken gives EBUSY. "out" and
// "low" on direction drive the line low, "high" high; value takes a number,
// and only on an output line (EPERM otherwise). Each level driven reaches the
// chip and is logged as a `level` event, the bytes written as a `gpio` event.
#include "preload.h"

#include "bench_state.h"
#include "event_log.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace zbp;

namespace {

constexpr long kLines = 256;

using write_t = ssize_t (*)(int, const void *, size_t);
write_t r_write;

// What a program writes to a sysfs attribute, up to a NUL or the end, less
// one trailing newline; false when it is too long.
bool sysfs_text(const void *buf, size_t n, char *text, size_t size) {
    const char *b = static_cast<const char *>(buf);
    size_t len = 0;
    while (len < n && b[len] != '\0')
        ++len;
    if (len >= size)
        return false;
    std::memcpy(text, b, len);
    if (len > 0 && text[len - 1] == '\n')
        --len;
    text[len] = '\0';
    return true;
}

bool sysfs_number(const void *buf, size_t n, long &out) {
    char text[64];
    if (!sysfs_text(buf, n, text, sizeof text) || text[0] == '\0')
        return false;
    char *end = nullptr;
    errno = 0;
    out = std::strtol(text, &end, 0);
    return errno == 0 && end != nullptr && *end == '\0';
}

void put_file(int line, const char *name, const char *text) {
    char rel[64];
    char path[PATH_MAX + 64];
    std::snprintf(rel, sizeof rel, "/sys/class/gpio/gpio%d/%s", line, name);
    if (!zb::sandbox_path(path, sizeof path, g.sb, rel))
        return;
    int fd = zb::sys_open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd >= 0) {
        zb::sys_write(fd, text, std::strlen(text));
        zb::sys_close(fd);
    }
}

bool is_output(int line) {
    char rel[64];
    char path[PATH_MAX + 64];
    std::snprintf(rel, sizeof rel, "/sys/class/gpio/gpio%d/direction", line);
    char text[8] = "";
    int fd = zb::sandbox_path(path, sizeof path, g.sb, rel) ? zb::sys_open(path, O_RDONLY, 0) : -1;
    if (fd < 0)
        return false;
    long n = syscall(SYS_read, fd, text, sizeof text - 1);
    zb::sys_close(fd);
    return n >= 3 && std::strncmp(text, "out", 3) == 0;
}

// A level driven on a line: the value file reads it back, the chip sees it.
void drive(int line, int level) {
    put_file(line, "value", level != 0 ? "1\n" : "0\n");
    zb::event("level %d %d %d", getpid(), line, level);
    if (g.st != nullptr)
        zb::chip_gpio_level(*g.st, line, level);
}

ssize_t export_write(FdInfo &info, const void *buf, size_t n) {
    long v = 0;
    if (!sysfs_number(buf, n, v) || v < 0 || v >= kLines)
        return fail(EINVAL);
    char dir[64];
    char path[PATH_MAX + 64];
    std::snprintf(dir, sizeof dir, "/sys/class/gpio/gpio%ld", v);
    if (!zb::sandbox_path(path, sizeof path, g.sb, dir))
        return fail(ENAMETOOLONG);
    struct stat sb {};
    bool exported = stat(path, &sb) == 0;
    if (info.kind == kFdGpioUnexport) {
        if (!exported)
            return fail(EINVAL);
        char f[PATH_MAX + 80];
        for (const char *name : {"/direction", "/value"}) {
            std::snprintf(f, sizeof f, "%s%s", path, name);
            unlink(f);
        }
        rmdir(path);
        return static_cast<ssize_t>(n);
    }
    if (exported || (g.st != nullptr && g.st->faults.export_busy == v))
        return fail(EBUSY); // the line is exported already, or taken
    if (mkdir(path, 0755) != 0)
        return fail(EIO);
    put_file(static_cast<int>(v), "direction", "in\n");
    put_file(static_cast<int>(v), "value", "0\n");
    return static_cast<ssize_t>(n);
}

ssize_t direction_write(int fd, FdInfo &info, const void *buf, size_t n) {
    char text[8];
    if (!sysfs_text(buf, n, text, sizeof text))
        return fail(EINVAL);
    bool out = std::strcmp(text, "out") == 0 || std::strcmp(text, "low") == 0 ||
               std::strcmp(text, "high") == 0;
    if (!out && std::strcmp(text, "in") != 0)
        return fail(EINVAL);
    const char *content = out ? "out\n" : "in\n";
    // The C library's own pwrite and ftruncate: not hooked, and with the
    // 64-bit offset passed as each machine wants it.
    size_t len = std::strlen(content);
    if (pwrite(fd, content, len, 0) < 0 || ftruncate(fd, static_cast<off_t>(len)) != 0)
        return -1;
    if (out)
        drive(info.line, std::strcmp(text, "high") == 0 ? 1 : 0);
    return static_cast<ssize_t>(n);
}

ssize_t value_write(FdInfo &info, const void *buf, size_t n) {
    long v = 0;
    bool number = sysfs_number(buf, n, v);
    if (!is_output(info.line))
        return fail(EPERM);
    if (!number)
        return fail(EINVAL);
    drive(info.line, v != 0 ? 1 : 0);
    return static_cast<ssize_t>(n);
}

// Returns the write's result, errno set on failure. Caller holds the Guard.
ssize_t gpio_write_locked(int fd, FdInfo &info, const void *buf, size_t n) {
    if (g.st != nullptr && g.st->faults.gpio_write[0] != '\0' &&
        std::strcmp(g.st->faults.gpio_write, info.path) == 0)
        return fail(EIO);
    if (info.kind == kFdGpioExport || info.kind == kFdGpioUnexport)
        return export_write(info, buf, n);
    if (info.kind != kFdGpioAttr)
        return fail(EBADF);
    if (info.attr == kAttrDirection)
        return direction_write(fd, info, buf, n);
    if (info.attr == kAttrValue)
        return value_write(info, buf, n);
    return real_fn(r_write, "write")(fd, buf, n);
}

} // namespace

namespace zbp {

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
    zb::event("gpio %d %s %s ok=%d", getpid(), info.path, hex, r >= 0 ? 1 : 0);
    errno = err;
    return r;
}

} // namespace zbp

#pragma GCC visibility push(default)
extern "C" ssize_t write(int fd, const void *buf, size_t n) {
    if (active()) {
        if (FdInfo *info = tracked(fd)) {
            if (info->kind != kFdSpidev)
                return gpio_write(fd, *info, buf, n);
        }
    }
    return real_fn(r_write, "write")(fd, buf, n);
}
#pragma GCC visibility pop
