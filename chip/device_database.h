// The console's device database: what the chip operations read into.
#pragma once

#include <cstdint>

inline constexpr int SWITCH_PORTS = 5;

struct MibBlock {
    std::uint32_t counter[32];    // accumulated, in the chip's counter order
    std::uint32_t dropped[2];     // [0] tx dropped (0x100+port), [1] rx dropped (0x105+port)
    std::uint32_t dropped_raw[2]; // last raw 16-bit values, same order
};

struct StaticMacRow {
    std::uint32_t valid;
    std::uint32_t use_fid;
    std::uint32_t override;
    std::uint8_t mac[6];
    std::uint16_t ports; // bit k = port index k
    std::uint8_t fid;
};

struct VlanRow {
    std::uint32_t valid;
    std::uint16_t vid;
    std::uint8_t fid;
    std::uint16_t ports;
};

struct PortVlanRow {
    std::uint8_t tag_insert;
    std::uint8_t tag_remove;
    std::uint8_t ingress_filter;
    std::uint8_t discard_non_pvid;
    std::uint16_t default_vid;
};

struct PortQosRow {
    std::uint8_t wfq;
    std::uint8_t tag_queue[8];  // chip-wide: filled in row 0 only
    std::uint8_t tos_queue[64]; // chip-wide: filled in row 0 only
    std::uint8_t split_4q;
    std::uint8_t base_queue;
    std::uint8_t dot1p;
    std::uint8_t diffserv;
};

struct PortMirrorRow {
    std::uint8_t tx;
    std::uint8_t rx;
    std::uint8_t sniffer;
};

struct RateQueueRow {
    std::int32_t tx_rate;
    std::int32_t rx_rate;
    std::uint8_t tx_enabled;
    std::uint8_t rx_enabled;
    std::uint8_t rx_flow_control; // queue row 0 only
    std::uint8_t rx_limit_mode;   // queue row 0 only
};

struct PortRateRow {
    RateQueueRow queue[4];
};

struct DrvCtrl {
    MibBlock port_mib[SWITCH_PORTS];
    StaticMacRow static_mac[32];
    VlanRow vlan_table[4096];
    std::uint8_t vlan_8021q;
    PortVlanRow port_vlan[SWITCH_PORTS];
    PortQosRow port_qos[SWITCH_PORTS];
    std::uint8_t mirror_rx_and_tx;
    PortMirrorRow port_mirror[SWITCH_PORTS];
    PortRateRow port_rate[SWITCH_PORTS];
};

// The port mask bit of a port index; an index that names no port adds none.
constexpr std::uint16_t port_mask_bit(std::uint32_t port_index) {
    return static_cast<std::uint16_t>(port_index < SWITCH_PORTS ? 1U << port_index : 0U);
}

// Null until init_database has run; only the exit command frees it.
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the device database
extern DrvCtrl *gDrvCtrl;

int init_database();
void free_database();
