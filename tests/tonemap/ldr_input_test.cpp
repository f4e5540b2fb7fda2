// Inputs made from ordinary images: RGBE conversion of 8-bit and 16-bit images through the
// linearising table, and the log-luminance plane.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

float rgbe_value(const std::vector<unsigned char> &rgbe, int width, int x, int c) {
    return std::ldexp(static_cast<float>(rgbe[c * width + x]), rgbe[3 * width + x] - 136);
}

TEST(ConvertToRgbe, PixelsKeepTheirLinearValueAndUnreliableOnesTurnGrey) {
    std::vector<float> lut8(256), lut16(65536);
    EXPECT_EQ(camcurve(0, 256, lut8.data()), 256);
    camcurve(0, 65536, lut16.data());
    // The gamma 2.2 table has no true zero and ends at the top level.
    EXPECT_TRUE(lut8[0] == lut8[1] && lut8[255] == 255.0f);
    EXPECT_NEAR(lut8[128], std::pow(128.0 / 255.0, 2.2) * 255.0, 1e-3);
    // Pixels: mid grey, a colour, too dark, clipped.
    const unsigned char px8[] = {128, 128, 128, 200, 90, 30, 3, 2, 1, 255, 255, 254};
    std::vector<unsigned char> rgbe(16);
    EXPECT_EQ(convert_to_rgbe(8, 4, 1, 3, 12, 0, lut8.data(), px8, rgbe.data()), 1);
    // Mantissas keep 8 bits of the largest sample. The dark pixel turns grey at the darkest
    // tracked level (mid grey), the clipped one at the brightest (0.3 R + 0.6 G + 0.1 B).
    const float colour = 0.3f * lut8[200] + 0.6f * lut8[90] + 0.1f * lut8[30];
    for (int c = 0; c < 3; ++c) {
        EXPECT_NEAR(rgbe_value(rgbe, 4, 1, c), lut8[px8[3 + c]], lut8[200] / 128.0f);
        EXPECT_NEAR(rgbe_value(rgbe, 4, 2, c), lut8[128], lut8[128] * 0.01f);
        EXPECT_NEAR(rgbe_value(rgbe, 4, 3, c), colour, colour * 0.01f);
    }

    // 16-bit BGRA: red is the last sample, blue the first; green sample (4 - 1) / 2 = 1.
    const uint16_t px16[] = {0, 0xffff, 0x3000, 0x8000, 0x2000, 0x1000, 0x0000, 0x9000};
    convert_to_rgbe(16, 2, 1, 4, 8, 1, lut16.data(), reinterpret_cast<const unsigned char *>(px16),
                    rgbe.data());
    const float want[3] = {lut16[0x9000], lut16[0x1000], lut16[0x2000]};
    for (int c = 0; c < 3; ++c)
        EXPECT_NEAR(rgbe_value(rgbe, 2, 1, c), want[c], want[0] / 128.0f);
}

TEST(GetLogLum, BlackPixelsTakeTheMinimumAndStatsDescribeTheImage) {
    // 2 x 2 floats: luminances 1, 4, 0 (black), 0.25 for grey pixels.
    const float px[] = {1, 1, 1, 4, 4, 4, 0, 0, 0, 0.25f, 0.25f, 0.25f};
    std::vector<float> plane(4);
    float stats[3] = {0, 0, 0};
    EXPECT_EQ(get_log_lum(0, 2, 2, 3, 6, stats, nullptr,
                          reinterpret_cast<const unsigned char *>(px), plane.data()),
              3);
    EXPECT_NEAR(plane[1], std::log(4.0f), 1e-5);
    EXPECT_FLOAT_EQ(plane[2], plane[3]);
    EXPECT_NEAR(stats[0], 1.0f, 1e-5);  // geometric mean of 1, 4, 0.25
    EXPECT_NEAR(stats[1], 4.0f, 1e-4);  // max over mean
    EXPECT_NEAR(stats[2], 0.25f, 1e-6); // minimum
    // 8-bit through a linear table, with row padding.
    std::vector<float> lut(256);
    camcurve(1, 256, lut.data());
    const unsigned char px8[] = {10, 10, 10, 99, 20, 20, 20, 99};
    EXPECT_EQ(get_log_lum(2, 1, 2, 3, 4, stats, lut.data(), px8, plane.data()), 2);
    EXPECT_NEAR(plane[1], std::log(20.0f), 1e-4);
}

} // namespace
