/*
 * lumivantor fusion: exposure fusion of a bracket of 8-bit or 16-bit photographs straight
 * to a finished picture, with no HDR image in between. Method 10 blends the photographs'
 * towers under well-exposedness weights; method 15 (p[9] = 1) blends that picture once more,
 * locally, with a brightened copy of the darkest photograph.
 *
 * Calling example, n packed RGB photographs of w x h at 8 bits into an 8-bit picture:
 *
 *     float p[LV_TMPARAM_COUNT];
 *     tmparam_default(10, 0, p);                      // or 15 for the two-stage method
 *     DimParam d; init_dim_param(&d);
 *     d.width = w; d.height = h; d.strideOut = 3 * w;
 *     OptimParam o; init_optim_param(&o); o.numThreads = 2;
 *     uint64_t bytes;
 *     mem4fusion(p[9] == 1.0f ? 2 : 1, n, 16, 16, &bytes, d);
 *     size_t lead = 2 * 3 * (size_t)pyram_len2(w, h);   // the image tower, ahead of memSize
 *     void *memory = calloc(lead + bytes, 1);
 *     int *order = calloc(n, sizeof *order);         // n entries; order[0] = -1:
 *     order[0] = -1;                                  // no selection mask
 *     int r = lv_fusion(NULL, p, NULL, n, 16, 16, o, d, 0, images, order, NULL,
 *                       (size_t)bytes, memory);      // picture at memory, r == 1
 *
 * images is working space and is overwritten. A run changes p: pass a fresh block each time.
 * In low-memory runs (o.lowMemory with o.sourceFile, o.tempPath1 and o.tempPath2 set, three
 * or more photographs or 16-bit ones, method 10) the photographs and weights go to those
 * three files, which the caller deletes afterwards.
 */
#ifndef LUMIVANTOR_FUSION_H
#define LUMIVANTOR_FUSION_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"
#include "frame.h"

LV_EXTERN_C_BEGIN

/* Bytes of memSize for a fusion that allocates nothing (mode 1: method 10; mode 2: method
 * 15), not counting the image tower of 2 * samplesPerPixel * pyram_len2(w, h) bytes that
 * lies ahead of it in memory. Stores it in *bytes and returns 1; another mode returns -1. */
LV_API int mem4fusion(int mode, int n, int weightBits, int accumBits, uint64_t *bytes,
                      DimParam dim);

/* Fuses n photographs (images, back to back, dim.bpsIn bits) into memory at dim.bpsOut,
 * strideOut and swapRedBlue, finished by the colour pass (aux is its mask). weightBits 8, 16
 * or 32, accumBits 16. order: n entries, order[0] < 0: no selection. Returns 1, -2 for unsupported depths or
 * a failed temp-file write, -3 for a failed temp-file read, -4 out of memory, -1 when the
 * host cancels the two-stage method through callback. */
LV_API int lv_fusion(LvProgressCallback callback, float *param, void *aux, int n, int weightBits,
                     int accumBits, OptimParam opt, DimParam dim, int wrap, void *images,
                     int *order, uint8_t *mask, size_t memSize, void *memory);

/* lv_fusion keeping the result before the colour pass in savedResult (samples x 2 bytes);
 * with p[19] = 1 it skips the fusing and refinishes that saved result. */
LV_API int lv_fusion5(LvProgressCallback callback, float *param, void *aux, int n, int weightBits,
                      int accumBits, OptimParam opt, DimParam dim, int wrap, void *savedResult,
                      void *images, int *order, uint8_t *mask, size_t memSize, void *memory);

/* Second stage of method 15 on n 8-bit photographs (the blended picture, then a brightened
 * darkest photograph): a local Laplacian blend into memory at bpsOut. Returns 1, a failing
 * stage's code, -4 out of memory, or -1 when the host cancels through callback. */
LV_API int lv_fusion_local(int n, LvProgressCallback callback, float *param, int wrap,
                           uint8_t *images, void *unused, DimParam dim, OptimParam opt,
                           void *selection, void *resultTower, size_t memSize, void *block,
                           void *memory);

LV_EXTERN_C_END

#endif
