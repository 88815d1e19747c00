import os
import sys

# The bench's Python side lives with the bench (pytest puts this directory on
# the path for the root's helper).
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "testbench"))
