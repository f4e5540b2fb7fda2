// RGB to and from HSL and HSV, one pixel at a time.
//
// Four HSL entry families exist for hosts and passes written at different times. They
// share the arithmetic of colour/hsl_core.h; they differ only in the input and output scale and in
// the denominator of the saturation of light colours.
#include "colour/hsl_core.h"
#include "lumivantor/colour.h"

using lv::channel;
using lv::hsl_to_rgb_core;
using lv::kLightTwo;
using lv::kLightTwoSafe;
using lv::rgb_to_hsl_core;

extern "C" {

void rgb2hsl(int scale, const float *rgb, float *hsl) {
    const float inv = 1.0f / static_cast<float>(scale);
    rgb_to_hsl_core(rgb[0] * inv, rgb[1] * inv, rgb[2] * inv, hsl, kLightTwo);
}

void hsl2rgb(int scale, const float *hsl, float *rgb) {
    hsl_to_rgb_core(hsl, rgb, static_cast<float>(scale));
}

float hue2rgb(float p, float q, float t) {
    return channel(p, q, t);
}

int rgb2hsl_norm(const float *rgb, float *hsl) {
    rgb_to_hsl_core(rgb[0], rgb[1], rgb[2], hsl, kLightTwo);
    return 1;
}

int hsl2rgb_norm(const float *hsl, float *rgb) {
    hsl_to_rgb_core(hsl, rgb, 1.0f);
    return 1;
}

int rgb_to_hsl(const float *rgb, float *hsl) {
    return rgb2hsl_norm(rgb, hsl);
}
int hsl_to_rgb(const float *hsl, float *rgb) {
    return hsl2rgb_norm(hsl, rgb);
}
float hue_to_rgb(float p, float q, float t) {
    return channel(p, q, t);
}

void frgb2hsl(const float *rgb, float *hsl) {
    rgb_to_hsl_core(rgb[0], rgb[1], rgb[2], hsl, kLightTwoSafe);
}
float fhue2rgb(float p, float q, float t) {
    return channel(p, q, t);
}
void fhsl2rgb(const float *hsl, float *rgb) {
    hsl_to_rgb_core(hsl, rgb, 1.0f);
}

int rgb2hsv_norm(const float *rgb, float *hsv) {
    lv::rgb_to_hsv(rgb, hsv);
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
