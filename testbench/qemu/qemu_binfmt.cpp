// binfmt_misc interpreter for the ARM executables of the end-to-end suite's
// run under qemu-user. Registered with the flags P (the kernel passes the name
// the program was started under) and F, it is started as
//     qemu_binfmt FILE ARGV0 [ARGS...]
// and replaces itself by qemu-arm so that the process's command line begins
// with ARGV0, as the program's own would: the tool's and the daemon's process
// lookup reads exactly that. LD_PRELOAD (the bench library, built for ARM) is
// meant for the emulated program, not for qemu-arm, a host program: it goes to
// the program through QEMU_SET_ENV. Built statically, so that no LD_PRELOAD
// applies to this program either.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#ifndef QEMU_ARM
#define QEMU_ARM "/usr/bin/qemu-arm"
#endif
#ifndef TARGET_LIBRARIES
#define TARGET_LIBRARIES "/usr/arm-linux-gnueabihf"
#endif

namespace {
bool starts_with(const char *text, const char *prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}
} // namespace

int main(int argc, char **argv) {
    if (argc < 3) {
        std::fputs("qemu_binfmt: FILE ARGV0 [ARGS...] expected (binfmt_misc flag P)\n", stderr);
        return 127;
    }
    const char *file = argv[1];
    const char *name = argv[2];

    std::vector<std::string> env;
    const char *preload = nullptr;
    for (char **e = environ; *e != nullptr; ++e) {
        if (starts_with(*e, "LD_PRELOAD="))
            preload = *e + std::strlen("LD_PRELOAD=");
        else if (!starts_with(*e, "QEMU_"))
            env.emplace_back(*e);
    }
    env.emplace_back("QEMU_LD_PREFIX=" TARGET_LIBRARIES);
    env.emplace_back(std::string("QEMU_ARGV0=") + name);
    if (preload != nullptr && *preload != '\0') {
        // QEMU_SET_ENV takes a comma-separated list.
        if (std::strchr(preload, ',') != nullptr) {
            std::fprintf(stderr, "qemu_binfmt: LD_PRELOAD with a comma: %s\n", preload);
            return 127;
        }
        env.emplace_back(std::string("QEMU_SET_ENV=LD_PRELOAD=") + preload);
    }
    // The program sees its environment without the settings made here.
    env.emplace_back("QEMU_UNSET_ENV=QEMU_LD_PREFIX,QEMU_ARGV0,QEMU_SET_ENV,QEMU_UNSET_ENV");

    std::vector<char *> envp;
    envp.reserve(env.size() + 1);
    for (auto &e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);

    std::vector<char *> args;
    args.push_back(const_cast<char *>(name));
    args.push_back(const_cast<char *>(file));
    for (int i = 3; i < argc; ++i)
        args.push_back(argv[i]);
    args.push_back(nullptr);

    execve(QEMU_ARM, args.data(), envp.data());
    std::perror("qemu_binfmt: " QEMU_ARM);
    return 127;
}
