// Per-pixel mapping of the enhancer's last stage. The solved plane gives each pixel its
// tone; a global adaptive logarithmic curve of the pixel's own luminance is mixed in, deep
// shadows are pulled smoothly towards near black, and colour comes back from the source
// pixel's ratios to its luminance, raised to an exponent that can vary with tone. Pixels
// that came out far from a plain gamma rendering of the source are pulled back towards it
// (white and black repair), then the hue tables and any mask layers act.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "colour/hsl_core.h"
#include "lumivantor/colour.h"
#include "tonemap/owned.h"
#include "tonemap/tm3.h"
#include "tonemap/tone_pixel.h"

namespace {

constexpr int kBlock = LV_TMPARAM_COUNT;


// Gamma of the plane from a midtone slider: values that would leave 0.34..2.01 (the
// default slider of 50 among them) mean no gamma at all.
float plane_gamma(float slider) {
    const double g = slider >= 0.0f ? std::exp(slider * -0.1039720770839918)
                                    : std::exp(slider * -0.06931471805599453);
    const float gf = static_cast<float>(g);
    return (gf > 0.34f && gf < 2.01f) ? gf : 1.0f;
}

struct Gains {
    bool on;
    float gx, gz; // XYZ white of the slider's temperature, relative to D65
};

Gains temperature_gains(float slider) {
    Gains g{slider != 0.0f, 1.0f, 1.0f};
    float xyz[3] = {0.95047f, 1.0f, 1.08883f};
    kelvin2XYZ(static_cast<int>(6500.0 - 260.0 * slider), xyz);
    g.gx = static_cast<float>(xyz[0] * 1.0521265581994328);
    g.gz = static_cast<float>(xyz[2] * 0.9184811261313391);
    return g;
}

// Warms or cools r, g, b in XYZ keeping luminance y; returns the unscaled X and Z.
inline void warm(const Gains &gn, float y, float &r, float &g, float &b, float &x0, float &z0) {
    x0 = static_cast<float>(0.4124 * r + 0.3576 * g + 0.1805 * b);
    z0 = static_cast<float>(0.0193 * r + 0.1192 * g + 0.9505 * b);
    const float x = x0 * gn.gx, z = z0 * gn.gz;
    r = std::max(static_cast<float>(3.2406 * x - 1.5372 * y - 0.4986 * z), 0.0f);
    g = std::max(static_cast<float>(-0.9689 * x + 1.8758 * y + 0.0415 * z), 0.0f);
    b = std::max(static_cast<float>(0.0557 * x - 0.204 * y + 1.057 * z), 0.0f);
}

// As warm, from X and Z already known.
inline void warm_from(const Gains &gn, float y, float x0, float z0, float &r, float &g, float &b) {
    const float x = x0 * gn.gx, z = z0 * gn.gz;
    r = std::max(static_cast<float>(3.2406 * x - 1.5372 * y - 0.4986 * z), 0.0f);
    g = std::max(static_cast<float>(-0.9689 * x + 1.8758 * y + 0.0415 * z), 0.0f);
    b = std::max(static_cast<float>(0.0557 * x - 0.204 * y + 1.057 * z), 0.0f);
}

struct Layer {
    float gamma;
    float sat;
    Gains gains;
    bool colour, lum;
    const float *colour_table, *lum_table;
};

// Everything a band works out before its pixel loop.
struct Consts {
    int kind;
    float plane_exp, sat_exp, curve_exp, boost;
    int sat_boost;
    float mix;
    float mean_div, log_gain, inv_max;
    float priv[256]; // exponent table over the geometric mean, for RGBE input
    bool curve_on, shadow_on, sat_hi, sat_lo, fix_on;
    float k, kb, km;
    lv::Cubic ca, cb;
    float a13, a14, ku, kl, st3, st4, st5;
    lv::Cubic cp, cq, cr, cs;
    float ref_gain, ref_exp;
    Gains gains;
    bool colour, lum;
    const float *colour_table, *lum_table;
};

float mix_of(int kind, float contrast) {
    const float c = std::max(contrast, 1.0f);
    if (kind == 1 || kind == 2)
        return static_cast<float>(c > 40.0f ? 0.6599400000000001 - 0.0051 * c : 0.76 - 0.0076 * c);
    if (kind == 0 || kind == 10) return static_cast<float>(0.8999999999999999 - 0.009 * c);
    return 0.0f;
}

void work_out(Consts &k, int kind, const float *p, const float *stats, const float *exp_table) {
    k.kind = kind;
    k.plane_exp = plane_gamma(p[8]);
    if (kind == 10) k.plane_exp = static_cast<float>(k.plane_exp * 2.2);

    const float s = p[2];
    k.sat_exp = static_cast<float>(s > 10.0f ? 0.01 * s : 0.05 * s + 0.5);
    k.curve_exp = static_cast<float>(s > 50.0f ? 0.35 + 0.011 * (s - 50.0f) : 0.45);
    k.sat_boost = (s > 0.0f || s < -2.0f) ? static_cast<int>(s) : 0;
    k.boost = static_cast<float>(1.0 + 0.1 * k.sat_boost);
    k.mix = mix_of(kind, p[1]);

    k.mean_div = stats[0] > 0.0f ? stats[0] : 1.0f;
    if (stats[1] > 0.0f) {
        k.log_gain = static_cast<float>(2.302585092994046 / std::log(stats[1] + 1.0));
        k.inv_max = 1.0f / stats[1];
    } else {
        k.log_gain = 1.0f;
        k.inv_max = 1.0f;
    }
    if (kind == 0)
        for (int i = 0; i < 256; ++i)
            k.priv[i] = exp_table[i] / k.mean_div;
    k.curve_on = p[11] > 0.0f || k.mix > 0.0f;

    // Shadow ramp: full near-black below kb, none above k, an S between.
    k.shadow_on = p[11] > 0.0f;
    const float log_min = static_cast<float>(std::log(stats[2]));
    k.k = static_cast<float>(log_min + 0.01 * p[11] * (stats[3] - log_min));
    k.kb = static_cast<float>(k.k + 0.4 * (stats[3] - std::log(stats[0] * stats[1])));
    k.km = (k.kb + k.k) / 2.0f;
    k.ca = lv::cubic_through(k.kb, 1.0f, k.km, 0.5f);
    k.cb = lv::cubic_through(k.k, 0.0f, k.km, 0.5f);

    // Saturation offsets for highlights (p[13]) and mid-shadows (p[14]).
    k.sat_hi = p[13] != 0.0f;
    k.sat_lo = p[14] != 0.0f;
    k.a13 = static_cast<float>(p[13] * 0.1 * (p[13] > 0.0f ? 1.0f - k.sat_exp : k.sat_exp));
    k.a14 = static_cast<float>(p[14] * 0.1 * (p[14] > 0.0f ? 1.0f - k.sat_exp : k.sat_exp));
    k.st3 = stats[3];
    k.st4 = stats[4];
    k.st5 = stats[5];
    k.ku = (stats[5] + stats[3]) / 2.0f;
    k.kl = (stats[4] + stats[3]) / 2.0f;
    k.cp = lv::cubic_through(stats[3], 0.0f, k.ku, k.a13 / 2.0f);
    k.cq = lv::cubic_through(stats[5], k.a13, k.ku, k.a13 / 2.0f);
    k.cr = lv::cubic_through(stats[3], 0.0f, k.kl, k.a14 / 2.0f);
    k.cs = lv::cubic_through(stats[4], k.a14, k.kl, k.a14 / 2.0f);

    k.fix_on = p[9] > 0.0f || p[10] > 0.0f;
    k.ref_gain = 1.0f;
    if (p[9] > 0.0f) {
        const double e =
            (p[3] >= 0.0f && p[3] <= 10.0f) ? 1.0 - 0.01 * (0.001 + p[3]) : 0.9974899888038635;
        k.ref_gain = static_cast<float>(std::exp(-stats[6]) * e);
    }
    k.ref_exp = kind == 10 ? 1.0f : 0.44999998807907104f;
    k.gains = temperature_gains(p[12]);
}

// Pulls rgb towards a plain gamma rendering of the source (w x source)^ref_exp when the
// tone t lies far below it (white repair) or above it (black repair).
inline void repair(const Consts &k, const float *p, float w, const float *src, float t,
                   float *rgb) {
    float cw[3];
    for (int c = 0; c < 3; ++c)
        cw[c] = static_cast<float>(std::pow(static_cast<double>(w * src[c]), k.ref_exp));
    const float lw = static_cast<float>(0.2 * cw[0] + 0.7 * cw[1] + 0.1 * cw[2]);
    const float d = lw - t;
    float m;
    if (p[9] > 0.0f && t < lw)
        m = static_cast<float>(d >= 0.1f ? p[9] * 0.01 : d * p[9] * 0.1);
    else if (p[10] > 0.0f && t > lw)
        m = static_cast<float>(d <= -0.1f ? p[10] * 0.005 : d * -p[10] * 0.05);
    else
        return;
    if (k.sat_boost != 0) {
        float hsl[3];
        rgb2hsl_norm(cw, hsl);
        hsl[1] = std::min(hsl[1] * k.boost, 1.0f);
        hsl2rgb_norm(hsl, cw);
    }
    for (int c = 0; c < 3; ++c)
        rgb[c] = cw[c] * m + rgb[c] * (1.0f - m);
}

// (c / l)^e x tone for each channel.
inline void rebuild(const float *src, float l, float e, float tone, float *rgb) {
    for (int c = 0; c < 3; ++c)
        rgb[c] = static_cast<float>(std::pow(static_cast<double>(src[c] / l), e) * tone);
}

// Saturation offset of a pixel at log luminance ll: highlights above the working
// percentile ramp to a13, shadows below it to a14.
inline float sat_offset(const Consts &k, float ll, float ll2, float ll3) {
    float d = 0.0f;
    if (k.sat_hi && ll >= k.st3)
        d = ll < k.ku ? k.cp.at(ll, ll2, ll3) : (ll < k.st5 ? k.cq.at(ll, ll2, ll3) : k.a13);
    if (k.sat_lo && ll < k.st3)
        d = ll > k.kl ? k.cr.at(ll, ll2, ll3) : (ll > k.st4 ? k.cs.at(ll, ll2, ll3) : k.a14);
    return d;
}

inline float raise(float t, float e) {
    return e == 1.0f ? t : static_cast<float>(std::pow(static_cast<double>(t), e));
}

// The pixel as read (src, luminance l > 0, log luminance ll) and its tone t from the
// plane and the curves; writes the finished colour on 0..1 (unclamped without tables).
inline void finish_pixel(const Consts &k, const float *p, const Layer *layers, int layer,
                         int weight, const float *src, float l, float ll, float t, float w_src,
                         float *res) {
    const float ll2 = ll * ll, ll3 = ll2 * ll;
    float warmed[3] = {src[0], src[1], src[2]};
    float x_kept = 0.0f, z_kept = 0.0f;
    if (weight != 255) {
        if (k.gains.on) warm(k.gains, l, warmed[0], warmed[1], warmed[2], x_kept, z_kept);
        const float tone = raise(t, k.plane_exp);
        float e =
            lv::clamp_unit(k.sat_exp + ((k.sat_hi || k.sat_lo) ? sat_offset(k, ll, ll2, ll3) : 0.0f));
        if (k.kind == 10) e = static_cast<float>(e * 2.2);
        rebuild(warmed, l, e, tone, res);
        if (k.fix_on) repair(k, p, w_src, warmed, tone, res);
        if (k.colour || k.lum) lv::hue_table_stage(res, k.lum, k.colour_table, k.lum_table);
    }
    if (layer < 0) return;

    const Layer &ly = layers[layer];
    float lrgb[3] = {warmed[0], warmed[1], warmed[2]};
    if (ly.gains.on) {
        if (!k.gains.on || weight == 255)
            warm(ly.gains, l, lrgb[0], lrgb[1], lrgb[2], x_kept, z_kept);
        else
            warm_from(ly.gains, l, x_kept, z_kept, lrgb[0], lrgb[1], lrgb[2]);
    }
    const float tone = raise(t, ly.gamma);
    float lres[3];
    rebuild(lrgb, l, ly.sat, tone, lres);
    if (k.fix_on) repair(k, p, w_src, lrgb, tone, lres);
    if (ly.colour || ly.lum) lv::hue_table_stage(lres, ly.lum, ly.colour_table, ly.lum_table);
    if (weight == 255) {
        std::memcpy(res, lres, sizeof lres);
        return;
    }
    const float base_share = static_cast<float>(255 - weight) / 256.0f;
    for (int c = 0; c < 3; ++c)
        res[c] = lres[c] * (1.0f - base_share) + res[c] * base_share;
}

struct Slots {
    size_t r, g, b, step, row;
};

struct Band {
    const Consts *k;
    int kind;
    const DimParam *dim;
    const float *p;
    const unsigned char *mask;
    const float *exp_table;
    const float *curve;
    const Layer *layers;
    int layer_count;
    const unsigned char *image;
    FILE *rows_file;
    unsigned char *row_store;
    const float *plane;
    LvProgressCallback cb;
};

// Reads pixel x of row y into src; returns the RGBE exponent (0 for other kinds and for
// black RGBE pixels, whose channels are then 0).
inline unsigned read_pixel(const Band &b, const unsigned char *rgbe, size_t in_row, int y, int x,
                           float *src) {
    const int width = b.dim->width, spp = b.dim->samplesPerPixel;
    const bool swap = b.dim->swapRedBlue != 0;
    const size_t r_slot = swap ? spp - 1 : 0, g_slot = (spp - 1) / 2, b_slot = swap ? 0 : spp - 1;
    const size_t at = in_row * y + static_cast<size_t>(spp) * x;
    switch (b.kind) {
    case 0: {
        const unsigned e = rgbe[3 * width + x];
        src[0] = e ? rgbe[x] : 0.0f;
        src[1] = e ? rgbe[width + x] : 0.0f;
        src[2] = e ? rgbe[2 * width + x] : 0.0f;
        return e;
    }
    case 10: {
        const float *f = reinterpret_cast<const float *>(b.image) + at;
        src[0] = f[r_slot];
        src[1] = f[g_slot];
        src[2] = f[b_slot];
        return 0;
    }
    case 1: {
        const uint16_t *s = reinterpret_cast<const uint16_t *>(b.image) + at;
        src[0] = b.curve[s[r_slot]];
        src[1] = b.curve[s[g_slot]];
        src[2] = b.curve[s[b_slot]];
        return 0;
    }
    default: {
        const unsigned char *s = b.image + at;
        src[0] = b.curve[s[r_slot]];
        src[1] = b.curve[s[g_slot]];
        src[2] = b.curve[s[b_slot]];
        return 0;
    }
    }
}

template <class T> int map_rows(const Band &b, T *out) {
    const Consts &k = *b.k;
    const DimParam &dim = *b.dim;
    const float *p = b.p;
    const int width = dim.width, spp = dim.samplesPerPixel;
    const bool swap = dim.swapRedBlue != 0;
    const size_t r_slot = swap ? spp - 1 : 0;
    Slots o{r_slot, static_cast<size_t>((spp - 1) / 2), swap ? 0 : static_cast<size_t>(spp - 1),
            static_cast<size_t>(spp), static_cast<size_t>(dim.strideOut)};
    if (dim.outputLayout == 3) {
        const size_t planes = static_cast<size_t>(width) * dim.height;
        o = {r_slot, planes, 2 * planes, 1, static_cast<size_t>(width)}; // packed planes
    }
    const size_t in_row =
        std::max(static_cast<size_t>(width) * spp, static_cast<size_t>(std::max(dim.strideIn, 0)));
    int x0 = 0, x1 = width;
    if (p[56] > 0.0f && p[56] < static_cast<float>(width - 1)) x0 = static_cast<int>(p[56]);
    if (p[57] > 0.0f && p[57] < static_cast<float>(width)) x1 = static_cast<int>(p[57]);
    const float max_out = dim.bpsOut == 16 ? 65535.0f : 255.0f;
    const int rows_per_report = static_cast<int>(dim.height * 0.1 + 0.5);
    float report = 0.8f;

    for (int y = 0; y < dim.height; ++y) {
        const unsigned char *rgbe = nullptr;
        if (b.kind == 0 && b.rows_file) {
            const size_t got =
                std::fread(b.row_store, static_cast<size_t>(width) * 4, 1, b.rows_file);
            if (got != 1) {
                std::printf(
                    "tm3 could not read from input file at %zu  - returned  %d  instead of 4\n",
                    static_cast<size_t>(y), static_cast<int>(got));
                return -312;
            }
            rgbe = b.row_store;
        } else if (b.kind == 0) {
            rgbe = b.image + static_cast<size_t>(4) * width * y;
        }
        const float *prow = b.plane + static_cast<size_t>(width) * y;
        const unsigned char *mrow = b.mask ? b.mask + static_cast<size_t>(2) * width * y : nullptr;
        T *orow = out + o.row * y;
        for (int x = x0; x < x1; ++x) {
            T *px = orow + o.step * x;
            float src[3];
            const unsigned e = read_pixel(b, rgbe, in_row, y, x, src);
            const float l = static_cast<float>(0.2126 * src[0] + 0.7152 * src[1] + 0.0722 * src[2]);
            if (!(l > 0.0f)) {
                px[o.r] = px[o.g] = px[o.b] = 0;
                continue;
            }
            float t = prow[x];
            const float ll = static_cast<float>(
                b.kind == 0 ? std::log(static_cast<double>(b.exp_table[e] * l)) : std::log(l));
            if (k.curve_on) {
                // Adaptive logarithmic curve of the pixel's luminance over the scene's mean.
                const float xl = b.kind == 0 ? l * k.priv[e] : l / k.mean_div;
                const double pw = std::pow(static_cast<double>(xl * k.inv_max), 0.23);
                const float r =
                    static_cast<float>(std::log(xl + 1.0) * k.log_gain / std::log(8.0 * pw + 2.0));
                t = static_cast<float>((1.0f - k.mix) * t +
                                       k.mix * std::pow(static_cast<double>(r), k.curve_exp));
            }
            if (k.shadow_on && ll < k.k) {
                // The tone falls smoothly to 0.02, near black but not black.
                const float ll2 = ll * ll, ll3 = ll2 * ll;
                const float c =
                    lv::clamp_unit(ll < k.km ? k.ca.at(ll, ll2, ll3) : k.cb.at(ll, ll2, ll3));
                t = ll < k.kb ? 0.02f : (1.0f - c) * t + 0.02f * c;
            }
            int layer = -1, weight = 0;
            if (b.layer_count > 0 && mrow && mrow[2 * x + 1] != 255 && mrow[2 * x] != 0) {
                weight = mrow[2 * x];
                layer = mrow[2 * x + 1] < b.layer_count ? mrow[2 * x + 1] : b.layer_count - 1;
            }
            const float w_src = b.kind == 0 ? k.ref_gain * b.exp_table[e] : k.ref_gain;
            float res[3];
            finish_pixel(k, p, b.layers, layer, weight, src, l, ll, t, w_src, res);
            px[o.r] = lv::to_level<T>(res[0], max_out);
            px[o.g] = lv::to_level<T>(res[1], max_out);
            px[o.b] = lv::to_level<T>(res[2], max_out);
        }
        if (b.cb && rows_per_report > 0 && y % rows_per_report == 0) {
            report += 0.02f;
            progress(1, b.cb, nullptr, report);
        }
    }
    return dim.height;
}

} // namespace

