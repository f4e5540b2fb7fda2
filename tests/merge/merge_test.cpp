// Exposure analysis, camera response and merge on worked values and synthetic brackets.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

using Bytes = std::vector<uint8_t>;

// 8-bit codes of a camera with a 2.2 power curve seeing radiance e at exposure t.
uint8_t camera_code(double e, double t) {
    const double v = 255.0 * std::pow(std::min(1.0, e * t), 1.0 / 2.2);
    return static_cast<uint8_t>(std::lround(v));
}

// A bracket of grey-ish RGB images of a scene with radiances spread over many stops.
Bytes synthetic_bracket(int width, int height, const std::vector<double> &times,
                        std::vector<double> *radiance = nullptr) {
    Bytes out;
    std::mt19937 rng(7);
    std::vector<double> scene(static_cast<size_t>(width) * height * 3);
    for (size_t p = 0; p < scene.size() / 3; ++p) {
        const double base = std::pow(2.0, -10.0 * (p % width) / width); // 10 stops across
        for (int c = 0; c < 3; ++c)
            scene[3 * p + c] = base * (0.8 + 0.1 * c + 0.05 * (rng() % 3));
    }
    for (double t : times)
        for (double e : scene)
            out.push_back(camera_code(e, t));
    if (radiance) *radiance = scene;
    return out;
}

float decode(const uint8_t *rgbe, int width, int x, int plane) {
    const int e = rgbe[3 * width + x];
    return e == 0 ? 0.0f : std::ldexp(static_cast<float>(rgbe[plane * width + x]), e - 136);
}

} // namespace

TEST(ExposureFromMetadata, FactorsFollowTimeApertureAndIso) {
    float rec[4 * 7] = {
        1, 250, 18, 10, 0,    1000, 0, // 1/250 s f/1.8 ISO 1000
        1, 1,   18, 10, 0,    1000, 0, // 1 s
        5, 0,   18, 10, 0,    1000, 0, // time without denominator
        0, 0,   0,  0,  1000, 0,    0, // APEX shutter only
    };
    EXPECT_EQ(get_ev(4, rec), 1);
    EXPECT_NEAR(rec[1] / rec[0], 250.0f, 0.01f);
    EXPECT_EQ(rec[2], 0.0f);
    EXPECT_EQ(rec[3], 2.0f);
    float defaults[7] = {1, 1, 0, 0, 0, 0, 0}; // f/8 and ISO 100 stand in
    get_ev(1, defaults);
    EXPECT_FLOAT_EQ(defaults[0], 20.64516f * 100.0f / 64.0f);
}

TEST(ExposureFromImages, SingleAndEqualImagesGetFactorOne) {
    int32_t m1[1] = {30000};
    float e1[1] = {0};
    EXPECT_EQ(guess_ev(0, 1, m1, e1, 0.0f), 1);
    EXPECT_EQ(e1[0], 1.0f);
    EXPECT_EQ(guess_ev(0, 1, m1, e1, 1.5f), 1);
    EXPECT_EQ(e1[0], 1.0f);
    int32_t m2[2] = {5000, 5000};
    float e2[2] = {0, 0};
    EXPECT_EQ(guess_ev(0, 2, m2, e2, 0.0f), 2);
    EXPECT_EQ(e2[0], 1.0f);
    EXPECT_EQ(e2[1], 1.0f);
    EXPECT_EQ(guess_ev(0, 0, m2, e2, 0.0f), 0);
}

