# The Debian package zorvi-switch (tools/build-deb.sh builds it): its contents
# on both architectures, and its life in a minimal Debian root: install, an
# upgrade that keeps a changed configuration file, and a purge that leaves
# nothing behind; then the package's init script starts and stops the daemon
# (the installed executable) in the VM bench.

import os
import re
import shutil
import stat
import subprocess
import sys
from pathlib import Path

import pytest

from debroot import DebRoot

REPO = Path(__file__).resolve().parents[2]
# The bench's programs, of the build that the end-to-end tests use.
sys.path.insert(0, str(REPO / "testbench"))
from bench import BENCH_DIR  # noqa: E402

DEBS = Path(os.environ.get("SWITCH_DEB_DIR", REPO / "build-deb")).resolve()
VERSION = re.search(r"^project\(.* VERSION (\S+)\)$", (REPO / "CMakeLists.txt").read_text(), re.M).group(1)
NAND_STATUS = "Zorvi HPB-NAND KSZ8864 MANAGED port1_link UP port2_link UP daemon NONE\n"

# Every file of the package with its mode.
CONTENTS = {
    "etc/default/switch_daemon": 0o644,
    "etc/init.d/switch_daemon": 0o755,
    "lib/systemd/system/switch_daemon.service": 0o644,
    "usr/lib/tmpfiles.d/switch_daemon.conf": 0o644,
    "usr/sbin/switch_config": 0o755,
    "usr/sbin/switch_daemon": "switch_config",
    **{f"usr/share/doc/zorvi-switch/{name}": 0o644 for name in ("SECURITY.md.gz", "changelog.gz", "copyright")},
    "usr/share/lintian/overrides/zorvi-switch": 0o644,
    **{f"usr/share/man/man8/{name}.8.gz": 0o644 for name in ("switch_config", "switch_daemon")},
    **{f"usr/share/zorvi-switch/switch_daemon.{ext}": 0o644 for ext in ("ip6tables", "iptables", "nft")},
}
NEW_DIRS = ["usr/share/doc/zorvi-switch", "usr/share/zorvi-switch"]
# What the maintainer scripts add: the init script in the runlevels
# (update-rc.d) and the unit enabled (deb-systemd-helper, with its records).
ENABLED = {
    **{f"etc/rc{n}.d/K01switch_daemon": "../init.d/switch_daemon" for n in "016"},
    **{f"etc/rc{n}.d/S01switch_daemon": "../init.d/switch_daemon" for n in "2345"},
    "etc/systemd/system/multi-user.target.wants/switch_daemon.service": "/lib/systemd/system/switch_daemon.service",
    "var/lib/systemd/deb-systemd-helper-enabled/multi-user.target.wants/switch_daemon.service": 0o644,
    "var/lib/systemd/deb-systemd-helper-enabled/switch_daemon.service.dsh-also": 0o644,
}
CONFFILES = ["/etc/default/switch_daemon", "/etc/init.d/switch_daemon"]
# ELF machine and libraries of the executable: the C library alone (on ARM
# the stack protector's guard lives in the dynamic loader, of the same package).
ELF = {"amd64": (62, ["libc.so.6"]), "armhf": (40, ["ld-linux-armhf.so.3", "libc.so.6"])}


def deb(arch):
    path = DEBS / f"zorvi-switch_{VERSION}_{arch}.deb"
    if not path.exists():
        pytest.skip(f"{path} missing: run tools/build-deb.sh")
    return path


def dpkg_deb(*args):
    return subprocess.run(["dpkg-deb", *map(str, args)], capture_output=True, text=True, check=True).stdout


