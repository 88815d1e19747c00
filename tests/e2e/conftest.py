import os
import sys

import pytest

# The bench's Python side lives with the bench; the test helpers live here.
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(HERE, "..", "..", "testbench"))

from bench import VM, Bench  # noqa: E402


def pytest_configure(config):
    # preload_only: what only the preload bench sees or fakes (calls inside the program, faults the
    # kernel does not produce); vm_only: the kernel's answer, where the preload bench's differs.
    for name in ("preload_only", "vm_only"):
        config.addinivalue_line("markers", f"{name}(reason): skipped on the other bench")


def pytest_runtest_setup(item):
    for name, skip in (("preload_only", VM), ("vm_only", not VM)):
        mark = item.get_closest_marker(name)
        if mark is not None and skip:
            pytest.skip(mark.args[0])


def _bench(tmp_path, board):
    if os.geteuid() != 0:
        pytest.skip("the bench's namespaces need root")
    b = Bench(tmp_path, board=board)
    yield b  # pytest runs the rest whatever the test's outcome
    b.close()


# A fresh simulated board, NAND (KSZ8864) or NOR (KSZ8893), with its own namespace.
@pytest.fixture
def bench(tmp_path):
    yield from _bench(tmp_path, "nand")


@pytest.fixture
def bench_nor(tmp_path):
    yield from _bench(tmp_path, "nor")