TEST(ExposureFromImages, EvenBracketAndStopsInRankOrder) {
    int32_t m[3] = {100, 30000, 5000};
    float e[3];
    guess_ev(0, 3, m, e, 2.0f);
    EXPECT_EQ(e[1], 4.0f); // brightest
    EXPECT_EQ(e[2], 1.0f); // middle rank
    EXPECT_EQ(e[0], 0.25f);

    // Mode 1: rank order, whole stops, and measure turned into the order.
    int32_t r[3] = {100, 30000, 5000};
    guess_ev(1, 3, r, e, 0.0f);
    EXPECT_EQ(r[0], 1);
    EXPECT_EQ(r[1], 2);
    EXPECT_EQ(r[2], 0);
    EXPECT_EQ(e[1], 0.0f);
    EXPECT_GE(e[0], 2.0f);
    EXPECT_EQ(e[0], std::trunc(e[0]));
    EXPECT_LE(e[2], -3.0f);

    // A white image's midpoint above 65280 reads a slope of 0: no stops between them.
    int32_t w[2] = {65536 + 200, 65536 + 100};
    guess_ev(0, 2, w, e, 0.0f);
    EXPECT_EQ(e[0], 1.0f);
    EXPECT_EQ(e[1], 1.0f);
}

TEST(ExposureFromImages, TwoStopsApartGiveARatioNearFour) {
    const int width = 200, height = 40;
    const Bytes img = synthetic_bracket(width, height, {1.0, 4.0});
    int32_t m[2];
    EXPECT_EQ(mediane_images(2, width, height, 3 * width, 3, 8, img.data(), m), width * height / 2);
    float e[2];
    guess_ev(0, 2, m, e, 0.0f);
    // A pure power curve reads as fewer stops than a camera's S-shaped one; real brackets
    // land nearer 4 (see the real-data test).
    EXPECT_GT(e[1] / e[0], 2.5f);
    EXPECT_LT(e[1] / e[0], 6.0f);
}

TEST(ExposureFromImages, MeasureBandsForDarkOrdinaryAndBrightImages) {
    const int w = 10, h = 10;
    Bytes img(3 * 3 * w * h, 0);
    std::fill(img.begin() + 3 * w * h, img.begin() + 6 * w * h, 128);
    std::fill(img.begin() + 6 * w * h, img.end(), 255);
    int32_t m[3], order[3];
    mediane_images(3, w, h, 3 * w, 3, 8, img.data(), m);
    EXPECT_EQ(m[0], 0);
    EXPECT_EQ(m[1], 128 << 8);
    EXPECT_EQ(m[2], 65536 + 255);
    EXPECT_EQ(classementImages(3, w, h, 3, 8, img.data(), m, order), 3);
    EXPECT_EQ(m[2], 65280); // no bright band here
    EXPECT_EQ(order[0], 2);
    EXPECT_EQ(order[1], 1);
    EXPECT_EQ(order[2], 0);
    EXPECT_EQ(classementImages(3, w, h, 3, 8, img.data(), nullptr, order), -4);

    // 16-bit images are measured from their high bytes.
    std::vector<uint16_t> wide(3 * w * h, 128 * 257);
    mediane_images(1, w, h, 3 * w, 3, 16, wide.data(), m);
    EXPECT_EQ(m[0], 128 << 8);
}

TEST(Ordering, AscendingWithLaterIndexFirstAmongEquals) {
    const float v[4] = {3, 1, 3, 2};
    int32_t order[4];
    EXPECT_EQ(fClassementCroissant(4, v, order), 4);
    EXPECT_EQ(order[0], 1);
    EXPECT_EQ(order[1], 3);
    EXPECT_EQ(order[2], 2);
    EXPECT_EQ(order[3], 0);
    const float one[1] = {5};
    EXPECT_EQ(fClassementCroissant(1, one, order), 1);
    EXPECT_EQ(order[0], 0);
    // Values below the floor are never picked; the repair still lists every index once.
    const float low[3] = {-2e8f, 4, -3e8f};
    fClassementCroissant(3, low, order);
    EXPECT_EQ(order[2], 1);
    EXPECT_EQ(order[0] + order[1], 2);
}

