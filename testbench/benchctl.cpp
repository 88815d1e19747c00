// benchctl: sets up a sandbox and drives the simulated chip from outside.
//
//   benchctl -s SB <command> [args...]
//
// Every command is one row of kCommands; see testbench/README.md.
#include "bench_state.h"
#include "chip_model.h"
#include "vm/kernel_side.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using zb::ChipState;

namespace {

struct Ctl {
    const char *sb = nullptr;
    ChipState *st = nullptr;
};

[[noreturn]] void die(const char *fmt, const char *arg = "") {
    std::fprintf(stderr, "benchctl: ");
    std::fprintf(stderr, fmt, arg);
    std::fputc('\n', stderr);
    std::exit(2);
}

unsigned long num(const char *text, unsigned long max) {
    char *end = nullptr;
    errno = 0;
    unsigned long v = std::strtoul(text, &end, 0);
    if (errno || end == nullptr || *end != '\0' || end == text || text[0] == '-' || v > max)
        die("bad number: %s", text);
    return v;
}

void parse_mac(const char *text, uint8_t mac[6]) {
    unsigned b[6];
    char tail;
    if (std::sscanf(text, "%2x%*1[:-]%2x%*1[:-]%2x%*1[:-]%2x%*1[:-]%2x%*1[:-]%2x%c", &b[0], &b[1],
                    &b[2], &b[3], &b[4], &b[5], &tail) != 6)
        die("bad MAC address: %s", text);
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<uint8_t>(b[i]);
}

// Every command that names a path in the sandbox runs with one (main checks).
std::string path_in(const Ctl &c, const char *rel) {
    return std::string(c.sb != nullptr ? c.sb : "") + rel;
}

void write_file(const std::string &path, const char *text) {
    FILE *f = std::fopen(path.c_str(), "w");
    if (f == nullptr)
        die("cannot write %s", path.c_str());
    std::fputs(text, f);
    std::fclose(f);
}

void mkdirs(const std::string &path) {
    for (size_t i = 1; i <= path.size(); ++i) {
        if (i == path.size() || path[i] == '/') {
            std::string part = path.substr(0, i);
            if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST)
                die("cannot create %s", part.c_str());
        }
    }
}

const char *cpuinfo_text(uint8_t board) {
    return board == zb::kBoardNor ? "processor\t: 0\n"
                                    "model name\t: ARMv5TEJ Processor rev 5 (v5l)\n"
                                    "BogoMIPS\t: 226.09\n"
                                    "Features\t: swp half thumb fastmult edsp java \n"
                                    "CPU implementer\t: 0x41\n"
                                    "CPU architecture: 5TEJ\n"
                                    "CPU variant\t: 0x0\n"
                                    "CPU part\t: 0x926\n"
                                    "CPU revision\t: 5\n"
                                    "\n"
                                    "Hardware\t: Zorvi HPB-NOR\n"
                                    "Revision\t: 0000\n"
                                    "Serial\t\t: 0000000000000000\n"
                                  : "processor\t: 0\n"
                                    "model name\t: ARMv7 Processor rev 10 (v7l)\n"
                                    "BogoMIPS\t: 1581.05\n"
                                    "Features\t: half thumb fastmult vfp edsp neon vfpv3 tls \n"
                                    "CPU implementer\t: 0x41\n"
                                    "CPU architecture: 7\n"
                                    "CPU variant\t: 0x2\n"
                                    "CPU part\t: 0xc09\n"
                                    "CPU revision\t: 10\n"
                                    "\n"
                                    "Hardware\t: Zorvi HPB-NAND\n"
                                    "Revision\t: 0000\n"
                                    "Serial\t\t: 0000000000000000\n";
}

// ---------------------------------------------------------------------------
// Commands. Each gets the arguments after its name.

