// Reading a bracket: n images end to end, 8 or 16 bits a sample, no row padding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lv {

// Sample positions of red, green and blue in a pixel of `samples` samples.
struct ChannelIndex {
    int r, g, b;
};

// Red is sample 0, green (samples - 1) / 2, blue the last.
inline ChannelIndex rgb_index(int samples) {
    return {0, (samples - 1) / 2, samples - 1};
}

// Red, green, blue for the brightness measure: four samples are three channels and one
// ignored; one or two samples give grey from sample 0.
inline ChannelIndex measure_index(int samples) {
    if (samples == 4) return {0, 1, 2};
    if (samples < 3) return {0, 0, 0};
    return rgb_index(samples);
}

// 8-bit level of sample i: the sample itself, or the high byte of a 16-bit sample.
inline unsigned level8(const void *base, size_t i, int bits) {
    if (bits == 16) return static_cast<const uint16_t *>(base)[i] >> 8;
    return static_cast<const uint8_t *>(base)[i];
}

// Samples in one image of the bracket.
inline size_t image_samples(int width, int height, int samples) {
    return static_cast<size_t>(width) * static_cast<size_t>(height) * static_cast<size_t>(samples);
}

// Start of image k of the bracket, as a sample offset.
inline const void *image_at(const void *images, size_t k, size_t perImage, int bits) {
    if (bits == 16) return static_cast<const uint16_t *>(images) + k * perImage;
    return static_cast<const uint8_t *>(images) + k * perImage;
}

} // namespace lv
