// Radiance files: scanline coding, round trips through both writers and the readers, the
// header dialect, and the codes of damaged files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "fileio/rgbe_internal.h"
#include "fileio/rgbe_pixel.h"
#include "lumivantor/lumivantor.h"

namespace {

using Bytes = std::vector<uint8_t>;
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

} // namespace

TEST(RgbeEncoder, RunsStartAtFiveEqualBytesAndNeverExceed127) {
    EXPECT_EQ(encode(Bytes(127, 7)), (Bytes{255, 7}));
    EXPECT_EQ(encode(Bytes(128, 7)), (Bytes{255, 7, 1, 7}));
    EXPECT_EQ(encode(Bytes(4, 9)), (Bytes{4, 9, 9, 9, 9}));
    EXPECT_EQ(encode(Bytes(5, 9)), (Bytes{133, 9}));
    EXPECT_EQ(encode(Bytes{1, 2, 3, 3, 3, 3, 3, 3, 4}), (Bytes{2, 1, 2, 134, 3, 1, 4}));
    Bytes ramp(300); // no run ever comes: literals of 127, 127, 46
    for (size_t i = 0; i < ramp.size(); ++i)
        ramp[i] = static_cast<uint8_t>(i);
    const Bytes code = encode(ramp);
    ASSERT_EQ(code.size(), 303u);
    EXPECT_EQ(code[0] + code[128] + code[256], 300);
}

// The coder's rules written out step by step, one byte at a time: the reference that the
// library's faster literal scan must match code for code.
Bytes encode_stepwise(const Bytes &p) {
    const int width = static_cast<int>(p.size());
    Bytes out;
    auto literal = [&](int c, int n) {
        out.push_back(static_cast<uint8_t>(n));
        out.insert(out.end(), p.begin() + c, p.begin() + c + n);
    };
    int c = 0, n = 0;
    while (c < width) {
        int s = c + n;
        while (s + 1 < width && p[s] != p[s + 1]) {
            const bool stop = n >= 126 || c + n + 2 >= width;
            s = c + ++n;
            if (stop) break;
        }
        if (s + 1 >= width) {
            ++n;
        } else {
            int r = 1;
            while (s + r < width && r < 127 && p[s + r - 1] == p[s + r])
                ++r;
            if (r >= 5) {
                if (n >= 1) literal(c, n);
                out.insert(out.end(), {static_cast<uint8_t>(128 + r), p[s]});
                c = s + r, n = 0;
                continue;
            }
            if (r >= 2) n = std::min(n + r, 127);
        }
        if (n < 127 && c + n < width) continue;
        literal(c, n);
        c += n, n = 0;
    }
    return out;
}

TEST(RgbeEncoder, MatchesTheStepwiseRulesOnRandomPlanes) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 400; ++trial) {
        Bytes plane(1 + rng() % 700);
        const unsigned runs = rng() % 6; // from pure noise to long runs
        for (size_t i = 0; i < plane.size(); ++i)
            plane[i] = i > 0 && rng() % 6 < runs ? plane[i - 1] : static_cast<uint8_t>(rng() % 5);
        ASSERT_EQ(encode(plane), encode_stepwise(plane)) << trial;
    }
}

TEST(RgbeFile, BothWritersRoundTripAtEveryWidthClass) {
    // Widths 1 to 9 are run-length coded too: the pixels start with 2, 2.
    for (int width = 1; width <= 9; ++width) {
        const Bytes px = test_image(width, 3, width);
        const std::string path = temp_path("narrow");
        ASSERT_EQ(lv_io_rgbe_write(path.c_str(), width, 3, nullptr, 0, nullptr, px.data()), 3);
        const std::string file = read_file(path);
        EXPECT_EQ(file.substr(file.find("+X ") + 5, 2), "\2\2") << width;
        EXPECT_EQ(read_back(path, width, 3), px) << width;
    }
    // From 32768 on rows are flat quads R, G, B, E.
    const int wide = 32768;
    const Bytes px = test_image(wide, 2, 5);
    const std::string path = temp_path("flat");
    ASSERT_EQ(lv_io_rgbe_write(path.c_str(), wide, 2, nullptr, 0, nullptr, px.data()), 2);
    const std::string file = read_file(path);
    EXPECT_EQ(static_cast<uint8_t>(file[file.size() - 8 * wide + 3]), px[3 * wide]);
    EXPECT_EQ(read_back(path, wide, 2), px);
    // Strips append to one file with its own header; an empty last strip writes nothing.
    const int w = 13, h = 10;
    const Bytes img = test_image(w, h, 9);
    for (int s = 0; s < 4; ++s)
        EXPECT_EQ(
            lv_write_strip_rgbe(path.c_str(), s, 4, w, h, 0, img.data() + 16 * w * std::min(s, 2)),
            s < 2    ? 4
            : s == 2 ? 2
                     : 0);
    EXPECT_EQ(read_file(path).rfind("#?RADIANCE\n# Generated by Lumivantor Pro v4.0\n"
                                    "FORMAT=32-bit_rle_rgbe\n\n-Y 10 +X 13\n",
                                    0),
              0u);
    EXPECT_EQ(read_back(path, w, h), img);
}

