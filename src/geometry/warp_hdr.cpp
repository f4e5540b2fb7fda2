// remap_hdr: the mirror-ball warp of planar RGBE rows.
#include <array>
#include <cmath>
#include <cstdint>

#include "geometry/warp.h"
#include "lumivantor/geometry.h"

namespace {

using namespace lv::warp;

// Mantissa scale per exponent byte, 2^(e - 128): values stand 256 times above the usual RGBE
// scale, and the encoder below undoes it with its exponent bias of 120.
std::array<float, 256> make_table() {
    std::array<float, 256> t{};
    for (int e = 0; e < 256; ++e)
        t[e] = std::ldexp(1.0f, e - 128);
    return t;
}

void encode(const double v[3], uint8_t *r, uint8_t *g, uint8_t *b, uint8_t *e) {
    const double m = std::max(v[0], std::max(v[1], v[2]));
    int ex = 0;
    const double f = m > 1e-32 ? std::frexp(m, &ex) : 0.0;
    if (m <= 1e-32 || ex + 120 < 1) {
        *r = *g = *b = *e = 0;
        return;
    }
    if (ex + 120 > 255) { // beyond the largest exponent byte: the brightest pixel there is
        *r = *g = *b = *e = 255;
        return;
    }
    const double s = f * 256 / m;
    const auto byte = [s](double c) {
        return static_cast<uint8_t>(std::min(std::max(c * s, 0.0), 255.0));
    };
    *r = byte(v[0]);
    *g = byte(v[1]);
    *b = byte(v[2]);
    *e = static_cast<uint8_t>(ex + 120);
}

} // namespace

extern "C" LV_API int remap_hdr(int mode, int W, int H, const uint8_t *src, uint8_t *dst) {
    if (H < 2 || W < 1) return 0;
    static const std::array<float, 256> table = make_table();
    const long in_row = 4L * W, out_w = 2L * W, out_row = 4 * out_w;
    const auto at = [&](int col, int row, double v[3]) {
        const uint8_t *s = src + row * in_row + col;
        const uint8_t e = s[3 * W];
        for (int k = 0; k < 3; ++k)
            v[k] = e == 0 ? 0.0 : double(float(s[k * W]) * table[e]);
    };
    for (int y = 0; y < H; ++y) {
        const Row row = row_of(y, H);
        uint8_t *out = dst + y * out_row;
        for (int x = 0; x < 2 * W; ++x) {
            const Place p = place_of(x, W, H, row);
            double v[3];
            if (mode == 0) { // copies the four bytes of the nearest pixel, no decoding
                int col, r;
                nearest_of(p, W, H, col, r);
                const uint8_t *s = src + r * in_row + col;
                for (int k = 0; k < 4; ++k)
                    out[k * out_w + x] = s[k * W];
                continue;
            }
            if (mode == 1) {
                const int c0 = p.ix, c1 = clamp_index(p.ix + 1, W);
                const int r0 = clamp_index(p.iy, H), r1 = clamp_index(p.iy + 1, H);
                double a[3], b[3], c[3], d[3];
                at(c0, r0, a), at(c1, r0, b), at(c0, r1, c), at(c1, r1, d);
                for (int k = 0; k < 3; ++k)
                    v[k] = lerp_y(lerp_x(a[k], b[k], p.fx), lerp_x(c[k], d[k], p.fx), p.fy);
            } else if (mode == 2) {
                cubic_sum(p, W, H, at, v);
                // Negative lobes may ring below black next to a bright light: no light is
                // negative.
                for (double &c : v)
                    c = std::max(c, 0.0);
            } else {
                continue; // an unknown filter leaves the pixel as it was
            }
            encode(v, &out[x], &out[out_w + x], &out[2 * out_w + x], &out[3 * out_w + x]);
        }
    }
    return H;
}
