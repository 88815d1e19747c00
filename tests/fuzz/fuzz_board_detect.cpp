// Board identification on arbitrary /proc/cpuinfo text: the input is the
// file that detect_board reads (fake_files).
//
// Besides the sanitizers (and the leak check, which sees a file left open):
// the result is a board kind, and a known board is named by its machine name
// somewhere behind a line (or a piece of 255 characters of a longer one) that
// begins with "Hardware".
#include "core/board.h"
#include "tests/fuzz/fuzz_support.h"

#include <algorithm>

namespace {

// Where the first text that fgets gives (a line, cut into pieces of 255
// characters) that begins with "Hardware" begins, or npos.
std::size_t hardware_line(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        if (text.substr(at).starts_with("Hardware"))
            return at;
        at += std::min<std::size_t>(text.substr(at, 255).find('\n'), 254) + 1;
    }
    return std::string_view::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    fake_files = {{"/proc/cpuinfo", text}};

    const std::int32_t board = detect_board();
    FUZZ_CHECK(board == BOARD_UNKNOWN || board == BOARD_NOR || board == BOARD_NAND);
    const char *name = board == BOARD_NAND ? "Zorvi HPB-NAND" : "Zorvi HPB-NOR";
    FUZZ_CHECK(board == BOARD_UNKNOWN || text.find(name, hardware_line(text)) != text.npos);
    return 0;
}
