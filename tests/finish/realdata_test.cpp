// lvhdr finish and single on real photographs, checked as a photographer would: a stop more
// exposure brightens midtones by about a stop without moving hues or tinting greys, and a
// single frame fused with its simulated exposures opens its shadows. The pictures stay
// under the build tree for a person to look at.
#ifdef LV_HAVE_LVHDR
#include <gtest/gtest.h>

#include <cmath>

#include "image_io.h"
#include "lumivantor/lumivantor.h"
#include "tool_test_support.h"

using namespace tooltest;

namespace {

const std::string street = std::string(LV_DATA_DIR) + "/street/DSC_0098.png";
const std::string night = std::string(LV_DATA_DIR) + "/night/small/IMG_3871.jpg";

lvhdr::Image load(const std::string &path) {
    lvhdr::Image im;
    std::string err;
    EXPECT_TRUE(lvhdr::read_image(path, im, err)) << path << ": " << err;
    return im;
}

TEST(FinishTool, AStopOfExposureBrightensMidtonesKeepsHuesAndGreys) {
    if (!file_exists(street)) GTEST_SKIP() << "sample photographs absent: " << street;
    const std::string dir = scratch_dir();
    const RunResult r =
        run_lvhdr("finish '" + street + "' -o " + dir + "/street_plus1.png --exposure 1");
    ASSERT_EQ(r.exit_code, 0) << r.err;
    const lvhdr::Image in = load(street), out = load(dir + "/street_plus1.png");
    ASSERT_EQ(out.pixels.size(), in.pixels.size());
    double ratio = 0, hue_shift = 0, grey_in = 0, grey_saturation = 0;
    int mids = 0, coloured = 0, greys = 0;
    for (size_t i = 0; i < in.pixels.size(); i += 3) {
        const unsigned char *a = &in.pixels[i], *b = &out.pixels[i];
        const float fa[3] = {a[0] / 255.f, a[1] / 255.f, a[2] / 255.f};
        const float fb[3] = {b[0] / 255.f, b[1] / 255.f, b[2] / 255.f};
        float ha[3], hb[3];
        rgb2hsl_norm(fa, ha);
        rgb2hsl_norm(fb, hb);
        if (ha[2] < 0.15f || ha[2] > 0.45f) continue; // midtones that a stop doesn't clip
        ratio += hb[2] / ha[2], ++mids;
        if (ha[1] > 0.25f) {
            const float d = std::fabs(ha[0] - hb[0]);
            hue_shift += std::min(d, 1 - d) * 360, ++coloured;
        }
        // Near-greys stay near-grey: no cast creeps in.
        if (ha[1] < 0.08f) grey_in += ha[1], grey_saturation += hb[1], ++greys;
    }
    ASSERT_GT(mids, 1000);
    // A stop is 2^(1/2.2) = 1.37 on gamma-encoded levels.
    EXPECT_NEAR(ratio / mids, 1.37, 0.1);
    EXPECT_LT(hue_shift / std::max(coloured, 1), 3.0);
    ASSERT_GT(greys, 50);
    EXPECT_LT(grey_saturation, 1.5 * grey_in);
}

TEST(SingleTool, FusesOneStreetAndOneNightFrameBrighterInTheShadows) {
    if (!file_exists(street) || !file_exists(night)) GTEST_SKIP() << "sample photographs absent";
    const std::string dir = scratch_dir();
    const std::string inputs[2] = {street, night};
    for (int k = 0; k < 2; ++k) {
        const std::string out = dir + "/single" + std::to_string(k) + ".png";
        const RunResult r = run_lvhdr("single '" + inputs[k] + "' -o " + out +
                                      " --write-exposures " + dir + "/fake" + std::to_string(k));
        ASSERT_EQ(r.exit_code, 0) << r.err;
        const lvhdr::Image photo = load(inputs[k]), fused = load(out);
        ASSERT_EQ(fused.pixels.size(), photo.pixels.size());
        // The photograph's dark pixels come out brighter on the whole.
        double before = 0, after = 0;
        for (size_t i = 0; i < photo.pixels.size(); i += 3) {
            const int grey = photo.pixels[i] + photo.pixels[i + 1] + photo.pixels[i + 2];
            if (grey >= 3 * 40) continue;
            before += grey;
            after += fused.pixels[i] + fused.pixels[i + 1] + fused.pixels[i + 2];
        }
        EXPECT_GE(after, before) << inputs[k];
    }
}

TEST(FinishTool, WrongSettingsExitTwoAndUnreadableInputLeavesNoFile) {
    const std::string dir = scratch_dir();
    for (const char *args : {"finish --levels 60,20", "finish --levels 5", "finish --gamma 0",
                             "finish --bits 12", "single --use photo", "single --use 4,0"}) {
        const RunResult r = run_lvhdr(std::string(args) + " in.png -o " + dir + "/o.png");
        EXPECT_EQ(r.exit_code, 2) << args << ": " << r.err;
    }
    EXPECT_EQ(run_lvhdr("finish " + dir + "/missing.png -o " + dir + "/o.png").exit_code, 1);
    EXPECT_EQ(count_entries(dir), 0);
}

} // namespace
#endif
