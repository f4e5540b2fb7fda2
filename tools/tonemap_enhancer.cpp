// lvhdr's enhancer road: sliders to a parameter block, the work buffer sized by
// mem4enhancer, and a private temp folder for low-memory runs.
#include "tonemap_enhancer.h"
#include "progress_bar.h"
#include "temp_folder.h"

#include <lumivantor/tonemap.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

namespace lvhdr {

void enhancer_block(const EnhancerSettings &s, float *p) {
    tmparam_default(1, 0, p);
    const struct {
        float value;
        int index;
    } sliders[] = {{s.strength, 0},   {s.detail, 6},     {s.attenuation, 7}, {s.saturation, 2},
                   {s.white_clip, 3}, {s.black_clip, 4}, {s.shadow_clip, 11}};
    for (const auto &sl : sliders)
        if (sl.value >= 0) p[sl.index] = sl.value;
    p[8] = s.gamma;
    p[12] = s.temperature;
    // The two-resolution run belongs to the second form of the current pipeline.
    if (s.two_resolution) p[16] = 2.0f;
}

bool tonemap_enhancer(HdrImage &image, const std::string &source_path,
                      const EnhancerSettings &settings, int bits, Image &out, std::string &error) {
    float p[LV_TMPARAM_COUNT];
    enhancer_block(settings, p);
    float table[256], stats[7] = {};
    exp_lut(table, -8);
    DimParam dim;
    init_dim_param(&dim);
    dim.width = image.width;
    dim.height = image.height;
    dim.bpsOut = bits;
    dim.strideIn = dim.strideOut = image.width * 3; // the plan counts output on strideIn
    OptimParam opt;
    init_optim_param(&opt);
    opt.numThreads = std::max(1, int(std::thread::hardware_concurrency()));
    opt.pyramidMode = settings.two_resolution ? 1 : 0;

    size_t pair[2] = {0, 0}, total = 0;
    mem4enhancer(0, p, pair, &total, dim);
    TempFolder temp;
    size_t bytes = total;
    if (settings.low_memory) {
        if (!temp.create("lvhdr",
                         {"plane0.raw", "plane1.raw", "plane2.raw", "plane3.raw", "plane4.raw",
                          "plane5.raw"},
                         true, error))
            return false;
        opt.lowMemory = 1;
        opt.sourceFile = source_path.c_str();
        const char **paths[] = {&opt.tempPath0, &opt.tempPath1, &opt.tempPath2,
                                &opt.tempPath3, &opt.tempPath4, &opt.tempPath5};
        for (int i = 0; i < 6; ++i)
            *paths[i] = temp.file(i);
        // Room for the plane of the last stage behind the output rows, so that the
        // library needs no allocation of its own.
        const size_t wh = size_t(image.width) * image.height;
        const size_t out_bytes = wh * 3 * size_t(bits / 8);
        const size_t behind = size_t(2) * image.height * (dim.strideOut - 2 * image.width);
        bytes = std::max({pair[0], out_bytes, behind + 4 * wh});
    }
    std::unique_ptr<unsigned char[]> work(new (std::nothrow) unsigned char[bytes]);
    if (!work) {
        error = "not enough memory for the work buffer (" + std::to_string(bytes >> 20) + " MB)";
        return false;
    }
    int rc;
    {
        ProgressBar bar("tone mapping");
        rc = lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, dim, opt, ProgressBar::callback,
                            settings.low_memory ? nullptr : image.rgbe.data(), work.get());
    }
    if (rc < 0) {
        error = rc == LV_ERR_STATS ? "the image is flat: no luminance range to map"
                                   : "enhancer failed (" + std::to_string(rc) + ")";
        return false;
    }
    out.width = image.width;
    out.height = image.height;
    out.bits = bits;
    out.pixels.assign(work.get(), work.get() + out.bytes());
    return true;
}

} // namespace lvhdr
