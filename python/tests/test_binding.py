"""The Python binding against the library's own tool, lvhdr: same inputs, same bytes."""
import os
import subprocess
import threading

import numpy as np
import pytest

import lumivantor as lv
from lumivantor import files

LVHDR = os.environ.get("LVHDR", "lvhdr")
DATA = os.environ.get("LV_DATA_DIR", "")
STREET = os.path.join(DATA, "street")


def run_lvhdr(*args):
    subprocess.run([LVHDR, *map(str, args)], check=True, capture_output=True)


def read_png(path):
    cv2 = pytest.importorskip("cv2")
    img = cv2.imread(str(path), cv2.IMREAD_UNCHANGED | cv2.IMREAD_ANYDEPTH)
    return np.ascontiguousarray(img[:, :, ::-1])


@pytest.fixture(scope="module")
def demo(tmp_path_factory):
    """lvhdr's synthetic bracket and its merge by lvhdr."""
    d = tmp_path_factory.mktemp("demo")
    run_lvhdr("demo", "-o", d, "--size", "240x160")
    frames = [d / f"bracket-{i}.png" for i in range(1, 6)]
    run_lvhdr("merge", *frames, "-o", d / "merged.hdr")
    return d, frames


def rgbe_exact(shape, seed):
    """Random radiance that RGBE holds exactly, over 16 stops."""
    rng = np.random.default_rng(seed)
    x = (rng.random(shape, dtype=np.float32) * np.exp2(rng.integers(-8, 8, shape[:2]))[..., None])
    return files.float_from_rgbe(files.rgbe_from_float(x.astype(np.float32)), shape[1], shape[0])


def test_files_round_trip_exactly_with_metadata(tmp_path):
    hdr = rgbe_exact((37, 53, 3), 1)
    meta = {"exposure_time": 1 / 60, "f_number": 2.8, "iso": 400, "camera": "Test cam"}
    lv.write_hdr(tmp_path / "a.hdr", hdr, meta)
    assert np.array_equal(lv.read_hdr(tmp_path / "a.hdr"), hdr)
    got = lv.metadata(tmp_path / "a.hdr")
    assert (got["exposure_time"], got["f_number"], got["iso"]) == pytest.approx((1 / 60, 2.8, 400), rel=1e-3)
    lv.write_tiff(tmp_path / "a.tif", hdr)
    back = lv.read_tiff(tmp_path / "a.tif")
    # The float TIFF reader takes samples at half their IEEE value.
    assert np.array_equal(back * 2, hdr)
    assert lv.info(tmp_path / "a.hdr")["format"] == "hdr"
    assert lv.info(tmp_path / "a.tif")[("format")] == "tiff"
    assert (lv.info(tmp_path / "a.tif")["width"], lv.info(tmp_path / "a.tif")["height"]) == (53, 37)
    sel = [(2, np.array([[1, 2], [30, 2], [30, 20]])), (0, np.array([[5, 5], [9, 9], [5, 9], [4, 7]]))]
    lv.write_selections(tmp_path / "s.mask", 53, 37, sel)
    w, h, back_sel = lv.read_selections(tmp_path / "s.mask")
    assert (w, h, [e for e, _ in back_sel]) == (53, 37, [2, 0])
    assert all(np.array_equal(a[1], b[1]) for a, b in zip(sel, back_sel))
    (tmp_path / "bad.hdr").write_bytes(b"#?RADIANCE\n\n-Y 4 +X 4\n\x02")
    for call in (lambda: lv.read_hdr(tmp_path / "missing.hdr"),
                 lambda: lv.read_hdr(tmp_path / "bad.hdr"),
                 lambda: lv.read_tiff(tmp_path / "a.hdr"), lambda: lv.info(tmp_path / "nothing")):
        with pytest.raises(lv.LumivantorError) as err:
            call()
        assert err.value.code < 0 and err.value.operation


def test_merge_of_demo_bracket_matches_lvhdr_byte_for_byte(demo):
    d, frames = demo
    expected = lv.read_hdr(d / "merged.hdr")
    assert np.array_equal(lv.merge([read_png(f) for f in frames]), expected)
    assert np.array_equal(lv.merge(frames), expected)  # from paths


