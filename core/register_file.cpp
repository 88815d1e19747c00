// Loading a register file (-c): lines of a base and sixteen values in hex, as
// the dump prints them; any line holding '#' is a comment.
#include "core/register_file.h"

#include "core/spi_access.h"
#include "core/tool_state.h"
#include "core/unique_file.h"

#include <cstdio>
#include <cstring>

bool parse_register_line(const char *line, unsigned int &base, unsigned int (&v)[16]) {
    const int fields =
        std::sscanf(line, "%4x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x %2x",
                    &base, &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9],
                    &v[10], &v[11], &v[12], &v[13], &v[14], &v[15]);
    return fields == 17;
}

void load_config_file() {
    const UniqueFile file = open_file(tool_state.config_path, "r");
    if (!file) {
        std::printf("Error while opening %s\n", tool_state.config_path);
        return;
    }

    int count = 0;
    char line[256];
    while (std::fgets(line, sizeof line, file.get()) != nullptr) {
        if (std::strchr(line, '#') != nullptr)
            continue;
        unsigned int base = 0;
        unsigned int values[16] = {};
        // A line that does not supply all 17 fields (a blank or short line)
        // has no values of its own to write: writing leftovers of an earlier
        // line, or nothing defined at all, would put garbage into the chip.
        // Such a line writes nothing and is not counted.
        if (!parse_register_line(line, base, values))
            continue;
        for (unsigned int i = 0; i < 16; ++i)
            reg_write(static_cast<std::uint8_t>((base + i) & 255),
                      static_cast<std::uint8_t>(values[i]));
        count += 16;
    }
    std::printf("%d registers written\n", count);
}
