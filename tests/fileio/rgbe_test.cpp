// Radiance files: scanline coding, round trips through both writers and the readers, the
// header dialect, and the codes of damaged files.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "fileio/rgbe_internal.h"
#include "fileio/rgbe_pixel.h"
#include "lumivantor/lumivantor.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Ints = std::vector<int32_t>;
const std::string kPlain = "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n";

std::string temp_path(const std::string &name) {
    return ::testing::TempDir() + "lv_" + name + ".hdr";
}

void write_file(const std::string &path, const std::string &text, const Bytes &tail = {}) {
    std::ofstream(path, std::ios::binary) << text << std::string(tail.begin(), tail.end());
}

std::string read_file(const std::string &path) {
    std::stringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

Bytes encode(const Bytes &plane) {
    Bytes out(2 * plane.size() + 2);
    out.resize(lv::rgbe_encode_plane(plane.data(), static_cast<int>(plane.size()), out.data()));
    return out;
}

// A planar image with runs, short repeats and noise in every plane.
Bytes test_image(int width, int height, unsigned seed) {
    std::mt19937 rng(seed);
    Bytes px(4 * static_cast<size_t>(width) * height);
    for (size_t i = 0; i < px.size(); ++i) {
        const unsigned kind = rng() % 4;
        px[i] = kind == 0 ? static_cast<uint8_t>(rng()) : i > 0 && kind < 3 ? px[i - 1] : 128;
    }
    return px;
}

Bytes read_back(const std::string &path, int width, int height) {
    Bytes back(4 * static_cast<size_t>(width) * height, 0xAA);
    EXPECT_EQ(lv_io_read_rgbe(width, height, path.c_str(), back.data()), height);
    return back;
}

// What a preview of pw x ph keeps of a planar image: the pixel at the truncated multiples
// of the steps width / pw and height / ph.
Bytes sample(const Bytes &px, int width, int height, int pw, int ph) {
    const float xs = static_cast<float>(width) / pw, ys = static_cast<float>(height) / ph;
    Bytes out(4 * pw * ph);
    for (int k = 0; k < ph * 4 * pw; ++k) // preview row, plane, column
        out[k] = px[4 * width * static_cast<int>(ys * (k / (4 * pw))) + k / pw % 4 * width +
                    static_cast<int>(xs * (k % pw))];
    return out;
}

} // namespace

TEST(RgbeEncoder, RunsOfFiveTo127EqualBytesAndLiteralsOfUpTo127) {
    auto ramp_then = [](int distinct, int equal) { // distinct bytes 0, 1, ... then 200s
        Bytes p(distinct + equal, 200);
        std::iota(p.begin(), p.begin() + distinct, 0);
        return p;
    };
    // 127 and 128 equal bytes, 4 and 5; runs wherever five equal bytes stand, at either end
    // or inside; short repeats that stay in a literal.
    const std::vector<std::pair<Bytes, Bytes>> cases = {
        {Bytes(127, 7), {255, 7}},
        {Bytes(128, 7), {255, 7, 1, 7}},
        {Bytes(4, 9), {4, 9, 9, 9, 9}},
        {Bytes(5, 9), {133, 9}},
        {{1, 3, 3}, {3, 1, 3, 3}},
        {{3, 3, 3, 3, 1}, {5, 3, 3, 3, 3, 1}},
        {{1, 3, 3, 3, 3, 3}, {1, 1, 133, 3}},
        {{3, 3, 3, 3, 3, 1}, {133, 3, 1, 1}},
        {ramp_then(7, 0), {7, 0, 1, 2, 3, 4, 5, 6}},
        {{1, 1, 2, 2, 2, 2, 2, 3}, {2, 1, 1, 133, 2, 1, 3}},
        {{1, 2, 3, 3, 3, 3, 3, 3, 4}, {2, 1, 2, 134, 3, 1, 4}}};
    for (const auto &[plane, code] : cases)
        EXPECT_EQ(encode(plane), code) << plane.size();
    for (int distinct : {126, 127, 300}) { // literals of at most 127, then the run
        const Bytes code = encode(ramp_then(distinct, distinct == 300 ? 0 : 5));
        ASSERT_EQ(code.size(), distinct + (distinct + 126) / 127 + (distinct == 300 ? 0 : 2));
        EXPECT_EQ(code[0], std::min(distinct, 127));
        if (distinct == 300)
            EXPECT_EQ(code[128] + code[256], 127 + 46);
        else
            EXPECT_EQ(Bytes(code.end() - 2, code.end()), (Bytes{133, 200}));
    }
}