@pytest.mark.skipif(not os.path.isdir(STREET), reason="street bracket not in LV_DATA_DIR")
def test_merge_of_street_bracket_matches_lvhdr_byte_for_byte(tmp_path):
    rows = [l.split() for l in open(os.path.join(STREET, "exposures.txt")) if l[0] != "#"]
    paths = [os.path.join(STREET, r[0]) for r in rows]
    times = [float(r[1]) for r in rows]
    run_lvhdr("merge", *paths, "-o", tmp_path / "derived.hdr")
    run_lvhdr("merge", *paths, "--times", ",".join(r[1] for r in rows), "-o", tmp_path / "t.hdr")
    assert np.array_equal(lv.merge(paths), lv.read_hdr(tmp_path / "derived.hdr"))
    assert np.array_equal(lv.merge(paths, times=times), lv.read_hdr(tmp_path / "t.hdr"))
    # The factors the merge derived itself are the ones guess_exposures reports.
    assert np.array_equal(lv.guess_exposures(paths), lv.merging.merge_rgbe(paths)[3])


@pytest.mark.parametrize("method,bits,sliders,flags", [
    ("enhancer", 8, {}, []),
    ("enhancer", 16, {"strength": 60, "gamma": 2}, ["--strength", 60, "--gamma", 2]),
    ("simple", 8, {}, []),
    ("simple", 16, {"brightness": 2, "saturation": -3}, ["--brightness", 2, "--saturation", -3]),
    ("optimizer", 8, {}, []),
    ("optimizer", 16, {"compression": 80, "gamma": 1.5}, ["--compression", 80, "--gamma", 1.5]),
])
def test_tonemap_matches_lvhdr(demo, tmp_path, method, bits, sliders, flags):
    d, _ = demo
    out = tmp_path / "out.png"
    run_lvhdr("tonemap", d / "merged.hdr", "--method", method, "--bits", bits, *flags, "-o", out)
    picture = lv.tonemap(lv.read_hdr(d / "merged.hdr"), method=method, bits=bits, **sliders)
    assert picture.dtype == (np.uint8 if bits == 8 else np.uint16)
    assert np.array_equal(picture, read_png(out))


@pytest.mark.parametrize("method,bits,sliders,flags", [
    ("plain", 8, {}, []),
    ("two-stage", 16, {"prefer": 3, "detail": 5}, ["--prefer", 3, "--detail", 5]),
])
def test_fuse_matches_lvhdr(demo, tmp_path, method, bits, sliders, flags):
    _, frames = demo
    run_lvhdr("fuse", *frames, "--method", method, "--bits", bits, *flags, "-o", tmp_path / "f.png")
    picture = lv.fuse(frames, method=method, bits=bits, **sliders)
    assert np.array_equal(picture, read_png(tmp_path / "f.png"))


def test_ghost_mask_marks_a_moving_block_where_it_moved():
    x = np.linspace(0.05, 0.95, 160, dtype=np.float32)
    base = x[None, :, None] * np.ones((120, 1, 1), np.float32) * np.float32([1, 0.8, 0.6])
    frames = [np.clip(base * 2.0 ** k * 120, 0, 255).astype(np.uint8) for k in range(-2, 3)]
    still = lv.ghost_mask(frames)
    for k, f in enumerate(frames):  # a grey block walks along rows 50..80
        f[50:80, 20 + 30 * k:50 + 30 * k] = 128
    moved = lv.ghost_mask(frames)
    assert moved.shape == (120, 160) and moved.dtype == bool
    assert moved[55:75, 85:105].all()
    rows = np.nonzero((moved & ~still).any(axis=1))[0]
    assert 40 <= rows.min() and rows.max() < 90  # nothing new outside the block's rows


@pytest.mark.parametrize("sliders,flags", [
    ({"exposure": 1, "raw_gamma": 1.5}, ["--exposure", 1, "--raw-gamma", 1.5]),
    ({"black": 2, "white": 97, "gamma": 1.3, "saturation": 140, "sharpen": 1},
     ["--levels", "2,97", "--gamma", 1.3, "--saturation", 140, "--sharpen", 1]),
])
def test_finish_matches_lvhdr(demo, tmp_path, sliders, flags):
    picture = demo[0] / "demo.png"
    run_lvhdr("finish", picture, *flags, "-o", tmp_path / "f.png")
    original = read_png(picture)
    assert np.array_equal(lv.finish(original, **sliders), read_png(tmp_path / "f.png"))
    assert np.array_equal(original, read_png(picture))  # the input is left alone


