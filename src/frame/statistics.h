// Statistics state and helpers shared inside the library.
#pragma once

#include "lumivantor/frame.h"

LV_EXTERN_C_BEGIN

// Rounds of percentile adjustment counted across calls within one tone-mapping job.
// The first tone-mapping stage clears it; adjust_percentile reads and raises it.
LV_API extern int GlobalCntAdjust;

LV_EXTERN_C_END

namespace lv {

// Truncates v toward zero and clamps it to 0..top; NaN and negatives give 0. Doing the
// clamp before the conversion keeps out-of-range values from overflowing the int.
inline int clamped_bin(double v, int top) {
    if (!(v >= 1.0)) return 0; // also catches NaN; (-1, 1) truncates to 0 anyway
    if (v >= static_cast<double>(top)) return top;
    return static_cast<int>(v);
}

// Integer grey of 8-bit levels with weights 54, 183, 19 (sum 256), before the shift.
inline unsigned grey256(unsigned r, unsigned g, unsigned b) {
    return 54u * r + 183u * g + 19u * b;
}

} // namespace lv
