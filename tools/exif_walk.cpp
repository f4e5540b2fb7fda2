// JPEG segment and TIFF directory walk that locates the EXIF and GPS directories.
#include "exif_walk.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sys/types.h>

namespace lvtool {
namespace {

constexpr uint16_t kTagMake = 0x010F;
constexpr uint16_t kTagModel = 0x0110;
constexpr uint16_t kTagOrientation = 0x0112;
constexpr uint16_t kTagExifIfd = 0x8769;
constexpr uint16_t kTagGpsIfd = 0x8825;
constexpr size_t kMaxHeaderScan = size_t(1) << 24; // JPEG segments walked before giving up

struct FileCloser {
    void operator()(FILE *f) const { fclose(f); }
};

// Random access to the bytes of a file or of a buffer, refusing anything past the end.
class Bytes {
  public:
    Bytes(const uint8_t *data, size_t size) : data_(data), size_(size) {}
    explicit Bytes(FILE *file) : file_(file) {
        if (fseeko(file, 0, SEEK_END) == 0) {
            const off_t end = ftello(file);
            size_ = end > 0 ? size_t(end) : 0;
        }
    }
    uint64_t size() const { return size_; }
    bool read(uint64_t at, size_t n, uint8_t *out) const {
        if (at > size_ || n > size_ - at) return false;
        if (data_) {
            std::memcpy(out, data_ + at, n);
            return true;
        }
        return fseeko(file_, off_t(at), SEEK_SET) == 0 && fread(out, 1, n, file_) == n;
    }

  private:
    const uint8_t *data_ = nullptr;
    FILE *file_ = nullptr;
    uint64_t size_ = 0;
};

struct Reader {
    const Bytes &bytes;
    bool little = false;
    bool ok = true;
    uint32_t u16(uint64_t at) {
        uint8_t b[2];
        if (!bytes.read(at, 2, b)) return ok = false, 0;
        return little ? (b[0] | b[1] << 8) : (b[0] << 8 | b[1]);
    }
    uint32_t u32(uint64_t at) {
        uint8_t b[4];
        if (!bytes.read(at, 4, b)) return ok = false, 0;
        return little ? (b[0] | b[1] << 8 | b[2] << 16 | uint32_t(b[3]) << 24)
                      : (uint32_t(b[0]) << 24 | b[1] << 16 | b[2] << 8 | b[3]);
    }
};

// An ASCII tag's text, whether it sits in the entry or behind an offset.
std::string ascii_value(const Bytes &bytes, uint64_t base, uint64_t entry, uint32_t count,
                        uint32_t value, uint64_t limit) {
    const size_t n = std::min<uint32_t>(count, 63);
    const uint64_t at = count <= 4 ? entry + 8 : base + value;
    if (n == 0 || at > limit || n > limit - at) return {};
    char text[64] = {};
    if (!bytes.read(at, n, reinterpret_cast<uint8_t *>(text))) return {};
    std::string s(text, strnlen(text, n));
    while (!s.empty() && s.back() == ' ')
        s.pop_back();
    return s;
}

// The TIFF header at base and its first directory, all within [base, limit).
bool walk_tiff(const Bytes &bytes, uint64_t base, uint64_t limit, ExifLayout *layout) {
    uint8_t head[4];
    if (base + 8 > limit || !bytes.read(base, 4, head)) return false;
    Reader r{bytes};
    if (head[0] == 'I' && head[1] == 'I')
        r.little = true;
    else if (head[0] != 'M' || head[1] != 'M')
        return false;
    if (r.u16(base + 2) != 42 || !r.ok) return false;
    layout->order = r.little ? LV_ORDER_INTEL : kOrderMotorola;
    layout->base = int64_t(base);

    const uint64_t span = limit - base;
    auto inside = [&](uint64_t offset, uint64_t need) {
        return offset < span && need <= span - offset;
    };
    const uint32_t ifd0 = r.u32(base + 4);
    if (!r.ok || !inside(ifd0, 2)) return true;
    const uint32_t count = r.u16(base + ifd0);
    std::string make, model;
    for (uint32_t i = 0; i < count && inside(ifd0 + 2 + 12ull * i, 12); ++i) {
        const uint64_t entry = base + ifd0 + 2 + 12ull * i;
        const uint32_t tag = r.u16(entry), cnt = r.u32(entry + 4), value = r.u32(entry + 8);
        if (!r.ok) break;
        if ((tag == kTagExifIfd || tag == kTagGpsIfd) && inside(value, 2))
            (tag == kTagExifIfd ? layout->exif_ifd : layout->gps_ifd) = int64_t(base + value);
        else if (tag == kTagMake)
            make = ascii_value(bytes, base, entry, cnt, value, limit);
        else if (tag == kTagModel)
            model = ascii_value(bytes, base, entry, cnt, value, limit);
        else if (tag == kTagOrientation && cnt == 1) {
            // A SHORT held in the entry: its first two bytes in the file's byte order.
            const uint32_t o = r.little ? (value & 0xFFFF) : (value >> 16);
            if (o >= 1 && o <= 8) layout->orientation = int(o);
        }
    }
    layout->camera = model.empty() ? make : model;
    return true;
}

// JPEG: markers up to the start of the scan; the first APP1 that begins "Exif\0\0" holds a
// TIFF header and its directories.
bool walk_jpeg(const Bytes &bytes, ExifLayout *layout) {
    static const uint8_t kExif[6] = {'E', 'x', 'i', 'f', 0, 0};
    uint64_t pos = 2;
    for (size_t steps = 0; steps < kMaxHeaderScan && pos + 4 <= bytes.size(); ++steps) {
        uint8_t m[4];
        if (!bytes.read(pos, 2, m) || m[0] != 0xFF) return false;
        if (m[1] == 0xFF) { // fill byte before a marker
            ++pos;
            continue;
        }
        const uint8_t marker = m[1];
        if (marker == 0xD9 || marker == 0xDA) return false; // image data: no metadata follows
        if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) {
            pos += 2;
            continue;
        }
        if (!bytes.read(pos + 2, 2, m + 2)) return false;
        const uint64_t len = uint64_t(m[2]) << 8 | m[3];
        if (len < 2) return false;
        uint8_t id[6];
        if (marker == 0xE1 && len >= 2 + 6 + 8 && bytes.read(pos + 4, 6, id) &&
            std::memcmp(id, kExif, 6) == 0) {
            const uint64_t end = std::min<uint64_t>(pos + 2 + len, bytes.size());
            return walk_tiff(bytes, pos + 10, end, layout);
        }
        pos += 2 + len;
    }
    return false;
}

bool find_layout(const Bytes &bytes, ExifLayout *layout) {
    *layout = ExifLayout{};
    uint8_t head[2];
    if (!bytes.read(0, 2, head)) return false;
    if (head[0] == 0xFF && head[1] == 0xD8) return walk_jpeg(bytes, layout);
    return walk_tiff(bytes, 0, bytes.size(), layout);
}

} // namespace

