// The project's own test bracket: a synthetic HDR scene of known radiance, photographed
// by a simulated camera at five exposures two stops apart.
#pragma once

#include "hdr_pipeline.h"
#include "image_io.h"

#include <cstdint>
#include <vector>

namespace lvhdr {

// Linear scene radiance, interleaved RGB floats. A mid-grey card in the light reads 1.
struct Scene {
    int width = 0;
    int height = 0;
    std::vector<float> rgb;
};

// A sunlit street corner: the sun and its glow in a blue sky, a brick wall in shadow with
// fine grating and a dark doorway, a lamp-lit window, sunlit paving and a chart of six
// saturated and six neutral patches. It spans about 20 stops.
Scene render_scene(int width, int height);

// Luminance range of the scene in stops (brightest over darkest pixel).
double scene_stops(const Scene &scene);

// The simulated camera: exposure factor times radiance is the sensor signal, full scale
// at 1, with shot and read noise, clipped, then coded by a 1/2.2 power curve to 8 bits.
struct Camera {
    double full_well = 20000.0; // electrons at full scale: sets the shot noise
    double read_noise = 4.0;    // electrons
    uint32_t seed = 1;
};

// Exposure factors of the five demo frames, darkest first, two stops apart.
std::vector<float> demo_exposures();

// Photographs the scene once per exposure factor.
std::vector<Image> photograph(const Scene &scene, const std::vector<float> &exposures,
                              const Camera &camera);

// How close a merge came to the true radiance.
struct Accuracy {
    double median_error = 0; // median relative luminance error of the measured pixels
    double p90_error = 0;    // 90th percentile of the same
    double scale = 0;        // merged / true, the radiance unit of the merge
    size_t pixels = 0;       // pixels measured
};

// Compares a merge with the truth on the pixels that some frame recorded unclipped and
// above the noise floor. The merge's radiance unit is arbitrary (only exposure ratios
// matter), so one global scale, the median ratio, is divided out first.
Accuracy measure_accuracy(const Scene &truth, const HdrImage &merged,
                          const std::vector<float> &exposures);

// Box-filters an 8- or 16-bit image down by an integer factor.
Image shrink(const Image &image, int factor);

} // namespace lvhdr