TEST(Clipping, BothCountersAgree) {
    const int w = 33, h = 7, n = 3;
    std::mt19937 rng(1);
    Bytes img(n * w * h * 4);
    for (auto &b : img)
        b = static_cast<uint8_t>(245 + rng() % 11);
    std::vector<uint16_t> wide(n * w * h * 3);
    for (auto &s : wide)
        s = static_cast<uint16_t>(63000 + rng() % 2500);
    int32_t a[n], b[n];
    for (int bits : {8, 16}) {
        const void *p = bits == 8 ? static_cast<const void *>(img.data()) : wide.data();
        const int spp = bits == 8 ? 4 : 3;
        EXPECT_EQ(overexposureLevel(n, w, h, spp, bits, p, a), n);
        EXPECT_EQ(test_overexposureLevel(n, w, h, spp, bits, p, b), n);
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ(a[i], b[i]);
            EXPECT_GT(a[i], 0);
            EXPECT_LT(a[i], w * h);
        }
    }
    overexposureLevel(1, w, h, 4, 12, img.data(), a);
    EXPECT_EQ(a[0], 0);
}

TEST(CameraResponse, ProfileGammaCurves) {
    Bytes icc(64, 0);
    icc[3] = 64;
    memcpy(&icc[20], "gTRC", 4);
    icc[27] = 40; // tag data at 40
    icc[51] = 1;  // one entry: a plain gamma
    icc[52] = 0x02, icc[53] = 0x33;
    float gamma = 0;
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 21);
    EXPECT_EQ(gamma, 2.19921875f);
    icc[50] = 1; // 256 entries: a table curve counts as 2.2
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 21);
    EXPECT_EQ(gamma, 2.2f);
    gamma = 7;
    EXPECT_EQ(trc_from_profile(icc.data(), 63, &gamma), -64);
    EXPECT_EQ(gamma, 7.0f);
    memcpy(&icc[20], "xxxx", 4);
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 52);
    EXPECT_EQ(gamma, 2.2f);
    icc[27] = 60; // a tag pointing past the end reads as no plain gamma
    memcpy(&icc[20], "bTRC", 4);
    EXPECT_EQ(trc_from_profile(icc.data(), 64, &gamma), 21);
}

TEST(CameraResponse, CurvesAndMiddleImage) {
    float curve[256];
    EXPECT_EQ(gen_courbe(2200, curve, 0.5f), 256);
    EXPECT_EQ(curve[0], curve[1]);
    EXPECT_NEAR(curve[128], 0.5 * std::pow(128.0, 2.2), 1.0);
    EXPECT_NEAR(curve[255] / (0.5 * std::pow(255.0, 2.2)), 1.0, 1e-5);
    const int32_t v[3] = {50, 200, 100};
    EXPECT_EQ(mid_im(3, v), 2);
    Bytes grey(3 * 20 * 20, 100);
    EXPECT_EQ(moy_image(20, 20, 60, 3, 8, grey.data()), 100);
    EXPECT_EQ(moy_image(20, 20, 60, 3, 12, grey.data()), 0);
}

TEST(CameraResponse, GammaOfASyntheticBracket) {
    const int width = 300, height = 60;
    const std::vector<double> times = {4.0, 8.0, 16.0, 32.0};
    const Bytes img = synthetic_bracket(width, height, times);
    const float exposures[4] = {4, 8, 16, 32};
    std::vector<float> curve(256, 0.0f);
    const int g = calc_courbe(4, width, height, 8, 3, exposures, img.data(), curve.data());
    EXPECT_NEAR(g, 2200, 150);
    EXPECT_EQ(curve[1], 1.0f);
    EXPECT_GT(curve[2], 0.0f); // pairs that agreed
    // Identical images give no pair gamma: no estimate.
    const Bytes same = synthetic_bracket(width, height, {8.0, 8.0});
    EXPECT_EQ(calc_courbe(2, width, height, 8, 3, exposures, same.data(), curve.data()), -1);
}

