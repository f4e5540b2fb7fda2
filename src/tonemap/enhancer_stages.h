// The enhancer's first two stages: tm1 (log plane, pyramid, attenuation, divergence), the
// relaxation kernels of the old solver and the multi-grid conjugate-gradient solver tm2.
// The driver (lv_tm_enhancer) calls calc_tm1, then calc_tm2new2 or calc_tm2old.
#pragma once

#include <stdio.h>

#include "lumivantor/frame.h"

LV_EXTERN_C_BEGIN

// Progress of nested passes: a pass that has done step i reports
// _progressInit + i x _progressIncrement. One tone-mapping job at a time per process.
LV_API extern float _progressInit;
LV_API extern float _progressIncrement;

// ---- Relaxation kernels: red-black Gauss-Seidel sweeps on Laplacian(x) = c f ----
// x and f are planes `width` wide starting at float `offset`; a pixel's colour is
// (column + row) mod 2; wrap closes the rows as a 360-degree panorama.

// Picks blur2 (threads >= 2 and width x height >= 1201) or blur1 (which alone streams
// f from `file`). Returns 1, or blur1's failure code.
LV_API int blur0(int threads, int width, int height, int sweeps, int wrap, long offset, float *x,
                 float *f, float c, int streaming, FILE *file, float *rowStore,
                 LvProgressCallback callback);
// Single-threaded sweeps. With streaming set, row y of f is read from `file` at float
// offset + y x width into rowStore (allocated here when NULL). Returns 1, -4 when the row
// store can't be allocated, -1 when a seek fails, -2 on a short read.
LV_API int blur1(int width, int height, int sweeps, int wrap, long offset, float *f, float *x,
                 int streaming, FILE *file, float *rowStore, float c, LvProgressCallback callback);
// Threaded sweeps: top row, interior (blur2i) and last row of one colour, then the other.
// Returns 1.
LV_API int blur2(int threads, int width, int height, int sweeps, int wrap, long offset, float *x,
                 float *f, float c, LvProgressCallback callback);
// The interior rows of one colour over bands with a halo row on each inner edge.
LV_API int blur2i(int threads, int colour, int width, int height, int wrap, long offset, float *x,
                  float *f, float c);
// The interior rows 1 .. height - 2 of one colour; nothing for a height of 1 or 2.
LV_API int blur2i_orig(int colour, int width, int height, int wrap, long offset, float *x, float *f,
                       float c);
// Band body of blur2i (a Blur2iArgs record).
LV_API void *blur2i_threaded(void *args);

typedef struct Blur2iArgs {
    int colour, width, height, wrap;
    long offset;
    float *x, *f;
    float c;
    int threadIndex, threadCount;
    int result;
} Blur2iArgs;

// ---- Stage tm1 ----

// Chooses calc_tm1new (trunc(p[16]) nonzero) or calc_tm1old. Leaves the divergence of
// levels 0 .. max(levels, 2) - 2 at the start of each level of the plane pyramid in work
// (the coarser levels keep attenuation factors), the log pyramid in pyramidCopy (or
// tempPath2 in a low-memory run) and stats[0..6].
// Where the image comes from: in a plain run the input image (RGBE rows, or samples of
// strideIn a row) lies at pyramidCopy on entry; the driver passes the start of its work
// buffer there and the plane at work + planeOffset, and the log pyramid then overwrites
// the consumed image. In a low-memory run (kind 0 only) the image is read from
// opt.sourceFile into work, through tempPath0, and pyramidCopy is unused. With a kind
// below 0 the caller has put the log plane in work and filled stats[0..2].
// Returns 1, -1 bad size, kind or temp-file open, -2 short transfer, -4 memory.
LV_API int calc_tm1(int kind, float *p, int levels, float *stats, float *expTable, float *curve,
                    DimParam dim, OptimParam opt, LvProgressCallback callback, float *pyramidCopy,
                    float *work);
