// Exposure analysis: exposure factors from capture metadata or from the images themselves,
// brightness measures, orderings and clipping counts of a bracket.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "lumivantor/merge.h"
#include "frame/statistics.h"
#include "merge/bracket.h"

namespace {

// Repairs an order in which a selection pass found nothing and repeated its predecessor:
// each repeated place takes the next index missing from the order, left to right.
void repair_order(int n, int32_t *order) {
    std::vector<char> present(static_cast<size_t>(n), 0);
    bool repeats = false;
    for (int k = 0; k < n; ++k) {
        if (order[k] >= 0 && order[k] < n) present[order[k]] = 1;
        if (k > 0 && order[k] == order[k - 1]) repeats = true;
    }
    if (!repeats) return;
    std::vector<int> repeated;
    for (int k = 1; k < n; ++k)
        if (order[k] == order[k - 1]) repeated.push_back(k);
    size_t next = 0;
    for (int i = 0; i < n && next < repeated.size(); ++i)
        if (!present[i]) order[repeated[next++]] = i;
}

// Selection sort, largest first: each pass takes the earliest largest value above floor and
// overwrites it with sentinel (which lies at or below floor). A pass that finds nothing
// repeats the previous index; the repair then fills in the missing ones.
template <class T>
void select_descending(int n, std::vector<T> &work, T floor, T sentinel, int32_t *order) {
    int32_t last = 0;
    for (int k = 0; k < n; ++k) {
        T best = floor;
        int found = -1;
        for (int i = 0; i < n; ++i)
            if (work[i] > best) {
                best = work[i];
                found = i;
            }
        if (found >= 0) {
            last = found;
            work[found] = sentinel;
        }
        order[k] = last;
    }
    repair_order(n, order);
}

// Brightest first over measures; -999999 marks an index already taken.
void order_measures(int n, const int32_t *measure, int32_t *order) {
    std::vector<int32_t> work(measure, measure + n);
    select_descending<int32_t>(n, work, -1, -999999, order);
}

// Slope table: stops of exposure per stop of image brightness, over brightness 0..65535.
struct SlopeTable {
    float v[65536];
    SlopeTable() {
        static const int knot[9] = {0, 2048, 3584, 15360, 23040, 32000, 40960, 48640, 65280};
        static const double value[9] = {1.1, 1.2, 1.3, 1.5, 1.8, 2.3, 3.3, 4.7, 6.0};
        for (int s = 0; s < 8; ++s)
            for (int i = knot[s]; i < knot[s + 1]; ++i)
                v[i] = static_cast<float>(value[s] + (value[s + 1] - value[s]) * (i - knot[s]) /
                                                         (knot[s + 1] - knot[s]));
        v[65280] = 6.0f;
        // Midpoints above 65280 read no slope at all, so such steps add no stops.
        for (int i = 65281; i < 65536; ++i)
            v[i] = 0.0f;
    }
};

const SlopeTable &slope_table() {
    static const SlopeTable table; // built once, read-only afterwards
    return table;
}

// The float -1.442695 (bit pattern 0xBFB8AA3B): minus one over ln 2.
constexpr float kMinusInvLn2 = -1.442695f;

// Whole stops: truncate, then step away from zero when the fraction is half or more.
float round_stops(float x) {
    const float r = std::trunc(x);
    if (std::fabs(x - r) >= 0.5f) return x > 0 ? r + 1.0f : r - 1.0f;
    return r;
}

// Shared body of guess_ev and its tracing variant. The variant prints its traces, does not
// clamp the measures, masks the table index and stores unrounded stops.
int guess_ev_body(int mode, int n, int32_t *measure, float *exposures, float step, bool traced) {
    if (n < 1) return 0;
    const SlopeTable &table = slope_table();
    if (traced) printf("guess_ev before found: %d\n", n);
    std::vector<int32_t> order(static_cast<size_t>(n));
    if (traced) puts("guess_ev after calloc");
    {
        std::vector<int32_t> work(measure, measure + n);
        if (traced) puts("guess_ev manque");
        select_descending<int32_t>(n, work, -1, -999999, order.data());
        if (traced) puts("guess_ev after manque");
    }
    const int half = n / 2;
    if (traced) printf("guess_ev before EV=%d\n", half);
    if (step > 0.0f) {
        for (int k = 0; k < n; ++k) {
            if (traced) printf("guess_ev k=%d\n", k);
            exposures[order[k]] =
                static_cast<float>(std::pow(2.0, (half - k) * static_cast<double>(step)));
        }
        return n;
    }
    std::vector<float> m(static_cast<size_t>(n)), ev(static_cast<size_t>(n), 0.0f);
    for (int k = 0; k < n; ++k) {
        if (!traced && measure[order[k]] < 1) measure[order[k]] = 1;
        float v = static_cast<float>(measure[order[k]]);
        if (!traced && v > 65535.0f) v = 65535.0f;
        m[k] = v;
    }
    auto slope_at = [&](float a, float b) {
        const double mid = static_cast<double>(a + b) * 0.5;
        if (traced) {
            const long long i = std::isfinite(mid) ? static_cast<long long>(mid) : 0;
            return table.v[i & 0xFFFF];
        }
        return table.v[static_cast<int>(mid)];
    };
    auto step_stops = [&](float acc, float a, float b) {
        const float f = slope_at(a, b);
        return static_cast<float>(acc + std::log(static_cast<double>(a / b)) *
                                            static_cast<double>(f * kMinusInvLn2));
    };
    float acc = 0.0f;
    for (int i = half + 1; i < n; ++i) { // darker ranks
        if (traced) printf("guess_evkm k=%d\n", i);
        if (traced)
            printf("moy1=%d\nmoy2=%d\nmoy3=%d\n", static_cast<int>(m[i - 1]),
                   static_cast<int>(m[i]), static_cast<int>((m[i - 1] + m[i]) * 0.5f));
        acc = step_stops(acc, m[i - 1], m[i]);
        ev[i] = acc;
    }
    acc = ev[half];
    for (int k = half; k >= 1; --k) { // brighter ranks
        if (traced) printf("guess_evkm1 k=%d\n", k);
        acc = step_stops(acc, m[k], m[k - 1]);
        if (traced) printf("guess_evkm2 k=%d\n", k);
        ev[k - 1] = acc;
        if (traced) printf("guess_evkm3 k=%d\n", k);
    }
    if (mode == 0) {
        for (int k = 0; k < n; ++k)
            exposures[order[k]] = static_cast<float>(std::pow(2.0, static_cast<double>(ev[k])));
    } else {
        // Rank order, in stops rather than factors.
        for (int k = 0; k < n; ++k) {
            measure[k] = order[k];
            exposures[k] = traced ? ev[k] : round_stops(ev[k]);
        }
    }
    return n;
}

// Median-based brightness measure of one image; very_bright adds the third band.
int32_t measure_image(const void *img, int width, int height, int rowSamples, int bits,
                      lv::ChannelIndex c, int samples, bool very_bright) {
    unsigned hist[256] = {};
    for (int y = 0; y < height; ++y) {
        const size_t row = static_cast<size_t>(y) * rowSamples;
        for (int x = 0; x < width; ++x) {
            const size_t p = row + static_cast<size_t>(x) * samples;
            const unsigned lum =
                lv::grey256(lv::level8(img, p + c.r, bits), lv::level8(img, p + c.g, bits),
                            lv::level8(img, p + c.b, bits));
            ++hist[lum >> 8];
        }
    }
    const double pixels = static_cast<double>(width) * height;
    const long long half = static_cast<long long>(0.5 * pixels);
    const long long high = static_cast<long long>(0.95 * pixels);
    const long long low = static_cast<long long>(0.17 * pixels);
    auto first_above = [&](long long limit) {
        long long sum = 0;
        for (int b = 0; b < 256; ++b) {
            sum += hist[b];
            if (sum > limit) return b;
        }
        return 256;
    };
    const int median = first_above(half);
    int32_t value;
    if (median == 256)
        value = 65536;
    else if (median < 5)
        value = first_above(high); // a very dark image: its median says nothing
    else
        value = median << 8;
    if (very_bright && value >= 64513) value = 65536 + first_above(low);
    return value;
}

} // namespace

