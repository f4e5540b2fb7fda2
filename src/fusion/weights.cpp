// Weight planes of exposure fusion: a well-exposedness curve per photograph, a sharpen
// table common to all, and a factor per photograph from its place in the ranking, turned
// per pixel into weights that sum to full scale. No exp or pow runs in the pixel loop.
#include <sys/types.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <type_traits>

#include "frame/band_threads.h"
#include "frame/c_buffer.h"
#include "frame/rounding.h"
#include "fusion/weights.h"

namespace {

// Well-exposedness of every sample value of photograph t. A positive shape p2 replaces
// the Gaussian by a flat-topped curve whose highlight side ends at 0.82 of the range and
// whose shadow side steepens with the photograph's share of clipped pixels.
void exposure_curve(float *curve, int range, float p2, float clipped_share) {
    const int mid = range / 2;
    if (!(p2 > 0.0f)) {
        for (int i = 0; i < range; ++i) {
            const float x = static_cast<float>(i - mid) / static_cast<float>(range);
            curve[i] = static_cast<float>(std::exp(static_cast<double>(-12.499999f * (x * x))));
        }
        return;
    }
    const float c = clipped_share;
    const float up = c < 0.2f ? p2 + 1.0f : 0.5f * p2 + 1.5f;
    float low;
    if (c < 0.05f)
        low = 2.0f;
    else if (c > 0.2f)
        low = p2 + 1.0f;
    else
        low = (6.6666665f * c - 0.33333334f) * (p2 - 1.0f) + 2.0f;
    const double k = std::pow(2.0, up * 0.6424479953819163);
    for (int i = 0; i < range; ++i) {
        const double x = 2.0 * i / range;
        const double v = i < mid ? 1.0 - std::pow(1.0 - x, low) : 1.0 - std::pow(x - 1.0, up) * k;
        curve[i] = static_cast<float>(std::max(0.0, v));
    }
}

// Stores weight w of a pixel whose weights sum to `sum` into an integer plane of `bits`:
// below 1 gives 0, a fraction strictly above a half rounds up, full scale is capped.
template <class T> inline T scaled_weight(float w, float full, float inv_sum) {
    const float v = w * full * inv_sum;
    if (v < 1.0f) return 0;
    const int rounded = lv::round_over_half(v);
    const int cap = static_cast<int>(full) - 1;
    return static_cast<T>(rounded < cap ? rounded : cap);
}

struct Pass {
    int n, width, height, spp, bits, weight_bits;
    const float *curves, *sharpen, *factor;
    const int *order;
    const uint8_t *mask;
    void *weights;
    const int *place; // last place of each photograph in order, -1 when absent
    float *raw;       // n weights of the pixel at hand
};

inline bool selected(const uint8_t *mask, size_t bit) {
    return (mask[bit >> 3] >> (7 - (bit & 7))) & 1;
}

// Weights of pixel p (counted from the band's start); px(t) gives photograph t's pixel.
template <class S, class PixelOf> void weigh_pixel(const Pass &a, size_t p, PixelOf px) {
    const size_t plane = static_cast<size_t>(a.width) * a.height;
    const int range = a.bits == 8 ? 256 : 65536;
    const size_t mid = static_cast<size_t>((a.spp - 1) / 2), last = static_cast<size_t>(a.spp - 1);
    const bool selection = a.order[0] >= 0 && (a.bits == 8 || a.bits == 16) && a.mask;
    float v = 0.0f;
    int chosen = -1;
    for (int t = 0; t < a.n && chosen < 0; ++t) {
        if (selection && a.place[t] >= 0 && selected(a.mask, a.place[t] * plane + p)) {
            chosen = t;
            break;
        }
        if constexpr (std::is_integral_v<S>) { // 32-bit samples read no curve
            const S *s = px(t);
            const float *curve = a.curves + static_cast<size_t>(range) * t;
            v = curve[s[last]] * 6553.6f + (curve[s[mid]] * 45875.2f + curve[s[0]] * 13107.2f);
        }
        const int index = v < 65535.0f ? static_cast<int>(v) : 65535;
        a.raw[t] = (a.factor[t] > 0.0f ? a.factor[t] : 1.0f) * a.sharpen[index];
    }
    if (chosen >= 0)
        for (int t = 0; t < a.n; ++t)
            a.raw[t] = t == chosen ? 1.0f : 0.0f;
    float sum = 0.0f;
    for (int t = 0; t < a.n; ++t)
        sum += a.raw[t];
    const bool none = !(sum > 0.0f);
    const float inv = none ? 0.0f : 1.0f / sum;
    for (int t = 0; t < a.n; ++t) {
        const size_t at = plane * t + p;
        if (a.weight_bits == 8)
            static_cast<uint8_t *>(a.weights)[at] =
                none ? 0 : scaled_weight<uint8_t>(a.raw[t], 256.0f, inv);
        else if (a.weight_bits == 16)
            static_cast<uint16_t *>(a.weights)[at] =
                none ? 0 : scaled_weight<uint16_t>(a.raw[t], 65536.0f, inv);
        else
            static_cast<float *>(a.weights)[at] = none ? 0.0f : a.raw[t] / sum;
    }
}

template <class S>
int weigh_rows(const Pass &a, int rows, bool use_file, FILE *source, void *row_buffer,
               const void *images) {
    const size_t w = static_cast<size_t>(a.width), spp = static_cast<size_t>(a.spp);
    const size_t photo = w * a.height * spp;
    for (int y = 0; y < rows; ++y) {
        const size_t row_start = w * y;
        const S *base = static_cast<const S *>(images);
        size_t stride = photo, offset = row_start * spp;
        if (use_file) {
            S *buf = static_cast<S *>(row_buffer);
            for (int k = 0; k < a.n; ++k) {
                const off_t at =
                    static_cast<off_t>((k * w * a.height + row_start) * spp * sizeof(S));
                if (fseeko(source, at, SEEK_SET) != 0) return LV_ERR_KIND;
                const size_t got = std::fread(buf + k * w * spp, sizeof(S), w * spp, source);
                if (got != w * spp) {
                    std::fprintf(stderr,
                                 "could not read fpSource - returned %d instead of %d  at  %d\n",
                                 static_cast<int>(got), static_cast<int>(w * spp), y);
                    return LV_ERR_KIND;
                }
            }
            base = buf, stride = w * spp, offset = 0;
        }
        for (size_t x = 0; x < w; ++x)
            weigh_pixel<S>(a, row_start + x,
                           [&](int t) { return base + stride * t + offset + spp * x; });
    }
    return rows;
}

} // namespace

