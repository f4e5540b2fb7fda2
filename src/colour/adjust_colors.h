// Band body and thread body of the colour adjustment pass, and the job-wide tables the
// driver lv_adjust_colors builds once and every band reads.
#pragma once

#include "lumivantor/colour.h"

LV_EXTERN_C_BEGIN

// Tables of one job. Per block (base, then each mask layer): the hue colour table
// (3 x 4096 floats), the luminance table (4096 floats) and its flag, the temperature,
// the raw midtone value and the extra luminance.
typedef struct AdjustColorsTables {
    int layers;                // mask layers in use (0 without a mask)
    int space;                 // working RGB space of the temperature matrices
    float black, levelScale;   // level clipping; a scale of 1 leaves levels alone
    const float *powerTable;   // max + 1 floats: samples to linear light
    const void *inverseTable;  // max + 1 samples of the image's depth: linear back to samples
    const float *colorTables;  // (layers + 1) x 4096 x 3
    const float *lumTables;    // (layers + 1) x 4096
    const int *lumFlags;       // (layers + 1): the block's luminance table exists
    const float *temperatures; // (layers + 1)
    const float *midtones;     // (layers + 1)
    const float *extraLum;     // (layers + 1); the base block's is never applied
} AdjustColorsTables;

// Adjusts `rows` rows of image (rows of dim.strideOut samples) with mask rows packed at
// two bytes a pixel from the band's first row; returns rows, or -4 when the band's small
// tables can't be had (the band is then left as it was).
LV_API int adjust_colors_orig(DimParam dim, int rows, const AdjustColorsTables *tables,
                              const unsigned char *mask, unsigned char *image);

// Arguments of one band thread; the body works out its rows from its index and count.
typedef struct AdjustColorsArgs {
    DimParam dim; // the whole image
    const AdjustColorsTables *tables;
    const unsigned char *mask;
    unsigned char *image;
    int threadIndex;
    int threadCount;
    int result;
} AdjustColorsArgs;

// Thread body: runs adjust_colors_orig on its band, stores the result, exits the thread.
LV_API void *adjust_colors_threaded(void *args);

LV_EXTERN_C_END
