// The console's usage texts, by usage index: help on the parameters (0 to
// 16), a blank line (17), one usage line per command in command table order
// (18 to 64), and the empty text that ends the table (65).
#pragma once

#include <array>
#include <cstdint>

inline constexpr int CLI_USAGE_COUNT = 66;
// The usage line of the command table's row i is row FIRST_COMMAND_USAGE + i.
inline constexpr std::uint16_t FIRST_COMMAND_USAGE = 18;

// clang-format off
inline constexpr std::array<const char *, CLI_USAGE_COUNT> cli_usage_table{{
    "RegNum     = { 0 ..     ff }   -- Register number.\n",
    "RegData    = { 0 ..   ffff }   -- Register data to write.\n",
    "Port       = { 1 ..      4 }   -- Port number.\n",
    "Index      = { 0 ..      n }   -- Table index. \n",
    "Count      = { 0 ..      n }   -- Number of table entry items (max Count: mib-30).\n",
    "tag        = { 0 ..      1 }   -- 1 - tagged, 0 - untagged.\n",
    "override   = { 0..       1 }   -- override port setting 'transmit\\receive enable=0'.\n",
    "Flag       = { 0 ..      1 }   -- 1 - enable, 0 - disable.\n",
    "vid        = { 1 ..   4095 }   -- VLAN ID number.\n",
    "fid        = { 0 ..    127 }   -- Filter ID number.\n",
    "MAC        = { 00..     ff }   -- MAC address (eg. 08:00:70:22:44:01).\n",
    "Priority   = { 0 ..      7 }   -- 802.1P priority .\n",
    "TOS        = { 0 ..     63 }   -- DiffServ TOS.\n",
    "Q#         = { 0 ..      3 }   -- Transmit Queue number.\n",
    "sniff-sel  = { 0 ..      1 }   -- 1 - Rx AN Tx, 0 - Rx OR Tx.\n",
    "Rate-mode  = { 0 ..      3 }   -- 0 - all frames, 1 - broadcast\\multicast\\flooded unicast, 2 - broadcast\\multicast, 3 - broadcast.\n",
    "#Kbps      = { 1 ..      N }   -- data rate in Kbps unit.\n",
    "\n",
    "help                               -- Display help message.\n",
    "exit                               -- exit cli function.\n",
    "rrb        <RegNum>                -- register read in byte\n",
    "rrw        <RegNum>                -- register read in word\n",
    "rrl        <RegNum>                -- register read in dword\n",
    "rwb        <RegNum> <RegData>      -- register write in byte.\n",
    "rww        <RegNum> <RegData>      -- register write in word.\n",
    "rwl        <RegNum> <RegData>      -- register write in dword.\n",
    "showmib    <Port>                  -- show a port's MIB count.\n",
    "clearmib                           -- clear all port's MIB count.\n",
    "macdyn                             -- show all the dynamic MAC table.\n",
    "macstatic                          -- show static MAC table.\n",
    "macadd <MAC> <Port> <override> <fid>  -- add MAC with its forward port, override to the static MAC table.\n",
    "macdel      <MAC> <fid>            -- remove exist MAC entry from the static MAC table.\n",
    "vlan        <Index> <Count>        -- show VLAN table start from <Index> for <Count> entries.\n",
    "vlancreate  <vid> <fid>            -- create a new VLAN entry to the VLAN table.\n",
    "vlandel     <vid> <fid>            -- delete a VLAN entry from the VLAN table.\n",
    "vlanaddport <vid> <Port> <fid>     -- add one port to this vid table.\n",
    "vlandelport <vid> <Port> <fid>     -- delete a port from this vid table.\n",
    "vlandefvid  <Port> <vid>           -- configure default vid on a Switch port.\n",
    "vlanenable                         -- enable 802.1Q.\n",
    "vlandisable                        -- disable 802.1Q.\n",
    "vlanenabletag  <Port> <tag>        -- enable VLAN tag insertiond/removal on a Switch port.\n",
    "vlandisabletag <Port> <tag>        -- disable VLAN tag insertion/removal on a Switch port.\n",
    "vlaningressfilter <Port> <Flag>    -- enable\\disable VLAN Ingress rule on a Switch port.\n",
    "vlandiscardnonvid <Port> <Flag>    -- enable\\disable discard non PVID on a Switch port.\n",
    "vlaninfo                           -- show all the port's VLAN configuration.\n",
    "qoswfq      <Flag> <Port>          -- enable\\disable Weighted Fair Queueing on a Switch port.\n",
    "qossplitq   <Port> <Flag>          -- enable\\disable split four TxQ on a Switch port.\n",
    "qostag2q    <Priority> <Q#>        -- mapping 802.1p priority to priority TxQ.\n",
    "qostos2q    <TOS>  <Q#>            -- mapping DiffServ TOS to priority TxQ.\n",
    "qosportbase <Port> <Flag> <Q#>     -- enable\\disable mapping port-base to priority TxQ on a Switch port.\n",
    "qosdiffserv <Port> <Flag>          -- enable\\disable DiffServ QoS on a Switch port.\n",
    "qosdot1p    <Port> <Flag>          -- enable\\disable 802.1p QoS on a Switch port.\n",
    "qosinfo                            -- show all the port's QoS configuration.\n",
    "mirrortx    <Port> <Flag>          -- enable\\disable transmit monitored on a Switch port.\n",
    "mirrorrx    <Port> <Flag>          -- enable\\disable receive monitored on a Switch port.\n",
    "sniffer     <Port> <Flag>          -- enable\\disable sniffer on a Switch port.\n",
    "sniffmode   <sniff-sel>            -- configure the mirroring filter function.\n",
    "mirrorinfo                         -- show all the port's mirror configuration.\n",
    "rateconftx  <Port> <#Kbps> <Q#>    -- configure egress rate limit on a Switch port and priority queue.\n",
    "rateconfrx  <Port> <#Kbps> <Q#>    -- configure ingress rate limit on a Switch port and priority queue.\n",
    "ratetx      <Port> <Flag> <Q#>     -- enable\\disable egress rate limit on a Switch port and priority queue.\n",
    "raterx      <Port> <Flag> <Q#>     -- enable\\disable ingress rate limit on a Switch port and priority queue.\n",
    "raterxflow  <Port> <Flag>          -- enable\\disable ingress flow control on a Switch port.\n",
    "ratemode    <Port> <Rate-mode>     -- configure Ingress Limit mode.\n",
    "rateinfo                           -- show all the port's rate limit configuration.\n",
    "",
}};
// clang-format on
