"""ctypes bindings of the Radiance and merge entry points, for the scripted tests."""
import ctypes
import importlib
import sys

SKIP = 77  # CTest SKIP_RETURN_CODE of the scripted tests


def need(ok, message):
    if not ok:
        print("SKIP:", message)
        sys.exit(SKIP)


def module(name, package):
    """The module, or a skip naming the Debian package that carries it."""
    try:
        return importlib.import_module(name)
    except ImportError:
        need(False, f"{package} is not installed")


np = module("numpy", "python3-numpy")


def load(path):
    lib = ctypes.CDLL(path)
    p, i, f, s = ctypes.c_void_p, ctypes.c_int, ctypes.c_float, ctypes.c_char_p
    lib.lv_hdr_merge.argtypes = [p, i, i, i, i, i, i, i, f, p, p, p, p, p]
    lib.lv_io_rgbe_write.argtypes = [s, i, i, p, i, s, p]
    lib.lv_io_read_rgbe.argtypes = [i, i, s, p]
    lib.rgbe_dim.argtypes = [s, p, p]
    lib.get_ev.argtypes = [i, p]
    return lib


def ptr(a):
    return a.ctypes.data_as(ctypes.c_void_p)


def read(lib, path):
    """Planar RGBE bytes of a .hdr file, shape (height, 4, width); raises on a failure code."""
    prim, info = np.zeros(8, np.float32), np.zeros(12, np.int32)
    rc = lib.rgbe_dim(path.encode(), ptr(prim), ptr(info))
    w, h = int(info[0]), int(info[1])
    px = np.zeros((h, 4, w), np.uint8)
    if rc < 0 or lib.lv_io_read_rgbe(w, h, path.encode(), ptr(px)) != h:
        raise RuntimeError(f"reading {path} failed (rgbe_dim gave {rc})")
    return px


def write(lib, path, planar):
    h, _, w = planar.shape
    planar = np.ascontiguousarray(planar, np.uint8)
    if lib.lv_io_rgbe_write(path.encode(), w, h, None, 0, None, ptr(planar)) != h:
        raise RuntimeError(f"lv_io_rgbe_write {path} failed")


def to_float(planar):
    """RGB floats (height, width, 3) of planar RGBE, mantissa * 2^(e - 136)."""
    e = planar[:, 3, :].astype(np.int32)
    scale = np.where(e == 0, 0.0, np.ldexp(1.0, e - 136)).astype(np.float32)
    return (planar[:, :3, :].transpose(0, 2, 1) * scale[..., None]).astype(np.float32)


def close(a, b, what, rel=1.0 / 128):
    """True when the pixels agree within RGBE precision of each pixel's largest component."""
    scale = np.maximum(np.maximum(a.max(axis=-1), b.max(axis=-1)), 1e-30)[..., None]
    worst = float((np.abs(a - b) / scale).max()) if a.size else 0.0
    print(f"{what}: worst error {worst:.5f} of the pixel's largest component")
    return worst <= rel
