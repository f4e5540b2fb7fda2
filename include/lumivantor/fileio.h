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

/* ---- Float TIFF files ----
 * Reading a float TIFF into planar RGBE:
 *     ImageFileInfo info = {0};              (cleared: a non-zero slot is kept)
 *     if (getTiffInfo(path, &info) == 2) {
 *         unsigned char *px = malloc(4 * (size_t)info.width * info.height);
 *         float lo, hi, mean;
 *         fp2rgbe(path, &info, &lo, &hi, &mean, px);
 *     }
 * The reader takes one uncompressed strip of contiguous samples, and reads every 32-bit
 * float at half its IEEE value (exponent bias 128). */

/* Fills info from a TIFF's first directory (see ImageFileInfo slots); returns 2 for a
 * little-endian file, -1 unreadable, -2 not a TIFF, -3 version not 42 read little-endian. */
LV_API int getTiffInfo(const char *path, ImageFileInfo *info);
/* Reads the strip into 4 * width * height planar RGBE bytes, with the minimum, maximum and
 * mean luminance times 256; returns 1, -1 unreadable, -4 out of memory. */
LV_API int fp2rgbe(const char *path, const ImageFileInfo *info, float *minOut, float *maxOut,
                   float *meanOut, unsigned char *pixels);
/* Expands planar RGBE to 3 floats (or, with half, 3 binary16 values) a pixel, rows stride
 * samples apart, stretched to 0..factor when normalise; returns height, 0 below 1, -4. */
LV_API int rgbe2fp(int width, int height, int stride, int normalise, int half,
                   const unsigned char *rgbe, void *out, float factor);
/* Writes planar RGBE as a one-strip little-endian 32-bit float RGB TIFF; returns height,
 * -2 when the file can't be written (or a side is 0 or above 65535), -4 out of memory. */
LV_API int fp_save(const char *path, int width, int height, int normalise,
                   const unsigned char *rgbe);
/* Reads one 32-bit float, little-endian when order is 18761 ("II"), else big-endian. */
LV_API float readfloat(int order, FILE *file);
/* Reads one binary16 float in the machine's byte order. */
LV_API float readHalfFloat(FILE *file);

/* ---- PSD, BMP and ICC files ----
 * Reading a PSD composite: getPsdInfo(path, &info) gives width, height, depth (slot2) and
 * the pixel data's place; set slot10 = 64 for a large-document file, then
 *     load_psd(1, path, &info, 3 * width, pixels)
 * fills height rows of 3 * width + max(rowBytes - 3 * width, 0) samples (of 8 or 16 bits),
 * or, at 32 bits, 4 * width planar RGBE bytes a row. */

/* Fills size, channels, depth, resolution, profileLength, EXIF place of an RGB PSD; returns
 * the end of the image resources, -1 unreadable, -2 not a PSD, -3 fewer than 3 channels or
 * not RGB. */
LV_API int getPsdInfo(const char *path, ImageFileInfo *info);
/* Copies the ICC profile (profileLength bytes from getPsdInfo) into profile; returns its
 * size, 0 for an empty one, or a negative code as getPsdInfo. */
LV_API int psd_profile(const char *path, unsigned char *profile);
/* Reads the composite's first three channels, red first when kind >= 1 and blue first
 * otherwise; returns height, -1 unreadable or bad depth, -2 packed 32-bit, -3, -4. */
LV_API int load_psd(int kind, const char *path, ImageFileInfo *info, int rowBytes, void *pixels);
/* Decodes four big-endian bytes as a float with exponent bias 128. */
LV_API float morder2float(const unsigned char *bytes);
/* Width and height at offsets 34 and 38 of a bitmap, samples (3 or 1) from its depth;
 * returns 8, -1 unreadable, -2 not "BM", -3 depth other than 24 or 8. */
LV_API int lvbmp_dim(const char *path, ImageFileInfo *info);
/* Reads a whole ICC profile file (size from its first four bytes) into profile; returns
 * the size, -1 no path, -2 unreadable, -3 short, -4 empty size, -5 short profile. */
LV_API int extract_profile(const char *path, unsigned char *profile);

LV_EXTERN_C_END

#endif
