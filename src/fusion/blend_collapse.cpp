// Collapse of the fusion's accumulator into the picture. Each band-pass value is lifted by a
// gain that falls off with its magnitude: slight textures gain 1 + s, edges well above about
// 8 levels of 255 pass unchanged and get no halo. A strong setting shifts the lift towards
// the fine levels, and the moire guard can thin out the middle-to-coarse ones.
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

#include "fusion/blend.h"
#include "fusion/blend_expand.h"

namespace {

constexpr int kBias = 0x7FFF;

// The detail gain applied to a band-pass value d of one level.
struct DetailGain {
    float s;   // strength: 0.2 x param[8]
    int guard; // moire-guard mode, 0 for none
    int level, levels;

    int operator()(int d) const {
        if (!(s > 0.0f)) return d;
        const float t = -4.656897e-07f * static_cast<float>(d * d);
        float g = static_cast<float>(std::exp(static_cast<double>(t)));
        if (guard > 0) g = fixMoire(guard, level, levels, g);
        return static_cast<int>(static_cast<float>(d) * s * g + static_cast<float>(d));
    }
};

// Writes one finished row of level 0: 16-bit output doubles the 15-bit value, 8-bit keeps
// its high byte, in the first, middle and last sample of each pixel.
void write_row(const uint16_t *row, int width, int nc, int bpsOut, bool swap, void *out,
               int64_t at) {
    const int first = swap ? nc - 1 : 0, middle = (nc - 1) / 2, last = swap ? 0 : nc - 1;
    for (int x = 0; x < width; ++x) {
        const uint16_t *p = row + int64_t(x) * nc;
        const int64_t o = at + int64_t(x) * nc;
        if (bpsOut == 16) {
            auto *dst = static_cast<uint16_t *>(out) + o;
            dst[first] = static_cast<uint16_t>(p[0] * 2);
            dst[middle] = static_cast<uint16_t>(p[middle] * 2);
            dst[last] = static_cast<uint16_t>(p[nc - 1] * 2);
        } else if (bpsOut == 8) {
            auto *dst = static_cast<uint8_t *>(out) + o;
            dst[first] = static_cast<uint8_t>(p[0] >> 7);
            dst[middle] = static_cast<uint8_t>(p[middle] >> 7);
            dst[last] = static_cast<uint8_t>(p[nc - 1] >> 7);
        }
    }
}

inline uint16_t clamp15(int v) {
    return static_cast<uint16_t>(v < 0 ? 0 : (v > 32767 ? 32767 : v));
}

} // namespace

