// Column bookkeeping and the interior loops shared by the tower reduce.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace lv::tower {

// Neighbour columns of a fine level: clamped to the edge, or closing the cycle when wrapped.
struct RowCols {
    int fine_w;
    bool wrap;
    int interior_end; // coarse columns [1, interior_end) have both neighbours inside the row

    RowCols(int fineW, int coarseW, bool wrapped) : fine_w(fineW), wrap(wrapped) {
        interior_end = fineW / 2;
        // A wrapped row's last coarse column is limited like its first one.
        if (wrap && interior_end > coarseW - 1) interior_end = coarseW - 1;
    }
    int west(int cx) const { return cx > 0 ? cx - 1 : (wrap ? fine_w - 1 : 0); }
    int east(int cx) const { return cx + 1 < fine_w ? cx + 1 : (wrap ? 0 : cx); }
};

// Coarse columns first .. end-1 of a full-kernel row, where no neighbour leaves the row.
template <class K, int NC>
void reduce_interior_scalar(const typename K::T *n, const typename K::T *c, const typename K::T *s,
                            int first, int end, int nc, typename K::T *out) {
    if constexpr (NC > 0) nc = NC;
    for (int x = first; x < end; ++x) {
        const int cx = 2 * x * nc;
        for (int k = 0; k < nc; ++k) {
            const int i = cx + k;
            const int a = n[i] + s[i] + c[i - nc] + c[i + nc];
            const int b = n[i - nc] + n[i + nc] + s[i - nc] + s[i + nc];
            out[x * nc + k] = static_cast<typename K::T>(K::full(c[i], a, b));
        }
    }
}

#if defined(__SSE2__)
// Eight coarse samples of a one-sample 16-bit level from fine columns 2x - 2 .. 2x + 15 of one
// row: centres, east and west neighbours as 32-bit lanes (two halves of four).
struct Taps16 {
    __m128i c[2], e[2], w[2];
};
inline Taps16 taps16(const int16_t *row, int x) {
    Taps16 t;
    for (int h = 0; h < 2; ++h) {
        const int at = 2 * x + 8 * h;
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + at));
        const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i *>(row + at - 2));
        t.c[h] = _mm_srai_epi32(_mm_slli_epi32(v, 16), 16);
        t.e[h] = _mm_srai_epi32(v, 16);
        t.w[h] = _mm_srai_epi32(p, 16);
    }
    return t;
}

// The three truncated terms, eight at a time; the result always fits 16 bits, so the
// saturating pack is exact.
inline int reduce_interior_sse2(const int16_t *n, const int16_t *c, const int16_t *s, int end,
                                int16_t *out) {
    int x = 1;
    // Loads reach fine column 2x + 15, which must stay within the row.
    for (; x + 8 <= end; x += 8) {
        const Taps16 tn = taps16(n, x), tc = taps16(c, x), ts = taps16(s, x);
        __m128i r[2];
        for (int h = 0; h < 2; ++h) {
            const __m128i a =
                _mm_add_epi32(_mm_add_epi32(tn.c[h], ts.c[h]), _mm_add_epi32(tc.w[h], tc.e[h]));
            const __m128i b =
                _mm_add_epi32(_mm_add_epi32(tn.w[h], tn.e[h]), _mm_add_epi32(ts.w[h], ts.e[h]));
            r[h] = _mm_add_epi32(_mm_add_epi32(_mm_srai_epi32(a, 3), _mm_srai_epi32(tc.c[h], 2)),
                                 _mm_srai_epi32(b, 4));
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + x), _mm_packs_epi32(r[0], r[1]));
    }
    return x;
}

// Eight coarse samples of a one-sample 8-bit level: s = 4C + 2(N + S + E + W) + diagonals
// fits 16-bit lanes, and rounding up from a remainder of 9 is (s + 7) >> 4, never above 255.
inline int reduce_interior_sse2(const unsigned char *n, const unsigned char *c,
                                const unsigned char *s, int end, unsigned char *out) {
    const __m128i low = _mm_set1_epi16(0xFF), seven = _mm_set1_epi16(7);
    int x = 1;
    for (; x + 8 <= end; x += 8) {
        __m128i cen[3], eas[3], wes[3];
        const unsigned char *rows[3] = {n, c, s};
        for (int r = 0; r < 3; ++r) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows[r] + 2 * x));
            const __m128i p =
                _mm_loadu_si128(reinterpret_cast<const __m128i *>(rows[r] + 2 * x - 2));
            cen[r] = _mm_and_si128(v, low);
            eas[r] = _mm_srli_epi16(v, 8);
            wes[r] = _mm_srli_epi16(p, 8);
        }
        const __m128i a =
            _mm_add_epi16(_mm_add_epi16(cen[0], cen[2]), _mm_add_epi16(wes[1], eas[1]));
        const __m128i b =
            _mm_add_epi16(_mm_add_epi16(wes[0], eas[0]), _mm_add_epi16(wes[2], eas[2]));
        const __m128i sum =
            _mm_add_epi16(_mm_add_epi16(_mm_slli_epi16(cen[1], 2), _mm_slli_epi16(a, 1)), b);
        const __m128i v = _mm_srli_epi16(_mm_add_epi16(sum, seven), 4);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + x), _mm_packus_epi16(v, v));
    }
    return x;
}
#endif

// The interior of a row: vector loops for one sample a pixel where available, the scalar
// loop for the rest. simd = false runs the scalar loop alone (the reference for tests).
template <class K>
void reduce_interior(const typename K::T *n, const typename K::T *c, const typename K::T *s,
                     int end, int nc, bool simd, typename K::T *out) {
    int first = 1;
#if defined(__SSE2__)
    if (simd && nc == 1) first = reduce_interior_sse2(n, c, s, end, out);
#else
    (void)simd;
#endif
    if (nc == 1)
        reduce_interior_scalar<K, 1>(n, c, s, first, end, 1, out);
    else if (nc == 3)
        reduce_interior_scalar<K, 3>(n, c, s, first, end, 3, out);
    else
        reduce_interior_scalar<K, 0>(n, c, s, first, end, nc, out);
}

// Reduces with the scalar interior only; the exported functions use the vector loops.
int reduce_short_scalar(int fineW, int fineH, int coarseW, int coarseH, int nc, int wrap,
                        const int16_t *fine, int16_t *coarse);
int reduce_uchar_scalar(int fineW, int fineH, int coarseW, int coarseH, int nc, int wrap,
                        const unsigned char *fine, unsigned char *coarse);

} // namespace lv::tower