TEST(RgbeFile, BothWritersRoundTripAtEveryWidthClassAndPreviewsSampleThem) {
    const std::string path = temp_path("round");
    auto preview = [&](int width, int height, int pw, int ph) {
        Bytes got(4 * pw * ph + 16, 0xEE);
        EXPECT_EQ(lv_io_read_preview_rgbe(width, height, pw, ph, path.c_str(), got.data()),
                  height + 1);
        EXPECT_EQ(Bytes(got.end() - 16, got.end()), Bytes(16, 0xEE)); // within its own rows
        return Bytes(got.begin(), got.end() - 16);
    };
    // Widths 1 to 9 are run-length coded too: the pixels start with 2, 2.
    for (int width = 1; width <= 9; ++width) {
        const Bytes px = test_image(width, 3, width);
        ASSERT_EQ(lv_io_rgbe_write(path.c_str(), width, 3, nullptr, 0, nullptr, px.data()), 3);
        const std::string file = read_file(path);
        EXPECT_EQ(file.substr(file.find("+X ") + 5, 2), "\2\2") << width;
        EXPECT_EQ(read_back(path, width, 3), px) << width;
    }
    // From 32768 on rows are flat quads R, G, B, E.
    const int wide = 32768;
    const Bytes px = test_image(wide, 2, 5);
    ASSERT_EQ(lv_io_rgbe_write(path.c_str(), wide, 2, nullptr, 0, nullptr, px.data()), 2);
    const std::string file = read_file(path);
    EXPECT_EQ(static_cast<uint8_t>(file[file.size() - 8 * wide + 3]), px[3 * wide]);
    EXPECT_EQ(read_back(path, wide, 2), px);
    EXPECT_EQ(preview(wide, 2, 7, 2), sample(px, wide, 2, 7, 2));
    // Strips append to one file with its own header; an empty last strip writes nothing.
    const int w = 40, h = 30;
    const Bytes img = test_image(w, h, 9);
    const int rows[] = {12, 12, 6, 0};
    for (int s = 0; s < 4; ++s)
        EXPECT_EQ(
            lv_write_strip_rgbe(path.c_str(), s, 12, w, h, 0, img.data() + 48 * w * std::min(s, 2)),
            rows[s]);
    EXPECT_EQ(read_file(path).rfind("#?RADIANCE\n# Generated by Lumivantor Pro v4.0\n"
                                    "FORMAT=32-bit_rle_rgbe\n\n-Y 30 +X 40\n",
                                    0),
              0u);
    EXPECT_EQ(read_back(path, w, h), img);
    EXPECT_EQ(preview(w, h, 7, 5), sample(img, w, h, 7, 5));
    preview(w, h, 64, 2); // wider than the source
}

