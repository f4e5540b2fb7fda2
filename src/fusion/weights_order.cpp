// Ranking of a bracket from brightest to darkest by a key from its luminance histogram.
#include <algorithm>
#include <cstdint>

#include "frame/c_buffer.h"
#include "fusion/weights.h"

namespace {

// First bin whose running sum exceeds cut, or `none` when no bin does.
int first_passing(const int64_t *hist, int64_t cut, int none) {
    int64_t sum = 0;
    for (int i = 0; i < 256; ++i) {
        sum += hist[i];
        if (sum > cut) return i;
    }
    return none;
}

template <class T>
void photo_stats(const T *px, size_t pixels, int spp, int64_t *hist, int *clipped) {
    constexpr unsigned shift = sizeof(T) == 1 ? 0 : 8;
    constexpr unsigned clip = sizeof(T) == 1 ? 250 : 64000;
    const size_t mid = static_cast<size_t>((spp - 1) / 2), last = static_cast<size_t>(spp - 1);
    int count = 0;
    for (size_t i = 0; i < pixels; ++i, px += spp) {
        const unsigned r = px[0], g = px[mid], b = px[last];
        if (r > clip && g > clip && b > clip) ++count;
        ++hist[(54 * (r >> shift) + 183 * (g >> shift) + 19 * (b >> shift)) >> 8];
    }
    *clipped = count;
}

// A photograph's key: its median bin x 256, a very dark one told apart by its bright end
// and an almost white one (above all others) by its dark end.
int brightness_key(const int64_t *hist, size_t pixels) {
    const float count = static_cast<float>(pixels);
    const auto cut50 = static_cast<int64_t>(0.5f * count);
    const auto cut95 = static_cast<int64_t>(0.95f * count);
    const auto cut17 = static_cast<int64_t>(0.17f * count);
    const int median = first_passing(hist, cut50, -1);
    int key = 65536;
    if (median >= 5)
        key = median * 256;
    else if (median >= 0)
        key = first_passing(hist, cut95, 256);
    if (key >= 64513) key = 65536 + first_passing(hist, cut17, 256);
    return key;
}

} // namespace

extern "C" int stats_order_photos(int n, int width, int height, int samplesPerPixel, int bits,
                                  const void *images, int *percentDark, int *percentBright,
                                  int *clippedCount, int *brightnessKey, int *order) {
    for (int t = 0; t < n; ++t)
        order[t] = t;
    if (bits != 8 && bits != 16) return LV_ERR_ARG;
    lv::CBuf<int64_t> hist = lv::calloc_array<int64_t>(256);
    lv::CBuf<int> keys = lv::calloc_array<int>(static_cast<size_t>(n));
    if (!hist || !keys) return LV_ERR_NOMEM;
    const size_t pixels = static_cast<size_t>(width) * height;
    const size_t photo = pixels * samplesPerPixel;
    for (int t = 0; t < n; ++t) {
        std::fill(hist.get(), hist.get() + 256, 0);
        if (bits == 8)
            photo_stats(static_cast<const uint8_t *>(images) + photo * t, pixels, samplesPerPixel,
                        hist.get(), &clippedCount[t]);
        else
            photo_stats(static_cast<const uint16_t *>(images) + photo * t, pixels, samplesPerPixel,
                        hist.get(), &clippedCount[t]);
        int64_t dark = 0, bright = 0;
        for (int i = 0; i < 16; ++i)
            dark += hist[i];
        for (int i = 233; i < 256; ++i)
            bright += hist[i];
        const int64_t total = static_cast<int64_t>(pixels);
        percentDark[t] = total ? static_cast<int>(100 * dark / total) : 0;
        percentBright[t] = total ? static_cast<int>(100 * bright / total) : 0;
        brightnessKey[t] = keys[t] = brightness_key(hist.get(), pixels);
    }
    // Selection sort on a copy of the keys: the largest left, the first on a tie.
    for (int r = 0; r < n; ++r) {
        int best = 0;
        for (int t = 1; t < n; ++t)
            if (keys[t] > keys[best]) best = t;
        order[r] = best;
        keys[best] = -999999;
    }
    return n;
}
