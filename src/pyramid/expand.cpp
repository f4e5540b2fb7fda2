// Expand a tower level to the size of the level below it by bilinear interpolation, either
// storing the result or subtracting it from the finer level to leave the band-pass detail.
// Sums are taken in 32 bits and truncated by the shift; nothing rounds.
#include <cstdint>

#include "lumivantor/pyramid.h"

namespace {

struct Store {
    template <class T> static void put(T &fine, int v) { fine = static_cast<T>(v); }
};
struct Subtract {
    template <class T> static void put(T &fine, int v) { fine = static_cast<T>(fine - v); }
};

// One fine row from coarse row r0 and the row below it, r1 (r0 itself on the last row).
// odd_row selects the vertical midpoint.
template <class Op, class T>
void expand_row(const T *r0, const T *r1, bool odd_row, int fineW, int coarseW, int nc, bool wrap,
                T *out) {
    const auto pair = [&](int cx, int ex, bool has_odd) {
        T *o = out + 2 * cx * nc;
        for (int k = 0; k < nc; ++k) {
            const int c = r0[cx * nc + k], e = r0[ex * nc + k];
            if (!odd_row) {
                Op::put(o[k], c);
                if (has_odd) Op::put(o[nc + k], (c + e) >> 1);
            } else {
                const int s = r1[cx * nc + k], d = r1[ex * nc + k];
                Op::put(o[k], (c + s) >> 1);
                if (has_odd) Op::put(o[nc + k], (c + e + s + d) >> 2);
            }
        }
    };
    for (int cx = 0; cx < coarseW - 1; ++cx)
        pair(cx, cx + 1, true);
    const int last = coarseW - 1;
    pair(last, wrap ? 0 : last, 2 * last + 1 < fineW);
}

template <class Op, class T>
int expand(int fineW, int fineH, int coarseW, int coarseH, int nc, int wrap, const T *coarse,
           T *fine) {
    if (nc != 1 && nc != 3) return -1;
    if (fineW < 1 || fineH < 1 || coarseW != fineW % 2 + fineW / 2 ||
        coarseH != fineH % 2 + fineH / 2)
        return -1;
    const int64_t coarse_stride = static_cast<int64_t>(coarseW) * nc;
    const int64_t fine_stride = static_cast<int64_t>(fineW) * nc;
    for (int y = 0; y < fineH; ++y) {
        const int cy = y >> 1;
        const T *r0 = coarse + cy * coarse_stride;
        const T *r1 = cy + 1 < coarseH ? r0 + coarse_stride : r0;
        expand_row<Op>(r0, r1, (y & 1) != 0, fineW, coarseW, nc, wrap != 0, fine + y * fine_stride);
    }
    return fineH;
}

} // namespace

extern "C" {

LV_API int lv_short_upsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                             const int16_t *coarse, int16_t *fine) {
    return expand<Store>(fineW, fineH, coarseW, coarseH, ncomp, wrap, coarse, fine);
}

LV_API int lv_uchar_upsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                             const unsigned char *coarse, unsigned char *fine) {
    return expand<Store>(fineW, fineH, coarseW, coarseH, ncomp, wrap, coarse, fine);
}

LV_API int lv_short_diff(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                         const int16_t *coarse, int16_t *fine) {
    return expand<Subtract>(fineW, fineH, coarseW, coarseH, ncomp, wrap, coarse, fine);
}

LV_API int lv_uchar_diff(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                         const unsigned char *coarse, unsigned char *fine) {
    return expand<Subtract>(fineW, fineH, coarseW, coarseH, ncomp, wrap, coarse, fine);
}

} // extern "C"
