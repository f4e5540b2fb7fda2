// The conjugate-gradient solver's array operations: the five-point Laplacian (in memory on
// bands, or in place through three rows), a + s b over slices and the dot product with
// per-slice sums added in slice order, so a given thread count always gives the same bits.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "frame/band_threads.h"
#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

// A x at one pixel of row y, given the rows above and below (null outside the image).
// Without wrap a missing neighbour is left out and the centre weight drops with it; with
// wrap rows close on themselves and beyond the top or last row lies that row's middle
// sample, so the centre weight stays -4.
inline float rim_pixel(const float *up, const float *row, const float *down, int w, int x,
                       int wrap) {
    const float c = row[x];
    if (wrap) {
        const float left = row[x > 0 ? x - 1 : w - 1], right = row[x < w - 1 ? x + 1 : 0];
        const float above = up ? up[x] : row[w / 2], below = down ? down[x] : row[w / 2];
        return left + right + above + below - 4.0f * c;
    }
    float sum = 0.0f;
    int n = 0;
    if (x > 0) sum += row[x - 1], ++n;
    if (x < w - 1) sum += row[x + 1], ++n;
    if (up) sum += up[x], ++n;
    if (down) sum += down[x], ++n;
    return sum - static_cast<float>(n) * c;
}

// One output row; the interior columns have all four neighbours.
void laplacian_row(const float *up, const float *row, const float *down, int w, int wrap,
                   float *out) {
    if (up && down) {
        for (int x = 1; x < w - 1; ++x)
            out[x] = row[x - 1] + row[x + 1] + up[x] + down[x] - 4.0f * row[x];
        out[0] = rim_pixel(up, row, down, w, 0, wrap);
        if (w > 1) out[w - 1] = rim_pixel(up, row, down, w, w - 1, wrap);
        return;
    }
    for (int x = 0; x < w; ++x)
        out[x] = rim_pixel(up, row, down, w, x, wrap);
}

// Slice of thread i of a flat array of n: chunks are a multiple of 4 long, the last
// thread, or one that would pass n, takes what is left.
void slice_of(long n, int i, int count, long *first, long *len) {
    const long chunk = ((n / count) + 3) & ~3L;
    *first = i * chunk;
    if (*first > n) *first = n;
    *len = (i == count - 1 || *first + chunk > n) ? n - *first : chunk;
}

// Float products summed in double on four lanes (element i on lane i mod 4), the lanes
// added pairwise at the end: a fixed order that keeps four additions in flight.
float dot(const float *a, const float *b, long n) {
    double lane[4] = {0.0, 0.0, 0.0, 0.0};
    long i = 0;
    for (; i + 4 <= n; i += 4)
        for (int k = 0; k < 4; ++k)
            lane[k] += static_cast<double>(a[i + k] * b[i + k]);
    for (int k = 0; i < n; ++i, ++k)
        lane[k] += static_cast<double>(a[i] * b[i]);
    return static_cast<float>((lane[0] + lane[1]) + (lane[2] + lane[3]));
}

void axpy(const float *a, const float *b, float *out, float scale, long n) {
    for (long i = 0; i < n; ++i)
        out[i] = a[i] + scale * b[i];
}

// Starts one slice body per thread. A thread that can't start leaves its slice, and those
// after it, to the caller's thread; returns the number started (all joined).
template <class Fill>
int run_slices(int count, Tm20SliceArgs *args, void *(*body)(void *), Fill fill) {
    std::unique_ptr<pthread_t[]> ids(new (std::nothrow) pthread_t[count]);
    if (!ids) return 0;
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
    int started = 0;
    for (; started < count; ++started) {
        fill(args[started], started);
        if (lv_thread_create(&ids[started], &attr, body, &args[started]) != 0) break;
    }
    for (int i = 0; i < started; ++i)
        pthread_join(ids[i], nullptr);
    pthread_attr_destroy(&attr);
    return started;
}

} // namespace

