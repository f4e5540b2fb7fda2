// Tower toolkit: sizes, worked reduce and expand values, borders with and without wrap, the
// band-pass round trip, and the optimised loops against a per-pixel reading of the kernels.
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
    struct Case {
        int w, h;
        int64_t len, len2;
    } cases[] = {{1, 1, 1, 2},         {3, 3, 9, 14},
                 {4, 4, 20, 24},       {8, 8, 84, 96},
                 {5, 3, 15, 23},       {64, 64, 5460, 6144},
                 {128, 7, 1152, 1344}, {6000, 4000, 32000180, 36000000}};
    for (const Case &c : cases) {
        EXPECT_EQ(pyram_len(c.w, c.h), c.len) << c.w << "x" << c.h;
        EXPECT_EQ(pyram_len2(c.w, c.h), c.len2) << c.w << "x" << c.h;
    }
}

// Reduces a w x h level (filled by f) and returns the coarse level.
template <class T, class F> std::vector<T> reduced(int w, int h, int nc, int wrap, F f) {
    std::vector<T> t(size_t(w) * h * nc + size_t(half(w)) * half(h) * nc);
    for (size_t i = 0; i < size_t(w) * h * nc; ++i)
        t[i] = T(f(i));
    int r;
    if constexpr (sizeof(T) == 2)
        r = lv_short_downsample(w, h, half(w), half(h), nc, wrap, 0, int64_t(w) * h * nc, t.data());
    else
        r = lv_uchar_downsample(w, h, half(w), half(h), nc, wrap, 0, int64_t(w) * h * nc, t.data());
    EXPECT_EQ(r, half(h));
    return std::vector<T>(t.begin() + int64_t(w) * h * nc, t.end());
}

TEST(TowerReduce, FlatFieldsShowTheTruncationOfEachTermAndTheWrappedEdgeKernel) {
    for (auto v : reduced<int16_t>(7, 6, 3, 0, [](size_t) { return 1000; }))
        EXPECT_EQ(v, 1000);
    for (int wrap : {0, 1})
        for (auto v : reduced<unsigned char>(5, 5, 1, wrap, [](size_t) { return 201; }))
            EXPECT_EQ(v, 201);
    // 1001 loses a unit in each of the three truncated terms but two are .125 and .0625.
    for (auto v : reduced<int16_t>(6, 4, 1, 0, [](size_t) { return 1001; }))
        EXPECT_EQ(v, 1000);
    // Wrapped: the top and the odd bottom row weigh 0.99997 and truncate to 999.
    const auto top = reduced<int16_t>(4, 5, 1, 1, [](size_t) { return 1000; });
    EXPECT_EQ(std::vector<int16_t>(top.begin(), top.end()),
              (std::vector<int16_t>{999, 999, 1000, 1000, 999, 999}));
}

TEST(TowerReduce, EightBitRemainderOfAHalfRoundsDownAndNineSixteenthsRoundUp) {
    // 4 x 4 level: coarse pixel (1, 1) centres on fine (2, 2) with all neighbours real;
    // a diagonal neighbour alone contributes s = value.
    for (auto [diag, expect] : {std::pair{8, 0}, {9, 1}, {24, 1}, {25, 2}}) {
        auto out = reduced<unsigned char>(4, 4, 1, 0, [&](size_t i) { return i == 5 ? diag : 0; });
        EXPECT_EQ(out[3], expect) << diag;
        auto out16 = reduced<int16_t>(4, 4, 1, 0, [&](size_t i) { return i == 5 ? diag : 0; });
        EXPECT_EQ(out16[3], diag >> 4) << diag;
    }
    // 255 everywhere plus the remainder never passes 255.
    for (auto v : reduced<unsigned char>(3, 3, 1, 1, [](size_t) { return 255; }))
        EXPECT_EQ(v, 255);
}

TEST(TowerReduce, BordersClampToTheEdgeOrWrapAroundThePanorama) {
    // 5 x 3 ramp in x: the last coarse column (fine x = 4) has no east neighbour.
    const auto ramp = [](size_t i) { return 160 * int(i % 5); };
    EXPECT_EQ(reduced<int16_t>(5, 3, 1, 0, ramp),
              (std::vector<int16_t>{40, 320, 600, 40, 320, 600}));
    // Wrapped, column 0 sees column 4 (640) as its west neighbour and the last coarse column
    // sees column 0; top row: 0.333 C + 0.1667 (W + E + S) + (W + E) / 12 on the row below.
    const auto w = reduced<int16_t>(5, 4, 1, 1, ramp);
    EXPECT_EQ(w[3], (800 >> 3) + (1600 >> 4));
    EXPECT_EQ(w[0], 200); // trunc(0.1667 * 800 + 800 / 12)
}

