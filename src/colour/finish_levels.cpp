// Levels, exposure in L*a*b* and the shadow-keeping gamma of raw conversions: per-pixel
// passes over bands of rows through DivideWork, with every curve in a table built first.
#include <cmath>

#include "colour/finish_internal.h"
#include "colour/finish_lab.h"
#include "colour/hsl_core.h"
#include "lumivantor/colour.h"

namespace {

inline size_t row_offset(int row, int stride, int bits) {
    return static_cast<size_t>(row) * stride * (bits / 8);
}

// How the rows of an L*a*b* pass lie in memory.
struct LabRows {
    int width, spp, bits_in, bits_out, stride_in, stride_out;
    lv::Order in, out;
};

// Each pixel to L*a*b* through to_linear, a new L* from new_l (a* and b* kept), back to
// linear RGB times scale, spilled into 0..limit, truncated and stored.
template <class ToLinear, class NewL>
void lab_rows(const LabRows &d, int first, int end, const unsigned char *input,
              unsigned char *output, float scale, float limit, ToLinear to_linear, NewL new_l) {
    lv::PixelMemo memo;
    static const lv::FastLab fast_lab;
    for (int y = first; y < end; ++y) {
        const unsigned char *src = input + row_offset(y, d.stride_in, d.bits_in);
        unsigned char *dst = output + row_offset(y, d.stride_out, d.bits_out);
        for (int x = 0; x < d.width; ++x) {
            const size_t at = static_cast<size_t>(x) * d.spp;
            const unsigned r_in = lv::sample_at(src, d.bits_in, at + d.in.r);
            const unsigned g_in = lv::sample_at(src, d.bits_in, at + d.in.g);
            const unsigned b_in = lv::sample_at(src, d.bits_in, at + d.in.b);
            unsigned c[3];
            memo.get(lv::PixelMemo::key_of(r_in, g_in, b_in), c, [&](unsigned *out) {
                const float rgb[3] = {to_linear(r_in), to_linear(g_in), to_linear(b_in)};
                float lab[3], back[3];
                fast_lab.lab(rgb[0], rgb[1], rgb[2], lab);
                lab[0] = new_l(lab[0]);
                Lab2rgb(1, lab, back, 0, nullptr, nullptr);
                float r = back[0] * scale, g = back[1] * scale, b = back[2] * scale;
                lv::spill(r, g, b, limit);
                out[0] = static_cast<unsigned>(r);
                out[1] = static_cast<unsigned>(g);
                out[2] = static_cast<unsigned>(b);
            });
            lv::store_sample(dst, d.bits_out, at + d.out.r, c[0]);
            lv::store_sample(dst, d.bits_out, at + d.out.g, c[1]);
            lv::store_sample(dst, d.bits_out, at + d.out.b, c[2]);
        }
    }
}

template <class In, class Out> void levels_rows(const LevelsWork &w, const In *in, Out *out) {
    const int n_max = w.bpsIn == 8 ? 255 : 65535;
    const lv::Order oi = lv::order_of(3, w.swapIn), oo = lv::order_of(3, w.swapOut);
    const bool saturate = w.saturationPercent != 100.0f;
    const double sat_scale = w.saturationPercent * 0.01;
    const int shift = (w.bpsIn == 16 && w.bpsOut == 8) ? 8 : 0;
    for (int y = w.band.bandStart; y < w.band.bandEnd; ++y) {
        const In *src = in + static_cast<size_t>(y) * w.strideIn;
        Out *dst = out + static_cast<size_t>(y) * w.strideOut;
        for (int x = 0; x < w.width; ++x, src += 3, dst += 3) {
            float c[3] = {w.levels[src[oi.r]], w.levels[src[oi.g]], w.levels[src[oi.b]]};
            if (saturate) {
                float hsl[3];
                lv::rgb_to_hsl_core(c[0] / n_max, c[1] / n_max, c[2] / n_max, hsl, lv::kLightTwo);
                hsl[1] = static_cast<float>(hsl[1] * sat_scale);
                lv::hsl_to_rgb_core(hsl, c, static_cast<float>(n_max));
                for (float &v : c)
                    v = std::clamp(v, 0.0f, static_cast<float>(n_max));
            }
            dst[oo.r] = static_cast<Out>(static_cast<unsigned>(c[0] + 0.5) >> shift);
            dst[oo.g] = static_cast<Out>(static_cast<unsigned>(c[1] + 0.5) >> shift);
            dst[oo.b] = static_cast<Out>(static_cast<unsigned>(c[2] + 0.5) >> shift);
        }
    }
}

} // namespace

