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

// What a TIFF's first directory says, for lvhdr info.
struct TiffFacts {
    uint32_t width = 0, height = 0;
    int samples = 0, bits = 0, sample_format = 0, compression = 0, profile_bytes = 0;
    bool tiled = false, big_endian = false;
};
bool describe_tiff(const std::string &path, TiffFacts &facts, std::string &error);

// The composite image of an 8- or 16-bit RGB PSD, through the library's reader.
bool read_psd(const std::string &path, Image &image, std::string &error);

// Closes a FILE* when it leaves scope.
struct FileCloser {
    void operator()(FILE *f) const {
        if (f) std::fclose(f);
    }
};

} // namespace lvhdr
