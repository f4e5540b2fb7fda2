// Adjustment maps: strengths never leak across region labels at any size or ratio, the
// resize takes the documented steps, and requests it can't honour leave the map untouched.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

using Map = std::vector<uint8_t>;

// A random map whose labels 0, 1, 2 carry the strengths 0, 255 and 128.
Map three_regions(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    const uint8_t strength[3] = {0, 255, 128};
    Map m(2 * w * h);
    for (int i = 0; i < w * h; ++i) {
        const uint8_t label = static_cast<uint8_t>(rng() % 3);
        m[2 * i] = strength[label];
        m[2 * i + 1] = label;
    }
    return m;
}

TEST(AdjustmentMap, NoEntryEverTakesStrengthFromAnotherRegion) {
    // Every entry of every result keeps its region's strength, up to the truncations of the
    // filters; a tap of another region would pull it by at least its weight x 127.
    struct Case {
        int sw, sh, dw, dh, wrap;
    };
    const Case cases[] = {{9, 7, 36, 28, 0},   {9, 7, 27, 20, 1},  {5, 3, 11, 13, 0},
                          {1, 1, 4, 4, 1},     {1, 1, 3, 5, 0},    {33, 21, 8, 5, 0},
                          {32, 24, 16, 12, 0}, {40, 30, 13, 7, 0}, {3, 3, 1, 1, 0}};
    for (const Case &c : cases)
        for (unsigned seed = 1; seed <= 4; ++seed) {
            const Map src = three_regions(c.sw, c.sh, seed);
            Map dst(2 * c.dw * c.dh + 16, 0xEE);
            ASSERT_EQ(
                rescale_adjustment_map(c.sw, c.sh, c.dw, c.dh, c.wrap, src.data(), dst.data()),
                c.dh);
            for (int i = 0; i < c.dw * c.dh; ++i) {
                const int v = dst[2 * i], label = dst[2 * i + 1];
                ASSERT_LT(label, 3);
                const int want = label == 0 ? 0 : label == 1 ? 255 : 128;
                ASSERT_TRUE(v <= want && v >= want - 4)
                    << c.sw << "x" << c.sh << " to " << c.dw << "x" << c.dh << " entry " << i
                    << " label " << label << " strength " << v;
            }
            for (int g = 0; g < 16; ++g)
                ASSERT_EQ(dst[2 * c.dw * c.dh + g], 0xEE) << "written past the map";
        }
}

TEST(AdjustmentMap, ResizeTakesExactStepsAndOneStepOfAnyRatio) {
    const Map src = three_regions(24, 24, 7);
    const auto run = [](auto step, int sw, int sh, int dw, int dh, const Map &in) {
        Map out(2 * dw * dh);
        step(sw, sh, dw, dh, in.data(), out.data());
        return out;
    };
    const auto halve = [](int sw, int sh, int dw, int dh, const uint8_t *s, uint8_t *d) {
        downsample_map_one_level(1, sw, sh, dw, dh, s, d);
    };
    const auto shrink = [](int sw, int sh, int dw, int dh, const uint8_t *s, uint8_t *d) {
        downsample_map_one_level(0, sw, sh, dw, dh, s, d);
    };
    const auto twice = [](int sw, int sh, int dw, int dh, const uint8_t *s, uint8_t *d) {
        upsample_map_one_level(1, sw, sh, dw, dh, 0, s, d);
    };
    const auto grow = [](int sw, int sh, int dw, int dh, const uint8_t *s, uint8_t *d) {
        upsample_map_one_level(0, sw, sh, dw, dh, 0, s, d);
    };
    Map out(2 * 6 * 6);
    rescale_adjustment_map(24, 24, 6, 6, 0, src.data(), out.data()); // ratio 4: two halvings
    EXPECT_EQ(out, run(halve, 12, 12, 6, 6, run(halve, 24, 24, 12, 12, src)));
    out.assign(2 * 8 * 8, 0);
    rescale_adjustment_map(24, 24, 8, 8, 0, src.data(), out.data()); // ratio 3
    EXPECT_EQ(out, run(halve, 16, 16, 8, 8, run(shrink, 24, 24, 16, 16, src)));
    const Map small = three_regions(4, 4, 3);
    out.assign(2 * 12 * 12, 0);
    rescale_adjustment_map(4, 4, 12, 12, 0, small.data(), out.data());
    EXPECT_EQ(out, run(grow, 8, 8, 12, 12, run(twice, 4, 4, 8, 8, small)));
}

TEST(AdjustmentMap, HalvingOfOneRegionIsTheTowerReduceAndLabelsAreSampled) {
    // One label: the same bytes as the 8-bit tower reduce, odd sizes included.
    const int w = 7, h = 5;
    Map map = three_regions(w, h, 11);
    std::vector<uint8_t> tower(w * h + 4 * 3);
    for (int i = 0; i < w * h; ++i)
        map[2 * i + 1] = 0, map[2 * i] = tower[i] = static_cast<uint8_t>(i * 37);
    Map half(2 * 4 * 3);
    ASSERT_EQ(downsample_map_one_level(1, w, h, 4, 3, map.data(), half.data()), 3);
    lv_uchar_downsample(w, h, 4, 3, 1, 0, 0, w * h, tower.data());
    for (int i = 0; i < 4 * 3; ++i)
        EXPECT_EQ(half[2 * i], tower[w * h + i]) << i;
    // A lone entry of another region keeps its strength at an even place and is gone at an
    // odd one: labels are sampled, not voted on.
    for (int at : {2 * w + 2, 2 * w + 3}) {
        Map lone(2 * w * h, 50);
        for (int i = 0; i < w * h; ++i)
            lone[2 * i + 1] = 0;
        lone[2 * at] = 200, lone[2 * at + 1] = 1;
        downsample_map_one_level(1, w, h, 4, 3, lone.data(), half.data());
        EXPECT_EQ(half[2 * 5], at % 2 == 0 ? 200 : 50);
        EXPECT_EQ(half[2 * 5 + 1], at % 2 == 0 ? 1 : 0);
    }
}

TEST(AdjustmentMap, UnreachableSizesLeaveTheMapUntouched) {
    // Same width, one side growing while the other shrinks, and power-of-two widths whose
    // height isn't the same power away: nothing is done, nothing is written.
    struct Case {
        int sw, sh, dw, dh;
    };
    const Case cases[] = {{8, 8, 8, 4}, {8, 8, 16, 4}, {16, 16, 4, 5}, {4, 4, 16, 10}};
    const Map src = three_regions(16, 16, 5);
    for (const Case &c : cases) {
        Map dst(2 * c.dw * c.dh + 8, 0xEE);
        EXPECT_EQ(rescale_adjustment_map(c.sw, c.sh, c.dw, c.dh, 0, src.data(), dst.data()), 0);
        EXPECT_EQ(dst, Map(dst.size(), 0xEE)) << c.sw << "x" << c.sh << " to " << c.dw;
    }
}

TEST(AdjustmentMap, DoublingWrapsColumnsRoundThePanorama) {
    // Strength only in the last column: with wrap the first column feels it, without it not.
    Map src(2 * 4 * 2, 0);
    src[2 * 3] = src[2 * 7] = 200;
    for (int wrap : {0, 1}) {
        Map dst(2 * 8 * 4);
        upsample_map_one_level(1, 4, 2, 8, 4, wrap, src.data(), dst.data());
        EXPECT_EQ(dst[0] > 0, wrap == 1);
    }
}

} // namespace
