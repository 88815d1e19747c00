// The multicast notification channel: one receiving endpoint joined to the
// group, one sending endpoint aimed at it, and the thread that turns each
// notification datagram into the flag remote_link_change.
#include "daemon/mcast.h"

#include "core/unique_fd.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the byte between the threads
std::atomic<std::uint8_t> remote_link_change{0};

namespace {

constexpr const char *MCAST_GROUP = "FF01::1";
constexpr const char *MCAST_SERVICE = "4873";

// The notification: the name with its NUL, nothing else.
constexpr char NOTIFICATION[] = "switch_daemon";
constexpr std::size_t NOTIFICATION_LEN = sizeof NOTIFICATION; // 14
static_assert(NOTIFICATION_LEN == 14);

constexpr int NOTIFICATION_REPEATS = 3;
constexpr useconds_t REPEAT_SLEEP_US = 666666;
constexpr int RECEIVE_BUFFER_BYTES = 300000;
constexpr int MULTICAST_HOPS = 1;
constexpr int MULTICAST_INTERFACE = 0; // the platform's default
constexpr std::size_t RX_BUFFER_LEN = 16;

struct AddrInfoFree {
    void operator()(addrinfo *list) const { freeaddrinfo(list); }
};
// A lookup result, released with its owner.
using AddrInfoList = std::unique_ptr<addrinfo, AddrInfoFree>;

// getaddrinfo into an owner; the lookup's result code.
int lookup(const char *node, const char *service, const addrinfo &hints, AddrInfoList &result) {
    addrinfo *list = nullptr;
    const int rc = getaddrinfo(node, service, &hints, &list);
    // A failed lookup leaves nothing to release.
    result.reset(rc == 0 ? list : nullptr); // GCOVR_EXCL_BR_LINE: the lookups of constants succeed
    return rc;
}

// The receive thread's record.
struct ThreadRecord {
    pthread_t thread_id;
    pthread_attr_t attributes;
    void *(*start_routine)(void *);
    std::int32_t nice_value;
    std::int32_t policy;
};

// The channel's state, one instance in the process. The lookup result and
// the two sockets live from their set-up to mcast_stop.
struct McastChannel {
    AddrInfoList mcast_tx_addr;
    UniqueFd mcast_tx_socket;
    UniqueFd mcast_rx_socket;
    ThreadRecord rx_thread;
};
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the channel's state
McastChannel gMcastChannel;

// GCOVR_EXCL_START: the lookups take numeric constants; they fail only when memory runs out
void log_lookup_failure(int rc) {
    syslog(LOG_ERR, "getaddrinfo: %s\n", gai_strerror(rc));
    syslog(LOG_ERR, "getaddrinfo() failed\n");
}
// GCOVR_EXCL_STOP

bool set_int_option(int socket, int level, int option, int value) {
    return setsockopt(socket, level, option, &value, sizeof value) == 0;
}

bool get_int_option(int socket, int level, int option) {
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(socket, level, option, &value, &length) == 0;
}

// Joins the group of the lookup result on the default interface. Logs its own
// failure.
bool join_group(int socket, const addrinfo &group) {
    // GCOVR_EXCL_START: the group is an IPv6 constant
    if (group.ai_family == AF_INET && group.ai_addrlen == sizeof(sockaddr_in)) {
        ip_mreq request;
        std::memset(&request, 0, sizeof request);
        request.imr_multiaddr = reinterpret_cast<const sockaddr_in *>(group.ai_addr)->sin_addr;
        request.imr_interface.s_addr = htonl(INADDR_ANY);
        if (setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) != 0) {
            syslog(LOG_ERR, "setsockopt() failed\n");
            return false;
        }
        return true;
    }
    if (group.ai_family == AF_INET6 && group.ai_addrlen == sizeof(sockaddr_in6)) {
        // GCOVR_EXCL_STOP
        ipv6_mreq request;
        std::memset(&request, 0, sizeof request);
        request.ipv6mr_multiaddr = reinterpret_cast<const sockaddr_in6 *>(group.ai_addr)->sin6_addr;
        request.ipv6mr_interface = 0;
        if (setsockopt(socket, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request) != 0) {
            syslog(LOG_ERR, "setsockopt() failed\n");
            return false;
        }
        return true;
    }
    syslog(LOG_ERR, "Neither IPv4 or IPv6\n"); // GCOVR_EXCL_LINE: the group is an IPv6 constant
    return false;                              // GCOVR_EXCL_LINE
}

