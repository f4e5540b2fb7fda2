// Times tm_simple on one HDR image at default settings and with colour work plus one
// mask layer, on 1 and 2 threads. Input: a raw file of int32 width, int32 height, then
// interleaved RGB floats (bench/tonemap.sh makes it from the night bracket). Prints one
// line per case: "case threads megapixels_per_second".
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

#include "lumivantor/lumivantor.h"

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s image.f32 [repeats]\n", argv[0]);
        return 2;
    }
    const int repeats = argc > 2 ? std::atoi(argv[2]) : 3;
    FILE *f = std::fopen(argv[1], "rb");
    if (!f) return 1;
    int32_t wh[2];
    if (std::fread(wh, sizeof wh, 1, f) != 1) return 1;
    const int w = wh[0], h = wh[1];
    std::vector<float> rgb(static_cast<size_t>(3) * w * h);
    const size_t got = std::fread(rgb.data(), sizeof(float), rgb.size(), f);
    std::fclose(f);
    if (got != rgb.size()) return 1;

    // Interleaved float input, the form the peers take too.
    unsigned char *input = reinterpret_cast<unsigned char *>(rgb.data());
    float table[256];
    exp_lut(table, -8);
    float stats[6] = {32.0f, 3.0f, 0, 0, 0, 0};
    logMinMaxMoy(w, h, table, input, stats);

    DimParam dim;
    init_dim_param(&dim);
    dim.width = w;
    dim.height = h;
    dim.strideOut = 3 * w;
    dim.inputFormat = 10;
    dim.strideIn = 3 * w;
    std::vector<unsigned char> out(static_cast<size_t>(3) * w * h);

    std::vector<float> plain(LV_TMPARAM_COUNT);
    tmparam_default(2, 0, plain.data());
    // Colour: a saturation-by-hue curve and a luminance curve in the base block, and one
    // mask layer, brighter and warmer, over the left half with a soft edge.
    std::vector<float> colour(2 * LV_TMPARAM_COUNT, 0.0f);
    colour[23] = 6.0f;
    colour[44] = 4.0f;
    colour[55] = 1.0f;
    colour[LV_TMPARAM_COUNT + 0] = 3.0f;
    colour[LV_TMPARAM_COUNT + 12] = 3.0f;
    colour[LV_TMPARAM_COUNT + 13] = 4.0f;
    std::vector<unsigned char> mask(static_cast<size_t>(2) * w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const size_t i = static_cast<size_t>(y) * w + x;
            const int edge = w / 2 - x;
            mask[2 * i] = static_cast<unsigned char>(std::clamp(edge + 128, 0, 255));
            mask[2 * i + 1] = 0;
        }

    struct Case {
        const char *name;
        float *p;
        unsigned char *mask;
    };
    const Case cases[] = {{"default", plain.data(), nullptr},
                          {"colour+mask", colour.data(), mask.data()}};
    const double mp = static_cast<double>(w) * h / 1e6;
    std::printf("image %dx%d %.1f MP\n", w, h, mp);
    for (const Case &c : cases) {
        for (int threads : {1, 2}) {
            double best = 1e30;
            for (int r = 0; r < repeats; ++r) {
                int t = threads;
                const auto t0 = std::chrono::steady_clock::now();
                const int rc = tm_simple(dim, c.p, c.mask, stats, table, &t, input, out.data());
                const auto t1 = std::chrono::steady_clock::now();
                if (rc < 0) {
                    std::fprintf(stderr, "tm_simple failed: %d\n", rc);
                    return 1;
                }
                best = std::min(best, std::chrono::duration<double>(t1 - t0).count());
            }
            std::printf("lumivantor %s %d %.2f\n", c.name, threads, mp / best);
        }
    }
    return 0;
}
