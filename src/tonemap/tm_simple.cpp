// The global photoreceptor operator: V = I / (I + (f * Ia)^m) per channel, with the
// adaptation level Ia mixing the pixel's luminance and the scene's median, the contrast
// exponent m taken from percentiles, and the result stretched between the curve's images
// of the scene's darkest and brightest luminance. White balance, saturation, hue tables
// and mask layers follow per pixel.
#include "tonemap/tm_simple.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "colour/hsl_core.h"
#include "colour/hue_recipe.h"
#include "frame/band_threads.h"
#include "frame/c_buffer.h"
#include "lumivantor/colour.h"

namespace {

constexpr int kHue = LV_HUE_TABLE_SIZE;
constexpr int kBlock = LV_TMPARAM_COUNT;

using lv::calloc_array;
using lv::CBuf;

// Scene constants shared by the base block and every layer.
struct Scene {
    float s;      // scale that puts the median at log value t
    float a;      // share of the pixel's own luminance in the adaptation level
    float A;      // share of the scene average: (1 - a) * Iavg
    float m;      // contrast exponent
    double i_max; // curve input of the brightest and darkest scene luminance
    double i_min;
    float max_out;
};

// What one block (base or layer) does to a pixel.
struct BlockCurve {
    float f;          // brightness factor
    float black;      // curve output mapped to 0 ...
    float range;      // ... and 1 / (white - black)
    bool balance;     // white balance is on
    float gx, gz;     // gains on X and Z
    bool saturate;    // saturation slider is on
    float saturation; // its factor
    bool colour;      // hue table stage is on
    bool lum;         // luminance-by-hue table is on
    const float *colour_table;
    const float *lum_table;
};

Scene scene_constants(const float *p, const float *stats, float max_out) {
    const float lo = stats[0], hi = stats[1], med = stats[3], p995 = stats[4];
    Scene sc{};
    sc.max_out = max_out;
    // A long bright tail pushes the median further down, keeping highlights in range.
    const float d = p995 - med;
    const double t = d > 4.0f ? 0.5 - 0.5 * d : -1.5;
    sc.s = static_cast<float>(std::exp(t - med));
    const float compression = p[1], mix = p[2];
    if (mix > 0.0f && compression > 0.0f)
        sc.a = static_cast<float>(((1.0 + 0.1 * compression) * 10.0 + mix) /
                                  (2.0 * compression + 20.0));
    else
        sc.a = static_cast<float>(0.5 + 0.05 * mix);
    const float i_avg = static_cast<float>(std::exp(static_cast<double>(med)) * sc.s);
    sc.A = (1.0f - sc.a) * i_avg;

    const float ls = std::log(sc.s);
    const float l_min = ls + lo, l_max = ls + hi;
    float m0 = 0.3f;
    if (hi > lo) {
        const float top = ls + p995, mid = ls + med;
        const float ratio = (top - mid) / (l_max - l_min);
        m0 = static_cast<float>(0.3 + 0.6 * std::pow(static_cast<double>(ratio), 1.4));
    }
    if (compression > 0.0f)
        sc.m = static_cast<float>(0.9 + (0.1 * compression - 1.0) * (0.9 - m0));
    else if (compression < 0.0f)
        sc.m = static_cast<float>(0.01 + (1.0 + 0.1 * compression) * (m0 - 0.01));
    else
        sc.m = m0;
    sc.i_max = std::exp(static_cast<double>(l_max));
    sc.i_min = std::exp(static_cast<double>(l_min));
    return sc;
}

float brightness_factor(float b) {
    double g;
    if (b > 0.0f)
        g = (0.4 - 0.01 * b) * b;
    else if (b > -6.0f)
        g = 0.5 * b;
    else
        g = (-0.1 * b - 0.10000000000000009) * b;
    return static_cast<float>(std::exp(-g));
}

// Curve output of scene luminance i on 0..max_out.
inline double curve_image(const Scene &sc, float f, double i) {
    return i * sc.max_out / (i + 1e-20 + std::pow(f * (sc.a * i + sc.A), sc.m));
}

// block: this block's fields; base: block 0, whose clips every layer shares.
BlockCurve block_curve(const Scene &sc, const float *block, const float *base, int kelvin,
                       bool balance, const TmColourTables &tab, int index) {
    BlockCurve c{};
    c.f = brightness_factor(block[0]);
    const float v_hi = static_cast<float>(curve_image(sc, c.f, sc.i_max));
    const float v_lo = static_cast<float>(curve_image(sc, c.f, sc.i_min));
    const float w = v_hi - v_lo;
    c.black = static_cast<float>(v_lo + 0.02 * base[4] * w);
    const float white = static_cast<float>(v_hi - 0.03 * base[3] * w);
    c.range = 1.0f / (white - c.black);

    c.balance = balance;
    float xyz[3] = {0.95047f, 1.0f, 1.08883f};
    kelvin2XYZ(kelvin, xyz);
    c.gx = static_cast<float>(xyz[0] * 1.0521265581994328);
    c.gz = static_cast<float>(xyz[2] * 0.9184811261313391);

    c.saturate = static_cast<int>(block[13]) != 0;
    c.saturation = static_cast<float>(1.0 + 0.1 * block[13]);
    c.colour = tab.hasColour[index] != 0;
    c.lum = tab.hasLum[index] != 0;
    c.colour_table = tab.colourTable + static_cast<size_t>(3 * kHue) * index;
    c.lum_table = tab.lumTable + static_cast<size_t>(kHue) * index;
    return c;
}

// White balance in XYZ with the pixel's luminance kept, negatives held at 0.
inline void balance(const BlockCurve &c, float y, float &r, float &g, float &b) {
    const float x = static_cast<float>(0.4124 * r + 0.3576 * g + 0.1805 * b) * c.gx;
    const float z = static_cast<float>(0.0193 * r + 0.1192 * g + 0.9505 * b) * c.gz;
    const float nr = static_cast<float>(3.2406 * x - 1.5372 * y - 0.4986 * z);
    const float ng = static_cast<float>(-0.9689 * x + 1.8758 * y + 0.0415 * z);
    const float nb = static_cast<float>(0.0557 * x - 0.204 * y + 1.057 * z);
    r = std::max(nr, 0.0f);
    g = std::max(ng, 0.0f);
    b = std::max(nb, 0.0f);
}

// Curve, saturation and hue tables of one block on balanced r, g, b; out is on 0..1
// where the colour stage ran, unclamped otherwise.
inline void render(const Scene &sc, const BlockCurve &c, float ia, float q, float r, float g,
                   float b, float *out) {
    const float dn = static_cast<float>(std::pow(static_cast<double>(ia * c.f), sc.m) + 1e-20);
    const float in[3] = {r, g, b};
    for (int k = 0; k < 3; ++k) {
        const float cv = in[k] * q;
        const float v = cv * sc.max_out / (dn + cv);
        out[k] = (v - c.black) * c.range;
    }
    if (c.saturate) {
        float hsl[3];
        lv::rgb_to_hsl_core(out[0], out[1], out[2], hsl, lv::kLightTwo);
        hsl[1] = std::min(hsl[1] * c.saturation, 1.0f);
        lv::hsl_to_rgb_core(hsl, out, 1.0f);
    }
    if (c.colour || c.lum) {
        // A hue's table entry says which mix it becomes between the pixel's min and max.
        float hsv[3];
        lv::rgb_to_hsv(out, hsv);
        float v = hsv[2];
        float mn = lv::clamp_unit(v - hsv[1] * v);
        const int i = static_cast<int>(hsv[0] * 4095.0f);
        if (c.lum && v > 0.0f) lv::scale_by_saturation(c.lum_table[i] * 2.0f, mn, v);
        lv::rebuild_from_entry(c.colour_table + 3 * i, mn, v, out);
    }
}

template <class T> inline T to_level(float v, float max_out) {
    const float x = v * max_out;
    if (!(x > 0.0f)) return 0;
    if (x > max_out) return static_cast<T>(max_out);
    return static_cast<T>(x);
}

struct Layout {
    size_t r, g, b; // sample offsets of the three channels of a pixel (or planes)
    size_t step;    // samples from one pixel to the next
    size_t row;     // samples from one row to the next
};

template <class T>
int run_rows(const DimParam &dim, const float *p, const unsigned char *mask, const Scene &sc,
             const BlockCurve *curves, int layers, const float *exp_table,
             const unsigned char *input, T *out) {
    const int width = dim.width, spp = dim.samplesPerPixel;
    const bool floats = dim.inputFormat == 10;
    const bool swap = dim.swapRedBlue != 0;
    Layout lay;
    if (dim.outputLayout == 3) {
        const size_t plane = static_cast<size_t>(width) * dim.height;
        lay = {swap ? static_cast<size_t>(spp - 1) : 0, plane, 2 * plane, 1,
               static_cast<size_t>(dim.strideOut)};
    } else {
        lay = {swap ? static_cast<size_t>(spp - 1) : 0, static_cast<size_t>((spp - 1) / 2),
               swap ? 0 : static_cast<size_t>(spp - 1), static_cast<size_t>(spp),
               static_cast<size_t>(dim.strideOut)};
    }
    const size_t in_g = static_cast<size_t>((spp - 1) / 2);
    const size_t in_b = swap ? 0 : static_cast<size_t>(spp - 1);

    int x0 = 0, x1 = width;
    if (p[56] > 0.0f && p[56] < static_cast<float>(width - 1)) x0 = static_cast<int>(p[56]);
    if (p[57] > 0.0f && p[57] < static_cast<float>(width)) x1 = static_cast<int>(p[57]);

    const BlockCurve &base = curves[0];
    for (int y = 0; y < dim.height; ++y) {
        T *orow = out + lay.row * y;
        const unsigned char *mrow = mask ? mask + static_cast<size_t>(2) * width * y : nullptr;
        const unsigned char *rrow = floats ? nullptr : input + static_cast<size_t>(4) * width * y;
        const float *frow =
            floats ? reinterpret_cast<const float *>(input) + static_cast<size_t>(width) * spp * y
                   : nullptr;
        for (int x = x0; x < x1; ++x) {
            T *o = orow + lay.step * x;
            float r, g, b, q;
            if (floats) {
                const float *px = frow + static_cast<size_t>(spp) * x;
                r = px[0];
                g = px[in_g];
                b = px[in_b];
                q = sc.s;
            } else {
                const unsigned e = rrow[3 * width + x];
                if (e == 0) {
                    o[lay.r] = o[lay.g] = o[lay.b] = 0;
                    continue;
                }
                r = rrow[x];
                g = rrow[width + x];
                b = rrow[2 * width + x];
                q = exp_table[e] * sc.s;
            }
            const float lum = static_cast<float>(0.2126 * r + 0.7152 * g + 0.0722 * b);
            const float ia = sc.a * lum * q + sc.A;

            int layer = -1, weight = 0;
            if (layers > 0 && mrow && mrow[2 * x + 1] < 255 && mrow[2 * x] != 0) {
                weight = mrow[2 * x];
                layer = mrow[2 * x + 1] < layers ? mrow[2 * x + 1] : layers - 1;
            }
            const float raw[3] = {r, g, b};
            float res[3];
            if (weight != 255) {
                if (base.balance) balance(base, lum, r, g, b);
                render(sc, base, ia, q, r, g, b, res);
            }
            if (layer >= 0) {
                const BlockCurve &lc = curves[layer + 1];
                float lr = r, lg = g, lb = b;
                if (lc.balance) {
                    lr = raw[0];
                    lg = raw[1];
                    lb = raw[2];
                    balance(lc, lum, lr, lg, lb);
                }
                float lres[3];
                render(sc, lc, ia, q, lr, lg, lb, lres);
                if (weight == 255) {
                    std::copy(lres, lres + 3, res);
                } else {
                    const float base_share = static_cast<float>(255 - weight) / 256.0f;
                    const float layer_share = 1.0f - base_share;
                    for (int k = 0; k < 3; ++k)
                        res[k] = res[k] * base_share + lres[k] * layer_share;
                }
            }
            o[lay.r] = to_level<T>(res[0], sc.max_out);
            o[lay.g] = to_level<T>(res[1], sc.max_out);
            o[lay.b] = to_level<T>(res[2], sc.max_out);
        }
    }
    return dim.height;
}

} // namespace

