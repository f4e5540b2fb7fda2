// Float TIFF input: the directory inspector, the pixel reader into planar RGBE, and the
// single-value readers for 32-bit and 16-bit floats.
#include <cstddef>
#include <memory>

#include "fileio/float_files.h"

static_assert(sizeof(ImageFileInfo) == 48, "ImageFileInfo holds twelve 32-bit slots");
static_assert(offsetof(ImageFileInfo, profileLength) == 24 && offsetof(ImageFileInfo, slot11) == 44,
              "ImageFileInfo slot order");

namespace {

// Byte-order mark of the file last opened by fp2rgbe.
int order = 0;

// A directory chain longer than this, or one that loops, is not a picture.
constexpr int kMaxDirectories = 256;

void keep_first(int32_t &slot, uint32_t value) {
    if (slot == 0) slot = static_cast<int32_t>(value);
}

// Treats one directory entry whose value (or offset) is `value`, with the file positioned at
// that value taken as an offset.
void treat_tag(FILE *f, ImageFileInfo *info, unsigned tag, unsigned type, uint32_t count,
               uint32_t value) {
    uint8_t at[8];
    switch (tag) {
    case 256:
        keep_first(info->width, value);
        break;
    case 257:
        keep_first(info->height, value);
        break;
    case 258:
        if (count == 1 && (value == 8 || value == 16 || value == 32))
            keep_first(info->slot2, value);
        else if (lv::read_exact(f, at, 2))
            keep_first(info->slot2, lv::load_le16(at));
        break;
    case 259:
        keep_first(info->slot11, value);
        break;
    case 273:
        keep_first(info->slot5, value);
        break;
    case 274:
        keep_first(info->slot10, value);
        break;
    case 277:
        keep_first(info->slot3, value);
        break;
    case 278:
        keep_first(info->slot7, value);
        break;
    case 279:
        keep_first(info->slot8, value);
        break;
    case 282:
        if (lv::read_exact(f, at, 8)) {
            const uint32_t num = lv::load_le32(at), den = lv::load_le32(at + 4);
            if (den >= 1) keep_first(info->slot4, num / den);
        }
        break;
    case 284:
        keep_first(info->slot9, value);
        break;
    case 339:
        if (lv::read_exact(f, at, 2)) keep_first(info->slot10, lv::load_le16(at));
        break;
    case 34675:
        keep_first(info->profileLength, count);
        break;
    default:
        break;
    }
    (void)type;
}

// Reads n values of `bytes` each from a buffered stream; bytes past the end read as 0.
class SampleReader {
  public:
    explicit SampleReader(FILE *f) : f_(f), buf_(lv::alloc_array<uint8_t>(kSize)) {}
    bool ok() const { return buf_ != nullptr; }
    // Copies n bytes into dst; false once the file is exhausted (dst is zero-filled).
    bool take(uint8_t *dst, size_t n) {
        while (n > 0) {
            if (pos_ == len_ && !refill()) {
                std::memset(dst, 0, n);
                return false;
            }
            size_t k = len_ - pos_;
            if (k > n) k = n;
            std::memcpy(dst, buf_.get() + pos_, k);
            pos_ += k;
            dst += k;
            n -= k;
        }
        return true;
    }
    // Passes over n bytes; false once the file is exhausted.
    bool skip(uint64_t n) {
        while (n > 0) {
            if (pos_ == len_ && !refill()) return false;
            uint64_t k = len_ - pos_;
            if (k > n) k = n;
            pos_ += static_cast<size_t>(k);
            n -= k;
        }
        return true;
    }

  private:
    bool refill() {
        len_ = fread(buf_.get(), 1, kSize, f_);
        pos_ = 0;
        return len_ > 0;
    }
    static constexpr size_t kSize = 1 << 20;
    FILE *f_;
    std::unique_ptr<uint8_t[]> buf_;
    size_t pos_ = 0, len_ = 0;
};

} // namespace

