// Local fusion, before any tower: the histogram points of the photograph pair, the tone
// shift that darkens the dark photograph or brightens the blended one, the two exposure
// curves and the weight planes; and the anchors placed from the towers.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "fusion/local.h"
#include "fusion/weights.h"
#include "lumivantor/colour.h"

namespace {

// Luminance of the histograms: weights 51, 179, 25 on first, middle, last sample.
inline int luma_hist(const uint8_t *px, int spp) {
    return (25 * px[spp - 1] + 179 * px[(spp - 1) / 2] + 51 * px[0]) >> 8;
}

// First bin at which the running count reaches `target`; `none` if no bin does.
int first_reaching(const int64_t *hist, int64_t target, int none) {
    int64_t sum = 0;
    for (int i = 0; i < 256; ++i) {
        sum += hist[i];
        if (sum >= target) return i;
    }
    return none;
}

struct PairStats {
    int b2, b98, b95; // b95 < 0: photograph 1 never reaches its 95 % point
    double f;         // how much of the weight correction the shadows allow
};

PairStats pair_stats(const uint8_t *p0, const uint8_t *p1, int64_t plane, int spp) {
    int64_t h0[256] = {}, h1[256] = {};
    for (int64_t i = 0; i < plane; ++i) {
        ++h0[luma_hist(p0 + i * spp, spp)];
        ++h1[luma_hist(p1 + i * spp, spp)];
    }
    PairStats s;
    s.b2 = first_reaching(h0, plane * 2 / 100, 255);
    s.b98 = first_reaching(h0, plane * 98 / 100, 0);
    s.b95 = first_reaching(h1, plane * 95 / 100, -1);
    s.f = s.b2 < 25 ? 1.0 : s.b2 < 35 ? 1.0 - 0.1 * (s.b2 - 25) : 0.0;
    return s;
}

// Pulls the highlights of the dark photograph down towards the blended picture's 98 % point.
void darken(uint8_t *img, int64_t plane, int spp, const PairStats &st, double s) {
    const double x = st.b98 - 20;
    const double c = (st.b95 - x) * st.b95 / x;
    const double e = std::pow(2.0, 0.30000000000000004 * s + 4.0);
    for (int64_t i = 0; i < plane; ++i) {
        uint8_t *px = img + i * spp;
        const double d = std::pow(luma_hist(px, spp) / 255.0, e) * c;
        for (int k : {0, (spp - 1) / 2, spp - 1}) {
            const double v = px[k] - d;
            px[k] = v >= 1.0 ? static_cast<uint8_t>(std::min(v, 255.0)) : 0;
        }
    }
}

// Lifts the lightness of the blended picture, most in its highlights, in L*a*b*.
void brighten(uint8_t *img, int64_t plane, int spp, const PairStats &st, double s) {
    const double hi = std::max(30, 255 - st.b98);
    const double k = 3.0 + 0.034782608695652174 * (st.b98 - 140);
    const double c = (255.0 / st.b98) * hi;
    const double e = std::pow(2.0, k - 0.1 * s * (k - 1.0));
    float linear[256];
    int gamma[256];
    for (int i = 0; i < 256; ++i) {
        linear[i] = static_cast<float>(std::pow(i / 255.0, 2.2));
        gamma[i] = static_cast<int>(255.0 * std::pow(i / 255.0, 0.45454545454545453));
    }
    for (int64_t i = 0; i < plane; ++i) {
        uint8_t *px = img + i * spp;
        const int idx[3] = {px[0], px[(spp - 1) / 2], px[spp - 1]};
        const int lum = (54 * idx[2] + 183 * idx[1] + 19 * idx[0]) >> 8;
        const double d = std::pow(lum * 0.003921569, e) * c;
        float lab[3], rgb[3];
        unsigned out[3];
        rgb2Lab(0, nullptr, linear, idx, lab);
        lab[0] = static_cast<float>(lab[0] + 0.3 * d);
        Lab2rgb(0, lab, rgb, 255, gamma, out);
        px[0] = static_cast<uint8_t>(out[0]);
        px[(spp - 1) / 2] = static_cast<uint8_t>(out[1]);
        px[spp - 1] = static_cast<uint8_t>(out[2]);
    }
}

// Well-exposedness of each photograph over its 8-bit level; s shifts the dark
// photograph's curve towards its highlights and the picture's towards its shadows.
void exposure_curves(double s, bool second_set, float *a, float *b) {
    for (int i = 0; i < 256; ++i) {
        const double x = (i - 128) / 128.0;
        const double x2 = x * x;
        if (!second_set) {
            const double da = (x > 0 && s < 0) ? 0.035 * s + 0.5 : 0.5;
            a[i] = static_cast<float>(std::exp(-x2 / da));
            if (s <= 0 || x <= 0) {
                b[i] = static_cast<float>(std::exp(-3.0 * x2));
            } else {
                double v = std::exp(-x2 / (1.0 / 3.0 - 0.025 * s));
                if (s >= 1) v *= 1.0 / (1.0 + std::exp((x + 0.1 * s - 1.0) * 12.8 * s));
                b[i] = static_cast<float>(v);
            }
        } else {
            const double da = x < 0 ? 0.5 : s > 0 ? 0.33333334 : s / 3.0 + 1.0 / 3.0;
            const double db = x > 0 ? 1.0 / 3.0 - 0.025 * s : 0.33333334;
            a[i] = static_cast<float>(std::exp(-x2 / da));
            b[i] = static_cast<float>(std::exp(-x2 / db));
        }
    }
}

// Weight of the dark photograph against the picture, corrected where both are well
// exposed (scale q of the pair between 70 and 14000) or one of them clearly isn't.
float corrected_b(float a, float b, double q, double f) {
    if (!(q > 70 && (q < 14000 || a > 0.94f || b < 0.12f))) return b;
    const double m = 1.0 + 0.1 * (6.3322 - 1.6365 * std::log(q));
    const double p = static_cast<double>(a) * b;
    double g = p >= 0.01 ? 1.0 : p;
    double bb = b;
    if (q < 14000) bb -= g * p * f * m;
    if (a >= 0.94f || bb <= 0.12) {
        g *= p;
        double r = 0;
        if (bb <= 0.12) {
            r = std::min(1.0, 2.0 - 16.666666666666668 * bb);
            g = bb;
        }
        if (a >= 0.94f) {
            r = std::max(r, std::min(1.0, 33.333332 * a - 31.333334));
            g = 1.0 - a;
        }
        bb -= std::min(a * bb, g) * r * f;
    }
    if (bb < 0) bb = 0;
    if (bb <= 0.05 && f > 0.25) bb = 20.0 * bb * bb;
    return static_cast<float>(bb);
}

} // namespace

