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
#include "tests/fuzz/fuzz_support.h"

#include <algorithm>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::string_view NOTIFICATION = "switch_daemon";
    char buffer[16] = {};
    for (const std::uint8_t *next = data; next != data + size;) {
        const std::size_t length =
            std::min<std::size_t>(*next, static_cast<std::size_t>(data + size - next - 1));
        // A datagram longer than the buffer loses its tail, as the kernel cuts it.
        const std::size_t taken = std::min(length, sizeof buffer - 1);
        std::memcpy(buffer, next + 1, taken);
        next += 1 + length;

        const std::unique_ptr<char[]> alone(new char[taken]);
        std::memcpy(alone.get(), buffer, taken);
        const bool expected =
            std::string_view(alone.get(), strnlen(alone.get(), taken)) == NOTIFICATION;
        FUZZ_CHECK(mcast_is_notification(buffer, taken) == expected);
        FUZZ_CHECK(mcast_is_notification(alone.get(), taken) == expected);
    }
    return 0;
}
