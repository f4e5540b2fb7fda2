"""Ghost selection files: closed paths a user drew over moving things, each with the
exposure to take inside it."""
import ctypes
import os
import threading

import numpy as np

from . import _core as c

c.write_ghost_mask = c._proto("write_ghost_mask", c.c_int, c.c_char_p, c.c_int, c.c_int, c.c_int,
                              c.i32p, c.i32p, c.i32p)
c.get_mask_info = c._proto("get_mask_info", c.c_int, c.c_char_p, c.i32p, c.i32p, c.i32p)
c.get_mask_data = c._proto("get_mask_data", c.c_int, c.c_char_p, c.i32p, c.i32p, c.i32p)

# The reader remembers, per process, the file it measured last and reads only that one:
# a measure and its read must not interleave with another thread's, so they share a lock.
_lock = threading.Lock()


def write_selections(path, width, height, selections):
    """Saves ghost selections for an image of width x height: selections is a list of
    (exposure index, points) with points an (N, 2) array of integer x, y."""
    paths = [np.ascontiguousarray(np.asarray(pts, np.int32).reshape(-1, 2)) for _, pts in selections]
    exposures = np.array([int(e) for e, _ in selections] or [0], np.int32)
    counts = np.array([len(p) for p in paths] or [0], np.int32)
    coords = np.concatenate(paths).reshape(-1) if paths else np.zeros(2, np.int32)
    c.check(f"write_selections({os.fspath(path)!r})", c.write_ghost_mask(
        c.path_arg(path), width, height, len(selections), c.ptr(exposures, c.c_int32),
        c.ptr(counts, c.c_int32), c.ptr(coords, c.c_int32)))


def read_selections(path):
    """Reads a ghost selection file: returns (width, height, selections) in the form
    write_selections takes, points as (N, 2) int32 arrays. Holds the selection-file lock."""
    op = f"read_selections({os.fspath(path)!r})"
    w, h, n = c.c_int32(), c.c_int32(), c.c_int32()
    with _lock:
        total = c.check(op, c.get_mask_info(c.path_arg(path), ctypes.byref(w), ctypes.byref(h),
                                            ctypes.byref(n)))
        exposures = np.zeros(max(n.value, 1), np.int32)
        counts = np.zeros(max(n.value, 1), np.int32)
        coords = np.zeros(max(2 * total, 1), np.int32)
        if n.value > 0:
            c.check(op, c.get_mask_data(c.path_arg(path), c.ptr(exposures, c.c_int32),
                                        c.ptr(counts, c.c_int32), c.ptr(coords, c.c_int32)))
    points = np.split(coords[: 2 * total].reshape(-1, 2), np.cumsum(counts[: n.value])[:-1])
    return w.value, h.value, [(int(e), p) for e, p in zip(exposures[: n.value], points)]
