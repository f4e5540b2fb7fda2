// Pyramid blend: the fusion reduce at its three places, the accumulator's bias, clamp and
// wrap, whole blends of one and two photographs, the file route against the memory route,
// and the collapse's detail gain and moire guard.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "fusion/blend.h"
#include "lumivantor/pyramid.h"

namespace {

int half(int n) {
    return n % 2 + n / 2;
}

TEST(BlendReduce, InteriorEdgesAndCornersEachHaveTheirOwnKernel) {
    // 3 x 3 at 16 bits: every coarse pixel is a corner, ((D1 + D2) >> 2) + (C >> 1).
    std::vector<uint16_t> t = {100, 8, 200, 16, 0, 32, 300, 64, 400, 0, 0, 0, 0};
    ASSERT_EQ(fusion21a(3, 3, 2, 2, 1, 16, 0, 0, 9, nullptr, t.data()), 2);
    EXPECT_EQ(
        std::vector<uint16_t>(t.begin() + 9, t.end()),
        (std::vector<uint16_t>{(24 >> 2) + 50, (40 >> 2) + 100, (80 >> 2) + 150, (96 >> 2) + 200}));
    // 4 x 4 flat: the corner and the interior (2, 2) keep the value, the top and left edges
    // weigh 0.99997 and truncate.
    std::vector<uint8_t> u(16 + 4, 200);
    std::vector<uint16_t> v(16 + 4, 1000);
    std::vector<float> f(16 + 4, 1.0f);
    fusion21a(4, 4, 2, 2, 1, 8, 0, 0, 16, nullptr, u.data());
    fusion21a(4, 4, 2, 2, 1, 16, 0, 0, 16, nullptr, v.data());
    fusion21a(4, 4, 2, 2, 1, 32, 0, 0, 16, nullptr, f.data());
    EXPECT_EQ(std::vector<int>(v.begin() + 16, v.end()), (std::vector<int>{1000, 999, 999, 1000}));
    EXPECT_EQ(std::vector<int>(u.begin() + 16, u.end()), (std::vector<int>{200, 199, 199, 200}));
    EXPECT_FLOAT_EQ(f[16], 0.5f + 0.25f * 2.0f);
    EXPECT_FLOAT_EQ(f[17], 0.333f + 0.1667f * 3 + 0.083333336f * 2);
    EXPECT_FLOAT_EQ(f[19], 1.0f);
    // Wrapped: no corners, the top row's first pixel takes its west side from the last column.
    std::vector<uint16_t> w(16 + 4, 0);
    w[3] = 1200; // last column of row 0
    fusion21a(4, 4, 2, 2, 1, 16, 1, 0, 16, nullptr, w.data());
    EXPECT_EQ(w[16], int(0.1667 * 1200));
    // Another depth does nothing.
    EXPECT_EQ(fusion21a(4, 4, 2, 2, 1, 12, 0, 0, 16, nullptr, w.data()), 0);
}

struct Acc {
    int w, h, nc, levels;
    std::vector<uint16_t> image, acc;
    Acc(int w_, int h_, int nc_, int levels_)
        : w(w_), h(h_), nc(nc_), levels(levels_), image(pyram_len2(w, h) * nc),
          acc(image.size(), 0x7FFF) {
        // Band levels carry the bias; the top starts at 0.
        int64_t at = 0;
        int lw = w, lh = h;
        for (int l = 0; l < levels; ++l, lw = half(lw), lh = half(lh))
            at += int64_t(lw) * lh * nc;
        std::fill(acc.begin() + at, acc.end(), 0);
    }
    // Adds a 15-bit photograph under a 16-bit weight plane, from memory or through a file.
    int add(const std::vector<uint16_t> &photo, const std::vector<uint16_t> &weight, int wrap,
            bool file = false) {
        std::vector<uint16_t> tower(pyram_len2(w, h));
        std::copy(weight.begin(), weight.end(), tower.begin());
        fusion21(levels, w, h, 16, wrap, tower.data());
        std::copy(photo.begin(), photo.end(), image.begin());
        if (!file)
            return fusion22(levels, w, h, nc, 16, 16, wrap, tower.data(), nullptr, nullptr,
                            image.data(), acc.data());
        FILE *fp = std::tmpfile();
        std::fwrite(tower.data(), 2, tower.size(), fp);
        std::vector<uint16_t> row(w);
        const int r = fusion22(levels, w, h, nc, 16, 16, wrap, nullptr, fp, row.data(),
                               image.data(), acc.data());
        std::fclose(fp);
        return r;
    }
    std::vector<uint16_t> collapse(float p8, int wrap) {
        float param[60] = {};
        param[8] = p8;
        std::vector<uint16_t> out(size_t(w) * h * nc);
        EXPECT_EQ(
            fusion3_main(param, levels, w, h, nc, 16, 16, w * nc, 0, wrap, acc.data(), out.data()),
            1);
        return out;
    }
};

std::vector<uint16_t> smooth_photo(int w, int h, int nc, int shift) {
    std::vector<uint16_t> p(size_t(w) * h * nc);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < nc; ++k)
                p[(size_t(y) * w + x) * nc + k] =
                    uint16_t(4000 + shift + 300 * x + 200 * y + 1000 * k + 50 * ((x * y) % 7));
    return p;
}

