// lvhdr report: a photographer's own bracket merged and shown through every tone mapper
// and fusion method on one page, to see which suits the scene.
#include "capture_meta.h"
#include "cli.h"
#include "commands.h"
#include "exif_walk.h"
#include "hdr_pipeline.h"
#include "progress_bar.h"
#include "report_page.h"

#include <lumivantor/lumivantor.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/stat.h>

namespace lvhdr {
namespace {

const char *report_help =
    "usage: lvhdr report [options] -o DIR IMAGE...\n"
    "\n"
    "Merges a bracket of aligned photographs as 'lvhdr merge' does (exposures from EXIF, or\n"
    "from the images' brightness when a file has none), runs every tone mapper and fusion\n"
    "method on it, and writes DIR/index.html: the bracket, the HDR at several exposures,\n"
    "the results side by side with their settings and times, and the HDR's luminance\n"
    "histogram. The pictures are .jpg files beside the page; it needs no network.\n"
    "\n"
    "options:\n"
    "  -o, --output DIR    the folder to write (made when missing; required)\n"
    "  --derive            derive the exposures from the images even when EXIF has them\n"
    "  -h, --help          show this help\n";

int report_main(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2, {{"--output", "-o", true}, {"--derive", nullptr, false}}, args,
                    err))
        return usage_error("report", err);
    if (args.has("--help")) {
        std::fputs(report_help, stdout);
        return exit_ok;
    }
    std::string dir = args.get("--output");
    if (dir.empty()) return usage_error("report", "no output folder given (-o DIR)");
    if (args.positional.empty()) return usage_error("report", "no input images given");
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();

    const int n = int(args.positional.size());
    Bracket bracket;
    bracket.planned = n;
    std::vector<Image> frames;
    std::vector<MetadataBuf> meta(static_cast<size_t>(n));
    bool all_have_exif = true;
    {
        ProgressBar bar("decoding");
        for (int i = 0; i < n; ++i) {
            const std::string &path = args.positional[size_t(i)];
            Image frame;
            if (!read_image(path, frame, err)) return fail(path, err);
            if (uint64_t(frame.width) * uint64_t(frame.height) * uint64_t(n) > max_pixels())
                return fail(path, "the bracket is more than the limit of " +
                                      std::to_string(max_pixels()) + " pixels");
            turn_upright(frame, lvtool::read_orientation_file(path.c_str()));
            if (!bracket.add(frame, err)) return fail(path, err);
            if (!read_capture_metadata(path, meta[size_t(i)])) all_have_exif = false;
            frames.push_back(std::move(frame));
            bar.update(float(i + 1) / n);
        }
    }
    ExposureSource source = ExposureSource::derived;
    std::vector<float> exposures;
    if (!args.has("--derive") && all_have_exif && n > 1) {
        exposures = exposures_from_metadata(meta);
        source = ExposureSource::given;
        for (float e : exposures)
            if (!(e > 0)) source = ExposureSource::derived;
    }
    const char *origin = source == ExposureSource::given ? "EXIF" : "the images' brightness";
    HdrImage hdr;
    float stats[3] = {0, 0, 0};
    Stopwatch clock;
    if (!merge_bracket(bracket, source, 0, exposures, hdr, stats, err)) return fail("merge", err);
    const double merge_seconds = clock.lap();
    bracket = Bracket{};
    // The folder is made only once the bracket has merged, so a bad input leaves nothing.
    struct stat st;
    errno = 0;
    if (stat(dir.c_str(), &st) == 0 ? !S_ISDIR(st.st_mode) : mkdir(dir.c_str(), 0777) != 0)
        return fail(dir, errno ? std::strerror(errno) : "exists and is not a folder");

    ReportPage page;
    page.title = "lvhdr report: " + std::to_string(n) + " photographs, merged and tone-mapped";
    page.summary.push_back(std::to_string(hdr.width) + "x" + std::to_string(hdr.height) +
                           ", exposures from " + origin);
    char line[160];
    if (stats[0] > 0 && stats[1] > stats[0]) {
        std::snprintf(line, sizeof line, "merged in %.2f s; luminance spans %.1f stops",
                      merge_seconds, std::log2(stats[1] / stats[0]));
        page.summary.push_back(line);
    }
    page.summary.push_back("Click a picture to see it at full size.");
    std::vector<std::string> labels;
    for (int i = 0; i < n; ++i) {
        const std::string &path = args.positional[size_t(i)];
        const std::string settings = describe_exposure(meta[size_t(i)]);
        labels.push_back(path.substr(path.find_last_of('/') + 1) +
                         (settings.empty() ? "" : ", " + settings));
    }
    if (!add_bracket(dir, frames, exposures, labels, page, err) ||
        !add_hdr_views(dir, hdr, page, err) ||
        !add_results(dir, hdr, frames, ToneSettings{}, page, err) ||
        !write_report_page(dir, page, err))
        return fail(dir, err);
    std::printf("report page: %s/index.html\n", dir.c_str());
    return exit_ok;
}

} // namespace

int cmd_report(int argc, char **argv) {
    // A large bracket can still run out of memory below the decoders' limit; then the
    // report fails with one line instead of an abort.
    try {
        return report_main(argc, argv);
    } catch (const std::bad_alloc &) {
        return fail("report", "out of memory");
    }
}

} // namespace lvhdr
