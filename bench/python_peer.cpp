// The C side of the Python binding's overhead measure: the same merge and tone maps the
// binding runs, called directly. Input: a raw bracket file of int32 n, width, height, then
// n interleaved 8-bit RGB frames (bench/python_binding.py writes it). Prints one line per
// step: "step wall-seconds cpu-seconds", the best of the repeats.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

// CPU seconds of the whole process, every thread counted: steadier than the wall clock
// on a machine that other jobs load.
double cpu_seconds() {
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
           1e-6 * double(u.ru_utime.tv_usec + u.ru_stime.tv_usec);
}

struct Times {
    double wall = 1e30, cpu = 1e30;
};

template <class F> Times best_of(int repeats, F f) {
    Times best;
    for (int r = 0; r < repeats; ++r) {
        const auto t0 = std::chrono::steady_clock::now();
        const double c0 = cpu_seconds();
        f();
        best.cpu = std::min(best.cpu, cpu_seconds() - c0);
        best.wall = std::min(
            best.wall,
            std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
    }
    return best;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s bracket.raw [repeats]\n", argv[0]);
        return 2;
    }
    const int repeats = argc > 2 ? std::atoi(argv[2]) : 3;
    FILE *f = std::fopen(argv[1], "rb");
    if (!f) return 1;
    int32_t head[3];
    if (std::fread(head, sizeof head, 1, f) != 1) return 1;
    const int n = head[0], w = head[1], h = head[2];
    const size_t pixels = size_t(w) * h;
    std::vector<unsigned char> frames(pixels * 3 * n);
    const size_t got = std::fread(frames.data(), 1, frames.size(), f);
    std::fclose(f);
    if (got != frames.size()) return 1;
    const int threads = std::max(1, int(std::thread::hardware_concurrency()));

    // Each call gets fresh buffers, as a one-shot caller (and the binding) does.
    std::vector<unsigned char> rgbe;
    const Times t_merge = best_of(repeats, [&] {
        rgbe.assign(4 * pixels, 0);
        std::vector<float> curve(256), exposures(n, 1.0f);
        std::unique_ptr<float[]> hdr(new float[3 * pixels]);
        float mstats[3];
        lv_hdr_merge(nullptr, 0, n, w, h, 3, 8, 0, 0.0f, curve.data(), exposures.data(),
                     frames.data(), mstats, rgbe.data());
        rgbe2fp(w, h, 3 * w, 0, 0, rgbe.data(), hdr.get(), 1.0f); // the float result
    });

    DimParam dim;
    init_dim_param(&dim);
    dim.width = w;
    dim.height = h;
    dim.strideOut = 3 * w;
    const Times t_simple = best_of(repeats, [&] {
        std::vector<unsigned char> out(3 * pixels);
        float table[256], stats[6] = {0, 0, 0, 0, 0, 0}, p[LV_TMPARAM_COUNT];
        exp_lut(table, -8);
        logMinMaxMoy(w, h, table, rgbe.data(), stats);
        tmparam_default(2, 0, p);
        p[0] = p[1] = p[12] = p[13] = 0.0f; // the binding's slider defaults
        int nt = threads;
        tm_simple(dim, p, nullptr, stats, table, &nt, rgbe.data(), out.data());
    });

    dim.bpsIn = 32;
    OptimParam opt;
    init_optim_param(&opt);
    opt.numThreads = threads;
    int64_t work = 0;
    mem4contrast_optimizer(0, dim, &work);
    const int64_t size = int64_t(pixels) * 12 + work;
    const Times t_optimizer = best_of(repeats, [&] {
        std::vector<unsigned char> memory(size_t(size), 0);
        std::vector<float> map(size_t(pyram_len2(w, h)), 0.0f);
        float p[LV_TMPARAM_COUNT];
        tmparam_default(3, 0, p);
        const float sliders[][2] = {{0, 50}, {1, 0}, {2, 20}, {3, 0.6f}, {4, 0.25f},
                                    {8, 0},  {12, 0}, {13, 0}};
        for (const auto &s : sliders)
            p[int(s[0])] = s[1];
        lv_tm_optimizer(dim, opt, nullptr, p, nullptr, 0, map.data(), rgbe.data(), size,
                        memory.data());
    });
    dim.bpsIn = 8;
    dim.strideIn = 3 * w; // the enhancer's plan counts the output on strideIn
    const Times t_enhancer = best_of(repeats, [&] {
        float p[LV_TMPARAM_COUNT], table[256], stats[7] = {};
        tmparam_default(1, 0, p);
        p[8] = 50.0f; // the binding's gamma and temperature defaults
        p[12] = 0.0f;
        exp_lut(table, -8);
        size_t total = 0;
        mem4enhancer(0, p, nullptr, &total, dim);
        std::unique_ptr<unsigned char[]> work(new unsigned char[total]);
        lv_tm_enhancer(0, p, nullptr, stats, table, nullptr, dim, opt, nullptr, rgbe.data(),
                       work.get());
    });
    const Times all[] = {t_merge, t_simple, t_optimizer, t_enhancer};
    const char *names[] = {"merge", "simple", "optimizer", "enhancer"};
    for (int i = 0; i < 4; ++i)
        std::printf("%s %.4f %.4f\n", names[i], all[i].wall, all[i].cpu);
    return 0;
}
