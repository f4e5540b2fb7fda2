// Per-pixel colour conversions: round trips, the known quirks of the copies, and
// the whites and matrices of the working spaces.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "lumivantor/colour.h"

namespace {

using Conv = void (*)(const float *, float *);
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
    Conv fwd, inv;
    float tolerance; // of a round trip; greys are exact when it is below 1e-5
};
// The scaled copy rounds through 1/255; the f* copy's wider light denominator shrinks
// the saturation of light colours by up to 1e-5.
const Family kFamilies[] = {{"rgb2hsl", scaled_fwd, scaled_inv, 2e-5f},
                            {"hsl_norm", [](const float *a, float *b) { rgb2hsl_norm(a, b); },
                             [](const float *a, float *b) { hsl2rgb_norm(a, b); }, 2e-6f},
                            {"rgb_to_hsl", [](const float *a, float *b) { rgb_to_hsl(a, b); },
                             [](const float *a, float *b) { hsl_to_rgb(a, b); }, 2e-6f},
                            {"frgb2hsl", frgb2hsl, fhsl2rgb, 2e-5f},
                            {"hsv_norm", [](const float *a, float *b) { rgb2hsv_norm(a, b); },
                             [](const float *a, float *b) { hsv2rgb_norm(a, b); }, 2e-6f}};

TEST(ColourConversions, RoundTripsAndGreysAreExact) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (const Family &f : kFamilies) {
        for (float g : {0.0f, 0.25f, 0.5f, 0.8f, 1.0f}) {
            const float grey[3] = {g, g, g};
            float mid[3], back[3] = {-1, -1, -1};
            f.fwd(grey, mid);
            EXPECT_TRUE(mid[0] == 0.0f && mid[1] == 0.0f) << f.name;
            f.inv(mid, back);
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(back[c], g, f.tolerance < 1e-5f ? 0.0f : 1e-6f) << f.name << g;
        }
        for (int i = 0; i < 2000; ++i) {
            const float rgb[3] = {u(rng), u(rng), u(rng)};
            float mid[3], back[3] = {-1, -1, -1};
            f.fwd(rgb, mid);
            ASSERT_TRUE(mid[0] >= 0.0f && mid[0] <= 1.0f) << f.name << " hue " << mid[0];
            if (mid[0] == 1.0f) continue; // no HSV sector: checked below
            f.inv(mid, back);
            for (int c = 0; c < 3; ++c)
                ASSERT_NEAR(back[c], rgb[c], f.tolerance) << f.name;
        }
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
    float a[3], b[3];
    rgb2hsl_norm(nearly_white, a);
    frgb2hsl(nearly_white, b);
    EXPECT_TRUE(std::isinf(a[1]));
    EXPECT_LT(b[1], 0.01f);
    rgb2hsl_norm(white, a);
    EXPECT_EQ(a[1], 0.0f);
}

TEST(ColourConversions, HsvLeavesOutputAloneOutsideItsSectors) {
    // Sectors come from truncation, so only hues from -1/6 down fall outside.
    for (float hue : {1.0f, -0.5f, 1.5f}) {
        const float hsv[3] = {hue, 0.5f, 0.5f};
        float rgb[3] = {9, 9, 9};
        EXPECT_EQ(hsv2rgb_norm(hsv, rgb), 1);
        EXPECT_TRUE(rgb[0] == 9.0f && rgb[1] == 9.0f && rgb[2] == 9.0f) << hue;
    }
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
    // A green far outside Adobe RGB has a negative red: the table's first entry; a
    // lightness of 120 is above white: the last entry.
    std::vector<int> gamma(256);
    for (int i = 0; i < 256; ++i)
        gamma[i] = 1000 + i;
    unsigned samples[3];
    const float out_green[3] = {60.0f, -150.0f, 60.0f}, too_light[3] = {120.0f, 0.0f, 0.0f};
    Lab2rgb(0, out_green, nullptr, 255, gamma.data(), samples);
    EXPECT_EQ(samples[0], 1000u);
    Lab2rgb(0, too_light, nullptr, 255, gamma.data(), samples);
    EXPECT_TRUE(samples[0] == 1255u && samples[1] == 1255u);
}

TEST(ColourConversions, DaylightWhitesAndTheSwitchAt7000Kelvin) {
    float xyz[3];
    kelvin2XYZ(6504, xyz); // D65
    EXPECT_NEAR(xyz[0], 0.9505f, 0.003f);
    EXPECT_NEAR(xyz[2], 1.089f, 0.005f);
    // The two rows of the locus meet at 7000 K to 1e-8, so they are told apart further
    // out: below 7001 K the first row applies, from 7001 K the second.
    float at7000[3], at7001[3];
    kelvin2XYZ(7000, at7000);
    kelvin2XYZ(7001, at7001);
    EXPECT_NEAR(at7000[2], at7001[2], 3e-4); // one kelvin apart
    for (double k : {4000.0, 12000.0}) {
        const double x = k < 7001
                             ? 99.11 / k + 0.244063 + 2967800 / (k * k) - 4607e6 / (k * k * k)
                             : 247.48 / k + 0.23704 + 1901800 / (k * k) - 2006.4e6 / (k * k * k);
        kelvin2XYZ(static_cast<int>(k), xyz);
        EXPECT_NEAR(xyz[0], x / (-3 * x * x + 2.87 * x - 0.275), 2e-6) << k;
    }
}

TEST(ColourConversions, SpaceMatricesInvertEachOther) {
    for (unsigned space = 0; space < 3; ++space) {
        float to[9], from[9];
        EXPECT_EQ(getRGB_to_from_XYZ(space, to, from), 1);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                double sum = 0;
                for (int k = 0; k < 3; ++k)
                    sum += from[3 * r + k] * to[3 * k + c];
                EXPECT_NEAR(sum, r == c ? 1.0 : 0.0, 2e-4) << space;
            }
    }
    float to[9] = {7}, from[9] = {7};
    getRGB_to_from_XYZ(3, to, from);
    EXPECT_TRUE(to[0] == 7.0f && from[0] == 7.0f);
}

} // namespace
