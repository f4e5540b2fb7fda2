// Stage tm1: from the log-luminance plane to the right-hand side of the Poisson equation.
// A Gaussian pyramid of the plane gives gradient magnitudes at every scale; each becomes
// an attenuation factor (below 1 for strong gradients, above 1 for weak ones), the
// factors of coarser levels multiply into the finer ones, and each solved level gets the
// divergence of its gradient field scaled by the combined factors.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "frame/band_threads.h"
#include "frame/statistics.h"
#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

constexpr int kMaxLevels = 40;

// Levels of the log pyramid: each (w + 1) / 2 by (h + 1) / 2 of the one before, while
// both sides are at least 6; `count` levels actually differ in size.
struct Levels {
    int count = 1;
    int w[kMaxLevels] = {}, h[kMaxLevels] = {};
    long off[kMaxLevels] = {};
    long total = 0; // floats of the distinct levels
};

Levels plan_levels(int width, int height, int rounds) {
    Levels lv;
    lv.w[0] = width, lv.h[0] = height;
    for (int r = 0; r < rounds && lv.count < kMaxLevels; ++r) {
        const int w = lv.w[lv.count - 1], h = lv.h[lv.count - 1];
        if (w < 6 || h < 6) break;
        lv.w[lv.count] = (w + 1) / 2, lv.h[lv.count] = (h + 1) / 2;
        ++lv.count;
    }
    for (int k = 0; k < lv.count; ++k) {
        lv.off[k] = lv.total;
        lv.total += static_cast<long>(lv.w[k]) * lv.h[k];
    }
    return lv;
}

// One level of the Gaussian pyramid: output (x, y) filters input (2x, 2y) with 1-2-1
// weights. The top row and left column without wrap renormalise over the neighbours
// present, the corner (0, 0) takes half the pixel and a quarter of each neighbour, and a
// last column or row without a neighbour beyond takes that two-neighbour form reaching
// back into the image. With wrap, rows close on themselves and above the top row lies
// its middle sample, so those pixels keep the interior weights.
void reduce(const float *in, int w, int h, float *out, int ow, int oh, int wrap) {
    auto px = [&](int x, int y) {
        if (y < 0) return in[w / 2];
        if (x < 0) x = w - 1;
        if (x >= w) x = 0;
        return in[static_cast<long>(y) * w + x];
    };
    auto interior = [&](int x, int y) {
        return px(x, y) * 0.25f +
               (px(x - 1, y) + px(x + 1, y) + px(x, y - 1) + px(x, y + 1)) * 0.125f +
               (px(x - 1, y - 1) + px(x + 1, y - 1) + px(x - 1, y + 1) + px(x + 1, y + 1)) *
                   0.0625f;
    };
    for (int oy = 0; oy < oh; ++oy) {
        const int y = 2 * oy;
        const float *r = in + static_cast<long>(y) * w;
        float *o = out + static_cast<long>(oy) * ow;
        const bool inner_row = y > 0 && y < h - 1;
        for (int ox = 0; ox < ow; ++ox) {
            const int x = 2 * ox;
            const bool has_left = x > 0 || wrap, has_right = x < w - 1 || wrap;
            const bool has_up = y > 0 || wrap, has_down = y < h - 1;
            if (inner_row && x > 0 && x < w - 1) { // the common case, no wrap look-ups
                const float *u = r - w, *d = r + w;
                o[ox] = r[x] * 0.25f + (r[x - 1] + r[x + 1] + u[x] + d[x]) * 0.125f +
                        (u[x - 1] + u[x + 1] + d[x - 1] + d[x + 1]) * 0.0625f;
            } else if (!has_right || !has_down) {
                const float side = has_left ? px(x - 1, y) : px(x + 1, y);
                const float vert = has_up ? px(x, y - 1) : px(x, y + 1);
                o[ox] = px(x, y) * 0.5f + side * 0.25f + vert * 0.25f;
            } else if (has_left && has_up) {
                o[ox] = interior(x, y);
            } else if (!has_left && !has_up) {
                o[ox] = px(x, y) * 0.5f + px(x + 1, y) * 0.25f + px(x, y + 1) * 0.25f;
            } else if (!has_up) { // top row
                o[ox] = px(x, y) * 0.33333f +
                        (px(x - 1, y) + px(x + 1, y) + px(x, y + 1)) * 0.166667f +
                        (px(x - 1, y + 1) + px(x + 1, y + 1)) * 0.08333333333333333f;
            } else { // left column
                o[ox] = px(x, y) * 0.33333f +
                        (px(x, y - 1) + px(x, y + 1) + px(x + 1, y)) * 0.166667f +
                        (px(x + 1, y - 1) + px(x + 1, y + 1)) * 0.08333333333333333f;
            }
        }
    }
}

