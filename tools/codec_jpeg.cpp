// JPEG through libjpeg(-turbo). Its errors arrive by longjmp, so everything that must
// survive one lives in a heap record created before setjmp.
#include "codecs.h"

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>

#include <jpeglib.h>
#include <jerror.h>

namespace lvhdr {
namespace {

struct JpegError {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void on_error(j_common_ptr cinfo) {
    auto *e = reinterpret_cast<JpegError *>(cinfo->err);
    e->mgr.format_message(cinfo, e->message);
    std::longjmp(e->jump, 1);
}

// A file cut short only raises a warning in libjpeg, which then pads the picture with grey.
// A bracket with a grey band would merge into nonsense, so end of data is an error here.
void on_message(j_common_ptr cinfo, int level) {
    auto *e = reinterpret_cast<JpegError *>(cinfo->err);
    if (level < 0 && (e->mgr.msg_code == JWRN_JPEG_EOF || e->mgr.msg_code == JWRN_HIT_MARKER)) {
        e->mgr.format_message(cinfo, e->message);
        std::longjmp(e->jump, 1);
    }
}

struct Decoder {
    JpegError err;
    jpeg_decompress_struct cinfo;
    std::unique_ptr<FILE, FileCloser> file;
    bool created = false;
    ~Decoder() {
        if (created) jpeg_destroy_decompress(&cinfo);
    }
};

struct Encoder {
    JpegError err;
    jpeg_compress_struct cinfo;
    std::unique_ptr<FILE, FileCloser> file;
    bool created = false;
    ~Encoder() {
        if (created) jpeg_destroy_compress(&cinfo);
    }
};

} // namespace

bool read_jpeg(const std::string &path, Image &image, std::string &error) {
    auto d = std::make_unique<Decoder>();
    d->file.reset(std::fopen(path.c_str(), "rb"));
    if (!d->file) {
        error = std::strerror(errno);
        return false;
    }
    d->cinfo.err = jpeg_std_error(&d->err.mgr);
    d->err.mgr.error_exit = on_error;
    d->err.mgr.emit_message = on_message;
    if (setjmp(d->err.jump)) {
        error = std::string("bad JPEG: ") + d->err.message;
        return false;
    }
    jpeg_create_decompress(&d->cinfo);
    d->created = true;
    jpeg_stdio_src(&d->cinfo, d->file.get());
    jpeg_read_header(&d->cinfo, TRUE);
    if (!within_pixel_limit(d->cinfo.image_width, d->cinfo.image_height, error)) return false;
    d->cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&d->cinfo);
    if (d->cinfo.output_components != 3) {
        error = "unsupported JPEG colour layout";
        return false;
    }
    image.width = int(d->cinfo.output_width);
    image.height = int(d->cinfo.output_height);
    image.bits = 8;
    image.pixels.assign(image.bytes(), 0);
    const size_t pitch = size_t(image.width) * 3;
    while (d->cinfo.output_scanline < d->cinfo.output_height) {
        JSAMPROW row = image.pixels.data() + pitch * d->cinfo.output_scanline;
        jpeg_read_scanlines(&d->cinfo, &row, 1);
    }
    jpeg_finish_decompress(&d->cinfo);
    return true;
}

bool write_jpeg(const std::string &path, const Image &image, int quality, std::string &error) {
    auto e = std::make_unique<Encoder>();
    e->file.reset(std::fopen(path.c_str(), "wb"));
    if (!e->file) {
        error = std::strerror(errno);
        return false;
    }
    e->cinfo.err = jpeg_std_error(&e->err.mgr);
    e->err.mgr.error_exit = on_error;
    if (setjmp(e->err.jump)) {
        error = std::string("JPEG encoder: ") + e->err.message;
        return false;
    }
    jpeg_create_compress(&e->cinfo);
    e->created = true;
    jpeg_stdio_dest(&e->cinfo, e->file.get());
    e->cinfo.image_width = JDIMENSION(image.width);
    e->cinfo.image_height = JDIMENSION(image.height);
    e->cinfo.input_components = 3;
    e->cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&e->cinfo);
    jpeg_set_quality(&e->cinfo, quality, TRUE);
    jpeg_start_compress(&e->cinfo, TRUE);
    const size_t pitch = size_t(image.width) * 3;
    while (e->cinfo.next_scanline < e->cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPLE *>(image.pixels.data() + pitch * e->cinfo.next_scanline);
        jpeg_write_scanlines(&e->cinfo, &row, 1);
    }
    jpeg_finish_compress(&e->cinfo);
    if (std::fflush(e->file.get()) != 0 || std::ferror(e->file.get())) {
        error = std::string("write failed: ") + std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace lvhdr
