// The one construction of an RGBE pixel from three linear floats, shared by every producer
// of RGBE in the library (merge, writers, later the tone mappers and float-file readers).
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace lv {

// Mantissas of r, g, b against their largest component m (> 0): frexp splits m into a
// fraction in [0.5, 1) and an exponent e, the scale fraction * 256 / m is formed in double
// and narrowed to float, and each mantissa is the truncated product, kept within 0..255.
// Returns e; the caller stores e + 128, with whatever limits its own format needs.
inline int rgbe_mantissas(float r, float g, float b, float m, uint8_t *mr, uint8_t *mg,
                          uint8_t *mb) {
    int e = 0;
    float f;
    uint32_t bits;
    std::memcpy(&bits, &m, sizeof bits);
    const int biased = static_cast<int>((bits >> 23) & 0xFF);
    if (biased != 0 && biased != 0xFF) {
        // For a normal m the fraction is m / 2^e exactly, so fraction * 256 / m is exactly
        // 2^(8 - e) in double, and its narrowing is that power or, past the float range,
        // infinity. Reading it off the exponent field spares a division a pixel.
        e = biased - 126;
        const int power = 8 - e;
        if (power <= 127) {
            const uint32_t fb = static_cast<uint32_t>(power + 127) << 23;
            std::memcpy(&f, &fb, sizeof f);
        } else {
            f = static_cast<float>(std::ldexp(1.0, power));
        }
    } else { // subnormal, infinite or NaN: the literal construction
        const double fraction = std::frexp(static_cast<double>(m), &e);
        f = static_cast<float>(fraction * 256.0 / static_cast<double>(m));
    }
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
