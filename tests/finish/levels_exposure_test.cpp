// Levels, exposure in L*a*b* and the raw enhancement: worked table values, neutral
// settings, depth pairs, the abort on a refused depth pair, and thread-count identity.
#include <gtest/gtest.h>

#include <cmath>

#include "colour/finish_lab.h"
#include "finish_support.h"

using finish_test::random_image;
using finish_test::same_for_all_thread_counts;
using finish_test::sample16;

namespace {

struct LevelsCase {
    float gamma_in, black, white, gamma_out, saturation;
    unsigned char in[3], out[3];
};

// Grey levels through worked tables; the saturation rows turn colour to the HSL lightness.
TEST(Levels, TablesAtTheirBoundariesGiveTheWorkedLevels) {
    const LevelsCase cases[] = {
        {1, 0, 100, 1, 100, {0, 128, 255}, {0, 128, 255}},   // neutral
        {1, 0, 100, 2, 100, {64, 0, 255}, {128, 0, 255}},    // (64/256)^(1/2) x 256
        {2, 0, 100, 1, 100, {64, 16, 255}, {128, 64, 255}},  // gamma on the way in
        {1, 20, 100, 1, 100, {100, 51, 50}, {61, 0, 0}},     // (100 - 51) x 256 / 204
        {1, 0, 50, 1, 100, {100, 128, 0}, {201, 255, 0}},    // white point at 127.5
        {1, 40, 40, 1, 100, {101, 102, 103}, {0, 0, 255}},   // equal points: a hard step
        {1, 0, 100, 1, 0, {200, 100, 50}, {125, 125, 125}},  // grey from HSL lightness
        {1, 0, 100, 1, 200, {150, 100, 100}, {175, 75, 75}}, // HSL saturation doubled
    };
    for (const auto &c : cases) {
        unsigned char out[3];
        EXPECT_EQ(adjustImageLevels(1, 1, 1, 0, 0, 0, 3, 3, 8, 8, c.in, out, c.gamma_in, c.black,
                                    c.white, c.gamma_out, c.saturation),
                  1);
        EXPECT_EQ((std::vector<int>{out[0], out[1], out[2]}),
                  (std::vector<int>{c.out[0], c.out[1], c.out[2]}))
            << "gammas " << c.gamma_in << "/" << c.gamma_out << " points " << c.black << "/"
            << c.white << " saturation " << c.saturation;
    }
}

TEST(Levels, NeutralSettingsKeepEveryDepthAndSixteenToEightTakesTheHighByte) {
    const int w = 37, h = 11;
    for (int bits : {8, 16}) {
        auto in = random_image(size_t(3) * w * h, bits, 7);
        std::vector<unsigned char> out(in.size());
        adjustImageLevels(2, w, h, 0, 1, 1, 3 * w, 3 * w, bits, bits, in.data(), out.data(), 1, 0,
                          100, 1, 100);
        EXPECT_EQ(out, in) << bits << " bits";
    }
    auto in = random_image(size_t(3) * w * h, 16, 8);
    std::vector<unsigned char> out(size_t(3) * w * h);
    adjustImageLevels(3, w, h, 0, 0, 1, 3 * w, 3 * w, 16, 8, in.data(), out.data(), 1, 0, 100, 1,
                      100);
    for (size_t i = 0; i < out.size(); i += 3) // swapped on the way out
        ASSERT_EQ(out[i], sample16(in, i + 2) >> 8);
}

TEST(Levels, RefusedDepthPairsAbortEvenInAnOptimisedBuild) {
    unsigned char px[6] = {};
    const char *condition = "bpsIn >= bpsOut && \\(bpsIn == 8";
    EXPECT_DEATH(adjustImageLevels(1, 1, 1, 0, 0, 0, 3, 3, 8, 16, px, px, 1, 0, 100, 1, 100),
                 condition);
    EXPECT_DEATH(createFakeExposures(1, 1, 1, 3, 3, 3, 0, 0, 8, 16, px, px, nullptr), condition);
}

// Identity linear table: samples are taken as linear light.
std::vector<float> identity_table(int bits) {
    const int n = 1 << bits;
    std::vector<float> t(n);
    for (int i = 0; i < n; ++i)
        t[i] = float(i) / float(n - 1);
    return t;
}

float lightness(float r, float g, float b) {
    const float rgb[3] = {r, g, b};
    float lab[3];
    rgb2Lab(1, rgb, nullptr, nullptr, lab);
    return lab[0];
}

TEST(Exposure, ScalesLightnessAndKeepsGreysGreyFromEightToSixteenBits) {
    const int w = 64, h = 8;
    const auto in = random_image(size_t(3) * w * h, 8, 3);
    const auto table = identity_table(8);
    for (double factor : {1.0, 1.3}) {
        std::vector<unsigned char> out(in.size());
        adjustImageExposure_tile(0, h, w, 8, 8, 3, 3 * w, 3 * w, 0, 0, table.data(), in.data(),
                                 out.data(), factor);
        for (size_t i = 0; i < in.size(); i += 3) {
            const float l_in = lightness(in[i] / 255.f, in[i + 1] / 255.f, in[i + 2] / 255.f);
            const float l_out = lightness(out[i] / 255.f, out[i + 1] / 255.f, out[i + 2] / 255.f);
            // The spill moves out-of-gamut excess into other channels, so only colours
            // that stay in gamut keep their L* exactly.
            if (std::max({out[i], out[i + 1], out[i + 2]}) < 255 && l_in > 5) {
                ASSERT_NEAR(l_out, std::min(l_in * factor, 100.0), 1.0) << factor;
            }
        }
    }
    // Greys stay grey, 8 bits in and 16 out.
    const unsigned char grey[3] = {90, 90, 90};
    uint16_t wide[3];
    adjustImageExposure_tile(0, 1, 1, 8, 16, 3, 3, 3, 0, 0, table.data(), grey,
                             reinterpret_cast<unsigned char *>(wide), 1.25);
    EXPECT_LE(std::max({wide[0], wide[1], wide[2]}) - std::min({wide[0], wide[1], wide[2]}), 40);
    EXPECT_NEAR(lightness(wide[1] / 65535.f, wide[1] / 65535.f, wide[1] / 65535.f),
                lightness(90 / 255.f, 90 / 255.f, 90 / 255.f) * 1.25, 0.1);
}

TEST(Exposure, TabledLabConversionMatchesRgb2LabBitForBit) {
    const lv::FastLab fast;
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const float edges[] = {0.0f, 1.0f, 0.008856f, 0.0088561f, 1e-6f, 0.5f, 1.25f, 5.0f};
    for (int i = 0; i < 2000000; ++i) {
        float rgb[3];
        for (float &v : rgb)
            v = i < 512 ? edges[(i >> (3 * (&v - rgb))) % 8] : unit(rng);
        float want[3], got[3];
        rgb2Lab(1, rgb, nullptr, nullptr, want);
        fast.lab(rgb[0], rgb[1], rgb[2], got);
        ASSERT_EQ(std::memcmp(want, got, sizeof want), 0)
            << rgb[0] << " " << rgb[1] << " " << rgb[2];
    }
}

TEST(Exposure, RepeatedColoursGiveTheSameSamplesAsPixelsConvertedOneByOne) {
    // A small palette, so that remembered colours are met again and slots are reused.
    const int w = 200, h = 30;
    std::vector<uint16_t> in(size_t(3) * w * h);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = uint16_t((i * 7919 % 13) * 5003 + i % 3);
    const auto table = identity_table(16);
    std::vector<uint16_t> whole(in.size()), single(in.size());
    const auto *bytes = reinterpret_cast<const unsigned char *>(in.data());
    adjustImageExposure_tile(0, h, w, 16, 16, 3, 3 * w, 3 * w, 1, 0, table.data(), bytes,
                             reinterpret_cast<unsigned char *>(whole.data()), 1.3);
    for (size_t i = 0; i < in.size(); i += 3)
        adjustImageExposure_tile(0, 1, 1, 16, 16, 3, 3, 3, 1, 0, table.data(), bytes + 2 * i,
                                 reinterpret_cast<unsigned char *>(&single[i]), 1.3);
    EXPECT_EQ(whole, single);
}

TEST(RawEnhancement, GammaOneIsNearlyNeutralAndAStrongerGammaOpensMidtonesOnly) {
    const int w = 50, h = 9;
    for (int bits : {8, 16}) {
        const auto in = random_image(size_t(3) * w * h, bits, 11);
        auto same = in;
        ASSERT_EQ(enhanceRawConvertedImage(2, w, h, 3 * w, bits, same.data(), 1.0f), h);
        const int step = bits == 8 ? 2 : 40;
        for (size_t i = 0; i < size_t(3) * w * h; ++i) {
            const int a = bits == 8 ? in[i] : int(sample16(in, i));
            const int b = bits == 8 ? same[i] : int(sample16(same, i));
            ASSERT_NEAR(a, b, step) << bits << " bits, sample " << i;
        }
    }
    unsigned char grey[9] = {0, 0, 0, 60, 60, 60, 255, 255, 255};
    enhanceRawConvertedImage(1, 3, 1, 9, 8, grey, 2.2f);
    EXPECT_EQ(grey[0], 0);
    EXPECT_GT(grey[4], 70);
    EXPECT_GE(grey[7], 254);
}

TEST(ThreadCounts, LevelsExposureAndEnhancementGiveIdenticalBytes) {
    const int w = 23, h = 17;
    const auto in = random_image(size_t(3) * w * h, 16, 5);
    EXPECT_TRUE(same_for_all_thread_counts(in.size() / 2, [&](int t, unsigned char *out) {
        adjustImageLevels(t, w, h, 0, 0, 1, 3 * w, 3 * w, 16, 8, in.data(), out, 1.4f, 3, 97, 0.9f,
                          120);
    }));
    EXPECT_TRUE(same_for_all_thread_counts(in.size(), [&](int t, unsigned char *out) {
        std::memcpy(out, in.data(), in.size());
        enhanceRawConvertedImage(t, w, h, 3 * w, 16, out, 1.8f);
    }));
    EXPECT_TRUE(same_for_all_thread_counts(4 * in.size(), [&](int t, unsigned char *out) {
        createFakeExposures(t, w, h, 3, 3 * w, 3 * w, 0, 0, 16, 16, in.data(), out, nullptr);
    }));
}

} // namespace
