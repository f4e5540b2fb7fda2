"""Tone mapping an HDR image to an 8- or 16-bit picture: the gradient-domain enhancer
("enhancer"), the global operator ("simple") and the contrast optimizer ("optimizer")."""
import ctypes

import numpy as np

from . import _core as c
from . import files

TMPARAM_COUNT = 60

# Sliders of each operator: readable name -> (index in the parameter block, lowest,
# highest, default). Every slider is written, so a call with no sliders renders exactly
# as lvhdr does at its defaults.
SLIDERS = {
    # The enhancer keeps its block's own default where the default here is None.
    "enhancer": {
        "strength": (0, 0, 100, None),
        "detail": (6, 0, 20, None),
        "attenuation": (7, 0, 20, None),
        "saturation": (2, 0, 100, None),
        "white_clip": (3, 0, 10, None),
        "black_clip": (4, 0, 10, None),
        "shadow_clip": (11, 0, 100, None),
        "gamma": (8, -10, 10, 50.0),  # 50 leaves the tone curve alone
        "temperature": (12, -10, 10, 0.0),
    },
    "simple": {
        "brightness": (0, -10, 10, 0.0),
        "compression": (1, -10, 10, 0.0),
        "temperature": (12, -10, 10, 0.0),
        "saturation": (13, -10, 10, 0.0),
    },
    "optimizer": {
        "compression": (0, 0, 100, 50.0),
        "detail": (1, -5, 10, 0.0),
        "level_dependence": (2, 0, 100, 20.0),
        "white_clip": (3, 0, 10, 0.6),
        "black_clip": (4, 0, 10, 0.25),
        "gamma": (8, -10, 10, 0.0),
        "temperature": (12, -10, 10, 0.0),
        "saturation": (13, -10, 10, 0.0),
    },
}
# The method code of each operator's parameter block.
_METHOD_CODE = {"enhancer": 1, "simple": 2, "optimizer": 3}
# Sliders a re-finish may change: the optimizer's colour finish reads only these.
_COLOUR_SLIDERS = ("gamma", "temperature", "saturation")


def parameter_block(method, **sliders):
    """The method's parameter block (float32[60]) with the sliders set, each checked
    against its range; raises ValueError for an unknown slider or a value out of range."""
    if method not in SLIDERS:
        raise ValueError(f"tonemap: unknown method {method!r}; use one of {sorted(SLIDERS)}")
    return slider_block("tonemap", _METHOD_CODE[method], SLIDERS[method], sliders)


def slider_block(operation, code, table, sliders):
    """A parameter block of method code with every slider of table written: the given
    value (range-checked) or the slider's default."""
    p = np.zeros(TMPARAM_COUNT, np.float32)
    c.tmparam_default(code, 0, c.ptr(p, c.c_float))
    for name in sliders:
        if name not in table:
            raise ValueError(f"{operation}: no slider {name!r}; the sliders are {sorted(table)}")
    for name, (index, lo, hi, default) in table.items():
        if name in sliders:
            value = float(sliders[name])
            if not lo <= value <= hi:
                raise ValueError(f"{operation}: {name} = {value} is outside {lo}..{hi}")
            p[index] = value
        elif default is not None:
            p[index] = default
    return p


def _hdr_rgbe(hdr):
    """Planar RGBE of an HDR argument (a float32 (H, W, 3) image): the rows it keeps, or
    an encoding of its floats."""
    c.check_image("tonemap", hdr, (np.float32,))
    rgbe = files.kept_rgbe(hdr)
    if rgbe is None:
        rgbe = files.rgbe_from_float(hdr).reshape(-1)
    return rgbe, hdr.shape[1], hdr.shape[0]


