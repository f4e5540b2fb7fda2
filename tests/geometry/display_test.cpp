// The HDR viewer: worked values on small planar RGBE images, the square kept inside the image
// at every edge and corner without writing past the caller's buffer, and the pixel readout.
#include <gtest/gtest.h>

#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

// A w x h planar RGBE image of one colour.
std::vector<uint8_t> flat(int w, int h, uint8_t r, uint8_t g, uint8_t b, uint8_t e) {
    std::vector<uint8_t> img(4 * w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t *row = img.data() + 4 * w * y;
            row[x] = r, row[w + x] = g, row[2 * w + x] = b, row[3 * w + x] = e;
        }
    return img;
}

TEST(HdrViewer, FlatRegionGainComesFromItsMeanAlone) {
    // Mantissas 128 at exponent 129 decode to 1.0: v = 256, a flat middle (s = 1, c = 0) has
    // its mean drawn to 68, so the gain is (68 / 256)^0.6 and each sample 255 x 0.4514.
    const auto img = flat(16, 16, 128, 128, 128, 129);
    float table[256];
    exp_lut_old(table);
    std::vector<uint8_t> view(8 * 8 * 3, 0);
    EXPECT_EQ(hdr_display(16, 16, 32, 8, 8, 8, 8, table, img.data(), view.data()), 6);
    for (uint8_t v : view)
        ASSERT_EQ(v, 115);
    // The probe, on a 0..255 scale for a value of 1, lands in the first four table entries.
    EXPECT_FLOAT_EQ(table[0], 0.99f * 255);
    EXPECT_FLOAT_EQ(table[1], 255);
    EXPECT_FLOAT_EQ(table[3], 255);

    // Another depth is refused before anything is written.
    std::vector<uint8_t> untouched(view.size(), 9);
    EXPECT_EQ(hdr_display(16, 16, 16, 8, 8, 8, 8, table, img.data(), untouched.data()), -1);
    EXPECT_EQ(untouched, std::vector<uint8_t>(view.size(), 9));
}

TEST(HdrViewer, SquareStaysInsideAtEveryEdgeAndCornerAndInsideItsBuffer) {
    const int w = 20, h = 12, guard = 32;
    auto img = flat(w, h, 90, 160, 40, 130);
    img[3 * w] = 0; // one black pixel in the top-left corner
    float table[256];
    exp_lut_old(table);
    struct Case {
        int x, y, vw, vh, first_row;
    };
    // The view moves inward at the edges; one larger than the image starts at 0.
    const Case cases[] = {{0, 0, 8, 8, 2},    {19, 0, 8, 8, 2},  {0, 11, 8, 8, 6},
                          {19, 11, 8, 8, 6},  {10, 6, 8, 8, 4},  {10, 0, 6, 5, 1},
                          {-50, 70, 7, 3, 9}, {5, 5, 30, 30, 7}, {3, 3, 1, 1, 3}};
    for (const Case &c : cases) {
        std::vector<uint8_t> view(c.vw * c.vh * 3 + guard, 0xA5);
        EXPECT_EQ(hdr_display(w, h, 32, c.x, c.y, c.vw, c.vh, table, img.data(), view.data()),
                  c.first_row)
            << c.x << "," << c.y;
        for (int g = 0; g < guard; ++g)
            ASSERT_EQ(view[c.vw * c.vh * 3 + g], 0xA5) << "past the view at " << c.x << "," << c.y;
    }
    // At the top-left corner the view's first pixel is the black one, written B, G, R.
    std::vector<uint8_t> view(8 * 8 * 3);
    hdr_display(w, h, 32, 0, 0, 8, 8, table, img.data(), view.data());
    EXPECT_EQ(view[0] + view[1] + view[2], 0);
    EXPECT_GT(view[5], view[3]); // second pixel: red above blue, in the third byte
}

TEST(HdrViewer, CropBrighteningOrdersChannelsAsAsked) {
    const auto img = flat(10, 10, 200, 100, 50, 128);
    float table[256];
    exp_lut_old(table);
    std::vector<uint8_t> rgb(4 * 3 * 3), bgr(4 * 3 * 3);
    EXPECT_EQ(adjustBrightnessForCrop(2, 3, 4, 3, 10, 10, 0, table, img.data(), rgb.data()), 33);
    adjustBrightnessForCrop(2, 3, 4, 3, 10, 10, 1, table, img.data(), bgr.data());
    EXPECT_GT(rgb[0], rgb[2]);
    for (int p = 0; p < 12; ++p) {
        EXPECT_EQ(rgb[3 * p], bgr[3 * p + 2]);
        EXPECT_EQ(rgb[3 * p + 1], bgr[3 * p + 1]);
    }
    EXPECT_EQ(adjustBrightnessForCrop(2, 3, 4, 0, 10, 10, 0, table, img.data(), rgb.data()), 0);
}

TEST(HdrViewer, PixelReadoutGivesLuminanceAndLogAxisPlaces) {
    // Mantissas (128, 64, 0) at exponent 129: f = 2, so R = 256, G = 128, B = 0 and the
    // luminance (54 x 256 + 183 x 128) / 256 = 145.5.
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
