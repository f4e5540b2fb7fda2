// Local fusion driver: weight and photograph towers, anchors, each level of the result
// tower, and the collapse into the output picture.
#include <algorithm>
#include <bit>
#include <cstring>
#include <pthread.h>

#include "frame/band_threads.h"
#include "fusion/local.h"

uint8_t InterpolationInterval = 0;

namespace {

// Hands out consecutive parts of the caller's block while they fit; a part that doesn't
// fit is allocated instead and freed with the carver.
class BlockCarver {
  public:
    BlockCarver(void *block, size_t size)
        : next_(static_cast<uint8_t *>(block)), left_(block ? size : 0) {}
    uint8_t *take(size_t bytes) {
        if (bytes <= left_) {
            uint8_t *p = next_;
            next_ += bytes;
            left_ -= bytes;
            return p;
        }
        auto owned = lv::try_calloc<uint8_t>(bytes);
        if (!owned) return nullptr;
        owned_[count_] = std::move(owned);
        return owned_[count_++].get();
    }

  private:
    uint8_t *next_;
    size_t left_;
    std::unique_ptr<uint8_t[]> owned_[4];
    int count_ = 0;
};

// Writes level 0 of the collapse: 15-bit values to bpsOut at strideOut, red and blue
// exchanged on request.
void write_out(const int32_t *sum, const DimParam &dim, void *memory, int64_t row) {
    const int spp = dim.samplesPerPixel;
    const bool swap = dim.swapRedBlue != 0;
    for (int x = 0; x < dim.width; ++x)
        for (int c = 0; c < spp; ++c) {
            const int v = std::clamp(sum[static_cast<int64_t>(x) * spp + c], 0, 32767);
            const int k = swap && c == 0 ? spp - 1 : swap && c == spp - 1 ? 0 : c;
            const int64_t at = row * dim.strideOut + static_cast<int64_t>(x) * spp + k;
            if (dim.bpsOut == 16)
                static_cast<uint16_t *>(memory)[at] = static_cast<uint16_t>(v * 2);
            else
                static_cast<uint8_t *>(memory)[at] = static_cast<uint8_t>(v >> 7);
        }
}

// Adds the expanded coarser levels back from the top down; level 0 goes to the output.
int collapse(const LocalFusionJob &job, int16_t *work, void *memory) {
    const DimParam &dim = job.dim;
    const int spp = dim.samplesPerPixel;
    const size_t row_len = static_cast<size_t>(dim.width) * spp;
    auto row = lv::try_calloc<int32_t>(row_len);
    if (!row) return LV_ERR_NOMEM;
    for (int l = job.top - 1; l >= 0; --l) {
        const int lw = job.levelW[l], lh = job.levelH[l];
        int16_t *band = job.result + job.levelOffset[l] * spp;
        lv_short_upsample(lw, lh, job.levelW[l + 1], job.levelH[l + 1], spp, job.wrap,
                          job.result + job.levelOffset[l + 1] * spp, work);
        const int64_t count = static_cast<int64_t>(lw) * lh * spp;
        if (l > 0) {
            for (int64_t i = 0; i < count; ++i)
                band[i] = static_cast<int16_t>(std::min(32767, band[i] + work[i]));
            continue;
        }
        for (int y = 0; y < lh; ++y) {
            const int64_t base = static_cast<int64_t>(y) * lw * spp;
            for (int64_t i = 0; i < static_cast<int64_t>(lw) * spp; ++i)
                row[i] = band[base + i] + work[base + i];
            write_out(row.get(), dim, memory, y);
        }
    }
    if (job.top == 0)
        for (int y = 0; y < dim.height; ++y) {
            const int64_t base = static_cast<int64_t>(y) * dim.width * spp;
            for (size_t i = 0; i < row_len; ++i)
                row[i] = job.result[base + i];
            write_out(row.get(), dim, memory, y);
        }
    return 1;
}

// Anchor towers, one per valid anchor; on threads in rounds of up to `threads`. Returns 1,
// -1 on a cancel or -4.
int anchor_towers(const LocalFusionJob &job, const int *second, const int *first, int16_t *out,
                  int threads, LvProgressCallback callback, float base, float share) {
    int todo[LV_LOCAL_ANCHORS], count = 0;
    for (int a = 0; a < LV_LOCAL_ANCHORS; ++a)
        if (first[a] >= 0 && second[a] >= 0) todo[count++] = a;
    auto record = [&](LocalAnchorRecord &r, int a) {
        r = LocalAnchorRecord{
            job.top, job.wrap,  job.weightTowers, job.photoTowers,           job.anchors[a],
            job.dim, second[a], first[a],         out + job.anchorOffset[a], 0};
    };
    const int round = threads < 2 ? 1 : threads;
    for (int done = 0; done < count; done += round) {
        const int k = std::min(round, count - done);
        int r = LV_ERR_IO;
        if (k > 1)
            r = lv::run_threaded<LocalAnchorRecord>(
                k, fusion_precalculate_threaded,
                [&](LocalAnchorRecord &rec, int index, int) { record(rec, todo[done + index]); });
        if (r == LV_ERR_NOMEM) return r;
        if (r == LV_ERR_IO) // no threads (or one failed to start): this round on the caller
            for (int i = 0; i < k; ++i) {
                LocalAnchorRecord rec;
                record(rec, todo[done + i]);
                fusion_precalculate(rec.levels, rec.wrap, rec.weightTowers, rec.images, rec.anchor,
                                    rec.dim, rec.secondMean, rec.firstMean, rec.out);
            }
        if (!progress(1, callback, nullptr, base + share * (done + k) / count)) return -1;
    }
    return 1;
}

} // namespace