TEST(TowerExpand, BilinearValuesTruncateAndTheLastColumnWrapsOrRepeats) {
    const int16_t coarse[] = {0, 4, 8, 12};
    int16_t fine[16];
    ASSERT_EQ(lv_short_upsample(4, 4, 2, 2, 1, 0, coarse, fine), 4);
    EXPECT_EQ(std::vector<int16_t>(fine, fine + 16),
              (std::vector<int16_t>{0, 2, 4, 4, 4, 6, 8, 8, 8, 10, 12, 12, 8, 10, 12, 12}));
    ASSERT_EQ(lv_short_upsample(4, 4, 2, 2, 1, 1, coarse, fine), 4);
    EXPECT_EQ(std::vector<int16_t>(fine, fine + 8), (std::vector<int16_t>{0, 2, 4, 2, 4, 6, 8, 6}));
    const unsigned char c8[] = {1, 4};
    unsigned char f8[3] = {9, 9, 9};
    ASSERT_EQ(lv_uchar_diff(3, 1, 2, 1, 1, 0, c8, f8), 1);
    EXPECT_EQ(std::vector<int>(f8, f8 + 3), (std::vector<int>{8, 7, 5}));
    // Only one or three samples a pixel, and only the rounded-up half as the coarse size.
    EXPECT_EQ(lv_short_upsample(4, 4, 2, 2, 2, 0, coarse, fine), -1);
    EXPECT_EQ(lv_short_diff(4, 4, 3, 2, 1, 0, coarse, fine), -1);
    EXPECT_EQ(lv_uchar_upsample(3, 1, 2, 1, 0, 0, c8, f8), -1);
    EXPECT_EQ(std::vector<int>(f8, f8 + 3), (std::vector<int>{8, 7, 5}));
}

// Builds the band-pass tower as the fusion code does, collapses it again and expects the
// original bytes back, for odd sizes, both widths, one and three samples, with and without
// wrap; three-sample towers also match their channels reduced one by one.
template <class T> void band_pass_round_trip(int w, int h, int nc, int wrap, std::mt19937 &rng) {
    std::vector<T> t(size_t(pyram_len2(w, h)) * nc), orig;
    for (size_t i = 0; i < size_t(w) * h * nc; ++i)
        t[i] = T(sizeof(T) == 2 ? rng() % 32641 : rng() % 256);
    orig.assign(t.begin(), t.begin() + size_t(w) * h * nc);
    struct Level {
        int w, h;
        int64_t at;
    };
    std::vector<Level> levels{{w, h, 0}};
    while (levels.back().w > 1 && levels.back().h > 1) {
        const Level f = levels.back();
        const Level c{half(f.w), half(f.h), f.at + int64_t(f.w) * f.h * nc};
        if constexpr (sizeof(T) == 2) {
            lv_short_downsample(f.w, f.h, c.w, c.h, nc, wrap, f.at, c.at, t.data());
            ASSERT_GE(lv_short_diff(f.w, f.h, c.w, c.h, nc, wrap, &t[c.at], &t[f.at]), 0);
        } else {
            lv_uchar_downsample(f.w, f.h, c.w, c.h, nc, wrap, f.at, c.at, t.data());
            ASSERT_GE(lv_uchar_diff(f.w, f.h, c.w, c.h, nc, wrap, &t[c.at], &t[f.at]), 0);
        }
        levels.push_back(c);
    }
    for (size_t k = levels.size() - 1; k > 0; --k) {
        const Level c = levels[k], f = levels[k - 1];
        std::vector<T> up(size_t(f.w) * f.h * nc);
        if constexpr (sizeof(T) == 2)
            lv_short_upsample(f.w, f.h, c.w, c.h, nc, wrap, &t[c.at], up.data());
        else
            lv_uchar_upsample(f.w, f.h, c.w, c.h, nc, wrap, &t[c.at], up.data());
        for (size_t i = 0; i < up.size(); ++i)
            t[f.at + i] = T(t[f.at + i] + up[i]);
    }
    ASSERT_TRUE(std::equal(orig.begin(), orig.end(), t.begin())) << w << "x" << h << "x" << nc;
}

