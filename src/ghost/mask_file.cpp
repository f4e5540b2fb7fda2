// The ghost selection file: one line of ASCII text holding polygons, never pixels.
//
//   LumivantorGhostingMask W<w> H<h> N<n> T<total> S0 E<e> P<p> C<x>,<y> <x>,<y>  S1 ...
//
// The reader faces files from users' disks. get_mask_info caps the size it reads;
// get_mask_data streams the file and checks each count against what get_mask_info reported
// for the same path, since the host sized its arrays from those counts.
#include <lumivantor/ghost.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace {

struct FileCloser {
    void operator()(FILE *f) const {
        if (f) std::fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

constexpr char kHeader[] = "LumivantorGhostingMask W%d H%d N%d T%d";
constexpr long kMinSize = 60;
constexpr long kMaxSize = 1000000;

// What get_mask_info last reported for a few paths: the selection count and point total
// the host sized its arrays from.
struct Measured {
    std::string path;
    int n = 0;
    int total = 0;
};
constexpr int kRemembered = 16;
std::mutex measured_lock;
Measured measured[kRemembered];
int measured_next = 0;

void remember(const char *path, int n, int total) {
    std::lock_guard<std::mutex> hold(measured_lock);
    for (Measured &m : measured)
        if (m.path == path) {
            m.n = n;
            m.total = total;
            return;
        }
    measured[measured_next] = Measured{path, n, total};
    measured_next = (measured_next + 1) % kRemembered;
}

bool recall(const char *path, int &n, int &total) {
    std::lock_guard<std::mutex> hold(measured_lock);
    for (const Measured &m : measured)
        if (!m.path.empty() && m.path == path) {
            n = m.n;
            total = m.total;
            return true;
        }
    return false;
}

} // namespace

extern "C" {

LV_API int write_ghost_mask(const char *path, int width, int height, int n,
                            const int32_t *selectionExposures, const int32_t *selectionPoints,
                            const int32_t *coords) {
    FilePtr f(std::fopen(path, "wb"));
    if (!f) return -1;
    if (std::fprintf(f.get(), "LumivantorGhostingMask W%d H%d N%d", width, height, n) < 0)
        return -1;
    if (n < 1) return std::fprintf(f.get(), " T%d", 0) < 0 ? -1 : 0;

    // The total counts positive path lengths only.
    long long total = 0;
    for (int i = 0; i < n; ++i)
        if (selectionPoints[i] > 0) total += selectionPoints[i];
    if (std::fprintf(f.get(), " T%d", static_cast<int>(total)) < 0) return -1;

    // A path of length P occupies 2 P entries of coords even when P is not positive, so a
    // negative length moves the reading position back; it may not move before the start.
    long long at = 0;
    int written = 0;
    for (int i = 0; i < n; ++i) {
        const int p = selectionPoints[i];
        if (std::fprintf(f.get(), " S%d E%d P%d C", i, selectionExposures[i], p) < 0) return -1;
        if (at < 0) return -1;
        for (int k = 0; k < p; ++k, ++written)
            if (std::fprintf(f.get(), "%d,%d ", coords[at + 2 * k], coords[at + 2 * k + 1]) < 0)
                return -1;
        at += 2LL * p;
    }
    FILE *raw = f.release();
    return std::fclose(raw) == 0 ? written : -1;
}

LV_API int get_mask_info(const char *path, int32_t *width, int32_t *height, int32_t *n) {
    FilePtr f(std::fopen(path, "rb"));
    if (!f) {
        std::fputs("get_mask_info - could not open input file\n", stderr);
        return -1;
    }
    if (std::fseek(f.get(), 0, SEEK_END) != 0) return -1;
    const long size = std::ftell(f.get());
    if (size < 0) return -1;
    if (size < kMinSize) {
        std::fprintf(stderr,
                     "get_mask_info - %s is too short to be a valid Lumivantor Ghosting Mask "
                     "file (%d vs %d)\n",
                     path, static_cast<int>(kMinSize - 1), static_cast<int>(size));
        return -2;
    }
    if (size > kMaxSize) {
        // The size and the limit stand in each other's places in this message.
        std::fprintf(stderr, "get_mask_info - %s size %d more than %d Kb\n", path, 1000,
                     size > INT_MAX ? INT_MAX : static_cast<int>(size));
        return -2;
    }
    std::rewind(f.get());
    std::unique_ptr<char[]> text(new (std::nothrow) char[size + 1]);
    if (!text) return -4;
    if (std::fread(text.get(), 1, size, f.get()) != static_cast<size_t>(size)) {
        std::fputs("get_mask_info - could not read file\n", stderr);
        return -1;
    }
    text[size] = '\0';

    // A foreign file is not an error: whatever was scanned is reported, zeros for the rest.
    int w = 0, h = 0, count = 0, total = 0;
    if (std::sscanf(text.get(), kHeader, &w, &h, &count, &total) != 4)
        std::fprintf(stderr, "get_mask_info - %s isn't a Lumivantor Ghosting Mask file", path);
    *width = w;
    *height = h;
    *n = count;
    remember(path, count, total);
    return total;
}

LV_API int get_mask_data(const char *path, int32_t *selectionExposures, int32_t *selectionPoints,
                         int32_t *coords) {
    FilePtr f(std::fopen(path, "rb"));
    if (!f) {
        std::fputs("get_mask_data - could not open input file\n", stderr);
        return -1;
    }
    int w, h, n, total;
    if (std::fscanf(f.get(), kHeader, &w, &h, &n, &total) != 4) {
        std::fprintf(stderr, "get_mask_data - %s isn't a Lumivantor Ghosting Mask file", path);
        return -2;
    }
    // The arrays were sized from get_mask_info: a file that now claims more selections or
    // points than it did then would be read past their ends.
    int sized_n, sized_total;
    if (!recall(path, sized_n, sized_total) || n > sized_n || total > sized_total) {
        std::fprintf(stderr, "get_mask_data - %s differs from what get_mask_info measured\n", path);
        return -2;
    }

    int read = 0;
    for (int i = 0; i < n; ++i) {
        int s, e, p;
        if (std::fscanf(f.get(), " S%d E%d P%d C", &s, &e, &p) != 3) {
            std::fprintf(stderr, "get_mask_data - could not find path header info for path: %d", i);
            return -2;
        }
        if (s != i)
            std::fprintf(stderr, "get_mask_data - selection read is %d but expected %d", s, i);
        selectionExposures[i] = e;
        selectionPoints[i] = p;
        if (static_cast<long long>(p) + read > total) {
            std::fprintf(
                stderr, "get_mask_data path %d - nbPoints is %d  but total is %d (read already %d)",
                i, p, total, read);
            return -3;
        }
        for (int k = 0; k < p; ++k, ++read)
            if (std::fscanf(f.get(), "%d,%d ", &coords[2 * read], &coords[2 * read + 1]) != 2) {
                std::fprintf(stderr,
                             "get_mask_data - could not find coords at path %d  for point %d\n", i,
                             read);
                return -1;
            }
    }
    return read;
}

} // extern "C"
