// Band body and thread body of the global operator, for the driver tm_simple and for
// the enhancer's last stage, which reuses the per-pixel curve.
#pragma once

#include "lumivantor/tonemap.h"

LV_EXTERN_C_BEGIN

// Hue tables of the base block and every mask layer, built before the bands start:
// per block a flag for the colour table (3 x 4096 floats) and one for the luminance
// table (4096 floats); block k's tables start at 3 x 4096 x k and 4096 x k.
typedef struct TmColourTables {
    int layers;
    const int *hasColour;
    const int *hasLum;
    const float *colourTable;
    const float *lumTable;
} TmColourTables;

// Tone-maps the rows of dim (one band, or the whole image) with the tables already
// built; returns dim.height. dim.outputLayout 3 writes three planes directly.
LV_API int tm_simple_orig(DimParam dim, float *p, unsigned char *mask, float *lumStats,
                          float *expTable, unsigned char *input, unsigned char *output,
                          const TmColourTables *tables);

// Arguments of one band thread; the body works out its rows from its index and count.
typedef struct TmSimpleArgs {
    DimParam dim; // the whole image; the band clears outputLayout
    float *p;
    unsigned char *mask;
    float *lumStats;
    float *expTable;
    unsigned char *input;
    unsigned char *output;
    const TmColourTables *tables;
    int threadIndex;
    int threadCount;
    int result;
} TmSimpleArgs;

// Thread body: runs tm_simple_orig on its band, stores the result, exits the thread.
LV_API void *tm_simple_threaded(void *args);

LV_EXTERN_C_END
