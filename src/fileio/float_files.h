// Pieces shared by the float TIFF, PSD and BMP readers: the float decoding with its
// exponent bias of 128, little and big-endian fields, and a chunked byte reader.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "fileio/rgbe_internal.h"
#include "fileio/rgbe_pixel.h"

namespace lv {

// Byte-order marks of a TIFF file, read as a little-endian 16-bit value.
constexpr int kTiffLittle = 18761; // "II"
constexpr int kTiffBig = 19789;    // "MM"

// Decodes a 32-bit float pattern with an exponent bias of 128 rather than 127, so every
// value is half its IEEE reading; the all-ones exponent is an ordinary number and the
// zero exponent keeps its hidden bit. Only the all-zero pattern gives 0.
inline float float_bias128(uint32_t bits) {
    if (bits == 0) return 0.0f;
    const uint32_t e = (bits >> 23) & 0xFFu;
    if (e >= 2 && e <= 254) {
        // One step down the exponent halves the value exactly.
        const uint32_t h = bits - (1u << 23);
        float f;
        std::memcpy(&f, &h, sizeof f);
        return f;
    }
    const double v = std::ldexp(1.0 + static_cast<double>(bits & 0x7FFFFFu) * 0x1p-23,
                                static_cast<int>(e) - 128);
    return static_cast<float>((bits & 0x80000000u) ? -v : v);
}

inline uint32_t load_le32(const uint8_t *p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline uint32_t load_be32(const uint8_t *p) {
    return (static_cast<uint32_t>(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
}
inline uint16_t load_le16(const uint8_t *p) {
    return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint16_t load_be16(const uint8_t *p) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

// Reads exactly n bytes; false on a short read.
inline bool read_exact(FILE *f, void *dst, size_t n) {
    return fread(dst, 1, n, f) == n;
}

// Encodes three linear floats as one RGBE pixel of a planar row, black when the largest is
// not above 1e-32. The exponent byte wraps to eight bits.
inline void put_rgbe(uint8_t *row, int width, int x, float r, float g, float b) {
    const float m = max3(r, g, b);
    if (!(static_cast<double>(m) > 1e-32)) {
        row[x] = row[width + x] = row[2 * width + x] = row[3 * width + x] = 0;
        return;
    }
    const int e = rgbe_mantissas(r, g, b, m, &row[x], &row[width + x], &row[2 * width + x]);
    row[3 * width + x] = static_cast<uint8_t>(e + 128);
}

} // namespace lv