TEST(Merge, SentinelsAreKeptOrResolved) {
    // Three pixels, two images: clipped everywhere, black everywhere, and ordinary.
    const int width = 3, height = 1;
    const Bytes img = {255, 255, 255, 0, 0, 0, 60,  90,  120,  // exposure 1
                       255, 255, 255, 0, 0, 0, 110, 160, 200}; // exposure 4
    float curve[256], stats[3];
    float exposures[2] = {1, 4};
    Bytes kept(4 * width), resolved(4 * width);
    EXPECT_EQ(lv_hdr_merge(nullptr, 2, 2, width, height, 3, 8, 0, -1.0f, curve, exposures,
                           img.data(), stats, kept.data()),
              height);
    EXPECT_EQ(exposures[1], 4.0f); // the caller's exposures stand
    EXPECT_EQ(kept[0], 255);
    EXPECT_EQ(kept[9], 255);
    EXPECT_EQ(kept[1], 0);
    EXPECT_EQ(kept[10], 0);
    EXPECT_GT(kept[11], 0);
    // Statistics leave the clipped pixel out, and the black one counts in the mean only.
    EXPECT_EQ(stats[0], stats[1]);
    EXPECT_NEAR(stats[2], stats[1] / 2, stats[1] * 1e-6);

    lv_hdr_merge(nullptr, 0, 2, width, height, 3, 8, 0, -1.0f, curve, exposures, img.data(), stats,
                 resolved.data());
    for (int x : {0, 1}) // grey of the ordinary pixel's luminance, from both sides
        for (int p = 0; p < 4; ++p)
            EXPECT_EQ(resolved[p * width + x], resolved[p * width]);
    EXPECT_EQ(resolved[0], resolved[3]);
    EXPECT_NEAR(decode(resolved.data(), width, 0, 0) * 256.0f, stats[1], stats[1] / 100);
    for (int p = 0; p < 4; ++p)
        EXPECT_EQ(resolved[p * width + 2], kept[p * width + 2]);
}

TEST(Merge, ClippedHighlightTakesItsValueFromTheDarkFrame) {
    const Bytes img = {100, 120, 140,  // dark frame, exposure 1
                       255, 250, 252}; // bright frame, exposure 8: over its centre
    float curve[256], stats[3], exposures[2] = {1, 8};
    Bytes out(4);
    lv_hdr_merge(nullptr, 2, 2, 1, 1, 3, 8, 0, -1.0f, curve, exposures, img.data(), stats,
                 out.data());
    for (int p = 0; p < 3; ++p) {
        const float linear =
            static_cast<float>(std::pow(img[p] / 256.0, static_cast<double>(2.2f)));
        EXPECT_NEAR(decode(out.data(), 1, 0, p), linear, linear / 64);
    }
}

TEST(Merge, NeighbouringExposuresAgreeOnTheScene) {
    const int width = 256, height = 4;
    std::vector<double> scene;
    const std::vector<double> times = {1.0, 4.0, 16.0};
    const Bytes img = synthetic_bracket(width, height, times, &scene);
    float curve[256], stats[3], exposures[3] = {1, 4, 16};
    Bytes out(4 * width * height);
    ASSERT_EQ(lv_hdr_merge(nullptr, 0, 3, width, height, 3, 8, 0, -1.0f, curve, exposures,
                           img.data(), stats, out.data()),
              height);
    EXPECT_LE(stats[0], stats[2]);
    EXPECT_LE(stats[2], stats[1]);
    // Where the darkest frame is unclipped and the brightest frame not black, the merge gives
    // the scene back (codes are over 256 levels, hence the factor 255/256 in the curve).
    int checked = 0;
    for (int x = 0; x < width; ++x) {
        const double e = scene[3 * x + 1];
        if (e * 16 < 0.02 || e > 0.9) continue;
        const double got = decode(out.data(), width, x, 1);
        EXPECT_NEAR(got / e, std::pow(255.0 / 256.0, 2.2), 0.08) << x;
        ++checked;
    }
    EXPECT_GT(checked, 100);

    // Derived exposures put the frames near 2 stops apart.
    float derived[3] = {0, 0, 0};
    lv_hdr_merge(nullptr, 0, 3, width, height, 3, 8, 0, 0.0f, curve, derived, img.data(), stats,
                 out.data());
    for (int i = 0; i < 2; ++i) {
        EXPECT_GT(derived[i + 1] / derived[i], 2.5f);
        EXPECT_LT(derived[i + 1] / derived[i], 6.5f);
    }
    float given[3] = {1, 4, 16};
    lv_hdr_merge(nullptr, 0, 3, width, height, 3, 8, 0, -0.5f, curve, given, img.data(), stats,
                 out.data());
    EXPECT_EQ(given[2], 16.0f);
}

