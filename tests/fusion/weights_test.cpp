// Ranking of a bracket, fusion weight planes (sum, rounding, selection, threads, file
// route) and the smoothed 8-bit weights of the local stage.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <random>
#include <vector>

#include "frame/band_threads.h"
#include "fusion/weights.h"
#include "lumivantor/frame.h"
#include "street_photos.h"

namespace {

constexpr int kW = 13, kH = 23, kPlane = kW * kH;

// Photographs whose pixels are greys: level[t] for the first share[t] of the pixels,
// then level2[t]; the grey level is also the luminance bin.
std::vector<uint8_t> greys(const std::vector<int> &level, const std::vector<int> &level2 = {},
                           float share = 1.0f) {
    std::vector<uint8_t> img;
    for (size_t t = 0; t < level.size(); ++t)
        for (int p = 0; p < kPlane; ++p)
            img.insert(img.end(), 3, uint8_t(p < share * kPlane ? level[t] : level2[t]));
    return img;
}

TEST(StatsOrderPhotos, KeysFromMedianBrightEndAndDarkEnd) {
    // Median 4 with its bright end at 200; medians 5, 252 and 253 (almost white).
    const auto img = greys({4, 5, 252, 253, 100}, {200, 5, 252, 253, 100}, 0.8f);
    int dark[5], bright[5], clipped[5], key[5], order[5];
    ASSERT_EQ(stats_order_photos(5, kW, kH, 3, 8, img.data(), dark, bright, clipped, key, order),
              5);
    const int want[5] = {200, 1280, 64512, 65536 + 253, 25600};
    const int want_order[5] = {3, 2, 4, 1, 0};
    for (int t = 0; t < 5; ++t)
        EXPECT_TRUE(key[t] == want[t] && order[t] == want_order[t]) << t;
    EXPECT_TRUE(dark[0] == 80 && dark[4] == 0 && bright[2] == 100 && clipped[3] == kPlane);
}

std::vector<uint8_t> noise(int n, unsigned seed) {
    std::vector<uint8_t> img(size_t(n) * 3 * kPlane);
    std::mt19937 rng(seed);
    for (auto &v : img)
        v = uint8_t(rng());
    return img;
}

struct Weights {
    std::vector<float> param = std::vector<float>(60, 0.0f);
    std::vector<int> order = {-1};
    std::vector<uint8_t> mask;
    int reference = -1;
    template <class W>
    int run(const std::vector<uint8_t> &img, int n, std::vector<W> &out, int threads = 1,
            FILE *file = nullptr) {
        order.resize(n, 0);
        out.assign(size_t(n) * kPlane, W(7));
        std::vector<uint8_t> row(size_t(n) * 3 * kW);
        return fusion1(threads, param.data(), n, kW, kH, 3, 8, 8 * sizeof(W), 0, file != nullptr,
                       file, row.data(), img.data(), order.data(), mask.data(), &reference,
                       out.data());
    }
};

TEST(Fusion1, PlanesSumToFullScaleAndASolePhotographWeighs65535) {
    const auto img = noise(4, 2);
    Weights w;
    w.param[0] = 3.0f, w.param[1] = 4.0f, w.param[2] = 2.0f;
    std::vector<uint16_t> deep;
    ASSERT_EQ(w.run(img, 4, deep), kH);
    for (int p = 0; p < kPlane; ++p) {
        int sum = 0;
        for (int t = 0; t < 4; ++t)
            sum += deep[t * kPlane + p];
        ASSERT_NEAR(sum, 65536, 4) << p; // each plane rounds on its own
    }
    ASSERT_EQ(w.run(img, 1, deep), kH);
    EXPECT_EQ(deep[0], 65535);
    std::vector<uint8_t> eight;
    w.param[1] = 0.0f; // no preference by rank
    w.run(greys({128, 128, 128}), 3, eight);
    EXPECT_TRUE(eight[0] == 85 && eight[kPlane] == 85 && eight[2 * kPlane + 5] == 85);
    EXPECT_EQ(w.reference, 2) << "ties rank in index order: the last is the darkest";
}

TEST(Fusion1, ThreadsAFailedStartAndTheFileRouteGiveTheSameBytes) {
    const auto img = noise(3, 9);
    Weights w;
    w.param[1] = -3.0f;
    std::vector<uint8_t> one, many;
    w.run(img, 3, one);
    for (int threads : {2, 3, 7}) {
        EXPECT_EQ(w.run(img, 3, many, threads), lv::band_of(kH, threads - 1, threads).rows);
        EXPECT_EQ(many, one) << threads;
    }
    lv_set_thread_create(
        [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return 11; });
    EXPECT_EQ(w.run(img, 3, many, 3), kH);
    lv_set_thread_create(nullptr);
    EXPECT_EQ(many, one);
    FILE *file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    std::fwrite(img.data(), 1, img.size() - 1, file);
    EXPECT_EQ(w.run(img, 3, many, 2, file), LV_ERR_KIND) << "one byte short";
    std::fputc(img.back(), file);
    EXPECT_EQ(w.run(img, 3, many, 2, file), kH);
    EXPECT_EQ(many, one);
    std::fclose(file);
}

TEST(Fusion1, SelectionHandsPixelsToOnePhotographAndBandsReadItEarly) {
    Weights w;
    w.order = {2, 0, 1};
    w.mask.assign((3 * kPlane + 7) / 8, 0);
    const int p = 11 * kW + 3; // first row of the second band of two; 143 mod 8 = 7
    w.mask[p >> 3] |= uint8_t(0x80 >> (p & 7)); // rank 0, that is photograph 2
    std::vector<uint8_t> out;
    w.run(greys({128, 60, 200}), 3, out);
    EXPECT_TRUE(out[2 * kPlane + p] == 255 && out[p] == 0 && out[kPlane + p] == 0);
    w.run(greys({128, 60, 200}), 3, out, 2);
    EXPECT_TRUE(out[2 * kPlane + p + 7] == 255 && out[2 * kPlane + p] != 255)
        << "a band starting at pixel 143 reads its selection 143 mod 8 = 7 pixels early";
}

TEST(LocalWeights, SmoothedPlanesSumTo255AndFollowExposure) {
    // Photograph 0 well exposed on the left half, photograph 1 on the right.
    constexpr int w = 64, h = 48;
    std::vector<uint8_t> img(2 * 3 * w * h), planes(2 * w * h);
    for (int t = 0; t < 2; ++t)
        for (int p = 0; p < w * h; ++p)
            std::fill_n(&img[(t * w * h + p) * 3], 3, (p % w < w / 2) == (t == 0) ? 128 : 250);
    FusionWeightSource source = {img.data(), 3};
    ASSERT_EQ(adj1_32(w, h, 8, 1, &source, planes.data()), 1);
    EXPECT_TRUE(planes[0] > 200 && planes[w - 1] < 55);
    ASSERT_EQ(smooth_nosubsample(10, w, h, 8, 0, planes.data(), planes.data()), 1);
    ASSERT_EQ(final_poids32(w, h, 8, 2, planes.data()), 1);
    for (int p = 0; p < w * h; ++p)
        ASSERT_EQ(planes[p] + planes[w * h + p], 255) << p;
    // The step became a ramp across the middle, monotone, the ends untouched.
    for (int x = 1; x < w; ++x)
        ASSERT_LE(planes[5 * w + x], planes[5 * w + x - 1]) << x;
    EXPECT_TRUE(planes[w / 2 - 1] < planes[0] && planes[0] == planes[(h - 1) * w]);
}

TEST(Fusion1, StreetBracketWeighsTheShortestFrameAsDarkestAndIsWrittenForALook) {
    const lvtest::Bracket street = lvtest::street_bracket();
    if (street.seconds.size() != 5)
        GTEST_SKIP() << "street bracket not found in " << lvtest::street_dir();
    const int w = street.width, h = street.height;
    const std::vector<int> order(5, -1);
    std::vector<float> p(LV_TMPARAM_COUNT);
    tmparam_default(10, 0, p.data());
    std::vector<uint8_t> planes(size_t(5) * w * h);
    int reference = -1;
    ASSERT_EQ(fusion1(2, p.data(), 5, w, h, 3, 8, 8, 0, 0, nullptr, nullptr, street.rgb.data(),
                      order.data(), nullptr, &reference, planes.data()),
              h - h / 2);
    EXPECT_EQ(reference, 0);
    // The planes one above the other.
    EXPECT_TRUE(lvtest::write_png(std::string(LV_BINARY_DIR) + "/fusion_street_weights.png", w,
                                  5 * h, 1, planes.data()));
}

} // namespace
