// Camera settings text, ICC profile names and IPTC keyword blocks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tiff_builder.h"

namespace {

struct Parsed {
    int result;
    ExifInfo info;
};

Parsed describe(const std::string &text, int32_t length = -1) {
    Parsed p{};
    std::memset(&p.info, 0, sizeof p.info);
    p.info.exposureTime = 9.0f; // sentinel: untouched unless a whole exposure is found
    lvtest::MemFile f(std::vector<uint8_t>(text.begin(), text.end()));
    p.result =
        parse_image_description(f.get(), length < 0 ? int32_t(text.size()) : length, &p.info);
    return p;
}

TEST(CameraDescription, ExposureAndGainsGiveTimeIsoAndAWholeExposure) {
    const Parsed p = describe("a, b, c, d, e, f, 1/250s, B60 , G90., R100, k, G1");
    EXPECT_EQ(p.result, 100);
    EXPECT_FLOAT_EQ(p.info.exposureTime, 0.004f);
    EXPECT_EQ(p.info.isoSpeed, 1200); // mid-gain 80: 200 * trunc(2^2.67)
    EXPECT_EQ(p.info.descriptionKind, 2);

    // Gains in any order and within one field; a plain number of seconds is whole too.
    const Parsed q = describe("x, x, x, x, x, x, 2 s, R90 G30 B30., x, x");
    EXPECT_FLOAT_EQ(q.info.exposureTime, 2.0f);
    EXPECT_EQ(q.info.isoSpeed, 800); // mid-gain 60
    EXPECT_EQ(q.info.descriptionKind, 2);
    EXPECT_EQ(q.result, 30);
}

TEST(CameraDescription, IncompleteExposuresSetIsoOnly) {
    // A decimal exposure, a seven-digit denominator and an exposure of 0/0 are not whole.
    for (const char *exposure : {"1.5s", "1/1000000s", "0/0s", "1/250x", "100000/1s"}) {
        const Parsed p = describe(std::string("a, b, c, d, e, f, ") + exposure + ", B0, G0, R0");
        EXPECT_EQ(p.info.isoSpeed, 200) << exposure;
        EXPECT_EQ(p.info.descriptionKind, 0) << exposure;
        if (std::strcmp(exposure, "100000/1s") != 0) {
            EXPECT_EQ(p.info.exposureTime, 9.0f) << exposure;
        }
    }
}

TEST(CameraDescription, MissingGainsOrFieldsLeaveTheRecordUnchanged) {
    // R only in field 11, past where the scan stops.
    Parsed p = describe("a, b, c, d, e, f, 1/60s, B10, G20, x, R30");
    EXPECT_EQ(p.info.isoSpeed, 0);
    EXPECT_EQ(p.info.exposureTime, 9.0f);
    EXPECT_EQ(p.result, 20);
    // A gain that isn't ended by a blank, a comma or a point doesn't count.
    p = describe("a, b, c, d, e, f, 1/60s, B10, G20, R30x");
    EXPECT_EQ(p.info.isoSpeed, 0);
    p = describe("B10 G20 R30 1/60s");
    EXPECT_EQ(p.info.isoSpeed, 0);
    EXPECT_EQ(p.result, 0);
}

TEST(CameraDescription, LengthsBelowOneAndShortReads) {
    EXPECT_EQ(describe("abc", 0).result, 0);
    EXPECT_EQ(describe("abc", -5).result, 0);
    EXPECT_EQ(describe("abc", 4).result, -1);
    // A 2-GB length on a small file: a short read, found without reserving 2 GB first.
    EXPECT_EQ(describe("a, b", 0x7FFFFFFF).result, -1);
}

std::vector<uint8_t> profile_with(const std::string &text, size_t at = 60, int count = -1) {
    std::vector<uint8_t> p(at + 12 + text.size() + 20, 0);
    std::memset(p.data(), 0x20, at);
    const char desc[] = "desc";
    std::memcpy(&p[at], desc, 4);
    std::memset(&p[at + 4], 0, 7);
    p[at + 11] = uint8_t(count < 0 ? text.size() + 1 : size_t(count));
    std::memcpy(&p[at + 12], text.data(), text.size());
    return p;
}

std::string name_of(const std::vector<uint8_t> &p, int *result) {
    char name[33] = {};
    *result = get_profile_name(int32_t(p.size()), p.data(), name);
    return std::string(name, strnlen(name, 32));
}

TEST(ProfileName, KnownSpacesAreNamedWhereverTheyStandInTheText) {
    int r = 0;
    EXPECT_EQ(name_of(profile_with("sRGB IEC61966-2.1"), &r), "sRGB");
    EXPECT_EQ(r, 4);
    EXPECT_EQ(name_of(profile_with("Adobe RGB (1998) and sRGB"), &r), "Adobe RGB");
    EXPECT_EQ(r, 9);
    EXPECT_EQ(name_of(profile_with("Display ProPhoto RGB"), &r), "ProPhoto RGB");
    EXPECT_EQ(r, 12);
    // Other names: the first 32 bytes of the text, whatever they are.
    EXPECT_EQ(name_of(profile_with("Studio monitor calibrated on Tuesday"), &r),
              "Studio monitor calibrated on Tue");
    EXPECT_EQ(r, 32);
    // Past the count, "sRGB" no longer names the profile.
    EXPECT_EQ(name_of(profile_with("Wide gamut sRGB", 60, 10), &r), "Wide gamut sRGB");
    EXPECT_EQ(r, 32);
}

TEST(ProfileName, ProfilesWithoutAUsableDescriptionAreRefused) {
    int r = 0;
    EXPECT_EQ(name_of(profile_with("sRGB", 20), &r), ""); // tag inside the 32-byte header
    EXPECT_EQ(r, -1);
    auto big_count = profile_with("sRGB");
    big_count[60 + 10] = 1; // count 256 or more
    name_of(big_count, &r);
    EXPECT_EQ(r, -1);
    auto small = profile_with("sRGB", 32);
    small.resize(48);
    name_of(small, &r);
    EXPECT_EQ(r, -1);
    // The tag's text running off the end: only what exists is copied.
    auto cut = profile_with("Studio monitor calibrated on Tuesday", 40);
    cut.resize(40 + 12 + 5 + 16);
    EXPECT_EQ(name_of(cut, &r).substr(0, 5), "Studi");
    EXPECT_EQ(r, 32);
}

std::vector<uint8_t> dataset(uint8_t record, uint8_t number, const std::string &data) {
    std::vector<uint8_t> d(5 + data.size());
    d[0] = 0x1C;
    d[1] = record;
    d[2] = number;
    d[3] = uint8_t(data.size() >> 8);
    d[4] = uint8_t(data.size());
    std::copy(data.begin(), data.end(), d.begin() + 5);
    return d;
}

std::vector<uint8_t> block(std::initializer_list<std::vector<uint8_t>> sets) {
    std::vector<uint8_t> b;
    for (const auto &s : sets)
        b.insert(b.end(), s.begin(), s.end());
    return b;
}

std::vector<uint8_t> add_keyword(const std::vector<uint8_t> &iptc, const std::string &kw,
                                 int *result) {
    std::vector<uint8_t> out(iptc.size() + 12 + kw.size(), 0xEE);
    *result = add_iptc_keyword(int32_t(iptc.size()), iptc.data(), int32_t(kw.size()),
                               reinterpret_cast<const uint8_t *>(kw.data()), out.data());
    out.resize(std::max<size_t>(iptc.size(), 7) + 5 + kw.size());
    return out;
}

TEST(IptcKeyword, GoesBehindTheLastKeywordOrElseTheLastDataset) {
    const auto title = dataset(2, 5, "Night street");
    const auto kw1 = dataset(2, 25, "city"), kw2 = dataset(2, 25, "night");
    const auto caption = dataset(2, 120, "caption");
    int at = 0;
    auto out = add_keyword(block({title, kw1, kw2, caption}), "hdr", &at);
    EXPECT_EQ(at, int(title.size() + kw1.size() + kw2.size()));
    EXPECT_EQ(out, block({title, kw1, kw2, dataset(2, 25, "hdr"), caption}));

    out = add_keyword(block({title, caption}), "hdr", &at);
    EXPECT_EQ(at, int(title.size() + caption.size()));
    EXPECT_EQ(out, block({title, caption, dataset(2, 25, "hdr")}));

    // An empty block starts with the record version.
    out = add_keyword({}, "hdr", &at);
    EXPECT_EQ(at, 7);
    EXPECT_EQ(out, block({{0x1C, 0x02, 0x00, 0x00, 0x02, 0x02, 0x00}, dataset(2, 25, "hdr")}));
}

TEST(IptcKeyword, DatasetLengthsPastTheBlockAreRefused) {
    auto lying = dataset(2, 25, "city");
    lying[4] = 200;
    int at = 0;
    add_keyword(lying, "x", &at);
    EXPECT_EQ(at, -1);
    add_keyword({0x1C, 0x02, 0x19}, "x", &at); // too short for a length field
    EXPECT_EQ(at, -1);
    // No marker at all: the block is taken as one dataset from its start.
    add_keyword({0x41, 0x42, 0x43, 0x00, 0x01, 0x44}, "x", &at);
    EXPECT_EQ(at, 6);
}

class IptcFile : public ::testing::Test {
  protected:
    void SetUp() override {
        path_ = ::testing::TempDir() + "lv_iptc_block.bin";
        FILE *f = fopen(path_.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::vector<uint8_t> data(10, 0x55);
        const auto iptc = block({dataset(2, 25, "city"), dataset(2, 25, "night!")});
        data.insert(data.end(), iptc.begin(), iptc.end()); // 20 bytes at offset 10
        data.insert(data.end(), 10, 0x66);
        fwrite(data.data(), 1, data.size(), f);
        fclose(f);
    }
    void TearDown() override { remove(path_.c_str()); }
    std::string path_;
};

TEST_F(IptcFile, ReadsTheBlockAtItsOffsetAndChecksItsMarker) {
    uint8_t buf[64] = {};
    EXPECT_EQ(read_iptc(path_.c_str(), 20, 10, buf), 20);
    EXPECT_EQ(buf[0], 0x1C);
    EXPECT_EQ(buf[2], 25);
    EXPECT_EQ(read_iptc(path_.c_str(), 20, 0, buf), -2);   // not an IPTC block there
    EXPECT_EQ(read_iptc(path_.c_str(), 35, 10, buf), -1);  // runs off the end
    EXPECT_EQ(read_iptc(path_.c_str(), 40, 0, buf), 0);    // as long as the file
    EXPECT_EQ(read_iptc(path_.c_str(), 20, -41, buf), -1); // before the start
    EXPECT_EQ(read_iptc((path_ + ".none").c_str(), 20, 10, buf), -1);
}

} // namespace
