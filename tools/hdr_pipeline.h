// The library calls behind lvhdr's commands: merging a decoded bracket, Radiance files,
// luminance statistics and the global tone map. Every command goes through these, so
// each road of the library is driven from one place.
#pragma once

#include "image_io.h"

#include <lumivantor/fileio.h>

#include <string>
#include <vector>

namespace lvhdr {

// A planar RGBE image as the library keeps it, with its capture metadata.
struct HdrImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgbe; // height rows of 4 * width bytes
    MetadataBuf meta{};
};

// A bracket laid end to end in one buffer, as the merge takes it.
struct Bracket {
    int width = 0;
    int height = 0;
    int bits = 8;
    int count = 0;
    int planned = 1; // frames expected, so the buffer is sized once
    std::vector<uint8_t> samples;
    // Appends one decoded frame; false with a reason when its size or depth differs.
    bool add(const Image &frame, std::string &error);
};

// How the merge gets its exposures: from the caller's factors, as an even bracket of
// `step` stops, or derived from the images' brightness.
enum class ExposureSource { given, even_step, derived };

// Merges the bracket. `exposures` holds one linear factor per frame on entry for
// ExposureSource::given, and the factors the merge used on return. stats receives the
// smallest, largest and mean luminance of the result.
bool merge_bracket(const Bracket &bracket, ExposureSource source, float step,
                   std::vector<float> &exposures, HdrImage &out, float stats[3],
                   std::string &error);

// Linear exposure factors from capture metadata (shutter, aperture, ISO), one per frame.
std::vector<float> exposures_from_metadata(const std::vector<MetadataBuf> &meta);

// Writes the .hdr with its metadata all-or-nothing.
bool write_hdr(const std::string &path, const HdrImage &image, std::string &error);
// Reads a .hdr whole, with the metadata its header carries.
bool read_hdr(const std::string &path, HdrImage &image, std::string &error);

// Natural-log luminance statistics: min, max, mean, median, 99.5th and 33rd percentile.
bool luminance_stats(HdrImage &image, float stats[6], std::string &error);

// Sliders of the global operator, each from -10 to 10, 0 is neutral.
struct ToneSettings {
    float brightness = 0;
    float compression = 0;
    float saturation = 0;
    float temperature = 0;
};

// Tone-maps with the global operator into an 8- or 16-bit RGB image.
bool tonemap_simple(HdrImage &image, const ToneSettings &settings, int bits, Image &out,
                    std::string &error);

// Decodes one planar RGBE pixel to linear RGB.
void rgbe_pixel(const HdrImage &image, int x, int y, float rgb[3]);

} // namespace lvhdr
