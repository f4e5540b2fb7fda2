#!/usr/bin/env python3
"""The mirror-ball warp on OpenCV's side, and a ball to warp.

  warps_peers.py remap W H REPEATS   cv2.remap of a W x H ball to a 2W x H panorama with
                                     each filter: building the maps (numpy trigonometry)
                                     and the remap itself, timed apart
  warps_peers.py ball ENV.hdr SIZE OUT.hdr
                                     renders the mirror ball that sees ENV.hdr (taken as a
                                     latitude-longitude panorama) from the camera's side

Prints "<name> <seconds> <MP/s of output>" lines for remap.
"""
import sys
import time

import cv2
import numpy as np


def ball_maps(w, h):
    """Source coordinates on a w x h ball for each pixel of the 2w x h panorama."""
    y, x = np.mgrid[0:h, 0:2 * w].astype(np.float64)
    theta = y * np.pi / (h - 1)
    phi = (x - (2 * w) // 4) * 2 * np.pi / (2 * w - 1)
    a = np.arccos(np.sin(phi) * np.sin(theta))
    b = np.arctan2(np.cos(theta), -np.cos(phi) * np.sin(theta))
    r = np.sin(a / 2)
    cx, cy = w / 2, h / 2
    return ((cx + cx * r * np.cos(b)).astype(np.float32),
            (cy - cy * r * np.sin(b)).astype(np.float32))


def remap(w, h, repeats):
    rng = np.random.default_rng(1)
    ball = rng.integers(0, 256, (h, w, 3), dtype=np.uint8)
    hdr = rng.random((h, w, 3), dtype=np.float32)
    mp = 2 * w * h / 1e6
    best = {}
    for _ in range(repeats):
        t = time.perf_counter()
        mx, my = ball_maps(w, h)
        best["opencv_maps"] = min(best.get("opencv_maps", 1e9), time.perf_counter() - t)
        for name, flag in (("nearest", cv2.INTER_NEAREST), ("bilinear", cv2.INTER_LINEAR),
                           ("cubic", cv2.INTER_CUBIC)):
            for kind, img in (("ldr", ball), ("hdr", hdr)):
                t = time.perf_counter()
                cv2.remap(img, mx, my, flag, borderMode=cv2.BORDER_REPLICATE)
                key = "opencv_%s_%s" % (kind, name)
                best[key] = min(best.get(key, 1e9), time.perf_counter() - t)
    for key, s in best.items():
        print("%s %.6f %.1f" % (key, s, mp / s))


def ball(env_path, size, out_path):
    env = cv2.imread(env_path, cv2.IMREAD_ANYDEPTH | cv2.IMREAD_COLOR)
    eh, ew = env.shape[:2]
    w = h = size
    j, i = np.mgrid[0:h, 0:w].astype(np.float64)
    rc, rs = (i - w / 2) / (w / 2), (h / 2 - j) / (h / 2)
    r = np.minimum(np.hypot(rc, rs), 1.0)
    a, b = 2 * np.arcsin(r), np.arctan2(rs, rc)
    theta = np.arccos(np.clip(np.sin(a) * np.sin(b), -1, 1))
    phi = np.arctan2(np.cos(a), -np.sin(a) * np.cos(b))
    x = (phi * (2 * w - 1) / (2 * np.pi) + (2 * w) // 4) % (2 * w) * ew / (2 * w)
    y = theta * (h - 1) / np.pi * eh / h
    out = cv2.remap(env, x.astype(np.float32), y.astype(np.float32), cv2.INTER_LINEAR,
                    borderMode=cv2.BORDER_WRAP)
    out[np.hypot(rc, rs) >= 1] = 0
    cv2.imwrite(out_path, out)


if __name__ == "__main__":
    if sys.argv[1] == "remap":
        remap(int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4]))
    elif sys.argv[1] == "ball":
        ball(sys.argv[2], int(sys.argv[3]), sys.argv[4])
    else:
        sys.exit(__doc__)
