// Times the merge of a raw bracket (decoded beforehand by merge_rgbe_opencv.py) and the
// Radiance write and read of the result, on one thread. Prints "<stage> <seconds>" lines,
// megapixels per second and the merge's own peak memory.
//
// usage: bench_merge_rgbe <raw bracket> <n> <width> <height> <scratch .hdr> [repeats]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Peak resident memory of the process so far, in kB.
long peak_kb() {
    FILE *f = fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long kb = -1;
    while (fgets(line, sizeof line, f))
        if (strncmp(line, "VmHWM:", 6) == 0) kb = atol(line + 6);
    fclose(f);
    return kb;
}

template <class F> double best_of(int repeats, F f) {
    double best = 1e30;
    for (int r = 0; r < repeats; ++r) {
        const double t0 = now();
        f();
        const double t = now() - t0;
        if (t < best) best = t;
    }
    return best;
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 6) {
        fprintf(stderr, "usage: %s raw n width height out.hdr [repeats]\n", argv[0]);
        return 2;
    }
    const int n = atoi(argv[2]), width = atoi(argv[3]), height = atoi(argv[4]);
    const char *hdr = argv[5];
    const int repeats = argc > 6 ? atoi(argv[6]) : 3;
    const size_t pixels = static_cast<size_t>(width) * height;
    std::vector<unsigned char> bracket(pixels * 3 * n), out(pixels * 4), back(pixels * 4);
    FILE *f = fopen(argv[1], "rb");
    if (!f || fread(bracket.data(), 1, bracket.size(), f) != bracket.size()) {
        fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    fclose(f);
    memset(out.data(), 0, out.size());
    memset(back.data(), 0, back.size());

    // Exposures 2 stops apart, darkest first, as in the night bracket.
    std::vector<float> exposures(n), curve(256);
    for (int i = 0; i < n; ++i)
        exposures[i] = static_cast<float>(1 << (2 * i));
    float stats[3];
    const long before = peak_kb();
    const double merge = best_of(repeats, [&] {
        lv_hdr_merge(nullptr, 0, n, width, height, 3, 8, 0, -1.0f, curve.data(), exposures.data(),
                     bracket.data(), stats, out.data());
    });
    const long extra = peak_kb() - before;
    const double write = best_of(repeats, [&] {
        if (lv_io_rgbe_write(hdr, width, height, nullptr, 0, nullptr, out.data()) != height)
            exit(1);
    });
    const double read = best_of(repeats, [&] {
        if (lv_io_read_rgbe(width, height, hdr, back.data()) != height) exit(1);
    });
    if (memcmp(out.data(), back.data(), out.size()) != 0) {
        fprintf(stderr, "read back differs\n");
        return 1;
    }
    const double mp = pixels / 1e6;
    printf("lv_merge %.4f\nlv_write %.4f\nlv_read %.4f\n", merge, write, read);
    printf("# merge %.1f MP/s (%d frames of %.1f MP), write %.1f MP/s, read %.1f MP/s\n",
           mp / merge, n, mp, mp / write, mp / read);
    printf("# merge peak memory beyond the caller's buffers: %ld kB (weight tables %d kB)\n", extra,
           n * 256);
    return 0;
}
