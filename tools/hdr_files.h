// HDR image files for lvhdr: Radiance .hdr, float TIFF and OpenEXR, read and written by
// one pair of calls, so every command that takes or writes HDR handles all three.
#pragma once

#include "cli.h"
#include "float_image.h"
#include "hdr_pipeline.h"

#include <string>
#include <vector>

namespace lvhdr {

// Options of an HDR write: OpenEXR stores half floats instead of 32-bit ones.
struct HdrWriteOptions {
    bool exr_half = false;
};

// Reads a .hdr, a float TIFF (any compression, tiling or byte order), an OpenEXR file or
// a 32-bit PSD. False with a one-line reason otherwise; sizes above max_pixels() are
// refused before any allocation.
bool load_hdr_file(const std::string &path, HdrImage &image, std::string &error);
// Writes by the extension: .hdr, .tif/.tiff (32-bit float RGB) or .exr; all-or-nothing.
bool save_hdr_file(const std::string &path, const HdrImage &image, std::string &error,
                   const HdrWriteOptions &options = {});
// True when the extension names an HDR file lvhdr writes.
bool is_hdr_extension(const std::string &ext);

// Planar RGBE from floats (negatives and NaN become 0) and back.
void hdr_from_floats(const FloatImage &in, HdrImage &out);
bool floats_from_hdr(const HdrImage &in, FloatImage &out, std::string &error);

// Applies --max-pixels when given; false with a reason when its value is not a count.
bool parse_max_pixels(const ParsedArgs &args, std::string &error);

// Per-format readers and writers behind the calls above.
bool read_float_tiff(const std::string &path, FloatImage &image, std::string &error);
bool is_float_tiff(const std::string &path);
bool read_psd_hdr(const std::string &path, HdrImage &image, std::string &error);

} // namespace lvhdr