extern "C" {

int tm_simple_orig(DimParam dim, float *p, unsigned char *mask, float *lumStats, float *expTable,
                   unsigned char *input, unsigned char *output, const TmColourTables *tables) {
    const float max_out = dim.bpsOut == 16 ? 65535.0f : 255.0f;
    const Scene sc = scene_constants(p, lumStats, max_out);

    // Per band: the base block and each mask layer. Without room for the layers' constants
    // the band runs with the base block alone.
    int layers = tables->layers;
    CBuf<BlockCurve> curves = calloc_array<BlockCurve>(static_cast<size_t>(layers) + 1);
    if (!curves) {
        layers = 0;
        curves = calloc_array<BlockCurve>(1);
        if (!curves) return LV_ERR_NOMEM;
    }
    const int base_kelvin = static_cast<int>(p[12]) * -260 + 6500;
    curves[0] = block_curve(sc, p, p, base_kelvin, static_cast<int>(p[12]) != 0, *tables, 0);
    for (int k = 1; k <= layers; ++k) {
        const float *block = p + static_cast<size_t>(kBlock) * k;
        const int kelvin = static_cast<int>(6500.0 - 260.0 * block[12]);
        curves[k] = block_curve(sc, block, p, kelvin, block[12] != 0.0f, *tables, k);
    }

    if (dim.bpsOut == 8)
        return run_rows(dim, p, mask, sc, curves.get(), layers, expTable, input, output);
    if (dim.bpsOut == 16)
        return run_rows(dim, p, mask, sc, curves.get(), layers, expTable, input,
                        reinterpret_cast<uint16_t *>(output));
    return dim.height; // another depth writes nothing
}

void *tm_simple_threaded(void *args) {
    auto *a = static_cast<TmSimpleArgs *>(args);
    const lv::Band band = lv::band_of(a->dim.height, a->threadIndex, a->threadCount);
    DimParam d = a->dim;
    d.height = band.rows;
    d.outputLayout = 0; // bands always write interleaved samples
    const size_t first = static_cast<size_t>(band.first);
    const size_t in_px = d.inputFormat == 10 ? static_cast<size_t>(d.samplesPerPixel) * 4 : 4;
    unsigned char *in = a->input + first * d.width * in_px;
    unsigned char *out = a->output + static_cast<size_t>(d.bpsOut / 8) * d.strideOut * first;
    unsigned char *mask = a->mask ? a->mask + first * d.width * 2 : nullptr;
    a->result = tm_simple_orig(d, a->p, mask, a->lumStats, a->expTable, in, out, a->tables);
    pthread_exit(nullptr);
}

int tm_simple(DimParam dim, float *p, unsigned char *mask, float *lumStats, float *expTable,
              int *numThreads, unsigned char *input, unsigned char *output) {
    const int layers = (mask != nullptr && p[55] > 0.0f) ? static_cast<int>(p[55]) : 0;
    const size_t blocks = static_cast<size_t>(layers) + 1;
    if (!(lumStats[0] < lumStats[1])) return LV_ERR_STATS;
    CBuf<float> colour = calloc_array<float>(blocks * 3 * kHue);
    CBuf<float> lum = calloc_array<float>(blocks * kHue);
    CBuf<int> has_colour = calloc_array<int>(blocks), has_lum = calloc_array<int>(blocks);
    if (!colour || !lum || !has_colour || !has_lum) return LV_ERR_NOMEM;

    // Brightness and temperature act outside the tables, so they don't call for one.
    for (size_t k = 0; k < blocks; ++k) {
        const float *block = p + kBlock * k;
        float copy[kBlock];
        std::memcpy(copy, block, sizeof copy);
        copy[0] = 0.0f;
        copy[12] = 0.0f;
        if (has_color_param(2, copy) == 2 || block[13] != 0.0f) {
            float sat = 0.0f, temp = 0.0f, gamma = 0.0f;
            const int r =
                getColorAdjustmentLUTs(2, copy, kHue, LV_CURVE_POINTS, &sat, &temp, &gamma,
                                       colour.get() + 3 * kHue * k, lum.get() + kHue * k);
            if (r >= 0) {
                has_colour[k] = 1;
                has_lum[k] = r;
            }
        }
    }
    const TmColourTables tables = {layers, has_colour.get(), has_lum.get(), colour.get(),
                                   lum.get()};

    const int threads = numThreads ? *numThreads : 0;
    if (threads < 2)
        return tm_simple_orig(dim, p, mask, lumStats, expTable, input, output, &tables);

    int result = lv::run_threaded<TmSimpleArgs>(
        threads, tm_simple_threaded, [&](TmSimpleArgs &a, int index, int count) {
            a = TmSimpleArgs{dim,    p,       mask,  lumStats, expTable, input,
                             output, &tables, index, count,    0};
        });
    if (result < 0 || dim.outputLayout != 3) return result;

    // The bands wrote packed interleaved pixels; split them into planes. Float input is
    // large enough to serve as the scratch, which spares an allocation of the image size.
    if (dim.inputFormat == 10) return rgb_interleaved2color_planes(dim, input, output);
    const size_t bytes = static_cast<size_t>(dim.bpsOut / 8);
    CBuf<unsigned char> scratch = calloc_array<unsigned char>(
        static_cast<size_t>(dim.height) * dim.width * dim.samplesPerPixel * bytes);
    if (!scratch) return LV_ERR_NOMEM;
    return rgb_interleaved2color_planes(dim, scratch.get(), output);
}

int rgb_interleaved2color_planes(DimParam dim, void *scratch, void *image) {
    if (dim.height < 1) return 0;
    const size_t pixels = static_cast<size_t>(dim.width) * dim.height;
    const size_t spp = static_cast<size_t>(dim.samplesPerPixel);
    const size_t bytes = static_cast<size_t>(dim.bpsOut / 8);
    std::memcpy(scratch, image, pixels * spp * bytes);
    const bool swap = dim.swapRedBlue != 0;
    const size_t r = swap ? spp - 1 : 0, g = (spp - 1) / 2, b = swap ? 0 : spp - 1;
    auto split = [&](auto *img, const auto *src) {
        auto *p0 = img + r; // the red plane starts at the red slot
        auto *p1 = img + pixels;
        auto *p2 = img + 2 * pixels;
        for (size_t i = 0; i < pixels; ++i) {
            const auto *px = src + i * spp;
            p0[i] = px[r];
            p1[i] = px[g];
            p2[i] = px[b];
        }
    };
    if (dim.bpsOut == 8)
        split(static_cast<uint8_t *>(image), static_cast<const uint8_t *>(scratch));
    else if (dim.bpsOut == 16)
        split(static_cast<uint16_t *>(image), static_cast<const uint16_t *>(scratch));
    return dim.height;
}

} // extern "C"
