// lvhdr's decoders (JPEG, PNG, TIFF, PSD, Radiance, float TIFF, OpenEXR) on arbitrary files,
// under a pixel limit small enough that no claimed size can exhaust memory.
#include "fuzz_file.h"
#include "hdr_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const char *path = fuzz_write_file(data, size);
    if (!path) return 0;
    lvhdr::set_max_pixels(1 << 20);
    lvhdr::Image image;
    lvhdr::HdrImage hdr;
    std::string error;
    lvhdr::read_image(path, image, error);
    lvhdr::load_hdr_file(path, hdr, error);
    return 0;
}
