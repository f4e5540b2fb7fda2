// Decoding and encoding of ordinary image files (JPEG, PNG, TIFF) for lvhdr, through
// the distribution's libjpeg, libpng and libtiff, and the all-or-nothing file writes.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace lvhdr {

enum class FileKind { unknown, missing, jpeg, png, tiff, radiance, psd, exr };

// Guesses a file's kind from its first bytes, not its name.
FileKind sniff_file(const std::string &path);
const char *kind_name(FileKind kind);

// An interleaved RGB image of 8 or 16 bits a sample. 16-bit samples are stored in host
// byte order, two bytes each, so `pixels` always holds width * height * 3 * bits / 8 bytes.
struct Image {
    int width = 0;
    int height = 0;
    int bits = 8;
    std::vector<uint8_t> pixels;
    size_t bytes() const { return size_t(width) * height * 3 * (bits / 8); }
};

// Decodes a JPEG, PNG or TIFF file into RGB (grey is spread to three channels, alpha is
// dropped). On failure returns false and puts a short reason, without the path, in `error`.
bool read_image(const std::string &path, Image &image, std::string &error);

// Turns a decoded image upright by its EXIF orientation (1..8: as stored, mirrored,
// turned by 180, mirrored top to bottom, transposed, turned 90 clockwise, transversed,
// turned 90 anticlockwise). Other values leave it as stored.
void turn_upright(Image &image, int orientation);

// The most pixels a decoder accepts for one file, and a bracket for all its files; a
// file claiming more is refused before anything is allocated for it.
uint64_t max_pixels();
void set_max_pixels(uint64_t limit);
// False, with a reason, when width x height is empty or above the limit.
bool within_pixel_limit(uint64_t width, uint64_t height, std::string &error);

// Encodes by the extension of `path` (.png, .jpg/.jpeg, .tif/.tiff). JPEG takes 8-bit
// images only. Writes to a temporary name beside `path` and renames it into place, so a
// failure leaves no partial file.
bool write_image(const std::string &path, const Image &image, std::string &error);

// The extension of path in lower case, without the dot ("" when none).
std::string extension_of(const std::string &path);

// Runs `write` on a temporary name in the folder of `path`, then renames the result onto
// `path`. When `write` fails or the rename fails the temporary file is removed.
bool write_atomically(const std::string &path, std::string &error,
                      const std::function<bool(const std::string &tmp, std::string &error)> &write);

} // namespace lvhdr
