"""One download of every track point through the Python package, timed:
prints points, seconds and the process's peak resident size in MB.

usage: python_get.py PORT
"""

import resource
import sys
import time

import trekcom

start = time.perf_counter()
with trekcom.open(sys.argv[1]) as gps:
    tracks = gps.get("tracks")
seconds = time.perf_counter() - start
points = sum(len(t.Points) for t in tracks)
print(points, f"{seconds:.3f}", f"{resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024:.1f}")