TEST(RgbeFile, HeaderCarriesMetadataThatReadsBack) {
    MetadataBuf meta{};
    meta.shutterNum = 2, meta.shutterDen = 1, meta.apertureNum = 18, meta.apertureDen = 10;
    meta.iso = 1000, meta.focalNum = 425, meta.focalDen = 100, meta.focal35mm = 26;
    meta.focalPlaneXResNum = 3, meta.focalPlaneXResDen = 2, meta.focalPlaneResUnit = 2;
    strcpy(meta.camera, "Camera One");
    strcpy(meta.captureDate, "2024:01:02 03:04:05");
    const Bytes px = test_image(3, 2, 1);
    const std::string path = temp_path("meta");
    ASSERT_EQ(lv_io_rgbe_write(path.c_str(), 3, 2, &meta, 77, "sRGB IEC61966-2.1", px.data()), 2);
    const std::string file = read_file(path);
    EXPECT_EQ(file.substr(0, file.find("\n-Y") + 1),
              "#?RADIANCE\nCAMERA=Camera One\nCAPDATE=2024:01:02 03:04:05\n"
              "ICC_PROFILE=sRGB IEC61966-2.1\nSHUTTER=2.000000\nAPERTURE=1.80\nISO=1000\n"
              "FOCAL_LENGTH=4.25\n35MM_EQUIV=26\nFOCAL_PLANE_XRESOLUTION=1.50\n"
              "FOCAL_PLANE_RESOLUTIONUNIT=2\nGenerated with Lumivantor Pro 4.1 for Mac OS X\n"
              "FORMAT=32-bit_rle_rgbe\n\n");
    MetadataBuf got{};
    EXPECT_EQ(extract_rgbe_exif(path.c_str(), &got), 14);
    EXPECT_STREQ(got.camera, "Camera One");
    EXPECT_STREQ(got.captureDate, "2024:01:02 03:04:05");
    EXPECT_EQ(got.colorProfile, 0);
    EXPECT_EQ(got.shutterNum * 100 + got.shutterDen, 200 * 100 + 100);
    EXPECT_EQ(got.apertureNum, 179); // 1.8 as a float is just below, and 100 v truncates
    EXPECT_EQ(got.iso, 1000);
    EXPECT_EQ(got.focal35mm + got.focalPlaneResUnit, 0); // written, never read back
    float primaries[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    ImageFileInfo info{};
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), 14);
    EXPECT_EQ(info.width * 1000 + info.height, 3002);
    EXPECT_EQ(info.slot2, static_cast<int32_t>(file.size()));
    EXPECT_EQ(primaries[0] + primaries[7], 0.0f); // no PRIMARIES= line, slot empty on entry
}