@pytest.mark.parametrize("arch", ["amd64", "armhf"])
def test_package_contents(arch, tmp_path):
    package = deb(arch)
    # Depends is dpkg-shlibdeps's, of the C library alone.
    fields = dpkg_deb("-f", package, "Package", "Version", "Architecture", "Pre-Depends", "Depends")
    assert re.fullmatch(rf"Package: zorvi-switch\nVersion: {re.escape(VERSION)}\nArchitecture: {arch}\n"
                        r"Pre-Depends: init-system-helpers \(>= 1\.54~\)\nDepends: libc6 \(>= 2\.3\d\)\n", fields)
    assert dpkg_deb("-I", package, "conffiles").split() == CONFFILES
    # Owners and the modes of directories: lintian's (tools/build-deb.sh), and
    # on amd64 the install's below.
    dpkg_deb("-x", package, tmp_path)
    files = {str(p.relative_to(tmp_path)): os.readlink(p) if p.is_symlink() else stat.S_IMODE(p.stat().st_mode)
             for p in tmp_path.rglob("*") if p.is_symlink() or p.is_file()}
    assert files == CONTENTS
    exe = tmp_path / "usr/sbin/switch_config"
    dynamic = subprocess.run(["readelf", "-d", str(exe)], capture_output=True, text=True, check=True).stdout
    needed = sorted(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
    assert (int.from_bytes(exe.read_bytes()[18:20], "little"), needed) == ELF[arch]


@pytest.mark.parametrize("path,pattern", [
    ("packaging/man/switch_config.8", r'"switch_config (\S+)"'),
    ("packaging/man/switch_daemon.8", r'"switch_config (\S+)"'),
    ("packaging/buildroot/package/zorvi-switch/zorvi-switch.mk", r"^ZORVI_SWITCH_VERSION = (\S+)$"),
    ("packaging/yocto/meta-zorvi/recipes-connectivity/zorvi-switch", r"^zorvi-switch_(\S+)\.bb$"),
])
def test_versions_agree_with_the_project(path, pattern):
    target = REPO / path
    text = "\n".join(os.listdir(target)) if target.is_dir() else target.read_text()
    assert re.search(pattern, text, re.M).group(1) == VERSION


# -- in a minimal Debian root --------------------------------------------------------


def install(root, package):
    # dpkg reads the package from within the root, which keeps no copy of it.
    copy = root.path / "var/tmp" / package.name
    shutil.copy(package, copy)
    res = root.run(["dpkg", "-i", f"/var/tmp/{package.name}"])
    copy.unlink()
    # Configured, or dpkg fails.
    assert res.returncode == 0, res.stdout + res.stderr
    return res


def changes(before, after):
    # Entries of after that are new or differ from before, as their mode or
    # link target, and those gone, as None.
    out = {path: None for path in before.keys() - after.keys()}
    for path, (uid, gid, detail, _size) in after.items():
        if before.get(path) != after[path]:
            assert (uid, gid) == (0, 0), path
            out[path] = detail
    return out


def test_install_upgrade_purge(tmp_path):
    with DebRoot(tmp_path / "root") as root:
        before = root.snapshot()
        res = install(root, deb("amd64"))
        assert "invoke-rc.d: policy-rc.d denied execution of start.\n" in res.stderr
        # A root with merged /usr has the package's /lib under /usr.
        expected = {re.sub(r"^(lib|bin|sbin)/", r"usr/\1/", p): m for p, m in CONTENTS.items()}
        expected.update({d + "/": 0o755 for d in NEW_DIRS}, **ENABLED)
        assert changes(before, root.snapshot()) == expected

        # An upgrade to the package under another version keeps the
        # administrator's defaults file, without asking.
        version = VERSION + "+1"
        dpkg_deb("-R", deb("amd64"), tmp_path / "x")
        control = tmp_path / "x/DEBIAN/control"
        control.write_text(control.read_text().replace(f"Version: {VERSION}\n", f"Version: {version}\n"))
        dpkg_deb("-b", tmp_path / "x", tmp_path / "upgrade.deb")
        defaults = root.path / "etc/default/switch_daemon"
        changed = defaults.read_text() + "SWITCH_DAEMON_DEVICE=/dev/spidev1.0\n"
        defaults.write_text(changed)
        install(root, tmp_path / "upgrade.deb")
        assert root.run(["dpkg-query", "-W", "-f=${Version}", "zorvi-switch"]).stdout == version
        assert defaults.read_text() == changed
        assert changes(before, root.snapshot()) == expected

        res = root.run(["dpkg", "--purge", "zorvi-switch"])
        assert res.returncode == 0, res.stdout + res.stderr
        assert changes(before, root.snapshot()) == {}


# -- the daemon by the init script, in the VM bench ---------------------------------

VM_TOOLS = REPO / "testbench/vm"


def vm_kernel_module():
    # The bench's module, built for the kernel that the VM boots.
    if shutil.which("qemu-system-x86_64") is None:
        pytest.skip("no qemu-system-x86_64: tools/install-deps.sh vm")
    kernel = subprocess.run([str(VM_TOOLS / "kernel.sh")], capture_output=True, text=True)
    if kernel.returncode != 0:
        pytest.skip(f"no kernel for the VM bench: {kernel.stderr.strip()}")
    release = Path(kernel.stdout.strip()).name
    out = REPO / "build-vm" / f"module-{release}"
    subprocess.run(["make", "-s", "-C", str(VM_TOOLS / "module"), f"KREL={release}", f"OUT={out}"],
                   check=True, capture_output=True)
    return out / "zorvi_chip.ko"


def test_init_script_starts_and_stops_the_daemon_in_the_vm(tmp_path):
    if not BENCH_DIR.is_relative_to(REPO):
        pytest.skip(f"the guest sees this tree only, not {BENCH_DIR}")
    # ip for the loopback interface and the multicast route, insmod.
    with DebRoot(tmp_path / "root", include=("iproute2", "kmod")) as root:
        module = vm_kernel_module()
        install(root, deb("amd64"))
        # The bench mounts the booted kernel's modules there, as a board's
        # kernel package would have made it.
        (root.path / "usr/lib/modules").mkdir(exist_ok=True)
        guest = "/run/zorvi-tree"
        cmd = (f"sh {guest}/tests/package/daemon-by-init-script.sh "
               f"{guest}/{BENCH_DIR.relative_to(REPO)} {guest}/{module.relative_to(REPO)}")
        res = subprocess.run([str(VM_TOOLS / "boot.sh"), "--root", str(root.path), "--timeout", "300", "--", cmd],
                             cwd=REPO, capture_output=True, text=True, timeout=400)
    # Kernel messages on the console are no part of the run.
    out = "".join(line for line in res.stdout.splitlines(True) if not re.match(r"\[ *[0-9.]+\]", line))
    assert res.returncode == 0, out + res.stderr
    # None if it did not start, and the comparison below shows what happened.
    pid = re.search(r"started \(pid (\d+)\)|$", out).group(1)
    # The monitor saw the link change through the kernel's spidev and logged
    # it through the root's /dev/log, or the script says which it missed.
    assert out == ("== start\nStarting switch_daemon\nrunning as daemon\n" + NAND_STATUS +
                   f"switch_daemon started (pid {pid})\nexit 0\n"
                   "pid file 644 root:root, exe /usr/sbin/switch_config\n"
                   f"== stop\nStopping switch_daemon (pid {pid})\nswitch_daemon stopped\nexit 0\n")
