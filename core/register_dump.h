// The dump of all 256 registers (-d), in the register file's own format.
#pragma once

void dump_registers();
