/*
 * lumivantor towers: reduce, expand and band-pass operations on multi-resolution towers of
 * 16-bit (fused image data, 8-bit levels x 128) or 8-bit (weights, masks) samples, the room a
 * tower needs, and an 8-bit Gaussian blur.
 *
 * A tower is one array holding every level of an image, finest first, no gaps: level k + 1
 * follows level k and has the rounded-up half of its size (w' = w % 2 + w / 2). Samples of a
 * pixel (ncomp = 1 or 3) lie side by side. Building a band-pass tower of a w x h grey image:
 *
 *     int16_t *t = calloc(pyram_len2(w, h), sizeof *t);   // level 0 = the image
 *     int64_t at = 0;
 *     for (int k = 0; k < levels; ++k) {
 *         int cw = w % 2 + w / 2, ch = h % 2 + h / 2;
 *         int64_t next = at + (int64_t)w * h;
 *         lv_short_downsample(w, h, cw, ch, 1, 0, at, next, t);   // level k + 1 = reduce(k)
 *         lv_short_diff(w, h, cw, ch, 1, 0, t + next, t + at);     // level k -= expand(k + 1)
 *         at = next, w = cw, h = ch;
 *     }                                                           // the top stays low-pass
 *
 * With wrap nonzero the image closes horizontally (a 360-degree panorama): column w - 1 is the
 * west neighbour of column 0. Levels must be at least 2 pixels high to be reduced.
 */
#ifndef LUMIVANTOR_PYRAMID_H
#define LUMIVANTOR_PYRAMID_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

LV_EXTERN_C_BEGIN

/* Exact element count of a tower of a w x h plane with trunc(log2(min(w, h))) levels; 0 for
 * an empty plane. */
LV_API int64_t pyram_len(int w, int h);

/* Element count reserved for one plane's tower: floor(1.5 w h + 0.5) in single precision. */
LV_API int64_t pyram_len2(int w, int h);

/* Reduces the 16-bit level at element offset fineOffset of tower into the level at
 * coarseOffset (3x3 binomial, three separately truncated terms). Returns coarseH, or -1
 * when the coarse size isn't the rounded-up half of the fine one. */
LV_API int lv_short_downsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                               int64_t fineOffset, int64_t coarseOffset, int16_t *tower);

/* The same reduce on an 8-bit tower, rounded (remainders from 9/16 round up). Returns
 * coarseH, or -1 as lv_short_downsample. */
LV_API int lv_uchar_downsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                               int64_t fineOffset, int64_t coarseOffset, unsigned char *tower);

/* Expands the 16-bit coarse plane bilinearly into the fine plane, overwriting it. Returns
 * fineH, or -1 when ncomp isn't 1 or 3 or the coarse size isn't the rounded-up half. */
LV_API int lv_short_upsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                             const int16_t *coarse, int16_t *fine);

/* The same expand on 8-bit planes. Returns fineH, or -1 as lv_short_upsample. */
LV_API int lv_uchar_upsample(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                             const unsigned char *coarse, unsigned char *fine);

/* Subtracts the expanded coarse plane from the 16-bit fine plane in place, modulo 2^16.
 * Returns fineH, or -1 as lv_short_upsample. */
LV_API int lv_short_diff(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                         const int16_t *coarse, int16_t *fine);

/* Subtracts the expanded coarse plane from the 8-bit fine plane in place, modulo 2^8.
 * Returns fineH, or -1 as lv_short_upsample. */
LV_API int lv_uchar_diff(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int wrap,
                         const unsigned char *coarse, unsigned char *fine);

/* Separable Gaussian blur (standard deviation radius / 2) of one 8-bit w x h plane from src
 * into dst; step must be 1 and bits 8. Returns h, -1 for a bad radius, size or step, -2 when
 * bits isn't 8, -4 when out of memory. */
LV_API int lv_downtower(int radius, int w, int h, int step, int bits, const unsigned char *src,
                        unsigned char *dst);

/* Adjustment maps: width x height entries of two bytes, value then region label. Filters never
 * mix values across labels: a tap of another label than the reference entry counts with the
 * reference's value, and the output takes the reference's label. Resizing a painted map:
 *
 *     uint8_t *out = malloc((size_t)dw * dh * 2);
 *     if (rescale_adjustment_map(w, h, dw, dh, 0, map, out) <= 0) ...   // not resized
 */

/* Resizes a map by steps of two and at most one step of any ratio. Returns dstH, 0 when
 * nothing was done (one side grows and the other doesn't, or an exact power-of-two width
 * ratio with another height ratio), -4 out of memory. */
LV_API int rescale_adjustment_map(int srcW, int srcH, int dstW, int dstH, int wrap,
                                  const uint8_t *src, uint8_t *dst);
/* Halves a map (halving nonzero: 3 x 3 binomial at even places) or shrinks it by any ratio
 * (bilinear, truncating each partial sum). Returns dstH, 0 for an empty map. */
LV_API int downsample_map_one_level(int halving, int srcW, int srcH, int dstW, int dstH,
                                    const uint8_t *src, uint8_t *dst);
/* Doubles a map (doubling nonzero: spline subdivision, columns wrapping with wrap) or
 * enlarges it by any ratio (bilinear). Returns dstH, 0 for an empty map. */
LV_API int upsample_map_one_level(int doubling, int srcW, int srcH, int dstW, int dstH, int wrap,
                                  const uint8_t *src, uint8_t *dst);

LV_EXTERN_C_END

#endif
