// The multicast receive filter on arbitrary datagrams: mcast_is_notification,
// the receive thread's test of what one receive gave. The thread's loop itself
// waits on its socket for ever, so the target plays the loop's part: the input
// is a series of datagrams, each a length byte and that many bytes (fewer at
// the end of the input), each taken, as the loop takes it, into one 16-byte
// buffer of at most 15 bytes, which keeps whatever earlier, longer datagrams
// left behind the bytes taken.
//
// Besides the sanitizers: the filter says "notification" exactly when that
// datagram alone, cut to the 15 bytes taken and read as a text (up to its
// first NUL or its end), is "switch_daemon", so that nothing of an earlier
// datagram counts; and it reads nothing past the bytes taken (a copy of just
// those bytes, on the heap where the address sanitizer guards its end, gives
// the same answer).
#include "daemon/mcast.h"
#include "tests/fuzz/fuzz_check.h"

#include <cstring>
#include <memory>

namespace {

constexpr char NOTIFICATION[] = "switch_daemon";
constexpr std::size_t BUFFER_LEN = 16;
constexpr std::size_t BYTES_TAKEN = BUFFER_LEN - 1;

bool is_notification(const char *datagram, std::size_t size) {
    const std::size_t text = strnlen(datagram, size);
    return text == sizeof NOTIFICATION - 1 && std::memcmp(datagram, NOTIFICATION, text) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    char buffer[BUFFER_LEN] = {};
    const std::uint8_t *next = data;
    const std::uint8_t *const end = data + size;
    while (next != end) {
        std::size_t length = *next++;
        if (length > static_cast<std::size_t>(end - next))
            length = static_cast<std::size_t>(end - next);
        // A datagram longer than the buffer loses its tail, as the kernel cuts it.
        const std::size_t taken = length < BYTES_TAKEN ? length : BYTES_TAKEN;
        std::memcpy(buffer, next, taken);
        next += length;

        const std::unique_ptr<char[]> alone(new char[taken]);
        std::memcpy(alone.get(), buffer, taken);
        const bool expected = is_notification(alone.get(), taken);
        FUZZ_CHECK(mcast_is_notification(buffer, taken) == expected);
        FUZZ_CHECK(mcast_is_notification(alone.get(), taken) == expected);
    }
    return 0;
}
