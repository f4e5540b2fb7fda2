/*
 * lumivantor geometry: resizing, crops, quarter turns, channel swaps and depth changes of
 * interleaved 8-bit and 16-bit images, planar RGBE rows (depth 32: per row the red, green,
 * blue and exponent runs of width bytes each) and one-bit masks (depth 1).
 *
 * Pitches count samples. Pixels copy three samples: the first, the middle
 * ((ncomp - 1) / 2) and the last, so a fourth sample is skipped.
 *
 * Example, a 16-bit RGB image shrunk to an 8-bit thumbnail:
 *
 *     uint8_t *thumb = malloc(tw * th * 3);
 *     thumb[0] = 168;   // asks lv_downsample for 8-bit output from 16-bit input
 *     lv_downsample(w, h, w * 3, tw, th, tw * 3, 3, 16, pixels, thumb);
 */
#ifndef LUMIVANTOR_GEOMETRY_H
#define LUMIVANTOR_GEOMETRY_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

LV_EXTERN_C_BEGIN

/* Bilinear resize at depth 8, 16 (8-bit output when dst[0] holds 168 on entry), 32 (RGBE
 * rows; pitches ignored) or 323 (interleaved floats, no truncation). The last column and
 * row repeat their neighbours. Returns dstH, 0 for an empty image, -4 out of memory. */
LV_API int lv_downsample(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch,
                         int ncomp, int bits, const void *src, void *dst);
/* Nearest-neighbour resize to 8 bits from depth 8, 16 or 1 (output bits assumed clear);
 * pitches are raised to at least width x ncomp. Returns dstH, -1 for another depth. */
LV_API int downsample_decimate(int srcW, int srcH, int dstW, int dstH, int srcNcomp, int dstNcomp,
                               int bits, int srcPitch, int dstPitch, const void *src, void *dst);
/* Nearest-neighbour resize of 8-bit pixels; a one-sample image writes its sample three
 * times per pixel. Returns dstH. */
LV_API int retaille(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch, int ncomp,
                    const uint8_t *src, uint8_t *dst);
/* Nearest-neighbour zoom by step source pixels per output pixel, to 8 bits (depth 8 or
 * 16). Returns dstH, 0 for another depth. */
LV_API int zoom2(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch, int ncomp,
                 int bits, const void *src, uint8_t *dst, float step);
/* zoom2 with a 3 x 3 colour matrix written for blue, green, red samples (depth 8, used
 * when matrix[0] > 0). Returns dstH, 0 for another depth. */
LV_API int zoom_cm(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch, int ncomp,
                   int bits, const void *src, uint8_t *dst, float step, const float *matrix);
/* Copies the cropW x cropH rectangle at (x0, y0) (negative origins count as 0) of an 8 or
 * 16-bit image. Returns cropH. */
LV_API int crop_ldr(int bits, int srcPitch, int cropW, int cropH, int dstPitch, int ncomp, int x0,
                    int y0, const void *src, void *dst);
/* Copies the cropW x cropH rectangle at (x0, y0) of RGBE rows srcW wide. Returns cropH. */
LV_API int crop_hdr(int srcW, int cropW, int cropH, int x0, int y0, const uint8_t *src,
                    uint8_t *dst);
/* Copies the cropW x cropH rectangle at (x0, y0) at depth 8, 16, 32 or 1 (output bits
 * assumed clear). Returns cropH, -1 for a side below 5, -2 for an origin outside. */
LV_API int extract_crop(int count, int width, int height, int ncomp, int unused, int bits,
                        int cropW, int cropH, int x0, int y0, const void *src, void *dst);
/* Every f-th pixel of every f-th row, f the power of two that halves srcW x srcH (rounding
 * up) to dstW x dstH; depth 16 gives high bytes when to8 is nonzero. Returns dstH, -1 for
 * a side below 5, -5 when the sizes aren't related by halving. */
LV_API int extract_basepreview(int bits, int srcW, int srcH, int ncomp, int srcPitch, int dstW,
                               int dstH, int to8, const void *src, void *unused, void *dst);
/* Quarter turn of an 8 or 16-bit image: 90 clockwise, 270 counter-clockwise. Returns the
 * output's row count (width). */
LV_API int rot_ldr(int angle, int bits, int width, int height, int srcPitch, int ncomp,
                   int dstPitch, const void *src, void *dst);
