// Colour controls of parameter blocks, hue tables, and the contrast table with its monotone
// spline.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "lumivantor/colour.h"
#include "lumivantor/frame.h"

namespace {

constexpr int kN = LV_HUE_TABLE_SIZE;

// A zero parameter block, with one slider set when asked.
std::vector<float> block(int index = 0, float value = 0.0f) {
    std::vector<float> b(LV_TMPARAM_COUNT, 0.0f);
    b[index] = value;
    return b;
}

TEST(ColourParams, EachMethodReadsItsOwnIndices) {
    float sat, temp, gamma, s[8], h[8], l[8];
    const auto zero = block();
    for (int method = -1; method <= 16; ++method)
        EXPECT_EQ(has_color_param(method, zero.data()), method == 4 ? 1 : 0) << method;
    EXPECT_EQ(get_color_param(4, zero.data(), &sat, &temp, &gamma, s, h, l), 9);
    EXPECT_FLOAT_EQ(sat, -0.2f) << "the balancer's neutral saturation";
    // Method, then its saturation and gamma indices; unknown methods read method 2's.
    const int cases[][3] = {{1, 2, 8},  {2, 13, 0},  {3, 13, 8}, {10, 3, 6},
                            {11, 1, 6}, {14, 13, 6}, {7, 13, 6}, {99, 13, 6}};
    for (const auto &c : cases) {
        auto p = block();
        p[c[1]] = 5.0f, p[c[2]] = 3.0f, p[12] = 2.0f, p[44] = -1.0f;
        get_color_param(c[0], p.data(), &sat, &temp, &gamma, s, h, l);
        EXPECT_TRUE(sat == 0.5f && gamma == 3.0f && temp == 2.0f && l[3] == -1.0f) << c[0];
    }
    // A curve alone is 2 (a ninth point counts); a plain slider is 1; unknown methods see
    // only curves.
    auto p = block(49, 1.0f);
    EXPECT_EQ(has_color_param(2, p.data()), 2);
    p[12] = 1.0f;
    EXPECT_TRUE(has_color_param(2, p.data()) == 1 && has_color_param(7, p.data()) == 2);
    // Temperature is honoured by method 2, yet not counted among its colour settings.
    EXPECT_TRUE(index_is_color_param(2, 13) == 1 && index_is_color_param(2, 12) == 0);
}

int luts(const std::vector<float> &p, std::vector<float> &table, std::vector<float> &lum) {
    float sat, temp, gamma;
    table.assign(3 * kN, 0.0f);
    lum.assign(kN, 0.0f);
    return getColorAdjustmentLUTs(2, p.data(), kN, 8, &sat, &temp, &gamma, table.data(),
                                  lum.data());
}

TEST(HueTables, NeutralBlockReproducesEveryPixel) {
    std::vector<float> table, lum;
    EXPECT_EQ(luts(block(), table, lum), 0);
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (int i = 0; i < 5000; ++i) {
        // Rebuilds the pixel from its hue entry as the tone mappers do.
        const float rgb[3] = {u(rng), u(rng), u(rng)};
        float hsv[3];
        rgb2hsv_norm(rgb, hsv);
        const float v = hsv[2], mn = v - hsv[1] * v;
        const float *e = &table[3 * static_cast<int>(hsv[0] * (kN - 1))];
        // The entry's hue lies at most one table step below the pixel's hue.
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(mn + (v - mn) * e[c], rgb[c], 6.0f / (kN - 1)) << i;
    }
}

TEST(HueTables, OneCurveValueBuildsAWholeSmoothTableAndSaturationIsHeldAtThree) {
    auto p = block(23, 10.0f); // saturation of the 60-degree hue doubled
    std::vector<float> table, lum;
    ASSERT_EQ(luts(p, table, lum), 0);
    auto top = [&](int i) { return *std::max_element(&table[3 * i], &table[3 * i + 3]); };
    EXPECT_NEAR(top(kN / 6), 1.5f, 0.01f); // x2 saturation: value and saturation 1.5
    EXPECT_NEAR(top(kN / 2), 1.0f, 1e-6f); // cyan, where the curve is back at neutral
    for (int i = 1; i < kN - 1; ++i)
        ASSERT_LT(std::fabs(top(i) - top(i - 1)), 0.01f) << i;

    // The curve itself: knots at 0.5 except the one set, the last entry left alone.
    const float values[8] = {0, 0, 10, 0, 0, 0, 0, 0};
    std::vector<float> curve(256, -7.0f);
    EXPECT_GE(getColorAdjustmentCurve(values, 256, curve.data()), 0);
    EXPECT_NEAR(curve[255 / 6], 1.0f, 0.02f);
    EXPECT_NEAR(curve[255 / 2], 0.5f, 1e-4f);
    EXPECT_EQ(curve[255], -7.0f);
    // A luminance curve is written straight into the caller's table, and reported.
    p = block(41, 4.0f);
    EXPECT_EQ(luts(p, table, lum), 1);
    EXPECT_NEAR(lum[0], 0.7f, 1e-5f);

    p = block(13, 40.0f); // 1 + 4 = 5, held at 3: saturation and value 2
    luts(p, table, lum);
    for (int i = 0; i < kN - 1; ++i) {
        ASSERT_FLOAT_EQ(top(i), 2.0f) << i;
        ASSERT_FLOAT_EQ(*std::min_element(&table[3 * i], &table[3 * i + 3]), -2.0f) << i;
    }
}

TEST(ContrastLut, ZeroControlsGiveTheIdentityAndOthersAMonotoneSCurve) {
    std::vector<int32_t> lut(LV_CONTRAST_LUT_SIZE);
    const float zero[4] = {0, 0, 0, 0}, strong[4] = {1, 1, 1, 1};
    EXPECT_EQ(get_contrast_lut(zero, lut.data()), 0);
    for (int k = 0; k < LV_CONTRAST_LUT_SIZE; ++k)
        ASSERT_LE(std::abs(lut[k] - k), 1) << k;
    get_contrast_lut(strong, lut.data());
    EXPECT_TRUE(lut[0] <= 1 && lut[65535] >= 65533);
    EXPECT_LT(lut[8000], 8000);   // shadows pushed down
    EXPECT_GT(lut[57535], 57535); // highlights lifted
    for (int k = 1; k < LV_CONTRAST_LUT_SIZE; ++k)
        ASSERT_GE(lut[k], lut[k - 1]) << k;
}

} // namespace
