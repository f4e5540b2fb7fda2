// The report page's pictures and numbers: thumbnails of the bracket, exposure views and
// the histogram of the HDR, every operator's result, and the merge's error by luminance.
#include "cli.h"
#include "fuse_pipeline.h"
#include "progress_bar.h"
#include "report_page.h"
#include "synth_bracket.h"
#include "tonemap_enhancer.h"
#include "tonemap_optimizer.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <thread>

namespace lvhdr {
namespace {

// The width of the thumbnails of results; frames and exposure views are smaller.
constexpr int result_side = 480;
constexpr int small_side = 320;

double luma(const float *rgb) {
    return 0.2126 * rgb[0] + 0.7152 * rgb[1] + 0.0722 * rgb[2];
}

Image to_8bit(const Image &image) {
    if (image.bits == 8) return image;
    Image out;
    out.width = image.width;
    out.height = image.height;
    out.pixels.resize(out.bytes());
    const auto *wide = reinterpret_cast<const uint16_t *>(image.pixels.data());
    for (size_t i = 0; i < out.pixels.size(); ++i)
        out.pixels[i] = uint8_t((wide[i] + 128u) / 257u);
    return out;
}

std::string stops_label(double stops) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%+.1f EV", stops);
    return buf;
}

} // namespace

std::vector<size_t> luminance_histogram(const HdrImage &hdr, double bin_stops, double &first_stop) {
    std::vector<double> logs;
    logs.reserve(size_t(hdr.width) * hdr.height);
    for (int y = 0; y < hdr.height; ++y)
        for (int x = 0; x < hdr.width; ++x) {
            float rgb[3];
            rgbe_pixel(hdr, x, y, rgb);
            const double l = luma(rgb);
            if (l > 0) logs.push_back(std::log2(l));
        }
    first_stop = 0;
    if (logs.empty()) return {};
    const auto [lo, hi] = std::minmax_element(logs.begin(), logs.end());
    first_stop = std::floor(*lo / bin_stops) * bin_stops;
    const size_t bins = size_t(std::floor((*hi - first_stop) / bin_stops)) + 1;
    std::vector<size_t> counts(bins, 0);
    for (double v : logs)
        ++counts[std::min(bins - 1, size_t((v - first_stop) / bin_stops))];
    return counts;
}

Image exposure_view(const HdrImage &hdr, double stops) {
    // The log-mean luminance (the scene's key) goes to mid-grey at 0 EV.
    double sum = 0;
    size_t n = 0;
    for (int y = 0; y < hdr.height; ++y)
        for (int x = 0; x < hdr.width; ++x) {
            float rgb[3];
            rgbe_pixel(hdr, x, y, rgb);
            const double l = luma(rgb);
            if (l > 0) {
                sum += std::log(l);
                ++n;
            }
        }
    const double key = n ? std::exp(sum / double(n)) : 1.0;
    const double gain = 0.18 / key * std::exp2(stops);
    Image out;
    out.width = hdr.width;
    out.height = hdr.height;
    out.pixels.resize(out.bytes());
    for (int y = 0; y < hdr.height; ++y)
        for (int x = 0; x < hdr.width; ++x) {
            float rgb[3];
            rgbe_pixel(hdr, x, y, rgb);
            for (int c = 0; c < 3; ++c) {
                const double v = std::clamp(rgb[c] * gain, 0.0, 1.0);
                out.pixels[3 * (size_t(y) * hdr.width + x) + c] =
                    uint8_t(std::lround(255 * std::pow(v, 1 / 2.2)));
            }
        }
    return out;
}

bool add_picture(const std::string &dir, const std::string &name, const Image &picture, int side,
                 PageImage &entry, std::string &error) {
    const int factor = std::max(1, (picture.width + side - 1) / side);
    const Image full = to_8bit(picture);
    const Image thumb = factor > 1 ? to_8bit(shrink(picture, factor)) : full;
    entry.full = name + ".jpg";
    entry.thumb = factor > 1 ? name + "-thumb.jpg" : entry.full;
    entry.width = thumb.width;
    entry.height = thumb.height;
    if (!write_image(dir + "/" + entry.full, full, error)) {
        error = entry.full + ": " + error;
        return false;
    }
    if (factor > 1 && !write_image(dir + "/" + entry.thumb, thumb, error)) {
        error = entry.thumb + ": " + error;
        return false;
    }
    return true;
}

bool add_bracket(const std::string &dir, const std::vector<Image> &frames,
                 const std::vector<float> &exposures, const std::vector<std::string> &labels,
                 ReportPage &page, std::string &error) {
    const float darkest = *std::min_element(exposures.begin(), exposures.end());
    for (size_t i = 0; i < frames.size(); ++i) {
        PageImage entry;
        entry.caption = "frame " + std::to_string(i + 1) + ", " +
                        stops_label(std::log2(exposures[i] / darkest));
        if (i < labels.size()) entry.settings = labels[i];
        if (!add_picture(dir, "frame-" + std::to_string(i + 1), frames[i], small_side, entry,
                         error))
            return false;
        page.bracket.push_back(entry);
    }
    return true;
}

bool add_hdr_views(const std::string &dir, const HdrImage &hdr, ReportPage &page,
                   std::string &error) {
    for (double stops : {-6.0, -4.0, -2.0, 0.0, 2.0}) {
        PageImage entry;
        entry.caption = "HDR at " + stops_label(stops);
        entry.settings = "linear, 1/2.2 power curve, clipped";
        const std::string name = "hdr-ev" + std::to_string(int(stops));
        if (!add_picture(dir, name, exposure_view(hdr, stops), small_side, entry, error))
            return false;
        page.exposures.push_back(entry);
    }
    page.histogram = luminance_histogram(hdr, page.histogram_bin_stops, page.histogram_first_stop);
    return true;
}

