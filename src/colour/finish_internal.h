// Band bodies of the finishing passes and the small pieces they share: sample order,
// the gamut spill, and the abort on a depth pair the levels tool refuses.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lumivantor/finish.h"

LV_EXTERN_C_BEGIN

// DivideWork context of the exposure pass.
typedef struct ExposureWork {
    LvWorkContext band;
    int width, bpsIn, bpsOut, samplesPerPixel, strideIn, strideOut, swapIn, swapOut;
    const float *linearTable;
    const unsigned char *input;
    unsigned char *output;
    double factor;
} ExposureWork;

// DivideWork context of the raw enhancement.
typedef struct EnhanceWork {
    LvWorkContext band;
    int width, stride, bits;
    unsigned char *image;
    const float *gammaTable;
} EnhanceWork;

// DivideWork context of the levels tool.
typedef struct LevelsWork {
    LvWorkContext band;
    int width, swapIn, swapOut, strideIn, strideOut, bpsIn, bpsOut;
    const unsigned char *input;
    unsigned char *output;
    const float *levels;
    float saturationPercent;
} LevelsWork;

LV_API void *adjustImageExposure_tile_threaded(void *work);
LV_API void enhanceRawConvertedImage_tile(int firstRow, int endRow, int width, int stride, int bits,
                                          unsigned char *image, const float *gammaTable);
LV_API void *enhanceRawConvertedImage_tile_threaded(void *work);
LV_API void *adjustImageLevels_tile_threaded(void *work);

// HSL copy of rows firstRow..endRow; returns the row count.
LV_API int get_hsl_orig(int width, int firstRow, int endRow, int samplesPerPixel, int swapRedBlue,
                        int stride, int bits, unsigned char *hsl, const unsigned char *image);

typedef struct HslArgs {
    int width, height, samplesPerPixel, swapRedBlue, stride, bits;
    unsigned char *hsl;
    const unsigned char *image;
    int threadIndex, threadCount, result;
} HslArgs;
LV_API void *get_hsl_threaded(void *args);

// One band of post_adj: image and hsl point at the first row of a slice of width x height
// pixels; rows firstRow..endRow of the slice are written, the others only feed the blur.
LV_API int post_adj_orig(int width, int height, int firstRow, int endRow, int samplesPerPixel,
                         int swapRedBlue, int stride, int bits, const uint16_t *outputCurve,
                         const float *hueSaturation, const float *controls,
                         const unsigned char *hsl, unsigned char *image);

typedef struct PostAdjArgs {
    int width, height, samplesPerPixel, swapRedBlue, stride, bits;
    const uint16_t *outputCurve;
    const float *hueSaturation;
    const float *controls;
    const unsigned char *hsl;
    unsigned char *image;
    int threadIndex, threadCount, result;
} PostAdjArgs;
LV_API void *post_adj_threaded(void *args);

// Everything a band of lv_blend reads: per block (base, then each layer) the image offset
// in samples and the two weights.
typedef struct BlendJob {
    DimParam dim;
    int layers;
    const long long *offsets;
    const uint32_t *weightA;
    const uint32_t *weightB;
    const unsigned char *mask;
    const unsigned char *images;
    unsigned char *output;
} BlendJob;

// Blends rows firstRow..firstRow + rows; returns rows.
LV_API int blend_orig(const BlendJob *job, int firstRow, int rows);

typedef struct BlendArgs {
    const BlendJob *job;
    int threadIndex, threadCount, result;
} BlendArgs;
LV_API void *blend_threaded(void *args);

LV_EXTERN_C_END

