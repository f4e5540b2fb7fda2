"""HDR and float image files: Radiance .hdr, 32-bit float TIFF, PSD composites.

HDR images travel as C-contiguous (H, W, 3) float32 arrays of linear radiance; inside the
library they are planar RGBE rows (per row: red mantissas, green, blue, then exponents).
"""
import ctypes
import os

import numpy as np

from . import _core as c


def rgbe_from_float(image):
    """Encodes an (H, W, 3) float32 image as planar RGBE rows, (H, 4, W) uint8.

    Each pixel's largest component m = f * 2^e (f in [0.5, 1)) sets the exponent byte
    e + 128, and each mantissa is the component times 2^(8 - e), truncated and kept
    within 0..255. Pixels whose largest component is not positive, or is below the
    format's range, are black (all zero). Images read from RGBE encode back to the same
    bytes."""
    img = c.check_image("rgbe_from_float", image, (np.float32,))
    h, w, _ = img.shape
    m = img.max(axis=2)
    _, e = np.frexp(m)
    e = e.astype(np.int32)
    ok = (m > 0) & np.isfinite(m) & (e > -128)
    e = np.clip(e, -127, 127)
    scale = np.ldexp(np.float32(1.0), 8 - e).astype(np.float32)
    with np.errstate(invalid="ignore", over="ignore"):
        mant = img * scale[:, :, None]
    mant = np.where(mant >= 1.0, np.minimum(mant, 255.0), 0.0)
    out = np.empty((h, 4, w), np.uint8)
    out[:, 0:3, :] = np.where(ok[:, :, None], mant, 0).astype(np.uint8).transpose(0, 2, 1)
    out[:, 3, :] = np.where(ok, e + 128, 0).astype(np.uint8)
    return out


class HdrImage(np.ndarray):
    """An (H, W, 3) float32 HDR image that keeps the planar RGBE rows it was expanded
    from, so the tone mappers that read RGBE take them as they are instead of encoding
    the floats again. It is read-only, so the two can't drift apart: hdr.copy() (or any
    arithmetic on it) gives an ordinary writable array without the kept rows."""

    def __array_finalize__(self, obj):
        self.rgbe = None  # views, copies and results don't carry the rows


def kept_rgbe(image):
    """The RGBE rows an HdrImage keeps (flat uint8), or None."""
    rgbe = getattr(image, "rgbe", None)
    return rgbe if rgbe is not None and not image.flags["WRITEABLE"] else None


def float_from_rgbe(rgbe, width, height):
    """Expands planar RGBE rows (4 * width * height bytes) to an (H, W, 3) float32
    HdrImage through the library's expansion (mantissa * 2^(E - 136), E = 0 black)."""
    out = np.empty((height, width, 3), np.float32)
    c.check("rgbe2fp", c.rgbe2fp(width, height, 3 * width, 0, 0, c.ptr(rgbe),
                                 out.ctypes.data_as(c.c_void_p), 1.0))
    out = out.view(HdrImage)
    out.rgbe = rgbe.reshape(-1)
    out.flags.writeable = False
    return out


def _rgbe_buffer(width, height):
    """A cleared planar RGBE buffer for width x height, refusing empty sizes."""
    if width < 1 or height < 1:
        raise c.LumivantorError("read", -3, f"bad image size {width}x{height}")
    return np.zeros(4 * width * height, np.uint8)


def read_hdr_rgbe(path):
    """Reads a Radiance .hdr file as planar RGBE bytes; returns (rgbe, width, height)."""
    info = c.ImageFileInfo()
    primaries = (c.c_float * 8)()
    lines = c.rgbe_dim(c.path_arg(path), primaries, ctypes.byref(info))
    if lines < 0 or info.width < 1 or info.height < 1:
        raise c.LumivantorError(f"read_hdr({os.fspath(path)!r})", lines if lines < 0 else -3,
                                "cannot open" if lines == -1 else "not a readable Radiance header")
    rgbe = _rgbe_buffer(info.width, info.height)
    c.check(f"read_hdr({os.fspath(path)!r})",
            c.lv_io_read_rgbe(info.width, info.height, c.path_arg(path), c.ptr(rgbe)))
    return rgbe, info.width, info.height


def read_hdr(path):
    """Reads a Radiance .hdr file into an (H, W, 3) float32 array of linear radiance.

    Raises LumivantorError for a missing, truncated or corrupt file."""
    rgbe, w, h = read_hdr_rgbe(path)
    return float_from_rgbe(rgbe, w, h)


def metadata(path):
    """Capture metadata of a .hdr file's header as a dict (exposure time in seconds,
    f-number, ISO, camera, date); missing values are None."""
    meta = c.MetadataBuf()
    if c.extract_rgbe_exif(c.path_arg(path), ctypes.byref(meta)) < 0:
        raise c.LumivantorError(f"metadata({os.fspath(path)!r})", -1)
    return _meta_dict(meta)


def _meta_dict(meta):
    """metadata()'s dict from a MetadataBuf."""
    def ratio(n, d):
        return n / d if n > 0 and d > 0 else None

    return {
        "exposure_time": ratio(meta.shutterNum, meta.shutterDen),
        "f_number": ratio(meta.apertureNum, meta.apertureDen),
        "iso": meta.iso or None,
        "focal_length": ratio(meta.focalNum, meta.focalDen),
        "camera": meta.camera.decode("latin-1") or None,
        "date": meta.captureDate.decode("latin-1") or None,
    }


