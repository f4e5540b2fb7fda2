/*
 * lumivantor tone mapping: the global photoreceptor operator tm_simple and the tables and
 * conversions that prepare its input.
 *
 * Calling order for an HDR image: exp_lut(table, -8), logMinMaxMoy on the image,
 * tmparam_default(2, 0, p) and the user's sliders, then tm_simple. Block p of method 2:
 * p[0] brightness, p[1] compression, p[2] adaptation mix, p[3] white clip, p[4] black
 * clip, p[12] temperature, p[13] saturation, p[21..48] hue curves, p[55] number of mask
 * layers (blocks of LV_TMPARAM_COUNT floats following p), p[56]/p[57] first and end
 * column of a partial render (0, or p[57] >= width, means the whole row).
 *
 * The gradient-domain enhancer (method 1) compresses large luminance jumps and keeps fine
 * detail. Size the work buffer first; a run with p[19] = 2.0 keeps its solved plane in
 * work, so later runs with p[19] = 1.0 redo only the finishing with new settings:
 *
 *     float p[LV_TMPARAM_COUNT], table[256], stats[7];
 *     tmparam_default(1, 0, p);
 *     exp_lut(table, -8);
 *     DimParam d; init_dim_param(&d);
 *     d.width = w; d.height = h; d.strideIn = d.strideOut = 3 * w;
 *     OptimParam o; init_optim_param(&o); o.numThreads = 4;
 *     size_t pair[2], total;
 *     mem4enhancer(0, p, pair, &total, d);
 *     unsigned char *work = malloc(total);
 *     p[19] = 2.0f;
 *     lv_tm_enhancer(0, p, NULL, stats, table, NULL, d, o, NULL, rgbe, work);
 *     p[2] = 60.0f; p[19] = 1.0f;   // more saturation: only the last stage runs
 *     lv_tm_enhancer(0, p, NULL, stats, table, NULL, d, o, NULL, rgbe, work);
 *     // work now starts with h rows of 3 * w bytes
 *
 * Block p of method 1: p[0] strength, p[1] contrast of the global mix, p[2] saturation,
 * p[3] white clip, p[4] black clip, p[6] and p[7] detail (attenuation), p[8] gamma
 * (50: none), p[9] and p[10] white and black repair, p[11] shadow clip, p[12]
 * temperature, p[13] and p[14] highlight and shadow saturation, p[15] 360-degree
 * panorama, p[16] pipeline (1 current, 0 old), p[18] solver tolerance, p[19] re-finish
 * (2.0 keep the plane, 1.0 re-finish from it).
 * The contrast optimizer (method 3), a local Laplacian filter, on planar RGBE rows:
 *
 *     float p[LV_TMPARAM_COUNT];
 *     tmparam_default(3, 0, p);                    // then the user's sliders
 *     int64_t work;
 *     mem4contrast_optimizer(0, dim, &work);
 *     int64_t image = max(w * h * spp * bpsIn / 8, w * h * 4);   // the finished image
 *     int64_t size = image + work;
 *     unsigned char *memory = malloc(size);
 *     float *map = malloc(pyram_len2(w, h) * sizeof(float));     // the tower lives here
 *     lv_tm_optimizer(dim, opt, cb, p, NULL, 0, map, rgbe, size, memory);
 *     // picture at memory; after a change of colour sliders only (p[8], p[12], p[13],
 *     // hue curves), re-finish from the kept luminance map without tone mapping again:
 *     lv_tm_optimizer(dim, opt, cb, p, NULL, 1, map, rgbe, size, memory);
 *
 * Block p of method 3: p[0] compression 0..100, p[1] detail threshold, p[2] level
 * dependence, p[3] white clip %, p[4] black clip %, p[8] gamma, p[9] extra luminance,
 * p[12] temperature, p[13] saturation, p[15] wrap columns; p[5], p[7], p[10], p[11] and
 * p[18] are written during a run, so a block serves one running job at a time.
 */
#ifndef LUMIVANTOR_TONEMAP_H
#define LUMIVANTOR_TONEMAP_H

#include <stddef.h>
#include <stdint.h>

#include "colour.h"
#include "export.h"
#include "frame.h"

LV_EXTERN_C_BEGIN

/* Tone-maps an HDR image to 8-bit or 16-bit samples with the global photoreceptor curve,
 * white balance, saturation, hue tables and optional mask layers, on *numThreads bands.
 * input: planar RGBE rows (4 x width bytes a row), or interleaved floats of
 * samplesPerPixel a pixel when dim.inputFormat is 10. lumStats: six floats from
 * logMinMaxMoy. expTable: 256 floats from exp_lut with bias -8. mask: NULL, or two bytes
 * a pixel (weight, layer; layer 255 = none). output: rows of dim.strideOut samples.
 * dim.outputLayout 3 asks for three colour planes: on one thread the planes' rows advance
 * by strideOut (pass width); on several threads the bands write packed interleaved pixels
 * (pass strideOut = width x samplesPerPixel) that are then split into planes, and with
 * float input the input buffer is overwritten as scratch.
 * Returns height on one thread; with several, the last band's row count, or height
 * after a plane split. -5 when
 * lumStats[0] >= lumStats[1], -4 when out of memory, -2 when a thread could not start. */
LV_API int tm_simple(DimParam dim, float *p, unsigned char *mask, float *lumStats, float *expTable,
                     int *numThreads, unsigned char *input, unsigned char *output);

