# The installed system: the tree that `cmake --install` lays out under a
# prefix and DESTDIR, the man pages as man renders them, the systemd unit, and
# the init script starting and stopping the daemon on the simulated board; the
# suppression file's directory that both make root's.

import os
import re
import shlex
import shutil
import stat
import subprocess
from pathlib import Path

import pytest

from bench import BUILD, REPO
from console_util import console_session
from test_daemon import DAEMON_PID_FILE, RUNNING

INIT_SCRIPT = "S60switch_daemon"
UNIT = "lib/systemd/system/switch_daemon.service"


def install(prefix, destdir=""):
    # Installs the build tree, under destdir when one is given.
    res = subprocess.run(["cmake", "--install", str(BUILD), "--prefix", str(prefix)],
                         env=os.environ | {"DESTDIR": str(destdir)}, capture_output=True, text=True)
    assert res.returncode == 0, res.stdout + res.stderr


# -- the installed tree -----------------------------------------------------------

# The files under the prefix, and under the configuration directory.
PREFIX_FILES = {"sbin/switch_config": 0o755, "sbin/switch_daemon": "switch_config",
                "share/man/man8/switch_config.8": 0o644, "share/man/man8/switch_daemon.8": 0o644,
                "lib/systemd/system/switch_daemon.service": 0o644, "lib/tmpfiles.d/switch_daemon.conf": 0o644,
                **{f"share/zorvi-switch/switch_daemon.{ext}": 0o644 for ext in ("nft", "ip6tables", "iptables")}}
ETC_FILES = {f"init.d/{INIT_SCRIPT}": 0o755, "default/switch_daemon": 0o644}


# The configuration of the prefix /usr lives in /etc.
@pytest.mark.parametrize("prefix,etc", [("/usr", "etc"), ("/usr/local", "usr/local/etc")])
def test_install_lays_out_the_tree(tmp_path, prefix, etc):
    root = tmp_path / "stage"
    install(prefix, root)
    files = {str(p.relative_to(root)): os.readlink(p) if p.is_symlink() else stat.S_IMODE(p.stat().st_mode)
             for p in root.rglob("*") if p.is_symlink() or p.is_file()}
    assert files == ({str(Path(prefix[1:], path)): mode for path, mode in PREFIX_FILES.items()}
                     | {f"{etc}/{path}": mode for path, mode in ETC_FILES.items()})
    # The scripts name the installed paths (all that is substituted), not the
    # staging directory.
    script = (root / etc / "init.d" / INIT_SCRIPT).read_text()
    unit = (root / prefix[1:] / UNIT).read_text()
    assert f"DAEMON={prefix}/sbin/switch_daemon\n" in script
    assert f". /{etc}/default/switch_daemon\n" in script
    assert f"ExecStart={prefix}/sbin/switch_daemon -D ${{SWITCH_DAEMON_DEVICE}}\n" in unit
    assert f"EnvironmentFile=-/{etc}/default/switch_daemon\n" in unit
    assert f"ExecStartPre=+systemd-tmpfiles --create {prefix}/lib/tmpfiles.d/switch_daemon.conf\n" in unit
    if prefix == "/usr":
        # The Buildroot package makes the start scripts from the same
        # templates with its own substitutions: they come out as CMake's.
        mk = (REPO / "packaging/buildroot/package/zorvi-switch/zorvi-switch.mk").read_text()
        sed = re.search(r"^ZORVI_SWITCH_SUBSTITUTIONS = (.*)$", mk, re.M).group(1)
        for template, text in [("init.d/switch_daemon.in", script), ("systemd/switch_daemon.service.in", unit)]:
            res = subprocess.run(["sed", "-e", sed, str(REPO / "packaging" / template)],
                                 capture_output=True, text=True, check=True)
            assert res.stdout == text


# -- man pages -----------------------------------------------------------------------


