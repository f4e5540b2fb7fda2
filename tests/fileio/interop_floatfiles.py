"""Float TIFF, PSD, BMP, ICC and OpenEXR files exchanged with independent readers and writers.

usage: interop_floatfiles.py <liblumivantor.so> <scratch dir> <peer> [lvhdr]
peers: tifffile opencv tiffdump imagemagick psdtools pillow icc exr
"""
import ctypes
import glob
import os
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.dirname(__file__))
import lv_ctypes as lv  # noqa: E402

import numpy as np  # noqa: E402

P, I, F, S = ctypes.c_void_p, ctypes.c_int, ctypes.c_float, ctypes.c_char_p


def load(path):
    lib = lv.load(path)
    lib.fp_save.argtypes = [S, I, I, I, P]
    lib.getTiffInfo.argtypes = [S, P]
    lib.fp2rgbe.argtypes = [S, P, P, P, P, P]
    lib.getPsdInfo.argtypes = [S, P]
    lib.psd_profile.argtypes = [S, P]
    lib.load_psd.argtypes = [I, S, P, I, P]
    lib.lvbmp_dim.argtypes = [S, P]
    lib.extract_profile.argtypes = [S, P]
    return lib


def scene(h, w, seed):
    return np.exp2(np.random.default_rng(seed).uniform(-10, 8, (h, w, 3))).astype(np.float32)


def planar_of(lib, img, tmp):
    """The library's RGBE form of float pixels, through a float TIFF of its own form."""
    h, w, _ = img.shape
    path = os.path.join(tmp, "src.tif")
    with open(path, "wb") as f:  # one-strip little-endian float TIFF in the library's form
        f.write(b"II*\0" + (8 + img.nbytes).to_bytes(4, "little") + img.astype("<f4").tobytes())
    info = np.zeros(12, np.int32)
    info[:6] = [w, h, 32, 3, 0, 8]  # what the library's own inspector gives for such a file
    return read_tiff(lib, path, info)


def ours_tif(lib, tmp, h, w, seed):
    """A scene through the library's float TIFF writer: its RGBE form and the file."""
    planar, path = planar_of(lib, scene(h, w, seed), tmp), os.path.join(tmp, "ours.tif")
    save(lib, path, planar)
    return planar, path


def read_tiff(lib, path, info):
    w, h = int(info[0]), int(info[1])
    px, stats = np.zeros((h, 4, w), np.uint8), np.zeros(3, np.float32)
    s = [lv.ptr(stats[i:]) for i in range(3)]
    if lib.fp2rgbe(path.encode(), lv.ptr(info), s[0], s[1], s[2], lv.ptr(px)) != 1:
        raise RuntimeError(f"fp2rgbe {path} failed")
    return px


def tiff_info(lib, path):
    info = np.zeros(12, np.int32)
    return lib.getTiffInfo(path.encode(), lv.ptr(info)), info


def save(lib, path, planar):
    h, _, w = planar.shape
    if lib.fp_save(path.encode(), w, h, 0, lv.ptr(np.ascontiguousarray(planar))) != h:
        raise RuntimeError("fp_save failed")


def exact(a, b, what):
    ok = a.shape == b.shape and np.array_equal(a.view(np.uint32), b.view(np.uint32))
    print(f"{what}: {'bit for bit' if ok else 'DIFFERENT'}")
    return ok


def check(cond, what):
    print(f"{what}: {'ok' if cond else 'FAILED'}")
    return bool(cond)


def read_ours_back(lib, path):
    """Reads a float TIFF others wrote; values come back at half (exponent bias 128)."""
    rc, info = tiff_info(lib, path)
    if rc != 2:
        return rc, info, None
    return rc, info, lv.to_float(read_tiff(lib, path, info)) * 2


def planes_first(img, kw):
    """tifffile takes separate planes as an array of planes."""
    return img.transpose(2, 0, 1) if kw.get("planarconfig") == "separate" else img


