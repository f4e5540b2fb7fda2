// The colour adjustment pass: level clipping, saturation, hue and luminance by hue, a
// midtone exponent and a white-balance shift, applied in place to 8-bit or 16-bit RGB,
// once for the base block and once for the pixel's mask layer, and blended by the
// layer's weight. All curve work lives in tables built once per job.
#include "colour/adjust_colors.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "colour/hsl_core.h"
#include "colour/hue_recipe.h"
#include "frame/band_threads.h"
#include "frame/c_buffer.h"

namespace {

constexpr int kHue = LV_HUE_TABLE_SIZE;
constexpr int kBlock = LV_TMPARAM_COUNT;

using lv::calloc_array;
using lv::CBuf;

inline void color_adjust(int has_lum, int index, const float *lum_table, const float *color_table,
                         int *out, float mn, float mx, double exponent, float extra_lum,
                         float scale) {
    if (mx > 0.0f && (has_lum != 0 || extra_lum != 0.0f)) {
        float f = has_lum != 0 ? 2.0f * lum_table[index] : 1.0f;
        if (extra_lum != 0.0f) f = static_cast<float>((1.0 + extra_lum) * f);
        lv::scale_by_saturation(f, mn, mx);
    }
    float c[3];
    lv::rebuild_from_entry(color_table + 3 * index, mn, mx, c);
    for (int k = 0; k < 3; ++k) {
        if (exponent != 1.0)
            c[k] = static_cast<float>(std::pow(static_cast<double>(c[k]), exponent));
        out[k] = static_cast<int>(c[k] * scale);
    }
}

// White balance in XYZ: X and Z scaled towards the white of the block's temperature,
// Y (the luminance) left alone.
inline void temperature_adjust(const int *in, unsigned bits, const float *power,
                               const void *inverse, const float *to_xyz, const float *from_xyz,
                               int *out, float white_x, float white_z) {
    const float r = power[in[0]], g = power[in[1]], b = power[in[2]];
    const float x = (to_xyz[0] * r + to_xyz[1] * g + to_xyz[2] * b) * white_x;
    const float y = to_xyz[3] * r + to_xyz[4] * g + to_xyz[5] * b;
    const float z = (to_xyz[6] * r + to_xyz[7] * g + to_xyz[8] * b) * white_z;
    const float scale = bits == 8 ? 255.0f : 65535.0f;
    int level[3];
    for (int k = 0; k < 3; ++k) {
        const float *m = from_xyz + 3 * k;
        level[k] = static_cast<int>(lv::clamp_unit(m[0] * x + m[1] * y + m[2] * z) * scale);
    }
    if (bits == 16) {
        const auto *t = static_cast<const uint16_t *>(inverse);
        for (int k = 0; k < 3; ++k)
            out[k] = t[level[k]];
    } else if (bits == 8) {
        const auto *t = static_cast<const uint8_t *>(inverse);
        for (int k = 0; k < 3; ++k)
            out[k] = t[level[k]];
    } else {
        // Another depth only reaches blue, through the 8-bit table, held to its range.
        out[2] = static_cast<const uint8_t *>(inverse)[level[2] < 255 ? level[2] : 255];
    }
}

// Per-band constants of every block.
struct BlockConsts {
    double exponent;
    float white_x, white_z;
};

template <class T>
void adjust_rows(const DimParam &dim, int rows, const AdjustColorsTables &t,
                 const BlockConsts *blocks, const float *to_xyz, const float *from_xyz,
                 const unsigned char *mask, T *image) {
    const unsigned bits = sizeof(T) == 1 ? 8u : 16u;
    const float max = sizeof(T) == 1 ? 255.0f : 65535.0f;
    const float inv_max = 1.0f / max;
    const size_t spp = static_cast<size_t>(dim.samplesPerPixel);
    const size_t ir = dim.swapRedBlue ? spp - 1 : 0, ig = (spp - 1) / 2;
    const size_t ib = dim.swapRedBlue ? 0 : spp - 1;
    const bool levels = t.levelScale > 1.0f;
    const bool layered = t.layers > 0 && mask != nullptr;
    for (int y = 0; y < rows; ++y) {
        T *row = image + static_cast<size_t>(dim.strideOut) * y;
        const unsigned char *mrow =
            layered ? mask + static_cast<size_t>(2) * dim.width * y : nullptr;
        for (int x = 0; x < dim.width; ++x) {
            T *px = row + spp * x;
            float c[3] = {px[ir] * inv_max, px[ig] * inv_max, px[ib] * inv_max};
            if (levels)
                for (float &v : c)
                    v = lv::clamp_unit((v - t.black) * t.levelScale);
            float hsv[3];
            lv::rgb_to_hsv(c, hsv);
            const float hi = hsv[2];
            const float lo = lv::clamp_unit(static_cast<float>(hi * (1.0 - hsv[1])));
            const int index = static_cast<int>(hsv[0] * 4095.0f);

            int base_w = 256, layer_w = 0, layer = 0;
            if (mrow && mrow[2 * x + 1] != 255 && mrow[2 * x] != 0) {
                const int w = mrow[2 * x];
                layer = mrow[2 * x + 1] < t.layers ? mrow[2 * x + 1] : t.layers - 1;
                base_w = w == 255 ? 0 : 255 - w;
                layer_w = w == 255 ? 256 : w + 1;
            }
            int base[3] = {0, 0, 0};
            if (base_w != 0) {
                color_adjust(t.lumFlags[0], index, t.lumTables, t.colorTables, base, lo, hi,
                             blocks[0].exponent, 0.0f, max);
                if (t.temperatures[0] != 0.0f)
                    temperature_adjust(base, bits, t.powerTable, t.inverseTable, to_xyz, from_xyz,
                                       base, blocks[0].white_x, blocks[0].white_z);
            }
            int out[3] = {base[0], base[1], base[2]};
            if (layer_w != 0) {
                const int k = layer + 1;
                int lay[3];
                color_adjust(t.lumFlags[k], index + kHue * k, t.lumTables, t.colorTables, lay, lo,
                             hi, blocks[k].exponent, t.extraLum[k], max);
                if (t.temperatures[k] != 0.0f)
                    temperature_adjust(lay, bits, t.powerTable, t.inverseTable, to_xyz, from_xyz,
                                       lay, blocks[k].white_x, blocks[k].white_z);
                for (int ch = 0; ch < 3; ++ch)
                    out[ch] = (base[ch] * base_w + lay[ch] * layer_w) >> 8;
            }
            px[ir] = static_cast<T>(out[0]);
            px[ig] = static_cast<T>(out[1]);
            px[ib] = static_cast<T>(out[2]);
        }
    }
}

} // namespace

