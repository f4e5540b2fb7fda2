// Saturation by hue, an unsharp mask on lightness and an output curve, re-rendered from
// the 8-bit HSL copy so that a slider can move on a large picture without the RGB to HSL
// pass each time. The blur of the lightness runs through the tower blur.
#include <cmath>

#include "colour/finish_internal.h"
#include "colour/hsl_core.h"
#include "frame/band_threads.h"
#include "lumivantor/pyramid.h"

namespace {

constexpr float kByteUnit = 0.003921569f; // 1 / 255

struct PostAdjTables {
    float saturation[256]; // by hue byte
    uint8_t curve8[256];   // the output curve at 8 bits
};

void make_tables(const float *hue_saturation, const uint16_t *curve, PostAdjTables &t) {
    // 255 hue bytes spread over 360 degrees; byte 255 is a full turn, the same hue as 0.
    for (int i = 0; i < 255; ++i)
        t.saturation[i] = hue_saturation[std::min(static_cast<int>(i * 1.4078432 + 0.5), 359)];
    t.saturation[255] = t.saturation[0];
    for (int i = 0; i < 256; ++i)
        t.curve8[i] = static_cast<uint8_t>(curve[256 * i] >> 8);
}

template <class T>
void render_rows(int width, int first, int end, int spp, lv::Order o, int stride,
                 const uint16_t *curve, const PostAdjTables &t, const float *controls,
                 const unsigned char *hsl, const unsigned char *blurred, T *image) {
    const float strength = controls[0];
    const int threshold = static_cast<int>(controls[2]);
    const bool sharpen = strength > 0.0f;
    const float top = sizeof(T) == 1 ? 255.0f : 65535.0f;
    // Counts changed pixels over the band and is never reset: once one pixel changes, every
    // later pixel of the band is rebuilt from its 8-bit HSL bytes, changed or not.
    long changed = 0;
    lv::PixelMemo memo;
    for (int y = first; y < end; ++y) {
        T *row = image + static_cast<size_t>(y) * stride;
        const size_t line = static_cast<size_t>(y) * width;
        for (int x = 0; x < width; ++x) {
            const unsigned char *h = hsl + 3 * (line + x);
            float hsl_px[3] = {h[0] * kByteUnit, h[1] * kByteUnit, h[2] * kByteUnit};
            const float gain = t.saturation[h[0]];
            if (gain != 0.0f) {
                hsl_px[1] = static_cast<float>(std::clamp((1.0 + gain) * hsl_px[1], 0.0, 1.0));
                ++changed;
            }
            bool sharpened = false;
            if (sharpen) {
                const int soft = blurred[line + x];
                const int d = h[2] - soft;
                if (std::abs(d) > threshold) {
                    hsl_px[2] = std::clamp(d * strength + soft, 0.0f, 255.0f) * kByteUnit;
                    sharpened = true;
                    ++changed;
                }
            }
            T *px = row + static_cast<size_t>(x) * spp;
            unsigned c[3] = {px[o.r], px[o.g], px[o.b]};
            if (changed) {
                auto rebuild = [&](unsigned *out) {
                    float rgb[3];
                    lv::hsl_to_rgb_core(hsl_px, rgb, 1.0f);
                    for (int k = 0; k < 3; ++k)
                        out[k] = static_cast<unsigned>(std::clamp(rgb[k] * top, 0.0f, top));
                };
                // Lightness from its byte: the colour depends on the three bytes alone.
                if (sharpened)
                    rebuild(c);
                else
                    memo.get(lv::PixelMemo::key_of(h[0], h[1], h[2]), c, rebuild);
            }
            if (sizeof(T) == 1) {
                px[o.r] = t.curve8[c[0]], px[o.g] = t.curve8[c[1]], px[o.b] = t.curve8[c[2]];
            } else {
                px[o.r] = static_cast<T>(curve[c[0]]), px[o.g] = static_cast<T>(curve[c[1]]);
                px[o.b] = static_cast<T>(curve[c[2]]);
            }
        }
    }
}

} // namespace

