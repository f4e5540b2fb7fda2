#!/usr/bin/env python3
"""OpenCV's side of bench/compare: one timed operation a process.

  peers_opencv.py merge TIMES IMG...     MergeDebevec on the decoded bracket
  peers_opencv.py read IN.hdr            imread of a Radiance file
  peers_opencv.py write IN.hdr OUT.hdr   imwrite of a Radiance file (after reading it)
  peers_opencv.py tonemap IN.hdr OUT.png TonemapReinhard to 8 bits
  peers_opencv.py fuse OUT.png IMG...    MergeMertens exposure fusion to 8 bits, 2 threads
  peers_opencv.py tiffs DIR IMG...       uncompressed TIFF copies of the frames (no timing)
  peers_opencv.py tiffwrite IN.hdr OUT.tif  imwrite of uncompressed float TIFF (after reading)
  peers_opencv.py tiffread IN.tif        imread of a float TIFF

TIMES is a comma-separated list of exposure times in seconds. Decoding and file reads that
only prepare the input are left out of the time, as they are on our side. Prints
"seconds=<s> width=<w> height=<h>".
"""
import sys
import time

import cv2
import numpy as np




def report(seconds, img):
    print("seconds=%.6f width=%d height=%d" % (seconds, img.shape[1], img.shape[0]))


def read_hdr(path):
    img = cv2.imread(path, cv2.IMREAD_ANYDEPTH | cv2.IMREAD_COLOR)
    if img is None:
        sys.exit("peers_opencv: %s: OpenCV cannot read it" % path)
    return img


def main():
    op, args = sys.argv[1], sys.argv[2:]
    if op == "merge":
        times = np.array([float(t) for t in args[0].split(",")], dtype=np.float32)
        # Orientation is ignored on both sides: the merge works on the stored pixels.
        frames = [cv2.imread(p, cv2.IMREAD_COLOR | cv2.IMREAD_IGNORE_ORIENTATION)
                  for p in args[1:]]
        t0 = time.perf_counter()
        hdr = cv2.createMergeDebevec().process(frames, times)
        report(time.perf_counter() - t0, hdr)
    elif op == "read":
        t0 = time.perf_counter()
        img = read_hdr(args[0])
        report(time.perf_counter() - t0, img)
    elif op == "write":
        img = read_hdr(args[0])
        t0 = time.perf_counter()
        if not cv2.imwrite(args[1], img):
            sys.exit("peers_opencv: %s: write failed" % args[1])
        report(time.perf_counter() - t0, img)
    elif op == "tonemap":
        img = read_hdr(args[0])
        t0 = time.perf_counter()
        ldr = cv2.createTonemapReinhard(gamma=2.2).process(img)
        out = np.clip(ldr * 255.0, 0, 255).astype(np.uint8)
        report(time.perf_counter() - t0, img)
        cv2.imwrite(args[1], out)
    elif op == "fuse":
        cv2.setNumThreads(2)
        frames = [cv2.imread(p, cv2.IMREAD_COLOR | cv2.IMREAD_IGNORE_ORIENTATION)
                  for p in args[1:]]
        t0 = time.perf_counter()
        fused = cv2.createMergeMertens().process(frames)
        out = np.clip(fused * 255.0, 0, 255).astype(np.uint8)
        report(time.perf_counter() - t0, out)
        cv2.imwrite(args[0], out)
    elif op == "tiffs":
        for p in args[1:]:
            img = cv2.imread(p, cv2.IMREAD_COLOR | cv2.IMREAD_IGNORE_ORIENTATION)
            name = p.rsplit("/", 1)[-1].rsplit(".", 1)[0] + ".tif"
            cv2.imwrite(args[0] + "/" + name, img, [cv2.IMWRITE_TIFF_COMPRESSION, 1])
    elif op == "tiffwrite":
        img = read_hdr(args[0])
        t0, c0 = time.perf_counter(), time.process_time()
        if not cv2.imwrite(args[1], img, [cv2.IMWRITE_TIFF_COMPRESSION, 1]):
            sys.exit("peers_opencv: %s: write failed" % args[1])
        print("cpu=%.6f" % (time.process_time() - c0))
        report(time.perf_counter() - t0, img)
    elif op == "tiffread":
        t0, c0 = time.perf_counter(), time.process_time()
        img = cv2.imread(args[0], cv2.IMREAD_UNCHANGED)
        if img is None:
            sys.exit("peers_opencv: %s: OpenCV cannot read it" % args[0])
        print("cpu=%.6f" % (time.process_time() - c0))
        report(time.perf_counter() - t0, img)
    else:
        sys.exit("usage: see the module's docstring")


if __name__ == "__main__":
    main()
