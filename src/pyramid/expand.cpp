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

// One fine row from coarse row r0 and the row below it, r1 (r0 itself on the last row);
// odd_row selects the vertical midpoint. The columns before the last have their east
// neighbour inside the row and run in loops without tests, one per row parity.
template <class Op, int NC, class T>
void expand_row(const T *__restrict r0, const T *__restrict r1, bool odd_row, int fineW,
                int coarseW, int nc, bool wrap, T *__restrict out) {
    if constexpr (NC > 0) nc = NC;
    const int64_t inner = int64_t(coarseW - 1) * nc;
    if (!odd_row) {
        for (int64_t j = 0; j < inner; ++j) {
            const int c = r0[j], e = r0[j + nc];
            T *o = out + j + (j / nc) * nc; // fine pixel 2cx, sample k
            Op::put(o[0], c);
            Op::put(o[nc], (c + e) >> 1);
        }
    } else {
        for (int64_t j = 0; j < inner; ++j) {
            const int c = r0[j], e = r0[j + nc], s = r1[j], d = r1[j + nc];
            T *o = out + j + (j / nc) * nc;
            Op::put(o[0], (c + s) >> 1);
            Op::put(o[nc], (c + e + s + d) >> 2);
        }
    }
    // The last coarse column: its east neighbour wraps to column 0 or repeats it.
    const int last = coarseW - 1;
    const int64_t lc = int64_t(last) * nc, le = wrap ? 0 : lc;
    T *o = out + 2 * lc;
    const bool has_odd = 2 * last + 1 < fineW;
    for (int k = 0; k < nc; ++k) {
        const int c = r0[lc + k], e = r0[le + k];
        const int s = odd_row ? r1[lc + k] : c, d = odd_row ? r1[le + k] : e;
        Op::put(o[k], (c + s) >> 1);
        if (has_odd) Op::put(o[nc + k], (c + e + s + d) >> 2);
    }
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
        T *out = fine + y * fine_stride;
        if (nc == 1)
            expand_row<Op, 1>(r0, r1, (y & 1) != 0, fineW, coarseW, 1, wrap != 0, out);
        else
            expand_row<Op, 3>(r0, r1, (y & 1) != 0, fineW, coarseW, 3, wrap != 0, out);
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
