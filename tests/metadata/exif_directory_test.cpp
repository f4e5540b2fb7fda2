// EXIF and GPS directory walks on directories built byte by byte, in both byte orders.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "tiff_builder.h"

using lvtest::Dir;
using lvtest::parse_directory;

namespace {

class DirectoryWalk : public ::testing::TestWithParam<bool> {};

TEST_P(DirectoryWalk, ReadsEveryExposureTagInEitherByteOrder) {
    const bool little = GetParam();
    Dir d(little);
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
    auto dir = d.bytes(0);
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
}

TEST_P(DirectoryWalk, GpsTagsFillLatitudeLongitudeAltitudeTimeAndDate) {
    const bool little = GetParam();
    Dir d(little);
    d.raw(1, 2, 2, little ? 'S' : uint32_t('S') << 24)
        .rationals(2, {{48, 1}, {51, 1}, {2400, 100}}, 5)
        .raw(3, 2, 2, little ? 'W' : uint32_t('W') << 24)
        .rationals(4, {{2, 1}, {21, 1}, {8, 1}}, 5)
        .raw(5, 1, 1, little ? 1 : 1u << 24)
        .rationals(6, {{3500, 100}}, 5)
        .rationals(7, {{12, 1}, {34, 1}, {56, 1}}, 5)
        .ascii(29, "2024:05:17");
    const ExifInfo info = parse_directory(d.bytes(0), d.order(), 0, 0, true);
    EXPECT_EQ(info.gpsLatitudeRef, 'S');
    EXPECT_EQ(info.gpsLongitudeRef, 'W');
    EXPECT_EQ(info.gpsAltitudeRef, 1);
    const uint32_t lat[6] = {48, 1, 51, 1, 2400, 100}, lon[6] = {2, 1, 21, 1, 8, 1};
    const uint32_t time[6] = {12, 1, 34, 1, 56, 1};
    EXPECT_EQ(0, std::memcmp(info.gpsLatitude, lat, sizeof lat));
    EXPECT_EQ(0, std::memcmp(info.gpsLongitude, lon, sizeof lon));
    EXPECT_EQ(0, std::memcmp(info.gpsTime, time, sizeof time));
    EXPECT_EQ(info.gpsAltitude[0], 3500u);
    EXPECT_EQ(info.gpsAltitude[1], 100u);
    EXPECT_STREQ(info.gpsDate, "2024:05:17");
}

INSTANTIATE_TEST_SUITE_P(ByteOrder, DirectoryWalk, ::testing::Values(true, false),
                         [](const auto &p) { return p.param ? "Intel" : "Motorola"; });

TEST(DirectoryWalkRules, FNumberWinsOverApexApertureWhicheverComesFirst) {
    Dir before(false), after(false), apex_only(false);
    before.rational(37378, 297, 100).rational(33437, 56, 10);
    after.rational(33437, 56, 10).rational(37381, 297, 100);
    apex_only.rational(37381, 297, 100).rational(37378, 500, 100);
    EXPECT_FLOAT_EQ(parse_directory(before.bytes(0), 0, 0, 0, false).fNumber, 5.6f);
    EXPECT_FLOAT_EQ(parse_directory(after.bytes(0), 0, 0, 0, false).fNumber, 5.6f);
    // Without an f-number the first APEX aperture stands as it is, unconverted.
    EXPECT_FLOAT_EQ(parse_directory(apex_only.bytes(0), 0, 0, 0, false).fNumber, 2.97f);
}

TEST(DirectoryWalkRules, ShutterSpeedAndExposureIndexOnlyFillWhatIsMissing) {
    Dir apex(true);
    apex.rational(37377, 5907, 1000).rational(41493, 6400, 10, 5);
    const ExifInfo a = parse_directory(apex.bytes(0), LV_ORDER_INTEL, 0, 0, false);
    EXPECT_NEAR(a.exposureTime, 1.0 / 60.0, 1e-5); // 2^-5.907
    EXPECT_EQ(a.isoSpeed, 640);                    // 6400 / 10, integer division

    Dir both(true);
    both.rational(37377, 5907, 1000)
        .rational(33434, 1, 8)
        .short_value(34855, 100)
        .rational(41493, 800, 0, 5);
    const ExifInfo b = parse_directory(both.bytes(0), LV_ORDER_INTEL, 0, 0, false);
    EXPECT_FLOAT_EQ(b.exposureTime, 0.125f);
    EXPECT_EQ(b.isoSpeed, 100);

    Dir index_without_denominator(true);
    index_without_denominator.rational(41493, 800, 0, 5);
    EXPECT_EQ(
        parse_directory(index_without_denominator.bytes(0), LV_ORDER_INTEL, 0, 0, false).isoSpeed,
        800);

    // A zero shutter value gives no fallback at all.
    Dir zero(true);
    zero.rational(37377, 0, 1);
    EXPECT_EQ(parse_directory(zero.bytes(0), LV_ORDER_INTEL, 0, 0, false).exposureTime, 0.0f);
}

TEST(DirectoryWalkRules, EmptyDirectoriesAndBadDenominatorsLeaveTheRecordAlone) {
    ExifInfo before;
    std::memset(&before, 0x5A, sizeof before);
    ExifInfo info = before;
    std::vector<uint8_t> empty = {0, 0, 0x12, 0x34};
    lvtest::MemFile f(empty);
    EXPECT_EQ(parse_exif_data(f.get(), 0, 0, 0, &info), 1);
    EXPECT_EQ(0, std::memcmp(&info, &before, sizeof info));

    Dir d(false);
    d.rational(33434, 1, 0).rational(33437, 5, -2).rational(37386, 7, 0);
    const ExifInfo bad = parse_directory(d.bytes(0), 0, 0, 0, false);
    EXPECT_EQ(bad.exposureTime, 0.0f);
    EXPECT_EQ(bad.fNumber, 0.0f);
    EXPECT_EQ(bad.focalLength, 0.0f);
}

TEST(DirectoryWalkRules, GpsRationalsStopAtTheCountAndDatesAreCut) {
    Dir d(true);
    d.rationals(2, {{10, 1}}, 5)                                   // only degrees
        .rationals(4, {{1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}}, 5) // more than three
        .ascii(29, "2024:05:17 and more text");
    const ExifInfo info = parse_directory(d.bytes(0), LV_ORDER_INTEL, 0, 0, true);
    EXPECT_EQ(info.gpsLatitude[0], 10u);
    EXPECT_EQ(info.gpsLatitude[2], 0u);
    EXPECT_EQ(info.gpsLongitude[4], 3u);
    EXPECT_STREQ(info.gpsDate, "2024:05:17");

    Dir short_date(true);
    short_date.ascii(29, "20245"); // count 6: five characters taken
    EXPECT_STREQ(parse_directory(short_date.bytes(0), LV_ORDER_INTEL, 0, 0, true).gpsDate, "20245");
    Dir tiny_date(true);
    tiny_date.ascii(29, "2024"); // count 5: ignored
    EXPECT_STREQ(parse_directory(tiny_date.bytes(0), LV_ORDER_INTEL, 0, 0, true).gpsDate, "");
}

TEST(HostileDirectories, LyingCountsAndOffsetsEndQuicklyWithEndOfFileValues) {
    const auto start = std::chrono::steady_clock::now();
    // A count of 65535 with three entries present: the rest read as 0xFF bytes.
    Dir d(true);
    d.rational(33434, 1, 30).short_value(34855, 200).rational(33437, 4, 1);
    auto bytes = d.bytes(0);
    bytes[0] = bytes[1] = 0xFF;
    ExifInfo info = parse_directory(bytes, LV_ORDER_INTEL, 0, 0, false);
    EXPECT_FLOAT_EQ(info.exposureTime, 1.0f / 30);
    EXPECT_EQ(info.isoSpeed, 200);

    // Offsets past the end, near 4 GB, or pointing back at the directory itself.
    Dir lies(true);
    lies.raw(33434, 5, 1, 0xFFFFFFF0u)
        .raw(33437, 5, 1, 0)
        .raw(36867, 2, 0xFFFFFFFFu, 0)
        .raw(37386, 5, 1, 7);
    info = parse_directory(lies.bytes(0), LV_ORDER_INTEL, 0, 0, false);
    EXPECT_EQ(info.exposureTime, 0.0f);
    // A negative base makes targets unreachable: the walk goes on without them.
    info = parse_directory(d.bytes(0), LV_ORDER_INTEL, 0, -1000, false);
    EXPECT_EQ(info.exposureTime, 0.0f);
    EXPECT_EQ(info.isoSpeed, 200);

    Dir gps(false);
    gps.raw(2, 5, 0xFFFFFFFFu, 0xFFFFFFF0u).raw(29, 2, 0xFFFFFFFFu, 0).raw(6, 5, 1, 2);
    info = parse_directory(gps.bytes(0), 0, 0, 0, true);
    EXPECT_LE(std::strlen(info.gpsDate), 10u);

    // Cut after every byte: the walks stay inside the record and inside the data.
    Dir exif(false), place(false);
    exif.rational(33434, 1, 30).ascii(36867, "2021:07:04 18:30:59").rational(37386, 5, 1);
    place.rationals(2, {{1, 1}, {2, 1}, {3, 1}}).ascii(29, "2024:05:17");
    for (const Dir *dir : {&exif, &place}) {
        const auto whole = dir->bytes(0);
        for (size_t cut = 0; cut < whole.size(); ++cut) {
            std::vector<uint8_t> part(whole.begin(), whole.begin() + long(cut));
            const ExifInfo got = parse_directory(part, 0, 0, 0, dir == &place);
            EXPECT_EQ(got.descriptionKind, 0);
            EXPECT_EQ(got.captureDate[19], 0);
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(ByteReaders, ReadBothOrdersAndGiveAllOnesPastTheEnd) {
    lvtest::MemFile f({0x12, 0x34, 0x56, 0x78, 0x9A});
    EXPECT_EQ(fgetmi2(f.get(), LV_ORDER_INTEL), 0x3412);
    EXPECT_EQ(fgetm2(f.get()), 0x5678);
    EXPECT_EQ(fgetmi4(f.get(), 0), 0x9AFFFFFFu);
    rewind(f.get());
    EXPECT_EQ(fgetm4(f.get()), 0x12345678u);
    EXPECT_EQ(fgetmi4(f.get(), LV_ORDER_INTEL), 0xFFFFFF9Au);
    EXPECT_EQ(fgetmi2(f.get(), LV_ORDER_INTEL), 0xFFFF);
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
    EXPECT_EQ(info.exposureTime, 0.0f);
    EXPECT_EQ(info.focalPlaneResUnit, 0);
    EXPECT_EQ(info.extraWords[4], 0);
    EXPECT_EQ(info.gpsDate[10], 0);
    EXPECT_EQ(info.extraFlagB, 0);
}

} // namespace
