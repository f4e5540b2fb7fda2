// Log-luminance statistics, percentiles, exponent tables and histograms.
#include "frame/statistics.h"

#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>

namespace {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
template <class T> using CBuf = std::unique_ptr<T[], FreeDeleter>;

template <class T> CBuf<T> calloc_array(size_t n) {
    return CBuf<T>(static_cast<T *>(std::calloc(n, sizeof(T))));
}

constexpr int kSampleStore = 40000;
constexpr int kLogBins = 65536;
constexpr double kInvBins = 1.52587890625e-5; // 1 / 65536

// First bin whose running total exceeds threshold, searching from `from`; `bins` if none.
template <class Count>
int first_bin_over(const Count *hist, int from, int bins, long long threshold) {
    long long run = 0;
    for (int i = from; i < bins; ++i) {
        run += hist[i];
        if (run > threshold) return i;
    }
    return bins;
}

// Grey of an RGBE pixel as the range finders see it: 2^(E-128) times the integer grey.
struct RgbeGrey {
    float table[256];
    RgbeGrey() {
        for (int i = 0; i < 256; ++i)
            table[i] = std::ldexp(1.0f, i - 128);
    }
    float operator()(const unsigned char *row, int width, int x) const {
        const unsigned g = lv::grey256(row[x], row[width + x], row[2 * width + x]) >> 8;
        return table[row[3 * width + x]] * static_cast<float>(g);
    }
};

} // namespace

extern "C" {

int GlobalCntAdjust = 0;

int exp_lut(float *table, int bias) {
    for (int i = 0; i < 256; ++i)
        table[i] = std::ldexp(1.0f, bias - 128 + i);
    return 256;
}

int exp_lut_old(float *table) {
    return exp_lut(table, -8);
}

int logMinMaxMoy(int width, int height, float *expTable, unsigned char *image, float *lumStats) {
    const bool is_float = lumStats[0] == 32.0f && (lumStats[1] == 1.0f || lumStats[1] == 3.0f);
    const int spp = is_float ? static_cast<int>(lumStats[1]) : 0;

    auto store = calloc_array<float>(kSampleStore);
    if (!store) return LV_ERR_NOMEM;

    const long long pixels = static_cast<long long>(width) * (height > 0 ? height : 0);
    const long long k = pixels / kSampleStore + 1;
    double sum = 0.0;
    float mx = 0.0f; // a maximum below 0 is never reported
    float mn = 1e11f;
    long long count = 0;
    int stored = 0;

    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            float lum;
            if (is_float) {
                const float *px = reinterpret_cast<const float *>(image) +
                                  (static_cast<size_t>(y) * width + x) * spp;
                lum = static_cast<float>(0.2125 * px[0] + 0.7154 * px[(spp - 1) / 2] +
                                         0.0721 * px[spp - 1]);
            } else {
                const unsigned char *row = image + static_cast<size_t>(y) * 4 * width;
                const unsigned e = row[3 * width + x];
                if (e == 0) continue;
                lum = static_cast<float>(0.2125 * row[x] + 0.7154 * row[width + x] +
                                         0.0721 * row[2 * width + x]);
                lum *= expTable[e];
            }
            if (!(lum > 0.0f)) continue;
            const float l = static_cast<float>(std::log(lum));
            sum += l;
            if (l > mx) mx = l;
            if (l < mn) mn = l;
            ++count;
            const long long pos = static_cast<long long>(y) * width + x;
            if (pos % k == 0 && stored < kSampleStore) store[stored++] = l;
        }
    }

    const float mean = count > 0 ? static_cast<float>(sum / static_cast<float>(count)) : 0.0f;
    lumStats[0] = mn;
    lumStats[1] = mx;
    lumStats[2] = mean;
    lumStats[3] = mean;
    lumStats[4] = mx;

    auto hist = calloc_array<int>(kLogBins);
    if (!hist || mn >= mx) return height;

    const double scale = 1.0 / (mx - mn);
    for (int i = 0; i < stored; ++i)
        hist[lv::clamped_bin((store[i] - mn) * 65535.0f * scale, kLogBins - 1)]++;

    auto value = [&](float q) {
        const long long threshold = static_cast<long long>(static_cast<float>(stored) * q);
        const int bin = first_bin_over(hist.get(), 0, kLogBins, threshold);
        return static_cast<float>(mn + bin * static_cast<double>(mx - mn) * kInvBins);
    };
    lumStats[3] = value(0.5f);
    lumStats[4] = value(0.995f);
    lumStats[5] = value(0.33333334f);
    return height;
}

int log_histo(long n, int bins, float *data, int *hist, float lo, float hi) {
    if (lo >= hi) return -1;
    if (bins < 1) return 1;
    const double scale = 1.0 / (hi - lo);
    for (long i = 0; i < n; ++i)
        hist[lv::clamped_bin((data[i] - lo) * static_cast<float>(bins - 1) * scale, bins - 1)]++;
    return 1;
}

int percentile(long total, int bins, int *hist, float fraction) {
    if (bins < 1) return 0;
    const auto threshold = static_cast<long long>(static_cast<float>(total) * fraction);
    return first_bin_over(hist, 0, bins, threshold);
}

int verifPercentile(unsigned *hist, int plane, int count) {
    const unsigned *h = hist + static_cast<size_t>(plane) * 256;
    // The pull can cycle (a count that creeps back and forth over one crowded bin, or a
    // count of 0); a few hundred rounds cover every useful case, so stop there.
    for (int round = 0; round < 512; ++round) {
        const int bin = first_bin_over(h, 0, 256, count);
        if (bin >= 236) {
            count = static_cast<int>(count * 0.95);
        } else if (bin < 15) {
            count = static_cast<int>(count * 1.05);
        } else {
            return count;
        }
    }
    return count;
}

