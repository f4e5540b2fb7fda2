// Resizing, crops, turns and depth changes: worked values, the 168 marker, the RGBE black
// rule, failure codes and round trips of the turns.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

std::vector<uint8_t> ramp(int n, int mul = 7) {
    std::vector<uint8_t> v(n);
    for (int i = 0; i < n; ++i)
        v[i] = static_cast<uint8_t>(i * mul);
    return v;
}

TEST(Downsample, BilinearMixTruncatesRepeatsTheLastColumnAndRowAndMarksEightBitOutput) {
    // Grey 4 x 4 with value 10 x + 40 y, to 3 x 3: u = x * 4/3.
    std::vector<uint8_t> src(4 * 4 * 3), dst(3 * 3 * 3, 0);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            for (int c = 0; c < 3; ++c)
                src[(y * 4 + x) * 3 + c] = static_cast<uint8_t>(10 * x + 40 * y + c);
    ASSERT_EQ(lv_downsample(4, 4, 12, 3, 3, 9, 3, 8, src.data(), dst.data()), 3);
    // (1, 1) reads u = v = 1.3333: 13.333 + 53.333 = 66.67 truncates to 66.
    EXPECT_EQ(dst[(1 * 3 + 1) * 3], 66);
    EXPECT_EQ(dst[(1 * 3 + 2) * 3 + 1], dst[(1 * 3 + 1) * 3 + 1]); // last column copies
    EXPECT_EQ(0, std::memcmp(&dst[2 * 9], &dst[1 * 9], 9));        // last row copies

    // From 16 bits the output is 8-bit when its first byte holds the marker 168.
    std::vector<uint16_t> src16(4 * 4 * 3, 0x1234);
    std::vector<uint8_t> eight(2 * 2 * 3, 0);
    eight[0] = 168;
    lv_downsample(4, 4, 12, 2, 2, 6, 3, 16, src16.data(), eight.data());
    EXPECT_EQ(eight[0], 0x12);
    std::vector<uint16_t> sixteen(2 * 2 * 3, 0);
    lv_downsample(4, 4, 12, 2, 2, 6, 3, 16, src16.data(), sixteen.data());
    EXPECT_EQ(sixteen[0], 0x1234);
}

TEST(Downsample, RgbeExponentZeroCountsAsBlackAndFloatsMixWithoutTruncation) {
    // Two RGBE pixels of a 2 x 2 image (runs R, G, B, E per row): (128,128,128,129) and a
    // pixel with mantissas but exponent 0. The mix at u = 0.5 is half the first pixel.
    const int w = 4;
    std::vector<uint8_t> src(4 * w * 2, 0), dst(4 * 3 * 2, 0);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < w; ++x) {
            const bool lit = x % 2 == 0;
            for (int c = 0; c < 3; ++c)
                src[4 * w * y + c * w + x] = 128;
            src[4 * w * y + 3 * w + x] = lit ? 129 : 0;
        }
    ASSERT_EQ(lv_downsample(w, 2, 3 * w, 3, 2, 9, 3, 32, src.data(), dst.data()), 2);
    float table[256];
    exp_lut(table, -8);
    // (1, 0) reads u = 1.333 between the black pixel 1 and the lit pixel 2: a third lit.
    const float expected = 128.0f * table[129] * (1.0f / 3.0f);
    const float got = dst[1] * table[dst[9 + 1]];
    EXPECT_NEAR(got, expected, expected / 64);

    std::vector<float> f = {0, 10, 20, 30, 0, 10, 20, 30}, out(3 * 2, -1);
    lv_downsample(4, 2, 4, 3, 2, 3, 1, 323, f.data(), out.data());
    EXPECT_FLOAT_EQ(out[1], 13.333333f);
}

