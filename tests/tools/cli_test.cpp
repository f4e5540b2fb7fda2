// lvhdr as a user meets it: wrong command lines, bad input files, and the road from a
// bracket of files to an .hdr and a finished picture.
#ifdef LV_HAVE_LVHDR
#include "hdr_pipeline.h"
#include "image_io.h"
#include "synth_bracket.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

using namespace lvhdr;
using namespace tooltest;

namespace {

// Writes a small synthetic bracket as PNGs and returns their paths, darkest first.
std::vector<std::string> write_bracket(const std::string &dir, int w, int h) {
    const Scene scene = render_scene(w, h);
    const std::vector<Image> frames = photograph(scene, demo_exposures(), Camera{});
    std::vector<std::string> paths;
    std::string err;
    for (size_t i = 0; i < frames.size(); ++i) {
        paths.push_back(dir + "/frame" + std::to_string(i) + ".png");
        EXPECT_TRUE(write_image(paths.back(), frames[i], err)) << err;
    }
    return paths;
}

std::string join(const std::vector<std::string> &paths) {
    std::string s;
    for (const auto &p : paths)
        s += " '" + p + "'";
    return s;
}

void expect_one_line_failure(const RunResult &r, int code, const std::string &names) {
    EXPECT_EQ(r.exit_code, code) << r.err;
    EXPECT_EQ(line_count(r.err), 1) << r.err;
    EXPECT_NE(r.err.find(names), std::string::npos)
        << "error should name " << names << ": " << r.err;
}

} // namespace

TEST(CommandLine, WrongUsageExitsTwoWithOneLine) {
    const struct {
        const char *args;
        const char *mentions;
    } cases[] = {
        {"frobnicate", "frobnicate"},
        {"merge a.jpg b.jpg", "-o"},
        {"merge -o out.png a.jpg", ".hdr"},
        {"merge -o out.hdr", "no input"},
        {"merge --ev-step two -o out.hdr a.jpg", "--ev-step"},
        {"merge --bogus -o out.hdr a.jpg", "--bogus"},
        {"merge --times 1/250,1/60 -o out.hdr a.jpg", "--times"},
        {"tonemap -o out.png", "no input"},
        {"tonemap --method fancy -o out.png in.hdr", "fancy"},
        {"tonemap --brightness 40 -o out.png in.hdr", "--brightness"},
        {"tonemap --bits 16 -o out.jpg in.hdr", "JPEG"},
        {"tonemap -o out.gif in.hdr", ".png"},
        {"tonemap --method simple --shadow-clip 5 -o out.png in.hdr", "--shadow-clip"},
        {"tonemap --saturation 140 -o out.png in.hdr", "--saturation"},
        {"info", "no file"},
        {"demo --size 10x10", "--size"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args);
        expect_one_line_failure(run_lvhdr(c.args), 2, c.mentions);
    }
    EXPECT_EQ(run_lvhdr("").exit_code, 2);
}

TEST(CommandLine, EveryCommandHasHelpOnStdout) {
    for (const char *cmd :
         {"--help", "merge --help", "tonemap --help", "info --help", "demo --help",
          "mirrorball --help", "probe --help", "view --help"}) {
        const RunResult r = run_lvhdr(cmd);
        EXPECT_EQ(r.exit_code, 0) << cmd;
        EXPECT_NE(r.out.find("usage: lvhdr"), std::string::npos) << cmd;
        EXPECT_TRUE(r.err.empty()) << cmd;
    }
}

TEST(CommandLine, BadBracketFilesFailNamingTheFileAndWriteNothing) {
    const std::string dir = scratch_dir();
    std::vector<std::string> good = write_bracket(dir, 96, 72);
    std::string err;
    Image other;
    ASSERT_TRUE(read_image(good[0], other, err));
    other = shrink(other, 2);
    ASSERT_TRUE(write_image(dir + "/smaller.png", other, err));
    std::ofstream(dir + "/readme.txt") << "not a picture\n";
    std::ofstream(dir + "/empty.png");
    Image third;
    ASSERT_TRUE(read_image(good[2], third, err));
    for (const char *ext : {"png", "jpg", "tif"}) { // the first half of a whole file
        const std::string whole = dir + "/whole." + ext;
        ASSERT_TRUE(write_image(whole, third, err)) << err;
        std::ifstream fw(whole, std::ios::binary);
        std::string b((std::istreambuf_iterator<char>(fw)), std::istreambuf_iterator<char>());
        std::ofstream(dir + "/cut." + ext, std::ios::binary) << b.substr(0, b.size() / 2);
    }
    const int before = count_entries(dir);

    // Every decoder's refusal reaches the user as one line naming the file.
    for (const char *bad :
         {"smaller.png", "cut.png", "cut.jpg", "cut.tif", "empty.png", "readme.txt", "gone.jpg"}) {
        SCOPED_TRACE(bad);
        std::vector<std::string> paths = good;
        paths[3] = dir + "/" + bad;
        expect_one_line_failure(run_lvhdr("merge -o '" + dir + "/out.hdr'" + join(paths)), 1, bad);
        EXPECT_FALSE(file_exists(dir + "/out.hdr"));
        EXPECT_EQ(count_entries(dir), before) << "a partial or temporary file was left";
    }
}

