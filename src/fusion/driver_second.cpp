// Two-stage fusion, after the blend: the darkest photograph, stretched to its
// white point and lifted by a gamma, is blended locally with the picture, then
// the colour pass runs.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "fusion/driver.h"
#include "lumivantor/colour.h"

namespace {

// 8-bit copy of one photograph or picture: 16-bit samples give their high byte.
void to_eight_bits(const uint8_t *src, int bps, int64_t samples, uint8_t *dst) {
    if (bps != 16) {
        std::memcpy(dst, src, samples);
        return;
    }
    const auto *s16 = reinterpret_cast<const uint16_t *>(src);
    for (int64_t i = 0; i < samples; ++i)
        dst[i] = static_cast<uint8_t>(s16[i] >> 8);
}

// Stretches an 8-bit picture so that its 99.99 % point of luminance becomes
// white, with a gamma above 1 that keeps the shadows from lifting as much as
// the lights.
void stretch(uint8_t *img, int64_t plane, int spp, double gamma) {
    if (plane < 1) return;
    int64_t hist[256] = {};
    for (int64_t i = 0; i < plane; ++i) {
        const uint8_t *px = img + i * spp;
        ++hist[(51 * px[0] + 179 * px[(spp - 1) / 2] + 25 * px[spp - 1]) >> 8];
    }
    const auto cut = static_cast<int64_t>(static_cast<float>(plane) * 0.9999f);
    int white = 255;
    int64_t sum = 0;
    for (int i = 0; i < 256; ++i) {
        sum += hist[i];
        if (sum > cut) {
            white = i;
            break;
        }
    }
    white = std::max(white, 1); // a black picture would divide by zero
    uint8_t lut[256];
    for (int i = 0; i < 256; ++i) {
        const double v = std::pow(i * 255.0 / white / 255.0, gamma) * 255.0 + 0.5;
        lut[i] = static_cast<uint8_t>(std::min(255.0, std::trunc(v)));
    }
    for (int64_t i = 0; i < plane * spp; ++i)
        img[i] = lut[img[i]];
}

} // namespace

namespace lv {

int fusion_second_stage(const SecondStage &s) {
    const DimParam &d = s.dim;
    const int64_t samples = static_cast<int64_t>(d.width) * d.height * d.samplesPerPixel;
    const int bytes_in = d.bpsIn / 8;
    s.param[1] = s.slot1;

    // The photographs' room is about to hold the pair; the saved-result buffer
    // keeps the caller's first photograph meanwhile.
    if (s.savedResult) std::memcpy(s.savedResult, s.images, samples * 2);
    to_eight_bits(s.images + s.reference * samples * bytes_in, d.bpsIn, samples, s.scratch);
    stretch(s.scratch, samples / d.samplesPerPixel, d.samplesPerPixel, s.gamma);
    to_eight_bits(static_cast<const uint8_t *>(s.memory), d.bpsOut, samples, s.images);
    std::memcpy(s.images + samples, s.scratch, samples);
    if (!s.opt.lowMemory) std::memset(s.scratch, 0, s.accumBytes);

    DimParam pair;
    init_dim_param(&pair);
    pair.width = d.width;
    pair.height = d.height;
    pair.samplesPerPixel = d.samplesPerPixel;
    pair.bpsOut = d.bpsOut;
    pair.strideOut = d.strideOut;
    pair.swapRedBlue = d.swapRedBlue;
    const int r = lv_fusion_local(2, s.callback, s.param, s.wrap, s.images, nullptr, pair, s.opt,
                                  s.mask, s.scratch, s.blockSize, s.block, s.memory);
    if (s.savedResult) {
        std::memcpy(s.images, s.savedResult, samples * 2);
        if (r >= 0 && d.bpsOut == 8) std::memcpy(s.savedResult, s.memory, samples);
    }
    if (r < 0) return r;
    lv_adjust_colors(s.opt.numThreads, 0, 15, s.param, static_cast<unsigned char *>(s.aux),
                     static_cast<unsigned char *>(s.memory), d);
    return 1;
}

} // namespace lv
