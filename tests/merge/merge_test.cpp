// Exposure analysis, camera response and merge on worked values and synthetic brackets.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Ints = std::vector<int32_t>;
using Floats = std::vector<float>;

// RGB images of a scene spanning 10 stops, seen by a camera with a 2.2 power curve at each
// exposure time; the scene's radiances go to *radiance.
Bytes synthetic_bracket(int width, int height, const std::vector<double> &times,
                        std::vector<double> *radiance = nullptr) {
    std::mt19937 rng(7);
    std::vector<double> scene(static_cast<size_t>(width) * height * 3);
    for (size_t p = 0; p < scene.size(); ++p)
        scene[p] = std::pow(2.0, -10.0 * (p / 3 % width) / width) *
                   (0.8 + 0.1 * (p % 3) + 0.05 * (rng() % 3));
    Bytes out;
    for (double t : times)
        for (double e : scene)
            out.push_back(
                static_cast<uint8_t>(std::lround(255.0 * std::pow(std::min(1.0, e * t), 1 / 2.2))));
    if (radiance) *radiance = scene;
    return out;
}

float decode(const Bytes &rgbe, int width, int x, int plane) {
    const int e = rgbe[3 * width + x];
    return e == 0 ? 0.0f : std::ldexp(static_cast<float>(rgbe[plane * width + x]), e - 136);
}

// Merges an 8-bit RGB bracket; returns the planar RGBE result.
Bytes merge(int mode, int n, int width, int height, float step, float *exposures, const Bytes &img,
            float *stats, float *curve) {
    Bytes out(4 * static_cast<size_t>(width) * height);
    EXPECT_EQ(lv_hdr_merge(nullptr, mode, n, width, height, 3, 8, 0, step, curve, exposures,
                           img.data(), stats, out.data()),
              height);
    return out;
}

} // namespace

TEST(ExposureFromMetadata, FactorsFollowTimeApertureAndIso) {
    float rec[5 * 7] = {
        1, 250, 18, 10, 0,    1000, 0, // 1/250 s f/1.8 ISO 1000
        1, 1,   18, 10, 0,    1000, 0, // 1 s
        5, 0,   18, 10, 0,    1000, 0, // time without denominator
        0, 0,   0,  0,  1000, 0,    0, // APEX shutter only
        1, 1,   0,  0,  0,    0,    0, // f/8 and ISO 100 stand in
    };
    EXPECT_EQ(get_ev(5, rec), 1);
    EXPECT_NEAR(rec[1] / rec[0], 250.0f, 0.01f);
    EXPECT_EQ(Floats(rec + 2, rec + 5), (Floats{0.0f, 2.0f, 20.64516f * 100.0f / 64.0f}));
}

TEST(ExposureFromImages, WorkedRankingsAndFactors) {
    // Factors for the measures m; mode 1 leaves the order in m, which goes to *order.
    auto ev = [](int mode, Ints m, float step, Ints *order = nullptr) {
        Floats e(m.size() + 1);
        EXPECT_EQ(guess_ev(mode, int(m.size()), m.data(), e.data(), step), int(m.size()));
        if (order) *order = m;
        return Floats(e.begin(), e.end() - 1);
    };
    EXPECT_EQ(ev(0, {30000}, 0.0f), Floats{1.0f}); // a single image gets 1 either way
    EXPECT_EQ(ev(0, {30000}, 1.5f), Floats{1.0f});
    EXPECT_EQ(ev(0, {5000, 5000}, 0.0f), (Floats{1.0f, 1.0f}));
    // White images: midpoints above 65280 read a slope of 0, so no stops between them.
    EXPECT_EQ(ev(0, {65536 + 200, 65536 + 100}, 0.0f), (Floats{1.0f, 1.0f}));
    EXPECT_EQ(ev(0, {}, 0.0f), Floats{});
    // An even bracket of 2 stops around the middle rank.
    EXPECT_EQ(ev(0, {100, 30000, 5000}, 2.0f), (Floats{0.25f, 4.0f, 1.0f}));
    Ints order; // rank order in whole stops; the measures become the order
    const Floats e = ev(1, {100, 30000, 5000}, 0.0f, &order);
    EXPECT_EQ(order, (Ints{1, 2, 0}));
    EXPECT_EQ(e[1], 0.0f);
    EXPECT_GE(e[0], 2.0f);
    EXPECT_EQ(e[0], std::trunc(e[0]));
    EXPECT_LE(e[2], -3.0f);
}

