// Ghost preview views and selection helpers on small worked cases.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>
#include <lumivantor/ghost.h>

#include <cmath>
#include <vector>

namespace {

TEST(GhostViews, RgbeRowsBecomeBgrViewsAndBlackPixelsFollowEachFunctionsRule) {
    float table[256];
    exp_lut(table, 0);
    // Two pixels: (R 100, G 50, B 10, E 130) and a black one; planar rows.
    const uint8_t rgbe[] = {100, 0, 50, 0, 10, 0, 130, 0};
    auto expect = [&](float s, double g, int m) {
        const double v = 256.0 * std::pow(static_cast<double>(table[130] * s * m), g);
        return static_cast<int>(std::min(v, 255.0));
    };
    std::vector<uint8_t> view(2 * 3 + 2, 7);
    ASSERT_EQ(applyGammaToHDR(2, 1, table, 2, rgbe, view.data()), 1);
    EXPECT_EQ(view[0], expect(0.60046536f, 0.44999998807907104, 10));
    EXPECT_EQ(view[2], expect(0.60046536f, 0.44999998807907104, 100));
    EXPECT_EQ((std::vector<int>(view.begin() + 3, view.end())), (std::vector<int>{0, 0, 0, 7, 7}));

    std::vector<uint8_t> rep(6, 9);
    ASSERT_EQ(getTonemappedRep(2, 1, table, rgbe, rep.data(), 2.0f), 1);
    // The black second pixel cleared the first and kept its own old bytes.
    EXPECT_EQ(rep, (std::vector<uint8_t>{0, 0, 0, 9, 9, 9}));

    std::vector<uint8_t> orig(6, 9);
    generateOriginalFromHDR(2, 1, 0, 0, table, rgbe, orig.data(), 1.0f, 0, 1.0f);
    EXPECT_EQ(orig[1], expect(1.0f, 1.0, 50));
    EXPECT_EQ(orig[5], 0);
    EXPECT_EQ(applyGammaToHDR(2, 0, table, 0, rgbe, view.data()), 0);
}

TEST(GhostViews, SixteenBitHighBytesAndRedBlueSwap) {
    const uint16_t src16[] = {0x1234, 0xFFFF, 0x00FF, 0, 0xABCD, 0x8000};
    uint8_t out[6];
    EXPECT_EQ(generateOriginalFrom16Bit(1, 2, 3, 3, 3, src16, out), 2);
    EXPECT_EQ(std::vector<int>(out, out + 6), (std::vector<int>{0x12, 0xFF, 0, 0, 0xAB, 0x80}));

    const uint8_t px[] = {1, 2, 3, 4, 5, 6};
    uint8_t sw[6] = {};
    EXPECT_EQ(copyAndConvertImageRows(2, 1, 6, 6, 3, 8, 1, px, sw), 1);
    EXPECT_EQ(std::vector<int>(sw, sw + 6), (std::vector<int>{3, 2, 1, 6, 5, 4}));
    EXPECT_EQ(copyAndConvertImageRows(1, 1, 4, 4, 4, 8, 1, px, sw), -1);
    EXPECT_EQ(copyAndConvertImageRows(1, 1, 3, 3, 3, 32, 1, px, sw), -1);
    uint8_t plain[6] = {};
    EXPECT_EQ(copyAndConvertImageRows(2, 1, 6, 4, 3, 8, 0, px, plain), 0);
    EXPECT_EQ(std::vector<int>(plain, plain + 6), (std::vector<int>{1, 2, 3, 4, 0, 0}));
}

TEST(GhostSelection, WellExposedCountsPerImageInsideTheRectangle) {
    // Two 4 x 2 images, 3 bytes a pixel: the first all grey 128, the second all white.
    std::vector<uint8_t> images(2 * 2 * 12, 128);
    std::fill(images.begin() + 24, images.end(), 255);
    int64_t counts[2] = {-1, -1};
    const int low = 256 * 20, high = 256 * 250;
    EXPECT_EQ(getWellExposedCount(12, 2, 2, low, high, counts, images.data(), 1, 0, 3, 2), 2);
    EXPECT_EQ(counts[0], 4);
    EXPECT_EQ(counts[1], 0);
    getWellExposedCount(12, 2, 2, low, high, counts, images.data(), 2, 0, 2, 2);
    EXPECT_EQ(counts[0], 0) << "a region of zero width counts nothing";
    getWellExposedCount(12, 2, 2, low, high, counts, images.data(), 3, 1, 99, 99);
    EXPECT_EQ(counts[0], 1) << "a region past the picture counts what lies inside";
}

TEST(GhostSelection, MasksJoinAndGradientsMarkEdgesAndBorders) {
    uint8_t a[] = {0x0F, 0x80}, b[] = {0xF0, 0x01};
    EXPECT_EQ(mergeBlocksWithOr(2, a, b), 2);
    EXPECT_EQ(b[0], 0xFF);
    EXPECT_EQ(b[1], 0x81);

    // A flat 10 x 4 image marks only the border. Rows are not padded to bytes, and the
    // first and last rows are set by whole bytes from the byte they start in: bits 0-7 and
    // 24-31, which reaches back into row 2 and leaves row 0's ninth pixel clear.
    const int w = 10, h = 4;
    std::vector<uint8_t> flat(w * h, 50), mask((w * h + 7) / 8, 0);
    thresholded_gradient_mask(3, w, h, flat.data(), mask.data());
    auto bit = [&](int x, int y) { return (mask[(y * w + x) / 8] >> (7 - (y * w + x) % 8)) & 1; };
    for (int i = 0; i < w * h; ++i) {
        const int x = i % w;
        const bool set = i < 8 || (i >= 24 && i < 32) || x == 0 || x == w - 1;
        EXPECT_EQ(bit(x, i / w), set) << "pixel " << i;
    }
    // A vertical step is marked beside it.
    std::vector<uint8_t> step(w * h, 0), smask((w * h + 7) / 8, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 5; x < w; ++x)
            step[y * w + x] = 200;
    thresholded_gradient_mask(40, w, h, step.data(), smask.data());
    mask = smask;
    EXPECT_EQ(bit(5, 2), 1);
    EXPECT_EQ(bit(2, 2), 0);
}

TEST(GhostSelection, SmoothingKeepsEdgesStrongerThanItsRange) {
    const int w = 60, h = 50;
    std::vector<uint8_t> rgb(w * h * 3), out(w * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                rgb[(y * w + x) * 3 + c] = x < 30 ? 40 : static_cast<uint8_t>(180 + (x + y) % 3);
    EXPECT_EQ(smooth_image(40, 50, 3, 120, rgb.data(), out.data()), -5);
    ASSERT_EQ(smooth_image(w, h, 3, w * 3, rgb.data(), out.data()), h);
    EXPECT_EQ(out[25 * w + 29], 40) << "dark side untouched by the bright one";
    EXPECT_NEAR(out[25 * w + 30], 181, 1) << "bright side is its own mean";
}

TEST(GhostSelection, CropsMoveIntoTheStackAtTheirDepth) {
    // 3 x 2 source of 3 samples, 16 bits; crop 2 x 2 from column 1 into 8-bit slot 1.
    std::vector<uint16_t> src(3 * 2 * 3);
    for (size_t i = 0; i < src.size(); ++i)
        src[i] = static_cast<uint16_t>(i << 8);
    std::vector<uint8_t> dst(2 * 2 * 3 * 2, 0);
    const int32_t bits[] = {16, 8}, steps[] = {3, 3};
    EXPECT_EQ(cropAndMoveImage(src.data(), dst.data(), 2, 2, 3, 0, 3, 1.0f, bits, steps), 0);
    EXPECT_EQ(std::vector<int>(dst.begin() + 12, dst.end()),
              (std::vector<int>{3, 4, 5, 6, 7, 8, 12, 13, 14, 15, 16, 17}));
    // A one-sample destination keeps sample 0 only.
    std::vector<uint8_t> grey(4, 0);
    const int32_t gbits[] = {16, 8}, gsteps[] = {3, 1};
    cropAndMoveImage(src.data(), grey.data(), 2, 2, 3, 0, 0, 0.0f, gbits, gsteps);
    EXPECT_EQ(std::vector<int>(grey.begin(), grey.end()), (std::vector<int>{0, 3, 9, 12}));
}

} // namespace
