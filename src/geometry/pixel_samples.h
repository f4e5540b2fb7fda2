// Which samples of a pixel the geometry routines carry: the first, the middle and the
// last, so that a fourth (alpha or padding) sample is skipped.
#pragma once

#include <cstdint>

namespace lv {

struct SampleIndex {
    int first, middle, last;
};

inline SampleIndex samples_of(int ncomp) {
    return {0, (ncomp - 1) / 2, ncomp - 1};
}

// Copies the three carried samples of one pixel, converting the sample type with `conv`.
template <class S, class D, class Conv>
inline void copy_pixel(const S *s, D *d, SampleIndex k, Conv conv) {
    d[k.first] = conv(s[k.first]);
    d[k.middle] = conv(s[k.middle]);
    d[k.last] = conv(s[k.last]);
}

inline uint8_t high_byte(uint16_t v) {
    return static_cast<uint8_t>(v >> 8);
}

// Bit p of a mask stored most significant bit first.
inline bool mask_bit(const uint8_t *m, long p) {
    return (m[p >> 3] >> (7 - (p & 7))) & 1;
}
inline void set_mask_bit(uint8_t *m, long p) {
    m[p >> 3] |= static_cast<uint8_t>(0x80 >> (p & 7));
}

} // namespace lv
