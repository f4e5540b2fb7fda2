// Ghost detection on a rendered bracket: a textured still scene through a gamma camera curve,
// four exposures two stops apart, with a red square that moves between frames.
#include <gtest/gtest.h>
#include <lumivantor/ghost.h>

#include <cmath>
#include <algorithm>
#include <cstdint>
#include <vector>

#include "ghost/detect_tower.h"

namespace {

constexpr int W = 640, H = 400, N = 4, Side = 36, Y0 = 80;
int square_x(int k) {
    return 40 + 32 * k;
}

// Bracket of N frames, 3 samples, code = (radiance x exposure)^(1/2.2) at full scale.
template <class T> std::vector<T> render(bool moving, std::vector<float> &exposures) {
    std::vector<T> out(static_cast<size_t>(N) * W * H * 3);
    const double full = sizeof(T) == 2 ? 65535.0 : 255.0;
    uint32_t seed = 7;
    std::vector<double> scene(static_cast<size_t>(W) * H);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            seed = seed * 1664525u + 1013904223u;
            const double grain = 0.9 + 0.2 * (seed >> 8) / 16777216.0;
            scene[y * W + x] = (0.04 + 0.03 * std::sin(x * 0.09) * std::cos(y * 0.07) +
                                0.02 * ((x / 16 + y / 16) & 1)) *
                               grain;
        }
    for (int k = 0; k < N; ++k) {
        exposures[k] = std::ldexp(1.0f, 2 * k);
        const int sx = square_x(moving ? k : 0);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const bool inside = x >= sx && x < sx + Side && y >= Y0 && y < Y0 + Side;
                const double rgb[3] = {inside ? 0.2 : scene[y * W + x],
                                       inside ? 0.004 : 0.9 * scene[y * W + x],
                                       inside ? 0.004 : 0.7 * scene[y * W + x]};
                for (int c = 0; c < 3; ++c) {
                    const double v = std::min(rgb[c] * exposures[k] * 0.25, 1.0);
                    out[((static_cast<size_t>(k) * H + y) * W + x) * 3 + c] =
                        static_cast<T>(std::lround(full * std::pow(v, 1 / 2.2)));
                }
            }
    }
    return out;
}

struct Case {
    int bits;
    bool derived;
};

class GhostDetect : public ::testing::TestWithParam<Case> {};

template <class T> std::vector<uint8_t> detect(bool moving, const Case &c, int *ret) {
    std::vector<float> exposures(N);
    // Derived exposures come from the measured brightness order, as an even bracket of two
    // stops; the frames are handed over out of order to exercise the ranking.
    auto bracket = render<T>(moving, exposures);
    if (c.derived) {
        const size_t frame = bracket.size() / N;
        std::swap_ranges(bracket.begin(), bracket.begin() + frame, bracket.begin() + 2 * frame);
        exposures.assign(N, 0.0f);
    }
    std::vector<uint8_t> mask((W * H + 7) / 8);
    const float sensitivity = 70.0f;
    *ret = lv_ghost_detect(&sensitivity, N, W, H, 3, c.bits, 0, exposures.data(), bracket.data(),
                           mask.data(), c.derived ? 2.0f : -1.0f);
    return mask;
}

TEST_P(GhostDetect, MovingSquareIsMaskedAndStillSceneIsNot) {
    const Case c = GetParam();
    int ret = 0;
    for (bool moving : {true, false}) {
        const auto mask =
            c.bits == 16 ? detect<uint16_t>(moving, c, &ret) : detect<uint8_t>(moving, c, &ret);
        ASSERT_EQ(ret, W * H);
        long both = 0, either = 0, stray = 0, still = 0;
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const bool bit = mask[(y * W + x) / 8] & (0x80 >> ((y * W + x) % 8));
                const bool object = moving && y >= Y0 && y < Y0 + Side && x >= square_x(0) &&
                                    x < square_x(N - 1) + Side;
                both += bit && object;
                either += bit || object;
                still += !object;
                stray += bit && !object;
            }
        if (moving) {
            EXPECT_GT(static_cast<double>(both) / either, 0.5);
        }
        EXPECT_LT(static_cast<double>(stray) / still, moving ? 0.01 : 0.001) << "moving " << moving;
    }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndExposures, GhostDetect,
                         ::testing::Values(Case{8, false}, Case{8, true}, Case{16, false},
                                           Case{16, true}));

TEST(GhostDetect, CodesSizesAndThresholdEnds) {
    const uint8_t grey[9 * 3] = {};
    float exposure = 1.0f;
    uint8_t mask[2] = {0, 0};
    float t = 60.0f;
    EXPECT_EQ(lv_ghost_detect(&t, 1, 3, 3, 3, 12, 0, &exposure, grey, mask, -1.0f), -2);
    EXPECT_EQ(lv_ghost_detect(&t, 1, 0, 3, 3, 8, 0, &exposure, grey, mask, -1.0f), 0);
    // One image has no pair: nothing is marked at a threshold of 0 or more...
    EXPECT_EQ(lv_ghost_detect(&t, 1, 3, 3, 3, 8, 0, &exposure, grey, mask, -1.0f), 16);
    EXPECT_EQ(mask[0] | mask[1], 0);
    // ...while a sensitivity of 43 or less gives a negative threshold that marks every bit,
    // the spare ones of the last byte included.
    t = 43.9f;
    lv_ghost_detect(&t, 1, 3, 3, 3, 8, 0, &exposure, grey, mask, -1.0f);
    EXPECT_EQ(mask[0] & mask[1], 0xFF);
}

TEST(GhostTower, DilationOverwritesAndExpansionKeepsFlatLevels) {
    uint8_t row[4] = {0, 10, 50, 0}, scratch[4];
    lv::dilate_ghost_level(4, 1, row, scratch);
    EXPECT_EQ(std::vector<int>(row, row + 4), (std::vector<int>{10, 50, 10, 50}));

    const std::vector<uint8_t> small(3 * 2, 200);
    std::vector<uint8_t> big(5 * 4, 0);
    EXPECT_EQ(deghost22b(5, 4, 3, 2, 0, small.data(), big.data()), 4);
    EXPECT_EQ(big, std::vector<uint8_t>(20, 200));
    // A lone coarse value spreads with binomial weights: 144/256 at its own place.
    const uint8_t dot[9] = {0, 0, 0, 0, 255, 0, 0, 0, 0};
    uint8_t up[36];
    deghost22b(6, 6, 3, 3, 0, dot, up);
    EXPECT_EQ(up[2 * 6 + 2], 143);
    EXPECT_EQ(up[3 * 6 + 3], 63);
}

} // namespace
