// The optimizer's end: the collapsed luminance scaled into a map between its black and
// white percentiles, and the colour image rebuilt from the source's chromaticity and the
// map, with gamma, saturation, white balance, hue tables and mask layers.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "contrast/contrast.h"
#include "frame/band_threads.h"
#include "lumivantor/colour.h"

namespace {

constexpr int kHue = LV_HUE_TABLE_SIZE;
constexpr int kBlock = LV_TMPARAM_COUNT;
constexpr int kBins = 65536;

inline int bin_of(float v) {
    if (!(v > 0.0f)) return 0;
    if (v >= 65535.0f) return 65535;
    return static_cast<int>(v);
}

inline float clamp01(float v) {
    return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v);
}

// What one block (base or layer) does to a pixel.
struct BlockLook {
    float map_exp;    // exponent on the map
    float colour_exp; // exponent on each channel's ratio to luminance
    float extra;      // extra luminance
    bool balance;     // temperature is set
    float white_x, white_z;
    bool tables;
    bool lum;
    const float *colour_table;
    const float *lum_table;
};

BlockLook block_look(const float *block, const float *base, const CoColourTables &tab, int k) {
    BlockLook b{};
    const double gamma = (base[18] + block[8]) * 0.045 + 0.575;
    b.map_exp = static_cast<float>(gamma > 0.2 && gamma < 1.41 ? 0.45454545454545453 / gamma
                                                               : 0.45454545454545453);
    b.colour_exp = static_cast<float>(block[13] * 0.05 + 0.5);
    b.extra = static_cast<float>(block[9] * 0.1);
    b.balance = block[12] != 0.0f;
    float xyz[3] = {0.95047f, 1.0f, 1.08883f};
    kelvin2XYZ(static_cast<int>(6500.0 - 260.0 * block[12]), xyz);
    b.white_x = static_cast<float>(xyz[0] * 1.0521265);
    b.white_z = static_cast<float>(xyz[2] * 0.9184811);
    b.tables = tab.hasColour[k] != 0;
    b.lum = tab.hasLum[k] != 0;
    b.colour_table = tab.colourTable + static_cast<size_t>(3 * kHue) * k;
    b.lum_table = tab.lumTable + static_cast<size_t>(kHue) * k;
    return b;
}

// Steps of one block on the pixel's colour: white balance, map, saturation, hue tables.
void look_pixel(const BlockLook &b, float y, float m, const float *src, float *out) {
    float r = src[0], g = src[1], bl = src[2];
    if (b.balance) {
        const float x = static_cast<float>(0.4124 * r + 0.3576 * g + 0.1805 * bl) * b.white_x;
        const float z = static_cast<float>(0.0193 * r + 0.1192 * g + 0.9505 * bl) * b.white_z;
        r = std::max(static_cast<float>(3.2406 * x - 1.5372 * y - 0.4986 * z), 0.0f);
        g = std::max(static_cast<float>(-0.9689 * x + 1.8758 * y + 0.0415 * z), 0.0f);
        bl = std::max(static_cast<float>(0.0557 * x - 0.204 * y + 1.057 * z), 0.0f);
    }
    if (b.map_exp != 1.0f) m = static_cast<float>(std::pow(static_cast<double>(m), b.map_exp));
    const float in[3] = {r, g, bl};
    // At the default exponent of 0.5 the square root gives the same floats, at a fraction
    // of the time.
    if (b.colour_exp == 0.5f) {
        for (int k = 0; k < 3; ++k)
            out[k] = static_cast<float>(std::sqrt(static_cast<double>(in[k] / y))) * m;
    } else {
        for (int k = 0; k < 3; ++k)
            out[k] =
                static_cast<float>(std::pow(static_cast<double>(in[k] / y), b.colour_exp)) * m;
    }
    // The tables are built whenever a hue curve or extra luminance asks for this step;
    // without them (they could not be built) it has nothing to map onto.
    if (!b.tables) return;
    float hsv[3];
    rgb2hsv_norm(out, hsv);
    float v = hsv[2];
    float floor_v = clamp01(v - v * hsv[1]);
    const int index = static_cast<int>(hsv[0] * 4095.0f);
    if (v > 0.0f) {
        float f = b.lum ? 2.0f * b.lum_table[index] : 1.0f;
        if (b.extra != 0.0f) f = f + f * b.extra;
        f = (f - 1.0f) * (1.0f - floor_v / v) + 1.0f;
        floor_v *= f;
        v *= f;
    }
    const float *e = b.colour_table + 3 * index;
    for (int k = 0; k < 3; ++k)
        out[k] = clamp01(floor_v + e[k] * (v - floor_v));
}

template <class T> inline T to_level(float v, float top) {
    const float x = std::min(v * top, top);
    return x > 0.0f ? static_cast<T>(x) : 0;
}

