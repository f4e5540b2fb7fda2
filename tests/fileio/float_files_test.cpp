// Float TIFF, PSD, BMP and ICC files: round trips through the float TIFF writer and reader,
// the kept quirks of each reader, and the codes of files it refuses.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fileio/float_files.h"
#include "lumivantor/lumivantor.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string temp_path(const std::string &name) {
    return ::testing::TempDir() + "lvff_" + name;
}

std::string write_file(const std::string &name, const Bytes &b) {
    const std::string path = temp_path(name);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char *>(b.data()), b.size());
    return path;
}

void le(Bytes &b, uint32_t v, int n) {
    for (int i = 0; i < n; ++i)
        b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}
void be(Bytes &b, uint64_t v, int n) {
    for (int i = n - 1; i >= 0; --i)
        b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

// A little-endian TIFF of one strip at offset 8; entries are {tag, type, count, value}.
Bytes tiff(const Bytes &strip, const std::vector<std::array<uint32_t, 4>> &entries) {
    Bytes b = {'I', 'I', 42, 0};
    le(b, 8 + static_cast<uint32_t>(strip.size()), 4);
    b.insert(b.end(), strip.begin(), strip.end());
    le(b, static_cast<uint32_t>(entries.size()), 2);
    for (const auto &e : entries) {
        le(b, e[0], 2), le(b, e[1], 2), le(b, e[2], 4), le(b, e[3], 4);
    }
    le(b, 0, 4);
    return b;
}

Bytes floats_le(const std::vector<float> &v) {
    Bytes b(4 * v.size());
    std::memcpy(b.data(), v.data(), b.size());
    return b;
}

// An RGB PSD: channels, depth, resources, a layer section of layer_len bytes, compression,
// and data. large widens the layer length to eight bytes.
Bytes psd(int channels, int depth, int w, int h, const Bytes &resources, int compression,
          const Bytes &data, int mode = 3, bool large = false) {
    Bytes b = {'8', 'B', 'P', 'S'};
    be(b, large ? 2 : 1, 2), be(b, 0, 6), be(b, channels, 2), be(b, h, 4), be(b, w, 4);
    be(b, depth, 2), be(b, mode, 2), be(b, 0, 4), be(b, resources.size(), 4);
    b.insert(b.end(), resources.begin(), resources.end());
    be(b, 3, large ? 8 : 4), be(b, 0xABCDEF, 3), be(b, compression, 2);
    b.insert(b.end(), data.begin(), data.end());
    return b;
}

Bytes resource(int id, const Bytes &data) {
    Bytes b = {'8', 'B', 'I', 'M'};
    be(b, id, 2), be(b, 0, 2), be(b, data.size(), 4);
    b.insert(b.end(), data.begin(), data.end());
    if (data.size() & 1) b.push_back(0);
    return b;
}

} // namespace

TEST(FloatDecoding, ExponentBias128HalvesEveryValueAndReadsAllOnesAsANumber) {
    const struct {
        uint32_t bits;
        float want;
    } cases[] = {{0x3F800000u, 0.5f},      {0xC0400000u, -1.5f},
                 {0x00000000u, 0.0f},      {0x80000000u, -std::ldexp(1.0f, -128)},
                 {0x7F800000u, 0x1p127f},  {0x7FFFFFFFu, FLT_MAX},
                 {0x00800000u, 0x1p-127f}, {0x00000001u, std::ldexp(1.0f, -128)}};
    const std::string path = temp_path("floats");
    for (const auto &c : cases) {
        EXPECT_EQ(lv::float_bias128(c.bits), c.want) << std::hex << c.bits;
        Bytes b;
        be(b, c.bits, 4);
        EXPECT_EQ(morder2float(b.data()), c.want);
        le(b, c.bits, 4);
        write_file("floats", b);
        FILE *f = fopen(path.c_str(), "rb");
        EXPECT_EQ(readfloat(lv::kTiffBig, f), c.want);
        EXPECT_EQ(readfloat(lv::kTiffLittle, f), c.want);
        fclose(f);
    }
    // Halves: a subnormal keeps its hidden bit, exponent 31 is an infinity.
    const uint16_t halves[] = {0x0001, 0x7C00, 0x3C00};
    write_file("floats", Bytes(reinterpret_cast<const uint8_t *>(halves),
                               reinterpret_cast<const uint8_t *>(halves) + 6));
    FILE *f = fopen(path.c_str(), "rb");
    EXPECT_EQ(readHalfFloat(f), 0x1p-14f * (1.0f + 0x1p-10f));
    EXPECT_TRUE(std::isinf(readHalfFloat(f)));
    EXPECT_EQ(readHalfFloat(f), 1.0f);
    fclose(f);
}

