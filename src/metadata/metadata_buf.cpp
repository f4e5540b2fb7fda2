// The rational form of capture metadata that the Radiance writer takes, and the fold over
// a bracket that keeps only what every frame shares.
#include <lumivantor/metadata.h>

#include <cstring>

#include "frame/rational.h"

extern "C" {

LV_API int32_t metadataBufFromExifInfo(const ExifInfo *info, MetadataBuf *meta, MetadataGps *gps) {
    if (!info || !meta) return 0;
    lv::to_rational(info->exposureTime, &meta->shutterNum, &meta->shutterDen);
    lv::to_rational(info->fNumber, &meta->apertureNum, &meta->apertureDen);
    lv::to_rational(info->focalLength, &meta->focalNum, &meta->focalDen);
    lv::to_rational(info->focalPlaneXRes, &meta->focalPlaneXResNum, &meta->focalPlaneXResDen);
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
