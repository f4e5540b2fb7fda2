// Byte readers and the walks over an EXIF and a GPS directory that the host has positioned.
// The walks never stop early: a truncated file reads as 0xFF bytes, which turns rationals
// into -1/-1 (dropped) and keeps every loop bounded by the 16-bit entry count.
#include <lumivantor/metadata.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <sys/types.h>

static_assert(sizeof(ExifInfo) == 268, "ExifInfo layout");
static_assert(offsetof(ExifInfo, camera) == 36 && offsetof(ExifInfo, captureDate) == 101,
              "ExifInfo text fields");
static_assert(offsetof(ExifInfo, extraWords) == 136 && offsetof(ExifInfo, gpsLatitude) == 160,
              "ExifInfo words");
static_assert(offsetof(ExifInfo, gpsAltitude) == 216 && offsetof(ExifInfo, gpsDate) == 248 &&
                  offsetof(ExifInfo, extraFlagA) == 260,
              "ExifInfo GPS part");
static_assert(sizeof(MetadataGps) == 96 && offsetof(MetadataGps, latitudeRef) == 80 &&
                  offsetof(MetadataGps, date) == 83,
              "MetadataGps layout");

namespace {

// One byte; past the end of the file it reads as 0xFF.
inline uint32_t byte_or_ff(FILE *file) {
    int c = getc(file);
    return c == EOF ? 0xFFu : static_cast<uint32_t>(c);
}

inline bool little_endian(int32_t order) {
    return order == LV_ORDER_INTEL;
}

// A rational stored as two signed 32-bit words; false when its denominator is below 1.
bool read_srational(FILE *file, int32_t order, double *value) {
    auto num = static_cast<int32_t>(fgetmi4(file, order));
    auto den = static_cast<int32_t>(fgetmi4(file, order));
    if (den < 1) return false;
    *value = static_cast<double>(num) / den;
    return true;
}

// One 12-byte directory entry. `raw` keeps the value field as it lies in the file, for the
// GPS reference letters that live in its first byte.
struct Entry {
    uint32_t tag, type, count, value;
    uint8_t raw[4];
};

Entry read_entry(FILE *file, int32_t order) {
    Entry e{};
    e.tag = fgetmi2(file, order);
    e.type = fgetmi2(file, order);
    e.count = fgetmi4(file, order);
    for (uint8_t &b : e.raw)
        b = static_cast<uint8_t>(byte_or_ff(file));
    const bool le = little_endian(order);
    if (e.type == 3 && (e.count == 1 || e.count == 2)) {
        // A short that fits in the field sits in its first two bytes.
        e.value = le ? (e.raw[0] | e.raw[1] << 8) : (e.raw[0] << 8 | e.raw[1]);
    } else {
        e.value = le ? (e.raw[0] | e.raw[1] << 8 | e.raw[2] << 16 | uint32_t(e.raw[3]) << 24)
                     : (uint32_t(e.raw[0]) << 24 | e.raw[1] << 16 | e.raw[2] << 8 | e.raw[3]);
    }
    return e;
}

// Reads up to n characters into text and ends it there; a short file ends it early.
void read_text(FILE *file, char *text, size_t n) {
    size_t got = fread(text, 1, n, file);
    text[got] = '\0';
}

// Walks a directory: for each entry, seeks to its value + base, lets treat() read the
// target, and comes back behind the entry. Entries whose target can't be sought are
// handed to treat() with sought = false so that values kept in the entry still count.
template <typename Treat>
void walk_directory(FILE *file, int32_t order, int32_t base, Treat treat) {
    const uint32_t count = fgetmi2(file, order);
    for (uint32_t i = 0; i < count; ++i) {
        const Entry e = read_entry(file, order);
        // Once an entry runs into the end of the file, every later one reads as 0xFF bytes:
        // tag 65535, which no walk treats. Stopping behind it changes nothing and keeps a
        // lying count cheap.
        const bool hit_end = feof(file) != 0;
        const off_t after = ftello(file);
        if (after < 0) return;
        const off_t target = static_cast<off_t>(e.value) + base;
        const bool sought = target >= 0 && fseeko(file, target, SEEK_SET) == 0;
        treat(e, sought);
        if (hit_end || fseeko(file, after, SEEK_SET) != 0) return;
    }
}

} // namespace