// The receiving endpoint from the two lookups; the socket, once made, stays in
// mcast_rx_socket whatever follows.
bool server_endpoint(const addrinfo &group, const addrinfo &local) {
    UniqueFd &rx = gMcastChannel.mcast_rx_socket;
    rx.reset(socket(local.ai_family, local.ai_socktype, 0));
    // GCOVR_EXCL_START: socket() fails only when descriptors or memory run out; setting
    // SO_REUSEADDR on a fresh socket does not fail
    if (!rx.valid()) {
        syslog(LOG_ERR, "socket() failed\n");
        return false;
    }
    if (!set_int_option(rx.get(), SOL_SOCKET, SO_REUSEADDR, 1)) {
        syslog(LOG_ERR, "setsockopt\n");
        return false;
    }
    // GCOVR_EXCL_STOP
    if (bind(rx.get(), local.ai_addr, local.ai_addrlen) != 0) {
        syslog(LOG_ERR, "bind() failed\n");
        return false;
    }
    // The sizes read around the request are of no interest; the kernel may
    // grant less than asked, and the endpoint works either way.
    // GCOVR_EXCL_START: the buffer size options of a bound socket do not fail
    if (!get_int_option(rx.get(), SOL_SOCKET, SO_RCVBUF)) {
        syslog(LOG_ERR, "getsockopt\n");
        return false;
    }
    if (!set_int_option(rx.get(), SOL_SOCKET, SO_RCVBUF, RECEIVE_BUFFER_BYTES)) {
        syslog(LOG_ERR, "setsockopt\n");
        return false;
    }
    if (!get_int_option(rx.get(), SOL_SOCKET, SO_RCVBUF)) {
        syslog(LOG_ERR, "getsockopt\n");
        return false;
    }
    // GCOVR_EXCL_STOP
    return join_group(rx.get(), group);
}

// The receiving endpoint, joined to the group. Its two lookup results are
// released on every way out.
int mcast_server_init(const char *group, const char *service) {
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_flags = AI_NUMERICHOST;
    AddrInfoList group_addr;
    const int rc = lookup(group, nullptr, hints, group_addr);
    // GCOVR_EXCL_START: the lookups take numeric constants; they fail only when memory runs out
    if (rc != 0) {
        log_lookup_failure(rc);
        return -1;
    }
    // GCOVR_EXCL_STOP

    std::memset(&hints, 0, sizeof hints);
    hints.ai_flags = AI_PASSIVE;
    hints.ai_family = group_addr->ai_family;
    hints.ai_socktype = SOCK_DGRAM;
    AddrInfoList local_addr;
    // GCOVR_EXCL_START: the lookups take numeric constants; they fail only when memory runs out
    if (lookup(nullptr, service, hints, local_addr) != 0) {
        syslog(LOG_ERR, "getaddrinfo() failed\n");
        return -1;
    }
    // GCOVR_EXCL_STOP
    return server_endpoint(*group_addr, *local_addr) ? 0 : -1;
}

// The sending endpoint. What it made stays in the channel for mcast_stop,
// also on a failure.
int mcast_client_init(const char *group, const char *service) {
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    const int rc = lookup(group, service, hints, gMcastChannel.mcast_tx_addr);
    // GCOVR_EXCL_START: the lookups take numeric constants; they fail only when memory runs out
    if (rc != 0) {
        log_lookup_failure(rc);
        return -1;
    }
    // GCOVR_EXCL_STOP
    const addrinfo &destination = *gMcastChannel.mcast_tx_addr;
    UniqueFd &tx = gMcastChannel.mcast_tx_socket;
    tx.reset(socket(destination.ai_family, destination.ai_socktype, 0));
    // GCOVR_EXCL_START: socket() fails only when descriptors or memory run out, and
    // the two options take values valid on any IPv6 datagram socket
    if (!tx.valid()) {
        syslog(LOG_ERR, "socket() failed\n");
        return -1;
    }
    const bool v6 = destination.ai_family == AF_INET6;
    if (!set_int_option(tx.get(), v6 ? IPPROTO_IPV6 : IPPROTO_IP,
                        v6 ? IPV6_MULTICAST_HOPS : IP_MULTICAST_TTL, MULTICAST_HOPS)) {
        syslog(LOG_ERR, "setsockopt() failed\n");
        return -1;
    }
    if (!set_int_option(tx.get(), v6 ? IPPROTO_IPV6 : IPPROTO_IP,
                        v6 ? IPV6_MULTICAST_IF : IP_MULTICAST_IF, MULTICAST_INTERFACE)) {
        syslog(LOG_ERR, "interface setsockopt()\n");
        return -1;
    }
    // GCOVR_EXCL_STOP
    return 0;
}