int cmd_init(Ctl &c, int argc, char **argv) {
    uint8_t board = zb::kBoardNand;
    unsigned long scale = 1000;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--board") == 0 && i + 1 < argc) {
            const char *b = argv[++i];
            if (std::strcmp(b, "nand") == 0)
                board = zb::kBoardNand;
            else if (std::strcmp(b, "nor") == 0)
                board = zb::kBoardNor;
            else
                die("unknown board: %s", b);
        } else if (std::strcmp(argv[i], "--time-scale") == 0 && i + 1 < argc) {
            scale = num(argv[++i], 0xFFFFFFFFU);
        } else {
            die("init: unexpected argument %s", argv[i]);
        }
    }
    for (const char *d : {"", "/dev", "/proc", "/sys/class/gpio", "/var/run/avahi-daemon",
                          "/tmp/zorvi/control/nfs_up"})
        mkdirs(path_in(c, d));
    std::string state = path_in(c, "/state");
    int fd = open(state.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0 || ftruncate(fd, sizeof(ChipState)) != 0)
        die("cannot create %s", state.c_str());
    flock(fd, LOCK_EX);
    void *p = mmap(nullptr, sizeof(ChipState), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (p == MAP_FAILED)
        die("cannot map %s", state.c_str());
    auto *s = static_cast<ChipState *>(p);
    zb::chip_reset(*s, board);
    s->time_scale = static_cast<uint32_t>(scale);
    flock(fd, LOCK_UN);
    close(fd);
    write_file(path_in(c, "/events"), "");
    write_file(path_in(c, "/dev/spidev0.0"), "");
    write_file(path_in(c, "/proc/cpuinfo"), cpuinfo_text(board));
    write_file(path_in(c, "/sys/class/gpio/export"), "");
    write_file(path_in(c, "/sys/class/gpio/unexport"), "");
    return 0;
}

int cmd_peek(Ctl &c, int /*argc*/, char **argv) {
    std::printf("%u\n", c.st->regs[num(argv[0], 255)]);
    return 0;
}

int cmd_regs(Ctl &c, int /*argc*/, char ** /*argv*/) {
    for (int r = 0; r < 256; ++r)
        std::printf("%u%c", c.st->regs[r], r == 255 ? '\n' : ' ');
    return 0;
}

int cmd_poke(Ctl &c, int /*argc*/, char **argv) {
    c.st->regs[num(argv[0], 255)] = static_cast<uint8_t>(num(argv[1], 255));
    return 0;
}

int cmd_link(Ctl &c, int /*argc*/, char **argv) {
    int port = static_cast<int>(num(argv[0], 2));
    if (port < 1)
        die("link: port is 1 or 2%s");
    bool up = std::strcmp(argv[1], "up") == 0 || std::strcmp(argv[1], "1") == 0;
    if (!up && std::strcmp(argv[1], "down") != 0 && std::strcmp(argv[1], "0") != 0)
        die("link: up or down, not %s", argv[1]);
    uint8_t &r = c.st->regs[zb::chip_link_reg(c.st->board, port)];
    r = static_cast<uint8_t>(up ? (r | 0x20) : (r & ~0x20));
    return 0;
}

int cmd_managed(Ctl &c, int /*argc*/, char **argv) {
    c.st->managed = num(argv[0], 1) != 0 ? 1 : 0;
    return 0;
}

void set_path(char *field, const char *value) {
    size_t len = std::strlen(value);
    if (len >= zb::kPathField)
        die("path too long: %s", value);
    std::memcpy(field, value, len + 1);
}

int set_fault(Ctl &c, const std::string &name, const char *arg);

// On a sandbox that the VM's chip server serves, the kernel's side takes the
// fault as well (see vm/kernel_side.h).
int cmd_fault(Ctl &c, int /*argc*/, char **argv) {
    const char *eq = std::strchr(argv[0], '=');
    std::string name(argv[0],
                     eq != nullptr ? static_cast<size_t>(eq - argv[0]) : std::strlen(argv[0]));
    const char *arg = eq != nullptr ? eq + 1 : nullptr;
    int r = set_fault(c, name, arg);
    if (c.st->kernel != 0 && !zb::kernel_fault(name.c_str(), c.st->faults.export_busy))
        die("fault %s: the kernel does not produce it (the preload bench does)", name.c_str());
    return r;
}

int set_fault(Ctl &c, const std::string &name, const char *arg) {
    zb::Faults &f = c.st->faults;
    const char *given = name.c_str();
    struct Flag {
        const char *name;
        uint8_t zb::Faults::*field;
    };
    static constexpr Flag kFlags[] = {
        {"open", &zb::Faults::open},
        {"wr-mode", &zb::Faults::wr_mode},
        {"wr-lsb", &zb::Faults::wr_lsb},
        {"wr-bits", &zb::Faults::wr_bits},
        {"wr-speed", &zb::Faults::wr_speed},
        {"xfer", &zb::Faults::xfer_all},
        {"gpio-stuck", &zb::Faults::gpio_stuck},
    };
    if (name == "clear") {
        std::memset(&f, 0, sizeof f);
        f.export_busy = -1;
        std::string marker = path_in(c, "/dev/spidev0.0");
        if (access(marker.c_str(), F_OK) != 0)
            write_file(marker, "");
        return 0;
    }
    for (const Flag &fl : kFlags) {
        if (name == fl.name) {
            f.*fl.field = 1;
            return 0;
        }
    }
    if (arg == nullptr)
        die("fault: unknown fault or missing argument: %s", given);
    if (name == "xfer-from") {
        f.xfer_from = static_cast<uint32_t>(num(arg, 0xFFFFFFFFU));
        f.xfer_seen = 0;
    } else if (name == "export-busy") {
        f.export_busy = static_cast<int32_t>(num(arg, 1023));
    } else if (name == "gpio-open") {
        set_path(f.gpio_open, arg);
    } else if (name == "gpio-write") {
        set_path(f.gpio_write, arg);
    } else {
        die("fault: unknown fault %s", given);
    }
    return 0;
}

