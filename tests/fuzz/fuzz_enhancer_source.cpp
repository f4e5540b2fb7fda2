// The enhancer reading its image from a Radiance file: arbitrary files at the size their
// header states (kept small), with the run options taken from the input's last bytes, and
// the driver's argument checks on the same data.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include "lumivantor/lumivantor.h"

namespace {

const char *temp_path(int i) { // per process, like the input file
    static std::string paths[6];
    if (paths[i].empty())
        paths[i] = "/tmp/lv_fuzz_enh_" + std::to_string(getpid()) + "_" + std::to_string(i);
    return paths[i].c_str();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const uint8_t opts = size ? data[size - 1] : 0;
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    float primaries[8];
    DimParam d;
    init_dim_param(&d);
    if (rgbe_dim(path, primaries, &info) > 0) {
        d.width = info.width;
        d.height = info.height;
    } else {
        d.width = 12 + opts % 7;
        d.height = 10 + opts % 5;
    }
    if (d.width < 1 || d.height < 1 || d.width > 24 || d.height > 24) return 0;
    d.strideIn = d.strideOut = 3 * d.width;

    float p[LV_TMPARAM_COUNT], table[256], stats[7] = {};
    tmparam_default(1, 0, p);
    p[16] = static_cast<float>(opts & 3); // old, current, second form, third
    p[19] = (opts & 4) ? 2.0f : 0.0f;     // keep the plane
    exp_lut(table, -8);
    OptimParam o;
    init_optim_param(&o);
    o.numThreads = 1 + ((opts >> 3) & 1);
    o.lowMemory = (opts >> 4) & 1;
    o.pyramidMode = (opts & 32) ? 9 : ((opts & 64) ? 1 : 0);
    o.sourceFile = path;
    const char **temps[] = {&o.tempPath0, &o.tempPath1, &o.tempPath2,
                            &o.tempPath3, &o.tempPath4, &o.tempPath5};
    for (int i = 0; i < 6; ++i)
        *temps[i] = temp_path(i);

    size_t pair[2], total;
    mem4enhancer(0, p, pair, &total, d);
    const size_t wh = static_cast<size_t>(d.width) * d.height;
    std::vector<unsigned char> work(std::max(total, std::max(pair[0], 6 * wh)));
    lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, d, o, nullptr, nullptr, work.data());
    if (p[19] == 2.0f && !o.lowMemory) {
        p[19] = 1.0f;
        p[56] = static_cast<float>(opts % d.width);
        lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, d, o, nullptr, nullptr, work.data());
    }
    // Argument checks: no work, no input and no file.
    lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, d, o, nullptr, nullptr, nullptr);
    o.sourceFile = nullptr;
    lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, d, o, nullptr, nullptr, work.data());
    return 0;
}