extern "C" {

LV_API float fixMoire(int mode, int level, int levels, float gain) {
    if (mode < 1 || mode > 7) return gain;
    const int T = levels, l = level;
    const bool upper = l >= T / 2;
    const float lifted = static_cast<float>(1.4 * gain);
    const float boost = l >= 3 * T / 4             ? static_cast<float>(1.5 * gain)
                        : (l > T / 4 && l < T / 2) ? static_cast<float>(1.25 * gain)
                                                   : gain;
    const float thin = gain < 0.15f ? gain : 0.15f;
    switch (mode) {
    case 1:
        return upper ? 0.0f : gain;
    case 2:
        return upper ? 0.2f : gain;
    case 3:
        return upper ? 0.0f : lifted;
    case 4:
        return upper ? 0.2f : lifted;
    case 5:
        return upper && l < 7 * T / 8 ? 0.0f : boost;
    case 6:
        return upper && l < 7 * T / 8 ? thin : boost;
    default:
        return upper && l < 13 * T / 16 ? thin : boost;
    }
}

LV_API int fusion31et32(int level, int levels, float *param, int fineW, int fineH, int coarseW,
                        int coarseH, int ncomp, int bpsOut, int strideOut, int swapRedBlue,
                        int accumBits, int wrap, int64_t fineOffset, int64_t coarseOffset,
                        void *accumulator, void *out) {
    if (accumBits != 16) return -16;
    if (fineH == 0) return 0;
    if (fineW < 1 || fineH < 1 || coarseW < 1 || coarseH < 1 || ncomp < 1 || !param ||
        !accumulator || (level == 0 && !out))
        return -1;
    const DetailGain gain{static_cast<float>(0.2 * param[8]), static_cast<int>(param[13] + 0.5),
                          level, levels};
    const int64_t row_samples = int64_t(fineW) * ncomp;
    std::unique_ptr<int32_t[]> expand(new (std::nothrow) int32_t[row_samples]);
    if (!expand) return -4;
    // On large levels the gain is looked up by d rather than evaluated per sample; both give
    // the same values, as d is an integer of 16 bits.
    std::unique_ptr<int32_t[]> table;
    if (gain.s > 0.0f && row_samples * fineH > 65536) {
        table.reset(new (std::nothrow) int32_t[65536]);
        if (!table) return -4;
        for (int d = -kBias; d <= 65535 - kBias; ++d)
            table[d + kBias] = gain(d);
    }
    auto *acc = static_cast<uint16_t *>(accumulator);
    for (int y = 0; y < fineH; ++y) {
        lv::blend::expand_row(acc + coarseOffset, coarseW, coarseH, ncomp, wrap != 0, y, fineW,
                              expand.get());
        uint16_t *row = acc + fineOffset + y * row_samples;
        const int32_t *e = expand.get();
        if (table)
            for (int64_t i = 0; i < row_samples; ++i)
                row[i] = clamp15(table[row[i]] + e[i]);
        else
            for (int64_t i = 0; i < row_samples; ++i)
                row[i] = clamp15(gain(row[i] - kBias) + e[i]);
        if (level == 0)
            write_row(row, fineW, ncomp, bpsOut, swapRedBlue != 0, out, int64_t(y) * strideOut);
    }
    return fineH;
}

LV_API int fusion3_main(float *param, int levels, int width, int height, int ncomp, int bpsOut,
                        int accumBits, int strideOut, int swapRedBlue, int wrap, void *accumulator,
                        void *out) {
    if (levels < 0 || !param || !accumulator || !out || width < 1 || height < 1 || ncomp < 1)
        return -1;
    std::unique_ptr<int[]> sizes(new (std::nothrow) int[2 * (levels + 1)]);
    std::unique_ptr<int64_t[]> offsets(new (std::nothrow) int64_t[levels + 1]);
    if (!sizes || !offsets) return -4;
    int *ws = sizes.get(), *hs = sizes.get() + levels + 1;
    ws[0] = width;
    hs[0] = height;
    offsets[0] = 0;
    for (int l = 1; l <= levels; ++l) {
        ws[l] = ws[l - 1] % 2 + ws[l - 1] / 2;
        hs[l] = hs[l - 1] % 2 + hs[l - 1] / 2;
        offsets[l] = offsets[l - 1] + int64_t(ws[l - 1]) * hs[l - 1] * ncomp;
    }
    if (levels == 0) {
        // No band levels: the weighted sum at full size is the picture.
        if (accumBits != 16) return 1;
        auto *acc = static_cast<uint16_t *>(accumulator);
        std::unique_ptr<uint16_t[]> row(new (std::nothrow) uint16_t[int64_t(width) * ncomp]);
        if (!row) return -4;
        for (int y = 0; y < height; ++y) {
            const uint16_t *src = acc + int64_t(y) * width * ncomp;
            for (int64_t i = 0; i < int64_t(width) * ncomp; ++i)
                row[i] = clamp15(src[i]);
            write_row(row.get(), width, ncomp, bpsOut, swapRedBlue != 0, out,
                      int64_t(y) * strideOut);
        }
        return 1;
    }
    const float p8 = param[8];
    const int half = levels / 2;
    const float k = static_cast<float>(0.08 * p8 - 0.4);
    for (int l = levels - 1; l >= 0; --l) {
        float f = 1.0f;
        if (p8 > 5.0f) {
            // With one level there is no half to scale by: the gain is undefined (NaN) and
            // the level gets no lift.
            const float u = half > 0 ? static_cast<float>(l) / static_cast<float>(half)
                                     : std::numeric_limits<float>::quiet_NaN();
            f = l > half ? 1.0f / ((u - 1.0f) * k + 1.0f) : (1.0f - u) * k + 1.0f;
        }
        param[8] = f * p8;
        fusion31et32(l, levels, param, ws[l], hs[l], ws[l + 1], hs[l + 1], ncomp, bpsOut, strideOut,
                     swapRedBlue, accumBits, wrap, offsets[l], offsets[l + 1], accumulator, out);
    }
    return 1;
}

} // extern "C"
