// Conversions between float and IEEE 754 binary16.
#include <array>
#include <cstdint>
#include <cstring>

#include "lumivantor/frame.h"

namespace {

uint32_t bits_of(float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

float float_of(uint32_t u) {
    float f;
    std::memcpy(&f, &u, 4);
    return f;
}

// Half exponent and sign for every float sign-and-exponent (top nine bits) whose value
// lands on a normal half with exponent 1 to 29; zero marks the slow cases.
constexpr std::array<uint16_t, 512> make_base_table() {
    std::array<uint16_t, 512> t{};
    for (int i = 0; i < 512; ++i) {
        const int e = i & 0xFF;
        const int he = e - 112;
        if (he >= 1 && he <= 29)
            t[i] = static_cast<uint16_t>((he << 10) | ((i & 0x100) ? 0x8000 : 0));
    }
    return t;
}
constexpr std::array<uint16_t, 512> kBase = make_base_table();

// Rounds the 23-bit mantissa to 10 bits, ties to even; a carry lands in the exponent.
inline uint32_t rounded_mantissa(uint32_t m) {
    return (m + 0x0FFFu + ((m >> 13) & 1u)) >> 13;
}

} // namespace

extern "C" {

uint16_t floatToHalf(float f) {
    const uint32_t x = bits_of(f);
    if ((x & 0x7FFFFFFFu) == 0) return static_cast<uint16_t>(x >> 16);
    const uint32_t sign = (x >> 16) & 0x8000u;
    const uint32_t e = (x >> 23) & 0xFFu;
    const uint32_t m = x & 0x7FFFFFu;

    const uint32_t t = kBase[x >> 23];
    if (t != 0) return static_cast<uint16_t>(t + rounded_mantissa(m));

    if (e < 102) return static_cast<uint16_t>(sign);
    if (e < 113) {
        const uint32_t full = m | 0x800000u;
        const uint32_t shift = 126 - e;
        const uint32_t r = (full + ((1u << (shift - 1)) - 1u) + ((full >> shift) & 1u)) >> shift;
        return static_cast<uint16_t>(sign | r);
    }
    if (e == 255) {
        if (m == 0) return static_cast<uint16_t>(sign | 0x7C00u);
        uint32_t nm = m >> 13;
        if (nm == 0) nm = 1;
        return static_cast<uint16_t>(sign | 0x7C00u | nm);
    }
    // Exponent too high for the table: only the largest half exponent (30) survives, and
    // only if rounding doesn't carry it to 31.
    const uint32_t he = e - 112;
    if (he >= 31) return static_cast<uint16_t>(sign | 0x7C00u);
    const uint32_t r = (he << 10) + rounded_mantissa(m);
    if ((r >> 10) >= 31) return static_cast<uint16_t>(sign | 0x7C00u);
    return static_cast<uint16_t>(sign | r);
}

float halfToFloat(int h) {
    const uint32_t sign = (static_cast<uint32_t>(h) & 0x8000u) << 16;
    const uint32_t e = (static_cast<uint32_t>(h) >> 10) & 0x1Fu;
    const uint32_t m = static_cast<uint32_t>(h) & 0x3FFu;
    if (e == 31) return float_of(sign | 0x7F800000u | (m << 13));
    if (e == 0 && m == 0) return float_of(sign);
    // A subnormal half is built as if its exponent were 1, which keeps the hidden bit:
    // existing float files were written with this value and must read back the same.
    const uint32_t exp_bits = (e == 0 ? 1u : e) << 23;
    return float_of((sign | exp_bits | (m << 13)) + 0x38000000u);
}

} // extern "C"
