// Relaxation kernels of the old solver: red-black Gauss-Seidel sweeps on the Poisson
// equation Laplacian(x) = c f. A pixel becomes the mean of its neighbours minus the source
// term; one half sweep updates one colour of the chequerboard, which only reads the other
// colour, so rows can be split into bands and the order within a half sweep is free.
#include <cstdlib>
#include <memory>

#include "frame/band_threads.h"
#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

extern "C" {
float _progressInit = 0.0f;
float _progressIncrement = 0.0f;
}

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

// Update of a pixel on the image's rim. Without wrap, missing neighbours are left out
// and the mean is taken over those present (factor 0.5 at a corner, 0.3333 on an edge);
// with wrap the row closes on itself and above the top row, or below the last row, lies
// that row's middle sample, so every pixel keeps four neighbours and the factor 0.25.
float rim_update(const float *x, const float *frow, int w, int h, int wrap, float c, int col,
                 int row) {
    const float *r = x + static_cast<long>(row) * w;
    if (wrap) {
        const float left = r[col > 0 ? col - 1 : w - 1];
        const float right = r[col < w - 1 ? col + 1 : 0];
        const float above = row > 0 ? r[col - w] : r[w / 2];
        const float below = row < h - 1 ? r[col + w] : r[w / 2];
        return (left + right + above + below - c * frow[col]) * 0.25f;
    }
    float sum = 0.0f;
    int n = 0;
    if (col > 0) sum += r[col - 1], ++n;
    if (col < w - 1) sum += r[col + 1], ++n;
    if (row > 0) sum += r[col - w], ++n;
    if (row < h - 1) sum += r[col + w], ++n;
    static const float kFactor[5] = {0.0f, 1.0f, 0.5f, 0.3333f, 0.25f};
    return (sum - c * frow[col]) * kFactor[n];
}

// One colour of one row; frow is the row's source term.
void relax_row(float *x, const float *frow, int w, int h, int wrap, float c, int row, int colour) {
    const int first = (row & 1) ^ (colour != 0);
    float *r = x + static_cast<long>(row) * w;
    if (row == 0 || row == h - 1) {
        for (int col = first; col < w; col += 2)
            r[col] = rim_update(x, frow, w, h, wrap, c, col, row);
        return;
    }
    int col = first;
    if (col == 0) r[0] = rim_update(x, frow, w, h, wrap, c, 0, row), col = 2;
    const float *up = r - w, *down = r + w;
    for (; col < w - 1; col += 2)
        r[col] = (r[col - 1] + r[col + 1] + up[col] + down[col] - c * frow[col]) * 0.25f;
    if (col == w - 1) r[col] = rim_update(x, frow, w, h, wrap, c, col, row);
}

void report_sweep(LvProgressCallback callback, int sweep) {
    if (callback)
        progress(1, callback, nullptr,
                 _progressInit + static_cast<float>(sweep) * _progressIncrement);
}

} // namespace

extern "C" {

LV_API int blur2i_orig(int colour, int width, int height, int wrap, long offset, float *x, float *f,
                       float c) {
    if (height <= 2) return 1;
    x += offset;
    f += offset;
    for (int row = 1; row < height - 1; ++row)
        relax_row(x, f + static_cast<long>(row) * width, width, height, wrap, c, row, colour);
    return 1;
}

LV_API void *blur2i_threaded(void *args) {
    auto *a = static_cast<Blur2iArgs *>(args);
    const lv::Band band = lv::band_of(a->height, a->threadIndex, a->threadCount);
    // A halo row on each inner edge is read, never written: blur2i_orig leaves the first
    // and last rows of what it is given alone.
    const int first = band.first - (a->threadIndex > 0 ? 1 : 0);
    const int end = band.first + band.rows + (a->threadIndex < a->threadCount - 1 ? 1 : 0);
    // The band's local row 0 is row `first` of the plane: from an odd row the local
    // chequerboard is the plane's with its colours exchanged.
    const int colour = (first & 1) ? 1 - a->colour : a->colour;
    a->result = blur2i_orig(colour, a->width, end - first, a->wrap,
                            a->offset + static_cast<long>(first) * a->width, a->x, a->f, a->c);
    return nullptr;
}

LV_API int blur2i(int threads, int colour, int width, int height, int wrap, long offset, float *x,
                  float *f, float c) {
    if (threads < 2 || height / threads < 80)
        return blur2i_orig(colour, width, height, wrap, offset, x, f, c);
    const int r = lv::run_threaded<Blur2iArgs>(
        threads, blur2i_threaded, [&](Blur2iArgs &a, int i, int count) {
            a = Blur2iArgs{colour, width, height, wrap, offset, x, f, c, i, count, 0};
        });
    // Without all its threads the half sweep runs once more on this thread, over what
    // the started bands did.
    if (r < 0) return blur2i_orig(colour, width, height, wrap, offset, x, f, c);
    return 1;
}

LV_API int blur2(int threads, int width, int height, int sweeps, int wrap, long offset, float *x,
                 float *f, float c, LvProgressCallback callback) {
    if (sweeps < 1) return 1;
    float *xs = x + offset;
    const float *fs = f + offset;
    const long last = static_cast<long>(height - 1) * width;
    for (int sweep = 1; sweep <= sweeps; ++sweep) {
        for (int colour = 0; colour < 2; ++colour) {
            relax_row(xs, fs, width, height, wrap, c, 0, colour);
            blur2i(threads, colour, width, height, wrap, offset, x, f, c);
            if (height > 1) relax_row(xs, fs + last, width, height, wrap, c, height - 1, colour);
        }
        report_sweep(callback, sweep);
    }
    return 1;
}

LV_API int blur1(int width, int height, int sweeps, int wrap, long offset, float *f, float *x,
                 int streaming, FILE *file, float *rowStore, float c, LvProgressCallback callback) {
    if (sweeps < 1) return 1;
    std::unique_ptr<float[], FreeDeleter> own;
    if (streaming && !rowStore) {
        own.reset(static_cast<float *>(std::calloc(width, sizeof(float))));
        if (!own) return LV_ERR_NOMEM;
        rowStore = own.get();
    }
    float *xs = x + offset;
    for (int sweep = 1; sweep <= sweeps; ++sweep) {
        for (int colour = 0; colour < 2; ++colour)
            for (int row = 0; row < height; ++row) {
                const long at = offset + static_cast<long>(row) * width;
                const float *frow = f + at;
                if (streaming) {
                    if (fseeko(file, static_cast<off_t>(at) * 4, SEEK_SET) != 0) return LV_ERR_ARG;
                    if (fread(rowStore, 4, width, file) != static_cast<size_t>(width))
                        return LV_ERR_IO;
                    frow = rowStore;
                }
                relax_row(xs, frow, width, height, wrap, c, row, colour);
            }
        report_sweep(callback, sweep);
    }
    return 1;
}

LV_API int blur0(int threads, int width, int height, int sweeps, int wrap, long offset, float *x,
                 float *f, float c, int streaming, FILE *file, float *rowStore,
                 LvProgressCallback callback) {
    if (sweeps < 1) return 1;
    if (threads >= 2 && static_cast<long>(width) * height >= 1201 && !streaming)
        return blur2(threads, width, height, sweeps, wrap, offset, x, f, c, callback);
    return blur1(width, height, sweeps, wrap, offset, f, x, streaming, file, rowStore, c, callback);
}

} // extern "C"
