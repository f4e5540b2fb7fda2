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
    rng = np.random.default_rng(seed)
    img = np.exp2(rng.uniform(-10, 10, (h, w, 3))).astype(np.float32)
    img[h // 3: h // 2, :] = img[h // 3, 0]
    return img


def read_pfm(path):
    with open(path, "rb") as f:
        kind = f.readline().strip()
        w, h = map(int, f.readline().split())
        scale = float(f.readline())
        data = np.frombuffer(f.read(), "<f4" if scale < 0 else ">f4")
    ch = 3 if kind == b"PF" else 1
    return np.flipud(data.reshape(h, w, ch)).astype(np.float32)


def write_pfm(path, rgb):
    h, w, _ = rgb.shape
    with open(path, "wb") as f:
        f.write(b"PF\n%d %d\n-1.0\n" % (w, h))
        f.write(np.flipud(rgb).astype("<f4").tobytes())


def opencv(lib, tmp):
    try:
        import cv2
    except ImportError:
        lv.need(False, "python3-opencv is not installed")
    ok = True
    for (h, w) in [(31, 97), (4, 5), (2, 1)]:
        planar = lv.from_float(hdr_scene(h, w, w))
        ours = os.path.join(tmp, f"ours_{w}.hdr")
        lv.write(lib, ours, planar)
        theirs = cv2.imread(ours, cv2.IMREAD_UNCHANGED)
        if theirs is None:
            print(f"OpenCV could not read our {w}x{h} file")
            return False
        # Below 8 pixels wide our files stay run-length coded, which readers of the common
        # dialect take for flat pixels, so the exchange is checked from 8 pixels on.
        if w >= 8:
            ok &= lv.close(theirs[..., ::-1], lv.to_float(planar), f"OpenCV reads ours {w}x{h}")

        src = hdr_scene(h, w, w + 1)
        path = os.path.join(tmp, f"cv_{w}.hdr")
        cv2.imwrite(path, np.ascontiguousarray(src[..., ::-1]))
        back = cv2.imread(path, cv2.IMREAD_UNCHANGED)[..., ::-1]
        ok &= lv.close(lv.to_float(lv.read(lib, path)), back, f"we read OpenCV's {w}x{h}")
        ok &= lv.close(lv.to_float(lv.read(lib, path)), src, f"OpenCV's {w}x{h} vs its source",
                       rel=1.0 / 64)
    return ok


def pfstools(lib, tmp):
    lv.need(shutil.which("pfsin") and shutil.which("pfsout"), "pfstools is not installed")
    ok = True
    h, w = 23, 61
    planar = lv.from_float(hdr_scene(h, w, 5))
    ours = os.path.join(tmp, "ours_pfs.hdr")
    lv.write(lib, ours, planar)
    pfm = os.path.join(tmp, "ours_pfs.pfm")
    subprocess.run(f"pfsin '{ours}' | pfsout '{pfm}'", shell=True, check=True)
    ok &= lv.close(read_pfm(pfm), lv.to_float(planar), "pfstools reads ours", rel=1.0 / 64)

    src = hdr_scene(h, w, 6)
    src_pfm = os.path.join(tmp, "src.pfm")
    theirs = os.path.join(tmp, "pfs.hdr")
    write_pfm(src_pfm, src)
    subprocess.run(f"pfsin '{src_pfm}' | pfsout '{theirs}'", shell=True, check=True)
    back_pfm = os.path.join(tmp, "pfs_back.pfm")
    subprocess.run(f"pfsin '{theirs}' | pfsout '{back_pfm}'", shell=True, check=True)
    ok &= lv.close(lv.to_float(lv.read(lib, theirs)), read_pfm(back_pfm),
                   "we read pfstools' file as it does", rel=1.0 / 64)
    return ok


def main():
    lib = lv.load(sys.argv[1])
    tmp = sys.argv[2]
    os.makedirs(tmp, exist_ok=True)
    ok = {"opencv": opencv, "pfstools": pfstools}[sys.argv[3]](lib, tmp)
    print("ok" if ok else "FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
