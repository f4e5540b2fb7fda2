// Selection helpers for ghost removal: joining bit masks, counting well-exposed pixels of
// each photograph inside a region, a range-limited smoothing of luminance and a mask of
// strong gradients. All run on the caller's thread.
#include <lumivantor/ghost.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

extern "C" {

LV_API int mergeBlocksWithOr(int count, const uint8_t *src, uint8_t *dst) {
    if (count < 1) return 0;
    for (int i = 0; i < count; ++i)
        dst[i] |= src[i];
    return count;
}

LV_API int getWellExposedCount(int rowBytes, int height, int n, int low, int high, int64_t *counts,
                               const uint8_t *images, float left, float top, float right,
                               float bottom) {
    if (n < 1) return 0;
    // Columns stay inside a row and rows inside an image, so a region that runs past the
    // picture counts what lies inside it.
    const int x0 = std::max(static_cast<int>(left), 0);
    const int x1 = std::min(static_cast<int>(right), rowBytes / 3);
    const int y0 = std::max(static_cast<int>(top), 0);
    const int y1 = std::min(static_cast<int>(bottom), height);
    const long long bracket = static_cast<long long>(n) * height * rowBytes;
    for (int i = 0; i < n; ++i) {
        int64_t count = 0;
        for (int y = y0; y < y1; ++y) {
            // The row's address is formed in single precision, so in large brackets it lands
            // on a multiple of a few bytes; it is kept that way and held inside the bracket.
            const float at = 3.0f * left + static_cast<float>(
                                               (static_cast<long long>(i) * height + y) * rowBytes);
            long long base = static_cast<long long>(at) + 3LL * (x0 - static_cast<int>(left));
            if (x1 <= x0) continue;
            base = std::clamp(base, 0LL, bracket - 3LL * (x1 - x0));
            const uint8_t *p = images + base;
            for (int x = x0; x < x1; ++x, p += 3) {
                const int l = 54 * p[0] + 183 * p[1] + 19 * p[2];
                if (l > low && l < high) ++count;
            }
        }
        counts[i] = count;
    }
    return n;
}

LV_API int smooth_image(int width, int height, int samples, int stride, const uint8_t *src,
                        uint8_t *dst) {
    constexpr int kRadius = 20;
    if (width <= 2 * kRadius || height <= 2 * kRadius) return -5;
    std::unique_ptr<uint8_t[]> lum(new (std::nothrow) uint8_t[static_cast<size_t>(width) * height]);
    if (!lum) return -4;
    const size_t pitch =
        std::max(static_cast<size_t>(samples) * width, static_cast<size_t>(stride));
    const int g = (samples - 1) / 2, b = samples - 1;
    for (int y = 0; y < height; ++y) {
        const uint8_t *row = src + y * pitch;
        uint8_t *l = lum.get() + static_cast<size_t>(y) * width;
        for (int x = 0; x < width; ++x) {
            const uint8_t *px = row + static_cast<size_t>(x) * samples;
            l[x] = static_cast<uint8_t>(0.2 * px[0] + 0.65 * px[g] + 0.15 * px[b]);
        }
    }

    // One column at a time, a 256-bin histogram of the 41 x 41 window slides down the rows.
    // The window's newest row stops short of the last image row, which never enters it.
    auto add_row = [&](int *hist, int x, int y, int sign) {
        const uint8_t *l = lum.get() + static_cast<size_t>(y) * width;
        for (int c = std::max(x - kRadius, 0); c <= std::min(x + kRadius, width - 1); ++c)
            hist[l[c]] += sign;
    };
    for (int x = 0; x < width; ++x) {
        int hist[256] = {};
        for (int y = 0; y <= kRadius; ++y)
            add_row(hist, x, y, 1);
        for (int y = 0; y < height; ++y) {
            if (y > 0 && y < height - kRadius - 1) add_row(hist, x, y + kRadius, 1);
            if (y > kRadius) add_row(hist, x, y - kRadius - 1, -1);
            const int l = lum[static_cast<size_t>(y) * width + x];
            const int a = std::max(l, 30) - 30, top = std::min(l, 226) + 30;
            long long sum = 0, count = 0;
            for (int v = a; v < top; ++v) {
                sum += static_cast<long long>(v) * hist[v];
                count += hist[v];
            }
            if (count) dst[static_cast<size_t>(y) * width + x] = static_cast<uint8_t>(sum / count);
        }
    }
    return height;
}

LV_API int thresholded_gradient_mask(int threshold, int width, int height, const uint8_t *src,
                                     uint8_t *mask) {
    if (height < 1) return 0;
    auto set_bit = [mask](size_t i) { mask[i >> 3] |= static_cast<uint8_t>(0x80u >> (i & 7)); };
    for (int y = 1; y < height; ++y) {
        const uint8_t *row = src + static_cast<size_t>(y) * width, *above = row - width;
        for (int x = 1; x <= width - 2; ++x) {
            const int p = row[x];
            const int sum = std::abs(p - row[x - 1]) + std::abs(p - above[x - 1]) +
                            std::abs(p - above[x]) + std::abs(p - above[x + 1]);
            if (sum > 4 * threshold) set_bit(static_cast<size_t>(y) * width + x);
        }
    }
    // The first and last rows are set a whole byte at a time from the byte their first
    // pixel lies in, so up to seven pixels at a ragged right end keep their bits.
    const size_t last = static_cast<size_t>(height - 1) * width / 8;
    for (int i = 0; i < width / 8; ++i) {
        mask[i] = 0xFF;
        mask[last + i] = 0xFF;
    }
    for (int y = 0; y < height; ++y) {
        set_bit(static_cast<size_t>(y) * width);
        set_bit(static_cast<size_t>(y) * width + width - 1);
    }
    return height;
}

} // extern "C"