TEST(FloatTiff, WrittenFileReadsBackOneStopDarker) {
    const int w = 5, h = 3;
    Bytes px(4 * w * h);
    for (size_t i = 0; i < px.size(); ++i) // mantissas 128..255, exponents around 128
        px[i] = static_cast<uint8_t>(i % (4 * w) >= 3u * w ? 120 + i % 17 : 128 + i * 7 % 128);
    px[3 * w + 1] = 0; // one black pixel
    const std::string path = temp_path("rt.tif");
    ASSERT_EQ(fp_save(path.c_str(), w, h, 0, px.data()), h);
    // The tags and floats are checked by independent readers; here the size and the slots.
    const uint32_t d = 12 * w * h;
    EXPECT_EQ(std::filesystem::file_size(path), d + 158);
    ImageFileInfo info{};
    ASSERT_EQ(getTiffInfo(path.c_str(), &info), 2);
    const ImageFileInfo want = {w, h, 32, 3, 0, 8, 0, h, int32_t(d), 1, 3, 1};
    EXPECT_EQ(std::memcmp(&info, &want, sizeof info), 0);
    Bytes back(px.size());
    float mn, mx, mean;
    ASSERT_EQ(fp2rgbe(path.c_str(), &info, &mn, &mx, &mean, back.data()), 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int e = px[y * 4 * w + 3 * w + x];
            EXPECT_EQ(back[y * 4 * w + 3 * w + x], e ? e - 1 : 0) << x << "," << y;
            EXPECT_EQ(back[y * 4 * w + x], e ? px[y * 4 * w + x] : 0);
        }
    EXPECT_GT(mx, mn);
    EXPECT_GT(mean, 0.0f);

    // A side past 16 bits can't be written, nor can a folder that doesn't exist.
    EXPECT_EQ(fp_save(path.c_str(), 65536, 1, 0, px.data()), -2);
    EXPECT_EQ(fp_save("/nonexistent/dir/x.tif", w, h, 0, px.data()), -2);
    EXPECT_EQ(fp_save("/dev/full", w, h, 0, px.data()), -2);
}

TEST(FloatTiff, InspectorKeepsItsQuirks) {
    // Tag 339 before 274 keeps the sample format; every value is also an offset, so a
    // SampleFormat of count 1 reads the two bytes at offset 3.
    const Bytes strip = floats_le({1, 2, 3});
    ImageFileInfo info{};
    const std::string p1 = write_file(
        "q1.tif", tiff(strip, {{256, 3, 1, 1}, {339, 3, 1, 3}, {274, 3, 1, 1}, {282, 5, 1, 8}}));
    ASSERT_EQ(getTiffInfo(p1.c_str(), &info), 2);
    EXPECT_EQ(info.slot10, 0x1400); // bytes 0, 0x14 of the directory offset
    EXPECT_EQ(info.slot4, 0);       // rational at offset 8: 1.0f / 2.0f as integers
    // A big-endian file stops at its version; garbage is not a TIFF; a loop ends.
    Bytes mm = {'M', 'M', 0, 42, 0, 0, 0, 8};
    EXPECT_EQ(getTiffInfo(write_file("mm.tif", mm).c_str(), &info), -3);
    EXPECT_EQ(getTiffInfo(write_file("no.tif", {'G', 'I', 'F'}).c_str(), &info), -2);
    EXPECT_EQ(getTiffInfo(temp_path("missing").c_str(), &info), -1);
    Bytes loop = {'I', 'I', 42, 0, 8, 0, 0, 0, 0, 0, 8, 0, 0, 0};
    EXPECT_EQ(getTiffInfo(write_file("loop.tif", loop).c_str(), &info), 2);
}

TEST(FloatTiff, HalfFilesReadInMachineOrderAndAlphaSkipsFourBytes) {
    // Two pixels of R, G, B, A halves: alpha takes two bytes but four are skipped, so the
    // second pixel starts two bytes late.
    const uint16_t h[] = {0x3C00, 0x4000, 0x4200, 0x3C00, 0x3800, 0x3800, 0x3800, 0x3C00, 0x3C00};
    Bytes strip(reinterpret_cast<const uint8_t *>(h), reinterpret_cast<const uint8_t *>(h) + 18);
    ImageFileInfo info{2, 1, 16, 4, 0, 8, 0, 0, 0, 0, 0, 0};
    const std::string path = write_file("half.tif", tiff(strip, {}));
    Bytes px(8);
    float mn, mx, mean;
    ASSERT_EQ(fp2rgbe(path.c_str(), &info, &mn, &mx, &mean, px.data()), 1);
    EXPECT_EQ(px, (Bytes{64, 64, 128, 64, 192, 128, 130, 129})); // (1,2,3), then (.5,.5,1)
    EXPECT_FLOAT_EQ(mx, (0.3f + 1.2f + 0.3f) * 256);
    EXPECT_FLOAT_EQ(mn, (0.15f + 0.3f + 0.1f) * 256);
    // A file whose mark is neither gives the sentinel minimum.
    ASSERT_EQ(fp2rgbe(write_file("bad.tif", {'x', 'x'}).c_str(), &info, &mn, &mx, &mean, px.data()),
              1);
    EXPECT_EQ(mn, std::bit_cast<float>(0x55BA43B7u));
    EXPECT_EQ(mx, 0.0f);
}

