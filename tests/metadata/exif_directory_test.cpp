// EXIF and GPS directory walks on directories built byte by byte, in both byte orders.
#include <gtest/gtest.h>

#include <cstring>

#include "tiff_builder.h"

using lvtest::Dir;
using lvtest::parse_directory;

namespace {

class DirectoryWalk : public ::testing::TestWithParam<bool> {};

TEST_P(DirectoryWalk, ReadsExposureAndGpsTagsInEitherByteOrder) {
    Dir d(GetParam());
    d.rational(33434, 1, 250)
        .rational(33437, 28, 10)
        .short_value(34855, 1600)
        .ascii(36867, "2021:07:04 18:30:59")
        .rational(37386, 425, 100)
        .rational(41486, 4000, 1)
        .short_value(41488, 3)
        .short_value(41989, 26);
    // A junk prefix makes the base matter: every offset is relative to it.
    std::vector<uint8_t> file(37, 0xAB);
    const auto dir = d.bytes(0);
    file.insert(file.end(), dir.begin(), dir.end());
    const ExifInfo info = parse_directory(file, d.order(), 37, 37, false);
    EXPECT_FLOAT_EQ(info.exposureTime, 0.004f);
    EXPECT_FLOAT_EQ(info.fNumber, 2.8f);
    EXPECT_EQ(info.isoSpeed, 1600);
    EXPECT_STREQ(info.captureDate, "2021:07:04 18:30:59");
    EXPECT_FLOAT_EQ(info.focalLength, 4.25f);
    EXPECT_FLOAT_EQ(info.focalPlaneXRes, 4000.0f);
    EXPECT_EQ(info.focalPlaneResUnit, 3);
    EXPECT_EQ(info.focal35mm, 26);

    Dir g(GetParam());
    g.letter(1, 'S')
        .rationals(2, {{48, 1}, {51, 1}, {2400, 100}})
        .letter(3, 'W')
        .rationals(4, {{2, 1}}) // fewer rationals than three
        .raw(5, 1, 1, GetParam() ? 1 : 1u << 24)
        .rationals(6, {{3500, 100}})
        .rationals(7, {{12, 1}, {34, 1}, {56, 1}, {78, 1}}) // more than three
        .ascii(29, "2024:05:17 and more");
    const ExifInfo gps = parse_directory(g.bytes(0), g.order(), 0, 0, true);
    EXPECT_EQ(gps.gpsLatitudeRef, 'S');
    EXPECT_EQ(gps.gpsLongitudeRef, 'W');
    EXPECT_EQ(gps.gpsAltitudeRef, 1);
    const uint32_t lat[6] = {48, 1, 51, 1, 2400, 100}, lon[6] = {2, 1, 0, 0, 0, 0};
    const uint32_t time[6] = {12, 1, 34, 1, 56, 1}, alt[2] = {3500, 100};
    EXPECT_EQ(0, std::memcmp(gps.gpsLatitude, lat, sizeof lat));
    EXPECT_EQ(0, std::memcmp(gps.gpsLongitude, lon, sizeof lon));
    EXPECT_EQ(0, std::memcmp(gps.gpsTime, time, sizeof time));
    EXPECT_EQ(0, std::memcmp(gps.gpsAltitude, alt, sizeof alt));
    EXPECT_STREQ(gps.gpsDate, "2024:05:17");
}

INSTANTIATE_TEST_SUITE_P(ByteOrder, DirectoryWalk, ::testing::Values(true, false),
                         [](const auto &p) { return p.param ? "Intel" : "Motorola"; });

TEST(DirectoryWalkRules, FNumberWinsAndApexValuesOnlyFillWhatIsMissing) {
    Dir before(false), after(false), apex(false);
    before.rational(37378, 297, 100).rational(33437, 56, 10);
    after.rational(33437, 56, 10).rational(37381, 297, 100);
    EXPECT_FLOAT_EQ(parse_directory(before.bytes(0), 0, 0, 0, false).fNumber, 5.6f);
    EXPECT_FLOAT_EQ(parse_directory(after.bytes(0), 0, 0, 0, false).fNumber, 5.6f);

    // Without an f-number the first APEX aperture stands unconverted; the APEX shutter
    // gives 2^-v; the exposure index fills the ISO by integer division.
    apex.rational(37381, 297, 100)
        .rational(37378, 500, 100)
        .rational(37377, 5907, 1000)
        .rationals(41493, {{6400, 10}});
    ExifInfo info = parse_directory(apex.bytes(0), 0, 0, 0, false);
    EXPECT_FLOAT_EQ(info.fNumber, 2.97f);
    EXPECT_NEAR(info.exposureTime, 1.0 / 60.0, 1e-5);
    EXPECT_EQ(info.isoSpeed, 640);

    Dir both(true);
    both.rational(37377, 5907, 1000)
        .rational(33434, 1, 8)
        .short_value(34855, 100)
        .rationals(41493, {{800, 1}});
    info = parse_directory(both.bytes(0), LV_ORDER_INTEL, 0, 0, false);
    EXPECT_FLOAT_EQ(info.exposureTime, 0.125f);
    EXPECT_EQ(info.isoSpeed, 100);
}

TEST(DirectoryWalkRules, EmptyDirectoriesAndBadDenominatorsLeaveTheRecordAlone) {
    ExifInfo before;
    std::memset(&before, 0x5A, sizeof before);
    ExifInfo info = before;
    lvtest::MemFile f({0, 0, 0x12, 0x34});
    EXPECT_EQ(parse_exif_data(f.get(), 0, 0, 0, &info), 1);
    EXPECT_EQ(0, std::memcmp(&info, &before, sizeof info));

    Dir d(false);
    d.rational(33434, 1, 0).rational(33437, 5, -2).rational(37377, 0, 1).ascii(29, "2024");
    info = parse_directory(d.bytes(0), 0, 0, 0, false);
    EXPECT_EQ(info.exposureTime, 0.0f);
    EXPECT_EQ(info.fNumber, 0.0f);
    EXPECT_STREQ(parse_directory(d.bytes(0), 0, 0, 0, true).gpsDate, ""); // count below 6
}

TEST(HostileDirectories, LyingCountsOffsetsAndCutsStayInsideTheRecordAndTheData) {
    // A count of 65535 with three entries present: the rest are past the end.
    Dir d(true);
    d.rational(33434, 1, 30).short_value(34855, 200).rational(33437, 4, 1);
    auto bytes = d.bytes(0);
    bytes[0] = bytes[1] = 0xFF;
    ExifInfo info = parse_directory(bytes, LV_ORDER_INTEL, 0, 0, false);
    EXPECT_FLOAT_EQ(info.exposureTime, 1.0f / 30);
    EXPECT_EQ(info.isoSpeed, 200);
    // A negative base makes the targets unreachable; values kept in entries still count.
    info = parse_directory(d.bytes(0), LV_ORDER_INTEL, 0, -1000, false);
    EXPECT_EQ(info.exposureTime, 0.0f);
    EXPECT_EQ(info.isoSpeed, 200);

    // Offsets near 4 GB, at the directory itself, and counts of 4 G.
    Dir lies(false), gps(false);
    lies.raw(33434, 5, 1, 0xFFFFFFF0u).raw(37386, 5, 1, 0).raw(36867, 2, 0xFFFFFFFFu, 2);
    gps.raw(2, 5, 0xFFFFFFFFu, 0xFFFFFFF0u).raw(29, 2, 0xFFFFFFFFu, 0).raw(6, 5, 1, 2);
    info = parse_directory(lies.bytes(0), 0, 0, 0, false);
    EXPECT_EQ(info.exposureTime, 0.0f);
    EXPECT_EQ(info.captureDate[19], 0);
    EXPECT_LE(std::strlen(parse_directory(gps.bytes(0), 0, 0, 0, true).gpsDate), 10u);

    Dir exif(false), place(false);
    exif.rational(33434, 1, 30).ascii(36867, "2021:07:04 18:30:59");
    place.rationals(2, {{1, 1}, {2, 1}, {3, 1}}).ascii(29, "2024:05:17");
    for (const Dir *dir : {&exif, &place}) {
        const auto whole = dir->bytes(0);
        for (size_t cut = 0; cut < whole.size(); ++cut) {
            const std::vector<uint8_t> part(whole.begin(), whole.begin() + long(cut));
            EXPECT_EQ(parse_directory(part, 0, 0, 0, dir == &place).captureDate[19], 0);
        }
    }
}

TEST(ByteReaders, ReadBothOrdersAndGiveAllOnesPastTheEnd) {
    lvtest::MemFile f({0x12, 0x34, 0x56, 0x78, 0x9A});
    EXPECT_EQ(fgetmi2(f.get(), LV_ORDER_INTEL), 0x3412);
    EXPECT_EQ(fgetm2(f.get()), 0x5678);
    EXPECT_EQ(fgetmi4(f.get(), 0), 0x9AFFFFFFu);
    rewind(f.get());
    EXPECT_EQ(fgetm4(f.get()), 0x12345678u);
    EXPECT_EQ(fgetmi4(f.get(), LV_ORDER_INTEL), 0xFFFFFF9Au);
}

TEST(RecordReset, ClearsNumbersButKeepsCameraAndDate) {
    ExifInfo info;
    std::memset(&info, 0x7F, sizeof info);
    std::strcpy(info.camera, "Kept");
    std::strcpy(info.captureDate, "2020:01:01 00:00:00");
    EXPECT_EQ(init_exifInfo(&info), &info);
    EXPECT_STREQ(info.camera, "Kept");
    EXPECT_STREQ(info.captureDate, "2020:01:01 00:00:00");
    EXPECT_EQ(info.spare2[14], 0x7F);
    EXPECT_EQ(info.focalPlaneResUnit, 0);
    EXPECT_EQ(info.extraWords[0], 0);
    EXPECT_EQ(info.extraFlagB, 0);
}

} // namespace