def _meta_buf(md):
    """A MetadataBuf from a dict like metadata()'s (keys optional)."""
    meta = c.MetadataBuf()
    meta.colorProfile = -1
    if not md:
        return meta
    t = md.get("exposure_time")
    if t:
        # Whole seconds as n/1, short times as 1/n: the forms a camera writes.
        if t >= 1:
            meta.shutterNum, meta.shutterDen = int(round(t)), 1
        else:
            meta.shutterNum, meta.shutterDen = 1, int(round(1 / t))
    f = md.get("f_number")
    if f:
        meta.apertureNum, meta.apertureDen = int(round(f * 10)), 10
    meta.iso = int(md.get("iso") or 0)
    fl = md.get("focal_length")
    if fl:
        meta.focalNum, meta.focalDen = int(round(fl * 10)), 10
    meta.camera = (md.get("camera") or "").encode("latin-1")[:63]
    meta.captureDate = (md.get("date") or "").encode("latin-1")[:19]
    return meta


def write_hdr_rgbe(path, rgbe, width, height, metadata=None):
    """Writes planar RGBE bytes as a run-length coded Radiance file."""
    meta = _meta_buf(metadata)
    c.check(f"write_hdr({os.fspath(path)!r})",
            c.lv_io_rgbe_write(c.path_arg(path), width, height, ctypes.byref(meta), 0, b"",
                               c.ptr(rgbe)))


def write_hdr(path, image, metadata=None):
    """Writes an (H, W, 3) float32 image as a Radiance .hdr file.

    metadata: None, or a dict with any of exposure_time, f_number, iso, focal_length,
    camera, date (as metadata() returns) recorded in the header."""
    rgbe = kept_rgbe(image)
    if rgbe is None:
        rgbe = rgbe_from_float(image)
    write_hdr_rgbe(path, rgbe, image.shape[1], image.shape[0], metadata)


def read_tiff(path):
    """Reads a one-strip 32-bit float RGB TIFF into an (H, W, 3) float32 array.

    Holds the TIFF lock: the reader keeps the open file's byte order in a file-level
    value, so TIFF reads from several threads run one at a time."""
    op = f"read_tiff({os.fspath(path)!r})"
    info = c.ImageFileInfo()
    with c.tiff_lock:
        rc = c.getTiffInfo(c.path_arg(path), ctypes.byref(info))
        if rc != 2:
            raise c.LumivantorError(op, rc if rc < 0 else -3, None if rc < 0 else
                                    "not a little-endian TIFF")
        rgbe = _rgbe_buffer(info.width, info.height)
        lo, hi, mean = c.c_float(), c.c_float(), c.c_float()
        c.check(op, c.fp2rgbe(c.path_arg(path), ctypes.byref(info), ctypes.byref(lo),
                              ctypes.byref(hi), ctypes.byref(mean), c.ptr(rgbe)))
    return float_from_rgbe(rgbe, info.width, info.height)


def write_tiff(path, image):
    """Writes an (H, W, 3) float32 image as a one-strip 32-bit float RGB TIFF (sides up
    to 65535). The samples pass through RGBE, so they keep 8 bits of mantissa."""
    rgbe = kept_rgbe(image)
    if rgbe is None:
        rgbe = rgbe_from_float(image)
    h, w, _ = image.shape
    c.check(f"write_tiff({os.fspath(path)!r})", c.fp_save(c.path_arg(path), w, h, 0, c.ptr(rgbe)))


def read_psd(path):
    """Reads a PSD's composite as an (H, W, 3) array: uint8 or uint16 for 8- and 16-bit
    documents, float32 for 32-bit ones."""
    op = f"read_psd({os.fspath(path)!r})"
    info = c.ImageFileInfo()
    c.check(op, c.getPsdInfo(c.path_arg(path), ctypes.byref(info)))
    w, h, depth = info.width, info.height, info.slot2
    if w < 1 or h < 1:
        raise c.LumivantorError(op, -3, f"bad image size {w}x{h}")
    if depth == 32:
        rgbe = _rgbe_buffer(w, h)
        c.check(op, c.load_psd(1, c.path_arg(path), ctypes.byref(info), 3 * w,
                               rgbe.ctypes.data_as(c.c_void_p)))
        return float_from_rgbe(rgbe, w, h)
    if depth not in (8, 16):
        raise c.LumivantorError(op, -1, f"{depth}-bit samples")
    out = np.zeros((h, w, 3), np.uint8 if depth == 8 else np.uint16)
    c.check(op, c.load_psd(1, c.path_arg(path), ctypes.byref(info), 3 * w,
                           out.ctypes.data_as(c.c_void_p)))
    return out


def info(path):
    """Describes an image file without reading its pixels: a dict with format ("hdr",
    "tiff", "psd" or "bmp"), width, height and what else the format's inspector gives."""
    p = c.path_arg(path)
    i = c.ImageFileInfo()
    if c.rgbe_dim(p, (c.c_float * 8)(), ctypes.byref(i)) >= 0 and i.width > 0:
        d = {"format": "hdr", "width": i.width, "height": i.height}
        d.update(metadata(path))
        return d
    i = c.ImageFileInfo()
    with c.tiff_lock:
        rc = c.getTiffInfo(p, ctypes.byref(i))
    if rc == 2:
        return {"format": "tiff", "width": i.width, "height": i.height, "bits": i.slot2}
    i = c.ImageFileInfo()
    if c.getPsdInfo(p, ctypes.byref(i)) >= 0:
        return {"format": "psd", "width": i.width, "height": i.height, "bits": i.slot2,
                "profile_length": i.profileLength}
    i = c.ImageFileInfo()
    if c.lvbmp_dim(p, ctypes.byref(i)) >= 0:
        return {"format": "bmp", "width": i.width, "height": i.height, "samples": i.slot2}
    if not os.path.exists(path):
        raise c.LumivantorError(f"info({os.fspath(path)!r})", -1, "no such file")
    raise c.LumivantorError(f"info({os.fspath(path)!r})", -3, "not an HDR, TIFF, PSD or BMP file")