def tifffile_peer(lib, tmp, lvhdr):
    tifffile = lv.module("tifffile", "python3-tifffile")
    planar, ours = ours_tif(lib, tmp, 13, 29, 1)
    with tifffile.TiffFile(ours) as t:
        page = t.pages[0]
        tags = {k.name: k.value for k in page.tags.values()}
        ok = exact(page.asarray(), lv.to_float(planar), "tifffile reads our floats")
    ok &= check(tags["RowsPerStrip"] == 13 and tags["Compression"] == 1 and
                tags["SampleFormat"] == (3, 3, 3) and tags["BitsPerSample"] == (32, 32, 32) and
                tags["PlanarConfiguration"] == 1 and len(tags) == 11, "tifffile sees our 11 tags")
    src = lv.to_float(planar)
    for order, spp in (("<", 3), ("<", 4), (">", 3)):
        path = os.path.join(tmp, f"tf{spp}{'be' if order == '>' else 'le'}.tif")
        data = src if spp == 3 else np.concatenate([src, np.ones_like(src[..., :1])], -1)
        tifffile.imwrite(path, data, byteorder=order, photometric="rgb", rowsperstrip=13,
                         extrasamples=["unassalpha"] if spp == 4 else None)
        rc, info, got = read_ours_back(lib, path)
        if order == ">":
            ok &= check(rc == -3, "a big-endian tifffile file stops at its version (-3)")
        else:
            ok &= check(rc == 2 and info[3] == spp and info[10] == 3, f"tifffile {spp} samples info")
            ok &= lv.close(got, src, f"we read tifffile's {spp}-sample file")
    # Forms the library leaves to its host show in its slots (compression, planes, strips,
    # tiles: slot and value); lvhdr reads them all, and half floats, through libtiff.
    lv.need(lvhdr, "lvhdr is not built")
    forms = [("zlib", dict(compression="zlib"), 11, 8),
             ("planar", dict(planarconfig="separate"), 9, 2),
             ("strips", dict(rowsperstrip=2), 7, 2), ("tiles", dict(tile=(16, 16)), 5, 0),
             ("big-endian tiles", dict(byteorder=">", tile=(16, 16)), None, None),
             ("half", dict(dtype=np.float16, compression="zlib"), None, None)]
    for name, kw, slot, want in forms:
        path, back = os.path.join(tmp, "user.tif"), os.path.join(tmp, "user.hdr")
        data = src.astype(kw.pop("dtype", np.float32))
        tifffile.imwrite(path, planes_first(data, kw), photometric="rgb", **kw)
        if slot is not None:
            rc, info = tiff_info(lib, path)
            ok &= check(rc == 2 and info[slot] == want, f"a {name} file shows in the slots")
        subprocess.run([lvhdr, "convert", path, back], check=True, capture_output=True)
        ok &= lv.close(lv.to_float(lv.read(lib, back)), data.astype(np.float32),
                       f"lvhdr reads a {name} float TIFF")
    path = os.path.join(tmp, "form_int.tif")
    tifffile.imwrite(path, (src * 100).astype(np.uint16), photometric="rgb")
    rc, info = tiff_info(lib, path)
    ok &= check(rc == 2 and info[2] == 16, "an integer file has 16 bits a sample")
    return ok


def opencv_peer(lib, tmp):
    cv2 = lv.module("cv2", "python3-opencv")
    planar, ours = ours_tif(lib, tmp, 9, 31, 2)
    src = lv.to_float(planar)
    ok = exact(cv2.imread(ours, cv2.IMREAD_UNCHANGED)[..., ::-1].copy(), src, "OpenCV reads ours")
    theirs = os.path.join(tmp, "cv.tif")
    cv2.imwrite(theirs, np.ascontiguousarray(src[..., ::-1]), [cv2.IMWRITE_TIFF_COMPRESSION, 1])
    rc, info, got = read_ours_back(lib, theirs)
    ok &= check(rc == 2, "OpenCV's uncompressed float TIFF is inspected")
    return ok & lv.close(got, src, "we read OpenCV's float TIFF")


def tiffdump_peer(lib, tmp):
    # The tag values and the pixels are checked through tifffile and OpenCV (libtiff).
    lv.need(shutil.which("tiffdump"), "libtiff-tools is not installed")
    _, ours = ours_tif(lib, tmp, 5, 6, 3)
    dump = subprocess.run(["tiffdump", ours], capture_output=True, text=True, check=True).stdout
    print(dump)
    ok = check("Directory 0: offset 368 (0x170) next 0 (0)" in dump, "tiffdump: one directory")
    tags = ("256", "257", "258", "259", "262", "273", "277", "278", "279", "284", "339")
    return ok & check(all(f"({tag}) " in dump for tag in tags), "tiffdump lists our eleven tags")


def magick(*args):
    # ImageMagick 6 with a recent libtiff complains of the predictor tag in float files and
    # exits 1, though it writes the file whole; the file is what counts.
    r = subprocess.run(["convert", *args], capture_output=True, text=True)
    if r.returncode != 0 and not os.path.exists(args[-1].split(":")[-1]):
        raise RuntimeError(f"convert {' '.join(args)}: {r.stderr}")


def icc_files():
    return sorted(p for p in glob.glob("/usr/share/color/icc/**/*", recursive=True)
                  if p.lower().endswith((".icc", ".icm")) and os.path.isfile(p))


