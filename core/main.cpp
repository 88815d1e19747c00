// The program's single entry: the same start-up for both roles, then the role
// chosen by the name the program was started under.
#include "core/action_table.h"
#include "core/board.h"
#include "core/options.h"
#include "core/pid_file.h"
#include "core/process_lookup.h"
#include "core/spi_access.h"
#include "core/tool_state.h"
#include "daemon/monitor_loop.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

namespace {
constexpr const char *TOOL_PID_FILE = "/var/run/switch_config.pid";

const BoardProfile *profile_of(std::int32_t board_kind) {
    if (board_kind == BOARD_NOR)
        return &NOR_PROFILE;
    if (board_kind == BOARD_NAND)
        return &NAND_PROFILE;
    return nullptr;
}

// Gives each of descriptors 0, 1 and 2 that is closed /dev/null. Otherwise
// the next descriptor opened (the syslog socket of openlog with LOG_NDELAY,
// the SPI device) would take its number: the line editor would wait for ever
// on the socket, and the status line would go into it. With them all lower
// ones open, open gives the closed number itself, so a closed standard input
// reads as end of input and closed outputs write nowhere.
void open_standard_descriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF)
            open("/dev/null", O_RDWR);
    }
}

int tool_main(int argc, const char *program, const BoardProfile &profile, int speed_status) {
    // The only exclusion is this scan; the pid file plays no part in it.
    const std::int32_t other = find_process(program);
    if (other != 0) {
        std::printf("%s is already running with PID %d\n", program, other);
        return -1;
    }
    if (!write_pid_file(TOOL_PID_FILE))
        return -1;

    const SpiFdOwner spi; // closed after the action; the usage text exits before
    run_action(ActionContext{argc, program, profile});
    // The exit status is the SPI speed set-up's result, not the action's.
    return speed_status;
}
} // namespace

int main(int argc, char **argv) {
    open_standard_descriptors();
    openlog("switch_daemon", LOG_PID | LOG_CONS | LOG_NDELAY, LOG_DAEMON);
    parse_options(argc, argv);
    const int speed_status = spi_setup();

    tool_state.board_kind = detect_board();
    const BoardProfile *profile = profile_of(tool_state.board_kind);
    if (profile == nullptr) {
        std::puts(" Oops unknown hardware...");
        return speed_status;
    }

    // An exec with an empty argument list has no name: the tool role, with an
    // empty name, rather than a null pointer in the string functions.
    const char *program = (argc > 0 && argv[0] != nullptr) ? argv[0] : "";
    if (std::strstr(program, "switch_daemon") != nullptr)
        return daemon_main(*profile, speed_status);
    return tool_main(argc, program, *profile, speed_status);
}
