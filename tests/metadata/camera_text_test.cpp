// Camera settings text, ICC profile names and IPTC keyword blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tiff_builder.h"

namespace {

TEST(CameraDescription, ExposureAndGainsGiveTimeAndIsoElseTheRecordStaysUnchanged) {
    const struct {
        const char *text;
        int32_t length; // -1: the text's own
        int result;
        float exposure; // 9: the preset, untouched
        int iso, kind;
    } cases[] = {
        // Mid-gain 80 gives 200 * trunc(2^2.67); a plain number of seconds is whole too.
        {"a, b, c, d, e, f, 1/250s, B60 , G90., R100, k, G1", -1, 100, 0.004f, 1200, 2},
        {"x, x, x, x, x, x, 2 s, R90 G30 B30., x, x", -1, 30, 2.0f, 800, 2},
        // Decimals, seven digits, 0/0 and a bad ending are no whole exposure: ISO only.
        {"a, b, c, d, e, f, 1.5s, B0, G0, R0", -1, 0, 9.0f, 200, 0},
        {"a, b, c, d, e, f, 1/1000000s, B0, G0, R0", -1, 0, 9.0f, 200, 0},
        {"a, b, c, d, e, f, 0/0s, B0, G0, R0", -1, 0, 9.0f, 200, 0},
        {"a, b, c, d, e, f, 1/250x, B0, G0, R0", -1, 0, 9.0f, 200, 0},
        // R only past where the scan stops; a gain not ended properly; no fields at all.
        {"a, b, c, d, e, f, 1/60s, B10, G20, x, R30", -1, 20, 9.0f, 0, 0},
        {"a, b, c, d, e, f, 1/60s, B10, G20, R30x", -1, 30, 9.0f, 0, 0},
        {"B10 G20 R30 1/60s", -1, 0, 9.0f, 0, 0},
        {"abc", 0, 0, 9.0f, 0, 0},
        {"abc", 4, -1, 9.0f, 0, 0},
        // A 2-GB length on a small file is a short read, found without reserving 2 GB.
        {"a, b", 0x7FFFFFFF, -1, 9.0f, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        ExifInfo info;
        std::memset(&info, 0, sizeof info);
        info.exposureTime = 9.0f;
        const std::string text = c.text;
        lvtest::MemFile f(std::vector<uint8_t>(text.begin(), text.end()));
        const int32_t length = c.length < 0 ? int32_t(text.size()) : c.length;
        EXPECT_EQ(parse_image_description(f.file, length, &info), c.result);
        EXPECT_FLOAT_EQ(info.exposureTime, c.exposure);
        EXPECT_EQ(info.isoSpeed, c.iso);
        EXPECT_EQ(info.descriptionKind, c.kind);
    }
}

TEST(ProfileName, KnownSpacesAreNamedWhereverTheyStandElseTheTextIsTaken) {
    const struct {
        const char *text;
        size_t at;   // where the "desc" tag stands
        int count;   // -1: the text's length with its zero
        size_t keep; // bytes of the profile kept, 0 for all
        const char *name;
        int result;
    } cases[] = {
        {"sRGB IEC61966-2.1", 60, -1, 0, "sRGB", 4},
        {"Adobe RGB (1998) and sRGB", 60, -1, 0, "Adobe RGB", 9},
        {"Display ProPhoto RGB", 60, -1, 0, "ProPhoto RGB", 12},
        {"Studio monitor calibrated on Tuesday", 60, -1, 0, "Studio monitor calibrated on Tue", 32},
        {"Wide gamut sRGB", 60, 10, 0, "Wide gamut sRGB", 32}, // known name past the count
        {"Studio monitor", 40, -1, 57, "Studi", 32},           // only the bytes that exist
        {"sRGB", 20, -1, 0, "", -1},                           // inside the 32-byte header
        {"sRGB", 60, 256, 0, "", -1},                          // 256 or more: no description
        {"sRGB", 32, -1, 48, "", -1},                          // too short for any profile
    };
    for (const auto &c : cases) {
        const std::string text = c.text;
        std::vector<uint8_t> p(c.at + 12 + text.size() + 20, 0);
        std::memset(p.data(), ' ', c.at);
        std::memcpy(&p[c.at], "desc", 4);
        const int n = c.count < 0 ? int(text.size()) + 1 : c.count;
        p[c.at + 10] = uint8_t(n >> 8);
        p[c.at + 11] = uint8_t(n);
        std::memcpy(&p[c.at + 12], text.data(), text.size());
        if (c.keep) p.resize(c.keep);
        char name[33] = {};
        EXPECT_EQ(get_profile_name(int32_t(p.size()), p.data(), name), c.result) << c.text;
        if (c.result > 0) {
            EXPECT_STREQ(name, c.name);
        }
    }
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
    std::vector<uint8_t> data(10, 0x55);
    const auto block = iptc({{25, "city"}, {25, "night!"}}); // 20 bytes
    data.insert(data.end(), block.begin(), block.end());
    data.resize(40, 0x66);
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fwrite(data.data(), 1, data.size(), f);
    fclose(f);

    uint8_t buf[64] = {};
    EXPECT_EQ(read_iptc(path.c_str(), 20, 10, buf), 20);
    EXPECT_EQ(0, std::memcmp(buf, block.data(), 20));
    EXPECT_EQ(read_iptc(path.c_str(), 20, 0, buf), -2);   // not an IPTC block there
    EXPECT_EQ(read_iptc(path.c_str(), 35, 10, buf), -1);  // runs off the end
    EXPECT_EQ(read_iptc(path.c_str(), 40, 0, buf), 0);    // as long as the file
    EXPECT_EQ(read_iptc(path.c_str(), 20, -41, buf), -1); // before the start
    remove(path.c_str());
    EXPECT_EQ(read_iptc(path.c_str(), 20, 10, buf), -1);
}

} // namespace
