// The HSL copy, post_adj's saturation by hue, sharpening and output curve with its
// per-band change counter, and hsauto's average and soft-light shadow lift.
#include <gtest/gtest.h>

#include "finish_support.h"
#include "frame/band_threads.h"

using finish_test::random_image;
using finish_test::same_for_all_thread_counts;

namespace {

TEST(HslCopy, BytesOfWorkedColoursAtBothDepthsAndSwapped) {
    const struct {
        int bits, swap;
        uint16_t rgb[3];
        std::vector<int> hsl;
    } cases[] = {
        {8, 0, {255, 0, 0}, {0, 255, 127}},         {8, 0, {128, 128, 128}, {0, 0, 128}},
        {8, 1, {0, 0, 255}, {0, 255, 127}},         {8, 0, {0, 0, 255}, {170, 255, 127}},
        {16, 0, {65535, 32768, 0}, {21, 255, 127}},
    };
    for (const auto &c : cases) {
        unsigned char px[6], hsl[3];
        for (int k = 0; k < 3; ++k) {
            if (c.bits == 8)
                px[k] = uint8_t(c.rgb[k]);
            else
                std::memcpy(px + 2 * k, &c.rgb[k], 2);
        }
        get_hsl(1, 1, 1, 3, c.swap, 3, c.bits, hsl, px);
        EXPECT_EQ(std::vector<int>(hsl, hsl + 3), c.hsl)
            << c.rgb[0] << "," << c.rgb[1] << "," << c.rgb[2];
    }
}

std::vector<uint16_t> identity_curve() {
    std::vector<uint16_t> curve(65536);
    for (int i = 0; i < 65536; ++i)
        curve[i] = uint16_t(i);
    return curve;
}

TEST(PostAdjust, NeutralSettingsOnlyPassTheCurve) {
    const int w = 31, h = 13;
    const auto curve = identity_curve();
    std::vector<float> hue(360, 0.0f);
    const float controls[3] = {0, 2, 0};
    for (int bits : {8, 16}) {
        const auto in = random_image(size_t(4) * w * h, bits, 3);
        auto out = in;
        EXPECT_EQ(post_adj(2, w, h, 4, 1, 4 * w, bits, curve.data(), hue.data(), controls, nullptr,
                           out.data()),
                  h - h / 2);
        EXPECT_EQ(out, in) << bits << " bits";
    }
    // An inverting curve, at 8 bits read from its high bytes.
    std::vector<uint16_t> invert(65536);
    for (int i = 0; i < 65536; ++i)
        invert[i] = uint16_t(65535 - i);
    unsigned char px[3] = {0, 100, 255};
    post_adj(1, 1, 1, 3, 0, 3, 8, invert.data(), hue.data(), controls, nullptr, px);
    EXPECT_EQ(std::vector<int>(px, px + 3), (std::vector<int>{255, 155, 0}));
}

TEST(PostAdjust, PixelsBeforeTheFirstChangeKeepTheirSamplesAndTheCountRestartsPerBand) {
    // Only reds (hue 0) change; every other pixel is a green whose 8-bit HSL rebuild differs
    // from its samples, which shows whether it was rebuilt.
    const int w = 4, h = 8;
    const unsigned char green[3] = {10, 200, 37}, red[3] = {200, 20, 20};
    std::vector<unsigned char> img(size_t(3) * w * h);
    for (size_t i = 0; i < img.size(); i += 3)
        std::memcpy(&img[i], green, 3);
    std::memcpy(&img[3 * 2], red, 3); // row 0, column 2
    const std::vector<int> rebuilt = {10, 199, 37}; // the green through its 8-bit HSL

    const auto curve = identity_curve();
    std::vector<float> hue(360, 0.0f);
    hue[0] = -0.5f;
    const float controls[3] = {0, 1, 0};
    for (int threads : {1, 2}) {
        auto out = img;
        post_adj(threads, w, h, 3, 0, 3 * w, 8, curve.data(), hue.data(), controls, nullptr,
                 out.data());
        auto at = [&](int x, int y) {
            const unsigned char *p = &out[3 * (size_t(y) * w + x)];
            return std::vector<int>{p[0], p[1], p[2]};
        };
        EXPECT_EQ(at(1, 0), (std::vector<int>{10, 200, 37}));
        EXPECT_LT(at(2, 0)[0] - at(2, 0)[1], 180 - 10); // the red lost saturation
        EXPECT_EQ(at(3, 0), rebuilt);
        // The second band starts its count afresh: with no red of its own it is untouched.
        EXPECT_EQ(at(0, 7), threads == 1 ? rebuilt : std::vector<int>({10, 200, 37}));
    }
}

TEST(PostAdjust, SharpeningOvershootsAnEdgeTheSameWayOnAnyThreadCount) {
    const int w = 24, h = 29;
    std::vector<unsigned char> img(size_t(3) * w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                img[3 * (size_t(y) * w + x) + c] = x < w / 2 ? 80 : 160;
    const auto curve = identity_curve();
    std::vector<float> hue(360, 0.2f); // every pixel changes, so bands agree
    const float controls[3] = {2.0f, 1.5f, 0};
    std::vector<unsigned char> copy(size_t(3) * w * h);
    get_hsl(3, w, h, 3, 0, 3 * w, 8, copy.data(), img.data());
    EXPECT_TRUE(same_for_all_thread_counts(img.size(), [&](int t, unsigned char *out) {
        std::memcpy(out, img.data(), img.size());
        post_adj(t, w, h, 3, 0, 3 * w, 8, curve.data(), hue.data(), controls,
                 t == 2 ? nullptr : copy.data(), out);
    }));
    auto out = img;
    post_adj(1, w, h, 3, 0, 3 * w, 8, curve.data(), hue.data(), controls, copy.data(), out.data());
    const size_t mid = size_t(h / 2) * w;
    EXPECT_LT(out[3 * (mid + w / 2 - 1)], 75); // the dark side darker at the edge
    EXPECT_GT(out[3 * (mid + w / 2)], 165);    // the bright side brighter
    EXPECT_NEAR(out[3 * mid], 80, 1);          // far from the edge, untouched
}

TEST(ShadowLift, AveragesLiftsShadowsHoldsHighlightsAndKeepsGreysGrey) {
    const int w = 9, h = 7;
    const struct {
        std::vector<int> levels; // one flat grey per frame
        int bits_out, spp;
        int expected, mask;
    } cases[] = {
        {{64}, 8, 3, 87, 191},     {{200}, 8, 3, 175, 55}, {{60, 68}, 8, 3, 87, 191},
        {{64}, 16, 3, 22335, 191}, {{64}, 8, 1, 64, 191},
    };
    for (const auto &c : cases) {
        const int n = int(c.levels.size());
        std::vector<unsigned char> in(size_t(n) * w * h * c.spp);
        for (int k = 0; k < n; ++k)
            std::fill(&in[size_t(k) * w * h * c.spp], &in[size_t(k + 1) * w * h * c.spp],
                      c.levels[k]);
        std::vector<uint16_t> out(size_t(w) * h * c.spp + 5);
        auto *out_bytes = reinterpret_cast<unsigned char *>(out.data());
        ASSERT_EQ(
            hsauto(n, w, h, w * c.spp, 0, 8, c.bits_out, c.spp, nullptr, in.data(), out_bytes), h);
        for (size_t i = 0; i < size_t(w) * h * c.spp; ++i)
            ASSERT_EQ(c.bits_out == 8 ? out_bytes[i] : out[i], c.expected) << "sample " << i;
        EXPECT_EQ(in[size_t(w) * h - 1], c.mask); // the mask went over the input
    }
    EXPECT_EQ(hsauto(1, 0, 5, 0, 0, 8, 8, 3, nullptr, nullptr, nullptr), 0);
}

} // namespace
