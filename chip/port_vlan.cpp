// Per-port VLAN settings. Each port has a 16-register block starting at
// 16p + 16: tagging in the first register, the ingress rules in the third, the
// default VID split over the fourth (high nibble) and fifth (low byte). The
// 802.1Q switch is bit 7 of the chip-wide register 5.
#include "chip/port_vlan.h"

#include "chip/device_database.h"
#include "chip/port_columns.h"
#include "chip/port_settings.h"
#include "console/cli_handler.h"
#include "console/hw_access.h"

#include <cstdio>

namespace {

constexpr unsigned REG_GLOBAL_CONTROL = 5;
constexpr std::uint8_t GLOBAL_8021Q = 0x80;

constexpr std::uint8_t TAG_INSERT = 0x04;     // register 16p + 16
constexpr std::uint8_t TAG_REMOVE = 0x02;     // register 16p + 16
constexpr std::uint8_t INGRESS_FILTER = 0x40; // register 16p + 18
constexpr std::uint8_t DISCARD_NON_PVID = 0x20;
constexpr std::uint8_t VID_HIGH_BITS = 0x0F; // register 16p + 19

// Offsets in a port's register block.
constexpr unsigned TAG_OFFSET = 16;
constexpr unsigned INGRESS_OFFSET = 18;
constexpr unsigned VID_HIGH_OFFSET = 19;
constexpr unsigned VID_LOW_OFFSET = 20;

constexpr std::array<FlagLine<PortVlanRow>, 4> flag_lines{{
    {"VLAN tag insertion   : ", &PortVlanRow::tag_insert},
    {"VLAN tag removal     : ", &PortVlanRow::tag_remove},
    {"VLAN ingress filter  : ", &PortVlanRow::ingress_filter},
    {"VLAN discard PVID    : ", &PortVlanRow::discard_non_pvid},
}};

} // namespace

void SwitchSetPortDefaultVid(int fd, std::uint32_t p, std::uint16_t vid) {
    if (!port_index_valid(p))
        return;
    // VID 0 wraps to 0xFFFF here, so one comparison leaves 1 to 4095.
    if (static_cast<std::uint16_t>(vid - 1) > 4094) {
        std::printf("error: incorrect default vid (%d) to set! \n", vid);
        return;
    }
    hw_write_byte(fd, port_reg(p, VID_LOW_OFFSET), vid & 0xFFU);
    const std::uint8_t high = hw_read_byte(fd, port_reg(p, VID_HIGH_OFFSET));
    hw_write_byte(
        fd, port_reg(p, VID_HIGH_OFFSET),
        static_cast<std::uint8_t>((high & ~VID_HIGH_BITS) | ((vid >> 8) & VID_HIGH_BITS)));
}

void SwitchSet8021Q(int fd, std::int32_t enable) {
    update_flag_bits(fd, REG_GLOBAL_CONTROL, GLOBAL_8021Q, enable);
}

void SwitchSetPortVlanTag(int fd, std::uint32_t p, std::int32_t tag, std::int32_t enable) {
    update_port_flag_bits(fd, p, TAG_OFFSET, tag == 1 ? TAG_INSERT : TAG_REMOVE, enable);
}

void SwitchSetPortIngressFilter(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, INGRESS_OFFSET, INGRESS_FILTER, flag);
}

void SwitchSetPortDiscardNonVid(int fd, std::uint32_t p, std::int32_t flag) {
    update_port_flag_bits(fd, p, INGRESS_OFFSET, DISCARD_NON_PVID, flag);
}

void SwitchShowVlanInfo(int fd) {
    if (gDrvCtrl == nullptr)
        return;
    for (std::uint32_t i = 0; i < SWITCH_PORTS; ++i) {
        PortVlanRow &row = gDrvCtrl->port_vlan[i];
        const std::uint8_t low = hw_read_byte(fd, port_reg(i, VID_LOW_OFFSET));
        const std::uint8_t high = hw_read_byte(fd, port_reg(i, VID_HIGH_OFFSET));
        const std::uint8_t tags = hw_read_byte(fd, port_reg(i, TAG_OFFSET));
        const std::uint8_t ingress = hw_read_byte(fd, port_reg(i, INGRESS_OFFSET));
        row.default_vid = static_cast<std::uint16_t>(((high & VID_HIGH_BITS) << 8) | low);
        row.tag_insert = (tags & TAG_INSERT) != 0 ? 1 : 0;
        row.tag_remove = (tags & TAG_REMOVE) != 0 ? 1 : 0;
        row.ingress_filter = (ingress & INGRESS_FILTER) != 0 ? 1 : 0;
        row.discard_non_pvid = (ingress & DISCARD_NON_PVID) != 0 ? 1 : 0;
    }
    gDrvCtrl->vlan_8021q = (hw_read_byte(fd, REG_GLOBAL_CONTROL) & GLOBAL_8021Q) != 0 ? 1 : 0;

    // Column c shows port index c; index 0 is read but has no column.
    print_info_heading("\n                Port :        %s\n");
    std::fputs("VLAN defaul VID      : ", stdout);
    for (int c = 1; c <= 4; ++c)
        std::printf(" %7d    ", gDrvCtrl->port_vlan[c].default_vid);
    std::fputs("\n", stdout);
    print_flag_rows(flag_lines, gDrvCtrl->port_vlan);
    std::printf("VLAN 802.1Q          : %s\n", on_off_text[gDrvCtrl->vlan_8021q]);
}
