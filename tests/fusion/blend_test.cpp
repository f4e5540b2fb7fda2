// Pyramid blend: the fusion reduce at its three places, the row expand against its
// definition, the accumulator's clamp and wrap, the file route against memory, the
// collapse's detail gain and moire guard, and a seam across two frames of the street bracket.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "fusion/blend.h"
#include "fusion/blend_expand.h"
#include "lumivantor/pyramid.h"
#include "street_photos.h"

namespace {

using V16 = std::vector<uint16_t>;
int half(int n) {
    return n % 2 + n / 2;
}

TEST(BlendReduce, InteriorEdgesAndCornersEachHaveTheirOwnKernel) {
    // 3 x 3: every coarse pixel is a corner, ((D1 + D2) >> 2) + (C >> 1).
    V16 t = {100, 8, 200, 16, 0, 32, 300, 64, 400, 0, 0, 0, 0};
    ASSERT_EQ(fusion21a(3, 3, 2, 2, 1, 16, 0, 0, 9, nullptr, t.data()), 2);
    EXPECT_EQ(V16(t.begin() + 9, t.end()), (V16{6 + 50, 10 + 100, 20 + 150, 24 + 200}));
    // 4 x 4 flat: corner and interior keep the value, edges weigh 0.99997 and truncate.
    V16 v(20, 1000);
    std::vector<float> f(20, 1.0f);
    fusion21a(4, 4, 2, 2, 1, 16, 0, 0, 16, nullptr, v.data());
    fusion21a(4, 4, 2, 2, 1, 32, 0, 0, 16, nullptr, f.data());
    EXPECT_EQ(V16(v.begin() + 16, v.end()), (V16{1000, 999, 999, 1000}));
    EXPECT_FLOAT_EQ(f[17], 0.333f + 0.1667f * 3 + 0.083333336f * 2); // single precision on rows
    // Wrapped: no corners; the top row's first pixel takes its west side from the last column.
    V16 w(20, 0);
    w[3] = 1200;
    fusion21a(4, 4, 2, 2, 1, 16, 1, 0, 16, nullptr, w.data());
    EXPECT_EQ(w[16], 200); // trunc(0.1667 x 1200)
    EXPECT_EQ(fusion21a(4, 4, 2, 2, 1, 12, 0, 0, 16, nullptr, w.data()), 0);
}

TEST(BlendExpand, RowLoopsGiveThePixelByPixelValuesOnRandomLevels) {
    std::mt19937 rng(5);
    for (int trial = 0; trial < 200; ++trial) {
        const int fw = 1 + int(rng() % 40), fh = 1 + int(rng() % 6), nc = 1 + trial % 3;
        const int cw = half(fw), ch = half(fh);
        V16 coarse(size_t(cw) * ch * nc);
        for (auto &v : coarse)
            v = uint16_t(rng() % (trial % 4 ? 32768 : 65536));
        std::vector<int32_t> ref(size_t(fw) * nc), fast(ref.size()), scratch(3 * coarse.size());
        const lv::blend::ExpandRows rows{&scratch[0], &scratch[coarse.size()],
                                         &scratch[2 * coarse.size()]};
        for (int y = 0; y < fh; ++y) {
            lv::blend::expand_row_reference(coarse.data(), cw, ch, nc, trial % 2, y, fw,
                                            ref.data());
            lv::blend::expand_row(coarse.data(), cw, ch, nc, trial % 2, y, fw, rows, fast.data());
            ASSERT_EQ(ref, fast) << fw << "x" << fh << "x" << nc << " row " << y;
        }
    }
}

// An accumulator tower as the driver prepares it, and photographs added to it.
struct Acc {
    int w, h, nc, levels;
    V16 image, acc;
    Acc(int w_, int h_, int nc_, int levels_)
        : w(w_), h(h_), nc(nc_), levels(levels_), image(pyram_len2(w, h) * nc),
          acc(image.size(), 0x7FFF) {
        int64_t top = 0; // band levels carry the bias; the top starts at 0
        for (int l = 0, lw = w, lh = h; l < levels; ++l, lw = half(lw), lh = half(lh))
            top += int64_t(lw) * lh * nc;
        std::fill(acc.begin() + top, acc.end(), 0);
    }
    // Adds a 15-bit photograph under a 16-bit weight plane, from memory or through a file.
    int add(const V16 &photo, const V16 &weight, int wrap, bool file = false) {
        V16 tower(pyram_len2(w, h)), row(w);
        std::copy(weight.begin(), weight.end(), tower.begin());
        fusion21(levels, w, h, 16, wrap, tower.data());
        std::copy(photo.begin(), photo.end(), image.begin());
        if (!file)
            return fusion22(levels, w, h, nc, 16, 16, wrap, tower.data(), nullptr, nullptr,
                            image.data(), acc.data());
        FILE *fp = std::tmpfile();
        std::fwrite(tower.data(), 2, tower.size(), fp);
        const int r = fusion22(levels, w, h, nc, 16, 16, wrap, nullptr, fp, row.data(),
                               image.data(), acc.data());
        std::fclose(fp);
        return r;
    }
    V16 collapse(float p8, int wrap) {
        float param[60] = {};
        param[8] = p8;
        V16 out(size_t(w) * h * nc);
        EXPECT_EQ(
            fusion3_main(param, levels, w, h, nc, 16, 16, w * nc, 0, wrap, acc.data(), out.data()),
            1);
        return out;
    }
};

TEST(BlendWhole, EachSideOfASeamTakesItsOwnPhotographAndTheFileRouteMatchesMemory) {
    const int w = 64, h = 32, nc = 3, levels = 4;
    const V16 dark(size_t(w) * h * nc, 8000), light(dark.size(), 24000);
    V16 left(size_t(w) * h), right(left.size());
    for (size_t i = 0; i < left.size(); ++i) {
        left[i] = int(i % w) < w / 2 ? 65535 : 0;
        right[i] = uint16_t(65535 - left[i]);
    }
    for (int wrap : {0, 1}) {
        Acc mem(w, h, nc, levels), file(w, h, nc, levels);
        ASSERT_GE(mem.add(light, right, wrap), 0); // last photograph first, as the driver does
        ASSERT_GE(mem.add(dark, left, wrap), 0);
        ASSERT_GE(file.add(light, right, wrap, true), 0);
        ASSERT_GE(file.add(dark, left, wrap, true), 0);
        EXPECT_EQ(mem.acc, file.acc);
        const auto out = mem.collapse(2.0f, wrap);
        if (!wrap) { // wrapped, both ends of the row are seams
            EXPECT_NEAR(out[(size_t(h / 2) * w + 2) * nc] / 2, 8000, 40);
            EXPECT_NEAR(out[(size_t(h / 2) * w + w - 3) * nc] / 2, 24000, 40);
        }
    }
}

TEST(BlendAccumulator, BandSumsClampAtZeroTheTopWrapsAndShortFilesFail) {
    // A 2 x 2 level under a bright coarse level: the band-pass is strongly negative.
    V16 image = {0, 0, 0, 0, 30000}, acc = {5, 0x7FFF, 0x7FFF, 0x7FFF, 0}, weight(4, 65535);
    ASSERT_EQ(fusion22et23(2, 2, 1, 1, 1, 16, 0, 0, nullptr, nullptr, 0, 0, 4, weight.data(),
                           image.data(), acc.data()),
              2);
    EXPECT_EQ(acc[0], 0);
    EXPECT_EQ(acc[1], 0x7FFF - 29999);
    // Top level with no levels below: the first sample of four, all three of three, wrapping.
    for (int nc : {3, 4}) {
        V16 img(nc, 30000), sum(nc, 60000), wt = {65535};
        ASSERT_EQ(
            fusion22(0, 1, 1, nc, 16, 16, 0, wt.data(), nullptr, nullptr, img.data(), sum.data()),
            0);
        EXPECT_EQ(sum[0], uint16_t(60000 + 29999));
        EXPECT_EQ(sum[1], nc == 3 ? uint16_t(60000 + 29999) : 60000);
    }
    V16 tower(pyram_len2(8, 8)), sums(tower.size()), row(8);
    FILE *fp = std::tmpfile();
    std::fwrite(tower.data(), 2, 40, fp); // level 0 holds 64 samples
    testing::internal::CaptureStderr();
    EXPECT_EQ(fusion22(2, 8, 8, 1, 16, 16, 0, nullptr, fp, row.data(), tower.data(), sums.data()),
              -3);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(
                  "could not read fpPyramPoids - returned 0 instead of 8"),
              std::string::npos);
    std::fclose(fp);
    EXPECT_EQ(
        fusion22(2, 8, 8, 1, 16, 16, 0, nullptr, nullptr, row.data(), tower.data(), sums.data()),
        -1);
}

