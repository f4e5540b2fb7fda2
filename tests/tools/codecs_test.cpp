// lvhdr's picture files: what it writes it reads back, and failed writes leave nothing.
// (Damaged and foreign files are refused through lvhdr merge in cli_test.)
#ifdef LV_HAVE_LVHDR
#include "image_io.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>

using namespace lvhdr;
using tooltest::count_entries;
using tooltest::file_exists;
using tooltest::scratch_dir;

namespace {

Image noise_image(int w, int h, int bits, uint32_t seed) {
    Image im;
    im.width = w;
    im.height = h;
    im.bits = bits;
    im.pixels.resize(im.bytes());
    std::mt19937 rng(seed);
    for (auto &b : im.pixels)
        b = uint8_t(rng());
    return im;
}

} // namespace

TEST(PictureFiles, OrientationTurnsTheStoredPixelsUpright) {
    // Stored 3 wide and 2 high, pixels numbered 0..5 in their red sample.
    Image stored;
    stored.width = 3;
    stored.height = 2;
    stored.pixels.assign(stored.bytes(), 0);
    for (int i = 0; i < 6; ++i)
        stored.pixels[size_t(3 * i)] = uint8_t(i);
    auto upright = [&](int orientation) {
        Image im = stored;
        turn_upright(im, orientation);
        std::vector<int> reds;
        for (size_t i = 0; i < im.pixels.size(); i += 3)
            reds.push_back(im.pixels[i]);
        return std::make_pair(im.width, reds);
    };
    using Want = std::pair<int, std::vector<int>>;
    EXPECT_EQ(upright(1), (Want{3, {0, 1, 2, 3, 4, 5}}));
    EXPECT_EQ(upright(2), (Want{3, {2, 1, 0, 5, 4, 3}}));
    EXPECT_EQ(upright(3), (Want{3, {5, 4, 3, 2, 1, 0}}));
    EXPECT_EQ(upright(4), (Want{3, {3, 4, 5, 0, 1, 2}}));
    EXPECT_EQ(upright(5), (Want{2, {0, 3, 1, 4, 2, 5}}));
    EXPECT_EQ(upright(6), (Want{2, {3, 0, 4, 1, 5, 2}})) << "turned 90 degrees clockwise";
    EXPECT_EQ(upright(7), (Want{2, {5, 2, 4, 1, 3, 0}}));
    EXPECT_EQ(upright(8), (Want{2, {2, 5, 1, 4, 0, 3}})) << "turned 90 degrees anticlockwise";
    EXPECT_EQ(upright(9), upright(1)) << "unknown values leave the image as stored";
}

TEST(PictureFiles, LosslessFormatsRoundTripEveryBitAtBothDepths) {
    const std::string dir = scratch_dir();
    for (const char *ext : {"png", "tif"})
        for (int bits : {8, 16}) {
            // Odd sizes catch row-pitch mistakes; 16-bit noise catches byte-order ones.
            const Image in = noise_image(37, 23, bits, uint32_t(bits));
            const std::string path = dir + "/round." + ext;
            std::string err;
            ASSERT_TRUE(write_image(path, in, err)) << ext << " " << bits << ": " << err;
            Image out;
            ASSERT_TRUE(read_image(path, out, err)) << ext << " " << bits << ": " << err;
            EXPECT_EQ(out.width, 37);
            EXPECT_EQ(out.height, 23);
            EXPECT_EQ(out.bits, bits);
            EXPECT_EQ(out.pixels, in.pixels) << ext << " " << bits;
        }
}

TEST(PictureFiles, JpegRoundTripStaysCloseOnSmoothContent) {
    const std::string dir = scratch_dir();
    Image in;
    in.width = 64;
    in.height = 48;
    in.pixels.resize(in.bytes());
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            for (int c = 0; c < 3; ++c)
                in.pixels[3 * (y * 64 + x) + c] = uint8_t(x * 2 + y + c * 20);
    std::string err;
    ASSERT_TRUE(write_image(dir + "/smooth.jpg", in, err)) << err;
    Image out;
    ASSERT_TRUE(read_image(dir + "/smooth.jpg", out, err)) << err;
    ASSERT_EQ(out.pixels.size(), in.pixels.size());
    int worst = 0;
    for (size_t i = 0; i < in.pixels.size(); ++i)
        worst = std::max(worst, std::abs(int(in.pixels[i]) - int(out.pixels[i])));
    EXPECT_LE(worst, 12);
}

TEST(PictureFiles, FailedWritesLeaveNothingBehind) {
    const std::string dir = scratch_dir();
    const Image im = noise_image(8, 8, 16, 3);
    std::string err;
    EXPECT_FALSE(write_image(dir + "/deep.jpg", im, err)); // JPEG has no 16-bit form
    EXPECT_FALSE(write_image(dir + "/what.bmp", im, err));
    EXPECT_FALSE(write_image(dir + "/no/such/folder/x.png", im, err));
    EXPECT_EQ(count_entries(dir), 0) << "a temporary or partial file was left";
    // An existing file is replaced only by a complete one.
    std::ofstream(dir + "/keep.png") << "old";
    EXPECT_FALSE(write_image(dir + "/keep.png", Image{}, err));
    std::ifstream f(dir + "/keep.png");
    std::string kept((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    EXPECT_EQ(kept, "old");
    EXPECT_EQ(count_entries(dir), 1);
}

#endif
