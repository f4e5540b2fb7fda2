// Reduce one tower level into the next: the 3x3 binomial centred on the even fine pixels.
// The 16-bit kernel is three separately truncated terms, the 8-bit one a single rounded sum;
// borders clamp to the edge, and a wrapped panorama closes its columns and treats its top
// and odd bottom row with a five-neighbour kernel.
#include <algorithm>
#include <cstdint>

#include "lumivantor/pyramid.h"
#include "pyramid/tower_kernels.h"

namespace {

using lv::tower::RowCols;

// Five-neighbour kernel of a wrapped level's top row (and odd bottom row): the row beyond
// the edge is missing, so the centre, the three direct neighbours and the two diagonals on
// the side of the existing row carry the weight (0.99997 in all).
inline double edge_row_value(int c, int direct, int diagonal) {
    return 0.333 * c + 0.1667 * direct + (1.0 / 12.0) * diagonal;
}

struct Short {
    using T = int16_t;
    static int full(int c, int a, int b) { return (a >> 3) + (c >> 2) + (b >> 4); }
    static int limit(int v) { return std::min(v, 32767); }
    static int edge(int c, int direct, int diagonal) {
        return std::min(static_cast<int>(edge_row_value(c, direct, diagonal)), 32767);
    }
};

struct Uchar {
    using T = unsigned char;
    static int full(int c, int a, int b) {
        const int s = 4 * c + 2 * a + b;
        // The exact half (remainder 8) rounds down.
        return std::min((s >> 4) + ((s & 15) >= 9 ? 1 : 0), 255);
    }
    static int limit(int v) { return v; }
    static int edge(int c, int direct, int diagonal) {
        const float sum = static_cast<float>(edge_row_value(c, direct, diagonal));
        return std::min(static_cast<int>(static_cast<double>(sum) + 0.5), 255);
    }
};

// One coarse pixel of a full row from the fine rows north, centre and south.
template <class K>
inline void full_pixel(const typename K::T *n, const typename K::T *c, const typename K::T *s,
                       int w, int x, int e, int nc, bool clamp, typename K::T *out) {
    for (int k = 0; k < nc; ++k) {
        const int a = n[x + k] + s[x + k] + c[w + k] + c[e + k];
        const int b = n[w + k] + n[e + k] + s[w + k] + s[e + k];
        const int v = K::full(c[x + k], a, b);
        out[k] = static_cast<typename K::T>(clamp ? K::limit(v) : v);
    }
}

// One coarse row from three fine rows; the interior runs without border tests.
template <class K>
void full_row(const typename K::T *n, const typename K::T *c, const typename K::T *s, int fineW,
              int coarseW, int nc, bool wrap, bool simd, typename K::T *out) {
    const RowCols cols(fineW, coarseW, wrap);
    full_pixel<K>(n, c, s, cols.west(0) * nc, 0, cols.east(0) * nc, nc, wrap, out);
    lv::tower::reduce_interior<K>(n, c, s, cols.interior_end, nc, simd, out);
    for (int x = std::max(1, cols.interior_end); x < coarseW; ++x)
        full_pixel<K>(n, c, s, cols.west(2 * x) * nc, 2 * x * nc, cols.east(2 * x) * nc, nc, wrap,
                      out + x * nc);
}

// A wrapped level's top row (side = the row below) or odd bottom row (side = the row above).
template <class K>
void edge_row(const typename K::T *c, const typename K::T *side, int fineW, int coarseW, int nc,
              typename K::T *out) {
    const RowCols cols(fineW, coarseW, true);
    for (int x = 0; x < coarseW; ++x) {
        const int cx = 2 * x * nc, w = cols.west(2 * x) * nc, e = cols.east(2 * x) * nc;
        for (int k = 0; k < nc; ++k) {
            const int direct = c[w + k] + c[e + k] + side[cx + k];
            const int diagonal = side[w + k] + side[e + k];
            out[x * nc + k] = static_cast<typename K::T>(K::edge(c[cx + k], direct, diagonal));
        }
    }
}

template <class K>
int reduce(int fineW, int fineH, int coarseW, int coarseH, int nc, bool wrap, bool simd,
           const typename K::T *fine, typename K::T *coarse) {
    // A coarse size other than the rounded-up half would read past the fine level.
    if (fineW < 1 || fineH < 1 || nc < 1 || coarseW != fineW % 2 + fineW / 2 ||
        coarseH != fineH % 2 + fineH / 2)
        return -1;
    const int64_t stride = static_cast<int64_t>(fineW) * nc;
    const auto row = [&](int y) { return fine + y * stride; };
    for (int y = 0; y < coarseH; ++y) {
        const int cy = 2 * y;
        typename K::T *out = coarse + static_cast<int64_t>(y) * coarseW * nc;
        const bool has_north = y > 0, has_south = cy + 1 < fineH;
        if (wrap && fineH > 1 && !(has_north && has_south)) {
            edge_row<K>(row(cy), has_north ? row(cy - 1) : row(cy + 1), fineW, coarseW, nc, out);
            continue;
        }
        full_row<K>(has_north ? row(cy - 1) : row(cy), row(cy), has_south ? row(cy + 1) : row(cy),
                    fineW, coarseW, nc, wrap, simd, out);
    }
    return coarseH;
}

} // namespace

int lv::tower::reduce_short_scalar(int fineW, int fineH, int coarseW, int coarseH, int nc, int wrap,
                                   const int16_t *fine, int16_t *coarse) {
    return reduce<Short>(fineW, fineH, coarseW, coarseH, nc, wrap != 0, false, fine, coarse);
}

int lv::tower::reduce_uchar_scalar(int fineW, int fineH, int coarseW, int coarseH, int nc, int wrap,
                                   const unsigned char *fine, unsigned char *coarse) {
    return reduce<Uchar>(fineW, fineH, coarseW, coarseH, nc, wrap != 0, false, fine, coarse);
}

extern "C" {

LV_API int lv_short_downsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                               int64_t fineOffset, int64_t coarseOffset, int16_t *tower) {
    return reduce<Short>(fineW, fineH, coarseW, coarseH, ncomp, wrap != 0, true, tower + fineOffset,
                         tower + coarseOffset);
}

LV_API int lv_uchar_downsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                               int64_t fineOffset, int64_t coarseOffset, unsigned char *tower) {
    return reduce<Uchar>(fineW, fineH, coarseW, coarseH, ncomp, wrap != 0, true, tower + fineOffset,
                         tower + coarseOffset);
}

} // extern "C"
