"""Drives the simulated Zorvi board for the end-to-end tests.

A Bench owns one sandbox (see testbench/README.md) and, created on first use,
one PID + mount + network namespace in which every process of the test runs.
With ZORVI_BENCH=vm (set by testbench/vm/run-e2e.sh inside the VM) the board
is the VM's kernel: the programs run without the preload library, and the
sandbox's chip answers through the zorvi_chip module and the chip server.
Standard library only.
"""

import collections
import contextlib
import os
import signal
import subprocess
import time
from pathlib import Path

REPO = Path(__file__).resolve().parents[1]
BUILD = Path(os.environ.get("SWITCH_BUILD_DIR", REPO / "build")).resolve()
BENCH_DIR = BUILD / "testbench"
BENCHCTL = BENCH_DIR / "benchctl"
PRELOAD = BENCH_DIR / "libzorvibench.so"
CHIP_SERVER = BENCH_DIR / "chip_server"
SWITCH_CONFIG = BUILD / "switch_config"
VM = os.environ.get("ZORVI_BENCH") == "vm"

# In the VM the test's mount namespace has the sandbox's files at the board's
# fixed paths: the board's cpuinfo over the VM's own, the pid files' and the
# suppression file's directories, and the chip server's syslog socket.
VM_BINDS = [("proc/cpuinfo", "/proc/cpuinfo"), ("var/run", "/var/run"), ("tmp/zorvi", "/tmp/zorvi"),
            ("log", "/dev/log")]

Event = collections.namedtuple("Event", "kind pid args raw")
XferEvent = collections.namedtuple("XferEvent", "pid op reg val bpw rx len ok raw")


class Result:
    """Outcome of a finished process."""

    def __init__(self, rc, out_bytes, err_bytes, out_path=None, err_path=None):
        self.rc = rc
        self._paths = (out_path, err_path)
        self._set(out_bytes, err_bytes)
        if out_path is not None:
            self.refresh()

    def _set(self, out_bytes, err_bytes):
        self.out_bytes = out_bytes or b""
        self.err_bytes = err_bytes or b""
        self.out = self.out_bytes.decode("utf-8", "replace")
        self.err = self.err_bytes.decode("utf-8", "replace")

    def refresh(self):
        """Re-reads the output files (what a detached child wrote since)."""
        out_path, err_path = self._paths
        if out_path is not None:
            self._set(out_path.read_bytes(), err_path.read_bytes())
        return self

    def __repr__(self):
        return f"Result(rc={self.rc!r}, out={self.out!r}, err={self.err!r})"


class Proc:
    """A background process inside the test's namespace."""

    def __init__(self, bench, popen, nspid, out_path, err_path):
        self.bench = bench
        self.popen = popen
        self.nspid = nspid
        self.out_path = out_path
        self.err_path = err_path

    def kill(self, sig=signal.SIGTERM):
        return self.bench.ns_kill(self.nspid, sig)

    def wait(self, timeout=10):
        return self.popen.wait(timeout * WAIT_FACTOR)

    def output(self):
        """What the process wrote to stdout so far (when not redirected)."""
        return self.out_path.read_text(errors="replace") if self.out_path else ""

    def errors(self):
        return self.err_path.read_text(errors="replace") if self.err_path else ""


# In the VM (one virtual CPU, emulated when KVM is missing) the programs
# really sleep and share the CPU with the test's polling: waits there poll
# less often and give up later, and so do the runs of programs. An emulated
# ARM CPU is slower still than an emulated amd64 one.
WAIT_INTERVAL, WAIT_FACTOR = ((0.05, 5 if os.uname().machine.startswith("arm") else 3) if VM else (0.01, 1))


def wait_for(predicate, timeout=5.0, interval=WAIT_INTERVAL):
    """Polls predicate until it gives a true value or timeout seconds (times
    WAIT_FACTOR) pass; returns its last value (false on timeout)."""
    deadline = time.monotonic() + timeout * WAIT_FACTOR
    while True:
        value = predicate()
        if value or time.monotonic() >= deadline:
            return value
        time.sleep(interval)


