// RGB to and from HSL and HSV, one pixel at a time.
//
// Four HSL entry families exist for hosts and passes written at different times. They
// share the arithmetic below; they differ only in the input and output scale and in the
// denominator of the saturation of light colours.
#include <algorithm>

#include "lumivantor/colour.h"

namespace {

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

void rgb_to_hsl_core(float r, float g, float b, float *hsl, double light_two) {
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

float channel(float p, float q, float t) {
    if (t < 0.0f) t += 1.0f;
    if (t > 1.0f) t -= 1.0f;
    const float t6 = 6.0f * t;
    if (t6 < 1.0f) return p + (q - p) * t6;
    if (2.0f * t < 1.0f) return q;
    if (3.0f * t < 2.0f) return static_cast<float>(p + (q - p) * (4.0 - 6.0 * t));
    return p;
}

void hsl_to_rgb_core(const float *hsl, float *rgb, float scale) {
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

} // namespace

extern "C" {

void rgb2hsl(int scale, const float *rgb, float *hsl) {
    const float inv = 1.0f / static_cast<float>(scale);
    rgb_to_hsl_core(rgb[0] * inv, rgb[1] * inv, rgb[2] * inv, hsl, kLightTwo);
}

void hsl2rgb(int scale, const float *hsl, float *rgb) {
    hsl_to_rgb_core(hsl, rgb, static_cast<float>(scale));
}

float hue2rgb(float p, float q, float t) { return channel(p, q, t); }

int rgb2hsl_norm(const float *rgb, float *hsl) {
    rgb_to_hsl_core(rgb[0], rgb[1], rgb[2], hsl, kLightTwo);
    return 1;
}

int hsl2rgb_norm(const float *hsl, float *rgb) {
    hsl_to_rgb_core(hsl, rgb, 1.0f);
    return 1;
}

int rgb_to_hsl(const float *rgb, float *hsl) { return rgb2hsl_norm(rgb, hsl); }
int hsl_to_rgb(const float *hsl, float *rgb) { return hsl2rgb_norm(hsl, rgb); }
float hue_to_rgb(float p, float q, float t) { return channel(p, q, t); }

void frgb2hsl(const float *rgb, float *hsl) {
    rgb_to_hsl_core(rgb[0], rgb[1], rgb[2], hsl, kLightTwoSafe);
}
float fhue2rgb(float p, float q, float t) { return channel(p, q, t); }
void fhsl2rgb(const float *hsl, float *rgb) { hsl_to_rgb_core(hsl, rgb, 1.0f); }

int rgb2hsv_norm(const float *rgb, float *hsv) {
    const float r = rgb[0], g = rgb[1], b = rgb[2];
    const float mx = std::max(std::max(r, g), b);
    const float mn = std::min(std::min(r, g), b);
    hsv[2] = mx;
    if (mx == 0.0f || mn == mx) {
        hsv[0] = 0.0f;
        hsv[1] = 0.0f;
        return 1;
    }
    const float d = mx - mn;
    hsv[1] = d / mx;
    hsv[0] = hue_from(r, g, b, mx, d);
    return 1;
}

int hsv2rgb_norm(const float *hsv, float *rgb) {
    const float s = hsv[1], v = hsv[2];
    if (s == 0.0f) {
        rgb[0] = rgb[1] = rgb[2] = v;
        return 1;
    }
    const float h6 = hsv[0] * 6.0f;
    const int sector = static_cast<int>(h6);
    // A hue of exactly one turn, or a negative one, names no sector: the output is kept.
    if (static_cast<unsigned>(sector) > 5u) return 1;
    const float p = static_cast<float>((1.0 - s) * v);
    const float delta = (v - p) * (h6 - static_cast<float>(sector));
    const float q = v - delta;
    const float t = p + delta;
    const float out[6][3] = {{v, t, p}, {q, v, p}, {p, v, t}, {p, q, v}, {t, p, v}, {v, p, q}};
    rgb[0] = out[sector][0];
    rgb[1] = out[sector][1];
    rgb[2] = out[sector][2];
    return 1;
}

} // extern "C"
