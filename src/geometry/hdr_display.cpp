// The HDR viewer: a small square around the pointer, brightened from what lies under it
// (hdr_display), the same for a chosen rectangle (adjustBrightnessForCrop), and one pixel's
// values for a readout or a histogram marker (GetHdrPixelsValuesFor). All read planar RGBE.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "lumivantor/geometry.h"

namespace {

// One pixel of a planar RGBE row: mantissas and exponent.
struct Rgbe {
    int r, g, b, e;
};

inline Rgbe pixel_at(const uint8_t *rgbe, long width, long x, long y) {
    const uint8_t *row = rgbe + y * 4 * width;
    return {row[x], row[width + x], row[2 * width + x], row[3 * width + x]};
}

// The darkest, brightest and summed value over a rectangle.
struct Spread {
    double lo = 9999999.0, hi = 0, sum = 0;
    long count = 0;
    void add(double v) {
        lo = std::min(lo, v);
        hi = std::max(hi, v);
        sum += v;
        ++count;
    }
};

// Visits the middle half of a w x h rectangle at (left, top), both directions.
template <class F> void middle_half(long left, long top, long w, long h, F f) {
    for (long y = top + h / 4; y < top + h - h / 4; ++y)
        for (long x = left + w / 4; x < left + w - w / 4; ++x)
            f(x, y);
}

// Where a view of `len` around `at` starts so that it stays inside `size` (and at 0 when the
// view is larger than the image).
inline long view_start(long at, long len, long size) {
    long start = at - len / 2;
    if (start < 1) start = 0;
    if (start + len > size) start = std::max(size - len, 0L);
    return start;
}

} // namespace

extern "C" LV_API int hdr_display(int width, int height, int bits, int x, int y, int viewWidth,
                                  int viewHeight, float *table, const uint8_t *rgbe,
                                  uint8_t *view) {
    if (bits != 32) return -1;
    if (width < 1 || height < 1) return 0;
    const long vw = std::max(viewWidth, 0), vh = viewHeight;
    const long left = view_start(x, vw, width), top = view_start(y, std::max(vh, 0L), height);
    const auto inside = [&](long px, long py) { return px < width && py < height; };

    // Weighted luminance of the middle half sets the stretch and the gain.
    Spread spread;
    middle_half(left, top, vw, std::max(vh, 0L), [&](long px, long py) {
        if (!inside(px, py)) return;
        const Rgbe p = pixel_at(rgbe, width, px, py);
        spread.add(static_cast<float>((54 * p.r + 183 * p.g + 19 * p.b) * table[p.e]));
    });
    const long count = std::max(spread.count, 1L);
    const double s = spread.hi > spread.lo ? 255.0 / (spread.hi - spread.lo) : 1.0;
    const double mean = spread.sum * s / count;
    // A dark middle has its mean drawn towards 68, the more strongly the wider its contrast.
    const float c =
        spread.hi > 0 ? static_cast<float>(0.333 - 0.333 * spread.lo / spread.hi) : 1.0f;
    const double p = mean > 0 ? std::max(((mean - 68) * c + 68) * s / mean, 0.0) : 1.0;
    const double gain = std::pow(p, 0.6) * 255;

    // The probe pixel at the middle half's left column and its end row.
    const long probe_x = std::min<long>(left + vw / 4, width - 1);
    const long probe_y = std::min<long>(top + std::max(vh, 0L) - std::max(vh, 0L) / 4, height - 1);
    const Rgbe q = pixel_at(rgbe, width, probe_x, probe_y);
    float probe[4] = {0, 0, 0, 0};
    if (q.e != 0) {
        const double scale = table[q.e] * 255.0;
        probe[1] = static_cast<float>(q.r * scale);
        probe[2] = static_cast<float>(q.g * scale);
        probe[3] = static_cast<float>(q.b * scale);
        probe[0] = static_cast<float>(0.21 * probe[1] + 0.71 * probe[2] + 0.07 * probe[3]);
    }
    const int first_row = static_cast<int>(top + std::max(vh, 0L) / 4);
    if (vh >= 1) {
        uint8_t *out = view;
        for (long py = top; py < top + vh; ++py)
            for (long px = left; px < left + vw; ++px, out += 3) {
                const Rgbe pix = inside(px, py) ? pixel_at(rgbe, width, px, py) : Rgbe{0, 0, 0, 0};
                const int bgr[3] = {pix.b, pix.g, pix.r};
                for (int k = 0; k < 3; ++k) {
                    if (pix.e == 0) {
                        out[k] = 0;
                        continue;
                    }
                    const double lin = std::max(double(bgr[k] * table[pix.e]), 0.0);
                    out[k] = static_cast<uint8_t>(
                        std::max(std::min(std::pow(lin, 0.6) * gain, 255.0), 0.0));
                }
            }
    }
    // The exponent bytes of real pixels never use the first four entries: they carry the
    // probe back to the host.
    std::copy(probe, probe + 4, table);
    return first_row;
}

