#!/usr/bin/env python3
"""Side-by-side timings of lumivantor and the tools people use instead, on one bracket.

Called by bench/compare with the built lvhdr and bench_hdr_io, the bracket folder and a
scratch folder. Every operation runs in a process of its own under /usr/bin/time, so its
peak memory (maximum resident set) is its own; the time is the operation's alone, taken
inside the process, best of LV_BENCH_REPEAT runs (default 3).
"""
import glob
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
PY = "/usr/bin/python3"  # the distribution's python, which has python3-opencv
REPEAT = int(os.environ.get("LV_BENCH_REPEAT", "3"))


def run(cmd, stdin=None, stdout=None):
    """Runs cmd under /usr/bin/time; returns (its stdout text, peak MB, wall seconds)."""
    timed = ["/usr/bin/time", "-f", "@@peak %M wall %e"] + cmd
    p = subprocess.run(timed, stdin=stdin, stdout=stdout or subprocess.PIPE,
                       stderr=subprocess.PIPE, text=stdout is None)
    err = p.stderr if isinstance(p.stderr, str) else p.stderr.decode(errors="replace")
    if p.returncode != 0:
        sys.exit("bench/compare: %s failed:\n%s" % (" ".join(cmd), err.strip()))
    m = re.search(r"@@peak (\d+) wall ([\d.]+)", err)
    return (p.stdout if stdout is None else ""), int(m.group(1)) / 1024.0, float(m.group(2))


def best(cmd, parse, **kw):
    """Best time of REPEAT runs, the largest peak memory, and the parsed megapixels."""
    times, peaks, mp = [], [], 0.0
    for _ in range(REPEAT):
        out, peak, wall = run(cmd, **kw)
        seconds, mp = parse(out, wall)
        times.append(seconds)
        peaks.append(peak)
    return min(times), max(peaks), mp


def kv(out, _wall):
    d = dict(re.findall(r"(\w+)=([\d.]+)", out))
    return float(d["seconds"]), int(d["width"]) * int(d["height"]) / 1e6


def lvhdr_timing(step, mp):
    def parse(out, _wall):
        m = re.search(r"%s ([\d.]+) s" % step, out)
        if not m:
            sys.exit("bench/compare: no '%s' timing in:\n%s" % (step, out))
        return float(m.group(1)), mp
    return parse


def wall_only(mp):
    return lambda _out, wall: (wall, mp)


def exposure_times(lvhdr, frames):
    """Exposure times in seconds as lvhdr reads them from EXIF."""
    times = []
    for f in frames:
        out = subprocess.run([lvhdr, "info", f], capture_output=True, text=True).stdout
        m = re.search(r"exposure: (?:1/([\d.]+)|([\d.]+)) s", out)
        if not m:
            sys.exit("bench/compare: %s has no EXIF exposure time" % f)
        times.append(1.0 / float(m.group(1)) if m.group(1) else float(m.group(2)))
    return times


def enhancer_rows(bench, ours_hdr, pfs_in, work, mp, rows):
    """The gradient-domain enhancer at defaults on 2 threads and with the two-resolution
    run, beside pfstools' gradient-domain operator; stage shares go to the note."""
    for mode in ("defaults", "two-resolution"):
        stages = {}

        def parse(out, _wall):
            d = dict(re.findall(r"(\w+)=([\d.]+)", out))
            stages.update(d)
            return float(d["seconds"]), int(d["width"]) * int(d["height"]) / 1e6
        t = best([bench, ours_hdr, mode, "2"], parse)
        rows.append(("gradient tone map", "lumivantor lv_tm_enhancer", *t,
                     "%s, 2 threads; stages tm1 %.0f%% tm2 %.0f%% tm3 %.0f%%"
                     % (mode, 100 * float(stages["tm1"]), 100 * float(stages["tm2"]),
                        100 * float(stages["tm3"]))))
        if mode == "defaults":
            def peer():
                with open(pfs_in, "rb") as i, open(os.path.join(work, "grad.pfs"), "wb") as o:
                    return run(["pfstmo_fattal02"], stdin=i, stdout=o)
            results = [peer() for _ in range(REPEAT)]
            rows.append(("gradient tone map", "pfstmo_fattal02", min(r[2] for r in results),
                         max(r[1] for r in results), mp, "whole process, pfs stream in and out"))


