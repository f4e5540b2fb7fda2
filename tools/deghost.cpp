// Ghost removal before the merge. The library marks moving content; each connected region
// of the mask then takes its pixels from one reference frame, the one with the most
// well-exposed pixels there, re-exposed to every other frame through the merge's camera
// curve (gamma 2.2), so that all frames agree inside the region and the merge shows one
// sharp copy of whatever moved.
#include "ghost_tools.h"

#include <lumivantor/ghost.h>
#include <lumivantor/merge.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

namespace lvhdr {
namespace {

// Luminance band (54 R + 183 G + 19 B on 8-bit levels) that counts as well exposed.
constexpr int well_low = 20 * 256, well_high = 235 * 256;

// 8-bit RGB views of every frame, end to end: the high bytes of 16-bit frames (8-bit
// frames are their own views, and this stays empty).
std::vector<uint8_t> views_of(const Bracket &b) {
    const size_t per = size_t(b.width) * b.height * 3;
    if (b.bits == 8) return {};
    std::vector<uint8_t> views(per * size_t(b.count));
    const auto *src = reinterpret_cast<const uint16_t *>(b.samples.data());
    for (int i = 0; i < b.count; ++i)
        generateOriginalFrom16Bit(b.width, b.height, 3 * b.width, 3 * b.width, 3, src + per * i,
                                  views.data() + per * i);
    return views;
}

// The merge's exposure factors: the given ones, or derived from the images' brightness as
// the merge derives them (an even bracket of `step` stops, or from the measures alone).
void merge_exposures(const Bracket &b, ExposureSource source, float step,
                     std::vector<float> &exposures) {
    exposures.resize(size_t(b.count), 1.0f);
    if (source == ExposureSource::given || b.count < 2) return;
    std::vector<int32_t> measure(size_t(b.count));
    mediane_images(b.count, b.width, b.height, 3 * b.width, 3, b.bits, b.samples.data(),
                   measure.data());
    guess_ev(0, b.count, measure.data(), exposures.data(),
             source == ExposureSource::even_step ? step : 0.0f);
}

// Region labels from the detector's bit mask: 8-connected blobs, numbered from 1.
int detect_regions(const Bracket &b, std::vector<float> &exposures, float sensitivity,
                   cv::Mat &labels, double &seconds, std::string &error) {
    const size_t pixels = size_t(b.width) * b.height;
    std::vector<uint8_t> bits((pixels + 7) / 8, 0);
    Stopwatch clock;
    const int rc = lv_ghost_detect(&sensitivity, b.count, b.width, b.height, 3, b.bits, 0,
                                   exposures.data(), b.samples.data(), bits.data(), -1.0f);
    seconds = clock.lap();
    if (rc < 0) {
        error = rc == -4 ? "out of memory in ghost detection" : "ghost detection failed";
        return -1;
    }
    cv::Mat mask(b.height, b.width, CV_8UC1);
    for (size_t i = 0; i < pixels; ++i)
        mask.data[i] = (bits[i / 8] >> (7 - i % 8)) & 1 ? 255 : 0;
    return cv::connectedComponents(mask, labels, 8, CV_32S) - 1;
}

// Region labels from a selection file: each closed outline filled with its number; its
// exposure, when it names a frame, is that region's reference.
int read_selection(const Bracket &b, const std::string &path, cv::Mat &labels,
                   std::vector<int> &reference, std::string &error) {
    int32_t w = 0, h = 0, n = 0;
    const int total = get_mask_info(path.c_str(), &w, &h, &n);
    if (total < 0 || n < 1 || w < 1) {
        error = total < 0 ? "not a readable selection file" : "no selection in the file";
        return -1;
    }
    if (w != b.width || h != b.height) {
        error = "the selection is for " + std::to_string(w) + "x" + std::to_string(h) +
                " images, the bracket is " + std::to_string(b.width) + "x" +
                std::to_string(b.height);
        return -1;
    }
    const size_t count = static_cast<size_t>(n);
    std::vector<int32_t> exps(count), points(count);
    std::vector<int32_t> coords(2 * static_cast<size_t>(std::max(total, 1)));
    if (get_mask_data(path.c_str(), exps.data(), points.data(), coords.data()) < 0) {
        error = "the selection file can't be read";
        return -1;
    }
    labels = cv::Mat::zeros(b.height, b.width, CV_32S);
    size_t at = 0;
    for (int s = 0; s < n; ++s) {
        std::vector<cv::Point> outline;
        for (int k = 0; k < points[size_t(s)] && at + 1 < coords.size(); ++k, at += 2)
            outline.emplace_back(coords[at], coords[at + 1]);
        if (outline.size() >= 3)
            cv::fillPoly(labels, std::vector<std::vector<cv::Point>>{outline}, cv::Scalar(s + 1));
        reference.push_back(exps[size_t(s)] >= 0 && exps[size_t(s)] < b.count ? exps[size_t(s)]
                                                                              : -1);
    }
    return n;
}

// Sets every frame inside the region to the reference frame's exposure-scaled values.
template <class T>
long long reexpose(Bracket &b, const cv::Mat &labels, int label, const cv::Rect &box, int ref,
                   const std::vector<float> &exposures) {
    const double full = b.bits == 16 ? 65535.0 : 255.0;
    const size_t per = size_t(b.width) * b.height * 3;
    T *frames = reinterpret_cast<T *>(b.samples.data());
    long long count = 0;
    for (int y = box.y; y < box.y + box.height; ++y)
        for (int x = box.x; x < box.x + box.width; ++x) {
            if (labels.at<int32_t>(y, x) != label) continue;
            ++count;
            const size_t at = (size_t(y) * b.width + x) * 3;
            for (int c = 0; c < 3; ++c) {
                const double linear = std::pow(frames[per * ref + at + c] / full, 2.2);
                for (int i = 0; i < b.count; ++i) {
                    if (i == ref) continue;
                    const double v =
                        std::min(linear * exposures[size_t(i)] / exposures[size_t(ref)], 1.0);
                    frames[per * i + at + c] =
                        static_cast<T>(std::lround(full * std::pow(v, 1 / 2.2)));
                }
            }
        }
    return count;
}

// The middle frame with the regions tinted red, as the user checks them.
bool write_mask_preview(const Bracket &b, const uint8_t *views, const cv::Mat &labels,
                        const std::string &path, std::string &error) {
    Image preview;
    preview.width = b.width;
    preview.height = b.height;
    const size_t per = size_t(b.width) * b.height * 3;
    const uint8_t *mid = views + per * size_t(b.count / 2);
    preview.pixels.assign(mid, mid + per);
    for (size_t i = 0; i < per / 3; ++i) {
        if (!reinterpret_cast<const int32_t *>(labels.data)[i]) continue;
        uint8_t *p = &preview.pixels[3 * i];
        p[0] = uint8_t((p[0] + 255) / 2);
        p[1] = uint8_t(p[1] / 2);
        p[2] = uint8_t(p[2] / 2);
    }
    return write_image(path, preview, error);
}

// Each region's outer outline as one selection, its reference frame as the exposure.
bool save_selection(const Bracket &b, const cv::Mat &labels, const std::vector<cv::Rect> &boxes,
                    const std::vector<int> &reference, const std::string &path,
                    std::string &error) {
    std::vector<int32_t> exps, points, coords;
    for (int r = 1; r <= int(boxes.size()); ++r) {
        std::vector<std::vector<cv::Point>> contours;
        const cv::Rect &box = boxes[size_t(r - 1)];
        if (box.width < 1) continue;
        cv::findContours(labels(box) == r, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE,
                         box.tl());
        for (const auto &c : contours) {
            exps.push_back(reference[size_t(r - 1)]);
            points.push_back(int32_t(c.size()));
            for (const cv::Point &p : c) {
                coords.push_back(p.x);
                coords.push_back(p.y);
            }
        }
    }
    if (exps.empty()) {
        error = "no ghost region to save";
        return false;
    }
    return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
        if (write_ghost_mask(tmp.c_str(), b.width, b.height, int(exps.size()), exps.data(),
                             points.data(), coords.data()) >= 0)
            return true;
        err = "can't write the selection file";
        return false;
    });
}

