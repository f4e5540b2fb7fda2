// OpenEXR through the distribution's library: RGB (or luminance) in half or 32-bit float,
// written with ZIP compression. The library reports failures by exceptions, which stop
// here and become one line.
#include "float_image.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <ImfOutputFile.h>

#include <exception>
#include <half.h>

namespace lvhdr {

bool read_exr(const std::string &path, FloatImage &image, std::string &error) {
    try {
        Imf::InputFile file(path.c_str());
        const Imath::Box2i win = file.header().dataWindow();
        const int64_t w = int64_t(win.max.x) - win.min.x + 1,
                      h = int64_t(win.max.y) - win.min.y + 1;
        if (w < 1 || h < 1 || !within_pixel_limit(uint64_t(w), uint64_t(h), error)) {
            if (error.empty()) error = "empty OpenEXR image";
            return false;
        }
        const Imf::ChannelList &channels = file.header().channels();
        const bool rgb =
            channels.findChannel("R") && channels.findChannel("G") && channels.findChannel("B");
        if (!rgb && !channels.findChannel("Y")) {
            error = "OpenEXR file without R, G, B or Y channels";
            return false;
        }
        image.width = int(w);
        image.height = int(h);
        image.rgb.assign(size_t(3) * w * h, 0.0f);
        // The frame buffer is addressed from the data window's origin.
        char *base = reinterpret_cast<char *>(image.rgb.data()) -
                     (int64_t(win.min.y) * w + win.min.x) * 3 * int64_t(sizeof(float));
        const size_t xs = 3 * sizeof(float), ys = xs * size_t(w);
        Imf::FrameBuffer fb;
        const char *names[3] = {"R", "G", "B"};
        for (int c = 0; c < 3; ++c)
            fb.insert(rgb ? names[c] : "Y",
                      Imf::Slice(Imf::FLOAT, base + c * sizeof(float), xs, ys, 1, 1, 0.0));
        file.setFrameBuffer(fb);
        file.readPixels(win.min.y, win.max.y);
        return true;
    } catch (const std::bad_alloc &) {
        error = "out of memory reading the OpenEXR file";
    } catch (const std::exception &e) {
        error = std::string("bad OpenEXR file: ") + e.what();
    }
    image.rgb = std::vector<float>();
    return false;
}

bool write_exr(const std::string &path, const FloatImage &image, bool half, std::string &error) {
    try {
        Imf::Header header(image.width, image.height);
        header.compression() = Imf::ZIP_COMPRESSION;
        const Imf::PixelType type = half ? Imf::HALF : Imf::FLOAT;
        const char *names[3] = {"R", "G", "B"};
        for (const char *n : names)
            header.channels().insert(n, Imf::Channel(type));
        Imf::OutputFile file(path.c_str(), header);
        Imf::FrameBuffer fb;
        std::vector<Imath::half> halves;
        char *base = reinterpret_cast<char *>(const_cast<float *>(image.rgb.data()));
        size_t size = sizeof(float);
        if (half) { // the frame buffer's type must match the file's
            halves.assign(image.rgb.begin(), image.rgb.end());
            base = reinterpret_cast<char *>(halves.data());
            size = sizeof(Imath::half);
        }
        const size_t xs = 3 * size, ys = xs * size_t(image.width);
        for (int c = 0; c < 3; ++c)
            fb.insert(names[c], Imf::Slice(type, base + c * size, xs, ys));
        file.setFrameBuffer(fb);
        file.writePixels(image.height);
        return true;
    } catch (const std::bad_alloc &) {
        error = "out of memory writing the OpenEXR file";
    } catch (const std::exception &e) {
        error = std::string("cannot write the OpenEXR file: ") + e.what();
    }
    return false;
}

} // namespace lvhdr