TEST(RgbeFile, OddHeaderValuesAreHandledAsWritten) {
    MetadataBuf meta{};
    memcpy(meta.captureDate, "2024:01:02 03:04\n", 18); // brings its own line end
    const std::string path = temp_path("odd");
    ASSERT_EQ(lv_io_rgbe_write(path.c_str(), 1, 1, &meta, 0, "Wide Gamut", Bytes(4).data()), 1);
    EXPECT_NE(read_file(path).find("CAPDATE=2024:01:02 03:04\nICC_PROFILE=Wide Gamut\nGen"),
              std::string::npos);
    MetadataBuf got{};
    EXPECT_GT(extract_rgbe_exif(path.c_str(), &got), 0);
    EXPECT_EQ(got.colorProfile, -1); // a name other than the three known ones

    write_file(path, "#?RADIANCE\nCAMERA=Long camera name\nCAMERA=Short\nSHUTTER=0.000000\n"
                     "ICC_PROFILE=ProPhoto RGB\nAPERTURE=0.25\n"
                     "PRIMARIES= 0.64 0.33 0.3 0.6 0.15 0.06 0.3127 0.329\n\n-Y 1 +X 1\n");
    got = MetadataBuf{};
    got.shutterNum = 5;
    EXPECT_EQ(extract_rgbe_exif(path.c_str(), &got), 8);
    EXPECT_STREQ(got.camera, "Shortcamera name"); // the working copy keeps the longer tail
    EXPECT_EQ(got.colorProfile, 2);
    EXPECT_EQ(got.shutterNum, 5); // a zero shutter changes nothing
    EXPECT_EQ(got.apertureNum * 1000 + got.apertureDen, 100 * 1000 + 400);
    float primaries[8];
    ImageFileInfo info{};
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), 8);
    EXPECT_EQ(info.profileLength, 32);
    EXPECT_FLOAT_EQ(primaries[6], 0.3127f);
    // Arriving with profileLength set and no PRIMARIES= line gives the defaults.
    write_file(path, kPlain + "-Y 1 +X 1\n");
    info.profileLength = 1;
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), 3);
    EXPECT_EQ(primaries[0], 0.648431f);
    // Blank lines of spaces and tabs end a header; a carriage return does not.
    auto ends = [](const char *s) {
        return rgbe_end_of_header(reinterpret_cast<const uint8_t *>(s), 128);
    };
    EXPECT_EQ(ends("\n") + ends("") + ends(" \t \n"), 3);
    EXPECT_EQ(ends(" x\n") + ends("\r\n") + ends("FORMAT=32-bit_rle_rgbe\n"), 0);
}

TEST(RgbeReader, RejectsUnreadableHeadersAndOtherSizes) {
    const std::string path = temp_path("bad");
    Bytes px(64);
    float primaries[8];
    ImageFileInfo info{};
    write_file(path, "#?RADIANCE\r\nFORMAT=32-bit_rle_rgbe\r\n\r\n-Y 1 +X 1\r\n", Bytes(4, 0));
    EXPECT_EQ(lv_io_read_rgbe(1, 1, path.c_str(), px.data()), -1);
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), -2);
    EXPECT_EQ(lv_io_read_preview_rgbe(1, 1, 1, 1, path.c_str(), px.data()), -1);
    write_file(path, kPlain + "+X 2 -Y 1\n", Bytes(8, 0));
    EXPECT_EQ(rgbe_dim(path.c_str(), primaries, &info), -3);
    EXPECT_EQ(lv_io_read_rgbe(2, 1, path.c_str(), px.data()), -200);
    write_file(path, kPlain + "-Y 3 +X 2\n", Bytes(24, 0));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(lv_io_read_rgbe(4, 5, path.c_str(), px.data()), -200);
    EXPECT_EQ(lv_io_read_rgbe(1, 1, (path + ".none").c_str(), px.data()), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "lv_io_read_rgbe - dim found in Radiance file is 2 x 3  while should be 4 x 5\n"
              "lv_io_read_rgbe - could not open input Radiance file\n");
    EXPECT_EQ(lv_io_read_preview_rgbe(4, 5, 1, 1, path.c_str(), px.data()), -200);
}

TEST(RgbeReader, DamagedScanlinesGiveTheirCodes) {
    const std::string path = temp_path("scan");
    Bytes px(8);
    auto read_with = [&](const Bytes &data, int h = 1) {
        write_file(path, kPlain + "-Y " + std::to_string(h) + " +X 2\n", data);
        return lv_io_read_rgbe(2, h, path.c_str(), px.data());
    };
    EXPECT_EQ(read_with({2, 2, 0, 2, 130, 1, 130, 2, 130, 3, 2, 4, 5}), 1);
    EXPECT_EQ(px, (Bytes{1, 1, 2, 2, 3, 3, 4, 5}));
    EXPECT_EQ(read_with({2, 2, 0, 2, 0}), -202);          // zero code
    EXPECT_EQ(read_with({2, 2, 0, 2, 3, 1, 2, 3}), -202); // literal past the plane
    EXPECT_EQ(read_with({2, 2, 0, 2, 131, 1}), -202);     // run past the plane
    EXPECT_EQ(read_with({2, 2, 0, 3, 130, 1}), -4);       // scanline of another width
    EXPECT_EQ(read_with({2, 2, 0, 2, 130, 1, 130}), -1);  // no code where one is due
    EXPECT_EQ(read_with({2, 2, 5, 0, 9, 9, 9, 9}), -4);   // flat pixels that look like a head
    EXPECT_EQ(read_with({2, 2, 0, 2, 130, 1, 130, 2, 130, 3, 130, 4, 2, 2, 0x80, 2}, 2), -201);
    EXPECT_EQ(read_with({2, 2, 0, 2, 130, 1, 130, 2, 130, 3, 2, 4}), 1); // cut inside a literal
    EXPECT_EQ(px[7], 0xFF);
    EXPECT_EQ(read_with({1, 2, 3, 4, 5}), -1); // flat row short of data
}

