// Driver of the enhancer's last stage: builds the hue tables of the base block and every
// mask layer, normalises the plane (keeping a copy for re-finishing when asked), then maps
// the image on bands of rows.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/band_threads.h"
#include "lumivantor/colour.h"
#include "tonemap/owned.h"
#include "tonemap/tm3.h"

namespace {

using lv::CBuf;
using lv::calloc_array;

// Bytes of one input row as the pixel loop advances over it.
size_t input_row_bytes(int kind, const DimParam &d) {
    if (kind == 0) return static_cast<size_t>(d.width) * 4;
    const size_t samples = std::max(static_cast<size_t>(d.width) * d.samplesPerPixel,
                                    static_cast<size_t>(std::max(d.strideIn, 0)));
    return samples * (kind == 10 ? 4 : (kind == 1 ? 2 : 1));
}

} // namespace

extern "C" {

void *tm3_threaded(void *args) {
    auto *a = static_cast<Tm3Args *>(args);
    const lv::Band band = lv::band_of(a->dim.height, a->threadIndex, a->threadCount);
    DimParam d = a->dim;
    d.height = band.rows;
    if (d.outputLayout == 3) {
        // Bands write packed interleaved pixels; the planes are split after the join.
        d.strideOut = d.width * d.samplesPerPixel;
        d.outputLayout = 0;
    }
    const size_t first = static_cast<size_t>(band.first);
    unsigned char *image = a->image + first * input_row_bytes(a->kind, a->dim);
    unsigned char *out = a->output + first * static_cast<size_t>(d.strideOut) * (d.bpsOut / 8);
    float *plane = a->plane + first * d.width;
    unsigned char *mask = a->mask ? a->mask + first * d.width * 2 : nullptr;
    a->result = tm31(a->kind, d, a->p, mask, a->stats, a->expTable, a->curve, a->opt, a->progressCb,
                     a->hasColour, a->hasLum, a->colourTable, a->lumTable, image, plane, out);
    pthread_exit(nullptr);
}

int calc_tm3(int kind, DimParam dim, float *p, unsigned char *mask, float *stats, float *expTable,
             float *curve, OptimParam opt, LvProgressCallback progressCb, int keep,
             float *keptPlane, unsigned char *image, float *plane, unsigned char *output) {
    const int layers = (mask && p[55] > 0.0f) ? static_cast<int>(p[55]) : 0;
    const int threads = opt.lowMemory ? 0 : opt.numThreads;
    const size_t blocks = static_cast<size_t>(layers) + 1;
    CBuf<int> has_colour = calloc_array<int>(blocks), has_lum = calloc_array<int>(blocks);
    CBuf<float> colour = calloc_array<float>(blocks * LV_TM3_COLOUR_TABLE);
    CBuf<float> lum = calloc_array<float>(blocks * LV_TM3_LUM_TABLE);
    if (!has_colour || !has_lum || !colour || !lum) return LV_ERR_NOMEM;

    // Saturation, gamma and temperature act outside the tables: only hue curves call for
    // one.
    for (size_t k = 0; k < blocks; ++k) {
        float copy[LV_TMPARAM_COUNT];
        std::memcpy(copy, p + LV_TMPARAM_COUNT * k, sizeof copy);
        copy[2] = copy[8] = copy[12] = 0.0f;
        if (has_color_param(1, copy) != 2) continue;
        float sat = 0.0f, temp = 0.0f, gamma = 0.0f;
        const int r = getColorAdjustmentLUTs(1, copy, LV_HUE_TABLE_SIZE, LV_CURVE_POINTS, &sat,
                                             &temp, &gamma, colour.get() + LV_TM3_COLOUR_TABLE * k,
                                             lum.get() + LV_TM3_LUM_TABLE * k);
        if (r >= 0) {
            has_colour[k] = 1;
            has_lum[k] = r;
        }
    }

    // A low-memory run normalises inside tm31, on one thread.
    if (p[19] != 1.0f && !opt.lowMemory) {
        const int r = tm30(&dim, p, 0, plane);
        if (keep && keptPlane)
            std::memcpy(keptPlane, plane, sizeof(float) * dim.width * dim.height);
        if (r < 0) return r;
    }

    if (threads < 2)
        return tm31(kind, dim, p, mask, stats, expTable, curve, opt, progressCb, has_colour.get(),
                    has_lum.get(), colour.get(), lum.get(), image, plane, output);

    int result = lv::run_threaded<Tm3Args>(threads, tm3_threaded, [&](Tm3Args &a, int i, int n) {
        a = Tm3Args{kind,
                    dim,
                    p,
                    mask,
                    stats,
                    expTable,
                    curve,
                    opt,
                    i == 0 ? progressCb : nullptr,
                    has_colour.get(),
                    has_lum.get(),
                    colour.get(),
                    lum.get(),
                    image,
                    plane,
                    output,
                    i,
                    n,
                    0};
    });
    if (result < 0 || dim.outputLayout != 3) return result;

    // Split the packed pixels into planes. Input at least as large as the output serves
    // as the scratch (and is overwritten); otherwise the scratch is allocated.
    const size_t out_bytes = static_cast<size_t>(dim.height) * dim.width * dim.samplesPerPixel *
                             static_cast<size_t>(dim.bpsOut / 8);
    if (kind != 0 && input_row_bytes(kind, dim) * dim.height >= out_bytes)
        return rgb_interleaved2color_planes(dim, image, output);
    CBuf<unsigned char> scratch = calloc_array<unsigned char>(out_bytes);
    if (!scratch) return LV_ERR_NOMEM;
    return rgb_interleaved2color_planes(dim, scratch.get(), output);
}

} // extern "C"
