// The pid files of both roles: the process's pid as "%d\n", never removed.
#pragma once

// Creates or empties the file and writes the pid; false when it cannot be
// created.
bool write_pid_file(const char *path);