def main():
    lvhdr, hdr_io, data, work = sys.argv[1:5]
    fp_io = os.path.join(os.path.dirname(hdr_io), "bench_float_tiff")
    frames = sorted(glob.glob(os.path.join(data, "*.jp*g")))
    if len(frames) < 2:
        sys.exit("bench/compare: no bracket in %s" % data)
    os.makedirs(work, exist_ok=True)
    ours_hdr = os.path.join(work, "ours.hdr")
    peers = os.path.join(HERE, "peers_opencv.py")
    times = exposure_times(lvhdr, frames)

    out, _, _ = run([lvhdr, "merge", "--timings", "-o", ours_hdr] + frames)
    size = re.search(r"of (\d+)x(\d+)", out)
    mp = int(size.group(1)) * int(size.group(2)) / 1e6
    rows = []  # (task, tool, seconds, peak MB, megapixels, note)

    t = best([lvhdr, "merge", "--timings", "-o", ours_hdr] + frames, lvhdr_timing("merge", mp))
    rows.append(("merge %d frames" % len(frames), "lumivantor lv_hdr_merge", *t, "EXIF exposures"))
    t = best([PY, peers, "merge", ",".join("%g" % x for x in times)] + frames, kv)
    rows.append(("merge %d frames" % len(frames), "OpenCV MergeDebevec", *t, "linear response"))
    # Ghost detection beside our merge of the same bracket (both on one thread); the peak is
    # that of the whole lvhdr merge --deghost process.
    merge_s = rows[0][2]
    def ghost_timing(out, _wall):
        m = re.search(r"found in ([\d.]+) s", out)
        if not m:
            sys.exit("bench/compare: no ghost detection timing in:\n%s" % out)
        return float(m.group(1)), mp
    t = best([lvhdr, "merge", "--deghost", "-o", ours_hdr] + frames, ghost_timing)
    rows.append(("ghost detect", "lumivantor lv_ghost_detect", *t,
                 "%.2f x our merge's time; peak of the whole merge --deghost" % (t[0] / merge_s)))

    t = best([hdr_io, "write", ours_hdr, os.path.join(work, "ours-again.hdr")], kv)
    rows.append((".hdr write", "lumivantor lv_io_rgbe_write", *t, "run-length coded"))
    t = best([PY, peers, "write", ours_hdr, os.path.join(work, "opencv.hdr")], kv)
    rows.append((".hdr write", "OpenCV imwrite", *t, ""))

    t = best([hdr_io, "read", ours_hdr], kv)
    rows.append((".hdr read", "lumivantor lv_io_read_rgbe", *t, ""))
    t = best([PY, peers, "read", ours_hdr], kv)
    rows.append((".hdr read", "OpenCV imread", *t, ""))

    # Float TIFF rows also quote processor time, which a loaded machine disturbs less.
    ours_tif = os.path.join(work, "ours.tif")
    tiff_ops = [("float TIFF write", "lumivantor fp_save", [fp_io, "write", ours_hdr, ours_tif],
                 "uncompressed, one strip"),
                ("float TIFF write", "OpenCV imwrite",
                 [PY, peers, "tiffwrite", ours_hdr, os.path.join(work, "opencv.tif")],
                 "uncompressed"),
                ("float TIFF read", "lumivantor fp2rgbe", [fp_io, "read", ours_tif],
                 "to planar RGBE"),
                ("float TIFF read", "OpenCV imread", [PY, peers, "tiffread", ours_tif],
                 "to float BGR")]
    for task, tool, cmd, note in tiff_ops:
        cpu = []
        t = best(cmd, lambda out, wall: (cpu.append(float(re.search(r"cpu=([\d.]+)", out)
                                                          .group(1))), kv(out, wall))[1])
        rows.append((task, tool, *t, "%s; cpu %.3f s" % (note, min(cpu))))

    t = best([lvhdr, "tonemap", "--timings", "-o", os.path.join(work, "ours.png"), ours_hdr],
             lvhdr_timing("tonemap", mp))
    rows.append(("global tone map", "lumivantor tm_simple", *t, "with its statistics"))
    t = best([PY, peers, "tonemap", ours_hdr, os.path.join(work, "opencv.png")], kv)
    rows.append(("global tone map", "OpenCV TonemapReinhard", *t, ""))
    pfs_in = os.path.join(work, "ours.pfs")
    with open(pfs_in, "wb") as f:
        subprocess.run(["pfsin", ours_hdr], stdout=f, check=True)
    def pfstmo():
        with open(pfs_in, "rb") as i, open(os.path.join(work, "pfstmo.pfs"), "wb") as o:
            return run(["pfstmo_reinhard05"], stdin=i, stdout=o)
    results = [pfstmo() for _ in range(REPEAT)]
    rows.append(("global tone map", "pfstmo_reinhard05", min(r[2] for r in results),
                 max(r[1] for r in results), mp, "whole process, pfs stream in and out"))

    # Exposure fusion of the whole bracket on 2 threads. Megapixels count every frame.
    # enfuse reads uncompressed TIFF copies so that its time is mostly its blending.
    bracket_mp = mp * len(frames)
    tiffs = os.path.join(work, "tiffs")
    os.makedirs(tiffs, exist_ok=True)
    subprocess.run([PY, peers, "tiffs", tiffs] + frames, check=True)
    tiff_frames = sorted(glob.glob(os.path.join(tiffs, "*.tif")))
    fused = os.path.join(work, "fused.png")
    for method, label in (("plain", "method 10"), ("two-stage", "method 15")):
        t = best([lvhdr, "fuse", "--timings", "--threads", "2", "--method", method, "-o", fused]
                 + frames, lvhdr_timing("fuse", bracket_mp))
        rows.append(("fuse %d frames" % len(frames), "lumivantor lv_fusion " + label, *t,
                     "peak counts the decoded bracket"))
        if method == "plain":
            enf = [run(["env", "OMP_NUM_THREADS=2", "enfuse", "-o",
                        os.path.join(work, "enfuse.tif")] + tiff_frames,
                       stdout=subprocess.DEVNULL) for _ in range(REPEAT)]
            rows.append(("fuse %d frames" % len(frames), "enfuse", min(r[2] for r in enf),
                         max(r[1] for r in enf), bracket_mp, "whole process, TIFF in and out"))
            t = best([PY, peers, "fuse", os.path.join(work, "mertens.png")] + frames, kv)
            rows.append(("fuse %d frames" % len(frames), "OpenCV MergeMertens", t[0], t[1],
                         bracket_mp, "float pipeline"))
    t = best([lvhdr, "fuse", "--timings", "--threads", "2", "--low-memory", "-o", fused]
             + frames, lvhdr_timing("fuse", bracket_mp))
    rows.append(("fuse low-memory", "lumivantor lv_fusion method 10", *t, "temp-file route"))
    # The contrast optimizer (local tone map) at its defaults on 1 and 2 threads, beside a
    # local operator of pfstools. Its own program prints the step times and the share of
    # coefficients that took the exact path per level.
    optimizer = os.path.join(os.path.dirname(hdr_io), "bench_optimizer")
    for threads in (1, 2):
        out, _, _ = run([optimizer, ours_hdr, str(threads)])
        t = best([optimizer, ours_hdr, str(threads)], kv)
        steps = " ".join("%s %s" % kv_ for kv_ in re.findall(
            r"(acquire|tower|stats|store|levels|collapse|finish)=([\d.]+)", out))
        exact = re.search(r"exact_percent_by_level=([\d.,]+)", out).group(1)
        rows.append(("local tone map", "lumivantor lv_tm_optimizer %dT" % threads, *t,
                     "steps s: %s; exact %% by level: %s" % (steps, exact)))
        if threads == 1:
            def durand():
                with open(pfs_in, "rb") as i, open(os.path.join(work, "durand.pfs"), "wb") as o:
                    return run(["pfstmo_durand02"], stdin=i, stdout=o)
            results = [durand() for _ in range(REPEAT)]
            rows.append(("local tone map", "pfstmo_durand02", min(r[2] for r in results),
                         max(r[1] for r in results), mp, "whole process, pfs stream in and out"))

    if len(sys.argv) > 5:
        enhancer_rows(sys.argv[5], ours_hdr, pfs_in, work, mp, rows)

    print("bracket: %d x %.1f MP from %s; best of %d runs; ratio = peer / lumivantor"
          % (len(frames), mp, data, REPEAT))
    head = "%-16s %-28s %9s %8s %9s %11s %10s  %s"
    print(head % ("task", "tool", "time s", "MP/s", "peak MB", "time ratio", "mem ratio",
                  "note"))
    ours = None
    for task, tool, sec, peak, mpix, note in rows:
        if tool.startswith("lumivantor"):
            ours = (sec, peak)
            ratio_t = ratio_m = "1.00"
        else:
            ratio_t = "%.2f" % (sec / ours[0])
            ratio_m = "%.2f" % (peak / ours[1])
        print(head % (task, tool, "%.3f" % sec, "%.1f" % (mpix / sec), "%.0f" % peak,
                      ratio_t, ratio_m, note))


if __name__ == "__main__":
    main()