// Bounding box of each region 1..regions, found in one pass; empty for a region without
// pixels.
std::vector<cv::Rect> region_boxes(const cv::Mat &labels, int regions) {
    std::vector<int> x0(size_t(regions), INT32_MAX), y0(x0), x1(size_t(regions), -1), y1(x1);
    for (int y = 0; y < labels.rows; ++y) {
        const int32_t *row = labels.ptr<int32_t>(y);
        for (int x = 0; x < labels.cols; ++x) {
            const int r = row[x] - 1;
            if (r < 0 || r >= regions) continue;
            x0[size_t(r)] = std::min(x0[size_t(r)], x);
            x1[size_t(r)] = std::max(x1[size_t(r)], x);
            y0[size_t(r)] = std::min(y0[size_t(r)], y);
            y1[size_t(r)] = std::max(y1[size_t(r)], y);
        }
    }
    std::vector<cv::Rect> boxes(static_cast<size_t>(regions));
    for (size_t r = 0; r < boxes.size(); ++r)
        if (x1[r] >= 0) boxes[r] = cv::Rect(x0[r], y0[r], x1[r] - x0[r] + 1, y1[r] - y0[r] + 1);
    return boxes;
}

} // namespace

bool deghost_bracket(Bracket &b, ExposureSource source, float step, std::vector<float> &exposures,
                     const DeghostOptions &options, DeghostReport &report, std::string &error) {
    cv::Mat labels;
    std::vector<int> reference;
    int regions;
    try {
        merge_exposures(b, source, step, exposures);
        double seconds = 0;
        regions = options.selection.empty()
                      ? detect_regions(b, exposures, options.sensitivity, labels, seconds, error)
                      : read_selection(b, options.selection, labels, reference, error);
        if (regions < 0) return false;
        reference.resize(size_t(regions), -1);
        const std::vector<uint8_t> copies = views_of(b);
        const uint8_t *views = b.bits == 8 ? b.samples.data() : copies.data();
        const std::vector<cv::Rect> boxes = region_boxes(labels, regions);
        std::vector<int64_t> counts(size_t(b.count));
        // References are chosen, and the preview taken, before any frame changes.
        for (int r = 0; r < regions; ++r) {
            const cv::Rect &box = boxes[size_t(r)];
            if (reference[size_t(r)] >= 0 || box.width < 1) continue;
            getWellExposedCount(3 * b.width, b.height, b.count, well_low, well_high, counts.data(),
                                views, float(box.x), float(box.y), float(box.x + box.width),
                                float(box.y + box.height));
            reference[size_t(r)] =
                int(std::max_element(counts.begin(), counts.end()) - counts.begin());
        }
        if (!options.mask_png.empty() &&
            !write_mask_preview(b, views, labels, options.mask_png, error))
            return false;
        report = DeghostReport{regions, 0, seconds, reference};
        for (int r = 0; r < regions; ++r) {
            const cv::Rect &box = boxes[size_t(r)];
            const int ref = std::max(reference[size_t(r)], 0);
            if (box.width < 1) continue;
            report.pixels += b.bits == 16
                                 ? reexpose<uint16_t>(b, labels, r + 1, box, ref, exposures)
                                 : reexpose<uint8_t>(b, labels, r + 1, box, ref, exposures);
        }
        if (!options.save_selection.empty() &&
            !save_selection(b, labels, boxes, reference, options.save_selection, error))
            return false;
    } catch (const cv::Exception &e) {
        error = std::string("ghost regions: ") + e.what();
        return false;
    }
    return true;
}

} // namespace lvhdr

