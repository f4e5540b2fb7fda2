// The blend's expand of a coarse level to one fine row: a cubic B-spline subdivision, not the
// tower toolkit's bilinear expand. It is recomputed for every photograph and level and never
// stored as a plane, so a photograph needs no band-pass tower of its own.
#pragma once

#include <cstdint>

namespace lv::blend {

// Fine samples 2cx and 2cx + 1 of an even fine row from coarse rows n, c, s (repeated at the
// top and bottom), at sample offsets w, x, e of the west, centre and east columns.
template <int NC>
inline void expand_even(const uint16_t *n, const uint16_t *c, const uint16_t *s, int64_t w,
                        int64_t x, int64_t e, int nc, bool has_odd, int32_t *out) {
    if constexpr (NC > 0) nc = NC;
    for (int k = 0; k < nc; ++k) {
        const int C = c[x + k], N = n[x + k], S = s[x + k], W = c[w + k], E = c[e + k];
        const int NE = n[e + k], SE = s[e + k];
        const int diagonal = n[w + k] + NE + s[w + k] + SE;
        // 0.0156 and 0.5626 stand near 1/64 and 9/16; the weights add up to 1.0002.
        out[k] = static_cast<int32_t>(0.0156 * diagonal + 0.09375 * (N + S + E + W) + 0.5626 * C);
        // 0.375 (C + E) + 0.0625 (N + NE + S + SE) is exact in double: the same as sixteenths.
        if (has_odd) out[nc + k] = (6 * (C + E) + (N + NE + S + SE)) >> 4;
    }
}

// Fine samples 2cx and 2cx + 1 of an odd fine row, between coarse rows c and s.
template <int NC>
inline void expand_odd(const uint16_t *c, const uint16_t *s, int64_t w, int64_t x, int64_t e,
                       int nc, bool has_odd, int32_t *out) {
    if constexpr (NC > 0) nc = NC;
    for (int k = 0; k < nc; ++k) {
        const int C = c[x + k], S = s[x + k], E = c[e + k], SE = s[e + k];
        out[k] = (6 * (C + S) + (c[w + k] + E + s[w + k] + SE)) >> 4;
        if (has_odd) out[nc + k] = (C + E + S + SE) >> 2;
    }
}

// The expand of a coarseW x coarseH level (nc samples a pixel) at fine row y, fineW wide,
// into out. Columns beyond the edge repeat the nearest one, or wrap round the panorama.
template <int NC>
void expand_row_nc(const uint16_t *coarse, int coarseW, int coarseH, int nc, bool wrap, int y,
                   int fineW, int32_t *out) {
    if constexpr (NC > 0) nc = NC;
    const int64_t stride = int64_t(coarseW) * nc;
    const int cy = y >> 1;
    const uint16_t *c = coarse + cy * stride;
    const uint16_t *n = cy > 0 ? c - stride : c;
    const uint16_t *s = cy + 1 < coarseH ? c + stride : c;
    const bool odd_row = (y & 1) != 0;
    const auto pair = [&](int cx, int64_t w, int64_t e) {
        const bool has_odd = 2 * cx + 1 < fineW;
        int32_t *o = out + int64_t(2) * cx * nc;
        if (odd_row)
            expand_odd<NC>(c, s, w, int64_t(cx) * nc, e, nc, has_odd, o);
        else
            expand_even<NC>(n, c, s, w, int64_t(cx) * nc, e, nc, has_odd, o);
    };
    const int last = coarseW - 1;
    const auto west = [&](int cx) -> int64_t { return cx > 0 ? cx - 1 : (wrap ? last : 0); };
    const auto east = [&](int cx) -> int64_t { return cx < last ? cx + 1 : (wrap ? 0 : last); };
    pair(0, west(0) * nc, east(0) * nc);
    for (int cx = 1; cx < last; ++cx)
        pair(cx, int64_t(cx - 1) * nc, int64_t(cx + 1) * nc);
    if (last > 0) pair(last, west(last) * nc, east(last) * nc);
}

inline void expand_row(const uint16_t *coarse, int coarseW, int coarseH, int nc, bool wrap, int y,
                       int fineW, int32_t *out) {
    if (nc == 1)
        expand_row_nc<1>(coarse, coarseW, coarseH, 1, wrap, y, fineW, out);
    else if (nc == 3)
        expand_row_nc<3>(coarse, coarseW, coarseH, 3, wrap, y, fineW, out);
    else
        expand_row_nc<0>(coarse, coarseW, coarseH, nc, wrap, y, fineW, out);
}

} // namespace lv::blend
