/*
 * lumivantor frame: the records every job is described by, return codes, progress,
 * scalar and buffer helpers, band threads, luminance statistics, half floats,
 * random numbers and the tone-mapping parameter block.
 */
#ifndef LUMIVANTOR_FRAME_H
#define LUMIVANTOR_FRAME_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "export.h"

LV_EXTERN_C_BEGIN

/* ---- Return codes. Negative is failure, zero or positive success. ---- */
#define LV_ERR_ARG (-1)             /* bad argument, unusable input, file won't open */
#define LV_ERR_IO (-2)              /* short read or write, or a thread could not start */
#define LV_ERR_KIND (-3)            /* operation not allowed for this input, bad file structure */
#define LV_ERR_NOMEM (-4)           /* an allocation failed */
#define LV_ERR_STATS (-5)           /* statistics unusable (minimum not below maximum) */
#define LV_ERR_NO_INPUT (-10)       /* no input buffer and no source file */
#define LV_ERR_NOT_HDR_NAME (-11)   /* source file has no .hdr extension */
#define LV_ERR_WORK_TOO_SMALL (-12) /* work buffer smaller than twice the input */
#define LV_ERR_LEVELS (-16)         /* bad level arguments */
#define LV_ERR_STRIP_OPEN (-20)     /* strip temp file could not be opened or sought */
#define LV_ERR_STRIP_READ (-21)     /* strip read fell short */
#define LV_ERR_STRIP_WRITE (-22)    /* strip write fell short */
#define LV_ERR_RGBE_SIZE (-200)     /* Radiance file's size differs from the expected one */
#define LV_ERR_RGBE_WIDTH (-201)    /* Radiance scanline head has its width's high bit set */
#define LV_ERR_RGBE_CODE (-202)     /* Radiance run-length code zero or past its plane */
#define LV_ERR_NO_WORK (-400)       /* work buffer is null */

/* ---- Image descriptors ---- */

/* How pixels lie in the caller's buffers; ten 32-bit ints, passed by value. */
typedef struct DimParam {
    int32_t width;           /* pixels */
    int32_t height;          /* pixels */
    int32_t samplesPerPixel; /* 3 or 4; red sample 0, green (spp-1)/2, blue last */
    int32_t bpsIn;           /* input bits per sample: 8, 16 or 32 */
    int32_t bpsOut;          /* output bits per sample: 8 or 16 */
    int32_t strideIn;        /* input row pitch in samples (ignored for RGBE) */
    int32_t strideOut;       /* output row pitch in samples */
    int32_t swapRedBlue;     /* nonzero: output in BGR order */
    int32_t outputLayout;    /* 3: three full colour planes; else interleaved */
    int32_t inputFormat;     /* 10: HDR input is interleaved floats; else RGBE rows */
} DimParam;

/* Run options of a job, passed by value. Path strings belong to the caller. */
typedef struct OptimParam {
    int32_t numThreads;     /* worker threads; below 2 runs on the calling thread */
    int32_t lowMemory;      /* nonzero: large arrays live in the temp files */
    int32_t pyramidMode;    /* 0 ordinary, 1 reduced copy, 9 size query */
    int32_t reserved;       /* zero */
    const char *sourceFile; /* Radiance file read instead of an input buffer, or NULL */
    const char *tempPath0;  /* decoded RGBE image in low-memory runs */
    const char *tempPath1;  /* log-luminance plane between stages */
    const char *tempPath2;  /* first and second stage */
    const char *tempPath3;  /* solver array P */
    const char *tempPath4;  /* solver array R */
    const char *tempPath5;  /* solver array T */
} OptimParam;

/* Fills d with the defaults: 3 samples, 8 bits in and out, everything else 0. */
LV_API void init_dim_param(DimParam *d);
/* Zeroes every field and pointer of o. */
LV_API void init_optim_param(OptimParam *o);

/* ---- Scalar helpers ---- */

