// lvhdr's call of the gradient-domain enhancer: the sliders a user sets, the work buffer,
// and the temp files of a low-memory run.
#pragma once

#include "hdr_pipeline.h"

#include <string>

namespace lvhdr {

// Sliders of the enhancer. Negative values (the defaults) keep the library's default.
struct EnhancerSettings {
    float strength = -1;         // p[0], 0..100: how hard large jumps are compressed
    float detail = -1;           // p[6], 0..20: attenuation of strong gradients
    float attenuation = -1;      // p[7], 0..20: offset that spares weak gradients
    float saturation = -1;       // p[2], 0..100
    float white_clip = -1;       // p[3], 0..10 percent
    float black_clip = -1;       // p[4], 0..10 percent
    float shadow_clip = -1;      // p[11], 0..100
    float gamma = 50;            // p[8], -10..10; 50 leaves the tone curve alone
    float temperature = 0;       // p[12], -10..10
    bool low_memory = false;     // stream through temp files in a private folder
    bool two_resolution = false; // solve a reduced copy first (pyramidMode 1)
};

// Fills a method-1 parameter block from the sliders.
void enhancer_block(const EnhancerSettings &s, float *p);

// Tone-maps with the enhancer into an 8- or 16-bit RGB image. A low-memory run reads the
// image from source_path (the .hdr file), keeping its temp files in a private folder that
// is removed afterwards, also on failure.
bool tonemap_enhancer(HdrImage &image, const std::string &source_path,
                      const EnhancerSettings &settings, int bits, Image &out, std::string &error);

} // namespace lvhdr
