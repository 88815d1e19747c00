// libzorvibench.so: runs an unmodified program against a sandbox.
//
// With ZORVI_SANDBOX=SB in the environment the library redirects the board's
// fixed paths into SB (fixed_paths.cpp), plays the kernel's spidev driver in
// front of the simulated chip (spidev_emulation.cpp), plays the sysfs GPIO
// files (gpio_files.cpp), shortens the program's sleeps (sleeps.cpp) and keeps
// its syslog messages (syslog_capture.cpp), logging what the program does to
// SB/events. Without the variable every call passes straight through.
//
// The hooks never allocate and never call a hooked function themselves: the
// bench's own I/O goes through raw system calls.
#pragma once

#include "chip_model.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <pthread.h>
#include <sys/types.h>

namespace zbp {

// The next definition of a hooked function, looked up once.
template <typename F> F real_fn(F &slot, const char *name) {
    if (!slot)
        slot = reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
    return slot;
}

enum FdKind : uint8_t { kFdNone, kFdSpidev, kFdGpioExport, kFdGpioUnexport, kFdGpioAttr };
enum GpioAttr : uint8_t { kAttrOther, kAttrDirection, kAttrValue };

constexpr int kMaxFd = 4096;
constexpr size_t kFdPath = 96;

// What an open descriptor of the program stands for.
struct FdInfo {
    FdKind kind;
    GpioAttr attr;
    int16_t line;
    char path[kFdPath]; // as the program gave it
};

struct Context {
    bool active;
    char sb[PATH_MAX];
    zb::ChipState *st;
    int lock_fd = -1;
    pid_t lock_pid;
    pthread_mutex_t mu = PTHREAD_MUTEX_INITIALIZER;
    FdInfo fds[kMaxFd];
    bool real_syslog; // ZORVI_REAL_SYSLOG: messages also go to /dev/log
};

extern Context g;

// Whether the library works on a sandbox (ZORVI_SANDBOX set).
bool active();

// Serialises all chip access and event logging of all processes: a process
// mutex for the threads of this process, flock on SB/state between processes.
struct Guard {
    Guard();
    ~Guard();
    Guard(const Guard &) = delete;
    Guard &operator=(const Guard &) = delete;
};

// Keeps errno as the program last saw it while the bench does its own work.
struct ErrnoKeeper {
    int saved = errno;
    ~ErrnoKeeper() { errno = saved; }
};

inline int fail(int e) {
    errno = e;
    return -1;
}

void remember_fd(int fd, const FdInfo &info);
FdInfo *tracked(int fd);

// The emulations behind the hooks, for descriptors the library tracks.
ssize_t gpio_write(int fd, FdInfo &info, const void *buf, size_t n);
int spidev_ioctl(unsigned long req, void *arg);

} // namespace zbp
