// Times each finishing pass on a synthetic 24 MP picture (6000 x 4000, smooth colour
// gradients with fine noise) at 8 and 16 bits, on 1 and 2 threads. Prints one line per
// case: "pass bits threads megapixels_per_second" (best of the repeats).
// Usage: bench_finish [repeats] [part of a pass name]
#include <chrono>
#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

constexpr int kW = 6000, kH = 4000;

std::vector<unsigned char> make_picture(int bits) {
    std::vector<unsigned char> img(size_t(3) * kW * kH * (bits / 8));
    std::mt19937 rng(1);
    const double top = bits == 8 ? 255 : 65535;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            for (int c = 0; c < 3; ++c) {
                const double base =
                    0.5 + 0.45 * std::sin(x * (0.0011 + 0.0004 * c) + y * 0.0007 * c);
                const double v = std::clamp(base + (int(rng() % 9) - 4) / 255.0, 0.0, 1.0) * top;
                const size_t i = (size_t(y) * kW + x) * 3 + c;
                if (bits == 8)
                    img[i] = static_cast<unsigned char>(v);
                else
                    reinterpret_cast<uint16_t *>(img.data())[i] = static_cast<uint16_t>(v);
            }
    return img;
}

struct ExposureBand {
    LvWorkContext band;
    int bits;
    const float *table;
    const unsigned char *in;
    unsigned char *out;
};

void *exposure_band(void *c) {
    auto *e = static_cast<ExposureBand *>(c);
    adjustImageExposure_tile(e->band.bandStart, e->band.bandEnd, kW, e->bits, e->bits, 3, 3 * kW,
                             3 * kW, 0, 0, e->table, e->in, e->out, 1.2);
    return nullptr;
}

// Best wall time of the repeats, and the process CPU time of that run: the machine is
// shared, so MP per CPU-second shows the work itself while wall time shows the scaling.
struct Timing {
    double wall = 1e30, cpu = 0;
};

Timing best_seconds(int repeats, const std::function<void()> &run) {
    Timing best;
    for (int r = 0; r < repeats; ++r) {
        const auto t0 = std::chrono::steady_clock::now();
        const std::clock_t c0 = std::clock();
        run();
        const double wall =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        if (wall < best.wall) best = {wall, double(std::clock() - c0) / CLOCKS_PER_SEC};
    }
    return best;
}

void report(const char *name, int bits, int threads, double mp, Timing t) {
    std::printf("%-18s %2d %d %8.1f MP/s %8.1f MP/cpu-s\n", name, bits, threads, mp / t.wall,
                mp / t.cpu);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    const int repeats = argc > 1 ? std::atoi(argv[1]) : 2;
    const std::string only = argc > 2 ? argv[2] : ""; // run only passes whose name has this
    const double mp = kW * double(kH) / 1e6;
    std::vector<uint16_t> curve(65536);
    for (int i = 0; i < 65536; ++i)
        curve[i] = uint16_t(i);
    std::vector<float> hue(360, 0.0f);
    for (int d = 0; d < 60; ++d)
        hue[d] = 0.3f; // reds and oranges more saturated
    const float soft[3] = {0, 2, 2}, sharp[3] = {1.8f, 2, 2};
    std::vector<float> p(2 * 60, 0.0f);
    p[27] = 50;

    for (int bits : {8, 16}) {
        const auto src = make_picture(bits);
        std::vector<unsigned char> out(src.size()), hsl(size_t(3) * kW * kH);
        std::vector<float> linear(size_t(1) << bits);
        for (size_t i = 0; i < linear.size(); ++i)
            linear[i] = float(i) / float(linear.size() - 1);
        DimParam dim;
        init_dim_param(&dim);
        dim.width = kW, dim.height = kH, dim.bpsIn = bits, dim.bpsOut = bits;
        dim.strideIn = dim.strideOut = 3 * kW;
        for (int t : {1, 2}) {
            get_hsl(t, kW, kH, 3, 0, 3 * kW, bits, hsl.data(), src.data());
            const struct {
                const char *name;
                std::function<void()> run;
            } cases[] = {
                {"levels",
                 [&] {
                     adjustImageLevels(t, kW, kH, 0, 0, 0, 3 * kW, 3 * kW, bits, bits, src.data(),
                                       out.data(), 1.2f, 2, 98, 1, 100);
                 }},
                {"levels_saturation",
                 [&] {
                     adjustImageLevels(t, kW, kH, 0, 0, 0, 3 * kW, 3 * kW, bits, bits, src.data(),
                                       out.data(), 1.2f, 2, 98, 1, 120);
                 }},
                {"exposure",
                 [&] {
                     ExposureBand e{{}, bits, linear.data(), src.data(), out.data()};
                     DivideWork(0, kH, t, exposure_band, &e, sizeof e);
                 }},
                {"raw_enhance",
                 [&] {
                     std::memcpy(out.data(), src.data(), src.size());
                     enhanceRawConvertedImage(t, kW, kH, 3 * kW, bits, out.data(), 1.5f);
                 }},
                {"get_hsl",
                 [&] { get_hsl(t, kW, kH, 3, 0, 3 * kW, bits, hsl.data(), src.data()); }},
                {"post_adj_from_hsl",
                 [&] {
                     std::memcpy(out.data(), src.data(), src.size());
                     post_adj(t, kW, kH, 3, 0, 3 * kW, bits, curve.data(), hue.data(), soft,
                              hsl.data(), out.data());
                 }},
                {"post_adj_from_rgb",
                 [&] {
                     std::memcpy(out.data(), src.data(), src.size());
                     post_adj(t, kW, kH, 3, 0, 3 * kW, bits, curve.data(), hue.data(), soft,
                              nullptr, out.data());
                 }},
                {"post_adj_sharpen",
                 [&] {
                     std::memcpy(out.data(), src.data(), src.size());
                     post_adj(t, kW, kH, 3, 0, 3 * kW, bits, curve.data(), hue.data(), sharp,
                              hsl.data(), out.data());
                 }},
                {"copy_only", [&] { std::memcpy(out.data(), src.data(), src.size()); }},
                {"blend",
                 [&] { lv_blend(t, 1, p.data(), nullptr, nullptr, src.data(), dim, out.data()); }},
            };
            for (const auto &c : cases)
                if (std::string(c.name).find(only) != std::string::npos)
                    report(c.name, bits, t, mp, best_seconds(repeats, c.run));
        }
        if (bits == 8 && only.empty()) {
            std::vector<unsigned char> fakes(4 * src.size());
            for (int t : {1, 2})
                report("fake_exposures", bits, t, mp, best_seconds(1, [&] {
                           createFakeExposures(t, kW, kH, 3, 3 * kW, 3 * kW, 0, 0, 8, 8, src.data(),
                                               fakes.data(), nullptr);
                       }));
            std::vector<unsigned char> scratch(size_t(2) * kW * kH);
            report("hsauto", bits, 1, mp, best_seconds(1, [&] {
                       hsauto(1, kW, kH, 3 * kW, 0, 8, 8, 3, scratch.data(),
                              const_cast<unsigned char *>(src.data()), out.data());
                   }));
        }
    }
    return 0;
}