TEST(FloatExpansion, NormalisingStretchesButFlatImagesAndBlackPixelsStayPlain) {
    const int w = 4;
    Bytes flat = {128, 128, 128, 128, 128, 128, 128, 128, 64, 64, 64, 64, 129, 129, 129, 0};
    std::vector<float> out(3 * w * 2, -1.0f);
    ASSERT_EQ(rgbe2fp(w, 1, 3 * w, 1, 0, flat.data(), out.data(), 1.0f), 1);
    EXPECT_EQ(out[0], 128 * 0x1p-7f);
    EXPECT_EQ(out[2], 64 * 0x1p-7f);
    EXPECT_EQ(out[9] + out[10] + out[11], 0.0f);
    Bytes ramp = {10, 100, 200, 255, 10, 100, 200, 255, 10, 100, 200, 255, 130, 130, 130, 0};
    ASSERT_EQ(rgbe2fp(w, 1, 3 * w, 1, 0, ramp.data(), out.data(), 2.0f), 1);
    EXPECT_EQ(out[0], 0.0f);
    EXPECT_GT(out[6], 1.0f);
    std::vector<uint16_t> halves(3 * w);
    ASSERT_EQ(rgbe2fp(w, 1, 3 * w, 0, 1, flat.data(), halves.data(), 1.0f), 1);
    EXPECT_EQ(halves[0], floatToHalf(1.0f));
    EXPECT_EQ(rgbe2fp(w, 0, 3 * w, 0, 0, flat.data(), out.data(), 1.0f), 0);
}

TEST(Psd, InfoWalksResourcesAndProfileCopiesItsBytes) {
    const Bytes icc = {0, 0, 0, 5, 'X'};
    Bytes res = resource(1005, {0, 72, 0, 0, 0, 1, 0, 1, 1, 44, 0x80, 0, 0, 1, 0, 1});
    const Bytes r2 = resource(1039, icc), r3 = resource(1058, {'E', 'x'});
    res.insert(res.end(), r2.begin(), r2.end());
    res.insert(res.end(), r3.begin(), r3.end());
    const std::string path = write_file("info.psd", psd(4, 16, 7, 3, res, 0, {}));
    ImageFileInfo info{};
    ASSERT_EQ(getPsdInfo(path.c_str(), &info), 34 + int(res.size()));
    const ImageFileInfo want = {7, 3, 16, 4, 72, 300, 5, 34 + int(res.size()), 34 + 28 + 18 + 12,
                                0, 0, 0};
    EXPECT_EQ(std::memcmp(&info, &want, sizeof info), 0);
    Bytes got(5);
    EXPECT_EQ(psd_profile(path.c_str(), got.data()), 5);
    EXPECT_EQ(got, icc);
    // Grey and CMYK modes, two channels, and another signature are refused.
    for (int mode : {1, 4})
        EXPECT_EQ(getPsdInfo(write_file("m.psd", psd(3, 8, 1, 1, {}, 0, {}, mode)).c_str(), &info),
                  -3);
    EXPECT_EQ(psd_profile(write_file("c.psd", psd(2, 8, 1, 1, {}, 0, {})).c_str(), got.data()), -3);
    EXPECT_EQ(getPsdInfo(write_file("s.psd", {'8', 'B', 'P', 'X'}).c_str(), &info), -2);
    EXPECT_EQ(getPsdInfo(write_file("t.psd", {'8', 'B'}).c_str(), &info), -1);
}

