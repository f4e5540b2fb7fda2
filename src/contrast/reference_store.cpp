// The reference store: for one reference luminance, the whole log image remapped around
// it, reduced into a tower, and its band-pass coefficients kept in 16 bits at the same
// offsets as the main tower. The level pass then interpolates between two references
// instead of building a small tower per pixel.
#include <cmath>

#include "contrast/contrast.h"
#include "frame/band_threads.h"

namespace {

// Remaps the log image into work around the reference.
void remap_plane(const float *log_image, int64_t n, float g, float alpha, float sigma,
                 float *work) {
    const lv::CoRemap map = lv::co_remap_for(g, alpha, sigma);
    for (int64_t i = 0; i < n; ++i)
        work[i] = lv::co_remap(map, log_image[i]);
}

} // namespace

extern "C" {

float co_alpha0(const float *p) {
    const double c = p[0];
    return static_cast<float>(c >= 50.0 ? 1.1 - 0.011 * c : 0.9 - 0.007 * c);
}

float co_sigma0(const float *p) {
    const double d = p[1];
    return static_cast<float>(d > 0.0 ? 0.92 - d * 0.05 : 0.92 - d * 0.1);
}

int co_precalculate(int width, int height, int levels, float *p, int numThreads, float *work,
                    const float *logImage, int16_t *store, float reference) {
    if (width < 1 || height < 1 || levels < 1) return 0;
    const float scale = p[11] > 0.0f ? 32767.0f / p[11] : 1.0f;
    const int wrap = static_cast<int>(p[15]) != 0 ? 1 : 0;
    const float a0 = co_alpha0(p), s0 = co_sigma0(p);
    const int64_t n = static_cast<int64_t>(width) * height;

    // Offsets and sizes of the tower's planes, finest first.
    int64_t off[64];
    int ws[64], hs[64];
    off[0] = 0;
    ws[0] = width;
    hs[0] = height;
    for (int k = 0; k < levels && k < 62; ++k) {
        off[k + 1] = off[k] + static_cast<int64_t>(ws[k]) * hs[k];
        ws[k + 1] = (ws[k] + 1) / 2;
        hs[k + 1] = (hs[k] + 1) / 2;
    }
    auto reduce = [&](int k) {
        co_down(ws[k], hs[k], ws[k + 1], hs[k + 1], wrap, off[k], off[k + 1], numThreads, work);
    };
    auto diff = [&](int k) {
        co_diff(ws[k], hs[k], ws[k + 1], hs[k + 1], 16, wrap, 0, work + off[k + 1], work + off[k],
                store + off[k], scale);
    };

    if (p[2] != 0.0f) {
        if (levels < 2) return 0;
        const double gain = std::pow(2.0, p[2] * 0.04) - 1.0;
        for (int k = 0; k <= levels - 2; ++k) {
            // The level's own strength and threshold, worked out here rather than read from
            // p, which other references' threads share.
            const float t5 = std::pow(static_cast<float>(k) / static_cast<float>(levels - 1), 5.0f);
            const float p5 = static_cast<float>(p[2] * t5 * 0.015);
            const float alpha = lv::co_clamp_alpha(static_cast<float>(a0 / (1.0 + gain * t5)));
            const float sigma = s0 / (1.0f + p5);
            remap_plane(logImage, n, reference, alpha, sigma, work);
            for (int j = 0; j <= k; ++j)
                reduce(j);
            diff(k);
        }
        return levels;
    }

    const float alpha = lv::co_clamp_alpha(a0 / (1.0f + p[7]));
    const float sigma = s0 / (1.0f + p[5]);
    remap_plane(logImage, n, reference, alpha, sigma, work);
    for (int k = 0; k < levels; ++k) {
        reduce(k);
        diff(k);
    }
    return levels;
}

void *co_precalculate_threaded(void *args) {
    auto *a = static_cast<CoPrecalcArgs *>(args);
    a->result = co_precalculate(a->width, a->height, a->levels, a->p, a->numThreads, a->work,
                                a->logImage, a->store, a->reference);
    pthread_exit(nullptr);
}

} // extern "C"
