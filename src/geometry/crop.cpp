// Cutting out: rectangle copies of interleaved, RGBE and mask images, and the decimated
// base preview whose size matches a tower level.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "geometry/pixel_samples.h"
#include "lumivantor/frame.h"
#include "lumivantor/geometry.h"

namespace {

// A crop origin outside the image, and a preview size that no number of halvings reaches.
constexpr int kOutside = -2;
constexpr int kNotALevel = -5;

// Copies the three carried samples of a w x h rectangle between interleaved images.
template <class S>
void copy_rect(const S *src, long srcPitch, S *dst, long dstPitch, int w, int h, int ncomp, int x0,
               int y0, bool one_sample) {
    const lv::SampleIndex k = one_sample ? lv::SampleIndex{0, 0, 0} : lv::samples_of(ncomp);
    for (int y = 0; y < h; ++y) {
        const S *s = src + (y0 + y) * srcPitch + static_cast<long>(x0) * ncomp;
        S *d = dst + y * dstPitch;
        for (int x = 0; x < w; ++x)
            lv::copy_pixel(s + static_cast<long>(x) * ncomp, d + static_cast<long>(x) * ncomp, k,
                           [](S v) { return v; });
    }
}

// Copies the four runs of a rectangle of RGBE rows.
void copy_rgbe_rect(const uint8_t *src, int srcW, uint8_t *dst, int w, int h, int x0, int y0) {
    for (int y = 0; y < h; ++y)
        for (int run = 0; run < 4; ++run)
            std::memcpy(dst + 4L * w * y + static_cast<long>(run) * w,
                        src + 4L * srcW * (y0 + y) + static_cast<long>(run) * srcW + x0, w);
}

} // namespace

extern "C" {

LV_API int crop_ldr(int bits, int srcPitch, int cropW, int cropH, int dstPitch, int ncomp, int x0,
                    int y0, const void *src, void *dst) {
    x0 = std::max(x0, 0);
    y0 = std::max(y0, 0);
    if (bits == 8)
        copy_rect(static_cast<const uint8_t *>(src), srcPitch, static_cast<uint8_t *>(dst),
                  dstPitch, cropW, cropH, ncomp, x0, y0, ncomp < 2);
    else if (bits == 16)
        copy_rect(static_cast<const uint16_t *>(src), srcPitch, static_cast<uint16_t *>(dst),
                  dstPitch, cropW, cropH, ncomp, x0, y0, ncomp < 2);
    else
        return 0;
    return cropH;
}

LV_API int crop_hdr(int srcW, int cropW, int cropH, int x0, int y0, const uint8_t *src,
                    uint8_t *dst) {
    copy_rgbe_rect(src, srcW, dst, cropW, cropH, x0, y0);
    return cropH;
}

LV_API int extract_crop(int count, int width, int height, int ncomp, int unused, int bits,
                        int cropW, int cropH, int x0, int y0, const void *src, void *dst) {
    // The image count selects a route of its own elsewhere; the copy is the same one.
    (void)count;
    (void)unused;
    if (width < 5 || height < 5 || cropW < 5 || cropH < 5) return LV_ERR_ARG;
    if (x0 < 0 || y0 < 0 || x0 >= width || y0 >= height) return kOutside;
    const long pitch = static_cast<long>(width) * ncomp,
               out_pitch = static_cast<long>(cropW) * ncomp;
    switch (bits) {
    case 8:
        copy_rect(static_cast<const uint8_t *>(src), pitch, static_cast<uint8_t *>(dst), out_pitch,
                  cropW, cropH, ncomp, x0, y0, false);
        break;
    case 16:
        copy_rect(static_cast<const uint16_t *>(src), pitch, static_cast<uint16_t *>(dst),
                  out_pitch, cropW, cropH, ncomp, x0, y0, false);
        break;
    case 32:
        copy_rgbe_rect(static_cast<const uint8_t *>(src), width, static_cast<uint8_t *>(dst), cropW,
                       cropH, x0, y0);
        break;
    case 1: {
        const auto *s = static_cast<const uint8_t *>(src);
        auto *d = static_cast<uint8_t *>(dst);
        long bit = 0;
        for (int y = 0; y < cropH; ++y)
            for (int x = 0; x < cropW; ++x, ++bit)
                if (lv::mask_bit(s, static_cast<long>(y0 + y) * width + x0 + x))
                    lv::set_mask_bit(d, bit);
        break;
    }
    default:
        return 0;
    }
    return cropH;
}

LV_API int extract_basepreview(int bits, int srcW, int srcH, int ncomp, int srcPitch, int dstW,
                               int dstH, int to8, const void *src, void *unused, void *dst) {
    (void)unused;
    if (srcW < 5 || srcH < 5 || dstW < 5 || dstH < 5) return LV_ERR_ARG;
    int f = 1;
    if (srcW != dstW || srcH != dstH) {
        // Halve as a tower does, rounding up, until the width fits the preview.
        const int limit = static_cast<int>(std::log2((srcW + srcH) / 2.0));
        int w = srcW, h = srcH, n = 0;
        for (; n < limit && w > dstW && h >= 4; ++n)
            w = (w + 1) / 2, h = (h + 1) / 2;
        if (w != dstW || h != dstH) return kNotALevel;
        f = std::max(1 << n, 2);
    }
    const lv::SampleIndex k = lv::samples_of(ncomp);
    for (int y = 0; y < dstH; ++y) {
        const long sy = static_cast<long>(y) * f;
        for (int x = 0; x < dstW; ++x) {
            const long sx = static_cast<long>(x) * f;
            const long di = (static_cast<long>(y) * dstW + x) * ncomp;
            switch (bits) {
            case 8:
                lv::copy_pixel(static_cast<const uint8_t *>(src) + sy * srcPitch + sx * ncomp,
                               static_cast<uint8_t *>(dst) + di, k, [](uint8_t v) { return v; });
                break;
            case 16: {
                const uint16_t *s = static_cast<const uint16_t *>(src) + sy * srcPitch + sx * ncomp;
                if (to8)
                    lv::copy_pixel(s, static_cast<uint8_t *>(dst) + di, k, lv::high_byte);
                else
                    lv::copy_pixel(s, static_cast<uint16_t *>(dst) + di, k,
                                   [](uint16_t v) { return v; });
                break;
            }
            case 32:
                for (int run = 0; run < 4; ++run)
                    static_cast<uint8_t *>(dst)[4L * dstW * y + static_cast<long>(run) * dstW + x] =
                        static_cast<const uint8_t *>(
                            src)[4L * srcW * sy + static_cast<long>(run) * srcW + sx];
                break;
            case 1:
                if (lv::mask_bit(static_cast<const uint8_t *>(src), sy * srcW + sx))
                    lv::set_mask_bit(static_cast<uint8_t *>(dst), static_cast<long>(y) * dstW + x);
                break;
            default:
                return 0;
            }
        }
    }
    return dstH;
}

} // extern "C"