int cmd_mib(Ctl &c, int argc, char **argv) {
    auto port = num(argv[0], zb::kPorts - 1);
    auto counter = num(argv[1], zb::kMibCounters - 1);
    zb::MibCounter &m = c.st->mib[port][counter];
    m.value = static_cast<uint32_t>(num(argv[2], 0x3FFFFFFF));
    m.overflow = 0;
    if (argc > 3)
        m.overflow = std::strcmp(argv[3], "overflow") == 0 || num(argv[3], 1) != 0 ? 1 : 0;
    return 0;
}

int cmd_dropped(Ctl &c, int /*argc*/, char **argv) {
    auto addr = num(argv[0], 0x109);
    if (addr >= 0x100)
        addr -= 0x100;
    if (addr >= zb::kDroppedCounters)
        die("dropped: address is 0x100..0x109 (or 0..9), not %s", argv[0]);
    c.st->dropped[addr] = static_cast<uint16_t>(num(argv[1], 0xFFFF));
    return 0;
}

int cmd_dynmac(Ctl &c, int argc, char **argv) {
    ChipState &s = *c.st;
    if (std::strcmp(argv[0], "clear") == 0 && argc == 1) {
        std::memset(s.dyn, 0, sizeof s.dyn);
        s.dyn_count = 0;
    } else if (std::strcmp(argv[0], "count") == 0 && argc == 2) {
        s.dyn_count = static_cast<uint32_t>(num(argv[1], zb::kDynEntries));
    } else if (std::strcmp(argv[0], "add") == 0 && argc == 5) {
        if (s.dyn_count >= zb::kDynEntries)
            die("dynmac: table full%s");
        zb::DynEntry &e = s.dyn[s.dyn_count];
        parse_mac(argv[1], e.mac);
        e.fid = static_cast<uint8_t>(num(argv[2], 127));
        e.port = static_cast<uint8_t>(num(argv[3], 7));
        e.age = static_cast<uint8_t>(num(argv[4], 3));
        ++s.dyn_count;
    } else {
        die("dynmac: clear | count N | add MAC FID PORT AGE%s");
    }
    return 0;
}

int cmd_notready(Ctl &c, int /*argc*/, char **argv) {
    auto k = static_cast<uint32_t>(num(argv[1], 0xFFFFFFFFU));
    if (std::strcmp(argv[0], "mib") == 0) {
        c.st->notready_mib = k;
        c.st->mib_wait = 0;
    } else if (std::strcmp(argv[0], "dyn") == 0) {
        c.st->notready_dyn = k;
        c.st->dyn_wait = 0;
    } else {
        die("notready: mib or dyn, not %s", argv[0]);
    }
    return 0;
}

int cmd_static(Ctl &c, int argc, char **argv) {
    if (std::strcmp(argv[0], "get") == 0 && argc == 2) {
        const zb::StaticRow &r = c.st->static_rows[num(argv[1], zb::kStaticRows - 1)];
        std::printf("valid=%u override=%u use_fid=%u ports=%u fid=%u "
                    "mac=%02x:%02x:%02x:%02x:%02x:%02x\n",
                    r.valid, r.override_, r.use_fid, r.ports, r.fid, r.mac[0], r.mac[1], r.mac[2],
                    r.mac[3], r.mac[4], r.mac[5]);
    } else if (std::strcmp(argv[0], "set") == 0 && argc == 8) {
        zb::StaticRow &r = c.st->static_rows[num(argv[1], zb::kStaticRows - 1)];
        parse_mac(argv[2], r.mac);
        r.ports = static_cast<uint8_t>(num(argv[3], 0x1F));
        r.fid = static_cast<uint8_t>(num(argv[4], 0x7F));
        r.override_ = num(argv[5], 1) != 0 ? 1 : 0;
        r.use_fid = num(argv[6], 1) != 0 ? 1 : 0;
        r.valid = num(argv[7], 1) != 0 ? 1 : 0;
    } else {
        die("static: get ROW | set ROW MAC PORTS FID OVERRIDE USEFID VALID%s");
    }
    return 0;
}