bool find_exif_layout(const uint8_t *data, size_t size, ExifLayout *layout) {
    if (!layout || (!data && size)) return false;
    return find_layout(Bytes(data, size), layout);
}

bool find_exif_layout(FILE *file, ExifLayout *layout) {
    if (!file || !layout) return false;
    return find_layout(Bytes(file), layout);
}

bool read_exif(FILE *file, ExifInfo *info) {
    if (!info) return false;
    std::memset(info, 0, sizeof *info);
    ExifLayout layout;
    if (!find_exif_layout(file, &layout)) return false;
    // The library takes a 32-bit base; a header that far into a file isn't a real one.
    if (layout.base > INT32_MAX) return false;
    std::snprintf(info->camera, sizeof info->camera, "%s", layout.camera.c_str());
    const auto base = int32_t(layout.base);
    if (layout.exif_ifd >= 0 && fseeko(file, off_t(layout.exif_ifd), SEEK_SET) == 0)
        parse_exif_data(file, 0, layout.order, base, info);
    if (layout.gps_ifd >= 0 && fseeko(file, off_t(layout.gps_ifd), SEEK_SET) == 0)
        parse_gps_data(file, 0, layout.order, base, info);
    return true;
}

bool read_exif_file(const char *path, ExifInfo *info) {
    if (!path) return false;
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    if (!file) {
        if (info) std::memset(info, 0, sizeof *info);
        return false;
    }
    return read_exif(file.get(), info);
}

int read_orientation_file(const char *path) {
    if (!path) return 1;
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    ExifLayout layout;
    if (!file || !find_exif_layout(file.get(), &layout)) return 1;
    return layout.orientation;
}

bool read_exif_memory(const uint8_t *data, size_t size, ExifInfo *info) {
    if (info) std::memset(info, 0, sizeof *info);
    if (!data || size == 0) return false;
    // The parsers read through a FILE*; a read-only memory stream gives them one.
    std::unique_ptr<FILE, FileCloser> file(fmemopen(const_cast<uint8_t *>(data), size, "rb"));
    if (!file) return false;
    return read_exif(file.get(), info);
}

bool read_metadata_file(const char *path, MetadataBuf *meta, MetadataGps *gps) {
    if (!meta) return false;
    std::memset(meta, 0, sizeof *meta);
    meta->colorProfile = -1;
    if (gps) std::memset(gps, 0, sizeof *gps);
    ExifInfo info;
    const bool found = read_exif_file(path, &info);
    if (found) metadataBufFromExifInfo(&info, meta, gps);
    return found;
}

void exposure_record(const MetadataBuf &meta, float record[7]) {
    record[0] = float(meta.shutterNum);
    record[1] = float(meta.shutterDen);
    record[2] = float(meta.apertureNum);
    record[3] = float(meta.apertureDen);
    record[4] = 0.0f; // the rational exposure above is used whenever it is known
    record[5] = float(meta.iso);
    record[6] = 0.0f;
}

} // namespace lvtool
