// Dimension and primaries inspection of arbitrary files.
#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    info.profileLength = size > 0 ? data[0] & 1 : 0;
    float primaries[8];
    rgbe_dim(path, primaries, &info);
    if (size > 0) rgbe_end_of_header(data, static_cast<int32_t>(size));
    return 0;
}
