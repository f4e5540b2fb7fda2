#!/usr/bin/env python3
"""An independent reader opens what `lvhdr merge` writes from the night bracket."""
import glob
import os
import subprocess
import sys

lvhdr, data, work = sys.argv[1:4]
frames = sorted(glob.glob(os.path.join(data, "*.jpg")))
if not frames:
    print("sample data absent:", data)
    sys.exit(77)
try:
    import cv2
except ImportError:
    print("python3-opencv is not installed")
    sys.exit(77)
os.makedirs(work, exist_ok=True)
out = os.path.join(work, "night.hdr")
subprocess.run([lvhdr, "merge", "-o", out] + frames, check=True, stdout=subprocess.DEVNULL)
img = cv2.imread(out, cv2.IMREAD_ANYDEPTH | cv2.IMREAD_ANYCOLOR)
assert img is not None, "OpenCV could not read the merged file"
h, w = img.shape[:2]
ref = cv2.imread(frames[0])  # turned upright by its EXIF orientation, as lvhdr does
assert (h, w) == ref.shape[:2], ((h, w), ref.shape[:2])
assert img.dtype.name == "float32" and float(img.max()) > float(img.min()) >= 0.0
print("OpenCV read %dx%d, values %.4g to %.4g" % (w, h, img.min(), img.max()))