TEST(Merge, OneImageAndSixteenBitInput) {
    const Bytes img = {0, 0, 0, 64, 128, 192, 250, 250, 250};
    float curve8[256], stats8[3], e1[1] = {123};
    Bytes out8(12), out16(12);
    lv_hdr_merge(nullptr, 2, 1, 3, 1, 3, 8, 0, 0.0f, curve8, e1, img.data(), stats8, out8.data());
    // The exposure plays no part: the value is the linearised code.
    // Mantissas are relative to the pixel's largest component, here blue.
    EXPECT_NEAR(decode(out8.data(), 3, 1, 1), curve8[128], curve8[192] / 128);
    EXPECT_EQ(out8[3 * 3 + 0], 0); // black: weight 0 at luminance 0

    std::vector<uint16_t> wide(img.begin(), img.end());
    for (auto &s : wide)
        s = static_cast<uint16_t>(s * 257);
    std::vector<float> curve16(65536);
    float stats16[3];
    lv_hdr_merge(nullptr, 2, 1, 3, 1, 3, 16, 0, 0.0f, curve16.data(), e1, wide.data(), stats16,
                 out16.data());
    for (int x = 1; x < 3; ++x)
        for (int p = 0; p < 3; ++p)
            EXPECT_NEAR(decode(out16.data(), 3, x, p), decode(out8.data(), 3, x, p),
                        decode(out8.data(), 3, x, 2) / 50);
}

namespace {
int g_calls = 0;
void count_progress(int *, float) {
    ++g_calls;
}
} // namespace

TEST(Merge, ReportsProgressOnlyOnTallImages) {
    std::vector<uint8_t> img(3 * 816, 100), out(4 * 816);
    float curve[256], stats[3], e[1] = {1};
    g_calls = 0;
    lv_hdr_merge(count_progress, 0, 1, 1, 815, 3, 8, 0, 0.0f, curve, e, img.data(), stats,
                 out.data());
    EXPECT_EQ(g_calls, 0);
    lv_hdr_merge(count_progress, 0, 1, 1, 816, 3, 8, 0, 0.0f, curve, e, img.data(), stats,
                 out.data());
    EXPECT_EQ(g_calls, 16);
}

TEST(Merge, DisplayViewMapsTheNormToMidGrey) {
    // Two pixels: 1.0 in red (mantissa 128, exponent 129) and black.
    const Bytes rgbe = {128, 0, 64, 0, 32, 0, 129, 0};
    uint8_t bgr[2 * 3 + 2];
    EXPECT_EQ(rgbe_rep(2, 1, 8, rgbe.data(), bgr, 256.0f), 1);
    EXPECT_EQ(bgr[2], 173); // red: 1.0 * 32768 / 256 = 128 on the 0..255 scale, gamma 1.8
    EXPECT_EQ(bgr[1], static_cast<uint8_t>(255 * std::pow(64 / 255.0, 0.5555555555555556)));
    EXPECT_EQ(bgr[3] + bgr[4] + bgr[5], 0);
    EXPECT_EQ(rgbe_rep(2, 0, 8, rgbe.data(), bgr, 1.0f), 0);
}

// The sanitizer build catches a NaN clipping limit turned into an integer.
TEST(Merge, ZeroExposureDoesNotBreakTheClippingLimits) {
    const Bytes img = {100, 120, 140, 30, 40, 50};
    float curve[256], stats[3], exposures[2] = {0, 4};
    Bytes out(4);
    EXPECT_EQ(lv_hdr_merge(nullptr, 0, 2, 1, 1, 3, 8, 0, -1.0f, curve, exposures, img.data(), stats,
                           out.data()),
              1);
}