/* Truncates toward zero, then adds 1 if the rest is strictly above 0.5. */
LV_API int arrondi(float x);
/* The smaller of a and b. */
LV_API int plafond(int a, int b);
/* limit truncated to int if (float)v exceeds it, else v. */
LV_API int coupeh(int v, float limit);
/* Clamps to 0..255. */
LV_API int lim8(int v);
/* Clamps to 0..255 (same as lim8). */
LV_API int lim8int(int v);
/* Clamps to 0..65535. */
LV_API int64_t lim16(int64_t v);
/* Truncates x into 0..255; values at or above 255 give 255, NaN gives 0. */
LV_API uint8_t lim8f(float x);
/* Slider curve: pow(v * 0.01, g) * 1000, rounded as arrondi. */
LV_API int clipvar(int v, double g);
/* clipvar on a float slider value. */
LV_API int fclipvar(float v, double g);
/* a + (b - a) * t. */
LV_API float lerp(float a, float b, float t);

/* ---- Byte order ---- */

/* Reads four bytes most significant first; end of file is not checked. */
LV_API uint32_t fget4m(FILE *f);
/* Reads eight bytes most significant first; end of file is not checked. */
LV_API uint64_t fget8m(FILE *f);

/* ---- Buffer helpers ---- */

/* Copies count bytes from src to dst; returns 1. */
LV_API int copie_mem(const void *src, int count, void *dst);
/* Copies count bytes from src + srcOffset to dst + dstOffset; returns 1. */
LV_API int gjmemcpyint(void *dst, int dstOffset, const void *src, int srcOffset, int count);
/* Copies block number index (of size bytes) out of buffer into output; returns 1. */
LV_API int extractbuf(int index, int size, const void *buffer, void *output);
/* Copies input into block number index (of size bytes) of buffer; returns 1. */
LV_API int loadbuf(int index, int size, const void *input, void *buffer);
/* Writes size bytes to path; returns size, or -1 if it can't open or writes short. */
LV_API int save_buffer(const char *path, const void *buffer, int size);
/* Reads exactly size bytes; returns 1 and stores size in *outSize, or -1. */
LV_API int load_buffer(const char *path, void *buffer, int size, int *outSize);
/* Widens packed rows to a larger pitch (src and dst may be one buffer); returns rows,
 * 1 when the pitches already agree, 0 for no rows. */
LV_API int fillRowStride(int unused0, int rows, int unused1, int bitsPerPixel, int width,
                         int strideWidth, const void *src, void *dst);
/* Copies rowBytes of each row between byte pitches; returns rows, 0 if rows < 1. */
LV_API int copyImageRows(int rows, int rowBytes, int srcPitch, int dstPitch, const void *src,
                         void *dst);
/* Returns 1 when the blocks DIFFER, 0 when they match. */
LV_API int memBlocksEqual(const void *a, const void *b, int size);

/* ---- Folder helpers ---- */

/* Removes the file; returns remove()'s result. */
LV_API int lv_deletef(const char *path);
/* Returns 0 when path exists (access(path, 0)). */
LV_API int lv_checkfolder(const char *path);
/* chdir(parent) then mkdir(name, 0777); returns the failing result or mkdir's. The
 * working directory stays changed. */
LV_API int lv_makefolder(const char *parent, const char *name);

/* ---- Band threads and progress ---- */

/* Leading fields of a DivideWork context; the caller's own fields follow. */
typedef struct LvWorkContext {
    int32_t threadIndex; /* worker number from 0 */
    int32_t isThread;    /* 1 on a thread of its own, 0 on the calling thread */
    int32_t bandStart;   /* first row */
    int32_t bandEnd;     /* one past the last row */
} LvWorkContext;

/* Body run by DivideWork on a private copy of the context; its result is ignored. */
typedef void *(*LvWorkBody)(void *context);

/* Splits rows start..end into bands, one thread each, and joins them. A thread that
 * fails to start runs its band on the calling thread. */
LV_API void DivideWork(int start, int end, int numThreads, LvWorkBody body, void *context,
                       size_t contextSize);

/* Host progress callback, mode 1: set *cancel nonzero to ask for a stop. */
typedef void (*LvProgressCallback)(int *cancel, float value);
/* Host progress callback, mode 2, with the host's context. Pass it to progress() cast
 * to LvProgressCallback. */
typedef void (*LvProgressCallback2)(int *cancel, void *context, float value);

/* Reports value (0..1) to the host; returns 1 to go on, 0 when the host cancels. */
LV_API int progress(int mode, LvProgressCallback callback, void *context, float value);

/* ---- Luminance statistics ---- */

