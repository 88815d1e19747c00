// The VM bench's syslog receiver: a datagram socket at SB/log, which the
// test's mount namespace has at /dev/log. Each message the program sends
// there becomes the `syslog` event that the preload library's capture
// (preload/syslog_capture.cpp) logs from inside the program.
#pragma once

namespace zb {

// Binds SB/log; returns the socket or -1.
int log_receiver_open(const char *sandbox);

// Receives one datagram and logs it, under the sandbox lock lock_fd; false
// when none is there. It never waits: the server must stay free for the chip.
bool log_receive(int fd, int lock_fd);

} // namespace zb