def _dim(w, h, bits):
    """The DimParam of a w x h RGB picture of bits (8 or 16) a sample, rows packed."""
    if bits not in (8, 16):
        raise ValueError(f"tonemap: bits must be 8 or 16, not {bits}")
    dim = c.DimParam()
    c.init_dim_param(ctypes.byref(dim))
    dim.width, dim.height, dim.samplesPerPixel = w, h, 3
    dim.bpsOut, dim.strideOut = bits, 3 * w
    return dim


def _simple(hdr, bits, p, threads):
    """The global operator straight on the float image (interleaved float input): no
    RGBE copy is made."""
    h, w, _ = hdr.shape
    table = np.zeros(256, np.float32)
    c.exp_lut(c.ptr(table, c.c_float), -8)
    stats = np.zeros(6, np.float32)
    stats[0], stats[1] = 32, 3  # interleaved floats, three a pixel
    c.check("tonemap", c.logMinMaxMoy(w, h, c.ptr(table, c.c_float), c.ptr(hdr),
                                      c.ptr(stats, c.c_float)))
    dim = _dim(w, h, bits)
    dim.inputFormat = 10
    out = np.zeros((h, w, 3), np.uint8 if bits == 8 else np.uint16)
    n = c.c_int(threads)
    c.check("tonemap", c.tm_simple(dim, c.ptr(p, c.c_float), None, c.ptr(stats, c.c_float),
                                   c.ptr(table, c.c_float), ctypes.byref(n), c.ptr(hdr),
                                   out.ctypes.data_as(c.u8p)))
    return out


class OptimizerRender:
    """What the contrast optimizer keeps between a render and its re-finishes: the
    parameter block, the 0..1 luminance map, the source RGBE and the memory block (all
    owned by numpy). One render serves one call at a time."""

    def __init__(self, rgbe, w, h, bits, p, threads):
        self.rgbe, self.width, self.height, self.bits, self.p = rgbe, w, h, bits, p
        self.dim = _dim(w, h, bits)
        self.dim.bpsIn = 32
        self.opt = c.OptimParam()
        c.init_optim_param(ctypes.byref(self.opt))
        self.opt.numThreads = threads
        work = c.c_int64(0)
        c.mem4contrast_optimizer(0, self.dim, ctypes.byref(work))
        # The image area (RGBE counts as three 32-bit samples a pixel), then the work space.
        self.memory = np.zeros(12 * w * h + work.value, np.uint8)
        self.map = np.zeros(c.pyram_len2(w, h), np.float32)

    def run(self, reuse_map, progress, keep=True):
        """Tone-maps (or, with reuse_map, only re-finishes) and returns the picture."""
        prog = c.Progress("tonemap", progress)
        c.check("tonemap", c.lv_tm_optimizer(
            self.dim, self.opt, prog.c_callback, c.ptr(self.p, c.c_float), None,
            1 if reuse_map else 0, c.ptr(self.map, c.c_float), c.ptr(self.rgbe),
            self.memory.size, c.ptr(self.memory)))
        prog.finish()
        return _picture(self.memory, self.width, self.height, self.bits)


class EnhancerRender:
    """What the enhancer keeps between a render and its re-finishes: the parameter block,
    the statistics, the source RGBE and the work buffer sized by mem4enhancer, which holds
    the solved plane (all owned by numpy). One render serves one call at a time."""

    def __init__(self, rgbe, w, h, bits, p, threads):
        self.rgbe, self.width, self.height, self.bits, self.p = rgbe, w, h, bits, p
        self.dim = _dim(w, h, bits)
        self.dim.strideIn = 3 * w  # the plan counts the output on strideIn
        self.opt = c.OptimParam()
        c.init_optim_param(ctypes.byref(self.opt))
        self.opt.numThreads = threads
        self.table = np.zeros(256, np.float32)
        c.exp_lut(c.ptr(self.table, c.c_float), -8)
        self.stats = np.zeros(7, np.float32)
        total = ctypes.c_size_t(0)
        c.mem4enhancer(0, c.ptr(p, c.c_float), None, ctypes.byref(total), self.dim)
        self.memory = np.empty(total.value, np.uint8)

    def run(self, reuse_map, progress, keep=True):
        """Tone-maps, keeping the plane when keep, or re-finishes from it with reuse_map;
        returns the picture."""
        prog = c.Progress("tonemap", progress)
        if keep or reuse_map:  # keep the solved plane, or re-finish from it
            self.p[19] = 1.0 if reuse_map else 2.0
        c.check("tonemap", c.lv_tm_enhancer(
            0, c.ptr(self.p, c.c_float), None, c.ptr(self.stats, c.c_float),
            c.ptr(self.table, c.c_float), None, self.dim, self.opt, prog.c_callback,
            c.ptr(self.rgbe), c.ptr(self.memory)))
        prog.finish()
        return _picture(self.memory, self.width, self.height, self.bits)


