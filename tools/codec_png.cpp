// PNG through libpng, 8 and 16 bits a sample. libpng reports errors by longjmp; the
// state it may jump over lives in a heap record created before setjmp.
#include "codecs.h"

#include <cerrno>
#include <csetjmp>
#include <cstring>
#include <memory>

#include <png.h>

namespace lvhdr {
namespace {

struct PngState {
    png_structp png = nullptr;
    png_infop info = nullptr;
    bool writing = false;
    std::unique_ptr<FILE, FileCloser> file;
    std::string message;
    std::vector<png_bytep> rows;
    ~PngState() {
        if (writing)
            png_destroy_write_struct(&png, &info);
        else
            png_destroy_read_struct(&png, &info, nullptr);
    }
};

void on_error(png_structp png, png_const_charp msg) {
    static_cast<PngState *>(png_get_error_ptr(png))->message = msg;
    png_longjmp(png, 1);
}

void on_warning(png_structp, png_const_charp) {}

bool host_is_little_endian() {
    const uint16_t probe = 1;
    return *reinterpret_cast<const uint8_t *>(&probe) == 1;
}

} // namespace

bool read_png(const std::string &path, Image &image, std::string &error) {
    auto s = std::make_unique<PngState>();
    s->file.reset(std::fopen(path.c_str(), "rb"));
    if (!s->file) {
        error = std::strerror(errno);
        return false;
    }
    s->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, s.get(), on_error, on_warning);
    if (s->png) s->info = png_create_info_struct(s->png);
    if (!s->png || !s->info) {
        error = "out of memory";
        return false;
    }
    if (setjmp(png_jmpbuf(s->png))) {
        error = "bad PNG: " + s->message;
        return false;
    }
    png_init_io(s->png, s->file.get());
    png_read_info(s->png, s->info);
    if (!within_pixel_limit(png_get_image_width(s->png, s->info),
                            png_get_image_height(s->png, s->info), error))
        return false;
    const int depth = png_get_bit_depth(s->png, s->info);
    const int colour = png_get_color_type(s->png, s->info);
    // Everything becomes 8- or 16-bit RGB: palettes and low-depth grey are expanded,
    // grey is spread to three channels and alpha is dropped.
    if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(s->png);
    if (colour == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(s->png);
    if (png_get_valid(s->png, s->info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(s->png);
    if (colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA)
        png_set_gray_to_rgb(s->png);
    png_set_strip_alpha(s->png);
    if (depth == 16 && host_is_little_endian()) png_set_swap(s->png);
    png_read_update_info(s->png, s->info);
    image.width = int(png_get_image_width(s->png, s->info));
    image.height = int(png_get_image_height(s->png, s->info));
    image.bits = depth == 16 ? 16 : 8;
    if (png_get_channels(s->png, s->info) != 3) {
        error = "unsupported PNG colour layout";
        return false;
    }
    image.pixels.assign(image.bytes(), 0);
    s->rows.resize(size_t(image.height));
    const size_t pitch = size_t(image.width) * 3 * (image.bits / 8);
    for (int y = 0; y < image.height; ++y)
        s->rows[size_t(y)] = image.pixels.data() + pitch * y;
    png_read_image(s->png, s->rows.data());
    png_read_end(s->png, nullptr);
    return true;
}

bool write_png(const std::string &path, const Image &image, std::string &error) {
    auto s = std::make_unique<PngState>();
    s->writing = true;
    s->file.reset(std::fopen(path.c_str(), "wb"));
    if (!s->file) {
        error = std::strerror(errno);
        return false;
    }
    s->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, s.get(), on_error, on_warning);
    if (s->png) s->info = png_create_info_struct(s->png);
    if (!s->png || !s->info) {
        error = "out of memory";
        return false;
    }
    if (setjmp(png_jmpbuf(s->png))) {
        error = "PNG encoder: " + s->message;
        return false;
    }
    png_init_io(s->png, s->file.get());
    png_set_IHDR(s->png, s->info, png_uint_32(image.width), png_uint_32(image.height), image.bits,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(s->png, s->info, PNG_sRGB_INTENT_PERCEPTUAL);
    // Noisy photographs gain little from zlib's slower levels, and the demo writes many.
    png_set_compression_level(s->png, 3);
    png_write_info(s->png, s->info);
    if (image.bits == 16 && host_is_little_endian()) png_set_swap(s->png);
    s->rows.resize(size_t(image.height));
    const size_t pitch = size_t(image.width) * 3 * (image.bits / 8);
    for (int y = 0; y < image.height; ++y)
        s->rows[size_t(y)] = const_cast<png_bytep>(image.pixels.data() + pitch * y);
    png_write_image(s->png, s->rows.data());
    png_write_end(s->png, nullptr);
    if (std::fflush(s->file.get()) != 0 || std::ferror(s->file.get())) {
        error = std::string("write failed: ") + std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace lvhdr
