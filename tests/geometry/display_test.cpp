// The HDR viewer: worked values on small planar RGBE images, the square kept inside the image
// at every edge and corner without writing past the caller's buffer, and the pixel readout.
#include <gtest/gtest.h>

#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

// A w x h planar RGBE image of one colour.
std::vector<uint8_t> flat(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t e) {
    std::vector<uint8_t> img(4 * w * h);
    for (int i = 0; i < w * h; ++i) {
        uint8_t *row = img.data() + 4 * w * (i / w);
        const int x = i % w;
        row[x] = r, row[w + x] = g, row[2 * w + x] = b, row[3 * w + x] = e;
    }
    return img;
}

TEST(HdrViewer, FlatRegionGainComesFromItsMeanAlone) {
    // 128 at exponent 129 is 1.0: v = 256, a flat middle (s = 1, c = 0) has its mean drawn to
    // 68, so each sample is 255 x (68 / 256)^0.6 = 115.1; the probe is 255 for 1.
    const auto img = flat(16, 16, 128, 128, 128, 129);
    float table[256];
    exp_lut_old(table);
    std::vector<uint8_t> view(8 * 8 * 3, 0), untouched(8 * 8 * 3, 9);
    EXPECT_EQ(hdr_display(16, 16, 32, 8, 8, 8, 8, table, img.data(), view.data()), 6);
    EXPECT_EQ(view, std::vector<uint8_t>(view.size(), 115));
    EXPECT_FLOAT_EQ(table[0], 0.99f * 255);
    EXPECT_FLOAT_EQ(table[1], 255);
    EXPECT_EQ(hdr_display(16, 16, 16, 8, 8, 8, 8, table, img.data(), untouched.data()), -1);
    EXPECT_EQ(untouched, std::vector<uint8_t>(view.size(), 9));
    // The crop form puts red first, or last with swapRedBlue.
    const auto warm = flat(10, 10, 200, 100, 50, 128);
    uint8_t rgb[3 * 12], bgr[3 * 12];
    EXPECT_EQ(adjustBrightnessForCrop(2, 3, 4, 3, 10, 10, 0, table, warm.data(), rgb), 33);
    adjustBrightnessForCrop(2, 3, 4, 3, 10, 10, 1, table, warm.data(), bgr);
    EXPECT_TRUE(rgb[0] > rgb[2] && rgb[0] == bgr[2] && rgb[2] == bgr[0]);
}

TEST(HdrViewer, SquareStaysInsideAtEveryEdgeAndCornerAndInsideItsBuffer) {
    const int w = 20, h = 12, guard = 32;
    const auto img = flat(w, h, 90, 160, 40, 130);
    float table[256];
    exp_lut_old(table);
    // x, y, view size, first row of the middle: the view moves inward at the edges, and one
    // larger than the image starts at 0.
    const int cases[][5] = {{0, 0, 8, 8, 2},    {19, 0, 8, 8, 2},  {0, 11, 8, 8, 6},
                            {19, 11, 8, 8, 6},  {10, 6, 8, 8, 4},  {10, 0, 6, 5, 1},
                            {-50, 70, 7, 3, 9}, {5, 5, 30, 30, 7}, {3, 3, 1, 1, 3}};
    for (const auto &c : cases) {
        std::vector<uint8_t> view(c[2] * c[3] * 3 + guard, 0xA5);
        EXPECT_EQ(hdr_display(w, h, 32, c[0], c[1], c[2], c[3], table, img.data(), view.data()),
                  c[4]);
        EXPECT_EQ(std::vector<uint8_t>(view.end() - guard, view.end()),
                  std::vector<uint8_t>(guard, 0xA5))
            << "past the view at " << c[0] << "," << c[1];
        EXPECT_LT(view[0], view[2]); // B, G, R: this image's blue is below its red
    }
}

TEST(HdrViewer, PixelReadoutGivesLuminanceAndLogAxisPlaces) {
    // (128, 64, 0) at exponent 129: f = 2, R = 256, G = 128, B = 0, L = 145.5.
    const auto img = flat(3, 2, 128, 64, 0, 129);
    float lum = 0, nl = -1, nr = -1, ng = -1, nb = -1;
    GetHdrPixelsValuesFor(2, 1, 3, 2, &lum, &nl, &nr, &ng, &nb, img.data(), 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(lum, 145.5f);
    EXPECT_EQ(nl + nr + ng + nb, -4); // no axis: the places are left alone
    GetHdrPixelsValuesFor(2, 1, 3, 2, &lum, &nl, &nr, &ng, &nb, img.data(), 0.0f, 10.0f);
    EXPECT_NEAR(nl, 0.71849f, 1e-5);
    EXPECT_FLOAT_EQ(nr, 0.8f);
    EXPECT_FLOAT_EQ(ng, 0.7f);
    EXPECT_EQ(nb, 0.0f); // black clamps to the axis start
}

} // namespace
