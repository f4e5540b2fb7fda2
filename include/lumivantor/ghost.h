/*
 * lumivantor ghosts: detection of moving content as a bit mask, the selection file that saves
 * a user's ghost selections, and the views and helpers a host uses to show and edit them.
 *
 * Detection, with the exposures derived from the images (mask cleared, (w * h + 7) / 8 bytes):
 *
 *     float sensitivity = 60.0f;
 *     lv_ghost_detect(&sensitivity, n, w, h, 3, 8, 0, exposures, bracket, mask, 0.0f);
 *
 * A selection is a closed path of integer points plus one integer the host chooses (the
 * exposure to take inside it). A host holds n selections as three parallel arrays:
 * exposures[n], points[n] (the path lengths) and coords[2 * T] (x, y of every point, path
 * after path). Saving and reloading:
 *
 *     write_ghost_mask("shot.mask", w, h, n, exposures, points, coords);
 *     ...
 *     int32_t w, h, n;
 *     int total = get_mask_info("shot.mask", &w, &h, &n);      // T, or < 0
 *     if (total >= 0) {
 *         // n entries for exposures and points, 2 * total for coords (at least 1 each)
 *         get_mask_data("shot.mask", exposures, points, coords);
 *     }
 *
 * get_mask_data only reads a file that get_mask_info has inspected in this process, and
 * refuses one whose counts have grown since, so the arrays sized from get_mask_info are
 * never written past.
 */
#ifndef LUMIVANTOR_GHOST_H
#define LUMIVANTOR_GHOST_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

LV_EXTERN_C_BEGIN

/* ---- Detection ---- */

/* Marks moving content of a bracket (n images end to end, 8 or 16 bits, as for the merge) in
 * a cleared bit mask, one bit a pixel, row-major, no row padding, most significant bit first.
 * *sensitivity is truncated to an integer t (larger finds fewer ghosts); step > -0.5 derives
 * exposures into exposures[n], otherwise they are the caller's. Returns width * height rounded
 * up to a multiple of 8, 0 for an empty image, -2 for another depth or a missing buffer, -4
 * out of memory. */
LV_API int lv_ghost_detect(const float *sensitivity, int n, int width, int height, int samples,
                           int bits, int swapRedBlue, float *exposures, const void *images,
                           uint8_t *mask, float step);

/* ---- Selection file ---- */

/* Writes n selections as one line of text; returns the number of points written, 0 for
 * n < 1, or -1 when the file can't be opened or written (or a negative path length would
 * move the reading of coords before its start). */
LV_API int write_ghost_mask(const char *path, int width, int height, int n,
                            const int32_t *selectionExposures, const int32_t *selectionPoints,
                            const int32_t *coords);
/* Reads a selection file's image size and selection count; returns the total point count
 * T, -1 (can't open or read), -2 (size out of range) or -4 (out of memory). A file without
 * the magic gives 0 and zero sizes. */
LV_API int get_mask_info(const char *path, int32_t *width, int32_t *height, int32_t *n);
/* Fills the arrays sized from get_mask_info; returns the number of points read, -1 (can't
 * open, a point is missing), -2 (not a selection file, a selection head is missing, or the
 * file is not the one get_mask_info measured) or -3 (more points than the file's total). */
LV_API int get_mask_data(const char *path, int32_t *selectionExposures, int32_t *selectionPoints,
                         int32_t *coords);

/* ---- Previews and selection helpers ----
 * Views are 8 bits a sample, three samples a pixel, in the order B, G, R. RGBE input is
 * planar rows; table is the 256-entry exponent table of exp_lut. Strides count samples;
 * rowPad counts the bytes skipped after each view row. */

/* Gamma 0.45 view of planar RGBE rows at a fixed exposure; returns height, 0 below 1. */
LV_API int applyGammaToHDR(int width, int height, const float *table, int rowPad,
                           const uint8_t *rgbe, uint8_t *view);
/* Gamma 1/2.2 view at exposure scale; a black pixel clears the view's first pixel and keeps
 * its own place as it was (hand in a cleared view). Returns height, 0 below 1. */
LV_API int getTonemappedRep(int width, int height, const float *table, const uint8_t *rgbe,
                            uint8_t *view, float scale);
/* View at exposure scale and the given gamma; the two unnamed ints are not used. Returns
 * height, 0 below 1. */
LV_API int generateOriginalFromHDR(int width, int height, int rowPad, int unused1,
                                   const float *table, const uint8_t *rgbe, uint8_t *view,
                                   float gamma, int unused2, float scale);
/* High bytes of a 16-bit image; returns height, 0 below 1. */
LV_API int generateOriginalFrom16Bit(int width, int height, int srcStride, int dstStride,
                                     int samples, const uint16_t *src, uint8_t *dst);
/* Copies rows (swapRedBlue 0, returns 0) or copies 3-sample 8- or 16-bit pixels with red
 * and blue exchanged (returns height; -1 for other samples or bits). */
LV_API int copyAndConvertImageRows(int width, int height, int srcStride, int dstStride, int samples,
                                   int bits, int swapRedBlue, const void *src, void *dst);
/* dst[i] |= src[i] for count bytes: joins two bit masks. Returns count, 0 below 1. */
LV_API int mergeBlocksWithOr(int count, const uint8_t *src, uint8_t *dst);
/* For each of n 8-bit, 3-sample images end to end, counts the pixels of the rectangle
 * [left, right) x [top, bottom) whose luminance 54 p0 + 183 p1 + 19 p2 lies strictly between
 * low and high, into counts[n]; returns n, 0 below 1. */
LV_API int getWellExposedCount(int rowBytes, int height, int n, int low, int high, int64_t *counts,
                               const uint8_t *images, float left, float top, float right,
                               float bottom);
/* Copies a width x height region into a stack at width * height * scale * steps[1]:
 * bits = {source, destination} depth (8, 16, or 32 for planar RGBE from row cropY),
 * steps = {source, destination} samples a pixel; cropOffset is where the region starts in
 * src. Returns 0. */
LV_API int cropAndMoveImage(const void *src, void *dst, int width, int height, int srcWidth,
                            int cropY, int cropOffset, float scale, const int32_t bits[2],
                            const int32_t steps[2]);
/* Range-limited 41 x 41 mean of luminance into a one-byte-a-pixel dst: follows large shapes,
 * keeps strong edges. Returns height, -5 for a side below 41, -4 out of memory. */
LV_API int smooth_image(int width, int height, int samples, int stride, const uint8_t *src,
                        uint8_t *dst);
/* Sets the bit of each pixel of a one-sample image whose differences to its left, upper
 * left, upper and upper right neighbours sum above 4 threshold, and the border bits, in a
 * cleared mask; returns height, 0 below 1. */
LV_API int thresholded_gradient_mask(int threshold, int width, int height, const uint8_t *src,
                                     uint8_t *mask);

LV_EXTERN_C_END

#endif