TEST(BlendCollapse, SlightDetailIsLiftedStrongEdgesPassAndTheGuardThinsUpperLevels) {
    // Level 0 of 4 x 4 over a flat coarse 2 x 2 of 1000; band-pass 10 and 8000 at two pixels.
    const auto run = [](float p8, float guard, int level) {
        V16 acc(16 + 4, 0x7FFF);
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
    const V16 plain = run(0, 0, 0), lifted = run(2, 0, 0);
    EXPECT_EQ(lifted[5] - plain[5], 3); // trunc(10 x 0.4 x g + 10), g just below 1
    EXPECT_EQ(lifted[10], plain[10]);
    EXPECT_EQ(run(2, 1, 1)[5], plain[5]); // guard mode 1: the upper of two levels gets 0
    EXPECT_EQ(run(2, 1, 0)[5], lifted[5]);
    float param[60] = {};
    EXPECT_EQ(fusion31et32(0, 2, param, 4, 4, 2, 2, 1, 8, 4, 0, 32, 0, 0, 16, nullptr, nullptr),
              -16);
    EXPECT_EQ(fusion31et32(0, 2, param, 4, 0, 2, 0, 1, 8, 4, 0, 16, 0, 0, 16, nullptr, nullptr), 0);
    // Strengths above 5 move towards the fine levels; slot 8 keeps level 0's.
    for (const auto &c : {std::array<float, 3>{2, 4, 2}, {10, 4, 14}, {7, 6, 7 * 1.16f}}) {
        Acc a(32, 32, 1, int(c[1]));
        float p[60] = {};
        p[8] = c[0];
        std::vector<uint8_t> out(32 * 32);
        ASSERT_EQ(fusion3_main(p, int(c[1]), 32, 32, 1, 8, 16, 32, 0, 0, a.acc.data(), out.data()),
                  1);
        EXPECT_NEAR(p[8], c[2], 1e-4) << c[0];
    }
    const float guards[][5] = {{4, 2, 4, 0.5f, 0.2f},  {0, 3, 4, 0.5f, 0.5f},
                               {5, 4, 8, 0.5f, 0},     {5, 7, 8, 0.5f, 0.75f},
                               {7, 6, 8, 0.1f, 0.15f}, {2, 4, 8, 0.9f, 0.2f}};
    for (const auto &g : guards)
        EXPECT_NEAR(fixMoire(int(g[0]), int(g[1]), int(g[2]), g[3]), g[4], 1e-6)
            << g[0] << " " << g[1];
}

// Two frames of the street bracket four stops apart, handed to the left and right halves by a
// hard step in the weights: the towers must turn the step into a seam wider than any detail
// and keep each side's exposure.
TEST(BlendStreet, AHardWeightStepBecomesASmoothSeamThatKeepsEachSidesExposure) {
    std::vector<uint8_t> frames[2];
    int w = 0, h = 0;
    for (int f = 0; f < 2; ++f)
        if (!lvtest::read_png_rgb(lvtest::street_dir() + (f ? "DSC_0100.png" : "DSC_0096.png"), &w,
                                  &h, &frames[f]))
            GTEST_SKIP() << "street bracket not found in " << lvtest::street_dir();
    const int nc = 3;
    Acc acc(w, h, nc, int(std::log2(double(std::min(w, h)))) - 1);
    for (int f = 1; f >= 0; --f) {
        V16 photo(frames[f].size()), weight(size_t(w) * h);
        for (size_t i = 0; i < photo.size(); ++i)
            photo[i] = uint16_t(frames[f][i] << 7);
        for (size_t p = 0; p < weight.size(); ++p)
            weight[p] = (int(p % w) < w / 2) == (f == 0) ? 65535 : 0;
        ASSERT_GE(acc.add(photo, weight, 0), 0);
    }
    const V16 out = acc.collapse(2.0f, 0);
    // Mean of a band of columns of the result (scale 1/256) or of a frame (scale 1).
    const auto mean = [&](const auto &pixels, int x0, int x1, double scale) {
        double sum = 0;
        for (int y = 0; y < h; ++y)
            for (int64_t i = (int64_t(y) * w + x0) * nc; i < (int64_t(y) * w + x1) * nc; ++i)
                sum += pixels[i] * scale;
        return sum / (double(h) * (x1 - x0) * nc);
    };
    for (const auto &[x0, f] : {std::pair{0, 0}, {w - w / 8, 1}})
        EXPECT_NEAR(mean(out, x0, x0 + w / 8, 1 / 256.0), mean(frames[f], x0, x0 + w / 8, 1), 8.0);
    // Across the middle column the brightness steps far less than a cut and paste would.
    const double pasted =
        mean(frames[1], w / 2, w / 2 + 1, 1) - mean(frames[0], w / 2 - 1, w / 2, 1);
    const double seam =
        mean(out, w / 2, w / 2 + 1, 1 / 256.0) - mean(out, w / 2 - 1, w / 2, 1 / 256.0);
    EXPECT_GT(pasted, 20.0);
    EXPECT_LT(std::abs(seam), pasted / 10);
    std::vector<uint8_t> png(out.size());
    for (size_t i = 0; i < png.size(); ++i)
        png[i] = uint8_t(out[i] >> 8);
    EXPECT_TRUE(lvtest::write_png(LV_BINARY_DIR "/blend_street_seam.png", w, h, 3, png.data()));
}

} // namespace