@pytest.mark.parametrize("method,bits", [("enhancer", 8), ("enhancer", 16), ("optimizer", 8)])
def test_refinish_equals_a_fresh_render_with_the_new_colour(demo, method, bits):
    hdr = lv.read_hdr(demo[0] / "merged.hdr")
    kept, render = lv.tonemap(hdr, method=method, bits=bits, keep=True)
    # Keeping the plane leaves the picture whole, at 16 bits too (6 bytes a pixel).
    assert np.array_equal(kept, lv.tonemap(hdr, method=method, bits=bits))
    again = lv.refinish(render, temperature=4, gamma=-2)
    # A plain writable copy is encoded to RGBE again, to the bytes the file held.
    fresh = lv.tonemap(hdr.copy(), method=method, bits=bits, temperature=4, gamma=-2)
    assert np.array_equal(again, fresh)
    with pytest.raises(ValueError, match="read-only"):
        hdr[0, 0, 0] = 1  # the kept RGBE rows can't go stale


def test_bad_arrays_and_sliders_raise_before_the_library():
    hdr = np.ones((8, 8, 3), np.float32)
    frame = np.zeros((8, 8, 3), np.uint8)
    cases = [
        (lambda: lv.tonemap(hdr.astype(np.float64)), TypeError, "dtype float64"),
        (lambda: lv.tonemap(hdr[:, :, :2].copy()), ValueError, "shape"),
        (lambda: lv.tonemap(hdr[:, ::2]), ValueError, "C-contiguous"),
        (lambda: lv.tonemap(hdr, method="nope"), ValueError, "unknown method"),
        (lambda: lv.tonemap(hdr, method="simple", brightness=11), ValueError, "outside -10..10"),
        (lambda: lv.tonemap(hdr, method="simple", detail=1), ValueError, "no slider 'detail'"),
        (lambda: lv.tonemap(hdr, method="enhancer", strength=101), ValueError, "outside 0..100"),
        (lambda: lv.fuse([frame] * 2, cutoff=-1), ValueError, "outside 0..10"),
        (lambda: lv.tonemap(hdr, bits=12), ValueError, "8 or 16"),
        (lambda: lv.merge([frame, frame.astype(np.uint16)]), ValueError, "differs"),
        (lambda: lv.merge([frame, frame[:4]]), ValueError, "differs"),
        (lambda: lv.merge([frame.astype(np.int8)] * 2), TypeError, "dtype int8"),
        (lambda: lv.merge([frame] * 2, times=[1]), ValueError, "need 2 positive"),
        (lambda: lv.merge([frame] * 2, times=[1, 2], ev_step=2), ValueError, "exclude"),
        (lambda: lv.write_hdr("x.hdr", [[1.0]]), TypeError, "numpy array"),
    ]
    for call, kind, text in cases:
        with pytest.raises(kind, match=text):
            call()


def rss_kb():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


def test_cancel_from_progress_raises_and_leaks_nothing(demo):
    hdr = lv.read_hdr(demo[0] / "merged.hdr")
    frames = [read_png(f) for f in demo[1]]
    seen = []
    lv.tonemap(hdr, method="optimizer", progress=seen.append)
    assert seen and seen[-1] == 1.0 and all(0 <= v <= 1 for v in seen)

    def boom(value):
        raise KeyError("from the callable")

    with pytest.raises(KeyError):
        lv.tonemap(hdr, method="optimizer", progress=boom)
    for _ in range(3):  # warm up the allocator before measuring
        with pytest.raises(lv.Cancelled):
            lv.tonemap(hdr, method="optimizer", progress=lambda v: True)
    before = rss_kb()
    for _ in range(15):
        with pytest.raises(lv.Cancelled):
            lv.tonemap(hdr, method="optimizer", progress=lambda v: True)
        with pytest.raises(lv.Cancelled):
            lv.merge(frames, progress=lambda v: v >= 0)
        with pytest.raises(lv.Cancelled):
            lv.fuse(frames, method="two-stage", progress=lambda v: True)
    assert rss_kb() - before < 8 * 1024


def test_two_threads_give_the_serial_results(demo, tmp_path):
    hdr = lv.read_hdr(demo[0] / "merged.hdr")
    frames = [read_png(f) for f in demo[1]]
    lv.write_tiff(tmp_path / "a.tif", hdr)
    jobs = [lambda: lv.tonemap(hdr, method="optimizer"), lambda: lv.merge(frames),
            lambda: lv.tonemap(hdr[::-1].copy(), method="simple"), lambda: lv.read_tiff(tmp_path / "a.tif")]
    serial = [job() for job in jobs]
    results = {}

    def worker(k):
        for _ in range(3):
            for i in range(k, len(jobs), 2):
                results.setdefault(i, []).append(jobs[i]())

    threads = [threading.Thread(target=worker, args=(k,)) for k in (0, 1)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    for i, want in enumerate(serial):
        assert all(np.array_equal(got, want) for got in results[i]), f"job {i}"