/* Quarter turn of RGBE rows: 90 clockwise, 270 counter-clockwise. Returns width. */
LV_API int rot_hdr(int angle, int width, int height, const uint8_t *src, uint8_t *dst);
/* Quarter turn of packed pixels at depth 8, 16 or 32 (RGBE rows): 90 clockwise, 270
 * counter-clockwise, -90 a transpose. Returns width. */
LV_API int lv_rotate(int angle, int width, int height, int ncomp, int bits, const void *src,
                     void *dst);
/* Exchanges the first and third sample of each pixel in place, depth 8 or 16. Returns
 * height. */
LV_API int bgr2rgb(int width, int height, int pitch, int ncomp, int bits, void *buffer);
/* In place: rows x ceil(rowLength / 2) 16-bit samples, as one stream, become their high
 * bytes, packed. Returns rows. */
LV_API int from16to8(int unused0, int rows, int unused1, int rowLength, void *buffer);
/* from16to8 into another buffer. Returns rows. */
LV_API int from16to8copy(int unused0, int rows, int unused1, int rowLength, const void *src,
                         void *dst);
/* High bytes of rows of ncomp x width 16-bit samples (source rows srcPitch apart) into
 * band number band of a packed 8-bit buffer. Returns rows. */
LV_API int load16to8(int band, int ncomp, int width, int rows, int srcPitch, const uint16_t *src,
                     uint8_t *dst);
/* Byte-exact copy of rows of (bits / 8) x ncomp x width bytes (source rows srcPitch samples
 * apart) into band number band of a packed buffer. Returns rows. */
LV_API int loadrows(int band, int width, int rows, int srcPitch, int ncomp, int bits,
                    const void *src, void *dst);

/* Mirror-ball warps: a W x H photograph of a reflecting sphere becomes a 2W x H
 * latitude-longitude panorama. mode 0 nearest, 1 bilinear, 2 cubic; another mode leaves the
 * output unwritten. */

/* Warp of interleaved 8 or 16-bit pixels (first three samples; pitches count samples).
 * Bilinear and cubic results are held to 0..255 at both depths. Returns H, 0 for another
 * depth, H below 2 or W below 1. */
LV_API int remap_ldr(int mode, int bits, int W, int H, int srcPitch, int dstPitch, int ncomp,
                     const void *src, void *dst);
/* Warp of planar RGBE rows W wide into rows 2W wide. Returns H, 0 for H below 2 or W below
 * 1. */
LV_API int remap_hdr(int mode, int W, int H, const uint8_t *src, uint8_t *dst);

/* HDR viewer. Reading planar RGBE rows with a decoding table of 256 floats (entry e =
 * 2^(e - 136), as exp_lut_old gives), e.g. a 100 x 100 square around the pointer:
 *
 *     uint8_t square[100 * 100 * 3];
 *     hdr_display(w, h, 32, px, py, 100, 100, table, rgbe, square);
 *     float lum = table[0], r = table[1], g = table[2], b = table[3];   // the probe
 */

/* Fills a viewWidth x viewHeight B, G, R square around (x, y), kept inside the image,
 * brightened from its middle half; stores the probe pixel's luminance, R, G, B (255 for 1)
 * in table[0..3]. Returns the first row of the middle half, -1 when bits isn't 32. */
LV_API int hdr_display(int width, int height, int bits, int x, int y, int viewWidth,
                       int viewHeight, float *table, const uint8_t *rgbe, uint8_t *view);
/* Brightens the cropWidth x cropHeight rectangle at (left, top) of an image width wide into
 * view (R, G, B, or B, G, R with swapRedBlue). Returns the view offset of the last pixel
 * written, 0 when none. */
LV_API int adjustBrightnessForCrop(int left, int top, int cropWidth, int cropHeight, int width,
                                   int unused, int swapRedBlue, const float *table,
                                   const uint8_t *rgbe, uint8_t *view);
/* Values of pixel (x, y), 256 times the RGBE scale: luminance, and with logRange above 0
 * the places of log2 L, R, G, B on the axis from logStart, logRange wide, within 0..1.
 * Returns 0. */
LV_API int GetHdrPixelsValuesFor(int x, int y, int width, int unused, float *luminance,
                                 float *normL, float *normR, float *normG, float *normB,
                                 const uint8_t *rgbe, float logStart, float logRange);

LV_EXTERN_C_END

#endif
