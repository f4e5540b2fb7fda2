/*
 * lumivantor finishing: the last touches on a rendered 8-bit or 16-bit picture. Levels
 * (black and white points, gammas, saturation), exposure in L*a*b*, a shadow-keeping
 * gamma for raw conversions, saturation by hue with sharpening and an output curve, a
 * bracket average with lifted shadows, four simulated exposures of one photograph, and
 * the blend of a chosen rendering into the current one through mask layers.
 *
 * Row pitches (strides) count samples, not bytes. 16-bit images hold uint16_t samples.
 * Red is sample 0 and blue the last (exchanged by a swap flag), green is sample
 * (samplesPerPixel - 1) / 2.
 *
 * Calling example, levels on a packed 8-bit RGB picture, in place, on two threads:
 *
 *     adjustImageLevels(2, w, h, 0, 0, 0, 3 * w, 3 * w, 8, 8, img, img,
 *                       1.0f, 2.0f, 98.0f, 1.0f, 110.0f);   // returns h, or -4
 *
 * Saturation by hue re-rendered as a slider moves: make the HSL copy once with
 * get_hsl(threads, w, h, 3, 0, 3 * w, 8, hsl, img) into 3 x w x h bytes, then for each
 * movement copy the original picture into the output buffer and call post_adj on it
 * with that copy.
 */
#ifndef LUMIVANTOR_FINISH_H
#define LUMIVANTOR_FINISH_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"
#include "frame.h"

LV_EXTERN_C_BEGIN

/* ---- Levels, exposure and raw enhancement ---- */

/* Levels on a 3-sample picture: gammaIn, black and white points in percent, gammaOut,
 * saturation in percent (100 neutral). input and output may be one buffer. Only 8 to 8,
 * 16 to 16 and 16 to 8 bits are allowed; another pair aborts the process as a
 * programming error. Returns height, or -4 when the level table can't be allocated. */
LV_API int adjustImageLevels(int numThreads, int width, int height, int reserved, int swapIn,
                             int swapOut, int strideIn, int strideOut, int bpsIn, int bpsOut,
                             const unsigned char *input, unsigned char *output, float gammaIn,
                             float blackPercent, float whitePercent, float gammaOut,
                             float saturationPercent);

/* Multiplies L* by factor on rows firstRow..endRow (input linearised through linearTable,
 * 2^bpsIn entries), spilling out-of-gamut excess into the other channels; any depth pair. */
LV_API void adjustImageExposure_tile(int firstRow, int endRow, int width, int bpsIn, int bpsOut,
                                     int samplesPerPixel, int strideIn, int strideOut, int swapIn,
                                     int swapOut, const float *linearTable,
                                     const unsigned char *input, unsigned char *output,
                                     double factor);

/* Shadow-keeping gamma on L* of a 3-sample picture in place: gamma grows from 1 at black
 * to `gamma` at 70 % lightness. Returns height, or -4. */
LV_API int enhanceRawConvertedImage(int numThreads, int width, int height, int stride, int bits,
                                    unsigned char *image, float gamma);

/* ---- HSL copy and post-adjustment ---- */

/* 8-bit HSL copy (3 bytes a pixel, packed rows) of an image for post_adj. Returns the
 * last band's row count, or -2 when a thread can't be started. */
LV_API int get_hsl(int numThreads, int width, int height, int samplesPerPixel, int swapRedBlue,
                   int stride, int bits, unsigned char *hsl, const unsigned char *image);

/* In place: saturation by hue (hueSaturation[360], 0 neutral), unsharp mask on lightness
 * (controls[0] strength, above 0 to enable; [1] radius; [2] threshold) and the 65536-entry
 * outputCurve. hsl: the copy from get_hsl, or NULL to make one. Once a pixel of a band
 * changes, every later pixel of that band is rebuilt from its 8-bit HSL bytes, so the
 * result depends on the thread count. Returns the last band's row count, -2 or -4. */
LV_API int post_adj(int numThreads, int width, int height, int samplesPerPixel, int swapRedBlue,
                    int stride, int bits, const uint16_t *outputCurve, const float *hueSaturation,
                    const float *controls, const unsigned char *hsl, unsigned char *image);

/* Averages imageCount packed images (input) into output (rows of stride samples) and, for
 * colour, lifts shadows and holds highlights by a soft-light blend with the blurred
 * inverse luminance. maskBuffer: 2 x width x height bytes of scratch, or NULL to use the
 * start of input (which is then overwritten). Returns height, 0 for an empty image. */
LV_API int hsauto(int imageCount, int width, int height, int stride, int swapRedBlue, int bitsIn,
                  int bitsOut, int samplesPerPixel, unsigned char *maskBuffer, unsigned char *input,
                  unsigned char *output);

/* ---- Fake exposures and blending ---- */

/* Number of images createFakeExposures makes: 4. */
LV_API int numFakeExposures(void);

/* Four renderings of one picture, at steps of samplesPerPixel x width x height samples of
 * outputs: 0 brighter midtones, 1 lifted and more colourful, 2 and 3 half and 0.8 stop
 * up in L* with a gamma-encoded linear table (so they come out very bright). The levels
 * steps treat pixels as 3 samples. Depths as adjustImageLevels (others abort). callback
 * (mode 1, may be NULL) gets 1/7 .. 7/7; a cancel returns -1 at once: the outputs whose
 * steps ran are whole, later ones untouched, but 2 and 3 may lack their last levels step,
 * so after -1 none of them is a result. Returns 0. */
LV_API int createFakeExposures(int numThreads, int width, int height, int samplesPerPixel,
                               int strideIn, int strideOut, int swapIn, int swapOut, int bpsIn,
                               int bpsOut, const unsigned char *input, unsigned char *outputs,
                               LvProgressCallback callback);

/* Index of the exposure value closest to target; on a tie the lower value wins below 0,
 * the higher above 0, the first at 0. 0 when count < 2 or evs is NULL. */
LV_API int getIndexClosestEv(int count, const float *evs, float target);

/* Mixes the image of a set (images, steps of strideIn x height samples) closest to each
 * block's exposure value p[28] into output by its amount p[27] percent (held to 99 %),
 * for block 0 and per mask layer (mask: weight, layer bytes a pixel, or NULL). Image
 * samples are read in red, green, blue order; output, apart from images, follows
 * dim.swapRedBlue. Returns 1 when no block is active, else the last band's row count;
 * -4, -2. */
LV_API int lv_blend(int numThreads, int imageCount, const float *p, const float *evs,
                    const unsigned char *mask, const unsigned char *images, DimParam dim,
                    unsigned char *output);

/* Copies the last 8-bit image of a set (packed images of width x height x samplesPerPixel
 * bytes) to preview and tints the selected pixels (a bit mask when bitMask is nonzero,
 * else one weight byte a pixel) towards sample 2. Returns 0. */
LV_API int brush_selection_preview(int bitMask, int imageCount, int width, int height, int strideIn,
                                   int strideOut, int samplesPerPixel, const unsigned char *images,
                                   const unsigned char *selection, unsigned char *preview);

LV_EXTERN_C_END

#endif