extern "C" {

int post_adj_orig(int width, int height, int firstRow, int endRow, int samplesPerPixel,
                  int swapRedBlue, int stride, int bits, const uint16_t *outputCurve,
                  const float *hueSaturation, const float *controls, const unsigned char *hsl,
                  unsigned char *image) {
    const size_t pixels = static_cast<size_t>(width) * height;
    lv::FreeBuf<unsigned char> own_hsl = lv::calloc_buf<unsigned char>(0);
    if (!hsl) {
        own_hsl = lv::calloc_buf<unsigned char>(3 * pixels);
        if (!own_hsl) return LV_ERR_NOMEM;
        // The whole slice, margins included, so that the blur sees the neighbouring rows.
        get_hsl_orig(width, 0, height, samplesPerPixel, swapRedBlue, stride, bits, own_hsl.get(),
                     image);
        hsl = own_hsl.get();
    }
    lv::FreeBuf<unsigned char> blurred = lv::calloc_buf<unsigned char>(0);
    if (controls[0] > 0.0f) {
        lv::FreeBuf<unsigned char> lightness = lv::calloc_buf<unsigned char>(pixels);
        blurred = lv::calloc_buf<unsigned char>(pixels);
        if (!lightness || !blurred) return LV_ERR_NOMEM;
        for (size_t i = 0; i < pixels; ++i)
            lightness[i] = hsl[3 * i + 2];
        const int r = lv_downtower(static_cast<int>(2.0f * controls[1]), width, height, 1, 8,
                                   lightness.get(), blurred.get());
        if (r < 0) return r;
    }
    PostAdjTables tables;
    make_tables(hueSaturation, outputCurve, tables);
    const lv::Order o = lv::order_of(samplesPerPixel, swapRedBlue);
    if (bits == 8)
        render_rows(width, firstRow, endRow, samplesPerPixel, o, stride, outputCurve, tables,
                    controls, hsl, blurred.get(), image);
    else
        render_rows(width, firstRow, endRow, samplesPerPixel, o, stride, outputCurve, tables,
                    controls, hsl, blurred.get(), reinterpret_cast<uint16_t *>(image));
    return endRow - firstRow;
}

void *post_adj_threaded(void *args) {
    auto *a = static_cast<PostAdjArgs *>(args);
    const lv::Band band = lv::band_of(a->height, a->threadIndex, a->threadCount);
    // The band reads `margin` rows beyond each inner edge for the blur and writes only its own.
    const int margin = static_cast<int>(2.0f * a->controls[1]) + 1;
    const int end = band.first + band.rows;
    const int top = std::max(band.first - margin, 0);
    const int bottom =
        a->threadIndex == a->threadCount - 1 ? a->height : std::min(end + margin, a->height);
    const size_t bytes = static_cast<size_t>(a->bits / 8);
    a->result = post_adj_orig(a->width, bottom - top, band.first - top, end - top,
                              a->samplesPerPixel, a->swapRedBlue, a->stride, a->bits,
                              a->outputCurve, a->hueSaturation, a->controls,
                              a->hsl ? a->hsl + static_cast<size_t>(top) * a->width * 3 : nullptr,
                              a->image + static_cast<size_t>(top) * a->stride * bytes);
    pthread_exit(nullptr);
}

int post_adj(int numThreads, int width, int height, int samplesPerPixel, int swapRedBlue,
             int stride, int bits, const uint16_t *outputCurve, const float *hueSaturation,
             const float *controls, const unsigned char *hsl, unsigned char *image) {
    if (numThreads < 2 || height / numThreads < 3)
        return post_adj_orig(width, height, 0, height, samplesPerPixel, swapRedBlue, stride, bits,
                             outputCurve, hueSaturation, controls, hsl, image);
    // Bands read rows beyond their own for the blur while their neighbours rewrite them, so
    // without the caller's copy one is made for the whole picture before the bands start.
    lv::FreeBuf<unsigned char> own_hsl = lv::calloc_buf<unsigned char>(0);
    if (!hsl) {
        own_hsl = lv::calloc_buf<unsigned char>(static_cast<size_t>(3) * width * height);
        if (!own_hsl) return LV_ERR_NOMEM;
        const int r = get_hsl(numThreads, width, height, samplesPerPixel, swapRedBlue, stride, bits,
                              own_hsl.get(), image);
        if (r < 0) return r;
        hsl = own_hsl.get();
    }
    return lv::run_threaded<PostAdjArgs>(
        numThreads, post_adj_threaded, [&](PostAdjArgs &a, int index, int count) {
            a = PostAdjArgs{width,    height, samplesPerPixel, swapRedBlue,
                            stride,   bits,   outputCurve,     hueSaturation,
                            controls, hsl,    image,           index,
                            count,    0};
        });
}

} // extern "C"