extern "C" {

int adj1b_orig(int n, int width, int rows, int height, int samplesPerPixel, int bits,
               int weightBits, const float *exposureCurves, const float *sharpenTable,
               const float *photoFactor, int useFile, FILE *fpSource, void *rowBuffer,
               const void *images, const int *order, const uint8_t *mask, void *weights) {
    lv::CBuf<int> place = lv::calloc_array<int>(static_cast<size_t>(n));
    lv::CBuf<float> raw = lv::calloc_array<float>(static_cast<size_t>(n));
    if (!place || !raw) return LV_ERR_NOMEM;
    for (int t = 0; t < n; ++t) {
        place[t] = -1;
        for (int r = 0; r < n && order[0] >= 0; ++r)
            if (order[r] == t) place[t] = r;
    }
    const Pass a = {n,          width,          height,       samplesPerPixel, bits,
                    weightBits, exposureCurves, sharpenTable, photoFactor,     order,
                    mask,       weights,        place.get(),  raw.get()};
    const bool file = useFile != 0;
    if (bits == 16) return weigh_rows<uint16_t>(a, rows, file, fpSource, rowBuffer, images);
    if (bits == 8) return weigh_rows<uint8_t>(a, rows, file, fpSource, rowBuffer, images);
    return weigh_rows<float>(a, rows, file, fpSource, rowBuffer, images);
}

void *adj1b_threaded(void *args) {
    auto *a = static_cast<Adj1bArgs *>(args);
    const lv::Band band = lv::band_of(a->height, a->threadIndex, a->threadCount);
    const size_t s = static_cast<size_t>(band.first) * a->width;
    // The band's selection mask starts at byte s >> 3: when s isn't a multiple of 8 the
    // band reads its selection up to seven pixels early.
    const uint8_t *mask = a->mask ? a->mask + (s >> 3) : nullptr;
    const auto *images =
        static_cast<const uint8_t *>(a->images) + s * a->samplesPerPixel * (a->bits / 8);
    auto *weights = static_cast<uint8_t *>(a->weights) + s * (a->weightBits / 8);
    a->result = adj1b_orig(a->n, a->width, band.rows, a->height, a->samplesPerPixel, a->bits,
                           a->weightBits, a->exposureCurves, a->sharpenTable, a->photoFactor, 0,
                           nullptr, nullptr, images, a->order, mask, weights);
    pthread_exit(nullptr);
}

int fusion1(int numThreads, float *param, int n, int width, int height, int samplesPerPixel,
            int bits, int weightBits, int rawWeights, int useFile, FILE *fpSource, void *rowBuffer,
            const void *images, const int *order, const uint8_t *mask, int *referenceIndex,
            void *weights) {
    if (n < 1) return LV_ERR_ARG;
    const size_t count = static_cast<size_t>(n);
    const int range = bits == 8 ? 256 : 65536;
    lv::CBuf<int> stats = lv::calloc_array<int>(5 * count);
    lv::CBuf<float> curves = lv::calloc_array<float>(count * range);
    lv::CBuf<float> factor = lv::calloc_array<float>(count);
    lv::CBuf<float> sharpen = lv::calloc_array<float>(65536);
    if (!stats || !curves || !factor || !sharpen) return LV_ERR_NOMEM;
    int *dark = stats.get(), *bright = dark + n, *clipped = bright + n, *key = clipped + n;
    int *ranking = key + n;
    const int ranked = stats_order_photos(n, width, height, samplesPerPixel, bits, images, dark,
                                          bright, clipped, key, ranking);
    *referenceIndex = ranking[n - 1];

    const float pixels = static_cast<float>(static_cast<size_t>(width) * height);
    const float p1 = ranked < 0 ? 0.0f : param[1];
    const int half = n >> 1;
    for (int t = 0; t < n; ++t) {
        exposure_curve(curves.get() + static_cast<size_t>(range) * t, range, param[2],
                       static_cast<float>(clipped[t]) / pixels);
        if (p1 == 0.0f) continue; // 0: no photograph is preferred
        // A sole photograph has no place to prefer; its weight normalises to full scale.
        float g2 = 1.0f;
        if (half > 0) {
            const int j = static_cast<int>(std::find(ranking, ranking + n, t) - ranking);
            const double g = std::pow(2.0, static_cast<float>(half - j) / half * p1 * 0.25);
            g2 = static_cast<float>(g * g);
        }
        factor[t] = std::max(0.1f, g2);
    }
    const float p0 = param[0];
    const double e = std::pow(2.0, p0 < 0.0f ? 0.1 * p0 + 0.5 : 0.2 * p0 + 0.5);
    for (int i = 0; i < 65536; ++i) {
        const float v = static_cast<float>(i) * 1.5258789e-05f;
        sharpen[i] = rawWeights != 0
                         ? v
                         : static_cast<float>(std::pow(std::max(0.0f, 1.0f - v) + 1e-06, -e));
    }

    auto whole = [&] {
        return adj1b_orig(n, width, height, height, samplesPerPixel, bits, weightBits, curves.get(),
                          sharpen.get(), factor.get(), useFile, fpSource, rowBuffer, images, order,
                          mask, weights);
    };
    if (numThreads < 2 || useFile != 0) return whole();
    const int result = lv::run_threaded<Adj1bArgs>(
        numThreads, adj1b_threaded, [&](Adj1bArgs &a, int index, int threads) {
            a = Adj1bArgs{n,          width,        height,        samplesPerPixel, bits,
                          weightBits, curves.get(), sharpen.get(), factor.get(),    images,
                          order,      mask,         weights,       index,           threads,
                          0};
        });
    // A thread that can't start sends the whole image to the calling thread.
    return result == LV_ERR_IO ? whole() : result;
}

} // extern "C"
