// Rounding shared by the slider helpers.
#pragma once

namespace lv {

// Truncates toward zero, then adds 1 if the rest is strictly above 0.5 (as arrondi does,
// but in double). Negative values are never rounded up past their truncation.
inline int round_over_half(double z) {
    const int t = static_cast<int>(z);
    return (z - t > 0.5) ? t + 1 : t;
}

} // namespace lv
