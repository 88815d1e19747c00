// The link bits of the two monitored ports, as the status line and the daemon
// see them.
#pragma once

#include <cstdint>

// Bit 0 is port1_link, bit 1 port2_link.
using LinkState = std::uint8_t;

// Reads link_reg_1, then link_reg_2.
LinkState read_link_state(std::uint8_t link_reg_1, std::uint8_t link_reg_2);
// "port1_link UP port2_link DOWN" and its three siblings.
const char *link_state_text(LinkState state);
