// Depth changes and band loads: 16-bit samples to their high bytes, and byte-exact rows.
#include <cstring>

#include "geometry/pixel_samples.h"
#include "lumivantor/geometry.h"

extern "C" {

LV_API int from16to8copy(int unused0, int rows, int unused1, int rowLength, const void *src,
                         void *dst) {
    (void)unused0;
    (void)unused1;
    // One stream over the whole buffer: the write index never passes the read index, so
    // source and destination may be the same buffer.
    const long n = static_cast<long>(rows) * ((rowLength + 1) / 2);
    const auto *s = static_cast<const uint8_t *>(src);
    auto *d = static_cast<uint8_t *>(dst);
    for (long i = 0; i < n; ++i) {
        uint16_t v;
        std::memcpy(&v, s + 2 * i, 2);
        d[i] = lv::high_byte(v);
    }
    return rows;
}

LV_API int from16to8(int unused0, int rows, int unused1, int rowLength, void *buffer) {
    return from16to8copy(unused0, rows, unused1, rowLength, buffer, buffer);
}

LV_API int load16to8(int band, int ncomp, int width, int rows, int srcPitch, const uint16_t *src,
                     uint8_t *dst) {
    const long per_row = static_cast<long>(ncomp) * width;
    uint8_t *out = dst + static_cast<long>(band) * rows * per_row;
    for (int y = 0; y < rows; ++y) {
        const uint16_t *s = src + static_cast<long>(y) * srcPitch;
        for (long i = 0; i < per_row; ++i)
            out[y * per_row + i] = lv::high_byte(s[i]);
    }
    return rows;
}

LV_API int loadrows(int band, int width, int rows, int srcPitch, int ncomp, int bits,
                    const void *src, void *dst) {
    const long row_bytes = static_cast<long>(bits / 8) * ncomp * width;
    const long pitch = static_cast<long>(srcPitch) * (bits / 8);
    auto *out = static_cast<uint8_t *>(dst) + static_cast<long>(band) * rows * row_bytes;
    for (int y = 0; y < rows; ++y)
        std::memcpy(out + y * row_bytes, static_cast<const uint8_t *>(src) + y * pitch, row_bytes);
    return rows;
}

} // extern "C"
