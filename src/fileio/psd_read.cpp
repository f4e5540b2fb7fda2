// PSD input: the header and image-resource walk (size, resolution, ICC profile, EXIF place)
// and the flattened composite image, raw or run-length coded, at 8, 16 or 32 bits.
#include <climits>

#include "fileio/float_files.h"

namespace {

// Big-endian reader that remembers the last byte it read, which is what the profile walk
// reports when a file has no profile.
struct PsdReader {
    FILE *f;
    int last = 0;

    bool bytes(uint8_t *dst, size_t n) {
        const size_t got = fread(dst, 1, n, f);
        if (got > 0) last = dst[got - 1];
        return got == n;
    }
    bool u16(unsigned &v) {
        uint8_t b[2];
        if (!bytes(b, 2)) return false;
        v = lv::load_be16(b);
        return true;
    }
    bool u32(uint32_t &v) {
        uint8_t b[4];
        if (!bytes(b, 4)) return false;
        v = lv::load_be32(b);
        return true;
    }
    bool skip(int64_t n) { return fseeko(f, static_cast<off_t>(n), SEEK_CUR) == 0; }
};

struct PsdHeader {
    unsigned channels = 0, depth = 0;
    uint32_t height = 0, width = 0;
    int64_t resources_end = 0;
    uint32_t resources_length = 0;
};

// Reads the header up to the length of the image resources. The depth is read only when
// asked for; otherwise its field is passed over. Returns 0 or -1, -2, -3.
int read_header(PsdReader &in, PsdHeader &h, bool want_depth) {
    uint8_t sig[4];
    if (!in.bytes(sig, 4)) return -1;
    if (std::memcmp(sig, "8BPS", 4) != 0) return -2;
    if (!in.skip(8) || !in.u16(h.channels)) return -1; // version and reserved bytes unread
    if (h.channels < 3) return -3;
    if (!in.u32(h.height) || !in.u32(h.width)) return -1;
    if (want_depth ? !in.u16(h.depth) : !in.skip(2)) return -1;
    unsigned mode = 0;
    uint32_t mode_data = 0;
    if (!in.u16(mode)) return -1;
    if (mode != 3) return -3; // RGB only
    if (!in.u32(mode_data) || !in.skip(mode_data) || !in.u32(h.resources_length)) return -1;
    h.resources_end = static_cast<int64_t>(h.resources_length) + ftello(in.f);
    return 0;
}

// Walks the resource blocks ("8BIM", identifier, two bytes of empty name, size, data, pad)
// while inside the section; on_block(id, size, data position) returns false to stop.
template <class OnBlock> void walk_resources(PsdReader &in, uint32_t length, OnBlock on_block) {
    uint64_t walked = 0;
    while (walked < length) {
        uint8_t sig[4];
        unsigned id = 0;
        uint32_t size = 0;
        if (!in.bytes(sig, 4) || std::memcmp(sig, "8BIM", 4) != 0) return;
        if (!in.u16(id) || !in.skip(2) || !in.u32(size)) return;
        const off_t data = ftello(in.f);
        if (!on_block(id, size, data)) return;
        const uint64_t advance = static_cast<uint64_t>(size) + (size & 1);
        if (fseeko(in.f, data + static_cast<off_t>(advance), SEEK_SET) != 0) return;
        walked += advance + 12;
    }
}

// Decodes the continuous run-length stream into a plane: a code n >= 0 copies n + 1 bytes,
// -128 is passed over, any other negative n repeats the next byte 1 - n times. Rows and
// planes don't restart the stream. Stops at the end of the plane or of the input.
void unpack_runs(const uint8_t *&in, const uint8_t *end, uint8_t *plane, size_t size) {
    size_t o = 0;
    while (o < size && in < end) {
        const int n = static_cast<int8_t>(*in++);
        if (n == -128) continue;
        if (n >= 0) {
            size_t k = static_cast<size_t>(n) + 1;
            if (k > size - o) k = size - o;
            if (k > static_cast<size_t>(end - in)) k = static_cast<size_t>(end - in);
            std::memcpy(plane + o, in, k);
            in += n + 1 < end - in ? n + 1 : end - in;
            o += k;
        } else {
            if (in >= end) return;
            size_t k = static_cast<size_t>(1 - n);
            if (k > size - o) k = size - o;
            std::memset(plane + o, *in++, k);
            o += k;
        }
    }
}

// The 32-bit composite: three float planes, encoded row by row into planar RGBE.
int load_float_planes(FILE *f, int width, int height, unsigned char *pixels) {
    const off_t start = ftello(f);
    const size_t row_bytes = 4 * static_cast<size_t>(width);
    auto rows = lv::alloc_array<uint8_t>(3 * row_bytes);
    if (!rows) return -4;
    for (int y = 0; y < height; ++y) {
        for (int c = 0; c < 3; ++c) {
            const off_t at = start + static_cast<off_t>((static_cast<int64_t>(c) * height + y) *
                                                        static_cast<int64_t>(row_bytes));
            if (fseeko(f, at, SEEK_SET) != 0 ||
                !lv::read_exact(f, rows.get() + c * row_bytes, row_bytes))
                return -1;
        }
        uint8_t *out = pixels + static_cast<size_t>(y) * row_bytes;
        for (int x = 0; x < width; ++x) {
            const uint8_t *p = rows.get() + 4 * x;
            lv::put_rgbe(out, width, x, morder2float(p), morder2float(p + row_bytes),
                         morder2float(p + 2 * row_bytes));
        }
    }
    return height;
}

} // namespace

