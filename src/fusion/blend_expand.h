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

// The same expand read pixel by pixel, as the values are defined; the fast row expand below
// must give the same bytes.
inline void expand_row_reference(const uint16_t *coarse, int coarseW, int coarseH, int nc,
                                 bool wrap, int y, int fineW, int32_t *out) {
    if (nc == 1)
        expand_row_nc<1>(coarse, coarseW, coarseH, 1, wrap, y, fineW, out);
    else if (nc == 3)
        expand_row_nc<3>(coarse, coarseW, coarseH, 3, wrap, y, fineW, out);
    else
        expand_row_nc<0>(coarse, coarseW, coarseH, nc, wrap, y, fineW, out);
}

// Scratch rows of the fast expand, sized for one level's coarse row.
struct ExpandRows {
    int32_t *vsum; // n + s (even fine rows) or c + s (odd fine rows), per coarse sample
    int32_t *even; // fine samples at even columns, per coarse sample
    int32_t *odd;  // fine samples at odd columns, per coarse sample
};

// The expand of a coarse level at fine row y, computed per coarse sample from vertical sums
// in loops without tests (which the compiler vectorises), then interleaved into out.
template <int NC>
void expand_row_fast_nc(const uint16_t *coarse, int coarseW, int coarseH, int nc, bool wrap, int y,
                        int fineW, const ExpandRows &rows, int32_t *out) {
    if constexpr (NC > 0) nc = NC;
    const int64_t cs = int64_t(coarseW) * nc;
    const int cy = y >> 1;
    const uint16_t *c = coarse + cy * cs;
    const uint16_t *s = cy + 1 < coarseH ? c + cs : c;
    int32_t *__restrict v = rows.vsum;
    int32_t *__restrict ev = rows.even;
    int32_t *__restrict od = rows.odd;
    // Sample offsets of the west and east neighbours of the first and last coarse pixels.
    const int64_t last = cs - nc;
    const int64_t w0 = wrap ? last : 0, e_last = wrap ? 0 : last;
    const int64_t e0 = coarseW > 1 ? nc : e_last, w_last = coarseW > 1 ? last - nc : w0;
    if ((y & 1) == 0) {
        const uint16_t *n = cy > 0 ? c - cs : c;
        for (int64_t j = 0; j < cs; ++j)
            v[j] = n[j] + s[j];
        const auto even_at = [&](int64_t j, int64_t wj, int64_t ej) {
            return static_cast<int32_t>(0.0156 * (v[wj] + v[ej]) +
                                        0.09375 * (v[j] + c[wj] + c[ej]) + 0.5626 * c[j]);
        };
        for (int k = 0; k < nc; ++k) {
            ev[k] = even_at(k, w0 + k, e0 + k);
            od[k] = (6 * (c[k] + c[e0 + k]) + v[k] + v[e0 + k]) >> 4;
        }
        for (int64_t j = nc; j < last; ++j) {
            ev[j] = static_cast<int32_t>(0.0156 * (v[j - nc] + v[j + nc]) +
                                         0.09375 * (v[j] + c[j - nc] + c[j + nc]) + 0.5626 * c[j]);
            od[j] = (6 * (c[j] + c[j + nc]) + v[j] + v[j + nc]) >> 4;
        }
        if (coarseW > 1)
            for (int k = 0; k < nc; ++k) {
                const int64_t j = last + k;
                ev[j] = even_at(j, w_last + k, e_last + k);
                od[j] = (6 * (c[j] + c[e_last + k]) + v[j] + v[e_last + k]) >> 4;
            }
    } else {
        for (int64_t j = 0; j < cs; ++j)
            v[j] = c[j] + s[j];
        for (int k = 0; k < nc; ++k) {
            ev[k] = (6 * v[k] + v[w0 + k] + v[e0 + k]) >> 4;
            od[k] = (v[k] + v[e0 + k]) >> 2;
        }
        for (int64_t j = nc; j < last; ++j) {
            ev[j] = (6 * v[j] + v[j - nc] + v[j + nc]) >> 4;
            od[j] = (v[j] + v[j + nc]) >> 2;
        }
        if (coarseW > 1)
            for (int k = 0; k < nc; ++k) {
                const int64_t j = last + k;
                ev[j] = (6 * v[j] + v[w_last + k] + v[e_last + k]) >> 4;
                od[j] = (v[j] + v[e_last + k]) >> 2;
            }
    }
    // Interleave: fine pixel 2cx takes the even value, 2cx + 1 (when inside) the odd one.
    const int pairs = fineW / 2;
    for (int cx = 0; cx < pairs; ++cx)
        for (int k = 0; k < nc; ++k) {
            out[int64_t(2 * cx) * nc + k] = ev[int64_t(cx) * nc + k];
            out[int64_t(2 * cx + 1) * nc + k] = od[int64_t(cx) * nc + k];
        }
    if (fineW & 1)
        for (int k = 0; k < nc; ++k)
            out[int64_t(fineW - 1) * nc + k] = ev[int64_t(pairs) * nc + k];
}

inline void expand_row(const uint16_t *coarse, int coarseW, int coarseH, int nc, bool wrap, int y,
                       int fineW, const ExpandRows &rows, int32_t *out) {
    if (nc == 1)
        expand_row_fast_nc<1>(coarse, coarseW, coarseH, 1, wrap, y, fineW, rows, out);
    else if (nc == 3)
        expand_row_fast_nc<3>(coarse, coarseW, coarseH, 3, wrap, y, fineW, rows, out);
    else
        expand_row_fast_nc<0>(coarse, coarseW, coarseH, nc, wrap, y, fineW, rows, out);
}

} // namespace lv::blend
