// Levels of the contrast optimizer's tower: the 3 x 3 reduce with weights renormalised at
// the borders, the bilinear expand, the band-pass difference in float, 16-bit and
// single-coefficient form, and the per-level pass that swaps each plain coefficient for
// the local Laplacian one, read from the reference store or worked out in a window.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>


#include "contrast/contrast.h"
#include "contrast/simd.h"
#include "frame/band_threads.h"

namespace {

// Centre, 4-neighbour and diagonal weights by how many sides (a row side, a column side)
// the source pixel lacks. The border and corner weights are kept as written, so a flat
// field comes out a hair darker there.
constexpr float kWeights[3][3] = {
    {0.25f, 0.125f, 0.0625f}, {0.333f, 0.1667f, 0.083333336f}, {0.444f, 0.222f, 0.111f}};

inline float reduce_px(const float *w, float c, float a, float b) {
    return c * w[0] + a * w[1] + b * w[2];
}

// One target pixel with every case handled: missing neighbours count as 0, wrap gives
// the row's other end.
inline float reduce_general(int w, int wrap, const float *up, const float *mid, const float *down,
                            int sx, int row_side) {
    int left = sx - 1, right = sx + 1;
    int col_side = 0;
    if (wrap) {
        if (left < 0) left = w - 1;
        if (right >= w) right = 0;
    } else {
        if (left < 0) {
            left = -1;
            col_side = 1;
        }
        if (right >= w) {
            right = -1;
            col_side = 1;
        }
    }
    auto at = [](const float *row, int x) { return (row && x >= 0) ? row[x] : 0.0f; };
    const float a = ((at(up, sx) + at(down, sx)) + at(mid, left)) + at(mid, right);
    const float b = ((at(up, left) + at(up, right)) + at(down, left)) + at(down, right);
    return reduce_px(kWeights[row_side + col_side], mid[sx], a, b);
}

// Mean of two neighbours in double, of four in float: the expand's arithmetic.
inline float mean2(float a, float b) {
    return static_cast<float>((static_cast<double>(a) + b) * 0.5);
}
inline float mean4(float a, float b, float c, float d) {
    return (a + b + c + d) * 0.25f;
}

// Calls emit(x, value) with the expansion of coarse row cy for every fine column of
// fine row y.
template <class Emit>
inline void expand_row(int w, int w2, int h2, int wrap, const float *coarse, int y, Emit emit) {
    const int cy = y >> 1;
    const float *row = coarse + static_cast<size_t>(cy) * w2;
    const float *below = cy + 1 < h2 ? row + w2 : row;
    const int last = w2 - 1;
    auto right = [&](const float *r, int cx) {
        return cx < last ? r[cx + 1] : (wrap ? r[0] : r[cx]);
    };
    if ((y & 1) == 0) {
        int x = 0;
        for (int cx = 0; cx < last && x + 1 < w; ++cx, x += 2) {
            emit(x, row[cx]);
            emit(x + 1, mean2(row[cx], row[cx + 1]));
        }
        for (; x < w; ++x) {
            const int cx = x >> 1;
            emit(x, (x & 1) ? mean2(row[cx], right(row, cx)) : row[cx]);
        }
    } else {
        int x = 0;
        for (int cx = 0; cx < last && x + 1 < w; ++cx, x += 2) {
            emit(x, mean2(row[cx], below[cx]));
            emit(x + 1, mean4(row[cx], row[cx + 1], below[cx], below[cx + 1]));
        }
        for (; x < w; ++x) {
            const int cx = x >> 1;
            emit(x, (x & 1) ? mean4(row[cx], right(row, cx), below[cx], right(below, cx))
                            : mean2(row[cx], below[cx]));
        }
    }
}

inline int16_t to_store(float d, float scale) {
    const float v = d * scale;
    if (!(v > -32767.0f)) return v != v ? 0 : -32767;
    if (v > 32767.0f) return 32767;
    return static_cast<int16_t>(v);
}

#ifdef CO_HAVE_AVX2_PATH
// Eight interior targets at a time on processors with AVX2, with the scalar's sums in the
// scalar's order; returns the first x it did not do.
__attribute__((target("avx2"))) int reduce_interior_avx2(const float *wt, const float *up,
                                                         const float *mid, const float *down, int x,
                                                         int x_stop, float *out) {
    const __m256 w0 = _mm256_set1_ps(wt[0]), w1 = _mm256_set1_ps(wt[1]), w2 = _mm256_set1_ps(wt[2]);
    // The even (or odd) samples of r[at .. at + 15], in order.
#define CO_PICK(r, at, sel)                                                                        \
    _mm256_castpd_ps(_mm256_permute4x64_pd(                                                        \
        _mm256_castps_pd(_mm256_shuffle_ps(_mm256_loadu_ps((r) + (at)),                            \
                                           _mm256_loadu_ps((r) + (at) + 8), (sel))),               \
        _MM_SHUFFLE(3, 1, 2, 0)))
    const int even = _MM_SHUFFLE(2, 0, 2, 0);
    const int odd = _MM_SHUFFLE(3, 1, 3, 1);
    for (; x + 8 <= x_stop; x += 8) {
        const int sx = 2 * x;
        const __m256 a = _mm256_add_ps(
            _mm256_add_ps(_mm256_add_ps(CO_PICK(up, sx, even), CO_PICK(down, sx, even)),
                          CO_PICK(mid, sx - 2, odd)),
            CO_PICK(mid, sx, odd));
        const __m256 b = _mm256_add_ps(
            _mm256_add_ps(_mm256_add_ps(CO_PICK(up, sx - 2, odd), CO_PICK(up, sx, odd)),
                          CO_PICK(down, sx - 2, odd)),
            CO_PICK(down, sx, odd));
        _mm256_storeu_ps(out + x,
                         _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(CO_PICK(mid, sx, even), w0),
                                                     _mm256_mul_ps(a, w1)),
                                       _mm256_mul_ps(b, w2)));
    }
    return x;
}
#undef CO_PICK
#endif

