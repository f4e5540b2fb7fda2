// Tower toolkit: sizes, worked reduce and expand values at the borders with and without wrap,
// the band-pass round trip, and the vector loops against the scalar ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "lumivantor/pyramid.h"
#include "pyramid/tower_kernels.h"

namespace {

int half(int n) {
    return n % 2 + n / 2;
}

TEST(TowerSize, LengthsAreExactAtPowersOfTwoAndReservedRoomIsOneAndAHalfPlanes) {
    const int64_t cases[][4] = {{1, 1, 1, 2},
                                {3, 3, 9, 14},
                                {4, 4, 20, 24},
                                {8, 8, 84, 96},
                                {64, 64, 5460, 6144},
                                {128, 7, 1152, 1344},
                                {6000, 4000, 32000180, 36000000}};
    for (const auto &c : cases) {
        EXPECT_EQ(pyram_len(int(c[0]), int(c[1])), c[2]) << c[0] << "x" << c[1];
        EXPECT_EQ(pyram_len2(int(c[0]), int(c[1])), c[3]) << c[0] << "x" << c[1];
    }
}

// Reduces a w x h level whose sample i is f(i), through the exported function, and returns
// the coarse level.
template <class T, class F> std::vector<T> reduced(int w, int h, int nc, int wrap, F f) {
    const int64_t n = int64_t(w) * h * nc;
    std::vector<T> t(n + int64_t(half(w)) * half(h) * nc);
    for (int64_t i = 0; i < n; ++i)
        t[i] = T(f(i));
    if constexpr (sizeof(T) == 2)
        EXPECT_EQ(lv_short_downsample(w, h, half(w), half(h), nc, wrap, 0, n, t.data()), half(h));
    else
        EXPECT_EQ(lv_uchar_downsample(w, h, half(w), half(h), nc, wrap, 0, n, t.data()), half(h));
    return std::vector<T>(t.begin() + n, t.end());
}

using V16 = std::vector<int16_t>;
using V8 = std::vector<unsigned char>;

TEST(TowerReduce, WorkedValuesShowTruncatedTermsRoundingBordersAndWrap) {
    const auto flat = [](int v) { return [v](int64_t) { return v; }; };
    // Each 16-bit term truncates by itself: 1001 gives 500 + 250 + 250.
    EXPECT_EQ(reduced<int16_t>(6, 4, 1, 0, flat(1001)), V16(6, 1000));
    EXPECT_EQ(reduced<unsigned char>(5, 5, 1, 1, flat(201)), V8(9, 201));
    // Wrapped, the top and odd bottom rows weigh 0.99997 and truncate.
    EXPECT_EQ(reduced<int16_t>(4, 5, 1, 1, flat(1000)), (V16{999, 999, 1000, 1000, 999, 999}));
    // 8-bit rounding: a lone diagonal of s = 8 (the half) rounds down, 9 and 25 up.
    for (const int d : {8, 9, 24, 25}) {
        const auto lone = [d](int64_t i) { return i == 5 ? d : 0; }; // diagonal of (2, 2)
        EXPECT_EQ(reduced<unsigned char>(4, 4, 1, 0, lone)[3], (d >> 4) + ((d & 15) >= 9)) << d;
        EXPECT_EQ(reduced<int16_t>(4, 4, 1, 0, lone)[3], d >> 4) << d;
    }
    // A 5 x 3 ramp: the last coarse column has no east side and repeats its centre; wrapped,
    // column 0 takes column 4 as its west neighbour.
    const auto ramp = [](int64_t i) { return 160 * int(i % 5); };
    EXPECT_EQ(reduced<int16_t>(5, 3, 1, 0, ramp), (V16{40, 320, 600, 40, 320, 600}));
    const V16 wrapped = reduced<int16_t>(5, 4, 1, 1, ramp);
    EXPECT_EQ(wrapped[3], (800 >> 3) + (1600 >> 4));
    EXPECT_EQ(wrapped[0], 200); // trunc(0.1667 x 800 + 800 / 12)
}

TEST(TowerReduce, VectorLoopsMatchScalarAndColourMatchesSeparatePlanes) {
    std::mt19937 rng(3);
    for (int trial = 0; trial < 300; ++trial) {
        const int w = 1 + int(rng() % 90), h = 1 + int(rng() % 9), nc = trial % 4 ? 1 : 3;
        const int wrap = trial % 2, cw = half(w), ch = half(h);
        const int64_t n = int64_t(w) * h * nc;
        V16 p16(n), ref16(n + int64_t(cw) * ch * nc);
        V8 p8(n), ref8(ref16.size());
        for (int64_t i = 0; i < n; ++i) // full signed range: band-pass levels are reduced too
            ref16[i] = p16[i] = int16_t(rng()), ref8[i] = p8[i] = (unsigned char)rng();
        lv::tower::reduce_short_scalar(w, h, cw, ch, nc, wrap, ref16.data(), ref16.data() + n);
        lv::tower::reduce_uchar_scalar(w, h, cw, ch, nc, wrap, ref8.data(), ref8.data() + n);
        const V16 got16 = reduced<int16_t>(w, h, nc, wrap, [&](int64_t i) { return p16[i]; });
        const V8 got8 = reduced<unsigned char>(w, h, nc, wrap, [&](int64_t i) { return p8[i]; });
        ASSERT_EQ(got16, V16(ref16.begin() + n, ref16.end())) << w << "x" << h << "x" << nc;
        ASSERT_EQ(got8, V8(ref8.begin() + n, ref8.end())) << w << "x" << h << "x" << nc;
        for (int k = 0; k < 3 && nc == 3; ++k) {
            const auto one =
                reduced<int16_t>(w, h, 1, wrap, [&](int64_t i) { return p16[3 * i + k]; });
            for (size_t i = 0; i < one.size(); ++i)
                ASSERT_EQ(got16[3 * i + k], one[i]);
        }
    }
}

TEST(TowerExpand, BilinearValuesTruncateAndTheLastColumnWrapsOrRepeats) {
    const int16_t coarse[] = {0, 4, 8, 12};
    int16_t fine[16];
    ASSERT_EQ(lv_short_upsample(4, 4, 2, 2, 1, 0, coarse, fine), 4);
    EXPECT_EQ(V16(fine, fine + 16), (V16{0, 2, 4, 4, 4, 6, 8, 8, 8, 10, 12, 12, 8, 10, 12, 12}));
    ASSERT_EQ(lv_short_upsample(4, 4, 2, 2, 1, 1, coarse, fine), 4);
    EXPECT_EQ(V16(fine, fine + 8), (V16{0, 2, 4, 2, 4, 6, 8, 6}));
    const unsigned char c8[] = {1, 4};
    unsigned char f8[3] = {9, 9, 9};
    ASSERT_EQ(lv_uchar_diff(3, 1, 2, 1, 1, 0, c8, f8), 1);
    EXPECT_EQ(V8(f8, f8 + 3), (V8{8, 7, 5}));
    // Only one or three samples a pixel, and only the rounded-up half as the coarse size.
    EXPECT_EQ(lv_short_upsample(4, 4, 2, 2, 2, 0, coarse, fine), -1);
    EXPECT_EQ(lv_short_diff(4, 4, 3, 2, 1, 0, coarse, fine), -1);
    EXPECT_EQ(lv_uchar_upsample(3, 1, 2, 1, 0, 0, c8, f8), -1);
    EXPECT_EQ(V8(f8, f8 + 3), (V8{8, 7, 5}));
}

TEST(TowerExpand, RowLoopsMatchThePixelByPixelBilinearOnRandomLevels) {
    std::mt19937 rng(9);
    for (int trial = 0; trial < 200; ++trial) {
        const int fw = 1 + int(rng() % 50), fh = 1 + int(rng() % 7), nc = trial % 2 ? 3 : 1;
        const int cw = half(fw), ch = half(fh), wrap = (trial / 2) % 2;
        V16 coarse(size_t(cw) * ch * nc), fine(size_t(fw) * fh * nc), diff(fine.size());
        for (auto &v : coarse)
            v = int16_t(rng());
        for (auto &v : diff)
            v = int16_t(rng());
        const V16 before = diff;
        ASSERT_EQ(lv_short_upsample(fw, fh, cw, ch, nc, wrap, coarse.data(), fine.data()), fh);
        ASSERT_EQ(lv_short_diff(fw, fh, cw, ch, nc, wrap, coarse.data(), diff.data()), fh);
        const auto at = [&](int x, int y, int k) {
            return int(coarse[(size_t(y) * cw + x) * nc + k]);
        };
        for (int y = 0; y < fh; ++y)
            for (int x = 0; x < fw; ++x)
                for (int k = 0; k < nc; ++k) {
                    const int cx = x >> 1, cy = y >> 1, ex = cx + 1 < cw ? cx + 1 : (wrap ? 0 : cx);
                    const int sy = cy + 1 < ch ? cy + 1 : cy;
                    const int c = at(cx, cy, k), e = at(ex, cy, k), s = at(cx, sy, k),
                              d = at(ex, sy, k);
                    const int v = x % 2 ? (y % 2 ? (c + e + s + d) >> 2 : (c + e) >> 1)
                                        : (y % 2 ? (c + s) >> 1 : c);
                    const size_t i = (size_t(y) * fw + x) * nc + k;
                    ASSERT_EQ(fine[i], int16_t(v))
                        << fw << "x" << fh << "x" << nc << " at " << x << "," << y;
                    ASSERT_EQ(diff[i], int16_t(before[i] - v));
                }
    }
}

// Builds the band-pass tower as local fusion does (reduce, then difference at once), collapses
// it with expand and add, and expects the image back, bit for bit.
template <class T> void round_trip(int w, int h, int nc, int wrap, std::mt19937 &rng) {
    std::vector<T> t(pyram_len2(w, h) * nc);
    for (int64_t i = 0; i < int64_t(w) * h * nc; ++i)
        t[i] = T(rng() % (sizeof(T) == 2 ? 32641 : 256));
    const std::vector<T> orig(t.begin(), t.begin() + int64_t(w) * h * nc);
    std::vector<int64_t> at{0};
    std::vector<int> ws{w}, hs{h};
    for (; ws.back() > 1 && hs.back() > 1;
         ws.push_back(half(ws.back())), hs.push_back(half(hs.back()))) {
        const int64_t f = at.back(), c = f + int64_t(ws.back()) * hs.back() * nc;
        const int fw = ws.back(), fh = hs.back();
        if constexpr (sizeof(T) == 2) {
            lv_short_downsample(fw, fh, half(fw), half(fh), nc, wrap, f, c, t.data());
            lv_short_diff(fw, fh, half(fw), half(fh), nc, wrap, &t[c], &t[f]);
        } else {
            lv_uchar_downsample(fw, fh, half(fw), half(fh), nc, wrap, f, c, t.data());
            lv_uchar_diff(fw, fh, half(fw), half(fh), nc, wrap, &t[c], &t[f]);
        }
        at.push_back(c);
    }
    for (size_t k = at.size() - 1; k > 0; --k) {
        std::vector<T> up(size_t(ws[k - 1]) * hs[k - 1] * nc);
        if constexpr (sizeof(T) == 2)
            lv_short_upsample(ws[k - 1], hs[k - 1], ws[k], hs[k], nc, wrap, &t[at[k]], up.data());
        else
            lv_uchar_upsample(ws[k - 1], hs[k - 1], ws[k], hs[k], nc, wrap, &t[at[k]], up.data());
        for (size_t i = 0; i < up.size(); ++i)
            t[at[k - 1] + i] = T(t[at[k - 1] + i] + up[i]);
    }
    ASSERT_TRUE(std::equal(orig.begin(), orig.end(), t.begin())) << w << "x" << h << "x" << nc;
}

TEST(TowerRoundTrip, BandPassTowersCollapseBackToTheImage) {
    std::mt19937 rng(7);
    for (int wrap : {0, 1})
        for (int nc : {1, 3})
            for (const auto &[w, h] : {std::pair{1, 1}, {2, 2}, {5, 3}, {17, 12}, {64, 33}}) {
                round_trip<int16_t>(w, h, nc, wrap, rng);
                round_trip<unsigned char>(w, h, nc, wrap, rng);
            }
}

TEST(TowerBlur, FlatMapsLoseAtMostTheTruncatedUnitAndOversizeRadiiStayInThePlane) {
    const int w = 9, h = 7;
    V8 src(w * h, 77), dst(w * h);
    EXPECT_EQ(lv_downtower(3, w, h, 1, 8, src.data(), dst.data()), h);
    for (auto v : dst)
        EXPECT_TRUE(v == 77 || v == 76) << int(v);
    // A radius wider than the map reads on within the plane and never past it.
    EXPECT_EQ(lv_downtower(20, 3, 2, 1, 8, src.data(), dst.data()), 2);
    EXPECT_EQ(lv_downtower(2, w, h, 1, 16, src.data(), dst.data()), -2);
    EXPECT_EQ(lv_downtower(2, w, h, 2, 8, src.data(), dst.data()), -1);
}

} // namespace
