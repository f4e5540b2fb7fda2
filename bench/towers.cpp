// Times the tower work of exposure fusion on a synthetic bracket of n 8-bit RGB photographs:
// the weight towers, the band-pass sum of each photograph into the accumulator, and the
// collapse, as the plain fusion runs them on the calling thread; beside them the tower
// toolkit's reduce chains and a plain copy of the bracket as the memory-speed yardstick.
// Usage: bench_towers [width height n repeats]. Prints "stage cpu_seconds bracket_MP/s".
#include <algorithm>
#include <ctime>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fusion/blend.h"
#include "lumivantor/pyramid.h"

namespace {

// The calling thread's CPU time: on a machine shared with other jobs it counts only the time
// this work ran, though memory bandwidth stays shared.
struct Clock {
    using time_point = double;
    static double now() {
        timespec t;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
    }
};

double since(double t0) {
    return Clock::now() - t0;
}

int half(int n) {
    return n % 2 + n / 2;
}

} // namespace

int main(int argc, char **argv) {
    const int w = argc > 2 ? std::atoi(argv[1]) : 4000, h = argc > 2 ? std::atoi(argv[2]) : 3000;
    const int n = argc > 3 ? std::atoi(argv[3]) : 5, repeats = argc > 4 ? std::atoi(argv[4]) : 2;
    const int64_t plane = int64_t(w) * h, pyr = pyram_len2(w, h), samples = plane * 3;
    const int levels = int(std::log2(double(std::min(w, h)))) - 1;
    const double bracket_mp = double(n) * plane / 1e6;

    std::vector<uint8_t> photos(size_t(samples) * n);
    for (int k = 0; k < n; ++k)
        for (int64_t i = 0; i < samples; ++i)
            photos[k * samples + i] = uint8_t((i / 3 % w) * 255 / w / (n - k) + (i * 7919 % 13));
    std::vector<uint16_t> weights(size_t(plane) * n);
    for (int64_t p = 0; p < plane; ++p) {
        int left = 65535;
        for (int k = 0; k < n; ++k) {
            const int wk = k == n - 1 ? left : std::min(left, int(65535 / n + (p * (k + 3)) % 997));
            weights[k * plane + p] = uint16_t(wk);
            left -= wk;
        }
    }
    std::vector<uint16_t> image(size_t(pyr) * 3), acc(size_t(pyr) * 3),
        wtower(static_cast<size_t>(pyr));
    std::vector<uint8_t> out(static_cast<size_t>(samples));
    double t_weights = 1e9, t_sum = 1e9, t_collapse = 1e9, t_copy = 1e9, t_short = 1e9,
           t_uchar = 1e9, t_diff = 1e9;
    for (int r = 0; r < repeats; ++r) {
        // Accumulator: band levels biased, top at 0.
        int64_t top = 0;
        for (int l = 0, lw = w, lh = h; l < levels; ++l, lw = half(lw), lh = half(lh))
            top += int64_t(lw) * lh * 3;
        std::fill(acc.begin(), acc.begin() + top, uint16_t(0x7FFF));
        std::fill(acc.begin() + top, acc.end(), uint16_t(0));
        double tw = 0, ts = 0;
        for (int k = n - 1; k >= 0; --k) {
            auto t0 = Clock::now();
            std::copy_n(&weights[k * plane], plane, wtower.begin());
            fusion21(levels, w, h, 16, 0, wtower.data());
            tw += since(t0);
            t0 = Clock::now();
            const uint8_t *src = &photos[k * samples];
            for (int64_t i = 0; i < samples; ++i)
                image[i] = uint16_t(src[i] << 7);
            fusion22(levels, w, h, 3, 16, 16, 0, wtower.data(), nullptr, nullptr, image.data(),
                     acc.data());
            ts += since(t0);
        }
        auto t0 = Clock::now();
        float param[60] = {};
        param[8] = 2.0f;
        fusion3_main(param, levels, w, h, 3, 8, 16, w * 3, 0, 0, acc.data(), out.data());
        t_collapse = std::min(t_collapse, since(t0));
        t_weights = std::min(t_weights, tw);
        t_sum = std::min(t_sum, ts);

        // Yardstick: writing every photograph once as 16-bit samples.
        t0 = Clock::now();
        for (int k = 0; k < n; ++k)
            for (int64_t i = 0; i < samples; ++i)
                image[i] = uint16_t(photos[k * samples + i] << 7);
        t_copy = std::min(t_copy, since(t0));

        // The toolkit's reduce chains, every photograph: 16-bit and 8-bit, three samples.
        std::vector<uint8_t> t8(size_t(pyr) * 3);
        double t16 = 0, tu = 0;
        for (int k = 0; k < n; ++k) {
            std::copy_n(&photos[k * samples], samples, t8.begin());
            for (int64_t i = 0; i < samples; ++i)
                image[i] = uint16_t(t8[i] << 7);
            t0 = Clock::now();
            int64_t at = 0;
            for (int l = 0, lw = w, lh = h; l < levels; ++l, lw = half(lw), lh = half(lh)) {
                const int64_t next = at + int64_t(lw) * lh * 3;
                lv_short_downsample(lw, lh, half(lw), half(lh), 3, 0, at, next,
                                    reinterpret_cast<int16_t *>(image.data()));
                at = next;
            }
            t16 += since(t0);
            t0 = Clock::now();
            at = 0;
            for (int l = 0, lw = w, lh = h; l < levels; ++l, lw = half(lw), lh = half(lh)) {
                const int64_t next = at + int64_t(lw) * lh * 3;
                lv_uchar_downsample(lw, lh, half(lw), half(lh), 3, 0, at, next, t8.data());
                at = next;
            }
            tu += since(t0);
        }
        t_short = std::min(t_short, t16);
        t_uchar = std::min(t_uchar, tu);

        // A band-pass tower of one sample a pixel, as local fusion builds it: the differences.
        double td = 0;
        auto *grey = reinterpret_cast<int16_t *>(image.data());
        for (int k = 0; k < n; ++k) {
            for (int64_t p = 0; p < plane; ++p)
                grey[p] = int16_t(photos[k * samples + 3 * p + 1] << 7);
            int64_t at = 0;
            for (int l = 0, lw = w, lh = h; l < levels; ++l, lw = half(lw), lh = half(lh)) {
                const int64_t next = at + int64_t(lw) * lh;
                lv_short_downsample(lw, lh, half(lw), half(lh), 1, 0, at, next, grey);
                t0 = Clock::now();
                lv_short_diff(lw, lh, half(lw), half(lh), 1, 0, grey + next, grey + at);
                td += since(t0);
                at = next;
            }
        }
        t_diff = std::min(t_diff, td);
    }
    std::printf("bracket %d x %dx%d (%.1f MP), %d levels\n", n, w, h, bracket_mp, levels);
    const struct {
        const char *name;
        double t;
    } rows[] = {{"weight_towers", t_weights},      {"band_pass_sum", t_sum},
                {"collapse", t_collapse},          {"blend_total", t_weights + t_sum + t_collapse},
                {"copy_bracket_16bit", t_copy},    {"short_downsample_rgb", t_short},
                {"uchar_downsample_rgb", t_uchar}, {"short_diff_grey", t_diff}};
    for (const auto &r : rows)
        std::printf("%-22s %8.3f s %8.1f MP/s\n", r.name, r.t, bracket_mp / r.t);
    unsigned sum = 0;
    for (size_t i = 0; i < out.size(); i += 4097)
        sum += out[i];
    std::printf("checksum %u\n", sum);
    return 0;
}
