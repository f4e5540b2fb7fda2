"""OpenCV side of the merge and Radiance benchmark: decodes the bracket (and leaves it raw for
the C++ side), then times MergeDebevec, the .hdr writer and the .hdr reader on both cores.

usage: merge_rgbe_opencv.py <bracket folder> <raw out> <scratch .hdr> [repeats]
"""
import glob
import os
import sys
import time

import cv2
import numpy as np


def best_of(repeats, f):
    best = float("inf")
    for _ in range(repeats):
        t0 = time.perf_counter()
        f()
        best = min(best, time.perf_counter() - t0)
    return best


def main():
    folder, raw, hdr = sys.argv[1:4]
    repeats = int(sys.argv[4]) if len(sys.argv) > 4 else 3
    cv2.setNumThreads(2)
    paths = sorted(glob.glob(os.path.join(folder, "*.jp*g")) + glob.glob(os.path.join(folder, "*.png")))
    images = [cv2.imread(p, cv2.IMREAD_COLOR) for p in paths]
    h, w, _ = images[0].shape
    # Our side takes RGB end to end.
    with open(raw, "wb") as f:
        for im in images:
            f.write(np.ascontiguousarray(im[..., ::-1]).tobytes())
    print(f"# {len(images)} frames {w}x{h}")
    times = np.array([4.0 ** i for i in range(len(images))], np.float32)
    merger = cv2.createMergeDebevec()
    result = {}

    def merge():
        result["hdr"] = merger.process(images, times)

    t_merge = best_of(repeats, merge)
    t_write = best_of(repeats, lambda: cv2.imwrite(hdr, result["hdr"]))
    t_read = best_of(repeats, lambda: cv2.imread(hdr, cv2.IMREAD_UNCHANGED))
    print(f"cv_merge {t_merge:.4f}\ncv_write {t_write:.4f}\ncv_read {t_read:.4f}")
    print(f"dims {len(images)} {w} {h}")


if __name__ == "__main__":
    main()