extern "C" {

LV_API int tm20mi_orig(int w, int rows, int wrap, long offset, const float *x, float *out) {
    x += offset;
    out += offset;
    for (int y = 1; y < rows - 1; ++y) {
        const float *row = x + static_cast<long>(y) * w;
        laplacian_row(row - w, row, row + w, w, wrap, out + static_cast<long>(y) * w);
    }
    return rows;
}

LV_API void *tm20mi_threaded(void *args) {
    auto *a = static_cast<Tm20miArgs *>(args);
    const lv::Band band = lv::band_of(a->h, a->threadIndex, a->threadCount);
    // One halo row on each inner edge: tm20mi_orig writes neither the first nor the last
    // row it is given.
    const int first = band.first - (a->threadIndex > 0 ? 1 : 0);
    const int end = band.first + band.rows + (a->threadIndex < a->threadCount - 1 ? 1 : 0);
    a->result =
        tm20mi_orig(a->w, end - first, a->wrap, static_cast<long>(first) * a->w, a->x, a->out);
    return nullptr;
}

LV_API int tm20mi(int threads, int w, int h, int wrap, const float *x, float *out) {
    if (threads < 2 || h / threads < 80) return tm20mi_orig(w, h, wrap, 0, x, out);
    const int r = lv::run_threaded<Tm20miArgs>(
        threads, tm20mi_threaded,
        [&](Tm20miArgs &a, int i, int count) { a = Tm20miArgs{w, h, wrap, x, out, i, count, 0}; });
    if (r < 0) return tm20mi_orig(w, h, wrap, 0, x, out); // pure: safe to do again
    return h;
}

LV_API int tm20m(int threads, int w, int h, int wrap, const float *x, float *out) {
    tm20mi(threads, w, h, wrap, x, out);
    const float *last = x + static_cast<long>(h - 1) * w;
    laplacian_row(nullptr, x, h > 1 ? x + w : nullptr, w, wrap, out);
    if (h > 1) laplacian_row(last - w, last, nullptr, w, wrap, out + static_cast<long>(h - 1) * w);
    return h;
}

LV_API int tm20m_streaming(int w, int h, int wrap, float *x) {
    std::unique_ptr<float[], FreeDeleter> store(
        static_cast<float *>(std::calloc(3L * w, sizeof(float))));
    if (!store) return LV_ERR_NOMEM;
    // Originals of the row above, this row, and its result before it goes back in place.
    float *prev = store.get(), *cur = prev + w, *out = cur + w;
    for (int y = 0; y < h; ++y) {
        float *row = x + static_cast<long>(y) * w;
        std::memcpy(cur, row, sizeof(float) * w);
        laplacian_row(y > 0 ? prev : nullptr, cur, y < h - 1 ? row + w : nullptr, w, wrap, out);
        std::memcpy(row, out, sizeof(float) * w);
        float *t = prev;
        prev = cur;
        cur = t;
    }
    return 1;
}

LV_API void *tm20a_threaded(void *args) {
    auto *a = static_cast<Tm20SliceArgs *>(args);
    long first, len;
    slice_of(a->n, a->threadIndex, a->threadCount, &first, &len);
    axpy(a->a + first, a->b + first, a->out + first, a->scale, len);
    a->result = 1;
    return nullptr;
}

LV_API void *tm20d_threaded(void *args) {
    auto *a = static_cast<Tm20SliceArgs *>(args);
    long first, len;
    slice_of(a->n, a->threadIndex, a->threadCount, &first, &len);
    a->sum = dot(a->a + first, a->b + first, len);
    a->result = 1;
    return nullptr;
}

LV_API int tm20a(int threads, long n, const float *a, const float *b, float *out, float scale) {
    std::unique_ptr<Tm20SliceArgs[]> args(threads >= 2 ? new (std::nothrow) Tm20SliceArgs[threads]
                                                       : nullptr);
    if (!args) {
        axpy(a, b, out, scale, n);
        return 1;
    }
    auto fill = [&](Tm20SliceArgs &r, int i) {
        r = Tm20SliceArgs{n, a, b, out, scale, 0.0f, i, threads, 0};
    };
    const int started = run_slices(threads, args.get(), tm20a_threaded, fill);
    if (started < threads) {
        printf("*************   tm20a  error tm20a_threaded: %d  ***************\n", started);
        for (int i = started; i < threads; ++i) { // out may alias a: only the slices left
            fill(args[i], i);
            tm20a_threaded(&args[i]);
        }
    }
    return 1;
}

LV_API float tm20d(int threads, long n, const float *a, const float *b) {
    std::unique_ptr<Tm20SliceArgs[]> args(threads >= 2 ? new (std::nothrow) Tm20SliceArgs[threads]
                                                       : nullptr);
    if (!args) return dot(a, b, n);
    const int started =
        run_slices(threads, args.get(), tm20d_threaded, [&](Tm20SliceArgs &r, int i) {
            r = Tm20SliceArgs{n, a, b, nullptr, 0.0f, 0.0f, i, threads, 0};
        });
    if (started < threads) return dot(a, b, n);
    float sum = 0.0f;
    for (int i = 0; i < threads; ++i)
        sum += args[i].sum;
    return sum;
}

} // extern "C"
