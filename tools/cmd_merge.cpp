// lvhdr merge: a bracket of photographs to one Radiance HDR file.
#include "bracket_decode.h"
#include "capture_meta.h"
#include "cli.h"
#include "exif_walk.h"
#include "ghost_tools.h"
#include "commands.h"
#include "hdr_files.h"
#include "hdr_pipeline.h"
#include "progress_bar.h"

#include <lumivantor/lumivantor.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>

namespace lvhdr {
namespace {

const char *merge_help =
    "usage: lvhdr merge [options] -o OUT.hdr|OUT.tif|OUT.exr IMAGE...\n"
    "\n"
    "Merges a bracket of aligned photographs (8- or 16-bit JPEG, PNG, TIFF or PSD, all of one\n"
    "size) into a Radiance HDR file, a 32-bit float TIFF or an OpenEXR file. The exposures come from each file's EXIF exposure\n"
    "time, f-number and ISO; when a file has none, or with --derive, they are worked out\n"
    "from the images' brightness. The file keeps the capture settings that all frames share.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE   the .hdr, .tif or .exr file to write (required)\n"
    "  --ev-step STOPS     take the bracket as evenly spaced by STOPS (e.g. 2), ignoring EXIF\n"
    "  --times LIST        exposure times in seconds, one per image, e.g. 1/250,1/60,1/15\n"
    "  --derive            derive the exposures from the images even when EXIF has them\n"
    "  --max-pixels N      refuse brackets of more than N pixels in all (default 1073741824)\n"
    "  --timings           print how long each step took\n"
    "  --align             align hand-held frames first (median threshold bitmaps) and\n"
    "                      crop to the area all frames cover; prints each frame's shift\n"
    "  --deghost           find moving content and take it from one frame only\n"
    "  --ghost-sensitivity T  40 to 100, larger finds fewer ghosts (default 90)\n"
    "  --ghost-mask FILE   write the ghost regions over a preview of the middle frame (PNG)\n"
    "  --save-selection FILE  save the ghost regions' outlines as a selection file; each\n"
    "                      outline's E is the frame (from 0) its pixels were taken from\n"
    "  --selection FILE    take the ghost regions from a saved or edited selection file\n"
    "                      (an E that names no frame lets lvhdr pick the best exposed one)\n"
    "  --batch N|auto      merge a shoot: N frames a bracket in file order, or by the EXIF\n"
    "                      exposure sequence; -o names a folder, IMAGE may be a folder\n"
    "  -h, --help          show this help\n";

// Parses "1/250,1/60,0.5" into seconds.
bool parse_times(const std::string &list, std::vector<float> &times, std::string &error) {
    size_t start = 0;
    while (start <= list.size()) {
        const size_t comma = std::min(list.find(',', start), list.size());
        const std::string item = list.substr(start, comma - start);
        double num = 0, den = 1;
        const size_t slash = item.find('/');
        const bool ok =
            slash == std::string::npos
                ? parse_number("--times", item, 1e-6, 3600, num, error)
                : parse_number("--times", item.substr(0, slash), 1e-6, 3600, num, error) &&
                      parse_number("--times", item.substr(slash + 1), 1e-6, 1e6, den, error);
        if (!ok) return false;
        times.push_back(float(num / den));
        start = comma + 1;
    }
    return true;
}

int merge_main(int argc, char **argv);

} // namespace

int cmd_merge(int argc, char **argv) {
    // Decoders refuse sizes above the limit; memory can still run out below it, and then
    // the merge fails with one line instead of an abort.
    try {
        return merge_main(argc, argv);
    } catch (const std::bad_alloc &) {
        return fail("merge", "out of memory");
    }
}

namespace {

int merge_main(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--ev-step", nullptr, true},
                     {"--times", nullptr, true},
                     {"--derive", nullptr, false},
                     {"--max-pixels", nullptr, true},
                     {"--timings", nullptr, false},
                     {"--align", nullptr, false},
                     {"--deghost", nullptr, false},
                     {"--ghost-sensitivity", nullptr, true},
                     {"--ghost-mask", nullptr, true},
                     {"--save-selection", nullptr, true},
                     {"--selection", nullptr, true},
                     {"--batch", nullptr, true}},
                    args, err) ||
        !parse_max_pixels(args, err))
        return usage_error("merge", err);
    if (args.has("--help")) {
        std::fputs(merge_help, stdout);
        return exit_ok;
    }
    if (args.has("--batch")) return run_batch(args);
    const std::string out_path = args.get("--output");
    if (out_path.empty()) return usage_error("merge", "no output file given (-o OUT.hdr)");
    if (!is_hdr_extension(extension_of(out_path)))
        return usage_error("merge", "the output file must end in .hdr, .tif or .exr");
    if (args.positional.empty()) return usage_error("merge", "no input images given");
    double step = 0;
    if (args.has("--ev-step") &&
        !parse_number("--ev-step", args.get("--ev-step"), 0.1, 8.0, step, err))
        return usage_error("merge", err);
    if (args.has("--ev-step") + args.has("--derive") + args.has("--times") > 1)
        return usage_error("merge", "--ev-step, --times and --derive exclude each other");
    DeghostOptions ghosts;
    if (!deghost_options(args, ghosts, err)) return usage_error("merge", err);
    std::vector<float> given_times;
    if (args.has("--times")) {
        if (!parse_times(args.get("--times"), given_times, err)) return usage_error("merge", err);
        if (given_times.size() != args.positional.size())
            return usage_error("merge", "--times lists " + std::to_string(given_times.size()) +
                                            " exposures for " +
                                            std::to_string(args.positional.size()) + " images");
    }

    Stopwatch clock;
    const int n = int(args.positional.size());
    Bracket bracket;
    std::vector<MetadataBuf> meta;
    bool all_have_exif = true;
    std::string failed;
    // Alignment needs every frame decoded before any goes into the bracket.
    std::vector<Image> frames;
    const bool align = args.has("--align");
    if (!decode_bracket(args.positional, bracket, &meta, &all_have_exif, failed, err,
                        align ? &frames : nullptr))
        return fail(failed, err);
    if (align && !align_and_report(frames, args.positional, err))
        return fail(args.positional[0], err);
    for (int i = 0; align && i < n; ++i)
        if (!bracket.add(frames[size_t(i)], err)) return fail(args.positional[size_t(i)], err);
    frames.clear();
    const double t_decode = clock.lap();

    ExposureSource source = ExposureSource::given;
    std::vector<float> exposures;
    const char *origin = "EXIF";
    if (args.has("--ev-step")) {
        source = ExposureSource::even_step;
        origin = "--ev-step";
    } else if (args.has("--times")) {
        exposures = given_times; // same aperture and ISO: the time is the exposure factor
        origin = "--times";
    } else if (args.has("--derive") || !all_have_exif || n < 2) {
        source = ExposureSource::derived;
        origin = "the images' brightness";
    } else {
        exposures = exposures_from_metadata(meta);
        for (float e : exposures)
            if (!(e > 0)) source = ExposureSource::derived;
        if (source == ExposureSource::derived) origin = "the images' brightness";
    }

    if ((args.has("--deghost") || args.has("--selection")) &&
        !deghost_and_report(bracket, source, float(step), exposures, ghosts, err))
        return fail(out_path, err);

    HdrImage hdr;
    float stats[3] = {0, 0, 0};
    if (!merge_bracket(bracket, source, float(step), exposures, hdr, stats, err))
        return fail(out_path, err);
    const double t_merge = clock.lap();

    // The merged file claims only the settings that every frame shares.
    hdr.meta = meta[0];
    for (int i = 1; i < n; ++i)
        constant_exif(&hdr.meta, &meta[size_t(i)]);
    if (!save_hdr_file(out_path, hdr, err)) return fail(out_path, err);
    const double t_write = clock.lap();

    std::printf("merged %d images of %dx%d, %d-bit, exposures from %s\n", n, bracket.width,
                bracket.height, bracket.bits, origin);
    float darkest = exposures[0];
    for (float e : exposures)
        darkest = std::fmin(darkest, e);
    for (int i = 0; i < n; ++i) {
        const std::string settings = describe_exposure(meta[size_t(i)]);
        std::printf("  %-40s %+6.2f EV%s%s\n", args.positional[size_t(i)].c_str(),
                    std::log2(exposures[size_t(i)] / darkest), settings.empty() ? "" : "  ",
                    settings.c_str());
    }
    if (stats[0] > 0 && stats[1] > stats[0])
        std::printf("luminance %.4g to %.4g (%.1f stops), mean %.4g\n", stats[0] / 256.0,
                    stats[1] / 256.0, std::log2(stats[1] / stats[0]), stats[2] / 256.0);
    std::printf("wrote %s\n", out_path.c_str());
    if (args.has("--timings"))
        std::printf("timings: decode %.3f s, merge %.3f s, write %.3f s\n", t_decode, t_merge,
                    t_write);
    return exit_ok;
}

} // namespace
} // namespace lvhdr
