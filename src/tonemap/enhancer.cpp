// Driver of the gradient-domain enhancer: checks the input, lays out the host's work
// buffer, and runs the three stages (log-luminance pyramid and attenuated divergence,
// Poisson solve, colour and output) in a plain, a low-memory, a two-resolution or a
// re-finish run.
//
// Work buffer of a plain run: the input image at its start, the plane pyramid at
// planeOffset (first result of mem4enhancer). The output ends at the start, and the plane
// the last stage started from stays at planeOffset, so the host can re-finish with new
// settings (p[19] = 1.0) as often as it likes. A low-memory run keeps the pyramid at the
// start and streams the image, the plane and the solver's arrays through temp files.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lumivantor/fileio.h"
#include "lumivantor/geometry.h"
#include "tonemap/enhancer.h"
#include "tonemap/enhancer_stages.h"
#include "tonemap/owned.h"
#include "tonemap/tm3.h"

namespace {

using lv::calloc_array;
using lv::CBuf;
using File = lv::OwnedFile;

// The last dot decides: at least three characters must follow it, and their first three
// must be "hdr" or "HDR".
bool radiance_name(const char *path) {
    const char *dot = std::strrchr(path, '.');
    if (!dot || std::strlen(dot + 1) < 3) return false;
    return std::strncmp(dot + 1, "hdr", 3) == 0 || std::strncmp(dot + 1, "HDR", 3) == 0;
}

// Size of an image as the two-resolution run judges it: the width of a landscape, three
// quarters of the height of a portrait.
int measure(int w, int h) {
    return w > h ? w : 3 * h / 4;
}

void report(LvProgressCallback cb, float value) {
    if (cb) progress(1, cb, nullptr, value);
}

// Octaves of the two-resolution run: from the full size down to a reduced size of
// measure 1024 or less, one level more for the old pipeline.
struct ReductionPlan {
    static constexpr int kMax = 40;
    int halvings = 0, old = 0, count = 0;
    int w[kMax] = {}, h[kMax] = {};
    size_t offset[kMax] = {}; // floats before each level in the plan's area
    size_t total = 0;
    int rw() const { return w[count - 1]; }
    int rh() const { return h[count - 1]; }
};

ReductionPlan reduction_plan(int width, int height, const float *p) {
    ReductionPlan plan;
    if (measure(width, height) > 1024) {
        const int limit = static_cast<int>(std::log2((width + height) / 2));
        int cw = width, ch = height;
        while (plan.halvings < limit && cw > 3 && ch > 3) {
            cw = (cw + 1) / 2;
            ch = (ch + 1) / 2;
            ++plan.halvings;
            if (measure(cw, ch) <= 1024) break;
        }
    }
    plan.old = p[16] <= 0.0f ? 1 : 0;
    plan.count = std::min(plan.halvings + 1 + plan.old, ReductionPlan::kMax);
    plan.w[0] = width;
    plan.h[0] = height;
    for (int i = 1; i < plan.count; ++i) {
        plan.w[i] = (plan.w[i - 1] + 1) / 2;
        plan.h[i] = (plan.h[i - 1] + 1) / 2;
    }
    for (int i = 0; i < plan.count; ++i) {
        plan.offset[i] = plan.total;
        plan.total += static_cast<size_t>(plan.w[i]) * plan.h[i];
    }
    return plan;
}

// Solves a reduced copy of the image (already at the start of its own work buffer) with
// the first two stages; true when the solved plane, in linear form, lies at the
// returned pointer. Failures only cost the initial guess.
float *solve_reduced(int stage_kind, float *p, float *expTable, float *curve, const DimParam &rd,
                     OptimParam opt, unsigned char *rwork, size_t plane_offset, int levels) {
    opt.lowMemory = 0;
    opt.pyramidMode = 0;
    opt.sourceFile = nullptr;
    float stats[7] = {};
    float *plane = reinterpret_cast<float *>(rwork + plane_offset);
    int r = calc_tm1(stage_kind, p, levels, stats, expTable, curve, rd, opt, nullptr,
                     reinterpret_cast<float *>(rwork), plane);
    if (r >= 0)
        r = p[16] > 0.0f ? calc_tm2new2(levels - 1, p, nullptr, plane, rd, opt)
                         : calc_tm2old(levels - 1, p, nullptr, plane, rd, opt, nullptr);
    return r >= 0 ? plane : nullptr;
}

// Brings the reduced solution up to full size, octave by octave, through the plan's
// area at the start of work, and leaves its log at the level-0 slot: the solver's start.
void install_guess(const ReductionPlan &plan, const float *reduced, int wrap, float *area) {
    const int last = plan.count - 1;
    std::memcpy(area + plan.offset[last], reduced,
                sizeof(float) * static_cast<size_t>(plan.w[last]) * plan.h[last]);
    for (int k = last; k > 0; --k)
        tm1_init(plan.w[k - 1], plan.h[k - 1], plan.w[k], plan.h[k], wrap, area + plan.offset[k],
                 area + plan.offset[k - 1]);
    const size_t n = static_cast<size_t>(plan.w[0]) * plan.h[0];
    for (size_t i = 0; i < n; ++i)
        area[i] = std::log(area[i]);
}

// Writes the plane to the file at path, left open in out.
int write_plane_file(const char *path, const char *mode, const float *plane, size_t n, File &out) {
    out.reset(path ? std::fopen(path, mode) : nullptr);
    if (!out) {
        std::puts("can not open temporary file iofpTempPath1");
        return -150;
    }
    if (std::fwrite(plane, sizeof(float), n, out.get()) != n || std::fflush(out.get()) != 0) {
        std::puts("could not write to temporary file iofpTempPath1");
        return -151;
    }
    return 0;
}

struct Job {
    int kind;
    float *p;
    unsigned char *mask;
    float *stats;
    float *expTable;
    float *curve;
    DimParam dim;
    OptimParam opt;
    LvProgressCallback cb;
    unsigned char *input;
    unsigned char *work;
    size_t plane_offset, assumed, input_bytes, output_bytes;
    int pyramid_mode;
    bool low;
};

// Reads or copies the whole image to dst.
int bring_image(const Job &j, unsigned char *dst) {
    if (j.input) {
        if (dst != j.input) std::memmove(dst, j.input, j.input_bytes);
        return 0;
    }
    const int r = lv_io_read_rgbe(j.dim.width, j.dim.height, j.opt.sourceFile, dst);
    return r < 0 ? r - 100 : 0;
}

// Stages tm1 and tm2: the solved plane (in linear form) ends at planeOffset, or at the
// start of work in a low-memory run.
int first_stages(Job &j) {
    const DimParam &dim = j.dim;
    const int w = dim.width, h = dim.height;
    const size_t wh = static_cast<size_t>(w) * h;
    const int stage_kind = dim.inputFormat >= 1 ? -1 : j.kind;
    const int depth_code = dim.inputFormat == 10 ? 323 : dim.bpsIn;

    // The reduction needs the whole image first.
    unsigned char *whole = j.input;
    int whole_depth = depth_code;
    if (!j.input && j.pyramid_mode == 1) {
        whole = j.work;
        if (!j.low) {
            if (j.assumed < 2 * j.input_bytes) {
                std::printf("work has %zu bytes allocated, which is less than twice the size of "
                            "the input image %zu\n",
                            j.assumed, j.input_bytes);
                return LV_ERR_WORK_TOO_SMALL;
            }
            whole = j.work + j.input_bytes;
        }
        const int r = lv_io_read_rgbe(w, h, j.opt.sourceFile, whole);
        if (r < 0) return r - 100;
        whole_depth = 32;
    }
    if (j.pyramid_mode == 1 && measure(w, h) < 513) j.pyramid_mode = 0;

    ReductionPlan plan;
    float *guess = nullptr;
    CBuf<unsigned char> rwork;
    if (j.pyramid_mode == 1 || j.pyramid_mode == 9) {
        plan = reduction_plan(w, h, j.p);
        if (j.pyramid_mode == 9) {
            const int32_t size[2] = {plan.rw(), plan.rh()};
            std::memcpy(j.work, size, sizeof size);
            return 1; // size query: no stage runs
        }
        DimParam rd{};
        rd.width = plan.rw();
        rd.height = plan.rh();
        rd.samplesPerPixel = dim.samplesPerPixel;
        rd.bpsIn = 8;
        rd.bpsOut = 8;
        rd.strideIn = plan.rw() * dim.samplesPerPixel;
        size_t rpair[2] = {}, rtotal = 0;
        const int rlevels = mem4enhancer(j.kind, j.p, rpair, &rtotal, rd);
        rwork = calloc_array<unsigned char>(rtotal);
        if (!rwork) return LV_ERR_NOMEM;
        // The reduced image goes to the start of its own buffer, where its first stage
        // expects it. Float input keeps no initial guess: its log plane is the host's.
        if (dim.inputFormat != 10 &&
            lv_downsample(w, h, whole_depth == 32 ? 3 * w : dim.strideIn, rd.width, rd.height,
                          whole_depth == 32 ? 3 * rd.width : rd.strideIn, dim.samplesPerPixel,
                          whole_depth, whole, rwork.get()) >= 0)
            guess = solve_reduced(stage_kind, j.p, j.expTable, j.curve, rd, j.opt, rwork.get(),
                                  rpair[0], rlevels);
    }

    // The first stage reads the image at the start of work.
    if (!j.low) {
        if (!j.input && whole) {
            std::memmove(j.work, whole, j.input_bytes);
        } else {
            const int r = bring_image(j, j.work);
            if (r < 0) return r;
        }
    }
    int levels = mem4enhancer(j.kind, j.p, nullptr, nullptr, dim);
    float *plane = reinterpret_cast<float *>(j.low ? j.work : j.work + j.plane_offset);
    if (dim.inputFormat == 10 && !j.low) {
        // Float samples: the log-luminance plane and its statistics are made here.
        get_log_lum(0, w, h, dim.samplesPerPixel, std::max(dim.strideIn, w * dim.samplesPerPixel),
                    j.stats, nullptr, j.work, plane);
    }
    int r = calc_tm1(stage_kind, j.p, levels, j.stats, j.expTable, j.curve, dim, j.opt, j.cb,
                     j.low ? nullptr : reinterpret_cast<float *>(j.work), plane);
    if (r < 0) return r;

    // The old solver relaxes level 0 through the plane file, which stays open for it.
    File plane_file;
    if (j.low && j.p[16] == 0.0f) {
        r = write_plane_file(j.opt.tempPath1, "wb+", plane, wh, plane_file);
        if (r < 0) return r;
    }
    report(j.cb, 0.4f);

    // The solver of the current pipeline starts level 0 from the upsampled reduced
    // solution and skips the coarser levels; the old one has no use for it.
    const float *start = nullptr;
    if (guess && !j.low && j.p[16] > 0.0f) {
        levels = std::min(levels, plan.halvings + 1 + 2 * plan.old);
        install_guess(plan, guess, static_cast<int>(j.p[15]), reinterpret_cast<float *>(j.work));
        start = reinterpret_cast<const float *>(j.work);
    }
    rwork.reset();

    if (j.p[16] == 0.0f)
        r = calc_tm2old(levels - 1, j.p, j.cb, plane, dim, j.opt, plane_file.get());
    else
        r = calc_tm2new2_guess(levels - 1, j.p, j.cb, plane, dim, j.opt, start);
    if (r < 0) return r;

    // A low-memory solve of few levels stays in memory and leaves its plane in work only;
    // the last stage reads it from the plane file.
    if (j.low && j.p[16] != 0.0f && levels - 1 <= 2) {
        File f;
        r = write_plane_file(j.opt.tempPath1, "wb", plane, wh, f);
        if (r < 0) return r;
    }
    report(j.cb, 0.8f);
    return 0;
}

// Low-memory last stage: the plane comes from its temp file into work behind the output
// rows, or into an allocation of its own where that would pass the buffer's size.
int last_stage_low(Job &j) {
    const DimParam &dim = j.dim;
    const size_t wh = static_cast<size_t>(dim.width) * dim.height;
    File f(j.opt.tempPath1 ? std::fopen(j.opt.tempPath1, "rb") : nullptr);
    if (!f) return -201;
    // Output row y never reaches plane row y when the plane starts this far in.
    const long gap = static_cast<long>(dim.strideOut) - 2L * dim.width;
    const size_t at = 2 * static_cast<size_t>(dim.height) * static_cast<size_t>(std::max(gap, 1L));
    CBuf<float> own;
    float *plane;
    if (at % sizeof(float) == 0 && at + wh * sizeof(float) <= j.assumed) {
        plane = reinterpret_cast<float *>(j.work + at);
    } else {
        own = calloc_array<float>(wh);
        if (!own) return LV_ERR_NOMEM;
        plane = own.get();
    }
    if (std::fread(plane, sizeof(float), wh, f.get()) != wh) {
        std::puts("could not read from temporary file before calc_tm3");
        return -202;
    }
    f.reset();
    const int kind = dim.inputFormat == 10 ? 10 : j.kind;
    return calc_tm3(kind, dim, j.p, j.mask, j.stats, j.expTable, j.curve, j.opt, j.cb, 0, nullptr,
                    nullptr, plane, j.work);
}

// Plain last stage: the output is drawn at planeOffset from a copy of the plane, then
// moved to the start; the plane goes back to planeOffset for the next re-finish.
int last_stage(Job &j, CBuf<unsigned char> earlier) {
    const DimParam &dim = j.dim;
    const size_t wh = static_cast<size_t>(dim.width) * dim.height;
    if (j.plane_offset + j.output_bytes > j.assumed) return LV_ERR_WORK_TOO_SMALL;
    int r = bring_image(j, j.work);
    if (r < 0) return r;
    unsigned char *at = j.work + j.plane_offset;
    CBuf<float> plane = calloc_array<float>(wh);
    if (!plane) return -304;
    std::memcpy(plane.get(), at, wh * sizeof(float));
    const bool keep = j.p[19] == 2.0f;
    CBuf<float> kept;
    if (keep) {
        kept = calloc_array<float>(wh);
        if (!kept) return -305;
    }
    // A column range keeps the earlier output outside its columns.
    if (earlier) {
        std::memcpy(at, earlier.get(), j.output_bytes);
        earlier.reset();
    }
    const int kind = dim.inputFormat == 10 ? 10 : j.kind;
    r = calc_tm3(kind, dim, j.p, j.mask, j.stats, j.expTable, j.curve, j.opt, j.cb, keep,
                 kept.get(), j.work, plane.get(), at);
    if (r < 0) return r;
    std::memmove(j.work, at, j.output_bytes);
    if (keep)
        std::memcpy(at, kept.get(), wh * sizeof(float));
    else if (j.p[19] == 1.0f)
        std::memcpy(at, plane.get(), wh * sizeof(float));
    return r;
}

} // namespace

