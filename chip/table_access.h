// The chip's indirect table interface, registers 110 to 120.
#pragma once

#include <cstdint>

inline constexpr unsigned REG_TABLE_CONTROL = 110;
inline constexpr unsigned REG_TABLE_ADDRESS = 111;    // its write starts the action
inline constexpr unsigned REG_TABLE_DATA_FIRST = 112; // highest-order byte
inline constexpr unsigned REG_TABLE_DATA_LAST = 120;  // lowest-order byte

inline constexpr std::uint8_t TABLE_READ = 0x10;
inline constexpr std::uint8_t TABLE_STATIC_MAC = 0x00;
inline constexpr std::uint8_t TABLE_VLAN = 0x04;
inline constexpr std::uint8_t TABLE_DYNAMIC_MAC = 0x08;
inline constexpr std::uint8_t TABLE_MIB = 0x0C;

// The number in data registers first to 120, read in that order, the
// highest-order byte first.
std::uint32_t table_read_number(int fd, unsigned first);

// Both MAC tables hold an entry's MAC address in data registers 115 (first
// byte) to 120.
inline constexpr unsigned MAC_BYTES = 6;
void table_read_mac(int fd, std::uint8_t *mac);
void table_write_mac(int fd, const std::uint8_t *mac);

// Starts a read of a table entry: control (read bit, table, address bits 9-8)
// to register 110, then address bits 7-0 to register 111.
void table_read_start(int fd, std::uint8_t table, unsigned address);

// Reads reg until the bits of mask equal ready, at most 100 times; the last
// value read, for the caller to check.
std::uint8_t table_poll_ready(int fd, unsigned reg, std::uint8_t mask, std::uint8_t ready);

// Ends a write of a table entry whose data registers are written already:
// control with the read bit clear, then the address, which starts the write.
void table_write_commit(int fd, std::uint8_t table, unsigned address);
