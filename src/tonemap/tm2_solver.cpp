// The conjugate-gradient solve of one level, A x = rhs with A the five-point Laplacian:
// in memory, or with its five long arrays (x, p, r, t = A p and the right-hand side) in
// temp files and only one or two strips of each in memory at a time.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "tonemap/enhancer_stages.h"
#include "tonemap/stage_buffers.h"

namespace {

using lv::alloc_floats;
using lv::File;
using lv::FloatBuf;
using lv::FreeDeleter;

// Progress of the finest level: from 0.45 over the first 30 % of the iteration budget.
struct Reporter {
    LvProgressCallback callback;
    int steps;
    Reporter(LvProgressCallback cb, int maxIterations)
        : callback(cb), steps(static_cast<int>(0.3 * maxIterations)) {
        if (!callback) return;
        _progressInit = 0.45f;
        _progressIncrement = 0.35f / static_cast<float>(steps);
        progress(1, callback, nullptr, 0.45f);
    }
    void done(int i) const {
        if (callback && i + 1 < steps)
            progress(1, callback, nullptr,
                     _progressInit + static_cast<float>(i + 1) * _progressIncrement);
    }
};

int solve_in_memory(int w, int h, int maxIterations, int wrap, int threads,
                    LvProgressCallback callback, float *rhs, float *x, float tolerance) {
    const Reporter report(callback, maxIterations);
    const long n = static_cast<long>(w) * h;
    FloatBuf r(static_cast<float *>(std::calloc(n, sizeof(float))));
    FloatBuf t(static_cast<float *>(std::calloc(n, sizeof(float))));
    if (!r || !t) return LV_ERR_NOMEM;
    float *p = rhs; // the search direction takes the right-hand side's place
    tm20m(threads, w, h, wrap, x, t.get());
    tm20a(threads, n, rhs, t.get(), r.get(), -1.0f);
    std::memcpy(p, r.get(), sizeof(float) * n);
    float rr = tm20d(threads, n, r.get(), r.get());
    const float limit = rr * tolerance;
    int i = 0;
    for (; i < maxIterations; ++i) {
        tm20m(threads, w, h, wrap, p, t.get());
        const float pt = tm20d(threads, n, p, t.get());
        if (pt == 0.0f) break; // nothing left to solve (an all-zero right-hand side)
        const float alpha = rr / pt;
        tm20a(threads, n, x, p, x, alpha);
        tm20a(threads, n, r.get(), t.get(), r.get(), -alpha);
        const float rr_new = tm20d(threads, n, r.get(), r.get());
        // Written so that a NaN residual stops the solve too.
        if (!(rr_new >= limit)) return i + 1;
        tm20a(threads, n, r.get(), p, p, rr_new / rr);
        rr = rr_new;
        report.done(i);
    }
    return i;
}

File open_temp(const char *path, const char *mode, const char *message) {
    File f(path ? std::fopen(path, mode) : nullptr);
    if (!f) {
        printf(message, path ? path : "(null)");
        return f;
    }
    // Unbuffered: a full disk shows in the write that meets it, not at a later seek.
    std::setvbuf(f.get(), nullptr, _IONBF, 0);
    return f;
}

// The same sequence as in memory, array by array through the files. buf holds a whole
// array for the operator; strips of two arrays at a time use its two halves.
int solve_streaming(int w, int h, int maxIterations, int wrap, int stripMode,
                    LvProgressCallback callback, const char *pathX, const char *pathP,
                    const char *pathR, const char *pathT, const char *pathIn, long offset,
                    float *buf, float tolerance) {
    File X = open_temp(pathX, "wb+", "can not open temporary file in tm20 %s\n");
    if (!X) return LV_ERR_STRIP_OPEN;
    File R = open_temp(pathR, "wb+", "can not open temporary file R in tm20 %s\n");
    if (!R) return LV_ERR_STRIP_OPEN;
    File P = open_temp(pathP, "wb+", "can not open temporary file P in tm20 %s\n");
    if (!P) return LV_ERR_STRIP_OPEN;
    File T = open_temp(pathT, "wb+", "can not open temporary file T in tm20 %s\n");
    if (!T) return LV_ERR_STRIP_OPEN;
    File In = open_temp(pathIn, "rb", "can not open temporary file In in tm20 %s\n");
    if (!In) return LV_ERR_STRIP_OPEN;

    const Reporter report(callback, maxIterations);
    const long n = static_cast<long>(w) * h;
    const int strips = stripMode == 1 ? 2 : 1;
    const long first_len = strips == 2 ? n / 2 : n;
    const long half = n - first_len > first_len ? n - first_len : first_len;
    float *A = buf, *B = buf + half;
    struct Strip {
        long at, len;
    } strip[2] = {{0, first_len}, {first_len, n - first_len}};

    // Runs op(A, B, len) over every strip, reading file fa into A and fb into B (fb may be
    // null), and writing A back to fw when it is set.
    auto each_strip = [&](FILE *fa, long fa_shift, FILE *fb, FILE *fw, auto op) -> int {
        for (int s = 0; s < strips; ++s) {
            const Strip st = strip[s];
            if (st.len == 0) continue;
            int r = read_strip(fa, st.at + fa_shift, st.len, A);
            if (r >= 0 && fb) r = read_strip(fb, st.at, st.len, B);
            if (r < 0) return r;
            op(st.len);
            if (fw && (r = write_strip(fw, st.at, st.len, fw == P.get() ? B : A)) < 0) return r;
        }
        return 0;
    };

    int r;
    if ((r = write_strip(X.get(), 0, n, buf)) < 0) return r;
    if ((r = tm20m_streaming(w, h, wrap, buf)) < 0) return r;
    if ((r = write_strip(T.get(), 0, n, buf)) < 0) return r;
    r = each_strip(In.get(), offset, T.get(), R.get(),
                   [&](long len) { tm20a(0, len, A, B, A, -1.0f); });
    if (r < 0) return r;
    if ((r = read_strip(R.get(), 0, n, buf)) < 0 || (r = write_strip(P.get(), 0, n, buf)) < 0)
        return r;
    float rr = tm20d(0, n, buf, buf);
    const float limit = rr * tolerance;
    int i = 0;
    for (; i < maxIterations; ++i) {
        if ((r = read_strip(P.get(), 0, n, buf)) < 0) return r;
        if ((r = tm20m_streaming(w, h, wrap, buf)) < 0) return r;
        if ((r = write_strip(T.get(), 0, n, buf)) < 0) return r;
        float pt = 0.0f;
        r = each_strip(T.get(), 0, P.get(), nullptr, [&](long len) { pt += tm20d(0, len, A, B); });
        if (r < 0) return r;
        if (pt == 0.0f) break;
        const float alpha = rr / pt;
        r = each_strip(X.get(), 0, P.get(), X.get(),
                       [&](long len) { tm20a(0, len, A, B, A, alpha); });
        if (r < 0) return r;
        float rr_new = 0.0f;
        r = each_strip(R.get(), 0, T.get(), R.get(), [&](long len) {
            tm20a(0, len, A, B, A, -alpha);
            rr_new += tm20d(0, len, A, A);
        });
        if (r < 0) return r;
        if (!(rr_new >= limit)) {
            ++i;
            break;
        }
        const float beta = rr_new / rr;
        r = each_strip(R.get(), 0, P.get(), P.get(),
                       [&](long len) { tm20a(0, len, A, B, B, beta); });
        if (r < 0) return r;
        rr = rr_new;
        report.done(i);
    }
    // A short read here is reported and the run goes on with what arrived.
    read_strip(X.get(), 0, n, buf);
    return i;
}

} // namespace