extern "C" LV_API int get_ev(int n, float *records) {
    for (int i = 0; i < n; ++i) {
        const float *r = records + 7 * static_cast<size_t>(i);
        const int expNum = static_cast<int>(r[0]), expDen = static_cast<int>(r[1]);
        const int apNum = static_cast<int>(r[2]), apDen = static_cast<int>(r[3]);
        const int apex = static_cast<int>(r[4]), iso = static_cast<int>(r[5]);
        float factor;
        if (expDen == 0 && expNum == 0) {
            factor = static_cast<float>(std::pow(2.0, 0.001 * apex));
        } else {
            const float t =
                expDen == 0 ? 0.0f : static_cast<float>(expNum) / static_cast<float>(expDen);
            const float N = (apNum == 0 || apDen == 0)
                                ? 8.0f
                                : static_cast<float>(apNum) / static_cast<float>(apDen);
            const float S = iso == 0 ? 100.0f : static_cast<float>(iso);
            factor = t * 20.64516f * S / (N * N);
        }
        // Factors overwrite the records in place; record i is read before factor i lands.
        records[i] = factor;
    }
    return 1;
}

extern "C" LV_API int mediane_images(int n, int width, int height, int rowSamples, int samples,
                                     int bits, const void *images, int32_t *measure) {
    const lv::ChannelIndex c = lv::measure_index(samples);
    const size_t perImage = static_cast<size_t>(rowSamples) * (height > 0 ? height : 0);
    for (int i = 0; i < n; ++i)
        measure[i] = measure_image(lv::image_at(images, i, perImage, bits), width, height,
                                   rowSamples, bits, c, samples, true);
    return static_cast<int>(0.5 * width * height);
}