bool add_results(const std::string &dir, HdrImage &hdr, const std::vector<Image> &frames,
                 const ToneSettings &look, ReportPage &page, std::string &error) {
    const int threads = std::max(1, int(std::thread::hardware_concurrency()));
    struct Operator {
        const char *file;
        const char *name;
        std::string settings;
        std::function<bool(Image &, std::string &)> run;
    };
    char simple_settings[120];
    std::snprintf(simple_settings, sizeof simple_settings,
                  "brightness %g, compression %g, saturation %g, temperature %g",
                  double(look.brightness), double(look.compression), double(look.saturation),
                  double(look.temperature));
    const OptimizerSettings opt{};
    char opt_settings[160];
    std::snprintf(opt_settings, sizeof opt_settings,
                  "compression %g, detail %g, level dependence %g, clip %g%% / %g%%",
                  double(opt.compression), double(opt.detail), double(opt.level_dependence),
                  double(opt.white_clip), double(opt.black_clip));
    // Fusion works on the frames themselves and uses its bracket as working space, so each
    // method gets a fresh copy.
    auto fuse = [&](bool two_stage) {
        return [&, two_stage](Image &out, std::string &err) {
            Bracket bracket;
            bracket.planned = int(frames.size());
            for (const Image &f : frames)
                if (!bracket.add(f, err)) return false;
            FuseSettings blend;
            blend.two_stage = two_stage;
            blend.threads = threads;
            blend.callback = &ProgressBar::callback;
            return fuse_bracket(bracket, blend, out, err) >= 0;
        };
    };
    const FuseSettings fuse_defaults{};
    char fuse_settings[120];
    std::snprintf(fuse_settings, sizeof fuse_settings, "sharpness %g, prefer %g, cutoff %g",
                  double(fuse_defaults.sharpness), double(fuse_defaults.prefer),
                  double(fuse_defaults.cutoff));
    const std::string two_stage_settings =
        fuse_settings + (", local detail " + std::to_string(int(fuse_defaults.detail)));
    std::vector<Operator> operators = {
        {"tm-simple", "Global operator", simple_settings,
         [&](Image &out, std::string &err) { return tonemap_simple(hdr, look, 8, out, err); }},
        {"tm-enhancer", "Gradient-domain enhancer", "the library's defaults",
         [&](Image &out, std::string &err) {
             return tonemap_enhancer(hdr, "", EnhancerSettings{}, 8, out, err);
         }},
        {"tm-optimizer", "Contrast optimizer", opt_settings,
         [&](Image &out, std::string &err) {
             return tonemap_optimizer(hdr, opt, 8, threads, out, err);
         }},
    };
    if (!frames.empty()) {
        operators.push_back({"fuse-plain", "Exposure fusion", fuse_settings, fuse(false)});
        operators.push_back(
            {"fuse-two-stage", "Exposure fusion, two-stage", two_stage_settings, fuse(true)});
    }
    for (const Operator &op : operators) {
        Image picture;
        Stopwatch clock;
        {
            ProgressBar bar(op.name);
            if (!op.run(picture, error)) {
                error = std::string(op.name) + ": " + error;
                return false;
            }
        }
        PageImage entry;
        entry.seconds = clock.lap();
        entry.caption = op.name;
        entry.settings = op.settings;
        if (!add_picture(dir, op.file, picture, result_side, entry, error)) return false;
        page.results.push_back(entry);
    }
    return true;
}

std::vector<ErrorBin> error_by_luminance(const Scene &truth, const HdrImage &merged,
                                         const std::vector<float> &exposures, double scale) {
    if (exposures.empty() || !(scale > 0) || merged.width != truth.width ||
        merged.height != truth.height)
        return {};
    const double darkest = *std::min_element(exposures.begin(), exposures.end());
    const double brightest = *std::max_element(exposures.begin(), exposures.end());
    // Errors gathered per whole stop of true luminance, keyed from stop -40 up.
    constexpr int offset = 40, span = 80;
    std::vector<std::vector<double>> by_stop(span);
    for (int y = 0; y < truth.height; ++y)
        for (int x = 0; x < truth.width; ++x) {
            const float *t = truth.rgb.data() + 3 * (size_t(y) * truth.width + x);
            const double peak = std::max({t[0], t[1], t[2]});
            // The same recorded pixels as the overall accuracy: unclipped in the darkest
            // frame, above the noise floor in the brightest.
            const double yt = 0.2 * t[0] + 0.7 * t[1] + 0.1 * t[2];
            if (peak * darkest > 0.95 || yt * brightest < 0.004) continue;
            float m[3];
            rgbe_pixel(merged, x, y, m);
            const double ym = 0.2 * m[0] + 0.7 * m[1] + 0.1 * m[2];
            const int stop = int(std::floor(std::log2(yt))) + offset;
            if (stop >= 0 && stop < span)
                by_stop[size_t(stop)].push_back(std::fabs(ym / yt / scale - 1));
        }
    std::vector<ErrorBin> bins;
    for (int s = 0; s < span; ++s) {
        std::vector<double> &e = by_stop[size_t(s)];
        if (e.size() < 20) continue; // too few pixels for a median worth plotting
        ErrorBin b;
        b.stops = s - offset + 0.5;
        b.pixels = e.size();
        auto mid = e.begin() + e.size() / 2, p90 = e.begin() + e.size() * 9 / 10;
        std::nth_element(e.begin(), mid, e.end());
        b.median_error = *mid;
        std::nth_element(e.begin(), p90, e.end());
        b.p90_error = *p90;
        bins.push_back(b);
    }
    return bins;
}

} // namespace lvhdr
