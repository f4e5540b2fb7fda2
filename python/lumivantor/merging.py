"""Merging a bracket of 8- or 16-bit exposures into one HDR image."""
import ctypes
import os

import numpy as np

from . import _core as c
from . import files


def _decode(path):
    """Decodes an 8- or 16-bit photograph file to an (H, W, 3) RGB array."""
    try:
        import cv2  # the library reads HDR files only; photographs come from a codec
    except ImportError as exc:
        raise c.LumivantorError(f"merge({os.fspath(path)!r})", -1,
                                "decoding photographs needs the python3-opencv package") from exc
    # Colour at the file's depth, turned upright as its EXIF orientation says.
    img = cv2.imread(os.fspath(path), cv2.IMREAD_COLOR | cv2.IMREAD_ANYDEPTH)
    if img is None:
        raise c.LumivantorError(f"merge({os.fspath(path)!r})", -1, "cannot decode the file")
    return np.ascontiguousarray(img[:, :, ::-1])  # BGR to RGB


def bracket(images):
    """Stacks a bracket into the one (N, H, W, 3) buffer the library reads.

    images: a contiguous (N, H, W, 3) uint8/uint16 array (used as it is), or a list of
    (H, W, 3) arrays of one size and dtype, or of photograph paths (copied once into the
    stack). Raises TypeError/ValueError for anything else."""
    if isinstance(images, np.ndarray) and images.ndim == 4:
        c.check_image("bracket", images[0], (np.uint8, np.uint16))
        if not images.flags["C_CONTIGUOUS"]:
            raise ValueError("bracket: the array is not C-contiguous; pass np.ascontiguousarray(...)")
        return images
    items = [_decode(i) if isinstance(i, (str, bytes, os.PathLike)) else i for i in images]
    if not items:
        raise ValueError("bracket: no images")
    for k, img in enumerate(items):
        c.check_image(f"bracket image {k}", img, (np.uint8, np.uint16))
        if img.shape != items[0].shape or img.dtype != items[0].dtype:
            raise ValueError(f"bracket image {k}: {img.shape} {img.dtype} differs from image 0's "
                             f"{items[0].shape} {items[0].dtype}")
    return np.stack(items)


def guess_exposures(images):
    """Exposure factors of a bracket worked out from the images' brightness: a float32
    array, one factor per image, larger for brighter images (only ratios matter)."""
    stack = bracket(images)
    n, h, w, _ = stack.shape
    bits = 8 * stack.itemsize
    measure = np.zeros(n, np.int32)
    c.mediane_images(n, w, h, 3 * w, 3, bits, stack.ctypes.data_as(c.c_void_p),
                     c.ptr(measure, c.c_int32))
    exposures = np.zeros(n, np.float32)
    c.check("guess_exposures", c.guess_ev(0, n, c.ptr(measure, c.c_int32),
                                          c.ptr(exposures, c.c_float), 0.0))
    return exposures


def exposures_from_settings(times, f_numbers=None, isos=None):
    """Exposure factors from exposure times (seconds) and optional f-numbers and ISO
    speeds, through the library's exposure arithmetic."""
    n = len(times)
    records = np.zeros((n, 7), np.float32)
    for i, t in enumerate(times):
        f = f_numbers[i] if f_numbers is not None else 1.0
        # Rationals as a camera writes them: 1/n for short times, n/1 for long ones.
        num, den = (1, round(1 / t)) if t < 1 else (round(t), 1)
        records[i] = (num, den, round(f * 10), 10, 0, isos[i] if isos is not None else 100, 0)
    c.get_ev(n, c.ptr(records, c.c_float))
    return records[:, 0].copy()


def _exposure_choice(operation, n, exposures, times, ev_step):
    """The step argument and exposure array of a merge or ghost detection: a step above
    -0.5 asks the library to derive the factors (an even bracket when positive)."""
    if sum(x is not None for x in (exposures, times, ev_step)) > 1:
        raise ValueError(f"{operation}: exposures, times and ev_step exclude each other")
    factors = np.ones(n, np.float32)
    if ev_step is not None:
        if not 0.1 <= ev_step <= 8:
            raise ValueError(f"{operation}: ev_step {ev_step} is outside 0.1..8 stops")
        return float(ev_step), factors
    if exposures is not None or times is not None:
        # Same aperture and ISO: an exposure time is the image's exposure factor.
        values = np.asarray(exposures if exposures is not None else times, np.float32)
        if values.shape != (n,) or not np.all(values > 0):
            raise ValueError(f"{operation}: need {n} positive exposures, got {values.tolist()}")
        factors[:] = values
        return -1.0, factors
    return (0.0 if n >= 2 else -1.0), factors  # from the images' brightness


def merge_rgbe(images, exposures=None, times=None, ev_step=None, progress=None):
    """merge() without the expansion: returns (rgbe, width, height, exposures, stats),
    rgbe being the planar RGBE rows and stats the minimum, maximum and mean luminance."""
    stack = bracket(images)
    n, h, w, _ = stack.shape
    bits = 8 * stack.itemsize
    step, factors = _exposure_choice("merge", n, exposures, times, ev_step)
    curve = np.zeros(1 << bits, np.float32)
    stats = np.zeros(3, np.float32)
    out = np.zeros(4 * w * h, np.uint8)
    prog = c.Progress("merge", progress)
    rc = c.lv_hdr_merge(prog.c_callback, 0, n, w, h, 3, bits, 0, step, c.ptr(curve, c.c_float),
                        c.ptr(factors, c.c_float), stack.ctypes.data_as(c.c_void_p),
                        c.ptr(stats, c.c_float), c.ptr(out))
    c.check("merge", rc)
    prog.finish()
    return out, w, h, factors, stats


def merge(images, exposures=None, times=None, ev_step=None, progress=None):
    """Merges a bracket into an (H, W, 3) float32 HDR image.

    images: a list of (H, W, 3) uint8 or uint16 arrays (or photograph paths, whose EXIF
    exposures are not read: pass times=), or one (N, H, W, 3) array. The exposures come from at most one of: exposures (linear factors),
    times (seconds, same aperture and ISO), ev_step (an even bracket of that many stops,
    brightest last order found from the images); with none they are worked out from the
    images' brightness. progress: called with 0..1, return True to cancel (raises
    Cancelled). Safe to call from several threads on different brackets."""
    rgbe, w, h, _, _ = merge_rgbe(images, exposures, times, ev_step, progress)
    return files.float_from_rgbe(rgbe, w, h)


def ghost_mask(images, exposures=None, times=None, ev_step=None, sensitivity=60):
    """Finds moving content in a bracket: a bool (H, W) array, True where something moved.

    images and the exposure arguments as for merge(); sensitivity is truncated to an
    integer, and larger values find fewer ghosts. Calls on different brackets may run on
    several threads."""
    stack = bracket(images)
    n, h, w, _ = stack.shape
    step, factors = _exposure_choice("ghost_mask", n, exposures, times, ev_step)
    bits = np.zeros((w * h + 7) // 8, np.uint8)
    level = c.c_float(sensitivity)
    c.check("ghost_mask", c.lv_ghost_detect(
        ctypes.byref(level), n, w, h, 3, 8 * stack.itemsize, 0, c.ptr(factors, c.c_float),
        stack.ctypes.data_as(c.c_void_p), c.ptr(bits), step))
    # One bit a pixel, row-major, most significant bit first.
    return np.unpackbits(bits)[: w * h].reshape(h, w).astype(bool)
