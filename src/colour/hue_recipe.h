// The per-hue recipe shared by the tone mappers' colour stage and the colour adjustment
// pass: a pixel is split into its minimum, its maximum and its hue, the luminance-by-hue
// factor moves both ends, and the hue entry says where between them each channel lands.
#pragma once

namespace lv {

inline float clamp_unit(float v) {
    return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v);
}

// Scales the pixel's minimum and maximum by a luminance factor f, in proportion to the
// pixel's saturation: greys (min == max) keep their level. max must be above 0.
inline void scale_by_saturation(float f, float &mn, float &mx) {
    const float k = (f - 1.0f) * (1.0f - mn / mx) + 1.0f;
    mn *= k;
    mx *= k;
}

// Rebuilds a pixel from its hue entry (three floats): each channel is the minimum plus
// the entry times the range, held to 0..1.
inline void rebuild_from_entry(const float *entry, float mn, float mx, float *out) {
    const float range = mx - mn;
    for (int c = 0; c < 3; ++c)
        out[c] = clamp_unit(entry[c] * range + mn);
}

} // namespace lv
