// The one construction of an RGBE pixel from three linear floats, shared by every producer
// of RGBE in the library (merge, writers, later the tone mappers and float-file readers).
#pragma once

#include <cmath>
#include <cstdint>

namespace lv {

// Mantissas of r, g, b against their largest component m (> 0): frexp splits m into a
// fraction in [0.5, 1) and an exponent e, the scale fraction * 256 / m is formed in double
// and narrowed to float, and each mantissa is the truncated product, kept within 0..255.
// Returns e; the caller stores e + 128, with whatever limits its own format needs.
inline int rgbe_mantissas(float r, float g, float b, float m, uint8_t *mr, uint8_t *mg,
                          uint8_t *mb) {
    int e = 0;
    const double fraction = std::frexp(static_cast<double>(m), &e);
    const float f = static_cast<float>(fraction * 256.0 / static_cast<double>(m));
    auto mant = [f](float c) -> uint8_t {
        const float v = c * f;
        if (!(v >= 1.0f)) return 0; // negatives, NaN and values below one
        if (v >= 255.0f) return 255;
        return static_cast<uint8_t>(v);
    };
    *mr = mant(r);
    *mg = mant(g);
    *mb = mant(b);
    return e;
}

// Largest of three components.
inline float max3(float r, float g, float b) {
    float m = r > g ? r : g;
    return m > b ? m : b;
}

} // namespace lv