TEST(Decimate, PicksNearestPixelsAndMaskBitsAndRefusesOtherDepths) {
    const auto src = ramp(8 * 8 * 3);
    std::vector<uint8_t> dst(4 * 4 * 3, 0);
    ASSERT_EQ(downsample_decimate(8, 8, 4, 4, 3, 3, 8, 0, 0, src.data(), dst.data()), 4);
    EXPECT_EQ(dst[(1 * 4 + 1) * 3 + 2], src[(2 * 8 + 2) * 3 + 2]);
    EXPECT_EQ(downsample_decimate(8, 8, 4, 4, 3, 3, 32, 0, 0, src.data(), dst.data()), -1);

    const uint8_t mask[8] = {0x80, 0, 0x80, 0, 0x80, 0, 0x80, 0}; // column 0 of rows 0, 2, 4, 6
    uint8_t bits[2] = {0, 0};
    downsample_decimate(8, 8, 4, 4, 1, 1, 1, 0, 0, mask, bits);
    EXPECT_EQ(bits[0], 0x88);
    EXPECT_EQ(bits[1], 0x88);
}

TEST(Resize, RetailleSpreadsGreyAndZoomMatrixWorksInBlueGreenRedOrder) {
    const uint8_t grey[4] = {10, 20, 30, 40};
    uint8_t out[2 * 3 + 2] = {};
    retaille(4, 1, 4, 2, 1, 6, 1, grey, out);
    EXPECT_EQ(out[0], 10); // pixel 0 at 0..2, then pixel 1 overwrites from 1
    EXPECT_EQ(out[1], 30);
    EXPECT_EQ(out[3], 30);

    const uint8_t px[3] = {10, 20, 30}; // first, middle, last
    uint8_t z[3] = {};
    const float swap[9] = {0, 0, 1, 0, 1, 0, 1, 0, 0};    // not used: entry 0 is 0
    const float scale[9] = {2, 0, 0, 0, 1, 0, 0, 0, 0.5}; // last x2, middle x1, first x0.5 of c
    zoom_cm(1, 1, 3, 1, 1, 3, 3, 8, px, z, 1.0f, swap);
    EXPECT_EQ(z[0], 10);
    zoom_cm(1, 1, 3, 1, 1, 3, 3, 8, px, z, 1.0f, scale);
    EXPECT_EQ(z[2], 60);
    EXPECT_EQ(z[1], 20);
    EXPECT_EQ(z[0], 5);
}

TEST(Crop, ExtractCropChecksSizeAndOriginAndCopiesEveryDepth) {
    const auto src = ramp(10 * 10 * 3);
    std::vector<uint8_t> dst(5 * 5 * 3);
    struct Case {
        int w, cw, x0, y0, code;
    } cases[] = {{4, 5, 0, 0, -1},
                 {10, 4, 0, 0, -1},
                 {10, 5, 10, 0, -2},
                 {10, 5, -1, 0, -2},
                 {10, 5, 3, 4, 5}};
    for (const Case &c : cases)
        EXPECT_EQ(extract_crop(1, c.w, 10, 3, 0, 8, c.cw, 5, c.x0, c.y0, src.data(), dst.data()),
                  c.code);
    EXPECT_EQ(dst[(2 * 5 + 1) * 3 + 1], src[(6 * 10 + 4) * 3 + 1]);
    std::vector<uint8_t> via_ldr(5 * 5 * 3);
    crop_ldr(8, 30, 5, 5, 15, 3, 3, 4, src.data(), via_ldr.data());
    EXPECT_EQ(via_ldr, dst);

    std::vector<uint8_t> rgbe = ramp(4 * 10 * 10, 3), a(4 * 5 * 5), b(4 * 5 * 5);
    extract_crop(1, 10, 10, 3, 0, 32, 5, 5, 2, 3, rgbe.data(), a.data());
    crop_hdr(10, 5, 5, 2, 3, rgbe.data(), b.data());
    EXPECT_EQ(a, b);
    EXPECT_EQ(a[4 * 5 * 1 + 3 * 5 + 2], rgbe[4 * 10 * 4 + 3 * 10 + 4]);
}

