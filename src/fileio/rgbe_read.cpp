// Radiance readers: the whole image into the caller's planar buffer, a nearest-sampled
// preview, and the decoding of one pixel to floats.
#include <algorithm>
#include <cstring>
#include <sys/types.h>

#include "fileio/rgbe_internal.h"

namespace lv {

int rgbe_peek_rle(FILE *f) {
    const off_t at = ftello(f);
    uint8_t head[4];
    if (fread(head, 1, 4, f) != 4) return -1;
    if (fseeko(f, at, SEEK_SET) != 0) return -1;
    return head[0] == 2 && head[1] == 2 && !(head[2] & 0x80) ? 1 : 0;
}

} // namespace lv

namespace {

// Walks the header and reads the dimensions; false when the file ends inside the header.
bool read_dimensions(FILE *f, int *width, int *height) {
    char line[lv::kHeaderLine];
    if (lv::walk_header(f, line, [](const char *) {}) < 0) return false;
    lv::scan_resolution(line, width, height);
    return true;
}

// Spreads width interleaved quads R, G, B, E into a planar row.
void spread_quads(const uint8_t *quads, int width, uint8_t *row) {
    uint8_t *r = row, *g = row + width, *b = row + 2 * width, *e = row + 3 * width;
    for (int x = 0; x < width; ++x) {
        r[x] = quads[4 * x];
        g[x] = quads[4 * x + 1];
        b[x] = quads[4 * x + 2];
        e[x] = quads[4 * x + 3];
    }
}

} // namespace

extern "C" LV_API int lv_io_read_rgbe(int width, int height, const char *path,
                                      unsigned char *pixels) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) {
        fputs("lv_io_read_rgbe - could not open input Radiance file\n", stderr);
        return -1;
    }
    int fileWidth = 0, fileHeight = 0;
    if (!read_dimensions(f.get(), &fileWidth, &fileHeight)) return -1;
    if (fileWidth != width || fileHeight != height) {
        fprintf(
            stderr,
            "lv_io_read_rgbe - dim found in Radiance file is %d x %d  while should be %d x %d\n",
            fileWidth, fileHeight, width, height);
        return -200;
    }
    const int rle = lv::rgbe_peek_rle(f.get());
    if (rle < 0) return -1;
    if (width < 1 || height < 1) return 0; // nothing to read into
    const size_t rowBytes = 4 * static_cast<size_t>(width);
    lv::ByteSource src(f.get());

    if (!rle) {
        auto quads = lv::alloc_array<uint8_t>(rowBytes);
        if (!quads) return -4;
        for (int y = 0; y < height; ++y) {
            if (src.read(quads.get(), rowBytes) != rowBytes) return -1;
            spread_quads(quads.get(), width, pixels + rowBytes * y);
        }
        return height;
    }
    for (int y = 0; y < height; ++y) {
        uint8_t *row = pixels + rowBytes * y;
        int rc = lv::rgbe_scanline_head(src, width);
        if (rc < 0) return rc;
        rc = lv::rgbe_decode_planes(
            src, width,
            [row, width](int plane, int x, const uint8_t *bytes, int count) {
                memcpy(row + plane * width + x, bytes, count);
            },
            [row, width](int plane, int x, uint8_t value, int count) {
                memset(row + plane * width + x, value, count);
            });
        if (rc < 0) return rc;
    }
    return height;
}

extern "C" LV_API int decomp2(const char *path, const int32_t *dims, unsigned char *pixels) {
    return lv_io_read_rgbe(dims[0], dims[1], path, pixels);
}

extern "C" LV_API int decomp_rle(const char *path, const int32_t *dims, unsigned char *pixels) {
    return lv_io_read_rgbe(dims[0], dims[1], path, pixels);
}

extern "C" LV_API int lv_io_read_preview_rgbe(int width, int height, int previewWidth,
                                              int previewHeight, const char *path,
                                              unsigned char *pixels) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) return -1;
    int fileWidth = 0, fileHeight = 0;
    if (!read_dimensions(f.get(), &fileWidth, &fileHeight)) return -1;
    if (fileWidth != width || fileHeight != height) return -200;
    if (previewWidth < 1 || previewHeight < 1) return -1;
    const int rle = lv::rgbe_peek_rle(f.get());
    if (rle < 0) return -1;
    if (width < 1 || height < 1) return 0;

    const float xs = static_cast<float>(width) / static_cast<float>(previewWidth);
    const float ys = static_cast<float>(height) / static_cast<float>(previewHeight);
    const size_t outRow = 4 * static_cast<size_t>(previewWidth);
    lv::ByteSource src(f.get());
    // Flat rows stream through a fixed chunk, so a huge width in the file never sizes an
    // allocation: the sampled columns rise with the preview column and are picked on the way.
    constexpr size_t kChunkPixels = 16384;
    auto quads = lv::alloc_array<uint8_t>(rle ? 1 : 4 * kChunkPixels);
    if (!quads) return -4;

    int next = 0, k = 0;
    for (int y = 0; y < height; ++y) {
        const bool keep = y == next;
        uint8_t *out = pixels + outRow * k;
        if (!rle) {
            int i = 0; // next preview column
            for (size_t first = 0; first < static_cast<size_t>(width); first += kChunkPixels) {
                const size_t n = std::min(kChunkPixels, static_cast<size_t>(width) - first);
                if (src.read(quads.get(), 4 * n) != 4 * n) return -1;
                for (; keep && i < previewWidth; ++i) {
                    int col = static_cast<int>(xs * static_cast<float>(i));
                    if (col > width - 1) col = width - 1;
                    if (static_cast<size_t>(col) >= first + n) break;
                    for (int p = 0; p < 4; ++p)
                        out[p * previewWidth + i] = quads[4 * (col - first) + p];
                }
            }
        } else {
            // A plane keeps the byte at a column that equals trunc(xs * j), j being the bytes
            // kept so far, and never more bytes than the preview is wide.
            int kept[4] = {0, 0, 0, 0};
            auto put = [&](int plane, int x, uint8_t v) {
                int &j = kept[plane];
                if (j < previewWidth && x == static_cast<int>(xs * static_cast<float>(j)))
                    out[plane * previewWidth + j++] = v;
            };
            int rc = lv::rgbe_scanline_head(src, width);
            if (rc < 0) return rc;
            if (keep)
                rc = lv::rgbe_decode_planes(
                    src, width,
                    [&](int plane, int x, const uint8_t *bytes, int count) {
                        for (int i = 0; i < count; ++i)
                            put(plane, x + i, bytes[i]);
                    },
                    [&](int plane, int x, uint8_t value, int count) {
                        for (int i = 0; i < count; ++i)
                            put(plane, x + i, value);
                    });
            else
                rc = lv::rgbe_decode_planes(
                    src, width, [](int, int, const uint8_t *, int) {},
                    [](int, int, uint8_t, int) {});
            if (rc < 0) return rc;
        }
        if (keep) {
            ++k;
            next = static_cast<int>(ys * static_cast<float>(k));
            if (k == previewHeight) return height + 1; // the preview is full
        }
    }
    return height;
}

extern "C" LV_API int rgbe2float(const unsigned char *row, const float *table, int gOffset,
                                 int bOffset, int eOffset, int x, float *out) {
    const int e = row[eOffset + x];
    if (e == 0) {
        out[0] = out[1] = out[2] = 0.0f;
        return 0;
    }
    const float scale = table[e];
    out[0] = static_cast<float>(row[x]) * scale;
    out[1] = static_cast<float>(row[gOffset + x]) * scale;
    out[2] = static_cast<float>(row[bOffset + x]) * scale;
    return e;
}
