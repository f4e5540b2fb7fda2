/*
 * lumivantor colour: per-pixel colour-space conversions (HSL, HSV, L*a*b*, colour
 * temperature, working-space matrices), the colour controls of a parameter block, and
 * the per-hue tables and curves built from them.
 *
 * A colour is three floats. In the normalised functions every component, hue included,
 * lies in 0..1 (hue 1 is a full turn). Working RGB spaces: 0 sRGB, 1 Adobe RGB,
 * 2 ProPhoto RGB.
 *
 * Finishing an image in place: tmparam_default(14, 0, p), set the user's sliders in p,
 * fill dim.width, height, samplesPerPixel, bpsOut and strideOut, then
 * lv_adjust_colors(threads, 0, 14, p, NULL, image, dim).
 */
#ifndef LUMIVANTOR_COLOUR_H
#define LUMIVANTOR_COLOUR_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"
#include "frame.h"

LV_EXTERN_C_BEGIN

/* Entries of a hue table; a pixel's entry is trunc(hue * (LV_HUE_TABLE_SIZE - 1)). */
#define LV_HUE_TABLE_SIZE 4096
/* Slider values of one colour curve (hues 0, 30, 60, 120, 180, 240, 270, 330 degrees). */
#define LV_CURVE_POINTS 8
/* Entries of the contrast table of get_contrast_lut. */
#define LV_CONTRAST_LUT_SIZE 65536

/* ---- HSL, four historic copies with the same arithmetic ---- */

/* RGB on 0..scale to hue, saturation, lightness in 0..1. */
LV_API void rgb2hsl(int scale, const float *rgb, float *hsl);
/* HSL in 0..1 to RGB on 0..scale. */
LV_API void hsl2rgb(int scale, const float *hsl, float *rgb);
/* One channel of the HSL inverse for channel hue t (wrapped once into 0..1). */
LV_API float hue2rgb(float p, float q, float t);
/* Normalised RGB to HSL; returns 1. */
LV_API int rgb2hsl_norm(const float *rgb, float *hsl);
/* Normalised HSL to RGB; returns 1. */
LV_API int hsl2rgb_norm(const float *hsl, float *rgb);
/* Normalised RGB to HSL, same arithmetic as rgb2hsl_norm; returns 1. */
LV_API int rgb_to_hsl(const float *rgb, float *hsl);
/* Normalised HSL to RGB, same arithmetic as hsl2rgb_norm; returns 1. */
LV_API int hsl_to_rgb(const float *hsl, float *rgb);
/* One channel of the HSL inverse, same arithmetic as hue2rgb. */
LV_API float hue_to_rgb(float p, float q, float t);
/* Normalised RGB to HSL whose light-colour saturation never divides by zero at white. */
LV_API void frgb2hsl(const float *rgb, float *hsl);
/* One channel of the HSL inverse, same arithmetic as hue2rgb. */
LV_API float fhue2rgb(float p, float q, float t);
/* Normalised HSL to RGB, same arithmetic as hsl2rgb_norm. */
LV_API void fhsl2rgb(const float *hsl, float *rgb);

/* ---- HSV ---- */

/* Normalised RGB to hue, saturation, value; returns 1. */
LV_API int rgb2hsv_norm(const float *rgb, float *hsv);
/* Normalised HSV to RGB; returns 1. A hue of exactly 1, above 1 or at -1/6 and below names
 * no sector and leaves rgb unwritten. */
LV_API int hsv2rgb_norm(const float *hsv, float *rgb);

/* ---- L*a*b*, temperature, matrices ---- */

/* Linear Adobe RGB to L*a*b* (D65). fromFloats 0: the components are
 * linearLut[sampleIndex[0..2]]; otherwise rgb[0..2]. */
LV_API void rgb2Lab(int fromFloats, const float *rgb, const float *linearLut,
                    const int *sampleIndex, float *lab);
/* L*a*b* (D65) to linear Adobe RGB. toFloats nonzero: unclamped floats into rgb.
 * Otherwise each value * maxValue is rounded, held to 0..maxValue and looked up in
 * gammaLut (maxValue + 1 entries); the entries go to samples. */
LV_API void Lab2rgb(int toFloats, const float *lab, float *rgb, int maxValue, const int *gammaLut,
                    unsigned *samples);
/* XYZ white (Y = 1) of the daylight locus at a colour temperature in kelvin. Leaves
 * xyz unwritten when the chromaticity y is 0. */
