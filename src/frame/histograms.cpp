// Plain histograms for display: grey and per-channel counts of 8-bit and 16-bit images.
#include <cstddef>

#include "frame/statistics.h"

namespace {

// Sample positions read as "samples 0, 1 and 2" of a pixel. A grey image (one sample)
// reads sample 0 three times; a grey-and-alpha image never reaches into the next pixel.
struct Slots {
    int s0, s1, s2;
    explicit Slots(int spp)
        : s0(0), s1(spp < 2 ? 0 : 1), s2(spp < 2 ? 0 : (spp < 3 ? spp - 1 : 2)) {}
};

template <class Sample, class Visit>
void for_each_pixel(int width, int height, int pitch, int spp, const Sample *image, Visit visit) {
    for (int y = 0; y < height; ++y) {
        const Sample *px = image + static_cast<ptrdiff_t>(y) * pitch;
        for (int x = 0; x < width; ++x, px += spp)
            visit(px);
    }
}

} // namespace

extern "C" {

void histo4preview(int width, int height, int spp, int swapRedBlue, int pitchBytes,
                   const unsigned char *image, unsigned *counters) {
    const int green = (spp - 1) / 2;
    const int last = spp - 1;
    const unsigned red_base = swapRedBlue ? 768 : 256;
    const unsigned blue_base = swapRedBlue ? 256 : 768;
    for_each_pixel(width, height, pitchBytes, spp, image, [&](const unsigned char *px) {
        const unsigned a = px[0], b = px[green], c = px[last];
        counters[lv::grey256(a, b, c) >> 8]++;
        counters[red_base + a]++;
        counters[512 + b]++;
        counters[blue_base + c]++;
    });
}

void histlum(int width, int height, int pitchSamples, int spp, int bits, const void *image,
             unsigned *counters) {
    const Slots s(spp);
    auto count = [&](unsigned a, unsigned b, unsigned c) {
        counters[(19u * a + 183u * b + 54u * c) >> 8]++;
    };
    if (bits == 8) {
        for_each_pixel(width, height, pitchSamples, spp, static_cast<const uint8_t *>(image),
                       [&](const uint8_t *px) { count(px[s.s0], px[s.s1], px[s.s2]); });
    } else if (bits == 16) {
        for_each_pixel(
            width, height, pitchSamples, spp, static_cast<const uint16_t *>(image),
            [&](const uint16_t *px) { count(px[s.s0] >> 8, px[s.s1] >> 8, px[s.s2] >> 8); });
    }
}

void histcolors(int width, int height, int pitchSamples, int spp, int bits, const void *image,
                unsigned *counters) {
    const Slots s(spp);
    if (bits == 8) {
        for_each_pixel(width, height, pitchSamples, spp, static_cast<const uint8_t *>(image),
                       [&](const uint8_t *px) {
                           counters[px[s.s0]]++;
                           counters[256 + px[s.s1]]++;
                           counters[512 + px[s.s2]]++;
                       });
    } else if (bits == 16) {
        for_each_pixel(width, height, pitchSamples, spp, static_cast<const uint16_t *>(image),
                       [&](const uint16_t *px) {
                           counters[px[s.s0] >> 8]++;
                           counters[256 + (px[s.s1] >> 8)]++;
                           counters[512 + (px[s.s2] >> 8)]++;
                       });
    }
}

void hist16(int width, int height, int pitchSamples, int spp, const uint16_t *image, float *lowest,
            float *highest, unsigned *counters) {
    const Slots s(spp);
    unsigned lo = 65535, hi = 0;
    for_each_pixel(width, height, pitchSamples, spp, image, [&](const uint16_t *px) {
        const unsigned v = 19u * px[s.s0] + 183u * px[s.s1] + 54u * px[s.s2];
        counters[v >> 15]++;
        const unsigned level = v >> 8;
        if (level < lo) lo = level;
        if (level > hi) hi = level;
    });
    *lowest = static_cast<float>(lo);
    *highest = static_cast<float>(hi);
}

} // extern "C"
