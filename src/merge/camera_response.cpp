// Camera response: the gamma of a bracket estimated from the images, a gamma expanded into
// a curve, the middle image of a bracket, and the gamma of an ICC profile's tone curve.
#include <cmath>
#include <cstring>
#include <vector>

#include "lumivantor/merge.h"
#include "merge/bracket.h"

namespace {

// Sites of the sparse grid on which the response is sampled: about 50 x 50 of them.
constexpr int kMaxSites = 2500;

// Ranks values largest first, each pass taking the largest value above 0 and strictly below
// the one taken before (starting below 255). A pass that finds nothing repeats the last index.
std::vector<int> rank_below(int n, const int *values) {
    std::vector<int> rank(static_cast<size_t>(n > 0 ? n : 0));
    int limit = 255, last = 0;
    for (int r = 0; r < n; ++r) {
        int best = 0, found = -1;
        for (int i = 0; i < n; ++i)
            if (values[i] > best && values[i] < limit) {
                best = values[i];
                found = i;
            }
        if (found >= 0) {
            last = found;
            limit = best;
        }
        rank[r] = last;
    }
    return rank;
}

// Pairs near mid-grey count most.
int mid_weight(int m) {
    return m <= 128 ? m : 255 - m;
}

} // namespace

extern "C" LV_API int calc_courbe(int n, int width, int height, int bits, int samples,
                                  const float *exposures, const void *images, float *curve) {
    if (n < 1 || width < 1 || height < 1) return -1;
    const lv::ChannelIndex c = lv::rgb_index(samples);
    const size_t perImage = lv::image_samples(width, height, samples);
    // Per accepted site and image: the level L and the sum of the three samples.
    std::vector<int> level, sum3;
    level.reserve(static_cast<size_t>(kMaxSites) * n);
    sum3.reserve(static_cast<size_t>(kMaxSites) * n);
    std::vector<int> siteLevel(static_cast<size_t>(n)), siteSum(static_cast<size_t>(n));
    int accepted = 0;
    const int ystep = height / 50 + 1, xstep = width / 50 + 1;
    for (int y = 0; y < height && accepted < kMaxSites; y += ystep) {
        for (int x = 0; x < width && accepted < kMaxSites; x += xstep) {
            bool ok = true;
            const size_t p = (static_cast<size_t>(y) * width + x) * samples;
            for (int i = 0; i < n; ++i) {
                const void *img = lv::image_at(images, i, perImage, bits);
                const unsigned s0 = lv::level8(img, p + c.r, bits);
                const unsigned s1 = lv::level8(img, p + c.g, bits);
                const unsigned s2 = lv::level8(img, p + c.b, bits);
                const int L = static_cast<int>(0.1 * s0 + 0.6 * s1 + 0.3 * s2);
                if (L < 1 || L > 254) ok = false;
                siteLevel[i] = L;
                siteSum[i] = static_cast<int>(s0 + s1 + s2);
            }
            if (!ok) continue;
            level.insert(level.end(), siteLevel.begin(), siteLevel.end());
            sum3.insert(sum3.end(), siteSum.begin(), siteSum.end());
            ++accepted;
        }
    }
    // The last accepted site is dropped. Without two sites there is nothing to compare.
    const int K = accepted - 1;
    if (K < 1) return -1;

    std::vector<int> mean(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        long long s = 0;
        for (int k = 0; k < K; ++k)
            s += sum3[static_cast<size_t>(k) * n + i];
        mean[i] = static_cast<int>(s / (3LL * K));
    }
    const std::vector<int> rank = rank_below(n, mean.data());

    double weighted = 0.0;
    long long weights = 0;
    for (int r = 0; r + 1 < n; ++r) {
        const int A = rank[r], B = rank[r + 1];
        if (exposures[B] == 0.0f) continue;
        double sum = 0.0;
        int skipped = 0;
        for (int k = 0; k < K; ++k) {
            const int a = level[static_cast<size_t>(k) * n + A];
            const int b = level[static_cast<size_t>(k) * n + B];
            const double l = std::log(static_cast<double>(a) / b);
            if (a >= 65 && a <= 191 && b >= 65 && b <= 191 && l != 0.0)
                sum += 1.0 / l;
            else
                ++skipped;
        }
        if (K - skipped <= 0) continue;
        const double g =
            std::log(static_cast<double>(exposures[A]) / exposures[B]) * sum / (K - skipped);
        if (g > 1.0 && g < 3.2) {
            const int w = static_cast<int>(0.5 * (mid_weight(mean[A]) + mid_weight(mean[B])));
            weighted += w * g;
            weights += w;
        }
    }
    // No usable pair means no estimate: the bracket lacks overlapping mid-tones.
    if (weights == 0) return -1;
    const float gamma = static_cast<float>(weighted / static_cast<double>(weights));

    std::vector<double> v(static_cast<size_t>(n));
    int pairs = 0;
    for (int k = 0; k < K; ++k) {
        const int *L = &level[static_cast<size_t>(k) * n];
        for (int i = 0; i < n; ++i)
            v[i] =
                (L[i] >= 37 && L[i] <= 199)
                    ? std::pow(static_cast<double>(L[i]), static_cast<double>(gamma)) / exposures[i]
                    : 0.0;
        for (int i = 0; i < n; ++i)
            for (int j = i + 1; j < n; ++j) {
                if (!(v[i] > 0.0 && v[j] > 0.0)) continue;
                const double d = (v[i] - v[j]) / v[i];
                if (std::fabs(d) < 0.2) {
                    const double cf = 1.0 + d;
                    curve[L[i]] = static_cast<float>(cf * v[i] * exposures[i]);
                    curve[L[j]] = static_cast<float>(cf * v[j] * exposures[j]);
                    ++pairs;
                }
            }
    }
    curve[0] = static_cast<float>(std::pow(2.0, 7.643856189774724 * gamma)); // 200^gamma
    curve[1] = 1.0f;
    curve[2] = static_cast<float>(pairs);
    return static_cast<int>(gamma * 1000.0f);
}