// Everything one level's pass needs, shared read-only by its bands.
struct LevelPass {
    int width, height, level_width, level_height, level;
    bool fast;
    int last;
    float unit, alpha, sigma;
    bool wrap_cols;
    const float *references;
    const int64_t *store_offsets;
    const int16_t *store;
    const float *log_image;
    int64_t level_offset;
    const float *values;
    float *out;
};

// Largest work tower, in floats, that a band of the level pass gets for itself (4 MB).
constexpr int64_t kBandWorkLimit = int64_t(1) << 20;

// Target pixel (x2, y2) of the reduce of a w x h plane.
inline float reduce_one(int w, int h, int wrap, const float *plane, int x2, int y2) {
    const int sy = 2 * y2;
    const float *mid = plane + static_cast<size_t>(sy) * w;
    const float *up = sy > 0 ? mid - w : nullptr;
    const float *down = sy + 1 < h ? mid + w : nullptr;
    return reduce_general(w, wrap, up, mid, down, 2 * x2, (up && down) ? 0 : 1);
}

// The coefficient of one pixel from the reference store: linear between the two
// references that bracket its value.
inline float from_store(const LevelPass &lp, float g, size_t idx) {
    const float *refs = lp.references;
    int lo = 0, hi = 0;
    if (g >= refs[lp.last]) {
        lo = hi = lp.last;
    } else if (g != refs[0]) {
        hi = 1;
        while (!(refs[hi] > g))
            ++hi;
        lo = hi - 1;
    }
    const float span = refs[hi] - refs[lo];
    const float f = span > 0.0f ? (refs[hi] - g) / span : 1.0f;
    const int64_t at = lp.level_offset + static_cast<int64_t>(idx);
    const float vh = lp.store[lp.store_offsets[hi] + at];
    const float vl = lp.store[lp.store_offsets[lo] + at];
    return (vh * (1.0f - f) + vl * f) * lp.unit;
}

