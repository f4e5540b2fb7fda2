// Internal pieces of the contrast optimizer, a local Laplacian filter on log luminance:
// the tower of the log image, the reference store of precomputed remapped towers, the
// per-level coefficient pass, the luminance map's scaling and the colour finish.
//
// A tower here is one float array holding every level, finest first, each level
// ceil(w / 2) by ceil(h / 2) of the one before; the reference store holds, for each
// reference luminance, the 16-bit coefficients of all levels at the same offsets.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "lumivantor/tonemap.h"
#include "tonemap/tm_simple.h"

LV_EXTERN_C_BEGIN

// Largest number of reference luminances.
#define CO_MAX_REFERENCES 8

// ---- Allocation seam: every large buffer of the family goes through co_calloc ----

// Called with the byte size of each allocation the optimizer makes; NULL switches it off.
typedef void (*CoAllocObserver)(size_t bytes);
LV_API void co_set_alloc_observer(CoAllocObserver observer);
// calloc that first tells the observer; never throws.
void *co_calloc(size_t count, size_t size);

// ---- Tower geometry ----

// Index of the coarsest band-pass level: trunc(ln(min side) x 1.4426950408889634).
LV_API int co_top_level(int width, int height);
// Element count of a tower of `planes` levels of a width x height image.
LV_API int64_t co_tower_len(int width, int height, int planes);

// ---- Driver and statistics ----

// Table of 2^bits linear levels of gamma-2.2 samples: ((i / max)^2.2) x max; NULL when
// out of memory. Free with free().
float *co_gamma_table(int bits);

// Log luminance of every pixel (0 where the luminance isn't positive); returns height.
LV_API int co_acquistion(float *expTable, unsigned char *input, float *logImage, DimParam dim);
// Reference luminances from the histograms of the tower's levels; returns their count.
LV_API int tm_stats(int levels, int width, int height, float *p, float *pyramid, float *references);

// ---- Levels ----

// Reduces the level at sourceOffset (w x h) into targetOffset (w2 x h2) of the tower.
LV_API int co_down(int w, int h, int w2, int h2, int wrap, int64_t sourceOffset,
                   int64_t targetOffset, int numThreads, float *pyramid);
// Reduces target rows [firstRow, firstRow + rows); band 0 is the first band, 1 the last,
// 2 the whole plane, anything else a middle band. Returns rows.
LV_API int co_down_orig(int w, int h, int w2, int h2, int wrap, const float *source, float *target,
                        int firstRow, int rows, int band);

// Reduces one source row (with the rows above and below it, NULL where missing) into
// a target row of w2 pixels.
void co_reduce_row(int w, int w2, int wrap, const float *up, const float *mid, const float *down,
                   float *out);

// Arguments of one co_down band thread.
typedef struct CoDownArgs {
    int w, h, w2, h2, wrap;
    const float *source;
    float *target;
    int threadIndex;
    int threadCount;
    int result;
} CoDownArgs;
LV_API void *co_down_threaded(void *args);

// Bilinear expansion of coarse (w2 x h2) to fine (w x h).
LV_API int co_up(int w, int h, int w2, int h2, int wrap, const float *coarse, float *fine);
// fine minus the expansion of coarse. mode 32: floats into out; mode 16: times scale,
// truncated and held to +-32767 as int16 into out; mode -1: only element `target`, as
// one float into out. Returns h, or 1 in mode -1.
LV_API int co_diff(int w, int h, int w2, int h2, int mode, int wrap, int64_t target,
                   const float *coarse, const float *fine, void *out, float scale);

// Replaces the plain coefficients in out (levelWidth x levelHeight) by those of the
// local Laplacian filter: from the reference store where the pixel's Gaussian value
// lies between the references, else from a remapped window of the log image. Returns
// levelHeight, or 0 for an empty level.
LV_API int co_process_level(int width, int height, int levelWidth, int levelHeight, int level,
                            float *p, int referenceCount, const float *references,
                            const int64_t *storeOffsets, const int16_t *store, int numThreads,
                            float *work, const float *logImage, int64_t levelOffset,
                            const float *levelValues, float *out);

// ---- Reference store ----

// Fills one reference's part of the store with the coefficients of the log image remapped
// around `reference`. Returns levels, or 0 when there is nothing to fill.
LV_API int co_precalculate(int width, int height, int levels, float *p, int numThreads, float *work,
                           const float *logImage, int16_t *store, float reference);

// Arguments of one reference-store thread.
typedef struct CoPrecalcArgs {
    int width, height, levels;
    float *p;
    int numThreads;
    float *work;
    const float *logImage;
    int16_t *store;
    float reference;
    int result;
} CoPrecalcArgs;
LV_API void *co_precalculate_threaded(void *args);

// ---- Finish ----

// Scales collapsed luminance to a 0..1 map between the black and white percentiles.
// Returns width x height, -101 for a negative minimum, -102 for a negative maximum or an
// empty image, -4 when out of memory.
LV_API int co_map_scaling(float *p, const float *luminance, float *map, DimParam dim);

// Hue tables of the base block and every mask layer, built before the bands start: the
// global operator's record.
typedef TmColourTables CoColourTables;

// Rebuilds colour rows [firstRow, firstRow + rows) from the source and the map. Returns rows.
LV_API int co_final_orig(DimParam dim, LvProgressCallback progressContext, float *p,
                         const unsigned char *mask, const unsigned char *input, const float *map,
                         unsigned char *output, const CoColourTables *tables, int firstRow,
                         int rows);