namespace lvhdr {

bool deghost_options(const ParsedArgs &args, DeghostOptions &options, std::string &error) {
    double t = options.sensitivity;
    if (args.has("--ghost-sensitivity") &&
        !parse_number("--ghost-sensitivity", args.get("--ghost-sensitivity"), 40, 100, t, error))
        return false;
    options.sensitivity = float(t);
    options.selection = args.get("--selection");
    options.mask_png = args.get("--ghost-mask");
    options.save_selection = args.get("--save-selection");
    if (!args.has("--deghost") && !args.has("--selection") &&
        (args.has("--ghost-mask") || args.has("--save-selection") ||
         args.has("--ghost-sensitivity"))) {
        error = "--ghost-mask, --save-selection and --ghost-sensitivity go with --deghost";
        return false;
    }
    if (!options.mask_png.empty() && extension_of(options.mask_png) != "png") {
        error = "the ghost mask is written as PNG (--ghost-mask FILE.png)";
        return false;
    }
    return true;
}

bool deghost_and_report(Bracket &bracket, ExposureSource &source, float step,
                        std::vector<float> &exposures, const DeghostOptions &options,
                        std::string &error) {
    DeghostReport report;
    if (!deghost_bracket(bracket, source, step, exposures, options, report, error)) return false;
    source = ExposureSource::given;
    std::printf("ghosts: %d region%s, %lld pixels (%.2f %% of the frame)", report.regions,
                report.regions == 1 ? "" : "s", report.pixels,
                100.0 * double(report.pixels) / (double(bracket.width) * bracket.height));
    if (options.selection.empty())
        std::printf(", found in %.3f s\n", report.detect_seconds);
    else
        std::printf(" from the selection\n");
    std::vector<int> taken(size_t(bracket.count), 0);
    for (int r : report.reference)
        ++taken[size_t(r)];
    for (int i = 0; i < bracket.count; ++i)
        if (taken[size_t(i)])
            std::printf("  frame %d is the reference of %d region%s\n", i + 1, taken[size_t(i)],
                        taken[size_t(i)] == 1 ? "" : "s");
    if (!options.mask_png.empty()) std::printf("wrote %s\n", options.mask_png.c_str());
    if (!options.save_selection.empty()) std::printf("wrote %s\n", options.save_selection.c_str());
    return true;
}

} // namespace lvhdr
