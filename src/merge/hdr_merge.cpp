// Merge of a bracket into planar RGBE: a weighted mean of linearised pixels, each divided by
// its image's exposure, and the 8-bit display view of an RGBE image.
#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "fileio/rgbe_pixel.h"
#include "frame/statistics.h"
#include "lumivantor/merge.h"
#include "merge/bracket.h"

namespace {

constexpr int kTableSize = 65536; // one weight per luminance on the 0..65535 scale
constexpr float kOver = 1e9f;     // value of a pixel clipped in every image

template <class T> std::unique_ptr<T[]> try_alloc(size_t count) {
    return std::unique_ptr<T[]>(new (std::nothrow) T[count ? count : 1]);
}

// RGBE bytes of one merged value: zero below 1e-32, all 255 for the clipped sentinel,
// otherwise the shared construction with the exponent byte kept within 0..255.
void encode(float r, float g, float b, uint8_t *pr, uint8_t *pg, uint8_t *pb, uint8_t *pe) {
    const float m = lv::max3(r, g, b);
    if (m <= 1e-32f) {
        *pr = *pg = *pb = *pe = 0;
        return;
    }
    if (m >= 999999999.0f) {
        *pr = *pg = *pb = *pe = 255;
        return;
    }
    const int e = lv::rgbe_mantissas(r, g, b, m, pr, pg, pb);
    *pe = e < -128 ? 0 : static_cast<uint8_t>((e < 127 ? e : 127) + 128);
}

// Hat weight over luminance: zero at 0, one at mid-range, zero again at centre, where the
// image stops counting as exposed. The left flank is the same for every image.
void fill_weights(float *w, int centre) {
    const float r = 0.5f + static_cast<float>(centre) * -1.52590219e-05f; // factor 0xB7800080
    const float right = 1.0f / (r * r);
    for (int x = 0; x < kTableSize; ++x) {
        const float t = static_cast<float>(x) / 65536.0f - 0.5f;
        const float s = x <= 32768 ? 4.0f : right;
        const float a = 1.0f - s * t * t;
        w[x] = x > centre ? 0.0f : a - a * t * t * s;
    }
}

// Per-row sums of one pixel position over the bracket.
struct RowSums {
    std::unique_ptr<float[]> r, g, b, w;
    std::unique_ptr<int[]> over;
    bool alloc(int width) {
        r = try_alloc<float>(width), g = try_alloc<float>(width), b = try_alloc<float>(width);
        w = try_alloc<float>(width);
        over = try_alloc<int>(width);
        return r && g && b && w && over;
    }
    void clear(int width) {
        memset(r.get(), 0, sizeof(float) * width);
        memset(g.get(), 0, sizeof(float) * width);
        memset(b.get(), 0, sizeof(float) * width);
        memset(w.get(), 0, sizeof(float) * width);
        memset(over.get(), 0, sizeof(int) * width);
    }
};

// Adds one image's row to the sums. Luminance comes from 8-bit levels (high bytes of 16-bit
// samples); colours look up the curve with the full sample.
template <class T, int Shift>
void add_row(const T *p, int width, int samples, lv::ChannelIndex c, const float *weights,
             int centre, float inv, const float *curve, RowSums &s) {
    float *R = s.r.get(), *G = s.g.get(), *B = s.b.get(), *W = s.w.get();
    int *over = s.over.get();
    for (int x = 0; x < width; ++x, p += samples) {
        const unsigned r = p[c.r], g = p[c.g], b = p[c.b];
        const unsigned lum = lv::grey256(r >> Shift, g >> Shift, b >> Shift);
        const float w = weights[lum];
        W[x] += w;
        over[x] += lum > static_cast<unsigned>(centre);
        const float wi = w * inv;
        R[x] += wi * curve[r];
        G[x] += wi * curve[g];
        B[x] += wi * curve[b];
    }
}

} // namespace

