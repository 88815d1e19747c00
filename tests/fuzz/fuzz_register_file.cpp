// The register-file loader (-c) on arbitrary file contents: load_config_file
// reads the input as its file and writes through the tool's reg_write to the
// in-process chip.
//
// Besides the sanitizers, each load checks:
// - the loader only writes, in groups of 16 to consecutive registers (modulo
//   256), and every transfer has the tool's shape (spidev_chip.cpp);
// - its one line of output, "%d registers written\n", counts the writes.
#include "core/register_file.h"
#include "core/tool_state.h"
#include "tests/fuzz/fuzz_check.h"
#include "tests/fuzz/spidev_chip.h"

#include <cstring>
#include <sys/mman.h>

namespace {

int file_fd = -1;
int output_fd = -1;
char file_path[64];

void rewrite(int fd, const void *data, std::size_t size) {
    FUZZ_CHECK(ftruncate(fd, 0) == 0);
    FUZZ_CHECK(pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    file_fd = memfd_create("register-file", 0);
    output_fd = memfd_create("output", 0);
    FUZZ_CHECK(file_fd >= 0 && output_fd >= 0);
    std::snprintf(file_path, sizeof file_path, "/proc/self/fd/%d", file_fd);
    // The loader's output is read back from a memory file.
    FUZZ_CHECK(dup2(output_fd, STDOUT_FILENO) == STDOUT_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    rewrite(file_fd, data, size);
    rewrite(output_fd, "", 0);
    FUZZ_CHECK(lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
    spidev_chip::reset(zb::kBoardNand);
    tool_state.spi_fd = spidev_chip::fd(SpiPath::tool);
    tool_state.config_path = file_path;

    load_config_file();
    std::fflush(stdout);

    const std::size_t writes = spidev_chip::count();
    FUZZ_CHECK(writes % 16 == 0);
    for (std::size_t i = 0; i < writes && i < spidev_chip::LOG_CAPACITY; ++i) {
        const SpiAccess &access = spidev_chip::access(i);
        FUZZ_CHECK(access.write);
        if (i % 16 != 0)
            FUZZ_CHECK(access.reg == static_cast<std::uint8_t>(spidev_chip::access(i - 1).reg + 1));
    }
    char output[64] = {};
    FUZZ_CHECK(pread(output_fd, output, sizeof output - 1, 0) >= 0);
    char expected[64];
    std::snprintf(expected, sizeof expected, "%zu registers written\n", writes);
    FUZZ_CHECK(std::strcmp(output, expected) == 0);
    return 0;
}
