// IPTC blocks: reading one out of a file and inserting a keyword dataset into one.
#include <lumivantor/metadata.h>

#include <cstring>
#include <memory>
#include <sys/types.h>

namespace {

struct FileCloser {
    void operator()(FILE *f) const { fclose(f); }
};

constexpr uint8_t kMarker = 0x1C;
constexpr uint8_t kApplicationRecord = 0x02;
constexpr uint8_t kKeyword = 25;

} // namespace

extern "C" {

LV_API int add_iptc_keyword(int32_t length, const uint8_t *iptc, int32_t keywordLength,
                            const uint8_t *keyword, uint8_t *out) {
    if (length < 0 || keywordLength < 0 || keywordLength > 0xFFFF || !out ||
        (keywordLength > 0 && !keyword) || (length > 0 && !iptc))
        return -1;

    size_t at = 0;   // where the new dataset goes in out
    size_t kept = 0; // bytes of the old block before it
    if (length == 0) {
        // An empty block gets the record-version dataset first.
        static const uint8_t kVersion[7] = {0x1C, 0x02, 0x00, 0x00, 0x02, 0x02, 0x00};
        std::memcpy(out, kVersion, sizeof kVersion);
        at = sizeof kVersion;
    } else {
        // A keyword goes behind the last keyword, or else behind the last dataset of the
        // application record, or else behind the dataset at the very start.
        long last_marker = -1, last_keyword = -1;
        for (long p = 0; p <= long(length) - 6; ++p) {
            if (iptc[p] != kMarker || iptc[p + 1] != kApplicationRecord) continue;
            last_marker = p;
            if (iptc[p + 2] == kKeyword) last_keyword = p;
        }
        long pos = last_keyword >= 0 ? last_keyword : last_marker >= 0 ? last_marker : 0;
        if (length < 6) pos = 0;
        // The dataset's length field lies in bytes 3 and 4; a block too short for it can't
        // take an insertion behind it.
        if (pos + 5 > length) return -1;
        const size_t end = size_t(pos) + 5 + (size_t(iptc[pos + 3]) << 8 | iptc[pos + 4]);
        if (end > size_t(length)) return -1;
        std::memcpy(out, iptc, end);
        at = kept = end;
    }

    uint8_t *w = out + at;
    *w++ = kMarker;
    *w++ = kApplicationRecord;
    *w++ = kKeyword;
    *w++ = static_cast<uint8_t>(keywordLength >> 8);
    *w++ = static_cast<uint8_t>(keywordLength);
    if (keywordLength > 0) std::memcpy(w, keyword, size_t(keywordLength));
    w += keywordLength;
    if (length > 0) std::memcpy(w, iptc + kept, size_t(length) - kept);
    return static_cast<int>(at);
}

LV_API int read_iptc(const char *path, int32_t length, int32_t offset, uint8_t *buffer) {
    if (!path || length < 0 || (length > 0 && !buffer)) return -1;
    std::unique_ptr<FILE, FileCloser> file(fopen(path, "rb"));
    if (!file) return -1;
    // The size is taken at `offset` from the end: the block has to fit inside the file as
    // seen from there.
    if (fseeko(file.get(), offset, SEEK_END) != 0) return -1;
    const off_t size = ftello(file.get());
    if (size < 1) return -1;
    if (off_t(offset) + length >= size) return 0;
    if (fseeko(file.get(), offset, SEEK_SET) != 0) return -1;
    const size_t got = fread(buffer, 1, size_t(length), file.get());
    if (got >= 1 && buffer[0] != kMarker) return -2;
    if (got < size_t(length)) return -1;
    return length;
}

} // extern "C"
