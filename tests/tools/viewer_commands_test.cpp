// lvhdr mirrorball, probe and view as a user meets them.
#ifdef LV_HAVE_LVHDR
#include "hdr_pipeline.h"
#include "image_io.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

using namespace lvhdr;
using namespace tooltest;

TEST(ViewerCommands, MirrorballProbeAndViewWriteWhatTheyPromise) {
    // A 40 x 30 HDR image, 0.5 on the left half and two stops brighter on the right.
    HdrImage img;
    img.width = 40, img.height = 30;
    img.rgbe.assign(4 * 40 * 30, 128);
    for (int y = 0; y < 30; ++y)
        for (int x = 0; x < 40; ++x)
            img.rgbe[4 * 40 * y + 120 + x] = x < 20 ? 128 : 130;
    const std::string dir = scratch_dir(), hdr = "'" + dir + "/ball.hdr'";
    std::string err;
    ASSERT_TRUE(write_hdr(dir + "/ball.hdr", img, err)) << err;
    // A panorama twice as wide, and back from a picture to HDR.
    RunResult r = run_lvhdr("mirrorball -o '" + dir + "/p.png' " + hdr);
    EXPECT_NE(r.out.find("(80x30)"), std::string::npos) << r.err;
    r = run_lvhdr("mirrorball --filter nearest -o '" + dir + "/q.hdr' '" + dir + "/p.png'");
    EXPECT_NE(r.out.find("(160x30)"), std::string::npos) << r.err;

    r = run_lvhdr("probe " + hdr + " 30 4");
    EXPECT_NE(r.out.find("red 2  green 2  blue 2"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("2.00 stops above the darkest"), std::string::npos) << r.out;
    EXPECT_EQ(run_lvhdr("probe " + hdr + " 40 4").exit_code, 1);

    ASSERT_EQ(run_lvhdr("view --at 39,29 --size 16 -o '" + dir + "/v.png' " + hdr).exit_code, 0);
    Image picture;
    ASSERT_TRUE(read_image(dir + "/v.png", picture, err)) << err;
    EXPECT_EQ(picture.width * picture.height, 16 * 16);
    EXPECT_EQ(run_lvhdr("view --at 5 -o '" + dir + "/w.png' " + hdr).exit_code, 2);
}

#endif
