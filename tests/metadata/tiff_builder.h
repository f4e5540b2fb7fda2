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

    // An entry whose value field holds `value` itself.
    Dir &raw(uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
        entries_.push_back({tag, type, count, value, {}});
        return *this;
    }
    // A short in the first two bytes of the value field.
    Dir &short_value(uint16_t tag, uint16_t v) { return raw(tag, 3, 1, little_ ? v : v << 16); }
    // A letter in the first byte of the value field.
    Dir &letter(uint16_t tag, char c) {
        return raw(tag, 2, 2, little_ ? uint8_t(c) : uint32_t(c) << 24);
    }
    // Rationals behind an offset.
    Dir &rationals(uint16_t tag, std::vector<std::pair<int64_t, int64_t>> r, uint16_t type = 5) {
        std::vector<uint8_t> blob;
        for (auto [n, d] : r) {
            put32(blob, uint32_t(n));
            put32(blob, uint32_t(d));
        }
        entries_.push_back({tag, type, uint32_t(r.size()), 0, blob});
        return *this;
    }
    Dir &rational(uint16_t tag, int64_t n, int64_t d) { return rationals(tag, {{n, d}}, 10); }
    // Text of five bytes or more, with its zero, behind an offset.
    Dir &ascii(uint16_t tag, const std::string &text) {
        std::vector<uint8_t> blob(text.begin(), text.end());
        blob.push_back(0);
        entries_.push_back({tag, 2, uint32_t(blob.size()), 0, blob});
        return *this;
    }

    // The directory placed at offset `at` from the base, its values right behind it.
    std::vector<uint8_t> bytes(uint32_t at) const {
        std::vector<uint8_t> out, data;
        put16(out, uint16_t(entries_.size()));
        const uint32_t data_at = at + 6 + 12 * uint32_t(entries_.size());
        for (const Entry &e : entries_) {
            put16(out, e.tag);
            put16(out, e.type);
            put32(out, e.count);
            put32(out, e.blob.empty() ? e.value : data_at + uint32_t(data.size()));
            data.insert(data.end(), e.blob.begin(), e.blob.end());
        }
        put32(out, 0);
        out.insert(out.end(), data.begin(), data.end());
        return out;
    }

    int32_t order() const { return little_ ? LV_ORDER_INTEL : 0x4D4D; }
    void put16(std::vector<uint8_t> &v, uint16_t x) const { put(v, x, 2); }
    void put32(std::vector<uint8_t> &v, uint32_t x) const { put(v, x, 4); }

  private:
    void put(std::vector<uint8_t> &v, uint32_t x, int n) const {
        for (int i = 0; i < n; ++i)
            v.push_back(uint8_t(x >> 8 * (little_ ? i : n - 1 - i)));
    }
    struct Entry {
        uint16_t tag, type;
        uint32_t count, value;
        std::vector<uint8_t> blob;
    };
    bool little_;
    std::vector<Entry> entries_;
};

// A TIFF whose first directory names the camera and points at the EXIF and GPS
// directories that follow it (either may be null).
inline std::vector<uint8_t> tiff_file(bool little, const Dir *exif, const Dir *gps) {
    const std::string model = "Test Camera";
    const uint32_t ifd0_size = 6 + 12 * (1 + !!exif + !!gps) + uint32_t(model.size()) + 1;
    const auto exif_bytes = exif ? exif->bytes(8 + ifd0_size) : std::vector<uint8_t>{};
    const uint32_t gps_at = 8 + ifd0_size + uint32_t(exif_bytes.size());
    Dir ifd0(little);
    ifd0.ascii(0x0110, model);
    if (exif) ifd0.raw(0x8769, 4, 1, 8 + ifd0_size);
    if (gps) ifd0.raw(0x8825, 4, 1, gps_at);

    std::vector<uint8_t> out = {uint8_t(little ? 'I' : 'M'), uint8_t(little ? 'I' : 'M')};
    ifd0.put16(out, 42);
    ifd0.put32(out, 8);
    for (const auto &part :
         {ifd0.bytes(8), exif_bytes, gps ? gps->bytes(gps_at) : std::vector<uint8_t>{}})
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// A JPEG: APP0, then an APP1 "Exif" segment holding `tiff` at offset 21, then the scan.
inline std::vector<uint8_t> jpeg_file(const std::vector<uint8_t> &tiff) {
    std::vector<uint8_t> out = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x07, 'J', 'F', 'I', 'F', 0};
    const size_t len = 8 + tiff.size();
    for (int b :
         {0xFF, 0xE1, int(len >> 8), int(len & 0xFF), 'E' + 0, 'x' + 0, 'i' + 0, 'f' + 0, 0, 0})
        out.push_back(b);
    out.insert(out.end(), tiff.begin(), tiff.end());
    for (uint8_t b : {0xFF, 0xDA, 0x00, 0x02, 0xFF, 0xD9})
        out.push_back(b);
    return out;
}

// A read-only stream over a copy of the bytes; null for no bytes.
class MemFile {
  public:
    explicit MemFile(std::vector<uint8_t> data) : data_(std::move(data)) {
        file_ = data_.empty() ? nullptr : fmemopen(data_.data(), data_.size(), "rb");
    }
    ~MemFile() {
        if (file_) fclose(file_);
    }
    MemFile(const MemFile &) = delete;
    MemFile &operator=(const MemFile &) = delete;
    FILE *get() const { return file_; }

  private:
    std::vector<uint8_t> data_;
    FILE *file_ = nullptr;
};

// A zeroed record, then the EXIF (or GPS) walk of `bytes` from offset `at`.
inline ExifInfo parse_directory(const std::vector<uint8_t> &bytes, int32_t order, long at,
                                int32_t base, bool gps) {
    ExifInfo info;
    std::memset(&info, 0, sizeof info);
    MemFile f(bytes);
    if (f.get() && fseek(f.get(), at, SEEK_SET) == 0)
        (gps ? parse_gps_data : parse_exif_data)(f.get(), 0, order, base, &info);
    return info;
}

} // namespace lvtest
