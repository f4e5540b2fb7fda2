// Tower passes of ghost detection. The reduce is the fusion blend's own, so that a region
// shrinks the same way a blended weight does; the expansion is a 3x3 binomial on the coarse
// grid with the edge pixels repeated.
#include "ghost/detect_tower.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "fusion/blend.h"

namespace lv {

void dilate_ghost_level(int w, int h, uint8_t *plane, uint8_t *scratch) {
    const size_t size = static_cast<size_t>(w) * h;
    // Rows: read the untouched copy, write into the plane.
    std::memcpy(scratch, plane, size);
    for (int y = 0; y < h; ++y) {
        const uint8_t *src = scratch + static_cast<size_t>(y) * w;
        uint8_t *dst = plane + static_cast<size_t>(y) * w;
        for (int x = 0; x < w; ++x) {
            if (!src[x]) continue;
            if (x > 0) dst[x - 1] = src[x];
            if (x + 1 < w) dst[x + 1] = src[x];
        }
    }
    // Columns: read the row result, write into a copy of it, which then replaces the plane.
    std::memcpy(scratch, plane, size);
    for (int y = 0; y < h; ++y) {
        const uint8_t *src = plane + static_cast<size_t>(y) * w;
        for (int x = 0; x < w; ++x) {
            if (!src[x]) continue;
            if (y > 0) scratch[static_cast<size_t>(y - 1) * w + x] = src[x];
            if (y + 1 < h) scratch[static_cast<size_t>(y + 1) * w + x] = src[x];
        }
    }
    std::memcpy(plane, scratch, size);
}

} // namespace lv

extern "C" {

LV_API int deghost21a(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int bits, int wrap,
                      int64_t fineOffset, int64_t coarseOffset, void *unused, void *tower) {
    return fusion21a(fineW, fineH, coarseW, coarseH, ncomp, bits, wrap, fineOffset, coarseOffset,
                     unused, tower);
}

LV_API int deghost21(int levels, int width, int height, int bits, int wrap, void *tower) {
    return fusion21(levels, width, height, bits, wrap, tower);
}

LV_API int deghost22b(int bigWidth, int bigHeight, int smallWidth, int smallHeight, int wrap,
                      const uint8_t *small, uint8_t *big) {
    if (bigWidth < 1 || bigHeight < 1 || smallWidth < 1 || smallHeight < 1) return 0;
    // Columns of each coarse pixel's west and east neighbours: repeated at the edges, or
    // taken from the opposite side when the image wraps.
    std::vector<int> west(static_cast<size_t>(smallWidth)), east(west.size());
    for (int cx = 0; cx < smallWidth; ++cx) {
        west[size_t(cx)] = cx > 0 ? cx - 1 : (wrap ? smallWidth - 1 : 0);
        east[size_t(cx)] = cx + 1 < smallWidth ? cx + 1 : (wrap ? 0 : smallWidth - 1);
    }
    for (int y = 0; y < bigHeight; ++y) {
        const int cy = std::min(y / 2, smallHeight - 1);
        const uint8_t *rn = small + static_cast<size_t>(std::max(cy - 1, 0)) * smallWidth;
        const uint8_t *rc = small + static_cast<size_t>(cy) * smallWidth;
        const uint8_t *rs =
            small + static_cast<size_t>(std::min(cy + 1, smallHeight - 1)) * smallWidth;
        uint8_t *out = big + static_cast<size_t>(y) * bigWidth;
        const bool odd_row = y & 1;
        for (int x = 0; x < bigWidth; ++x) {
            const int cx = std::min(x / 2, smallWidth - 1);
            const int w = west[size_t(cx)], e = east[size_t(cx)];
            const int C = rc[cx], E = rc[e], S = rs[cx], SE = rs[e];
            int sum;
            if (x & 1)
                sum =
                    odd_row ? 64 * (C + E + S + SE) : 96 * (C + E) + 16 * (rn[cx] + rn[e] + S + SE);
            else if (odd_row)
                sum = 96 * (C + S) + 16 * (rc[w] + E + rs[w] + SE);
            else
                sum = 144 * C + 24 * (E + rc[w] + rn[cx] + S) + 4 * (rn[w] + rn[e] + rs[w] + SE);
            out[x] = static_cast<uint8_t>(sum >> 8);
        }
    }
    return bigHeight;
}

} // extern "C"
