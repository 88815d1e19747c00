// Board identification by the machine name on the "Hardware" line of
// /proc/cpuinfo.
#include "core/board.h"

#include "core/unique_file.h"

#include <cstdio>
#include <cstring>

namespace {
constexpr char NAND_NAME[] = "Zorvi HPB-NAND";
constexpr char NOR_NAME[] = "Zorvi HPB-NOR";

std::int32_t board_from_name(const char *name) {
    if (std::strncmp(name, NAND_NAME, sizeof NAND_NAME - 1) == 0)
        return BOARD_NAND;
    if (std::strncmp(name, NOR_NAME, sizeof NOR_NAME - 1) == 0)
        return BOARD_NOR;
    return BOARD_UNKNOWN;
}
} // namespace

std::int32_t detect_board() {
    const UniqueFile file = open_file("/proc/cpuinfo", "r");
    if (!file)
        return -1;

    char line[256];
    char name[256] = "";
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strncmp(line, "Hardware", 8) != 0)
            continue;
        // The name stands two characters after the colon: the colon and the
        // character behind it are skipped, and the newline stays. A line
        // without a colon names no board, so the name stays empty and the
        // board is unknown; a colon at the very end of the text gives an
        // empty name too, rather than a read past the text.
        const char *colon = std::strchr(line, ':');
        if (colon != nullptr && colon[1] != '\0')
            std::snprintf(name, sizeof name, "%s", colon + 2);
        break; // the first "Hardware" line ends the search, whatever it names
    }
    return board_from_name(name);
}
