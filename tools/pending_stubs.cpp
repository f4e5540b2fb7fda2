// TEMPORARY: weak fallbacks so lvhdr links before the library families it calls land.
#include "pending_api.h"
extern "C" {
__attribute__((weak)) int get_ev(int, float *) { return 1; }
__attribute__((weak)) int lv_hdr_merge(LvProgressCallback, int, int, int, int, int, int, int, float, float *, float *, const void *, float *, unsigned char *) { return -99; }
__attribute__((weak)) int lv_io_rgbe_write(const char *, int, int, const MetadataBuf *, int, const char *, const unsigned char *) { return -99; }
__attribute__((weak)) int lv_io_read_rgbe(int, int, const char *, unsigned char *) { return -99; }
__attribute__((weak)) int rgbe_dim(const char *, float *, ImageFileInfo *) { return -99; }
__attribute__((weak)) int extract_rgbe_exif(const char *, MetadataBuf *) { return -1; }
__attribute__((weak)) int tm_simple(DimParam, float *, unsigned char *, float *, float *, int *, unsigned char *, unsigned char *) { return -99; }
}
