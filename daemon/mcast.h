// The multicast notification channel and its receive thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

// Set to 1 by the receive thread on each notification, cleared by the monitor
// loop. One byte shared without a lock: relaxed atomic accesses make it
// well-defined without adding any ordering the design does not need.
extern std::atomic<std::uint8_t> remote_link_change;

struct ThreadRecord {
    pthread_t thread_id;
    pthread_attr_t attributes;
    void *(*start_routine)(void *);
    std::int32_t nice_value;
    std::int32_t policy;
};

inline constexpr const char *MCAST_GROUP = "FF01::1";
inline constexpr const char *MCAST_SERVICE = "4873";

int mcast_start();
void mcast_stop();
int mcast_server_init(const char *group, const char *service);
int mcast_client_init(const char *group, const char *service);
int mcast_broadcast();
int mcast_rx_loop();
void *mcast_rx_thread(void *record);
// Creates the receive thread; 0 on success, nonzero after logging the failure.
int mcast_create_rx_thread();
