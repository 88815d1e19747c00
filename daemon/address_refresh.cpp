// Tells avahi-autoipd and avahi-daemon that the link situation changed, each
// by a signal to the pid in its pid file.
#include "daemon/address_refresh.h"

#include "core/unique_file.h"

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

namespace {

struct AddressService {
    const char *name;
    const char *pid_file;
    int signal;
};

// avahi-autoipd always comes first.
constexpr std::array<AddressService, 2> ADDRESS_SERVICES{{
    {"avahi-autoipd", "/var/run/avahi-autoipd.eth0.pid", SIGHUP},
    {"avahi-daemon", "/var/run/avahi-daemon/pid", SIGUSR2},
}};

constexpr std::size_t PID_TEXT_LEN = 16;

bool signal_pid(long pid, int signal) {
    // A pid file can hold up to 15 digits; a number that no pid_t can hold
    // names no process, and narrowing it could hit an unrelated one (even
    // init), so it fails like a kill of a process that is gone.
    if (pid <= 0 || pid > INT_MAX)
        return false;
    return kill(static_cast<pid_t>(pid), signal) >= 0;
}

void notify(const AddressService &service) {
    const long pid = read_pid_file(service.pid_file);
    if (signal_pid(pid, service.signal))
        syslog(LOG_INFO, "Remote link change notified to %s on pid %ld", service.name, pid);
    else
        syslog(LOG_ERR, "Could not notify %s", service.name);
}

} // namespace

long read_pid_file(const char *path) {
    const UniqueFile file = open_file(path, "r");
    if (!file)
        return -1;
    char text[PID_TEXT_LEN];
    if (std::fgets(text, sizeof text, file.get()) == nullptr)
        return 0; // an empty file
    const long pid = std::strtol(text, nullptr, 10);
    return pid > 0 ? pid : -1;
}

void refresh_address_services(bool &pending) {
    if (access(SUPPRESSION_FILE, F_OK) != -1) {
        syslog(LOG_INFO, "Ignoring signal. Avahi Refresh Disabled.");
    } else {
        for (const AddressService &service : ADDRESS_SERVICES)
            notify(service);
    }
    // Nothing is held back: a skipped or failed refresh waits for the next
    // notification.
    pending = false;
}
