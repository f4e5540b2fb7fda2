// Per-pixel colour conversions: round trips, the documented quirks of the copies, and
// the whites and matrices of the working spaces.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "lumivantor/colour.h"

namespace {

using Conv = void (*)(const float *, float *);

// The HSL families on a normalised scale, so one round-trip test covers them all.
void hsl_scaled_fwd(const float *rgb, float *hsl) {
    const float s[3] = {rgb[0] * 255.0f, rgb[1] * 255.0f, rgb[2] * 255.0f};
    rgb2hsl(255, s, hsl);
}
void hsl_scaled_inv(const float *hsl, float *rgb) {
    hsl2rgb(255, hsl, rgb);
    for (int c = 0; c < 3; ++c) rgb[c] /= 255.0f;
}
void norm_fwd(const float *a, float *b) { rgb2hsl_norm(a, b); }
void norm_inv(const float *a, float *b) { hsl2rgb_norm(a, b); }
void plain_fwd(const float *a, float *b) { rgb_to_hsl(a, b); }
void plain_inv(const float *a, float *b) { hsl_to_rgb(a, b); }
void hsv_fwd(const float *a, float *b) { rgb2hsv_norm(a, b); }
void hsv_inv(const float *a, float *b) { hsv2rgb_norm(a, b); }

struct Family {
    const char *name;
    Conv fwd, inv;
    float tolerance; // of a round trip; greys are exact when it is below 1e-5
};
// The scaled copy rounds through 1/255; the f* copy's wider light denominator shrinks
// the saturation of light colours by up to 1e-5.
const Family kFamilies[] = {{"rgb2hsl", hsl_scaled_fwd, hsl_scaled_inv, 2e-5f},
                            {"hsl_norm", norm_fwd, norm_inv, 2e-6f},
                            {"rgb_to_hsl", plain_fwd, plain_inv, 2e-6f},
                            {"frgb2hsl", frgb2hsl, fhsl2rgb, 2e-5f},
                            {"hsv_norm", hsv_fwd, hsv_inv, 2e-6f}};

TEST(ColourConversions, RoundTripsAndGreysAreExact) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0.0f, 1.0f);
    for (const Family &f : kFamilies) {
        for (float g : {0.0f, 0.25f, 0.5f, 0.8f, 1.0f}) {
            const float grey[3] = {g, g, g};
            float mid[3], back[3] = {-1, -1, -1};
            f.fwd(grey, mid);
            EXPECT_EQ(mid[0], 0.0f) << f.name;
            EXPECT_EQ(mid[1], 0.0f) << f.name;
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
            for (int c = 0; c < 3; ++c) ASSERT_NEAR(back[c], rgb[c], f.tolerance) << f.name << " " << i;
        }
    }
}

TEST(ColourConversions, PrimariesLandOnTheirHues) {
    const float red[3] = {1, 0, 0}, green[3] = {0, 1, 0}, blue[3] = {0, 0, 1};
    float hsl[3];
    rgb2hsl_norm(red, hsl);
    EXPECT_EQ(hsl[0], 0.0f);
    EXPECT_EQ(hsl[1], 1.0f);
    EXPECT_EQ(hsl[2], 0.5f); // lightness exactly 0.5 takes the double-precision branch
    rgb2hsl_norm(green, hsl);
    EXPECT_NEAR(hsl[0], 1.0f / 3.0f, 1e-7);
    rgb2hsl_norm(blue, hsl);
    EXPECT_NEAR(hsl[0], 2.0f / 3.0f, 1e-7);
    // And back from lightness 0.5, which takes the (S + 1) x L branch of the inverse.
    for (float h : {0.0f, 1.0f / 6.0f, 0.5f, 5.0f / 6.0f}) {
        const float in[3] = {h, 1.0f, 0.5f};
        float rgb[3];
        hsl2rgb_norm(in, rgb);
        const float mx = std::fmax(rgb[0], std::fmax(rgb[1], rgb[2]));
        const float mn = std::fmin(rgb[0], std::fmin(rgb[1], rgb[2]));
        EXPECT_FLOAT_EQ(mx, 1.0f) << h;
        EXPECT_FLOAT_EQ(mn, 0.0f) << h;
    }
    const float scaled[3] = {0, 255, 0};
    float out[3];
    rgb2hsl(255, scaled, hsl);
    hsl2rgb(255, hsl, out);
    EXPECT_NEAR(out[1], 255.0f, 1e-4);
    EXPECT_NEAR(out[0], 0.0f, 1e-4);
}

TEST(ColourConversions, NearlyWhiteSaturationOnlyDividesByZeroInThePlainCopies) {
    // min + max rounds to exactly 2 in float: 2 - 2 is the plain copies' denominator.
    const float nearly_white[3] = {1.0f, 1.0f, 1.0f - 0x1p-24f};
    float a[3], b[3];
    rgb2hsl_norm(nearly_white, a);
    frgb2hsl(nearly_white, b);
    EXPECT_TRUE(std::isinf(a[1]));
    EXPECT_TRUE(std::isfinite(b[1]));
    EXPECT_LT(b[1], 0.01f);
    EXPECT_EQ(a[2], b[2]);
    // Pure white never reaches the division.
    const float white[3] = {1, 1, 1};
    rgb2hsl_norm(white, a);
    EXPECT_EQ(a[1], 0.0f);
}