// Attenuation of a level on bands; a band whose thread can't start runs here, before
// the started ones are joined.
void attenuate(int threads, int w, int h, float *data, float alpha, float e, float off) {
    if (threads < 2 || static_cast<long>(w) * h < 1201) {
        tm1b(w, h, 0, data, alpha, e, off);
        return;
    }
    std::unique_ptr<Tm1bArgs[]> args(new (std::nothrow) Tm1bArgs[threads]);
    std::unique_ptr<pthread_t[]> ids(new (std::nothrow) pthread_t[threads]);
    if (!args || !ids) {
        tm1b(w, h, 0, data, alpha, e, off);
        return;
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
    int started = 0;
    for (int i = 0; i < threads; ++i) {
        args[i] = Tm1bArgs{w, h, data, alpha, e, off, i, threads, 0};
        if (started == i && lv_thread_create(&ids[i], &attr, tm1b_threaded, &args[i]) == 0) {
            ++started;
            continue;
        }
        const lv::Band b = lv::band_of(h, i, threads);
        tm1b(w, b.rows, static_cast<long>(b.first) * w, data, alpha, e, off);
    }
    for (int i = 0; i < started; ++i)
        pthread_join(ids[i], nullptr);
    pthread_attr_destroy(&attr);
}

// Gradient magnitudes of a level, in place, scaled by s; returns their float sum.
float gradients(float *level, int w, int h, int wrap, float s, float *rows) {
    float *prev = rows, *cur = rows + w;
    float sum = 0.0f;
    for (int y = 0; y < h; ++y) {
        float *r = level + static_cast<long>(y) * w;
        std::swap(prev, cur);
        std::memcpy(cur, r, sizeof(float) * w);
        const float *below = y < h - 1 ? r + w : nullptr;
        for (int x = 0; x < w; ++x) {
            const float c = cur[x];
            const float left = x > 0 ? cur[x - 1] : (wrap ? cur[w - 1] : c);
            const float right = x < w - 1 ? cur[x + 1] : (wrap ? cur[0] : c);
            const float up = y > 0 ? prev[x] : (wrap ? cur[w / 2] : c);
            const float down = below ? below[x] : (wrap ? cur[w / 2] : c);
            float gx = right - left, gy = down - up;
            // A jump this large comes from a black pixel at the floor of the log plane.
            if (std::fabs(gx) > 100.0f) gx = 0.0f;
            if (std::fabs(gy) > 100.0f) gy = 0.0f;
            const float g = std::sqrt(gx * gx + gy * gy) * s;
            r[x] = g;
            sum += g;
        }
    }
    return sum;
}

// Rows of the log plane of one level, from memory or streamed from the pyramid file.
class LogRows {
  public:
    LogRows(const float *mem, FILE *file, long at, int w, bool old_forms, float *ring)
        : mem_(mem), file_(file), at_(at), w_(w), old_(old_forms), ring_(ring) {}
    // Makes rows up to y available; returns 0 or -2.
    int load(int y) {
        if (mem_) return 0;
        while (loaded_ <= y) {
            if (loaded_ == 0 && fseeko(file_, static_cast<off_t>(at_) * 4, SEEK_SET) != 0)
                return fail(0, 0);
            const size_t n = std::fread(ring_ + (loaded_ % 3) * w_, 4, w_, file_);
            if (n != static_cast<size_t>(w_)) return fail(loaded_, n);
            ++loaded_;
        }
        return 0;
    }
    const float *row(int y) const {
        return mem_ ? mem_ + static_cast<long>(y) * w_ : ring_ + (y % 3) * w_;
    }

  private:
    int fail(int y, size_t n) {
        const long pos = at_ + static_cast<long>(y) * w_;
        if (old_) {
            if (y == 0)
                printf("can not read temporary file at 0 - returned %zu instead of 4\n", n);
            else
                printf("can not read temporary file at %zu - returned %ld instead of 4\n",
                       static_cast<size_t>(pos), static_cast<long>(n));
        } else if (y == 0) {
            printf("can not read temporary file at 0 - returned %ld instead of 4\n",
                   static_cast<long>(n));
        } else {
            printf("can not read temporary file at %ld - returned %ld instead of 4\n", pos,
                   static_cast<long>(n));
        }
        return LV_ERR_IO;
    }
    const float *mem_;
    FILE *file_;
    long at_;
    int w_;
    bool old_;
    float *ring_;
    int loaded_ = 0;
};

// Divergence of the attenuated gradient field of level t, over its combined factors f
// (in place): (H right - H) f + (H below - H) f + (H left - H) f_left + (H above - H) f_up,
// leaving out terms whose neighbour lies outside the image.
int divergence(float *f, int w, int h, LogRows &H, float *frows) {
    float *fprev = frows, *fcur = frows + w;
    for (int y = 0; y < h; ++y) {
        if (int r = H.load(std::min(y + 1, h - 1)); r < 0) return r;
        std::swap(fprev, fcur);
        float *out = f + static_cast<long>(y) * w;
        std::memcpy(fcur, out, sizeof(float) * w);
        const float *hr = H.row(y);
        const float *hu = y > 0 ? H.row(y - 1) : nullptr;
        const float *hd = y < h - 1 ? H.row(y + 1) : nullptr;
        auto rim = [&](int x) {
            const float c = hr[x];
            float terms[4];
            int n = 0;
            if (x < w - 1) terms[n++] = (hr[x + 1] - c) * fcur[x];
            if (hd) terms[n++] = (hd[x] - c) * fcur[x];
            if (x > 0) terms[n++] = (hr[x - 1] - c) * fcur[x - 1];
            if (hu) terms[n++] = (hu[x] - c) * fprev[x];
            float d = n > 0 ? terms[0] : 0.0f;
            for (int i = 1; i < n; ++i)
                d += terms[i];
            out[x] = d;
        };
        if (!hu || !hd) {
            for (int x = 0; x < w; ++x)
                rim(x);
            continue;
        }
        // Inner pixels have all four terms, summed in the same order as rim() does.
        for (int x = 1; x < w - 1; ++x) {
            const float c = hr[x];
            out[x] = (hr[x + 1] - c) * fcur[x] + (hd[x] - c) * fcur[x] +
                     (hr[x - 1] - c) * fcur[x - 1] + (hu[x] - c) * fprev[x];
        }
        rim(0);
        if (w > 1) rim(w - 1);
    }
    return 1;
}

// Percentiles of the log plane, nudged until the working one lies in the middle of the
// histogram's range (stats[3..6]).
void percentiles(const float *plane, long n, const float *p, float *stats) {
    constexpr int kBins = 65536;
    std::unique_ptr<int[], FreeDeleter> hist(static_cast<int *>(std::calloc(kBins, sizeof(int))));
    if (!hist) return; // the stage goes on without them
    const float lo = static_cast<float>(std::log(static_cast<double>(stats[2])));
    const float hi = static_cast<float>(std::log(static_cast<double>(stats[0] * stats[1])));
    if (log_histo(n, kBins, const_cast<float *>(plane), hist.get(), lo, hi) < 0) return;
    float q = 0.5f;
    GlobalCntAdjust = 0;
    for (int round = 0; round < 40; ++round) {
        ++GlobalCntAdjust;
        const int k = percentile(n, kBins, hist.get(), q);
        if (k >= kBins || k >= 58983)
            q *= 0.99f;
        else if (k < 16384)
            q *= 1.01f;
        else
            break;
    }
    const float step = (hi - lo) * 1.52587890625e-5f;
    auto value = [&](float fraction) {
        return lo + step * static_cast<float>(percentile(n, kBins, hist.get(), fraction));
    };
    stats[4] = value(0.5f * q);
    stats[5] = value(0.5f * q + 0.5f);
    stats[3] = value(q);
    stats[6] = value(1.0f - 0.01f * p[3]);
}

int run_tm1(bool old, int kind, float *p, int levels, float *stats, float *expTable, float *curve,
            DimParam dim, OptimParam opt, LvProgressCallback callback, float *pyramidCopy,
            float *work) {
    const int wrap = static_cast<int>(p[15]);
    if (opt.lowMemory && kind != 0) return LV_ERR_ARG;
    if (!opt.lowMemory && !pyramidCopy) return LV_ERR_ARG;
    const int threads = opt.lowMemory ? 0 : opt.numThreads;
    const int W = dim.width, H = dim.height;

    const float a = static_cast<float>(p[6] > 2.0f ? std::pow(2.0, 0.8 + 0.125 * (p[6] - 2.0))
                                                   : std::pow(2.0, 0.4 * p[6]));
    const float o = static_cast<float>(p[7] > 11.0f ? 0.1 * p[7] - 0.36670000000000014
                                                    : p[7] * 0.06666666666666667);
    const float e = static_cast<float>(-0.01 * static_cast<float>(0.6 * p[0] + 7.0));

    int r = opt.lowMemory
                ? calc_tm0s(kind, dim, opt, stats, expTable, work)
                : calc_tm0(kind, dim.samplesPerPixel, W, 0, dim.strideIn, W, H, W, H, stats,
                           expTable, curve, reinterpret_cast<unsigned char *>(pyramidCopy), work);
    if (r < 0) return r;

    // The old pipeline has a pyramid of fixed depth.
    const int rounds =
        old ? std::min(std::max(levels + 3, 1), lv::kOldLevels - 1) : std::max(levels + 3, 1);
    const Levels L = plan_levels(W, H, rounds);
    for (int k = 1; k < L.count; ++k)
        reduce(work + L.off[k - 1], L.w[k - 1], L.h[k - 1], work + L.off[k], L.w[k], L.h[k], wrap);

    percentiles(work, static_cast<long>(W) * H, p, stats);

    // Keep the log pyramid: the divergence needs it after the levels turn into factors.
    File log_file;
    if (opt.lowMemory) {
        File out(opt.tempPath2 ? std::fopen(opt.tempPath2, "wb") : nullptr);
        if (!out) return puts("can not open temporary file"), LV_ERR_ARG;
        if (std::fwrite(work, 4, L.total, out.get()) != static_cast<size_t>(L.total) ||
            std::fclose(out.release()) != 0)
            return puts("could not write to temporary file"), LV_ERR_IO;
        log_file.reset(std::fopen(opt.tempPath2, "rb"));
        if (!log_file) return puts("can not open temporary file"), LV_ERR_ARG;
    } else {
        std::memcpy(pyramidCopy, work, sizeof(float) * L.total);
    }
    float done = 0.06f;
    progress(1, callback, nullptr, done);

    FloatBuf rows = alloc_floats(3L * W);
    if (!rows) return LV_ERR_NOMEM;
    float s = 0.5f;
    for (int k = 0; k < L.count; ++k, s *= 0.5f) {
        const int w = L.w[k], h = L.h[k];
        float *level = work + L.off[k];
        const float sum = gradients(level, w, h, wrap, s, rows.get());
        if (k == 0) progress(1, callback, nullptr, done += 0.12f);
        const float avg = sum / static_cast<float>(static_cast<long>(w) * h);
        const float alpha = 0.1f * a * avg;
        if (alpha > 0.0f) attenuate(threads, w, h, level, alpha, e, avg * o);
        if (k == 0) progress(1, callback, nullptr, done += 0.12f);
    }

    // Combine the factors of up to four (five with p[18] <= 0) coarser levels into each
    // target level, then replace the target's factors by its divergence.
    const long plane_size = L.count > 1 ? static_cast<long>(L.w[1]) * L.h[1] : 1;
    FloatBuf up = alloc_floats(plane_size), next = alloc_floats(plane_size);
    if (!up || !next) return LV_ERR_NOMEM;
    const int last_target = std::min(std::max(levels, 2) - 2, L.count - 1);
    for (int t = 0; t <= last_target; ++t) {
        const int top = std::min(t + 4 + (p[18] <= 0.0f ? 1 : 0), L.count - 1);
        int cw = L.w[top], ch = L.h[top];
        std::memcpy(up.get(), work + L.off[top], sizeof(float) * cw * ch);
        for (int j = top - 1; j >= t; --j) {
            float *dst = j == t ? work + L.off[t] : next.get();
            if (j != t) std::memcpy(dst, work + L.off[j], sizeof(float) * L.w[j] * L.h[j]);
            lv::upsample(up.get(), cw, ch, L.w[j], L.h[j], wrap,
                         [dst](long i, float v) { dst[i] *= v; });
            if (j != t) std::swap(up, next), cw = L.w[j], ch = L.h[j];
        }
        if (top == t) std::memcpy(work + L.off[t], up.get(), sizeof(float) * cw * ch);
        LogRows H_rows(log_file ? nullptr : pyramidCopy + L.off[t], log_file.get(), L.off[t],
                       L.w[t], old, rows.get());
        FloatBuf frows = alloc_floats(2L * L.w[t]);
        if (!frows) return LV_ERR_NOMEM;
        if ((r = divergence(work + L.off[t], L.w[t], L.h[t], H_rows, frows.get())) < 0) return r;
    }
    if (old) // the old solver's kernels don't tolerate outliers from black holes
        for (long i = 0; i < L.total; ++i)
            if (!(work[i] >= -100.0f && work[i] <= 100.0f)) work[i] = 0.0f;
    return 1;
}

} // namespace

