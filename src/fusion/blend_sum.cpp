// Adding one photograph to the fusion's accumulator: its image tower is reduced level by
// level, and each level's band-pass (the level less the expand of the one above) is weighted
// and summed at once, one row at a time, so no band-pass tower is ever held. The band levels
// of the accumulator carry a bias of 0x7FFF and clamp after every photograph; the top level
// sums the weighted low-pass and wraps in 16 bits.
#include <sys/types.h>

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

// A weight sample as a fraction of full scale; float weights are not read on the band
// levels and weigh 1 there.
inline float band_weight(const void *row, int bits, int x) {
    if (bits == 8) return static_cast<const uint8_t *>(row)[x] * (1.0f / 256.0f);
    if (bits == 16) return static_cast<const uint16_t *>(row)[x] * (1.0f / 65536.0f);
    return 1.0f;
}

inline float top_weight(const void *row, int bits, int x) {
    if (bits == 32) return static_cast<const float *>(row)[x];
    return band_weight(row, bits, x);
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

// accumulator += trunc(band-pass x weight), limited to 16 bits unsigned, for one fine row.
template <int NC>
void sum_row(const uint16_t *fine, const int32_t *expand, const void *weights, int bits, int width,
             int nc, uint16_t *acc) {
    if constexpr (NC > 0) nc = NC;
    for (int x = 0; x < width; ++x) {
        const float a = band_weight(weights, bits, x);
        for (int k = 0; k < nc; ++k) {
            const int64_t i = int64_t(x) * nc + k;
            const int b = fine[i] - expand[i];
            int v = acc[i] + static_cast<int>(static_cast<float>(b) * a);
            v = v < 0 ? 0 : (v > 65535 ? 65535 : v);
            acc[i] = static_cast<uint16_t>(v);
        }
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
            int t = static_cast<int>(static_cast<float>(image[i]) * a);
            t = t < 0 ? 0 : (t > 65535 ? 65535 : t);
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
    const int64_t row_samples = int64_t(fineW) * ncomp;
    std::unique_ptr<int32_t[]> expand(new (std::nothrow) int32_t[row_samples]);
    if (!expand) return -4;
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
        lv::blend::expand_row(image + coarseOffset, coarseW, coarseH, ncomp, wrap != 0, y, fineW,
                              expand.get());
        const uint16_t *fine = image + fineOffset + y * row_samples;
        uint16_t *out = acc + fineOffset + y * row_samples;
        if (ncomp == 1)
            sum_row<1>(fine, expand.get(), wrow, weightBits, fineW, 1, out);
        else if (ncomp == 3)
            sum_row<3>(fine, expand.get(), wrow, weightBits, fineW, 3, out);
        else
            sum_row<0>(fine, expand.get(), wrow, weightBits, fineW, ncomp, out);
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
