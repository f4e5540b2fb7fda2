// Preview reads of arbitrary files at preview sizes narrower and wider than the source.
#include <vector>

#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    float primaries[8];
    if (rgbe_dim(path, primaries, &info) <= 0 || info.width <= 0 || info.height <= 0) return 0;
    const int sizes[3][2] = {{1, 1}, {7, 3}, {40, 9}};
    for (const auto &s : sizes) {
        std::vector<unsigned char> px(4 * static_cast<size_t>(s[0]) * s[1]);
        lv_io_read_preview_rgbe(info.width, info.height, s[0], s[1], path, px.data());
    }
    return 0;
}
