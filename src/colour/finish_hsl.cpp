// The 8-bit HSL copy of a picture, made once so that a host can re-render saturation by
// hue and sharpening from it as a slider moves, without the RGB to HSL pass each time.
#include "colour/finish_internal.h"
#include "colour/hsl_core.h"
#include "frame/band_threads.h"

extern "C" {

int get_hsl_orig(int width, int firstRow, int endRow, int samplesPerPixel, int swapRedBlue,
                 int stride, int bits, unsigned char *hsl, const unsigned char *image) {
    const lv::Order o = lv::order_of(samplesPerPixel, swapRedBlue);
    const float unit = bits == 8 ? 0.003921569f : 1.5259022e-05f;
    for (int y = firstRow; y < endRow; ++y) {
        const size_t row = static_cast<size_t>(y) * stride;
        unsigned char *out = hsl + static_cast<size_t>(y) * width * 3;
        for (int x = 0; x < width; ++x, out += 3) {
            const size_t at = row + static_cast<size_t>(x) * samplesPerPixel;
            const float r = lv::sample_at(image, bits, at + o.r) * unit;
            const float g = lv::sample_at(image, bits, at + o.g) * unit;
            const float b = lv::sample_at(image, bits, at + o.b) * unit;
            float h[3];
            lv::rgb_to_hsl_core(r, g, b, h, lv::kLightTwo);
            const float sum = std::max(std::max(r, g), b) + std::min(std::min(r, g), b);
            out[0] = static_cast<unsigned char>(h[0] * 255.0f);
            out[1] = static_cast<unsigned char>(h[1] * 255.0f);
            out[2] = static_cast<unsigned char>(sum * 127.5);
        }
    }
    return endRow - firstRow;
}

void *get_hsl_threaded(void *args) {
    auto *a = static_cast<HslArgs *>(args);
    const lv::Band band = lv::band_of(a->height, a->threadIndex, a->threadCount);
    a->result = get_hsl_orig(a->width, band.first, band.first + band.rows, a->samplesPerPixel,
                             a->swapRedBlue, a->stride, a->bits, a->hsl, a->image);
    pthread_exit(nullptr);
}

int get_hsl(int numThreads, int width, int height, int samplesPerPixel, int swapRedBlue, int stride,
            int bits, unsigned char *hsl, const unsigned char *image) {
    if (numThreads < 2)
        return get_hsl_orig(width, 0, height, samplesPerPixel, swapRedBlue, stride, bits, hsl,
                            image);
    return lv::run_threaded<HslArgs>(
        numThreads, get_hsl_threaded, [&](HslArgs &a, int index, int count) {
            a = HslArgs{width, height, samplesPerPixel, swapRedBlue, stride, bits,
                        hsl,   image,  index,           count,       0};
        });
}

} // extern "C"
