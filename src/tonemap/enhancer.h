// Internal pieces of the enhancer driver: the initial-guess upsampling of the
// two-resolution run and the cubic knots shared with the last stage.
#pragma once

#include "lumivantor/tonemap.h"

LV_EXTERN_C_BEGIN

// Upsamples a coarse plane of cw x ch onto a fine one of w x h (w <= 2 cw, h <= 2 ch)
// with near-bilinear 3 x 3 weights; wrap closes the rows as a 360-degree panorama.
// Returns h.
LV_API int tm1_init(int w, int h, int cw, int ch, int wrap, float *coarse, float *fine);

// Coefficients of the cubic a x^3 + b x^2 + c x + d through (x0, y0) with zero slope
// there and its inflection at (x1, y1); all 0 when no such cubic exists. Returns a.
LV_API float coeffPoly3(float *a, float *b, float *c, float *d, float x0, float y0, float x1,
                        float y1);

LV_EXTERN_C_END
