// The enhancer's log-luminance plane: natural log of Y = 0.2126 R + 0.7152 G + 0.0722 B,
// from RGBE rows (through the exponent table) or from 8/16-bit samples (through the
// camera curve), with the geometric mean, contrast and minimum of the scene.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lumivantor/fileio.h"
#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

// Marks a black pixel (no exponent or no luminance) until the holes are filled.
constexpr float kHole = -1e9f;

inline float luminance(float r, float g, float b) {
    return 0.2126f * r + 0.7152f * g + 0.0722f * b;
}

inline float log_of(float v) {
    return static_cast<float>(std::log(static_cast<double>(v)));
}

// Running sums of the lit pixels.
struct LogStats {
    double sum = 0.0;
    float lo = 1e9f, hi = -1e9f;
    long count = 0;
    long holes = 0;
    void add(float l) {
        sum += l;
        if (l > hi) hi = l;
        if (l < lo) lo = l;
        ++count;
    }
    void finish(float *stats) const {
        if (count > 0) stats[0] = static_cast<float>(std::exp(sum / static_cast<double>(count)));
        if (stats[0] > 0.0f)
            stats[1] = static_cast<float>(std::exp(static_cast<double>(hi))) / stats[0];
        stats[2] = static_cast<float>(std::exp(static_cast<double>(lo)));
    }
};

// Log luminance of one RGBE row into out (width floats); black pixels become holes.
void rgbe_row(const unsigned char *row, int width, const float *expTable, float *out,
              LogStats &st) {
    const unsigned char *r = row, *g = row + width, *b = row + 2 * width, *e = row + 3 * width;
    for (int x = 0; x < width; ++x) {
        const float y = luminance(r[x], g[x], b[x]);
        if (e[x] != 0 && y > 0.0f) {
            const float l = log_of(expTable[e[x]] * y);
            out[x] = l;
            st.add(l);
        } else {
            out[x] = kHole;
            ++st.holes;
        }
    }
}

void fill_holes(float *plane, long n, float value) {
    for (long i = 0; i < n; ++i)
        if (plane[i] < -99999999.0f) plane[i] = value;
}

} // namespace

extern "C" {

LV_API int calc_tm0(int kind, int samplesPerPixel, int width, int ignored, int strideIn,
                    int rowWidth, int height, int paddedWidth, int paddedHeight, float *stats,
                    float *expTable, float *curve, const unsigned char *image, float *plane) {
    (void)width;
    (void)ignored;
    if (kind < 0) return 1;
    if (rowWidth < 10 || height < 10) return LV_ERR_ARG;
    LogStats st;
    const long pw = paddedWidth;
    const int spp = samplesPerPixel, mid = (spp - 1) / 2, last = spp - 1;
    const float top = kind == 1 ? 65535.0f : 255.0f;
    // The darkest luminance a sample can stand for; anything darker is noise.
    const float floor_y = static_cast<float>(top * std::pow(1.0 / static_cast<double>(top), 2.2));
    for (int y = 0; y < height; ++y) {
        float *out = plane + y * pw;
        if (kind == 0) {
            rgbe_row(image + 4L * rowWidth * y, rowWidth, expTable, out, st);
        } else {
            for (int x = 0; x < rowWidth; ++x) {
                float r, g, b;
                const long at = static_cast<long>(y) * strideIn + static_cast<long>(x) * spp;
                if (kind == 1) {
                    const auto *s = reinterpret_cast<const uint16_t *>(image) + at;
                    r = curve[s[0]], g = curve[s[mid]], b = curve[s[last]];
                } else {
                    const unsigned char *s = image + at;
                    r = curve[s[0]], g = curve[s[mid]], b = curve[s[last]];
                }
                float l = luminance(r, g, b);
                if (l < floor_y) l = floor_y;
                out[x] = log_of(l);
                st.add(out[x]);
            }
        }
        for (long x = rowWidth; x < pw; ++x)
            out[x] = out[rowWidth - 1];
    }
    for (int y = height; y < paddedHeight; ++y)
        std::memcpy(plane + y * pw, plane + (height - 1) * pw, sizeof(float) * pw);
    st.finish(stats);
    // Black pixels take the mean log luminance, so they add no false edges.
    if (st.holes > 0)
        fill_holes(plane, pw * paddedHeight,
                   st.count > 0 ? static_cast<float>(st.sum / static_cast<double>(st.count))
                                : st.lo);
    return 1;
}

LV_API int calc_tm0s(int kind, DimParam dim, OptimParam opt, float *stats, float *expTable,
                     float *work) {
    const int w = dim.width, h = dim.height;
    if (w < 10 || h < 10) return LV_ERR_ARG;
    if (kind > 0) return LV_ERR_KIND;
    auto *bytes = reinterpret_cast<unsigned char *>(work);
    const int r = lv_io_read_rgbe(w, h, opt.sourceFile, bytes);
    if (r < 0) return r;
    // The RGBE image and its plane share work: spilled to tempPath0 first, the image comes
    // back a row at a time while the plane overwrites it row by row.
    const size_t row_bytes = 4u * static_cast<size_t>(w);
    {
        File out(opt.tempPath0 ? std::fopen(opt.tempPath0, "wb") : nullptr);
        if (!out) return LV_ERR_ARG;
        if (std::fwrite(bytes, row_bytes, h, out.get()) != static_cast<size_t>(h)) return LV_ERR_IO;
        if (std::fclose(out.release()) != 0) return LV_ERR_IO;
    }
    std::unique_ptr<unsigned char[], FreeDeleter> row(
        static_cast<unsigned char *>(std::calloc(row_bytes, 1)));
    if (!row) return LV_ERR_NOMEM;
    File in(std::fopen(opt.tempPath0, "rb"));
    if (!in) return LV_ERR_ARG;
    LogStats st;
    for (int y = 0; y < h; ++y) {
        if (std::fread(row.get(), 1, row_bytes, in.get()) != row_bytes) return LV_ERR_IO;
        rgbe_row(row.get(), w, expTable, work + static_cast<long>(y) * w, st);
    }
    st.finish(stats);
    // Here the holes take the darkest lit value.
    if (st.holes >= 2) fill_holes(work, static_cast<long>(w) * h, st.lo);
    return 1;
}

} // extern "C"
