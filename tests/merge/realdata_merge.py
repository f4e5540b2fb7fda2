"""Merges of the real brackets in the shared data folder, checked as a photographer would.

usage: realdata_merge.py <liblumivantor.so> <data dir> <scratch dir>
"""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "fileio"))
import lv_ctypes as lv  # noqa: E402

import numpy as np  # noqa: E402

cv2 = lv.module("cv2", "python3-opencv (it decodes the photographs)")

NIGHT = ["IMG_3869", "IMG_3871", "IMG_3873", "IMG_3875", "IMG_3877"]
NIGHT_TIMES = [(1, 250), (1, 59), (1, 15), (1, 4), (1, 1)]  # f/1.8, ISO 1000


def merge(lib, bracket, exposures, step):
    """Mode 2 merge of RGB images end to end; the exposures in effect, statistics, curve."""
    n, h, w, _ = bracket.shape
    curve, stats = np.zeros(256, np.float32), np.zeros(3, np.float32)
    exp = np.array(exposures if exposures is not None else [0] * n, np.float32)
    out = np.zeros((h, 4, w), np.uint8)
    rc = lib.lv_hdr_merge(None, 2, n, w, h, 3, 8, 0, step, lv.ptr(curve), lv.ptr(exp),
                          lv.ptr(bracket), lv.ptr(stats), lv.ptr(out))
    assert rc == h, rc
    return out, exp, stats, curve


def check(name, cond, detail):
    print(("ok   " if cond else "FAIL ") + name + ": " + detail)
    return bool(cond)


def photographer_checks(label, lib, bracket, exposures, tmp):
    out, exp, stats, curve = merge(lib, bracket, exposures, -1.0)
    hdr = lv.to_float(out)
    ok = check(f"{label} statistics ordered", stats[0] <= stats[2] <= stats[1],
               f"min {stats[0]:.4g} mean {stats[2]:.4g} max {stats[1]:.4g}")
    lum = bracket.astype(np.int32) @ np.array([54, 183, 19], np.int32)
    order = np.argsort(exp, kind="stable")
    dark = order[0]
    # Clipped in every brighter frame (over 64000, the highest clipping limit), well exposed
    # in the darkest: the merge can only take the darkest frame's value.
    only_dark = np.all(lum[order[1:]] > 64000, axis=0) & (lum[dark] > 40 * 256) & \
        (lum[dark] < 200 * 256)
    if only_dark.sum() > 0:
        want = (curve[bracket[dark]] / exp[dark])[only_dark]
        rel = np.abs(hdr[only_dark] - want).max(axis=-1) / want.max(axis=-1)
        ok &= check(f"{label} highlight from the dark frame", rel.max() < 1 / 64,
                    f"{only_dark.sum()} pixels, worst {rel.max():.4f}")
    # Neighbouring frames, each unclipped, agree once divided by their exposures, and the
    # merge lies between them. A fixed gamma of 2.2 on a camera's tone curve leaves factors
    # of up to about 2 either way. A pair whose medians are nearly equal does not show its
    # stated exposure step (street frames 2 and 3 do this); it is reported, not judged.
    medians = [int(np.median(lum[i])) >> 8 for i in range(len(exp))]
    suspect = set()
    for a, b in zip(order[:-1], order[1:]):
        good = (np.minimum(lum[a], lum[b]) > 60 * 256) & (np.maximum(lum[a], lum[b]) < 200 * 256)
        ga = curve[bracket[a][..., 1]][good] / exp[a]
        ratio = float(np.median(curve[bracket[b][..., 1]][good] / exp[b] / ga))
        merged = float(np.median(hdr[good][:, 1] / ga))
        detail = f"median ratio {ratio:.3f}, merged / frame {merged:.3f}, {good.sum()} pixels"
        if abs(medians[b] - medians[a]) < 10 or a in suspect:
            suspect.add(b)
            print(f"note {label} frames {a},{b}: medians {medians[a]} and {medians[b]}, a "
                  f"stated step the images don't show; {detail}")
        else:
            ok &= check(f"{label} frames {a},{b} agree", 0.4 < ratio < 2.5 and 0.4 < merged < 2.5,
                        detail)
    path = os.path.join(tmp, label + ".hdr")  # the file we write reads back byte for byte
    lv.write(lib, path, out)
    return ok & check(f"{label} file round trip", np.array_equal(lv.read(lib, path), out), path)


def main():
    lib = lv.load(sys.argv[1])
    data, tmp = sys.argv[2], sys.argv[3]
    lv.need(os.path.isdir(data), f"no sample data at {data}")
    os.makedirs(tmp, exist_ok=True)
    load = lambda paths: np.ascontiguousarray(np.stack(  # noqa: E731
        [cv2.imread(p, cv2.IMREAD_COLOR)[..., ::-1] for p in paths]))

    night = load([os.path.join(data, "night", "small", f + ".jpg") for f in NIGHT])
    records = np.zeros((5, 7), np.float32)
    records[:, :6] = [[num, den, 18, 10, 0, 1000] for num, den in NIGHT_TIMES]
    lib.get_ev(5, lv.ptr(records))
    ok = photographer_checks("night", lib, night, records.reshape(-1)[:5].copy(), tmp)
    # Exposures derived from the images alone. The darkest frame's measure lies in the dark
    # band (a high percentile, not a median), so its step is not comparable; the others are
    # 2 stops apart and come out at ratios of 2 to 3 (shadow slopes of 1.1 to 1.5 stops per
    # stop of brightness read a JPEG's tone curve as fewer stops).
    ratios = merge(lib, night, None, 0.0)[1]
    ratios = ratios[1:] / ratios[:-1]
    ok &= check("night derived ratios of frames 2 stops apart",
                np.all(ratios[1:] > 1.5) and np.all(ratios[1:] < 6.0), f"{np.round(ratios, 2)}")
    ok &= check("night derived order", np.all(ratios > 1.0), "brighter frames get larger factors")

    street = os.path.join(data, "street")
    rows = [l.split() for l in open(os.path.join(street, "exposures.txt"))
            if l.strip() and not l.startswith("#")]
    ok &= photographer_checks("street", lib, load([os.path.join(street, r[0]) for r in rows]),
                              [float(r[1]) for r in rows], tmp)
    print("ok" if ok else "FAILED")
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
