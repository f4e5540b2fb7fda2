// Radiance writers: the full file with its capture metadata, and the strip writer that
// builds a file a band of rows at a time. Both share one scanline coder.
#include <algorithm>
#include <cstring>

#include "fileio/rgbe_internal.h"

namespace lv {

size_t rgbe_encode_plane(const uint8_t *p, int width, uint8_t *out) {
    size_t o = 0;
    auto emit_literal = [&](int c, int n) {
        out[o++] = static_cast<uint8_t>(n);
        memcpy(out + o, p + c, n);
        o += n;
    };
    // c: first byte not yet emitted; n: bytes after c already taken as literal.
    int c = 0, n = 0;
    while (c < width) {
        // Extend the literal over bytes that differ from their successor. Once it holds
        // `limit` bytes (126, or fewer near the plane's end) it takes one more and stops.
        int s = c + n;
        const int limit = std::min(126, width - c - 2);
        if (n < limit) {
            const uint8_t *q = p + s, *end = p + c + limit; // end + 1 lies inside the plane
            while (q < end && q[0] != q[1])
                ++q;
            s = static_cast<int>(q - p);
            n = s - c;
        }
        if (s + 1 < width && p[s] != p[s + 1]) {
            ++n;
            s = c + n;
        }
        if (s + 1 >= width) {
            ++n; // the plane's last byte joins the literal
        } else {
            int r = 1;
            while (s + r < width && r < 127 && p[s + r - 1] == p[s + r])
                ++r;
            if (r >= 5) {
                // Five or more equal bytes make a run; flush the pending literal first.
                if (n >= 1) emit_literal(c, n);
                out[o++] = static_cast<uint8_t>(128 + r);
                out[o++] = p[s];
                c = s + r;
                n = 0;
                continue;
            }
            if (r >= 2) n = n + r < 127 ? n + r : 127; // short repeats stay in the literal
        }
        if (n < 127 && c + n < width) continue;
        emit_literal(c, n);
        c += n;
        n = 0;
    }
    return o;
}

int rgbe_write_scanline(FILE *f, int width, const uint8_t *row, uint8_t *scratch) {
    const uint8_t head[4] = {2, 2, static_cast<uint8_t>(width >> 8),
                             static_cast<uint8_t>(width & 0xFF)};
    if (fwrite(head, 1, 4, f) != 4) return -1;
    for (int plane = 0; plane < 4; ++plane) {
        const size_t len =
            rgbe_encode_plane(row + static_cast<size_t>(plane) * width, width, scratch);
        if (fwrite(scratch, 1, len, f) != len) return -1;
    }
    return 0;
}

int rgbe_write_flat_row(FILE *f, int width, const uint8_t *row, uint8_t *scratch, int y) {
    const uint8_t *r = row, *g = row + width, *b = row + 2 * width, *e = row + 3 * width;
    for (int x = 0; x < width; ++x) {
        scratch[4 * x] = r[x];
        scratch[4 * x + 1] = g[x];
        scratch[4 * x + 2] = b[x];
        scratch[4 * x + 3] = e[x];
    }
    const size_t len = 4 * static_cast<size_t>(width);
    if (fwrite(scratch, 1, len, f) != len) {
        printf("lv_io_rgbe_write uncompressed failed on line %d\n", y);
        return -2;
    }
    return 0;
}

} // namespace lv

namespace {

// Codes rows of a planar image: run-length below the flat width, flat from it on.
int write_rows(FILE *f, int width, int rows, const uint8_t *pixels) {
    if (width < 1 || rows < 1) return 0;
    const bool flat = width >= lv::kFlatWidth;
    auto scratch = lv::alloc_array<uint8_t>((flat ? 4 : 2) * static_cast<size_t>(width) + 2);
    if (!scratch) return -4;
    const size_t rowBytes = 4 * static_cast<size_t>(width);
    for (int y = 0; y < rows; ++y) {
        const uint8_t *row = pixels + rowBytes * y;
        const int rc = flat ? lv::rgbe_write_flat_row(f, width, row, scratch.get(), y)
                            : lv::rgbe_write_scanline(f, width, row, scratch.get());
        if (rc < 0) return rc;
    }
    return 0;
}

// Opens a file for writing with a large stdio buffer, which turns the five writes of each
// scanline into a few large system calls. The buffer must be set before the first write.
lv::FilePtr open_for_writing(const char *path, const char *mode) {
    lv::FilePtr f = lv::open_file(path, mode);
    if (f) setvbuf(f.get(), nullptr, _IOFBF, 1 << 20);
    return f;
}

bool has_byte(const char *field, size_t size, char c) {
    return memchr(field, c, size) != nullptr;
}

} // namespace

