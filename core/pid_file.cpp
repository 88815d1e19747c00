// Writing a pid file. Nothing in the system reads it back: the exclusion of a
// second instance rests on find_process.
#include "core/pid_file.h"

#include "core/unique_file.h"

#include <unistd.h>

bool write_pid_file(const char *path) {
    const UniqueFile file = open_file(path, "w");
    if (!file)
        return false;
    std::fprintf(file.get(), "%d\n", static_cast<int>(getpid()));
    return true;
}
