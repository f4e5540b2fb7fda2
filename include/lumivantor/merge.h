/*
 * lumivantor HDR merge: exposure factors from metadata or from the images, the camera
 * response, and the merge of a bracket into planar RGBE.
 *
 * A bracket is n images end to end in one buffer, width * height * samples samples each,
 * 8 or 16 bits a sample (uint8_t or uint16_t), no row padding. Red is sample 0, green
 * sample (samples - 1) / 2, blue the last. Exposure factors are linear floats, larger for
 * brighter images; only their ratios matter.
 */
#ifndef LUMIVANTOR_MERGE_H
#define LUMIVANTOR_MERGE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "frame.h"

LV_EXTERN_C_BEGIN

/* ---- Exposure analysis ---- */

/* Turns n records of 7 floats (exposure num/den, f-number num/den, shutter APEX in
 * thousandths, ISO, unused) into n exposure factors at the start of records; returns 1. */
LV_API int get_ev(int n, float *records);
/* Brightness measure of each image from its luminance histogram into measure[n]; returns
 * trunc(0.5 * width * height). rowSamples is samples * width. */
LV_API int mediane_images(int n, int width, int height, int rowSamples, int samples, int bits,
                          const void *images, int32_t *measure);
/* Measures the images and orders them brightest first into order[n]; returns n, 0 for
 * n < 1, -4 for a failed allocation or a null measure. */
LV_API int classementImages(int n, int width, int height, int samples, int bits, const void *images,
                            int32_t *measure, int32_t *order);
/* Exposure factors from brightness measures (mode 0), or whole stops in rank order (other
 * modes); step > 0 means an even bracket of step stops. Returns n, 0 for n < 1. */
LV_API int guess_ev(int mode, int n, int32_t *measure, float *exposures, float step);
/* An older, tracing variant of guess_ev without the measure clamps; returns n, 0 for n < 1. */
LV_API int new_bad_guess_ev(int mode, int n, int32_t *measure, float *exposures, float step);
/* Indices of values[n] from smallest to largest into order[n]; returns n, 0 for n < 1. */
LV_API int fClassementCroissant(int n, const float *values, int32_t *order);
/* Counts pixels clipped in all of R, G and B into counts[n]; returns n, 0 for n < 1. */
LV_API int overexposureLevel(int n, int width, int height, int samples, int bits,
                             const void *images, int32_t *counts);
/* Same counts as overexposureLevel with a plainer loop; returns n, 0 for n < 1. */
LV_API int test_overexposureLevel(int n, int width, int height, int samples, int bits,
                                  const void *images, int32_t *counts);
/* Fills 65281 floats with an alternative curve-slope table; returns 13. */
LV_API int rempliPenteExposition(float *table);

/* ---- Camera response ---- */

/* Estimates the gamma of a bracket with known exposures and writes sample curve points and
 * a head of three summary values into curve[256]; returns gamma * 1000, or -1. */
LV_API int calc_courbe(int n, int width, int height, int bits, int samples, const float *exposures,
                       const void *images, float *curve);
/* Expands a gamma in thousandths into curve[256] = scale * code^gamma; returns 256. */
LV_API int gen_courbe(int gammaMilli, float *curve, float scale);
/* Mean sample level of an image over a sparse grid; 0 for a depth other than 8 or 16 or no
 * rows. */
LV_API int moy_image(int width, int height, int rowSamples, int samples, int bits,
                     const void *image);
/* Index of the middle image of n brightness values. */
LV_API int mid_im(int n, const int32_t *values);
/* Reads a single-value gamma from the tone curve of an ICC profile (2.2 for other curves);
 * returns the tag position + 1, the scan end without a tag, or -size on a length mismatch. */
LV_API int trc_from_profile(const unsigned char *profile, int length, float *gamma);

/* ---- Merge ---- */

/* Merges a bracket into planar RGBE out (4 * width * height bytes). mode 2 keeps the
 * sentinels (all 255: clipped everywhere, all 0: no data), other modes make them grey of the
 * largest and smallest luminance. gammaMode 1 takes the gamma from curve[0], else 2.2; curve
 * has 2^bits floats and is filled. step > -0.5 derives the exposures into exposures[n] (an
 * even bracket of step stops when step > 0), otherwise exposures are the caller's. stats
 * gets min, max, mean luminance * 256. Runs on the calling thread; returns height, or -4. */
LV_API int lv_hdr_merge(LvProgressCallback progress, int mode, int n, int width, int height,
                        int samples, int bits, int gammaMode, float step, float *curve,
                        float *exposures, const void *images, float *stats, unsigned char *out);
/* Planar RGBE to 8-bit B, G, R with a gamma of 1.8, norm mapping to 128 (1 when norm <= 0);
 * returns height, 0 when height < 1. */
LV_API int rgbe_rep(int width, int height, int outStride, const unsigned char *rgbe,
                    unsigned char *bgr, float norm);

LV_EXTERN_C_END

#endif
