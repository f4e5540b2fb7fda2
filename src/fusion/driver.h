// Fusion driver internals shared between the blend route (driver.cpp) and the
// finishing of the two-stage method (driver_second.cpp).
#pragma once

#include <stdint.h>

#include "lumivantor/fusion.h"

namespace lv {

// What the two-stage finishing needs from the blend.
struct SecondStage {
    LvProgressCallback callback;
    float *param;
    void *aux;
    OptimParam opt;
    DimParam dim;
    int wrap, n, reference;
    double gamma;      // of the brightened reference photograph
    float slot1;       // slot 1 as the caller gave it
    uint8_t *images;   // the caller's photographs, now working space
    uint8_t *scratch;  // the accumulator's storage
    void *savedResult; // or null
    uint8_t *mask;     // selection handed to the weights
    size_t blockSize;  // memSize less what the blend still holds in it
    void *block, *memory;
    int64_t accumBytes;
};

// Reductions of the blend's towers: trunc(log2(min side)) - 1, exact at powers of two, or
// - 2 for 32-bit output of a side above 127, whose coarsest levels would lose precision.
int blend_levels(int w, int h, int bpsOut);

// Brightens the reference photograph, runs the local stage on it and the
// blended picture, and finishes with the colour pass. Returns 1 or the local
// stage's failure.
int fusion_second_stage(const SecondStage &s);

} // namespace lv
