// Console sessions: the input is what a user types. The product's line editor
// reads it from standard input, and each line it gives goes through
// cli_parser, the command table and the handlers into the chip operations,
// whose hw_read_byte/hw_write_byte reach the in-process chip on the console's
// descriptor.
//
// The loop is the console's prompt loop: one line buffer of 256 bytes, zeroed
// once, ended by exit, Ctrl-C or the end of the input (which the editor takes
// as Ctrl-C). The console's start (its device open and the self-test of 767
// fixed transfers) takes no input and is left out.
//
// Besides the sanitizers, each session checks:
// - readline gives -1 with an empty line, or the line's length, at most 254,
//   with the line NUL-terminated there;
// - the tokens that parse_args cuts from the rest of a line under its
//   command's limit (4, the largest, for an unknown word) are at most that
//   many, non-empty, in order, and each ends inside the line buffer;
// - every transfer has the console's shape (fuzz_support.cpp);
// - exit frees the device database.
#include "chip/device_database.h"
#include "console/cli_parser.h"
#include "console/command_table.h"
#include "console/readline.h"
#include "tests/fuzz/fuzz_support.h"

#include <cstring>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace {

void check_tokens(const char *line) {
    char copy[LINE_BUFFER_SIZE];
    std::memcpy(copy, line, sizeof copy);
    char *word = copy + std::strspn(copy, " \t");
    char *rest = word + std::strcspn(word, " \t");
    const std::string_view command(word, static_cast<std::size_t>(rest - word));
    std::uint16_t limit = 4; // the largest, for a word that names no command
    for (const CliCommand &row : cli_command_table)
        if (row.name != nullptr && command == row.name)
            limit = row.max_args;

    std::uint16_t argc = 0;
    char *argv[CLI_MAX_TOKENS] = {};
    parse_args(&argc, argv, rest, limit);
    FUZZ_CHECK(argc <= limit);
    const char *end = copy + sizeof copy;
    const char *after_previous = rest;
    for (int i = 0; i < argc; ++i) {
        FUZZ_CHECK(argv[i] >= after_previous && argv[i] < end);
        const void *nul = std::memchr(argv[i], '\0', static_cast<std::size_t>(end - argv[i]));
        FUZZ_CHECK(nul != nullptr && nul != argv[i]);
        after_previous = static_cast<const char *>(nul) + 1;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The product prints on standard output, libFuzzer on standard error.
    FUZZ_CHECK(std::freopen("/dev/null", "w", stdout) != nullptr);
    // Standard input is a memory file that each session rewrites.
    FUZZ_CHECK(dup2(memfd_create("console-input", 0), STDIN_FILENO) == STDIN_FILENO);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FUZZ_CHECK(ftruncate(STDIN_FILENO, 0) == 0);
    FUZZ_CHECK(pwrite(STDIN_FILENO, data, size, 0) == static_cast<ssize_t>(size));
    FUZZ_CHECK(lseek(STDIN_FILENO, 0, SEEK_SET) == 0);
    // A chip with something in the tables that are only read: three learned
    // addresses, an overflowed counter and dropped packets.
    zb::ChipState &chip = reset_chip(zb::kBoardNand);
    chip.dyn_count = 3;
    for (std::uint8_t i = 0; i < 3; ++i)
        chip.dyn[i] = zb::DynEntry{{0x02, 0, 0, 0, 0, i}, i, static_cast<std::uint8_t>(i + 1), i};
    chip.mib[1][0] = zb::MibCounter{0x3FFFFFFF, 1};
    chip.dropped[0] = 0xFFF0;
    FUZZ_CHECK(init_database() == 0);

    // The zeroed line buffer on the heap, as the console allocates it, so
    // that any access past its 256 bytes is seen.
    const std::unique_ptr<char[]> buffer(new char[LINE_BUFFER_SIZE]());
    char *line = buffer.get();
    int length = 0;
    while ((length = readline(line, "=>")) >= 0) {
        FUZZ_CHECK(length <= 254 && std::strlen(line) == static_cast<std::size_t>(length));
        if (length == 0)
            continue;
        check_tokens(line);
        if (cli_parser(spi_fd(SpiPath::console), line) == 0) {
            FUZZ_CHECK(gDrvCtrl == nullptr);
            return 0;
        }
    }
    FUZZ_CHECK(line[0] == '\0');
    return 0;
}