// Receives until a receive fails; each notification sets remote_link_change.
int mcast_rx_loop() {
    remote_link_change.store(0, std::memory_order_relaxed);
    char buffer[RX_BUFFER_LEN];
    for (;;) {
        const ssize_t received = recvfrom(gMcastChannel.mcast_rx_socket.get(), buffer,
                                          RX_BUFFER_LEN - 1, 0, nullptr, nullptr);
        // GCOVR_EXCL_START: the socket stays open as long as the process lives
        if (received < 0) {
            syslog(LOG_ERR, "recvfrom() failed\n");
            return -1;
        }
        // GCOVR_EXCL_STOP
        if (!mcast_is_notification(buffer, static_cast<std::size_t>(received)))
            continue;
        remote_link_change.store(1, std::memory_order_relaxed);
        syslog(LOG_INFO, "Received remote link change notification");
    }
}

void *mcast_rx_thread(void *record) {
    const auto *thread = static_cast<const ThreadRecord *>(record);
    // The nice value belongs to this thread alone: setpriority on the kernel
    // id of the thread, not on the process.
    if (thread->policy == SCHED_OTHER) // GCOVR_EXCL_BR_LINE: the record names SCHED_OTHER
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), thread->nice_value);
    mcast_rx_loop();
    return nullptr; // GCOVR_EXCL_LINE: the loop above ends only when a receive fails
}

} // namespace

bool mcast_is_notification(const char *datagram, std::size_t length) {
    // At most RX_BUFFER_LEN - 1 bytes are taken from a datagram, and the text
    // ends right behind them: a short datagram never completes itself with
    // the tail of an earlier, longer one (a 3-byte "swi" after the
    // notification would otherwise read as "switch_daemon").
    char text[RX_BUFFER_LEN];
    const std::size_t taken = std::min(length, RX_BUFFER_LEN - 1);
    std::memcpy(text, datagram, taken);
    text[taken] = '\0';
    return std::strcmp(text, NOTIFICATION) == 0;
}

int mcast_start() {
    if (mcast_server_init(MCAST_GROUP, MCAST_SERVICE) != 0) {
        syslog(LOG_ERR, "Error while getting server up\n");
        mcast_stop();
        return -1;
    }
    syslog(LOG_INFO, "Multicast Rx Server UP");
    // GCOVR_EXCL_START: the sending endpoint fails only when resources run out
    if (mcast_client_init(MCAST_GROUP, MCAST_SERVICE) != 0) {
        syslog(LOG_ERR, "Error while getting the client up\n");
        mcast_stop();
        return -1;
    }
    // GCOVR_EXCL_STOP
    syslog(LOG_INFO, "Multicast Tx Client UP");
    remote_link_change.store(0, std::memory_order_relaxed);
    return 0;
}

void mcast_stop() {
    // In this order; each is marked released, so that a second call, or one
    // before any set-up, does nothing.
    gMcastChannel.mcast_tx_addr.reset();
    gMcastChannel.mcast_tx_socket.reset();
    gMcastChannel.mcast_rx_socket.reset();
}

int mcast_broadcast() {
    syslog(LOG_INFO, "Broadcasting interface status change message");
    const addrinfo *destination = gMcastChannel.mcast_tx_addr.get();
    // GCOVR_EXCL_START: the daemon sends only after the channel has started
    const sockaddr *address = destination != nullptr ? destination->ai_addr : nullptr;
    const socklen_t address_len = destination != nullptr ? destination->ai_addrlen : 0;
    // GCOVR_EXCL_STOP
    for (int repeat = 0; repeat < NOTIFICATION_REPEATS; ++repeat) {
        const ssize_t sent = sendto(gMcastChannel.mcast_tx_socket.get(), NOTIFICATION,
                                    NOTIFICATION_LEN, 0, address, address_len);
        if (sent != static_cast<ssize_t>(NOTIFICATION_LEN)) {
            syslog(LOG_ERR, "sendto() sent a different number of bytes than expected\n");
            return -1;
        }
        usleep(REPEAT_SLEEP_US);
    }
    return 0;
}

int mcast_create_rx_thread() {
    ThreadRecord &record = gMcastChannel.rx_thread;
    record.start_routine = mcast_rx_thread;
    record.nice_value = 0;
    record.policy = SCHED_OTHER;
    pthread_attr_init(&record.attributes);
    pthread_attr_setinheritsched(&record.attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&record.attributes, record.policy);
    const int rc =
        pthread_create(&record.thread_id, &record.attributes, record.start_routine, &record);
    // GCOVR_EXCL_START: a thread fails to start only when resources run out
    if (rc != 0) {
        syslog(LOG_ERR, "Could not create multicast rx srv thread. Exiting");
        return rc;
    }
    // GCOVR_EXCL_STOP
    return 0;
}
