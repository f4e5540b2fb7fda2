// Local fusion's anchor towers: for each anchor luminance, the whole picture blended with
// the anchor's constant mean weights wherever a pixel lies near the anchor, and with the
// pixel's own weights elsewhere, as a band-pass tower.
#include <algorithm>
#include <cstdlib>

#include <pthread.h>

#include "fusion/local.h"

namespace lv {

void reduce_tower(int16_t *tower, int width, int height, int ncomp, int wrap, int reductions,
                  bool bandpass) {
    int64_t off = 0;
    int w = width, h = height;
    for (int k = 0; k < reductions; ++k) {
        const int cw = w % 2 + (w >> 1), ch = h % 2 + (h >> 1);
        const int64_t coarse = off + static_cast<int64_t>(w) * h * ncomp;
        lv_short_downsample(w, h, cw, ch, ncomp, wrap, off, coarse, tower);
        if (bandpass) lv_short_diff(w, h, cw, ch, ncomp, wrap, tower + coarse, tower + off);
        off = coarse;
        w = cw;
        h = ch;
    }
}

} // namespace lv

extern "C" {

int fusion_precalculate(int levels, int wrap, const int16_t *weightTowers, const uint8_t *images,
                        int anchor, DimParam dim, int secondMean, int firstMean, int16_t *out) {
    const int spp = dim.samplesPerPixel;
    const int64_t plane = static_cast<int64_t>(dim.width) * dim.height;
    const int64_t pyr = pyram_len2(dim.width, dim.height);
    const uint8_t *p0 = images, *p1 = images + pyr * spp;
    const int16_t *w0 = weightTowers, *w1 = weightTowers + pyr;
    const int a = anchor * 128;
    for (int64_t i = 0; i < plane; ++i) {
        const uint8_t *c0 = p0 + i * spp, *c1 = p1 + i * spp;
        int dist = 0;
        for (int k : {0, (spp - 1) / 2, spp - 1})
            dist += std::abs(c1[k] * 128 - a);
        // Near the anchor the blend is constant; far from it the pixel keeps its own.
        const bool own = dist > 0x997F;
        const int64_t m0 = own ? w0[i] : firstMean, m1 = own ? w1[i] : secondMean;
        for (int k = 0; k < spp; ++k) {
            const int64_t v = (c1[k] * 128 * m1 + c0[k] * 128 * m0) >> 15;
            out[i * spp + k] = static_cast<int16_t>(std::min<int64_t>(v, 32767));
        }
    }
    lv::reduce_tower(out, dim.width, dim.height, spp, wrap, levels, true);
    return 1;
}

} // extern "C"

extern "C" void *fusion_precalculate_threaded(void *record) {
    auto *r = static_cast<LocalAnchorRecord *>(record);
    r->result = fusion_precalculate(r->levels, r->wrap, r->weightTowers, r->images, r->anchor,
                                    r->dim, r->secondMean, r->firstMean, r->out);
    pthread_exit(nullptr);
}
