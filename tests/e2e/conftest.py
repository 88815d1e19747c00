import os
import sys

import pytest

# The bench's Python side lives with the bench; the test helpers live here.
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(HERE, "..", "..", "testbench"))

from bench import Bench  # noqa: E402


def _bench(tmp_path, board):
    if os.geteuid() != 0:
        pytest.skip("the bench's namespaces need root")
    b = Bench(tmp_path, board=board)
    try:
        yield b
    finally:
        b.close()


@pytest.fixture
def bench(tmp_path):
    """A fresh simulated NAND board (KSZ8864) with its own namespace."""
    yield from _bench(tmp_path, "nand")


@pytest.fixture
def bench_nor(tmp_path):
    """A fresh simulated NOR board (KSZ8893) with its own namespace."""
    yield from _bench(tmp_path, "nor")