LV_API int calc_tm1new(int kind, float *p, int levels, float *stats, float *expTable, float *curve,
                       DimParam dim, OptimParam opt, LvProgressCallback callback,
                       float *pyramidCopy, float *work);
LV_API int calc_tm1old(int kind, float *p, int levels, float *stats, float *expTable, float *curve,
                       DimParam dim, OptimParam opt, LvProgressCallback callback,
                       float *pyramidCopy, float *work);
// Log-luminance plane of paddedWidth-float rows from RGBE rows (kind 0) or 16/8-bit
// samples through curve (kinds 1, 2); fills stats[0..2]. 1, or -1 for a side below 10.
LV_API int calc_tm0(int kind, int samplesPerPixel, int width, int ignored, int strideIn,
                    int rowWidth, int height, int paddedWidth, int paddedHeight, float *stats,
                    float *expTable, float *curve, const unsigned char *image, float *plane);
// Low-memory log plane: reads opt.sourceFile to work, spills it to tempPath0 and reads it
// back row by row into the plane at work. 1, -1 size/open, -2 short transfer, -3 kind,
// -4 memory, or the reader's code.
LV_API int calc_tm0s(int kind, DimParam dim, OptimParam opt, float *stats, float *expTable,
                     float *work);
// Attenuation of `rows` rows of gradient magnitudes at float offset: g above 1e-5 becomes
// ((g + offset2) / scale)^exponent, others 0. Returns rows.
LV_API int tm1b(int width, int rows, long offset, float *data, float scale, float exponent,
                float offset2);
LV_API void *tm1b_threaded(void *args);

typedef struct Tm1bArgs {
    int width, height;
    float *data;
    float scale, exponent, offset2;
    int threadIndex, threadCount;
    int result;
} Tm1bArgs;

// ---- Stage tm2 ----

// Coarse-to-fine conjugate-gradient solve of the divergence pyramid in work; level 0 of
// work becomes exp of the solved plane. 1, or a negative code.
LV_API int calc_tm2new2(int lastLevel, float *p, LvProgressCallback callback, float *work,
                        DimParam dim, OptimParam opt);
// The two-resolution run: with guess (a full-size log plane, e.g. the upsampled solution
// of a reduced copy) level 0 alone is solved, starting from the guess. NULL: calc_tm2new2.
LV_API int calc_tm2new2_guess(int lastLevel, float *p, LvProgressCallback callback, float *work,
                              DimParam dim, OptimParam opt, const float *guess);
// Coarse-to-fine relaxation with the blur kernels. rhsFile, when not NULL, holds level 0's
// divergence (a low-memory run); the plane is then written back to it. 1, or negative.
LV_API int calc_tm2old(int lastLevel, float *p, LvProgressCallback callback, float *work,
                       DimParam dim, OptimParam opt, FILE *rhsFile);
// Conjugate gradient on A x = rhs, from the start in x. stripMode 0: in memory, rhs from
// float offset (it is overwritten by the search direction). 1 or 2: the right-hand side
// is read from pathIn at float offset, the arrays live in the other four files, and x
// (holding the start, receiving the solution) must have room for 2 x (w h - w h / 2)
// floats in mode 1 (two strips) and 2 x w h in mode 2 (one strip). Returns iterations
// done, -4 memory, -20 open or seek, -21 short read, -22 short write.
LV_API int tm20(int w, int h, int maxIterations, int wrap, int threads, int stripMode,
                LvProgressCallback callback, const char *pathX, const char *pathP,
                const char *pathR, const char *pathT, const char *pathIn, long offset, float *rhs,
                float *x, float tolerance);
