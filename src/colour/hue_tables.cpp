// Per-hue colour tables: three closed eight-point slider curves over hue (saturation,
// hue shift, luminance) resampled to tables, and the hue colour table that turns a
// pixel's hue index into the RGB mix it becomes between its minimum and maximum.
#include <algorithm>
#include <memory>
#include <new>

#include "lumivantor/colour.h"
#include "lumivantor/frame.h"

namespace {

using FloatBuf = std::unique_ptr<float[]>;

inline FloatBuf alloc_floats(size_t n) {
    return FloatBuf(new (std::nothrow) float[n]());
}

// Knot hues of the curves, as fractions of a turn; the ninth closes the circle.
constexpr float kKnotHue[9] = {0.0f,        1.0f / 12.0f, 1.0f / 6.0f,   1.0f / 3.0f, 0.5f,
                               2.0f / 3.0f, 0.75f,        11.0f / 12.0f, 1.0f};

// Samples of the parametric curve: never more than this many, whatever the table size.
constexpr int kMaxCurveSamples = 1000;

bool any_nonzero(const float *v, int n) {
    for (int i = 0; i < n; ++i)
        if (v[i] != 0.0f) return true;
    return false;
}

// One hue colour entry: the HSV colour of hue, saturation sv and value val, with
// sectors outside 0..5 returning false so that the caller repeats the previous entry.
bool hue_entry(float hue, float sv, float val, float *out) {
    const int sector = static_cast<int>(hue * 6.0f);
    const float f = hue * 6.0f - static_cast<float>(sector);
    const float lo = val * (1.0f - sv);
    const float d = val - lo;
    const float down = val - f * d;
    const float up = f * d + lo;
    if (sector < 0 || sector > 5) return false;
    const float mix[6][3] = {{val, up, lo},   {down, val, lo}, {lo, val, up},
                             {lo, down, val}, {up, lo, val},   {val, lo, down}};
    std::copy(mix[sector], mix[sector] + 3, out);
    return true;
}

} // namespace

extern "C" {

int getColorAdjustmentCurve(const float *values, int n, float *table) {
    const int samples = std::min(n, kMaxCurveSamples);
    const size_t count = samples >= 0 ? static_cast<size_t>(samples) + 1 : 1;
    FloatBuf px = alloc_floats(count), py = alloc_floats(count);
    if (!px || !py) return LV_ERR_NOMEM;

    float ky[9];
    for (int i = 0; i < 8; ++i)
        ky[i] = static_cast<float>(0.5 + 0.05 * values[i]);
    ky[8] = ky[0];

    // A smoothstep between the knots, with the position pulled a fifth of the way back
    // towards the straight line: a parametric curve that the table then resamples.
    const float inv_samples = 1.0f / static_cast<float>(samples);
    for (int k = 0; k < 8; ++k) {
        const float x0 = kKnotHue[k], x1 = kKnotHue[k + 1];
        const int i0 = static_cast<int>(x0 * static_cast<float>(samples));
        const int i1 = static_cast<int>(x1 * static_cast<float>(samples));
        const float inv_span = 1.0f / (x1 - x0);
        for (int i = i0; i <= i1; ++i) {
            const float t = (static_cast<float>(i) * inv_samples - x0) * inv_span;
            const double td = t;
            const float h1 = static_cast<float>(3.0 * td * td - 2.0 * td * td * td);
            const float h0 = static_cast<float>(1.0 - 3.0 * td * td + 2.0 * td * td * td);
            float x = static_cast<float>((t - h1) * 0.2 + (h0 * x0 + h1 * x1));
            if (!(x >= 0.0f)) x = 0.0f;
            if (x > 1.0f) x = 1.0f;
            px[i] = x;
            py[i] = h0 * ky[k] + h1 * ky[k + 1];
        }
    }
    if (n < 1) return 1;

    // Resample onto the table; the last entry is left as the caller's buffer held it.
    const float last = static_cast<float>(n - 1);
    for (int i = 0; i < samples; ++i) {
        const int a = static_cast<int>(px[i] * last);
        const int b = static_cast<int>(px[i + 1] * last);
        if (a == b) {
            table[a] = py[i];
        } else if (b > a) {
            for (int j = a; j < b; ++j) {
                const float f = static_cast<float>(j - a) / static_cast<float>(b - a);
                table[j] = f * py[i + 1] + (1.0f - f) * py[i];
            }
        }
    }
    return 1;
}

int getColorAdjustmentLUTs(int method, const float *p, int n, int curvePoints, float *saturation,
                           float *temperature, float *gamma, float *colorTable, float *lumTable) {
    const size_t points = static_cast<size_t>(std::max(curvePoints, LV_CURVE_POINTS));
    FloatBuf sat_curve = alloc_floats(points), hue_curve = alloc_floats(points),
             lum_curve = alloc_floats(points);
    if (!sat_curve || !hue_curve || !lum_curve) return LV_ERR_NOMEM;
    get_color_param(method, p, saturation, temperature, gamma, sat_curve.get(), hue_curve.get(),
                    lum_curve.get());

    const size_t entries = n > 0 ? static_cast<size_t>(n) : 0;
    FloatBuf sat_table, hue_table;
    if (any_nonzero(sat_curve.get(), LV_CURVE_POINTS)) {
        if (!(sat_table = alloc_floats(entries))) return LV_ERR_NOMEM;
        if (getColorAdjustmentCurve(sat_curve.get(), n, sat_table.get()) < 0) return LV_ERR_NOMEM;
    }
    if (any_nonzero(hue_curve.get(), LV_CURVE_POINTS)) {
        if (!(hue_table = alloc_floats(entries))) return LV_ERR_NOMEM;
        if (getColorAdjustmentCurve(hue_curve.get(), n, hue_table.get()) < 0) return LV_ERR_NOMEM;
    }
    const bool has_lum = any_nonzero(lum_curve.get(), LV_CURVE_POINTS);
    if (has_lum && getColorAdjustmentCurve(lum_curve.get(), n, lumTable) < 0) return LV_ERR_NOMEM;

    const float sat = *saturation;
    const float inv_n = 1.0f / static_cast<float>(n);
    float prev[3] = {0.0f, 0.0f, 0.0f};
    for (int i = 0; i < n; ++i) {
        float s = sat_table ? 2.0f * sat_table[i] : 1.0f;
        if (sat != 0.0f) s = static_cast<float>((1.0 + sat) * s);
        float shift = 0.0f;
        if (hue_table) {
            // Green to blue hues may move twice as far as the others.
            const float c = 2.0f * hue_table[i] - 1.0f;
            const int angle = static_cast<int>(static_cast<float>(i * 360) * inv_n);
            shift = static_cast<float>(angle >= 91 && angle <= 219 ? c * 0.16667 : c * 0.08333);
        }
        s = std::min(s, 3.0f);
        const float e = s - 1.0f;
        float sv, val;
        if (e > 0.0f) {
            sv = val = 1.0f + 0.5f * e;
        } else {
            sv = s;
            val = 1.0f;
        }
        float *entry = colorTable + 3 * static_cast<size_t>(i);
        if (sv == 0.0f) {
            entry[0] = entry[1] = entry[2] = val;
        } else {
            float hue = static_cast<float>(i) / static_cast<float>(n - 1) + shift;
            if (hue > 1.0f) hue -= 1.0f;
            if (!hue_entry(hue, sv, val, entry)) std::copy(prev, prev + 3, entry);
        }
        std::copy(entry, entry + 3, prev);
    }
    return has_lum ? 1 : 0;
}

} // extern "C"
