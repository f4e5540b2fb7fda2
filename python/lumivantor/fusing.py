"""Exposure fusion: a bracket straight to a finished picture, with no HDR image between."""
import ctypes

import numpy as np

from . import _core as c
from . import merging
from .tonemapping import slider_block

# Sliders of the fusion: name -> (index in the parameter block, lowest, highest, default).
FUSION_SLIDERS = {
    "sharpness": (0, -10, 10, 0.0),
    "prefer": (1, -10, 10, 0.0),  # darker (negative) or brighter photographs
    "cutoff": (2, 0, 10, 0.0),  # flat-topped exposure curve that cuts highlights
    "detail": (8, 0, 10, 2.0),
}
# Method code of each variant: the plain tower blend, and the blend followed by a local
# blend with a brightened copy of the darkest photograph.
_FUSION_CODE = {"plain": 10, "two-stage": 15}

c.mem4fusion = c._proto("mem4fusion", c.c_int, c.c_int, c.c_int, c.c_int, c.c_int,
                        ctypes.POINTER(ctypes.c_uint64), c.DimParam)
c.lv_fusion = c._proto("lv_fusion", c.c_int, c.ProgressCallback, c.f32p, c.c_void_p, c.c_int,
                       c.c_int, c.c_int, c.OptimParam, c.DimParam, c.c_int, c.c_void_p,
                       c.i32p, c.u8p, ctypes.c_size_t, c.c_void_p)


def fuse(images, method="plain", bits=8, progress=None, threads=2, **sliders):
    """Fuses a bracket into an (H, W, 3) uint8 or uint16 picture.

    images: as for merge (arrays or photograph paths, 8 or 16 bits, at least two). method:
    "plain" or "two-stage". Sliders: sharpness and prefer -10..10, cutoff 0..10, detail
    0..10 (see FUSION_SLIDERS). The fusion works in its input, so the bracket is copied
    once; the memory block is sized by mem4fusion and owned by numpy. progress: called
    with 0..1 by the two-stage method, return True to cancel (raises Cancelled).
    threads: worker threads (lvhdr fuse's default is 2; the bytes match it for any count).
    Calls on different brackets may run on several threads."""
    if method not in _FUSION_CODE:
        raise ValueError(f"fuse: unknown method {method!r}; use 'plain' or 'two-stage'")
    if bits not in (8, 16):
        raise ValueError(f"fuse: bits must be 8 or 16, not {bits}")
    p = slider_block("fuse", _FUSION_CODE[method], FUSION_SLIDERS, sliders)
    stack = merging.bracket(images)
    if stack.shape[0] < 2:
        raise ValueError("fuse: a bracket needs at least two photographs")
    work = stack.copy()  # overwritten by the fusion
    n, h, w, _ = stack.shape
    dim = c.DimParam()
    c.init_dim_param(ctypes.byref(dim))
    dim.width, dim.height, dim.bpsIn, dim.bpsOut, dim.strideOut = w, h, 8 * stack.itemsize, bits, 3 * w
    opt = c.OptimParam()
    c.init_optim_param(ctypes.byref(opt))
    opt.numThreads = threads
    block = ctypes.c_uint64(0)
    c.mem4fusion(2 if method == "two-stage" else 1, n, 16, 16, ctypes.byref(block), dim)
    # The image tower lies ahead of the sized block.
    lead = 2 * 3 * c.pyram_len2(w, h)
    memory = np.empty(lead + block.value, np.uint8)
    order = np.full(n, -1, np.int32)  # no selection
    prog = c.Progress("fuse", progress)
    rc = c.lv_fusion(prog.c_callback, c.ptr(p, c.c_float), None, n, 16, 16, opt, dim, 0,
                     work.ctypes.data_as(c.c_void_p), c.ptr(order, c.c_int32), None,
                     block.value, memory.ctypes.data_as(c.c_void_p))
    if rc == -1 and prog.cancelled:
        prog.finish()
    c.check("fuse", rc)
    prog.finish()
    dtype = np.uint8 if bits == 8 else np.uint16
    size = 3 * w * h * np.dtype(dtype).itemsize
    return memory[:size].view(dtype).reshape(h, w, 3).copy()
