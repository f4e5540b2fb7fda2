// The one-level steps of adjustment maps: the exact halving (the 8-bit tower reduce with the
// label rule), the exact doubling (the blend's spline subdivision with the label rule) and the
// bilinear step of any ratio, in both directions.
#include <algorithm>
#include <cmath>

#include "lumivantor/pyramid.h"
#include "pyramid/adjustment_map.h"

namespace lv::maps {

void halve(int srcW, int srcH, int dstW, int dstH, const uint8_t *src, uint8_t *dst) {
    for (int y = 0; y < dstH; ++y) {
        // The centre is the even source entry; neighbours past an edge repeat the edge.
        const int cy = std::min(2 * y, srcH - 1);
        const int yn = std::max(cy - 1, 0), ys = std::min(cy + 1, srcH - 1);
        for (int x = 0; x < dstW; ++x, dst += 2) {
            const int cx = std::min(2 * x, srcW - 1);
            const int xw = std::max(cx - 1, 0), xe = std::min(cx + 1, srcW - 1);
            const uint8_t *c = entry(src, srcW, cx, cy);
            const auto v = [&](int px, int py) { return tap_value(entry(src, srcW, px, py), c); };
            const int s = 4 * c[0] + 2 * (v(cx, yn) + v(cx, ys) + v(xe, cy) + v(xw, cy)) +
                          (v(xw, yn) + v(xe, yn) + v(xw, ys) + v(xe, ys));
            // Rounded, with the exact half (remainder 8) going down.
            dst[0] = static_cast<uint8_t>(std::min((s >> 4) + ((s & 15) >= 9 ? 1 : 0), 255));
            dst[1] = c[1];
        }
    }
}

void double_up(int srcW, int srcH, int dstW, int dstH, bool wrap, const uint8_t *src,
               uint8_t *dst) {
    const int last = srcW - 1;
    for (int y = 0; y < dstH; ++y) {
        const int cy = std::min(y >> 1, srcH - 1);
        const int yn = std::max(cy - 1, 0), ys = std::min(cy + 1, srcH - 1);
        for (int x = 0; x < dstW; ++x, dst += 2) {
            const int cx = std::min(x >> 1, last);
            // Columns past the edge repeat it, or come round the panorama with wrap.
            const int xw = cx > 0 ? cx - 1 : (wrap ? last : 0);
            const int xe = cx < last ? cx + 1 : (wrap ? 0 : last);
            const uint8_t *c = entry(src, srcW, cx, cy);
            const auto v = [&](int px, int py) { return tap_value(entry(src, srcW, px, py), c); };
            const int C = c[0], E = v(xe, cy), S = v(cx, ys), SE = v(xe, ys);
            double value;
            if ((x & 1) == 0 && (y & 1) == 0)
                value = 0.5626 * C + 0.09375 * (v(cx, yn) + S + E + v(xw, cy)) +
                        0.0156 * (v(xw, yn) + v(xe, yn) + v(xw, ys) + SE);
            else if ((y & 1) == 0)
                value = 0.375 * (C + E) + 0.0625 * (v(cx, yn) + v(xe, yn) + S + SE);
            else if ((x & 1) == 0)
                value = 0.375 * (C + S) + 0.0625 * (v(xw, cy) + E + v(xw, ys) + SE);
            else
                value = 0.25 * (C + E + S + SE);
            dst[0] = static_cast<uint8_t>(std::min(value, 255.0));
            dst[1] = c[1];
        }
    }
}

namespace {

// Integer place and fraction of a destination coordinate, from (srcLen x out) / dstLen in
// single precision; the far tap repeats the near one at the last column or row.
struct Axis {
    int near, far;
    float f;
};

inline Axis axis_of(int out, int srcLen, int dstLen) {
    const float s = static_cast<float>(int64_t(srcLen) * out) / static_cast<float>(dstLen);
    const int i = std::min(static_cast<int>(s), srcLen - 1);
    return {i, i >= srcLen - 1 ? i : i + 1, s - static_cast<float>(i)};
}

} // namespace

void any_ratio(bool downward, int srcW, int srcH, int dstW, int dstH, const uint8_t *src,
               uint8_t *dst) {
    for (int y = 0; y < dstH; ++y) {
        const Axis ay = axis_of(y, srcH, dstH);
        for (int x = 0; x < dstW; ++x, dst += 2) {
            const Axis ax = axis_of(x, srcW, dstW);
            const uint8_t *taps[4] = {
                entry(src, srcW, ax.near, ay.near), entry(src, srcW, ax.far, ay.near),
                entry(src, srcW, ax.near, ay.far), entry(src, srcW, ax.far, ay.far)};
            const float w[4] = {(1 - ax.f) * (1 - ay.f), ax.f * (1 - ay.f), (1 - ax.f) * ay.f,
                                ax.f * ay.f};
            // The reference is the heaviest tap; a later one only if strictly heavier.
            int ref = 0;
            for (int k = 1; k < 4; ++k)
                if (w[k] > w[ref]) ref = k;
            float sum = 0;
            for (int k = 0; k < 4; ++k) {
                sum += w[k] * static_cast<float>(tap_value(taps[k], taps[ref]));
                if (downward) sum = std::trunc(sum);
            }
            dst[0] = static_cast<uint8_t>(std::min(sum, 255.0f));
            dst[1] = taps[ref][1];
        }
    }
}

} // namespace lv::maps

extern "C" LV_API int downsample_map_one_level(int halving, int srcW, int srcH, int dstW, int dstH,
                                               const uint8_t *src, uint8_t *dst) {
    if (srcW < 1 || srcH < 1 || dstW < 1 || dstH < 1) return 0;
    if (halving)
        lv::maps::halve(srcW, srcH, dstW, dstH, src, dst);
    else
        lv::maps::any_ratio(true, srcW, srcH, dstW, dstH, src, dst);
    return dstH;
}

extern "C" LV_API int upsample_map_one_level(int doubling, int srcW, int srcH, int dstW, int dstH,
                                             int wrap, const uint8_t *src, uint8_t *dst) {
    if (srcW < 1 || srcH < 1 || dstW < 1 || dstH < 1) return 0;
    if (doubling)
        lv::maps::double_up(srcW, srcH, dstW, dstH, wrap != 0, src, dst);
    else
        lv::maps::any_ratio(false, srcW, srcH, dstW, dstH, src, dst);
    return dstH;
}