// The coefficient of pixel (r, c) from the window of the log image that feeds it,
// remapped around g and reduced into a small tower in work. Leaves out[idx] (the plain
// coefficient) when the remapping changes no sample of the window.
void exact_coefficient(const LevelPass &lp, int r, int c, float g, float *work, int threads,
                       float *out) {
    const int level = lp.level, width = lp.width;
    const int64_t s0 = int64_t(1) << level, s1 = int64_t(2) << level;
    const int64_t r0 = std::max<int64_t>((r / 2 - 1) * s1, 0);
    const int64_t r1 = std::min<int64_t>((r / 2 + r % 2 + 1) * s1, lp.height);
    int64_t c0 = (c / 2 - 1) * s1, c1 = (c / 2 + c % 2 + 1) * s1;
    if (!lp.wrap_cols || c1 - c0 >= width - 1) {
        c0 = std::max<int64_t>(c0, 0);
        c1 = std::min<int64_t>(c1, width);
    }
    const int ww = static_cast<int>(c1 - c0), wh = static_cast<int>(r1 - r0);
    const lv::CoRemap map = lv::co_remap_for(g, lp.alpha, lp.sigma);
    bool changed = false;
    for (int y = 0; y < wh; ++y) {
        const float *src = lp.log_image + static_cast<size_t>(r0 + y) * width;
        float *dst = work + static_cast<size_t>(y) * ww;
        if (c0 >= 0 && c1 <= width) {
            changed |= lv::co_remap_row(map, src + c0, dst, ww);
        } else {
            for (int x = 0; x < ww; ++x) {
                int64_t sx = c0 + x;
                if (sx < 0) sx += width;
                if (sx >= width) sx -= width;
                const float m = lv::co_remap(map, src[sx]);
                changed |= m != src[sx];
                dst[x] = m;
            }
        }
    }
    if (!changed) return;
    const int win_wrap = (lp.wrap_cols && ww == width) ? 1 : 0;
    if (level == 0) {
        // One reduce: work out only the (at most four) coarse pixels that the expansion
        // at this pixel reads, each as the full reduce would.
        const int w2 = (ww + 1) / 2, h2 = (wh + 1) / 2;
        const int py = static_cast<int>(std::max<int64_t>(r - r0, 0));
        const int px = static_cast<int>(std::max<int64_t>(c - c0, 0));
        const int cx = px >> 1, cy = py >> 1;
        const int rx = cx + 1 < w2 ? cx + 1 : (win_wrap ? 0 : cx);
        const int by = cy + 1 < h2 ? cy + 1 : cy;
        float *coarse = work + static_cast<int64_t>(ww) * wh;
        for (int y2 : {cy, by})
            for (int x2 : {cx, rx})
                coarse[static_cast<size_t>(y2) * w2 + x2] =
                    reduce_one(ww, wh, win_wrap, work, x2, y2);
        co_diff(ww, wh, w2, h2, -1, win_wrap, static_cast<int64_t>(py) * ww + px, coarse, work, out,
                1.0f);
        return;
    }
    int w = ww, h = wh, fine_w = w, fine_h = h;
    int64_t off = 0, fine_off = 0;
    for (int k = 0; k <= level; ++k) {
        const int w2 = (w + 1) / 2, h2 = (h + 1) / 2;
        const int64_t next = off + static_cast<int64_t>(w) * h;
        co_down(w, h, w2, h2, win_wrap, off, next, threads, work);
        fine_off = off;
        fine_w = w;
        fine_h = h;
        off = next;
        w = w2;
        h = h2;
    }
    const int64_t py = std::max<int64_t>(r * s0 - r0, 0) >> level;
    const int64_t px = std::max<int64_t>(c * s0 - c0, 0) >> level;
    co_diff(fine_w, fine_h, w, h, -1, win_wrap, py * fine_w + px, work + off, work + fine_off, out,
            1.0f);
}

