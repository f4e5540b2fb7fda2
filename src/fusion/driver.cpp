// Fusion driver: where the photographs, weights and towers live (the caller's memory, the
// heap, or three temp files in low-memory runs), the order of the stages and the shares of
// the progress bar.
#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <memory>

#include "fusion/blend.h"
#include "fusion/driver.h"
#include "fusion/local.h"
#include "fusion/weights.h"
#include "lumivantor/colour.h"
#include "lumivantor/pyramid.h"

namespace {

struct FileCloser {
    void operator()(FILE *f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

// The three temp files of the low-memory route.
struct TempFiles {
    File source, weights, tower;
    bool open(const OptimParam &o) {
        source.reset(std::fopen(o.sourceFile, "wb+"));
        if (source) weights.reset(std::fopen(o.tempPath1, "wb+"));
        if (weights) tower.reset(std::fopen(o.tempPath2, "wb+"));
        if (tower) return true;
        close();
        return false;
    }
    void close() {
        tower.reset();
        weights.reset();
        source.reset();
    }
};

// Level 0 of the image tower from photograph k: 15-bit samples.
void load_photo(const uint8_t *src, int bps, int64_t count, int16_t *dst) {
    if (bps == 16) {
        const auto *s = reinterpret_cast<const uint16_t *>(src);
        for (int64_t i = 0; i < count; ++i)
            dst[i] = static_cast<int16_t>(s[i] >> 1);
    } else {
        for (int64_t i = 0; i < count; ++i)
            dst[i] = static_cast<int16_t>(src[i] << 7);
    }
}

} // namespace

namespace lv {

int blend_levels(int w, int h, int bpsOut) {
    const int l = std::bit_width(static_cast<unsigned>(std::max(1, std::min(w, h)))) - 1;
    return bpsOut == 32 && l > 6 ? l - 2 : l - 1;
}

} // namespace lv

extern "C" {

int lv_fusion(LvProgressCallback callback, float *param, void *aux, int n, int weightBits,
              int accumBits, OptimParam opt, DimParam dim, int wrap, void *images, int *order,
              uint8_t *mask, size_t memSize, void *memory) {
    return lv_fusion5(callback, param, aux, n, weightBits, accumBits, opt, dim, wrap, nullptr,
                      images, order, mask, memSize, memory);
}

int lv_fusion5(LvProgressCallback callback, float *param, void *aux, int n, int weightBits,
               int accumBits, OptimParam opt, DimParam dim, int wrap, void *savedResult,
               void *images, int *order, uint8_t *mask, size_t memSize, void *memory) {
    const int W = dim.width, H = dim.height, S = dim.samplesPerPixel;
    const int64_t plane = static_cast<int64_t>(W) * H, samples = plane * S;
    const int64_t pyr = pyram_len2(W, H), tower_samples = pyr * S;
    const int64_t accum_bytes = accumBits / 8 * tower_samples;
    const int64_t weight_bytes = weightBits / 8 * ((n - 1) * plane + pyr);
    auto *img = static_cast<uint8_t *>(images);
    auto *mem = static_cast<uint8_t *>(memory);

    float first_share = accumBits == 32 ? 0.1f : 0.3f, whole_share = 1.0f, last_share = 0.2f;
    const bool two_stage = param[9] == 1.0f, rerun = param[19] == 1.0f;
    const float slot1 = param[1];
    double gamma = 0;
    if (two_stage && !rerun) {
        // The blend keeps an even shape; slots 0 and 2 steer the second stage instead.
        const float f = param[2];
        param[2] = 0;
        param[1] = f > 0 ? f * 0.4f : f * 0.8f;
        param[10] = 5.625f;
        InterpolationInterval = 1;
        gamma = param[0] > 0 ? 1.2 + param[0] * 0.1 : 1.2 + param[0] * 0.05;
        gamma = std::max(gamma, 0.5);
        param[0] = 0;
        param[18] = 1.0f;
        whole_share = 0.4f;
        first_share *= 0.4f;
        last_share = 0.08f;
    }
    // No stage loads 32-bit photographs: refuse them rather than return an untouched buffer.
    if (dim.bpsIn == 32 || (dim.bpsIn != 8 && dim.bpsIn != 16)) return LV_ERR_IO;
    if (accumBits != 16 && accumBits != 32) return LV_ERR_IO;

    std::unique_ptr<uint8_t[]> own_accum, own_weights, row_buffer;
    uint8_t *accum = nullptr, *weights = nullptr;
    bool accum_in_block = false, weights_in_block = false;
    int res3 = 1, reference = 0;
    if (!rerun) {
        // Low-memory route: photographs and weights on disk, the photographs' buffer reused
        // for the weight planes and then the accumulator, where they fit.
        TempFiles files;
        const int64_t photo_bytes = samples * (dim.bpsIn / 8);
        bool use_files = opt.lowMemory && opt.sourceFile && opt.tempPath1 && opt.tempPath2 &&
                         (n >= 3 || dim.bpsIn >= 16) && !two_stage &&
                         weightBits / 8 * plane <= photo_bytes && accum_bytes <= n * photo_bytes &&
                         files.open(opt);
        if (use_files) {
            row_buffer = lv::try_calloc<uint8_t>(static_cast<size_t>(W) * S * n * (dim.bpsIn / 8));
            if (!row_buffer) return LV_ERR_NOMEM;
            opt.numThreads = 0;
            if (std::fwrite(img, 1, n * photo_bytes, files.source.get()) !=
                static_cast<size_t>(n * photo_bytes)) {
                files.close();
                use_files = false;
            }
        }
        uint8_t *block = mem + 2 * tower_samples;
        if (use_files) {
            weights = img;
        } else {
            if (memSize > 0 && memSize >= static_cast<size_t>(accum_bytes)) {
                accum = block, accum_in_block = true;
            } else {
                own_accum = lv::try_calloc<uint8_t>(accum_bytes);
                if (!own_accum) return LV_ERR_NOMEM;
                accum = own_accum.get();
            }
            if (memSize > 0 && memSize >= static_cast<size_t>(accum_bytes + weight_bytes)) {
                weights = block + accum_bytes, weights_in_block = true;
            } else {
                own_weights = lv::try_calloc<uint8_t>(weight_bytes);
                if (!own_weights) return LV_ERR_NOMEM;
                weights = own_weights.get();
            }
            std::memset(block, 0,
                        (accum_in_block ? accum_bytes : 0) + (weights_in_block ? weight_bytes : 0));
        }

        const int r1 = fusion1(opt.numThreads, param, n, W, H, S, dim.bpsIn, weightBits,
                               weightBits == 32, use_files, files.source.get(), row_buffer.get(),
                               img, order, mask, &reference, weights);
        if (r1 < 0) return r1;
        progress(1, callback, nullptr, first_share);
        const int wb = weightBits / 8;
        if (use_files && std::fwrite(weights, 1, n * plane * wb, files.weights.get()) !=
                             static_cast<size_t>(n * plane * wb))
            return LV_ERR_IO;

        const int levels = lv::blend_levels(W, H, dim.bpsOut);
        uint8_t *weight_tower = use_files ? mem : weights + (n - 1) * plane * wb;
        if (use_files) accum = img;
        std::memset(accum, 0, accum_bytes);
        if (accumBits == 16) { // band levels carry a bias of 0x7FFF; the top starts at 0
            auto *a16 = reinterpret_cast<uint16_t *>(accum);
            int64_t off = 0;
            for (int l = 0, w = W, h = H; l < levels; ++l) {
                std::fill(a16 + off, a16 + off + int64_t{w} * h * S, uint16_t{0x7FFF});
                off += int64_t{w} * h * S;
                w = w % 2 + (w >> 1);
                h = h % 2 + (h >> 1);
            }
        }
        auto *image_tower = reinterpret_cast<int16_t *>(mem);
        for (int k = n - 1, done = 1; k >= 0; --k, ++done) {
            if (use_files) {
                if (fseeko(files.weights.get(), k * plane * wb, SEEK_SET) != 0) return LV_ERR_KIND;
                const size_t got = std::fread(mem, wb, plane, files.weights.get());
                if (got != static_cast<size_t>(plane)) {
                    std::fprintf(stderr, "could not read fpPoids - returned %d instead of %d\n",
                                 static_cast<int>(got), static_cast<int>(plane));
                    return LV_ERR_KIND;
                }
            } else {
                std::memmove(weight_tower, weights + k * plane * wb, plane * wb);
            }
            int64_t off = 0;
            for (int l = 0, w = W, h = H; l < levels; ++l) {
                const int cw = w % 2 + (w >> 1), ch = h % 2 + (h >> 1);
                fusion21a(w, h, cw, ch, 1, weightBits, wrap, off, off + int64_t{w} * h, nullptr,
                          weight_tower);
                off += int64_t{w} * h;
                w = cw;
                h = ch;
            }
            if (use_files) {
                if (fseeko(files.tower.get(), 0, SEEK_SET) != 0) return LV_ERR_KIND;
                if (std::fwrite(mem, wb, pyr, files.tower.get()) != static_cast<size_t>(pyr))
                    return LV_ERR_IO;
                const int64_t row = static_cast<int64_t>(W) * S;
                for (int y = 0; y < H; ++y) {
                    const int64_t at = (k * samples + y * row) * (dim.bpsIn / 8);
                    if (fseeko(files.source.get(), at, SEEK_SET) != 0) return LV_ERR_KIND;
                    const size_t got =
                        std::fread(row_buffer.get(), dim.bpsIn / 8, row, files.source.get());
                    if (got != static_cast<size_t>(row)) {
                        std::fprintf(
                            stderr, "could not read fpSource - returned %d instead of %d  at  %d\n",
                            static_cast<int>(got), static_cast<int>(row), y);
                        return LV_ERR_KIND;
                    }
                    load_photo(row_buffer.get(), dim.bpsIn, row, image_tower + y * row);
                }
            } else {
                load_photo(img + k * samples * (dim.bpsIn / 8), dim.bpsIn, samples, image_tower);
            }
            const int r2 = fusion22(levels, W, H, S, accumBits, weightBits, wrap,
                                    use_files ? nullptr : weight_tower, files.tower.get(),
                                    row_buffer.get(), image_tower, accum);
            if (r2 < 0) return r2;
            progress(1, callback, nullptr,
                     first_share + done * (whole_share - last_share - first_share) / n);
        }
        files.close();
        row_buffer.reset();
        own_weights.reset();
        res3 = fusion3_main(param, levels, W, H, S, dim.bpsOut, accumBits,
                            two_stage ? W * S : dim.strideOut, two_stage ? 0 : dim.swapRedBlue,
                            wrap, accum, memory);
    }

    const int64_t out_bytes = samples * (dim.bpsOut / 8);
    if (!two_stage) {
        if (savedResult && (rerun || dim.bpsOut == 8)) {
            if (rerun)
                std::memcpy(memory, savedResult, out_bytes);
            else
                std::memcpy(savedResult, memory, out_bytes);
        }
        lv_adjust_colors(opt.numThreads, 0, 10, param, static_cast<unsigned char *>(aux), mem, dim);
        return 1;
    }
    if (rerun || n < 2) {
        if (rerun && savedResult) std::memcpy(memory, savedResult, samples);
        if (rerun || res3 >= 0)
            lv_adjust_colors(opt.numThreads, 0, 15, param, static_cast<unsigned char *>(aux), mem,
                             dim);
        return 1;
    }
    if (res3 < 0) return 1;
    const int64_t held = (accum_in_block ? accum_bytes : 0) + (weights_in_block ? weight_bytes : 0);
    lv::SecondStage s{callback,
                      param,
                      aux,
                      opt,
                      dim,
                      wrap,
                      n,
                      reference,
                      gamma,
                      slot1,
                      img,
                      accum,
                      savedResult,
                      mask,
                      memSize > static_cast<size_t>(held) ? memSize - held : 0,
                      mem + 2 * tower_samples + held,
                      memory,
                      accum_bytes};
    return lv::fusion_second_stage(s);
}

} // extern "C"
