// Resizing: the bilinear lv_downsample (8 and 16-bit samples, RGBE rows, floats) and the
// nearest-neighbour family (downsample_decimate, retaille, zoom2, zoom_cm).
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fileio/rgbe_pixel.h"
#include "frame/c_buffer.h"
#include "geometry/pixel_samples.h"
#include "lumivantor/frame.h"
#include "lumivantor/geometry.h"

namespace {

// Source coordinates and weights of one bilinear output pixel. The far neighbour is held
// to the last row or column: it is only reached when enlarging more than twofold, where
// it would lie past the image.
struct Tap {
    int i0, i1;
    float f;
};

inline Tap tap(int out, float scale, int src_len) {
    const float u = static_cast<float>(out) * scale;
    const int i = static_cast<int>(u);
    return {i, std::min(i + 1, src_len - 1), u - static_cast<float>(i)};
}

inline float mix(float a, float b, float c, float d, float fu, float fv) {
    return (1.0f - fu) * (1.0f - fv) * a + fu * (1.0f - fv) * b + (1.0f - fu) * fv * c +
           fu * fv * d;
}

// Bilinear mix of interleaved samples for every pixel but the last row and column, which
// then copy their neighbours. Read converts a source sample to float, Store writes a mix.
template <class S, class D, class Read, class Store>
void bilinear(int srcW, int srcH, long srcPitch, int dstW, int dstH, long dstPitch, int ncomp,
              const S *src, D *dst, Read read, Store store) {
    const float sx = static_cast<float>(srcW) / static_cast<float>(dstW);
    const float sy = static_cast<float>(srcH) / static_cast<float>(dstH);
    const lv::SampleIndex k = lv::samples_of(ncomp);
    const int ch[3] = {k.first, k.middle, k.last};
    for (int y = 0; y < dstH - 1; ++y) {
        const Tap v = tap(y, sy, srcH);
        const S *r0 = src + v.i0 * srcPitch;
        const S *r1 = src + v.i1 * srcPitch;
        D *out = dst + y * dstPitch;
        for (int x = 0; x < dstW - 1; ++x) {
            const Tap u = tap(x, sx, srcW);
            for (int c : ch)
                out[x * ncomp + c] =
                    store(mix(read(r0[u.i0 * ncomp + c]), read(r0[u.i1 * ncomp + c]),
                              read(r1[u.i0 * ncomp + c]), read(r1[u.i1 * ncomp + c]), u.f, v.f));
        }
        // The last column repeats the one before it; a one-pixel row has none to repeat.
        if (dstW >= 2)
            for (int c : ch)
                out[(dstW - 1) * ncomp + c] = out[(dstW - 2) * ncomp + c];
    }
    if (dstH >= 2)
        std::memcpy(dst + (dstH - 1) * dstPitch, dst + (dstH - 2) * dstPitch,
                    sizeof(D) * static_cast<size_t>(dstW) * ncomp);
}

int downsample_rgbe(int srcW, int srcH, int dstW, int dstH, const uint8_t *src, uint8_t *dst) {
    lv::CBuf<float> table = lv::calloc_array<float>(256);
    if (!table) return LV_ERR_NOMEM;
    for (int e = 0; e < 256; ++e)
        table[e] = static_cast<float>(std::ldexp(1.0, e - 136));
    const float sx = static_cast<float>(srcW) / static_cast<float>(dstW);
    const float sy = static_cast<float>(srcH) / static_cast<float>(dstH);
    const long sp = 4L * srcW, dp = 4L * dstW;
    // Linear colour c of the pixel at column x of an RGBE row; exponent 0 is black.
    auto colour = [&](const uint8_t *row, int x, int c) {
        const uint8_t e = row[3L * srcW + x];
        return e == 0 ? 0.0f : static_cast<float>(row[static_cast<long>(c) * srcW + x]) * table[e];
    };
    for (int y = 0; y < dstH - 1; ++y) {
        const Tap v = tap(y, sy, srcH);
        const uint8_t *r0 = src + v.i0 * sp, *r1 = src + v.i1 * sp;
        uint8_t *out = dst + y * dp;
        for (int x = 0; x < dstW - 1; ++x) {
            const Tap u = tap(x, sx, srcW);
            float rgb[3];
            for (int c = 0; c < 3; ++c)
                rgb[c] = mix(colour(r0, u.i0, c), colour(r0, u.i1, c), colour(r1, u.i0, c),
                             colour(r1, u.i1, c), u.f, v.f);
            const float m = lv::max3(rgb[0], rgb[1], rgb[2]);
            if (m >= 1e-32f) {
                const int e = lv::rgbe_mantissas(rgb[0], rgb[1], rgb[2], m, &out[x], &out[dstW + x],
                                                 &out[2L * dstW + x]);
                out[3L * dstW + x] = static_cast<uint8_t>(e + 128);
            } else {
                for (int c = 0; c < 4; ++c)
                    out[static_cast<long>(c) * dstW + x] = 0;
            }
        }
        if (dstW >= 2)
            for (int c = 0; c < 4; ++c)
                out[static_cast<long>(c) * dstW + dstW - 1] =
                    out[static_cast<long>(c) * dstW + dstW - 2];
    }
    if (dstH >= 2) std::memcpy(dst + (dstH - 1) * dp, dst + (dstH - 2) * dp, dp);
    return dstH;
}

// Nearest-neighbour resize behind zoom2 and zoom_cm: row min(trunc(y step), srcH - 1) and
// column trunc(x step), with pixel(src, dst) writing one 8-bit output pixel.
template <class S, class Pixel>
void zoom_rows(int srcH, long srcPitch, int dstW, int dstH, long dstPitch, int ncomp, const S *src,
               uint8_t *dst, float step, Pixel pixel) {
    for (int y = 0; y < dstH; ++y) {
        const int sy = std::min(static_cast<int>(static_cast<float>(y) * step), srcH - 1);
        const S *row = src + sy * srcPitch;
        uint8_t *out = dst + y * dstPitch;
        for (int x = 0; x < dstW; ++x)
            pixel(row + static_cast<long>(static_cast<int>(static_cast<float>(x) * step)) * ncomp,
                  out + static_cast<long>(x) * ncomp);
    }
}

} // namespace

