// The process scan on arbitrary cmdline contents: find_process scans the
// paths that glob gives for "/proc/*/cmdline"; this target defines glob and
// globfree (in place of the C library's and the sanitizer's) to give the
// directories of the input, whose cmdline files fake_files.h serves.
//
// The input: the needle up to the first NUL, then at most 64 entries of a
// kind byte, a two-byte length (little end first) and that many bytes of
// command line (fewer at the end of the input). The kind's low two bits: 0
// the scanning process's own directory, 1 "self", 2 a process that has gone
// (its file cannot be opened), 3 another process, whose pid is 1 plus the
// kind's upper six bits.
//
// Besides the sanitizers (and the leak check, which sees a file or a list
// left unreleased), each scan checks:
// - find_process never gives its own pid;
// - a pid it gives is another process's, whose command line holds the needle;
// - when another process's first argument (up to its first NUL, within the
//   first line and the first 1023 bytes) holds the needle, it gives a pid.
#include "core/board.h"
#include "core/process_lookup.h"
#include "tests/fuzz/fake_files.h"
#include "tests/fuzz/fuzz_check.h"

#include <algorithm>
#include <cstring>
#include <glob.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Entry {
    std::string path;
    std::int32_t other_pid; // 0: not another process (its own, self, or gone)
    bool opens;
    std::string_view cmdline;
};

constexpr std::size_t MOST_ENTRIES = 64; // a board runs a few dozen processes
std::vector<Entry> entries;
bool list_held = false;

// The first argument as the scan reads it: a first piece of at most 1023
// bytes, ended after the first newline, searched up to its first NUL.
std::string_view first_argument(std::string_view cmdline) {
    std::string_view piece = cmdline.substr(0, std::min<std::size_t>(cmdline.size(), 1023));
    piece = piece.substr(0, std::min(piece.size(), piece.find('\n') + 1));
    return piece.substr(0, std::min(piece.size(), piece.find('\0')));
}

bool holds(std::string_view text, std::string_view needle) {
    return needle.empty() ? !text.empty() : text.find(needle) != std::string_view::npos;
}

} // namespace

extern "C" int glob(const char *pattern, int, int (*)(const char *, int), glob_t *list) noexcept {
    FUZZ_CHECK(std::strcmp(pattern, "/proc/*/cmdline") == 0);
    FUZZ_CHECK(!list_held);
    list_held = true;
    // Sorted by their text, as glob sorts them.
    std::vector<const char *> paths;
    for (const Entry &entry : entries)
        paths.push_back(entry.path.c_str());
    std::sort(paths.begin(), paths.end(),
              [](const char *a, const char *b) { return std::strcmp(a, b) < 0; });
    list->gl_pathc = paths.size();
    list->gl_pathv = static_cast<char **>(std::calloc(paths.size() + 1, sizeof(char *)));
    for (std::size_t i = 0; i < paths.size(); ++i)
        list->gl_pathv[i] = strdup(paths[i]);
    return paths.empty() ? GLOB_NOMATCH : 0;
}

extern "C" void globfree(glob_t *list) noexcept {
    FUZZ_CHECK(list_held);
    list_held = false;
    for (std::size_t i = 0; i < list->gl_pathc; ++i)
        std::free(list->gl_pathv[i]);
    std::free(list->gl_pathv);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::size_t needle_end = std::min(input.find('\0'), input.size());
    const std::string needle(input.substr(0, needle_end));
    const std::int32_t self = getpid();

    entries.clear();
    fake_files::clear();
    for (std::size_t at = needle_end + 1;
         at + 3 <= input.size() && entries.size() < MOST_ENTRIES;) {
        const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(input[at + i]); };
        const std::uint8_t kind = byte(0);
        const std::string_view cmdline = input.substr(at + 3, byte(1) | byte(2) << 8);
        at += 3 + cmdline.size();
        const std::int32_t pid = (kind & 3) == 0 ? self : 1 + (kind >> 2);
        Entry entry{"/proc/" + ((kind & 3) == 1 ? std::string("self") : std::to_string(pid)) +
                        "/cmdline",
                    (kind & 3) == 3 && pid != self ? pid : 0, (kind & 3) != 2, cmdline};
        if (std::any_of(entries.begin(), entries.end(),
                        [&](const Entry &e) { return e.path == entry.path; }))
            continue; // one directory per process
        if (entry.opens)
            fake_files::give(entry.path.c_str(), cmdline.data(), cmdline.size());
        else
            fake_files::give_missing(entry.path.c_str());
        entries.push_back(entry);
    }

    const std::int32_t found = find_process(needle.c_str());
    FUZZ_CHECK(!list_held);
    FUZZ_CHECK(found != self);
    bool expected_hit = false;
    bool found_listed = found == 0;
    for (const Entry &entry : entries) {
        if (entry.other_pid == 0)
            continue;
        expected_hit = expected_hit || holds(first_argument(entry.cmdline), needle);
        found_listed = found_listed || (entry.other_pid == found && holds(entry.cmdline, needle));
    }
    FUZZ_CHECK(found_listed);
    FUZZ_CHECK(found != 0 || !expected_hit);
    return 0;
}
