// Adding one photograph to the fusion's accumulator: its image tower is reduced level by
// level, and each level's band-pass (the level less the expand of the one above) is weighted
// and summed at once, one row at a time, so no band-pass tower is ever held. The band levels
// of the accumulator carry a bias of 0x7FFF and clamp after every photograph; the top level
// sums the weighted low-pass and wraps in 16 bits.
#include <sys/types.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>

#include "fusion/blend.h"
#include "fusion/blend_expand.h"

namespace {

int weight_bytes(int bits) {
    return bits == 8 ? 1 : bits == 16 ? 2 : bits == 32 ? 4 : 0;
}

// A weight sample of the top level as a fraction of full scale, or the float itself.
inline float top_weight(const void *row, int bits, int x) {
    if (bits == 8) return static_cast<const uint8_t *>(row)[x] * (1.0f / 256.0f);
    if (bits == 16) return static_cast<const uint16_t *>(row)[x] * (1.0f / 65536.0f);
    return static_cast<const float *>(row)[x];
}

// Reads `count` weight samples at sample `at` of the weight tower file into dst.
int read_weights(FILE *fp, int64_t at, int bytes, int count, void *dst, const char *what) {
    if (fseeko(fp, static_cast<off_t>(at * bytes), SEEK_SET) != 0) return -3;
    const size_t got = std::fread(dst, static_cast<size_t>(bytes), static_cast<size_t>(count), fp);
    if (got != static_cast<size_t>(count)) {
        std::fprintf(stderr, "could not read fpPyramPoids%s - returned %d instead of %d\n", what,
                     static_cast<int>(got), count);
        return -3;
    }
    return 0;
}

// The weight of each sample of a fine row, as a fraction of full scale; float weights are
// not read on the band levels and weigh 1 there.
template <int NC> void weight_row(const void *weights, int bits, int width, int nc, float *a) {
    if constexpr (NC > 0) nc = NC;
    const auto spread = [&](auto *w, float scale) {
        for (int x = 0; x < width; ++x) {
            const float v = static_cast<float>(w[x]) * scale;
            for (int k = 0; k < nc; ++k)
                a[int64_t(x) * nc + k] = v;
        }
    };
    if (bits == 8)
        spread(static_cast<const uint8_t *>(weights), 1.0f / 256.0f);
    else if (bits == 16)
        spread(static_cast<const uint16_t *>(weights), 1.0f / 65536.0f);
    else
        std::fill(a, a + int64_t(width) * nc, 1.0f);
}

// accumulator += trunc(band-pass x weight), limited to 16 bits unsigned, for one fine row.
void sum_row(const uint16_t *__restrict fine, const int32_t *__restrict expand,
             const float *__restrict a, int64_t count, uint16_t *__restrict acc) {
    for (int64_t i = 0; i < count; ++i) {
        const int b = fine[i] - expand[i];
        int v = acc[i] + static_cast<int>(static_cast<float>(b) * a[i]);
        v = v < 0 ? 0 : v;
        v = v > 65535 ? 65535 : v;
        acc[i] = static_cast<uint16_t>(v);
    }
}

// The top level: the weighted low-pass of the first sample, and of the middle and last only
// for three samples a pixel, added in 16 bits with wrapping.
void sum_top_row(const uint16_t *image, const void *weights, int bits, int width, int nc,
                 uint16_t *acc) {
    const int channels = nc == 3 ? 3 : 1;
    for (int x = 0; x < width; ++x) {
        const float a = top_weight(weights, bits, x);
        for (int k = 0; k < channels; ++k) {
            const int64_t i = int64_t(x) * nc + k;
            // Limited before the conversion, so that a stray float weight can't overflow it.
            const float v = static_cast<float>(image[i]) * a;
            const int t = v >= 0.0f ? (v < 65535.0f ? static_cast<int>(v) : 65535) : 0;
            acc[i] = static_cast<uint16_t>(acc[i] + t);
        }
    }
}

} // namespace

