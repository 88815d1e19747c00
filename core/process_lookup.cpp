// Finds another process by its first argument, scanning /proc/*/cmdline.
#include "core/process_lookup.h"

#include "core/unique_file.h"

#include <cstdio>
#include <cstring>
#include <glob.h>
#include <unistd.h>

namespace {

// The paths that match a pattern, sorted by their text; freed with the owner.
class GlobList {
  public:
    explicit GlobList(const char *pattern) {
        std::memset(&list_, 0, sizeof list_);
        list_.gl_offs = 0;
        // The result is not examined: when nothing matched, the list is empty.
        glob(pattern, GLOB_DOOFFS, nullptr, &list_);
    }
    GlobList(const GlobList &) = delete;
    GlobList &operator=(const GlobList &) = delete;
    GlobList(GlobList &&) = delete;
    GlobList &operator=(GlobList &&) = delete;
    ~GlobList() { globfree(&list_); }

    [[nodiscard]] std::size_t size() const { return list_.gl_pathc; }
    [[nodiscard]] const char *operator[](std::size_t i) const { return list_.gl_pathv[i]; }

  private:
    glob_t list_;
};

// The pid of /proc/<pid>/cmdline: the path's second component scanned with %d.
// A name that is no number (self, thread-self) stores nothing.
void scan_pid(const char *path, std::int32_t &found) {
    const char *second = std::strchr(path + 1, '/');
    if (second != nullptr) // GCOVR_EXCL_BR_LINE: every path is /proc/<pid>/cmdline
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

    const GlobList paths("/proc/*/cmdline");
    for (std::size_t i = 0; i < paths.size() && found == 0; ++i) {
        const UniqueFile file = open_file(paths[i], "r");
        // GCOVR_EXCL_START: only a process that ends between the listing and
        // the open, which no test can time, leaves a path that does not open
        if (!file)
            continue; // the process has ended since the list was made
        // GCOVR_EXCL_STOP
        if (file_holds(file.get(), needle)) {
            scan_pid(paths[i], found);
            if (found == self)
                found = 0;
        }
    }
    return found;
}
