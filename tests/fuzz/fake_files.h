// Files of the fuzz input in place of fixed paths: this fopen (in place of the
// C library's and the sanitizer's) opens the text given for a path as a
// memory stream, and a path given as missing as a failed open (ENOENT). Any
// other path goes to the C library.
#pragma once

#include <cstddef>

namespace fake_files {

// Drops every path given before.
void clear();
// The text (kept by the caller until clear) that opening the path reads.
void give(const char *path, const void *text, std::size_t size);
// Opening the path fails, as for a file that has gone.
void give_missing(const char *path);

} // namespace fake_files
