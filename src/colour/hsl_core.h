// Per-pixel HSL and HSV arithmetic shared by the exported conversions and by the
// passes that run it on every pixel, where an inlined call matters.
#pragma once

#include <algorithm>

namespace lv {

// Denominator 2 - (min + max) of the saturation of light colours. The slightly larger
// constant of the f* family keeps pure white from dividing by zero.
constexpr double kLightTwo = 2.0;
constexpr double kLightTwoSafe = 2.0000099999997474;

// Hue in 0..1 from the sextant form: red wins a tie, then green.
inline float hue_from(float r, float g, float b, float mx, float d) {
    float raw;
    if (r == mx)
        raw = (g - b) / d;
    else if (g != mx)
        raw = (r - g) / d + 4.0f;
    else
        raw = (b - r) / d + 2.0f;
    float h = static_cast<float>(raw * 0.16666666666666666);
    if (h < 0.0f) h += 1.0f;
    if (h > 1.0f) h -= 1.0f;
    return h;
}

// RGB to HSL; light_two is the 2 of the light-colour saturation denominator.
inline void rgb_to_hsl_core(float r, float g, float b, float *hsl, double light_two) {
    const float mx = std::max(std::max(r, g), b);
    const float mn = std::min(std::min(r, g), b);
    const float d = mx - mn;
    const float l = static_cast<float>(0.5 * (mx + mn));
    hsl[2] = l;
    if (d == 0.0f) {
        hsl[0] = 0.0f;
        hsl[1] = 0.0f;
        return;
    }
    if (l >= 0.5f)
        hsl[1] = static_cast<float>(d / (light_two - (mn + mx)));
    else
        hsl[1] = d / (mx + mn);
    hsl[0] = hue_from(r, g, b, mx, d);
}

// One channel of the HSL inverse for channel hue t, wrapped once into 0..1.
inline float channel(float p, float q, float t) {
    if (t < 0.0f) t += 1.0f;
    if (t > 1.0f) t -= 1.0f;
    const float t6 = 6.0f * t;
    if (t6 < 1.0f) return p + (q - p) * t6;
    if (2.0f * t < 1.0f) return q;
    if (3.0f * t < 2.0f) return static_cast<float>(p + (q - p) * (4.0 - 6.0 * t));
    return p;
}

// HSL to RGB, each channel multiplied by scale on the way out.
inline void hsl_to_rgb_core(const float *hsl, float *rgb, float scale) {
    const float h = hsl[0], s = hsl[1], l = hsl[2];
    if (s == 0.0f) {
        rgb[0] = rgb[1] = rgb[2] = l * scale;
        return;
    }
    const float q = l > 0.5f ? l + s - l * s : static_cast<float>((s + 1.0) * l);
    const float p = static_cast<float>(2.0 * l - q);
    rgb[0] = channel(p, q, static_cast<float>(h + 0.333333333333)) * scale;
    rgb[1] = channel(p, q, h) * scale;
    rgb[2] = channel(p, q, static_cast<float>(h - 0.3333333333333)) * scale;
}

// Normalised RGB to hue, saturation, value.
inline void rgb_to_hsv(const float *rgb, float *hsv) {
    const float r = rgb[0], g = rgb[1], b = rgb[2];
    const float mx = std::max(std::max(r, g), b);
    const float mn = std::min(std::min(r, g), b);
    hsv[2] = mx;
    if (mx == 0.0f || mn == mx) {
        hsv[0] = 0.0f;
        hsv[1] = 0.0f;
        return;
    }
    const float d = mx - mn;
    hsv[1] = d / mx;
    hsv[0] = hue_from(r, g, b, mx, d);
}

} // namespace lv
