// Blending a chosen rendering of a set into the current result, over the whole picture
// and per mask layer, and the tinted preview of a brushed selection.
#include "colour/finish_internal.h"
#include "frame/band_threads.h"

namespace {

constexpr int kBlock = 60; // floats of one parameter block

template <class In, class Out> void blend_rows(const BlendJob &job, int first, int rows) {
    const DimParam &d = job.dim;
    const int shift = d.bpsOut == 8 ? 16 : 8;
    const uint32_t limit = d.bpsOut == 8 ? 255u : 65535u;
    const lv::Order oo = lv::order_of(d.samplesPerPixel, d.swapRedBlue);
    const lv::Order oi = lv::order_of(d.samplesPerPixel, 0);
    const int in_at[3] = {oi.r, oi.g, oi.b}, out_at[3] = {oo.r, oo.g, oo.b};
    const auto *images = reinterpret_cast<const In *>(job.images);
    auto *output = reinterpret_cast<Out *>(job.output);

    // One block's mix of the selected image s and the current sample c.
    auto mix = [&](int block, size_t at, uint32_t c) {
        const uint32_t s = images[static_cast<size_t>(job.offsets[block]) + at];
        return std::min((s * job.weightA[block] + c * job.weightB[block]) >> shift, limit);
    };
    if (job.layers == 0 && d.samplesPerPixel == 3 && !d.swapRedBlue) {
        // Without layers or a swap every sample mixes alike: one flat loop per row.
        const In *src = images + job.offsets[0];
        const uint32_t wa = job.weightA[0], wb = job.weightB[0];
        for (int y = first; y < first + rows; ++y) {
            // Input and output never overlap; saying so lets the row loop be vectorised.
            const In *__restrict s = src + static_cast<size_t>(y) * d.strideIn;
            Out *__restrict o = output + static_cast<size_t>(y) * d.strideOut;
            for (int i = 0; i < 3 * d.width; ++i)
                o[i] = static_cast<Out>(std::min((s[i] * wa + o[i] * wb) >> shift, limit));
        }
        return;
    }
    for (int y = first; y < first + rows; ++y) {
        const size_t in_row = static_cast<size_t>(y) * d.strideIn;
        Out *out = output + static_cast<size_t>(y) * d.strideOut;
        const unsigned char *m =
            job.mask ? job.mask + static_cast<size_t>(y) * d.width * 2 : nullptr;
        for (int x = 0; x < d.width; ++x) {
            uint32_t base_w = 256, layer_w = 0;
            int layer = 0;
            if (job.layers > 0 && m && m[2 * x + 1] != 255 && m[2 * x] != 0) {
                const int w = m[2 * x];
                base_w = w == 255 ? 0 : 255 - w;
                layer_w = w == 255 ? 256 : w + 1;
                layer = std::min<int>(m[2 * x + 1], job.layers - 1) + 1;
            }
            const size_t px_in = in_row + static_cast<size_t>(x) * d.samplesPerPixel;
            Out *px = out + static_cast<size_t>(x) * d.samplesPerPixel;
            for (int c = 0; c < 3; ++c) {
                const uint32_t cur = px[out_at[c]];
                const size_t at = px_in + in_at[c];
                if (layer_w == 0) {
                    px[out_at[c]] = static_cast<Out>(mix(0, at, cur));
                    continue;
                }
                const uint32_t base = base_w ? mix(0, at, cur) : 0;
                px[out_at[c]] =
                    static_cast<Out>((base_w * base + layer_w * mix(layer, at, cur)) >> 8);
            }
        }
    }
}

} // namespace