extern "C" {

LV_API int fusion22et23(int fineW, int fineH, int coarseW, int coarseH, int ncomp, int weightBits,
                        int wrap, int readRows, FILE *fpPyramPoids, void *rowBuffer,
                        int64_t weightOffset, int64_t fineOffset, int64_t coarseOffset,
                        void *weights, void *imageTower, void *accumulator) {
    const int bytes = weight_bytes(weightBits);
    if (bytes == 0 || ncomp < 1 || !imageTower || !accumulator) return -1;
    if (readRows ? (!fpPyramPoids || !rowBuffer) : (!weights && weightBits != 32)) return -1;
    if (fineW < 1 || fineH < 1) return fineH;
    if (coarseW != fineW % 2 + fineW / 2 || coarseH != fineH % 2 + fineH / 2) return -1;
    const int64_t row_samples = int64_t(fineW) * ncomp, coarse_samples = int64_t(coarseW) * ncomp;
    std::unique_ptr<int32_t[]> ints(new (std::nothrow) int32_t[row_samples + 3 * coarse_samples]);
    std::unique_ptr<float[]> a(new (std::nothrow) float[row_samples]);
    if (!ints || !a) return -4;
    int32_t *expand = ints.get();
    const lv::blend::ExpandRows rows{expand + row_samples, expand + row_samples + coarse_samples,
                                     expand + row_samples + 2 * coarse_samples};
    const auto *image = static_cast<const uint16_t *>(imageTower);
    auto *acc = static_cast<uint16_t *>(accumulator);
    for (int y = 0; y < fineH; ++y) {
        const void *wrow = nullptr;
        const int64_t wat = weightOffset + int64_t(y) * fineW;
        if (readRows) {
            // Weight rows from the file come through the row buffer at every depth.
            const int r = read_weights(fpPyramPoids, wat, bytes, fineW, rowBuffer, "");
            if (r < 0) return r;
            wrow = rowBuffer;
        } else if (weights) {
            wrow = static_cast<const unsigned char *>(weights) + wat * bytes;
        }
        if (ncomp == 1)
            weight_row<1>(wrow, weightBits, fineW, 1, a.get());
        else if (ncomp == 3)
            weight_row<3>(wrow, weightBits, fineW, 3, a.get());
        else
            weight_row<0>(wrow, weightBits, fineW, ncomp, a.get());
        lv::blend::expand_row(image + coarseOffset, coarseW, coarseH, ncomp, wrap != 0, y, fineW,
                              rows, expand);
        sum_row(image + fineOffset + y * row_samples, expand, a.get(), row_samples,
                acc + fineOffset + y * row_samples);
    }
    return fineH;
}

LV_API int fusion22(int levels, int width, int height, int ncomp, int accumBits, int weightBits,
                    int wrap, void *weightTower, FILE *fpPyramPoids, void *rowBuffer,
                    void *imageTower, void *accumulator) {
    if (!weightTower && !fpPyramPoids) return -1;
    // A float accumulator can't be collapsed; nothing is added to it.
    if (accumBits != 16) return 0;
    const int bytes = weight_bytes(weightBits);
    if (bytes == 0 || ncomp < 1 || levels < 0 || width < 1 || height < 1 || !imageTower ||
        !accumulator || (!weightTower && !rowBuffer))
        return -1;
    auto *image = static_cast<uint16_t *>(imageTower);
    auto *acc = static_cast<uint16_t *>(accumulator);
    int64_t at = 0, weight_at = 0;
    int w = width, h = height;
    for (int l = 0; l < levels; ++l) {
        const int cw = w % 2 + w / 2, ch = h % 2 + h / 2;
        const int64_t next = at + int64_t(w) * h * ncomp;
        fusion21a(w, h, cw, ch, ncomp, 16, wrap, at, next, nullptr, imageTower);
        void *weights = weightTower;
        int64_t weight_offset = weight_at;
        const int read_rows = !weightTower && l == 0;
        if (!weightTower && l > 0) {
            // Level 0 of the image tower is done with: the level's weights go there.
            const int r =
                read_weights(fpPyramPoids, weight_at, bytes, w * h, imageTower, " fusion22");
            if (r < 0) return r;
            weights = imageTower;
            weight_offset = 0;
        }
        const int r =
            fusion22et23(w, h, cw, ch, ncomp, weightBits, wrap, read_rows, fpPyramPoids, rowBuffer,
                         weight_offset, at, next, weights, imageTower, accumulator);
        if (r < 0) return r;
        at = next;
        weight_at += int64_t(w) * h;
        w = cw;
        h = ch;
    }
    const int64_t top_samples = int64_t(w) * ncomp;
    if (weightTower || levels > 0) {
        const void *weights =
            weightTower ? static_cast<const unsigned char *>(weightTower) + weight_at * bytes
                        : nullptr;
        if (!weightTower) {
            const int r =
                read_weights(fpPyramPoids, weight_at, bytes, w * h, imageTower, " low pass");
            if (r < 0) return r;
            weights = imageTower;
        }
        for (int y = 0; y < h; ++y)
            sum_top_row(image + at + y * top_samples,
                        static_cast<const unsigned char *>(weights) + int64_t(y) * w * bytes,
                        weightBits, w, ncomp, acc + at + y * top_samples);
        return levels;
    }
    // No levels: the top is the picture itself, so its weights come a row at a time.
    for (int y = 0; y < h; ++y) {
        const int r = read_weights(fpPyramPoids, int64_t(y) * w, bytes, w, rowBuffer, " low pass");
        if (r < 0) return r;
        sum_top_row(image + y * top_samples, rowBuffer, weightBits, w, ncomp,
                    acc + y * top_samples);
    }
    return levels;
}

} // extern "C"
