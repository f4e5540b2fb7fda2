// The colour adjustment pass: neutral jobs, level clipping and temperature, the mix of
// base and mask layer, bands on threads, and the plain average of a bracket.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "frame/band_threads.h"
#include "lumivantor/colour.h"

namespace {

constexpr int kW = 37, kH = 23, kB = LV_TMPARAM_COUNT;

DimParam dim_of(int bits, int spp = 3) {
    DimParam d;
    init_dim_param(&d);
    d.width = kW, d.height = kH, d.samplesPerPixel = spp, d.bpsOut = bits, d.strideOut = kW * spp;
    return d;
}

// Random bytes whose first three pixels of every row are grey, black and white.
std::vector<unsigned char> image(const DimParam &d) {
    std::vector<unsigned char> img(size_t(d.strideOut) * kH * d.bpsOut / 8);
    std::mt19937 rng(5);
    for (auto &v : img)
        v = static_cast<unsigned char>(rng());
    const size_t row = img.size() / kH, px = d.samplesPerPixel * d.bpsOut / 8;
    for (int y = 0; y < kH; ++y)
        for (size_t i = 0; i < px; ++i)
            img[row * y + i] = 85, img[row * y + px + i] = 0, img[row * y + 2 * px + i] = 255;
    return img;
}

int run(std::vector<unsigned char> &img, std::vector<float> &p, const DimParam &d, int method,
        std::vector<unsigned char> *mask = nullptr, int threads = 1) {
    return lv_adjust_colors(threads, 0, method, p.data(), mask ? mask->data() : nullptr, img.data(),
                            d);
}

TEST(AdjustColors, NeutralJobsClippingAndTemperature) {
    const DimParam d = dim_of(8);
    const auto orig = image(d);
    auto img = orig;
    std::vector<float> p(2 * kB, 0.0f);
    p[55] = 1.0f;
    std::vector<unsigned char> mask(2 * kW * kH, 0);
    EXPECT_EQ(run(img, p, d, 10, &mask), 1);
    EXPECT_EQ(img, orig) << "nothing set: untouched";
    // A layer set that no pixel uses, or white not above black: within one step.
    p[kB + 6] = 4.0f, p[4] = 50.0f, p[5] = 50.0f;
    EXPECT_EQ(run(img, p, d, 10, &mask), kH);
    for (size_t i = 0; i < img.size(); ++i)
        ASSERT_LE(std::abs(img[i] - orig[i]), 1) << i;
    // Black 0.15 and white 0.85 stretch the grey (1/3) to about 0.26 and hold the ends.
    p.assign(kB, 0.0f), p[4] = 10.0f, p[5] = 10.0f;
    img = orig;
    run(img, p, d, 15);
    EXPECT_TRUE(img[0] == 66 && img[3] == 0 && img[6] == 255) << int(img[0]);
    // A positive temperature warms a grey.
    p.assign(kB, 0.0f), p[12] = 5.0f;
    img = orig;
    run(img, p, d, 14);
    EXPECT_TRUE(img[0] > img[1] && img[1] > img[2]);
}

TEST(AdjustColors, LayerWeightsMixBaseAndLayerAndOnlyLayersGetExtraLuminance) {
    const DimParam d = dim_of(8);
    std::vector<float> p(3 * kB, 0.0f);
    p[13] = 5.0f, p[7] = 10.0f, p[55] = 2.0f;      // base: saturation, extra luminance
    p[2 * kB + 6] = -10.0f, p[2 * kB + 41] = 6.0f; // layer 1: midtones, reds' luminance
    std::vector<float> base_p(p.begin(), p.begin() + kB), layer_p(p.begin() + 2 * kB, p.end());
    const auto orig = image(d);
    auto base = orig, layer = orig, plain = orig;
    run(base, base_p, d, 4);
    run(layer, layer_p, d, 4);
    base_p[7] = 0.0f;
    run(plain, base_p, d, 4);
    EXPECT_EQ(base, plain) << "the base block's extra luminance is never applied";
    // Per row: weight and layer number; layer 9 is held at the last layer.
    const int cases[][2] = {{255, 1}, {1, 9}, {128, 1}, {0, 1}, {200, 255}};
    std::vector<unsigned char> mask(2 * kW * kH);
    for (size_t i = 0; i < mask.size(); ++i)
        mask[i] = cases[i / (2 * kW) % 5][i % 2];
    auto img = orig;
    ASSERT_EQ(run(img, p, d, 4, &mask), kH);
    for (size_t i = 0; i < img.size(); ++i) {
        const int w = cases[i / (3 * kW) % 5][0], no = cases[i / (3 * kW) % 5][1];
        const int want = (w == 0 || no == 255) ? base[i]
                         : w == 255            ? layer[i]
                                               : (base[i] * (255 - w) + layer[i] * (w + 1)) >> 8;
        ASSERT_EQ(img[i], want) << i << " weight " << w;
    }
    p[2 * kB + 7] = 10.0f;
    auto lifted = orig;
    run(lifted, p, d, 4, &mask);
    long lift = 0;
    for (size_t i = 0; i < 3 * kW; ++i)
        lift += lifted[i] - img[i];
    EXPECT_GT(lift, 100) << "a layer's extra luminance lifts its coloured pixels";
}

TEST(AdjustColors, ThreadCountsGiveIdenticalBytesAndAFailedStartGivesMinusTwo) {
    std::vector<float> p(2 * kB, 0.0f);
    p[13] = 3.0f, p[12] = -2.0f, p[33] = 5.0f, p[kB + 25] = -4.0f, p[55] = 1.0f;
    std::vector<unsigned char> mask(2 * kW * kH);
    std::mt19937 rng(3);
    for (auto &m : mask)
        m = static_cast<unsigned char>(rng() % 3 == 0 ? 255 : rng() % 256);
    for (int bits : {8, 16}) {
        const DimParam d = dim_of(bits, 4);
        const auto orig = image(d);
        auto one = orig;
        ASSERT_EQ(run(one, p, d, 14, &mask), kH);
        for (int threads : {2, 3, 7, 8}) {
            auto img = orig;
            // Bands run only when each has 3 rows; otherwise the whole image is one band.
            const int want = kH / threads >= 3 ? lv::band_of(kH, threads - 1, threads).rows : kH;
            EXPECT_EQ(run(img, p, d, 14, &mask, threads), want);
            EXPECT_EQ(img, one) << bits << " bits, " << threads << " threads";
        }
    }
    lv_set_thread_create(
        [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return 11; });
    auto img = image(dim_of(8));
    EXPECT_EQ(run(img, p, dim_of(8), 14, &mask, 2), LV_ERR_IO);
    lv_set_thread_create(nullptr);
}

TEST(Moyenne, AveragesConvertsDepthAndSwaps) {
    DimParam d = dim_of(16);
    d.bpsIn = 8, d.swapRedBlue = 1;
    std::vector<uint8_t> bracket(3 * 3 * kW * kH, 255);
    for (int k = 0; k < 3; ++k)
        bracket[size_t(k) * 3 * kW * kH] = uint8_t(10 * (k + 1));
    std::vector<uint16_t> out(3 * kW * kH);
    std::vector<float> p(kB, 0.0f);
    ASSERT_EQ(moyenne(1, p.data(), nullptr, 3, d, bracket.data(), out.data()), kH);
    EXPECT_TRUE(out[2] == 20 << 8 && out[0] == 65280) << "red (10 + 20 + 30) / 3, swapped";
    d.bpsIn = 16, d.bpsOut = 8, d.swapRedBlue = 0;
    std::vector<uint16_t> wide(2 * 3 * kW * kH, 65535);
    wide[0] = 0x1234;
    std::vector<uint8_t> small(3 * kW * kH);
    moyenne(1, p.data(), nullptr, 2, d, wide.data(), small.data());
    EXPECT_TRUE(small[0] == ((0x1234 + 65535) / 2) >> 8 && small[1] == 255);
}

} // namespace