TEST(BlendWhole, OnePhotographAtFullWeightComesBackWithinTruncationLosses) {
    for (int wrap : {0, 1})
        for (auto [w, h, nc, levels] : {std::tuple{37, 29, 3, 3}, {16, 16, 1, 3}, {8, 5, 3, 1}}) {
            Acc a(w, h, nc, levels);
            const auto photo = smooth_photo(w, h, nc, 0);
            ASSERT_GE(a.add(photo, std::vector<uint16_t>(size_t(w) * h, 65535), wrap), 0);
            const auto out = a.collapse(0.0f, wrap);
            for (size_t i = 0; i < out.size(); ++i)
                ASSERT_NEAR(out[i] / 2, photo[i], 24) << i << " " << w << "x" << h;
        }
}

TEST(BlendWhole, EachSideOfASeamTakesItsOwnPhotographAndTheFileRouteMatchesMemory) {
    const int w = 64, h = 32, nc = 3, levels = 4;
    std::vector<uint16_t> dark(size_t(w) * h * nc, 8000), light(dark.size(), 24000);
    std::vector<uint16_t> left(size_t(w) * h), right(left.size());
    for (size_t i = 0; i < left.size(); ++i) {
        left[i] = int(i % w) < w / 2 ? 65535 : 0;
        right[i] = uint16_t(65535 - left[i]);
    }
    Acc mem(w, h, nc, levels), file(w, h, nc, levels);
    // Last photograph first, as the driver adds them.
    ASSERT_GE(mem.add(light, right, 0), 0);
    ASSERT_GE(mem.add(dark, left, 0), 0);
    ASSERT_GE(file.add(light, right, 0, true), 0);
    ASSERT_GE(file.add(dark, left, 0, true), 0);
    EXPECT_EQ(mem.acc, file.acc);
    const auto out = mem.collapse(2.0f, 0);
    for (int y = 0; y < h; ++y) {
        EXPECT_NEAR(out[(size_t(y) * w + 2) * nc] / 2, 8000, 40);
        EXPECT_NEAR(out[(size_t(y) * w + w - 3) * nc] / 2, 24000, 40);
    }
}

TEST(BlendAccumulator, BandSumsClampAtZeroAndTheTopWrapsInSixteenBits) {
    // A 2 x 2 level whose coarse level is bright: the band-pass is strongly negative.
    std::vector<uint16_t> image = {0, 0, 0, 0, 30000}, acc = {5, 0x7FFF, 0x7FFF, 0x7FFF, 0};
    std::vector<uint16_t> weight(4, 65535);
    ASSERT_EQ(fusion22et23(2, 2, 1, 1, 1, 16, 0, 0, nullptr, nullptr, 0, 0, 4, weight.data(),
                           image.data(), acc.data()),
              2);
    EXPECT_EQ(acc[0], 0);
    EXPECT_EQ(acc[1], 0x7FFF - 29999);
    // Top level, no levels below: one sample a pixel of four summed, three of three.
    for (int nc : {3, 4}) {
        std::vector<uint16_t> img(size_t(nc), 30000), sum(size_t(nc), 60000), wt = {65535};
        ASSERT_EQ(
            fusion22(0, 1, 1, nc, 16, 16, 0, wt.data(), nullptr, nullptr, img.data(), sum.data()),
            0);
        EXPECT_EQ(sum[0], uint16_t(60000 + 29999));
        EXPECT_EQ(sum[1], nc == 3 ? uint16_t(60000 + 29999) : 60000);
    }
}

