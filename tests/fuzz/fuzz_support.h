// What the fuzz targets share: the check of a property, which ends the run as
// a finding; files of the input in place of fixed paths; and the switch chip
// on the SPI bus, in process (fuzz_support.cpp).
#pragma once

#include "testbench/chip_model.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

[[noreturn]] inline void fuzz_failed(const char *what, const char *file, int line) {
    std::fprintf(stderr, "%s:%d: property broken: %s\n", file, line, what);
    std::abort(); // libFuzzer keeps the input that got here
}

#define FUZZ_CHECK(condition)                                                                      \
    ((condition) ? static_cast<void>(0) : fuzz_failed(#condition, __FILE__, __LINE__))

// The paths that fopen answers from the input: the text that opening one
// reads (kept by the caller), or none for a file that has gone. Any other
// path goes to the C library.
inline std::vector<std::pair<std::string, std::optional<std::string_view>>> fake_files;

// The tool's reg_read/reg_write on its descriptor, and the console's
// hw_read_byte/hw_write_byte on its own, differ in the shape of a write.
enum class SpiPath { tool, console };

struct SpiAccess {
    bool write;
    std::uint8_t reg;
    std::uint8_t value; // written, or what the read returned
};

// The transfers since the last reset_chip, in order.
inline std::vector<SpiAccess> spi_log;

// The descriptor of the path, opened on first use.
int spi_fd(SpiPath path);

// A freshly reset chip of the board (zb::ChipState: its register file and the
// four indirect tables), and an empty log.
zb::ChipState &reset_chip(std::uint8_t board);
