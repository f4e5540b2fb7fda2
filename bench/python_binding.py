#!/usr/bin/env python3
"""Overhead of the Python binding: a 12 MP merge and the two tone maps through
`lumivantor` against the same calls from C (bench_python_peer), in the same run.

usage: bench/python_binding.py BUILD_DIR [repeats]
Prints each step's best time for C and Python and the binding's overhead in percent.
The frames are the street bracket scaled to 4000x3000 (or a synthetic ramp without the
data). The machine is shared, so expect a few percent of noise either way.
"""
import os
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

with tempfile.TemporaryDirectory() as tmp:
    raw = os.path.join(tmp, "bracket.raw")
    with open(raw, "wb") as f:
        np.array(stack.shape[:3], np.int32).tofile(f)
        stack.tofile(f)
    out = subprocess.run([os.path.join(build, "bench", "bench_python_peer"), raw, str(repeats)],
                         check=True, capture_output=True, text=True).stdout
c_times = {k: float(v) for k, v in (line.split() for line in out.splitlines())}


def best(fn):
    t = []
    for _ in range(repeats):
        t0 = time.perf_counter()
        fn()
        t.append(time.perf_counter() - t0)
    return min(t)


hdr = lv.merge(stack)
py_times = {"merge": best(lambda: lv.merge(stack)),
            "simple": best(lambda: lv.tonemap(hdr, method="simple")),
            "optimizer": best(lambda: lv.tonemap(hdr, method="optimizer"))}
print(f"{stack.shape[0]} frames of {W}x{H} ({W * H / 1e6:.0f} MP), best of {repeats}")
print(f"{'step':10} {'C s':>8} {'Python s':>9} {'overhead':>9} {'MP/s (Py)':>10}")
for step, ct in c_times.items():
    pt = py_times[step]
    print(f"{step:10} {ct:8.3f} {pt:9.3f} {100 * (pt / ct - 1):8.1f}% {W * H / 1e6 / pt:10.1f}")