def read_psd(lib, path, kind=1, large=False):
    info = np.zeros(12, np.int32)
    if lib.getPsdInfo(path.encode(), lv.ptr(info)) < 0:
        return None, info, None
    w, h, bits = int(info[0]), int(info[1]), int(info[2])
    if large:
        info[10] = 64
    px = np.zeros((h, w, 3), np.uint16 if bits == 16 else np.uint8)
    if lib.load_psd(kind, path.encode(), lv.ptr(info), 3 * w, lv.ptr(px)) != h:
        raise RuntimeError(f"load_psd {path} failed")
    profile = np.zeros(max(int(info[6]), 1), np.uint8)
    if info[6] > 0:
        lib.psd_profile(path.encode(), lv.ptr(profile))
    return px, info, profile.tobytes()[: int(info[6])]


def photo(h, w, seed, bits=8):
    top = 255 if bits == 8 else 65535
    return np.random.default_rng(seed).integers(0, top + 1, (h, w, 3)).astype(
        np.uint8 if bits == 8 else np.uint16)


def write_ppm(path, img):
    h, w, _ = img.shape
    top = 255 if img.dtype == np.uint8 else 65535
    with open(path, "wb") as f:
        f.write(f"P6\n{w} {h}\n{top}\n".encode() + img.astype(">u2" if top > 255 else "u1").tobytes())


def imagemagick_peer(lib, tmp):
    lv.need(shutil.which("convert"), "imagemagick is not installed")
    ok = True
    src = scene(7, 11, 4)
    tif = os.path.join(tmp, "im.tif")
    pfm = os.path.join(tmp, "src.pfm")
    with open(pfm, "wb") as f:
        f.write(b"PF\n11 7\n-1.0\n" + np.flipud(src).astype("<f4").tobytes())
    magick(pfm, "-define", "quantum:format=floating-point", "-depth", "32", "-compress", "none",
           tif)
    rc, info, got = read_ours_back(lib, tif)
    ok &= check(rc == 2 and info[7] >= 7, "ImageMagick's float TIFF is one strip")
    # ImageMagick of 16-bit quanta clips and rounds; what it wrote is the reference.
    tifffile = lv.module("tifffile", "python3-tifffile")
    ok &= lv.close(got, tifffile.imread(tif), "we read ImageMagick's float TIFF")
    profile = icc_files()[0]
    for bits in (8, 16):
        img = photo(6, 9, bits, bits)
        ppm = os.path.join(tmp, f"p{bits}.ppm")
        write_ppm(ppm, img)
        for comp in ("None", "RLE"):
            for with_icc in (False, True):
                for fmt in ("PSD", "PSB"):
                    name = os.path.join(tmp, f"im{bits}{comp}{int(with_icc)}.{fmt.lower()}")
                    extra = ["-profile", profile] if with_icc else []
                    magick(ppm, *extra, "-depth", str(bits), "-compress", comp, f"{fmt}:{name}")
                    px, info, icc = read_psd(lib, name, large=fmt == "PSB")
                    what = f"ImageMagick {fmt} {bits}-bit {comp}{' with ICC' if with_icc else ''}"
                    ok &= check(px is not None and np.array_equal(px, img), what + " pixels")
                    if with_icc:
                        ok &= check(icc == open(profile, "rb").read(), what + " profile")
    for fmt in ("BMP", "BMP3", "BMP2"):  # top-down rows are Pillow's case
        name = os.path.join(tmp, f"im_{fmt}.bmp")
        magick(os.path.join(tmp, "p8.ppm"), f"{fmt}:{name}")
        ok &= bmp_check(lib, name, f"ImageMagick {fmt}")
    return ok


def bmp_check(lib, path, what):
    """The library reads width, height and depth at offsets 34, 38 and 44 whatever the header."""
    data = open(path, "rb").read()
    info = np.zeros(12, np.int32)
    rc = lib.lvbmp_dim(path.encode(), lv.ptr(info))
    depth = int.from_bytes(data[44:46], "little")
    want = 8 if depth in (8, 24) else -3
    fields = (int.from_bytes(data[34:38], "little", signed=True),
              int.from_bytes(data[38:42], "little", signed=True))
    return check(rc == want and tuple(info[:2]) == fields, f"{what}: fixed offsets give {rc}")