LvPercentileAdjust adjust_percentile(long total, int bins, int *hist, float fraction) {
    const int bound = GlobalCntAdjust > 40 ? GlobalCntAdjust : 40;
    const int lo = static_cast<int>(0.25 * bins);
    const int hi = static_cast<int>(0.9 * bins);
    for (;;) {
        const int k = percentile(total, bins, hist, fraction);
        if (GlobalCntAdjust >= bound) break;
        ++GlobalCntAdjust;
        if (k >= lo && k <= hi) break;
        fraction = static_cast<float>(fraction * (k > hi ? 0.99 : 1.01));
    }
    return {fraction, static_cast<float>(total)};
}

int hdrMinMaxNew(int width, int height, unsigned char *rgbe, float *minimum, float *maximum,
                 float *mean) {
    if (width <= 0 || height <= 0) return 0;
    const RgbeGrey grey;
    double sum = 0.0;
    long long count = 0;
    float mn = 1e11f, mx = 0.0f;
    for (int y = 0; y < height; ++y) {
        const unsigned char *row = rgbe + static_cast<size_t>(y) * 4 * width;
        for (int x = 0; x < width; ++x) {
            const unsigned e = row[3 * width + x];
            if (e == 0) continue;
            const float v = grey(row, width, x);
            sum += v;
            ++count;
            // Extreme exponents are noise or clipping: they don't set the range.
            if (e >= 51 && e <= 199) {
                if (v < mn && v > 1e-7f) mn = v;
                if (v > mx) mx = v;
            }
        }
    }
    *minimum = mn;
    *maximum = mx;
    *mean = count > 0 ? static_cast<float>(sum / static_cast<double>(count)) : 0.0f;
    return height;
}

int getHisto32(int width, int height, unsigned char *rgbe, float *range, unsigned *hist) {
    const double lo = std::log(static_cast<double>(range[0]));
    const double hi = std::log(static_cast<double>(range[1]));
    if (!(hi > lo)) return -1;
    const RgbeGrey grey;
    const double scale = 65535.0 / (hi - lo);
    for (int y = 0; y < height; ++y) {
        const unsigned char *row = rgbe + static_cast<size_t>(y) * 4 * width;
        for (int x = 0; x < width; ++x) {
            if (row[3 * width + x] == 0) continue;
            const double lv = std::log(static_cast<double>(grey(row, width, x)));
            hist[lv::clamped_bin((lv - lo) * scale, kLogBins - 1)]++;
        }
    }
    return height;
}

int hist32info(float *range, long, int *hist, float *info) {
    if (!(range[0] > 0.0f && range[1] > 0.0f && range[1] > range[0])) return -1;
    const double log_lo = std::log(static_cast<double>(range[0]));
    const double b = (std::log(static_cast<double>(range[1])) - log_lo) * kInvBins;
    if (!(b >= 0.0)) return -1;

    float low = 0.002f, high = 0.9995f;
    if (info[2] == 1.0f) {
        if (!(info[0] >= 0.05f || info[0] < 0.0f)) low = info[0];
        if (!(info[1] > 1.0f || info[1] <= 0.9f)) high = info[1];
    }
    const double quarters[4] = {0.25, 0.5, 0.75, 1.0};
    for (int i = 0; i < 4; ++i)
        info[i] = static_cast<float>(std::exp(log_lo + quarters[i] * 65536.0 * b));

    float total = 0.0f;
    int mx = 0;
    for (int i = 0; i < kLogBins; ++i) {
        total += static_cast<float>(hist[i]);
        if (hist[i] > mx) mx = hist[i];
    }

    auto level = [&](double bin) { return static_cast<float>(std::exp(log_lo + b * bin)); };
    long long k0 = 0;
    if (range[0] < 0.0001f) {
        // Ignore the deep darks: start at the bin of a luminance of 0.0001.
        const double start = (-9.210340397238308 - log_lo) / b;
        k0 = start >= 2147483647.0 ? 2147483647LL : static_cast<long long>(start);
        for (long long i = 0; i < k0 && i < kLogBins; ++i)
            total -= static_cast<float>(hist[i]);
        if (k0 >= kLogBins) {
            info[4] = 0.0f;
            info[5] = info[6] = info[7] = level(static_cast<double>(k0));
            info[8] = static_cast<float>(mx);
            info[9] = info[6] > 0.0f ? info[7] / info[6] : 0.0f;
            return static_cast<int>(k0);
        }
    }
    const int from = static_cast<int>(k0);

    double weighted = 0.0, counted = 0.0;
    for (int i = from; i < kLogBins; ++i) {
        weighted += static_cast<double>(hist[i]) * i;
        counted += hist[i];
    }
    info[4] = counted > 0.0 ? static_cast<float>(std::exp(log_lo + weighted * b / counted)) : 0.0f;

    const int low_bin = first_bin_over(hist, from, kLogBins, static_cast<long long>(total * low));
    const int median_bin =
        first_bin_over(hist, from, kLogBins, static_cast<long long>(total * 0.5));
    const int high_bin = first_bin_over(hist, from, kLogBins, static_cast<long long>(total * high));
    info[5] = level(median_bin);
    info[6] = level(low_bin);
    info[7] = level(high_bin);
    info[8] = static_cast<float>(mx);
    info[9] = info[6] > 0.0f ? info[7] / info[6] : 0.0f;
    return median_bin;
}

} // extern "C"