TEST(ColourConversions, HsvLeavesOutputAloneOutsideItsSectors) {
    // Sectors come from truncation, so only hues from -1/6 down fall outside.
    for (float hue : {1.0f, -0.5f, 1.5f}) {
        const float hsv[3] = {hue, 0.5f, 0.5f};
        float rgb[3] = {9, 9, 9};
        EXPECT_EQ(hsv2rgb_norm(hsv, rgb), 1);
        EXPECT_EQ(rgb[0], 9.0f) << hue;
        EXPECT_EQ(rgb[2], 9.0f) << hue;
    }
    const float black[3] = {0, 0, 0};
    float hsv[3] = {5, 5, 5};
    rgb2hsv_norm(black, hsv);
    EXPECT_EQ(hsv[0], 0.0f);
    EXPECT_EQ(hsv[1], 0.0f);
    EXPECT_EQ(hsv[2], 0.0f);
}

TEST(ColourConversions, LabRoundTripsAndHoldsOutOfRangeAtTableEnds) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0.02f, 1.0f);
    for (int i = 0; i < 500; ++i) {
        const float rgb[3] = {u(rng), u(rng), u(rng)};
        float lab[3], back[3];
        rgb2Lab(1, rgb, nullptr, nullptr, lab);
        Lab2rgb(1, lab, back, 0, nullptr, nullptr);
        for (int c = 0; c < 3; ++c) ASSERT_NEAR(back[c], rgb[c], 2e-3) << i;
    }
    const float white[3] = {1, 1, 1};
    float lab[3];
    rgb2Lab(1, white, nullptr, nullptr, lab);
    EXPECT_NEAR(lab[0], 100.0f, 0.05f);
    EXPECT_NEAR(lab[1], 0.0f, 0.05f);
    EXPECT_NEAR(lab[2], 0.0f, 0.05f);

    // Table input reads the same as the floats it holds.
    std::vector<float> linear(256);
    for (int i = 0; i < 256; ++i) linear[i] = std::pow(i / 255.0f, 2.2f);
    const int idx[3] = {200, 40, 90};
    const float same[3] = {linear[200], linear[40], linear[90]};
    float from_table[3], from_floats[3];
    rgb2Lab(0, nullptr, linear.data(), idx, from_table);
    rgb2Lab(1, same, nullptr, nullptr, from_floats);
    for (int c = 0; c < 3; ++c) EXPECT_EQ(from_table[c], from_floats[c]);

    // A green far outside Adobe RGB has a negative red: the table's first entry; a
    // lightness of 120 is above white: the last entry.
    std::vector<int> gamma(256);
    for (int i = 0; i < 256; ++i) gamma[i] = 1000 + i;
    unsigned samples[3];
    const float out_green[3] = {60.0f, -150.0f, 60.0f};
    Lab2rgb(0, out_green, nullptr, 255, gamma.data(), samples);
    EXPECT_EQ(samples[0], 1000u);
    const float too_light[3] = {120.0f, 0.0f, 0.0f};
    Lab2rgb(0, too_light, nullptr, 255, gamma.data(), samples);
    EXPECT_EQ(samples[0], 1255u);
    EXPECT_EQ(samples[1], 1255u);
}

TEST(ColourConversions, DaylightWhitesAndTheSwitchAt7000Kelvin) {
    float xyz[3];
    kelvin2XYZ(6504, xyz); // D65
    EXPECT_NEAR(xyz[0], 0.9505f, 0.003f);
    EXPECT_EQ(xyz[1], 1.0f);
    EXPECT_NEAR(xyz[2], 1.089f, 0.005f);
    kelvin2XYZ(5003, xyz); // D50
    EXPECT_NEAR(xyz[0], 0.9642f, 0.003f);
    EXPECT_NEAR(xyz[2], 0.8251f, 0.005f);

    // Up to 7000 K the first row of the locus applies, from 7001 K the second. The two
    // rows meet there to 1e-8, so the rows are told apart further out.
    auto chroma_x = [](double t, bool low) {
        return low ? 99.11 / t + 0.244063 + 2967800 / (t * t) - 4607000000.0 / (t * t * t)
                   : 247.48 / t + 0.23704 + 1901800 / (t * t) - 2006400000.0 / (t * t * t);
    };
    float at7000[3], at7001[3];
    kelvin2XYZ(7000, at7000);
    kelvin2XYZ(7001, at7001);
    EXPECT_NEAR(at7000[0], at7001[0], 1e-4);
    EXPECT_NEAR(at7000[2], at7001[2], 3e-4); // one kelvin apart
    for (int k : {4000, 12000}) {
        const double x = chroma_x(k, k < 7001);
        const double other = chroma_x(k, k >= 7001);
        const double y = -3 * x * x + 2.87 * x - 0.275;
        kelvin2XYZ(k, xyz);
        EXPECT_NEAR(xyz[0], x / y, 2e-6) << k;
        EXPECT_GT(std::fabs(xyz[0] - other / (-3 * other * other + 2.87 * other - 0.275)), 2e-5)
            << k;
    }
}

TEST(ColourConversions, SpaceMatricesInvertEachOther) {
    for (unsigned space = 0; space < 3; ++space) {
        float to[9], from[9];
        EXPECT_EQ(getRGB_to_from_XYZ(space, to, from), 1);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                double sum = 0;
                for (int k = 0; k < 3; ++k) sum += from[3 * r + k] * to[3 * k + c];
                EXPECT_NEAR(sum, r == c ? 1.0 : 0.0, 2e-4) << space;
            }
    }
    float to[9] = {7}, from[9] = {7};
    getRGB_to_from_XYZ(3, to, from);
    EXPECT_EQ(to[0], 7.0f);
    EXPECT_EQ(from[0], 7.0f);
}

} // namespace
