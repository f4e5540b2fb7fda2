// The contrast optimizer's driver: log luminance in, a Gaussian tower, the reference
// luminances found from the levels' histograms, the reference store, the per-level local
// Laplacian coefficients, the collapse, and the colour finish. The work space comes from
// the caller's memory block when it is large enough, so a sized block spares every
// allocation of image size.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "contrast/contrast.h"
#include "frame/band_threads.h"
#include "lumivantor/pyramid.h"

namespace {

CoAllocObserver g_alloc_observer = nullptr;

constexpr int kBins = 65536;

inline int hist_bin(float v, float lo, float scale) {
    const float x = (v - lo) * scale;
    if (!(x > 0.0f)) return 0;
    if (x >= 65535.0f) return 65535;
    return static_cast<int>(x);
}

// First bin at which the running sum exceeds limit; kBins if it never does.
int first_over(const int64_t *hist, double limit) {
    int64_t sum = 0;
    for (int i = 0; i < kBins; ++i) {
        sum += hist[i];
        if (static_cast<double>(sum) > limit) return i;
    }
    return kBins;
}

// Start of the window of `win` bins holding the most pixels (first on a tie), and that
// count plus the start bin's own.
struct Window {
    int start;
    int64_t count;
};
Window best_window(const int64_t *cum, const int64_t *hist, int win) {
    Window best{0, -1};
    for (int s = 0; s + win <= 65535; ++s) {
        const int64_t c = cum[s + win] - cum[s];
        if (c > best.count) best = {s, c};
    }
    if (best.count < 0) return {0, hist[0]};
    return {best.start, best.count + hist[best.start]};
}

// Takes bytes from the caller's spare memory when they fit, else allocates them.
void *take(lv::CoJob &job, size_t bytes, int slot) {
    if (job.spare && bytes <= job.spare_bytes) {
        void *at = job.spare;
        const size_t used = (bytes + 63) & ~size_t(63);
        job.spare += std::min(used, job.spare_bytes);
        job.spare_bytes -= std::min(used, job.spare_bytes);
        std::memset(at, 0, bytes);
        return at;
    }
    void *q = co_calloc(bytes, 1);
    if (slot >= 0) job.owned[slot] = q;
    return q;
}

void report(const lv::CoJob &job, float value) {
    if (job.progress) progress(1, job.progress, nullptr, value);
}

// Bands of rows for a per-pixel pass, each starting on an even row so that a band of a
// fine level expands from whole rows of the coarse one.
constexpr int kMaxBands = 64;
template <class Fn> struct RowBand {
    Fn *fn;
    int first, rows;
    unsigned char *done;
    int index;
    int result;
};
template <class Fn> void *row_band_body(void *arg) {
    auto *b = static_cast<RowBand<Fn> *>(arg);
    (*b->fn)(b->first, b->rows);
    b->done[b->index] = 1;
    b->result = b->rows;
    return nullptr;
}

// Runs fn(firstRow, rows) over rows [0, height) on up to `threads` threads. A band whose
// thread could not start runs here afterwards, so each row is done exactly once (the
// passes work in place) and the values don't depend on the thread count.
template <class Fn> void for_row_bands(int threads, int height, Fn fn) {
    const int count = std::min({threads, height / 64, kMaxBands});
    if (count < 2) {
        fn(0, height);
        return;
    }
    const int band_rows = (height / count) & ~1;
    unsigned char done[kMaxBands] = {};
    auto band = [&](int index) {
        const int first = index * band_rows;
        return lv::Band{first, index == count - 1 ? height - first : band_rows};
    };
    lv::run_threaded<RowBand<Fn>>(count, row_band_body<Fn>, [&](RowBand<Fn> &b, int index, int) {
        const lv::Band r = band(index);
        b = RowBand<Fn>{&fn, r.first, r.rows, done, index, 0};
    });
    for (int i = 0; i < count; ++i)
        if (!done[i]) fn(band(i).first, band(i).rows);
}

} // namespace

