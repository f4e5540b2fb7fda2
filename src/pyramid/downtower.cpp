// Separable Gaussian blur of an 8-bit map (standard deviation radius / 2), used to soften
// selection masks. Each output is the weighted mean of the taps that fall inside the image.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "lumivantor/frame.h"
#include "lumivantor/pyramid.h"

namespace {

struct FreeDeleter {
    void operator()(void *ptr) const { std::free(ptr); }
};
template <class T> using CBuf = std::unique_ptr<T[], FreeDeleter>;

// One output of a pass. Taps run over sources pos - r .. pos + r, spaced `stride` apart;
// the window is clipped at the near edge first, and only when the left clip isn't taken is
// the far edge clipped, so a line shorter than r reads on into the following lines. Reads
// that would leave the plane are dropped.
inline unsigned char blur_tap(const unsigned char *src, int64_t at, int64_t stride, int pos,
                              int len, int r, int64_t plane_left, const float *kernel) {
    int first = 0, last = 2 * r;
    if (pos < r)
        first = r - pos;
    else if (pos >= len - r)
        last = len + r - pos - 1;
    const int64_t room = plane_left / stride; // taps past pos that stay in the plane
    if (last - r > room) last = static_cast<int>(r + room);
    float sum = 0.0f, weight = 0.0f;
    for (int i = first; i <= last; ++i) {
        sum += kernel[i] * static_cast<float>(src[at + (i - r) * stride]);
        weight += kernel[i];
    }
    if (!(weight > 0.0f)) return 0;
    const int v = static_cast<int>(sum / weight);
    return static_cast<unsigned char>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

} // namespace

extern "C" {

LV_API int lv_downtower(int radius, int w, int h, int step, int bits, const unsigned char *src,
                        unsigned char *dst) {
    if (bits != 8) return LV_ERR_IO;
    if (radius < 1 || w < 1 || h < 1 || step != 1 || !src || !dst) return LV_ERR_ARG;
    const int64_t n = static_cast<int64_t>(w) * h;
    CBuf<float> kernel(
        static_cast<float *>(std::calloc(2 * static_cast<size_t>(radius) + 1, sizeof(float))));
    CBuf<unsigned char> buf(static_cast<unsigned char *>(std::calloc(n, 1)));
    if (!kernel || !buf) return LV_ERR_NOMEM;
    for (int i = 0; i <= 2 * radius; ++i) {
        const double t = static_cast<double>(i - radius) / radius;
        kernel[i] = static_cast<float>(std::exp(-2.0 * t * t));
    }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int64_t at = static_cast<int64_t>(y) * w + x;
            buf[at] = blur_tap(src, at, 1, x, w, radius, n - 1 - at, kernel.get());
        }
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int64_t at = static_cast<int64_t>(y) * w + x;
            dst[at] = blur_tap(buf.get(), at, w, y, h, radius, n - 1 - at, kernel.get());
        }
    return h;
}

} // extern "C"
