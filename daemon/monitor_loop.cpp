// The link monitor: checks the chip, detaches, starts the notification channel
// and then polls the two link bits for ever.
#include "daemon/monitor_loop.h"

#include "core/link_state.h"
#include "core/management_mode.h"
#include "core/pid_file.h"
#include "core/process_lookup.h"
#include "core/spi_access.h"
#include "core/switch_status.h"
#include "core/tool_state.h"
#include "daemon/address_refresh.h"
#include "daemon/mcast.h"

#include <cstdint>
#include <cstdio>
#include <sys/stat.h>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr const char *DAEMON_NAME = "switch_daemon";
constexpr const char *DAEMON_PID_FILE = "/var/run/switch_daemon.pid";

constexpr std::uint8_t CHIP_ID_REG = 0x00;
// The high nibble of register 1 reads 0x6 on both boards while the switch runs
// as set up; anything else is a bad guard read.
constexpr std::uint8_t GUARD_REG = 0x01;
constexpr std::uint8_t GUARD_MASK = 0xF0;
constexpr std::uint8_t GUARD_VALUE = 0x60;
constexpr std::uint8_t GUARD_FAILURE_LIMIT = 4; // the fifth bad read resets

constexpr std::uint8_t REFRESH_AGE = 4;   // refresh once the age is past this
constexpr std::uint8_t AGE_CEILING = 127; // the age counter saturates here

constexpr useconds_t POLL_SLEEP_US = 200000;
constexpr useconds_t MANAGED_ATTEMPT_SLEEP_US = 500;
constexpr useconds_t AFTER_BROADCAST_SLEEP_US = 500;
constexpr useconds_t CHANNEL_START_DELAY_US = 3000000;

constexpr int MODE_MANAGED = 1;

struct MonitorState {
    LinkState previous;
    std::uint8_t failures; // bad guard reads since the last reset
    std::uint8_t age;      // passes since the last consumed notification
    bool pending;          // a consumed notification awaits its refresh
};

void check_link(const BoardProfile &profile, MonitorState &state) {
    const LinkState current = read_link_state(profile.link_reg_1, profile.link_reg_2);
    if (current == state.previous)
        return;
    syslog(LOG_INFO, "%s", link_state_text(current));
    if (access(SUPPRESSION_FILE, F_OK) == -1) {
        mcast_broadcast();
        usleep(AFTER_BROADCAST_SLEEP_US);
    } else {
        syslog(LOG_INFO, "Ignoring event. Avahi Refresh Disabled.");
    }
    // A suppressed change still counts as seen, so it is not announced later.
    state.previous = current;
}

void count_guard_failure(MonitorState &state) {
    ++state.failures;
    if (state.failures <= GUARD_FAILURE_LIMIT)
        return;
    syslog(LOG_ERR, "SWITCH INIT ERROR: PORT 4 IS ALLWAYS RMII. Switch reset to default managed.");
    set_management_mode(MODE_MANAGED);
    state.failures = 0;
}

void age_notifications(MonitorState &state) {
    if (remote_link_change.load(std::memory_order_relaxed) != 0) {
        remote_link_change.store(0, std::memory_order_relaxed);
        state.age = 0;
        state.pending = true;
    } else if (state.age < AGE_CEILING) {
        ++state.age;
    }
    if (state.age > REFRESH_AGE && state.pending)
        refresh_address_services(state.pending);
}

[[noreturn]] void monitor_loop(const BoardProfile &profile, LinkState first) {
    MonitorState state{first, 0, 0, false};
    for (;;) {
        const auto guard = static_cast<std::uint8_t>(reg_read(GUARD_REG) & GUARD_MASK);
        if (guard == GUARD_VALUE)
            check_link(profile, state);
        else
            count_guard_failure(state);
        age_notifications(state);
        usleep(POLL_SLEEP_US);
    }
}

// Steps 1 to 4 of the start-up: the chip must answer with its id, at most
// after one attempt at managed mode. False when the daemon is to end.
bool check_before_detaching(const BoardProfile &profile) {
    std::puts("running as daemon");

    const std::int32_t other = find_process(DAEMON_NAME);
    if (other != 0) {
        std::printf(" Oops daemon is already running with PID %d\n", static_cast<int>(other));
        return false;
    }

    if (reg_read(CHIP_ID_REG) != profile.chip_id) {
        set_management_mode(MODE_MANAGED);
        usleep(MANAGED_ATTEMPT_SLEEP_US);
        if (reg_read(CHIP_ID_REG) != profile.chip_id) {
            std::puts(" Oops could not put switch in managed mode");
            return false;
        }
    }

    show_switch_status(profile.chip_id, profile.link_reg_1, profile.link_reg_2);
    return true;
}

// The fork and the child's new session; true in the child alone.
bool detach() {
    // The child inherits the stdio buffers: whatever still sits unwritten in
    // them (stdout is fully buffered on a pipe or a file) would be written a
    // second time by the child on its next flush or at its exit.
    std::fflush(stdout);
    if (fork() != 0) // the parent, or no child at all
        return false;
    umask(0);
    return setsid() >= 0 && chdir("/") >= 0 && write_pid_file(DAEMON_PID_FILE);
}

// The child's last check, the channel and its receive thread. False when the
// daemon is to end.
bool start_channel(const BoardProfile &profile) {
    if (reg_read(CHIP_ID_REG) != profile.chip_id) {
        std::puts(" Oops switch is not in managed mode");
        return false;
    }
    usleep(CHANNEL_START_DELAY_US);
    if (mcast_start() != 0) {
        syslog(LOG_ERR, "Could not startup IPv6 multicast daemon.");
        return false;
    }
    return mcast_create_rx_thread() == 0;
}

} // namespace

int daemon_main(const BoardProfile &profile, int speed_status) {
    // Every early end, in the parent and in the child alike, stops the
    // channel and then closes spi_fd.
    const SpiFdOwner spi;
    if (check_before_detaching(profile) && detach() && start_channel(profile)) {
        const LinkState first = read_link_state(profile.link_reg_1, profile.link_reg_2);
        // The start-up announcement goes out even while refreshes are suppressed.
        mcast_broadcast();
        monitor_loop(profile, first);
    }
    mcast_stop();
    return speed_status;
}
