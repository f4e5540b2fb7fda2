// TIFF through libtiff: 8- and 16-bit unsigned RGB or grey, chunky or planar, in strips
// or tiles for 8 bits (through libtiff's RGBA reader) and in strips for 16 bits.
#include "codecs.h"
#include "hdr_files.h"

#include <lumivantor/frame.h>

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

// Opens a TIFF for reading; null with a reason when libtiff can't.
TiffPtr open_for_reading(const std::string &path, std::string &error) {
    quiet_libtiff();
    TiffPtr tif(TIFFOpen(path.c_str(), "r"));
    if (!tif)
        error = "bad TIFF: " + (tiff_message.empty() ? std::string("unreadable") : tiff_message);
    return tif;
}

// One float sample of 16, 32 or 64 bits, already in the machine's byte order.
float float_sample(const uint8_t *buf, size_t index, int bits) {
    if (bits == 16) {
        uint16_t h;
        std::memcpy(&h, buf + 2 * index, 2);
        return halfToFloat(h);
    }
    if (bits == 64) {
        double d;
        std::memcpy(&d, buf + 8 * index, 8);
        return float(d);
    }
    float f;
    std::memcpy(&f, buf + 4 * index, 4);
    return f;
}

} // namespace

bool describe_tiff(const std::string &path, TiffFacts &facts, std::string &error) {
    TiffPtr tif = open_for_reading(path, error);
    if (!tif) return false;
    TIFF *t = tif.get();
    uint16_t spp = 1, bits = 1, format = SAMPLEFORMAT_UINT, compression = COMPRESSION_NONE;
    uint32_t icc_len = 0;
    void *icc = nullptr;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &facts.width);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &facts.height);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &compression);
    if (TIFFGetField(t, TIFFTAG_ICCPROFILE, &icc_len, &icc)) facts.profile_bytes = int(icc_len);
    facts.samples = spp;
    facts.bits = bits;
    facts.sample_format = format;
    facts.compression = compression;
    facts.tiled = TIFFIsTiled(t) != 0;
    facts.big_endian = TIFFIsBigEndian(t) != 0;
    return true;
}

bool is_float_tiff(const std::string &path) {
    TiffFacts facts;
    std::string ignored;
    return describe_tiff(path, facts, ignored) && facts.sample_format == SAMPLEFORMAT_IEEEFP;
}

bool read_float_tiff(const std::string &path, FloatImage &image, std::string &error) {
    TiffPtr tif = open_for_reading(path, error);
    if (!tif) return false;
    TIFF *t = tif.get();
    uint32_t w = 0, h = 0;
    uint16_t bits = 8, spp = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    if (format != SAMPLEFORMAT_IEEEFP || (bits != 16 && bits != 32 && bits != 64)) {
        error = "not a float TIFF (an integer TIFF is a photograph, not an HDR image)";
        return false;
    }
    if (spp != 1 && spp < 3) {
        error = "unsupported float TIFF layout (need grey or RGB)";
        return false;
    }
    if (!within_pixel_limit(w, h, error)) return false;
    image.width = int(w);
    image.height = int(h);
    image.rgb.assign(size_t(3) * w * h, 0.0f);
    const bool separate = planar == PLANARCONFIG_SEPARATE && spp > 1;
    const int planes = separate ? 3 : 1;
    const int stride = separate ? 1 : spp; // samples from one pixel to the next
    // Each block of decoded samples (a scanline or a tile) lands at (x0, y0) in plane p.
    auto place = [&](const uint8_t *buf, uint32_t x0, uint32_t y0, uint32_t bw, uint32_t bh,
                     int plane) {
        for (uint32_t y = 0; y < bh && y0 + y < h; ++y)
            for (uint32_t x = 0; x < bw && x0 + x < w; ++x) {
                float *out = &image.rgb[(size_t(y0 + y) * w + x0 + x) * 3];
                const size_t at = (size_t(y) * bw + x) * stride;
                if (separate) {
                    out[plane] = float_sample(buf, at, bits);
                } else if (spp == 1) {
                    out[0] = out[1] = out[2] = float_sample(buf, at, bits);
                } else {
                    for (int c = 0; c < 3; ++c)
                        out[c] = float_sample(buf, at + c, bits);
                }
            }
    };
    auto bad = [&](const char *what) {
        error = "bad TIFF: " + (tiff_message.empty() ? std::string(what) : tiff_message);
        return false;
    };
    if (TIFFIsTiled(t)) {
        uint32_t tw = 0, th = 0;
        TIFFGetField(t, TIFFTAG_TILEWIDTH, &tw);
        TIFFGetField(t, TIFFTAG_TILELENGTH, &th);
        const tmsize_t size = TIFFTileSize(t);
        if (tw < 1 || th < 1 || size < tmsize_t(size_t(tw) * th * stride * (bits / 8)))
            return bad("bad tile size");
        std::vector<uint8_t> buf(static_cast<size_t>(size));
        for (int p = 0; p < planes; ++p)
            for (uint32_t y = 0; y < h; y += th)
                for (uint32_t x = 0; x < w; x += tw) {
                    if (TIFFReadTile(t, buf.data(), x, y, 0, uint16_t(p)) < 0)
                        return bad("unreadable tile");
                    place(buf.data(), x, y, tw, th, p);
                }
        return true;
    }
    const tmsize_t line = TIFFScanlineSize(t);
    if (line < tmsize_t(size_t(w) * stride * (bits / 8))) return bad("bad scanline size");
    std::vector<uint8_t> buf(static_cast<size_t>(line));
    for (int p = 0; p < planes; ++p)
        for (uint32_t y = 0; y < h; ++y) {
            if (TIFFReadScanline(t, buf.data(), y, uint16_t(p)) < 0) return bad("short strip");
            place(buf.data(), 0, y, w, 1, p);
        }
    return true;
}

bool read_tiff(const std::string &path, Image &image, std::string &error) {
    TiffPtr tif = open_for_reading(path, error);
    if (!tif) return false;
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
    if (!within_pixel_limit(w, h, error)) return false;
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
