// The process scan on arbitrary cmdline contents: find_process scans the
// paths that glob gives for "/proc/*/cmdline"; this target defines glob and
// globfree (in place of the C library's and the sanitizer's) to give the
// directories of the input, whose cmdline files fake_files serves.
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
// - a pid find_process gives is another process's (never its own), whose
//   command line holds the needle;
// - when another process's first argument (up to its first NUL, within the
//   first line and the first 1023 bytes) holds the needle, it gives a pid.
#include "core/process_lookup.h"
#include "tests/fuzz/fuzz_support.h"

#include <algorithm>
#include <cstring>
#include <glob.h>
#include <map>
#include <set>
#include <unistd.h>

namespace {

// The directories' paths, sorted as glob sorts them.
std::set<std::string> directories;

// The first argument as the scan reads it: a first piece of at most 1023
// bytes, ended after the first newline, searched up to its first NUL.
std::string_view first_argument(std::string_view cmdline) {
    const std::string_view piece =
        cmdline.substr(0, std::min<std::size_t>(cmdline.find('\n'), 1022) + 1);
    return piece.substr(0, piece.find('\0'));
}

bool holds(std::string_view text, std::string_view needle) {
    return needle.empty() ? !text.empty() : text.find(needle) != std::string_view::npos;
}

} // namespace

extern "C" int glob(const char *pattern, int, int (*)(const char *, int), glob_t *list) noexcept {
    FUZZ_CHECK(std::strcmp(pattern, "/proc/*/cmdline") == 0);
    list->gl_pathc = directories.size();
    list->gl_pathv = static_cast<char **>(std::calloc(directories.size() + 1, sizeof(char *)));
    std::transform(directories.begin(), directories.end(), list->gl_pathv,
                   [](const std::string &directory) { return strdup(directory.c_str()); });
    return directories.empty() ? GLOB_NOMATCH : 0;
}

extern "C" void globfree(glob_t *list) noexcept {
    for (std::size_t i = 0; i < list->gl_pathc; ++i)
        std::free(list->gl_pathv[i]);
    std::free(list->gl_pathv);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string needle(input.substr(0, input.find('\0')));
    const std::int32_t self = getpid();

    directories.clear();
    fake_files.clear();
    // The command line of each other process that is still there, by its pid.
    std::map<std::int32_t, std::string_view> others;
    // At most 64 directories: a board runs a few dozen processes.
    for (std::size_t at = needle.size() + 1; at + 3 <= input.size() && directories.size() < 64;) {
        const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(input[at + i]); };
        const int kind = byte(0) & 3;
        const std::int32_t pid = kind == 0 ? self : 1 + (byte(0) >> 2);
        const std::string_view cmdline = input.substr(at + 3, byte(1) | byte(2) << 8);
        at += 3 + cmdline.size();
        const std::string path =
            "/proc/" + (kind == 1 ? std::string("self") : std::to_string(pid)) + "/cmdline";
        if (!directories.insert(path).second)
            continue; // one directory per process
        fake_files.emplace_back(path, kind == 2 ? std::nullopt : std::optional(cmdline));
        if (kind == 3 && pid != self)
            others.emplace(pid, cmdline);
    }

    const std::int32_t found = find_process(needle.c_str());
    // Its own pid, or one not listed, has an empty command line here.
    FUZZ_CHECK(found == 0 || holds(others[found], needle));
    for (const auto &[pid, cmdline] : others)
        FUZZ_CHECK(found != 0 || !holds(first_argument(cmdline), needle));
    return 0;
}
