// Test equipment for the coverage run (tools/coverage.sh), preloaded in front
// of the bench library: lets a process of the coverage build that is ended by
// SIGTERM write its gcov data first.
//
// gcov writes its data when the process exits; a process killed by a signal
// writes nothing. The product installs no signal handler, and its daemon
// never exits: the tests and the bench's teardown end it with SIGTERM. This
// library catches SIGTERM. In a process that sleeps through usleep (the
// daemon's monitor loop), the next usleep, or the one under way, ends the
// process by exit(), which writes the data, and then the library's destructor,
// which runs after the executable's, ends it by SIGTERM after all: whoever
// waits for the process sees it end by the signal as before. Any other process
// ends by SIGTERM at once, as it would without this library. Nothing is called
// from the handler but signal() and raise().
#include <csignal>
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

namespace {
volatile std::sig_atomic_t sleeps = 0;     // the process has slept by usleep
volatile std::sig_atomic_t term_due = 0;   // SIGTERM came while it sleeps in a loop
volatile std::sig_atomic_t exiting = 0;    // exit() under way for a SIGTERM

void end_by_default_action() {
    std::signal(SIGTERM, SIG_DFL);
    std::raise(SIGTERM);
}

void on_term(int) {
    if (sleeps != 0)
        term_due = 1;
    else
        end_by_default_action();
}

void exit_if_due() {
    if (term_due == 0)
        return;
    exiting = 1;
    std::exit(0);
}

__attribute__((constructor)) void catch_term() {
    struct sigaction action {};
    action.sa_handler = on_term;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
}

__attribute__((destructor)) void end_by_term() {
    if (exiting != 0)
        end_by_default_action();
}
} // namespace

extern "C" __attribute__((visibility("default"))) int usleep(useconds_t us) {
    using Usleep = int (*)(useconds_t);
    static const auto next = reinterpret_cast<Usleep>(dlsym(RTLD_NEXT, "usleep"));
    sleeps = 1;
    exit_if_due();
    const int result = next(us);
    exit_if_due();
    return result;
}
