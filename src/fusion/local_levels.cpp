// Local fusion, one level of the result tower at a time: a coefficient is either sampled,
// interpolated between the two anchor towers around the pixel's luminance, or computed
// exactly from a small window blended with the weights of the pixel at hand.
#include <algorithm>
#include <cstdlib>
#include <pthread.h>

#include "frame/band_threads.h"
#include "fusion/local.h"

namespace lv {

void sampled_pixel(const LocalFusionJob &job, int level, int64_t pixel, int v, int16_t *out) {
    const int *a = job.anchors;
    int lo = 0, hi = 0;
    if (v >= a[3]) {
        lo = hi = 3;
    } else if (v > a[0]) {
        hi = 1;
        while (v >= a[hi])
            ++hi;
        lo = hi - 1;
    }
    const int span = a[hi] - a[lo];
    const float t = span > 0 ? static_cast<float>(a[hi] - v) / static_cast<float>(span) : 1.0f;
    const int spp = job.dim.samplesPerPixel;
    const int64_t at = (job.levelOffset[level] + pixel) * spp;
    const int16_t *upper = job.anchorTowers + job.anchorOffset[hi] + at;
    const int16_t *lower = job.anchorTowers + job.anchorOffset[lo] + at;
    for (int c = 0; c < spp; ++c)
        out[c] = static_cast<int16_t>(static_cast<int>(static_cast<float>(upper[c]) * (1.0f - t) +
                                                       static_cast<float>(lower[c]) * t));
}

} // namespace lv

namespace {

// The photograph whose luminance picks a pixel's anchors, at a level.
const uint8_t *lum_level(const LocalFusionJob &job, int level) {
    const int spp = job.dim.samplesPerPixel;
    return job.photoTowers + (job.lumIndex * job.pyr + job.levelOffset[level]) * spp;
}

// Window of the exact form in level-0 coordinates: the coarse neighbours of a coefficient,
// at most three coarse pixels of `scale` fine ones each way.
struct Span {
    int start, end;
};
Span window_span(int x, int scale, int size) {
    const int start = std::max(0, ((x >> 1) - 1) * scale);
    const int end = std::min(scale * ((x & 1) + (x >> 1) + 1), size);
    return {start / scale * scale, end};
}

} // namespace

