#!/usr/bin/env python3
"""Overhead of the Python binding: a 12 MP merge and the three tone maps through
`lumivantor` against the same calls from C (bench_python_peer), in the same run.

usage: bench/python_binding.py BUILD_DIR [repeats]
Prints each step's best wall and CPU time for C and Python and the binding's overhead.
The frames are the street bracket scaled to 4000x3000 (or a synthetic ramp without the
data). The machine is shared, so expect a few percent of noise either way.
"""
import os
import resource
import subprocess
import sys
import tempfile
import time

import numpy as np

build = os.path.abspath(sys.argv[1])
repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 3
os.environ.setdefault("LUMIVANTOR_LIBRARY", os.path.join(build, "liblumivantor.so"))
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "python"))
import lumivantor as lv  # noqa: E402

W, H = 4000, 3000
street = os.path.join(os.environ.get("LV_DATA_DIR", "../shared/data"), "street")
try:
    import cv2

    names = sorted(f for f in os.listdir(street) if f.endswith(".png"))
    frames = [cv2.resize(cv2.imread(os.path.join(street, f)), (W, H))[:, :, ::-1] for f in names]
except (ImportError, OSError):
    ramp = np.linspace(0, 1, W, dtype=np.float32)[None, :, None] * np.ones((H, 1, 3), np.float32)
    frames = [np.clip(ramp * 255 * 2.0 ** k, 0, 255).astype(np.uint8) for k in range(-2, 3)]
stack = np.ascontiguousarray(np.stack(frames))

steps = {"merge": lambda: lv.merge(stack),
         "simple": lambda: lv.tonemap(hdr, method="simple"),
         "optimizer": lambda: lv.tonemap(hdr, method="optimizer"),
         "enhancer": lambda: lv.tonemap(hdr, method="enhancer")}
hdr = lv.merge(stack)
c_times, py_times = {}, {}  # step: (best wall seconds, best CPU seconds)


def cpu_seconds():
    """CPU seconds of this process, all threads."""
    u = resource.getrusage(resource.RUSAGE_SELF)
    return u.ru_utime + u.ru_stime

# C and Python take turns, round after round, so both see the same load on the shared
# machine; each step's best time counts.
with tempfile.TemporaryDirectory() as tmp:
    raw = os.path.join(tmp, "bracket.raw")
    with open(raw, "wb") as f:
        np.array(stack.shape[:3], np.int32).tofile(f)
        stack.tofile(f)
    for _ in range(repeats):
        out = subprocess.run([os.path.join(build, "bench", "bench_python_peer"), raw, "1"],
                             check=True, capture_output=True, text=True).stdout
        for line in out.splitlines():
            step, wall, cpu = line.split()
            old = c_times.get(step, (1e30, 1e30))
            c_times[step] = (min(float(wall), old[0]), min(float(cpu), old[1]))
        for step, fn in steps.items():
            t0, c0 = time.perf_counter(), cpu_seconds()
            fn()
            t, ct = time.perf_counter() - t0, cpu_seconds() - c0
            old = py_times.get(step, (1e30, 1e30))
            py_times[step] = (min(t, old[0]), min(ct, old[1]))

print(f"{stack.shape[0]} frames of {W}x{H} ({W * H / 1e6:.0f} MP), best of {repeats} rounds")
print(f"{'step':10} {'C s':>7} {'Py s':>7} {'wall +':>7} {'C cpu':>7} {'Py cpu':>7} {'cpu +':>7}"
      f" {'MP/s Py':>8}")
for step, (cw, cc) in c_times.items():
    pw, pc = py_times[step]
    print(f"{step:10} {cw:7.3f} {pw:7.3f} {100 * (pw / cw - 1):6.1f}% {cc:7.3f} {pc:7.3f}"
          f" {100 * (pc / cc - 1):6.1f}% {W * H / 1e6 / pw:8.1f}")
peak = {who: resource.getrusage(who).ru_maxrss / 1024 for who in (resource.RUSAGE_CHILDREN,
                                                                   resource.RUSAGE_SELF)}
print(f"peak memory: C {peak[resource.RUSAGE_CHILDREN]:.0f} MB, "
      f"Python (with its copy of the bracket) {peak[resource.RUSAGE_SELF]:.0f} MB")