// out = A x, the five-point Laplacian with Neumann or panorama edges.
LV_API int tm20m(int threads, int w, int h, int wrap, const float *x, float *out);
// Interior rows of tm20m over bands.
LV_API int tm20mi(int threads, int w, int h, int wrap, const float *x, float *out);
// Rows 1 .. rows - 2 of a band of `rows` rows at float offset.
LV_API int tm20mi_orig(int w, int rows, int wrap, long offset, const float *x, float *out);
LV_API void *tm20mi_threaded(void *args);
// x becomes A x in place, through a store of three rows. 1, or -4.
LV_API int tm20m_streaming(int w, int h, int wrap, float *x);
// out[i] = a[i] + scale x b[i].
LV_API int tm20a(int threads, long n, const float *a, const float *b, float *out, float scale);
// Dot product, per-slice partial sums added in slice order.
LV_API float tm20d(int threads, long n, const float *a, const float *b);
LV_API void *tm20a_threaded(void *args);
LV_API void *tm20d_threaded(void *args);
// Seek to 4 x offset (-20), then move count floats as 4 items of count bytes: -22 short
// write, -21 short read, each with its message. Returns 1.
LV_API int write_strip(FILE *file, long offset, long count, const float *buffer);
LV_API int read_strip(FILE *file, long offset, long count, float *buffer);

typedef struct Tm20miArgs {
    int w, h, wrap;
    const float *x;
    float *out;
    int threadIndex, threadCount;
    int result;
} Tm20miArgs;

typedef struct Tm20SliceArgs {
    long n;
    const float *a, *b;
    float *out;
    float scale;
    float sum;
    int threadIndex, threadCount;
    int result;
} Tm20SliceArgs;

LV_EXTERN_C_END

namespace lv {

// Level sizes and float offsets of the solver's pyramid: sides halve, rounding up, while
// both are above 3. `count` levels, at most kMaxSolverLevels.
struct SolverPlan {
    static constexpr int kMax = 32;
    int count = 0;
    int w[kMax] = {}, h[kMax] = {};
    long offset[kMax] = {};
    long total = 0;
};
SolverPlan solver_plan(int width, int height, int levels);

// Coarsest level the solver may take from a divergence pyramid of stage tm1 for a
// solve up to lastLevel: the last one holding a divergence (lastLevel - 1), and never one
// that tm1's pyramid, which halves only while both sides are at least 6, doesn't have.
int coarsest_solved_level(int width, int height, int lastLevel);

// Levels of the old pipeline's fixed-depth pyramid.
constexpr int kOldLevels = 5;

// Bilinear doubling of a coarse plane (cw x ch) onto a finer one (fw x fh, fw <= 2 cw):
// fine (x, y) sits on coarse (x / 2, y / 2); even-even takes that pixel, one odd coordinate
// the mean of two, odd-odd the mean of four. At the last column or row of an even side
// the missing coarse neighbour is the pixel itself, or with wrap the pixel across the
// seam (the row's start) and, below the last row, that row's middle sample. Calls
// put(index, value) for every fine pixel in row order.
template <class Put>
void upsample(const float *coarse, int cw, int ch, int fw, int fh, int wrap, Put put) {
    for (int y = 0; y < fh; ++y) {
        const int cy = y / 2;
        const bool odd_y = y & 1;
        const float *r0 = coarse + static_cast<long>(cy) * cw;
        const bool below_missing = odd_y && cy + 1 >= ch;
        const float *r1 = below_missing ? r0 : r0 + cw;
        const long base = static_cast<long>(y) * fw;
        auto below = [&](int col) { return below_missing && wrap ? r0[cw / 2] : r1[col]; };
        for (int x = 0; x < fw; ++x) {
            const int cx = x / 2;
            if (!(x & 1)) {
                put(base + x, odd_y ? (r0[cx] + below(cx)) * 0.5f : r0[cx]);
                continue;
            }
            int nx = cx + 1;
            if (nx >= cw) nx = wrap ? 0 : cx;
            put(base + x, odd_y ? (r0[cx] + r0[nx] + below(cx) + below(nx)) * 0.25f
                                : (r0[cx] + r0[nx]) * 0.5f);
        }
    }
}

// The upsampled coarse solution becomes the start of the finer level; sides that stopped
// halving are copied.
void prolong(const float *coarse, int cw, int ch, float *fine, int fw, int fh, int wrap);

} // namespace lv
