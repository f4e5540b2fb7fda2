// One-shot shadow lift of a bracket: the mean of the frames, then a soft-light blend of
// each channel against the blurred inverse of its luminance, which opens dark areas and
// holds bright ones back without a visible edge.
#include <vector>

#include "colour/finish_internal.h"

namespace {

// Box mean along one line (count values spaced `step` apart) over the window
// i - before .. i + after, counting only positions 1 .. count - 1: position 0 takes no
// part. With no position in range the result is 0.
void box_line(const unsigned char *src, unsigned char *dst, int count, size_t step, int before,
              int after, std::vector<uint32_t> &prefix) {
    prefix.assign(static_cast<size_t>(count) + 1, 0);
    for (int i = 1; i < count; ++i)
        prefix[i + 1] = prefix[i] + src[static_cast<size_t>(i) * step];
    for (int i = 0; i < count; ++i) {
        const int lo = std::max(i - before, 1), hi = std::min(i + after, count - 1);
        uint32_t v = 0;
        if (hi >= lo) v = (prefix[hi + 1] - prefix[lo]) / static_cast<uint32_t>(hi - lo + 1);
        dst[static_cast<size_t>(i) * step] = static_cast<unsigned char>(std::min(v, 255u));
    }
}

template <class In, class Out>
void average(int count, int width, int height, int stride, int spp, int bitsIn, int bitsOut,
             const In *in, Out *out) {
    const size_t image = static_cast<size_t>(width) * height * spp;
    const uint64_t limit = bitsOut == 8 ? 255 : 65535;
    for (int y = 0; y < height; ++y)
        for (size_t i = 0; i < static_cast<size_t>(width) * spp; ++i) {
            const size_t at = static_cast<size_t>(y) * width * spp + i;
            uint64_t sum = 0;
            for (int k = 0; k < count; ++k)
                sum += in[k * image + at];
            uint64_t mean;
            if (bitsIn == 8 && bitsOut == 16)
                mean = sum * 256 / count;
            else if (bitsIn == 16 && bitsOut == 8)
                mean = (sum / count) >> 8;
            else
                mean = sum / count;
            out[static_cast<size_t>(y) * stride + i] = static_cast<Out>(std::min(mean, limit));
        }
}

template <class Out>
void inverse_luminance(int width, int height, int stride, int spp, const Out *out,
                       unsigned char *mask) {
    const int shift = sizeof(Out) == 1 ? 8 : 16;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Out *px = out + static_cast<size_t>(y) * stride + static_cast<size_t>(x) * spp;
            // The weights ignore the red/blue order: sample 0 always counts 19.
            const int64_t lum = (int64_t(px[0]) * 19 + int64_t(px[(spp - 1) / 2]) * 183 +
                                 int64_t(px[spp - 1]) * 54) >>
                                shift;
            mask[static_cast<size_t>(y) * width + x] =
                static_cast<unsigned char>(std::clamp<int64_t>(255 - lum, 0, 255));
        }
}

template <class Out>
void soft_light(int width, int height, int stride, int spp, const unsigned char *mask, Out *out) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int64_t m = mask[static_cast<size_t>(y) * width + x];
            Out *px = out + static_cast<size_t>(y) * stride + static_cast<size_t>(x) * spp;
            const int at[3] = {0, (spp - 1) / 2, spp - 1};
            for (int c : at) {
                const int64_t v = px[c];
                int64_t r;
                if (sizeof(Out) == 1)
                    r = std::min<int64_t>(
                        (((m * v) >> 8) * (255 - v) + ((((255 - m) * (255 - v)) >> 8) ^ 255) * v) >>
                            8,
                        255);
                else
                    r = std::min<int64_t>((((v * m) >> 16) * (65535 - v) +
                                           ((((65535 - v) * (255 - m)) >> 16) ^ 255) * v) >>
                                              8,
                                          65535);
                px[c] = static_cast<Out>(r);
            }
        }
}

template <class In, class Out>
void run(int count, int width, int height, int stride, int bitsIn, int bitsOut, int spp,
         unsigned char *mask, const In *in, Out *out) {
    average(count, width, height, stride, spp, bitsIn, bitsOut, in, out);
    inverse_luminance(width, height, stride, spp, out, mask);
    if (spp == 1) return;
    // Two box passes whose reach grows with the number of frames averaged.
    const int reach = 4 * count + 2;
    unsigned char *across = mask + static_cast<size_t>(width) * height;
    std::vector<uint32_t> prefix;
    for (int y = 0; y < height; ++y)
        box_line(mask + static_cast<size_t>(y) * width, across + static_cast<size_t>(y) * width,
                 width, 1, reach, reach - 1, prefix);
    for (int x = 0; x < width; ++x)
        box_line(across + x, mask + x, height, static_cast<size_t>(width), reach, reach, prefix);
    soft_light(width, height, stride, spp, mask, out);
}

} // namespace

extern "C" {

int hsauto(int imageCount, int width, int height, int stride, int /*swapRedBlue*/, int bitsIn,
           int bitsOut, int samplesPerPixel, unsigned char *maskBuffer, unsigned char *input,
           unsigned char *output) {
    if (width < 1 || height < 1 || imageCount < 1) return 0;
    unsigned char *mask = maskBuffer ? maskBuffer : input;
    const int spp = samplesPerPixel;
    auto *in16 = reinterpret_cast<const uint16_t *>(input);
    auto *out16 = reinterpret_cast<uint16_t *>(output);
    if (bitsIn == 8 && bitsOut == 8)
        run(imageCount, width, height, stride, bitsIn, bitsOut, spp, mask, input, output);
    else if (bitsIn == 8)
        run(imageCount, width, height, stride, bitsIn, bitsOut, spp, mask, input, out16);
    else if (bitsOut == 8)
        run(imageCount, width, height, stride, bitsIn, bitsOut, spp, mask, in16, output);
    else
        run(imageCount, width, height, stride, bitsIn, bitsOut, spp, mask, in16, out16);
    return height;
}

} // extern "C"