def psdtools_peer(lib, tmp):
    psd_tools = lv.module("psd_tools", "python3-psd-tools")
    Image = lv.module("PIL.Image", "python3-pil")
    ImageResource = psd_tools.psd.image_resources.ImageResource
    ok = True
    img = photo(5, 8, 6)
    profile = open(icc_files()[-1], "rb").read() if icc_files() else b"\0\0\0\x08abcd"
    for with_icc in (False, True):
        doc = psd_tools.PSDImage.frompil(Image.fromarray(img))
        if with_icc:  # psd-tools keeps the resources it is given
            doc._record.image_resources[1039] = ImageResource(key=1039, data=profile)
        path = os.path.join(tmp, f"pt{int(with_icc)}.psd")
        doc.save(path)
        px, info, icc = read_psd(lib, path)
        ok &= check(px is not None and np.array_equal(px, img), f"psd-tools composite {with_icc}")
        if with_icc:
            theirs = psd_tools.PSDImage.open(path).image_resources.get_data(1039)
            ok &= check(icc == theirs == profile, "psd-tools profile bytes")
    return ok


def pillow_peer(lib, tmp):
    Image = lv.module("PIL.Image", "python3-pil")
    ok = True
    for mode in ("RGB", "L", "P"):
        for top_down in (False, True):
            path = os.path.join(tmp, f"pil_{mode}{int(top_down)}.bmp")
            Image.fromarray(photo(6, 10, 7)).convert(mode).save(path)
            if top_down:  # a negative height marks rows stored top first
                data = bytearray(open(path, "rb").read())
                h = int.from_bytes(data[22:26], "little", signed=True)
                data[22:26] = (-h).to_bytes(4, "little", signed=True)
                open(path, "wb").write(data)
            ok &= bmp_check(lib, path, f"Pillow {mode} {'top-down' if top_down else 'bottom-up'}")
    return ok


def icc_peer(lib, tmp):
    files = icc_files()
    lv.need(files, "icc-profiles-free is not installed")
    ok = True
    for path in files:
        data = open(path, "rb").read()
        buf = np.zeros(len(data) + 16, np.uint8)
        rc = lib.extract_profile(path.encode(), lv.ptr(buf))
        size = int.from_bytes(data[:4], "big")
        ok &= check(rc == size and buf[:size].tobytes() == data[:size],
                    f"{os.path.basename(path)}: {rc} bytes")
    return ok


def exr_peer(lib, tmp, lvhdr):
    cv2 = lv.module("cv2", "python3-opencv")
    lv.need(lvhdr, "lvhdr is not built")
    planar = planar_of(lib, scene(11, 17, 8), tmp)
    src = lv.to_float(planar)
    hdr = os.path.join(tmp, "src.hdr")
    lv.write(lib, hdr, planar)
    ok = True
    for half in (False, True):
        exr = os.path.join(tmp, f"ours{int(half)}.exr")
        subprocess.run([lvhdr, "convert", *(["--half"] if half else []), hdr, exr], check=True)
        got = cv2.imread(exr, cv2.IMREAD_UNCHANGED)
        ok &= check(got is not None, f"OpenCV opens our {'half' if half else 'float'} EXR")
        if got is None:
            continue
        got = got[..., ::-1]
        if half:
            ok &= lv.close(got, src, "OpenCV reads our half EXR", rel=1.0 / 1024)
        else:
            ok &= exact(got.copy(), src, "OpenCV reads our float EXR")
        if shutil.which("exrheader"):
            head = subprocess.run(["exrheader", exr], capture_output=True, text=True).stdout
            ok &= check("zip" in head, "exrheader: ZIP compression")
    theirs = os.path.join(tmp, "cv.exr")
    cv2.imwrite(theirs, np.ascontiguousarray(src[..., ::-1]))
    back = os.path.join(tmp, "back.hdr")
    subprocess.run([lvhdr, "convert", theirs, back], check=True)
    return ok & exact(lv.to_float(lv.read(lib, back)), src, "we read OpenCV's EXR")


def main():
    lib = load(sys.argv[1])
    tmp = sys.argv[2]
    os.makedirs(tmp, exist_ok=True)
    os.environ["OPENCV_IO_ENABLE_OPENEXR"] = "1"
    peer = sys.argv[3]
    peers = {"tifffile": tifffile_peer, "opencv": opencv_peer, "tiffdump": tiffdump_peer,
             "imagemagick": imagemagick_peer, "psdtools": psdtools_peer,
             "pillow": pillow_peer, "icc": icc_peer, "exr": exr_peer}
    lvhdr = sys.argv[4] if len(sys.argv) > 4 and os.path.exists(sys.argv[4]) else None
    ok = peers[peer](lib, tmp, lvhdr) if peer in ("tifffile", "exr") else peers[peer](lib, tmp)
    print("ok" if ok else "FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