TEST(Preview, BasePreviewMatchesTowerLevelSizesOnly) {
    const auto src = ramp(13 * 9 * 3);
    std::vector<uint8_t> dst(7 * 5 * 3);
    EXPECT_EQ(extract_basepreview(8, 13, 9, 3, 39, 7, 5, 0, src.data(), nullptr, dst.data()), 5);
    EXPECT_EQ(dst[(2 * 7 + 3) * 3], src[(4 * 13 + 6) * 3]); // factor 2
    EXPECT_EQ(extract_basepreview(8, 13, 9, 3, 39, 6, 5, 0, src.data(), nullptr, dst.data()), -5);
    EXPECT_EQ(extract_basepreview(8, 13, 4, 3, 39, 7, 5, 0, src.data(), nullptr, dst.data()), -1);
}

TEST(Turns, QuarterTurnsRoundTripAndTransposeTwiceIsIdentity) {
    const int w = 5, h = 3;
    for (int bits : {8, 16, 32}) {
        const int bytes = bits == 32 ? 4 * w * h : w * h * 3 * bits / 8;
        const auto src = ramp(bytes, 11);
        std::vector<uint8_t> a(bytes), b(bytes);
        lv_rotate(90, w, h, 3, bits, src.data(), a.data());
        lv_rotate(270, h, w, 3, bits, a.data(), b.data());
        EXPECT_EQ(b, src) << bits;
        lv_rotate(-90, w, h, 3, bits, src.data(), a.data());
        lv_rotate(-90, h, w, 3, bits, a.data(), b.data());
        EXPECT_EQ(b, src) << bits;
    }
    // Clockwise: the bottom-left pixel comes first.
    const auto src = ramp(w * h * 3);
    std::vector<uint8_t> out(w * h * 3);
    rot_ldr(90, 8, w, h, 3 * w, 3, 3 * h, src.data(), out.data());
    EXPECT_EQ(out[0], src[(2 * w) * 3]);
    std::vector<uint8_t> rgbe = ramp(4 * w * h, 5), r1(4 * w * h), r2(4 * w * h);
    rot_hdr(90, w, h, rgbe.data(), r1.data());
    lv_rotate(90, w, h, 3, 32, rgbe.data(), r2.data());
    EXPECT_EQ(r1, r2);
}

TEST(Depth, HighBytesPackInPlaceAndBandsLandAtTheirOffset) {
    std::vector<uint16_t> v = {0x0102, 0x0304, 0x0506, 0x0708, 0x090a, 0x0b0c};
    from16to8(0, 2, 0, 5, v.data()); // ceil(5 / 2) = 3 samples a row
    const auto *b = reinterpret_cast<const uint8_t *>(v.data());
    EXPECT_EQ(std::vector<uint8_t>(b, b + 6), (std::vector<uint8_t>{1, 3, 5, 7, 9, 11}));

    const uint16_t rows[2][4] = {{0x1100, 0x2200, 0xffff, 0}, {0x3300, 0x4400, 0, 0}};
    uint8_t out[8] = {};
    load16to8(1, 1, 2, 2, 4, &rows[0][0], out);
    EXPECT_EQ(out[4], 0x11);
    EXPECT_EQ(out[7], 0x44);
    uint8_t copy[16] = {};
    loadrows(1, 2, 2, 4, 1, 16, &rows[0][0], copy);
    EXPECT_EQ(0, std::memcmp(copy + 8, rows[0], 4));
    EXPECT_EQ(0, std::memcmp(copy + 12, rows[1], 4));
    uint8_t swap[6] = {1, 2, 3, 4, 5, 6};
    bgr2rgb(2, 1, 6, 3, 8, swap);
    EXPECT_EQ(swap[0], 3);
    EXPECT_EQ(swap[5], 4);
}

} // namespace
