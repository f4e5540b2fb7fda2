// Adjustment maps: strengths never leak across region labels at any size or ratio, the
// resize takes the documented steps, and sizes it can't reach leave the map untouched.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

using Map = std::vector<uint8_t>;

// A random map whose labels 0, 1, 2 carry the strengths 0, 255 and 128.
Map three_regions(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    Map m(2 * w * h);
    for (int i = 0; i < w * h; ++i) {
        m[2 * i + 1] = static_cast<uint8_t>(rng() % 3);
        m[2 * i] = m[2 * i + 1] == 0 ? 0 : m[2 * i + 1] == 1 ? 255 : 128;
    }
    return m;
}

TEST(AdjustmentMap, NoEntryEverTakesStrengthFromAnotherRegion) {
    // Each result entry keeps its region's strength up to the filters' truncations; a tap of
    // another region would pull it by its weight x 127 or more. Nothing is written past dst.
    const int cases[][5] = {{9, 7, 36, 28, 0},   {9, 7, 27, 20, 1},  {5, 3, 11, 13, 0},
                            {1, 1, 4, 4, 1},     {1, 1, 3, 5, 0},    {33, 21, 8, 5, 0},
                            {32, 24, 16, 12, 0}, {40, 30, 13, 7, 0}, {3, 3, 1, 1, 0}};
    for (const auto &c : cases)
        for (unsigned seed = 1; seed <= 4; ++seed) {
            const Map src = three_regions(c[0], c[1], seed);
            const int n = c[2] * c[3];
            Map dst(2 * n + 16, 0xEE);
            ASSERT_EQ(rescale_adjustment_map(c[0], c[1], c[2], c[3], c[4], src.data(), dst.data()),
                      c[3]);
            for (int i = 0; i < n; ++i) {
                const int v = dst[2 * i], want = dst[2 * i + 1] == 0   ? 0
                                                 : dst[2 * i + 1] == 1 ? 255
                                                                       : 128;
                ASSERT_TRUE(dst[2 * i + 1] < 3 && v <= want && v >= want - 4)
                    << c[0] << "x" << c[1] << " to " << c[2] << "x" << c[3] << " entry " << i;
            }
            ASSERT_EQ(Map(dst.begin() + 2 * n, dst.end()), Map(16, 0xEE)) << "past the map";
        }
}

TEST(AdjustmentMap, ResizeTakesExactStepsAndOneStepOfAnyRatio) {
    const Map big = three_regions(24, 24, 7), small = three_regions(4, 4, 3);
    Map a(2 * 16 * 16), b(2 * 8 * 8), out(2 * 8 * 8);
    // Ratio 3 down: any ratio to 16 x 16, then one halving.
    downsample_map_one_level(0, 24, 24, 16, 16, big.data(), a.data());
    downsample_map_one_level(1, 16, 16, 8, 8, a.data(), b.data());
    rescale_adjustment_map(24, 24, 8, 8, 0, big.data(), out.data());
    EXPECT_EQ(out, b);
    // Ratio 3 up: one doubling, then any ratio.
    Map grown(2 * 12 * 12), want(2 * 12 * 12);
    upsample_map_one_level(1, 4, 4, 8, 8, 0, small.data(), a.data());
    upsample_map_one_level(0, 8, 8, 12, 12, 0, a.data(), want.data());
    rescale_adjustment_map(4, 4, 12, 12, 0, small.data(), grown.data());
    EXPECT_EQ(grown, want);
}

TEST(AdjustmentMap, HalvingOfOneRegionIsTheTowerReduceAndLabelsAreSampled) {
    const int w = 7, h = 5;
    Map map(2 * w * h, 0), half(2 * 4 * 3);
    std::vector<uint8_t> tower(w * h + 4 * 3);
    for (int i = 0; i < w * h; ++i)
        map[2 * i] = tower[i] = static_cast<uint8_t>(i * 37);
    downsample_map_one_level(1, w, h, 4, 3, map.data(), half.data());
    lv_uchar_downsample(w, h, 4, 3, 1, 0, 0, w * h, tower.data());
    for (int i = 0; i < 4 * 3; ++i)
        EXPECT_EQ(half[2 * i], tower[w * h + i]) << i;
    // A lone entry of another region keeps its strength at an even place, vanishes at an odd.
    for (int at : {2 * w + 2, 2 * w + 3}) {
        Map lone(2 * w * h, 0);
        for (int i = 0; i < w * h; ++i)
            lone[2 * i] = 50;
        lone[2 * at] = 200, lone[2 * at + 1] = 1;
        downsample_map_one_level(1, w, h, 4, 3, lone.data(), half.data());
        EXPECT_EQ(half[2 * 5], at % 2 == 0 ? 200 : 50);
    }
}

TEST(AdjustmentMap, UnreachableSizesLeaveTheMapUntouched) {
    // Same width, one side up and one down, power-of-two widths with another height ratio.
    const int cases[][4] = {{8, 8, 8, 4}, {8, 8, 16, 4}, {16, 16, 4, 5}, {4, 4, 16, 10}};
    const Map src = three_regions(16, 16, 5);
    for (const auto &c : cases) {
        Map dst(2 * c[2] * c[3] + 8, 0xEE);
        EXPECT_EQ(rescale_adjustment_map(c[0], c[1], c[2], c[3], 0, src.data(), dst.data()), 0);
        EXPECT_EQ(dst, Map(dst.size(), 0xEE)) << c[0] << "x" << c[1] << " to " << c[2];
    }
    // Doubling with wrap: strength in the last column reaches the first.
    Map edge(2 * 4 * 2, 0), out(2 * 8 * 4);
    edge[2 * 3] = edge[2 * 7] = 200;
    for (int wrap : {0, 1}) {
        upsample_map_one_level(1, 4, 2, 8, 4, wrap, edge.data(), out.data());
        EXPECT_EQ(out[0] > 0, wrap == 1);
    }
}

} // namespace