extern "C" int tm31(int kind, DimParam dim, float *p, unsigned char *mask, float *stats,
                    float *expTable, float *curve, OptimParam opt, LvProgressCallback progressCb,
                    int *hasColour, int *hasLum, float *colourTable, float *lumTable,
                    unsigned char *image, float *plane, unsigned char *output) {
    std::unique_ptr<Consts> k(new (std::nothrow) Consts{});
    if (!k) return LV_ERR_NOMEM;
    work_out(*k, kind, p, stats, expTable);
    k->colour = hasColour && hasColour[0];
    k->lum = hasLum && hasLum[0];
    k->colour_table = colourTable;
    k->lum_table = lumTable;

    // Mask layers: blocks 1.. of p; without room for their constants they are dropped.
    int layer_count = (mask && p[55] > 0.0f) ? static_cast<int>(p[55]) : 0;
    std::unique_ptr<Layer[]> layers(new (std::nothrow) Layer[layer_count + 1]());
    if (!layers) layer_count = 0;
    for (int i = 0; i < layer_count; ++i) {
        const float *block = p + static_cast<size_t>(kBlock) * (i + 1);
        const size_t at = static_cast<size_t>(LV_TM3_LUM_TABLE) * (i + 1);
        layers[i] = Layer{plane_gamma(block[8]),
                          static_cast<float>(0.5 + 0.05 * block[2]),
                          temperature_gains(block[12]),
                          hasColour && hasColour[i + 1] != 0,
                          hasLum && hasLum[i + 1] != 0,
                          colourTable ? colourTable + 3 * at : nullptr,
                          lumTable ? lumTable + at : nullptr};
    }

    lv::OwnedFile rows_file;
    std::unique_ptr<unsigned char[]> row_store;
    if (opt.lowMemory) {
        rows_file.reset(opt.tempPath0 ? std::fopen(opt.tempPath0, "rb") : nullptr);
        if (!rows_file) return LV_ERR_ARG;
        row_store.reset(new (std::nothrow) unsigned char[static_cast<size_t>(dim.width) * 4]);
        if (!row_store) return LV_ERR_NOMEM;
        // The plane of a low-memory run comes from its temp file as the solver left it.
        const int r = tm30(&dim, p, 0, plane);
        if (r < 0) return r;
    }

    const Band band{k.get(),
                    kind,
                    &dim,
                    p,
                    mask,
                    expTable,
                    curve,
                    layers.get(),
                    layer_count,
                    image,
                    rows_file.get(),
                    row_store.get(),
                    plane,
                    progressCb};
    if (dim.bpsOut == 8) return map_rows(band, output);
    if (dim.bpsOut == 16) return map_rows(band, reinterpret_cast<uint16_t *>(output));
    return dim.height; // another depth writes nothing
}
