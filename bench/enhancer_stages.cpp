// Times the enhancer's first two stages (tm1, then the solver tm2) on one HDR image, in
// memory on 1 and 2 threads and in a low-memory run through temp files. Input: a Radiance
// file, or without one a made-up 4032 x 3024 scene about 14 stops deep (sky, a bright
// window, textured shadows); "-" stands for it. A second argument "plain" runs only the
// one-thread in-memory case, "low" only the low-memory one (for profiles and peak memory). Prints
// "case threads seconds_tm1 seconds_tm2 MP/s".
#include <chrono>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

#include "lumivantor/lumivantor.h"
#include "tonemap/enhancer_stages.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t) {
    return std::chrono::duration<double>(Clock::now() - t).count();
}

std::vector<unsigned char> made_up_scene(int w, int h) {
    std::vector<unsigned char> px(4L * w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float u = float(x) / w, v = float(y) / h;
            float lum = v < 0.35f ? 8.0f + 4.0f * u : 0.01f + 0.2f * u * v;
            if (u > 0.6f && u < 0.75f && v > 0.5f && v < 0.7f) lum = 60.0f; // window
            lum *= 1.0f + 0.3f * std::sin(x * 0.37f) * std::cos(y * 0.23f); // texture
            const float rgb[3] = {lum * 1.1f, lum, lum * 0.8f};
            int e;
            const float m = std::frexp(rgb[0], &e);
            unsigned char *row = &px[4L * w * y];
            for (int c = 0; c < 3; ++c)
                row[c * w + x] = static_cast<unsigned char>(rgb[c] / rgb[0] * m * 256.0f);
            row[3 * w + x] = static_cast<unsigned char>(e + 136);
        }
    return px;
}

} // namespace

int main(int argc, char **argv) {
    int w = 4032, h = 3024;
    std::vector<unsigned char> rgbe;
    if (argc > 1 && std::string(argv[1]) != "-") {
        ImageFileInfo info{};
        float prim[8];
        if (rgbe_dim(argv[1], prim, &info) < 0) return 1;
        w = info.width, h = info.height;
        rgbe.resize(4L * w * h);
        if (lv_io_read_rgbe(w, h, argv[1], rgbe.data()) != h) return 1;
    } else {
        rgbe = made_up_scene(w, h);
    }
    const std::string only = argc > 2 ? argv[2] : "";
    const double mp = double(w) * h / 1e6;
    float p[60], table[256], stats[7];
    tmparam_default(1, 0, p);
    exp_lut(table, -8);
    DimParam dim;
    init_dim_param(&dim);
    dim.width = w, dim.height = h, dim.strideIn = 3 * w;
    // The level count of the enhancer's memory plan: the mean of the sides' octaves above
    // 32 pixels.
    auto octaves = [](int side) { return int(std::log(side / 32.0) * 1.4426950408889634 + 0.5); };
    const int levels = std::max((octaves(w) + octaves(h)) / 2, 1);
    std::printf("image %dx%d %.1f MP, %d levels\n", w, h, mp, levels);
    std::vector<float> copy(2L * w * h), work(2L * w * h);
    const std::string dir = "/tmp/lv_bench_stages_" + std::to_string(getpid());
    std::string t[6];
    for (int i = 0; i < 6; ++i)
        t[i] = dir + "_t" + std::to_string(i);
    for (int low : {0, 1})
        for (int threads : {1, 2}) {
            if (low && threads == 2) continue;
            if ((only == "plain" && (low || threads == 2)) || (only == "low" && !low)) continue;
            OptimParam opt;
            init_optim_param(&opt);
            opt.numThreads = threads, opt.lowMemory = low;
            std::string hdr = dir + ".hdr";
            if (low) {
                lv_io_rgbe_write(hdr.c_str(), w, h, nullptr, 0, nullptr, rgbe.data());
                opt.sourceFile = hdr.c_str();
                opt.tempPath0 = t[0].c_str(), opt.tempPath1 = t[1].c_str();
                opt.tempPath2 = t[2].c_str(), opt.tempPath3 = t[3].c_str();
                opt.tempPath4 = t[4].c_str(), opt.tempPath5 = t[5].c_str();
            }
            std::memcpy(copy.data(), rgbe.data(), rgbe.size());
            auto t0 = Clock::now();
            int r = calc_tm1(0, p, levels, stats, table, nullptr, dim, opt, nullptr, copy.data(),
                             work.data());
            const double s1 = seconds_since(t0);
            t0 = Clock::now();
            if (r >= 0) r = calc_tm2new2(levels - 1, p, nullptr, work.data(), dim, opt);
            const double s2 = seconds_since(t0);
            std::printf("%s %d %.3f %.3f %.2f%s\n", low ? "low-memory" : "plain", threads, s1, s2,
                        mp / (s1 + s2), r < 0 ? " FAILED" : "");
            for (const std::string &path : t)
                std::remove(path.c_str());
            std::remove(hdr.c_str());
        }
    return 0;
}
