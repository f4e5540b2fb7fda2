// Files that exiftool wrote, read back through the host-side walker and the library's
// directory walks; and a composed copy command run for real.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "exif_walk.h"
#include "metadata/copy_commands.h"

namespace {

// Files made by the metadata_exiftool_files test step, which ctest runs first and whose
// folder it passes in LV_EXIF_FILES.
class ExiftoolFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        const char *dir = std::getenv("LV_EXIF_FILES");
        if (!dir)
            GTEST_SKIP() << "LV_EXIF_FILES not set: run through ctest's metadata_exiftool_readback";
        dir_ = dir;
    }
    std::filesystem::path dir_;
};

void expect_ratio(const uint32_t *pair, double value) {
    ASSERT_GT(pair[1], 0u);
    EXPECT_NEAR(double(pair[0]) / pair[1], value, 1e-9);
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

        ExifInfo info;
        ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &info));
        lvtool::ExifLayout layout;
        FILE *f = fopen(path.c_str(), "rb");
        ASSERT_NE(f, nullptr);
        lvtool::find_exif_layout(f, &layout);
        fclose(f);
        EXPECT_EQ(layout.order,
                  name.rfind("le.", 0) == 0 ? LV_ORDER_INTEL : lvtool::kOrderMotorola);

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
        const double lat[3] = {48, 51, 24}, lon[3] = {2, 21, 8}, time[3] = {12, 34, 56};
        for (int k = 0; k < 3; ++k) {
            expect_ratio(info.gpsLatitude + 2 * k, lat[k]);
            expect_ratio(info.gpsLongitude + 2 * k, lon[k]);
            expect_ratio(info.gpsTime + 2 * k, time[k]);
        }
        expect_ratio(info.gpsAltitude, 35);
        EXPECT_STREQ(info.gpsDate, "2024:05:17");
    }
    EXPECT_EQ(files, 5);
}

TEST_F(ExiftoolFiles, ComposedCopyCommandCarriesExposureToAnotherFile) {
    const char *tool = std::getenv("LV_EXIFTOOL");
    if (!tool) GTEST_SKIP() << "LV_EXIFTOOL not set";
    const auto target = std::filesystem::path(::testing::TempDir()) / "lv_copy_target.tif";
    std::filesystem::copy_file(dir_ / "be.tif", target,
                               std::filesystem::copy_options::overwrite_existing);
    const std::string source = (dir_ / "le.jpg").string();
    const std::string cmd = lv::compose_copy_metadata(source.c_str(), target.c_str(), tool, "",
                                                      "lumivantor test", 0, 1);
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
    ExifInfo info;
    ASSERT_TRUE(lvtool::read_exif_file(target.c_str(), &info));
    EXPECT_FLOAT_EQ(info.exposureTime, 1.0f / 125);
    EXPECT_FLOAT_EQ(info.fNumber, 5.6f);
    EXPECT_EQ(info.isoSpeed, 400);
    std::filesystem::remove(target);
}

} // namespace