namespace lv {

int local_prepare(int n, const float *param, uint8_t *images, DimParam dim, void *selection,
                  int16_t *weights, int64_t pyr) {
    (void)selection;
    const int spp = dim.samplesPerPixel;
    const int64_t plane = static_cast<int64_t>(dim.width) * dim.height;
    const int64_t samples = plane * spp;
    if (n < 2) { // a sole photograph takes all the weight
        for (int64_t i = 0; i < plane; ++i)
            weights[i] = 32767;
        return 1;
    }
    uint8_t *p0 = images, *p1 = images + samples;
    const PairStats st = pair_stats(p0, p1, plane, spp);
    const double s = param[1];
    if (s < 0 && st.b95 >= 0 && st.b98 < st.b95) darken(p1, plane, spp, st, s);
    if (s > 0) brighten(p0, plane, spp, st, s);

    if (param[16] == 1.0f) { // smoothed well-exposedness planes summing to 255
        auto planes = try_calloc<uint8_t>(static_cast<size_t>(n) * plane);
        if (!planes) return LV_ERR_NOMEM;
        FusionWeightSource source{images, spp};
        int r = adj1_32(dim.width, dim.height, 8, n - 1, &source, planes.get());
        for (int k = 0; r >= 0 && k < n - 1; ++k)
            r = smooth_nosubsample(10, dim.width, dim.height, 8, static_cast<int>(k * plane),
                                   planes.get(), planes.get());
        if (r >= 0) r = final_poids32(dim.width, dim.height, 8, n, planes.get());
        if (r < 0) return r;
        for (int t = 0; t < n; ++t)
            for (int64_t i = 0; i < plane; ++i)
                weights[t * pyr + i] = static_cast<int16_t>(planes[t * plane + i] << 7);
        return 1;
    }

    float ca[256], cb[256];
    exposure_curves(s, param[17] > 0, ca, cb);
    const double q = param[14];
    const int mid = (spp - 1) / 2, last = spp - 1;
    int16_t *w0 = weights, *w1 = weights + pyr;
    for (int64_t i = 0; i < plane; ++i) {
        const uint8_t *a0 = p0 + i * spp, *a1 = p1 + i * spp;
        const float a = 0.1f * ca[a0[last]] + 0.7f * ca[a0[mid]] + 0.2f * ca[a0[0]];
        float b = static_cast<float>(0.1 * cb[a1[last]] + 0.7 * cb[a1[mid]] + 0.2 * cb[a1[0]]);
        b = corrected_b(a, b, q, st.f);
        float t = a + b;
        if (!(t > 0)) t = 1;
        w0[i] = static_cast<int16_t>(std::min(32767, static_cast<int>(32767 * a / t)));
        w1[i] = static_cast<int16_t>(std::min(32767, static_cast<int>(32767 * b / t)));
    }
    // Photographs past the pair carry no weight.
    for (int t = 2; t < n; ++t)
        std::memset(weights + t * pyr, 0, plane * sizeof(int16_t));
    return 1;
}

} // namespace lv