namespace lv {

int co_job_setup(CoJob &job, DimParam dim, OptimParam opt, LvProgressCallback progress_cb, float *p,
                 float *map, int64_t memorySize, unsigned char *memory) {
    job.dim = dim;
    job.p = p;
    job.progress = progress_cb;
    job.threads = opt.lowMemory ? 0 : opt.numThreads;
    const int w = dim.width, h = dim.height;
    const int64_t n = static_cast<int64_t>(w) * h;
    job.top = co_top_level(w, h);
    job.levels = job.top + 1;
    const int64_t pyr = pyram_len2(w, h);
    // pyram_len2 leaves room for the rounding up at odd sizes in all but a few small
    // towers; those get their true length, and then don't fit in the caller's map.
    const int64_t need = co_tower_len(w, h, job.levels + 1);
    job.stride = std::max(pyr, need);
    job.off[0] = 0;
    job.ws[0] = w;
    job.hs[0] = h;
    for (int k = 0; k <= job.levels && k < 62; ++k) {
        job.off[k + 1] = job.off[k] + static_cast<int64_t>(job.ws[k]) * job.hs[k];
        job.ws[k + 1] = (job.ws[k] + 1) / 2;
        job.hs[k + 1] = (job.hs[k] + 1) / 2;
    }

    // The image area at the start of memory holds the log image, and the finished image.
    const int64_t in_bytes = n * dim.samplesPerPixel * dim.bpsIn / 8;
    const int64_t area = (std::max(in_bytes, n * 4) + 63) & ~int64_t(63);
    job.log_image = reinterpret_cast<float *>(memory);
    if (memorySize > area) {
        job.spare = memory + area;
        job.spare_bytes = static_cast<size_t>(memorySize - area);
    }
    job.coef = static_cast<float *>(take(job, static_cast<size_t>(n) * 4, 0));
    job.work = static_cast<float *>(take(job, static_cast<size_t>(job.stride) * 4, 1));
    if (map && need <= pyr)
        job.pyramid = map;
    else
        job.pyramid = static_cast<float *>(take(job, static_cast<size_t>(job.stride) * 4, 2));
    if (!job.coef || !job.work || !job.pyramid) return LV_ERR_NOMEM;
    return 0;
}

void co_job_release(CoJob &job) {
    for (void *&q : job.owned) {
        std::free(q);
        q = nullptr;
    }
}

void co_job_acquire(CoJob &job, unsigned char *input) {
    float table[256];
    exp_lut(table, -8);
    const DimParam dim = job.dim;
    const int w = dim.width;
    // Bytes from one row of the input to the next: RGBE rows, or strideIn samples.
    const size_t row_bytes = dim.bpsIn == 32 ? static_cast<size_t>(4) * w
                                             : static_cast<size_t>(dim.strideIn) * (dim.bpsIn / 8);
    for_row_bands(job.threads, dim.height, [&](int first, int rows) {
        DimParam band = dim;
        band.height = rows;
        co_acquistion(table, input + row_bytes * first,
                      job.pyramid + static_cast<size_t>(w) * first, band);
        std::memcpy(job.log_image + static_cast<size_t>(w) * first,
                    job.pyramid + static_cast<size_t>(w) * first,
                    static_cast<size_t>(w) * rows * sizeof(float));
    });
}

void co_job_tower(CoJob &job) {
    const int wrap = static_cast<int>(job.p[15]) != 0 ? 1 : 0;
    for (int k = 0; k < job.levels; ++k)
        co_down(job.ws[k], job.hs[k], job.ws[k + 1], job.hs[k + 1], wrap, job.off[k],
                job.off[k + 1], job.threads, job.pyramid);
}

void co_job_stats(CoJob &job) {
    float *p = job.p;
    job.stats_disabled = p[10] < 0.0f;
    p[10] = p[1] < 0.0f ? 4.0f : (p[1] < 2.0f ? 2.0f : 0.0f);
    job.count = 0;
    job.stats = false;
    if (job.stats_disabled) return;
    job.count = tm_stats(job.levels, job.dim.width, job.dim.height, p, job.pyramid, job.refs);
    if (job.count < 1)
        p[10] = -1.0f;
    else
        job.stats = true;
}

void co_job_plain(CoJob &job, int l) {
    const int wrap = static_cast<int>(job.p[15]) != 0 ? 1 : 0;
    co_diff(job.ws[l], job.hs[l], job.ws[l + 1], job.hs[l + 1], 32, wrap, 0,
            job.pyramid + job.off[l + 1], job.pyramid + job.off[l], job.coef, 1.0f);
    if (l == 0 && job.stats) {
        const int64_t n = static_cast<int64_t>(job.ws[0]) * job.hs[0];
        float m = 0.0f;
        for (int64_t i = 0; i < n; ++i)
            m = std::max(m, std::fabs(job.coef[i]));
        job.p[11] = m;
    }
}

int co_job_fill_store(CoJob &job) {
    const int count = job.count;
    const size_t bytes = static_cast<size_t>(job.stride) * count * sizeof(int16_t);
    job.store = static_cast<int16_t *>(take(job, bytes, 3));
    if (!job.store) return LV_ERR_NOMEM;
    const int w = job.dim.width, h = job.dim.height;
    const int threads = job.threads;

    // One work tower per reference that runs at the same time; the job's own is the first.
    const int extra = threads >= 2 ? std::min(threads, count) - 1 : 0;
    float *works[CO_MAX_REFERENCES] = {job.work};
    lv::CoBuf<float> extra_owned[CO_MAX_REFERENCES];
    bool parallel = extra > 0;
    for (int i = 1; i <= extra && parallel; ++i) {
        const size_t wb = static_cast<size_t>(job.stride) * sizeof(float);
        if (job.spare && wb <= job.spare_bytes) {
            works[i] = static_cast<float *>(take(job, wb, -1));
        } else {
            extra_owned[i] = lv::co_array<float>(static_cast<size_t>(job.stride));
            works[i] = extra_owned[i].get();
        }
        parallel = works[i] != nullptr;
    }

    if (parallel) {
        for (int first = 0; first < count; first += threads) {
            const int batch = std::min(threads, count - first);
            const int r = lv::run_threaded<CoPrecalcArgs>(
                batch, co_precalculate_threaded, [&](CoPrecalcArgs &a, int k, int) {
                    const int i = first + k;
                    a = CoPrecalcArgs{w,
                                      h,
                                      job.levels,
                                      job.p,
                                      std::max(threads - batch, 0),
                                      works[k],
                                      job.log_image,
                                      job.store + job.stride * i,
                                      job.refs[i],
                                      0};
                });
            if (r < 0) {
                // Without all its threads the store is incomplete: every pixel takes the
                // exact path instead.
                job.p[10] = -1.0f;
                return 0;
            }
            report(job, 0.4f * static_cast<float>(first + batch) / count);
        }
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        co_precalculate(w, h, job.levels, job.p, threads, job.work, job.log_image,
                        job.store + job.stride * i, job.refs[i]);
        report(job, 0.4f * static_cast<float>(i + 1) / count);
    }
    return 0;
}

void co_job_level(CoJob &job, int l) {
    float *p = job.p;
    const float t5 = std::pow(static_cast<float>(l) / static_cast<float>(job.top), 5.0f);
    p[5] = static_cast<float>(p[2] * t5 * 0.015);
    p[7] = static_cast<float>(std::pow(2.0, p[2] * 0.04) * t5 - t5);
    int64_t offsets[CO_MAX_REFERENCES];
    for (int i = 0; i < CO_MAX_REFERENCES; ++i)
        offsets[i] = job.stride * i;
    const int count = job.stats ? job.count : 0;
    co_process_level(job.dim.width, job.dim.height, job.ws[l], job.hs[l], l, p, count, job.refs,
                     offsets, job.store, job.threads, job.work, job.log_image, job.off[l],
                     job.pyramid + job.off[l], job.coef);
    std::memcpy(job.pyramid + job.off[l], job.coef,
                static_cast<size_t>(job.ws[l]) * job.hs[l] * sizeof(float));
}

void co_job_collapse(CoJob &job) {
    const int wrap = static_cast<int>(job.p[15]) != 0 ? 1 : 0;
    for (int l = job.top; l >= 0; --l) {
        const int w = job.ws[l], w2 = job.ws[l + 1], h2 = job.hs[l + 1];
        float *plane = job.pyramid + job.off[l];
        const float *coarse = job.pyramid + job.off[l + 1];
        for_row_bands(job.threads, job.hs[l], [&](int first, int rows) {
            // first is even, so the band expands from coarse row first / 2 onwards.
            const size_t at = static_cast<size_t>(first) * w;
            co_up(w, rows, w2, h2 - first / 2, wrap, coarse + static_cast<size_t>(first / 2) * w2,
                  job.coef + at);
            for (size_t i = at; i < at + static_cast<size_t>(rows) * w; ++i)
                plane[i] += job.coef[i];
        });
    }
    for_row_bands(job.threads, job.dim.height, [&](int first, int rows) {
        const size_t w = static_cast<size_t>(job.dim.width);
        for (size_t i = w * first; i < w * (first + rows); ++i)
            job.pyramid[i] = static_cast<float>(std::exp(static_cast<double>(job.pyramid[i])));
    });
}

void co_job_scale(CoJob &job) {
    co_map_scaling(job.p, job.pyramid, job.coef, job.dim);
}

} // namespace lv

