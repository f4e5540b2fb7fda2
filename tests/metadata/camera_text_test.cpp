// Camera settings text, ICC profile names and IPTC keyword blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tiff_builder.h"

namespace {

// The description's result, with the record's exposure preset to 9 s as a sentinel.
int describe(const std::string &text, ExifInfo *info, int32_t length = -1) {
    std::memset(info, 0, sizeof *info);
    info->exposureTime = 9.0f;
    lvtest::MemFile f(std::vector<uint8_t>(text.begin(), text.end()));
    return parse_image_description(f.get(), length < 0 ? int32_t(text.size()) : length, info);
}

TEST(CameraDescription, ExposureAndGainsGiveTimeIsoAndAWholeExposure) {
    ExifInfo info;
    EXPECT_EQ(describe("a, b, c, d, e, f, 1/250s, B60 , G90., R100, k, G1", &info), 100);
    EXPECT_FLOAT_EQ(info.exposureTime, 0.004f);
    EXPECT_EQ(info.isoSpeed, 1200); // mid-gain 80: 200 * trunc(2^2.67)
    EXPECT_EQ(info.descriptionKind, 2);

    // Gains in any order within a field; a plain number of seconds is whole too.
    EXPECT_EQ(describe("x, x, x, x, x, x, 2 s, R90 G30 B30., x, x", &info), 30);
    EXPECT_FLOAT_EQ(info.exposureTime, 2.0f);
    EXPECT_EQ(info.isoSpeed, 800);
    EXPECT_EQ(info.descriptionKind, 2);

    // Decimals, seven digits, 0/0 and a bad ending are no whole exposure: ISO only.
    for (const char *exposure : {"1.5s", "1/1000000s", "0/0s", "1/250x"}) {
        describe(std::string("a, b, c, d, e, f, ") + exposure + ", B0, G0, R0", &info);
        EXPECT_EQ(info.isoSpeed, 200) << exposure;
        EXPECT_EQ(info.exposureTime, 9.0f) << exposure;
        EXPECT_EQ(info.descriptionKind, 0) << exposure;
    }
}

TEST(CameraDescription, MissingGainsFieldsOrBytesLeaveTheRecordUnchanged) {
    ExifInfo info;
    // R only in field 11, past where the scan stops; a gain not ended properly.
    EXPECT_EQ(describe("a, b, c, d, e, f, 1/60s, B10, G20, x, R30", &info), 20);
    EXPECT_EQ(info.isoSpeed, 0);
    EXPECT_EQ(info.exposureTime, 9.0f);
    describe("a, b, c, d, e, f, 1/60s, B10, G20, R30x", &info);
    EXPECT_EQ(info.isoSpeed, 0);
    EXPECT_EQ(describe("B10 G20 R30 1/60s", &info), 0);
    EXPECT_EQ(info.isoSpeed, 0);

    EXPECT_EQ(describe("abc", &info, 0), 0);
    EXPECT_EQ(describe("abc", &info, 4), -1);
    // A 2-GB length on a small file is a short read, found without reserving 2 GB.
    EXPECT_EQ(describe("a, b", &info, 0x7FFFFFFF), -1);
}

// A profile with the description tag at `at`: "desc", seven zero bytes, the count.
std::string profile_name(const std::string &text, int *result, size_t at = 60, int count = -1,
                         size_t keep = 0) {
    std::vector<uint8_t> p(at + 12 + text.size() + 20, 0);
    std::memset(p.data(), ' ', at);
    std::memcpy(&p[at], "desc", 4);
    const int n = count < 0 ? int(text.size()) + 1 : count;
    p[at + 10] = uint8_t(n >> 8);
    p[at + 11] = uint8_t(n);
    std::memcpy(&p[at + 12], text.data(), text.size());
    if (keep) p.resize(keep);
    char name[33] = {};
    *result = get_profile_name(int32_t(p.size()), p.data(), name);
    return name;
}

TEST(ProfileName, KnownSpacesAreNamedWhereverTheyStandElseTheTextIsTaken) {
    int r = 0;
    EXPECT_EQ(profile_name("sRGB IEC61966-2.1", &r), "sRGB");
    EXPECT_EQ(r, 4);
    EXPECT_EQ(profile_name("Adobe RGB (1998) and sRGB", &r), "Adobe RGB");
    EXPECT_EQ(r, 9);
    EXPECT_EQ(profile_name("Display ProPhoto RGB", &r), "ProPhoto RGB");
    EXPECT_EQ(r, 12);
    EXPECT_EQ(profile_name("Studio monitor calibrated on Tuesday", &r),
              "Studio monitor calibrated on Tue");
    EXPECT_EQ(r, 32);
    EXPECT_EQ(profile_name("Wide gamut sRGB", &r, 60, 10), "Wide gamut sRGB"); // past count
    EXPECT_EQ(r, 32);
    // Text running off the end: only what exists is copied.
    EXPECT_EQ(profile_name("Studio monitor", &r, 40, -1, 40 + 12 + 5), "Studi");
    EXPECT_EQ(r, 32);

    profile_name("sRGB", &r, 20); // inside the 32-byte header
    EXPECT_EQ(r, -1);
    profile_name("sRGB", &r, 60, 256); // a count of 256 or more is no description tag
    EXPECT_EQ(r, -1);
    profile_name("sRGB", &r, 32, -1, 48); // too short for any profile
    EXPECT_EQ(r, -1);
}

std::vector<uint8_t> dataset(uint8_t number, const std::string &data) {
    std::vector<uint8_t> d(5 + data.size());
    d[0] = 0x1C;
    d[1] = 2;
    d[2] = number;
    d[3] = uint8_t(data.size() >> 8);
    d[4] = uint8_t(data.size());
    std::copy(data.begin(), data.end(), d.begin() + 5);
    return d;
}

std::vector<uint8_t> join(std::initializer_list<std::vector<uint8_t>> sets) {
    std::vector<uint8_t> b;
    for (const auto &s : sets)
        b.insert(b.end(), s.begin(), s.end());
    return b;
}

std::vector<uint8_t> add_keyword(const std::vector<uint8_t> &iptc, int *at) {
    std::vector<uint8_t> out(std::max<size_t>(iptc.size(), 7) + 8);
    *at = add_iptc_keyword(int32_t(iptc.size()), iptc.data(), 3,
                           reinterpret_cast<const uint8_t *>("hdr"), out.data());
    return out;
}

TEST(IptcKeyword, GoesBehindTheLastKeywordOrElseTheLastDataset) {
    const auto title = dataset(5, "Night"), kw1 = dataset(25, "city"), kw2 = dataset(25, "x");
    const auto caption = dataset(120, "caption"), added = dataset(25, "hdr");
    int at = 0;
    EXPECT_EQ(add_keyword(join({title, kw1, kw2, caption}), &at),
              join({title, kw1, kw2, added, caption}));
    EXPECT_EQ(at, int(title.size() + kw1.size() + kw2.size()));
    EXPECT_EQ(add_keyword(join({title, caption}), &at), join({title, caption, added}));
    EXPECT_EQ(add_keyword({}, &at), join({{0x1C, 0x02, 0x00, 0x00, 0x02, 0x02, 0x00}, added}));
    EXPECT_EQ(at, 7);

    auto lying = kw1;
    lying[4] = 200; // dataset longer than the block
    add_keyword(lying, &at);
    EXPECT_EQ(at, -1);
    add_keyword({0x1C, 0x02, 0x19}, &at); // too short for a length field
    EXPECT_EQ(at, -1);
}

TEST(IptcFile, ReadsTheBlockAtItsOffsetAndChecksItsMarker) {
    const std::string path = ::testing::TempDir() + "lv_iptc_block.bin";
    std::vector<uint8_t> data(10, 0x55);
    const auto iptc = join({dataset(25, "city"), dataset(25, "night!")}); // 20 bytes
    data.insert(data.end(), iptc.begin(), iptc.end());
    data.resize(40, 0x66);
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fwrite(data.data(), 1, data.size(), f);
    fclose(f);

    uint8_t buf[64] = {};
    EXPECT_EQ(read_iptc(path.c_str(), 20, 10, buf), 20);
    EXPECT_EQ(0, std::memcmp(buf, iptc.data(), 20));
    EXPECT_EQ(read_iptc(path.c_str(), 20, 0, buf), -2);   // not an IPTC block there
    EXPECT_EQ(read_iptc(path.c_str(), 35, 10, buf), -1);  // runs off the end
    EXPECT_EQ(read_iptc(path.c_str(), 40, 0, buf), 0);    // as long as the file
    EXPECT_EQ(read_iptc(path.c_str(), 20, -41, buf), -1); // before the start
    remove(path.c_str());
    EXPECT_EQ(read_iptc(path.c_str(), 20, 10, buf), -1);
}

} // namespace
