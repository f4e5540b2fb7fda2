// TIFF through libtiff: 8- and 16-bit unsigned RGB or grey, chunky or planar, in strips
// or tiles for 8 bits (through libtiff's RGBA reader) and in strips for 16 bits.
#include "codecs.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include <tiffio.h>

namespace lvhdr {
namespace {

// libtiff prints its complaints to stderr by default; keep the last one for our own line.
thread_local std::string tiff_message;

void on_error(const char *, const char *fmt, va_list ap) {
    char buf[256];
    std::vsnprintf(buf, sizeof buf, fmt, ap);
    tiff_message = buf;
}

void on_warning(const char *, const char *, va_list) {}

struct TiffCloser {
    void operator()(TIFF *t) const {
        if (t) TIFFClose(t);
    }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

void quiet_libtiff() {
    TIFFSetErrorHandler(on_error);
    TIFFSetWarningHandler(on_warning);
    tiff_message.clear();
}

bool read_8bit_any(TIFF *tif, Image &image, std::string &error) {
    std::vector<uint32_t> rgba(size_t(image.width) * image.height);
    if (!TIFFReadRGBAImageOriented(tif, uint32_t(image.width), uint32_t(image.height), rgba.data(),
                                   ORIENTATION_TOPLEFT, 0)) {
        error = "bad TIFF: " + (tiff_message.empty() ? std::string("unreadable") : tiff_message);
        return false;
    }
    image.pixels.resize(image.bytes());
    for (size_t i = 0; i < rgba.size(); ++i) {
        image.pixels[3 * i] = uint8_t(TIFFGetR(rgba[i]));
        image.pixels[3 * i + 1] = uint8_t(TIFFGetG(rgba[i]));
        image.pixels[3 * i + 2] = uint8_t(TIFFGetB(rgba[i]));
    }
    return true;
}

bool read_16bit_strips(TIFF *tif, int spp, int planar, Image &image, std::string &error) {
    uint16_t photometric = PHOTOMETRIC_RGB;
    TIFFGetFieldDefaulted(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    const bool grey = photometric == PHOTOMETRIC_MINISBLACK && spp >= 1 && spp <= 2;
    if (TIFFIsTiled(tif) || !(grey || (photometric == PHOTOMETRIC_RGB && spp >= 3))) {
        error = "unsupported 16-bit TIFF layout (need RGB or grey in strips)";
        return false;
    }
    std::vector<uint8_t> line(size_t(TIFFScanlineSize(tif)));
    image.pixels.resize(image.bytes());
    auto *out = reinterpret_cast<uint16_t *>(image.pixels.data());
    const int planes = planar == PLANARCONFIG_SEPARATE ? (grey ? 1 : 3) : 1;
    for (int plane = 0; plane < planes; ++plane)
        for (int y = 0; y < image.height; ++y) {
            if (TIFFReadScanline(tif, line.data(), uint32_t(y), uint16_t(plane)) < 0) {
                error = "bad TIFF: " +
                        (tiff_message.empty() ? std::string("short strip") : tiff_message);
                return false;
            }
            const auto *in = reinterpret_cast<const uint16_t *>(line.data());
            uint16_t *row = out + size_t(y) * image.width * 3;
            for (int x = 0; x < image.width; ++x)
                for (int c = 0; c < 3; ++c) {
                    if (planes == 3) {
                        if (c == plane) row[3 * x + c] = in[x];
                    } else {
                        row[3 * x + c] = in[size_t(x) * spp + (grey ? 0 : c)];
                    }
                }
        }
    return true;
}

} // namespace

bool read_tiff(const std::string &path, Image &image, std::string &error) {
    quiet_libtiff();
    TiffPtr tif(TIFFOpen(path.c_str(), "r"));
    if (!tif) {
        error = "bad TIFF: " + (tiff_message.empty() ? std::string("unreadable") : tiff_message);
        return false;
    }
    uint32_t w = 0, h = 0;
    uint16_t bits = 8, spp = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG;
    TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &planar);
    if (w < 1 || h < 1 || w > 65535 || h > 65535) {
        error = "bad TIFF: image size out of range";
        return false;
    }
    if (format != SAMPLEFORMAT_UINT || (bits != 8 && bits != 16)) {
        error = "unsupported TIFF sample format (need 8- or 16-bit unsigned integers)";
        return false;
    }
    image.width = int(w);
    image.height = int(h);
    image.bits = bits;
    return bits == 8 ? read_8bit_any(tif.get(), image, error)
                     : read_16bit_strips(tif.get(), spp, planar, image, error);
}

bool write_tiff(const std::string &path, const Image &image, std::string &error) {
    quiet_libtiff();
    TiffPtr tif(TIFFOpen(path.c_str(), "w"));
    if (!tif) {
        error = "cannot create: " + tiff_message;
        return false;
    }
    TIFF *t = tif.get();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(image.width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(image.height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(image.bits));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(3));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    const size_t pitch = size_t(image.width) * 3 * (image.bits / 8);
    std::vector<uint8_t> row(pitch); // libtiff may scribble on the row it encodes
    for (int y = 0; y < image.height; ++y) {
        std::memcpy(row.data(), image.pixels.data() + pitch * y, pitch);
        if (TIFFWriteScanline(t, row.data(), uint32_t(y), 0) < 0) {
            error = "write failed: " + tiff_message;
            return false;
        }
    }
    if (!TIFFFlush(t)) {
        error = "write failed: " + tiff_message;
        return false;
    }
    return true;
}

} // namespace lvhdr
