// Four simulated exposures of a single photograph, for hosts that offer a bracket-like
// choice when there is only one frame, and the choice of the exposure nearest a target.
#include <cmath>

#include "colour/finish_internal.h"

namespace {

constexpr int kCancelled = -1;

// Reports a step to the host; true when it asked to stop.
bool cancelled(LvProgressCallback callback, int step) {
    return callback && progress(1, callback, nullptr, static_cast<float>(step) / 7.0f) == 0;
}

} // namespace

extern "C" {

int numFakeExposures(void) {
    return 4;
}

int createFakeExposures(int numThreads, int width, int height, int samplesPerPixel, int strideIn,
                        int strideOut, int swapIn, int swapOut, int bpsIn, int bpsOut,
                        const unsigned char *input, unsigned char *outputs,
                        LvProgressCallback callback) {
    lv::require_levels_depths(bpsIn, bpsOut, "createFakeExposures");
    const size_t step = static_cast<size_t>(samplesPerPixel) * width * height * (bpsOut / 8);
    unsigned char *out[4] = {outputs, outputs + step, outputs + 2 * step, outputs + 3 * step};
    auto levels = [&](const unsigned char *in, int bits, int sw, int stride, unsigned char *dst,
                      float gammaIn, float black, float gammaOut, float saturation) {
        adjustImageLevels(numThreads, width, height, 0, sw, swapOut, stride, strideOut, bits,
                          bpsOut, in, dst, gammaIn, black, 100.0f, gammaOut, saturation);
    };

    if (cancelled(callback, 1)) return kCancelled;
    levels(input, bpsIn, swapIn, strideIn, out[0], 1.0f, 0.0f, 2.0f, 100.0f);
    if (cancelled(callback, 2)) return kCancelled;
    levels(input, bpsIn, swapIn, strideIn, out[1], 2.2f, 20.0f, 1.7f, 130.0f);
    if (cancelled(callback, 3)) return kCancelled;

    // Samples through a 1/2.2 power: the L* scale then starts from gamma-encoded values,
    // which is why these two renderings come out much brighter than their factors.
    const int n = bpsIn == 8 ? 256 : 65536;
    lv::FreeBuf<float> table = lv::calloc_buf<float>(static_cast<size_t>(n));
    if (table)
        for (int i = 0; i < n; ++i)
            table[i] = static_cast<float>(std::pow(static_cast<double>(i) / n, 0.4545454));
    const double factors[2] = {1.4142135623730951, 1.7411011409788943};
    for (int k = 0; k < 2; ++k) {
        if (k == 1 && cancelled(callback, 4)) return kCancelled;
        if (!table) continue;
        ExposureWork w = {{},       width,      bpsIn,     bpsOut,  samplesPerPixel,
                          strideIn, strideOut,  swapIn,    swapOut, table.get(),
                          input,    out[2 + k], factors[k]};
        DivideWork(0, height, numThreads, adjustImageExposure_tile_threaded, &w, sizeof w);
    }
    table.reset();
    for (int k = 2; k < 4; ++k) {
        if (cancelled(callback, 3 + k)) return kCancelled;
        levels(out[k], bpsOut, swapOut, strideOut, out[k], 1.0f, 20.0f, 1.7f, 130.0f);
    }
    if (cancelled(callback, 7)) return kCancelled;
    return 0;
}

int getIndexClosestEv(int count, const float *evs, float target) {
    if (count < 2 || !evs) return 0;
    int lead = 0;
    float best = 1e12f;
    for (int i = 0; i < count; ++i) {
        if (evs[i] == target) return i;
        const float distance = std::fabs(evs[i] - target);
        if (distance < best) {
            best = distance;
            lead = i;
        } else if (distance == best) {
            // Ties go away from the middle: towards the darker value for a negative
            // target, the brighter one for a positive target.
            if ((target < 0.0f && evs[i] < evs[lead]) || (target > 0.0f && evs[i] > evs[lead]))
                lead = i;
        }
    }
    return lead;
}

} // extern "C"
