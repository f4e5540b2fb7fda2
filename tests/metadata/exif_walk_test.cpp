// The host-side walker on built files, hostile files and the night bracket.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "exif_walk.h"
#include "tiff_builder.h"

using lvtest::Dir;

namespace {

Dir camera_exif(bool little) {
    Dir d(little);
    d.rational(33434, 1, 60)
        .rational(33437, 8, 1)
        .short_value(34855, 400)
        .ascii(36867, "2022:01:02 03:04:05");
    return d;
}

Dir camera_gps(bool little) {
    Dir g(little);
    g.raw(1, 2, 2, little ? 'N' : uint32_t('N') << 24).rationals(2, {{45, 1}, {30, 1}, {0, 1}}, 5);
    return g;
}

class WalkerOnBuiltFiles : public ::testing::TestWithParam<bool> {};

TEST_P(WalkerOnBuiltFiles, FindsTheDirectoriesOfTiffsAndJpegsAlike) {
    const bool little = GetParam();
    const Dir exif = camera_exif(little), gps = camera_gps(little);
    const auto tiff = lvtest::tiff_file(little, &exif, &gps);
    const auto jpeg = lvtest::jpeg_file(tiff);
    for (const auto *file : {&tiff, &jpeg}) {
        lvtool::ExifLayout layout;
        ASSERT_TRUE(lvtool::find_exif_layout(file->data(), file->size(), &layout));
        EXPECT_EQ(layout.order, little ? LV_ORDER_INTEL : lvtool::kOrderMotorola);
        EXPECT_EQ(layout.base, file == &tiff ? 0 : 21);
        EXPECT_EQ(layout.camera, "Test Camera");

        ExifInfo info;
        ASSERT_TRUE(lvtool::read_exif_memory(file->data(), file->size(), &info));
        EXPECT_FLOAT_EQ(info.exposureTime, 1.0f / 60);
        EXPECT_FLOAT_EQ(info.fNumber, 8.0f);
        EXPECT_EQ(info.isoSpeed, 400);
        EXPECT_STREQ(info.captureDate, "2022:01:02 03:04:05");
        EXPECT_STREQ(info.camera, "Test Camera");
        EXPECT_EQ(info.gpsLatitudeRef, 'N');
        EXPECT_EQ(info.gpsLatitude[2], 30u);

        // The same bytes from a file on disk read the same.
        const std::string path = ::testing::TempDir() + "lv_walk_built.bin";
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(file->data()), std::streamsize(file->size()));
        ExifInfo from_disk;
        ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &from_disk));
        EXPECT_EQ(0, std::memcmp(&info, &from_disk, sizeof info));
        std::remove(path.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(ByteOrder, WalkerOnBuiltFiles, ::testing::Values(true, false),
                         [](const auto &p) { return p.param ? "Intel" : "Motorola"; });

TEST(WalkerOnHostileFiles, CutMalformedAndSelfPointingFilesEndInBoundedTime) {
    const Dir exif = camera_exif(false), gps = camera_gps(false);
    const auto jpeg = lvtest::jpeg_file(lvtest::tiff_file(false, &exif, &gps));
    ExifInfo info;
    for (size_t cut = 0; cut < jpeg.size(); ++cut) {
        std::vector<uint8_t> part(jpeg.begin(), jpeg.begin() + long(cut));
        lvtool::read_exif_memory(part.data(), part.size(), &info);
    }

    auto bad = jpeg;
    bad[5] = 1; // APP0 length below 2
    EXPECT_FALSE(lvtool::read_exif_memory(bad.data(), bad.size(), &info));
    bad = jpeg;
    bad[4] = bad[5] = 0xFF; // APP0 running far past the end
    EXPECT_FALSE(lvtool::read_exif_memory(bad.data(), bad.size(), &info));
    bad = jpeg;
    bad[11 + 4 + 6] = 'X'; // no TIFF byte order mark
    EXPECT_FALSE(lvtool::read_exif_memory(bad.data(), bad.size(), &info));

    // The first directory pointing at the TIFF header itself, or 4 GB away.
    for (uint32_t offset : {0u, 0xFFFFFFF0u}) {
        auto tiff = lvtest::tiff_file(true, &exif, nullptr);
        std::memcpy(&tiff[4], &offset, 4);
        lvtool::ExifLayout layout;
        EXPECT_TRUE(lvtool::find_exif_layout(tiff.data(), tiff.size(), &layout));
        EXPECT_TRUE(lvtool::read_exif_memory(tiff.data(), tiff.size(), &info));
        EXPECT_EQ(info.isoSpeed, 0);
    }
    // An EXIF pointer past the end of the file is not followed.
    Dir lying(true);
    lying.raw(0x8769, 4, 1, 0x7FFFFFFF);
    auto tiff = lvtest::tiff_file(true, &exif, nullptr);
    auto head = lying.bytes(8);
    std::copy(head.begin(), head.end(), tiff.begin() + 8);
    lvtool::ExifLayout layout;
    EXPECT_TRUE(lvtool::find_exif_layout(tiff.data(), tiff.size(), &layout));
    EXPECT_EQ(layout.exif_ifd, -1);

    // Endless fill bytes in place of markers.
    std::vector<uint8_t> fill(1 << 16, 0xFF);
    fill[1] = 0xD8;
    EXPECT_FALSE(lvtool::read_exif_memory(fill.data(), fill.size(), &info));
    EXPECT_FALSE(lvtool::read_exif_memory(nullptr, 0, &info));
    EXPECT_FALSE(lvtool::read_exif_file("/nonexistent/lv.jpg", &info));
}

// t * S / N^2 for each frame, which is what ranks exposures; the constant of the merge's
// exposure factor cancels in the ratios.
double relative_exposure(const float record[7]) {
    const double t = double(int(record[0])) / int(record[1]);
    const double n = double(int(record[2])) / int(record[3]);
    return t * int(record[5]) / (n * n);
}

TEST(NightBracket, ExposuresReadFromTheCameraFilesStepByTwoStops) {
    const std::filesystem::path dir = std::filesystem::path(LV_DATA_DIR) / "night" / "small";
    if (!std::filesystem::exists(dir)) GTEST_SKIP() << "sample photographs not found in " << dir;
    struct Frame {
        const char *name;
        float exposure;
    };
    const Frame frames[] = {{"IMG_3869", 1.0f / 250},
                            {"IMG_3871", 1.0f / 59},
                            {"IMG_3873", 1.0f / 15},
                            {"IMG_3875", 1.0f / 4},
                            {"IMG_3877", 1.0f}};
    for (const char *size : {"small", "full"}) {
        double previous = 0.0;
        for (const Frame &f : frames) {
            auto path = std::filesystem::path(LV_DATA_DIR) / "night" / size / f.name;
            path += ".jpg";
            if (!std::filesystem::exists(path)) path.replace_extension(".jpeg");
            SCOPED_TRACE(path.string());
            lvtool::ExifLayout layout;
            FILE *file = fopen(path.c_str(), "rb");
            ASSERT_NE(file, nullptr);
            EXPECT_TRUE(lvtool::find_exif_layout(file, &layout));
            fclose(file);
            EXPECT_EQ(layout.order, lvtool::kOrderMotorola);

            ExifInfo info;
            ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &info));
            EXPECT_FLOAT_EQ(info.exposureTime, f.exposure);
            EXPECT_FLOAT_EQ(info.fNumber, 1.8f);
            EXPECT_EQ(info.isoSpeed, 1000);

            MetadataBuf meta;
            MetadataGps gps;
            ASSERT_TRUE(lvtool::read_metadata_file(path.c_str(), &meta, &gps));
            EXPECT_EQ(meta.iso, 1000);
            EXPECT_EQ(meta.apertureNum, 179); // f/1.8 as a float, truncated
            EXPECT_STREQ(meta.captureDate, info.captureDate);
            float record[7];
            lvtool::exposure_record(meta, record);
            const double exposure = relative_exposure(record);
            if (previous > 0.0) {
                EXPECT_GT(exposure / previous, 3.6);
                EXPECT_LT(exposure / previous, 4.4);
            }
            previous = exposure;
        }
    }
}

} // namespace
