// Per-pixel steps of the enhancer's last stage: the hue-table colour stage, the clip to
// output levels and the cubic knots of smooth shadow and saturation ramps.
#pragma once

#include <algorithm>

#include "colour/hsl_core.h"
#include "colour/hue_recipe.h"

namespace lv {

// The tone mappers' colour stage on normalised rgb, in place: the hue tables' recipe.
inline void hue_table_stage(float *rgb, bool use_lum, const float *colour_table,
                            const float *lum_table) {
    float hsv[3];
    rgb_to_hsv(rgb, hsv);
    float v = hsv[2];
    float mn = clamp_unit(v - hsv[1] * v);
    const int i = static_cast<int>(hsv[0] * 4095.0f);
    if (use_lum && v > 0.0f) scale_by_saturation(lum_table[i] * 2.0f, mn, v);
    rebuild_from_entry(colour_table + 3 * i, mn, v, rgb);
}

// v on 0..1 to an output level on 0..max_out, truncated; NaN and negatives give 0.
template <class T> inline T to_level(float v, float max_out) {
    const float x = v * max_out;
    if (!(x > 0.0f)) return 0;
    if (x > max_out) return static_cast<T>(max_out);
    return static_cast<T>(x);
}

// Coefficients of the cubic a x^3 + b x^2 + c x + d that passes through (x0, y0) with
// zero slope and has its inflection at (x1, y1); all four are 0 when the knots leave no
// such cubic.
struct Cubic {
    float a, b, c, d;
    float at(float x, float x2, float x3) const { return a * x3 + b * x2 + c * x + d; }
};

inline Cubic cubic_through(float x0, float y0, float x1, float y1) {
    const float den = 2.0f * (x1 * x1 * x1 - x0 * x0 * x0) + 6.0f * x0 * x1 * (x0 - x1);
    if (den == 0.0f) return {0.0f, 0.0f, 0.0f, 0.0f};
    Cubic q;
    q.a = (y0 - y1) / den;
    q.b = -3.0f * x1 * q.a;
    q.c = (6.0f * x0 * x1 - 3.0f * x0 * x0) * q.a;
    q.d = y0 - (q.c * x0 + q.b * x0 * x0 + q.a * x0 * x0 * x0);
    return q;
}

} // namespace lv
