// Quarter turns of interleaved and RGBE images, and the red-blue exchange.
#include <cstring>

#include "geometry/pixel_samples.h"
#include "lumivantor/geometry.h"

namespace {

// Where source pixel (x, y) of a width x height image lands in the turned image, whose
// rows are height pixels long: 90 turns clockwise, 270 counter-clockwise, -90 transposes.
// Any other angle never advances the read, so each output row repeats one pixel of the
// first source row.
struct Turn {
    int angle, width, height;
    void source_of(int row, int col, int *sx, int *sy) const {
        switch (angle) {
        case 90:
            *sx = row, *sy = height - 1 - col;
            break;
        case 270:
            *sx = width - 1 - row, *sy = col;
            break;
        case -90:
            *sx = row, *sy = col;
            break;
        default:
            *sx = row, *sy = 0;
            break;
        }
    }
};

template <class S>
void turn_pixels(Turn t, long srcPitch, long dstPitch, int ncomp, const S *src, S *dst) {
    const lv::SampleIndex k = lv::samples_of(ncomp);
    for (int row = 0; row < t.width; ++row)
        for (int col = 0; col < t.height; ++col) {
            int sx, sy;
            t.source_of(row, col, &sx, &sy);
            lv::copy_pixel(src + sy * srcPitch + static_cast<long>(sx) * ncomp,
                           dst + row * dstPitch + static_cast<long>(col) * ncomp, k,
                           [](S v) { return v; });
        }
}

// RGBE rows keep their run layout at the new width (the old height).
void turn_rgbe(Turn t, const uint8_t *src, uint8_t *dst) {
    for (int row = 0; row < t.width; ++row)
        for (int col = 0; col < t.height; ++col) {
            int sx, sy;
            t.source_of(row, col, &sx, &sy);
            for (int run = 0; run < 4; ++run)
                dst[4L * t.height * row + static_cast<long>(run) * t.height + col] =
                    src[4L * t.width * sy + static_cast<long>(run) * t.width + sx];
        }
}

int turn(Turn t, int bits, long srcPitch, long dstPitch, int ncomp, const void *src, void *dst) {
    if (bits == 8)
        turn_pixels(t, srcPitch, dstPitch, ncomp, static_cast<const uint8_t *>(src),
                    static_cast<uint8_t *>(dst));
    else if (bits == 16)
        turn_pixels(t, srcPitch, dstPitch, ncomp, static_cast<const uint16_t *>(src),
                    static_cast<uint16_t *>(dst));
    else if (bits == 32)
        turn_rgbe(t, static_cast<const uint8_t *>(src), static_cast<uint8_t *>(dst));
    else
        return 0;
    return t.width;
}

} // namespace

extern "C" {

LV_API int rot_ldr(int angle, int bits, int width, int height, int srcPitch, int ncomp,
                   int dstPitch, const void *src, void *dst) {
    if (angle == -90) angle = 0; // only lv_rotate knows the transpose
    if (bits != 8 && bits != 16) return 0;
    return turn({angle, width, height}, bits, srcPitch, dstPitch, ncomp, src, dst);
}

LV_API int rot_hdr(int angle, int width, int height, const uint8_t *src, uint8_t *dst) {
    if (angle == -90) angle = 0;
    return turn({angle, width, height}, 32, 0, 0, 4, src, dst);
}

LV_API int lv_rotate(int angle, int width, int height, int ncomp, int bits, const void *src,
                     void *dst) {
    return turn({angle, width, height}, bits, static_cast<long>(width) * ncomp,
                static_cast<long>(height) * ncomp, ncomp, src, dst);
}

LV_API int bgr2rgb(int width, int height, int pitch, int ncomp, int bits, void *buffer) {
    auto swap_rows = [&](auto *b) {
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                auto *px = b + static_cast<long>(y) * pitch + static_cast<long>(x) * ncomp;
                const auto t = px[0];
                px[0] = px[2];
                px[2] = t;
            }
    };
    if (bits == 8)
        swap_rows(static_cast<uint8_t *>(buffer));
    else if (bits == 16)
        swap_rows(static_cast<uint16_t *>(buffer));
    else
        return 0;
    return height;
}

} // extern "C"
