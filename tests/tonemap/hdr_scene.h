// HDR test scenes for the tone mapper: the aligned street bracket merged by the library, or a
// synthetic scene when the sample photographs are absent, and PNG helpers.
#pragma once

#include <string>
#include <vector>

namespace lvtest {

struct HdrScene {
    int width = 0;
    int height = 0;
    std::vector<float> rgb;          // interleaved linear floats, 3 a pixel
    std::vector<unsigned char> rgbe; // planar RGBE rows of the same pixels
    bool real = false;               // merged from photographs
};

// Decodes an 8-bit RGB PNG; returns false when it can't.
bool read_png_rgb8(const std::string &path, int &width, int &height,
                   std::vector<unsigned char> &pixels);
// Writes interleaved 8-bit or 16-bit RGB as PNG; returns false on failure.
bool write_png_rgb(const std::string &path, int width, int height, int bits, const void *pixels);

// Planar RGBE rows of interleaved floats (mantissas rounded down, exponent bias 128).
std::vector<unsigned char> floats_to_rgbe(int width, int height, const float *rgb);

// The street bracket merged by lv_hdr_merge (empty when the sample data is missing), and a
// synthetic scene of the given size.
HdrScene street_scene();
HdrScene synthetic_scene(int width, int height);

} // namespace lvtest
