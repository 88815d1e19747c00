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

constexpr const char *PATH = "/etc/switch.regs";

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The loader's output is read back from a memory file.
    FUZZ_CHECK(dup2(memfd_create("output", 0), STDOUT_FILENO) == STDOUT_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fake_files = {{PATH, std::string_view(reinterpret_cast<const char *>(data), size)}};
    FUZZ_CHECK(ftruncate(STDOUT_FILENO, 0) == 0 && lseek(STDOUT_FILENO, 0, SEEK_SET) == 0);
    reset_chip(zb::kBoardNand);
    tool_state = ToolState{.spi_fd = spi_fd(SpiPath::tool), .config_path = PATH};

    load_config_file();
    std::fflush(stdout);

    FUZZ_CHECK(spi_log.size() % 16 == 0);
    for (std::size_t i = 0; i < spi_log.size(); ++i)
        FUZZ_CHECK(spi_log[i].write &&
                   spi_log[i].reg == static_cast<std::uint8_t>(spi_log[i - i % 16].reg + i % 16));
    char output[64] = {};
    FUZZ_CHECK(pread(STDOUT_FILENO, output, sizeof output - 1, 0) >= 0);
    FUZZ_CHECK(output == std::to_string(spi_log.size()) + " registers written\n");
    return 0;
}
