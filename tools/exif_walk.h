// Finding the EXIF and GPS directories of a photograph, for hosts of lumivantor.
//
// The library parses a directory once the file stands at it; this walker finds where the
// directories are: in the "Exif" APP1 segment of a JPEG, or in the first directory of a
// TIFF. Every offset is checked against the bytes that exist, the walk has no loops over
// file-supplied chains, and a malformed file simply yields "not found".
#pragma once

#include <lumivantor/metadata.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace lvtool {

constexpr int32_t kOrderMotorola = 0x4D4D; // "MM", big-endian

// Where a file's capture metadata lies. Offsets are from the start of the file.
struct ExifLayout {
    int32_t order = 0;     // LV_ORDER_INTEL or kOrderMotorola
    int64_t base = -1;     // the TIFF header, to which directory offsets are relative
    int64_t exif_ifd = -1; // the EXIF directory, or -1
    int64_t gps_ifd = -1;  // the GPS directory, or -1
    std::string camera;    // Model of the first directory (else Make), or empty
    int orientation = 1;   // how the stored pixels turn upright: 1 as stored, 2..8 mirrored
                           // and/or turned, as the first directory's Orientation tag says
};

// The Orientation (1..8) of a JPEG or TIFF file; 1 when absent, unreadable or out of range.
int read_orientation_file(const char *path);

// Finds the layout of a JPEG or TIFF held in memory. False when there is no TIFF header.
bool find_exif_layout(const uint8_t *data, size_t size, ExifLayout *layout);
// The same for an open file; the file position is left anywhere.
bool find_exif_layout(FILE *file, ExifLayout *layout);

// Clears info, then fills it from the EXIF and GPS directories of an open JPEG or TIFF
// through parse_exif_data and parse_gps_data. False when the file has no TIFF header.
bool read_exif(FILE *file, ExifInfo *info);
// The same for a path.
bool read_exif_file(const char *path, ExifInfo *info);
// The same for a file held in memory.
bool read_exif_memory(const uint8_t *data, size_t size, ExifInfo *info);

// Reads a file's capture metadata straight into the Radiance writer's rational form and
// its GPS part (gps may be null). meta is cleared first; its colour profile is -1, none.
bool read_metadata_file(const char *path, MetadataBuf *meta, MetadataGps *gps);

// The seven-float exposure record of a frame (exposure and aperture rationals, shutter
// APEX in thousandths, ISO, spare) from the rational form of its metadata.
void exposure_record(const MetadataBuf &meta, float record[7]);

} // namespace lvtool