TEST(CommandLine, MergeThenTonemapRoundTrip) {
    const std::string dir = scratch_dir();
    const std::vector<std::string> frames = write_bracket(dir, 240, 180);
    const std::string hdr = dir + "/scene.hdr";
    RunResult r = run_lvhdr("merge --ev-step 2 -o '" + hdr + "'" + join(frames));
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(r.err.empty()) << "no progress bar off a terminal: " << r.err;

    HdrImage merged;
    std::string err;
    ASSERT_TRUE(read_hdr(hdr, merged, err)) << err;
    EXPECT_EQ(merged.width, 240);
    EXPECT_EQ(merged.height, 180);
    float stats[6];
    ASSERT_TRUE(luminance_stats(merged, stats, err));
    EXPECT_GT((stats[1] - stats[0]) / std::log(2.0), 12.0) << "the merge kept the range";

    r = run_lvhdr("info '" + hdr + "'");
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_NE(r.out.find("dynamic range"), std::string::npos);

    for (const char *out : {"scene.png", "scene.jpg", "scene16.tif"}) {
        SCOPED_TRACE(out);
        const bool deep = std::string(out) == "scene16.tif";
        r = run_lvhdr(std::string("tonemap ") + (deep ? "--bits 16 " : "") + "--saturation 2 -o '" +
                      dir + "/" + out + "' '" + hdr + "'");
        ASSERT_EQ(r.exit_code, 0) << r.err;
        Image pic;
        ASSERT_TRUE(read_image(dir + "/" + out, pic, err)) << err;
        EXPECT_EQ(pic.width, 240);
        EXPECT_EQ(pic.height, 180);
        EXPECT_EQ(pic.bits, deep ? 16 : 8);
        // A tone-mapped street scene spreads over the output range: dark doorway, bright sky.
        const int shift = deep ? 8 : 0;
        auto sample = [&](size_t i) {
            return deep ? reinterpret_cast<const uint16_t *>(pic.pixels.data())[i] >> shift
                        : pic.pixels[i];
        };
        int lo = 255, hi = 0;
        for (size_t i = 0; i < pic.pixels.size() / (deep ? 2 : 1); ++i) {
            lo = std::min(lo, int(sample(i)));
            hi = std::max(hi, int(sample(i)));
        }
        EXPECT_LT(lo, 40);
        EXPECT_GT(hi, 215);
    }
}

TEST(CommandLine, MergesTheNightBracketWithExposuresFromExif) {
    const std::string data = std::string(LV_DATA_DIR) + "/night/small";
    if (!file_exists(data + "/IMG_3869.jpg")) GTEST_SKIP() << "sample data absent: " << data;
    const std::string dir = scratch_dir();
    std::vector<std::string> frames;
    for (const char *n : {"3869", "3871", "3873", "3875", "3877"})
        frames.push_back(data + "/IMG_" + n + ".jpg");
    const RunResult r = run_lvhdr("merge -o '" + dir + "/night.hdr'" + join(frames));
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_NE(r.out.find("exposures from EXIF"), std::string::npos) << r.out;
    // 1/250 s to 1 s at one aperture and ISO: the brightest frame is log2(250) stops up.
    EXPECT_NE(r.out.find("+7.97 EV"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("1/250 s f/1.8 ISO 1000"), std::string::npos) << r.out;
    HdrImage hdr;
    std::string err;
    ASSERT_TRUE(read_hdr(dir + "/night.hdr", hdr, err)) << err;
    EXPECT_EQ(hdr.meta.iso, 1000) << "settings shared by the bracket are kept";
    EXPECT_EQ(hdr.width, 1008) << "frames stored sideways are merged upright";
    EXPECT_EQ(hdr.height, 756);
    EXPECT_EQ(hdr.meta.shutterNum, 0) << "the shutter differs across frames and is dropped";
}

#endif
