// The link bits of the two monitored ports.
#include "core/link_state.h"

#include "core/spi_access.h"

#include <array>

namespace {
constexpr std::array<const char *, 4> link_state_texts{
    "port1_link DOWN port2_link DOWN",
    "port1_link UP port2_link DOWN",
    "port1_link DOWN port2_link UP",
    "port1_link UP port2_link UP",
};

LinkState link_state_of(std::uint8_t first, std::uint8_t second) {
    return static_cast<LinkState>(((second & 0x20) >> 4) + ((first & 0x20) >> 5));
}
} // namespace

LinkState read_link_state(std::uint8_t link_reg_1, std::uint8_t link_reg_2) {
    const std::uint8_t first = reg_read(link_reg_1);
    const std::uint8_t second = reg_read(link_reg_2);
    return link_state_of(first, second);
}

const char *link_state_text(LinkState state) {
    return link_state_texts[state & 3];
}
