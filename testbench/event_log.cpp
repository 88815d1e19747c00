#include "event_log.h"

#include "bench_state.h"

#include <cstdarg>
#include <cstdio>
#include <fcntl.h>

namespace zb {

namespace {

// The log is written from the preload library's hooks, which get the C
// library's arguments and nothing else: its state is the process's.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
const char *g_sandbox;
const ChipState *g_state;
int g_fd = -1;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

} // namespace

void event_log_init(const char *sandbox, const ChipState *state) {
    g_sandbox = sandbox;
    g_state = state;
}

int event_log_fd() {
    return g_fd;
}

void event_log_forget() {
    g_fd = -1;
}

void event(const char *fmt, ...) {
    if (g_sandbox == nullptr || (g_state != nullptr && g_state->log_on == 0))
        return;
    if (g_fd < 0) {
        char path[4096];
        if (!sandbox_path(path, sizeof path, g_sandbox, "/events"))
            return;
        g_fd = sys_open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (g_fd < 0)
            return;
    }
    char line[8192];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(line, sizeof line - 1, fmt, ap);
    va_end(ap);
    if (n < 0)
        return;
    size_t len =
        static_cast<size_t>(n) < sizeof line - 1 ? static_cast<size_t>(n) : sizeof line - 2;
    line[len++] = '\n';
    sys_write(g_fd, line, len);
}

void escape(char *out, size_t size, const char *in, size_t len) {
    size_t o = 0;
    for (size_t i = 0; i < len && in[i] != '\0' && o + 5 < size; ++i) {
        unsigned char c = static_cast<unsigned char>(in[i]);
        if (c == '\n' || c == '\t' || c == '\\') {
            out[o++] = '\\';
            out[o++] = c == '\n' ? 'n' : c == '\t' ? 't' : '\\';
        } else if (c < 0x20 || c >= 0x7F) {
            o += static_cast<size_t>(std::snprintf(out + o, size - o, "\\x%02x", c));
        } else {
            out[o++] = static_cast<char>(c);
        }
    }
    out[o] = '\0';
}

} // namespace zb