extern "C" int lv_tm_enhancer(int kind, float *p, unsigned char *mask, float *stats,
                              float *expTable, float *curve, DimParam dim, OptimParam opt,
                              LvProgressCallback progressCb, unsigned char *input,
                              unsigned char *work) {
    const size_t wh = static_cast<size_t>(std::max(dim.width, 0)) * std::max(dim.height, 0);
    Job j{kind,  p,    mask, stats, expTable, curve, dim, opt,  progressCb,
          input, work, 0,    0,     0,        0,     0,   false};
    j.input_bytes = (kind == 0 && dim.inputFormat == 0)
                        ? 4 * wh
                        : static_cast<size_t>(std::max(dim.strideIn, 0)) * dim.height *
                              static_cast<size_t>(dim.bpsIn / 8);
    j.output_bytes =
        static_cast<size_t>(dim.bpsOut / 8) * std::max(dim.strideOut, 0) * std::max(dim.height, 0);
    const bool refinish = p[19] == 1.0f;
    const bool partial = refinish && ((p[56] > 0.0f && p[56] < static_cast<float>(dim.width - 1)) ||
                                      (p[57] > 0.0f && p[57] < static_cast<float>(dim.width)));
    if (!input) {
        if (!opt.sourceFile) {
            std::puts("Input buffer is null and optimParam.sourceFile null as well");
            return LV_ERR_NO_INPUT;
        }
        if (!radiance_name(opt.sourceFile)) {
            std::puts("optimParam.sourceFile is not a Radiance (.hdr) file");
            return LV_ERR_NOT_HDR_NAME;
        }
    }
    j.pyramid_mode = p[16] == 1.0f ? 0 : opt.pyramidMode;
    size_t pair[2] = {}, total = 0;
    mem4enhancer(kind, p, pair, &total, dim);
    j.plane_offset = pair[0];
    j.low = opt.lowMemory != 0;
    // A low-memory run assumes planeOffset bytes, or the output's size if that is more:
    // the output always lands at the start of work.
    j.assumed = j.low ? std::max(pair[0], j.output_bytes) : total;
    if (!work) return LV_ERR_NO_WORK;
    if (dim.width < 1 || dim.height < 1) return LV_ERR_ARG;

    CBuf<unsigned char> earlier;
    if (partial && !j.low) {
        earlier = calloc_array<unsigned char>(j.output_bytes);
        if (earlier) std::memcpy(earlier.get(), work, j.output_bytes);
    }
    if (!refinish) {
        const int r = first_stages(j);
        if (r != 0) return r;
    }
    const int r = j.low ? last_stage_low(j) : last_stage(j, std::move(earlier));
    if (r < 0) return r;
    report(progressCb, 1.0f);
    return r;
}
