// Adjustment maps: two bytes an entry, the strength (0..255) and a region label. Every filter
// here takes its taps through the label rule, so strengths never leak across region edges.
#pragma once

#include <cstdint>

namespace lv::maps {

// One entry of a map w entries wide.
inline const uint8_t *entry(const uint8_t *map, int w, int x, int y) {
    return map + 2 * (int64_t(y) * w + x);
}

// The label rule: a tap of another region counts with the reference entry's strength.
inline int tap_value(const uint8_t *tap, const uint8_t *ref) {
    return tap[1] == ref[1] ? tap[0] : ref[0];
}

// The bilinear step of any ratio between two sizes; `downward` truncates each partial sum.
void any_ratio(bool downward, int srcW, int srcH, int dstW, int dstH, const uint8_t *src,
               uint8_t *dst);
// The exact halving and doubling steps.
void halve(int srcW, int srcH, int dstW, int dstH, const uint8_t *src, uint8_t *dst);
void double_up(int srcW, int srcH, int dstW, int dstH, bool wrap, const uint8_t *src, uint8_t *dst);

} // namespace lv::maps
