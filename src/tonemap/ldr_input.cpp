// Inputs of the tone mappers made from ordinary images: the linearising table of 8-bit
// and 16-bit levels, a log-luminance plane, and RGBE rows from an 8-bit or 16-bit image.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "fileio/rgbe_pixel.h"
#include "lumivantor/tonemap.h"

namespace {

// Slots of red, green and blue in an interleaved pixel.
struct Slots {
    int r, g, b;
};
inline Slots slots_of(int spp, int swap) {
    return {swap ? spp - 1 : 0, (spp - 1) / 2, swap ? 0 : spp - 1};
}

// Writes one RGBE pixel of a planar row through the library's one RGBE construction; a
// pixel with no positive sample is all zero.
inline void put_rgbe(unsigned char *row, int width, int x, float r, float g, float b) {
    const float top = lv::max3(r, g, b);
    if (!(top > 0.0f)) {
        row[x] = row[width + x] = row[2 * width + x] = row[3 * width + x] = 0;
        return;
    }
    const int e = lv::rgbe_mantissas(r, g, b, top, &row[x], &row[width + x], &row[2 * width + x]);
    row[3 * width + x] = static_cast<unsigned char>(e + 128);
}

} // namespace

extern "C" {

int camcurve(int flag, int n, float *table) {
    if (n < 2) return 1; // a one-entry table has no second level to copy
    const double gamma = flag >= 1 ? 1.0 : 2.2;
    const double step = 1.0 / (n - 1);
    for (int i = 1; i < n; ++i)
        table[i] = static_cast<float>(std::pow(i * step, gamma) * (n - 1));
    // No true zero: black maps on the first step, so its log stays finite.
    table[0] = table[1];
    return n;
}

int get_log_lum(int kind, int width, int height, int spp, int stride, float *stats,
                const float *lut, const unsigned char *source, float *logLum) {
    const Slots s = slots_of(spp, 0);
    constexpr float kHole = -1e9f;
    double sum = 0.0;
    float mn = 1e9f, mx = -1e9f;
    int count = 0;
    bool holes = false;
    for (int y = 0; y < height; ++y) {
        const size_t row = static_cast<size_t>(stride) * y;
        for (int x = 0; x < width; ++x) {
            const size_t at = row + static_cast<size_t>(spp) * x;
            float r, g, b;
            if (kind == 0) {
                const float *px = reinterpret_cast<const float *>(source) + at;
                r = px[s.r];
                g = px[s.g];
                b = px[s.b];
            } else if (kind == 1) {
                const uint16_t *px = reinterpret_cast<const uint16_t *>(source) + at;
                r = lut[px[s.r]];
                g = lut[px[s.g]];
                b = lut[px[s.b]];
            } else {
                const unsigned char *px = source + at;
                r = lut[px[s.r]];
                g = lut[px[s.g]];
                b = lut[px[s.b]];
            }
            const float lum = static_cast<float>(0.2126 * r + 0.7152 * g + 0.0722 * b);
            float l = kHole;
            if (lum > 0.0f) {
                l = std::log(lum);
                ++count;
                sum += l;
                mn = std::min(mn, l);
                mx = std::max(mx, l);
            } else {
                holes = true;
            }
            logLum[static_cast<size_t>(width) * y + x] = l;
        }
    }
    // Black pixels take the darkest level seen, so the plane has no holes.
    if (holes) {
        const size_t n = static_cast<size_t>(width) * height;
        for (size_t i = 0; i < n; ++i)
            if (logLum[i] < -99999999.0f) logLum[i] = mn;
    }
    if (count >= 1) stats[0] = static_cast<float>(std::exp(sum / count));
    if (stats[0] > 0.0f) stats[1] = static_cast<float>(std::exp(mx) / stats[0]);
    stats[2] = std::exp(mn);
    return count;
}

int convert_to_rgbe(int bps, int width, int height, int spp, int stride, int swapRedBlue,
                    const float *lut, const unsigned char *source, unsigned char *rgbe) {
    const Slots s = slots_of(spp, swapRedBlue);
    constexpr unsigned kDark = 1280, kClipped = 65024;
    float top = 0.0f, bottom = 1e11f;
    unsigned v = 0;
    for (int y = 0; y < height; ++y) {
        unsigned char *row = rgbe + static_cast<size_t>(4) * width * y;
        const size_t in_row = static_cast<size_t>(stride) * y;
        for (int x = 0; x < width; ++x) {
            const size_t at = in_row + static_cast<size_t>(spp) * x;
            unsigned ir = 0, ig = 0, ib = 0;
            // Fast grey on 8-bit levels. For 16 bits blue only adds a fixed 19 when it is
            // not near black: a bright blue counts no more than a faint one.
            if (bps == 8) {
                const unsigned char *px = source + at;
                ir = px[s.r];
                ig = px[s.g];
                ib = px[s.b];
                v = 54u * ir + 183u * ig + 19u * ib;
            } else if (bps == 16) {
                const uint16_t *px = reinterpret_cast<const uint16_t *>(source) + at;
                ir = px[s.r];
                ig = px[s.g];
                ib = px[s.b];
                v = 54u * (ir >> 8) + 183u * (ig >> 8) + (ib >= 9 ? 19u : 0u);
            } else {
                v >>= 8;
            }
            if (v < kDark) {
                row[x] = row[width + x] = row[2 * width + x] = row[3 * width + x] = 0;
                continue;
            }
            if (v >= kClipped) {
                row[x] = row[width + x] = row[2 * width + x] = row[3 * width + x] = 255;
                continue;
            }
            const float r = lut[ir], g = lut[ig], b = lut[ib];
            const float lum = static_cast<float>(0.3 * r + 0.6 * g + 0.1 * b);
            top = std::max(top, lum);
            bottom = std::min(bottom, lum);
            put_rgbe(row, width, x, r, g, b);
        }
    }
    // Dark and clipped pixels take the darkest and brightest levels the image reliably
    // has. With no such level at all they stay zero.
    for (int y = 0; y < height; ++y) {
        unsigned char *row = rgbe + static_cast<size_t>(4) * width * y;
        for (int x = 0; x < width; ++x) {
            const unsigned char e = row[3 * width + x];
            if (e != 255 && e != 0) continue;
            const float u = top > 0.0f ? (e == 255 ? top : bottom) : 0.0f;
            put_rgbe(row, width, x, u, u, u);
        }
    }
    return height;
}

} // extern "C"
