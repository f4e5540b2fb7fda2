// Bitmap dimensions of arbitrary files.
#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    lvbmp_dim(path, &info);
    return 0;
}
