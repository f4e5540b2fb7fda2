// Defaults of the tone-mapping parameter block and the gamma-shaped threshold sliders.
#include <cmath>
#include <cstring>

#include "frame/rounding.h"
#include "lumivantor/frame.h"

extern "C" {

int tmparam_default(int method, int variant, float *p) {
    std::memset(p, 0, LV_TMPARAM_COUNT * sizeof(float));
    switch (method) {
    case 1: // enhancer
        p[1] = variant > 0 ? 40.0f : 70.0f;
        p[2] = 46.0f;
        p[3] = 0.25f;
        p[5] = 1.0f;
        p[7] = 2.0f;
        p[8] = 50.0f;
        p[16] = 1.0f;
        break;
    case 3: // contrast optimizer
        p[0] = 50.0f;
        p[2] = 20.0f;
        p[3] = 0.6f;
        p[4] = 0.25f;
        break;
    case 10: // fusion
        p[8] = 2.0f;
        break;
    case 11: // intensive combination
        p[2] = 70.0f;
        break;
    case 12: // two-image combination
    case 15: // fusion, second form
        p[8] = 2.0f;
        p[9] = 1.0f;
        break;
    default: // 2, 4 to 9, 13, 14 and unknown codes keep an all-zero block
        break;
    }
    return 0;
}

int param2slider(float value, double gamma) {
    const double y = std::pow(value * 5e-6, gamma);
    return lv::round_over_half(y * 100.0);
}

int slider2param(int slider, double gamma) {
    return lv::round_over_half(std::pow(slider * 0.01, gamma) * 200000.0);
}

} // extern "C"