extern "C" LV_API int lv_io_rgbe_write(const char *path, int width, int height,
                                       const MetadataBuf *meta, int ignored,
                                       const char *profileName, const unsigned char *pixels) {
    (void)ignored;
    lv::FilePtr f = open_for_writing(path, "wb");
    if (!f) return -1;
    FILE *o = f.get();
    bool ok = fputs("#?RADIANCE\n", o) >= 0;
    if (meta) {
        // Text fields are fixed-size and need not end in a zero byte.
        if (meta->camera[0]) ok = ok && fprintf(o, "CAMERA=%.*s\n", 64, meta->camera) >= 0;
        if (meta->captureDate[0]) {
            // A date that carries its own line feed gets no second one.
            const char *fmt =
                has_byte(meta->captureDate, 20, '\n') ? "CAPDATE=%.*s" : "CAPDATE=%.*s\n";
            ok = ok && fprintf(o, fmt, 20, meta->captureDate) >= 0;
        }
    }
    if (profileName && static_cast<signed char>(profileName[0]) > 0) {
        ok = ok && fputs("ICC_PROFILE=", o) >= 0;
        for (int i = 0; i < 32 && profileName[i]; ++i)
            ok = ok && fprintf(o, "%c", profileName[i]) >= 0;
        ok = ok && fputs("\n", o) >= 0;
    }
    if (meta) {
        auto ratio = [](int32_t num, int32_t den) {
            return static_cast<double>(static_cast<float>(num) / static_cast<float>(den));
        };
        if (meta->shutterNum > 0 && meta->shutterDen > 0)
            ok = ok && fprintf(o, "SHUTTER=%f\n", ratio(meta->shutterNum, meta->shutterDen)) >= 0;
        if (meta->apertureNum > 0 && meta->apertureDen > 0)
            ok = ok &&
                 fprintf(o, "APERTURE=%1.2f\n", ratio(meta->apertureNum, meta->apertureDen)) >= 0;
        if (meta->iso > 0) ok = ok && fprintf(o, "ISO=%d\n", meta->iso) >= 0;
        if (meta->focalNum > 0 && meta->focalDen > 0)
            ok = ok &&
                 fprintf(o, "FOCAL_LENGTH=%1.2f\n", ratio(meta->focalNum, meta->focalDen)) >= 0;
        if (meta->focal35mm > 0) ok = ok && fprintf(o, "35MM_EQUIV=%d\n", meta->focal35mm) >= 0;
        if (meta->focalPlaneXResNum > 0 && meta->focalPlaneXResDen > 0)
            ok = ok && fprintf(o, "FOCAL_PLANE_XRESOLUTION=%1.2f\n",
                               ratio(meta->focalPlaneXResNum, meta->focalPlaneXResDen)) >= 0;
        if (meta->focalPlaneResUnit > 0)
            ok = ok && fprintf(o, "FOCAL_PLANE_RESOLUTIONUNIT=%d\n", meta->focalPlaneResUnit) >= 0;
    }
    ok = ok && fputs("Generated with Lumivantor Pro 4.1 for Mac OS X\n", o) >= 0;
    ok = ok && fputs("FORMAT=32-bit_rle_rgbe\n\n", o) >= 0;
    ok = ok && fprintf(o, "-Y %d +X %d\n", height, width) >= 0;
    if (!ok) return -1;
    const int rc = write_rows(o, width, height, pixels);
    if (rc < 0) return rc;
    if (fclose(f.release()) != 0) return -1;
    return height;
}

extern "C" LV_API int lv_write_strip_rgbe(const char *path, int stripIndex, int stripHeight,
                                          int width, int height, int ignored,
                                          const unsigned char *pixels) {
    (void)ignored;
    lv::FilePtr f = open_for_writing(path, stripIndex == 0 ? "wb" : "ab");
    if (!f) return -1;
    if (stripIndex == 0) {
        if (fputs("#?RADIANCE\n# Generated by Lumivantor Pro v4.0\nFORMAT=32-bit_rle_rgbe\n\n",
                  f.get()) < 0 ||
            fprintf(f.get(), "-Y %d +X %d\n", height, width) < 0)
            return -1;
    }
    // The last strip holds what is left of the image.
    const long long first = static_cast<long long>(stripIndex) * stripHeight;
    const long long rows = (first + stripHeight > height) ? height - first : stripHeight;
    if (rows < 1) return 0;
    const int rc = write_rows(f.get(), width, static_cast<int>(rows), pixels);
    if (rc < 0) return rc;
    if (fclose(f.release()) != 0) return -1;
    return static_cast<int>(rows);
}
