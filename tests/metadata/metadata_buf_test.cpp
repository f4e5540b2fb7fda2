// The rational form for the Radiance writer, and folding a bracket's metadata.
#include <gtest/gtest.h>
#include <lumivantor/metadata.h>

#include <climits>
#include <cstring>

namespace {

ExifInfo record() {
    ExifInfo info;
    std::memset(&info, 0, sizeof info);
    return info;
}

MetadataBuf filled_meta() {
    MetadataBuf m;
    std::memset(&m, 0x11, sizeof m); // pairs that a value can't convert keep this
    return m;
}

TEST(RationalForm, TwoDecimalsAboveOneAndHundredthsBelow) {
    ExifInfo info = record();
    info.exposureTime = 0.125f;
    info.fNumber = 2.5f;
    info.focalLength = 4.25f;
    info.focalPlaneXRes = 0.0f;
    MetadataBuf m = filled_meta();
    EXPECT_EQ(metadataBufFromExifInfo(&info, &m, nullptr), 100);
    EXPECT_EQ(m.shutterNum, 100);
    EXPECT_EQ(m.shutterDen, 800);
    EXPECT_EQ(m.apertureNum, 250);
    EXPECT_EQ(m.apertureDen, 100);
    EXPECT_EQ(m.focalNum, 425);
    EXPECT_EQ(m.focalDen, 100);
    EXPECT_EQ(m.focalPlaneXResNum, 0x11111111); // zero: the pair stays as it was
    EXPECT_EQ(m.focalPlaneXResDen, 0x11111111);
}

TEST(RationalForm, TruncationKeepsTheFloatsOwnError) {
    // 1/250 s is stored a hair above 0.004 and f/1.8 a hair below 1.8: both truncate down.
    ExifInfo info = record();
    info.exposureTime = 1.0f / 250;
    info.fNumber = 1.8f;
    info.focalLength = -3.0f;
    info.focalPlaneXRes = 1e30f;
    MetadataBuf m = filled_meta();
    EXPECT_EQ(metadataBufFromExifInfo(&info, &m, nullptr), 100);
    EXPECT_EQ(m.shutterDen, 24999);
    EXPECT_EQ(m.apertureNum, 179);
    EXPECT_EQ(m.focalNum, 0x11111111);         // negative: unchanged
    EXPECT_EQ(m.focalPlaneXResNum, INT32_MAX); // beyond int32: held at its end
    info.exposureTime = 1e-12f;
    metadataBufFromExifInfo(&info, &m, nullptr);
    EXPECT_EQ(m.shutterDen, INT32_MAX);
}

TEST(RationalForm, CopiesTheOtherFieldsAndTheGpsPart) {
    ExifInfo info = record();
    info.isoSpeed = 640;
    info.descriptionKind = 2;
    info.focal35mm = 28;
    info.focalPlaneResUnit = 3;
    for (int i = 0; i < 5; ++i)
        info.extraWords[i] = 10 + i;
    info.extraFlagA = 7;
    info.extraFlagB = 8;
    std::strcpy(info.camera, "Camera");
    std::strcpy(info.captureDate, "2023:03:28 01:33:26");
    info.gpsLatitudeRef = 'N';
    info.gpsLongitudeRef = 'E';
    info.gpsAltitudeRef = 1;
    for (int i = 0; i < 6; ++i) {
        info.gpsLatitude[i] = 100u + i;
        info.gpsLongitude[i] = 200u + i;
        info.gpsTime[i] = 300u + i;
    }
    info.gpsAltitude[0] = 35;
    info.gpsAltitude[1] = 1;
    std::strcpy(info.gpsDate, "2024:05:17");

    MetadataBuf m = filled_meta();
    MetadataGps gps;
    std::memset(&gps, 0, sizeof gps);
    metadataBufFromExifInfo(&info, &m, &gps);
    EXPECT_EQ(m.iso, 640);
    EXPECT_EQ(m.descriptionKind, 2);
    EXPECT_EQ(m.focal35mm, 28);
    EXPECT_EQ(m.focalPlaneResUnit, 3);
    const int32_t words[5] = {11, 10, 14, 13, 12};
    EXPECT_EQ(0, std::memcmp(m.extraWords, words, sizeof words));
    EXPECT_EQ(m.extraFlags[0], 8);
    EXPECT_EQ(m.extraFlags[1], 7);
    EXPECT_EQ(m.colorProfile, 0x11111111); // set by the Radiance reader, not here
    EXPECT_STREQ(m.camera, "Camera");
    EXPECT_STREQ(m.captureDate, "2023:03:28 01:33:26");
    EXPECT_EQ(gps.latitude[5], 105u);
    EXPECT_EQ(gps.longitude[0], 200u);
    EXPECT_EQ(gps.time[2], 302u);
    EXPECT_EQ(gps.altitude[0], 35u);
    EXPECT_EQ(gps.latitudeRef, 'N');
    EXPECT_EQ(gps.longitudeRef, 'E');
    EXPECT_EQ(gps.altitudeRef, 1);
    EXPECT_STREQ(gps.date, "2024:05:17");
}

TEST(BracketFold, KeepsOnlyWhatEveryFrameShares) {
    MetadataBuf frames[3];
    std::memset(frames, 0, sizeof frames);
    const int32_t shutter_dens[3] = {250, 60, 15};
    for (int i = 0; i < 3; ++i) {
        frames[i].shutterNum = 1;
        frames[i].shutterDen = shutter_dens[i];
        frames[i].apertureNum = 180;
        frames[i].apertureDen = 100;
        frames[i].iso = 1000;
        frames[i].focalNum = 425 + i; // not folded
    }
    MetadataBuf folded = frames[0];
    for (const MetadataBuf &f : frames)
        EXPECT_EQ(constant_exif(&folded, &f), 1);
    EXPECT_EQ(folded.shutterNum, 0);
    EXPECT_EQ(folded.shutterDen, 0);
    EXPECT_EQ(folded.apertureNum, 180);
    EXPECT_EQ(folded.apertureDen, 100);
    EXPECT_EQ(folded.iso, 1000);
    EXPECT_EQ(folded.focalNum, 425);

    frames[2].apertureDen = 10; // 18/10 is the same f-number but not the same pair
    frames[2].iso = 800;
    constant_exif(&folded, &frames[2]);
    EXPECT_EQ(folded.apertureNum, 0);
    EXPECT_EQ(folded.iso, 0);
}

} // namespace
