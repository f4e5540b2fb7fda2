// The ghost selection file readers on arbitrary bytes, with arrays sized as a host sizes
// them from get_mask_info.
#include "fuzz_file.h"
#include "lumivantor/ghost.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    int32_t w, h, n;
    const int total = get_mask_info(path, &w, &h, &n);
    if (total < 0 || n < 0 || n > 100000 || total > 1000000) return 0;
    std::vector<int32_t> e(n + 1), p(n + 1), xy(2 * static_cast<size_t>(total) + 2);
    get_mask_data(path, e.data(), p.data(), xy.data());
    return 0;
}
