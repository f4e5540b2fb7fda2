// Normalisation of the solved plane: a 65536-bin histogram between the plane's minimum
// and maximum gives a black and a white percentile, and the plane is stretched so they
// land on 0 and 1. Samples above 5 are clipped first: the solver can leave a few
// runaway highlights, and they would otherwise squeeze every other tone into few bins.
#include <cstddef>
#include <memory>
#include <new>

#include "tonemap/tm3.h"

namespace {

constexpr int kBins = 65536;
constexpr float kCeiling = 5.0f;

float held(float v, float lo, float hi) {
    return v < lo ? lo : (v > hi ? hi : v);
}

} // namespace

extern "C" int tm30(DimParam *dim, float *p, long /*unused*/, float *plane) {
    if (dim->height == 0) return 0;
    const size_t n = static_cast<size_t>(dim->width) * static_cast<size_t>(dim->height);

    // The maximum sees clipped samples; the minimum sees them as read, so a low outlier
    // stays in force.
    float mx = -1e9f, mn = 1e9f;
    for (size_t i = 0; i < n; ++i) {
        const float v = plane[i];
        if (v > mx) {
            mx = v;
            if (v > kCeiling) {
                plane[i] = kCeiling;
                mx = kCeiling;
            }
        }
        if (v < mn) mn = v;
    }
    float scale;
    if (mx > mn) {
        scale = 65535.0f / (mx - mn);
    } else {
        mn = 0.0f;
        scale = mx < 1e-30f ? 327675008.0f : 32767.5f / mx;
    }

    std::unique_ptr<int[]> hist(new (std::nothrow) int[kBins]());
    if (!hist) return LV_ERR_NOMEM;
    for (size_t i = 0; i < n; ++i) {
        const float b = (plane[i] - mn) * scale + 0.5f;
        int bin = b > 0.0f ? (b < 65535.0f ? static_cast<int>(b) : kBins - 1) : 0;
        ++hist[bin];
    }

    const float count = static_cast<float>(dim->height * dim->width);
    const float black_share = held(p[4], 0.0f, 10.0f);
    const int black_target = static_cast<int>(count * static_cast<float>(black_share * 0.005));
    int black_bin = kBins;
    long running = 0;
    for (int b = 0; b < kBins; ++b) {
        running += hist[b];
        if (running >= black_target) {
            black_bin = b;
            break;
        }
    }

    const float white_share = held(p[3], 0.0f, 10.0f);
    const long white_target = static_cast<long>(count * ((-0.0001 - white_share) * 0.01 + 1.0));
    int white_bin = kBins - 2;
    const long pixels = static_cast<long>(dim->height) * dim->width;
    if (pixels > white_target) {
        long remaining = pixels;
        int b = kBins - 2;
        for (; b > 0; --b) {
            if (remaining - hist[b] <= white_target) break;
            remaining -= hist[b];
        }
        white_bin = b - 1;
    }

    const float black = static_cast<float>(black_bin) / scale + mn;
    const float white = static_cast<float>(white_bin) / scale + mn;
    if (black >= white) return LV_ERR_STATS;
    const float range = 1.0f / (white - black);
    for (size_t i = 0; i < n; ++i) {
        const float v = (plane[i] - black) * range;
        plane[i] = v > 0.0f ? v : 0.0f;
    }
    return dim->height;
}
