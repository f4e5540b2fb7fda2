// The plain average of a bracket, finished by the colour adjustment pass.
#include <cstdint>

#include "lumivantor/colour.h"

namespace {

// Sums each colour sample over the n photographs (packed rows of the input depth),
// divides by n and converts to the output depth.
template <class In, class Out>
void average(int n, const DimParam &dim, const In *images, Out *out) {
    const size_t spp = static_cast<size_t>(dim.samplesPerPixel);
    const size_t plane = static_cast<size_t>(dim.width) * dim.height * spp;
    const size_t src[3] = {0, (spp - 1) / 2, spp - 1};
    const size_t dst[3] = {dim.swapRedBlue ? spp - 1 : 0, (spp - 1) / 2,
                           dim.swapRedBlue ? 0 : spp - 1};
    const int in_bits = sizeof(In) * 8, out_bits = sizeof(Out) * 8;
    const int64_t cap = out_bits == 8 ? 255 : 65535;
    for (int y = 0; y < dim.height; ++y) {
        Out *row = out + static_cast<size_t>(dim.strideOut) * y;
        for (int x = 0; x < dim.width; ++x) {
            const size_t at = (static_cast<size_t>(y) * dim.width + x) * spp;
            for (int c = 0; c < 3; ++c) {
                int64_t sum = 0;
                for (int k = 0; k < n; ++k)
                    sum += images[plane * k + at + src[c]];
                int64_t v = sum / n;
                if (in_bits < out_bits) v <<= 8;
                if (in_bits > out_bits) v >>= 8;
                row[spp * x + dst[c]] = static_cast<Out>(v < cap ? v : cap);
            }
        }
    }
}

} // namespace

extern "C" int moyenne(int numThreads, float *p, unsigned char *mask, int n, DimParam dim,
                       const void *images, void *out) {
    if (n < 1) return LV_ERR_ARG;
    const bool in8 = dim.bpsIn == 8, out8 = dim.bpsOut == 8;
    if (in8 && out8)
        average(n, dim, static_cast<const uint8_t *>(images), static_cast<uint8_t *>(out));
    else if (in8)
        average(n, dim, static_cast<const uint8_t *>(images), static_cast<uint16_t *>(out));
    else if (out8)
        average(n, dim, static_cast<const uint16_t *>(images), static_cast<uint8_t *>(out));
    else
        average(n, dim, static_cast<const uint16_t *>(images), static_cast<uint16_t *>(out));
    lv_adjust_colors(numThreads, 0, 14, p, mask, static_cast<unsigned char *>(out), dim);
    return dim.height;
}
