"""OpenCV beside the tower blend: a Laplacian-pyramid blend of a synthetic bracket of n
8-bit RGB photographs under per-pixel weights (pyrDown, pyrUp, weighted sum, collapse), and
MergeMertens on the same bracket (its own weights included). Prints "stage cpu_seconds MP/s":
the process's CPU time, as bench_towers counts its own, which a shared machine disturbs less
than wall time.
Usage: towers_peers.py width height n repeats"""
import sys
import time

import cv2
import numpy as np


def bracket(w, h, n):
    x = np.arange(w, dtype=np.int32)[None, :, None]
    noise = (np.arange(w * h * 3, dtype=np.int64).reshape(h, w, 3) * 7919 % 13).astype(np.int32)
    return [((x * 255 // w) // (n - k) + noise).clip(0, 255).astype(np.uint8) for k in range(n)]


def pyramid_blend(photos, weights, levels):
    acc = None
    for img, wt in zip(photos, weights):
        g = [img.astype(np.float32)]
        gw = [wt]
        for _ in range(levels):
            g.append(cv2.pyrDown(g[-1]))
            gw.append(cv2.pyrDown(gw[-1]))
        lap = [g[l] - cv2.pyrUp(g[l + 1], dstsize=g[l].shape[1::-1]) for l in range(levels)]
        lap.append(g[levels])
        terms = [lap[l] * gw[l][..., None] for l in range(levels + 1)]
        acc = terms if acc is None else [a + t for a, t in zip(acc, terms)]
    out = acc[levels]
    for l in range(levels - 1, -1, -1):
        out = cv2.pyrUp(out, dstsize=acc[l].shape[1::-1]) + acc[l]
    return np.clip(out, 0, 255).astype(np.uint8)


def main():
    w, h, n, repeats = (int(a) for a in sys.argv[1:5])
    cv2.setNumThreads(1)
    photos = bracket(w, h, n)
    weights = [np.full((h, w), 1.0 / n, np.float32) for _ in range(n)]
    levels = int(np.log2(min(w, h))) - 1
    mp = n * w * h / 1e6
    best = min(_timed(lambda: pyramid_blend(photos, weights, levels)) for _ in range(repeats))
    print(f"opencv_pyramid_blend   {best:8.3f} s {mp / best:8.1f} MP/s")
    merge = cv2.createMergeMertens()
    best = min(_timed(lambda: merge.process(photos)) for _ in range(repeats))
    print(f"opencv_mertens         {best:8.3f} s {mp / best:8.1f} MP/s")


def _timed(fn):
    t0 = time.process_time()
    fn()
    return time.process_time() - t0


if __name__ == "__main__":
    main()
