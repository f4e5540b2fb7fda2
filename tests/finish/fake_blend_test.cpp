// Fake exposures (cancel points, brightness order), the choice of the nearest exposure,
// lv_blend's weights across depths and mask layers.
#include <gtest/gtest.h>

#include <numeric>

#include "finish_support.h"
#include "frame/band_threads.h"

using finish_test::random_image;
using finish_test::same_for_all_thread_counts;

namespace {

int g_calls = 0, g_cancel_at = 0;
std::vector<float> g_values;
void count_and_cancel(int *cancel, float value) {
    g_values.push_back(value);
    if (++g_calls == g_cancel_at) *cancel = 1;
}

double mean(const unsigned char *p, size_t n) {
    return std::accumulate(p, p + n, 0.0) / double(n);
}

TEST(FakeExposures, EachCancelPointStopsBeforeTheNextStepAndAFullRunIsBrighterOnTwoAndThree) {
    const int w = 20, h = 12;
    const size_t one = size_t(3) * w * h;
    const auto in = random_image(one, 8, 2);
    std::vector<unsigned char> full(4 * one);
    g_calls = 0, g_cancel_at = 0, g_values.clear();
    ASSERT_EQ(createFakeExposures(2, w, h, 3, 3 * w, 3 * w, 0, 0, 8, 8, in.data(), full.data(),
                                  count_and_cancel),
              0);
    EXPECT_EQ(g_values,
              (std::vector<float>{1 / 7.f, 2 / 7.f, 3 / 7.f, 4 / 7.f, 5 / 7.f, 6 / 7.f, 1.0f}));
    std::vector<unsigned char> silent(4 * one);
    createFakeExposures(2, w, h, 3, 3 * w, 3 * w, 0, 0, 8, 8, in.data(), silent.data(), nullptr);
    EXPECT_EQ(silent, full);
    for (int k = 0; k < 4; ++k)
        EXPECT_GT(mean(&full[k * one], one), mean(in.data(), one) + 5) << "exposure " << k;
    EXPECT_GT(mean(&full[2 * one], one), mean(&full[0], one));

    // Outputs finished before the cancel point are whole; later ones are not touched.
    // Cancel point p comes before step p; points 5 and 6 refine outputs 2 and 3 in place.
    const int whole_before[8] = {0, 0, 1, 2, 2, 4, 4, 4};
    for (int point = 1; point <= 7; ++point) {
        std::vector<unsigned char> out(4 * one, 0x77);
        g_calls = 0, g_cancel_at = point;
        EXPECT_EQ(createFakeExposures(1, w, h, 3, 3 * w, 3 * w, 0, 0, 8, 8, in.data(), out.data(),
                                      count_and_cancel),
                  -1);
        EXPECT_EQ(g_calls, point);
        for (int k = 0; k < 4; ++k) {
            const bool touched = k < whole_before[point] || (point == 4 && k == 2);
            const bool untouched = std::all_of(&out[k * one], &out[(k + 1) * one],
                                               [](unsigned char v) { return v == 0x77; });
            EXPECT_EQ(untouched, !touched) << "point " << point << " output " << k;
            if (k < 2 && touched) {
                EXPECT_TRUE(std::equal(&out[k * one], &out[(k + 1) * one], &full[k * one]));
            }
        }
    }
}

TEST(ClosestExposure, TiesGoAwayFromTheMiddleAndAnExactValueWins) {
    const struct {
        std::vector<float> evs;
        float target;
        int index;
    } cases[] = {
        {{0, 2}, 1, 1},    {{-2, 0}, -1, 0},          {{1, -1}, 0, 0},
        {{2, 0, 2}, 2, 0}, {{-2, -1, 1, 2}, 0.4f, 2}, {{-4, 4, 0.5f}, 9, 1},
    };
    for (const auto &c : cases)
        EXPECT_EQ(getIndexClosestEv(int(c.evs.size()), c.evs.data(), c.target), c.index)
            << "target " << c.target;
    EXPECT_EQ(getIndexClosestEv(3, nullptr, 1), 0);
}

// One block per mask layer: p[27] amount in percent, p[28] exposure value.
std::vector<float> blocks(std::initializer_list<std::pair<float, float>> settings) {
    std::vector<float> p(60 * settings.size(), 0.0f);
    size_t k = 0;
    for (auto [amount, ev] : settings) {
        p[60 * k + 27] = amount;
        p[60 * k + 28] = ev;
        ++k;
    }
    p[55] = float(settings.size() - 1);
    return p;
}

DimParam dims(int w, int h, int bits_in, int bits_out) {
    DimParam d;
    init_dim_param(&d);
    d.width = w, d.height = h, d.bpsIn = bits_in, d.bpsOut = bits_out;
    d.strideIn = 3 * w, d.strideOut = 3 * w;
    return d;
}

TEST(Blend, AmountsAcrossDepthsAndTheHeldHundredPercent) {
    const struct {
        int bits_in, bits_out;
        float amount;
        unsigned image, current, result;
    } cases[] = {
        {8, 8, 100, 255, 0, 252},         // 99 % at most: trunc(0.99 x 65535) x 255 >> 16
        {8, 8, 100, 0, 255, 2},           // the current picture always shows through a little
        {8, 8, 50, 200, 100, 149},        //
        {8, 16, 50, 255, 0, 32639},       // 255 x 32767 >> 8
        {16, 8, 50, 65535, 0, 126},       // 65535 x 127 >> 16
        {16, 16, 25, 40000, 1000, 10589}, // (40000 x 63 + 1000 x 191) >> 8
    };
    auto flat = [](int bits, unsigned v) { // one pixel of level v
        const uint16_t wide[3] = {uint16_t(v), uint16_t(v), uint16_t(v)};
        return bits == 8
                   ? std::vector<unsigned char>(3, uint8_t(v))
                   : std::vector<unsigned char>((const uint8_t *)wide, (const uint8_t *)(wide + 3));
    };
    for (const auto &c : cases) {
        const auto p = blocks({{c.amount, 0}});
        auto out = flat(c.bits_out, c.current);
        ASSERT_EQ(lv_blend(1, 1, p.data(), nullptr, nullptr, flat(c.bits_in, c.image).data(),
                           dims(1, 1, c.bits_in, c.bits_out), out.data()),
                  1);
        EXPECT_EQ(out, flat(c.bits_out, c.result)) << c.bits_in << " to " << c.bits_out << " bits";
    }
    auto out = flat(8, 4);
    const auto idle = blocks({{0, 0}});
    EXPECT_EQ(
        lv_blend(1, 1, idle.data(), nullptr, nullptr, out.data(), dims(1, 1, 8, 8), out.data()), 1);
}

TEST(Blend, MaskWeightsMixTheLayerAndTheNearestImageIsChosen) {
    // Three images of the set, at -2, 0 and +2 EV, each a flat level.
    const float evs[3] = {-2, 0, 2};
    unsigned char images[9] = {40, 40, 40, 120, 120, 120, 240, 240, 240};
    // Base block: 50 % of the image nearest -1.5; layer 0: 100 % of the one nearest +1.5.
    // Layer 1 sits inactive: its pixels still pass the arithmetic with a zero weight.
    const auto p = blocks({{50, -1.5f}, {100, 1.5f}, {0, 0}});
    const unsigned char weights[] = {0, 128, 255, 255};
    const unsigned char layers[] = {0, 0, 0, 7}; // 7: above the last, held at layer 1
    for (int i = 0; i < 4; ++i) {
        const unsigned char mask[2] = {weights[i], layers[i]};
        unsigned char out[3] = {100, 100, 100};
        lv_blend(1, 3, p.data(), evs, mask, images, dims(1, 1, 8, 8), out);
        const unsigned base = (40 * 32767 + 100 * 32767) >> 16; // 69
        const unsigned layer = (240 * 64879 + 100 * 655) >> 16; // 238
        const unsigned expected[4] = {base, (127 * base + 129 * layer) >> 8, layer, 99};
        EXPECT_EQ(out[0], expected[i]) << "weight " << int(weights[i]);
    }
}

int refuse(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    return 11;
}

TEST(Blend, ThreadCountsGiveIdenticalBytesAndAFailedThreadStartIsReported) {
    const int w = 19, h = 29;
    const auto images = random_image(size_t(2) * 3 * w * h, 16, 4);
    const auto start = random_image(size_t(3) * w * h, 8, 5);
    std::vector<unsigned char> mask = random_image(size_t(2) * w * h, 8, 6);
    const auto p = blocks({{30, 1}, {70, 0}, {45, 1}});
    const float evs[2] = {0, 1};
    EXPECT_TRUE(same_for_all_thread_counts(start.size(), [&](int t, unsigned char *out) {
        std::memcpy(out, start.data(), start.size());
        lv_blend(t, 2, p.data(), evs, mask.data(), images.data(), dims(w, h, 16, 8), out);
    }));
    // The flat loop for a plain picture agrees with the per-pixel path of a layer-less mask.
    const auto base = blocks({{30, 1}, {0, 0}});
    std::vector<unsigned char> flat = start, masked = start, no_layer(size_t(2) * w * h, 255);
    lv_blend(1, 2, base.data(), evs, nullptr, images.data(), dims(w, h, 16, 8), flat.data());
    lv_blend(1, 2, base.data(), evs, no_layer.data(), images.data(), dims(w, h, 16, 8),
             masked.data());
    EXPECT_EQ(flat, masked);
    std::vector<unsigned char> out = start;
    lv_set_thread_create(refuse);
    EXPECT_EQ(
        lv_blend(3, 2, p.data(), evs, mask.data(), images.data(), dims(w, h, 16, 8), out.data()),
        -2);
    lv_set_thread_create(nullptr);
}

} // namespace
