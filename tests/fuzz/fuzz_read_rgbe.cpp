// Whole-image reads of arbitrary files, at the size the file states (when small) and at
// a small size of the input's choosing.
#include <vector>

#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    float primaries[8];
    if (rgbe_dim(path, primaries, &info) > 0 && info.width > 0 && info.height > 0 &&
        static_cast<int64_t>(info.width) * info.height <= (1 << 18)) {
        std::vector<unsigned char> px(4 * static_cast<size_t>(info.width) * info.height);
        lv_io_read_rgbe(info.width, info.height, path, px.data());
        const int32_t dims[2] = {info.width, info.height};
        decomp2(path, dims, px.data());
    }
    const int w = size > 0 ? data[0] % 17 + 1 : 1, h = size > 1 ? data[1] % 5 + 1 : 1;
    std::vector<unsigned char> small(4 * static_cast<size_t>(w) * h);
    lv_io_read_rgbe(w, h, path, small.data());
    return 0;
}
