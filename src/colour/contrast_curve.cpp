// Monotone cubic splines and the 65536-entry S-curve of the contrast controls.
#include <cmath>
#include <memory>
#include <new>

#include "lumivantor/colour.h"

namespace {

// Cubic Hermite on the span of knot i.
inline float hermite(const float *x, const float *y, const float *tangents, int i, float at) {
    const float h = x[i + 1] - x[i];
    const float t = (at - x[i]) / h;
    const float t2 = t * t;
    const float t3 = t2 * t;
    return h * ((t3 - t2) * tangents[i + 1] + (t + t3 - 2.0f * t2) * tangents[i]) +
           (3.0f * t2 - 2.0f * t3) * y[i + 1] + (1.0f - 3.0f * t2 + 2.0f * t3) * y[i];
}

} // namespace

extern "C" {

void monotone_cubic_spline(const float *x, const float *y, float *tangents, int n) {
    if (n < 2) {
        if (n == 1) tangents[0] = 0.0f;
        return;
    }
    const size_t spans = static_cast<size_t>(n - 1);
    std::unique_ptr<float[]> work(new (std::nothrow) float[5 * spans]);
    if (!work) return;
    float *d = work.get(), *alpha = d + spans, *beta = alpha + spans, *sum = beta + spans,
          *tau = sum + spans;

    for (int i = 0; i < n - 1; ++i)
        d[i] = (y[i + 1] - y[i]) / (x[i + 1] - x[i]);
    tangents[0] = d[0];
    tangents[n - 1] = d[n - 2];
    for (int i = 1; i < n - 1; ++i)
        tangents[i] = (d[i - 1] + d[i]) * 0.5f;
    for (int i = 0; i < n - 1; ++i)
        if (d[i] == 0.0f) tangents[i] = tangents[i + 1] = 0.0f;

    // All ratios are taken before any tangent is limited, so a later span overwrites the
    // tangent it shares with an earlier one instead of being limited by it.
    for (int i = 0; i < n - 1; ++i) {
        alpha[i] = tangents[i] / d[i];
        beta[i] = tangents[i + 1] / d[i];
        sum[i] = alpha[i] * alpha[i] + beta[i] * beta[i];
        tau[i] = static_cast<float>(3.0 / std::sqrt(static_cast<double>(sum[i])));
    }
    for (int i = 0; i < n - 1; ++i) {
        if (sum[i] > 9.0f) {
            tangents[i] = d[i] * tau[i] * alpha[i];
            tangents[i + 1] = d[i] * tau[i] * beta[i];
        }
    }
}

float cubic_interpolate(const float *x, const float *y, const float *tangents, unsigned n,
                        float at) {
    if (n < 2) return n == 1 ? y[0] : 0.0f;
    int i = static_cast<int>(n) - 2;
    while (i > 0 && !(at >= x[i]))
        --i;
    return hermite(x, y, tangents, i, at);
}

int get_contrast_lut(const float *controls, int32_t *table) {
    const float c0 = controls[0], c1 = controls[1], c2 = controls[2], c3 = controls[3];
    float x[5], y[5], tangents[5];
    x[0] = y[0] = 0.0f;
    x[4] = y[4] = 1.0f;
    y[2] = 0.5f;
    // Shadows: the first knot moves with c[2] and c[3].
    x[1] = static_cast<float>(0.2 * c3 + 0.16 * c2);
    y[1] = static_cast<float>((0.02 * (c3 + c2) - x[1]) * std::fmin(4.0 * (c3 + c2), 1.0) + x[1]);
    x[2] = static_cast<float>(0.125 * (c3 - c1) + 0.5);
    // Highlights: the third knot moves with c[0] and c[1].
    const float m = static_cast<float>(0.2 * c1 + 0.16 * c0);
    x[3] = 1.0f - m;
    y[3] = static_cast<float>((m - 0.02 * (c1 + c0)) * std::fmin(3.0 * (c1 + c0), 1.0) + x[3]);
    if (c3 == 0.0f && c2 == 0.0f) {
        x[1] = y[1] = 0.25f;
        if (c0 == 0.0f && c1 == 0.0f) {
            x[2] = 0.5f;
            x[3] = y[3] = 0.75f;
        }
    } else if (c0 == 0.0f && c1 == 0.0f) {
        x[3] = y[3] = 0.75f;
    }
    monotone_cubic_spline(x, y, tangents, 5);

    float v = 0.0f;
    for (int k = 0; k < LV_CONTRAST_LUT_SIZE; ++k) {
        const int span = v >= x[3] ? 3 : v >= x[2] ? 2 : v >= x[1] ? 1 : 0;
        table[k] = static_cast<int32_t>(hermite(x, y, tangents, span, v) * 65535.0f);
        v += 1.5259022e-05f;
    }
    return 0;
}

} // extern "C"
