// Ranking of a bracket and the per-pixel weight planes of exposure fusion.
//
// fusion1 gives each photograph a plane from a luminance-weighted well-exposedness,
// sharpened by a steep table and scaled by the photograph's place in the ranking; the
// planes sum to full scale at every pixel.
//
// The local stage of the two-stage method takes its weights from three functions with a
// fixed calling form (adj1_32, smooth_nosubsample, final_poids32). Ours work as follows:
// adj1_32 scores every pixel of each photograph by its well-exposedness, a Gaussian
// around mid-grey (standard deviation a fifth of the range) of each channel, mixed 0.2,
// 0.7, 0.1 over the first, middle and last sample, and stores the first n - 1
// photographs' shares of the summed score as 8-bit planes (255 = the whole pixel);
// smooth_nosubsample blurs one plane with two passes of a box of radius `strength` along
// rows and then along columns (a smooth bell about 1.6 x strength wide on each side),
// edges held; final_poids32 adds the last photograph's plane as what the others leave of
// 255, taking any rounding excess from the largest planes, so that the n planes sum to
// exactly 255 at every pixel.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include "lumivantor/frame.h"

LV_EXTERN_C_BEGIN

// Ranks n photographs (8 or 16 bits, back to back) from brightest to darkest into order
// and fills the four statistics per photograph; returns n, -1 for another depth (order is
// then 0..n-1), -4 when out of memory.
LV_API int stats_order_photos(int n, int width, int height, int samplesPerPixel, int bits,
                              const void *images, int *percentDark, int *percentBright,
                              int *clippedCount, int *brightnessKey, int *order);

// Weight planes of n photographs into weights (plane k at k x width x height samples of
// weightBits: 8, 16, or 32 for floats) from slots 0 (sharpness), 1 (bright or dark
// preference) and 2 (curve shape) of param. Pixels come from images, or row by row from
// fpSource into rowBuffer when useFile is set (one thread then). order/mask: the caller's
// selection (order[0] < 0: none). Stores the darkest photograph in *referenceIndex.
// Returns the rows done, -3 on a read failure, -4 when out of memory.
LV_API int fusion1(int numThreads, float *param, int n, int width, int height, int samplesPerPixel,
                   int bits, int weightBits, int rawWeights, int useFile, FILE *fpSource,
                   void *rowBuffer, const void *images, const int *order, const uint8_t *mask,
                   int *referenceIndex, void *weights);

// The weight pass over `rows` rows; images, weights and mask start at the band's first
// pixel, planes lie width x height samples apart. Returns rows, -3 or -4.
LV_API int adj1b_orig(int n, int width, int rows, int height, int samplesPerPixel, int bits,
                      int weightBits, const float *exposureCurves, const float *sharpenTable,
                      const float *photoFactor, int useFile, FILE *fpSource, void *rowBuffer,
                      const void *images, const int *order, const uint8_t *mask, void *weights);

// Arguments of one band of the weight pass; the body works out its band from its index.
typedef struct Adj1bArgs {
    int n, width, height, samplesPerPixel, bits, weightBits;
    const float *exposureCurves, *sharpenTable, *photoFactor;
    const void *images;
    const int *order;
    const uint8_t *mask;
    void *weights;
    int threadIndex, threadCount;
    int result;
} Adj1bArgs;

// Thread body of the weight pass: runs adj1b_orig on its band, stores the result.
LV_API void *adj1b_threaded(void *args);

// What adj1_32 scores: planes + 1 photographs of 8-bit samples, back to back, packed rows.
typedef struct FusionWeightSource {
    const uint8_t *images;
    int32_t samplesPerPixel;
} FusionWeightSource;

// Leaves the well-exposedness shares of the first `planes` photographs of the
// FusionWeightSource at `selection` as 8-bit planes at memory (plane k at k x width x
// height bytes; memory must not overlap the photographs). Returns 1, -1 for bits other
// than 8 or no source.
LV_API int adj1_32(int width, int height, int bits, int planes, void *selection, void *memory);

// Smooths the 8-bit plane at in + offset into out + offset (in may equal out). Returns 1,
// -1 for bits other than 8 or a negative strength, -4 when out of memory.
LV_API int smooth_nosubsample(int strength, int width, int height, int bits, int offset, void *in,
                              void *out);

// Completes n - 1 planes at memory with plane n - 1 so that the n planes sum to exactly
// 255 at every pixel. Returns 1, -1 for bits other than 8 or n < 1.
LV_API int final_poids32(int width, int height, int bits, int n, void *memory);

LV_EXTERN_C_END
