// The contrast optimizer behind "lvhdr tonemap --method optimizer" and the demo.
#pragma once

#include "cli.h"
#include "hdr_pipeline.h"

#include <string>

namespace lvhdr {

// Sliders of the contrast optimizer, with its own defaults.
struct OptimizerSettings {
    float compression = 50;      // 0..100: how strongly large steps of luminance shrink
    float detail = 0;            // -5..10: higher keeps less fine detail as detail
    float level_dependence = 20; // 0..100: coarse levels compress more than fine ones
    float white_clip = 0.6f;     // % of pixels clipped at white
    float black_clip = 0.25f;    // % of pixels clipped at black
    float gamma = 0;             // -10..10: brighter midtones for negative values
    float saturation = 0;        // -10..10
    float temperature = 0;       // -10..10, 260 K a step, warmer for positive values
};

// Tone-maps with the contrast optimizer into an 8- or 16-bit RGB image, on `threads`
// threads; progress goes to the current progress bar.
bool tonemap_optimizer(HdrImage &image, const OptimizerSettings &settings, int bits, int threads,
                       Image &out, std::string &error);

// Help lines of the optimizer's options.
extern const char *tonemap_optimizer_help;

} // namespace lvhdr
