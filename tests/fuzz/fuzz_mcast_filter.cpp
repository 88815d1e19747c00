// The multicast receive filter on arbitrary datagrams: mcast_rx_loop, the
// receive thread's loop, takes its datagrams from recvfrom, which this
// target defines (in place of the C library's and the sanitizer's): the input
// is a series of datagrams, each a length byte and that many bytes (fewer at
// the end of the input). Once they are all delivered, recvfrom fails, which
// ends the loop as a failed receive does. syslog is defined here as well, to
// see the loop's messages.
//
// Besides the sanitizers: after each datagram, the flag remote_link_change is
// set, and "Received remote link change notification" logged, exactly when
// that datagram alone, cut to the 15 bytes the loop takes and read as a text
// (up to its first NUL or its end), is "switch_daemon", so that nothing of an
// earlier datagram counts. Between two datagrams the flag is cleared, as the
// monitor loop clears it.
#include "daemon/mcast.h"
#include "tests/fuzz/fuzz_check.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <sys/socket.h>
#include <syslog.h>

namespace {

constexpr char NOTIFICATION[] = "switch_daemon";
constexpr std::size_t BYTES_TAKEN = 15;

const std::uint8_t *next = nullptr;
const std::uint8_t *input_end = nullptr;
const std::uint8_t *previous = nullptr; // the datagram last delivered, as cut
std::size_t previous_size = 0;
int notifications_logged = 0;
int failures_logged = 0;

bool is_notification(const std::uint8_t *datagram, std::size_t size) {
    const std::size_t text = strnlen(reinterpret_cast<const char *>(datagram), size);
    return text == sizeof NOTIFICATION - 1 && std::memcmp(datagram, NOTIFICATION, text) == 0;
}

// What the loop made of the datagram last delivered.
void check_previous() {
    if (previous == nullptr)
        return;
    const bool expected = is_notification(previous, previous_size);
    FUZZ_CHECK(remote_link_change.load() == (expected ? 1 : 0));
    FUZZ_CHECK(notifications_logged == (expected ? 1 : 0));
    remote_link_change.store(0);
    notifications_logged = 0;
}

} // namespace

extern "C" ssize_t recvfrom(int, void *buffer, std::size_t length, int flags, sockaddr *from,
                            socklen_t *from_length) {
    FUZZ_CHECK(flags == 0 && from == nullptr && from_length == nullptr);
    FUZZ_CHECK(length == BYTES_TAKEN);
    check_previous();
    if (next == input_end) {
        errno = EBADF;
        return -1;
    }
    std::size_t size = *next++;
    if (size > static_cast<std::size_t>(input_end - next))
        size = static_cast<std::size_t>(input_end - next);
    // A datagram longer than the buffer loses its tail, as the kernel cuts it.
    const std::size_t taken = size < length ? size : length;
    std::memcpy(buffer, next, taken);
    previous = next;
    previous_size = taken;
    next += size;
    return static_cast<ssize_t>(taken);
}

extern "C" void syslog(int priority, const char *format, ...) {
    if (priority == LOG_INFO &&
        std::strcmp(format, "Received remote link change notification") == 0)
        ++notifications_logged;
    else if (priority == LOG_ERR && std::strcmp(format, "recvfrom() failed\n") == 0)
        ++failures_logged;
    else
        fuzz_failed(format, __FILE__, __LINE__); // no other message belongs to the loop
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    next = data;
    input_end = data + size;
    previous = nullptr;
    notifications_logged = failures_logged = 0;
    remote_link_change.store(1); // the loop clears it first

    FUZZ_CHECK(mcast_rx_loop() == -1);
    FUZZ_CHECK(next == input_end && failures_logged == 1);
    return 0;
}
