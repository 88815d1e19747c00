// chip_server SB READYFILE: the VM bench's simulated chip behind the kernel.
//
// It opens the zorvi_chip module's device /dev/zorvi-chip and answers each
// request with the chip of sandbox SB: an SPI message runs through spi_frame
// exactly as in the preload library's spidev emulation, and a level driven on
// a GPIO line reaches the chip model. It also receives the syslog datagrams
// sent to SB/log, which the test's mount namespace has at /dev/log
// (log_receiver.cpp). Everything is logged to SB/events under the sandbox
// lock. It first puts the kernel's side back to a fresh board, marks the
// sandbox as served by the kernel, then writes READYFILE; it runs until it is
// killed.
#include "bench_state.h"
#include "event_log.h"
#include "spi_frame.h"
#include "vm/kernel_side.h"
#include "vm/log_receiver.h"
#include "vm/module/zorvi_chip.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

using zb::ChipState;

namespace {

[[noreturn]] void die(const char *what) {
    std::fprintf(stderr, "chip_server: %s: %s\n", what, std::strerror(errno));
    std::exit(2);
}

struct Server {
    ChipState *st;
    int lock_fd;
    int chip_fd;
    int log_fd;
};

// The request and answer buffers of the chip device, read and written whole.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
alignas(8) uint8_t g_request[ZC_MAX_REQUEST];
alignas(8) uint8_t g_answer[sizeof(zc_answer) + ZC_MAX_BYTES];
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

// Runs an SPI request on the chip; returns the answer's length.
size_t spi_request(ChipState &st, const zc_request &rq, size_t len) {
    static zb::SpiTransfer run[ZC_MAX_TRANSFERS];
    const auto *tr = reinterpret_cast<const zc_transfer *>(&rq + 1);
    const uint8_t *tx = reinterpret_cast<const uint8_t *>(tr + rq.count);
    const uint8_t *end = g_request + len;
    uint8_t *rx = g_answer + sizeof(zc_answer);
    uint32_t total = 0;
    auto *ans = reinterpret_cast<zc_answer *>(g_answer);
    for (uint32_t i = 0; i < rq.count && i < ZC_MAX_TRANSFERS; ++i) {
        bool fits =
            tr[i].len <= ZC_MAX_BYTES - total && (tr[i].has_tx == 0 || tx + tr[i].len <= end);
        if (!fits) {
            *ans = {-EINVAL, 0};
            return sizeof *ans;
        }
        run[i] = {tr[i].has_tx != 0 ? tx : nullptr,
                  rx + total,
                  tr[i].len,
                  tr[i].bits_per_word,
                  tr[i].cs_change != 0,
                  tr[i].has_rx != 0};
        tx += tr[i].has_tx != 0 ? tr[i].len : 0;
        total += tr[i].len;
    }
    bool ok = !zb::spi_message_fails(st);
    zb::spi_message(st, rq.pid, run, rq.count, ok);
    *ans = {ok ? 0 : -EIO, ok ? total : 0};
    return sizeof *ans + ans->len;
}

size_t gpio_request(ChipState &st, const zc_request &rq) {
    int level = rq.level != 0 ? 1 : 0;
    zb::event("level %d %u %d", rq.pid, rq.line, level);
    zb::chip_gpio_level(st, static_cast<int>(rq.line), level);
    *reinterpret_cast<zc_answer *>(g_answer) = {0, 0};
    return sizeof(zc_answer);
}

void serve_chip(Server &s) {
    ssize_t len = read(s.chip_fd, g_request, sizeof g_request);
    if (len < static_cast<ssize_t>(sizeof(zc_request))) {
        if (len < 0 && (errno == EINTR || errno == EAGAIN))
            return;
        die("reading /dev/zorvi-chip");
    }
    const auto &rq = *reinterpret_cast<const zc_request *>(g_request);
    // What the caller sent to syslog before this request comes first.
    while (zb::log_receive(s.log_fd, s.lock_fd)) {
    }
    flock(s.lock_fd, LOCK_EX);
    size_t n = rq.kind == ZC_SPI ? spi_request(*s.st, rq, static_cast<size_t>(len))
                                 : gpio_request(*s.st, rq);
    flock(s.lock_fd, LOCK_UN);
    if (write(s.chip_fd, g_answer, n) != static_cast<ssize_t>(n) && errno != EPROTO)
        die("answering /dev/zorvi-chip"); // EPROTO: the caller gave up waiting
}

Server start(const char *sb) {
    Server s{};
    s.st = zb::state_map(sb);
    char path[4096];
    if (s.st == nullptr || !zb::sandbox_path(path, sizeof path, sb, "/state"))
        die("no bench state in the sandbox");
    s.lock_fd = open(path, O_RDWR | O_CLOEXEC);
    zb::event_log_init(sb, s.st);
    zb::kernel_reset();
    // Not blocking: a request that poll saw is gone when its caller was killed.
    s.chip_fd = open("/dev/zorvi-chip", O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (s.chip_fd < 0)
        die("/dev/zorvi-chip (is the zorvi_chip module loaded?)");
    s.log_fd = zb::log_receiver_open(sb);
    if (s.log_fd < 0)
        die("the syslog socket");
    flock(s.lock_fd, LOCK_EX);
    s.st->kernel = 1;
    flock(s.lock_fd, LOCK_UN);
    return s;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: chip_server SANDBOX READYFILE\n");
        return 2;
    }
    Server s = start(argv[1]);
    FILE *ready = std::fopen(argv[2], "w");
    if (ready == nullptr || std::fputs("ready\n", ready) < 0 || std::fclose(ready) != 0)
        die(argv[2]);
    pollfd fds[2] = {{s.chip_fd, POLLIN, 0}, {s.log_fd, POLLIN, 0}};
    for (;;) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            die("poll");
        }
        if ((fds[0].revents & POLLIN) != 0)
            serve_chip(s);
        // Not waiting: serve_chip may have taken the datagram that poll saw.
        if ((fds[1].revents & POLLIN) != 0)
            zb::log_receive(s.log_fd, s.lock_fd);
    }
}
