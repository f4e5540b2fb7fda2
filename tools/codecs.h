// The per-format decoders and encoders behind read_image and write_image.
#pragma once

#include "image_io.h"

namespace lvhdr {

bool read_jpeg(const std::string &path, Image &image, std::string &error);
bool write_jpeg(const std::string &path, const Image &image, int quality, std::string &error);

bool read_png(const std::string &path, Image &image, std::string &error);
bool write_png(const std::string &path, const Image &image, std::string &error);

bool read_tiff(const std::string &path, Image &image, std::string &error);
bool write_tiff(const std::string &path, const Image &image, std::string &error);

// Closes a FILE* when it leaves scope.
struct FileCloser {
    void operator()(FILE *f) const {
        if (f) std::fclose(f);
    }
};

} // namespace lvhdr
