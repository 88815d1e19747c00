#include "bench_state.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zb {

int sys_open(const char *path, int flags, unsigned mode) {
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int sys_close(int fd) {
    return static_cast<int>(syscall(SYS_close, fd));
}

long sys_write(int fd, const void *buf, unsigned long n) {
    return syscall(SYS_write, fd, buf, n);
}

bool sandbox_path(char *out, unsigned long size, const char *sandbox, const char *rel) {
    int n = std::snprintf(out, size, "%s%s", sandbox, rel);
    return n >= 0 && static_cast<unsigned long>(n) < size;
}

ChipState *state_map(const char *sandbox) {
    char path[4096];
    if (!sandbox_path(path, sizeof path, sandbox, "/state"))
        return nullptr;
    int fd = sys_open(path, O_RDWR | O_CLOEXEC, 0);
    if (fd < 0)
        return nullptr;
    struct stat sb {};
    if (fstat(fd, &sb) != 0 || static_cast<unsigned long>(sb.st_size) < sizeof(ChipState)) {
        sys_close(fd);
        return nullptr;
    }
    void *p = mmap(nullptr, sizeof(ChipState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    sys_close(fd);
    if (p == MAP_FAILED)
        return nullptr;
    auto *s = static_cast<ChipState *>(p);
    if (s->magic != kStateMagic || s->version != kStateVersion || s->size != sizeof(ChipState)) {
        munmap(p, sizeof(ChipState));
        return nullptr;
    }
    return s;
}

} // namespace zb