extern "C" {

LV_API int write_strip(FILE *file, long offset, long count, const float *buffer) {
    if (fseeko(file, static_cast<off_t>(offset) * 4, SEEK_SET) != 0) return LV_ERR_STRIP_OPEN;
    const int r = static_cast<int>(std::fwrite(buffer, static_cast<size_t>(count), 4, file));
    if (r != 4) {
        printf("could not write to temporary file in tm20 - - returned %d instead of 4 \n", r);
        return LV_ERR_STRIP_WRITE;
    }
    return 1;
}

LV_API int read_strip(FILE *file, long offset, long count, float *buffer) {
    if (fseeko(file, static_cast<off_t>(offset) * 4, SEEK_SET) != 0) return LV_ERR_STRIP_OPEN;
    const int r = static_cast<int>(std::fread(buffer, static_cast<size_t>(count), 4, file));
    if (r != 4) {
        printf("can not read temporary file - returned %d instead of 4 in tm20\n", r);
        return LV_ERR_STRIP_READ;
    }
    return 1;
}

LV_API int tm20(int w, int h, int maxIterations, int wrap, int threads, int stripMode,
                LvProgressCallback callback, const char *pathX, const char *pathP,
                const char *pathR, const char *pathT, const char *pathIn, long offset, float *rhs,
                float *x, float tolerance) {
    if (stripMode == 0)
        return solve_in_memory(w, h, maxIterations, wrap, threads, callback, rhs + offset, x,
                               tolerance);
    return solve_streaming(w, h, maxIterations, wrap, stripMode, callback, pathX, pathP, pathR,
                           pathT, pathIn, offset, x, tolerance);
}

} // extern "C"
