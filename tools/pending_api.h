// TEMPORARY stand-in declarations until the merge, Radiance and tone-map families land
// on main; removed once their public headers exist.
#pragma once
#include <lumivantor/frame.h>
#include <lumivantor/fileio.h>
#include <lumivantor/metadata.h>

LV_EXTERN_C_BEGIN

LV_API int get_ev(int n, float *records);
LV_API int lv_hdr_merge(LvProgressCallback progress, int mode, int n, int width, int height,
                        int samples, int bits, int gammaMode, float step, float *curve,
                        float *exposures, const void *images, float *stats, unsigned char *out);
LV_API int lv_io_rgbe_write(const char *path, int width, int height, const MetadataBuf *meta,
                            int ignored, const char *profileName, const unsigned char *pixels);
LV_API int lv_io_read_rgbe(int width, int height, const char *path, unsigned char *pixels);
LV_API int rgbe_dim(const char *path, float *primaries, ImageFileInfo *info);
LV_API int extract_rgbe_exif(const char *path, MetadataBuf *meta);
LV_API int tm_simple(DimParam dim, float *p, unsigned char *mask, float *lumStats,
                     float *expTable, int *numThreads, unsigned char *input,
                     unsigned char *output);
LV_EXTERN_C_END
