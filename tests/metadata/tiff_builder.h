// Builds EXIF-style directories, TIFF files and JPEG APP1 segments in memory, in either
// byte order, so that the tests can state exactly what a camera file holds.
#pragma once

#include <lumivantor/metadata.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace lvtest {

class Dir {
  public:
    explicit Dir(bool little) : little_(little) {}

    // An entry whose value field holds `value` itself (in the file's byte order).
    Dir &raw(uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
        entries_.push_back({tag, type, count, value, {}, false});
        return *this;
    }
    // A short kept in the first two bytes of the value field.
    Dir &short_value(uint16_t tag, uint16_t value) {
        return raw(tag, 3, 1, little_ ? value : uint32_t(value) << 16);
    }
    // Signed or unsigned rationals stored behind an offset.
    Dir &rationals(uint16_t tag, std::vector<std::pair<int64_t, int64_t>> r, uint16_t type = 5) {
        std::vector<uint8_t> blob;
        for (auto [n, d] : r) {
            append32(blob, uint32_t(n));
            append32(blob, uint32_t(d));
        }
        entries_.push_back({tag, type, uint32_t(r.size()), 0, blob, true});
        return *this;
    }
    Dir &rational(uint16_t tag, int64_t n, int64_t d, uint16_t type = 10) {
        return rationals(tag, {{n, d}}, type);
    }
    // Text with its terminating zero; short texts stay in the value field.
    Dir &ascii(uint16_t tag, const std::string &text) {
        std::vector<uint8_t> blob(text.begin(), text.end());
        blob.push_back(0);
        if (blob.size() <= 4) {
            uint8_t field[4] = {};
            std::memcpy(field, blob.data(), blob.size());
            entries_.push_back({tag, 2, uint32_t(blob.size()), 0, {}, false, true});
            std::memcpy(entries_.back().inline_bytes, field, 4);
            return *this;
        }
        entries_.push_back({tag, 2, uint32_t(blob.size()), 0, blob, true});
        return *this;
    }

    // The directory placed at offset `at` from the base, its value data right behind it.
    std::vector<uint8_t> bytes(uint32_t at) const {
        std::vector<uint8_t> out;
        append16(out, uint16_t(entries_.size()));
        uint32_t data_at = at + 2 + 12 * uint32_t(entries_.size()) + 4;
        std::vector<uint8_t> data;
        for (const auto &e : entries_) {
            append16(out, e.tag);
            append16(out, e.type);
            append32(out, e.count);
            if (e.in_data) {
                append32(out, data_at + uint32_t(data.size()));
                data.insert(data.end(), e.blob.begin(), e.blob.end());
            } else if (e.use_inline_bytes) {
                out.insert(out.end(), e.inline_bytes, e.inline_bytes + 4);
            } else {
                append32(out, e.value);
            }
        }
        append32(out, 0);
        out.insert(out.end(), data.begin(), data.end());
        return out;
    }

    bool little() const { return little_; }
    int32_t order() const { return little_ ? LV_ORDER_INTEL : 0x4D4D; }

    void append16(std::vector<uint8_t> &v, uint16_t x) const {
        if (little_)
            v.insert(v.end(), {uint8_t(x), uint8_t(x >> 8)});
        else
            v.insert(v.end(), {uint8_t(x >> 8), uint8_t(x)});
    }
    void append32(std::vector<uint8_t> &v, uint32_t x) const {
        if (little_)
            v.insert(v.end(), {uint8_t(x), uint8_t(x >> 8), uint8_t(x >> 16), uint8_t(x >> 24)});
        else
            v.insert(v.end(), {uint8_t(x >> 24), uint8_t(x >> 16), uint8_t(x >> 8), uint8_t(x)});
    }

  private:
    struct Entry {
        uint16_t tag, type;
        uint32_t count, value;
        std::vector<uint8_t> blob;
        bool in_data;
        bool use_inline_bytes = false;
        uint8_t inline_bytes[4] = {};
    };
    bool little_;
    std::vector<Entry> entries_;
};

