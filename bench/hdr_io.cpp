// Times the library's Radiance reader or writer on one file, for bench/compare. One
// operation a process, so that the process's peak memory belongs to that operation.
//   bench_hdr_io read IN.hdr          read it whole
//   bench_hdr_io write IN.hdr OUT.hdr read it, then time writing it again
// Prints "seconds=<s> width=<w> height=<h>".
#include <lumivantor/lumivantor.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <vector>

int main(int argc, char **argv) {
    const bool write = argc == 4 && !std::strcmp(argv[1], "write");
    if (!(argc == 3 && !std::strcmp(argv[1], "read")) && !write) {
        std::fputs("usage: bench_hdr_io read IN.hdr | write IN.hdr OUT.hdr\n", stderr);
        return 2;
    }
    float primaries[8];
    ImageFileInfo info;
    std::memset(&info, 0, sizeof info);
    if (rgbe_dim(argv[2], primaries, &info) < 0 || info.width < 1 || info.height < 1) {
        std::fprintf(stderr, "bench_hdr_io: %s: not a readable Radiance file\n", argv[2]);
        return 1;
    }
    std::vector<unsigned char> pixels(size_t(4) * info.width * info.height);
    MetadataBuf meta;
    std::memset(&meta, 0, sizeof meta);
    extract_rgbe_exif(argv[2], &meta);
    auto t0 = std::chrono::steady_clock::now();
    if (lv_io_read_rgbe(info.width, info.height, argv[2], pixels.data()) < 0) {
        std::fprintf(stderr, "bench_hdr_io: %s: read failed\n", argv[2]);
        return 1;
    }
    if (write) {
        t0 = std::chrono::steady_clock::now();
        if (lv_io_rgbe_write(argv[3], info.width, info.height, &meta, 0, "", pixels.data()) < 0) {
            std::fprintf(stderr, "bench_hdr_io: %s: write failed\n", argv[3]);
            return 1;
        }
    }
    const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::printf("seconds=%.6f width=%d height=%d\n", s, info.width, info.height);
    return 0;
}
