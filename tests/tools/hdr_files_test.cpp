// lvhdr's HDR files (Radiance, float TIFF, OpenEXR, PSD) and its decoders' size limit: what
// it writes it reads back, PSD brackets merge, oversized files fail with one line.
#ifdef LV_HAVE_LVHDR
#include "hdr_files.h"
#include "synth_bracket.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <random>

using namespace lvhdr;
using tooltest::run_lvhdr;
using tooltest::scratch_dir;

namespace {

FloatImage random_floats(int w, int h, uint32_t seed) {
    FloatImage f{w, h, std::vector<float>(size_t(3) * w * h)};
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> stops(-12.0f, 6.0f);
    for (float &v : f.rgb)
        v = std::exp2(stops(rng));
    return f;
}

// An uncompressed 8-bit RGB PSD of one image.
void write_psd(const std::string &path, const Image &im) {
    std::string b = "8BPS";
    auto be = [&](uint64_t v, int n) {
        for (int i = n - 1; i >= 0; --i)
            b += char(v >> (8 * i));
    };
    be(1, 2), be(0, 6), be(3, 2), be(im.height, 4), be(im.width, 4), be(8, 2), be(3, 2);
    be(0, 4), be(0, 4), be(0, 4), be(0, 2);
    for (int c = 0; c < 3; ++c)
        for (size_t i = 0; i < size_t(im.width) * im.height; ++i)
            b += char(im.pixels[3 * i + c]);
    std::ofstream(path, std::ios::binary) << b;
}

} // namespace

TEST(HdrFiles, EveryWrittenFormatReadsBackTheSamePixels) {
    const std::string dir = scratch_dir();
    HdrImage src;
    hdr_from_floats(random_floats(37, 21, 1), src);
    std::string err;
    for (const char *name : {"a.hdr", "a.tif", "a.exr"}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(save_hdr_file(dir + "/" + name, src, err)) << err;
        HdrImage back;
        ASSERT_TRUE(load_hdr_file(dir + "/" + name, back, err)) << err;
        EXPECT_EQ(back.rgbe, src.rgbe);
    }
    // Half floats keep 11 bits, more than RGBE's 8.
    ASSERT_TRUE(save_hdr_file(dir + "/h.exr", src, err, HdrWriteOptions{true})) << err;
    HdrImage back;
    ASSERT_TRUE(load_hdr_file(dir + "/h.exr", back, err)) << err;
    EXPECT_EQ(back.rgbe, src.rgbe);
}

TEST(HdrFiles, DecodersRefuseSizesAboveTheLimitBeforeDecoding) {
    const std::string dir = scratch_dir();
    Image photo;
    photo.width = 20;
    photo.height = 10;
    photo.pixels.assign(photo.bytes(), 90);
    std::string err;
    for (const char *name : {"p.png", "p.jpg", "p.tif"})
        ASSERT_TRUE(write_image(dir + "/" + name, photo, err)) << err;
    write_psd(dir + "/p.psd", photo);
    HdrImage hdr;
    hdr_from_floats(random_floats(20, 10, 3), hdr);
    for (const char *name : {"h.hdr", "h.tif", "h.exr"})
        ASSERT_TRUE(save_hdr_file(dir + "/" + name, hdr, err)) << err;

    set_max_pixels(199);
    for (const char *name : {"p.png", "p.jpg", "p.tif", "p.psd", "h.hdr", "h.tif", "h.exr"}) {
        err.clear();
        Image im;
        HdrImage h;
        const bool hdr_file = name[0] == 'h';
        EXPECT_FALSE(hdr_file ? load_hdr_file(dir + "/" + name, h, err)
                              : read_image(dir + "/" + name, im, err))
            << name;
        EXPECT_NE(err.find("more than the limit of 199"), std::string::npos) << name << ": " << err;
    }
    set_max_pixels(200);
    Image im;
    EXPECT_TRUE(read_image(dir + "/p.psd", im, err)) << err;
    EXPECT_EQ(im.pixels, photo.pixels);
    set_max_pixels(uint64_t(1) << 30);

    // A PNG claiming 100000 x 100000 pixels: one line and exit 1, not an abort.
    const unsigned char png[] = {0x89, 'P', 'N', 'G', 13,  10,   26,   10,   0,    0, 0,    13,
                                 'I',  'H', 'D', 'R', 0,   1,    0x86, 0xA0, 0,    1, 0x86, 0xA0,
                                 8,    2,   0,   0,   0,   0x27, 0x30, 0x9C, 0x9F, 0, 0,    0,
                                 0,    'I', 'D', 'A', 'T', 0x35, 0xAF, 0x06, 0x1E};
    std::ofstream(dir + "/huge.png", std::ios::binary)
        .write(reinterpret_cast<const char *>(png), sizeof png);
    const auto r = run_lvhdr("merge -o '" + dir + "/x.hdr' '" + dir + "/huge.png'");
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(tooltest::line_count(r.err), 1) << r.err;
    EXPECT_NE(r.err.find("100000x100000"), std::string::npos) << r.err;
}

TEST(HdrFiles, PsdBracketMergesToFloatTiffThatConvertsAndTonemaps) {
    const std::string dir = scratch_dir();
    const Scene scene = render_scene(64, 48);
    const std::vector<Image> frames = photograph(scene, demo_exposures(), Camera{});
    std::string list;
    for (size_t i = 0; i < frames.size(); ++i) {
        const std::string path = dir + "/f" + std::to_string(i) + ".psd";
        write_psd(path, frames[i]);
        list += " '" + path + "'";
    }
    auto r = run_lvhdr("merge --ev-step 2 -o '" + dir + "/m.tif'" + list);
    ASSERT_EQ(r.exit_code, 0) << r.err;
    r = run_lvhdr("info '" + dir + "/m.tif' '" + dir + "/f0.psd'");
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_NE(r.out.find("float TIFF, 64x48"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("3 channels, 8-bit"), std::string::npos) << r.out;
    for (const char *step : {"convert '%/m.tif' '%/m.exr'", "convert '%/m.exr' '%/m.hdr'",
                             "tonemap -o '%/t.png' '%/m.tif'"}) {
        std::string cmd = step;
        for (size_t at; (at = cmd.find('%')) != std::string::npos;)
            cmd.replace(at, 1, dir);
        r = run_lvhdr(cmd);
        EXPECT_EQ(r.exit_code, 0) << cmd << ": " << r.err;
    }
    HdrImage a, b;
    std::string err;
    ASSERT_TRUE(load_hdr_file(dir + "/m.tif", a, err)) << err;
    ASSERT_TRUE(load_hdr_file(dir + "/m.hdr", b, err)) << err;
    EXPECT_EQ(a.rgbe, b.rgbe);
    r = run_lvhdr("convert '" + dir + "/f0.psd' '" + dir + "/x.hdr'");
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(tooltest::line_count(r.err), 1) << r.err;
}

#endif
