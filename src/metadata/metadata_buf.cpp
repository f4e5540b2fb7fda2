// The rational form of capture metadata that the Radiance writer takes, and the fold over
// a bracket that keeps only what every frame shares.
#include <lumivantor/metadata.h>

#include <charconv>
#include <cstring>

#include "metadata/saturate.h"

namespace {

// The value a camera meant by a float: its shortest decimal form, read as a double. A float
// holds 1/250 s a hair above 0.004 and f/1.8 a hair below 1.8; truncating those binary
// errors would write 100/24999 and 179/100 into the file instead of 100/25000 and 180/100.
double decimal_value(float value) {
    char text[32];
    const auto written = std::to_chars(text, text + sizeof text, value);
    double v = value;
    std::from_chars(text, written.ptr, v);
    return v;
}

// Two decimals for values of 1 and more (f/2 -> 200/100); values below 1 keep a numerator
// of 100 (1/8 s -> 100/800). Zero, negative and NaN leave the pair alone.
void to_rational(float value, int32_t *num, int32_t *den) {
    if (!(value > 0.0f)) return;
    const double v = decimal_value(value);
    if (v >= 1.0) {
        *num = lv::saturate_i32(100.0 * v);
        *den = 100;
    } else if (v > 0.0) {
        *num = 100;
        *den = lv::saturate_i32(100.0 / v);
    }
}

} // namespace

extern "C" {

LV_API int32_t metadataBufFromExifInfo(const ExifInfo *info, MetadataBuf *meta, MetadataGps *gps) {
    if (!info || !meta) return 0;
    to_rational(info->exposureTime, &meta->shutterNum, &meta->shutterDen);
    to_rational(info->fNumber, &meta->apertureNum, &meta->apertureDen);
    to_rational(info->focalLength, &meta->focalNum, &meta->focalDen);
    to_rational(info->focalPlaneXRes, &meta->focalPlaneXResNum, &meta->focalPlaneXResDen);
    meta->iso = info->isoSpeed;
    meta->descriptionKind = info->descriptionKind;
    meta->focal35mm = info->focal35mm;
    meta->focalPlaneResUnit = info->focalPlaneResUnit;
    // The spare words travel in the order the Radiance record keeps them.
    meta->extraWords[0] = info->extraWords[1];
    meta->extraWords[1] = info->extraWords[0];
    meta->extraWords[2] = info->extraWords[4];
    meta->extraWords[3] = info->extraWords[3];
    meta->extraWords[4] = info->extraWords[2];
    meta->extraFlags[0] = info->extraFlagB;
    meta->extraFlags[1] = info->extraFlagA;
    std::memcpy(meta->camera, info->camera, sizeof meta->camera);
    std::memcpy(meta->captureDate, info->captureDate, sizeof meta->captureDate);
    if (gps) {
        std::memcpy(gps->latitude, info->gpsLatitude, sizeof gps->latitude);
        std::memcpy(gps->longitude, info->gpsLongitude, sizeof gps->longitude);
        std::memcpy(gps->altitude, info->gpsAltitude, sizeof gps->altitude);
        std::memcpy(gps->time, info->gpsTime, sizeof gps->time);
        gps->latitudeRef = info->gpsLatitudeRef;
        gps->longitudeRef = info->gpsLongitudeRef;
        gps->altitudeRef = info->gpsAltitudeRef;
        std::memcpy(gps->date, info->gpsDate, sizeof gps->date);
    }
    return meta->shutterNum;
}

LV_API int constant_exif(MetadataBuf *a, const MetadataBuf *b) {
    if (!a || !b) return 1;
    if (a->shutterNum != b->shutterNum || a->shutterDen != b->shutterDen)
        a->shutterNum = a->shutterDen = 0;
    if (a->apertureNum != b->apertureNum || a->apertureDen != b->apertureDen)
        a->apertureNum = a->apertureDen = 0;
    if (a->iso != b->iso) a->iso = 0;
    return 1;
}

} // extern "C"
