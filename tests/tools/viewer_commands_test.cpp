// lvhdr mirrorball, probe and view as a user meets them: panoramas twice as wide as the ball
// in every format pair, one pixel's readout, and the viewer square written as a picture.
#ifdef LV_HAVE_LVHDR
#include "hdr_pipeline.h"
#include "image_io.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

using namespace lvhdr;
using namespace tooltest;

namespace {

// A 40 x 30 HDR image: dark on the left, two stops brighter on the right.
HdrImage two_halves() {
    HdrImage img;
    img.width = 40;
    img.height = 30;
    img.rgbe.assign(4 * 40 * 30, 0);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x) {
            uint8_t *row = img.rgbe.data() + 4 * 40 * y;
            row[x] = row[40 + x] = row[80 + x] = 128;
            row[120 + x] = x < 20 ? 128 : 130;
        }
    return img;
}

} // namespace

TEST(ViewerCommands, MirrorballProbeAndViewWriteWhatTheyPromise) {
    const std::string dir = scratch_dir();
    std::string err;
    ASSERT_TRUE(write_hdr(dir + "/ball.hdr", two_halves(), err)) << err;
    Image picture;
    picture.width = 24, picture.height = 20;
    picture.pixels.assign(picture.bytes(), 90);
    ASSERT_TRUE(write_image(dir + "/ball.png", picture, err)) << err;

    for (const char *pair :
         {"ball.hdr pano.png", "ball.hdr pano.hdr", "ball.png pano2.png", "ball.png pano2.hdr"}) {
        const std::string in = dir + "/" + std::string(pair).substr(0, 8);
        const std::string out = dir + "/" + std::string(pair).substr(9);
        const RunResult r = run_lvhdr("mirrorball --filter bilinear -o '" + out + "' '" + in + "'");
        ASSERT_EQ(r.exit_code, 0) << pair << r.err;
        const bool ldr_ball = in.find(".png") != std::string::npos;
        EXPECT_NE(r.out.find(ldr_ball ? "(48x20)" : "(80x30)"), std::string::npos) << r.out;
    }

    const RunResult probe = run_lvhdr("probe '" + dir + "/ball.hdr' 30 4");
    ASSERT_EQ(probe.exit_code, 0) << probe.err;
    EXPECT_NE(probe.out.find("red 2  green 2  blue 2"), std::string::npos) << probe.out;
    EXPECT_NE(probe.out.find("2.00 stops above the darkest"), std::string::npos) << probe.out;
    EXPECT_EQ(run_lvhdr("probe '" + dir + "/ball.hdr' 40 4").exit_code, 1);

    const RunResult view =
        run_lvhdr("view --at 39,29 --size 16 -o '" + dir + "/v.png' '" + dir + "/ball.hdr'");
    ASSERT_EQ(view.exit_code, 0) << view.err;
    Image square;
    ASSERT_TRUE(read_image(dir + "/v.png", square, err)) << err;
    EXPECT_EQ(square.width, 16);
    EXPECT_EQ(square.height, 16);
    EXPECT_EQ(run_lvhdr("view --at 5 -o '" + dir + "/w.png' '" + dir + "/ball.hdr'").exit_code, 2);
}

#endif
