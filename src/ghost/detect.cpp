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
// gamma-coded levels unreliable. The factor depends on the darker side's 8-bit level alone
// (levels below 5 are luminances below 1280, below 11 below 2816).
double dark_end_factor(int level) {
    if (level < 11) return 3.0;
    if (level <= 20) return 4.0 - 0.1 * level;
    if (level <= 40) return 2.5 - 0.025 * level;
    if (level <= 60) return 2.1 - 0.015 * level;
    return 1.0;
}

struct Bracket {
    int n, width;
    const int32_t *low, *high;
    const float *ratio;       // n - 1 ratios of neighbouring ranks
    const float *widened;     // (n - 1) x 256: ratio times the dark-end factor of each level
    const void *const *image; // by rank, darkest first
    int r, g, b;              // sample positions
    int samples;
};

// Verdicts of row y: 255 where the mean deviation along the bracket, halved, exceeds t. Each
// pixel is followed through all ranks with its sums in registers.
template <class T> void row_verdicts(const Bracket &br, int y, int t, uint8_t *out) {
    const int shift = sizeof(T) == 2 ? 8 : 0;
    const size_t row = static_cast<size_t>(y) * br.width * br.samples;
    for (int x = 0; x < br.width; ++x) {
        const size_t at = row + static_cast<size_t>(x) * br.samples;
        float sum[3] = {0.0f, 0.0f, 0.0f};
        float weight = 0.0f;
        int pairs = 0;
        int p[3] = {0, 0, 0};
        int px = 0;
        for (int k = 0; k < br.n; ++k) {
            const T *s = static_cast<const T *>(br.image[k]) + at;
            const int raw[3] = {s[br.r] >> shift, s[br.g] >> shift, s[br.b] >> shift};
            int xl = 54 * raw[0] + 183 * raw[1] + 19 * raw[2];
            if (k > 0) {
                // Limits are looked up by rank though they were filled by image index.
                const int32_t lo0 = br.low[k - 1], lo1 = br.low[k];
                const bool darkPrev = px < lo0, darkCur = xl < lo1;
                bool compare = true;
                int cur[3] = {raw[0], raw[1], raw[2]};
                int prev[3] = {p[0], p[1], p[2]};
                if (darkPrev && darkCur) {
                    compare = false;
                } else if (!darkPrev && !darkCur) {
                    compare = !(px > br.high[k - 1] && xl > br.high[k]);
                } else {
                    // One side is too dark for colour: compare grey brightness only, and the
                    // raised luminance stays for the next pair.
                    xl = std::max(xl, 512);
                    px = std::max(px, 512);
                    cur[0] = cur[1] = cur[2] = xl >> 8;
                    prev[0] = prev[1] = prev[2] = px >> 8;
                }
                if (compare) {
                    const int level = px >> 8;
                    float f = br.ratio[k - 1];
                    float w = 1.0f;
                    if (level < lo0) {
                        f = br.widened[static_cast<size_t>(k - 1) * 256 + level];
                        if (px < 1280) prev[0] = prev[1] = prev[2] = 5;
                        // px / lo0 is at least 1 once px reaches lo0.
                        if (px < lo0) w = static_cast<float>(px) / static_cast<float>(lo0);
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
            px = xl;
        }
        float deviation = 0.0f;
        if (pairs > 0 && weight / static_cast<float>(pairs) > 0.25f)
            deviation = (sum[0] + sum[1] + sum[2]) / weight;
        out[x] = static_cast<int>(deviation) / 2 > t ? 255 : 0;
    }
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
    auto widened = lv::calloc_array<float>(count * 256);
    if (!measure || !order || !low || !high || !ratio || !image || !widened) return -4;

    // Tower sizes. The byte verdicts are level 0 of one block holding every level, padded so
    // that packing runs in whole bytes; without room for the tower they stand alone and go
    // to the packing unsmoothed.
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
    auto plane = lv::calloc_array<uint8_t>(static_cast<size_t>(at[levels + 1]) + 8);
    const bool smooth = plane != nullptr;
    if (!smooth) plane = lv::calloc_array<uint8_t>(packed);
    if (!plane) return -4;

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
        for (int k = 0; k + 1 < n; ++k)
            for (int level = 0; level < 256; ++level)
                widened[static_cast<size_t>(k) * 256 + level] =
                    static_cast<float>(static_cast<double>(ratio[k]) * dark_end_factor(level));

        lv::ChannelIndex ch = lv::rgb_index(samples);
        if (swapRedBlue) std::swap(ch.r, ch.b);
        const Bracket br{n,           width, low.get(), high.get(), ratio.get(), widened.get(),
                         image.get(), ch.r,  ch.g,      ch.b,       samples};
        for (int y = 0; y < height; ++y) {
            uint8_t *out = plane.get() + static_cast<size_t>(y) * width;
            if (bits == 16)
                row_verdicts<uint16_t>(br, y, t, out);
            else
                row_verdicts<uint8_t>(br, y, t, out);
        }
    }

    if (smooth) {
        uint8_t *tower = plane.get();
        for (int l = 0; l < levels; ++l)
            deghost21a(lw[l], lh[l], lw[l + 1], lh[l + 1], 1, 8, 0, at[l], at[l + 1], nullptr,
                       tower);
        auto scratch = lv::calloc_array<uint8_t>(static_cast<size_t>(lw[levels]) * lh[levels]);
        if (scratch)
            lv::dilate_ghost_level(lw[levels], lh[levels], tower + at[levels], scratch.get());
        // Only the dilated top carries on: each expansion overwrites the level below.
        for (int l = levels; l > 0; --l)
            deghost22b(lw[l - 1], lh[l - 1], lw[l], lh[l], 0, tower + at[l], tower + at[l - 1]);
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