extern "C" {

void co_set_alloc_observer(CoAllocObserver observer) {
    g_alloc_observer = observer;
}

void *co_calloc(size_t count, size_t size) {
    if (g_alloc_observer) g_alloc_observer(count * size);
    return std::calloc(count, size);
}

int mem4contrast_optimizer(int kind, DimParam dim, int64_t *size) {
    (void)kind;
    *size =
        pyram_len2(dim.width, dim.height) * 8 + static_cast<int64_t>(dim.width) * dim.height * 4;
    return 1;
}

float *co_gamma_table(int bits) {
    const int n = 1 << bits;
    float *lin = static_cast<float *>(co_calloc(static_cast<size_t>(n), sizeof(float)));
    if (!lin) return nullptr;
    const double top = n - 1;
    for (int i = 0; i < n; ++i)
        lin[i] = static_cast<float>(std::pow(i / top, 2.2) * top);
    return lin;
}

int co_acquistion(float *expTable, unsigned char *input, float *logImage, DimParam dim) {
    const int w = dim.width, h = dim.height;
    if (dim.bpsIn == 32) {
        for (int y = 0; y < h; ++y) {
            const unsigned char *row = input + static_cast<size_t>(4) * w * y;
            float *out = logImage + static_cast<size_t>(w) * y;
            for (int x = 0; x < w; ++x) {
                const float lum = static_cast<float>(0.0722 * row[2 * w + x] + 0.7152 * row[w + x] +
                                                     0.2126 * row[x]);
                out[x] = lum > 0.0f ? static_cast<float>(std::log(
                                          static_cast<double>(lum * expTable[row[3 * w + x]])))
                                    : 0.0f;
            }
        }
        return h;
    }
    const int bits = dim.bpsIn == 16 ? 16 : 8;
    lv::CoBuf<float> lin(co_gamma_table(bits));
    if (!lin) return LV_ERR_NOMEM;
    const int spp = dim.samplesPerPixel;
    const bool swap = dim.swapRedBlue != 0;
    const size_t ir = swap ? static_cast<size_t>(spp - 1) : 0, ig = (spp - 1) / 2,
                 ib = swap ? 0 : static_cast<size_t>(spp - 1);
    for (int y = 0; y < h; ++y) {
        float *out = logImage + static_cast<size_t>(w) * y;
        for (int x = 0; x < w; ++x) {
            const size_t at = static_cast<size_t>(dim.strideIn) * y + static_cast<size_t>(spp) * x;
            float r, g, b;
            if (bits == 16) {
                const uint16_t *s = reinterpret_cast<const uint16_t *>(input) + at;
                r = lin[s[ir]], g = lin[s[ig]], b = lin[s[ib]];
            } else {
                const unsigned char *s = input + at;
                r = lin[s[ir]], g = lin[s[ig]], b = lin[s[ib]];
            }
            const float lum = static_cast<float>(0.0722 * b + 0.7152 * g + 0.2126 * r);
            out[x] = lum > 0.0f ? static_cast<float>(std::log(static_cast<double>(lum))) : 0.0f;
        }
    }
    return h;
}

int tm_stats(int levels, int width, int height, float *p, float *pyramid, float *references) {
    const int64_t n0 = static_cast<int64_t>(width) * height;
    if (n0 < 1 || levels < 1) return 0;
    float lo = pyramid[0], hi = pyramid[0];
    for (int64_t i = 1; i < n0; ++i) {
        lo = std::min(lo, pyramid[i]);
        hi = std::max(hi, pyramid[i]);
    }
    const float scale = hi > lo ? 65535.0f / (hi - lo) : 1.0f;
    lv::CoBuf<int64_t> hist = lv::co_array<int64_t>(kBins), cum = lv::co_array<int64_t>(kBins);
    lv::CoBuf<int> starts = lv::co_array<int>(kBins);
    if (!hist || !cum || !starts) return 0;

    int step = 0, k = 8, win = 0;
    int64_t off = 0;
    int w = width, h = height;
    for (int l = 0; l < levels; ++l) {
        const int64_t count = static_cast<int64_t>(w) * h;
        const float *plane = pyramid + off;
        std::fill(hist.get(), hist.get() + kBins, 0);
        for (int64_t i = 0; i < count; ++i)
            ++hist[hist_bin(plane[i], lo, scale)];
        const int bin_low = first_over(hist.get(), count * 3 * 0.01);
        const int bin_high = first_over(hist.get(), count * 99.95 * 0.01);
        int64_t sum = 0;
        for (int i = 0; i < kBins; ++i)
            cum[i] = sum += hist[i];

        Window best{0, 0};
        if (l == 0) {
            // The grid's spacing in log units: 0.46, 0.644 or 0.828 as p[10] is 0, 2 or 4.
            step = static_cast<int>(scale * (p[10] * 0.092 + 0.46));
            k = 8;
            for (int kk = 4; kk <= 8; ++kk) {
                int kw = kk;
                win = kk * step;
                if (win > 65535) {
                    win = 65535;
                    kw = 65535 / step;
                }
                best = best_window(cum.get(), hist.get(), win);
                if (static_cast<double>(best.count) > 0.85 * count) {
                    k = kw;
                    break;
                }
            }
        } else {
            best = best_window(cum.get(), hist.get(), win);
        }
        ++starts[best.start];
        if (l == 1) {
            const float range = static_cast<float>(bin_high - bin_low) / scale;
            p[18] = std::min(std::max(range, 2.5f), 8.5f);
        }
        off += count;
        w = (w + 1) / 2;
        h = (h + 1) / 2;
    }
    // The median of the levels' best starts.
    int median = 0;
    int64_t running = 0;
    for (int i = 0; i < kBins; ++i) {
        running += starts[i];
        if (running >= levels / 2) {
            median = i;
            break;
        }
    }
    k = std::min(k, CO_MAX_REFERENCES);
    for (int i = 0; i < k; ++i)
        references[i] = static_cast<float>(median + i * step) / scale + lo;
    return k;
}

int lv_tm_optimizer(DimParam dim, OptimParam opt, LvProgressCallback progressContext, float *p,
                    unsigned char *mask, int reuseMap, float *map, unsigned char *input,
                    int64_t memorySize, unsigned char *memory) {
    if (dim.width < 1 || dim.height < 1 || !p || !input) return LV_ERR_ARG;
    const int64_t n = static_cast<int64_t>(dim.width) * dim.height;
    // The block must hold the log image and, at the end, the picture.
    const int64_t out_bytes =
        (dim.outputLayout == 3 ? n * 3 : int64_t(dim.strideOut) * dim.height) * (dim.bpsOut / 8);
    if (!memory || memorySize < std::max(n * 4, out_bytes)) return LV_ERR_NO_WORK;
    if (reuseMap && map) return co_final(dim, opt, progressContext, p, mask, input, map, memory);

    lv::CoJob job;
    struct Release {
        lv::CoJob &job;
        ~Release() { lv::co_job_release(job); }
    } release{job};
    if (lv::co_job_setup(job, dim, opt, progressContext, p, map, memorySize, memory) < 0)
        return LV_ERR_NOMEM;
    lv::co_job_acquire(job, input);
    lv::co_job_tower(job);
    lv::co_job_stats(job);
    report(job, 0.0f);
    for (int l = 0; l <= job.top; ++l) {
        lv::co_job_plain(job, l);
        if (l == 0 && job.stats && lv::co_job_fill_store(job) < 0) return LV_ERR_NOMEM;
        lv::co_job_level(job, l);
        report(job, 0.4f + 0.45f * static_cast<float>(l + 1) / (job.top + 1));
    }
    lv::co_job_collapse(job);
    lv::co_job_scale(job);
    report(job, 0.9f);
    if (map) std::memcpy(map, job.coef, static_cast<size_t>(n) * 4);
    float *finish_map = map ? map : job.coef;
    // A picture wider than the image area (16-bit samples from 8-bit input) runs on into the
    // coefficient plane; without the caller's map, the bands would then overwrite map rows
    // that others still read. The work tower, further on, holds the map then.
    const unsigned char *coef_bytes = reinterpret_cast<const unsigned char *>(job.coef);
    if (!map && coef_bytes < memory + out_bytes && coef_bytes + n * 4 > memory) {
        std::memcpy(job.work, job.coef, static_cast<size_t>(n) * 4);
        finish_map = job.work;
    }
    return co_final(dim, opt, progressContext, p, mask, input, finish_map, memory);
}

} // extern "C"