// Rows [first, end) of the level pass.
void level_rows(const LevelPass &lp, int first, int end, float *work, int threads) {
    const float lo_ref = lp.fast ? lp.references[0] : 0.0f;
    const float hi_ref = lp.fast ? lp.references[lp.last] : 0.0f;
    for (int r = first; r < end; ++r)
        for (int c = 0; c < lp.level_width; ++c) {
            const size_t idx = static_cast<size_t>(r) * lp.level_width + c;
            const float g = lp.values[idx];
            if (lp.fast && g >= lo_ref && g <= hi_ref)
                lp.out[idx] = from_store(lp, g, idx);
            else
                exact_coefficient(lp, r, c, g, work, threads, &lp.out[idx]);
        }
}

struct LevelBandArgs {
    const LevelPass *pass;
    float *work;
    int threadIndex, threadCount, result;
};

void *level_band_threaded(void *args) {
    auto *a = static_cast<LevelBandArgs *>(args);
    const lv::Band band = lv::band_of(a->pass->level_height, a->threadIndex, a->threadCount);
    level_rows(*a->pass, band.first, band.first + band.rows, a->work, 1);
    a->result = band.rows;
    pthread_exit(nullptr);
}

} // namespace

extern "C" {

void co_reduce_row(int w, int w2, int wrap, const float *up, const float *mid, const float *down,
                   float *out) {
    const int row_side = (up && down) ? 0 : 1;
    // Interior columns have both neighbours whatever the wrap; the ends go the long way.
    const int x_end = (w - 2) / 2 + 1; // first x whose right neighbour 2x + 1 is missing
    const int x_stop = std::min(x_end, w2);
    if (x_stop <= 1) {
        for (int x = 0; x < w2; ++x)
            out[x] = reduce_general(w, wrap, up, mid, down, 2 * x, row_side);
        return;
    }
    const float *wt = kWeights[row_side];
    if (up && down) {
        int x = 1;
#ifdef CO_HAVE_AVX2_PATH
        if (x_stop >= 9 && __builtin_cpu_supports("avx2"))
            x = reduce_interior_avx2(wt, up, mid, down, x, x_stop, out);
#endif
#ifdef __SSE2__
        // Four targets at a time: the even source columns and their odd neighbours picked
        // out of two loads, summed in the scalar order.
        const __m128 w0 = _mm_set1_ps(wt[0]), w1 = _mm_set1_ps(wt[1]), w2 = _mm_set1_ps(wt[2]);
        auto evens = [](const float *r, int at) {
            return _mm_shuffle_ps(_mm_loadu_ps(r + at), _mm_loadu_ps(r + at + 4),
                                  _MM_SHUFFLE(2, 0, 2, 0));
        };
        auto odds = [](const float *r, int at) {
            return _mm_shuffle_ps(_mm_loadu_ps(r + at), _mm_loadu_ps(r + at + 4),
                                  _MM_SHUFFLE(3, 1, 3, 1));
        };
        for (; x + 4 <= x_stop; x += 4) {
            const int sx = 2 * x;
            const __m128 a = _mm_add_ps(
                _mm_add_ps(_mm_add_ps(evens(up, sx), evens(down, sx)), odds(mid, sx - 2)),
                odds(mid, sx));
            const __m128 b = _mm_add_ps(
                _mm_add_ps(_mm_add_ps(odds(up, sx - 2), odds(up, sx)), odds(down, sx - 2)),
                odds(down, sx));
            const __m128 v = _mm_add_ps(
                _mm_add_ps(_mm_mul_ps(evens(mid, sx), w0), _mm_mul_ps(a, w1)), _mm_mul_ps(b, w2));
            _mm_storeu_ps(out + x, v);
        }
#endif
        for (; x < x_stop; ++x) {
            const int sx = 2 * x;
            const float a = ((up[sx] + down[sx]) + mid[sx - 1]) + mid[sx + 1];
            const float b = ((up[sx - 1] + up[sx + 1]) + down[sx - 1]) + down[sx + 1];
            out[x] = reduce_px(wt, mid[sx], a, b);
        }
    } else if (up) {
        for (int x = 1; x < x_stop; ++x) {
            const int sx = 2 * x;
            const float a = ((up[sx] + 0.0f) + mid[sx - 1]) + mid[sx + 1];
            const float b = ((up[sx - 1] + up[sx + 1]) + 0.0f) + 0.0f;
            out[x] = reduce_px(wt, mid[sx], a, b);
        }
    } else if (down) {
        for (int x = 1; x < x_stop; ++x) {
            const int sx = 2 * x;
            const float a = ((0.0f + down[sx]) + mid[sx - 1]) + mid[sx + 1];
            const float b = ((0.0f + 0.0f) + down[sx - 1]) + down[sx + 1];
            out[x] = reduce_px(wt, mid[sx], a, b);
        }
    } else {
        for (int x = 1; x < x_stop; ++x)
            out[x] = reduce_general(w, wrap, up, mid, down, 2 * x, row_side);
    }
    out[0] = reduce_general(w, wrap, up, mid, down, 0, row_side);
    for (int x = x_stop; x < w2; ++x)
        out[x] = reduce_general(w, wrap, up, mid, down, 2 * x, row_side);
}

int co_top_level(int width, int height) {
    const int side = std::min(width, height);
    if (side < 1) return 0;
    return static_cast<int>(std::log(static_cast<double>(side)) * 1.4426950408889634);
}

int64_t co_tower_len(int width, int height, int planes) {
    int64_t len = 0;
    int64_t w = width, h = height;
    for (int k = 0; k < planes; ++k) {
        len += w * h;
        w = (w + 1) / 2;
        h = (h + 1) / 2;
    }
    return len;
}

int co_down_orig(int w, int h, int w2, int h2, int wrap, const float *source, float *target,
                 int firstRow, int rows, int band) {
    (void)band; // every row knows from its index whether it lies on the top or bottom edge
    for (int y = firstRow; y < firstRow + rows && y < h2; ++y) {
        const int sy = 2 * y;
        const float *mid = source + static_cast<size_t>(sy) * w;
        co_reduce_row(w, w2, wrap, sy > 0 ? mid - w : nullptr, mid, sy + 1 < h ? mid + w : nullptr,
                      target + static_cast<size_t>(y) * w2);
    }
    return rows;
}

void *co_down_threaded(void *args) {
    auto *a = static_cast<CoDownArgs *>(args);
    const lv::Band band = lv::band_of(a->h2, a->threadIndex, a->threadCount);
    const int code =
        a->threadCount == 1
            ? 2
            : (a->threadIndex == 0 ? 0 : (a->threadIndex == a->threadCount - 1 ? 1 : 3));
    a->result = co_down_orig(a->w, a->h, a->w2, a->h2, a->wrap, a->source, a->target, band.first,
                             band.rows, code);
    pthread_exit(nullptr);
}

int co_down(int w, int h, int w2, int h2, int wrap, int64_t sourceOffset, int64_t targetOffset,
            int numThreads, float *pyramid) {
    const float *source = pyramid + sourceOffset;
    float *target = pyramid + targetOffset;
    if (numThreads >= 2 && h2 / numThreads >= 100) {
        const int r = lv::run_threaded<CoDownArgs>(
            numThreads, co_down_threaded, [&](CoDownArgs &a, int index, int count) {
                a = CoDownArgs{w, h, w2, h2, wrap, source, target, index, count, 0};
            });
        if (r >= 0) return h2;
        // A band that could not start: redo the whole plane here.
    }
    co_down_orig(w, h, w2, h2, wrap, source, target, 0, h2, 2);
    return h2;
}

int co_up(int w, int h, int w2, int h2, int wrap, const float *coarse, float *fine) {
    for (int y = 0; y < h; ++y) {
        float *row = fine + static_cast<size_t>(y) * w;
        expand_row(w, w2, h2, wrap, coarse, y, [row](int x, float v) { row[x] = v; });
    }
    return h;
}

int co_diff(int w, int h, int w2, int h2, int mode, int wrap, int64_t target, const float *coarse,
            const float *fine, void *out, float scale) {
    if (mode == -1) {
        const int y = static_cast<int>(target / w), x = static_cast<int>(target % w);
        const int cx = x >> 1, cy = y >> 1;
        const float *row = coarse + static_cast<size_t>(cy) * w2;
        const float *below = cy + 1 < h2 ? row + w2 : row;
        auto right = [&](const float *r) {
            return cx < w2 - 1 ? r[cx + 1] : (wrap ? r[0] : r[cx]);
        };
        float e;
        if ((y & 1) == 0)
            e = (x & 1) ? mean2(row[cx], right(row)) : row[cx];
        else
            e = (x & 1) ? mean4(row[cx], right(row), below[cx], right(below))
                        : mean2(row[cx], below[cx]);
        *static_cast<float *>(out) = fine[target] - e;
        return 1;
    }
    for (int y = 0; y < h; ++y) {
        const size_t at = static_cast<size_t>(y) * w;
        const float *f = fine + at;
        if (mode == 16) {
            int16_t *o = static_cast<int16_t *>(out) + at;
            expand_row(w, w2, h2, wrap, coarse, y,
                       [o, f, scale](int x, float v) { o[x] = to_store(f[x] - v, scale); });
        } else {
            float *o = static_cast<float *>(out) + at;
            expand_row(w, w2, h2, wrap, coarse, y, [o, f](int x, float v) { o[x] = f[x] - v; });
        }
    }
    return h;
}

int co_process_level(int width, int height, int levelWidth, int levelHeight, int level, float *p,
                     int referenceCount, const float *references, const int64_t *storeOffsets,
                     const int16_t *store, int numThreads, float *work, const float *logImage,
                     int64_t levelOffset, const float *levelValues, float *out) {
    if (levelWidth < 1 || levelHeight < 1) return 0;
    LevelPass pass;
    pass.width = width;
    pass.height = height;
    pass.level_width = levelWidth;
    pass.level_height = levelHeight;
    pass.level = level;
    pass.fast = p[10] >= 0.0f && referenceCount > 0 && store != nullptr;
    pass.last = referenceCount - 1;
    pass.unit = p[11] * 3.051851e-05f;
    pass.alpha = lv::co_clamp_alpha(co_alpha0(p) / (1.0f + p[7]));
    pass.sigma = co_sigma0(p) / (1.0f + p[5]);
    pass.wrap_cols = static_cast<int>(p[15]) != 0;
    pass.references = references;
    pass.store_offsets = storeOffsets;
    pass.store = store;
    pass.log_image = logImage;
    pass.level_offset = levelOffset;
    pass.values = levelValues;
    pass.out = out;

    // Every coefficient is worked out on its own, so bands of rows give the same values
    // on any number of threads. Each band needs a work tower of its own for the windows,
    // which stays small at the fine levels, where nearly all coefficients lie; the coarse
    // levels run here on the caller's work tower.
    const int64_t side = int64_t(3) << (level + 1);
    const int64_t win_len =
        co_tower_len(static_cast<int>(std::min<int64_t>(side, width)),
                     static_cast<int>(std::min<int64_t>(side, height)), level + 2);
    const int threads = std::min(numThreads, levelHeight);
    if (threads >= 2 && win_len <= kBandWorkLimit) {
        lv::CoBuf<float> band_work =
            lv::co_array<float>(static_cast<size_t>(win_len) * (threads - 1));
        if (band_work) {
            const int r = lv::run_threaded<LevelBandArgs>(
                threads, level_band_threaded, [&](LevelBandArgs &a, int index, int count) {
                    a = LevelBandArgs{&pass,
                                      index == 0 ? work : band_work.get() + win_len * (index - 1),
                                      index, count, 0};
                });
            if (r >= 0) return levelHeight;
            // A band that could not start: every row once more here, which gives the
            // same values.
        }
    }
    level_rows(pass, 0, levelHeight, work, numThreads);
    return levelHeight;
}

} // extern "C"