/* Splits packed interleaved output (width x height pixels, bpsOut bits a sample) into
 * three colour planes in place, through scratch of the same size; returns height, 0 when
 * height < 1. */
LV_API int rgb_interleaved2color_planes(DimParam dim, void *scratch, void *image);

/* Table of n linear levels for 8-bit or 16-bit samples: gamma 1.0 when flag >= 1, else
 * 2.2, scaled to 0..n-1, with table[0] = table[1]. Returns n, or 1 when n < 2 (table
 * untouched). */
LV_API int camcurve(int flag, int n, float *table);

/* Natural-log luminance plane (width x height floats) of a float (kind 0), 16-bit (kind 1)
 * or 8-bit image, samples looked up in lut for 8/16-bit; rows advance by stride samples.
 * Zero-luminance pixels take the plane's minimum. stats[0] = geometric mean,
 * stats[1] = max / mean, stats[2] = minimum luminance. Returns the count of pixels with
 * positive luminance. */
LV_API int get_log_lum(int kind, int width, int height, int spp, int stride, float *stats,
                       const float *lut, const unsigned char *source, float *logLum);

/* Converts an 8-bit or 16-bit image (rows of stride samples, levels linearised through
 * lut) to planar RGBE rows. Pixels too dark or clipped become grey at the darkest or
 * brightest reliable level of the image. Returns height. */
LV_API int convert_to_rgbe(int bps, int width, int height, int spp, int stride, int swapRedBlue,
                           const float *lut, const unsigned char *source, unsigned char *rgbe);

/* Work-buffer plan of the enhancer. pair (may be NULL) receives planeOffset, the byte
 * offset of the plane pyramid in work, and the floats of the solver's pyramid; total (may
 * be NULL) the bytes of a plain run. Output bytes are counted on dim.strideIn, so set it
 * for RGBE input too (3 x width). A low-memory run needs max(planeOffset, output bytes)
 * and, to spare the driver an allocation for the plane of its last stage,
 * 2 x height x (strideOut - 2 x width) + 4 x width x height bytes (6 x width x height for
 * packed RGB). Returns the number of pyramid levels. */
LV_API int mem4enhancer(int kind, float *p, size_t *pair, size_t *total, DimParam dim);

/* Tone-maps with the gradient-domain enhancer. kind: 0 HDR (RGBE rows, or interleaved
 * floats with dim.inputFormat 10), 1 16-bit, 2 8-bit samples through curve (camcurve).
 * stats: seven floats, filled unless re-finishing. expTable: exp_lut(table, -8) for RGBE.
 * mask: NULL or mask layers as for tm_simple. input: the image, or NULL to read
 * opt.sourceFile (a .hdr file). work: mem4enhancer's total bytes (low memory: see there);
 * receives the output at its start. opt.lowMemory (HDR input) reads opt.sourceFile and
 * streams through opt.tempPath0..5, which are left for the host to delete. Float input
 * (inputFormat 10) sets bpsIn 32; opt.pyramidMode 1 solves a reduced copy first (not with
 * p[16] = 1), 9 only stores the reduced width and height as two ints in work. Returns the
 * rows written (height, or the last band's rows), -10 no input, -11 source not .hdr,
 * -12 work too small, -400 work NULL, or another negative code of a stage. */
LV_API int lv_tm_enhancer(int kind, float *p, unsigned char *mask, float *stats, float *expTable,
                          float *curve, DimParam dim, OptimParam opt,
                          LvProgressCallback progressCb, unsigned char *input,
                          unsigned char *work);
/* Work-space size of lv_tm_optimizer into *size: pyram_len2 x 8 + width x height x 4 bytes.
 * kind is ignored. Returns 1. */
LV_API int mem4contrast_optimizer(int kind, DimParam dim, int64_t *size);

/* Contrast optimizer on RGBE rows (dim.bpsIn 32) or 8/16-bit interleaved samples. The
 * picture (dim.bpsOut bits, dim.strideOut) is written at the start of memory, which holds
 * the image area (max(w x h x spp x bpsIn / 8, w x h x 4) bytes) and then the work space;
 * without room the work space is allocated. map: NULL, or pyram_len2 floats that hold the
 * tower during the run and the 0..1 luminance map after it. reuseMap nonzero with a map:
 * only the colour finish runs. mask: NULL, or two bytes a pixel (weight, layer).
 * progressContext: the host's mode-1 callback, or NULL. Returns height (the last band's
 * rows), -1 for an empty image, -400 for a memory block missing or smaller than the
 * image area or the picture, -4 when out of memory. */
LV_API int lv_tm_optimizer(DimParam dim, OptimParam opt, LvProgressCallback progressContext,
                           float *p, unsigned char *mask, int reuseMap, float *map,
                           unsigned char *input, int64_t memorySize, unsigned char *memory);

/* Colour finish of the optimizer: the picture from the source's colour and a 0..1
 * luminance map, with gamma, saturation, temperature, hue tables and mask layers, on
 * opt.numThreads bands. Returns the last band's row count, or -4. */
LV_API int co_final(DimParam dim, OptimParam opt, LvProgressCallback progressContext, float *p,
                    unsigned char *mask, unsigned char *input, float *map,
                    unsigned char *output);

LV_EXTERN_C_END

#endif
