// Records, scalar rounding helpers, byte-order readers, buffer and folder helpers.
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "frame/rounding.h"
#include "lumivantor/frame.h"

static_assert(sizeof(DimParam) == 10 * 4, "DimParam is ten 32-bit ints");
static_assert(offsetof(DimParam, inputFormat) == 36, "DimParam field order");
static_assert(offsetof(OptimParam, sourceFile) == 16, "OptimParam: four ints, then paths");
static_assert(sizeof(OptimParam) == 16 + 7 * sizeof(const char *), "OptimParam layout");
static_assert(sizeof(LvWorkContext) == 16, "work context header");

namespace {
struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;
} // namespace

extern "C" {

void init_dim_param(DimParam *d) {
    *d = DimParam{};
    d->samplesPerPixel = 3;
    d->bpsIn = 8;
    d->bpsOut = 8;
}

void init_optim_param(OptimParam *o) {
    *o = OptimParam{};
}

int arrondi(float x) {
    const int t = static_cast<int>(x);
    return (x - static_cast<float>(t) > 0.5f) ? t + 1 : t;
}

int plafond(int a, int b) {
    return a < b ? a : b;
}

int coupeh(int v, float limit) {
    return static_cast<float>(v) > limit ? static_cast<int>(limit) : v;
}

int lim8(int v) {
    return v < 0 ? 0 : (v > 255 ? 255 : v);
}

int lim8int(int v) {
    return lim8(v);
}

int64_t lim16(int64_t v) {
    return v < 0 ? 0 : (v > 65535 ? 65535 : v);
}

uint8_t lim8f(float x) {
    if (x > 0.0f && x < 255.0f) return static_cast<uint8_t>(x);
    return x >= 255.0f ? 255 : 0;
}

int clipvar(int v, double g) {
    return lv::round_over_half(std::pow(v * 0.01, g) * 1000.0);
}

int fclipvar(float v, double g) {
    return lv::round_over_half(std::pow(v * 0.01, g) * 1000.0);
}

float lerp(float a, float b, float t) {
    return a + (b - a) * t;
}

// An fgetc() of EOF (-1) enters the sum unchecked, as callers of these readers expect.
uint32_t fget4m(FILE *f) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v = (v << 8) + static_cast<uint32_t>(std::fgetc(f));
    return v;
}

uint64_t fget8m(FILE *f) {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i)
        v = (v << 8) + static_cast<uint64_t>(std::fgetc(f));
    return v;
}

int copie_mem(const void *src, int count, void *dst) {
    if (count > 0) std::memcpy(dst, src, static_cast<size_t>(count));
    return 1;
}

int gjmemcpyint(void *dst, int dstOffset, const void *src, int srcOffset, int count) {
    if (count > 0)
        std::memcpy(static_cast<unsigned char *>(dst) + dstOffset,
                    static_cast<const unsigned char *>(src) + srcOffset,
                    static_cast<size_t>(count));
    return 1;
}

int extractbuf(int index, int size, const void *buffer, void *output) {
    if (size > 0)
        std::memcpy(output,
                    static_cast<const unsigned char *>(buffer) +
                        static_cast<ptrdiff_t>(index) * size,
                    static_cast<size_t>(size));
    return 1;
}

int loadbuf(int index, int size, const void *input, void *buffer) {
    if (size > 0)
        std::memcpy(static_cast<unsigned char *>(buffer) + static_cast<ptrdiff_t>(index) * size,
                    input, static_cast<size_t>(size));
    return 1;
}

int save_buffer(const char *path, const void *buffer, int size) {
    File f(std::fopen(path, "wb"));
    if (!f) return -1;
    const size_t n = size > 0 ? static_cast<size_t>(size) : 0;
    if (std::fwrite(buffer, 1, n, f.get()) != n) return -1;
    if (std::fclose(f.release()) != 0) return -1;
    return size;
}

int load_buffer(const char *path, void *buffer, int size, int *outSize) {
    File f(std::fopen(path, "rb"));
    if (!f) return -1;
    const size_t n = size > 0 ? static_cast<size_t>(size) : 0;
    if (std::fread(buffer, 1, n, f.get()) != n) return -1;
    *outSize = size;
    return 1;
}

int fillRowStride(int, int rows, int, int bitsPerPixel, int width, int strideWidth, const void *src,
                  void *dst) {
    const int row_bytes = (width * bitsPerPixel) >> 3;
    const int stride_bytes = (strideWidth * bitsPerPixel) >> 3;
    if (row_bytes == stride_bytes) return 1;
    if (rows < 1) return 0;
    const auto *s = static_cast<const unsigned char *>(src);
    auto *d = static_cast<unsigned char *>(dst);
    // Last row first, so that source and destination may be the same buffer.
    for (int y = rows - 1; y >= 0; --y) {
        unsigned char *drow = d + static_cast<ptrdiff_t>(y) * stride_bytes;
        if (stride_bytes > row_bytes)
            std::memset(drow + row_bytes, 0, static_cast<size_t>(stride_bytes - row_bytes));
        std::memmove(drow, s + static_cast<ptrdiff_t>(y) * row_bytes,
                     static_cast<size_t>(row_bytes));
    }
    return rows;
}

int copyImageRows(int rows, int rowBytes, int srcPitch, int dstPitch, const void *src, void *dst) {
    if (rows < 1) return 0;
    const auto *s = static_cast<const unsigned char *>(src);
    auto *d = static_cast<unsigned char *>(dst);
    for (int y = 0; y < rows; ++y)
        std::memcpy(d + static_cast<ptrdiff_t>(y) * dstPitch,
                    s + static_cast<ptrdiff_t>(y) * srcPitch, static_cast<size_t>(rowBytes));
    return rows;
}

int memBlocksEqual(const void *a, const void *b, int size) {
    if (size <= 0) return 0;
    return std::memcmp(a, b, static_cast<size_t>(size)) != 0 ? 1 : 0;
}

int lv_deletef(const char *path) {
    return std::remove(path);
}

int lv_checkfolder(const char *path) {
    return access(path, F_OK);
}

int lv_makefolder(const char *parent, const char *name) {
    const int r = chdir(parent);
    if (r != 0) return r;
    return mkdir(name, 0777);
}

} // extern "C"