@pytest.mark.skipif(shutil.which("man") is None, reason="man-db is not installed")
@pytest.mark.parametrize("name", ["switch_config", "switch_daemon"])
def test_man_page_renders_without_warnings(name):
    # The installed pages are these files as they are.
    env = os.environ | {"MANPAGER": "cat", "MANWIDTH": "80", "LC_ALL": "C.UTF-8", "MAN_KEEP_FORMATTING": ""}
    res = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", str(REPO / f"packaging/man/{name}.8")],
                         env=env, capture_output=True, text=True)
    assert (res.returncode, res.stderr) == (0, "")
    lines = res.stdout.splitlines()
    assert lines[0].split() == [f"{name.upper()}(8)", "System", "Administration", f"{name.upper()}(8)"]
    assert {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "EXIT STATUS", "FILES", "SIGNALS", "SYSLOG",
            "SECURITY", "NOTES", "EXAMPLES", "SEE ALSO"} - set(lines) == set()


def test_man_page_names_every_console_command(bench):
    # Every command that the console's help lists has its entry.
    help_text = console_session(bench, "help").outputs[0]
    commands = {m.group(1) for m in re.finditer(r"^([a-z0-9]+) [^=\n]*-- ", help_text, re.M)}
    assert len(commands) == 47
    source = (REPO / "packaging/man/switch_config.8").read_text()
    section = source[source.index("The commands, with"):source.index(".SH PROCESS LOOKUP")]
    bold = " ".join(re.findall(r"^\.B[IR]? (.*)$", section, re.M))
    assert sorted(commands - set(re.findall(r"\b[a-z0-9]+\b", bold))) == []


@pytest.mark.skipif(shutil.which("systemd-analyze") is None, reason="systemd is not installed")
def test_systemd_unit_verifies(tmp_path):
    install(tmp_path)
    unit = tmp_path / UNIT
    res = subprocess.run(["systemd-analyze", "verify", "--man=no", str(unit)], capture_output=True, text=True)
    assert (res.returncode, res.stdout, res.stderr) == (0, "", "")
    # Confined: an exposure of 2.8 at most (in tenths; 9.6 unconfined).
    res = subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=28", str(unit)],
                         capture_output=True, text=True)
    assert res.returncode == 0, res.stdout + res.stderr


# -- the init script on the simulated board ----------------------------------------------

# The start scripts' own steps (mkdir, chown, chmod, systemd-tmpfiles) reach
# the real paths, not the bench's sandbox. In the test's mount namespace /run
# is the sandbox's /var/run, where the daemon writes its pid file, and /tmp is
# a tmpfs of its own; the directories given after the sandbox (those of the
# test's files, the checkout and the build where they lie in /tmp) stay
# reached in it at their paths.
BOARD_PATHS = r"""
set -e
sb=$1
shift
mount --bind "$sb/var/run" /run
mkdir "$sb/board-tmp"
mount -t tmpfs -o mode=1777 board-tmp "$sb/board-tmp"
for top; do
    mkdir -p "$sb/board-tmp/${top#/tmp/}"
    mount --bind "$top" "$sb/board-tmp/${top#/tmp/}"
done
mount --move "$sb/board-tmp" /tmp
"""


@pytest.fixture
def init_script(bench, tmp_path):
    # Runs an action of the init script of an install under a prefix of the test's own.
    install(tmp_path / "prefix")
    bench.net_up()
    bench.timescale(20)
    # The directories right under /tmp that hold the test's files, the checkout and the build.
    tops = {str(Path(*p.parts[:3])) for p in (tmp_path, REPO, BUILD) if p.parts[1:2] == ("tmp",) and len(p.parts) > 2}
    res = bench.ns_run(["sh", "-c", BOARD_PATHS, "sh", bench.sb] + sorted(tops))
    assert res.rc == 0, res.err
    path = tmp_path / "prefix/etc/init.d" / INIT_SCRIPT
    return lambda action: bench.run([action], argv0=str(path), prog=path)


