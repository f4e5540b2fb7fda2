// Local fusion: the second stage of the two-stage fusion, a local Laplacian blend of the
// pyramid-blend picture with a brightened darkest photograph. Shared between the driver
// (local.cpp), the statistics and weights (local_stats.cpp), the anchor towers
// (local_anchors.cpp) and the per-level coefficients (local_levels.cpp).
#pragma once

#include <stdint.h>

#ifdef __cplusplus
#include <memory>
#include <new>
#endif

#include "lumivantor/frame.h"
#include "lumivantor/fusion.h"
#include "lumivantor/pyramid.h"

// Deepest tower this stage handles: 2^31 pixels a side is far beyond any int size.
#define LV_LOCAL_MAX_LEVELS 32
// Anchor luminances at which a whole blend is precomputed.
#define LV_LOCAL_ANCHORS 4

LV_EXTERN_C_BEGIN

// File-level flag of the fusion family: set by the two-stage driver, never cleared. When
// set, local fusion samples every coefficient from anchors 85 levels apart.
LV_API extern uint8_t InterpolationInterval;

// Everything the per-level passes of one local-fusion job read. Towers follow the usual
// layout (finest level first); `levelOffset` counts pixels, so a tower of c samples a
// pixel puts level k at c * levelOffset[k].
typedef struct LocalFusionJob {
    DimParam dim;
    int32_t wrap;
    int32_t n;          // photographs
    int32_t top;        // index of the low-pass level of the result tower
    int32_t lumIndex;   // photograph whose luminance picks the anchors' mix
    int32_t useAnchors; // nonzero when anchors and their towers exist
    int32_t anchorLevels;
    int64_t pyr; // room of one plane's tower, in pixels
    int32_t levelW[LV_LOCAL_MAX_LEVELS];
    int32_t levelH[LV_LOCAL_MAX_LEVELS];
    int64_t levelOffset[LV_LOCAL_MAX_LEVELS];
    int32_t anchors[LV_LOCAL_ANCHORS];
    int64_t anchorOffset[LV_LOCAL_ANCHORS]; // in samples, into anchorTowers
    const int16_t *weightTowers;            // n towers of one sample, pyr apart
    const uint8_t *photoTowers;             // n towers of spp samples, pyr * spp apart
    const int16_t *anchorTowers;            // band-pass towers of the valid anchors
    int16_t *result;                        // band-pass result tower, spp samples a pixel
} LocalFusionJob;

// Places the four anchor luminances and the mean weights of both photographs around each
// one from the towers; `first` is the photograph whose luminance is read. Returns the
// number of valid anchors; invalid ones get means of -1 and the last valid tower offset.
LV_API int fusion_stats(int levels, int width, int height, int ncomp, void *work,
                        const int16_t *weightTowers, const uint8_t *photographTowers, int first,
                        int *anchors, int *secondMeans, int *firstMeans, int64_t *offsets);

// Builds the band-pass tower of one anchor: pixels near the anchor blend with its mean
// weights, the others with their own. Returns 1.
LV_API int fusion_precalculate(int levels, int wrap, const int16_t *weightTowers,
                               const uint8_t *images, int anchor, DimParam dim, int secondMean,
                               int firstMean, int16_t *out);
// Thread body of fusion_precalculate; its argument is an LocalAnchorRecord.
LV_API void *fusion_precalculate_threaded(void *record);

// Sampled coefficients of one level (or the top) of the result tower, on row bands.
LV_API int fusion_process_sampled_level(int width, int height, int level, const float *param,
                                        const LocalFusionJob *job, int numThreads);
// Single-thread body over rows firstRow .. firstRow + rows - 1 of the level.
LV_API int fusion_process_sampled_level_orig(const LocalFusionJob *job, int level, int firstRow,
                                             int rows);
// Thread body of fusion_process_sampled_level.
LV_API void *fusion_process_sampled_threaded(void *record);

// Exact coefficients of one level: each one from a small window blended with the weights of
// the pixel at hand; pixels inside the anchors' range are sampled instead. Returns 1 or -4.
LV_API int fusion_process_level(int n, int width, int height, int level, int unused,
                                const float *param, DimParam dim, const LocalFusionJob *job,
                                const int *anchors, const int64_t *offsets,
                                const int16_t *anchorTowers, int16_t *out);

LV_EXTERN_C_END

// Arguments of one anchor tower on a thread of its own.
struct LocalAnchorRecord {
    int levels, wrap;
    const int16_t *weightTowers;
    const uint8_t *images;
    int anchor;
    DimParam dim;
    int secondMean, firstMean;
    int16_t *out;
    int result;
};

// Arguments of one band of rows of a sampled level.
struct LocalSampledRecord {
    const LocalFusionJob *job;
    int level, height, threadIndex, threadCount;
    int result;
};

namespace lv {

// Zero-filled array, or null when memory runs out (never throws).
template <class T> std::unique_ptr<T[]> try_calloc(size_t count) {
    return std::unique_ptr<T[]>(new (std::nothrow) T[count ? count : 1]());
}

// Sampled coefficients of one pixel of `level` into out[0..spp): interpolation between
// the two anchor towers around the pixel's luminance v.
void sampled_pixel(const LocalFusionJob &job, int level, int64_t pixel, int v, int16_t *out);
// Luminance of an 8-bit pixel with which a coefficient picks its anchors.
inline int anchor_luma(const uint8_t *px, int spp) {
    return (6528 * px[0] + 22912 * px[(spp - 1) / 2] + 3200 * px[spp - 1]) >> 15;
}

// Statistics, tone shift and weight planes of the photograph pair (local_stats.cpp).
// Fills n weight planes of 0..32767 at `weights` (pyr apart). Returns 1 or a negative code.
int local_prepare(int n, const float *param, uint8_t *images, DimParam dim, void *selection,
                  int16_t *weights, int64_t pyr);

} // namespace lv

namespace lv {

// Reduces a tower of `ncomp` samples a pixel `reductions` times from level 0 and, with
// `bandpass`, turns each level but the last into its band-pass against the next.
void reduce_tower(int16_t *tower, int width, int height, int ncomp, int wrap, int reductions,
                  bool bandpass);

} // namespace lv
