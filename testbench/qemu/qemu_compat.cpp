// Preloaded beside the bench library in the qemu-user run of the end-to-end
// suite: answers the two calls of the product that qemu-user 7.2 does not
// pass on to the kernel the way the kernel would answer them on the board.
// Built for both machines; on the host (and on a real kernel) every call
// simply goes on to the next library.
#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {
template <typename F> F next(F &cache, const char *name) {
    if (cache == nullptr)
        cache = reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
    return cache;
}

// The next definitions, found on first use: a hooked function gets the C
// library's arguments and nothing else.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
int (*next_ioctl)(int, unsigned long, void *);
int (*next_setsockopt)(int, int, int, const void *, socklen_t);
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)
} // namespace

extern "C" {

// qemu-user answers ioctl requests it does not know, the spidev ones among
// them, with ENOSYS, without asking the kernel: on a descriptor that is not
// open (the SPI device could not be opened) the kernel says EBADF. The bench
// library, next in line, handles the requests on its simulated device.
__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (_IOC_TYPE(request) == SPI_IOC_MAGIC && fcntl(fd, F_GETFD) == -1) {
        errno = EBADF;
        return -1;
    }
    return next(next_ioctl, "ioctl")(fd, request, arg);
}

// qemu-user 7.2 does not know IPV6_MULTICAST_IF and fails it with ENOPROTOOPT.
// The kernel accepts the interface 0, "the default", which is what a new
// socket has anyway: only that case is answered here.
__attribute__((visibility("default"))) int setsockopt(int fd, int level, int name,
                                                      const void *value, socklen_t length) {
    const int result = next(next_setsockopt, "setsockopt")(fd, level, name, value, length);
    if (result == -1 && errno == ENOPROTOOPT && level == IPPROTO_IPV6 &&
        name == IPV6_MULTICAST_IF && length == sizeof(int) && *static_cast<const int *>(value) == 0)
        return 0;
    return result;
}
}