extern "C" LV_API int lv_hdr_merge(LvProgressCallback progressCb, int mode, int n, int width,
                                   int height, int samples, int bits, int gammaMode, float step,
                                   float *curve, float *exposures, const void *images, float *stats,
                                   unsigned char *out) {
    if (n < 0) n = 0;
    const size_t count = static_cast<size_t>(n);
    auto order = try_alloc<int32_t>(count);
    auto centre = try_alloc<int32_t>(count);
    auto inv = try_alloc<float>(count);
    auto measure = try_alloc<int32_t>(count);
    if (!order || !centre || !inv || !measure) return -4;

    const bool depthOk = bits == 8 || bits == 16;
    const int levels = bits == 16 ? 65536 : 256;
    const float gamma = gammaMode == 1 ? curve[0] : 2.2f;
    if (depthOk) {
        for (int i = 1; i < levels; ++i)
            curve[i] = static_cast<float>(
                std::pow(static_cast<double>(i) / levels, static_cast<double>(gamma)));
        curve[0] = curve[1]; // code 0 is not exact black
    }

    if (n == 1) {
        order[0] = 0;
        inv[0] = 1.0f;
        centre[0] = 64000;
    } else if (n >= 2) {
        if (step > -0.5f && exposures) {
            mediane_images(n, width, height, samples * width, samples, bits, images, measure.get());
            guess_ev(0, n, measure.get(), exposures, step);
        }
        if (exposures) {
            fClassementCroissant(n, exposures, order.get());
        } else {
            for (int i = 0; i < n; ++i)
                order[i] = i;
        }
        double lo = 0.0, hi = 0.0;
        for (int i = 0; i < n; ++i) {
            inv[i] = exposures ? 1.0f / exposures[i] : 1.0f;
            const double l = exposures ? std::log2(static_cast<double>(exposures[i])) : 0.0;
            if (i == 0 || l < lo) lo = l;
            if (i == 0 || l > hi) hi = l;
        }
        // The clipping limit falls in a straight line in stops, from 64000 for the darkest
        // image to 60160 for the brightest, which is trusted least near white.
        for (int i = 0; i < n; ++i) {
            const double l = exposures ? std::log2(static_cast<double>(exposures[i])) : 0.0;
            const double at = lo < hi ? (lo - l) / (hi - lo) * 3840.0 + 64000.0 : 64000.0;
            // An exposure of 0 or infinity has no place on the line; it keeps the default.
            centre[i] = std::isfinite(at) ? static_cast<int32_t>(at) : 64000;
        }
    }

    auto weights = try_alloc<float>(count * kTableSize);
    if (!weights) return -4;
    for (int i = 0; i < n; ++i)
        fill_weights(weights.get() + static_cast<size_t>(i) * kTableSize, centre[i]);

    RowSums sums;
    if (width > 0 && !sums.alloc(width)) return -4;

    const lv::ChannelIndex c = lv::rgb_index(samples);
    const size_t perImage = lv::image_samples(width, height, samples);
    const size_t rowSamples = static_cast<size_t>(width) * samples;
    const size_t outRow = 4 * static_cast<size_t>(width);
    const int every = height >> 4;
    double minimum = 1e9, maximum = 0.0, total = 0.0;
    long long counted = 0;

    for (int y = 0; y < height; ++y) {
        if ((every ? y % every : y) == 50)
            progress(1, progressCb, nullptr, static_cast<float>(y) / static_cast<float>(height));
        sums.clear(width);
        for (int k = 0; k < n; ++k) {
            const int i = order[k];
            const float *w = weights.get() + static_cast<size_t>(i) * kTableSize;
            if (bits == 8)
                add_row<uint8_t, 0>(static_cast<const uint8_t *>(images) + i * perImage +
                                        y * rowSamples,
                                    width, samples, c, w, centre[i], inv[i], curve, sums);
            else if (bits == 16)
                add_row<uint16_t, 8>(static_cast<const uint16_t *>(images) + i * perImage +
                                         y * rowSamples,
                                     width, samples, c, w, centre[i], inv[i], curve, sums);
        }
        uint8_t *row = out + outRow * y;
        for (int x = 0; x < width; ++x) {
            float R, G, B;
            if (sums.over[x] == n) {
                R = G = B = kOver;
            } else if (sums.w[x] > 0.0f) {
                R = sums.r[x] / sums.w[x];
                G = sums.g[x] / sums.w[x];
                B = sums.b[x] / sums.w[x];
            } else {
                R = G = B = 0.0f;
            }
            // Sentinels stay out of the statistics; black counts in the mean only.
            const double L = 0.2 * R + 0.7 * G + 0.1 * B;
            if (L < 1e9) {
                total += L;
                ++counted;
                if (L > maximum) maximum = L;
                if (L > 0.0 && L < minimum) minimum = L;
            }
            encode(R, G, B, row + x, row + width + x, row + 2 * width + x, row + 3 * width + x);
        }
    }

    const double mean = counted ? total / static_cast<double>(counted) : 0.0;
    stats[0] = static_cast<float>(minimum * 256.0);
    stats[1] = static_cast<float>(maximum * 256.0);
    stats[2] = static_cast<float>(mean * 256.0);

    if (mode != 2) {
        // Clipped pixels become grey of the largest real luminance, empty ones grey of the
        // smallest positive one.
        uint8_t hiBytes[4], loBytes[4];
        const float hv = static_cast<float>(maximum), lv_ = static_cast<float>(minimum);
        encode(hv, hv, hv, &hiBytes[0], &hiBytes[1], &hiBytes[2], &hiBytes[3]);
        encode(lv_, lv_, lv_, &loBytes[0], &loBytes[1], &loBytes[2], &loBytes[3]);
        for (int y = 0; y < height; ++y) {
            uint8_t *row = out + outRow * y;
            for (int x = 0; x < width; ++x) {
                const uint8_t e = row[3 * width + x];
                if (e != 255 && e != 0) continue;
                const uint8_t *v = e == 255 ? hiBytes : loBytes;
                for (int p = 0; p < 4; ++p)
                    row[p * width + x] = v[p];
            }
        }
    }
    return height;
}

extern "C" LV_API int rgbe_rep(int width, int height, int outStride, const unsigned char *rgbe,
                               unsigned char *bgr, float norm) {
    if (height < 1) return 0;
    uint8_t gammaTable[256];
    for (int i = 0; i < 256; ++i) {
        double v = 255.0 * std::pow(i / 255.0, 0.5555555555555556); // gamma 1.8
        gammaTable[i] = static_cast<uint8_t>(v < 255.0 ? v : 255.0);
    }
    float expTable[256];
    for (int e = 0; e < 256; ++e)
        expTable[e] = std::ldexp(1.0f, e - 128);
    const float scale = norm <= 0.0f ? 1.0f : 128.0f / norm;
    for (int y = 0; y < height; ++y) {
        const uint8_t *row = rgbe + 4 * static_cast<size_t>(width) * y;
        uint8_t *o = bgr + static_cast<size_t>(outStride) * y;
        for (int x = 0; x < width; ++x, o += 3) {
            const uint8_t E = row[3 * width + x];
            if (E == 0) {
                o[0] = o[1] = o[2] = 0;
                continue;
            }
            const float f = expTable[E] * scale;
            auto level = [&](uint8_t m) {
                const float v = f * static_cast<float>(m);
                const int i = !(v >= 0.0f) ? 0 : v >= 255.0f ? 255 : static_cast<int>(v);
                return gammaTable[i];
            };
            o[0] = level(row[2 * width + x]);
            o[1] = level(row[width + x]);
            o[2] = level(row[x]);
        }
    }
    return height;
}