// A TIFF: header, a first directory pointing at the EXIF and GPS directories (either may
// be absent) and naming the camera, then those directories.
inline std::vector<uint8_t> tiff_file(bool little, const Dir *exif, const Dir *gps,
                                      const std::string &model = "Test Camera") {
    Dir ifd0(little);
    ifd0.ascii(0x0110, model);
    // Pointers are filled once the first directory's size is known.
    if (exif) ifd0.raw(0x8769, 4, 1, 0);
    if (gps) ifd0.raw(0x8825, 4, 1, 0);
    const uint32_t ifd0_size = uint32_t(ifd0.bytes(8).size());
    uint32_t exif_at = 8 + ifd0_size;
    std::vector<uint8_t> exif_bytes = exif ? exif->bytes(exif_at) : std::vector<uint8_t>{};
    uint32_t gps_at = exif_at + uint32_t(exif_bytes.size());
    Dir head_dir(little);
    head_dir.ascii(0x0110, model);
    if (exif) head_dir.raw(0x8769, 4, 1, exif_at);
    if (gps) head_dir.raw(0x8825, 4, 1, gps_at);

    std::vector<uint8_t> out =
        little ? std::vector<uint8_t>{'I', 'I'} : std::vector<uint8_t>{'M', 'M'};
    head_dir.append16(out, 42);
    head_dir.append32(out, 8);
    auto d0 = head_dir.bytes(8);
    out.insert(out.end(), d0.begin(), d0.end());
    out.insert(out.end(), exif_bytes.begin(), exif_bytes.end());
    if (gps) {
        auto g = gps->bytes(gps_at);
        out.insert(out.end(), g.begin(), g.end());
    }
    return out;
}

// A JPEG whose APP1 "Exif" segment holds `tiff`, behind an APP0 segment, followed by a
// start of scan and the end marker.
inline std::vector<uint8_t> jpeg_file(const std::vector<uint8_t> &tiff) {
    std::vector<uint8_t> out = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x07, 'J', 'F', 'I', 'F', 0};
    const size_t len = 2 + 6 + tiff.size();
    out.insert(out.end(), {0xFF, 0xE1, uint8_t(len >> 8), uint8_t(len), 'E', 'x', 'i', 'f', 0, 0});
    out.insert(out.end(), tiff.begin(), tiff.end());
    out.insert(out.end(), {0xFF, 0xDA, 0x00, 0x02, 0xFF, 0xD9});
    return out;
}

// A read-only stream over a buffer, closed at the end of the scope.
class MemFile {
  public:
    explicit MemFile(std::vector<uint8_t> data) : data_(std::move(data)) {
        if (data_.empty())
            data_.push_back(0), size_ = 0;
        else
            size_ = data_.size();
        file_ = fmemopen(data_.data(), size_ ? size_ : 1, "rb");
        if (file_ && size_ == 0) fgetc(file_); // an empty stream: already at its end
    }
    ~MemFile() {
        if (file_) fclose(file_);
    }
    MemFile(const MemFile &) = delete;
    MemFile &operator=(const MemFile &) = delete;
    FILE *get() const { return file_; }

  private:
    std::vector<uint8_t> data_;
    size_t size_ = 0;
    FILE *file_ = nullptr;
};

// Zeroed record, then the directory walk of `bytes` from offset `at`, offsets from `base`.
inline ExifInfo parse_directory(const std::vector<uint8_t> &bytes, int32_t order, long at,
                                int32_t base, bool gps) {
    ExifInfo info;
    std::memset(&info, 0, sizeof info);
    MemFile f(bytes);
    if (f.get() && fseek(f.get(), at, SEEK_SET) == 0) {
        if (gps)
            parse_gps_data(f.get(), 0, order, base, &info);
        else
            parse_exif_data(f.get(), 0, order, base, &info);
    }
    return info;
}

} // namespace lvtest
