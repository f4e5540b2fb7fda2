// Bitmap dimensions at this library's fixed offsets, and standalone ICC profile files.
#include "fileio/float_files.h"

extern "C" {

int lvbmp_dim(const char *path, ImageFileInfo *info) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f || !info) return -1;
    uint8_t b[12];
    if (!lv::read_exact(f.get(), b, 2)) return -1;
    if (b[0] != 'B' || b[1] != 'M') return -2;
    // Width and height are taken at offsets 34 and 38, the depth at 44.
    if (fseeko(f.get(), 32, SEEK_CUR) != 0) return -1;
    if (!lv::read_exact(f.get(), b, 12)) return -1;
    info->width = static_cast<int32_t>(lv::load_le32(b));
    info->height = static_cast<int32_t>(lv::load_le32(b + 4));
    const unsigned depth = lv::load_le16(b + 10);
    if (depth == 24) {
        info->slot2 = 3;
    } else if (depth == 8) {
        info->slot2 = 1;
    } else {
        return -3;
    }
    return 8;
}

int extract_profile(const char *path, unsigned char *profile) {
    if (!path) return -1;
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) return -2;
    uint8_t head[4];
    if (!lv::read_exact(f.get(), head, 4)) return -3;
    const int32_t size = static_cast<int32_t>(lv::load_be32(head));
    if (size < 1) return -4;
    rewind(f.get());
    if (fread(profile, 1, static_cast<size_t>(size), f.get()) != static_cast<size_t>(size))
        return -5;
    return size;
}

} // extern "C"
