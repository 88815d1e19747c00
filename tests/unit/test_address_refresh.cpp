// read_pid_file: what a pid file's first line turns into.
#include "daemon/address_refresh.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

struct PidFileCase {
    const char *content;
    long expected;
};

class ReadPidFile : public ::testing::TestWithParam<PidFileCase> {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/pidfile_XXXXXX";
        const int fd = mkstemp(pattern);
        ASSERT_GE(fd, 0);
        close(fd);
        path_ = pattern;
    }
    void TearDown() override { std::remove(path_.c_str()); }
    std::string path_;
};

TEST_P(ReadPidFile, ConvertsTheFirstFifteenCharacters) {
    std::FILE *file = std::fopen(path_.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fputs(GetParam().content, file);
    std::fclose(file);
    EXPECT_EQ(read_pid_file(path_.c_str()), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Contents, ReadPidFile,
    ::testing::Values(PidFileCase{"1234\n", 1234}, PidFileCase{"", 0}, PidFileCase{"\n", -1},
                      PidFileCase{"0\n", -1}, PidFileCase{"-17\n", -1}, PidFileCase{"abc\n", -1},
                      PidFileCase{"  42\n", 42}, PidFileCase{"42abc", 42}, PidFileCase{"7\n8\n", 7},
                      // only the first 15 characters are read: the 1 is cut off
                      PidFileCase{"0000000000000001\n", -1}, PidFileCase{"000000000000009\n", 9}));

TEST(ReadPidFileMissing, GivesMinusOne) {
    EXPECT_EQ(read_pid_file("/nonexistent/dir/some.pid"), -1);
}

} // namespace
