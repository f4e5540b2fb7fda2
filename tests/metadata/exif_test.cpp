// EXIF directory walks through the library and the host-side walker: the rules between
// tags, hostile files built byte by byte, and the night bracket.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "exif_walk.h"
#include "tiff_builder.h"

using lvtest::Dir;

namespace {

TEST(DirectoryWalkRules, FNumberWinsAndApexValuesOnlyFillWhatIsMissing) {
    Dir before(false), after(false), apex(false), both(true);
    EXPECT_FLOAT_EQ(before.rational(37378, 297, 100).rational(33437, 56, 10).walk().fNumber, 5.6f);
    EXPECT_FLOAT_EQ(after.rational(33437, 56, 10).rational(37381, 297, 100).walk().fNumber, 5.6f);

    // Without an f-number the first APEX aperture stands unconverted; the APEX shutter
    // gives 2^-v; the exposure index fills the ISO by integer division.
    apex.rational(37381, 297, 100).rational(37378, 500, 100).rational(37377, 5907, 1000);
    apex.rationals(41493, {{6400, 10}});
    ExifInfo info = apex.walk();
    EXPECT_FLOAT_EQ(info.fNumber, 2.97f);
    EXPECT_NEAR(info.exposureTime, 1.0 / 60.0, 1e-5);
    EXPECT_EQ(info.isoSpeed, 640);

    // Exposure time and ISO given outright win over the APEX shutter and exposure index.
    both.rational(37377, 5907, 1000).rational(33434, 1, 8).short_value(34855, 100);
    info = both.rationals(41493, {{800, 1}}).walk();
    EXPECT_FLOAT_EQ(info.exposureTime, 0.125f);
    EXPECT_EQ(info.isoSpeed, 100);
}

// A hostile file through the walker, which hands its directories to both library walks:
// it must end in bounded time, within bounds, with the record's strings terminated.
void expect_hostile(const char *what, const std::vector<uint8_t> &file, bool found,
                    float exposure = 0, int iso = 0) {
    SCOPED_TRACE(what);
    ExifInfo info;
    EXPECT_EQ(lvtool::read_exif_memory(file.data(), file.size(), &info), found);
    if (!found) return;
    EXPECT_FLOAT_EQ(info.exposureTime, exposure);
    EXPECT_EQ(info.fNumber, 0.0f);
    EXPECT_EQ(info.isoSpeed, iso);
    EXPECT_EQ(info.captureDate[19], 0);
    EXPECT_LE(strnlen(info.gpsDate, sizeof info.gpsDate), 10u);
}

TEST(HostileFiles, LyingCountsOffsetsSelfPointersHugeSizesAndCutsStayInBounds) {
    using Bytes = std::vector<uint8_t>;
    const auto patch = [](Bytes file, size_t at, std::initializer_list<uint8_t> b) {
        std::copy(b.begin(), b.end(), file.begin() + long(at));
        return file;
    };
    Dir exif(true), lies(false), gps_lies(false), zero_den(false);
    exif.rational(33434, 1, 30).short_value(34855, 200).ascii(36867, "2021:07:04 18:30:59");
    lies.raw(33434, 5, 1, 0xFFFFFFF0u).raw(37386, 5, 1, 0).raw(36867, 2, 0xFFFFFFFFu, 2);
    gps_lies.raw(2, 5, 0xFFFFFFFFu, 0xFFFFFFF0u).raw(29, 2, 0xFFFFFFFFu, 0).raw(6, 5, 1, 2);
    zero_den.rational(33434, 1, 0).rational(33437, 5, -2).short_value(34855, 200);
    const Bytes tiff = lvtest::tiff_file(true, &exif, nullptr), jpeg = lvtest::jpeg_file(tiff);
    expect_hostile("entry count of 65535, three present", patch(tiff, 50, {0xFF, 0xFF}), true,
                   1.0f / 30, 200);
    expect_hostile("value offsets near 4 GB, counts of 4 G",
                   lvtest::tiff_file(false, &lies.short_value(34855, 200), &gps_lies), true, 0,
                   200);
    expect_hostile("zero and negative denominators", lvtest::tiff_file(false, &zero_den, nullptr),
                   true, 0, 200);
    expect_hostile("first directory at the TIFF header", patch(tiff, 4, {0, 0, 0, 0}), true);
    expect_hostile("first directory 4 GB away", patch(tiff, 4, {0xF0, 0xFF, 0xFF, 0xFF}), true);
    expect_hostile("EXIF pointer past the end", patch(tiff, 30, {0x7F, 0x7F, 0x7F, 0x7F}), true);
    expect_hostile("EXIF pointer at the first directory", patch(tiff, 30, {8, 0, 0, 0}), true);
    expect_hostile("GPS pointer at the EXIF directory", lvtest::tiff_file(true, &exif, &exif), true,
                   1.0f / 30, 200);
    expect_hostile("APP0 length below 2", patch(jpeg, 5, {1}), false);
    expect_hostile("APP0 running far past the end", patch(jpeg, 4, {0xFF}), false);
    expect_hostile("no TIFF byte order mark", patch(jpeg, 21, {'X'}), false);
    expect_hostile("fill bytes where markers should be", patch(Bytes(1 << 16, 0xFF), 1, {0xD8}),
                   false);
    ExifInfo info;
    const Bytes cut_me = lvtest::jpeg_file(lvtest::tiff_file(false, &exif, &exif));
    for (size_t cut = 0; cut < cut_me.size(); ++cut) {
        lvtool::read_exif_memory(cut_me.data(), cut, &info);
        EXPECT_EQ(info.captureDate[19], 0) << "cut at " << cut;
    }
    EXPECT_FALSE(lvtool::read_exif_file("/nonexistent/lv.jpg", &info));
    // A negative base puts every offset out of reach; values kept in entries still count.
    info = exif.walk(-1000);
    EXPECT_EQ(info.exposureTime, 0.0f);
    EXPECT_EQ(info.isoSpeed, 200);
}

TEST(NightBracket, ExposuresReadFromTheCameraFilesStepByTwoStops) {
    const auto night = std::filesystem::path(LV_DATA_DIR) / "night";
    if (!std::filesystem::exists(night))
        GTEST_SKIP() << "sample photographs not found in " << night;
    const char *names[] = {"IMG_3869", "IMG_3871", "IMG_3873", "IMG_3875", "IMG_3877"};
    const float times[] = {1.0f / 250, 1.0f / 59, 1.0f / 15, 1.0f / 4, 1.0f};
    for (const char *size : {"small", "full"}) {
        double previous = 0.0;
        for (int i = 0; i < 5; ++i) {
            auto path = night / size / names[i];
            path += std::filesystem::exists(path.string() + ".jpg") ? ".jpg" : ".jpeg";
            SCOPED_TRACE(path.string());
            ExifInfo info;
            ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &info));
            EXPECT_FLOAT_EQ(info.exposureTime, times[i]);
            EXPECT_FLOAT_EQ(info.fNumber, 1.8f);
            EXPECT_EQ(info.isoSpeed, 1000);

            // The merge's exposure factor is t * S / N^2 from the rational form, times a
            // constant that cancels in the ratio of neighbours.
            MetadataBuf meta;
            ASSERT_TRUE(lvtool::read_metadata_file(path.c_str(), &meta, nullptr));
            float r[7];
            lvtool::exposure_record(meta, r);
            const double n = double(r[2]) / r[3];
            const double factor = double(r[0]) / r[1] * r[5] / (n * n);
            EXPECT_NEAR(previous > 0.0 ? factor / previous : 4.0, 4.0, 0.4);
            previous = factor;
        }
    }
}

} // namespace
