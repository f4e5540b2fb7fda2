// Ghost detection. Each pixel is followed up the bracket from the darkest exposure: the
// brighter image of each neighbouring pair should look like the darker one scaled by their
// exposure ratio in gamma-coded levels. Where the weighted deviation is large something
// moved. The per-pixel verdicts are then blurred through a small byte tower and packed into
// a bit mask for the host. Runs on the caller's thread.
#include <lumivantor/ghost.h>
#include <lumivantor/merge.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "frame/c_buffer.h"
#include "ghost/detect_tower.h"
#include "merge/bracket.h"

namespace {

constexpr int kMaxLevels = 6;

// Luminance below which an image's pixel is too dark, and above which too bright, to compare
// in colour, from the image's brightness measure: dark images are trusted less at the dark
// end, very bright ones less near white.
void luminance_limits(int32_t measure, int32_t &low, int32_t &high) {
    const int b = measure >> 8;
    low = 2560;
    high = 61440;
    if (b < 41) {
        low = 10240;
    } else if (b <= 150) {
        low = static_cast<int32_t>((150 - b) * 7680 * 0.00909090909090909 + 2560);
    } else if (b <= 199) {
    } else if (b <= 249) {
        high = static_cast<int32_t>((200 - b) * 5120 * -0.02 + 61440);
    } else {
        high = 56320;
    }
}

// Widens the expected ratio at the dark end, where noise and the camera curve's toe make
// gamma-coded levels unreliable. prev may be replaced by a floor level.
float dark_end_factor(int px, int prev[3]) {
    const int level = px >> 8;
    if (px < 1280) {
        prev[0] = prev[1] = prev[2] = 5;
        return 3.0f;
    }
    if (px < 2816) return 3.0f;
    if (level <= 20) return static_cast<float>(4.0 - 0.1 * level);
    if (level <= 40) return static_cast<float>(2.5 - 0.025 * level);
    if (level <= 60) return static_cast<float>(2.1 - 0.015 * level);
    return 1.0f;
}

struct Bracket {
    int n;
    const int32_t *low, *high;
    const float *ratio;
    const void *const *image; // by rank, darkest first
    int r, g, b;              // sample positions
    int samples, bits;
};

// Verdict for one pixel: 255 when its mean deviation, halved, exceeds t.
template <class T> uint8_t pixel_verdict(const Bracket &br, size_t pixel, int t) {
    float sum[3] = {0.0f, 0.0f, 0.0f};
    float weight = 0.0f;
    int pairs = 0;
    int p[3] = {0, 0, 0};
    int px = 0;
    const int shift = sizeof(T) == 2 ? 8 : 0;
    for (int k = 0; k < br.n; ++k) {
        const T *s = static_cast<const T *>(br.image[k]) + pixel * br.samples;
        const int raw[3] = {s[br.r] >> shift, s[br.g] >> shift, s[br.b] >> shift};
        int x = 54 * raw[0] + 183 * raw[1] + 19 * raw[2];
        if (k > 0) {
            const int32_t lo0 = br.low[k - 1], lo1 = br.low[k];
            const bool darkPrev = px < lo0, darkCur = x < lo1;
            bool compare = true;
            int cur[3] = {raw[0], raw[1], raw[2]};
            int prev[3] = {p[0], p[1], p[2]};
            if (darkPrev && darkCur) {
                compare = false;
            } else if (!darkPrev && !darkCur) {
                compare = !(px > br.high[k - 1] && x > br.high[k]);
            } else {
                // One side is too dark for colour: compare grey brightness only, and the
                // raised luminance stays for the next pair.
                x = std::max(x, 512);
                px = std::max(px, 512);
                cur[0] = cur[1] = cur[2] = x >> 8;
                prev[0] = prev[1] = prev[2] = px >> 8;
            }
            if (compare) {
                float f = br.ratio[k - 1];
                float w = 1.0f;
                if ((px >> 8) < lo0) {
                    f = static_cast<float>(static_cast<double>(f) * dark_end_factor(px, prev));
                    w = std::min(static_cast<float>(px) / static_cast<float>(lo0), 1.0f);
                }
                for (int c = 0; c < 3; ++c) {
                    const float predicted = std::min(f * static_cast<float>(prev[c]), 255.0f);
                    sum[c] += w * std::fabs(static_cast<float>(cur[c]) - predicted);
                }
                weight += w;
                ++pairs;
            }
        }
        p[0] = raw[0];
        p[1] = raw[1];
        p[2] = raw[2];
        px = x;
    }
    float deviation = 0.0f;
    if (pairs > 0 && weight / static_cast<float>(pairs) > 0.25f)
        deviation = (sum[0] + sum[1] + sum[2]) / weight;
    return static_cast<int>(deviation) / 2 > t ? 255 : 0;
}

int tower_levels(int width, int height) {
    const int s = std::max(width, height);
    if (s < 1000) return 2;
    if (s < 2000) return 3;
    if (s < 4000) return 4;
    if (s < 8000) return 5;
    return kMaxLevels;
}

} // namespace

