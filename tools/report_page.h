// The visual report of lvhdr demo and lvhdr report: one self-contained HTML page in the
// output folder that shows the bracket, the merged HDR at several exposures, every tone
// mapper and fusion method side by side with settings and time, the merge's error and the
// HDR's luminance histogram. Images are relative files beside the page; the plots are
// inline SVG drawn here; nothing is fetched from the network.
#pragma once

#include "hdr_pipeline.h"
#include "image_io.h"

#include <string>
#include <vector>

namespace lvhdr {

struct Scene;

// One picture on the page: a thumbnail shown in the grid and the full-size file a click
// opens. Both are file names relative to the page.
struct PageImage {
    std::string thumb;
    std::string full;
    std::string caption;  // e.g. the operator's name or the frame's exposure
    std::string settings; // one line of settings, may be empty
    double seconds = -1;  // time the result took; negative when not timed
    int width = 0;        // of the thumbnail, so the page lays out before images load
    int height = 0;
};

// The merge's relative luminance error over one stop of true scene luminance.
struct ErrorBin {
    double stops = 0; // log2 of the true luminance at the bin's centre
    double median_error = 0;
    double p90_error = 0;
    size_t pixels = 0;
};

// Everything the page shows, in order.
struct ReportPage {
    std::string title;
    std::vector<std::string> summary; // lines under the title
    std::vector<PageImage> bracket;
    std::vector<PageImage> exposures;  // the merged HDR at several exposures
    std::vector<PageImage> results;    // tone mappers and fusion methods
    std::vector<std::string> accuracy; // the merge's error as lines of numbers
    std::vector<ErrorBin> error_by_luminance;
    double histogram_first_stop = 0; // log2 luminance at the left edge of the first bin
    double histogram_bin_stops = 0.25;
    std::vector<size_t> histogram; // pixel counts per bin of log2 luminance
};

// Writes DIR/index.html all-or-nothing.
bool write_report_page(const std::string &dir, const ReportPage &page, std::string &error);

// Text made safe inside HTML elements and quoted attributes.
std::string html_escape(const std::string &text);

// Inline SVG plots: the merge's error against luminance and the histogram in stops.
std::string error_plot_svg(const std::vector<ErrorBin> &bins);
std::string histogram_svg(const std::vector<size_t> &counts, double first_stop, double bin_stops);

// --- Building the page's pictures (report_build.cpp) ---

// Luminance histogram of the HDR in bins of `bin_stops` stops of log2 luminance; black
// pixels are left out. first_stop receives the left edge of the first bin.
std::vector<size_t> luminance_histogram(const HdrImage &hdr, double bin_stops, double &first_stop);

// The HDR as an 8-bit picture at `stops` from an exposure that puts the image's log-mean
// luminance at mid-grey, coded with a 1/2.2 power curve.
Image exposure_view(const HdrImage &hdr, double stops);

// Writes `picture` as FULL (full size) and THUMB (at most `side` pixels wide) in dir and
// fills in the page entry's files and thumbnail size.
bool add_picture(const std::string &dir, const std::string &name, const Image &picture, int side,
                 PageImage &entry, std::string &error);

// Bracket thumbnails captioned with their exposures relative to the darkest frame.
bool add_bracket(const std::string &dir, const std::vector<Image> &frames,
                 const std::vector<float> &exposures, const std::vector<std::string> &labels,
                 ReportPage &page, std::string &error);

// The HDR at a few exposures and its histogram.
bool add_hdr_views(const std::string &dir, const HdrImage &hdr, ReportPage &page,
                   std::string &error);

// Runs every tone mapper on the HDR and every fusion method on the bracket, timing each,
// and adds their pictures, all at one size. `look` sets the global operator's sliders.
bool add_results(const std::string &dir, HdrImage &hdr, const std::vector<Image> &frames,
                 const ToneSettings &look, ReportPage &page, std::string &error);

// The merge's error against the true radiance by stop of true luminance, on the pixels
// that some frame recorded, after dividing out the merge's radiance unit `scale`.
std::vector<ErrorBin> error_by_luminance(const Scene &truth, const HdrImage &merged,
                                         const std::vector<float> &exposures, double scale);

} // namespace lvhdr