// Arguments of one co_final band thread.
typedef struct CoFinalArgs {
    DimParam dim;
    LvProgressCallback progressContext; // first band only
    float *p;
    const unsigned char *mask;
    const unsigned char *input;
    const float *map;
    unsigned char *output;
    const CoColourTables *tables;
    int threadIndex;
    int threadCount;
    int result;
} CoFinalArgs;
LV_API void *co_final_threaded(void *args);

// ---- Shared remapping constants ----

// Compression slope and detail threshold at level scale 1.
float co_alpha0(const float *p);
float co_sigma0(const float *p);

LV_EXTERN_C_END

#ifdef __cplusplus
#include <cmath>
#include <cstdlib>
#include <memory>
namespace lv {

struct CoFree {
    void operator()(void *ptr) const { std::free(ptr); }
};
// A zeroed array from co_calloc, freed with its owner.
template <class T> using CoBuf = std::unique_ptr<T[], CoFree>;
template <class T> CoBuf<T> co_array(size_t n) {
    return CoBuf<T>(static_cast<T *>(co_calloc(n ? n : 1, sizeof(T))));
}

// Remapping around a centre g: values within [g - sigma, g + sigma] pass, values beyond
// are compressed by alpha towards the band's edge. Bounds and sums are in double; k_lo
// and k_hi are the edges times (1 - alpha). f_lo and f_hi are the float bounds that
// decide the same for a float value: the double bounds rounded inwards.
struct CoRemap {
    double lo, hi;
    double alpha, k_lo, k_hi;
    float f_lo, f_hi;
};

inline CoRemap co_remap_for(float g, float alpha, float sigma) {
    CoRemap r;
    const double gd = g, sd = sigma;
    r.lo = gd - sd;
    r.hi = gd + sd;
    r.alpha = alpha;
    r.k_lo = (gd - sd) * (1.0 - alpha);
    r.k_hi = (gd + sd) * (1.0 - alpha);
    // v > hi exactly when v exceeds hi rounded down to a float, and v < lo when v is below
    // lo rounded up (a NaN bound stays NaN and passes every value).
    float fh = static_cast<float>(r.hi), fl = static_cast<float>(r.lo);
    if (static_cast<double>(fh) > r.hi) fh = std::nextafter(fh, -INFINITY);
    if (static_cast<double>(fl) < r.lo) fl = std::nextafter(fl, INFINITY);
    r.f_hi = fh;
    r.f_lo = fl;
    return r;
}

inline float co_remap(const CoRemap &r, float v) {
    if (v > r.f_hi) return static_cast<float>(v * r.alpha + r.k_hi);
    if (v < r.f_lo) return static_cast<float>(v * r.alpha + r.k_lo);
    return v;
}

// Remaps n values from in to out (vectorised where the machine allows, with the same
// values); true when any value changed.
bool co_remap_row(const CoRemap &r, const float *in, float *out, int64_t n);

// Holds alpha to 0..1 (a NaN stays NaN and leaves the remapping the identity).
inline float co_clamp_alpha(float a) {
    return a < 0.0f ? 0.0f : (a > 1.0f ? 1.0f : a);
}

} // namespace lv
#endif

#ifdef __cplusplus
namespace lv {

// One run of the optimizer, split into the steps the driver takes, so that a benchmark
// can time each one. Buffers either point into the caller's memory or are owned here.
struct CoJob {
    DimParam dim{};
    float *p = nullptr;
    LvProgressCallback progress = nullptr;
    int threads = 0;
    int top = 0, levels = 0; // levels = top + 1 band-pass levels, then the residual
    int64_t stride = 0;      // elements reserved for one tower
    int64_t off[64] = {};    // plane offsets in a tower
    int ws[64] = {}, hs[64] = {};
    bool stats = false; // tm_stats ran and found references
    bool stats_disabled = false;
    int count = 0; // references
    float refs[CO_MAX_REFERENCES] = {};
    float *log_image = nullptr;
    float *pyramid = nullptr;
    float *coef = nullptr;
    float *work = nullptr;
    int16_t *store = nullptr;
    unsigned char *spare = nullptr; // caller's memory left after the work space
    size_t spare_bytes = 0;
    void *owned[4] = {}; // what the job allocated, freed by co_job_release
};

// Sets up sizes and buffers; returns 0 or -4.
int co_job_setup(CoJob &job, DimParam dim, OptimParam opt, LvProgressCallback progress, float *p,
                 float *map, int64_t memorySize, unsigned char *memory);
// Frees what the job allocated.
void co_job_release(CoJob &job);
// Log luminance into the tower's level 0 and the log image.
void co_job_acquire(CoJob &job, unsigned char *input);
// Gaussian tower of the log image.
void co_job_tower(CoJob &job);
// Reference luminances, unless the block disables them.
void co_job_stats(CoJob &job);
// Plain coefficients of level l into the coefficient plane (and the store's scale at 0).
void co_job_plain(CoJob &job, int l);
// Fills the reference store; returns 0 or -4.
int co_job_fill_store(CoJob &job);
// Filter coefficients of level l, written back over the tower's level.
void co_job_level(CoJob &job, int l);
// Collapse, exponentiation and scaling into the coefficient plane.
void co_job_collapse(CoJob &job);
void co_job_scale(CoJob &job);

} // namespace lv
#endif
