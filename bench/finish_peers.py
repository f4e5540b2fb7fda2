#!/usr/bin/env python3
"""The same finishing passes through OpenCV on a 24 MP 8-bit picture like bench_finish's:
levels through a table (cv2.LUT), exposure through L*a*b*, HLS saturation, and a 50 %
blend. Prints "pass bits threads MP/s" lines. Usage: finish_peers.py THREADS [REPEATS]"""
import sys
import time

import cv2
import numpy as np

threads = int(sys.argv[1])
repeats = int(sys.argv[2]) if len(sys.argv) > 2 else 2
cv2.setNumThreads(threads)
w, h = 6000, 4000
y, x = np.mgrid[0:h, 0:w].astype(np.float32)
rng = np.random.default_rng(1)
img = np.empty((h, w, 3), np.uint8)
for c in range(3):
    base = 0.5 + 0.45 * np.sin(x * (0.0011 + 0.0004 * c) + y * 0.0007 * c)
    noise = rng.integers(-4, 5, size=(h, w)) / 255.0
    img[..., c] = (np.clip(base + noise, 0, 1) * 255).astype(np.uint8)
mp = w * h / 1e6
lut = np.clip(((np.arange(256) / 256.0) ** (1 / 1.2) * 256 - 5) * 256 / 250, 0, 255).astype(np.uint8)
other = img[::-1].copy()


def levels():
    cv2.LUT(img, lut)


def exposure():
    lab = cv2.cvtColor(img, cv2.COLOR_RGB2Lab)
    lab[..., 0] = cv2.multiply(lab[..., 0], 1.2)
    cv2.cvtColor(lab, cv2.COLOR_Lab2RGB)


def saturation():
    hls = cv2.cvtColor(img, cv2.COLOR_RGB2HLS)
    hls[..., 2] = cv2.multiply(hls[..., 2], 1.2)
    cv2.cvtColor(hls, cv2.COLOR_HLS2RGB)


def blend():
    cv2.addWeighted(img, 0.5, other, 0.5, 0)


for name, run in [("opencv_levels", levels), ("opencv_exposure_lab", exposure),
                  ("opencv_hls_saturation", saturation), ("opencv_blend", blend)]:
    best = 1e30
    for _ in range(repeats):
        t0 = time.perf_counter()
        run()
        best = min(best, time.perf_counter() - t0)
    print(f"{name:22s}  8 {threads} {mp / best:8.1f} MP/s", flush=True)
