// Reduce of the fusion's image and weight towers. Unlike the tower toolkit's reduce it never
// clamps to the edge: a pixel whose neighbourhood is cut by one border uses a five-neighbour
// kernel, and one cut by two borders (a corner) a three-sample kernel, so that weights near
// the frame keep their own values instead of repeated ones.
#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "fusion/blend.h"

namespace {

// The five-neighbour kernel: centre, the three direct neighbours and the two diagonals on the
// side that exists; its weights sum to 0.99997.
inline double edge_double(double c, double direct, double diagonal) {
    return 0.333 * c + 0.1667 * direct + (1.0 / 12.0) * diagonal;
}

template <class T> struct Kernel;

template <> struct Kernel<float> {
    static float interior(float c, float direct, float diagonal) {
        return 0.0625f * diagonal + 0.125f * direct + 0.25f * c;
    }
    // Along the top and bottom rows the float kernel runs in single precision.
    static float row_edge(float c, float direct, float diagonal) {
        return 0.333f * c + 0.1667f * direct + 0.083333336f * diagonal;
    }
    static float column_edge(float c, float direct, float diagonal) {
        return static_cast<float>(edge_double(c, direct, diagonal));
    }
    static float corner(float c, float d1, float d2) { return 0.5f * c + 0.25f * (d1 + d2); }
};

template <class T> struct IntKernel {
    static T interior(int c, int direct, int diagonal) {
        return static_cast<T>((diagonal >> 4) + (direct >> 3) + (c >> 2));
    }
    static T row_edge(int c, int direct, int diagonal) {
        return static_cast<T>(static_cast<int>(edge_double(c, direct, diagonal)));
    }
    static T column_edge(int c, int direct, int diagonal) { return row_edge(c, direct, diagonal); }
    static T corner(int c, int d1, int d2) { return static_cast<T>(((d1 + d2) >> 2) + (c >> 1)); }
};
template <> struct Kernel<uint8_t> : IntKernel<uint8_t> {};
template <> struct Kernel<uint16_t> : IntKernel<uint16_t> {};

// Accumulates sums in the samples' own arithmetic: int for integers, float for floats.
template <class T> using Sum = std::conditional_t<std::is_floating_point_v<T>, float, int>;

// One coarse pixel at any place. n and s are null where the row above or below is missing;
// w and e are -1 where the column is missing (never with wrap). Offsets are in samples.
template <class T>
void any_pixel(const T *n, const T *c, const T *s, int64_t w, int64_t x, int64_t e, int nc,
               T *out) {
    using K = Kernel<T>;
    using S = Sum<T>;
    const bool top = !n, bottom = !s, left = w < 0, right = e < 0;
    const int missing = top + bottom + left + right;
    for (int k = 0; k < nc; ++k) {
        const S cv = c[x + k];
        if (missing == 0) {
            const S direct = S(n[x + k]) + s[x + k] + c[w + k] + c[e + k];
            const S diagonal = S(n[w + k]) + n[e + k] + s[w + k] + s[e + k];
            out[k] = K::interior(cv, direct, diagonal);
        } else if (missing == 1 && (top || bottom)) {
            const T *side = top ? s : n;
            out[k] =
                K::row_edge(cv, S(c[w + k]) + c[e + k] + side[x + k], S(side[w + k]) + side[e + k]);
        } else if (missing == 1) {
            const int64_t side = left ? e : w;
            out[k] = K::column_edge(cv, S(n[x + k]) + s[x + k] + c[side + k],
                                    S(n[side + k]) + s[side + k]);
        } else if (missing == 2 && (top || bottom) && (left || right)) {
            out[k] = K::corner(cv, (top ? s : n)[x + k], c[(left ? e : w) + k]);
        } else {
            // A level one pixel high or wide has nothing to average across: keep the centre.
            out[k] = c[x + k];
        }
    }
}

template <class T, int NC>
void interior_run(const T *n, const T *c, const T *s, int first, int end, int nc, T *out) {
    if constexpr (NC > 0) nc = NC;
    using K = Kernel<T>;
    using S = Sum<T>;
    for (int x = first; x < end; ++x) {
        const int64_t i0 = int64_t(2) * x * nc;
        for (int k = 0; k < nc; ++k) {
            const int64_t i = i0 + k;
            const S direct = S(n[i]) + s[i] + c[i - nc] + c[i + nc];
            const S diagonal = S(n[i - nc]) + n[i + nc] + s[i - nc] + s[i + nc];
            out[int64_t(x) * nc + k] = K::interior(c[i], direct, diagonal);
        }
    }
}

template <class T>
void reduce_level(int fineW, int fineH, int coarseW, int coarseH, int nc, bool wrap, const T *fine,
                  T *coarse) {
    const int64_t stride = int64_t(fineW) * nc;
    const auto west = [&](int cx) -> int64_t {
        return cx > 0 ? int64_t(cx - 1) * nc : (wrap ? int64_t(fineW - 1) * nc : -1);
    };
    const auto east = [&](int cx) -> int64_t {
        return cx + 1 < fineW ? int64_t(cx + 1) * nc : (wrap ? 0 : -1);
    };
    // Coarse columns whose east neighbour is inside the row.
    const int interior_end = std::min(fineW / 2, coarseW);
    for (int y = 0; y < coarseH && 2 * y < fineH; ++y) {
        const T *c = fine + 2 * y * stride;
        const T *n = y > 0 ? c - stride : nullptr;
        const T *s = 2 * y + 1 < fineH ? c + stride : nullptr;
        T *out = coarse + int64_t(y) * coarseW * nc;
        const bool full_row = n && s;
        const auto pixel = [&](int x) {
            any_pixel(n, c, s, west(2 * x), int64_t(2) * x * nc, east(2 * x), nc, out + x * nc);
        };
        pixel(0);
        int x = 1;
        if (full_row && interior_end > 1) {
            if (nc == 1)
                interior_run<T, 1>(n, c, s, 1, interior_end, 1, out);
            else if (nc == 3)
                interior_run<T, 3>(n, c, s, 1, interior_end, 3, out);
            else
                interior_run<T, 0>(n, c, s, 1, interior_end, nc, out);
            x = interior_end;
        }
        for (; x < coarseW && 2 * x < fineW; ++x)
            pixel(x);
    }
}

} // namespace