extern "C" LV_API int adjustBrightnessForCrop(int left, int top, int cropWidth, int cropHeight,
                                              int width, int /*unused*/, int swapRedBlue,
                                              const float *table, const uint8_t *rgbe,
                                              uint8_t *view) {
    if (cropHeight < 1 || cropWidth < 1) return 0;
    Spread spread;
    middle_half(left, top, cropWidth, cropHeight, [&](long px, long py) {
        const Rgbe p = pixel_at(rgbe, width, px, py);
        spread.add((0.3 * p.r + 0.6 * p.g + 0.1 * p.b) * 255 * table[p.e]);
    });
    const double s = spread.hi > spread.lo ? 255.0 / (spread.hi - spread.lo) : 1.0;
    const double mean = spread.count > 0 ? spread.sum * s / spread.count : 1.0;
    const double c = spread.hi > 0 ? 0.333 - 0.333 * spread.lo / spread.hi : 1.0;
    const double p = (mean > 0 ? (c * (mean - 68) + 68) / mean : 1.0) * s;
    const double gain = std::pow(p, 0.6000000238418579) * 255;
    uint8_t *out = view;
    for (long py = top; py < long(top) + cropHeight; ++py)
        for (long px = left; px < long(left) + cropWidth; ++px, out += 3) {
            const Rgbe pix = pixel_at(rgbe, width, px, py);
            const int order[3] = {swapRedBlue ? pix.b : pix.r, pix.g, swapRedBlue ? pix.r : pix.b};
            for (int k = 0; k < 3; ++k)
                out[k] =
                    pix.e == 0
                        ? 0
                        : static_cast<uint8_t>(std::max(
                              std::min(std::pow(order[k] * table[pix.e], 0.6) * gain, 255.0), 0.0));
        }
    return static_cast<int>(out - view) - 3;
}

extern "C" LV_API int GetHdrPixelsValuesFor(int x, int y, int width, int /*unused*/,
                                            float *luminance, float *normL, float *normR,
                                            float *normG, float *normB, const uint8_t *rgbe,
                                            float logStart, float logRange) {
    const Rgbe p = pixel_at(rgbe, width, x, y);
    const float f = std::ldexp(1.0f, p.e - 128); // 256 times the RGBE scale, as merge statistics
    const float v[4] = {0, p.r * f, p.g * f, p.b * f};
    const float lum = (54 * v[1] + 183 * v[2] + 19 * v[3]) / 256;
    *luminance = lum;
    if (!(logRange > 0)) return 0;
    float *outs[4] = {normL, normR, normG, normB};
    const float vals[4] = {lum, v[1], v[2], v[3]};
    for (int k = 0; k < 4; ++k) {
        const float t = (std::log2(vals[k]) - logStart) / logRange;
        *outs[k] = t > 0 ? std::min(t, 1.0f) : 0.0f; // log2 of black is -inf: the axis start
    }
    return 0;
}
