// Finds another process by its first argument, scanning /proc/*/cmdline.
#include "core/process_lookup.h"

#include <cstdio>
#include <cstring>
#include <glob.h>
#include <unistd.h>

namespace {
// The pid of /proc/<pid>/cmdline: the path's second component scanned with %d.
// A name that is no number (self, thread-self) stores nothing.
void scan_pid(const char *path, std::int32_t &found) {
    const char *second = std::strchr(path + 1, '/');
    if (second != nullptr)
        std::sscanf(second + 1, "%d", &found);
}

// Searches each text that fgets returns; strstr stops at the first NUL, so of
// an ordinary command line only the first argument is searched.
bool file_holds(std::FILE *file, const char *needle) {
    char text[1024];
    bool hit = false;
    while (std::fgets(text, sizeof text, file) != nullptr) {
        if (std::strstr(text, needle) != nullptr)
            hit = true;
    }
    return hit;
}
} // namespace

std::int32_t find_process(const char *needle) {
    const std::int32_t self = getpid();
    std::int32_t found = 0;

    glob_t list;
    std::memset(&list, 0, sizeof list);
    list.gl_offs = 0;
    glob("/proc/*/cmdline", GLOB_DOOFFS, nullptr, &list);

    for (std::size_t i = 0; i < list.gl_pathc && found == 0; ++i) {
        std::FILE *file = std::fopen(list.gl_pathv[i], "r");
        if (file == nullptr)
            continue; // the process has ended since the list was made
        if (file_holds(file, needle)) {
            scan_pid(list.gl_pathv[i], found);
            if (found == self)
                found = 0;
        }
        std::fclose(file);
    }
    globfree(&list);
    return found;
}
