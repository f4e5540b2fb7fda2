"""Loading of the shared library, its records, errors, array checks and progress.

Everything here is shared by the families' modules; nothing here is public API except
`LumivantorError`, `Cancelled` and `library_path`.
"""
import ctypes
import os
import threading

import numpy as np

_LIB_NAME = "liblumivantor.so"


def _candidates():
    """Places to look for the library, most specific first."""
    env = os.environ.get("LUMIVANTOR_LIBRARY")
    if env:
        yield env
    try:  # written by the install: where the library went
        from . import _paths

        yield _paths.LIBRARY
    except ImportError:
        pass
    here = os.path.dirname(os.path.abspath(__file__))
    # Source tree: python/lumivantor beside build/ and the other build trees.
    root = os.path.dirname(os.path.dirname(here))
    for build in ("build", "build-release", "build-san"):
        yield os.path.join(root, build, _LIB_NAME)
    yield _LIB_NAME  # the loader's own search path


def _load():
    """Loads the first library that opens; ImportError naming each failure otherwise."""
    errors = []
    for path in _candidates():
        if os.sep in path and not os.path.exists(path):
            continue
        try:
            return ctypes.CDLL(path), path
        except OSError as exc:
            errors.append(f"{path}: {exc}")
    raise ImportError("lumivantor: cannot load the shared library " + _LIB_NAME
                      + ("; " + "; ".join(errors) if errors else ""))


lib, library_path = _load()

c_int, c_float, c_char_p, c_void_p = ctypes.c_int, ctypes.c_float, ctypes.c_char_p, ctypes.c_void_p
c_int32, c_int64 = ctypes.c_int32, ctypes.c_int64
P = ctypes.POINTER


class DimParam(ctypes.Structure):
    """How pixels lie in the caller's buffers."""
    _fields_ = [(n, c_int32) for n in (
        "width", "height", "samplesPerPixel", "bpsIn", "bpsOut", "strideIn", "strideOut",
        "swapRedBlue", "outputLayout", "inputFormat")]


class OptimParam(ctypes.Structure):
    """Run options of a job: threads, low-memory mode and its temporary files."""
    _fields_ = [("numThreads", c_int32), ("lowMemory", c_int32), ("pyramidMode", c_int32),
                ("reserved", c_int32), ("sourceFile", c_char_p)] + [
                (f"tempPath{i}", c_char_p) for i in range(6)]


class ImageFileInfo(ctypes.Structure):
    """The twelve slots the file inspectors fill."""
    _fields_ = [("width", c_int32), ("height", c_int32)] + [
        (f"slot{i}", c_int32) for i in range(2, 6)] + [("profileLength", c_int32)] + [
        (f"slot{i}", c_int32) for i in range(7, 12)]


class MetadataBuf(ctypes.Structure):
    """Capture metadata in the rational form the Radiance writer takes."""
    _fields_ = [(n, c_int32) for n in (
        "shutterNum", "shutterDen", "apertureNum", "apertureDen", "unused4", "iso",
        "descriptionKind", "colorProfile", "unused8", "unused9", "focalNum", "focalDen",
        "focal35mm", "focalPlaneXResNum", "focalPlaneXResDen", "focalPlaneResUnit")] + [
        ("extraWords", c_int32 * 5), ("extraFlags", c_int32 * 2), ("camera", ctypes.c_char * 64),
        ("captureDate", ctypes.c_char * 20)]


ProgressCallback = ctypes.CFUNCTYPE(None, P(c_int), c_float)
u8p = P(ctypes.c_ubyte)
f32p = P(c_float)
i32p = P(c_int32)


def _proto(name, restype, *argtypes):
    """The library's function name with its C result and argument types set."""
    fn = getattr(lib, name)
    fn.restype = restype
    fn.argtypes = list(argtypes)
    return fn


# Every entry point the binding calls, with its C signature.
rgbe_dim = _proto("rgbe_dim", c_int, c_char_p, f32p, P(ImageFileInfo))
extract_rgbe_exif = _proto("extract_rgbe_exif", c_int, c_char_p, P(MetadataBuf))
lv_io_read_rgbe = _proto("lv_io_read_rgbe", c_int, c_int, c_int, c_char_p, u8p)
lv_io_rgbe_write = _proto("lv_io_rgbe_write", c_int, c_char_p, c_int, c_int, P(MetadataBuf),
                          c_int, c_char_p, u8p)
getTiffInfo = _proto("getTiffInfo", c_int, c_char_p, P(ImageFileInfo))
fp2rgbe = _proto("fp2rgbe", c_int, c_char_p, P(ImageFileInfo), f32p, f32p, f32p, u8p)
rgbe2fp = _proto("rgbe2fp", c_int, c_int, c_int, c_int, c_int, c_int, u8p, c_void_p, c_float)
fp_save = _proto("fp_save", c_int, c_char_p, c_int, c_int, c_int, u8p)
getPsdInfo = _proto("getPsdInfo", c_int, c_char_p, P(ImageFileInfo))
load_psd = _proto("load_psd", c_int, c_int, c_char_p, P(ImageFileInfo), c_int, c_void_p)
lvbmp_dim = _proto("lvbmp_dim", c_int, c_char_p, P(ImageFileInfo))
get_ev = _proto("get_ev", c_int, c_int, f32p)
mediane_images = _proto("mediane_images", c_int, c_int, c_int, c_int, c_int, c_int, c_int,
                        c_void_p, i32p)
guess_ev = _proto("guess_ev", c_int, c_int, c_int, i32p, f32p, c_float)
lv_hdr_merge = _proto("lv_hdr_merge", c_int, ProgressCallback, c_int, c_int, c_int, c_int,
                      c_int, c_int, c_int, c_float, f32p, f32p, c_void_p, f32p, u8p)
