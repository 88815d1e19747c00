// usleep: logged, and shortened by the sandbox's time scale (time scale 0:
// no waiting at all). On the VM bench the program really sleeps.
#include "preload.h"

#include "event_log.h"

#include <ctime>
#include <unistd.h>

using namespace zbp;

namespace {
int (*r_usleep)(useconds_t);
}

#pragma GCC visibility push(default)
extern "C" int usleep(useconds_t us) {
    if (!active())
        return real_fn(r_usleep, "usleep")(us);
    ErrnoKeeper keep;
    uint32_t scale = 1000;
    {
        Guard guard;
        zb::event("usleep %d %u", getpid(), static_cast<unsigned>(us));
        if (g.st != nullptr)
            scale = g.st->time_scale;
    }
    if (scale == 0)
        return 0;
    uint64_t ns = static_cast<uint64_t>(us) * 1000U / scale;
    timespec ts{static_cast<time_t>(ns / 1000000000U), static_cast<long>(ns % 1000000000U)};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
    return 0;
}
#pragma GCC visibility pop
