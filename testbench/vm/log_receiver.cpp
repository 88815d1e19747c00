#include "vm/log_receiver.h"

#include "bench_state.h"
#include "event_log.h"

#include <cstdlib>
#include <cstring>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zb {

int log_receiver_open(const char *sandbox) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (!sandbox_path(addr.sun_path, sizeof addr.sun_path, sandbox, "/log"))
        return -1;
    unlink(addr.sun_path);
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        chmod(addr.sun_path, 0666) != 0) {
        if (fd >= 0)
            close(fd);
        return -1;
    }
    return fd;
}

// A datagram as the C library sends it: "<PRI>Mmm dd hh:mm:ss IDENT[PID]: MESSAGE".
bool log_receive(int fd, int lock_fd) {
    char buf[4096];
    ssize_t n = recv(fd, buf, sizeof buf - 1, MSG_DONTWAIT);
    if (n < 0)
        return false;
    buf[n] = '\0';
    char *end = nullptr;
    long pri = buf[0] == '<' ? std::strtol(buf + 1, &end, 10) : -1;
    char *bracket = end != nullptr ? std::strstr(end, "[") : nullptr;
    char *pid_end = nullptr;
    long pid = bracket != nullptr ? std::strtol(bracket + 1, &pid_end, 10) : 0;
    if (pri < 0 || pid_end == nullptr || std::strncmp(pid_end, "]: ", 3) != 0)
        return true; // not a line of a program that logs with its pid
    const char *msg = pid_end + 3;
    char esc[4 * sizeof buf + 1];
    escape(esc, sizeof esc, msg, static_cast<size_t>(buf + n - msg));
    flock(lock_fd, LOCK_EX);
    event("syslog %ld %ld %s", pid, pri & 7, esc);
    flock(lock_fd, LOCK_UN);
    return true;
}

} // namespace zb
