// Memory plan of the enhancer: where the plane pyramid starts in the host's work buffer,
// how large that buffer must be, and how many pyramid levels the image supports.
#include <algorithm>
#include <cmath>

#include "lumivantor/tonemap.h"

namespace {

constexpr double kLog2e = 1.4426950408889634;

// Floats of a pyramid of `rounds` levels above w x h; sides halve (rounding up) only
// while both are at least `limit`, after which each round adds the same level again.
size_t pyramid_floats(size_t w, size_t h, int rounds, size_t limit) {
    size_t sum = w * h;
    for (int i = 0; i < rounds; ++i) {
        if (w >= limit && h >= limit) {
            w = (w + 1) / 2;
            h = (h + 1) / 2;
        }
        sum += w * h;
    }
    return sum;
}

int octaves_over_32(int side) {
    return static_cast<int>(std::log(side / 32.0) * kLog2e + 0.5);
}

} // namespace

extern "C" int mem4enhancer(int kind, float *p, size_t *pair, size_t *total, DimParam dim) {
    const size_t w = static_cast<size_t>(std::max(dim.width, 0));
    const size_t h = static_cast<size_t>(std::max(dim.height, 0));
    size_t input_bytes;
    if (kind == 0 && dim.inputFormat == 0) {
        input_bytes = 4 * w * h;
    } else {
        input_bytes = static_cast<size_t>(std::max(dim.strideIn, 0)) * h;
        if (kind == 0 && dim.inputFormat == 10) input_bytes <<= 2;
        if (kind == 1) input_bytes <<= 1;
    }
    const int extra = p[16] == 0.0f ? 2 - static_cast<int>(p[5]) : 0;
    // Output bytes are counted on the input pitch.
    const size_t output_bytes = static_cast<size_t>(std::max(dim.strideIn, 0)) * h *
                                static_cast<size_t>(std::max(dim.bpsOut, 0) / 8);
    int levels = (octaves_over_32(dim.width) + octaves_over_32(dim.height)) / 2 + extra;
    levels = std::max(levels, 1);

    const int rounds1 = p[16] != 0.0f ? levels + 3 : 4;
    const size_t s1 = pyramid_floats(w, h, rounds1, 6);
    const size_t s2 = pyramid_floats(w, h, levels, 10);
    const size_t pyramid_bytes = 4 * std::max(s1, s2);
    const size_t plane_offset = std::max(pyramid_bytes, input_bytes);
    if (pair) {
        pair[0] = plane_offset;
        pair[1] = s2;
    }
    if (total) *total = std::max(output_bytes, pyramid_bytes) + plane_offset;

    // No more levels than the image has octaves.
    const int l2w = static_cast<int>(std::log2(std::max(dim.width, 1)));
    const int l2h = static_cast<int>(std::log2(std::max(dim.height, 1)));
    int r = levels < l2w ? levels : l2w - 1;
    r = r < l2h ? r : l2h - 1;
    return std::max(r, 1);
}
