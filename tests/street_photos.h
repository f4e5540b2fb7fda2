// The street bracket of the sample photographs (LV_DATA_DIR/street: 8-bit PNG frames listed
// with their exposure times in exposures.txt), its merge, and PNG output for a person to look
// at. Tests that need it skip when it is absent. Link PNG::PNG to use it.
#pragma once

#include <png.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace lvtest {

inline std::string street_dir() {
    return std::string(LV_DATA_DIR) + "/street/";
}

// Packed RGB bytes of a PNG appended to *rgb; false when it can't be read.
inline bool read_png_rgb(const std::string &path, int *w, int *h, std::vector<uint8_t> *rgb) {
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&img, path.c_str())) return false;
    img.format = PNG_FORMAT_RGB;
    const size_t at = rgb->size();
    rgb->resize(at + PNG_IMAGE_SIZE(img));
    *w = int(img.width), *h = int(img.height);
    return png_image_finish_read(&img, nullptr, &(*rgb)[at], 0, nullptr) != 0;
}

// Writes 8-bit RGB (channels 3) or grey (channels 1) pixels.
inline bool write_png(const std::string &path, int w, int h, int channels, const void *px) {
    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    img.width = png_uint_32(w), img.height = png_uint_32(h);
    img.format = channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    return png_image_write_to_file(&img, path.c_str(), 0, px, 0, nullptr) != 0;
}

struct Bracket {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;   // the frames one after another, packed RGB
    std::vector<float> seconds; // exposure time of each frame
    std::vector<uint8_t> rgbe;  // planar RGBE rows of the merge, when asked for
    bool empty() const { return seconds.empty(); }
};

// The whole bracket, merged by lv_hdr_merge with its exposure times as factors when merge
// is set; empty when any frame is missing.
inline Bracket street_bracket(bool merge = false) {
    Bracket b;
    std::ifstream list(street_dir() + "exposures.txt");
    for (std::string line, name; std::getline(list, line);) {
        std::istringstream in(line);
        float seconds;
        if (!(in >> name >> seconds) || name[0] == '#') continue;
        if (!read_png_rgb(street_dir() + name, &b.width, &b.height, &b.rgb)) return {};
        b.seconds.push_back(seconds);
    }
    if (!merge || b.empty()) return b;
    b.rgbe.resize(size_t(4) * b.width * b.height);
    float curve[256], stats[3];
    if (lv_hdr_merge(nullptr, 0, int(b.seconds.size()), b.width, b.height, 3, 8, 0, -1.0f, curve,
                     b.seconds.data(), b.rgb.data(), stats, b.rgbe.data()) != b.height)
        return {};
    return b;
}

} // namespace lvtest