extern "C" {

float morder2float(const unsigned char *bytes) {
    return lv::float_bias128(lv::load_be32(bytes));
}

int getPsdInfo(const char *path, ImageFileInfo *info) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f || !info) return -1;
    PsdReader in{f.get()};
    PsdHeader h;
    if (const int rc = read_header(in, h, true); rc < 0) return rc;
    if (h.resources_end > INT_MAX) return -3;
    info->slot3 = static_cast<int32_t>(h.channels);
    info->height = static_cast<int32_t>(h.height);
    info->width = static_cast<int32_t>(h.width);
    info->slot2 = static_cast<int32_t>(h.depth);
    info->slot7 = static_cast<int32_t>(h.resources_end);
    // A file with several profiles reports the largest, so a buffer sized from it holds the
    // one psd_profile copies.
    int32_t profile = 0;
    bool has_profile = false;
    walk_resources(in, h.resources_length, [&](unsigned id, uint32_t size, off_t data) {
        if (id == 1005) {
            uint8_t res[12];
            if (lv::read_exact(f.get(), res, sizeof res)) {
                info->slot4 = static_cast<int32_t>(lv::load_be32(res) >> 16);
                info->slot5 = static_cast<int32_t>(lv::load_be32(res + 8) >> 16);
            }
        } else if (id == 1039) {
            const int32_t s = static_cast<int32_t>(size);
            if (!has_profile || s > profile) profile = s;
            has_profile = true;
        } else if (id == 1058 && data <= INT_MAX) {
            info->slot8 = static_cast<int32_t>(data);
        }
        return true;
    });
    if (has_profile) info->profileLength = profile;
    return info->slot7;
}

int psd_profile(const char *path, unsigned char *profile) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) return -1;
    PsdReader in{f.get()};
    PsdHeader h;
    if (const int rc = read_header(in, h, false); rc < 0) return rc;
    int result = -1;
    bool found = false;
    walk_resources(in, h.resources_length, [&](unsigned id, uint32_t size, off_t) {
        if (id != 1039) return true;
        found = true;
        const int32_t s = static_cast<int32_t>(size);
        if (s < 1) {
            result = 0;
            return false;
        }
        (void)fread(profile, 1, static_cast<size_t>(s), f.get());
        result = s;
        return false;
    });
    return found ? result : in.last;
}