extern "C" int lv_fusion_local(int n, LvProgressCallback callback, float *param, int wrap,
                               uint8_t *images, void *unused, DimParam dim, OptimParam opt,
                               void *selection, void *resultTower, size_t memSize, void *block,
                               void *memory) {
    (void)unused;
    const int W = dim.width, H = dim.height, spp = dim.samplesPerPixel;
    if (n < 1 || W < 1 || H < 1) return 1;
    const int64_t plane = static_cast<int64_t>(W) * H;
    const int64_t samples = plane * spp;
    const int64_t pyr = pyram_len2(W, H);
    // Reductions: trunc(log2(min side)), exact at powers of two.
    const int L = std::bit_width(static_cast<unsigned>(std::min(W, H))) - 1;
    const int threads = opt.lowMemory ? 0 : opt.numThreads;

    LocalFusionJob job{};
    job.dim = dim;
    job.wrap = wrap;
    job.n = n;
    job.top = n < 2 ? 0 : std::max(L - 1, 0);
    job.lumIndex = std::clamp(static_cast<int>(param[18]), 0, n - 1);
    job.pyr = pyr;
    for (int k = 0, w = W, h = H; k <= L; ++k) {
        job.levelW[k] = w;
        job.levelH[k] = h;
        job.levelOffset[k] =
            k == 0 ? 0 : job.levelOffset[k - 1] + int64_t{job.levelW[k - 1]} * job.levelH[k - 1];
        w = w % 2 + (w >> 1);
        h = h % 2 + (h >> 1);
    }

    BlockCarver carver(block, memSize);
    auto *weights = reinterpret_cast<int16_t *>(carver.take(2 * n * pyr));
    auto *work = reinterpret_cast<int16_t *>(carver.take(2 * samples));
    std::unique_ptr<int16_t[]> own_result;
    auto *result = static_cast<int16_t *>(resultTower);
    if (!result) {
        own_result = lv::try_calloc<int16_t>(pyr * spp);
        result = own_result.get();
    }
    if (!weights || !work || !result) return LV_ERR_NOMEM;
    job.result = result;

    const int r = lv::local_prepare(n, param, images, dim, selection, weights, pyr);
    if (r < 0) return r;
    auto *photos = static_cast<uint8_t *>(memory);
    for (int t = 0; t < n; ++t) {
        uint8_t *tower = photos + t * pyr * spp;
        std::memcpy(tower, images + t * samples, samples);
        lv::reduce_tower(weights + t * pyr, W, H, 1, wrap, L, false);
        for (int k = 0; k < L; ++k)
            lv_uchar_downsample(job.levelW[k], job.levelH[k], job.levelW[k + 1], job.levelH[k + 1],
                                spp, wrap, job.levelOffset[k] * spp, job.levelOffset[k + 1] * spp,
                                tower);
    }
    job.weightTowers = weights;
    job.photoTowers = photos;

    if (n < 2) { // a sole photograph passes through as it is
        for (int64_t i = 0; i < samples; ++i)
            result[i] = static_cast<int16_t>(images[i] << 7);
        return collapse(job, work, memory);
    }

    const float share = InterpolationInterval ? 0.3f : 0.05f;
    const float base = 0.4f + share;
    if (param[10] >= 0 && job.top >= 1) {
        int second[LV_LOCAL_ANCHORS], first[LV_LOCAL_ANCHORS];
        const int valid = fusion_stats(job.top, W, H, spp, work, weights, photos, 1, job.anchors,
                                       second, first, job.anchorOffset);
        if (valid == 0) return 1;
        auto *anchors = reinterpret_cast<int16_t *>(carver.take(2 * valid * pyr * spp));
        if (!anchors) return LV_ERR_NOMEM;
        job.anchorTowers = anchors;
        job.useAnchors = 1;
        job.anchorLevels = job.top;
        const int a = anchor_towers(job, second, first, anchors, threads, callback, 0.4f, share);
        if (a < 0) return a;
    }

    for (int l = 0; l <= job.top; ++l) {
        const int lw = job.levelW[l], lh = job.levelH[l];
        if (InterpolationInterval && job.useAnchors)
            fusion_process_sampled_level(lw, lh, l, param, &job, threads);
        else
            fusion_process_level(n, lw, lh, l, 0, param, dim, &job, job.anchors, job.anchorOffset,
                                 job.anchorTowers, result);
        const float done = l == job.top ? 1.0f : base + l * (0.98f - base) / L;
        if (!progress(1, callback, nullptr, done)) return -1;
    }
    return collapse(job, work, memory);
}