TEST(ExposureFromImages, MeasuresAndClippingCountsOfSyntheticImages) {
    const int w = 10, h = 10;
    Bytes img(3 * 3 * w * h, 0); // black, mid-grey, white
    std::fill(img.begin() + 3 * w * h, img.begin() + 6 * w * h, 128);
    std::fill(img.begin() + 6 * w * h, img.end(), 255);
    int32_t m[3], order[3];
    mediane_images(3, w, h, 3 * w, 3, 8, img.data(), m);
    EXPECT_EQ(Ints(m, m + 3), (Ints{0, 128 << 8, 65536 + 255}));
    EXPECT_EQ(classementImages(3, w, h, 3, 8, img.data(), m, order), 3);
    EXPECT_EQ(m[2], 65280); // no bright band here
    EXPECT_EQ(Ints(order, order + 3), (Ints{2, 1, 0}));
    EXPECT_EQ(classementImages(3, w, h, 3, 8, img.data(), nullptr, order), -4);
    std::vector<uint16_t> wide(3 * 3 * w * h, 128 * 257); // 16 bits: measured by high bytes
    mediane_images(1, w, h, 3 * w, 3, 16, wide.data(), m);
    EXPECT_EQ(m[0], 128 << 8);
    // Near-clipped pixels: the fast counter and the plain one agree, at both depths.
    std::mt19937 rng(1);
    for (auto &b : img)
        b = static_cast<uint8_t>(245 + rng() % 11);
    for (auto &s : wide)
        s = static_cast<uint16_t>(63000 + rng() % 2500);
    for (int bits : {8, 16}) {
        const void *p = bits == 8 ? static_cast<const void *>(img.data()) : wide.data();
        int32_t a[3], b[3];
        EXPECT_EQ(overexposureLevel(3, w, h, 3, bits, p, a), 3);
        test_overexposureLevel(3, w, h, 3, bits, p, b);
        EXPECT_EQ(Ints(a, a + 3), Ints(b, b + 3));
        EXPECT_GT(a[0], 0);
        EXPECT_LT(a[0], w * h);
    }
}

TEST(CameraResponse, ProfileGammaAndCurves) {
    Bytes icc(64, 0);
    icc[3] = 64;
    memcpy(&icc[20], "gTRC", 4);
    icc[27] = 40; // tag data at 40, a curve of one entry: a plain gamma
    icc[51] = 1;
    icc[52] = 0x02, icc[53] = 0x33;
    float gamma = 0;
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 21);
    EXPECT_EQ(gamma, 2.19921875f);
    gamma = 7;
    EXPECT_EQ(trc_from_profile(icc.data(), 63, &gamma), -64);
    EXPECT_EQ(gamma, 7.0f);
    icc[27] = 60; // a tag pointing past the end reads as no plain gamma
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 21);
    memcpy(&icc[20], "xxxx", 4);
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 52);

    Floats curve(256);
    EXPECT_EQ(gen_courbe(2200, curve.data(), 0.5f), 256);
    EXPECT_EQ(curve[0], curve[1]);
    const int32_t v[3] = {50, 200, 100};
    EXPECT_EQ(mid_im(3, v), 2);
    const Bytes grey(3 * 20 * 20, 100);
    EXPECT_EQ(moy_image(20, 20, 60, 3, 8, grey.data()), 100);
    // Gamma measured on a synthetic bracket; identical frames give no pair to measure.
    const Bytes img = synthetic_bracket(300, 60, {4.0, 8.0, 16.0, 32.0});
    const float exposures[4] = {4, 8, 16, 32};
    EXPECT_NEAR(calc_courbe(4, 300, 60, 8, 3, exposures, img.data(), curve.data()), 2200, 150);
    EXPECT_EQ(curve[1], 1.0f);
    EXPECT_GT(curve[2], 0.0f); // pairs that agreed
    const Bytes same = synthetic_bracket(300, 60, {8.0, 8.0});
    EXPECT_EQ(calc_courbe(2, 300, 60, 8, 3, exposures, same.data(), curve.data()), -1);
}

