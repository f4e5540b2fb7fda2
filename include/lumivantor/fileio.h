/*
 * lumivantor image files: Radiance RGBE (and later float TIFF, PSD, BMP), with the
 * records the file inspectors and writers share.
 */
#ifndef LUMIVANTOR_FILEIO_H
#define LUMIVANTOR_FILEIO_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "frame.h"

LV_EXTERN_C_BEGIN

/* Capture metadata in the rational form that the Radiance writer takes. */
typedef struct MetadataBuf {
    int32_t shutterNum, shutterDen;   /* exposure time */
    int32_t apertureNum, apertureDen; /* f-number */
    int32_t unused4;
    int32_t iso;
    int32_t descriptionKind;
    int32_t colorProfile; /* -1 none, 0 sRGB, 1 Adobe RGB, 2 ProPhoto RGB */
    int32_t unused8, unused9;
    int32_t focalNum, focalDen;
    int32_t focal35mm;
    int32_t focalPlaneXResNum, focalPlaneXResDen;
    int32_t focalPlaneResUnit;
    int32_t extraWords[5]; /* carried over from the EXIF record */
    int32_t extraFlags[2];
    char camera[64];
    char captureDate[20];
} MetadataBuf;

/* Twelve slots filled by the file inspectors; a slot's meaning depends on the format. */
typedef struct ImageFileInfo {
    int32_t width;
    int32_t height;
    int32_t slot2; /* bits per sample, file size or samples a pixel */
    int32_t slot3;
    int32_t slot4;
    int32_t slot5;
    int32_t profileLength;
    int32_t slot7;
    int32_t slot8;
    int32_t slot9;
    int32_t slot10;
    int32_t slot11;
} ImageFileInfo;

/* ---- Radiance RGBE files ----
 * Pixels travel as planar RGBE rows: each row holds width red mantissas, then green, then
 * blue, then the shared exponents; a value is mantissa * 2^(e - 136), and e = 0 is black. */

/* 1 when a header line (text of at most length bytes) ends the header: empty or blanks. */
LV_API int rgbe_end_of_header(const uint8_t *line, int32_t length);
/* Reads width, height, file size and primaries (8 floats, or zeros) of a .hdr file; returns
 * the header line count, -1 unreadable, -2 end of file in the header, -3 zero size. */
LV_API int rgbe_dim(const char *path, float *primaries, ImageFileInfo *info);
/* Fills camera, date, profile, shutter, aperture, ISO and focal length from a .hdr header;
 * returns the header line count, or -1. */
LV_API int extract_rgbe_exif(const char *path, MetadataBuf *meta);
/* Reads a whole .hdr of the expected size into 4 * width * height planar bytes; returns
 * height, -1 unreadable, -200 other size, -201/-202 corrupt scanline, -4 bad scanline width. */
LV_API int lv_io_read_rgbe(int width, int height, const char *path, unsigned char *pixels);
/* lv_io_read_rgbe(dims[0], dims[1], path, pixels). */
LV_API int decomp2(const char *path, const int32_t *dims, unsigned char *pixels);
/* lv_io_read_rgbe(dims[0], dims[1], path, pixels), the name the tone mappers use. */
LV_API int decomp_rle(const char *path, const int32_t *dims, unsigned char *pixels);
/* Reads a nearest-sampled planar preview of previewWidth x previewHeight (4 * previewWidth
 * bytes a row); returns the source rows walked (height + 1 when the preview filled up), -200
 * for another size, -1 for an unreadable file or an empty preview, or a scanline code. */
LV_API int lv_io_read_preview_rgbe(int width, int height, int previewWidth, int previewHeight,
                                   const char *path, unsigned char *pixels);
/* Writes planar pixels as a run-length coded .hdr with the capture metadata (meta may be
 * NULL) and profile name; ignored has no effect. Returns height, or -1, -2, -4. */
LV_API int lv_io_rgbe_write(const char *path, int width, int height, const MetadataBuf *meta,
                            int ignored, const char *profileName, const unsigned char *pixels);
/* Writes strip stripIndex (creating the file for strip 0, appending after it); pixels holds
 * just the strip's rows. Returns the rows written, or -1, -2, -4. */
LV_API int lv_write_strip_rgbe(const char *path, int stripIndex, int stripHeight, int width,
                               int height, int ignored, const unsigned char *pixels);
/* Decodes pixel x of a planar row to three floats with an exponent table (exp_lut); returns
 * the exponent byte. */
LV_API int rgbe2float(const unsigned char *row, const float *table, int gOffset, int bOffset,
                      int eOffset, int x, float *out);

LV_EXTERN_C_END

#endif
