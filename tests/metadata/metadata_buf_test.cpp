// The rational form for the Radiance writer, and folding a bracket's metadata.
#include <gtest/gtest.h>
#include <lumivantor/metadata.h>

#include <climits>
#include <cstring>

namespace {

TEST(RationalForm, TwoDecimalsAboveOneHundredthsBelowSpareWordsReorderedAndGpsCarried) {
    ExifInfo info{};
    info.exposureTime = 0.125f;
    info.fNumber = 1.8f; // stored a hair below 1.8, still f/1.8
    info.focalLength = -3.0f;
    info.focalPlaneXRes = 1e30f;
    for (int i = 0; i < 5; ++i)
        info.extraWords[i] = 10 + i;
    info.extraFlagA = 7;
    info.extraFlagB = 8;
    info.isoSpeed = 640;
    std::strcpy(info.captureDate, "2023:03:28 01:33:26");
    info.gpsAltitudeRef = 1;
    std::strcpy(info.gpsDate, "2024:05:17");
    MetadataBuf m;
    MetadataGps gps;
    std::memset(&m, 0x11, sizeof m); // pairs that a value can't convert keep this
    EXPECT_EQ(metadataBufFromExifInfo(&info, &m, &gps), 100);
    EXPECT_EQ(m.shutterDen, 800);
    EXPECT_EQ(m.apertureNum, 180);
    EXPECT_EQ(m.apertureDen, 100);
    EXPECT_EQ(m.focalNum, 0x11111111);         // negative: unchanged
    EXPECT_EQ(m.focalPlaneXResNum, INT32_MAX); // beyond int32: held at its end
    const int32_t words[5] = {11, 10, 14, 13, 12}, flags[2] = {8, 7};
    EXPECT_EQ(0, std::memcmp(m.extraWords, words, sizeof words));
    EXPECT_EQ(0, std::memcmp(m.extraFlags, flags, sizeof flags));
    EXPECT_EQ(m.iso, 640);
    EXPECT_STREQ(m.captureDate, "2023:03:28 01:33:26");
    EXPECT_EQ(gps.altitudeRef, 1);
    EXPECT_STREQ(gps.date, "2024:05:17");

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

} // namespace
