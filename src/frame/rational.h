// The rational form of capture settings (seconds, f-numbers, millimetres) shared by the
// metadata record and the Radiance header reader, and a double-to-int32 conversion that
// stays defined for values a hostile file can give.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>

namespace lv {

// Truncates toward zero; values beyond int32 stick to its ends, NaN gives 0.
inline int32_t saturate_i32(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(v);
}

// The value a camera or a header meant by a float: its shortest decimal form, read as a
// double. A float holds 1/250 s a hair above 0.004 and f/1.8 a hair below 1.8; truncating
// those binary errors would give 100/24999 and 179/100 instead of 100/25000 and 180/100.
inline double decimal_value(float value) {
    char text[32];
    const auto written = std::to_chars(text, text + sizeof text, value);
    double v = value;
    std::from_chars(text, written.ptr, v);
    return v;
}

// Two decimals for values of 1 and more (f/2 -> 200/100); values below 1 keep a numerator
// of 100 (1/8 s -> 100/800). Zero, negative and NaN leave the pair alone.
inline void to_rational(float value, int32_t *num, int32_t *den) {
    if (!(value > 0.0f)) return;
    const double v = decimal_value(value);
    if (v >= 1.0) {
        *num = saturate_i32(100.0 * v);
        *den = 100;
    } else {
        *num = 100;
        *den = saturate_i32(100.0 / v);
    }
}

} // namespace lv
