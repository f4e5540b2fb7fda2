// TEMPORARY stand-in declaration until the tone-map family lands on main; removed once its
// public header exists.
#pragma once
#include <lumivantor/frame.h>

LV_EXTERN_C_BEGIN
LV_API int tm_simple(DimParam dim, float *p, unsigned char *mask, float *lumStats,
                     float *expTable, int *numThreads, unsigned char *input,
                     unsigned char *output);
LV_EXTERN_C_END
