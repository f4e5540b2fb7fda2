// Files that exiftool wrote, read back through the host-side walker and the library's
// directory walks; and a composed copy command run for real.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "exif_walk.h"
#include "metadata/copy_commands.h"

namespace {

// The files come from the metadata_exiftool_files step, which ctest runs first and whose
// folder it passes in LV_EXIF_FILES, with the tool's path in LV_EXIFTOOL.
class ExiftoolFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!std::getenv("LV_EXIF_FILES") || !std::getenv("LV_EXIFTOOL"))
            GTEST_SKIP() << "run through ctest's metadata_exiftool_readback";
        dir_ = std::getenv("LV_EXIF_FILES");
    }
    std::filesystem::path dir_;
};

void expect_rationals(const uint32_t *pairs, std::initializer_list<double> values) {
    for (double v : values) {
        ASSERT_GT(pairs[1], 0u);
        EXPECT_DOUBLE_EQ(double(pairs[0]) / pairs[1], v);
        pairs += 2;
    }
}

TEST_F(ExiftoolFiles, ReadBackTheValuesTheToolWrote) {
    std::ifstream manifest(dir_ / "manifest.tsv");
    ASSERT_TRUE(manifest) << "no manifest in " << dir_;
    std::string line;
    int files = 0;
    while (std::getline(manifest, line)) {
        std::istringstream row(line);
        std::string name;
        double exposure = 0, fnumber = 0;
        int iso = 0;
        row >> name >> exposure >> fnumber >> iso;
        const std::string path = (dir_ / name).string();
        SCOPED_TRACE(path);
        ++files;

        lvtool::ExifLayout layout;
        FILE *f = fopen(path.c_str(), "rb");
        ASSERT_NE(f, nullptr);
        EXPECT_TRUE(lvtool::find_exif_layout(f, &layout));
        fclose(f);
        EXPECT_EQ(layout.order,
                  name.rfind("le.", 0) == 0 ? LV_ORDER_INTEL : lvtool::kOrderMotorola);

        ExifInfo info;
        ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &info));
        EXPECT_NEAR(info.exposureTime, exposure, exposure * 1e-5);
        EXPECT_NEAR(info.fNumber, fnumber, fnumber * 1e-5);
        EXPECT_EQ(info.isoSpeed, iso);
        EXPECT_STREQ(info.captureDate, "2024:05:17 10:20:30");
        EXPECT_STREQ(info.camera, "Fixture Cam");
        EXPECT_FLOAT_EQ(info.focalLength, 35.0f);
        EXPECT_EQ(info.focal35mm, 52);
        EXPECT_FLOAT_EQ(info.focalPlaneXRes, 4000.0f);
        EXPECT_EQ(info.focalPlaneResUnit, 3);

        EXPECT_EQ(info.gpsLatitudeRef, 'N');
        EXPECT_EQ(info.gpsLongitudeRef, 'W');
        EXPECT_EQ(info.gpsAltitudeRef, 1);
        expect_rationals(info.gpsLatitude, {48, 51, 24});
        expect_rationals(info.gpsLongitude, {2, 21, 8});
        expect_rationals(info.gpsTime, {12, 34, 56});
        expect_rationals(info.gpsAltitude, {35});
        EXPECT_STREQ(info.gpsDate, "2024:05:17");
    }
    EXPECT_EQ(files, 5);
}

TEST_F(ExiftoolFiles, ComposedCopyCommandCarriesExposureToAnotherFile) {
    const auto target = std::filesystem::path(::testing::TempDir()) / "lv_copy_target.tif";
    std::filesystem::copy_file(dir_ / "be.tif", target,
                               std::filesystem::copy_options::overwrite_existing);
    const std::string source = (dir_ / "le.jpg").string();
    const std::string cmd = lv::compose_copy_metadata(
        source.c_str(), target.c_str(), std::getenv("LV_EXIFTOOL"), "", "lumivantor test", 0, 1);
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    ExifInfo info;
    ASSERT_TRUE(lvtool::read_exif_file(target.c_str(), &info));
    EXPECT_FLOAT_EQ(info.exposureTime, 1.0f / 125);
    EXPECT_FLOAT_EQ(info.fNumber, 5.6f);
    EXPECT_EQ(info.isoSpeed, 400);
    std::filesystem::remove(target);
}

} // namespace
