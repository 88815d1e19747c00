// The library's process context: the sandbox, the shared chip, the lock and
// the table of descriptors the library tracks.
#include "preload.h"

#include "bench_state.h"
#include "event_log.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace zbp {

Context g;

namespace {

pthread_once_t g_once = PTHREAD_ONCE_INIT;

void init_once() {
    const char *sb = getenv("ZORVI_SANDBOX");
    if (sb == nullptr || *sb == '\0')
        return;
    size_t len = std::strlen(sb);
    if (len >= sizeof g.sb - 64)
        return;
    std::memcpy(g.sb, sb, len + 1);
    g.st = zb::state_map(g.sb);
    g.real_syslog = getenv("ZORVI_REAL_SYSLOG") != nullptr;
    zb::event_log_init(g.sb, g.st);
    g.active = true;
}

} // namespace

bool active() {
    pthread_once(&g_once, init_once);
    return g.active;
}

// A forked child gets its own descriptor for the lock, as flock is shared
// across a fork.
Guard::Guard() {
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

Guard::~Guard() {
    if (g.lock_fd >= 0)
        flock(g.lock_fd, LOCK_UN);
    pthread_mutex_unlock(&g.mu);
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

} // namespace zbp