def test_init_script_starts_restarts_and_stops_the_daemon(bench, init_script):
    started = "Starting switch_daemon\n" + RUNNING + "switch_daemon started (pid {pid})\n"
    stopped = "Stopping switch_daemon (pid {old})\nswitch_daemon stopped\n"
    # old: the pid that the pid file named before the action.
    pid = None
    for action, rc, out, running in [("start", 0, started, True),
                                     ("start", 0, "switch_daemon is already running (pid {pid})\n", True),
                                     ("status", 0, "switch_daemon is running (pid {pid})\n", True),
                                     ("restart", 0, stopped + started, True),
                                     ("stop", 0, stopped, False),  # returns only once the process is gone
                                     ("status", 3, "switch_daemon is not running\n", False)]:
        res = init_script(action)
        old, pid = pid, int(bench.path(DAEMON_PID_FILE).read_text())
        assert (res.rc, res.out, res.err) == (rc, out.format(pid=pid, old=old), ""), action
        assert bench.ns_pids("switch_daemon") == ([pid] if running else []), action
    # The pid file outlives the daemon, and its number may be another process's by now:
    # the daemon is not running.
    other = bench.spawn(["60"], argv0="sleep", prog="/bin/sleep")
    bench.path(DAEMON_PID_FILE).write_text(f"{other.nspid}\n")
    assert init_script("stop").out == "switch_daemon is not running\n"
    assert other.nspid in bench.ns_pids("sleep")


def test_init_script_passes_the_device_and_reports_a_daemon_that_does_not_start(bench, init_script, tmp_path):
    defaults = tmp_path / "prefix/etc/default/switch_daemon"
    defaults.write_text(defaults.read_text() + "SWITCH_DAEMON_DEVICE=/dev/spidev1.0\n")
    res = init_script("start")
    assert (res.rc, res.out) == (1, "Starting switch_daemon\nrunning as daemon\n"
                                    " Oops could not put switch in managed mode\nswitch_daemon did not start\n")
    # The daemon was given the device, which the board lacks.
    assert res.err.startswith("can't open device: No such file or directory\n")
    assert bench.ns_pids("switch_daemon") == []


# -- the suppression file's directory -------------------------------------------------

SUPPRESSION_DIRS = ["/tmp/zorvi", "/tmp/zorvi/control", "/tmp/zorvi/control/nfs_up"]
NOBODY = ["/usr/bin/setpriv", "--reuid=nobody", "--regid=nogroup", "--clear-groups"]


# What lies at /tmp/zorvi before the start: root's directories, mode 0700;
# another user's, open to all; another user's link to a directory of theirs,
# which stops the start and is not followed.
@pytest.mark.parametrize("before", [
    ["mkdir", "-p", "-m", "0700", "/tmp/zorvi/control/nfs_up"],
    NOBODY + ["sh", "-c", "mkdir -p /tmp/zorvi/control/nfs_up && chmod -R 0777 /tmp/zorvi"],
    NOBODY + ["sh", "-c", "mkdir /tmp/elsewhere && ln -s /tmp/elsewhere /tmp/zorvi"],
], ids=["root's", "another user's", "another user's link"])
@pytest.mark.parametrize("starter", ["init script", "unit"])
def test_only_root_can_create_the_suppression_file_after_a_start(bench, init_script, tmp_path, starter, before):
    res = bench.ns_run(before)
    assert res.rc == 0, res.err
    if starter == "init script":
        res = init_script("start")
        started = res.rc == 0
    else:
        # The unit's ExecStartPre commands, which run with full privileges.
        pre = re.findall(r"^ExecStartPre=\+(.*)$", (tmp_path / "prefix" / UNIT).read_text(), re.M)
        started = all(bench.ns_run(shlex.split(cmd)).rc == 0 for cmd in pre)

    linked = "ln -s" in str(before)
    assert started != linked
    if linked:
        if starter == "init script":
            assert res.out == ("Starting switch_daemon\nswitch_daemon: /tmp/zorvi is not a directory\n"
                               "switch_daemon did not start\n")
        assert bench.ns_run(["stat", "-c", "%u %a", "/tmp/elsewhere"]).out == "65534 755\n"
        return
    # Root's with mode 0755 from the top: no one else can create the file, or
    # put another directory in the place of one.
    assert bench.ns_run(["stat", "-c", "%u:%g %a %F"] + SUPPRESSION_DIRS).out == "0:0 755 directory\n" * 3
    # Made beforehand, the pid file is not writable by everyone.
    assert stat.S_IMODE(bench.path(DAEMON_PID_FILE).stat().st_mode) == 0o644