extern "C" LV_API int classementImages(int n, int width, int height, int samples, int bits,
                                       const void *images, int32_t *measure, int32_t *order) {
    if (!measure) return -4;
    if (n < 1) return 0;
    // Samples 0, 1, 2 are red, green, blue here; narrower pixels stay inside themselves.
    const lv::ChannelIndex c = {0, samples > 1 ? 1 : samples - 1, samples > 2 ? 2 : samples - 1};
    const size_t perImage = lv::image_samples(width, height, samples);
    for (int i = 0; i < n; ++i)
        measure[i] = measure_image(lv::image_at(images, i, perImage, bits), width, height,
                                   samples * width, bits, c, samples, false);
    order_measures(n, measure, order);
    return n;
}

extern "C" LV_API int guess_ev(int mode, int n, int32_t *measure, float *exposures, float step) {
    return guess_ev_body(mode, n, measure, exposures, step, false);
}

extern "C" LV_API int new_bad_guess_ev(int mode, int n, int32_t *measure, float *exposures,
                                       float step) {
    return guess_ev_body(mode, n, measure, exposures, step, true);
}

extern "C" LV_API int fClassementCroissant(int n, const float *values, int32_t *order) {
    if (n < 1) return 0;
    std::vector<float> work(values, values + n);
    std::vector<int32_t> desc(static_cast<size_t>(n));
    select_descending<float>(n, work, -1e8f, -1e8f, desc.data());
    for (int k = 0; k < n; ++k)
        order[k] = desc[n - 1 - k];
    return n;
}

namespace {

// Pixels whose red, green and blue all lie above the clipping threshold.
int count_clipped(const void *img, size_t pixels, int samples, int bits) {
    if (bits != 8 && bits != 16) return 0;
    const lv::ChannelIndex c = lv::rgb_index(samples);
    int count = 0;
    if (bits == 8) {
        const uint8_t *p = static_cast<const uint8_t *>(img);
        for (size_t i = 0; i < pixels; ++i, p += samples)
            count += p[c.r] > 250 && p[c.g] > 250 && p[c.b] > 250;
    } else {
        const uint16_t *p = static_cast<const uint16_t *>(img);
        for (size_t i = 0; i < pixels; ++i, p += samples)
            count += p[c.r] > 64000 && p[c.g] > 64000 && p[c.b] > 64000;
    }
    return count;
}

} // namespace

extern "C" LV_API int overexposureLevel(int n, int width, int height, int samples, int bits,
                                        const void *images, int32_t *counts) {
    if (n < 1) return 0;
    const size_t perImage = lv::image_samples(width, height, samples);
    const size_t pixels = static_cast<size_t>(width) * height;
    for (int i = 0; i < n; ++i)
        counts[i] = count_clipped(lv::image_at(images, i, perImage, bits), pixels, samples, bits);
    return n;
}

extern "C" LV_API int test_overexposureLevel(int n, int width, int height, int samples, int bits,
                                             const void *images, int32_t *counts) {
    if (n < 1) return 0;
    const lv::ChannelIndex c = lv::rgb_index(samples);
    const unsigned threshold = bits == 8 ? 250 : 64000;
    const size_t perImage = lv::image_samples(width, height, samples);
    for (int i = 0; i < n; ++i) {
        counts[i] = 0;
        if (bits != 8 && bits != 16) continue;
        const void *img = lv::image_at(images, i, perImage, bits);
        for (size_t p = 0; p < perImage; p += samples) {
            auto at = [&](int s) -> unsigned {
                return bits == 8 ? static_cast<const uint8_t *>(img)[p + s]
                                 : static_cast<const uint16_t *>(img)[p + s];
            };
            if (at(c.r) > threshold && at(c.g) > threshold && at(c.b) > threshold) ++counts[i];
        }
    }
    return n;
}

extern "C" LV_API int rempliPenteExposition(float *table) {
    static const int knot[14] = {0,      0x2800, 0x3C00, 0x5000, 0x5A00, 0x6400, 0x6E00,
                                 0xB400, 0xC800, 0xDC00, 0xE600, 0xF000, 0xFA00, 0xFF00};
    static const double value[14] = {0.4, 0.5, 0.75, 1.0, 1.1, 1.25, 1.333, 0.1, 0, 0, 0, 0, 0, 0};
    for (int s = 0; s < 13; ++s)
        for (int i = knot[s]; i < knot[s + 1]; ++i)
            table[i] = static_cast<float>(value[s] + (value[s + 1] - value[s]) * (i - knot[s]) /
                                                         (knot[s + 1] - knot[s]));
    table[0xFF00] = 0.0f;
    return 13;
}