extern "C" {

LV_API int fusion21a(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int bits, int wrap,
                     int64_t fineOffset, int64_t coarseOffset, void *, void *tower) {
    if (fineW < 1 || fineH < 1 || ncomp < 1 || !tower) return 0;
    switch (bits) {
    case 8: {
        auto *t = static_cast<uint8_t *>(tower);
        reduce_level(fineW, fineH, coarseW, coarseH, ncomp, wrap != 0, t + fineOffset,
                     t + coarseOffset);
        return coarseH;
    }
    case 16: {
        auto *t = static_cast<uint16_t *>(tower);
        reduce_level(fineW, fineH, coarseW, coarseH, ncomp, wrap != 0, t + fineOffset,
                     t + coarseOffset);
        return coarseH;
    }
    case 32: {
        auto *t = static_cast<float *>(tower);
        reduce_level(fineW, fineH, coarseW, coarseH, ncomp, wrap != 0, t + fineOffset,
                     t + coarseOffset);
        return coarseH;
    }
    default:
        return 0;
    }
}

LV_API int fusion21(int levels, int width, int height, int bits, int wrap, void *tower) {
    int64_t at = 0;
    for (int l = 0; l < levels; ++l) {
        const int cw = width % 2 + width / 2, ch = height % 2 + height / 2;
        const int64_t next = at + int64_t(width) * height;
        fusion21a(width, height, cw, ch, 1, bits, wrap, at, next, nullptr, tower);
        at = next;
        width = cw;
        height = ch;
    }
    return levels;
}

} // extern "C"
