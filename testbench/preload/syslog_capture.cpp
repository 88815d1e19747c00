// openlog and the syslog family: logged as `openlog` and `syslog` events
// instead of reaching /dev/log. With ZORVI_REAL_SYSLOG set the messages go to
// the real syslog as well (the test with a real receiver). On the VM bench the
// messages do reach /dev/log, where the chip server receives them
// (vm/log_receiver.cpp) and logs the same `syslog` events.
#include "preload.h"

#include "event_log.h"

#include <cstdarg>
#include <syslog.h>
#include <unistd.h>

using namespace zbp;

namespace {

void (*r_openlog)(const char *, int, int);
void (*r_closelog)();
void (*r_vsyslog)(int, const char *, va_list);
void (*r_vsyslog_chk)(int, int, const char *, va_list);

// The caller's errno stays for %m.
void real_vsyslog(int pri, const char *fmt, va_list ap) {
    if (!g.real_syslog)
        return;
    const int saved = errno;
    va_list copy;
    va_copy(copy, ap);
    real_fn(r_vsyslog, "vsyslog")(pri, fmt, copy);
    va_end(copy);
    errno = saved;
}

void bench_vsyslog(int pri, const char *fmt, va_list ap) {
    ErrnoKeeper keep;
    real_vsyslog(pri, fmt, ap);
    char msg[2048];
    // errno is the caller's for %m
    int n = std::vsnprintf(msg, sizeof msg, fmt != nullptr ? fmt : "", ap);
    char esc[4 * sizeof msg + 1];
    zb::escape(esc, sizeof esc, msg, n < 0 ? 0 : sizeof msg);
    Guard guard;
    zb::event("syslog %d %d %s", getpid(), pri & 7, esc);
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

void openlog(const char *ident, int option, int facility) {
    if (!active())
        return real_fn(r_openlog, "openlog")(ident, option, facility);
    ErrnoKeeper keep;
    {
        Guard guard;
        zb::event("openlog %d %s %d %d", getpid(), ident != nullptr ? ident : "-", option,
                  facility);
    }
    if (g.real_syslog)
        real_fn(r_openlog, "openlog")(ident, option, facility);
}

void closelog(void) {
    if (!active() || g.real_syslog)
        real_fn(r_closelog, "closelog")();
}

void vsyslog(int pri, const char *fmt, va_list ap) {
    if (!active())
        return real_fn(r_vsyslog, "vsyslog")(pri, fmt, ap);
    bench_vsyslog(pri, fmt, ap);
}

void syslog(int pri, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    if (!active())
        real_fn(r_vsyslog, "vsyslog")(pri, fmt, ap);
    else
        bench_vsyslog(pri, fmt, ap);
    va_end(ap);
}

void __vsyslog_chk(int pri, int flag, const char *fmt, va_list ap) {
    if (!active())
        return real_fn(r_vsyslog_chk, "__vsyslog_chk")(pri, flag, fmt, ap);
    bench_vsyslog(pri, fmt, ap);
}

void __syslog_chk(int pri, int flag, const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    if (!active())
        real_fn(r_vsyslog_chk, "__vsyslog_chk")(pri, flag, fmt, ap);
    else
        bench_vsyslog(pri, fmt, ap);
    va_end(ap);
}

} // extern "C"
#pragma GCC visibility pop
