// What the library makes of capture metadata besides the directory walks: camera settings
// text, IPTC keywords, the Radiance writer's rational form, the bracket fold, and the
// metadata-copy commands, text for text.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "metadata/copy_commands.h"
#include "tiff_builder.h"

namespace {

// The description's result and record, with the exposure preset to 9 s as a sentinel.
void expect_text(std::string text, int32_t length, int result, float exposure, int iso, int kind) {
    SCOPED_TRACE(text);
    ExifInfo info{};
    info.exposureTime = 9.0f;
    const auto f = lvtest::open_bytes(text.data(), text.size());
    EXPECT_EQ(parse_image_description(f.get(), length < 0 ? int32_t(text.size()) : length, &info),
              result);
    EXPECT_FLOAT_EQ(info.exposureTime, exposure);
    EXPECT_EQ(info.isoSpeed, iso);
    EXPECT_EQ(info.descriptionKind, kind);
}

TEST(CameraDescription, ExposureAndGainsGiveTimeAndIsoElseTheRecordStaysUnchanged) {
    // Mid-gain 80 gives 200 * trunc(2^2.67); a plain number of seconds is whole too.
    expect_text("a, b, c, d, e, f, 1/250s, B60 , G90., R100, k, G1", -1, 100, 0.004f, 1200, 2);
    expect_text("x, x, x, x, x, x, 2 s, R90 G30 B30., x, x", -1, 30, 2.0f, 800, 2);
    // Decimals, seven digits, 0/0 and a bad ending are no whole exposure: ISO only.
    for (const char *exposure : {"1.5s", "1/1000000s", "0/0s", "1/250x"})
        expect_text(std::string("a, b, c, d, e, f, ") + exposure + ", B0, G0, R0", -1, 0, 9, 200,
                    0);
    // R only past where the scan stops; a gain not ended properly; no fields at all.
    expect_text("a, b, c, d, e, f, 1/60s, B10, G20, x, R30", -1, 20, 9, 0, 0);
    expect_text("a, b, c, d, e, f, 1/60s, B10, G20, R30x", -1, 30, 9, 0, 0);
    expect_text("B10 G20 R30 1/60s", -1, 0, 9, 0, 0);
    expect_text("abc", 0, 0, 9, 0, 0);
    expect_text("abc", 4, -1, 9, 0, 0);
    // A 2-GB length on a small file is a short read, found without reserving 2 GB.
    expect_text("a, b", 0x7FFFFFFF, -1, 9, 0, 0);
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

TEST(RationalForm, TwoDecimalsAboveOneHundredthsBelowSpareWordsInTheWritersOrder) {
    ExifInfo info{};
    info.exposureTime = 0.125f;
    info.fNumber = 1.8f; // stored a hair below 1.8, still f/1.8
    info.focalLength = -3.0f;
    info.focalPlaneXRes = 1e30f;
    for (int i = 0; i < 5; ++i)
        info.extraWords[i] = 10 + i;
    info.extraFlagA = 7;
    info.extraFlagB = 8;
    MetadataBuf m;
    std::memset(&m, 0x11, sizeof m); // pairs that a value can't convert keep this
    EXPECT_EQ(metadataBufFromExifInfo(&info, &m, nullptr), 100);
    EXPECT_EQ(m.shutterDen, 800);
    EXPECT_EQ(m.apertureNum, 180);
    EXPECT_EQ(m.apertureDen, 100);
    EXPECT_EQ(m.focalNum, 0x11111111);         // negative: unchanged
    EXPECT_EQ(m.focalPlaneXResNum, INT32_MAX); // beyond int32: held at its end
    const int32_t words[5] = {11, 10, 14, 13, 12}, flags[2] = {8, 7};
    EXPECT_EQ(0, std::memcmp(m.extraWords, words, sizeof words));
    EXPECT_EQ(0, std::memcmp(m.extraFlags, flags, sizeof flags));

    info.exposureTime = 1.0f / 250; // stored a hair above 0.004, still 1/250 s
    info.focalLength = 4.25f;
    metadataBufFromExifInfo(&info, &m, nullptr);
    EXPECT_EQ(m.shutterDen, 25000);
    EXPECT_EQ(m.focalNum, 425);
}

TEST(BracketFold, KeepsOnlyThePairsEveryFrameShares) {
    MetadataBuf frames[3] = {};
    for (int i = 0; i < 3; ++i) {
        frames[i].shutterNum = 100;
        frames[i].shutterDen = 400 << (2 * i);
        frames[i].apertureNum = i < 2 ? 180 : 18; // the same f-number, but not the same pair
        frames[i].apertureDen = i < 2 ? 100 : 10;
        frames[i].iso = i < 2 ? 1000 : 800;
    }
    MetadataBuf folded = frames[0];
    EXPECT_EQ(constant_exif(&folded, &frames[1]), 1);
    EXPECT_EQ(folded.shutterNum, 0);
    EXPECT_EQ(folded.shutterDen, 0);
    EXPECT_EQ(folded.apertureNum, 180);
    EXPECT_EQ(folded.apertureDen, 100);
    EXPECT_EQ(folded.iso, 1000);
    EXPECT_EQ(constant_exif(&folded, &frames[2]), 1);
    EXPECT_EQ(folded.apertureNum, 0);
    EXPECT_EQ(folded.iso, 0);
}

TEST(CopyCommand, FlagsAddTheThumbnailAndClearTheTemperatureAndNothingRuns) {
    const std::string base =
        "/opt/tool -q -overwrite_original -tagsfromfile \"/in/photo 1.jpg\" -exif:all "
        "--exif:XResolution --exif:YResolution --exif:ExifImageWidth --exif:ExifImageHeight "
        "--exif:orientation -GPS:all -XMP:all";
    const auto copy = [](int thumbnail, int temperature) {
        return lv::compose_copy_metadata("/in/photo 1.jpg", "/out/result.tif", "/opt/tool",
                                         "/tmp/thumb.jpg", "Lumivantor 1.0", thumbnail,
                                         temperature);
    };
    EXPECT_EQ(copy(0, 0), base + " --xmp-crs:AlreadyApplied "
                                 "-Software=\"Lumivantor 1.0\" \"/out/result.tif\"");
    EXPECT_EQ(copy(1, 7), base + " --XMP:WhiteBalance -XMP:ColorTemperature= "
                                 "--xmp-crs:AlreadyApplied -Software=\"Lumivantor 1.0\" "
                                 "\"-ThumbnailImage<=/tmp/thumb.jpg\" \"/out/result.tif\"");
    // Quotes inside a path are not escaped; missing strings are empty.
    const std::string odd = lv::compose_copy_metadata("a\"b", "", nullptr, nullptr, nullptr, 1, 0);
    EXPECT_EQ(odd.substr(0, 44), " -q -overwrite_original -tagsfromfile \"a\"b\" ");
    EXPECT_NE(odd.find("-Software=\"\" \"-ThumbnailImage<=\" \"\""), std::string::npos);

    EXPECT_EQ(lv::compose_read_thumbnail("/in/a.jpg", "/tmp/t.jpg", "tool"),
              "tool -b -ThumbnailImage \"/in/a.jpg\" > \"/tmp/t.jpg\"");
    EXPECT_EQ(lv::compose_list_tags("/in/a.jpg", "tool", "/tmp/tags.txt"),
              "tool -Pkyv \"/in/a.jpg\" > \"/tmp/tags.txt\"");
    // The entry points run nothing and say so.
    char src[] = "/in/a.jpg", dst[] = "/out/b.tif", tool[] = "tool", thumb[] = "/tmp/t.jpg";
    EXPECT_EQ(exiv2WrapperCopyMetadata(src, dst, tool, thumb, 0, tool, 1, 1), -1);
    EXPECT_EQ(wrapMetadata(nullptr, nullptr, nullptr, nullptr, 0, nullptr, 1, 1), -1);
    EXPECT_EQ(old_exiv2WrapperCopyMetadata(src, dst, tool, thumb, src), -1);
    EXPECT_EQ(readThumbnailIntoFile(src, dst, tool), -1);
}

TEST(TagTables, MatchWholeNamesWithinTheCountOnly) {
    ASSERT_EQ(lv::imageTags2Preserve().size(), 15u);
    ASSERT_EQ(lv::gpsTags2Preserve().size(), 9u);
    auto photo = lv::photoTags2Preserve();
    const int n = 29;
    ASSERT_EQ(photo.size(), size_t(n));
    std::string *table = const_cast<std::string *>(photo.data());
    EXPECT_TRUE(shouldCopyTag("FocalLengthIn35mmFilm", table, n));
    EXPECT_FALSE(shouldCopyTag("FocalLengthIn35mmFilm", table, n - 1)); // beyond the count
    EXPECT_FALSE(shouldCopyTag("Aperture", table + 1, n - 1));          // only "MaxAperture" left
    EXPECT_FALSE(shouldCopyTag("ExposureTimeX", table, n));             // an entry is a prefix
    EXPECT_FALSE(shouldCopyTag("Flas", table, n));                      // the tag is a prefix
    EXPECT_FALSE(shouldCopyTag("Aperture", table, 0));
}

} // namespace
