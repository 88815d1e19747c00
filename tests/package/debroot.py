# A minimal Debian 12 root (debootstrap --variant=minbase) to install the
# package into, entered in mount, PID and network namespaces of its own with
# pivot_root, so that processes inside see the root as their whole system.
#
# The root is made once and kept as a tar file in CACHE; every DebRoot is a
# fresh copy of it. Each run() is a new set of namespaces over the same
# directory: what dpkg did stays, processes and mounts do not.
#

import fcntl
import os
import shutil
import stat
import subprocess
from pathlib import Path

import pytest

CACHE = Path("/var/cache/zorvi-deb")
SUITE = "bookworm"

# Mounts the root's own /proc, a /dev with the common nodes, tmpfs on /tmp and
# /run, and turns the root into "/" (pivot_root . . stacks the old root on the
# new one, the lazy unmount drops it). unshare has made the namespace's mounts
# private.
ENTER = r"""
set -eu
root=$1
shift
mount --bind "$root" "$root"
cd "$root"
mount -t proc proc proc
mount -t tmpfs -o mode=0755 dev dev
for node in null zero full random urandom tty; do
    : >"dev/$node"
    mount --bind "/dev/$node" "dev/$node"
done
mount -t tmpfs -o mode=1777 tmp tmp
mount -t tmpfs -o mode=0755 run run
pivot_root . .
umount -l .
cd /
exec "$@"
"""

# dpkg's own records, which change with every run of it; a purge
# leaves the rest of the root as it found it.
BOOKKEEPING = ("var/lib/dpkg/", "var/log/dpkg.log")


def ensure_tarball(include=()):
    # Makes the cached root, minbase plus the packages in include (a root to
    # boot needs more), with debootstrap unless it is there (a minute or so,
    # from the Debian archive); concurrent callers wait for the first.
    target = CACHE / ("-".join([SUITE, "minbase", *include]) + ".tar")
    CACHE.mkdir(parents=True, exist_ok=True)
    with open(CACHE / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if target.exists():
            return target
        work = target.with_suffix(".tmp")
        shutil.rmtree(work, ignore_errors=True)
        extra = [f"--include={','.join(include)}"] if include else []
        res = subprocess.run(["debootstrap", "--variant=minbase", *extra, SUITE, str(work)],
                             capture_output=True, text=True)
        assert res.returncode == 0, f"debootstrap failed:\n{res.stdout[-3000:]}{res.stderr[-3000:]}"
        # The root installs local packages only: no package lists or caches.
        for d in ("var/lib/apt/lists", "var/cache/apt"):
            for entry in (work / d).iterdir():
                if entry.is_file():
                    entry.unlink()
        partial = target.with_suffix(".partial")
        subprocess.run(["tar", "-C", str(work), "--numeric-owner", "-cf", str(partial), "."], check=True)
        partial.rename(target)
        shutil.rmtree(work)
        return target


class DebRoot:
    # A fresh copy of the cached root at path, removed at the end of a with
    # block.

    def __init__(self, path, include=()):
        if os.geteuid() != 0:
            pytest.skip("the root's namespaces need root")
        self.path = Path(path)
        self.path.mkdir(parents=True)
        subprocess.run(["tar", "-C", str(self.path), "--numeric-owner", "-xpf", str(ensure_tarball(include))],
                       check=True)
        # As when an image is built: maintainer scripts enable services but
        # invoke-rc.d starts none.
        policy = self.path / "usr/sbin/policy-rc.d"
        policy.write_text("#!/bin/sh\nexit 101\n")
        policy.chmod(0o755)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        shutil.rmtree(self.path)

    def run(self, cmd):
        # Runs cmd inside the root with a clean environment.
        enter = ["unshare", "--mount", "--pid", "--net", "--fork", "/bin/sh", "-c", ENTER, "sh", self.path]
        inner = ["/usr/bin/env", "-i", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C"]
        return subprocess.run(enter + inner + list(cmd), capture_output=True, text=True, timeout=120)

    def snapshot(self):
        # {path, a directory's with a slash: (uid, gid, mode or link target,
        # size of a file)} of everything in the root but dpkg's records.
        out = {}
        for path in self.path.rglob("*"):
            st = path.lstat()
            rel = str(path.relative_to(self.path)) + ("/" if stat.S_ISDIR(st.st_mode) else "")
            if not rel.startswith(BOOKKEEPING):
                detail = os.readlink(path) if stat.S_ISLNK(st.st_mode) else stat.S_IMODE(st.st_mode)
                out[rel] = (st.st_uid, st.st_gid, detail, st.st_size if stat.S_ISREG(st.st_mode) else None)
        return out
