// 8-bit weight planes for the local stage of the two-stage fusion: well-exposedness
// shares, smoothed so that a weight never jumps at an edge, completed to sum to 255.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/c_buffer.h"
#include "fusion/weights.h"

namespace {

inline int clamp_index(int i, int count) {
    return i < 0 ? 0 : (i >= count ? count - 1 : i);
}

// One box of radius r along a line of `count` samples, edges held, rounded to nearest.
void box_line(uint8_t *v, int count, int r, uint8_t *copy) {
    std::memcpy(copy, v, static_cast<size_t>(count));
    const uint32_t n = 2u * r + 1u;
    uint32_t sum = 0;
    for (int i = -r; i <= r; ++i)
        sum += copy[clamp_index(i, count)];
    for (int x = 0; x < count; ++x) {
        v[x] = static_cast<uint8_t>((sum + r) / n);
        sum += copy[clamp_index(x + r + 1, count)];
        sum -= copy[clamp_index(x - r, count)];
    }
}

// The same box down every column at once, with running column sums. Rows above the one
// being written are already smoothed, so the last r + 1 original rows wait in a ring.
void box_columns(uint8_t *plane, int width, int height, int r, uint8_t *ring, uint32_t *sums) {
    const size_t w = static_cast<size_t>(width);
    const uint32_t n = 2u * r + 1u;
    auto row = [&](int y) { return plane + w * clamp_index(y, height); };
    std::fill(sums, sums + w, 0u);
    for (int i = -r; i <= r; ++i)
        for (size_t x = 0; x < w; ++x)
            sums[x] += row(i)[x];
    for (int y = 0; y < height; ++y) {
        uint8_t *out = plane + w * y;
        std::memcpy(ring + w * (y % (r + 1)), out, w);
        for (size_t x = 0; x < w; ++x)
            out[x] = static_cast<uint8_t>((sums[x] + r) / n);
        if (y == height - 1) break;
        const uint8_t *add = row(y + r + 1);
        const uint8_t *sub = ring + w * (clamp_index(y - r, height) % (r + 1));
        for (size_t x = 0; x < w; ++x)
            sums[x] += add[x] - sub[x];
    }
}

} // namespace

extern "C" {

int adj1_32(int width, int height, int bits, int planes, void *selection, void *memory) {
    const auto *source = static_cast<const FusionWeightSource *>(selection);
    if (bits != 8 || source == nullptr || planes < 0 || source->samplesPerPixel < 1)
        return LV_ERR_ARG;
    const int n = planes + 1;
    lv::CBuf<float> score = lv::calloc_array<float>(static_cast<size_t>(n));
    if (!score) return LV_ERR_NOMEM;
    float gauss[256];
    for (int i = 0; i < 256; ++i) {
        const double x = (i - 128) / 256.0;
        gauss[i] = static_cast<float>(std::exp(-12.5 * x * x));
    }
    const size_t spp = static_cast<size_t>(source->samplesPerPixel);
    const size_t plane = static_cast<size_t>(width) * height, mid = (spp - 1) / 2;
    auto *out = static_cast<uint8_t *>(memory);
    for (size_t p = 0; p < plane; ++p) {
        float sum = 0.0f;
        for (int t = 0; t < n; ++t) {
            const uint8_t *px = source->images + (plane * t + p) * spp;
            score[t] = 0.2f * gauss[px[0]] + 0.7f * gauss[px[mid]] + 0.1f * gauss[px[spp - 1]];
            sum += score[t];
        }
        for (int k = 0; k < planes; ++k)
            out[plane * k + p] = static_cast<uint8_t>(255.0f * score[k] / sum + 0.5f);
    }
    return 1;
}

int smooth_nosubsample(int strength, int width, int height, int bits, int offset, void *in,
                       void *out) {
    if (bits != 8 || strength < 0) return LV_ERR_ARG;
    const size_t w = static_cast<size_t>(std::max(width, 0)), count = w * std::max(height, 0);
    auto *plane = static_cast<uint8_t *>(out) + offset;
    const auto *source = static_cast<const uint8_t *>(in) + offset;
    if (plane != source) std::memmove(plane, source, count);
    if (count == 0 || strength == 0) return 1;
    lv::CBuf<uint8_t> line = lv::calloc_array<uint8_t>(std::max<size_t>(w, height));
    lv::CBuf<uint8_t> ring = lv::calloc_array<uint8_t>(w * (strength + 1));
    lv::CBuf<uint32_t> sums = lv::calloc_array<uint32_t>(w);
    if (!line || !ring || !sums) return LV_ERR_NOMEM;
    // Two boxes each way make a tent, close enough to a Gaussian for weights.
    for (int pass = 0; pass < 2; ++pass)
        for (int y = 0; y < height; ++y)
            box_line(plane + w * y, width, strength, line.get());
    for (int pass = 0; pass < 2; ++pass)
        box_columns(plane, width, height, strength, ring.get(), sums.get());
    return 1;
}

int final_poids32(int width, int height, int bits, int n, void *memory) {
    if (bits != 8 || n < 1) return LV_ERR_ARG;
    const size_t plane = static_cast<size_t>(width) * height;
    auto *w = static_cast<uint8_t *>(memory);
    for (size_t p = 0; p < plane; ++p) {
        int sum = 0;
        for (int k = 0; k < n - 1; ++k)
            sum += w[plane * k + p];
        // Rounding in the smoothed planes may overshoot: the largest give it back.
        for (int excess = sum - 255; excess > 0;) {
            int top = 0;
            for (int k = 1; k < n - 1; ++k)
                if (w[plane * k + p] > w[plane * top + p]) top = k;
            const int take = std::min<int>(excess, w[plane * top + p]);
            w[plane * top + p] = static_cast<uint8_t>(w[plane * top + p] - take);
            excess -= take;
            sum -= take;
        }
        w[plane * (n - 1) + p] = static_cast<uint8_t>(255 - sum);
    }
    return 1;
}

} // extern "C"