lv_ghost_detect = _proto("lv_ghost_detect", c_int, f32p, c_int, c_int, c_int, c_int, c_int, c_int,
                          f32p, c_void_p, u8p, c_float)
init_dim_param = _proto("init_dim_param", None, P(DimParam))
init_optim_param = _proto("init_optim_param", None, P(OptimParam))
exp_lut = _proto("exp_lut", c_int, f32p, c_int)
logMinMaxMoy = _proto("logMinMaxMoy", c_int, c_int, c_int, f32p, u8p, f32p)
tmparam_default = _proto("tmparam_default", c_int, c_int, c_int, f32p)
tm_simple = _proto("tm_simple", c_int, DimParam, f32p, u8p, f32p, f32p, P(c_int), u8p, u8p)
mem4contrast_optimizer = _proto("mem4contrast_optimizer", c_int, c_int, DimParam, P(c_int64))
lv_tm_optimizer = _proto("lv_tm_optimizer", c_int, DimParam, OptimParam, ProgressCallback, f32p,
                         u8p, c_int, f32p, u8p, c_int64, u8p)
mem4enhancer = _proto("mem4enhancer", c_int, c_int, f32p, P(ctypes.c_size_t), P(ctypes.c_size_t),
                      DimParam)
lv_tm_enhancer = _proto("lv_tm_enhancer", c_int, c_int, f32p, u8p, f32p, f32p, f32p, DimParam,
                        OptimParam, ProgressCallback, u8p, u8p)
pyram_len2 = _proto("pyram_len2", c_int64, c_int, c_int)

_MESSAGES = {
    -1: "bad argument, unusable input or a file that won't open",
    -2: "short read or write",
    -3: "operation not allowed for this input, or bad file structure",
    -4: "out of memory",
    -5: "the image is flat: no luminance range to map",
    -200: "the Radiance file's size differs from its header's",
    -201: "corrupt Radiance scanline (bad width)",
    -202: "corrupt Radiance scanline (bad run-length code)",
    -400: "no work buffer",
}


class LumivantorError(RuntimeError):
    """A library call failed: `code` is its return code, `operation` what was asked."""

    def __init__(self, operation, code, detail=None):
        self.operation = operation
        self.code = code
        text = detail or _MESSAGES.get(code, "failed")
        super().__init__(f"{operation}: {text} (code {code})")


class Cancelled(LumivantorError):
    """The progress callable asked to stop; the call's result was discarded."""

    def __init__(self, operation):
        super().__init__(operation, 0, "cancelled by the progress callable")


def check(operation, rc):
    """Returns rc, or raises LumivantorError when it is negative."""
    if rc < 0:
        raise LumivantorError(operation, rc)
    return rc


def ptr(array, ctype=ctypes.c_ubyte):
    """A ctypes pointer to a contiguous numpy array's first element (no copy)."""
    return array.ctypes.data_as(P(ctype))


def path_arg(path):
    """A file path as the bytes the library's C strings take."""
    return os.fsencode(os.fspath(path))


def check_image(name, image, dtypes, channels=(3,)):
    """Raises TypeError/ValueError unless image is a C-contiguous (H, W, C) array of an
    accepted dtype; returns it unchanged (never copied)."""
    if not isinstance(image, np.ndarray):
        raise TypeError(f"{name}: expected a numpy array, got {type(image).__name__}")
    if image.dtype not in [np.dtype(d) for d in dtypes]:
        accepted = " or ".join(np.dtype(d).name for d in dtypes)
        raise TypeError(f"{name}: dtype {image.dtype} is not {accepted}")
    if image.ndim != 3 or image.shape[2] not in channels:
        want = " or ".join(f"(H, W, {c})" for c in channels)
        raise ValueError(f"{name}: shape {image.shape} is not {want}")
    if image.shape[0] < 1 or image.shape[1] < 1:
        raise ValueError(f"{name}: empty image {image.shape}")
    if not image.flags["C_CONTIGUOUS"]:
        raise ValueError(f"{name}: the array is not C-contiguous; pass np.ascontiguousarray(...)")
    return image


class Progress:
    """Wraps a Python progress callable (value 0..1 -> True to cancel) as the library's
    callback. An exception raised by the callable cancels too, and is re-raised after the
    call returns. The library finishes the pass it is in; the binding then discards the
    result and raises `Cancelled`."""

    def __init__(self, operation, fn):
        self.operation = operation
        self.fn = fn
        self.cancelled = False
        self.error = None

        def callback(cancel, value):
            if self.cancelled:
                cancel[0] = 1
                return
            try:
                if fn(float(value)):
                    self.cancelled = True
            except BaseException as exc:  # noqa: B902 - kept and raised in finish()
                self.error = exc
                self.cancelled = True
            if self.cancelled:
                cancel[0] = 1

        # Kept on the object so the C pointer outlives the call.
        self.c_callback = ProgressCallback(callback) if fn else ProgressCallback()

    def finish(self):
        """Reports the end (1.0) and raises if the callable cancelled or failed."""
        if self.fn and not self.cancelled:
            try:
                if self.fn(1.0):
                    self.cancelled = True
            except BaseException as exc:  # noqa: B902
                self.error = exc
                self.cancelled = True
        if self.error is not None:
            raise self.error
        if self.cancelled:
            raise Cancelled(self.operation)


def default_threads():
    """Worker threads for the banded passes: one per processor."""
    return max(1, os.cpu_count() or 1)


# The float TIFF reader keeps the byte order of the file it opened last in a file-level
# value, so two reads at once could mix them up: every TIFF read holds this lock.
tiff_lock = threading.Lock()