int cmd_vlan(Ctl &c, int argc, char **argv) {
    if (std::strcmp(argv[0], "get") == 0 && argc == 2) {
        uint8_t fid;
        uint8_t ports;
        uint8_t valid;
        zb::chip_vlan_get(*c.st, static_cast<int>(num(argv[1], 4095)), fid, ports, valid);
        std::printf("valid=%u fid=%u ports=%u\n", valid, fid, ports);
    } else if (std::strcmp(argv[0], "set") == 0 && argc == 5) {
        zb::chip_vlan_set(
            *c.st, static_cast<int>(num(argv[1], 4095)), static_cast<uint8_t>(num(argv[2], 0x7F)),
            static_cast<uint8_t>(num(argv[3], 0x1F)), static_cast<uint8_t>(num(argv[4], 1)));
    } else {
        die("vlan: get VID | set VID FID PORTS VALID%s");
    }
    return 0;
}

int cmd_vlanraw(Ctl &c, int /*argc*/, char **argv) {
    const uint8_t *raw = c.st->vlan[num(argv[0], zb::kVlanAddrs - 1)];
    for (int i = 0; i < 7; ++i)
        std::printf("%02x", raw[i]);
    std::printf("\n");
    return 0;
}

int cmd_timescale(Ctl &c, int /*argc*/, char **argv) {
    c.st->time_scale = static_cast<uint32_t>(num(argv[0], 0xFFFFFFFFU));
    return 0;
}

int cmd_events(Ctl &c, int /*argc*/, char ** /*argv*/) {
    FILE *f = std::fopen(path_in(c, "/events").c_str(), "r");
    if (f == nullptr)
        die("no event log in %s", c.sb);
    char buf[8192];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0)
        std::fwrite(buf, 1, n, stdout);
    std::fclose(f);
    return 0;
}

int cmd_clear_events(Ctl &c, int /*argc*/, char ** /*argv*/) {
    write_file(path_in(c, "/events"), "");
    return 0;
}

int cmd_log(Ctl &c, int /*argc*/, char **argv) {
    if (std::strcmp(argv[0], "on") == 0)
        c.st->log_on = 1;
    else if (std::strcmp(argv[0], "off") == 0)
        c.st->log_on = 0;
    else
        die("log: on or off, not %s", argv[0]);
    return 0;
}

// exec [-p PIDFILE] ARGV0 PROG [ARGS...]: runs PROG under the name ARGV0,
// first writing its own pid (as seen in its PID namespace) to PIDFILE.
int cmd_exec(Ctl & /*c*/, int argc, char **argv) {
    int i = 0;
    if (argc >= 2 && std::strcmp(argv[0], "-p") == 0) {
        std::string tmp = std::string(argv[1]) + ".tmp";
        FILE *f = std::fopen(tmp.c_str(), "w");
        if (f == nullptr || std::fprintf(f, "%d\n", getpid()) < 0 || std::fclose(f) != 0 ||
            std::rename(tmp.c_str(), argv[1]) != 0)
            die("cannot write %s", argv[1]);
        i = 2;
    }
    if (argc - i < 2)
        die("exec: [-p PIDFILE] ARGV0 PROG [ARGS...]%s");
    const char *prog = argv[i + 1];
    argv[i + 1] = argv[i]; // ARGV0 becomes argv[0] of PROG
    char **args = argv + i + 1;
    if (std::strchr(prog, '/') != nullptr)
        execv(prog, args);
    else
        execvp(prog, args);
    std::fprintf(stderr, "benchctl: cannot run %s: %s\n", prog, std::strerror(errno));
    return 127;
}

void on_child(int /*signo*/) {}

// holder READYFILE [SRC:DST...]: the first process of a test's PID namespace,
// after binding each SRC over DST in its mount namespace. It reaps
// every orphan so that ended processes do not linger as zombies, and the
// namespace ends when it is killed.
int cmd_holder(Ctl & /*c*/, int argc, char **argv) {
    // SRC:DST pairs: bind mounts of the namespace (the VM bench's fixed paths).
    for (int i = 1; i < argc; ++i) {
        char *sep = std::strchr(argv[i], ':');
        if (sep == nullptr)
            die("holder: SRC:DST, not %s", argv[i]);
        *sep = '\0';
        if (mount(argv[i], sep + 1, nullptr, MS_BIND, nullptr) != 0)
            die("holder: cannot bind %s", argv[i]);
    }
    sigset_t block;
    sigset_t waitmask;
    sigemptyset(&block);
    sigaddset(&block, SIGCHLD);
    sigprocmask(SIG_BLOCK, &block, &waitmask);
    struct sigaction sa {};
    sa.sa_handler = on_child;
    sigaction(SIGCHLD, &sa, nullptr);
    write_file(argv[0], "ready\n");
    for (;;) {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        sigsuspend(&waitmask);
    }
}

