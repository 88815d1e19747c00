// Refresh of the address services avahi-autoipd and avahi-daemon.
#pragma once

inline constexpr const char *SUPPRESSION_FILE = "/tmp/zorvi/control/nfs_up/disable_avahi_refresh";

// A positive pid, 0 for an empty file, -1 for any other failure.
long read_pid_file(const char *path);

// Signals the two services unless refreshes are suppressed; clears pending.
void refresh_address_services(bool &pending);