extern "C" {

int fusion_process_sampled_level_orig(const LocalFusionJob *job, int level, int firstRow,
                                      int rows) {
    const int spp = job->dim.samplesPerPixel;
    const int lw = job->levelW[level];
    const uint8_t *lum = lum_level(*job, level);
    int16_t *out = job->result + job->levelOffset[level] * spp;
    for (int y = firstRow; y < firstRow + rows; ++y)
        for (int x = 0; x < lw; ++x) {
            const int64_t i = static_cast<int64_t>(y) * lw + x;
            const int v = lv::anchor_luma(lum + i * spp, spp);
            lv::sampled_pixel(*job, level, i, v, out + i * spp);
        }
    return 1;
}

void *fusion_process_sampled_threaded(void *record) {
    auto *r = static_cast<LocalSampledRecord *>(record);
    const lv::Band band = lv::band_of(r->height, r->threadIndex, r->threadCount);
    r->result = fusion_process_sampled_level_orig(r->job, r->level, band.first, band.rows);
    pthread_exit(nullptr);
}

int fusion_process_sampled_level(int width, int height, int level, const float *param,
                                 const LocalFusionJob *job, int numThreads) {
    (void)width;
    (void)param;
    // Bands under 100 rows cost more to start than they save: halve the threads, or stay on
    // the calling thread.
    int t = numThreads;
    if (t >= 2 && height / t < 100 && t >= 4 && height / (t / 2) >= 100) t /= 2;
    if (t < 2 || height / t < 100) return fusion_process_sampled_level_orig(job, level, 0, height);
    const int r = lv::run_threaded<LocalSampledRecord>(
        t, fusion_process_sampled_threaded, [&](LocalSampledRecord &rec, int index, int count) {
            rec = LocalSampledRecord{job, level, height, index, count, 0};
        });
    if (r == LV_ERR_IO) return fusion_process_sampled_level_orig(job, level, 0, height);
    return r;
}

int fusion_process_level(int n, int width, int height, int level, int unused, const float *param,
                         DimParam dim, const LocalFusionJob *job, const int *anchors,
                         const int64_t *offsets, const int16_t *anchorTowers, int16_t *out) {
    (void)unused;
    (void)offsets;
    (void)anchorTowers;
    const int spp = dim.samplesPerPixel;
    const int W = dim.width, H = dim.height;
    const int64_t pyr = job->pyr;
    const int scale = 2 << level;
    const bool top = level == job->top;
    const bool may_sample = param[10] >= 0 && job->useAnchors && level < job->anchorLevels;
    const int guide = n > 1 ? 1 : 0; // the photograph whose distance decides the weights

    const int max_w = std::min(3 * scale, W), max_h = std::min(3 * scale, H);
    auto tower = lv::try_calloc<int16_t>(pyram_len2(max_w, max_h) * spp);
    auto expand = lv::try_calloc<int16_t>(static_cast<size_t>(max_w) * max_h * spp);
    if (!tower || !expand) return LV_ERR_NOMEM;

    const uint8_t *lum = lum_level(*job, level);
    const uint8_t *guide0 = job->photoTowers + guide * pyr * spp;
    const int ch[3] = {0, (spp - 1) / 2, spp - 1};
    int16_t *dst = out + job->levelOffset[level] * spp;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int64_t i = static_cast<int64_t>(y) * width + x;
            const int v = lv::anchor_luma(lum + i * spp, spp);
            if (may_sample && v >= anchors[0] && v <= anchors[3]) {
                lv::sampled_pixel(*job, level, i, v, dst + i * spp);
                continue;
            }
            int centre_w[8];
            for (int t = 0; t < n && t < 8; ++t)
                centre_w[t] = job->weightTowers[t * pyr + job->levelOffset[level] + i];
            const uint8_t *centre = guide0 + (job->levelOffset[level] + i) * spp;
            const Span sx = window_span(x, scale, W), sy = window_span(y, scale, H);
            const int ww = sx.end - sx.start, wh = sy.end - sy.start;
            // Blend the window: pixels like the centre take its weights, the others their own.
            for (int wy = 0; wy < wh; ++wy)
                for (int wx = 0; wx < ww; ++wx) {
                    const int64_t p = static_cast<int64_t>(sy.start + wy) * W + sx.start + wx;
                    const uint8_t *g = guide0 + p * spp;
                    int dist = 0;
                    for (int k : ch)
                        dist += std::abs(g[k] * 128 - centre[k] * 128);
                    const bool own = dist >= 0x9980;
                    for (int c = 0; c < spp; ++c) {
                        int64_t sum = 0;
                        for (int t = 0; t < n && t < 8; ++t) {
                            const int wt = own ? job->weightTowers[t * pyr + p] : centre_w[t];
                            sum += static_cast<int64_t>(wt) *
                                   job->photoTowers[(t * pyr + p) * spp + c] * 128;
                        }
                        tower[(static_cast<int64_t>(wy) * ww + wx) * spp + c] =
                            static_cast<int16_t>(std::min<int64_t>(sum >> 15, 32767));
                    }
                }
            // Reduce to the coefficient's level, and for a band-pass one once further, then
            // take the expanded coarser level away. A window is never a full cycle: no wrap.
            const int reductions = top ? level : level + 1;
            lv::reduce_tower(tower.get(), ww, wh, spp, 0, reductions, false);
            int lw = ww, lh = wh;
            int64_t off = 0;
            for (int k = 0; k < level; ++k) {
                off += static_cast<int64_t>(lw) * lh * spp;
                lw = lw % 2 + (lw >> 1);
                lh = lh % 2 + (lh >> 1);
            }
            const int64_t at =
                (static_cast<int64_t>(y - (sy.start >> level)) * lw + (x - (sx.start >> level))) *
                spp;
            if (!top) {
                const int cw = lw % 2 + (lw >> 1), chh = lh % 2 + (lh >> 1);
                lv_short_upsample(lw, lh, cw, chh, spp, 0,
                                  tower.get() + off + static_cast<int64_t>(lw) * lh * spp,
                                  expand.get());
            }
            for (int c = 0; c < spp; ++c) {
                const int fine = tower[off + at + c];
                dst[i * spp + c] = static_cast<int16_t>(top ? fine : fine - expand[at + c]);
            }
        }
    return 1;
}

} // extern "C"
