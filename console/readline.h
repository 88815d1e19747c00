// The console's small line editor.
#pragma once

inline constexpr int LINE_BUFFER_SIZE = 256;

// Characters in the line, 0 for an empty line with nothing to recall, or -1 on
// Ctrl-C (or at the end of the input).
int readline(char *buffer, const char *prompt);
