// lvhdr tonemap --method optimizer: the local-Laplacian contrast optimizer, sized by its
// work-space query, with the sliders of its parameter block and a progress bar.
#include "tonemap_optimizer.h"

#include "progress_bar.h"

#include <lumivantor/lumivantor.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <thread>
#include <vector>

namespace lvhdr {

const char *tonemap_optimizer_help =
    "\n"
    "--method optimizer, the local contrast optimizer (crisp local contrast, no halos):\n"
    "  --compression C        0..100 (50): how strongly large luminance steps shrink\n"
    "  --detail D             -5..10 (0): the step below which contrast counts as detail\n"
    "  --level-dependence L   0..100 (20): compress coarse structure more than fine\n"
    "  --white-clip W         0..10 (0.6): percent of pixels clipped at white\n"
    "  --black-clip B         0..10 (0.25): percent of pixels clipped at black\n"
    "  --gamma G              -10..10 (0): darker midtones for positive values\n"
    "  --saturation S, --temperature T   as for the global operator\n";

bool tonemap_optimizer(HdrImage &image, const OptimizerSettings &s, int bits, int threads,
                       Image &out, std::string &error) {
    float p[LV_TMPARAM_COUNT];
    tmparam_default(3, 0, p);
    p[0] = s.compression;
    p[1] = s.detail;
    p[2] = s.level_dependence;
    p[3] = s.white_clip;
    p[4] = s.black_clip;
    p[8] = s.gamma;
    p[12] = s.temperature;
    p[13] = s.saturation;
    DimParam dim;
    init_dim_param(&dim);
    dim.width = image.width;
    dim.height = image.height;
    dim.bpsIn = 32;
    dim.bpsOut = bits;
    dim.strideOut = image.width * 3;
    OptimParam opt;
    init_optim_param(&opt);
    opt.numThreads = threads;

    // The block: the image area (RGBE input counts as three 32-bit samples a pixel), then
    // the work space the library asks for.
    int64_t work = 0;
    mem4contrast_optimizer(0, dim, &work);
    const int64_t pixels = int64_t(image.width) * image.height;
    const int64_t size = pixels * 12 + work;
    std::unique_ptr<unsigned char[]> memory(new (std::nothrow) unsigned char[size_t(size)]);
    if (!memory) {
        error = "out of memory";
        return false;
    }
    const int rc = lv_tm_optimizer(dim, opt, ProgressBar::callback, p, nullptr, 0, nullptr,
                                   image.rgbe.data(), size, memory.get());
    if (rc < 0) {
        error =
            rc == LV_ERR_NOMEM ? "out of memory" : "tone map failed (" + std::to_string(rc) + ")";
        return false;
    }
    out.width = image.width;
    out.height = image.height;
    out.bits = bits;
    out.pixels.assign(memory.get(), memory.get() + out.bytes());
    return true;
}

} // namespace lvhdr
