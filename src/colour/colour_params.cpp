// Where each tone mapper and finishing pass keeps its colour controls in a parameter
// block, and the questions put to a block: is there colour work, which indices are
// colour, and do two blocks share their tone settings.
#include <cstddef>
#include <initializer_list>

#include "lumivantor/colour.h"

namespace {

constexpr int kTemperature = 12;
constexpr int kMaxIndices = 9;

// A short list of block indices.
struct Indices {
    int count;
    int at[kMaxIndices];
};

// The colour layout of one method code.
struct MethodLayout {
    int saturation;     // index of the saturation slider
    int gamma;          // index of the midtone slider
    bool always_colour; // the balancer always has colour work
    Indices plain;      // plain sliders that mean colour work when nonzero
    Indices colour;     // indices counted as colour besides the curves
    bool has_tone;      // whether tone settings can be compared
    Indices tone;       // tone settings, in the order they are compared
};

// Methods without an owner (5 to 9, 12 to 14 for the tone comparison, unknown codes).
constexpr MethodLayout kOther = {13, 6, false, {0, {}}, {0, {}}, false, {0, {}}};

constexpr MethodLayout kLayouts[16] = {
    kOther,
    /* 1 enhancer */
    {2, 8, false, {3, {2, 8, 12}}, {3, {2, 8, 12}}, true, {9, {0, 3, 4, 5, 6, 7, 16, 15, 17}}},
    /* 2 global operator: the temperature is honoured but not counted as colour */
    {13, 0, false, {3, {13, 0, 12}}, {2, {0, 13}}, true, {4, {1, 2, 3, 4}}},
    /* 3 contrast optimizer */
    {13, 8, false, {3, {13, 8, 12}}, {3, {8, 12, 13}}, true, {6, {0, 1, 2, 3, 4, 15}}},
    /* 4 balancer */
    {13, 8, true, {0, {}}, {0, {}}, true, {7, {0, 1, 2, 3, 4, 5, 15}}},
    kOther,
    kOther,
    kOther,
    kOther,
    kOther,
    /* 10 fusion */
    {3, 6, false, {3, {3, 6, 12}}, {3, {3, 6, 12}}, true, {5, {0, 1, 2, 7, 8}}},
    /* 11 intensive combination */
    {1, 6, false, {3, {1, 6, 12}}, {3, {1, 6, 12}}, true, {2, {0, 2}}},
    /* 12 unused, 13 two-image combination, 14 averaging */
    {13, 6, false, {3, {13, 6, 12}}, {3, {6, 12, 13}}, false, {0, {}}},
    {13, 6, false, {3, {13, 6, 12}}, {3, {6, 12, 13}}, false, {0, {}}},
    {13, 6, false, {3, {13, 6, 12}}, {3, {6, 12, 13}}, false, {0, {}}},
    /* 15 fusion, second form */
    {3, 6, false, {3, {3, 6, 12}}, {3, {3, 6, 12}}, true, {5, {0, 1, 2, 7, 8}}},
};

const MethodLayout &layout_of(int method) {
    if (method < 1 || method > 15) return kOther;
    return kLayouts[method];
}

// First index of the three curves; each holds nine points, of which eight are used.
constexpr int kCurveStarts[3] = {21, 31, 41};

} // namespace

extern "C" {

int get_color_param(int method, const float *p, float *saturation, float *temperature, float *gamma,
                    float *satCurve, float *hueCurve, float *lumCurve) {
    const MethodLayout &m = layout_of(method);
    double slider = p[m.saturation];
    if (method == 4) slider = slider <= 0.0 ? slider * 0.8 - 2.0 : slider * 1.2 - 2.0;
    *saturation = static_cast<float>(0.1 * slider);
    *temperature = p[kTemperature];
    *gamma = p[m.gamma];
    float *curves[3] = {satCurve, hueCurve, lumCurve};
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < LV_CURVE_POINTS; ++i)
            curves[c][i] = p[kCurveStarts[c] + i];
    return 9;
}

int has_color_param(int method, const float *p) {
    const MethodLayout &m = layout_of(method);
    if (m.always_colour) return 1;
    for (int i = 0; i < m.plain.count; ++i)
        if (p[m.plain.at[i]] != 0.0f) return 1;
    for (int start : kCurveStarts)
        for (int i = 0; i < 9; ++i)
            if (p[start + i] != 0.0f) return 2;
    return 0;
}

int index_is_color_param(int method, unsigned index) {
    if (index >= 21 && index <= 49) return 1;
    const MethodLayout &m = layout_of(method);
    for (int i = 0; i < m.colour.count; ++i)
        if (index == static_cast<unsigned>(m.colour.at[i])) return 1;
    return 0;
}

int has_same_hdr_settings(int method, const float *a, const float *b) {
    const MethodLayout &m = layout_of(method);
    if (!m.has_tone) return -1;
    for (int i = 0; i < m.tone.count; ++i)
        if (a[m.tone.at[i]] != b[m.tone.at[i]]) return 0;
    return 1;
}

} // extern "C"
