// Random bytes through every metadata reader: the host-side walker on a whole file, both
// directory walks in both byte orders, the camera settings text, the ICC profile name and
// the IPTC keyword insertion.
#include <lumivantor/metadata.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "exif_walk.h"

namespace {

void walk_directories(const uint8_t *data, size_t size) {
    FILE *f = fmemopen(const_cast<uint8_t *>(data), size, "rb");
    if (!f) return;
    // A base from the first bytes, so offsets near the ends of the range get tried.
    int32_t base = 0;
    if (size >= 4) std::memcpy(&base, data, 4);
    base %= 4096;
    for (int32_t order : {LV_ORDER_INTEL, 0x4D4D}) {
        ExifInfo info;
        std::memset(&info, 0, sizeof info);
        rewind(f);
        parse_exif_data(f, 0, order, base, &info);
        rewind(f);
        parse_gps_data(f, 0, order, 0, &info);
        MetadataBuf meta;
        MetadataGps gps;
        metadataBufFromExifInfo(&info, &meta, &gps);
    }
    rewind(f);
    ExifInfo info;
    std::memset(&info, 0, sizeof info);
    parse_image_description(f, int32_t(size), &info);
    fclose(f);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0 || size > (1u << 20)) return 0;
    ExifInfo info;
    lvtool::read_exif_memory(data, size, &info);
    walk_directories(data, size);

    char name[32];
    get_profile_name(int32_t(size), data, name);

    const size_t keyword = size < 16 ? size : 16;
    std::vector<uint8_t> out(size + 12 + keyword);
    add_iptc_keyword(int32_t(size), data, int32_t(keyword), data, out.data());
    return 0;
}
