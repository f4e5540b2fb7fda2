// Views of a bracket and of HDR images for a host's ghost-removal screens: 8-bit B, G, R
// views of planar RGBE rows and 16-bit images, a red-blue swapping copy, and the crop of a
// region into a stack. Nothing in the library calls these; all run on the caller's thread.
#include <lumivantor/ghost.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

// One 8-bit view sample of a decoded mantissa: 256 (f m)^g, held to 0..255 and truncated.
inline uint8_t view_sample(float f, int mantissa, double g) {
    const double v = 256.0 * std::pow(static_cast<double>(f * static_cast<float>(mantissa)), g);
    return static_cast<uint8_t>(std::max(std::min(v, 255.0), 0.0));
}

// Planar RGBE rows to a B, G, R view with the gap rowPad after each view row. On a pixel of
// exponent 0, black_pixel decides what is written.
template <class Black>
int rgbe_to_view(int width, int height, const float *table, float s, double g, int rowPad,
                 const uint8_t *rgbe, uint8_t *view, Black black_pixel) {
    if (height < 1) return 0;
    uint8_t *out = view;
    for (int y = 0; y < height; ++y) {
        const uint8_t *r = rgbe + static_cast<size_t>(y) * 4 * width;
        const uint8_t *gr = r + width, *b = r + 2 * width, *e = r + 3 * width;
        for (int x = 0; x < width; ++x, out += 3) {
            if (e[x] == 0) {
                black_pixel(out);
                continue;
            }
            const float f = table[e[x]] * s;
            out[0] = view_sample(f, b[x], g);
            out[1] = view_sample(f, gr[x], g);
            out[2] = view_sample(f, r[x], g);
        }
        out += rowPad;
    }
    return height;
}

void write_black(uint8_t *px) {
    px[0] = px[1] = px[2] = 0;
}

} // namespace

extern "C" {

LV_API int applyGammaToHDR(int width, int height, const float *table, int rowPad,
                           const uint8_t *rgbe, uint8_t *view) {
    return rgbe_to_view(width, height, table, 0.60046536f, 0.44999998807907104, rowPad, rgbe, view,
                        write_black);
}

LV_API int getTonemappedRep(int width, int height, const float *table, const uint8_t *rgbe,
                            uint8_t *view, float scale) {
    // A black pixel clears the view's first pixel and leaves its own place as it was, so a
    // host hands in a cleared view.
    return rgbe_to_view(width, height, table, scale, 0.45454543828964233, 0, rgbe, view,
                        [view](uint8_t *) { write_black(view); });
}

LV_API int generateOriginalFromHDR(int width, int height, int rowPad, int, const float *table,
                                   const uint8_t *rgbe, uint8_t *view, float gamma, int,
                                   float scale) {
    return rgbe_to_view(width, height, table, scale, gamma, rowPad, rgbe, view, write_black);
}

LV_API int generateOriginalFrom16Bit(int width, int height, int srcStride, int dstStride,
                                     int samples, const uint16_t *src, uint8_t *dst) {
    if (height < 1) return 0;
    const size_t row = static_cast<size_t>(samples) * width;
    for (int y = 0; y < height; ++y) {
        const uint16_t *s = src + static_cast<size_t>(y) * srcStride;
        uint8_t *d = dst + static_cast<size_t>(y) * dstStride;
        for (size_t i = 0; i < row; ++i)
            d[i] = static_cast<uint8_t>(s[i] >> 8);
    }
    return height;
}

LV_API int copyAndConvertImageRows(int width, int height, int srcStride, int dstStride, int samples,
                                   int bits, int swapRedBlue, const void *src, void *dst) {
    if (!swapRedBlue) {
        const size_t bytes = static_cast<size_t>(std::min(srcStride, dstStride)) * (bits / 8);
        for (int y = 0; y < height; ++y)
            std::memcpy(
                static_cast<uint8_t *>(dst) + static_cast<size_t>(y) * dstStride * (bits / 8),
                static_cast<const uint8_t *>(src) + static_cast<size_t>(y) * srcStride * (bits / 8),
                bytes);
        return 0;
    }
    if (samples != 3 || (bits != 8 && bits != 16)) return -1;
    if (height < 1) return 0;
    auto swap_rows = [&](auto *s, auto *d) {
        for (int y = 0; y < height; ++y) {
            const auto *sr = s + static_cast<size_t>(y) * srcStride;
            auto *dr = d + static_cast<size_t>(y) * dstStride;
            for (int x = 0; x < width; ++x) {
                const auto a = sr[3 * x], b = sr[3 * x + 1], c = sr[3 * x + 2];
                dr[3 * x] = c;
                dr[3 * x + 1] = b;
                dr[3 * x + 2] = a;
            }
        }
    };
    if (bits == 8)
        swap_rows(static_cast<const uint8_t *>(src), static_cast<uint8_t *>(dst));
    else
        swap_rows(static_cast<const uint16_t *>(src), static_cast<uint16_t *>(dst));
    return height;
}

LV_API int cropAndMoveImage(const void *src, void *dst, int width, int height, int srcWidth,
                            int cropY, int cropOffset, float scale, const int32_t bits[2],
                            const int32_t steps[2]) {
    const int srcBits = bits[0], dstBits = bits[1];
    const int srcStep = steps[0], dstStep = steps[1];
    if (srcBits == 32) {
        // Planar RGBE: whole rows from cropY on, each plane cut to width bytes.
        const uint8_t *s = static_cast<const uint8_t *>(src) +
                           static_cast<size_t>(static_cast<float>(cropY) * srcWidth * scale);
        uint8_t *d = static_cast<uint8_t *>(dst);
        for (int y = 0; y < height; ++y)
            for (int c = 0; c < 4; ++c)
                std::memcpy(d + (static_cast<size_t>(y) * 4 + c) * width,
                            s + (static_cast<size_t>(y) * 4 + c) * srcWidth, width);
        return 0;
    }
    // A one-sample destination takes sample 0 only, written three times at one place.
    const int up = dstStep >= 2 ? 1 : 0;
    const size_t start = static_cast<size_t>(static_cast<float>(width) * height * scale * dstStep);
    auto move = [&](const auto *s, auto *d, auto convert) {
        d += start;
        for (int y = 0; y < height; ++y) {
            const auto *row = s + cropOffset + static_cast<size_t>(y) * srcStep * srcWidth;
            for (int x = 0; x < width; ++x, d += dstStep) {
                const auto *px = row + static_cast<size_t>(x) * srcStep;
                d[0] = convert(px[0]);
                d[up] = convert(px[up]);
                d[2 * up] = convert(px[2 * up]);
            }
        }
    };
    auto same = [](auto v) { return v; };
    if (srcBits == 8)
        move(static_cast<const uint8_t *>(src), static_cast<uint8_t *>(dst), same);
    else if (dstBits == 8)
        move(static_cast<const uint16_t *>(src), static_cast<uint8_t *>(dst),
             [](uint16_t v) { return static_cast<uint8_t>(v >> 8); });
    else
        move(static_cast<const uint16_t *>(src), static_cast<uint16_t *>(dst), same);
    return 0;
}

} // extern "C"
