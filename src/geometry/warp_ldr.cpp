// remap_ldr: the mirror-ball warp of interleaved 8 and 16-bit pixels.
#include <cstdint>

#include "geometry/warp.h"
#include "lumivantor/geometry.h"

namespace {

using namespace lv::warp;

template <class S>
void warp_rows(int mode, int W, int H, long srcPitch, long dstPitch, int ncomp, const S *src,
               S *dst) {
    // The first three samples of a pixel; a grey pixel gives its one sample three times.
    const int k1 = ncomp > 1 ? 1 : 0, k2 = ncomp > 2 ? 2 : k1;
    const int chan[3] = {0, k1, k2};
    const long row_end = static_cast<long>(W) * ncomp; // samples of a row that hold pixels
    const auto pixel = [&](int col, int row) { return src + row * srcPitch + long(col) * ncomp; };
    const auto at = [&](int col, int row, double v[3]) {
        const S *s = pixel(col, row);
        for (int k = 0; k < 3; ++k)
            v[k] = s[chan[k]];
    };
    for (int y = 0; y < H; ++y) {
        const Row row = row_of(y, H);
        S *out = dst + y * dstPitch;
        for (int x = 0; x < 2 * W; ++x, out += ncomp) {
            const Place p = place_of(x, W, H, row);
            double v[3];
            if (mode == 0) {
                int col, r;
                nearest_of(p, W, H, col, r);
                const S *s = pixel(col, r);
                for (int k = 0; k < 3; ++k)
                    out[chan[k]] = s[chan[k]];
                continue;
            }
            if (mode == 1) {
                // The right pixel lies three samples on, whatever ncomp says; at the last
                // column it is the left one, and it never reads past the row.
                const long left = long(p.ix) * ncomp;
                const long right = p.ix < W - 1 ? std::min(left + 3, row_end - 1 - k2) : left;
                const long r0 = long(clamp_index(p.iy, H)) * srcPitch;
                const long r1 = long(clamp_index(p.iy + 1, H)) * srcPitch;
                for (int k = 0; k < 3; ++k) {
                    const int c = chan[k];
                    const double upper = lerp_x(src[r0 + left + c], src[r0 + right + c], p.fx);
                    const double lower = lerp_x(src[r1 + left + c], src[r1 + right + c], p.fx);
                    v[k] = lerp_y(upper, lower, p.fy);
                }
            } else if (mode == 2) {
                cubic_sum(p, W, H, at, v);
            } else {
                continue; // an unknown filter leaves the pixel as it was
            }
            // Both filters are held to the 8-bit range, at depth 16 as well.
            for (int k = 0; k < 3; ++k)
                out[chan[k]] = static_cast<S>(clamp255(v[k]));
        }
    }
}

} // namespace

extern "C" LV_API int remap_ldr(int mode, int bits, int W, int H, int srcPitch, int dstPitch,
                                int ncomp, const void *src, void *dst) {
    if ((bits != 8 && bits != 16) || W < 1 || H < 2 || ncomp < 1) return 0;
    if (bits == 8)
        warp_rows(mode, W, H, srcPitch, dstPitch, ncomp, static_cast<const uint8_t *>(src),
                  static_cast<uint8_t *>(dst));
    else
        warp_rows(mode, W, H, srcPitch, dstPitch, ncomp, static_cast<const uint16_t *>(src),
                  static_cast<uint16_t *>(dst));
    return H;
}