TEST(Merge, SentinelsAreKeptOrResolved) {
    // Clipped everywhere, black everywhere, and an ordinary pixel, at exposures 1 and 4.
    const Bytes img = {255, 255, 255, 0, 0, 0, 60, 90, 120, 255, 255, 255, 0, 0, 0, 110, 160, 200};
    float curve[256], stats[3], exposures[2] = {1, 4};
    const Bytes kept = merge(2, 2, 3, 1, -1.0f, exposures, img, stats, curve);
    EXPECT_EQ(exposures[1], 4.0f); // the caller's exposures stand
    EXPECT_EQ(Bytes({kept[0], kept[9], kept[1], kept[10]}), Bytes({255, 255, 0, 0}));
    EXPECT_GT(kept[11], 0);
    // Statistics leave the clipped pixel out; the black one counts in the mean only.
    EXPECT_EQ(stats[0], stats[1]);
    EXPECT_NEAR(stats[2], stats[1] / 2, stats[1] * 1e-6);

    const Bytes resolved = merge(0, 2, 3, 1, -1.0f, exposures, img, stats, curve);
    for (int p = 0; p < 4; ++p) { // both become grey of the ordinary pixel's luminance
        EXPECT_EQ(resolved[p * 3], resolved[p * 3 + 1]);
        EXPECT_EQ(resolved[p * 3 + 2], kept[p * 3 + 2]);
    }
    EXPECT_EQ(resolved[0], resolved[3]);
    EXPECT_NEAR(decode(resolved, 3, 0, 0) * 256.0f, stats[1], stats[1] / 100);

    // An exposure of 0 has no place on the line of clipping limits (the sanitizer build
    // catches a NaN limit turned into an integer).
    float zero[2] = {0, 4};
    merge(0, 2, 3, 1, -1.0f, zero, img, stats, curve);
}

// Pixels that only the darkest frame sees unclipped are among those checked here, so this
// also proves that a clipped highlight takes its value from the dark frame.
TEST(Merge, NeighbouringExposuresAgreeOnTheScene) {
    const int width = 256, height = 4;
    std::vector<double> scene;
    const Bytes img = synthetic_bracket(width, height, {1.0, 4.0, 16.0}, &scene);
    float curve[256], stats[3], exposures[3] = {1, 4, 16};
    const Bytes out = merge(0, 3, width, height, -1.0f, exposures, img, stats, curve);
    EXPECT_LE(stats[0], stats[2]);
    EXPECT_LE(stats[2], stats[1]);
    // Where some frame saw it well, the merge gives the scene back (codes are over 256
    // levels, hence the factor 255/256 in the curve).
    int checked = 0;
    for (int x = 0; x < width; ++x) {
        const double e = scene[3 * x + 1];
        if (e * 16 < 0.02 || e > 0.9) continue;
        EXPECT_NEAR(decode(out, width, x, 1) / e, std::pow(255.0 / 256.0, 2.2), 0.08) << x;
        checked += e * 4 > 1 ? 1000 : 1; // thousands: clipped in both brighter frames
    }
    EXPECT_GT(checked % 1000, 100);
    EXPECT_GT(checked / 1000, 20);
    float derived[3] = {0, 0, 0};
    merge(0, 3, width, height, 0.0f, derived, img, stats, curve);
    for (int i = 0; i < 2; ++i) { // derived exposures put the frames 1.5 to 2.5 stops apart
        EXPECT_GT(derived[i + 1] / derived[i], 2.5f);
        EXPECT_LT(derived[i + 1] / derived[i], 6.5f);
    }
}

TEST(Merge, OneImageAndSixteenBitInput) {
    const Bytes img = {0, 0, 0, 64, 128, 192, 250, 250, 250};
    float curve8[256], stats[3], e1[1] = {123};
    const Bytes out8 = merge(2, 1, 3, 1, 0.0f, e1, img, stats, curve8);
    // The exposure plays no part; mantissas are relative to the largest component (blue).
    EXPECT_NEAR(decode(out8, 3, 1, 1), curve8[128], curve8[192] / 128);
    EXPECT_EQ(out8[3 * 3], 0); // black: weight 0 at luminance 0
    std::vector<uint16_t> wide(img.begin(), img.end());
    for (auto &s : wide)
        s = static_cast<uint16_t>(s * 257);
    Floats curve16(65536);
    Bytes out16(12);
    lv_hdr_merge(nullptr, 2, 1, 3, 1, 3, 16, 0, 0.0f, curve16.data(), e1, wide.data(), stats,
                 out16.data());
    for (int x = 1; x < 3; ++x)
        for (int p = 0; p < 3; ++p)
            EXPECT_NEAR(decode(out16, 3, x, p), decode(out8, 3, x, p), decode(out8, 3, x, 2) / 50);
}

TEST(Merge, DisplayViewIsGammaCorrectedBgrAndBlackAtExponentZero) {
    // Display view: red 1.0 (mantissa 128, exponent 129) with norm 256 lands on 128, then
    // gamma 1.8; output is B, G, R; exponent 0 is black.
    const Bytes rgbe = {128, 0, 64, 0, 32, 0, 129, 0};
    uint8_t bgr[8];
    EXPECT_EQ(rgbe_rep(2, 1, 8, rgbe.data(), bgr, 256.0f), 1);
    EXPECT_EQ(Bytes(bgr, bgr + 6), (Bytes{80, 118, 173, 0, 0, 0}));
    EXPECT_EQ(rgbe_rep(2, 0, 8, rgbe.data(), bgr, 1.0f), 0);
}