template <class T>
void final_rows(const DimParam &dim, LvProgressCallback cb, const float *p,
                const unsigned char *mask, const unsigned char *input, const float *map, T *output,
                const BlockLook *looks, int layers, const float *lin, int first, int rows) {
    const int width = dim.width, spp = dim.samplesPerPixel;
    const bool swap = dim.swapRedBlue != 0;
    const size_t ir = swap ? static_cast<size_t>(spp - 1) : 0, ig = (spp - 1) / 2,
                 ib = swap ? 0 : static_cast<size_t>(spp - 1);
    const bool planes = dim.outputLayout == 3;
    const size_t plane = static_cast<size_t>(width) * dim.height;
    const float top = static_cast<float>((1 << dim.bpsOut) - 1);
    int x0 = 0, x1 = width;
    if (p[56] > 0.0f && p[56] < static_cast<float>(width - 1)) x0 = static_cast<int>(p[56]);
    if (p[57] > 0.0f && p[57] < static_cast<float>(width)) x1 = static_cast<int>(p[57]);
    const int tenth = static_cast<int>(0.1 * dim.height + 0.5);

    for (int y = first; y < first + rows; ++y) {
        const float *mrow = map + static_cast<size_t>(y) * width;
        const unsigned char *krow = mask ? mask + static_cast<size_t>(2) * width * y : nullptr;
        for (int x = x0; x < x1; ++x) {
            float src[3];
            if (dim.bpsIn == 32) {
                const unsigned char *row = input + static_cast<size_t>(4) * width * y;
                src[0] = row[x];
                src[1] = row[width + x];
                src[2] = row[2 * width + x];
            } else {
                const size_t at =
                    static_cast<size_t>(dim.strideIn) * y + static_cast<size_t>(spp) * x;
                if (dim.bpsIn == 16) {
                    const uint16_t *s = reinterpret_cast<const uint16_t *>(input) + at;
                    src[0] = lin[s[ir]];
                    src[1] = lin[s[ig]];
                    src[2] = lin[s[ib]];
                } else {
                    const unsigned char *s = input + at;
                    src[0] = lin[s[ir]];
                    src[1] = lin[s[ig]];
                    src[2] = lin[s[ib]];
                }
            }
            T *o;
            size_t step;
            if (planes) {
                o = output + static_cast<size_t>(y) * width + x;
                step = plane;
            } else {
                o = output + static_cast<size_t>(dim.strideOut) * y + static_cast<size_t>(spp) * x;
                step = 0;
            }
            T *dr = planes ? o : o + ir, *dg = planes ? o + step : o + ig,
              *db = planes ? o + 2 * step : o + ib;
            const float lum =
                static_cast<float>(0.2126 * src[0] + 0.7152 * src[1] + 0.0722 * src[2]);
            if (!(lum > 0.0f)) {
                *dr = *dg = *db = 0;
                continue;
            }
            int base_w = 256, layer = -1;
            if (layers > 0 && krow && krow[2 * x + 1] != 255 && krow[2 * x] != 0) {
                const int w = krow[2 * x];
                base_w = w == 255 ? 0 : 255 - w;
                layer = std::min<int>(krow[2 * x + 1], layers - 1);
            }
            float res[3] = {0.0f, 0.0f, 0.0f};
            if (base_w != 0) look_pixel(looks[0], lum, mrow[x], src, res);
            if (layer >= 0) {
                float lres[3];
                look_pixel(looks[layer + 1], lum, mrow[x], src, lres);
                const float bs = static_cast<float>(base_w) / 256.0f;
                const float ls = 1.0f - static_cast<float>(base_w) * 0.00390625f;
                for (int k = 0; k < 3; ++k)
                    res[k] = res[k] * bs + lres[k] * ls;
            }
            *dr = to_level<T>(res[0], top);
            *dg = to_level<T>(res[1], top);
            *db = to_level<T>(res[2], top);
        }
        const int done = y - first + 1;
        if (cb && tenth > 0 && done % tenth == 0)
            progress(1, cb, nullptr, 0.9f + 0.1f * static_cast<float>(done) / rows);
    }
}

} // namespace

