// Times the gradient-domain enhancer on one Radiance file: at defaults, or with the
// two-resolution run (second form of the current pipeline). Counts the operator alone
// (the image is read before the clock starts) and splits its time by stage from the
// progress reports (first stage up to 0.4, solver to 0.8, last stage after).
// Usage: bench_enhancer IN.hdr defaults|two-resolution THREADS
// Prints "seconds=S width=W height=H tm1=F tm2=F tm3=F level0_reports=N".
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

using Clock = std::chrono::steady_clock;
Clock::time_point g_start, g_first_done, g_solver_done;
int g_level0_reports = 0;

void on_progress(int *, float value) {
    const Clock::time_point now = Clock::now();
    if (value >= 0.4f && g_first_done == Clock::time_point{}) g_first_done = now;
    if (value > 0.45f && value < 0.8f) ++g_level0_reports;
    if (value >= 0.8f && g_solver_done == Clock::time_point{}) g_solver_done = now;
}

double seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s IN.hdr defaults|two-resolution THREADS\n", argv[0]);
        return 2;
    }
    ImageFileInfo info{};
    float primaries[8];
    if (rgbe_dim(argv[1], primaries, &info) <= 0) return 1;
    const int w = info.width, h = info.height;
    std::vector<unsigned char> rgbe(size_t(4) * w * h);
    if (lv_io_read_rgbe(w, h, argv[1], rgbe.data()) < 0) return 1;

    float p[LV_TMPARAM_COUNT], table[256], stats[7];
    tmparam_default(1, 0, p);
    const bool two = std::strcmp(argv[2], "two-resolution") == 0;
    if (two) p[16] = 2.0f;
    exp_lut(table, -8);
    DimParam d;
    init_dim_param(&d);
    d.width = w;
    d.height = h;
    d.strideIn = d.strideOut = 3 * w;
    OptimParam o;
    init_optim_param(&o);
    o.numThreads = std::atoi(argv[3]);
    o.pyramidMode = two ? 1 : 0;
    size_t pair[2], total;
    mem4enhancer(0, p, pair, &total, d);
    std::vector<unsigned char> work(total);

    g_start = Clock::now();
    const int rc = lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, d, o, on_progress,
                                  rgbe.data(), work.data());
    const Clock::time_point end = Clock::now();
    if (rc < 0) {
        std::fprintf(stderr, "lv_tm_enhancer failed: %d\n", rc);
        return 1;
    }
    const double all = seconds(g_start, end);
    std::printf("seconds=%.3f width=%d height=%d tm1=%.2f tm2=%.2f tm3=%.2f level0_reports=%d\n",
                all, w, h, seconds(g_start, g_first_done) / all,
                seconds(g_first_done, g_solver_done) / all, seconds(g_solver_done, end) / all,
                g_level0_reports);
    return 0;
}
