"""lumivantor: HDR photography on numpy arrays.

    import lumivantor as lv
    hdr = lv.merge(["a.png", "b.png", "c.png"], times=[1/250, 1/60, 1/15])
    lv.write_hdr("scene.hdr", hdr)
    picture = lv.tonemap(hdr, method="optimizer", compression=60)

HDR images are C-contiguous (H, W, 3) float32 arrays of linear radiance (merge and
read_hdr return read-only HdrImage arrays that keep their RGBE rows); photographs and
pictures are (H, W, 3) uint8 or uint16 arrays in RGB order. Failures raise
LumivantorError (with .code and .operation); bad arrays raise TypeError or ValueError
before they reach the library. Calls on different images may run on several threads;
the float TIFF reader and the ghost selection reader, whose state is kept per
process, take a lock each.
"""
from ._core import Cancelled, LumivantorError, library_path
from .files import HdrImage, info, metadata, read_hdr, read_psd, read_tiff, write_hdr, write_tiff
from .finishing import FINISH_SLIDERS, finish
from .fusing import FUSION_SLIDERS, fuse
from .merging import exposures_from_settings, ghost_mask, guess_exposures, merge
from .selections import read_selections, write_selections
from .tonemapping import SLIDERS, refinish, tonemap

__all__ = ["Cancelled", "FINISH_SLIDERS", "FUSION_SLIDERS", "HdrImage", "LumivantorError", "SLIDERS",
           "exposures_from_settings", "finish", "fuse", "ghost_mask", "guess_exposures", "info", "library_path",
           "merge", "metadata", "read_hdr", "read_psd", "read_selections", "read_tiff",
           "refinish", "tonemap", "write_hdr", "write_selections", "write_tiff"]
