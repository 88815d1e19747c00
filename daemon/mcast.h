// The multicast notification channel: its start and stop, the announcement of
// a link change, and the receive thread that sets remote_link_change.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// Set to 1 by the receive thread on each notification, cleared by the monitor
// loop. One byte shared without a lock: relaxed atomic accesses make it
// well-defined without adding any ordering the design does not need.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the byte between the threads
extern std::atomic<std::uint8_t> remote_link_change;

// Both endpoints; 0, or -1 after releasing what it made.
int mcast_start();
// Releases the send lookup, then closes the sending and the receiving socket.
void mcast_stop();
// Sends the notification three times; 0, or -1 after a short send.
int mcast_broadcast();
// Creates the receive thread; 0 on success, nonzero after logging the failure.
int mcast_create_rx_thread();

// Whether the bytes received are the notification. A step of the receive
// thread, declared here for its tests.
bool mcast_is_notification(const char *datagram, std::size_t length);
