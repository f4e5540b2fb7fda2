// Dispatch of HDR files by kind and extension, and the conversions between linear floats
// and the library's planar RGBE.
#include "hdr_files.h"

#include "codecs.h"

#include <lumivantor/lumivantor.h>

#include <cmath>
#include <cstring>
#include <new>

#include "fileio/rgbe_pixel.h"

namespace lvhdr {
namespace {

bool load_radiance(const std::string &path, HdrImage &image, std::string &error) {
    ImageFileInfo info;
    std::memset(&info, 0, sizeof info);
    float primaries[8];
    if (rgbe_dim(path.c_str(), primaries, &info) >= 0 &&
        !within_pixel_limit(uint64_t(std::max(info.width, 1)), uint64_t(std::max(info.height, 1)),
                            error))
        return false;
    return read_hdr(path, image, error);
}

bool load_any(const std::string &path, HdrImage &image, std::string &error) {
    FloatImage floats;
    switch (sniff_file(path)) {
    case FileKind::missing:
        error = "no such file";
        return false;
    case FileKind::radiance:
        return load_radiance(path, image, error);
    case FileKind::psd:
        return read_psd_hdr(path, image, error);
    case FileKind::tiff:
        if (!read_float_tiff(path, floats, error)) return false;
        break;
    case FileKind::exr:
        if (!read_exr(path, floats, error)) return false;
        break;
    default:
        error = "not a Radiance HDR, float TIFF, OpenEXR or 32-bit PSD file";
        return false;
    }
    hdr_from_floats(floats, image);
    return true;
}

} // namespace

bool is_hdr_extension(const std::string &ext) {
    return ext == "hdr" || ext == "tif" || ext == "tiff" || ext == "exr";
}

void hdr_from_floats(const FloatImage &in, HdrImage &out) {
    const int w = in.width;
    out.width = w;
    out.height = in.height;
    out.rgbe.assign(size_t(4) * w * in.height, 0);
    std::memset(&out.meta, 0, sizeof out.meta);
    for (int y = 0; y < in.height; ++y) {
        uint8_t *row = out.rgbe.data() + size_t(4) * w * y;
        const float *px = in.rgb.data() + size_t(3) * w * y;
        for (int x = 0; x < w; ++x, px += 3) {
            const float m = lv::max3(px[0], px[1], px[2]);
            if (!(m > 1e-32f)) continue; // black, negative or NaN
            uint8_t r, g, b;
            const int e =
                lv::rgbe_mantissas(px[0], px[1], px[2], std::fmin(m, 1.7e38f), &r, &g, &b);
            if (e < -127) continue; // below the smallest exponent: black
            row[x] = r;
            row[w + x] = g;
            row[2 * w + x] = b;
            row[3 * w + x] = uint8_t(std::min(e, 127) + 128);
        }
    }
}

bool floats_from_hdr(const HdrImage &in, FloatImage &out, std::string &error) {
    out.width = in.width;
    out.height = in.height;
    out.rgb.assign(size_t(3) * in.width * in.height, 0.0f);
    if (rgbe2fp(in.width, in.height, 3 * in.width, 0, 0, in.rgbe.data(), out.rgb.data(), 1.0f) <
        0) {
        error = "out of memory";
        return false;
    }
    return true;
}

bool load_hdr_file(const std::string &path, HdrImage &image, std::string &error) {
    try {
        return load_any(path, image, error);
    } catch (const std::bad_alloc &) {
        image.rgbe = std::vector<uint8_t>();
        error = "out of memory reading the HDR image";
        return false;
    }
}

bool save_hdr_file(const std::string &path, const HdrImage &image, std::string &error,
                   const HdrWriteOptions &options) {
    const std::string ext = extension_of(path);
    try {
        if (ext == "hdr") return write_hdr(path, image, error);
        if (ext == "tif" || ext == "tiff")
            return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
                const int rc =
                    fp_save(tmp.c_str(), image.width, image.height, 0, image.rgbe.data());
                if (rc < 0)
                    err = rc == -4 ? "out of memory"
                                   : "cannot write the float TIFF (sides up to 65535 pixels)";
                return rc >= 0;
            });
        if (ext == "exr") {
            FloatImage floats;
            if (!floats_from_hdr(image, floats, error)) return false;
            return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
                return write_exr(tmp, floats, options.exr_half, err);
            });
        }
    } catch (const std::bad_alloc &) {
        error = "out of memory writing the HDR image";
        return false;
    }
    error = "unknown HDR format '." + ext + "' (use .hdr, .tif or .exr)";
    return false;
}

} // namespace lvhdr