extern "C" {

LV_API int tm1b(int width, int rows, long offset, float *data, float scale, float exponent,
                float offset2) {
    float *d = data + offset;
    const long n = static_cast<long>(width) * rows;
    for (long i = 0; i < n; ++i) {
        const float g = d[i];
        // Flat areas carry no gradient to attenuate: they contribute nothing.
        d[i] = g > 1e-5f ? std::pow((g + offset2) / scale, exponent) : 0.0f;
    }
    return rows;
}

LV_API void *tm1b_threaded(void *args) {
    auto *a = static_cast<Tm1bArgs *>(args);
    const lv::Band b = lv::band_of(a->height, a->threadIndex, a->threadCount);
    a->result = tm1b(a->width, b.rows, static_cast<long>(b.first) * a->width, a->data, a->scale,
                     a->exponent, a->offset2);
    return nullptr;
}

LV_API int calc_tm1new(int kind, float *p, int levels, float *stats, float *expTable, float *curve,
                       DimParam dim, OptimParam opt, LvProgressCallback callback,
                       float *pyramidCopy, float *work) {
    return run_tm1(false, kind, p, levels, stats, expTable, curve, dim, opt, callback, pyramidCopy,
                   work);
}

LV_API int calc_tm1old(int kind, float *p, int levels, float *stats, float *expTable, float *curve,
                       DimParam dim, OptimParam opt, LvProgressCallback callback,
                       float *pyramidCopy, float *work) {
    return run_tm1(true, kind, p, levels, stats, expTable, curve, dim, opt, callback, pyramidCopy,
                   work);
}

LV_API int calc_tm1(int kind, float *p, int levels, float *stats, float *expTable, float *curve,
                    DimParam dim, OptimParam opt, LvProgressCallback callback, float *pyramidCopy,
                    float *work) {
    if (static_cast<int>(p[16]) != 0)
        return calc_tm1new(kind, p, levels, stats, expTable, curve, dim, opt, callback, pyramidCopy,
                           work);
    return calc_tm1old(kind, p, levels, stats, expTable, curve, dim, opt, callback, pyramidCopy,
                       work);
}

} // extern "C"
