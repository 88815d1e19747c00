// What every fuzz target shares: the check of a property, which ends the run
// as a finding, and the product's standard output sent nowhere.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

[[noreturn]] inline void fuzz_failed(const char *what, const char *file, int line) {
    std::fprintf(stderr, "%s:%d: property broken: %s\n", file, line, what);
    std::abort(); // libFuzzer keeps the input that got here
}

#define FUZZ_CHECK(condition)                                                                      \
    ((condition) ? static_cast<void>(0) : fuzz_failed(#condition, __FILE__, __LINE__))

// The product prints on standard output; libFuzzer reports on standard error.
// Descriptor 1 stays open (on /dev/null), so that nothing opened later takes
// its number.
inline void product_output_to_null() {
    const int null = open("/dev/null", O_WRONLY);
    FUZZ_CHECK(null >= 0 && dup2(null, STDOUT_FILENO) == STDOUT_FILENO);
    close(null);
}