TEST(BlendAccumulator, ShortWeightFilesAndMissingWeightsFail) {
    const int w = 8, h = 8;
    std::vector<uint16_t> image(pyram_len2(w, h)), acc(image.size()), row(w);
    FILE *fp = std::tmpfile();
    std::fwrite(image.data(), 2, 40, fp); // level 0 is 64 samples
    testing::internal::CaptureStderr();
    EXPECT_EQ(fusion22(2, w, h, 1, 16, 16, 0, nullptr, fp, row.data(), image.data(), acc.data()),
              -3);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "could not read fpPyramPoids - returned 0 instead of 8"),
              std::string::npos);
    std::fclose(fp);
    EXPECT_EQ(
        fusion22(2, w, h, 1, 16, 16, 0, nullptr, nullptr, row.data(), image.data(), acc.data()),
        -1);
}

TEST(BlendCollapse, SlightDetailIsLiftedAndStrongEdgesPassUnchanged) {
    // Level 0 of 4 x 4 over a flat coarse 2 x 2 of 1000; band-pass 10 and 8000 at two pixels.
    const auto run = [](float p8, float guard, int level) {
        std::vector<uint16_t> acc(16 + 4 + 1, 0x7FFF);
        std::fill(acc.begin() + 16, acc.end(), 1000);
        acc[5] += 10;
        acc[10] += 8000;
        float param[60] = {};
        param[8] = p8;
        param[13] = guard;
        std::vector<uint8_t> out(16);
        EXPECT_EQ(fusion31et32(level, 2, param, 4, 4, 2, 2, 1, 8, 4, 0, 16, 0, 0, 16, acc.data(),
                               out.data()),
                  4);
        return acc;
    };
    const auto plain = run(0.0f, 0, 0), lifted = run(2.0f, 0, 0);
    EXPECT_EQ(lifted[5] - plain[5], 3); // trunc(10 x 0.4 x g + 10) with g just below 1
    EXPECT_EQ(lifted[10], plain[10]);
    // Guard mode 1 takes the upper of two levels to the plain collapse, and not the lower.
    EXPECT_EQ(run(2.0f, 1, 1)[5], plain[5]);
    EXPECT_EQ(run(2.0f, 1, 0)[5], lifted[5]);
    float param[60] = {};
    EXPECT_EQ(fusion31et32(0, 2, param, 4, 4, 2, 2, 1, 8, 4, 0, 32, 0, 0, 16, nullptr, nullptr),
              -16);
    EXPECT_EQ(fusion31et32(0, 2, param, 4, 0, 2, 0, 1, 8, 4, 0, 16, 0, 0, 16, nullptr, nullptr), 0);
}

TEST(BlendCollapse, StrongSettingsShiftTheLiftToFineLevelsAndLeaveLevelZerosStrength) {
    struct Case {
        float p8;
        int levels;
        float slot8;
    } cases[] = {{2.0f, 4, 2.0f}, {10.0f, 4, 14.0f}, {7.0f, 6, 7.0f * 1.16f}};
    for (const Case &c : cases) {
        Acc a(32, 32, 1, c.levels);
        float param[60] = {};
        param[8] = c.p8;
        std::vector<uint8_t> out(32 * 32);
        ASSERT_EQ(
            fusion3_main(param, c.levels, 32, 32, 1, 8, 16, 32, 0, 0, a.acc.data(), out.data()), 1);
        EXPECT_NEAR(param[8], c.slot8, 1e-4) << c.p8;
    }
    struct Guard {
        int mode, level, levels;
        float gain, expect;
    } guards[] = {{4, 2, 4, 0.5f, 0.2f},  {4, 1, 4, 0.5f, 0.7f},  {0, 3, 4, 0.5f, 0.5f},
                  {8, 3, 4, 0.5f, 0.5f},  {5, 4, 8, 0.5f, 0.0f},  {5, 7, 8, 0.5f, 0.75f},
                  {6, 5, 8, 0.5f, 0.15f}, {7, 6, 8, 0.1f, 0.15f}, {7, 3, 8, 0.4f, 0.5f},
                  {3, 0, 8, 0.5f, 0.7f},  {2, 4, 8, 0.9f, 0.2f}};
    for (const Guard &g : guards)
        EXPECT_NEAR(fixMoire(g.mode, g.level, g.levels, g.gain), g.expect, 1e-6)
            << g.mode << " " << g.level;
}

} // namespace
