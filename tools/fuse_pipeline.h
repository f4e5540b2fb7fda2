// Exposure fusion of a decoded bracket, shared by `lvhdr fuse` and `lvhdr demo`.
#pragma once

#include "hdr_pipeline.h"

#include <lumivantor/frame.h>

#include <string>

namespace lvhdr {

struct FuseSettings {
    bool two_stage = false; // the blend, then the local stage
    float sharpness = 0;    // -10..10
    float prefer = 0;       // -10..10: darker or brighter photographs
    float cutoff = 0;       // 0..10: flat-topped exposure curve cutting highlights
    float detail = 2;       // 0..10
    int bits = 8;           // of the output
    int threads = 2;
    bool low_memory = false; // photographs and weights in a private temp folder
    LvProgressCallback callback = nullptr;
};

// Fuses the bracket (whose buffer becomes working space) into `out`. Returns the library's
// result: 1, or a negative code with a reason in `error` (-1: cancelled).
int fuse_bracket(Bracket &bracket, const FuseSettings &settings, Image &out, std::string &error);

} // namespace lvhdr
