// The small byte tower that turns scattered per-pixel ghost verdicts into solid regions:
// reduce with the fusion kernel, dilate the coarsest level, expand back with a binomial.
#pragma once

#include <cstdint>

#include "lumivantor/export.h"

LV_EXTERN_C_BEGIN

// One reduction of a tower level, as fusion21a (offsets in samples); returns coarseH, 0 for a
// depth other than 8, 16 or 32.
LV_API int deghost21a(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int bits, int wrap,
                      int64_t fineOffset, int64_t coarseOffset, void *unused, void *tower);
// One expansion of a one-byte-a-pixel level onto the next finer one with the 3x3 binomial,
// edges replicated (or wrapped left to right); returns bigHeight, 0 for an empty size.
LV_API int deghost22b(int bigWidth, int bigHeight, int smallWidth, int smallHeight, int wrap,
                      const uint8_t *small, uint8_t *big);
// Builds a one-sample tower of `levels` reductions above level 0; returns levels.
LV_API int deghost21(int levels, int width, int height, int bits, int wrap, void *tower);

LV_EXTERN_C_END

namespace lv {

// Widens every non-zero byte of a w x h plane to its eight neighbours, a row pass then a
// column pass; a later source byte overwrites an earlier one where both reach. Needs one
// scratch plane of w x h bytes.
void dilate_ghost_level(int w, int h, uint8_t *plane, uint8_t *scratch);

} // namespace lv
