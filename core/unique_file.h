// A stdio stream that closes itself when its owner goes out of scope.
#pragma once

#include <cstdio>
#include <memory>

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};

using UniqueFile = std::unique_ptr<std::FILE, FileCloser>;

// fopen into an owner; empty when the file cannot be opened.
inline UniqueFile open_file(const char *path, const char *mode) {
    return UniqueFile(std::fopen(path, mode));
}
