// Free texts that cameras and profiles carry: the settings some cameras write into the
// image description, and the name inside an ICC profile's description tag.
#include <lumivantor/metadata.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/rational.h"

namespace {

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

constexpr int kMaxDigits = 6;
constexpr size_t kChunk = 1 << 16;

// Reads exactly length bytes into a zero-terminated buffer, growing it as the data comes so
// that a lying length costs no more memory than the file holds. Returns -1 for a short
// read, -4 when memory runs out.
int read_all(FILE *file, size_t length, std::unique_ptr<char, FreeDeleter> *out) {
    std::unique_ptr<char, FreeDeleter> buf;
    size_t have = 0, cap = 0;
    while (have < length) {
        const size_t want = std::min(kChunk, length - have);
        if (have + want + 1 > cap) {
            size_t next = std::max(cap * 2, have + want + 1);
            if (next > length + 1) next = length + 1;
            void *grown = std::realloc(buf.get(), next);
            if (!grown) return LV_ERR_NOMEM;
            buf.release();
            buf.reset(static_cast<char *>(grown));
            std::memset(buf.get() + cap, 0, next - cap);
            cap = next;
        }
        const size_t got = fread(buf.get() + have, 1, want, file);
        have += got;
        if (got < want) return -1;
    }
    *out = std::move(buf);
    return 0;
}

// Digits at text[i]: 1 to 6 of them give a number; none or too many give -1. `end` is
// left on the first character after the digits.
long read_number(const char *text, size_t len, size_t i, size_t *end) {
    long v = 0;
    int digits = 0;
    while (i < len && text[i] >= '0' && text[i] <= '9') {
        v = digits < kMaxDigits ? v * 10 + (text[i] - '0') : v;
        ++digits;
        ++i;
    }
    *end = i;
    return digits >= 1 && digits <= kMaxDigits ? v : -1;
}

struct Description {
    long last = 0;                // last number read anywhere
    long a = -1, b = -1;          // exposure A/B; a plain number N reads as N/1
    bool whole = false;           // the exposure ended in a blank or "s"
    long gains[3] = {-1, -1, -1}; // B, G, R
};

// Field 7: the exposure, "A/B" or a plain number, ending in a blank or "s".
void read_exposure(const char *text, size_t len, size_t i, Description *d) {
    size_t at = i;
    const long a = read_number(text, len, at, &at);
    if (a < 0) return;
    d->last = a;
    d->a = a;
    long b = 1;
    if (at < len && text[at] == '/') {
        b = read_number(text, len, at + 1, &at);
        if (b < 0) return;
        d->last = b;
    }
    if (at < len && (text[at] == ' ' || text[at] == 's')) {
        d->b = b;
        d->whole = true;
    }
}

// Fields 8 to 10: "B", "G" or "R" and digits, ending in a blank, a comma, a point or the
// end of the text.
void read_gain(const char *text, size_t len, size_t i, Description *d) {
    const char *letters = "BGR";
    const char *hit = std::strchr(letters, text[i]);
    if (!hit || text[i] == '\0') return;
    size_t at = i + 1;
    const long v = read_number(text, len, at, &at);
    if (v < 0) return;
    d->last = v;
    if (at == len || text[at] == ' ' || text[at] == ',' || text[at] == '.')
        d->gains[hit - letters] = v;
}

bool token_start(const char *text, size_t i, size_t field_start) {
    if (i == field_start) return true;
    const char p = text[i - 1];
    return p == ' ' || p == ',' || p == '.';
}

bool starts_with(const uint8_t *p, size_t avail, const char *word) {
    const size_t n = std::strlen(word);
    return avail >= n && std::memcmp(p, word, n) == 0;
}

} // namespace

extern "C" {

LV_API int parse_image_description(FILE *file, int32_t length, ExifInfo *info) {
    if (length < 1) return 0;
    if (!file) return -1;
    std::unique_ptr<char, FreeDeleter> buf;
    if (int rc = read_all(file, static_cast<size_t>(length), &buf); rc < 0) return rc;
    const char *text = buf.get();
    const size_t len = strnlen(text, static_cast<size_t>(length));

    Description d;
    int field = 1;
    size_t field_start = 0;
    for (size_t i = 0; i < len;) {
        if (text[i] == ',' && i + 1 < len && text[i + 1] == ' ') {
            i += 2;
            field_start = i;
            if (++field >= 11) break;
            continue;
        }
        if (field == 7 && i == field_start)
            read_exposure(text, len, i, &d);
        else if (field >= 8 && field <= 10 && token_start(text, i, field_start))
            read_gain(text, len, i, &d);
        ++i;
    }

    const bool all_gains = d.gains[0] >= 0 && d.gains[1] >= 0 && d.gains[2] >= 0;
    if (field < 2 || !all_gains || !info) return static_cast<int>(d.last);

    if (d.whole && d.b >= 1) info->exposureTime = static_cast<float>(d.a) / static_cast<float>(d.b);
    const long lo = std::min({d.gains[0], d.gains[1], d.gains[2]});
    const long hi = std::max({d.gains[0], d.gains[1], d.gains[2]});
    const double m = std::trunc(0.5 * static_cast<double>(lo + hi));
    info->isoSpeed = lv::saturate_i32(200.0 * std::trunc(std::pow(2.0, m * 0.03333333333333333)));
    if (d.whole && d.a >= 1 && d.a <= 99998 && d.b >= 1 && d.b <= 99998) info->descriptionKind = 2;
    return static_cast<int>(d.last);
}

LV_API int get_profile_name(int32_t length, const uint8_t *profile, char *name) {
    if (name) std::memset(name, 0, 32);
    if (length < 49 || !profile || !name) return -1;
    const auto len = static_cast<size_t>(length);
    // The description tag: "desc", four reserved zero bytes, then a big-endian count that
    // is below 256, so three zero bytes and one count byte.
    static const uint8_t kDesc[11] = {'d', 'e', 's', 'c', 0, 0, 0, 0, 0, 0, 0};
    size_t at = 32;
    for (; at < len - 16; ++at)
        if (std::memcmp(profile + at, kDesc, sizeof kDesc) == 0) break;
    if (at >= len - 16) return -1;
    const size_t count = profile[at + 11];
    const uint8_t *text = profile + at + 12;
    const size_t avail = len - (at + 12);

    static const char *const kKnown[] = {"sRGB", "Adobe RGB", "ProPhoto RGB"};
    for (size_t p = 0; p < count && p < avail; ++p) {
        for (const char *known : kKnown) {
            if (starts_with(text + p, avail - p, known)) {
                const size_t n = std::strlen(known);
                std::memcpy(name, known, n);
                return static_cast<int>(n);
            }
        }
    }
    std::memcpy(name, text, std::min<size_t>(32, avail));
    return 32;
}

} // extern "C"
