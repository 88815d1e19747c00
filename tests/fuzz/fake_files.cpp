// fopen with a table of paths that the fuzz input supplies.
#include "tests/fuzz/fake_files.h"

#include "tests/fuzz/fuzz_check.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <vector>

namespace {

struct FakeFile {
    std::string path;
    const void *text; // null: the open fails
    std::size_t size;
};

std::vector<FakeFile> files;

const FakeFile *find(const char *path) {
    for (const FakeFile &file : files) {
        if (file.path == path)
            return &file;
    }
    return nullptr;
}

} // namespace

extern "C" FILE *fopen(const char *path, const char *mode) {
    const FakeFile *file = find(path);
    if (file == nullptr) {
        using Fopen = FILE *(*)(const char *, const char *);
        static const auto real = reinterpret_cast<Fopen>(dlsym(RTLD_NEXT, "fopen"));
        return real(path, mode);
    }
    FUZZ_CHECK(std::strcmp(mode, "r") == 0);
    if (file->text == nullptr) {
        errno = ENOENT;
        return nullptr;
    }
    // A memory stream cannot be empty: an empty text reads as /dev/null.
    if (file->size == 0)
        return fopen("/dev/null", "r");
    return fmemopen(const_cast<void *>(file->text), file->size, "r");
}

namespace fake_files {

void clear() {
    files.clear();
}

void give(const char *path, const void *text, std::size_t size) {
    files.push_back(FakeFile{path, text, size});
}

void give_missing(const char *path) {
    files.push_back(FakeFile{path, nullptr, 0});
}

} // namespace fake_files
