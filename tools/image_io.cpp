// File kind detection, format dispatch and all-or-nothing writes.
#include "codecs.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <unistd.h>

namespace lvhdr {

FileKind sniff_file(const std::string &path) {
    std::unique_ptr<FILE, FileCloser> f(std::fopen(path.c_str(), "rb"));
    if (!f) return FileKind::missing;
    unsigned char b[4] = {0, 0, 0, 0};
    const size_t got = std::fread(b, 1, 4, f.get());
    if (got >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return FileKind::jpeg;
    if (got == 4 && b[0] == 0x89 && b[1] == 'P' && b[2] == 'N' && b[3] == 'G') return FileKind::png;
    if (got == 4 && ((b[0] == 'I' && b[1] == 'I' && b[2] == 42 && b[3] == 0) ||
                     (b[0] == 'M' && b[1] == 'M' && b[2] == 0 && b[3] == 42)))
        return FileKind::tiff;
    if (got >= 2 && b[0] == '#' && b[1] == '?') return FileKind::radiance;
    if (got == 4 && std::memcmp(b, "8BPS", 4) == 0) return FileKind::psd;
    if (got == 4 && b[0] == 0x76 && b[1] == 0x2F && b[2] == 0x31 && b[3] == 0x01)
        return FileKind::exr;
    return FileKind::unknown;
}

const char *kind_name(FileKind kind) {
    switch (kind) {
    case FileKind::jpeg:
        return "JPEG";
    case FileKind::png:
        return "PNG";
    case FileKind::tiff:
        return "TIFF";
    case FileKind::radiance:
        return "Radiance HDR";
    case FileKind::psd:
        return "PSD";
    case FileKind::exr:
        return "OpenEXR";
    case FileKind::missing:
        return "missing";
    default:
        return "unknown";
    }
}

std::string extension_of(const std::string &path) {
    const size_t slash = path.find_last_of('/');
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ext = path.substr(dot + 1);
    for (char &c : ext)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

namespace {
uint64_t pixel_limit = uint64_t(1) << 30;
} // namespace

uint64_t max_pixels() { return pixel_limit; }
void set_max_pixels(uint64_t limit) { pixel_limit = limit; }

bool within_pixel_limit(uint64_t width, uint64_t height, std::string &error) {
    if (width < 1 || height < 1) {
        error = "empty image";
        return false;
    }
    if (width > pixel_limit / height) {
        error = "claims " + std::to_string(width) + "x" + std::to_string(height) +
                " pixels, more than the limit of " + std::to_string(pixel_limit) +
                " (raise it with --max-pixels)";
        return false;
    }
    return true;
}

static bool decode_image(const std::string &path, Image &image, std::string &error) {
    switch (sniff_file(path)) {
    case FileKind::missing:
        error = std::strerror(errno);
        return false;
    case FileKind::jpeg:
        return read_jpeg(path, image, error);
    case FileKind::png:
        return read_png(path, image, error);
    case FileKind::tiff:
        return read_tiff(path, image, error);
    case FileKind::psd:
        return read_psd(path, image, error);
    case FileKind::radiance:
    case FileKind::exr:
        error = "is an HDR file; expected a JPEG, PNG, TIFF or PSD photograph";
        return false;
    default:
        error = "not a JPEG, PNG, TIFF or PSD image";
        return false;
    }
}

bool read_image(const std::string &path, Image &image, std::string &error) {
    // The decoders check sizes before they allocate; memory can still run out, and that
    // is one more reason a file can't be read, not a crash.
    try {
        return decode_image(path, image, error);
    } catch (const std::bad_alloc &) {
        image.pixels = std::vector<uint8_t>();
        error = "out of memory decoding the image";
        return false;
    }
}

void turn_upright(Image &image, int orientation) {
    if (orientation < 2 || orientation > 8) return;
    const int w = image.width, h = image.height;
    const size_t px = size_t(3) * (image.bits / 8);
    // Each orientation reads the stored image transposed or not, then mirrored across
    // either axis: {transpose, mirror columns, mirror rows} for orientations 1 to 8.
    static constexpr bool kTurn[9][3] = {{},        {0, 0, 0}, {0, 1, 0}, {0, 1, 1}, {0, 0, 1},
                                         {1, 0, 0}, {1, 0, 1}, {1, 1, 1}, {1, 1, 0}};
    const bool *t = kTurn[orientation];
    const int ow = t[0] ? h : w, oh = t[0] ? w : h;
    std::vector<uint8_t> out(image.pixels.size());
    for (int y = 0; y < oh; ++y) {
        for (int x = 0; x < ow; ++x) {
            const int u = t[0] ? y : x, v = t[0] ? x : y; // where the upright pixel is stored
            const int sx = t[1] ? w - 1 - u : u, sy = t[2] ? h - 1 - v : v;
            std::memcpy(&out[(size_t(y) * ow + x) * px], &image.pixels[(size_t(sy) * w + sx) * px],
                        px);
        }
    }
    image.pixels.swap(out);
    image.width = ow;
    image.height = oh;
}

bool write_atomically(const std::string &path, std::string &error,
                      const std::function<bool(const std::string &, std::string &)> &write) {
    // The temporary lives in the target's folder so that rename() never crosses devices.
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string tmp = dir + "." + base + ".part" + std::to_string(getpid());
    if (!write(tmp, error)) {
        std::remove(tmp.c_str());
        return false;
    }
    if (std::rename(tmp.c_str(), path.c_str()) != 0) {
        error = std::string("cannot rename into place: ") + std::strerror(errno);
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}

bool write_image(const std::string &path, const Image &image, std::string &error) {
    const std::string ext = extension_of(path);
    if (image.pixels.size() < image.bytes() || image.width < 1 || image.height < 1) {
        error = "empty image";
        return false;
    }
    if (ext == "png")
        return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
            return write_png(tmp, image, err);
        });
    if (ext == "tif" || ext == "tiff")
        return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
            return write_tiff(tmp, image, err);
        });
    if (ext == "jpg" || ext == "jpeg") {
        if (image.bits != 8) {
            error = "JPEG holds 8 bits a sample only; use .png or .tif for 16-bit output";
            return false;
        }
        return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
            return write_jpeg(tmp, image, 92, err);
        });
    }
    error = "unknown output format '." + ext + "' (use .png, .jpg or .tif)";
    return false;
}

} // namespace lvhdr