extern "C" {

int blend_orig(const BlendJob *job, int firstRow, int rows) {
    const int in8 = job->dim.bpsIn == 8, out8 = job->dim.bpsOut == 8;
    if (in8 && out8) blend_rows<uint8_t, uint8_t>(*job, firstRow, rows);
    if (in8 && !out8) blend_rows<uint8_t, uint16_t>(*job, firstRow, rows);
    if (!in8 && out8) blend_rows<uint16_t, uint8_t>(*job, firstRow, rows);
    if (!in8 && !out8) blend_rows<uint16_t, uint16_t>(*job, firstRow, rows);
    return rows;
}

void *blend_threaded(void *args) {
    auto *a = static_cast<BlendArgs *>(args);
    const lv::Band band = lv::band_of(a->job->dim.height, a->threadIndex, a->threadCount);
    a->result = blend_orig(a->job, band.first, band.rows);
    pthread_exit(nullptr);
}

int lv_blend(int numThreads, int imageCount, const float *p, const float *evs,
             const unsigned char *mask, const unsigned char *images, DimParam dim,
             unsigned char *output) {
    const int layers = (mask && p[55] > 0.0f) ? static_cast<int>(p[55]) : 0;
    const size_t blocks = static_cast<size_t>(layers) + 1;
    lv::FreeBuf<float> amounts = lv::calloc_buf<float>(blocks);
    lv::FreeBuf<long long> offsets = lv::calloc_buf<long long>(blocks);
    lv::FreeBuf<uint32_t> wa = lv::calloc_buf<uint32_t>(blocks),
                          wb = lv::calloc_buf<uint32_t>(blocks);
    if (!amounts || !offsets || !wa || !wb) return LV_ERR_NOMEM;

    bool active = false;
    for (size_t k = 0; k < blocks; ++k) {
        const float *block = p + kBlock * k;
        if (!(block[27] > 0.0f)) continue;
        active = true;
        amounts[k] = static_cast<float>(std::min(block[27] * 0.01, 0.99));
        const int index =
            (evs && imageCount >= 2) ? getIndexClosestEv(imageCount, evs, block[28]) : 0;
        offsets[k] = static_cast<long long>(index) * dim.strideIn * dim.height;
    }
    if (!active) return 1;

    // The two scales bring an input of either depth to the output's depth before the shift.
    const float scale_a = dim.bpsIn == 8 ? 65535.0f : 255.0f;
    const float scale_b = dim.bpsOut == 8 ? 65535.0f : 255.0f;
    for (size_t k = 0; k < blocks; ++k) {
        wa[k] = static_cast<uint32_t>(amounts[k] * scale_a);
        wb[k] = static_cast<uint32_t>(scale_b - amounts[k] * scale_b);
    }
    const BlendJob job = {dim, layers, offsets.get(), wa.get(), wb.get(), mask, images, output};
    if (numThreads < 2 || dim.height / numThreads < 3) return blend_orig(&job, 0, dim.height);
    return lv::run_threaded<BlendArgs>(numThreads, blend_threaded,
                                       [&](BlendArgs &a, int index, int count) {
                                           a = BlendArgs{&job, index, count, 0};
                                       });
}

int brush_selection_preview(int bitMask, int imageCount, int width, int height, int strideIn,
                            int strideOut, int samplesPerPixel, const unsigned char *images,
                            const unsigned char *selection, unsigned char *preview) {
    const size_t row_bytes = static_cast<size_t>(width) * samplesPerPixel;
    const unsigned char *last = images + static_cast<size_t>(imageCount - 1) * height * row_bytes;
    size_t i = 0;
    for (int y = 0; y < height; ++y) {
        const unsigned char *src = last + static_cast<size_t>(y) * strideIn;
        unsigned char *dst = preview + static_cast<size_t>(y) * strideOut;
        std::memcpy(dst, src, row_bytes);
        for (int x = 0; x < width; ++x, ++i) {
            unsigned value;
            float a;
            if (bitMask) {
                value = (selection[i / 8] >> (7 - i % 8)) & 1u;
                a = 0.25f;
            } else {
                value = selection[i];
                a = static_cast<float>(value) * 0.0009803922f;
            }
            if (!value) continue;
            // The selection shows as a tint towards the third sample's colour.
            unsigned char *px = dst + static_cast<size_t>(x) * samplesPerPixel;
            const float keep = 1.0f - a;
            px[0] = static_cast<unsigned char>(px[0] * keep);
            px[1] = static_cast<unsigned char>(px[1] * keep);
            px[2] = static_cast<unsigned char>(px[2] * keep + a * 255.0f);
        }
    }
    return 0;
}

} // extern "C"
