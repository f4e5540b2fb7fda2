// Pyramid blend of exposure fusion: the reduce of image and weight towers at any depth, the
// weighted sum of each photograph's band-pass levels into a biased 16-bit accumulator, and
// the collapse of that accumulator, with a detail gain, into the picture.
//
// Towers have the layout of pyramid.h; levels run from 0 (finest) to `levels` (the low-pass
// top). Image samples are 15-bit (32767 is white). The accumulator's band levels hold the
// weighted band-pass sum plus 0x7FFF and clamp to 0..65535 after every photograph; its top
// level holds the weighted low-pass sum, starting at 0 and wrapping in 16 bits. A 32-bit
// (float) accumulator can't be collapsed: fusion22 then adds nothing and the collapse refuses.
#pragma once

#include <cstdint>
#include <cstdio>

#include "lumivantor/export.h"

LV_EXTERN_C_BEGIN

// Reduces one level of a tower of `bits` 8 or 16 (unsigned) or 32 (float) samples, ncomp a
// pixel, from fineOffset to coarseOffset (in samples): the 3x3 binomial inside, a
// five-neighbour kernel along the edges and a three-sample one in the corners. Returns
// coarseH, or 0 for another depth (nothing done).
LV_API int fusion21a(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int bits, int wrap,
                     int64_t fineOffset, int64_t coarseOffset, void *unused, void *tower);

// Builds a whole one-sample tower of `levels` reductions above level 0. Returns levels.
LV_API int fusion21(int levels, int width, int height, int bits, int wrap, void *tower);

// Adds one photograph, at level 0 of the 16-bit imageTower, to the accumulator: reduces the
// image tower level by level and sums each band-pass level and the top under the weight
// tower, from weightTower or, when it is null, from the file fpPyramPoids (read row by row
// through rowBuffer at level 0, into the start of the image tower above it). Returns levels,
// 0 with accumBits other than 16, -1 with neither weights nor file, -3 on a short read.
LV_API int fusion22(int levels, int width, int height, int ncomp, int accumBits, int weightBits,
                    int wrap, void *weightTower, FILE *fpPyramPoids, void *rowBuffer,
                    void *imageTower, void *accumulator);

// Sums the band-pass of one level (fine minus the cubic expand of the coarse level) under its
// weights into the accumulator's fine level. With readRows each weight row is read from
// fpPyramPoids at sample weightOffset + y x fineW into rowBuffer; float weights are not read
// here (weight 1). Returns fineH, -3 on a short read or failed seek, -4 out of memory.
LV_API int fusion22et23(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int weightBits,
                        int wrap, int readRows, FILE *fpPyramPoids, void *rowBuffer,
                        int64_t weightOffset, int64_t fineOffset, int64_t coarseOffset,
                        void *weights, void *imageTower, void *accumulator);

// Moire guard: the detail gain of `level` of `levels` under guard mode 1 to 7 (thins out
// the middle-to-coarse levels); other modes return gain unchanged.
LV_API float fixMoire(int mode, int level, int levels, float gain);

// Collapses the accumulator from the top to level 0 into out (bpsOut 8 or 16, rows of
// strideOut samples), with the detail strength of param[8] shifted towards fine levels when
// above 5; param[8] is left holding level 0's strength. A tower of no levels writes its
// top. Returns 1, -1 for negative levels, -4 out of memory.
LV_API int fusion3_main(float *param, int levels, int width, int height, int ncomp, int bpsOut,
                        int accumBits, int strideOut, int swapRedBlue, int wrap, void *accumulator,
                        void *out);

// Collapses level `level` onto its finished coarse level: band-pass less the 0x7FFF bias,
// lifted by 0.2 x param[8] where it is slight, plus the expand, limited to 0..32767; level 0
// is also written to out. Returns fineH, 0 when fineH is 0, -16 when accumBits isn't 16,
// -4 out of memory.
LV_API int fusion31et32(int level, int levels, float *param, int fineW, int fineH, int coarseW,
                        int coarseH, int ncomp, int bpsOut, int strideOut, int swapRedBlue,
                        int accumBits, int wrap, int64_t fineOffset, int64_t coarseOffset,
                        void *accumulator, void *out);

LV_EXTERN_C_END
