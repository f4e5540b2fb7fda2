"""Finishing a rendered picture: exposure in L*a*b*, the shadow-keeping gamma of raw
conversions, levels, and sharpening."""
import ctypes
import math

import numpy as np

from . import _core as c

c.adjustImageLevels = c._proto(
    "adjustImageLevels", c.c_int, *([c.c_int] * 10), c.u8p, c.u8p, *([c.c_float] * 5))
c.adjustImageExposure_tile = c._proto(
    "adjustImageExposure_tile", None, *([c.c_int] * 10), c.f32p, c.u8p, c.u8p, ctypes.c_double)
c.enhanceRawConvertedImage = c._proto("enhanceRawConvertedImage", c.c_int, c.c_int, c.c_int,
                                      c.c_int, c.c_int, c.c_int, c.u8p, c.c_float)
c.post_adj = c._proto("post_adj", c.c_int, *([c.c_int] * 7), ctypes.POINTER(ctypes.c_uint16),
                      c.f32p, c.f32p, c.u8p, c.u8p)
c.rgb2Lab = c._proto("rgb2Lab", None, c.c_int, c.f32p, c.f32p, c.c_void_p, c.f32p)

# name -> (lowest, highest, neutral value)
FINISH_SLIDERS = {
    "exposure": (-4, 4, 0.0),  # stops, applied to L*
    "raw_gamma": (1, 3, 1.0),  # shadow-keeping gamma
    "black": (0, 100, 0.0),  # levels: black point, percent
    "white": (0, 100, 100.0),  # levels: white point, percent
    "gamma": (0.2, 5, 1.0),  # levels: input gamma
    "saturation": (0, 300, 100.0),  # levels: percent
    "sharpen": (0, 5, 0.0),  # unsharp mask strength on lightness
    "radius": (0.5, 20, 2.0),
    "threshold": (0, 255, 2.0),
}


def _lightness(level):
    """L* of a grey of the given 0..1 encoded level."""
    grey = np.full(3, level, np.float32)
    lab = np.zeros(3, np.float32)
    c.rgb2Lab(1, c.ptr(grey, c.c_float), None, None, c.ptr(lab, c.c_float))
    return float(lab[0])


def _exposure_factor(ev):
    """The L* factor that moves a mid-grey (18 % reflectance, 2.2 gamma) by ev stops, with
    highlights held at L* 100."""
    mid = math.pow(0.18, 1 / 2.2)
    target = min(mid * math.pow(2.0, ev / 2.2), 1.0)
    return _lightness(target) / _lightness(mid)


def finish(image, bits=None, threads=2, **sliders):
    """Finishes an (H, W, 3) uint8 or uint16 picture and returns a new one (the input is
    not changed): exposure, raw_gamma, levels (black, white, gamma, saturation), then
    sharpening (sharpen, radius, threshold); see FINISH_SLIDERS for ranges. bits: the
    output depth (default the input's; 16 to 8 is allowed, 8 to 16 is not). threads:
    worker threads (lvhdr finish's default is 2; sharpening depends on the count)."""
    c.check_image("finish", image, (np.uint8, np.uint16))
    for name in sliders:
        if name not in FINISH_SLIDERS:
            raise ValueError(f"finish: no slider {name!r}; the sliders are {sorted(FINISH_SLIDERS)}")
    s = {}
    for name, (lo, hi, neutral) in FINISH_SLIDERS.items():
        s[name] = float(sliders.get(name, neutral))
        if not lo <= s[name] <= hi:
            raise ValueError(f"finish: {name} = {s[name]} is outside {lo}..{hi}")
    if s["black"] > s["white"]:
        raise ValueError("finish: the black point lies above the white point")
    h, w, _ = image.shape
    bits_in = 8 * image.itemsize
    bits_out = bits_in if bits is None else bits
    if bits_out not in (8, 16) or bits_out > bits_in:
        raise ValueError(f"finish: {bits_in}-bit input can't give {bits_out}-bit output")
    im = image.copy()
    if s["exposure"] != 0:
        levels = 1 << bits_in
        table = (np.arange(levels, dtype=np.float32) / np.float32(levels - 1)).astype(np.float32)
        # Rows are independent, so one tile over the whole picture equals the banded run.
        c.adjustImageExposure_tile(0, h, w, bits_in, bits_in, 3, 3 * w, 3 * w, 0, 0,
                                   c.ptr(table, c.c_float), c.ptr(im), c.ptr(im),
                                   _exposure_factor(s["exposure"]))
    if s["raw_gamma"] != 1:
        c.check("finish", c.enhanceRawConvertedImage(threads, w, h, 3 * w, bits_in, c.ptr(im),
                                                     s["raw_gamma"]))
    if (s["black"], s["white"], s["gamma"], s["saturation"]) != (0, 100, 1, 100) or \
            bits_out != bits_in:
        out = np.empty((h, w, 3), np.uint8 if bits_out == 8 else np.uint16)
        c.check("finish", c.adjustImageLevels(threads, w, h, 0, 0, 0, 3 * w, 3 * w, bits_in,
                                              bits_out, c.ptr(im), c.ptr(out), s["gamma"],
                                              s["black"], s["white"], 1.0, s["saturation"]))
        im = out
    if s["sharpen"] != 0:
        curve = np.arange(65536, dtype=np.uint16)
        hue = np.zeros(360, np.float32)
        controls = np.array([s["sharpen"], s["radius"], s["threshold"]], np.float32)
        c.check("finish", c.post_adj(threads, w, h, 3, 0, 3 * w, bits_out,
                                     c.ptr(curve, ctypes.c_uint16), c.ptr(hue, c.c_float),
                                     c.ptr(controls, c.c_float), None, c.ptr(im)))
    return im
