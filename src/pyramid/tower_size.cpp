// How many samples a tower takes: the exact count over its levels, and the room callers
// reserve for one plane.
#include <cmath>
#include <cstdint>

#include "lumivantor/pyramid.h"

extern "C" {

LV_API int64_t pyram_len(int w, int h) {
    const float side = static_cast<float>(w < h ? w : h);
    // Narrowing the product to single precision makes the count exact at powers of two.
    const int levels = static_cast<int>(
        static_cast<float>(std::log(static_cast<double>(side)) * 1.4426950408889634));
    int64_t total = static_cast<int64_t>(w) * h;
    if (levels < 2) return total;
    for (int k = 1; k < levels; ++k) {
        w = w % 2 + (w >> 1);
        h = h % 2 + (h >> 1);
        total += static_cast<int64_t>(w) * h;
    }
    return total;
}

LV_API int64_t pyram_len2(int w, int h) {
    // The product is a 32-bit one; wrapping keeps it defined for absurd sizes.
    const int32_t area = static_cast<int32_t>(static_cast<uint32_t>(w) * static_cast<uint32_t>(h));
    const double room = static_cast<double>(static_cast<float>(area)) * 1.5 + 0.5;
    return static_cast<int64_t>(static_cast<float>(room));
}

} // extern "C"
