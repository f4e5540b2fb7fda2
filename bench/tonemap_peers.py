#!/usr/bin/python3
"""Peers of the tone-mapping benchmark.

make <out_dir>: merges the night bracket (12 MP) into one HDR image with hat weights,
and writes it as raw floats (night.f32, for bench_tonemap) and as Radiance (night.hdr,
for the pfstools side).
opencv <night.hdr> <threads> <repeats>: times OpenCV's TonemapReinhard; prints
"opencv reinhard <threads> <MP/s>".
"""
import sys
import time

import cv2
import numpy as np

EXPOSURES = [("IMG_3869.jpeg", 1 / 250), ("IMG_3871.jpeg", 1 / 59), ("IMG_3873.jpeg", 1 / 15),
             ("IMG_3875.jpeg", 1 / 4), ("IMG_3877.jpeg", 1.0)]


def make(data_dir, out_dir):
    lut = ((np.arange(256, dtype=np.float32) / 255.0) ** 2.2).astype(np.float32)
    num = den = None
    for name, seconds in EXPOSURES:
        img = cv2.imread(f"{data_dir}/night/full/{name}", cv2.IMREAD_COLOR | cv2.IMREAD_IGNORE_ORIENTATION)
        if img is None:
            sys.exit(f"cannot read {name}")
        img = img[:, :, ::-1]  # RGB
        top = img.max(axis=2).astype(np.float32)
        w = np.where(top < 128, top + 1, 256 - top)
        lin = lut[img] / np.float32(seconds)
        if num is None:
            num = np.zeros(img.shape, np.float32)
            den = np.zeros(top.shape, np.float32)
        num += lin * w[:, :, None]
        den += w
    hdr = (num / den[:, :, None]).astype(np.float32)
    h, w = hdr.shape[:2]
    with open(f"{out_dir}/night.f32", "wb") as f:
        f.write(np.array([w, h], np.int32).tobytes())
        f.write(np.ascontiguousarray(hdr).tobytes())
    cv2.imwrite(f"{out_dir}/night.hdr", np.ascontiguousarray(hdr[:, :, ::-1]))
    print(f"made {w}x{h} HDR image")


def opencv(path, threads, repeats):
    cv2.setNumThreads(threads)
    hdr = cv2.imread(path, cv2.IMREAD_ANYDEPTH | cv2.IMREAD_COLOR)
    tm = cv2.createTonemapReinhard(gamma=2.2)
    best = 1e30
    for _ in range(repeats):
        t0 = time.perf_counter()
        out = tm.process(hdr)
        best = min(best, time.perf_counter() - t0)
    mp = hdr.shape[0] * hdr.shape[1] / 1e6
    print(f"opencv reinhard {threads} {mp / best:.2f}")


if __name__ == "__main__":
    if sys.argv[1] == "make":
        make(sys.argv[2], sys.argv[3])
    else:
        opencv(sys.argv[2], int(sys.argv[3]), int(sys.argv[4]))
