// The host-side walker on built files, hostile files and the night bracket.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "exif_walk.h"
#include "tiff_builder.h"

using lvtest::Dir;

namespace {

TEST(Walker, FindsTheDirectoriesOfTiffsAndJpegsInEitherOrderFromMemoryOrDisk) {
    for (bool little : {true, false}) {
        Dir exif(little), gps(little);
        exif.rational(33434, 1, 60).rationals(33437, {{8, 1}}).short_value(34855, 400);
        gps.letter(1, 'N').rationals(2, {{45, 1}, {30, 1}, {0, 1}});
        const auto tiff = lvtest::tiff_file(little, &exif, &gps);
        const auto jpeg = lvtest::jpeg_file(tiff);
        for (const auto *file : {&tiff, &jpeg}) {
            lvtool::ExifLayout layout;
            ASSERT_TRUE(lvtool::find_exif_layout(file->data(), file->size(), &layout));
            EXPECT_EQ(layout.order, little ? LV_ORDER_INTEL : lvtool::kOrderMotorola);
            EXPECT_EQ(layout.base, file == &tiff ? 0 : 21);

            ExifInfo info, from_disk;
            ASSERT_TRUE(lvtool::read_exif_memory(file->data(), file->size(), &info));
            EXPECT_FLOAT_EQ(info.exposureTime, 1.0f / 60);
            EXPECT_FLOAT_EQ(info.fNumber, 8.0f);
            EXPECT_EQ(info.isoSpeed, 400);
            EXPECT_STREQ(info.camera, "Test Camera");
            EXPECT_EQ(info.gpsLatitudeRef, 'N');
            EXPECT_EQ(info.gpsLatitude[2], 30u);

            const std::string path = ::testing::TempDir() + "lv_walk_built.bin";
            std::ofstream(path, std::ios::binary)
                .write(reinterpret_cast<const char *>(file->data()), std::streamsize(file->size()));
            ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &from_disk));
            EXPECT_EQ(0, std::memcmp(&info, &from_disk, sizeof info));
            std::remove(path.c_str());
        }
    }
}

TEST(Walker, CutMalformedAndSelfPointingFilesEndInBoundedTime) {
    Dir exif(false);
    exif.rational(33434, 1, 60).short_value(34855, 400);
    const auto jpeg = lvtest::jpeg_file(lvtest::tiff_file(false, &exif, &exif));
    ExifInfo info;
    for (size_t cut = 0; cut < jpeg.size(); ++cut)
        lvtool::read_exif_memory(jpeg.data(), cut, &info);

    // APP0 length below 2, APP0 running far past the end, no TIFF byte order mark.
    for (auto [at, value] : {std::pair{5, 1}, {4, 0xFF}, {21, 'X'}}) {
        auto bad = jpeg;
        bad[size_t(at)] = uint8_t(value);
        EXPECT_FALSE(lvtool::read_exif_memory(bad.data(), bad.size(), &info)) << at;
    }
    // The first directory at the TIFF header itself, 4 GB away, or pointing the EXIF
    // directory past the end: found, with nothing read.
    for (uint32_t offset : {0u, 0xFFFFFFF0u, 1u}) {
        auto tiff = lvtest::tiff_file(true, &exif, nullptr);
        if (offset == 1)
            std::memset(&tiff[30], 0x7F, 4); // value of the EXIF pointer entry
        else
            std::memcpy(&tiff[4], &offset, 4);
        EXPECT_TRUE(lvtool::read_exif_memory(tiff.data(), tiff.size(), &info));
        EXPECT_EQ(info.isoSpeed, 0);
    }
    std::vector<uint8_t> fill(1 << 16, 0xFF); // fill bytes where markers should be
    fill[1] = 0xD8;
    EXPECT_FALSE(lvtool::read_exif_memory(fill.data(), fill.size(), &info));
    EXPECT_FALSE(lvtool::read_exif_file("/nonexistent/lv.jpg", &info));
}

TEST(NightBracket, ExposuresReadFromTheCameraFilesStepByTwoStops) {
    const auto night = std::filesystem::path(LV_DATA_DIR) / "night";
    if (!std::filesystem::exists(night))
        GTEST_SKIP() << "sample photographs not found in " << night;
    const std::pair<const char *, float> frames[] = {{"IMG_3869", 1.0f / 250},
                                                     {"IMG_3871", 1.0f / 59},
                                                     {"IMG_3873", 1.0f / 15},
                                                     {"IMG_3875", 1.0f / 4},
                                                     {"IMG_3877", 1.0f}};
    for (const char *size : {"small", "full"}) {
        double previous = 0.0;
        for (auto [name, exposure] : frames) {
            auto path = night / size / name;
            path += std::filesystem::exists(path.string() + ".jpg") ? ".jpg" : ".jpeg";
            SCOPED_TRACE(path.string());
            ExifInfo info;
            ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &info));
            EXPECT_FLOAT_EQ(info.exposureTime, exposure);
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
            if (previous > 0.0) {
                EXPECT_NEAR(factor / previous, 4.0, 0.4);
            }
            previous = factor;
        }
    }
}

} // namespace