int load_psd(int kind, const char *path, ImageFileInfo *info, int rowBytes, void *pixels) {
    if (!info) return -1;
    const int width = info->width, height = info->height, bits = info->slot2;
    const int64_t pad = std::max<int64_t>(0, int64_t(rowBytes) - 3 * int64_t(width));
    if (bits != 8 && bits != 16 && bits != 32) return -1;
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) return -1;
    if (fseeko(f.get(), static_cast<off_t>(info->slot7), SEEK_SET) != 0) {
        f.reset();
        fprintf(stderr, "load_psd fseek %d failed \n", info->slot7);
        return -1;
    }
    // The large-document form widens the layer section's length and the run-length row
    // counts.
    const bool large = info->slot10 == 64;
    uint8_t len[8];
    const size_t len_bytes = large ? 8 : 4;
    if (!lv::read_exact(f.get(), len, len_bytes)) return -1;
    const uint64_t layers =
        large ? (uint64_t(lv::load_be32(len)) << 32) | lv::load_be32(len + 4) : lv::load_be32(len);
    if (layers > static_cast<uint64_t>(INT64_MAX) ||
        fseeko(f.get(), static_cast<off_t>(layers), SEEK_CUR) != 0)
        return -1;
    uint8_t comp_bytes[2];
    if (!lv::read_exact(f.get(), comp_bytes, 2)) return -1;
    const unsigned compression = lv::load_be16(comp_bytes);
    if (bits == 32) {
        if (compression != 0) {
            fprintf(stderr, "load_psd rle %d not supported for 32-bit PSD\n",
                    static_cast<int>(compression));
            return -2;
        }
        return width < 1 || height < 1
                   ? height
                   : load_float_planes(f.get(), width, height, static_cast<uint8_t *>(pixels));
    }
    if (width < 1 || height < 1) return height;

    const int sample = bits / 8;
    const size_t plane_size = static_cast<size_t>(width) * height * sample;
    auto plane = lv::alloc_array<uint8_t>(plane_size);
    if (!plane) return -4;
    std::unique_ptr<uint8_t[]> packed;
    const uint8_t *in = nullptr, *in_end = nullptr;
    if (compression == 1) {
        const int64_t table = int64_t(height) * info->slot3 * (large ? 4 : 2);
        if (fseeko(f.get(), static_cast<off_t>(table), SEEK_CUR) != 0) return -1;
        const off_t here = ftello(f.get());
        if (here < 0 || fseeko(f.get(), 0, SEEK_END) != 0) return -1;
        const off_t end = ftello(f.get());
        if (end <= here || fseeko(f.get(), here, SEEK_SET) != 0) return -1;
        const size_t rest = static_cast<size_t>(end - here);
        packed = lv::alloc_array<uint8_t>(rest);
        if (!packed) return -4;
        if (!lv::read_exact(f.get(), packed.get(), rest)) return -3;
        in = packed.get();
        in_end = in + rest;
    }
    const size_t pitch = 3 * static_cast<size_t>(width) + static_cast<size_t>(pad);
    for (int c = 0; c < 3; ++c) {
        if (compression == 1) {
            std::memset(plane.get(), 0, plane_size);
            unpack_runs(in, in_end, plane.get(), plane_size);
        } else if (!lv::read_exact(f.get(), plane.get(), plane_size)) {
            return -1;
        }
        // kind below 1 asks for blue first.
        const int s = kind >= 1 ? c : 2 - c;
        for (int y = 0; y < height; ++y) {
            const uint8_t *src = plane.get() + static_cast<size_t>(y) * width * sample;
            if (sample == 1) {
                uint8_t *dst = static_cast<uint8_t *>(pixels) + y * pitch + s;
                for (int x = 0; x < width; ++x)
                    dst[3 * x] = src[x];
            } else { // the row pad counts samples, not bytes
                uint16_t *dst = static_cast<uint16_t *>(pixels) + y * pitch + s;
                for (int x = 0; x < width; ++x)
                    dst[3 * x] = lv::load_be16(src + 2 * x);
            }
        }
    }
    return height;
}

} // extern "C"