extern "C" {

void adjustImageExposure_tile(int firstRow, int endRow, int width, int bpsIn, int bpsOut,
                              int samplesPerPixel, int strideIn, int strideOut, int swapIn,
                              int swapOut, const float *linearTable, const unsigned char *input,
                              unsigned char *output, double factor) {
    const LabRows rows = {width,
                          samplesPerPixel,
                          bpsIn,
                          bpsOut,
                          strideIn,
                          strideOut,
                          lv::order_of(samplesPerPixel, swapIn),
                          lv::order_of(samplesPerPixel, swapOut)};
    const float limit = bpsOut == 8 ? 255.0f : 65535.0f;
    lab_rows(
        rows, firstRow, endRow, input, output, limit, limit,
        [&](unsigned sample) { return linearTable[sample]; },
        [&](float l) { return static_cast<float>(std::min(l * factor, 100.0)); });
}

void *adjustImageExposure_tile_threaded(void *work) {
    const auto *w = static_cast<const ExposureWork *>(work);
    adjustImageExposure_tile(w->band.bandStart, w->band.bandEnd, w->width, w->bpsIn, w->bpsOut,
                             w->samplesPerPixel, w->strideIn, w->strideOut, w->swapIn, w->swapOut,
                             w->linearTable, w->input, w->output, w->factor);
    return nullptr;
}

void enhanceRawConvertedImage_tile(int firstRow, int endRow, int width, int stride, int bits,
                                   unsigned char *image, const float *gammaTable) {
    const float full = static_cast<float>(1 << bits);
    const float to_linear = 1.0f / full;
    const LabRows rows = {
        width, 3, bits, bits, stride, stride, lv::order_of(3, 0), lv::order_of(3, 0)};
    lab_rows(
        rows, firstRow, endRow, image, image, full, full - 1.0f,
        [&](unsigned sample) { return static_cast<float>(sample) * to_linear; },
        [&](float l) {
            const int index = std::clamp(static_cast<int>(65535 * 0.01 * l), 0, 65535);
            return gammaTable[index] * 100.0f;
        });
}

void *enhanceRawConvertedImage_tile_threaded(void *work) {
    const auto *w = static_cast<const EnhanceWork *>(work);
    enhanceRawConvertedImage_tile(w->band.bandStart, w->band.bandEnd, w->width, w->stride, w->bits,
                                  w->image, w->gammaTable);
    return nullptr;
}

int enhanceRawConvertedImage(int numThreads, int width, int height, int stride, int bits,
                             unsigned char *image, float gamma) {
    if (bits != 8 && bits != 16) return LV_ERR_ARG;
    lv::FreeBuf<float> table = lv::calloc_buf<float>(65536);
    if (!table) return LV_ERR_NOMEM;
    // Gamma rises in a straight line from 1 at black to `gamma` at 70 % and stays there, so
    // deep shadows keep their contrast while the midtones open up.
    const float slope = gamma * 1.4285715f - 1.4285715f;
    for (int i = 0; i < 65536; ++i) {
        const float x = static_cast<float>(i) * 1.5259022e-05f;
        const float exponent = x < 0.7f ? 1.0f / (1.0f + x * slope) : 1.0f / gamma;
        table[i] = static_cast<float>(std::pow(static_cast<double>(x), exponent));
    }
    EnhanceWork w = {{}, width, stride, bits, image, table.get()};
    DivideWork(0, height, numThreads, enhanceRawConvertedImage_tile_threaded, &w, sizeof w);
    return height;
}

void *adjustImageLevels_tile_threaded(void *work) {
    const auto *w = static_cast<const LevelsWork *>(work);
    lv::require_levels_depths(w->bpsIn, w->bpsOut, "adjustImageLevels_tile");
    if (w->bpsIn == 8)
        levels_rows(*w, w->input, w->output);
    else if (w->bpsOut == 8)
        levels_rows(*w, reinterpret_cast<const uint16_t *>(w->input), w->output);
    else
        levels_rows(*w, reinterpret_cast<const uint16_t *>(w->input),
                    reinterpret_cast<uint16_t *>(w->output));
    return nullptr;
}

int adjustImageLevels(int numThreads, int width, int height, int /*reserved*/, int swapIn,
                      int swapOut, int strideIn, int strideOut, int bpsIn, int bpsOut,
                      const unsigned char *input, unsigned char *output, float gammaIn,
                      float blackPercent, float whitePercent, float gammaOut,
                      float saturationPercent) {
    const int n = bpsIn == 8 ? 256 : 65536;
    lv::FreeBuf<float> levels = lv::calloc_buf<float>(static_cast<size_t>(n));
    if (!levels) return LV_ERR_NOMEM;
    const float top = static_cast<float>(n - 1);
    const float black = static_cast<float>((n - 1) * 0.01 * blackPercent);
    const float white = static_cast<float>((n - 1) * 0.01 * whitePercent);
    // A narrowed range is stretched back to the full scale; the full range, or a single
    // level (a hard step), keeps a gain of 1.
    const bool stretch = white != black && (white < top || black > 0.0f);
    const float gain = stretch ? static_cast<float>(n) / (white - black) : 1.0f;
    for (int i = 0; i < n; ++i) {
        float v = static_cast<float>(i);
        if (gammaIn != 1.0f)
            v = static_cast<float>(std::pow(static_cast<double>(i) / n, 1.0 / gammaIn) * n);
        if (v < black) {
            levels[i] = 0.0f;
            continue;
        }
        if (v > white) {
            levels[i] = top;
            continue;
        }
        v = gain * (v - black);
        if (gammaOut != 1.0f)
            v = static_cast<float>(std::pow(static_cast<double>(v) / n, 1.0 / gammaOut) * n);
        levels[i] = std::clamp(v, 0.0f, top);
    }
    LevelsWork w = {{},    width,  swapIn, swapOut, strideIn,     strideOut,
                    bpsIn, bpsOut, input,  output,  levels.get(), saturationPercent};
    DivideWork(0, height, numThreads, adjustImageLevels_tile_threaded, &w, sizeof w);
    return height;
}

} // extern "C"
