// lvhdr's hand-held bracket support: aligning frames, removing ghosts before the merge, and
// merging whole shoots of brackets.
#pragma once

#include "cli.h"
#include "hdr_pipeline.h"
#include "image_io.h"

#include <string>
#include <vector>

namespace lvhdr {

// Translation that brings a frame onto the reference frame: aligned(x, y) = frame(x - dx, y - dy).
struct Shift {
    int dx = 0;
    int dy = 0;
};

// Finds each frame's shift against the middle frame with median threshold bitmaps (robust to
// the exposure differences of a bracket) and crops every frame to the area they all cover.
// shifts receives one entry per frame.
bool align_frames(std::vector<Image> &frames, std::vector<Shift> &shifts, std::string &error);

struct DeghostOptions {
    float sensitivity = 90.0f;  // larger finds fewer ghosts
    std::string selection;      // a saved selection used instead of detection
    std::string mask_png;       // the mask over a preview, for the user to check
    std::string save_selection; // the regions' outlines as a selection file
};

// What the ghost removal found and did, for the report.
struct DeghostReport {
    int regions = 0;
    long long pixels = 0;
    double detect_seconds = 0;  // the library's detection alone
    std::vector<int> reference; // frame taken inside each region
};

// Detects moving content (or reads a selection) and, inside each region, replaces every
// frame's pixels with one reference frame's, re-exposed through the merge's camera curve, so
// that the merge shows one copy of whatever moved. exposures are the merge's input: given
// factors, or derived here (even_step, derived) and returned.
bool deghost_bracket(Bracket &bracket, ExposureSource source, float step,
                     std::vector<float> &exposures, const DeghostOptions &options,
                     DeghostReport &report, std::string &error);

// merge's option glue: reads --ghost-sensitivity and the ghost file options; aligns and
// prints each frame's shift; removes ghosts and prints what was found. After a removal the
// exposures it used are the merge's (source becomes given).
bool deghost_options(const ParsedArgs &args, DeghostOptions &options, std::string &error);
bool align_and_report(std::vector<Image> &frames, const std::vector<std::string> &names,
                      std::string &error);
bool deghost_and_report(Bracket &bracket, ExposureSource &source, float step,
                        std::vector<float> &exposures, const DeghostOptions &options,
                        std::string &error);

// lvhdr merge --batch N|auto -o OUTDIR: merges each group of frames with the other options
// of the command line; returns the exit code.
int run_batch(const ParsedArgs &args);

} // namespace lvhdr