namespace lv {

template <class T> using FreeBuf = std::unique_ptr<T[], decltype(&std::free)>;

// calloc'd array owned by a unique_ptr; null when the allocation fails.
template <class T> FreeBuf<T> calloc_buf(size_t n) {
    return FreeBuf<T>(static_cast<T *>(std::calloc(n ? n : 1, sizeof(T))), &std::free);
}

// Direct-mapped memo of a per-pixel function of up to three 16-bit samples. Photographs
// repeat colours a lot within a neighbourhood, so the costly colour-space round trips of
// exposure and HSL rebuilding are looked up instead of recomputed; a hit gives the very
// values the function would. Without memory for it every pixel is computed.
class PixelMemo {
  public:
    static constexpr int kBits = 12;
    PixelMemo() : slots_(calloc_buf<Slot>(size_t(1) << kBits)) {
        if (slots_)
            for (size_t i = 0; i < (size_t(1) << kBits); ++i)
                slots_[i].key = ~uint64_t(0);
    }
    static uint64_t key_of(unsigned a, unsigned b, unsigned c) {
        return uint64_t(a) | uint64_t(b) << 16 | uint64_t(c) << 32;
    }
    // out gets compute(out) for the key, from the memo when it holds the key.
    template <class Compute> void get(uint64_t key, unsigned *out, Compute compute) {
        if (!slots_) {
            compute(out);
            return;
        }
        Slot &s = slots_[(key * 0x9E3779B97F4A7C15ull) >> (64 - kBits)];
        if (s.key != key) {
            compute(out);
            s.key = key;
            s.value[0] = static_cast<uint16_t>(out[0]);
            s.value[1] = static_cast<uint16_t>(out[1]);
            s.value[2] = static_cast<uint16_t>(out[2]);
            return;
        }
        out[0] = s.value[0], out[1] = s.value[1], out[2] = s.value[2];
    }

  private:
    struct Slot {
        uint64_t key;
        uint16_t value[3];
    };
    FreeBuf<Slot> slots_;
};

// Positions of red, green and blue within a pixel.
struct Order {
    int r, g, b;
};
inline Order order_of(int samplesPerPixel, int swap) {
    const int last = samplesPerPixel - 1;
    return swap ? Order{last, last / 2, 0} : Order{0, last / 2, last};
}

// Samples of 8 or 16 bits behind a byte pointer; stride and index in samples.
inline unsigned sample_at(const unsigned char *base, int bits, size_t index) {
    if (bits == 8) return base[index];
    return reinterpret_cast<const uint16_t *>(base)[index];
}
inline void store_sample(unsigned char *base, int bits, size_t index, unsigned value) {
    if (bits == 8)
        base[index] = static_cast<unsigned char>(value);
    else
        reinterpret_cast<uint16_t *>(base)[index] = static_cast<uint16_t>(value);
}

// Keeps the hue of a colour pushed out of gamut: half of a channel's excess goes to each of
// the other two, channel by channel in red, green, blue order; negatives become 0.
inline void spill(float &r, float &g, float &b, float limit) {
    if (r > limit) {
        const float e = (r - limit) * 0.5f;
        g += e;
        b += e;
        r = limit;
    } else if (r < 0.0f) {
        r = 0.0f;
    }
    if (g > limit) {
        const float e = (g - limit) * 0.5f;
        r = std::min(r + e, limit);
        b += e;
        g = limit;
    } else if (g < 0.0f) {
        g = 0.0f;
    }
    if (b > limit) {
        const float e = (b - limit) * 0.5f;
        r = std::min(r + e, limit);
        g = std::min(g + e, limit);
        b = limit;
    } else if (b < 0.0f) {
        b = 0.0f;
    }
}

// The levels tool and the fake exposures convert 16 to 8 bits but never 8 to 16. Another
// pair is a caller's mistake: abort even in an optimised build, naming the condition.
inline void require_levels_depths(int bpsIn, int bpsOut, const char *function) {
    if (bpsIn >= bpsOut && (bpsIn == 8 || bpsIn == 16) && (bpsOut == 8 || bpsOut == 16)) return;
    std::fprintf(stderr,
                 "Utils: %s: Assertion `bpsIn >= bpsOut && (bpsIn == 8 || bpsIn == 16) && "
                 "(bpsOut == 8 || bpsOut == 16)' failed.\n",
                 function);
    std::abort();
}

} // namespace lv