TEST(RgbePreview, SamplesTheNearestPixelsOnBothCodings) {
    const int width = 40, height = 30, pw = 7, ph = 5;
    Bytes px = test_image(width, height, 3);
    px[0] = 1; // keeps the flat copy's first bytes from looking like a scanline head
    const float xs = static_cast<float>(width) / pw, ys = static_cast<float>(height) / ph;
    Bytes expect(4 * pw * ph), quads(4 * width * height);
    for (int k = 0; k < ph; ++k)
        for (int i = 0; i < pw; ++i)
            for (int p = 0; p < 4; ++p)
                expect[4 * pw * k + p * pw + i] =
                    px[4 * width * static_cast<int>(ys * k) + p * width + static_cast<int>(xs * i)];
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int p = 0; p < 4; ++p)
                quads[4 * (width * y + x) + p] = px[4 * width * y + p * width + x];
    const std::string rle = temp_path("prev_rle"), flat = temp_path("prev_flat");
    ASSERT_EQ(lv_io_rgbe_write(rle.c_str(), width, height, nullptr, 0, nullptr, px.data()), height);
    write_file(flat, kPlain + "-Y 30 +X 40\n", quads);
    for (const std::string &path : {rle, flat}) {
        Bytes got(expect.size());
        EXPECT_EQ(lv_io_read_preview_rgbe(width, height, pw, ph, path.c_str(), got.data()),
                  height + 1);
        EXPECT_EQ(got, expect) << path;
    }
    // A preview wider than the source keeps within its own rows.
    Bytes wide(4 * 64 * 2 + 16, 0xEE);
    EXPECT_GT(lv_io_read_preview_rgbe(width, height, 64, 2, rle.c_str(), wide.data()), 0);
    EXPECT_EQ(Bytes(wide.end() - 16, wide.end()), Bytes(16, 0xEE));
}

TEST(RgbePixel, DecodesWithoutAHalfStep) {
    float table[256], v[3];
    exp_lut_old(table);
    const uint8_t row[8] = {128, 64, 0, 1, 0, 1, 129, 0}; // two pixels, planar
    EXPECT_EQ(rgbe2float(row, table, 2, 4, 6, 0, v), 129);
    EXPECT_EQ(v[0] * 100 + v[1] + v[2], 100.0f);
    EXPECT_EQ(rgbe2float(row, table, 2, 4, 6, 1, v), 0);
    EXPECT_EQ(v[0] + v[1] + v[2], 0.0f);
}

TEST(RgbePixel, ExponentFieldScaleMatchesTheFrexpConstruction) {
    std::mt19937 rng(5);
    for (int i = 0; i < 200000; ++i) {
        float c[3];
        for (float &v : c) { // magnitudes from subnormal to near the float limit
            const uint32_t bits = rng() & 0x7FFFFFFF;
            std::memcpy(&v, &bits, sizeof v);
            if (!std::isfinite(v)) v = 1.0f;
        }
        const float m = lv::max3(c[0], c[1], c[2]);
        int e = 0;
        const double fraction = std::frexp(static_cast<double>(m), &e);
        const float f = static_cast<float>(fraction * 256.0 / static_cast<double>(m));
        uint8_t got[3], want[3];
        for (int k = 0; k < 3; ++k) {
            const float v = c[k] * f;
            want[k] = !(v >= 1.0f) ? 0 : v >= 255.0f ? 255 : static_cast<uint8_t>(v);
        }
        ASSERT_EQ(lv::rgbe_mantissas(c[0], c[1], c[2], m, &got[0], &got[1], &got[2]), e) << m;
        ASSERT_EQ(Bytes(got, got + 3), Bytes(want, want + 3)) << m;
    }
}
