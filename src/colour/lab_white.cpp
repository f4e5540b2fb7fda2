// L*a*b* on Adobe RGB primaries, the daylight white of a colour temperature, and the
// matrices between the working RGB spaces and XYZ.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "colour/finish_lab.h"
#include "lumivantor/colour.h"

namespace {

inline float lab_inverse(float f) {
    const float cube = f * f * f;
    if (cube > 0.008856f) return cube;
    return static_cast<float>(f * 0.1284180245406873 - 0.017712830971129283);
}

struct SpaceMatrices {
    float to_xyz[9];
    float from_xyz[9];
};

// sRGB and Adobe RGB on D65, ProPhoto RGB on D50.
constexpr SpaceMatrices kSpaces[3] = {
    {{0.4124564f, 0.3575761f, 0.1804375f, 0.2126729f, 0.7151522f, 0.072175f, 0.0193339f, 0.119192f,
      0.9503041f},
     {3.2404542f, -1.5371385f, -0.4985314f, -0.969266f, 1.8760108f, 0.041556f, 0.0556434f,
      -0.2040259f, 1.0572252f}},
    {{0.5767309f, 0.185554f, 0.1881852f, 0.2973769f, 0.6273491f, 0.0752741f, 0.0270343f, 0.0706872f,
      0.9911085f},
     {2.041369f, -0.5649464f, -0.3446944f, -0.969266f, 1.8760108f, 0.041556f, 0.0134474f,
      -0.1183897f, 1.0154096f}},
    {{0.7976749f, 0.1351917f, 0.0313534f, 0.2880402f, 0.7118741f, 0.0000857f, 0.0f, 0.0f, 0.82521f},
     {1.3459433f, -0.2556075f, -0.0511118f, -0.5445989f, 1.5081673f, 0.0205351f, 0.0f, 0.0f,
      1.2118129f}},
};

} // namespace

extern "C" {

void rgb2Lab(int fromFloats, const float *rgb, const float *linearLut, const int *sampleIndex,
             float *lab) {
    float r, g, b;
    if (fromFloats == 0) {
        r = linearLut[sampleIndex[0]];
        g = linearLut[sampleIndex[1]];
        b = linearLut[sampleIndex[2]];
    } else {
        r = rgb[0];
        g = rgb[1];
        b = rgb[2];
    }
    // The exponent is the system's 0.33333, not 1/3.
    lv::lab_from_linear(r, g, b, lab, [](double ratio) {
        return static_cast<float>(std::pow(ratio, 0.33333));
    });
}

void Lab2rgb(int toFloats, const float *lab, float *rgb, int maxValue, const int *gammaLut,
             unsigned *samples) {
    const float l = lab[0];
    const float fy = static_cast<float>(l * 0.008620689655172414 + 0.13793103448275862);
    const float yr = l > 7.999625f ? fy * fy * fy : static_cast<float>(l * 0.001107052);
    const float fx = static_cast<float>(fy + lab[1] * 0.002);
    const float fz = static_cast<float>(fy - lab[2] * 0.005);
    const double x = lab_inverse(fx) * 0.95047;
    const double y = yr;
    const double z = lab_inverse(fz) * 1.08883;
    const float out[3] = {
        static_cast<float>(2.041369 * x - 0.5649464 * y - 0.3446944 * z),
        static_cast<float>(-0.969266 * x + 1.8760108 * y + 0.041556 * z),
        static_cast<float>(0.0134474 * x - 0.1183897 * y + 1.0154096 * z),
    };
    if (toFloats != 0) {
        std::memcpy(rgb, out, sizeof out);
        return;
    }
    for (int c = 0; c < 3; ++c) {
        const int level = static_cast<int>(out[c] * maxValue + 0.5);
        samples[c] =
            static_cast<unsigned>(level < 0 ? gammaLut[0] : gammaLut[std::min(level, maxValue)]);
    }
}

void kelvin2XYZ(int kelvin, float *xyz) {
    const float t = static_cast<float>(kelvin);
    const float t2 = t * t;
    const float t3 = t2 * t;
    float x;
    if (kelvin < 7001)
        x = static_cast<float>(99.11 / t + 0.244063 + 2967800.0 / t2 - 4607000000.0 / t3);
    else
        x = static_cast<float>(247.48 / t + 0.23704 + 1901800.0 / t2 - 2006400000.0 / t3);
    const float y = static_cast<float>(-3.0 * x * x + 2.87 * x - 0.275);
    if (y == 0.0f) return;
    xyz[0] = x / y;
    xyz[1] = 1.0f;
    xyz[2] = (1.0f - x - y) / y;
}

int getRGB_to_from_XYZ(unsigned space, float *rgbToXyz, float *xyzToRgb) {
    if (space > 2) return 1;
    std::memcpy(rgbToXyz, kSpaces[space].to_xyz, sizeof kSpaces[space].to_xyz);
    std::memcpy(xyzToRgb, kSpaces[space].from_xyz, sizeof kSpaces[space].from_xyz);
    return 1;
}

} // extern "C"
