// Mirror-ball warps to a 4096 x 2048 panorama (a 2048 x 2048 ball by default) with each
// filter, 8-bit and RGBE, on the calling thread. Prints "<name> <seconds> <MP/s of output>",
// the best of the repeats. Usage: bench_warps [ballW ballH repeats]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "lumivantor/geometry.h"

int main(int argc, char **argv) {
    const int w = argc > 1 ? std::atoi(argv[1]) : 2048;
    const int h = argc > 2 ? std::atoi(argv[2]) : 2048;
    const int repeats = argc > 3 ? std::atoi(argv[3]) : 3;
    std::mt19937 rng(1);
    std::vector<uint8_t> ball(size_t(w) * h * 3), rgbe(size_t(4) * w * h);
    for (auto &v : ball)
        v = uint8_t(rng());
    for (auto &v : rgbe)
        v = uint8_t(100 + rng() % 60); // exponents near 128 too, so every pixel decodes
    std::vector<uint8_t> pano(size_t(2) * w * h * 3), pano_hdr(size_t(8) * w * h);
    const double mp = 2.0 * w * h / 1e6;
    const char *names[] = {"nearest", "bilinear", "cubic"};
    for (int mode = 0; mode < 3; ++mode)
        for (int hdr = 0; hdr < 2; ++hdr) {
            double best = 1e9;
            for (int r = 0; r < repeats; ++r) {
                const auto t0 = std::chrono::steady_clock::now();
                if (hdr)
                    remap_hdr(mode, w, h, rgbe.data(), pano_hdr.data());
                else
                    remap_ldr(mode, 8, w, h, w * 3, 2 * w * 3, 3, ball.data(), pano.data());
                const double s =
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
                best = std::min(best, s);
            }
            std::printf("lumivantor_%s_%s %.6f %.1f\n", hdr ? "hdr" : "ldr", names[mode], best,
                        mp / best);
        }
    return 0;
}
