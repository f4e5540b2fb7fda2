// TEMPORARY: a weak fallback so lvhdr links before the tone-map family lands.
#include "pending_api.h"
extern "C" {
__attribute__((weak)) int tm_simple(DimParam, float *, unsigned char *, float *, float *, int *,
                                    unsigned char *, unsigned char *) {
    return -99;
}
}