extern "C" LV_API int gen_courbe(int gammaMilli, float *curve, float scale) {
    const double p = gammaMilli * 0.001;
    for (int i = 1; i <= 252; ++i)
        curve[i] = static_cast<float>(scale * std::pow(static_cast<double>(i), p));
    // log2(code) / 1000 for the three top codes.
    static const double top[3] = {0.00798299357469431, 0.007988684686772166, 0.007994353436858857};
    for (int i = 0; i < 3; ++i)
        curve[253 + i] = static_cast<float>(scale * std::pow(2.0, gammaMilli * top[i]));
    curve[0] = curve[1]; // code 0 is no darker than code 1
    return 256;
}

extern "C" LV_API int moy_image(int width, int height, int rowSamples, int samples, int bits,
                                const void *image) {
    if ((bits != 8 && bits != 16) || height < 1 || width < 1) return 0;
    const int take = samples < 3 ? samples : 3;
    float sum = 0.0f;
    int sites = 0;
    for (int y = 0; y < height; y += height / 50 + 1)
        for (int x = 0; x < width; x += width / 50 + 1) {
            const size_t p = static_cast<size_t>(y) * rowSamples + static_cast<size_t>(x) * samples;
            for (int s = 0; s < take; ++s)
                sum += static_cast<float>(lv::level8(image, p + s, bits));
            ++sites;
        }
    if (sites == 0) return 0;
    return static_cast<int>(sum / static_cast<float>(3 * sites));
}

extern "C" LV_API int mid_im(int n, const int32_t *values) {
    if (n < 1) return 0;
    std::vector<int> v(values, values + n);
    return rank_below(n, v.data())[n / 2];
}

namespace {
uint32_t be32(const unsigned char *p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}
} // namespace

extern "C" LV_API int trc_from_profile(const unsigned char *profile, int length, float *gamma) {
    if (length < 4) return 0; // not even a size field
    const int32_t size = static_cast<int32_t>(be32(profile));
    if (size != length) return size < 0 ? size : -size;
    int pos = 0;
    for (; pos <= length - 13; ++pos) {
        const unsigned char *t = profile + pos;
        if ((t[0] == 'r' || t[0] == 'g' || t[0] == 'b') && t[1] == 'T' && t[2] == 'R' &&
            t[3] == 'C') {
            const uint32_t offset = be32(t + 4);
            // Only a curve of one entry is a plain gamma; a tag pointing outside the profile
            // is read as no such curve.
            if (offset <= static_cast<uint32_t>(length) && length - offset >= 14 &&
                be32(profile + offset + 8) == 1)
                *gamma = profile[offset + 12] + profile[offset + 13] * 0.00390625f;
            else
                *gamma = 2.2f;
            return pos + 1;
        }
    }
    *gamma = 2.2f;
    return pos;
}