extern "C" {

int getTiffInfo(const char *path, ImageFileInfo *info) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f || !info) return -1;
    uint8_t head[8];
    if (!lv::read_exact(f.get(), head, 2)) return -2;
    const int mark = lv::load_le16(head);
    if (mark != lv::kTiffLittle && mark != lv::kTiffBig) return -2;
    // The version is read little-endian whatever the mark, so a big-endian file stops here.
    if (!lv::read_exact(f.get(), head + 2, 6) || lv::load_le16(head + 2) != 42) return -3;

    uint32_t offset = lv::load_le32(head + 4);
    uint32_t seen[kMaxDirectories];
    int walked = 0;
    while (offset != 0 && walked < kMaxDirectories) {
        for (int i = 0; i < walked; ++i)
            if (seen[i] == offset) return mark == lv::kTiffLittle ? 2 : 1;
        seen[walked++] = offset;
        uint8_t count_bytes[2];
        if (fseeko(f.get(), static_cast<off_t>(offset), SEEK_SET) != 0 ||
            !lv::read_exact(f.get(), count_bytes, 2))
            break;
        const unsigned entries = lv::load_le16(count_bytes);
        off_t next_entry = static_cast<off_t>(offset) + 2;
        for (unsigned i = 0; i < entries; ++i, next_entry += 12) {
            uint8_t e[12];
            if (fseeko(f.get(), next_entry, SEEK_SET) != 0 || !lv::read_exact(f.get(), e, 12))
                break;
            const unsigned tag = lv::load_le16(e), type = lv::load_le16(e + 2);
            const uint32_t count = lv::load_le32(e + 4);
            const uint32_t value =
                type == 3 && count <= 2 ? lv::load_le16(e + 8) : lv::load_le32(e + 8);
            // Every value is also taken as an offset; the tags that need a field read it
            // from there.
            if (fseeko(f.get(), static_cast<off_t>(value), SEEK_SET) != 0) continue;
            treat_tag(f.get(), info, tag, type, count, value);
        }
        uint8_t next[4];
        if (fseeko(f.get(), next_entry, SEEK_SET) != 0 || !lv::read_exact(f.get(), next, 4)) break;
        offset = lv::load_le32(next);
    }
    return mark == lv::kTiffLittle ? 2 : 1;
}

float readfloat(int order, FILE *file) {
    uint8_t b[4] = {0, 0, 0, 0};
    if (fread(b, 1, 4, file) != 4) return 0.0f;
    return lv::float_bias128(order == lv::kTiffLittle ? lv::load_le32(b) : lv::load_be32(b));
}

float readHalfFloat(FILE *file) {
    uint16_t h = 0;
    if (fread(&h, 1, 2, file) != 2) return 0.0f;
    return halfToFloat(h);
}

