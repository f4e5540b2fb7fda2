// Files that exiftool writes, read back through the host-side walker and the library's
// directory walks.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "exif_walk.h"
#include "metadata/tiff_builder.h"

namespace {

namespace fs = std::filesystem;

const std::string kCommonTags =
    " -DateTimeOriginal='2024:05:17 10:20:30' -FocalLength=35 -FocalLengthIn35mmFormat=52"
    " -FocalPlaneXResolution=4000 -FocalPlaneResolutionUnit#=3 -Model='Fixture Cam'"
    " -GPSLatitude='48 51 24' -GPSLatitudeRef=N -GPSLongitude='2 21 8' -GPSLongitudeRef=W"
    " -GPSAltitude=35 -GPSAltitudeRef#=1 -GPSTimeStamp=12:34:56 -GPSDateStamp=2024:05:17 ";

// A bare TIFF, or a JPEG around one, in the given byte order, with the tool's tags put in
// (codes as stored numbers with "#=", readable values through the tool's conversion).
fs::path tool_written(const std::string &name, bool little, bool jpeg, const std::string &tags) {
    const fs::path path = fs::path(::testing::TempDir()) / name;
    auto bytes = lvtest::tiff_file(little, nullptr, nullptr);
    if (jpeg) bytes = lvtest::jpeg_file(bytes);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), std::streamsize(bytes.size()));
    const std::string cmd = std::string(std::getenv("LV_EXIFTOOL")) + " -q -overwrite_original" +
                            kCommonTags + tags + " \"" + path.string() + "\"";
    return std::system(cmd.c_str()) == 0 ? path : fs::path();
}

TEST(Exiftool, ValuesItWroteReadBackFromJpegsAndTiffsOfBothByteOrders) {
    if (!std::getenv("LV_EXIFTOOL")) GTEST_SKIP() << "run through ctest, which finds exiftool";
    const struct {
        const char *name, *tags;
        bool little, jpeg;
        double exposure, fnumber;
        int iso;
    } files[] = {
        {"le.jpg", "-ExposureTime=1/125 -FNumber=5.6 -ISO=400", true, true, 1.0 / 125, 5.6, 400},
        {"be.jpg", "-ExposureTime=2.5 -FNumber=11 -ISO=3200", false, true, 2.5, 11.0, 3200},
        {"le.tif", "-ExposureTime=1/4000 -FNumber=1.4 -ISO=100", true, false, 1.0 / 4000, 1.4, 100},
        {"be.tif", "-ExposureTime=1/30 -FNumber=8 -ISO=800", false, false, 1.0 / 30, 8.0, 800},
        // Only APEX values: the exposure comes back from the shutter value, and the aperture
        // value stays the APEX number it is.
        {"apex.tif", "-ShutterSpeedValue=1/60 -ApertureValue=2.8 -ISO=200", false, false, 1.0 / 60,
         2 * std::log2(2.8), 200},
    };
    for (const auto &c : files) {
        const std::string path = tool_written(c.name, c.little, c.jpeg, c.tags).string();
        ASSERT_FALSE(path.empty()) << c.name;
        SCOPED_TRACE(path);
        lvtool::ExifLayout layout;
        const std::unique_ptr<FILE, int (*)(FILE *)> f(fopen(path.c_str(), "rb"), fclose);
        ASSERT_TRUE(f && lvtool::find_exif_layout(f.get(), &layout));
        EXPECT_EQ(layout.order, c.little ? LV_ORDER_INTEL : lvtool::kOrderMotorola);

        ExifInfo info;
        ASSERT_TRUE(lvtool::read_exif_file(path.c_str(), &info));
        EXPECT_NEAR(info.exposureTime, c.exposure, c.exposure * 1e-5);
        EXPECT_NEAR(info.fNumber, c.fnumber, c.fnumber * 1e-5);
        EXPECT_EQ(info.isoSpeed, c.iso);
        // The common tags: date, camera, focal lengths and plane resolution, then the GPS
        // references, and latitude, longitude, time and altitude as their rationals' numbers.
        std::ostringstream got;
        got << info.captureDate << '|' << info.camera << '|' << info.focalLength << ' '
            << info.focal35mm << ' ' << info.focalPlaneXRes << ' ' << info.focalPlaneResUnit << '|'
            << info.gpsLatitudeRef << info.gpsLongitudeRef << int(info.gpsAltitudeRef) << '|';
        for (const uint32_t *p : {info.gpsLatitude, info.gpsLongitude, info.gpsTime})
            for (int i = 0; i < 6; i += 2)
                got << double(p[i]) / p[i + 1] << ' ';
        got << double(info.gpsAltitude[0]) / info.gpsAltitude[1] << '|' << info.gpsDate;
        EXPECT_EQ(got.str(), "2024:05:17 10:20:30|Fixture Cam|35 52 4000 3|NW1|"
                             "48 51 24 2 21 8 12 34 56 35|2024:05:17");
        fs::remove(path);
    }
}

} // namespace