extern "C" {

int rgb_color_adjust(int hasLuminance, int index, const float *lumTable, const float *colorTable,
                     int *outR, int *outG, int *outB, float minValue, float maxValue,
                     double exponent, float extraLuminance, float scale) {
    int out[3];
    color_adjust(hasLuminance, index, lumTable, colorTable, out, minValue, maxValue, exponent,
                 extraLuminance, scale);
    *outR = out[0];
    *outG = out[1];
    *outB = out[2];
    return 1;
}

int rgb_temperature_adjust(int r, int g, int b, unsigned bits, const float *powerTable,
                           const void *inverseTable, const float *rgbToXyz, const float *xyzToRgb,
                           int *outR, int *outG, int *outB, float whiteX, float whiteZ) {
    const int in[3] = {r, g, b};
    int out[3] = {*outR, *outG, *outB};
    temperature_adjust(in, bits, powerTable, inverseTable, rgbToXyz, xyzToRgb, out, whiteX, whiteZ);
    *outR = out[0];
    *outG = out[1];
    *outB = out[2];
    return 1;
}

int adjust_colors_orig(DimParam dim, int rows, const AdjustColorsTables *tables,
                       const unsigned char *mask, unsigned char *image) {
    const int blocks = tables->layers + 1;
    CBuf<BlockConsts> consts = calloc_array<BlockConsts>(static_cast<size_t>(blocks));
    if (!consts) return LV_ERR_NOMEM;
    // A zero chromaticity leaves the white of the block before.
    float xyz[3] = {0.950456f, 1.0f, 1.088754f};
    for (int k = 0; k < blocks; ++k) {
        consts[k].exponent = std::exp(-0.03465735902799726 * tables->midtones[k]);
        if (k > 0 || tables->temperatures[0] != 0.0f) {
            kelvin2XYZ(static_cast<int>(6500.0 - 260.0 * tables->temperatures[k]), xyz);
        }
        consts[k].white_x = static_cast<float>(xyz[0] * 1.0521265581994328);
        consts[k].white_z = static_cast<float>(xyz[2] * 0.9184811261313391);
    }
    float to_xyz[9] = {}, from_xyz[9] = {};
    getRGB_to_from_XYZ(static_cast<unsigned>(tables->space), to_xyz, from_xyz);
    if (dim.bpsOut == 8)
        adjust_rows(dim, rows, *tables, consts.get(), to_xyz, from_xyz, mask, image);
    else
        adjust_rows(dim, rows, *tables, consts.get(), to_xyz, from_xyz, mask,
                    reinterpret_cast<uint16_t *>(image));
    return rows;
}

void *adjust_colors_threaded(void *args) {
    auto *a = static_cast<AdjustColorsArgs *>(args);
    const lv::Band band = lv::band_of(a->dim.height, a->threadIndex, a->threadCount);
    const size_t first = static_cast<size_t>(band.first);
    unsigned char *image =
        a->image + static_cast<size_t>(a->dim.bpsOut / 8) * a->dim.strideOut * first;
    const unsigned char *mask = a->mask ? a->mask + first * a->dim.width * 2 : nullptr;
    a->result = adjust_colors_orig(a->dim, band.rows, a->tables, mask, image);
    pthread_exit(nullptr);
}

int lv_adjust_colors(int numThreads, int space, int method, float *p, unsigned char *mask,
                     unsigned char *image, DimParam dim) {
    // The pass reads and writes 8-bit or 16-bit samples; another depth is left alone.
    if (dim.bpsOut != 8 && dim.bpsOut != 16) return 1;
    const bool clip_levels = (method == 10 || method == 15) && (p[4] > 0.0f || p[5] > 0.0f);
    const int layers = (mask != nullptr && p[55] > 0.0f) ? static_cast<int>(p[55]) : 0;
    const size_t blocks = static_cast<size_t>(layers) + 1;
    const int max = dim.bpsOut == 8 ? 255 : 65535;
    const size_t sample_bytes = dim.bpsOut == 8 ? 1 : 2;

    CBuf<float> power = calloc_array<float>(static_cast<size_t>(max) + 1);
    CBuf<unsigned char> inverse = calloc_array<unsigned char>((max + 1) * sample_bytes);
    CBuf<float> colour = calloc_array<float>(blocks * 3 * kHue);
    CBuf<float> lum = calloc_array<float>(blocks * kHue);
    CBuf<int> flags = calloc_array<int>(blocks);
    CBuf<float> temps = calloc_array<float>(blocks), mids = calloc_array<float>(blocks);
    CBuf<float> extra = calloc_array<float>(blocks);
    if (!power || !inverse || !colour || !lum || !flags || !temps || !mids || !extra)
        return LV_ERR_NOMEM;

    bool work = false;
    for (size_t k = 0; k < blocks && !work; ++k) {
        const float *block = p + kBlock * k;
        work = (method == 4 && block[7] != 0.0f) || has_color_param(method, block) != 0;
    }
    if (!work && !clip_levels) return 1;

    const double g = space == 2 ? 1.8 : 2.2;
    for (int i = 0; i <= max; ++i) {
        const double v = static_cast<double>(i) / max;
        power[i] = std::fmin(static_cast<float>(std::pow(v, g)), 1.0f);
        const float lin = static_cast<float>(std::pow(v, 1.0 / g) * max);
        const auto level = static_cast<unsigned>(lin < static_cast<float>(max) ? lin : max);
        if (sample_bytes == 1)
            inverse[i] = static_cast<unsigned char>(level);
        else
            reinterpret_cast<uint16_t *>(inverse.get())[i] = static_cast<uint16_t>(level);
    }

    float black = 0.0f, level_scale = 1.0f;
    if (clip_levels) {
        black = static_cast<float>(p[5] * 0.015);
        const float white = static_cast<float>(1.0 - p[4] * 0.015);
        if (white > black) level_scale = 1.0f / (white - black);
    }

    for (size_t k = 0; k < blocks; ++k) {
        const float *block = p + kBlock * k;
        float saturation = 0.0f;
        const int r =
            getColorAdjustmentLUTs(method, block, kHue, LV_CURVE_POINTS, &saturation, &temps[k],
                                   &mids[k], colour.get() + 3 * kHue * k, lum.get() + kHue * k);
        if (r < 0) return r;
        flags[k] = r;
        extra[k] = method == 4 ? static_cast<float>(0.1 * block[7]) : 0.0f;
    }

    const AdjustColorsTables tables = {layers,      space,         black,        level_scale,
                                       power.get(), inverse.get(), colour.get(), lum.get(),
                                       flags.get(), temps.get(),   mids.get(),   extra.get()};
    if (numThreads < 2 || dim.height / numThreads < 3)
        return adjust_colors_orig(dim, dim.height, &tables, mask, image);
    return lv::run_threaded<AdjustColorsArgs>(
        numThreads, adjust_colors_threaded, [&](AdjustColorsArgs &a, int index, int count) {
            a = AdjustColorsArgs{dim, &tables, mask, image, index, count, 0};
        });
}

} // extern "C"