def _picture(memory, w, h, bits):
    """A copy of the (H, W, 3) picture a tone mapper left at the start of its memory."""
    dtype = np.uint8 if bits == 8 else np.uint16
    n = 3 * w * h * np.dtype(dtype).itemsize
    return memory[:n].view(dtype).reshape(h, w, 3).copy()


def tonemap(hdr, method="enhancer", bits=8, progress=None, threads=None, keep=False, **sliders):
    """Tone-maps an (H, W, 3) float32 HDR image to an (H, W, 3) uint8 or uint16 picture.

    method: "enhancer" (the gradient-domain enhancer; sliders strength 0..100, detail and
    attenuation 0..20, saturation 0..100, white_clip and black_clip 0..10 %, shadow_clip
    0..100, gamma and temperature -10..10), "simple" (the global photoreceptor operator; sliders brightness, compression,
    saturation, temperature, each -10..10) or "optimizer" (the local contrast optimizer;
    sliders compression 0..100, detail -5..10, level_dependence 0..100, white_clip and
    black_clip 0..10 %, gamma, saturation, temperature -10..10); see SLIDERS. bits: 8 or
    16. progress: called with 0..1 by the optimizer, return True to cancel (raises
    Cancelled). threads: worker threads (default one a processor; the bytes are the same
    for any count). keep=True with the enhancer or optimizer returns (picture, render) for
    refinish().
    Independent calls may run on several threads."""
    p = parameter_block(method, **sliders)
    c.check_image("tonemap", hdr, (np.float32,))
    threads = threads or c.default_threads()
    if method == "simple":
        if keep:
            raise ValueError("tonemap: keep=True is for the optimizer")
        picture = _simple(hdr, bits, p, threads)
        if progress and progress(1.0):
            raise c.Cancelled("tonemap")
        return picture
    rgbe, w, h = _hdr_rgbe(hdr)
    kind = OptimizerRender if method == "optimizer" else EnhancerRender
    render = kind(rgbe, w, h, bits, p, threads)
    picture = render.run(False, progress, keep)
    return (picture, render) if keep else picture


def refinish(render, progress=None, **sliders):
    """Re-renders an enhancer or optimizer result after a change of colour sliders only
    (gamma, saturation, temperature) from its kept luminance plane or map, without tone
    mapping again. render: the second value of tonemap(..., keep=True)."""
    if not isinstance(render, (OptimizerRender, EnhancerRender)):
        raise TypeError("refinish: pass the render from tonemap(..., keep=True)")
    for name in sliders:
        if name not in _COLOUR_SLIDERS:
            raise ValueError(f"refinish: {name!r} is not a colour slider {_COLOUR_SLIDERS}")
    method = "optimizer" if isinstance(render, OptimizerRender) else "enhancer"
    table = SLIDERS[method]
    # Only the colour sliders change: the block keeps the values the tone map wrote into
    # it, which the finish reads.
    fresh = parameter_block(method, **sliders)
    for name in sliders:
        render.p[table[name][0]] = fresh[table[name][0]]
    return render.run(True, progress)