extern "C" {

LV_API int lv_ghost_detect(const float *sensitivity, int n, int width, int height, int samples,
                           int bits, int swapRedBlue, float *exposures, const void *images,
                           uint8_t *mask, float step) {
    // A sensitivity beyond int range saturates rather than overflowing the conversion.
    const float s = sensitivity ? *sensitivity : 0.0f;
    int t = 0;
    if (s >= 2147483648.0f)
        t = INT_MAX;
    else if (s < -2147483648.0f)
        t = INT_MIN;
    else if (!std::isnan(s))
        t = static_cast<int>(s);
    const int threshold = t > 69 ? 15 : static_cast<int>(0.6 * t - 27);
    if (bits != 8 && bits != 16) return -2;
    if (width < 1 || height < 1) return 0;
    if (!mask || samples < 1 || (n > 0 && (!images || !exposures))) return -2;
    const size_t pixels = static_cast<size_t>(width) * height;
    const size_t packed = (pixels + 7) / 8 * 8;

    const size_t count = n > 0 ? static_cast<size_t>(n) : 1;
    auto measure = lv::calloc_array<int32_t>(count);
    auto order = lv::calloc_array<int32_t>(count);
    auto low = lv::calloc_array<int32_t>(count);
    auto high = lv::calloc_array<int32_t>(count);
    auto ratio = lv::calloc_array<float>(count);
    auto image = lv::calloc_array<const void *>(count);
    // Byte verdicts, later grown into the tower; padded so packing can run in whole bytes.
    auto plane = lv::calloc_array<uint8_t>(packed);
    if (!measure || !order || !low || !high || !ratio || !image || !plane) return -4;

    if (n > 0) {
        mediane_images(n, width, height, samples * width, samples, bits, images, measure.get());
        if (step > -0.5f) guess_ev(0, n, measure.get(), exposures, step);
        fClassementCroissant(n, exposures, order.get());
        for (int i = 0; i < n; ++i)
            luminance_limits(measure[i], low[i], high[i]);
        for (int k = 0; k + 1 < n; ++k)
            ratio[k] = std::pow(exposures[order[k + 1]] / exposures[order[k]], 0.4545454680919647f);
        const size_t per = lv::image_samples(width, height, samples);
        for (int k = 0; k < n; ++k)
            image[k] = lv::image_at(images, static_cast<size_t>(order[k]), per, bits);

        lv::ChannelIndex ch = lv::rgb_index(samples);
        if (swapRedBlue) std::swap(ch.r, ch.b);
        // Limits are looked up by rank though they were filled by image index.
        const Bracket br{n,    low.get(), high.get(), ratio.get(), image.get(),
                         ch.r, ch.g,      ch.b,       samples,     bits};
        for (size_t i = 0; i < pixels; ++i)
            plane[i] =
                bits == 16 ? pixel_verdict<uint16_t>(br, i, t) : pixel_verdict<uint8_t>(br, i, t);
    }

    // Tower sizes and room for all levels, plus padding for the last packed byte.
    const int levels = tower_levels(width, height);
    int lw[kMaxLevels + 1], lh[kMaxLevels + 1];
    int64_t at[kMaxLevels + 2];
    lw[0] = width;
    lh[0] = height;
    at[0] = 0;
    for (int l = 0; l <= levels; ++l) {
        if (l > 0) {
            lw[l] = lw[l - 1] / 2 + lw[l - 1] % 2;
            lh[l] = lh[l - 1] / 2 + lh[l - 1] % 2;
        }
        at[l + 1] = at[l] + static_cast<int64_t>(lw[l]) * lh[l];
    }
    const size_t total = static_cast<size_t>(at[levels + 1]) + 8;
    uint8_t *grown = static_cast<uint8_t *>(std::realloc(plane.get(), total));
    if (grown) {
        plane.release();
        plane.reset(grown);
        std::memset(grown + pixels, 0, total - pixels);
        for (int l = 0; l < levels; ++l)
            deghost21a(lw[l], lh[l], lw[l + 1], lh[l + 1], 1, 8, 0, at[l], at[l + 1], nullptr,
                       grown);
        auto scratch = lv::calloc_array<uint8_t>(static_cast<size_t>(lw[levels]) * lh[levels]);
        if (scratch)
            lv::dilate_ghost_level(lw[levels], lh[levels], grown + at[levels], scratch.get());
        // Only the dilated top carries on: each expansion overwrites the level below.
        for (int l = levels; l > 0; --l)
            deghost22b(lw[l - 1], lh[l - 1], lw[l], lh[l], 0, grown + at[l], grown + at[l - 1]);
    }

    // Pack whole bytes; the last one may take its spare bits from the next level's start.
    const uint8_t *bytes = plane.get();
    for (size_t i = 0; i < packed; i += 8) {
        unsigned v = 0;
        for (int b = 0; b < 8; ++b)
            if (static_cast<int>(bytes[i + b]) > threshold) v |= 0x80u >> b;
        mask[i / 8] |= static_cast<uint8_t>(v);
    }
    return static_cast<int>(packed);
}

} // extern "C"
