"""ctypes bindings of the Radiance and merge entry points, for the scripted tests."""
import ctypes
import sys

SKIP = 77  # CTest SKIP_RETURN_CODE of the scripted tests

try:
    import numpy as np
except ImportError:
    print("SKIP: python3-numpy is not installed")
    sys.exit(SKIP)


def load(path):
    lib = ctypes.CDLL(path)
    p, i, f = ctypes.c_void_p, ctypes.c_int, ctypes.c_float
    lib.lv_hdr_merge.argtypes = [p, i, i, i, i, i, i, i, f, p, p, p, p, p]
    lib.lv_io_rgbe_write.argtypes = [ctypes.c_char_p, i, i, p, i, ctypes.c_char_p, p]
    lib.lv_io_read_rgbe.argtypes = [i, i, ctypes.c_char_p, p]
    lib.rgbe_dim.argtypes = [ctypes.c_char_p, p, p]
    lib.get_ev.argtypes = [i, p]
    return lib


def ptr(a):
    return a.ctypes.data_as(ctypes.c_void_p)


def dims(lib, path):
    """(width, height) of a .hdr file, or raises."""
    prim = np.zeros(8, np.float32)
    info = np.zeros(12, np.int32)
    rc = lib.rgbe_dim(path.encode(), ptr(prim), ptr(info))
    if rc < 0:
        raise RuntimeError(f"rgbe_dim {path}: {rc}")
    return int(info[0]), int(info[1])


def read(lib, path):
    """Planar RGBE bytes of a .hdr file, shape (height, 4, width)."""
    w, h = dims(lib, path)
    px = np.zeros((h, 4, w), np.uint8)
    rc = lib.lv_io_read_rgbe(w, h, path.encode(), ptr(px))
    if rc != h:
        raise RuntimeError(f"lv_io_read_rgbe {path}: {rc}")
    return px


def write(lib, path, planar):
    h, _, w = planar.shape
    planar = np.ascontiguousarray(planar, np.uint8)
    rc = lib.lv_io_rgbe_write(path.encode(), w, h, None, 0, None,
                              ptr(planar))
    if rc != h:
        raise RuntimeError(f"lv_io_rgbe_write {path}: {rc}")


def to_float(planar):
    """RGB floats (height, width, 3) of planar RGBE, mantissa * 2^(e - 136)."""
    e = planar[:, 3, :].astype(np.int32)
    scale = np.where(e == 0, 0.0, np.ldexp(1.0, e - 136)).astype(np.float32)
    return np.stack([planar[:, c, :] * scale for c in range(3)], axis=-1).astype(np.float32)


def from_float(rgb):
    """Planar RGBE of RGB floats, the usual frexp construction."""
    m = rgb.max(axis=-1)
    frac, e = np.frexp(m)
    f = np.where(m > 1e-32, frac * 256.0 / np.where(m > 0, m, 1), 0).astype(np.float32)
    h, w, _ = rgb.shape
    out = np.zeros((h, 4, w), np.uint8)
    for c in range(3):
        out[:, c, :] = np.clip(np.trunc(rgb[..., c] * f), 0, 255)
    out[:, 3, :] = np.where(m > 1e-32, e + 128, 0)
    return out


def close(a, b, what, rel=1.0 / 128):
    """True when the pixels agree within RGBE precision of each pixel's largest component."""
    scale = np.maximum(np.maximum(a.max(axis=-1), b.max(axis=-1)), 1e-30)[..., None]
    err = np.abs(a - b) / scale
    worst = float(err.max()) if err.size else 0.0
    print(f"{what}: worst error {worst:.5f} of the pixel's largest component")
    return worst <= rel


def need(module_or_tool_ok, message):
    if not module_or_tool_ok:
        print("SKIP:", message)
        sys.exit(SKIP)
