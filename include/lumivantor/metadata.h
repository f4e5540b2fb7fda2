/*
 * lumivantor capture metadata: EXIF, GPS and IPTC blocks read byte by byte from an open
 * file, their rational form for the Radiance writer, and the command lines that would copy
 * metadata from a source photograph to a finished file.
 */
#ifndef LUMIVANTOR_METADATA_H
#define LUMIVANTOR_METADATA_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "fileio.h"

LV_EXTERN_C_BEGIN

/* Byte-order argument of the readers: "II" read as a big-endian 16-bit number. */
#define LV_ORDER_INTEL 18761

/* Capture metadata in plain numbers, filled by the directory parsers. */
typedef struct ExifInfo {
    int32_t descriptionKind; /* 2 when the camera description held a whole exposure */
    float exposureTime;      /* seconds */
    float fNumber;
    int32_t isoSpeed;
    int32_t unused4;
    float focalLength; /* millimetres */
    int32_t focal35mm;
    float focalPlaneXRes;
    int32_t focalPlaneResUnit;
    char camera[64];
    char spare1;
    char captureDate[20]; /* "YYYY:MM:DD HH:MM:SS" */
    char spare2[15];
    int32_t extraWords[5];
    uint8_t gpsLatitudeRef;
    uint32_t gpsLatitude[6]; /* three rationals: numerator, denominator */
    uint8_t gpsLongitudeRef;
    uint32_t gpsLongitude[6];
    uint8_t gpsAltitudeRef;
    uint32_t gpsAltitude[2];
    uint32_t gpsTime[6];
    char gpsDate[11];
    int32_t extraFlagA, extraFlagB;
} ExifInfo;

/* The GPS part of a record, as a separate output. */
typedef struct MetadataGps {
    uint32_t latitude[6];
    uint32_t longitude[6];
    uint32_t altitude[2];
    uint32_t time[6];
    uint8_t latitudeRef, longitudeRef, altitudeRef;
    char date[11];
} MetadataGps;

/* Zeroes the record except camera, captureDate and their spare bytes; returns info. */
LV_API ExifInfo *init_exifInfo(ExifInfo *info);
/* Reads 2 bytes in the given byte order; bytes past the end count as 0xFF. */
LV_API uint16_t fgetmi2(FILE *file, int32_t order);
/* Reads 4 bytes in the given byte order; bytes past the end count as 0xFF. */
LV_API uint32_t fgetmi4(FILE *file, int32_t order);
/* Reads 2 bytes big-endian. */
LV_API uint16_t fgetm2(FILE *file);
/* Reads 4 bytes big-endian. */
LV_API uint32_t fgetm4(FILE *file);
/* Walks the EXIF directory at the file position into info; offsets are relative to base.
 * Returns 1. */
LV_API int parse_exif_data(FILE *file, int32_t ignored, int32_t order, int32_t base,
                           ExifInfo *info);
/* Walks the GPS directory at the file position into info. Returns 1. */
LV_API int parse_gps_data(FILE *file, int32_t ignored, int32_t order, int32_t base, ExifInfo *info);
/* Reads a camera's comma-separated settings text of length bytes. Returns the last number
 * parsed, 0 for a length below 1, -1 for a short read, -4 when memory runs out. */
LV_API int parse_image_description(FILE *file, int32_t length, ExifInfo *info);
/* Finds the description of an ICC profile into name (32 bytes). Returns its length or -1. */
LV_API int get_profile_name(int32_t length, const uint8_t *profile, char *name);
/* Writes the IPTC block with one more keyword to out (length + 5 + keywordLength bytes,
 * 12 + keywordLength for an empty block). Returns the keyword's offset or -1. */
LV_API int add_iptc_keyword(int32_t length, const uint8_t *iptc, int32_t keywordLength,
                            const uint8_t *keyword, uint8_t *out);
/* Reads length bytes of an IPTC block at offset of a file. Returns the count, 0 when the
 * block would not fit, -1 on open, seek or short read, -2 when it is not an IPTC block. */
LV_API int read_iptc(const char *path, int32_t length, int32_t offset, uint8_t *buffer);
/* Converts a record to the Radiance writer's rational form and its GPS part (gps may be
 * NULL). Returns shutterNum. */
LV_API int32_t metadataBufFromExifInfo(const ExifInfo *info, MetadataBuf *meta, MetadataGps *gps);
/* Clears in a the shutter, aperture and ISO that differ from b's. Returns 1. */
LV_API int constant_exif(MetadataBuf *a, const MetadataBuf *b);

/* Composes the command that copies metadata from source to destination. Returns -1: the
 * command is not run. */
LV_API int exiv2WrapperCopyMetadata(char *source, char *destination, char *tool, char *thumbnail,
                                    int ignored, char *software, int withThumbnail,
                                    int withColorTemperature);
/* Forwards to exiv2WrapperCopyMetadata with withColorTemperature also in the ignored slot.
 * Returns -1. */
LV_API int wrapMetadata(char *source, char *destination, char *tool, char *thumbnail, int ignored,
                        char *software, int withThumbnail, int withColorTemperature);
/* Composes the command that lists source's tags into the file fourth. Returns -1. */
LV_API int old_exiv2WrapperCopyMetadata(char *source, char *destination, char *tool, char *fourth,
                                        char *fifth);
/* Composes the command that extracts source's thumbnail into destination. Returns -1. */
LV_API int readThumbnailIntoFile(char *source, char *destination, char *tool);

LV_EXTERN_C_END

#endif
