// Float TIFF inspection and pixel reading of arbitrary files, with the buffer sized from the
// inspector as a host would.
#include <vector>

#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    if (getTiffInfo(path, &info) < 1 || info.width < 1 || info.height < 1 ||
        static_cast<int64_t>(info.width) * info.height > (1 << 18))
        return 0;
    std::vector<unsigned char> px(4 * static_cast<size_t>(info.width) * info.height);
    float mn, mx, mean;
    fp2rgbe(path, &info, &mn, &mx, &mean, px.data());
    return 0;
}