TEST(Psd, CompositeReadsRawRunLengthAndFloatPlanes) {
    ImageFileInfo info{};
    // 8-bit raw, five channels: only three planes are read; kind 0 puts plane 0 last; the
    // row pad of the caller is kept.
    Bytes raw;
    for (int c = 0; c < 5; ++c)
        for (int i = 0; i < 4; ++i)
            raw.push_back(static_cast<uint8_t>(10 * c + i));
    std::string path = write_file("raw.psd", psd(5, 8, 2, 2, {}, 0, raw));
    ASSERT_GT(getPsdInfo(path.c_str(), &info), 0);
    Bytes out(2 * 8, 0xEE);
    ASSERT_EQ(load_psd(0, path.c_str(), &info, 8, out.data()), 2);
    EXPECT_EQ(out, (Bytes{20, 10, 0, 21, 11, 1, 0xEE, 0xEE, 22, 12, 2, 23, 13, 3, 0xEE, 0xEE}));

    // 16-bit run-length, large-document form: one stream runs across rows and planes (a
    // literal spans both rows of plane 0), -128 is passed over, samples are byte-swapped.
    Bytes rle(2 * 3 * 4, 0); // row counts, four bytes each
    for (uint8_t b : {3, 1, 1, 2, 3, 0xFD, 7, 0x80, 3, 0, 9, 0, 5})
        rle.push_back(b);
    path = write_file("rle.psd", psd(3, 16, 1, 2, {}, 1, rle, 3, true));
    info = {};
    ASSERT_GT(getPsdInfo(path.c_str(), &info), 0);
    info.slot10 = 64;
    std::vector<uint16_t> px(6);
    ASSERT_EQ(load_psd(1, path.c_str(), &info, 3, px.data()), 2);
    EXPECT_EQ(px, (std::vector<uint16_t>{0x0101, 0x0707, 9, 0x0203, 0x0707, 5}));

    // 32-bit: raw float planes become RGBE at half value; packed data is refused.
    Bytes planes;
    for (float v : {1.0f, 0.5f, 0.25f})
        be(planes, std::bit_cast<uint32_t>(v), 4);
    path = write_file("f.psd", psd(3, 32, 1, 1, {}, 0, planes));
    info = {};
    ASSERT_GT(getPsdInfo(path.c_str(), &info), 0);
    Bytes rgbe(4);
    ASSERT_EQ(load_psd(1, path.c_str(), &info, 3, rgbe.data()), 1);
    EXPECT_EQ(rgbe, (Bytes{128, 64, 32, 128}));
    path = write_file("f1.psd", psd(3, 32, 1, 1, {}, 1, planes));
    testing::internal::CaptureStderr();
    EXPECT_EQ(load_psd(1, path.c_str(), &info, 3, rgbe.data()), -2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "load_psd rle 1 not supported for 32-bit PSD\n");
    info.slot7 = -5;
    testing::internal::CaptureStderr();
    EXPECT_EQ(load_psd(1, path.c_str(), &info, 3, rgbe.data()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "load_psd fseek -5 failed \n");
}

TEST(BitmapAndProfileFiles, FixedOffsetsAndSizeCodes) {
    // Width and height come from offsets 34 and 38, the depth from 44.
    auto bmp = [](int depth) {
        Bytes b = {'B', 'M'};
        b.resize(34);
        le(b, 640, 4), le(b, 480, 4), le(b, 0, 2), le(b, depth, 2);
        return b;
    };
    ImageFileInfo info{};
    EXPECT_EQ(lvbmp_dim(write_file("a.bmp", bmp(24)).c_str(), &info), 8);
    EXPECT_EQ(info.width * 10000 + info.height * 10 + info.slot2, 6404803);
    EXPECT_EQ(lvbmp_dim(write_file("b.bmp", bmp(8)).c_str(), &info), 8);
    EXPECT_EQ(info.slot2, 1);
    EXPECT_EQ(lvbmp_dim(write_file("c.bmp", bmp(32)).c_str(), &info), -3);
    EXPECT_EQ(lvbmp_dim(write_file("d.bmp", {'B', 'A', 0}).c_str(), &info), -2);

    Bytes icc = {0, 0, 0, 6, 'a', 'b'}, got(6);
    EXPECT_EQ(extract_profile(write_file("p.icc", icc).c_str(), got.data()), 6);
    EXPECT_EQ(got, icc);
    EXPECT_EQ(extract_profile(nullptr, got.data()), -1);
    EXPECT_EQ(extract_profile(temp_path("none").c_str(), got.data()), -2);
    EXPECT_EQ(extract_profile(write_file("s.icc", {0, 0}).c_str(), got.data()), -3);
    EXPECT_EQ(extract_profile(write_file("z.icc", {0x80, 0, 0, 0}).c_str(), got.data()), -4);
    EXPECT_EQ(extract_profile(write_file("l.icc", {0, 0, 0, 9, 1}).c_str(), got.data()), -5);
}
