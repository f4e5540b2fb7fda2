// PSD through the library's reader: the flattened composite of an RGB document, as a
// photograph at 8 or 16 bits or as an HDR image at 32 bits.
#include "codecs.h"
#include "hdr_files.h"

#include <lumivantor/fileio.h>

#include <cstring>
#include <memory>

namespace lvhdr {
namespace {

// Inspects the file and marks the large-document form (version 2), which the library
// leaves to its host. Returns the depth, or 0 with a reason.
int inspect_psd(const std::string &path, ImageFileInfo &info, std::string &error) {
    std::memset(&info, 0, sizeof info);
    const int rc = getPsdInfo(path.c_str(), &info);
    if (rc < 0) {
        error = rc == -3   ? "not an RGB PSD (grey, CMYK, indexed or fewer than 3 channels)"
                : rc == -2 ? "not a PSD file"
                           : "unreadable PSD";
        return 0;
    }
    std::unique_ptr<FILE, FileCloser> f(std::fopen(path.c_str(), "rb"));
    unsigned char head[6] = {0};
    if (f && std::fread(head, 1, 6, f.get()) == 6 && head[4] == 0 && head[5] == 2) info.slot10 = 64;
    if (!within_pixel_limit(uint64_t(info.width > 0 ? info.width : 0),
                            uint64_t(info.height > 0 ? info.height : 0), error))
        return 0;
    return info.slot2;
}

std::string load_error(int rc) {
    return rc == -4 ? "out of memory" : "bad PSD image data (" + std::to_string(rc) + ")";
}

} // namespace

bool read_psd(const std::string &path, Image &image, std::string &error) {
    ImageFileInfo info;
    const int bits = inspect_psd(path, info, error);
    if (bits == 0) return false;
    if (bits != 8 && bits != 16) {
        error = bits == 32 ? "is a 32-bit HDR PSD; expected an 8- or 16-bit photograph"
                           : "unsupported PSD depth " + std::to_string(bits);
        return false;
    }
    image.width = info.width;
    image.height = info.height;
    image.bits = bits;
    image.pixels.assign(image.bytes(), 0);
    const int rc = load_psd(1, path.c_str(), &info, 3 * info.width, image.pixels.data());
    if (rc < 0) {
        error = load_error(rc);
        return false;
    }
    return true;
}

bool read_psd_hdr(const std::string &path, HdrImage &image, std::string &error) {
    ImageFileInfo info;
    const int bits = inspect_psd(path, info, error);
    if (bits == 0) return false;
    if (bits != 32) {
        error = "is a " + std::to_string(bits) + "-bit PSD, a photograph rather than HDR";
        return false;
    }
    image.width = info.width;
    image.height = info.height;
    image.rgbe.assign(size_t(4) * info.width * info.height, 0);
    std::memset(&image.meta, 0, sizeof image.meta);
    const int rc = load_psd(1, path.c_str(), &info, 3 * info.width, image.rgbe.data());
    if (rc < 0) {
        error = rc == -2 ? "32-bit PSD with packed pixels is not supported" : load_error(rc);
        return false;
    }
    return true;
}

} // namespace lvhdr
