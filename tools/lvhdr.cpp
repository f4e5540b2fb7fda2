// lvhdr: the example host of the lumivantor library.
#include <lumivantor/lumivantor.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

int usage(FILE *out) {
    std::fputs("usage: lvhdr demo\n"
               "  demo   build a synthetic HDR scene in memory and print its statistics\n",
               out);
    return out == stdout ? 0 : 2;
}

// A planar RGBE scene spanning about 16 stops: a dark floor, a sky gradient and a lamp.
std::vector<unsigned char> synthetic_scene(int w, int h) {
    std::vector<unsigned char> rgbe(static_cast<size_t>(4) * w * h);
    for (int y = 0; y < h; ++y) {
        unsigned char *row = rgbe.data() + static_cast<size_t>(4) * w * y;
        for (int x = 0; x < w; ++x) {
            const double dx = x - 0.75 * w, dy = y - 0.25 * h;
            const double lamp = 4000.0 * std::exp(-(dx * dx + dy * dy) / (0.002 * w * w));
            const double base = y < h / 2 ? 2.0 * (1.0 - double(y) / h) : 0.004 * (1 + (x % 7));
            const double rgb[3] = {base * 0.9 + lamp, base + lamp, base * 1.2 + lamp * 0.8};
            const double m = std::fmax(rgb[0], std::fmax(rgb[1], rgb[2]));
            int e;
            const double f = std::frexp(m, &e) * 256.0 / m;
            for (int c = 0; c < 3; ++c) row[c * w + x] = static_cast<unsigned char>(rgb[c] * f);
            row[3 * w + x] = static_cast<unsigned char>(e + 136);
        }
    }
    return rgbe;
}

int demo() {
    const int w = 1024, h = 768;
    const auto t0 = std::chrono::steady_clock::now();
    std::vector<unsigned char> scene = synthetic_scene(w, h);
    float table[256];
    exp_lut(table, -8);
    float stats[6] = {0, 0, 0, 0, 0, 0};
    if (logMinMaxMoy(w, h, table, scene.data(), stats) < 0) {
        std::fputs("lvhdr: out of memory\n", stderr);
        return 1;
    }
    const auto t1 = std::chrono::steady_clock::now();
    std::printf("synthetic scene %dx%d\n", w, h);
    std::printf("log luminance: min %.3f max %.3f mean %.3f median %.3f p99.5 %.3f\n", stats[0],
                stats[1], stats[2], stats[3], stats[4]);
    std::printf("dynamic range: %.1f stops\n", (stats[1] - stats[0]) / std::log(2.0));
    std::printf("statistics took %.1f ms\n",
                std::chrono::duration<double, std::milli>(t1 - t0).count());
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) return usage(stderr);
    if (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) return usage(stdout);
    if (!std::strcmp(argv[1], "demo")) return demo();
    std::fprintf(stderr, "lvhdr: unknown command '%s'\n", argv[1]);
    return usage(stderr);
}
