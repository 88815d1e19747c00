import os
import sys

# The bench's Python side lives with the bench; the root's helper lives here.
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(HERE, "..", "..", "testbench"))