extern "C" {

LV_API ExifInfo *init_exifInfo(ExifInfo *info) {
    if (!info) return info;
    // The camera name, capture date and the spare bytes around them stay as they were.
    auto *bytes = reinterpret_cast<unsigned char *>(info);
    std::memset(bytes, 0, offsetof(ExifInfo, camera));
    std::memset(bytes + offsetof(ExifInfo, extraWords), 0,
                sizeof(ExifInfo) - offsetof(ExifInfo, extraWords));
    return info;
}

LV_API uint16_t fgetmi2(FILE *file, int32_t order) {
    const uint32_t a = byte_or_ff(file), b = byte_or_ff(file);
    return static_cast<uint16_t>(little_endian(order) ? (a | b << 8) : (a << 8 | b));
}

LV_API uint32_t fgetmi4(FILE *file, int32_t order) {
    const uint32_t a = byte_or_ff(file), b = byte_or_ff(file);
    const uint32_t c = byte_or_ff(file), d = byte_or_ff(file);
    return little_endian(order) ? (a | b << 8 | c << 16 | d << 24)
                                : (a << 24 | b << 16 | c << 8 | d);
}

LV_API uint16_t fgetm2(FILE *file) {
    return fgetmi2(file, 0);
}

LV_API uint32_t fgetm4(FILE *file) {
    return fgetmi4(file, 0);
}

LV_API int parse_exif_data(FILE *file, int32_t /*ignored*/, int32_t order, int32_t base,
                           ExifInfo *info) {
    if (!file || !info) return 1;
    double shutter_fallback = 0.0;
    walk_directory(file, order, base, [&](const Entry &e, bool sought) {
        double v = 0.0;
        switch (e.tag) {
        case 34855: // ISOSpeedRatings
            info->isoSpeed = static_cast<int32_t>(e.value);
            return;
        case 41488: // FocalPlaneResolutionUnit
            info->focalPlaneResUnit = static_cast<int32_t>(e.value);
            return;
        case 41989: // FocalLengthIn35mmFilm
            info->focal35mm = static_cast<int32_t>(e.value);
            return;
        default:
            break;
        }
        if (!sought) return;
        switch (e.tag) {
        case 33434: // ExposureTime
            if (read_srational(file, order, &v)) info->exposureTime = static_cast<float>(v);
            break;
        case 33437: // FNumber always wins over the aperture values
            if (read_srational(file, order, &v)) info->fNumber = static_cast<float>(v);
            break;
        case 36867: // DateTimeOriginal
            read_text(file, info->captureDate, 19);
            break;
        case 37377: // ShutterSpeedValue, an APEX value kept for cameras without ExposureTime
            if (read_srational(file, order, &v) && v != 0.0) shutter_fallback = std::pow(2.0, -v);
            break;
        case 37378: // ApertureValue and MaxApertureValue: APEX numbers, stored as they are
        case 37381:
            if (info->fNumber == 0.0f && read_srational(file, order, &v))
                info->fNumber = static_cast<float>(v);
            break;
        case 37386: // FocalLength
            if (read_srational(file, order, &v)) info->focalLength = static_cast<float>(v);
            break;
        case 41486: // FocalPlaneXResolution
            if (read_srational(file, order, &v)) info->focalPlaneXRes = static_cast<float>(v);
            break;
        case 41493: // ExposureIndex stands in for a missing ISO
            if (info->isoSpeed == 0) {
                auto num = static_cast<int32_t>(fgetmi4(file, order));
                auto den = static_cast<int32_t>(fgetmi4(file, order));
                // INT32_MIN / -1 can't happen: den is at least 1 here.
                info->isoSpeed = den >= 1 ? num / den : num;
            }
            break;
        default:
            break;
        }
    });
    if (info->exposureTime == 0.0f && shutter_fallback > 0.0)
        info->exposureTime = static_cast<float>(shutter_fallback);
    return 1;
}

LV_API int parse_gps_data(FILE *file, int32_t /*ignored*/, int32_t order, int32_t base,
                          ExifInfo *info) {
    if (!file || !info) return 1;
    walk_directory(file, order, base, [&](const Entry &e, bool sought) {
        uint32_t *rationals = nullptr;
        uint32_t most = 3;
        switch (e.tag) {
        case 1:
            info->gpsLatitudeRef = e.raw[0];
            return;
        case 3:
            info->gpsLongitudeRef = e.raw[0];
            return;
        case 5:
            info->gpsAltitudeRef = e.raw[0];
            return;
        case 2:
            rationals = info->gpsLatitude;
            break;
        case 4:
            rationals = info->gpsLongitude;
            break;
        case 7:
            rationals = info->gpsTime;
            break;
        case 6:
            rationals = info->gpsAltitude;
            most = 1;
            break;
        case 29: // GPSDateStamp, "YYYY:MM:DD"
            if (sought && e.count >= 6)
                read_text(file, info->gpsDate, e.count - 1 < 10 ? e.count - 1 : 10);
            return;
        default:
            return;
        }
        if (!sought) return;
        const uint32_t n = e.count < most ? e.count : most;
        for (uint32_t k = 0; k < n; ++k) {
            rationals[2 * k] = fgetmi4(file, order);
            rationals[2 * k + 1] = fgetmi4(file, order);
        }
    });
    return 1;
}

} // extern "C"
