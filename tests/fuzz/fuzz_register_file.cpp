// The register-file loader (-c) on arbitrary file contents: load_config_file
// reads the input as its file (fake_files) and writes through the tool's
// reg_write to the in-process chip.
//
// Besides the sanitizers, each load checks:
// - the loader only writes, in groups of 16 to consecutive registers (modulo
//   256), and every transfer has the tool's shape (fuzz_support.cpp);
// - its one line of output, "%d registers written\n", counts the writes.
#include "core/register_file.h"
#include "core/tool_state.h"
#include "tests/fuzz/fuzz_support.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr const char *PATH = "/etc/switch.regs";
int output_fd = -1;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The loader's output is read back from a memory file.
    output_fd = memfd_create("output", 0);
    FUZZ_CHECK(output_fd >= 0 && dup2(output_fd, STDOUT_FILENO) == STDOUT_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fake_files = {{PATH, std::string_view(reinterpret_cast<const char *>(data), size)}};
    FUZZ_CHECK(ftruncate(output_fd, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
    reset_chip(zb::kBoardNand);
    tool_state.spi_fd = spi_fd(SpiPath::tool);
    tool_state.config_path = PATH;

    load_config_file();
    std::fflush(stdout);

    FUZZ_CHECK(spi_log.size() % 16 == 0);
    for (std::size_t i = 0; i < spi_log.size(); ++i)
        FUZZ_CHECK(spi_log[i].write &&
                   spi_log[i].reg == static_cast<std::uint8_t>(spi_log[i - i % 16].reg + i % 16));
    char output[64] = {};
    FUZZ_CHECK(pread(output_fd, output, sizeof output - 1, 0) >= 0);
    FUZZ_CHECK(output == std::to_string(spi_log.size()) + " registers written\n");
    return 0;
}