/* Natural-log luminance statistics into lumStats[6] (min, max, mean, median, 99.5th,
 * 33rd percentile); returns height, or -4. On entry lumStats[0] = 32 and
 * lumStats[1] = samples per pixel select interleaved float input. */
LV_API int logMinMaxMoy(int width, int height, float *expTable, unsigned char *image,
                        float *lumStats);
/* Adds n values to a histogram over lo..hi, clamping outliers; returns 1, -1 if lo >= hi. */
LV_API int log_histo(long n, int bins, float *data, int *hist, float lo, float hi);
/* First bin whose running sum exceeds trunc(total * fraction); bins if none. */
LV_API int percentile(long total, int bins, int *hist, float fraction);
/* Pulls a count until its percentile in a 256-bin plane lies within bins 15..235. */
LV_API int verifPercentile(unsigned *hist, int plane, int count);

/* Result of adjust_percentile. */
typedef struct LvPercentileAdjust {
    float fraction; /* the adjusted fraction */
    float total;    /* the total, as a float */
} LvPercentileAdjust;

/* Nudges fraction until its bin lies within a quarter to nine tenths of the range;
 * rounds are counted across calls in GlobalCntAdjust. */
LV_API LvPercentileAdjust adjust_percentile(long total, int bins, int *hist, float fraction);

/* table[i] = 2^(bias - 128 + i); returns 256. Bias -8 makes mantissa * table[E] the value. */
LV_API int exp_lut(float *table, int bias);
/* table[i] = 2^(i - 136); returns 256. */
LV_API int exp_lut_old(float *table);
/* Minimum, maximum and mean grey of planar RGBE rows; returns height, 0 for no pixels. */
LV_API int hdrMinMaxNew(int width, int height, unsigned char *rgbe, float *minimum, float *maximum,
                        float *mean);
/* Adds planar RGBE pixels to a 65536-bin log histogram over range[0..1]; returns height,
 * -1 for an empty range. */
LV_API int getHisto32(int width, int height, unsigned char *rgbe, float *range, unsigned *hist);
/* Reads quartiles, log mean, median and clip percentiles from a 65536-bin log histogram
 * into info[10]; returns the median's bin, -1 for a bad range. */
LV_API int hist32info(float *range, long unused, int *hist, float *info);
/* Display histogram of 8-bit pixels: grey and three channels into 1024 counters. */
LV_API void histo4preview(int width, int height, int spp, int swapRedBlue, int pitchBytes,
                          const unsigned char *image, unsigned *counters);
/* Display histogram of grey levels (8 or 16 bits) into 256 counters. */
LV_API void histlum(int width, int height, int pitchSamples, int spp, int bits, const void *image,
                    unsigned *counters);
/* Display histograms of samples 0, 1, 2 into three sets of 256 counters. */
LV_API void histcolors(int width, int height, int pitchSamples, int spp, int bits,
                       const void *image, unsigned *counters);
/* 512-counter grey histogram of 16-bit pixels, with its smallest and largest level. */
LV_API void hist16(int width, int height, int pitchSamples, int spp, const uint16_t *image,
                   float *lowest, float *highest, unsigned *counters);

/* ---- Half floats ---- */

/* Float to IEEE binary16, round to nearest, ties to even. */
LV_API uint16_t floatToHalf(float f);
/* IEEE binary16 to float; subnormals keep the library's historic hidden bit. */
LV_API float halfToFloat(int h);

/* ---- Random numbers ---- */

/* Number of 32-bit words of a generator state. */
#define LV_MT_STATE_WORDS 625
/* Resets the generator to its one fixed sequence. */
LV_API void mt_init(uint32_t *state);
/* Next raw 32-bit word of the sequence. */
LV_API uint32_t mt_random(uint32_t *state);

/* ---- Tone-mapping parameter block ---- */

/* Floats in one parameter block; mask layers follow at this stride. */
#define LV_TMPARAM_COUNT 60

/* Zeroes one block and sets the defaults of the method code; returns 0. */
LV_API int tmparam_default(int method, int variant, float *p);
/* Slider position 0..100 for a threshold of 0..200000 on a gamma-shaped scale. */
LV_API int param2slider(float value, double gamma);
/* Threshold for a slider position; the inverse of param2slider. */
LV_API int slider2param(int slider, double gamma);

LV_EXTERN_C_END

#endif
