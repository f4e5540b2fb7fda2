// PSD inspection, profile copy and composite reading of arbitrary files; the buffers are
// sized from the inspector as a host would.
#include <algorithm>
#include <vector>

#include "fuzz_file.h"
#include "lumivantor/fileio.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    ImageFileInfo info{};
    if (getPsdInfo(path, &info) < 0) return 0;
    if (info.profileLength > 0 && info.profileLength < (1 << 24)) {
        std::vector<unsigned char> profile(static_cast<size_t>(info.profileLength));
        psd_profile(path, profile.data());
    }
    if (info.width < 1 || info.height < 1 ||
        static_cast<int64_t>(info.width) * info.height > (1 << 16))
        return 0;
    info.slot10 = size > 0 && (data[size - 1] & 1) ? 64 : 0;
    const int row_bytes = 3 * info.width + (size > 1 ? data[size - 2] % 4 : 0);
    const size_t pitch = std::max<size_t>(row_bytes, 4 * static_cast<size_t>(info.width));
    std::vector<unsigned char> px(pitch * 2 * info.height);
    load_psd(size > 2 ? data[size - 3] % 3 - 1 : 1, path, &info, row_bytes, px.data());
    return 0;
}
