// The enhancer's last stage: normalises the solved plane between a black and a white
// percentile, mixes it with a global curve of each pixel's own luminance, rebuilds
// colour from the source pixel's ratios and writes 8-bit or 16-bit samples. A host may
// re-run it alone with new finishing settings on a plane it kept.
#pragma once

#include "lumivantor/tonemap.h"

LV_EXTERN_C_BEGIN

// Floats in one block's colour table (4096 triples) and luminance table.
#define LV_TM3_COLOUR_TABLE 12288
#define LV_TM3_LUM_TABLE 4096

// Maps plane and image to output, on numThreads bands (one thread in low-memory runs,
// where the RGBE rows come from opt.tempPath0). keep with keptPlane copies the
// normalised plane there for later re-finishing. Returns the last band's result (the
// rows it wrote), or a negative code. dim.outputLayout 3 writes three packed planes of
// width x height samples (strideOut is then not used); with several threads the image
// buffer serves as scratch for the split when it is as large as the output.
LV_API int calc_tm3(int kind, DimParam dim, float *p, unsigned char *mask, float *stats,
                    float *expTable, float *curve, OptimParam opt, LvProgressCallback progressCb,
                    int keep, float *keptPlane, unsigned char *image, float *plane,
                    unsigned char *output);

// Clips the plane at 5, then stretches it in place so the black percentile (p[4]) maps
// to 0 and the white one (p[3]) to 1; nothing is clipped above. Returns dim->height,
// -4 without memory for the histogram, -5 when black does not lie below white.
LV_API int tm30(DimParam *dim, float *p, long unused, float *plane);

// Maps the rows of dim (one band or the whole image) with the tables calc_tm3 built;
// returns dim.height, or a negative code in a low-memory run.
LV_API int tm31(int kind, DimParam dim, float *p, unsigned char *mask, float *stats,
                float *expTable, float *curve, OptimParam opt, LvProgressCallback progressCb,
                int *hasColour, int *hasLum, float *colourTable, float *lumTable,
                unsigned char *image, float *plane, unsigned char *output);

// Arguments of one band of calc_tm3; the body works out its rows from its index.
typedef struct Tm3Args {
    int kind;
    DimParam dim; // the whole image
    float *p;
    unsigned char *mask;
    float *stats;
    float *expTable;
    float *curve;
    OptimParam opt;
    LvProgressCallback progressCb; // thread 0 only
    int *hasColour;
    int *hasLum;
    float *colourTable;
    float *lumTable;
    unsigned char *image;
    float *plane;
    unsigned char *output;
    int threadIndex;
    int threadCount;
    int result;
} Tm3Args;

// Thread body: runs tm31 on its band, stores the result, exits the thread.
LV_API void *tm3_threaded(void *args);

LV_EXTERN_C_END
