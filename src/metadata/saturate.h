// Conversion of a double to int32 that stays defined for values a hostile file can give.
#pragma once

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

} // namespace lv
