// TEMPORARY stand-in declarations until the merge, Radiance, tone-map and metadata
// families land on main; removed once their public headers exist.
#pragma once
#include <lumivantor/frame.h>
#include <lumivantor/fileio.h>

LV_EXTERN_C_BEGIN
typedef struct ExifInfo {
    int32_t descriptionKind;
    float exposureTime;
    float fNumber;
    int32_t isoSpeed;
    int32_t unused4;
    float focalLength;
    int32_t focal35mm;
    float focalPlaneXRes;
    int32_t focalPlaneResUnit;
    char camera[64];
    char spare1;
    char captureDate[20];
    char spare2[15];
    int32_t extraWords[5];
    uint8_t gpsLatitudeRef;
    uint32_t gpsLatitude[6];
    uint8_t gpsLongitudeRef;
    uint32_t gpsLongitude[6];
    uint8_t gpsAltitudeRef;
    uint32_t gpsAltitude[2];
    uint32_t gpsTime[6];
    char gpsDate[11];
    int32_t extraFlagA, extraFlagB;
} ExifInfo;
typedef struct MetadataGps MetadataGps;
LV_API int32_t metadataBufFromExifInfo(const ExifInfo *info, MetadataBuf *meta, MetadataGps *gps);
LV_API int constant_exif(MetadataBuf *a, const MetadataBuf *b);

LV_API int get_ev(int n, float *records);
LV_API int lv_hdr_merge(LvProgressCallback progress, int mode, int n, int width, int height,
                        int samples, int bits, int gammaMode, float step, float *curve,
                        float *exposures, const void *images, float *stats, unsigned char *out);
LV_API int lv_io_rgbe_write(const char *path, int width, int height, const MetadataBuf *meta,
                            int ignored, const char *profileName, const unsigned char *pixels);
LV_API int lv_io_read_rgbe(int width, int height, const char *path, unsigned char *pixels);
LV_API int rgbe_dim(const char *path, float *primaries, ImageFileInfo *info);
LV_API int extract_rgbe_exif(const char *path, MetadataBuf *meta);
LV_API int tm_simple(DimParam dim, float *p, unsigned char *mask, float *lumStats,
                     float *expTable, int *numThreads, unsigned char *input,
                     unsigned char *output);
LV_EXTERN_C_END