extern "C" {

LV_API int lv_downsample(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch,
                         int ncomp, int bits, const void *src, void *dst) {
    if (srcW < 1 || srcH < 1 || dstW < 1 || dstH < 1) return 0;
    auto as_is = [](auto v) { return static_cast<float>(v); };
    switch (bits) {
    case 8:
        bilinear(srcW, srcH, srcPitch, dstW, dstH, dstPitch, ncomp,
                 static_cast<const uint8_t *>(src), static_cast<uint8_t *>(dst), as_is,
                 [](float v) { return static_cast<uint8_t>(v); });
        return dstH;
    case 16:
        // A 168 in the first output byte asks for 8-bit output mixed from the high bytes.
        if (*static_cast<const uint8_t *>(dst) == 168)
            bilinear(
                srcW, srcH, srcPitch, dstW, dstH, dstPitch, ncomp,
                static_cast<const uint16_t *>(src), static_cast<uint8_t *>(dst),
                [](uint16_t v) { return static_cast<float>(v >> 8); },
                [](float v) { return static_cast<uint8_t>(v); });
        else
            bilinear(srcW, srcH, srcPitch, dstW, dstH, dstPitch, ncomp,
                     static_cast<const uint16_t *>(src), static_cast<uint16_t *>(dst), as_is,
                     [](float v) { return static_cast<uint16_t>(v); });
        return dstH;
    case 32:
        return downsample_rgbe(srcW, srcH, dstW, dstH, static_cast<const uint8_t *>(src),
                               static_cast<uint8_t *>(dst));
    case 323:
        bilinear(srcW, srcH, srcPitch, dstW, dstH, dstPitch, ncomp, static_cast<const float *>(src),
                 static_cast<float *>(dst), as_is, [](float v) { return v; });
        return dstH;
    default:
        return 0;
    }
}

LV_API int downsample_decimate(int srcW, int srcH, int dstW, int dstH, int srcNcomp, int dstNcomp,
                               int bits, int srcPitch, int dstPitch, const void *src, void *dst) {
    if (bits != 8 && bits != 16 && bits != 1) return LV_ERR_ARG;
    const float sx = static_cast<float>(srcW) / static_cast<float>(dstW);
    const float sy = static_cast<float>(srcH) / static_cast<float>(dstH);
    const long sp = std::max(srcW * srcNcomp, srcPitch);
    const long dp = std::max(dstW * dstNcomp, dstPitch);
    const lv::SampleIndex ks = lv::samples_of(srcNcomp), kd = lv::samples_of(dstNcomp);
    auto *out = static_cast<uint8_t *>(dst);
    long bit = 0;
    for (int y = 0; y < dstH; ++y) {
        const int r = std::min(static_cast<int>(sy * static_cast<float>(y)), srcH - 1);
        for (int x = 0; x < dstW; ++x) {
            const int c = std::min(static_cast<int>(sx * static_cast<float>(x)), srcW - 1);
            if (bits == 1) {
                if (lv::mask_bit(static_cast<const uint8_t *>(src),
                                 static_cast<long>(r) * srcW + c))
                    lv::set_mask_bit(out, bit);
                ++bit;
                continue;
            }
            uint8_t *d = out + y * dp + static_cast<long>(x) * dstNcomp;
            const long at = r * sp + static_cast<long>(c) * srcNcomp;
            uint8_t v[3];
            if (bits == 16) {
                const uint16_t *s = static_cast<const uint16_t *>(src) + at;
                v[0] = lv::high_byte(s[ks.first]), v[1] = lv::high_byte(s[ks.middle]);
                v[2] = lv::high_byte(s[ks.last]);
            } else {
                const uint8_t *s = static_cast<const uint8_t *>(src) + at;
                v[0] = s[ks.first], v[1] = s[ks.middle], v[2] = s[ks.last];
            }
            d[kd.first] = v[0], d[kd.middle] = v[1], d[kd.last] = v[2];
        }
    }
    return dstH;
}

LV_API int retaille(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch, int ncomp,
                    const uint8_t *src, uint8_t *dst) {
    for (int y = 0; y < dstH; ++y) {
        const int r = std::min(static_cast<int>(static_cast<float>(y) * static_cast<float>(srcH) /
                                                static_cast<float>(dstH)),
                               srcH - 1);
        const uint8_t *row = src + static_cast<long>(r) * srcPitch;
        uint8_t *out = dst + static_cast<long>(y) * dstPitch;
        for (int x = 0; x < dstW; ++x) {
            const int c = static_cast<int>(static_cast<float>(x) * static_cast<float>(srcW) /
                                           static_cast<float>(dstW));
            const uint8_t *s = row + static_cast<long>(c) * ncomp;
            uint8_t *d = out + static_cast<long>(x) * ncomp;
            // A grey image spreads its one sample over three.
            if (ncomp >= 2)
                d[0] = s[0], d[1] = s[1], d[2] = s[2];
            else
                d[0] = d[1] = d[2] = s[0];
        }
    }
    return dstH;
}

LV_API int zoom2(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch, int ncomp,
                 int bits, const void *src, uint8_t *dst, float step) {
    return zoom_cm(srcW, srcH, srcPitch, dstW, dstH, dstPitch, ncomp, bits, src, dst, step,
                   nullptr);
}

LV_API int zoom_cm(int srcW, int srcH, int srcPitch, int dstW, int dstH, int dstPitch, int ncomp,
                   int bits, const void *src, uint8_t *dst, float step, const float *matrix) {
    (void)srcW;
    const lv::SampleIndex k = lv::samples_of(ncomp);
    if (bits == 16) {
        zoom_rows(srcH, srcPitch, dstW, dstH, dstPitch, ncomp, static_cast<const uint16_t *>(src),
                  dst, step,
                  [k](const uint16_t *s, uint8_t *d) { lv::copy_pixel(s, d, k, lv::high_byte); });
        return dstH;
    }
    if (bits != 8) return 0;
    const auto *s8 = static_cast<const uint8_t *>(src);
    if (!matrix || !(matrix[0] > 0.0f)) {
        zoom_rows(srcH, srcPitch, dstW, dstH, dstPitch, ncomp, s8, dst, step,
                  [k](const uint8_t *s, uint8_t *d) {
                      lv::copy_pixel(s, d, k, [](uint8_t v) { return v; });
                  });
        return dstH;
    }
    // The matrix works in fixed point with four decimals, on samples in blue, green, red
    // order: a is the last sample, c the first.
    int m[9];
    for (int i = 0; i < 9; ++i)
        m[i] = static_cast<int>(matrix[i] * 10000.0f);
    zoom_rows(srcH, srcPitch, dstW, dstH, dstPitch, ncomp, s8, dst, step,
              [k, &m](const uint8_t *s, uint8_t *d) {
                  const int a = s[k.last], b = s[k.middle], c = s[k.first];
                  d[k.last] = static_cast<uint8_t>(lim8((m[0] * a + m[1] * b + m[2] * c) / 10000));
                  d[k.middle] =
                      static_cast<uint8_t>(lim8((m[3] * a + m[4] * b + m[5] * c) / 10000));
                  d[k.first] = static_cast<uint8_t>(lim8((m[6] * a + m[7] * b + m[8] * c) / 10000));
              });
    return dstH;
}

} // extern "C"