extern "C" {

int fusion_stats(int levels, int width, int height, int ncomp, void *work,
                 const int16_t *weightTowers, const uint8_t *photographTowers, int first,
                 int *anchors, int *secondMeans, int *firstMeans, int64_t *offsets) {
    (void)work;
    const int64_t pyr = pyram_len2(width, height);
    const uint8_t *photo = photographTowers + first * pyr * ncomp;
    const int span = InterpolationInterval ? 255 : 120;
    const int step = InterpolationInterval ? 85 : 40;

    // Each level picks the window of `span` levels that holds most of its pixels; the
    // anchors start at the median pick.
    int64_t picks[256] = {};
    int lw = width, lh = height;
    int64_t off = 0;
    for (int l = 0; l < levels; ++l) {
        int64_t cum[257] = {};
        for (int64_t i = 0; i < static_cast<int64_t>(lw) * lh; ++i)
            ++cum[luma_hist(photo + (off + i) * ncomp, ncomp) + 1];
        for (int i = 1; i <= 256; ++i)
            cum[i] += cum[i - 1];
        int pick = 0;
        int64_t best = -1;
        for (int i = 0; i <= 255 - span; ++i) {
            const int64_t inside = cum[i + span + 1] - cum[i + 1];
            if (inside > best) best = inside, pick = i;
        }
        ++picks[pick];
        off += static_cast<int64_t>(lw) * lh;
        lw = lw % 2 + (lw >> 1);
        lh = lh % 2 + (lh >> 1);
    }
    const int base = first_reaching(picks, levels / 2, 255);
    for (int a = 0; a < LV_LOCAL_ANCHORS; ++a) {
        anchors[a] = base + a * step;
        firstMeans[a] = secondMeans[a] = -1;
    }

    // Mean weight of each photograph over the pixels within 10 levels of an anchor, from the
    // finest level that has such pixels.
    const int other = first == 0 ? 1 : 0;
    for (int a = 0; a < LV_LOCAL_ANCHORS; ++a) {
        lw = width, lh = height, off = 0;
        for (int l = 0; l < levels && firstMeans[a] < 0; ++l) {
            double sum_first = 0, sum_second = 0;
            int64_t count = 0;
            for (int64_t i = 0; i < static_cast<int64_t>(lw) * lh; ++i) {
                const uint8_t *px = photo + (off + i) * ncomp;
                const int lum = (179 * px[(ncomp - 1) / 2] + 51 * px[0] + 25 * px[ncomp - 1]) >> 8;
                if (std::abs(lum - anchors[a]) >= 10) continue;
                sum_first += weightTowers[other * pyr + off + i] * 3.051851e-05;
                sum_second += weightTowers[first * pyr + off + i] * 3.051851e-05;
                ++count;
            }
            if (count > 1) {
                firstMeans[a] = static_cast<int>(sum_first / count * 32767.0);
                secondMeans[a] = static_cast<int>(sum_second / count * 32767.0);
            }
            off += static_cast<int64_t>(lw) * lh;
            lw = lw % 2 + (lw >> 1);
            lh = lh % 2 + (lh >> 1);
        }
    }

    // Valid anchors take the next tower slot in turn; an invalid one points at the last.
    int valid = 0;
    int64_t last_offset = 0;
    for (int a = 0; a < LV_LOCAL_ANCHORS; ++a) {
        if (firstMeans[a] >= 0 && secondMeans[a] >= 0) {
            last_offset = valid * pyr * ncomp;
            ++valid;
        }
        offsets[a] = last_offset;
    }
    return valid;
}

} // extern "C"