def _unescape(text):
    """Undoes the event log's C escapes (\\n, \\t, \\\\, \\xHH)."""
    out = bytearray()
    i = 0
    raw = text.encode("utf-8", "surrogateescape")
    while i < len(raw):
        c = raw[i]
        if c == 0x5C and i + 1 < len(raw):  # backslash
            n = raw[i + 1]
            if n == ord("n"):
                out.append(10)
                i += 2
                continue
            if n == ord("t"):
                out.append(9)
                i += 2
                continue
            if n == 0x5C:
                out.append(0x5C)
                i += 2
                continue
            if n == ord("x") and i + 3 < len(raw):
                out.append(int(raw[i + 2 : i + 4], 16))
                i += 4
                continue
        out.append(c)
        i += 1
    return out.decode("utf-8", "replace")


class Bench:
    """One sandbox (a simulated board) and the namespace its processes run in."""

    def __init__(self, tmp_path, board="nand", time_scale=1000):
        self.tmp = Path(tmp_path)
        self.board = board
        self.sb = self.tmp / f"sandbox-{board}"
        self.prog = SWITCH_CONFIG
        self._holder = None  # host pid of the namespace's first process
        self._holder_popen = None
        self._popens = []
        self._spawned = 0
        self._server = None
        # What the program does inside itself (opens, ioctls, sleeps, the
        # bytes it writes to GPIO files, openlog) is seen only by the preload
        # library; the VM's kernel shows transfers, levels and syslog lines.
        self.sees_calls = not VM
        for f in (BENCHCTL, CHIP_SERVER if VM else PRELOAD):
            if not f.exists():
                raise RuntimeError(f"{f} missing: build the testbench (cmake --build build)")
        self.ctl("init", "--board", board, "--time-scale", str(time_scale))
        if VM:
            self._start_server()

    def _start_server(self):
        ready = self.tmp / f"server-{self.board}.ready"
        self._server = subprocess.Popen([str(CHIP_SERVER), str(self.sb), str(ready)],
                                        stdin=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if not wait_for(ready.exists, timeout=20):
            self._server.kill()
            raise RuntimeError(f"chip server did not start: {self._server.communicate()[1].decode()}")
        for target in ("/tmp/zorvi", "/dev/log"):
            if not os.path.exists(target):
                Path(target).mkdir() if target == "/tmp/zorvi" else Path(target).touch()

    # -- namespace ----------------------------------------------------------

    def _ensure_ns(self):
        if self._holder is not None:
            return
        ready = self.tmp / f"holder-{self.board}.ready"
        binds = [f"{self.sb / src}:{dst}" for src, dst in VM_BINDS] if VM else []
        self._holder_popen = subprocess.Popen(
            ["unshare", "--pid", "--fork", "--mount-proc", "--net", str(BENCHCTL), "holder", str(ready)] + binds,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            start_new_session=True,
        )
        outer = self._holder_popen.pid
        if not wait_for(ready.exists, timeout=10):
            err = b""
            if self._holder_popen.poll() is not None:
                err = self._holder_popen.stderr.read()
            self._holder_popen.kill()
            raise RuntimeError(f"namespace holder did not start: {err.decode(errors='replace')}")
        children = Path(f"/proc/{outer}/task/{outer}/children").read_text().split()
        self._holder = int(children[0])
        self._pidns = os.readlink(f"/proc/{self._holder}/ns/pid")

    def _nsenter(self):
        self._ensure_ns()
        return ["nsenter", f"--target={self._holder}", "--pid", "--mount", "--net", "--"]

    def _env(self):
        env = dict(os.environ)
        if VM:  # nothing of the bench in the program's environment
            for name in ("LD_PRELOAD", "ZORVI_SANDBOX", "ZORVI_BENCH_PRELOAD", "ZORVI_REAL_SYSLOG"):
                env.pop(name, None)
            return env
        # The qemu-user run (testbench/qemu/run-e2e.sh) names the library with
        # "$LIB", which the host's and the emulated board's dynamic loaders
        # each expand to their own library directory.
        env["LD_PRELOAD"] = os.environ.get("ZORVI_BENCH_PRELOAD", str(PRELOAD))
        env["ZORVI_SANDBOX"] = str(self.sb)
        asan = env.get("ASAN_OPTIONS")
        env["ASAN_OPTIONS"] = (asan + ":" if asan else "") + "verify_asan_link_order=0"
        return env

    def _ns_procs(self):
        """(host pid, namespace pid, argv[0]) of every live process in the namespace."""
        if self._holder is None:
            return []
        procs = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                if os.readlink(f"/proc/{entry}/ns/pid") != self._pidns:
                    continue
                status = Path(f"/proc/{entry}/status").read_text()
                cmdline = Path(f"/proc/{entry}/cmdline").read_bytes()
            except OSError:
                continue
            nspid = None
            for line in status.splitlines():
                if line.startswith("NSpid:"):
                    nspid = int(line.split()[-1])
            if nspid is None or not cmdline:
                continue  # zombies have an empty command line
            argv0 = cmdline.split(b"\0")[0].decode(errors="replace")
            procs.append((int(entry), nspid, argv0))
        return procs

    def ns_pids(self, name_substring):
        """Namespace pids of the processes whose argv[0] holds the text."""
        return sorted(ns for _, ns, argv0 in self._ns_procs() if name_substring in argv0)

    def ns_kill(self, nspid, sig=signal.SIGTERM):
        """Sends sig to the namespace's process nspid; False if there is none."""
        for host, ns, _ in self._ns_procs():
            if ns == nspid:
                try:
                    os.kill(host, sig)
                    return True
                except ProcessLookupError:
                    return False
        return False

    def ns_run(self, cmd_list, timeout=30):
        """A plain command (no bench library) inside the namespace."""
        p = subprocess.run(
            self._nsenter() + list(cmd_list),
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=timeout * WAIT_FACTOR,
        )
        return Result(p.returncode, p.stdout, p.stderr)

    def net_up(self, route=True):
        for cmd in [["ip", "link", "set", "lo", "up"]] + (
            [["ip", "-6", "route", "add", "ff01::/16", "dev", "lo"]] if route else []
        ):
            r = self.ns_run(cmd)
            if r.rc != 0:
                raise RuntimeError(f"{' '.join(cmd)} failed: {r.err}")

    # -- running programs on the board ----------------------------------------

    def _argv(self, args, argv0, prog, pidfile=None):
        prog = str(prog if prog is not None else self.prog)
        if argv0 is None:
            argv0 = prog
        cmd = [str(BENCHCTL), "exec"]
        if pidfile is not None:
            cmd += ["-p", str(pidfile)]
        return self._nsenter() + cmd + [argv0, prog] + [str(a) for a in args]

    def run(self, args, argv0="switch_config", stdin=None, timeout=30, prog=None, closed=()):
        """Runs a program (by default switch_config under argv0) until it ends,
        with the descriptors in closed (of 0, 1 and 2) closed.

        Output goes through files, not pipes, so that a daemon's child, which
        keeps the descriptors, does not hold the run open; Result.refresh()
        picks up what such a child wrote later."""
        if isinstance(stdin, str):
            stdin = stdin.encode()
        cmd = self._argv(args, argv0, prog)
        if closed:
            # The shell closes them and execs benchctl, which opens nothing
            # before it execs the program.
            at = cmd.index("--") + 1
            cmd[at:at] = ["/bin/sh", "-c", 'exec "$@"' + "".join(f" {fd}<&-" for fd in closed), "sh"]
        self._spawned += 1
        out_path = self.tmp / f"run-{self.board}-{self._spawned}.out"
        err_path = self.tmp / f"run-{self.board}-{self._spawned}.err"
        with open(out_path, "wb") as out, open(err_path, "wb") as err:
            p = subprocess.Popen(
                cmd,
                stdin=subprocess.PIPE,
                stdout=out,
                stderr=err,
                env=self._env(),
            )
            try:
                p.communicate(stdin if stdin is not None else b"", timeout=timeout * WAIT_FACTOR)
            except subprocess.TimeoutExpired:
                p.kill()
                p.wait()
                raise
        return Result(p.returncode, None, None, out_path, err_path)

    def spawn(self, args, argv0=None, prog=None, stdin=None, stdout=None):
        """Starts a background process; its stdout and stderr go to files
        (Proc.output(), Proc.errors()) unless stdout is given."""
        self._spawned += 1
        n = self._spawned
        pidfile = self.tmp / f"spawn-{self.board}-{n}.pid"
        out_path = err_path = None
        if stdout is None:
            out_path = self.tmp / f"spawn-{self.board}-{n}.out"
            stdout = open(out_path, "wb")
        err_path = self.tmp / f"spawn-{self.board}-{n}.err"
        stderr = open(err_path, "wb")
        data = None
        if isinstance(stdin, (str, bytes)):
            data = stdin.encode() if isinstance(stdin, str) else stdin
            stdin = subprocess.PIPE
        elif stdin is None:
            stdin = subprocess.DEVNULL
        popen = subprocess.Popen(
            self._argv(args, argv0, prog, pidfile),
            stdin=stdin,
            stdout=stdout,
            stderr=stderr,
            env=self._env(),
        )
        self._popens.append(popen)
        if data is not None:
            try:
                popen.stdin.write(data)
                popen.stdin.close()
            except BrokenPipeError:
                pass
        if out_path is not None:
            stdout.close()
        stderr.close()
        if not wait_for(pidfile.exists, timeout=10):
            raise RuntimeError("spawned process did not start")
        nspid = int(pidfile.read_text())
        return Proc(self, popen, nspid, out_path, err_path)

    def close(self):
        """Ends everything in the namespace: SIGTERM first, so that each
        process may end by itself (a process of the coverage build writes its
        data then), then SIGKILL to the namespace's first process, which takes
        whatever is left with it."""
        if self._holder is not None:
            for host, nspid, _ in self._ns_procs():
                if nspid != 1:
                    with contextlib.suppress(ProcessLookupError):
                        os.kill(host, signal.SIGTERM)
            wait_for(lambda: all(nspid == 1 for _, nspid, _ in self._ns_procs()), timeout=2)
            try:
                os.kill(self._holder, signal.SIGKILL)
            except ProcessLookupError:
                pass
        if self._holder_popen is not None:
            try:
                self._holder_popen.wait(10)
            except subprocess.TimeoutExpired:
                self._holder_popen.kill()
                self._holder_popen.wait(5)
            self._holder_popen.stderr.close()
        for p in self._popens:
            try:
                p.wait(10)
            except subprocess.TimeoutExpired:
                p.kill()
                p.wait(5)
            if p.stdin:
                p.stdin.close()
        self._holder = None
        self._holder_popen = None
        self._popens = []
        if self._server is not None:
            self._server.kill()
            self._server.wait(10)
            self._server.stderr.close()
            self._server = None

    # -- the chip --------------------------------------------------------------

    def ctl(self, *args):
        p = subprocess.run(
            [str(BENCHCTL), "-s", str(self.sb)] + [str(a) for a in args],
            capture_output=True,
            text=True,
        )
        if p.returncode != 0:
            raise RuntimeError(f"benchctl {' '.join(map(str, args))}: {p.stderr.strip()}")
        return p.stdout

    def peek(self, reg):
        return int(self.ctl("peek", reg))

    def regs(self):
        """All 256 registers, as stored."""
        return [int(v) for v in self.ctl("regs").split()]

    def poke(self, reg, val):
        self.ctl("poke", reg, val)

    def link(self, port, up):
        self.ctl("link", port, "up" if up else "down")

    def managed(self, flag):
        self.ctl("managed", 1 if flag else 0)

    def fault(self, name, arg=None):
        self.ctl("fault", name if arg is None else f"{name}={arg}")

    def clear_faults(self):
        self.ctl("fault", "clear")

    def mib(self, port, counter, value, overflow=False):
        self.ctl("mib", port, counter, value, *(["overflow"] if overflow else []))

    def dropped(self, addr, value):
        self.ctl("dropped", addr, value)

    def dynmac_clear(self):
        self.ctl("dynmac", "clear")

    def dynmac_add(self, mac, fid, port, age):
        self.ctl("dynmac", "add", mac, fid, port, age)

    def dynmac_count(self, n):
        self.ctl("dynmac", "count", n)

    def notready(self, table, k):
        self.ctl("notready", table, k)

    @staticmethod
    def _fields(text):
        out = {}
        for item in text.split():
            key, value = item.split("=", 1)
            out[key] = value if key == "mac" else int(value)
        return out

    def static_get(self, row):
        return self._fields(self.ctl("static", "get", row))

    def static_set(self, row, mac, ports, fid, override=0, use_fid=0, valid=1):
        self.ctl("static", "set", row, mac, ports, fid, int(override), int(use_fid), int(valid))

    def vlan_get(self, vid):
        return self._fields(self.ctl("vlan", "get", vid))

    def vlan_set(self, vid, fid, ports, valid=1):
        self.ctl("vlan", "set", vid, fid, ports, int(valid))

    def vlan_raw(self, addr):
        return bytes.fromhex(self.ctl("vlanraw", addr).strip())

    def timescale(self, n):
        """Makes the program's sleeps n times shorter; returns the scale in
        force, which is 1 in the VM, where the program really sleeps."""
        self.ctl("timescale", n)
        return 1 if VM else n

    def log(self, on):
        self.ctl("log", "on" if on else "off")

    # -- files and events ------------------------------------------------------

    def path(self, fixed_path):
        """The file that is a fixed path of the board: in the sandbox, but
        for the kernel's own device and GPIO files in the VM."""
        if VM and str(fixed_path).startswith(("/dev/spidev", "/sys/")):
            return Path(fixed_path)
        return self.sb / str(fixed_path).lstrip("/")

    def events(self):
        events = []
        text = (self.sb / "events").read_text(errors="surrogateescape")
        for raw in text.splitlines():
            kind, _, rest = raw.partition(" ")
            if kind == "syslog":
                parts = rest.split(" ", 2)
            else:
                parts = rest.split(" ")
            try:
                pid = int(parts[0])
            except (ValueError, IndexError):
                continue
            events.append(Event(kind, pid, parts[1:], raw))
        return events

    def xfer_events(self, pid=None):
        out = []
        for e in self.events():
            if e.kind != "xfer" or (pid is not None and e.pid != pid):
                continue
            op, reg, val = e.args[0], e.args[1], e.args[2]
            kv = dict(a.split("=", 1) for a in e.args[3:])
            out.append(
                XferEvent(
                    e.pid,
                    op,
                    int(reg) if reg.isdigit() else None,
                    int(val) if val.isdigit() else None,
                    int(kv["bpw"]),
                    int(kv["rx"]),
                    int(kv["len"]),
                    int(kv["ok"]),
                    e.raw,
                )
            )
        return out

    def xfers(self, pid=None):
        """(op, reg, val) of the successful transfers, op 'R' or 'W'."""
        return [(x.op, x.reg, x.val) for x in self.xfer_events(pid) if x.ok and x.op in "RW"]

    def sleeps(self, pid=None):
        return [int(e.args[0]) for e in self.events() if e.kind == "usleep" and (pid is None or e.pid == pid)]

    def syslog(self):
        return [(int(e.args[0]), _unescape(e.args[1] if len(e.args) > 1 else "")) for e in self.events() if e.kind == "syslog"]

    def levels(self, pid=None):
        """(line, level) of every level driven on a GPIO line, in order."""
        return [(int(e.args[0]), int(e.args[1])) for e in self.events()
                if e.kind == "level" and (pid is None or e.pid == pid)]

    def gpio_writes(self):
        """(path, bytes) of every write to a GPIO file, failed ones included."""
        return [(e.args[0], b"" if e.args[1] == "-" else bytes.fromhex(e.args[1])) for e in self.events() if e.kind == "gpio"]

    def clear_events(self):
        self.ctl("clear-events")

    def wait_for(self, predicate, timeout=5.0):
        return wait_for(predicate, timeout)
