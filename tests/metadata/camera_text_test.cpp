// Camera settings text, ICC profile names and IPTC keyword blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tiff_builder.h"

namespace {

// The description's result and record, with the exposure preset to 9 s as a sentinel.
void expect_description(std::string text, int32_t length, int result, float exposure, int iso,
                        int kind) {
    SCOPED_TRACE(text);
    ExifInfo info{};
    info.exposureTime = 9.0f;
    std::vector<uint8_t> bytes(text.begin(), text.end());
    const auto f = lvtest::open_bytes(bytes);
    EXPECT_EQ(parse_image_description(f.get(), length < 0 ? int32_t(text.size()) : length, &info),
              result);
    EXPECT_FLOAT_EQ(info.exposureTime, exposure);
    EXPECT_EQ(info.isoSpeed, iso);
    EXPECT_EQ(info.descriptionKind, kind);
}

TEST(CameraDescription, ExposureAndGainsGiveTimeAndIsoElseTheRecordStaysUnchanged) {
    // Mid-gain 80 gives 200 * trunc(2^2.67); a plain number of seconds is whole too.
    expect_description("a, b, c, d, e, f, 1/250s, B60 , G90., R100, k, G1", -1, 100, 0.004f, 1200,
                       2);
    expect_description("x, x, x, x, x, x, 2 s, R90 G30 B30., x, x", -1, 30, 2.0f, 800, 2);
    // Decimals, seven digits, 0/0 and a bad ending are no whole exposure: ISO only.
    for (const char *exposure : {"1.5s", "1/1000000s", "0/0s", "1/250x"})
        expect_description(std::string("a, b, c, d, e, f, ") + exposure + ", B0, G0, R0", -1, 0, 9,
                           200, 0);
    // R only past where the scan stops; a gain not ended properly; no fields at all.
    expect_description("a, b, c, d, e, f, 1/60s, B10, G20, x, R30", -1, 20, 9, 0, 0);
    expect_description("a, b, c, d, e, f, 1/60s, B10, G20, R30x", -1, 30, 9, 0, 0);
    expect_description("B10 G20 R30 1/60s", -1, 0, 9, 0, 0);
    expect_description("abc", 0, 0, 9, 0, 0);
    expect_description("abc", 4, -1, 9, 0, 0);
    // A 2-GB length on a small file is a short read, found without reserving 2 GB.
    expect_description("a, b", 0x7FFFFFFF, -1, 9, 0, 0);
}

// "<result> <name>" for a profile whose description tag stands at `at` with its count
// (by default the text's length and zero), cut to `keep` bytes when that is given.
std::string profile(const std::string &text, size_t at = 60, int count = -1, size_t keep = 0) {
    std::vector<uint8_t> p(at + 12 + text.size() + 20, 0);
    std::memset(p.data(), ' ', at);
    std::memcpy(&p[at], "desc", 4);
    const int n = count < 0 ? int(text.size()) + 1 : count;
    p[at + 10] = uint8_t(n >> 8);
    p[at + 11] = uint8_t(n);
    std::memcpy(&p[at + 12], text.data(), text.size());
    if (keep) p.resize(keep);
    char name[33] = {};
    return std::to_string(get_profile_name(int32_t(p.size()), p.data(), name)) + " " + name;
}

TEST(ProfileName, KnownSpacesAreNamedWhereverTheyStandElseTheTextIsTaken) {
    EXPECT_EQ(profile("sRGB IEC61966-2.1"), "4 sRGB");
    EXPECT_EQ(profile("Adobe RGB (1998) and sRGB"), "9 Adobe RGB");
    EXPECT_EQ(profile("Display ProPhoto RGB"), "12 ProPhoto RGB");
    EXPECT_EQ(profile("Studio monitor calibrated on Tuesday"),
              "32 Studio monitor calibrated on Tue");
    EXPECT_EQ(profile("Wide gamut sRGB", 60, 10), "32 Wide gamut sRGB"); // known name past count
    EXPECT_EQ(profile("Studio monitor", 40, -1, 57), "32 Studi"); // only the bytes that exist
    EXPECT_EQ(profile("sRGB", 20), "-1 ");                        // inside the 32-byte header
    EXPECT_EQ(profile("sRGB", 60, 256), "-1 ");                   // 256 or more: no description tag
    EXPECT_EQ(profile("sRGB", 32, -1, 48), "-1 ");                // too short for any profile
}

std::vector<uint8_t> iptc(std::initializer_list<std::pair<uint8_t, std::string>> sets) {
    std::vector<uint8_t> b;
    for (const auto &[number, data] : sets) {
        b.insert(b.end(), {0x1C, 2, number, uint8_t(data.size() >> 8), uint8_t(data.size())});
        b.insert(b.end(), data.begin(), data.end());
    }
    return b;
}

TEST(IptcKeyword, GoesBehindTheLastKeywordOrElseTheLastDataset) {
    const auto add = [](const std::vector<uint8_t> &block, int *at) {
        std::vector<uint8_t> out(std::max<size_t>(block.size(), 7) + 8);
        *at = add_iptc_keyword(int32_t(block.size()), block.data(), 3,
                               reinterpret_cast<const uint8_t *>("hdr"), out.data());
        return out;
    };
    const std::pair<uint8_t, std::string> title{5, "Night"}, kw1{25, "city"}, kw2{25, "x"},
        caption{120, "caption"}, added{25, "hdr"};
    int at = 0;
    EXPECT_EQ(add(iptc({title, kw1, kw2, caption}), &at), iptc({title, kw1, kw2, added, caption}));
    EXPECT_EQ(at, int(iptc({title, kw1, kw2}).size()));
    EXPECT_EQ(add(iptc({title, caption}), &at), iptc({title, caption, added}));
    EXPECT_EQ(add({}, &at), iptc({{0, std::string("\2\0", 2)}, added})); // the version first
    EXPECT_EQ(at, 7);

    auto lying = iptc({kw1});
    lying[4] = 200; // dataset longer than the block
    add(lying, &at);
    EXPECT_EQ(at, -1);
    add({0x1C, 0x02, 0x19}, &at); // too short for a length field
    EXPECT_EQ(at, -1);
}

TEST(IptcFile, ReadsTheBlockAtItsOffsetAndChecksItsMarker) {
    const std::string path = ::testing::TempDir() + "lv_iptc_block.bin";
    const auto block = iptc({{25, "city"}, {25, "night!"}}); // 20 bytes
    std::ofstream(path, std::ios::binary)
        << std::string(10, 0x55) + std::string(block.begin(), block.end()) + std::string(10, 0x66);
    uint8_t buf[64] = {};
    EXPECT_EQ(read_iptc(path.c_str(), 20, 10, buf), 20);
    EXPECT_EQ(0, std::memcmp(buf, block.data(), 20));
    EXPECT_EQ(read_iptc(path.c_str(), 20, 0, buf), -2);   // not an IPTC block there
    EXPECT_EQ(read_iptc(path.c_str(), 35, 10, buf), -1);  // runs off the end
    EXPECT_EQ(read_iptc(path.c_str(), 40, 0, buf), 0);    // as long as the file
    EXPECT_EQ(read_iptc(path.c_str(), 20, -41, buf), -1); // before the start
    std::remove(path.c_str());
    EXPECT_EQ(read_iptc(path.c_str(), 20, 10, buf), -1);
}

} // namespace