TEST(RgbeHeader, MetadataLinesWrittenAndReadInTheFilesDialect) {
    MetadataBuf meta{}; // 2 s at f/1.8, ISO 1000, 4.25 mm (26 mm in 35 mm terms)
    meta.shutterNum = 2, meta.shutterDen = 1, meta.apertureNum = 18, meta.apertureDen = 10;
    meta.iso = 1000, meta.focalNum = 425, meta.focalDen = 100, meta.focal35mm = 26;
    meta.focalPlaneXResNum = 3, meta.focalPlaneXResDen = 2, meta.focalPlaneResUnit = 2;
    strcpy(meta.camera, "Camera One");
    strcpy(meta.captureDate, "2024:01:02 03:04:05");
    const std::string path = temp_path("meta");
    ASSERT_EQ(lv_io_rgbe_write(path.c_str(), 3, 2, &meta, 77, "sRGB IEC61966-2.1",
                               test_image(3, 2, 1).data()),
              2);
    const std::string file = read_file(path);
    EXPECT_EQ(file.substr(0, file.find("\n-Y") + 1),
              "#?RADIANCE\nCAMERA=Camera One\nCAPDATE=2024:01:02 03:04:05\n"
              "ICC_PROFILE=sRGB IEC61966-2.1\nSHUTTER=2.000000\nAPERTURE=1.80\nISO=1000\n"
              "FOCAL_LENGTH=4.25\n35MM_EQUIV=26\nFOCAL_PLANE_XRESOLUTION=1.50\n"
              "FOCAL_PLANE_RESOLUTIONUNIT=2\nGenerated with Lumivantor Pro 4.1 for Mac OS X\n"
              "FORMAT=32-bit_rle_rgbe\n\n");
    MetadataBuf got{};
    float primaries[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    ImageFileInfo info{};
    EXPECT_EQ(extract_rgbe_exif(path.c_str(), &got), 14);
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), 14);
    EXPECT_EQ(std::string(got.camera) + "|" + got.captureDate, "Camera One|2024:01:02 03:04:05");
    // f/1.8 reads back as 180/100 though a float holds 1.8 a hair below; the 35 mm focal
    // length and the resolution unit are written, never read back.
    EXPECT_EQ((Ints{got.colorProfile, got.shutterNum, got.shutterDen, got.apertureNum, got.iso,
                    got.focal35mm, got.focalPlaneResUnit}),
              (Ints{0, 200, 100, 180, 1000, 0, 0}));
    EXPECT_EQ((Ints{info.width, info.height, info.slot2}), (Ints{3, 2, int32_t(file.size())}));
    EXPECT_EQ(primaries[0] + primaries[7], 0.0f); // no PRIMARIES= line, slot empty on entry

    meta.shutterNum = 100, meta.shutterDen = 25000; // 1/250 s survives the round trip
    ASSERT_EQ(lv_io_rgbe_write(path.c_str(), 3, 2, &meta, 0, "", test_image(3, 2, 1).data()), 2);
    EXPECT_EQ(extract_rgbe_exif(path.c_str(), &got), 13);
    EXPECT_EQ((Ints{got.shutterNum, got.shutterDen}), (Ints{100, 25000}));

    write_file(path, "#?RADIANCE\nCAMERA=Long camera name\nCAMERA=Short\nSHUTTER=0.000000\n"
                     "ICC_PROFILE=ProPhoto RGB\nAPERTURE=0.25\n"
                     "PRIMARIES= 0.64 0.33 0.3 0.6 0.15 0.06 0.3127 0.329\n\n-Y 1 +X 1\n");
    got = MetadataBuf{};
    got.shutterNum = 5; // a zero shutter changes nothing
    EXPECT_EQ(extract_rgbe_exif(path.c_str(), &got), 8);
    EXPECT_STREQ(got.camera, "Shortcamera name"); // the working copy keeps the longer tail
    EXPECT_EQ((Ints{got.colorProfile, got.shutterNum, got.apertureNum, got.apertureDen}),
              (Ints{2, 5, 100, 400}));
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), 8);
    EXPECT_EQ(info.profileLength, 32);
    EXPECT_FLOAT_EQ(primaries[6], 0.3127f);
    // Blank lines of spaces and tabs end a header; a carriage return does not.
    auto ends = [](const char *s) {
        return rgbe_end_of_header(reinterpret_cast<const uint8_t *>(s), 128);
    };
    EXPECT_EQ(ends("\n") + ends("") + ends(" \t \n"), 3);
    EXPECT_EQ(ends(" x\n") + ends("\r\n") + ends("FORMAT=32-bit_rle_rgbe\n"), 0);
}

