/* Compiled as strict C99: every public header must be valid C on its own. */
#include <lumivantor/lumivantor.h>

int lv_header_check_c99(void);
int lv_header_check_c99(void) {
    DimParam d;
    OptimParam o;
    init_dim_param(&d);
    init_optim_param(&o);
    return d.samplesPerPixel + o.numThreads;
}

int lv_header_check_finish(void);
int lv_header_check_finish(void) {
    return numFakeExposures();
}

int lv_header_check_pyramid(void);
int lv_header_check_pyramid(void) { return (int)pyram_len2(1, 1); }

int lv_header_check_fusion(void);
int lv_header_check_fusion(void) {
    DimParam d;
    uint64_t bytes = 0;
    init_dim_param(&d);
    return mem4fusion(3, 2, 16, 16, &bytes, d);
}
