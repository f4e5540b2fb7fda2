// Builds EXIF-style directories, TIFF files and JPEG APP1 segments in memory, in either
// byte order, so that the tests can state exactly what a camera file holds.
#pragma once

#include <lumivantor/metadata.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lvtest {

// A read-only stream over bytes that outlive it.
inline std::unique_ptr<FILE, int (*)(FILE *)> open_bytes(void *data, size_t size) {
    return {fmemopen(data, size, "rb"), fclose};
}

struct Dir {
    explicit Dir(bool little) : little_(little) {}

    // An entry whose value field holds `value` itself, or the offset of `blob` when given.
    Dir &raw(uint16_t tag, uint16_t type, uint32_t count, uint32_t value,
             std::vector<uint8_t> blob = {}) {
        entries_.push_back({tag, type, count, value, std::move(blob)});
        return *this;
    }
    // A short in the first two bytes of the value field.
    Dir &short_value(uint16_t tag, uint16_t v) { return raw(tag, 3, 1, little_ ? v : v << 16); }
    // Rationals (type 5) or one signed rational (type 10) behind an offset.
    Dir &rationals(uint16_t tag, std::vector<std::pair<int64_t, int64_t>> r, uint16_t type = 5) {
        std::vector<uint8_t> blob;
        for (auto [n, d] : r)
            put(put(blob, uint32_t(n), 4), uint32_t(d), 4);
        return raw(tag, type, uint32_t(r.size()), 0, blob);
    }
    Dir &rational(uint16_t tag, int64_t n, int64_t d) { return rationals(tag, {{n, d}}, 10); }
    // Text of five bytes or more, with its zero, behind an offset.
    Dir &ascii(uint16_t tag, const std::string &text) {
        return raw(tag, 2, uint32_t(text.size() + 1), 0,
                   {text.c_str(), text.c_str() + text.size() + 1});
    }

    // The directory placed at offset `at` from the base, its values right behind it.
    std::vector<uint8_t> bytes(uint32_t at) const {
        std::vector<uint8_t> out, data;
        put(out, uint32_t(entries_.size()), 2);
        const uint32_t data_at = at + 6 + 12 * uint32_t(entries_.size());
        for (const Entry &e : entries_) {
            put(put(put(out, e.tag, 2), e.type, 2), e.count, 4);
            put(out, e.blob.empty() ? e.value : data_at + uint32_t(data.size()), 4);
            data.insert(data.end(), e.blob.begin(), e.blob.end());
        }
        put(out, 0, 4).insert(out.end(), data.begin(), data.end());
        return out;
    }
    // A zeroed record, then the library's EXIF walk of this directory at offset 0.
    ExifInfo walk(int32_t base = 0) const {
        ExifInfo info{};
        auto data = bytes(0);
        const auto file = open_bytes(data.data(), data.size());
        parse_exif_data(file.get(), 0, little_ ? LV_ORDER_INTEL : 0x4D4D, base, &info);
        return info;
    }
    std::vector<uint8_t> &put(std::vector<uint8_t> &v, uint32_t x, int n) const {
        for (int i = 0; i < n; ++i)
            v.push_back(uint8_t(x >> 8 * (little_ ? i : n - 1 - i)));
        return v;
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
// directories that follow it (either may be null). The EXIF pointer's value is at byte 30.
inline std::vector<uint8_t> tiff_file(bool little, const Dir *exif, const Dir *gps) {
    const uint32_t ifd0_size = 6 + 12 * (1 + !!exif + !!gps) + 12;
    const auto exif_bytes = exif ? exif->bytes(8 + ifd0_size) : std::vector<uint8_t>{};
    const uint32_t gps_at = 8 + ifd0_size + uint32_t(exif_bytes.size());
    Dir ifd0(little);
    ifd0.ascii(0x0110, "Test Camera");
    if (exif) ifd0.raw(0x8769, 4, 1, 8 + ifd0_size);
    if (gps) ifd0.raw(0x8825, 4, 1, gps_at);
    std::vector<uint8_t> out = {uint8_t(little ? 'I' : 'M'), uint8_t(little ? 'I' : 'M')};
    ifd0.put(ifd0.put(out, 42, 2), 8, 4);
    for (const auto &part :
         {ifd0.bytes(8), exif_bytes, gps ? gps->bytes(gps_at) : std::vector<uint8_t>{}})
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// A JPEG: APP0, then an APP1 "Exif" segment holding `tiff` at offset 21, then the scan.
inline std::vector<uint8_t> jpeg_file(const std::vector<uint8_t> &tiff) {
    const size_t len = 8 + tiff.size();
    std::vector<uint8_t> out = {0xFF,         0xD8, 0xFF, 0xE0, 0,    7,    'J',
                                'F',          'I',  'F',  0,    0xFF, 0xE1, uint8_t(len >> 8),
                                uint8_t(len), 'E',  'x',  'i',  'f',  0,    0};
    out.reserve(len + 19);
    out.insert(out.end(), tiff.begin(), tiff.end());
    for (uint8_t b : {0xFF, 0xDA, 0x00, 0x02, 0xFF, 0xD9})
        out.push_back(b);
    return out;
}

} // namespace lvtest
