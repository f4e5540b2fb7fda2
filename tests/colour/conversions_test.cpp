// Per-pixel colour conversions: round trips, the known quirks of the copies, and
// the whites and matrices of the working spaces.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "lumivantor/colour.h"

namespace {

template <auto F> void call(const float *a, float *b) {
    F(a, b);
}
// The scaled copy works on 0..255.
void scaled_fwd(const float *a, float *b) {
    const float s[3] = {a[0] * 255, a[1] * 255, a[2] * 255};
    rgb2hsl(255, s, b);
}
void scaled_inv(const float *a, float *b) {
    hsl2rgb(255, a, b);
    for (int c = 0; c < 3; ++c)
        b[c] /= 255.0f;
}
struct Family {
    const char *name;
    void (*fwd)(const float *, float *), (*inv)(const float *, float *);
    float tolerance; // of a round trip; greys are exact when it is below 1e-5
};
// The scaled copy rounds through 1/255; the f* copy's wider light denominator shrinks
// the saturation of light colours by up to 1e-5.
const Family kFamilies[] = {{"rgb2hsl", scaled_fwd, scaled_inv, 2e-5f},
                            {"hsl_norm", call<rgb2hsl_norm>, call<hsl2rgb_norm>, 2e-6f},
                            {"rgb_to_hsl", call<rgb_to_hsl>, call<hsl_to_rgb>, 2e-6f},
                            {"frgb2hsl", frgb2hsl, fhsl2rgb, 2e-5f},
                            {"hsv_norm", call<rgb2hsv_norm>, call<hsv2rgb_norm>, 2e-6f}};

TEST(ColourConversions, RoundTripsAndGreysAreExact) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (const Family &f : kFamilies)
        for (int i = 0; i < 2005; ++i) {
            const bool grey = i < 5; // 0, 0.25, .. 1 first
            const float g = 0.25f * float(i);
            const float rgb[3] = {grey ? g : u(rng), grey ? g : u(rng), grey ? g : u(rng)};
            float mid[3], back[3] = {-1, -1, -1};
            f.fwd(rgb, mid);
            ASSERT_TRUE(mid[0] >= 0.0f && mid[0] <= 1.0f) << f.name << " hue " << mid[0];
            ASSERT_TRUE(!grey || (mid[0] == 0.0f && mid[1] == 0.0f)) << f.name;
            if (mid[0] == 1.0f) continue; // no HSV sector: checked below
            f.inv(mid, back);
            const float tol = !grey ? f.tolerance : f.tolerance < 1e-5f ? 0.0f : 1e-6f;
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(back[c], rgb[c], tol) << f.name << " " << i;
        }
    // hsv2rgb_norm has sectors for hues above -1/6 and below 1 only, and leaves its output
    // alone for any other hue, exactly 1 included.
    for (float hue : {1.0f, -0.5f, 1.5f}) {
        const float hsv[3] = {hue, 0.5f, 0.5f};
        float rgb[3] = {9, 9, 9};
        EXPECT_EQ(hsv2rgb_norm(hsv, rgb), 1);
        EXPECT_TRUE(rgb[0] == 9.0f && rgb[1] == 9.0f && rgb[2] == 9.0f) << hue;
    }
}

TEST(ColourConversions, LightnessOneHalfAndNearlyWhite) {
    // Pure hues at lightness exactly 0.5 come back as pure hues.
    for (float h : {0.0f, 1.0f / 6.0f, 0.5f, 5.0f / 6.0f}) {
        const float in[3] = {h, 1.0f, 0.5f};
        float rgb[3], hsl[3];
        hsl2rgb_norm(in, rgb);
        EXPECT_FLOAT_EQ(std::fmax(rgb[0], std::fmax(rgb[1], rgb[2])), 1.0f) << h;
        EXPECT_FLOAT_EQ(std::fmin(rgb[0], std::fmin(rgb[1], rgb[2])), 0.0f) << h;
        rgb2hsl_norm(rgb, hsl);
        EXPECT_FLOAT_EQ(hsl[1], 1.0f);
    }
    // min + max rounds to exactly 2 in float: the plain copies divide by 2 - 2, the f*
    // copy does not. Pure white never reaches the division.
    const float nearly_white[3] = {1.0f, 1.0f, 1.0f - 0x1p-24f}, white[3] = {1, 1, 1};
    float a[3], b[3], w[3];
    rgb2hsl_norm(nearly_white, a);
    frgb2hsl(nearly_white, b);
    rgb2hsl_norm(white, w);
    EXPECT_TRUE(std::isinf(a[1]) && b[1] < 0.01f && w[1] == 0.0f) << a[1] << " " << b[1];
}

TEST(ColourConversions, LabRoundTripsAndHoldsOutOfRangeAtTableEnds) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0.02f, 1.0f);
    for (int i = 0; i < 500; ++i) {
        const float rgb[3] = {u(rng), u(rng), u(rng)};
        float lab[3], back[3];
        rgb2Lab(1, rgb, nullptr, nullptr, lab);
        Lab2rgb(1, lab, back, 0, nullptr, nullptr);
        for (int c = 0; c < 3; ++c)
            ASSERT_NEAR(back[c], rgb[c], 2e-3) << i;
    }
    // A green far outside the space has a negative red: the table's first entry; a
    // lightness of 120 is above white: the last entry.
    std::vector<int> gamma(256);
    std::iota(gamma.begin(), gamma.end(), 1000);
    unsigned green[3], light[3];
    const float out_green[3] = {60.0f, -150.0f, 60.0f}, too_light[3] = {120.0f, 0.0f, 0.0f};
    Lab2rgb(0, out_green, nullptr, 255, gamma.data(), green);
    Lab2rgb(0, too_light, nullptr, 255, gamma.data(), light);
    EXPECT_TRUE(green[0] == 1000u && light[0] == 1255u && light[1] == 1255u);
}

TEST(ColourConversions, DaylightWhitesOnBothSidesOf7000Kelvin) {
    // Chromaticities x, y of the standard daylight whites D50, D65 and D75.
    const double whites[][3] = {
        {5003, 0.3457, 0.3585}, {6504, 0.3127, 0.3290}, {7504, 0.2990, 0.3149}};
    for (const auto &w : whites) {
        float xyz[3];
        kelvin2XYZ(int(w[0]), xyz);
        const double sum = xyz[0] + xyz[1] + xyz[2];
        EXPECT_EQ(xyz[1], 1.0f);
        EXPECT_NEAR(xyz[0] / sum, w[1], 5e-4) << w[0];
        EXPECT_NEAR(xyz[1] / sum, w[2], 5e-4) << w[0];
    }
    // The locus switches rows between 7000 K and 7001 K, where the two rows meet.
    float at7000[3], at7001[3];
    kelvin2XYZ(7000, at7000);
    kelvin2XYZ(7001, at7001);
    EXPECT_NEAR(at7000[2], at7001[2], 3e-4);
}

TEST(ColourConversions, SpaceMatricesInvertEachOther) {
    float to[9] = {7}, from[9] = {7};
    EXPECT_EQ(getRGB_to_from_XYZ(3, to, from), 1);
    EXPECT_TRUE(to[0] == 7.0f && from[0] == 7.0f) << "unknown space leaves the matrices alone";
    for (unsigned space = 0; space < 3; ++space) {
        EXPECT_EQ(getRGB_to_from_XYZ(space, to, from), 1);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(from[3 * r] * to[c] + from[3 * r + 1] * to[3 + c] +
                                from[3 * r + 2] * to[6 + c],
                            r == c ? 1.0 : 0.0, 2e-4)
                    << space;
    }
}

} // namespace
