// Shared pieces of the Radiance reader and writers: file ownership, the header walk and the
// scanline decoder.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "lumivantor/fileio.h"

namespace lv {

struct FileCloser {
    void operator()(FILE *f) const {
        if (f) fclose(f);
    }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

inline FilePtr open_file(const char *path, const char *mode) {
    return FilePtr(path ? fopen(path, mode) : nullptr);
}

template <class T> std::unique_ptr<T[]> alloc_array(size_t count) {
    return std::unique_ptr<T[]>(new (std::nothrow) T[count ? count : 1]);
}

// Every reader reads header lines through a 128-byte buffer, so a longer line arrives as
// several fragments, each examined as a line of its own.
constexpr int kHeaderLine = 128;

// Walks a header: reads a line, then for each line notes whether it ends the header, lets
// on_line parse it, and reads the next one, until the ending line has been handled. The
// buffer then holds the resolution line. Returns the number of lines handled, or -1 when
// the file ends first.
template <class OnLine> int walk_header(FILE *f, char (&line)[kHeaderLine], OnLine on_line) {
    if (!fgets(line, kHeaderLine, f)) return -1;
    int count = 0;
    for (;;) {
        const int ends = rgbe_end_of_header(reinterpret_cast<const uint8_t *>(line), kHeaderLine);
        on_line(line);
        ++count;
        if (!fgets(line, kHeaderLine, f)) return -1;
        if (ends) return count;
    }
}

// Reads "-Y height +X width"; any other shape leaves zeros.
inline void scan_resolution(const char *line, int *width, int *height) {
    *width = 0;
    *height = 0;
    (void)sscanf(line, "-Y %d +X %d", height, width);
}

// Buffered byte source over a FILE, so that decoding a scanline does not pay a library
// call per byte.
class ByteSource {
  public:
    explicit ByteSource(FILE *f) : f_(f) {}
    // Next byte, or -1 at end of file.
    int get() {
        if (pos_ == len_ && !refill()) return -1;
        return buf_[pos_++];
    }
    // Copies up to count bytes; returns how many there were before end of file.
    size_t read(uint8_t *dst, size_t count) {
        size_t done = 0;
        while (done < count) {
            if (pos_ == len_ && !refill()) break;
            size_t take = len_ - pos_;
            if (take > count - done) take = count - done;
            memcpy(dst + done, buf_ + pos_, take);
            pos_ += take;
            done += take;
        }
        return done;
    }

  private:
    bool refill() {
        len_ = fread(buf_, 1, sizeof buf_, f_);
        pos_ = 0;
        return len_ > 0;
    }
    FILE *f_;
    uint8_t buf_[1 << 16];
    size_t pos_ = 0, len_ = 0;
};

// Peeks the first four pixel bytes: a run-length file starts its scanline with 2, 2 and a
// width whose high bit is clear. Returns 1 run-length, 0 flat, -1 short read.
int rgbe_peek_rle(FILE *f);

// Reads a scanline head: -1 short, -201 high bit in the width field, -4 other width, else 0.
inline int rgbe_scanline_head(ByteSource &src, int width) {
    uint8_t head[4];
    if (src.read(head, 4) != 4) return -1;
    if (head[2] & 0x80) return -201;
    if (((head[2] << 8) | head[3]) != width) return -4;
    return 0;
}

// Decodes the four planes of one run-length scanline after its head. Each plane's span of
// bytes goes to sink(plane, column, bytes, count) for literals and run(plane, column, value,
// count) for runs. Bytes inside a literal or a run value past end of file read as 0xFF.
// Returns 0, -1 for end of file at a code, -202 for a zero code or a span past the plane.
template <class Literal, class Run>
int rgbe_decode_planes(ByteSource &src, int width, Literal literal, Run run) {
    uint8_t bytes[128];
    for (int plane = 0; plane < 4; ++plane) {
        int x = 0;
        while (x < width) {
            const int code = src.get();
            if (code < 0) return -1;
            if (code == 0) return -202;
            if (code <= 128) {
                if (code > width - x) return -202;
                const size_t got = src.read(bytes, static_cast<size_t>(code));
                if (got < static_cast<size_t>(code)) memset(bytes + got, 0xFF, code - got);
                literal(plane, x, bytes, code);
                x += code;
            } else {
                const int count = code - 128;
                if (count > width - x) return -202;
                const int v = src.get();
                run(plane, x, static_cast<uint8_t>(v < 0 ? 0xFF : v), count);
                x += count;
            }
        }
    }
    return 0;
}

// Codes one planar row (4 * width bytes) as a scanline into f; scratch holds 2 * width
// bytes. Returns 0, or -1 when a write fails.
int rgbe_write_scanline(FILE *f, int width, const uint8_t *row, uint8_t *scratch);
// Run-length code of one plane into out; returns the number of bytes produced.
size_t rgbe_encode_plane(const uint8_t *p, int width, uint8_t *out);
// Writes a row as width interleaved quads R, G, B, E; returns 0 or -2 with the message.
int rgbe_write_flat_row(FILE *f, int width, const uint8_t *row, uint8_t *scratch, int y);

// Files at least this wide are written flat, without run-length coding.
constexpr int kFlatWidth = 32768;

} // namespace lv