TEST(TowerRoundTrip, BandPassTowersCollapseBackToTheImage) {
    std::mt19937 rng(7);
    for (int wrap : {0, 1})
        for (int nc : {1, 3})
            for (auto [w, h] : {std::pair{1, 1}, {2, 2}, {5, 3}, {17, 12}, {64, 33}}) {
                band_pass_round_trip<int16_t>(w, h, nc, wrap, rng);
                band_pass_round_trip<unsigned char>(w, h, nc, wrap, rng);
            }
}

TEST(TowerReduce, ColourSamplesReduceLikeThreeSeparatePlanes) {
    std::mt19937 rng(11);
    for (int wrap : {0, 1})
        for (auto [w, h] : {std::pair{7, 5}, {40, 9}, {2, 3}}) {
            std::vector<int> px(size_t(w) * h * 3);
            for (int &v : px)
                v = int(rng() % 32768);
            const auto rgb = reduced<int16_t>(w, h, 3, wrap, [&](size_t i) { return px[i]; });
            const auto rgb8 =
                reduced<unsigned char>(w, h, 3, wrap, [&](size_t i) { return px[i] & 255; });
            for (int k = 0; k < 3; ++k) {
                const auto one =
                    reduced<int16_t>(w, h, 1, wrap, [&](size_t i) { return px[3 * i + k]; });
                const auto one8 = reduced<unsigned char>(
                    w, h, 1, wrap, [&](size_t i) { return px[3 * i + k] & 255; });
                for (size_t i = 0; i < one.size(); ++i) {
                    ASSERT_EQ(rgb[3 * i + k], one[i]) << w << "x" << h << " wrap " << wrap;
                    ASSERT_EQ(rgb8[3 * i + k], one8[i]) << w << "x" << h << " wrap " << wrap;
                }
            }
        }
}

TEST(TowerReduce, VectorInteriorsGiveTheScalarBytesOnRandomLevels) {
    std::mt19937 rng(3);
    for (int trial = 0; trial < 300; ++trial) {
        const int w = 1 + int(rng() % 90), h = 1 + int(rng() % 9), nc = trial % 4 ? 1 : 3;
        const int wrap = trial % 2, cw = half(w), ch = half(h);
        std::vector<int16_t> t16(size_t(w) * h * nc + size_t(cw) * ch * nc), ref16(t16);
        std::vector<unsigned char> t8(t16.size()), ref8(t16.size());
        for (size_t i = 0; i < size_t(w) * h * nc; ++i) {
            // Full signed range: band-pass levels are reduced too.
            t16[i] = ref16[i] = int16_t(rng());
            t8[i] = ref8[i] = (unsigned char)(rng());
        }
        const int64_t at = int64_t(w) * h * nc;
        lv_short_downsample(w, h, cw, ch, nc, wrap, 0, at, t16.data());
        lv_uchar_downsample(w, h, cw, ch, nc, wrap, 0, at, t8.data());
        lv::tower::reduce_short_scalar(w, h, cw, ch, nc, wrap, ref16.data(), ref16.data() + at);
        lv::tower::reduce_uchar_scalar(w, h, cw, ch, nc, wrap, ref8.data(), ref8.data() + at);
        ASSERT_EQ(t16, ref16) << w << "x" << h << "x" << nc << " wrap " << wrap;
        ASSERT_EQ(t8, ref8) << w << "x" << h << "x" << nc << " wrap " << wrap;
    }
}

TEST(TowerBlur, FlatMapsLoseAtMostTheTruncatedUnitAndAnImpulseSpreadsSymmetrically) {
    const int w = 9, h = 7;
    std::vector<unsigned char> src(w * h, 77), dst(w * h);
    EXPECT_EQ(lv_downtower(3, w, h, 1, 8, src.data(), dst.data()), h);
    for (auto v : dst)
        EXPECT_TRUE(v == 77 || v == 76) << int(v);
    std::fill(src.begin(), src.end(), 0);
    src[3 * w + 4] = 255;
    ASSERT_EQ(lv_downtower(2, w, h, 1, 8, src.data(), dst.data()), h);
    EXPECT_GT(dst[3 * w + 4], dst[3 * w + 5]);
    EXPECT_EQ(dst[3 * w + 3], dst[3 * w + 5]);
    EXPECT_EQ(dst[2 * w + 4], dst[4 * w + 4]);
    // A radius wider than the map reads on within the plane and never past it.
    EXPECT_EQ(lv_downtower(20, 3, 2, 1, 8, src.data(), dst.data()), 2);
    EXPECT_EQ(lv_downtower(2, w, h, 1, 16, src.data(), dst.data()), -2);
    EXPECT_EQ(lv_downtower(2, w, h, 2, 8, src.data(), dst.data()), -1);
}

} // namespace
