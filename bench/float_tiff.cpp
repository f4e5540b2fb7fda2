// Times the library's float TIFF writer or reader on one image, for bench/compare. One
// operation a process, so that the process's peak memory belongs to that operation.
//   bench_float_tiff write IN.hdr OUT.tif  read the .hdr, then time fp_save
//   bench_float_tiff read IN.tif           time getTiffInfo and fp2rgbe into planar RGBE
// Prints "seconds=<s> cpu=<processor s> width=<w> height=<h>".
#include <lumivantor/lumivantor.h>

#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

double since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Processor seconds of this process, which a loaded machine disturbs less than wall time.
double cpu_seconds() {
    return double(std::clock()) / CLOCKS_PER_SEC;
}

} // namespace

int main(int argc, char **argv) {
    const bool write = argc == 4 && !std::strcmp(argv[1], "write");
    if (!(argc == 3 && !std::strcmp(argv[1], "read")) && !write) {
        std::fputs("usage: bench_float_tiff write IN.hdr OUT.tif | read IN.tif\n", stderr);
        return 2;
    }
    ImageFileInfo info;
    std::memset(&info, 0, sizeof info);
    std::vector<unsigned char> pixels;
    if (write) {
        float primaries[8];
        if (rgbe_dim(argv[2], primaries, &info) < 0 || info.width < 1 || info.height < 1) {
            std::fprintf(stderr, "bench_float_tiff: %s: not a readable Radiance file\n", argv[2]);
            return 1;
        }
        pixels.resize(size_t(4) * info.width * info.height);
        if (lv_io_read_rgbe(info.width, info.height, argv[2], pixels.data()) < 0) return 1;
        const auto t0 = std::chrono::steady_clock::now();
        const double c0 = cpu_seconds();
        if (fp_save(argv[3], info.width, info.height, 0, pixels.data()) != info.height) {
            std::fprintf(stderr, "bench_float_tiff: %s: write failed\n", argv[3]);
            return 1;
        }
        std::printf("seconds=%.6f cpu=%.6f width=%d height=%d\n", since(t0), cpu_seconds() - c0,
                    info.width, info.height);
        return 0;
    }
    const auto t0 = std::chrono::steady_clock::now();
    const double c0 = cpu_seconds();
    if (getTiffInfo(argv[2], &info) != 2 || info.width < 1 || info.height < 1) {
        std::fprintf(stderr, "bench_float_tiff: %s: not a float TIFF of our form\n", argv[2]);
        return 1;
    }
    pixels.resize(size_t(4) * info.width * info.height);
    float lo, hi, mean;
    if (fp2rgbe(argv[2], &info, &lo, &hi, &mean, pixels.data()) != 1) return 1;
    std::printf("seconds=%.6f cpu=%.6f width=%d height=%d\n", since(t0), cpu_seconds() - c0,
                info.width, info.height);
    return 0;
}