TEST(RgbeReader, DamagedFilesAndOtherSizesGiveTheirCodesAndMessages) {
    const std::string path = temp_path("bad");
    Bytes px(64);
    float primaries[8];
    ImageFileInfo info{};
    auto read_with = [&](const std::string &dims, const Bytes &data, int w = 2, int h = 1) {
        write_file(path, dims[0] == '#' ? dims : kPlain + dims, data);
        return lv_io_read_rgbe(w, h, path.c_str(), px.data());
    };
    EXPECT_EQ(
        read_with("#?RADIANCE\r\nFORMAT=32-bit_rle_rgbe\r\n\r\n-Y 1 +X 1\r\n", {0, 0, 0, 0}, 1),
        -1);
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), -2);
    EXPECT_EQ(lv_io_read_preview_rgbe(1, 1, 1, 1, path.c_str(), px.data()), -1);
    EXPECT_EQ(read_with("+X 2 -Y 1\n", Bytes(8, 0)), -200);
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), -3);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(read_with("-Y 3 +X 2\n", Bytes(24, 0), 4, 5), -200);
    EXPECT_EQ(lv_io_read_rgbe(1, 1, (path + ".none").c_str(), px.data()), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "lv_io_read_rgbe - dim found in Radiance file is 2 x 3  while should be 4 x 5\n"
              "lv_io_read_rgbe - could not open input Radiance file\n");
    EXPECT_EQ(lv_io_read_preview_rgbe(4, 5, 1, 1, path.c_str(), px.data()), -200);
    // Scanlines of two pixels.
    const std::string one = "-Y 1 +X 2\n";
    EXPECT_EQ(read_with(one, {2, 2, 0, 2, 130, 1, 130, 2, 130, 3, 2, 4, 5}), 1);
    EXPECT_EQ(Bytes(px.begin(), px.begin() + 8), (Bytes{1, 1, 2, 2, 3, 3, 4, 5}));
    EXPECT_EQ(read_with(one, {2, 2, 0, 2, 0}), -202);          // zero code
    EXPECT_EQ(read_with(one, {2, 2, 0, 2, 3, 1, 2, 3}), -202); // literal past the plane
    EXPECT_EQ(read_with(one, {2, 2, 0, 2, 131, 1}), -202);     // run past the plane
    EXPECT_EQ(read_with(one, {2, 2, 0, 3, 130, 1}), -4);       // scanline of another width
    EXPECT_EQ(read_with(one, {2, 2, 0, 2, 130, 1, 130}), -1);  // no code where one is due
    EXPECT_EQ(read_with(one, {2, 2, 5, 0, 9, 9, 9, 9}), -4);   // flat pixels like a head
    EXPECT_EQ(
        read_with("-Y 2 +X 2\n", {2, 2, 0, 2, 130, 1, 130, 2, 130, 3, 130, 4, 2, 2, 0x80, 2}, 2, 2),
        -201);
    EXPECT_EQ(read_with(one, {2, 2, 0, 2, 130, 1, 130, 2, 130, 3, 2, 4}), 1); // cut in a literal
    EXPECT_EQ(px[7], 0xFF);
    EXPECT_EQ(read_with(one, {1, 2, 3, 4, 5}), -1); // flat row short of data
}

TEST(RgbePixel, DecodesWithoutAHalfStepAndEncodesAsTheFrexpConstruction) {
    float table[256], v[3];
    exp_lut_old(table);
    const uint8_t row[8] = {128, 64, 0, 1, 0, 1, 129, 0}; // two pixels, planar
    EXPECT_EQ(rgbe2float(row, table, 2, 4, 6, 0, v), 129);
    EXPECT_EQ(v[0] * 100 + v[1] + v[2], 100.0f);
    EXPECT_EQ(rgbe2float(row, table, 2, 4, 6, 1, v), 0);
    EXPECT_EQ(v[0] + v[1] + v[2], 0.0f);
    // The fast scale read off the exponent field against frexp, from subnormals to the limit.
    std::mt19937 rng(5);
    for (int i = 0; i < 200000; ++i) {
        float c[3];
        for (float &x : c) {
            x = std::bit_cast<float>(uint32_t(rng() & 0x7FFFFFFF));
            if (!std::isfinite(x)) x = 1.0f;
        }
        const float m = lv::max3(c[0], c[1], c[2]);
        int e = 0;
        const float f = static_cast<float>(std::frexp(static_cast<double>(m), &e) * 256.0 /
                                           static_cast<double>(m));
        uint8_t got[3], want[3];
        for (int k = 0; k < 3; ++k)
            want[k] = !(c[k] * f >= 1.0f) ? 0 : c[k] * f >= 255.0f ? 255 : uint8_t(c[k] * f);
        ASSERT_EQ(lv::rgbe_mantissas(c[0], c[1], c[2], m, &got[0], &got[1], &got[2]), e) << m;
        ASSERT_EQ(Bytes(got, got + 3), Bytes(want, want + 3)) << m;
    }
}
