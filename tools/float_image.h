// Linear float images and the OpenEXR codec. Kept apart from the library's headers: the
// OpenEXR headers pull in <math.h>, whose C++ names collide with some of the library's.
#pragma once

#include "image_io.h"

#include <string>
#include <vector>

namespace lvhdr {

// Linear RGB floats, three a pixel, rows top first.
struct FloatImage {
    int width = 0;
    int height = 0;
    std::vector<float> rgb;
};

bool read_exr(const std::string &path, FloatImage &image, std::string &error);
bool write_exr(const std::string &path, const FloatImage &image, bool half, std::string &error);

} // namespace lvhdr