struct Command {
    const char *name;
    int min_args;
    int max_args;
    bool needs_state;
    int (*run)(Ctl &, int, char **);
    const char *usage;
};

constexpr Command kCommands[] = {
    {"init", 0, 4, false, cmd_init, "init [--board nand|nor] [--time-scale N]"},
    {"peek", 1, 1, true, cmd_peek, "peek REG"},
    {"regs", 0, 0, true, cmd_regs, "regs"},
    {"poke", 2, 2, true, cmd_poke, "poke REG VAL"},
    {"link", 2, 2, true, cmd_link, "link 1|2 up|down"},
    {"managed", 1, 1, true, cmd_managed, "managed 0|1"},
    {"fault", 1, 1, true, cmd_fault,
     "fault open|wr-mode|wr-lsb|wr-bits|wr-speed|xfer|xfer-from=N|export-busy=LINE|"
     "gpio-open=PATH|gpio-write=PATH|gpio-stuck|clear"},
    {"mib", 3, 4, true, cmd_mib, "mib PORT COUNTER VALUE [overflow]"},
    {"dropped", 2, 2, true, cmd_dropped, "dropped ADDR VALUE"},
    {"dynmac", 1, 5, true, cmd_dynmac, "dynmac clear | count N | add MAC FID PORT AGE"},
    {"notready", 2, 2, true, cmd_notready, "notready mib|dyn K"},
    {"static", 2, 8, true, cmd_static,
     "static get ROW | static set ROW MAC PORTS FID OVERRIDE USEFID VALID"},
    {"vlan", 2, 5, true, cmd_vlan, "vlan get VID | vlan set VID FID PORTS VALID"},
    {"vlanraw", 1, 1, true, cmd_vlanraw, "vlanraw ADDR"},
    {"timescale", 1, 1, true, cmd_timescale, "timescale N"},
    {"events", 0, 0, false, cmd_events, "events"},
    {"clear-events", 0, 0, false, cmd_clear_events, "clear-events"},
    {"log", 1, 1, true, cmd_log, "log on|off"},
    {"exec", 2, 1 << 20, false, cmd_exec, "exec [-p PIDFILE] ARGV0 PROG [ARGS...]"},
    {"holder", 1, 16, false, cmd_holder, "holder READYFILE [SRC:DST...]"},
};

void usage() {
    std::fprintf(stderr, "usage: benchctl -s SANDBOX COMMAND [ARGS...]\ncommands:\n");
    for (const Command &c : kCommands)
        std::fprintf(stderr, "  %s\n", c.usage);
    std::exit(2);
}

} // namespace

int main(int argc, char **argv) {
    Ctl c;
    int i = 1;
    if (i + 1 < argc && std::strcmp(argv[i], "-s") == 0) {
        c.sb = argv[i + 1];
        i += 2;
    } else {
        c.sb = std::getenv("ZORVI_SANDBOX");
    }
    if (i >= argc)
        usage();
    const char *name = argv[i];
    int nargs = argc - i - 1;
    char **args = argv + i + 1;
    for (const Command &cmd : kCommands) {
        if (std::strcmp(cmd.name, name) != 0)
            continue;
        if (nargs < cmd.min_args || nargs > cmd.max_args)
            die("usage: benchctl -s SANDBOX %s", cmd.usage);
        bool needs_sandbox = cmd.run != cmd_exec && cmd.run != cmd_holder;
        if (needs_sandbox && (c.sb == nullptr || *c.sb == '\0'))
            die("no sandbox: give -s SANDBOX%s");
        if (!cmd.needs_state)
            return cmd.run(c, nargs, args);
        c.st = zb::state_map(c.sb);
        if (c.st == nullptr)
            die("no bench state in %s (run init first)", c.sb);
        std::string state = path_in(c, "/state");
        int fd = open(state.c_str(), O_RDWR | O_CLOEXEC);
        if (fd >= 0)
            flock(fd, LOCK_EX);
        int r = cmd.run(c, nargs, args);
        std::fflush(stdout);
        if (fd >= 0)
            close(fd);
        return r;
    }
    std::fprintf(stderr, "benchctl: unknown command %s\n", name);
    usage();
}
