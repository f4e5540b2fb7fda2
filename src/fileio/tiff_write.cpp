// Float output: planar RGBE expanded to 32-bit or 16-bit float samples, and the float TIFF
// writer with its fixed one-strip layout.
#include <algorithm>
#include <bit>
#include <cmath>

#include "fileio/float_files.h"

// The floats are written from memory as they lie, which is the file's little-endian order.
static_assert(std::endian::native == std::endian::little,
              "float TIFF output needs a little-endian host");

namespace {

// How RGBE samples become linear floats: mantissa * 2^(E - 136), optionally stretched so
// that the darkest level maps to 0 and the 99.5th percentile to `factor`.
struct Expansion {
    float table[256];
    bool stretch = false;
    float lo = 0.0f, scale = 1.0f;

    float operator()(uint8_t mantissa, uint8_t e) const {
        const float v = mantissa * table[e];
        if (!stretch) return v;
        const float s = (v - lo) * scale;
        return s > 0.0f ? s : 0.0f;
    }
};

// Fills the expansion; -4 when the statistics can't get their memory.
int prepare(Expansion &x, int width, int height, int normalise, const unsigned char *rgbe,
            float factor) {
    exp_lut_old(x.table);
    if (!normalise) return 0;
    float stats[6] = {0, 0, 0, 0, 0, 0};
    if (logMinMaxMoy(width, height, x.table, const_cast<unsigned char *>(rgbe), stats) < 0)
        return -4;
    const float lo = std::exp(stats[0]), hi = std::exp(stats[4]);
    if (hi - lo > 0.0f) {
        x.stretch = true;
        x.lo = lo;
        x.scale = factor / (hi - lo);
    }
    return 0;
}

// Expands one planar row into 3 * width samples of type T.
template <class T, class Put>
void expand_row(const Expansion &x, const uint8_t *row, int width, T *out, Put put) {
    const uint8_t *r = row, *g = row + width, *b = row + 2 * width, *e = row + 3 * width;
    for (int i = 0; i < width; ++i) {
        if (e[i] == 0) {
            out[3 * i] = out[3 * i + 1] = out[3 * i + 2] = put(0.0f);
            continue;
        }
        out[3 * i] = put(x(r[i], e[i]));
        out[3 * i + 1] = put(x(g[i], e[i]));
        out[3 * i + 2] = put(x(b[i], e[i]));
    }
}

void put_le16(uint8_t *p, unsigned v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}
void put_le32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// Directory of the written file: eleven entries, no next directory, then the bits per
// sample and sample format fields. Short values sit zero-padded in their 32-bit words.
void build_directory(uint8_t *d, uint32_t width, uint32_t height, uint32_t data) {
    struct Entry {
        unsigned tag, type;
        uint32_t count, value;
    };
    const Entry entries[11] = {{256, 3, 1, width}, {257, 3, 1, height},    {258, 3, 3, data + 146},
                               {259, 3, 1, 1},     {262, 3, 1, 2},         {273, 4, 1, 8},
                               {277, 3, 1, 3},     {278, 3, 1, height},    {279, 4, 1, data},
                               {284, 3, 1, 1},     {339, 3, 3, data + 152}};
    std::memset(d, 0, 150);
    put_le16(d, 11);
    for (int i = 0; i < 11; ++i) {
        uint8_t *p = d + 2 + 12 * i;
        put_le16(p, entries[i].tag);
        put_le16(p + 2, entries[i].type);
        put_le32(p + 4, entries[i].count);
        put_le32(p + 8, entries[i].value);
    }
    for (int i = 0; i < 3; ++i) {
        put_le16(d + 138 + 2 * i, 32);
        put_le16(d + 144 + 2 * i, 3);
    }
}

} // namespace

extern "C" {

int rgbe2fp(int width, int height, int stride, int normalise, int half, const unsigned char *rgbe,
            void *out, float factor) {
    if (height < 1) return 0;
    if (width < 1) return height;
    Expansion x;
    if (prepare(x, width, height, normalise, rgbe, factor) < 0) return -4;
    for (int y = 0; y < height; ++y) {
        const uint8_t *row = rgbe + static_cast<size_t>(y) * 4 * width;
        const size_t at = static_cast<size_t>(y) * stride;
        if (half)
            expand_row(x, row, width, static_cast<uint16_t *>(out) + at,
                       [](float v) { return floatToHalf(v); });
        else
            expand_row(x, row, width, static_cast<float *>(out) + at, [](float v) { return v; });
    }
    return height;
}

int fp_save(const char *path, int width, int height, int normalise, const unsigned char *rgbe) {
    // Width and height travel in 16-bit fields, and every offset in 32 bits.
    if (width < 1 || height < 1 || width > 65535 || height > 65535) return -2;
    const uint64_t data = 12ull * width * height;
    if (data + 158 > 0xFFFFFFFFull) return -2;
    Expansion x;
    if (prepare(x, width, height, normalise, rgbe, 1.0f) < 0) return -4;

    lv::FilePtr f = lv::open_file(path, "wb");
    if (!f) return -2;
    uint8_t head[8] = {'I', 'I', 42, 0};
    put_le32(head + 4, static_cast<uint32_t>(data + 8));
    if (fwrite(head, 1, 8, f.get()) != 8) return -2;

    // Pixels go out in bands of rows, so memory stays small whatever the image size.
    const int band = static_cast<int>(std::max<int64_t>(1, (4 << 20) / (12 * int64_t(width))));
    auto buf = lv::alloc_array<float>(static_cast<size_t>(band) * 3 * width);
    if (!buf) return -4;
    for (int y0 = 0; y0 < height; y0 += band) {
        const int rows = std::min(band, height - y0);
        for (int y = 0; y < rows; ++y)
            expand_row(x, rgbe + static_cast<size_t>(y0 + y) * 4 * width, width,
                       buf.get() + static_cast<size_t>(y) * 3 * width, [](float v) { return v; });
        const size_t n = static_cast<size_t>(rows) * 3 * width;
        if (fwrite(buf.get(), sizeof(float), n, f.get()) != n) return -2;
    }
    uint8_t dir[150];
    build_directory(dir, static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                    static_cast<uint32_t>(data));
    if (fwrite(dir, 1, sizeof dir, f.get()) != sizeof dir) return -2;
    if (fclose(f.release()) != 0) return -2;
    return height;
}

} // extern "C"