LV_API void kelvin2XYZ(int kelvin, float *xyz);
/* Row-major RGB-to-XYZ and XYZ-to-RGB matrices of working space 0, 1 or 2; returns 1.
 * Writes nothing for another space. */
LV_API int getRGB_to_from_XYZ(unsigned space, float *rgbToXyz, float *xyzToRgb);

/* ---- Colour controls of a parameter block (method codes as tmparam_default) ---- */

/* Reads the colour controls of method's block p: saturation = 0.1 * its slider,
 * temperature = p[12], gamma = raw midtone slider, and the three 8-point curves
 * p[21..28], p[31..38], p[41..48]; returns 9. */
LV_API int get_color_param(int method, const float *p, float *saturation, float *temperature,
                           float *gamma, float *satCurve, float *hueCurve, float *lumCurve);
/* 0: no colour work; 1: a plain colour slider is set (always for method 4);
 * 2: only hue curves are set. */
LV_API int has_color_param(int method, const float *p);
/* 1 when index of method's block is a colour setting, else 0. */
LV_API int index_is_color_param(int method, unsigned index);
/* 1 when blocks a and b agree on method's tone settings, 0 when they differ, -1 for a
 * method without such settings. */
LV_API int has_same_hdr_settings(int method, const float *a, const float *b);
/* Samples a closed 8-point slider curve over hue into table[n] (table[n - 1] is left as
 * it was); returns 1, or -4 when out of memory. */
LV_API int getColorAdjustmentCurve(const float *values, int n, float *table);
/* Builds the hue colour table (3n floats) and, when its curve is set, the luminance table
 * (n floats) of one block, and reads its saturation, temperature and gamma. Returns 1
 * when the luminance table was built, 0 when not, -4 when out of memory. */
LV_API int getColorAdjustmentLUTs(int method, const float *p, int n, int curvePoints,
                                  float *saturation, float *temperature, float *gamma,
                                  float *colorTable, float *lumTable);
/* Monotone cubic tangents of the n knots (x, y) into tangents. */
LV_API void monotone_cubic_spline(const float *x, const float *y, float *tangents, int n);
/* Cubic Hermite through the knots at position at (at must not lie below x[0]). */
LV_API float cubic_interpolate(const float *x, const float *y, const float *tangents, unsigned n,
                               float at);
/* S-curve of four controls (highlights c[0], c[1]; shadows c[2], c[3]) into a 65536-entry
 * table on 0..65535; returns 0. */
LV_API int get_contrast_lut(const float *controls, int32_t *table);

/* ---- Colour adjustment pass ---- */

/* In place on 8-bit or 16-bit RGB (dim.bpsOut, samplesPerPixel, strideOut, swapRedBlue):
 * level clipping (methods 10 and 15), saturation, hue and luminance by hue, midtone and
 * temperature of block p, blended per pixel with the block of the pixel's mask layer
 * (mask: NULL, or weight and layer bytes a pixel; p[55] layer blocks follow p). Returns 1
 * when nothing is set (image untouched), else the last band's row count; -4 out of
 * memory, -2 when a thread could not start. */
LV_API int lv_adjust_colors(int numThreads, int space, int method, float *p, unsigned char *mask,
                            unsigned char *image, DimParam dim);
/* Plain average of n photographs (packed, dim.bpsIn bits) into out at dim.bpsOut, finished
 * by lv_adjust_colors with method 14; returns height, -1 when n < 1. */
LV_API int moyenne(int numThreads, float *p, unsigned char *mask, int n, DimParam dim,
                   const void *images, void *out);
/* One block's colour recipe on a pixel given by its minimum, maximum and hue index
 * (tables of all blocks; index includes the block's offset): luminance by hue and extra
 * luminance, hue entry, exponent; outputs are truncated after scaling by scale. Returns 1. */
LV_API int rgb_color_adjust(int hasLuminance, int index, const float *lumTable,
                            const float *colorTable, int *outR, int *outG, int *outB,
                            float minValue, float maxValue, double exponent, float extraLuminance,
                            float scale);
/* White balance of samples r, g, b (bits 8 or 16) through linear light and XYZ, X and Z
 * scaled by whiteX and whiteZ; inverseTable holds samples of that depth. Returns 1. */
LV_API int rgb_temperature_adjust(int r, int g, int b, unsigned bits, const float *powerTable,
                                  const void *inverseTable, const float *rgbToXyz,
                                  const float *xyzToRgb, int *outR, int *outG, int *outB,
                                  float whiteX, float whiteZ);

LV_EXTERN_C_END

#endif
