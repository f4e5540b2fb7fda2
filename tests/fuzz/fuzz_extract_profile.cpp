// ICC profile files of arbitrary content. The profile can't be longer than the file, so a
// buffer of the file's size holds whatever is read.
#include <vector>

#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    std::vector<unsigned char> profile(size + 1);
    extract_profile(path, profile.data());
    return 0;
}