int fp2rgbe(const char *path, const ImageFileInfo *info, float *minOut, float *maxOut,
            float *meanOut, unsigned char *pixels) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f || !info) return -1;
    uint8_t mark[2] = {0, 0};
    (void)lv::read_exact(f.get(), mark, 2);
    order = lv::load_le16(mark);
    (void)fseeko(f.get(), static_cast<off_t>(info->slot5), SEEK_SET);

    const int width = info->width, height = info->height;
    if ((order != lv::kTiffLittle && order != lv::kTiffBig) || height < 1) {
        const uint32_t big = 0x55BA43B7u; // 1e11 * 256
        std::memcpy(minOut, &big, sizeof big);
        *maxOut = 0.0f;
        return 1;
    }

    const int samples = info->slot3;
    const bool alpha = samples == 4 || samples == 2;
    const int colours = alpha ? samples - 1 : samples;
    const bool half = info->slot2 == 16;
    const size_t value_bytes = half ? 2 : 4;
    // Red is colour sample 0, green the middle one, blue the last. Only those are decoded;
    // further colour samples are passed over, and so are four bytes of alpha, even where
    // alpha takes two: such a file reads out of step.
    const int at_g = colours > 0 ? (colours - 1) / 2 : 0, at_b = colours > 0 ? colours - 1 : 0;
    const int wanted = colours < 1 ? 0 : colours < 3 ? colours : 3;
    const int place[3] = {0, at_g, at_b};
    const bool contiguous = colours <= 3;
    const uint64_t tail =
        static_cast<uint64_t>(colours > 0 ? colours - 1 - at_b : 0) * value_bytes + (alpha ? 4 : 0);
    const bool little = order == lv::kTiffLittle;

    float mn = 1e11f, mx = 0.0f;
    double sum = 0.0;
    auto account = [&](uint8_t *row, int x, float r, float g, float b) {
        const float lum = 0.3f * r + 0.6f * g + 0.1f * b;
        if (lum != 0.0f && lum < mn) mn = lum;
        if (lum > mx) mx = lum;
        sum += lum;
        lv::put_rgbe(row, width, x, r, g, b);
    };

    if (!half && colours == 3 && width > 0) {
        // The common file: three 32-bit floats a pixel, perhaps with alpha. Rows are read
        // whole and decoded in place; bytes past the end of the file read as zero.
        const size_t step = alpha ? 16 : 12, row_bytes = step * static_cast<size_t>(width);
        auto raw = lv::alloc_array<uint8_t>(row_bytes);
        if (!raw) return -4;
        bool more = true;
        for (int y = 0; y < height; ++y) {
            const size_t got = more ? fread(raw.get(), 1, row_bytes, f.get()) : 0;
            if (got < row_bytes) {
                std::memset(raw.get() + got, 0, row_bytes - got);
                more = false;
            }
            uint8_t *row = pixels + static_cast<size_t>(y) * 4 * width;
            const uint8_t *p = raw.get();
            for (int x = 0; x < width; ++x, p += step) {
                const uint32_t r = little ? lv::load_le32(p) : lv::load_be32(p);
                const uint32_t g = little ? lv::load_le32(p + 4) : lv::load_be32(p + 4);
                const uint32_t b = little ? lv::load_le32(p + 8) : lv::load_be32(p + 8);
                account(row, x, lv::float_bias128(r), lv::float_bias128(g), lv::float_bias128(b));
            }
        }
    } else {
        SampleReader src(f.get());
        if (!src.ok()) return -4;
        bool more = true;
        for (int y = 0; y < height; ++y) {
            uint8_t *row = pixels + static_cast<size_t>(y) * 4 * (width > 0 ? width : 0);
            for (int x = 0; x < width; ++x) {
                uint8_t raw[12] = {};
                if (more && contiguous) {
                    more = src.take(raw, wanted * value_bytes);
                } else if (more) {
                    int pos = 0;
                    for (int k = 0; k < 3 && more; ++k) {
                        if (k > 0 && place[k] == place[k - 1]) {
                            std::memcpy(raw + k * value_bytes, raw + (k - 1) * value_bytes,
                                        value_bytes);
                            continue;
                        }
                        more = src.skip(static_cast<uint64_t>(place[k] - pos) * value_bytes) &&
                               src.take(raw + k * value_bytes, value_bytes);
                        pos = place[k] + 1;
                    }
                }
                if (more && tail) more = src.skip(tail);
                float v[3];
                for (int k = 0; k < 3; ++k) {
                    // With fewer than three colour samples, the last one read stands in.
                    const int slot = contiguous ? (place[k] < wanted ? place[k] : 0) : k;
                    const uint8_t *p = raw + slot * value_bytes;
                    if (half) {
                        uint16_t h;
                        std::memcpy(&h, p, 2); // machine order, whatever the mark says
                        v[k] = halfToFloat(h);
                    } else {
                        v[k] = lv::float_bias128(little ? lv::load_le32(p) : lv::load_be32(p));
                    }
                }
                account(row, x, v[0], v[1], v[2]);
            }
        }
    }
    *minOut = mn * 256.0f;
    *maxOut = mx * 256.0f;
    const double count = static_cast<double>(width > 0 ? width : 0) * height;
    if (count > 0) *meanOut = static_cast<float>(sum * 256.0 / count);
    return 1;
}

} // extern "C"
