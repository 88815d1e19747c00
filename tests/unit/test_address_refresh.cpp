// read_pid_file: what a pid file's first line turns into.
#include "daemon/address_refresh.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

TEST(ReadPidFile, ConvertsTheFirstFifteenCharacters) {
    char path[] = "/tmp/pidfile_XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    const struct {
        const char *content;
        long expected;
    } cases[] = {{"7\n8\n", 7},
                 {"", 0},
                 {"0\n", -1},
                 // only the first 15 characters are read: the 1 is cut off
                 {"0000000000000001\n", -1},
                 {"000000000000009\n", 9}};
    for (const auto &c : cases) {
        std::FILE *file = std::fopen(path, "w");
        ASSERT_NE(file, nullptr);
        std::fputs(c.content, file);
        std::fclose(file);
        EXPECT_EQ(read_pid_file(path), c.expected) << c.content;
    }
    std::remove(path);
    EXPECT_EQ(read_pid_file("/nonexistent/dir/some.pid"), -1);
}

} // namespace