extern "C" {

int co_map_scaling(float *p, const float *luminance, float *map, DimParam dim) {
    const int64_t count = static_cast<int64_t>(dim.width) * dim.height;
    if (dim.width < 1 || dim.height < 1) return -102;
    float lo = luminance[0], hi = luminance[0];
    for (int64_t i = 1; i < count; ++i) {
        lo = std::min(lo, luminance[i]);
        hi = std::max(hi, luminance[i]);
    }
    if (!(lo >= 0.0f)) return -101;
    if (!(hi >= 0.0f)) return -102;
    float scale;
    if (hi > lo)
        scale = 65535.0f / (hi - lo);
    else if (hi >= 1e-30f)
        scale = 32767.5f / hi;
    else
        scale = 3.27675e8f;
    lv::CoBuf<int64_t> hist = lv::co_array<int64_t>(kBins);
    if (!hist) return LV_ERR_NOMEM;
    const float shift = hi > lo ? lo : 0.0f;
    for (int64_t i = 0; i < count; ++i) {
        map[i] = (luminance[i] - shift) * scale;
        ++hist[bin_of(map[i])];
    }
    const double n = static_cast<double>(count);
    const double black_count = p[4] * (n * 0.01), white_count = (100.0 - p[3]) * (n * 0.01);
    int black = 0;
    if (black_count > 0.0) {
        int64_t sum = 0;
        int i = 0;
        for (; i <= 65534; ++i) {
            sum += hist[i];
            if (static_cast<double>(sum) >= black_count) break;
        }
        black = i + 1;
    }
    int white = 65535;
    if (!(n <= white_count)) {
        int64_t rest = count;
        int i = 65535;
        for (;; --i) {
            rest -= hist[i];
            if (!(static_cast<double>(rest) > white_count) || i < 2) break;
        }
        white = i - 1;
    }
    // Divided by white, not by white - black: the map isn't stretched to reach 1.
    const float w = white < 1 ? 0.0f : static_cast<float>(white);
    const float inv = 1.0f / (w * scale);
    const float b = static_cast<float>(black);
    for (int64_t i = 0; i < count; ++i) {
        const float v = (map[i] - b) * scale * inv;
        map[i] = v > 0.0f ? v : 0.0f;
    }
    return static_cast<int>(std::min<int64_t>(count, 0x7fffffff));
}

int co_final_orig(DimParam dim, LvProgressCallback progressContext, float *p,
                  const unsigned char *mask, const unsigned char *input, const float *map,
                  unsigned char *output, const CoColourTables *tables, int firstRow, int rows) {
    const int layers = tables->layers;
    BlockLook looks[1 + 255];
    const int used = std::min(layers, 255);
    for (int k = 0; k <= used; ++k)
        looks[k] = block_look(p + static_cast<size_t>(kBlock) * k, p, *tables, k);

    lv::CoBuf<float> lin;
    if (dim.bpsIn == 8 || dim.bpsIn == 16) {
        lin.reset(co_gamma_table(dim.bpsIn));
        if (!lin) return LV_ERR_NOMEM;
    } else if (dim.bpsIn != 32) {
        return rows;
    }
    if (dim.bpsOut == 16)
        final_rows(dim, progressContext, p, mask, input, map, reinterpret_cast<uint16_t *>(output),
                   looks, used, lin.get(), firstRow, rows);
    else if (dim.bpsOut == 8)
        final_rows(dim, progressContext, p, mask, input, map, output, looks, used, lin.get(),
                   firstRow, rows);
    return rows;
}

void *co_final_threaded(void *args) {
    auto *a = static_cast<CoFinalArgs *>(args);
    const lv::Band band = lv::band_of(a->dim.height, a->threadIndex, a->threadCount);
    a->result =
        co_final_orig(a->dim, a->threadIndex == 0 ? a->progressContext : nullptr, a->p, a->mask,
                      a->input, a->map, a->output, a->tables, band.first, band.rows);
    pthread_exit(nullptr);
}

int co_final(DimParam dim, OptimParam opt, LvProgressCallback progressContext, float *p,
             unsigned char *mask, unsigned char *input, float *map, unsigned char *output) {
    const int layers = (mask != nullptr && p[55] > 0.0f) ? static_cast<int>(p[55]) : 0;
    const size_t blocks = static_cast<size_t>(layers) + 1;
    lv::CoBuf<float> colour = lv::co_array<float>(blocks * 3 * kHue);
    lv::CoBuf<float> lum = lv::co_array<float>(blocks * kHue);
    lv::CoBuf<int> has_colour = lv::co_array<int>(blocks), has_lum = lv::co_array<int>(blocks);
    if (!colour || !lum || !has_colour || !has_lum) return LV_ERR_NOMEM;
    for (size_t k = 0; k < blocks; ++k) {
        // Gamma, temperature and saturation act outside the tables.
        float copy[kBlock];
        std::memcpy(copy, p + kBlock * k, sizeof copy);
        copy[8] = copy[12] = copy[13] = 0.0f;
        if (copy[9] != 0.0f || has_color_param(3, copy) == 2) {
            float sat = 0.0f, temp = 0.0f, gamma = 0.0f;
            const int r =
                getColorAdjustmentLUTs(3, copy, kHue, LV_CURVE_POINTS, &sat, &temp, &gamma,
                                       colour.get() + 3 * kHue * k, lum.get() + kHue * k);
            if (r >= 0) {
                has_colour[k] = 1;
                has_lum[k] = r;
            }
        }
    }
    const CoColourTables tables = {layers, has_colour.get(), has_lum.get(), colour.get(),
                                   lum.get()};
    const int threads = opt.lowMemory ? 0 : opt.numThreads;
    if (threads >= 2) {
        const int r = lv::run_threaded<CoFinalArgs>(
            threads, co_final_threaded, [&](CoFinalArgs &a, int index, int count) {
                a = CoFinalArgs{dim,    progressContext, p,     mask,  input, map,
                                output, &tables,         index, count, 0};
            });
        if (r != LV_ERR_IO) return r;
        // A band that could not start: the whole image on this thread.
    }
    return co_final_orig(dim, progressContext, p, mask, input, map, output, &tables, 0, dim.height);
}

} // extern "C"
