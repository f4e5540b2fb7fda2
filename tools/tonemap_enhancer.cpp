// lvhdr's enhancer road: sliders to a parameter block, the work buffer sized by
// mem4enhancer, and a private temp folder for low-memory runs.
#include "tonemap_enhancer.h"
#include "progress_bar.h"

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
namespace {

// Paths of the live temp folder for the Ctrl-C handler, which may only make plain system
// calls.
char g_temp_paths[7][4096];
volatile std::sig_atomic_t g_temp_live = 0;

extern "C" void remove_temp_and_exit(int sig) {
    if (g_temp_live) {
        for (int i = 1; i < 7; ++i)
            unlink(g_temp_paths[i]);
        rmdir(g_temp_paths[0]);
    }
    std::signal(sig, SIG_DFL);
    std::raise(sig);
}

// A folder of its own under TMPDIR for the six temp files; everything in it goes when it
// does, whichever way the run ends, Ctrl-C included.
class TempFolder {
  public:
    bool create(std::string &error) {
        const char *base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/lvhdr-XXXXXX";
        std::vector<char> buf(pattern.begin(), pattern.end());
        buf.push_back('\0');
        if (!mkdtemp(buf.data())) {
            error = "cannot create a temp folder under " + pattern.substr(0, pattern.rfind('/'));
            return false;
        }
        path_ = buf.data();
        for (int i = 0; i < 6; ++i)
            files_.push_back(path_ + "/plane" + std::to_string(i) + ".raw");
        if (path_.size() + 16 < sizeof g_temp_paths[0]) {
            std::snprintf(g_temp_paths[0], sizeof g_temp_paths[0], "%s", path_.c_str());
            for (int i = 0; i < 6; ++i)
                std::snprintf(g_temp_paths[i + 1], sizeof g_temp_paths[0], "%s", files_[i].c_str());
            g_temp_live = 1;
            old_int_ = std::signal(SIGINT, remove_temp_and_exit);
            old_term_ = std::signal(SIGTERM, remove_temp_and_exit);
        }
        return true;
    }
    const char *file(int i) const { return files_[size_t(i)].c_str(); }
    ~TempFolder() {
        if (path_.empty()) return;
        if (g_temp_live) {
            std::signal(SIGINT, old_int_);
            std::signal(SIGTERM, old_term_);
            g_temp_live = 0;
        }
        for (const std::string &f : files_)
            std::remove(f.c_str());
        rmdir(path_.c_str());
    }

  private:
    std::string path_;
    std::vector<std::string> files_;
    void (*old_int_)(int) = SIG_DFL;
    void (*old_term_)(int) = SIG_DFL;
};

} // namespace

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
        if (!temp.create(error)) return false;
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
