// Loading a register file (-c).
#pragma once

// Writes the register file that -c named to the chip and prints the count.
void load_config_file();

// A data line of a register file: a base of at most 4 hex digits and sixteen
// values of at most 2. False when the line does not supply all 17 fields. A
// step of load_config_file, declared here for its unit test.
bool parse_register_line(const char *line, unsigned int &base, unsigned int (&values)[16]);
