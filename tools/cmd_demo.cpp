// lvhdr demo: the whole road on a bracket the tool makes itself, with the merge's error
// measured against the known radiance.
#include "cli.h"
#include "commands.h"
#include "fuse_pipeline.h"
#include "hdr_pipeline.h"
#include "progress_bar.h"
#include "report_page.h"
#include "synth_bracket.h"
#include "tonemap_enhancer.h"
#include "tonemap_optimizer.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>
#include <sys/stat.h>

namespace lvhdr {
namespace {

const char *demo_help =
    "usage: lvhdr demo [-o DIR] [--size WxH]\n"
    "\n"
    "Renders a synthetic scene of about 20 stops (sun, sky, a brick wall in shadow with a\n"
    "doorway and a lit window, sunlit paving, a colour chart), photographs it with a\n"
    "simulated camera at five exposures two stops apart, merges the bracket, writes the\n"
    ".hdr, tone-maps it and writes PNGs. Since the true radiance is known, it prints the\n"
    "merge's error against it. Files go to DIR (default demo-out):\n"
    "  bracket-1.png .. bracket-5.png   the five frames, darkest first\n"
    "  demo.hdr                         the merged HDR image\n"
    "  demo.png, demo-small.png         the enhancer's result, full size and a third\n"
    "  demo-simple.png                  the global operator's result, for comparison\n"
    "  demo-fused.png                   the bracket blended by exposure fusion\n"
    "  demo-optimizer.png               the contrast optimizer's result at its defaults\n"
    "  index.html                       a page with every step side by side; open it in a\n"
    "                                   browser (its pictures are the .jpg files beside it)\n";

bool make_folder(const std::string &dir, std::string &error) {
    struct stat st;
    if (stat(dir.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) return true;
        error = "exists and is not a folder";
        return false;
    }
    if (mkdir(dir.c_str(), 0777) != 0) {
        error = std::string("cannot create the folder: ") + std::strerror(errno);
        return false;
    }
    return true;
}

void step(const char *what, double seconds) {
    std::printf("  %-56s %7.3f s\n", what, seconds);
}

} // namespace

int cmd_demo(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2, {{"--output", "-o", true}, {"--size", nullptr, true}}, args,
                    err))
        return usage_error("demo", err);
    if (args.has("--help")) {
        std::fputs(demo_help, stdout);
        return exit_ok;
    }
    if (!args.positional.empty())
        return usage_error("demo", "unexpected argument '" + args.positional[0] + "'");
    int width = 1200, height = 900;
    if (args.has("--size")) {
        const std::string size = args.get("--size");
        char tail = 0;
        if (std::sscanf(size.c_str(), "%dx%d%c", &width, &height, &tail) != 2 || width < 96 ||
            height < 72 || width > 8000 || height > 8000)
            return usage_error("demo", "--size takes WxH between 96x72 and 8000x8000");
    }
    std::string dir = args.get("--output", "demo-out");
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    if (!make_folder(dir, err)) return fail(dir, err);

    std::printf("lvhdr demo: a synthetic %dx%d scene, bracketed, merged and tone-mapped\n", width,
                height);
    Stopwatch clock;
    const Scene scene = render_scene(width, height);
    const std::vector<float> exposures = demo_exposures();
    std::vector<Image> frames = photograph(scene, exposures, Camera{});
    char line[160];
    std::snprintf(line, sizeof line, "render scene (%.1f stops), photograph 5 frames",
                  scene_stops(scene));
    step(line, clock.lap());

    for (size_t i = 0; i < frames.size(); ++i) {
        const std::string path = dir + "/bracket-" + std::to_string(i + 1) + ".png";
        if (!write_image(path, frames[i], err)) return fail(path, err);
    }
    step("write bracket-1..5.png (2 stops apart)", clock.lap());

    Bracket bracket;
    bracket.planned = int(frames.size());
    for (const Image &f : frames)
        if (!bracket.add(f, err)) return fail("bracket", err);
    std::vector<float> used = exposures;
    HdrImage hdr;
    float stats[3];
    if (!merge_bracket(bracket, ExposureSource::given, 0, used, hdr, stats, err))
        return fail("merge", err);
    step("merge with the known exposures", clock.lap());
    const Accuracy known = measure_accuracy(scene, hdr, exposures);

    std::vector<float> derived;
    HdrImage guessed;
    if (!merge_bracket(bracket, ExposureSource::derived, 0, derived, guessed, stats, err))
        return fail("merge", err);
    step("merge with exposures derived from the images", clock.lap());
    const Accuracy blind = measure_accuracy(scene, guessed, exposures);

    // The file claims what the simulated camera shared across the bracket.
    std::snprintf(hdr.meta.camera, sizeof hdr.meta.camera, "lvhdr synthetic camera");
    hdr.meta.apertureNum = 800;
    hdr.meta.apertureDen = 100;
    hdr.meta.iso = 100;
    const std::time_t now = std::time(nullptr);
    std::strftime(hdr.meta.captureDate, sizeof hdr.meta.captureDate, "%Y:%m:%d %H:%M:%S",
                  std::localtime(&now));
    const std::string hdr_path = dir + "/demo.hdr";
    if (!write_hdr(hdr_path, hdr, err)) return fail(hdr_path, err);
    step("write demo.hdr", clock.lap());

    HdrImage reread;
    if (!read_hdr(hdr_path, reread, err)) return fail(hdr_path, err);
    step("read demo.hdr back", clock.lap());

    // A scene this wide needs the curve's stronger compression to keep the shaded wall
    // off black; a little extra brightness lifts it further.
    ToneSettings look;
    look.compression = 8;
    look.brightness = 2;
    Image picture;
    {
        ProgressBar bar("tone mapping");
        if (!tonemap_simple(reread, look, 8, picture, err)) return fail(hdr_path, err);
    }
    step("tone-map (global operator, compression 8, brightness 2)", clock.lap());
    const std::string simple_png = dir + "/demo-simple.png";
    if (!write_image(simple_png, picture, err)) return fail(simple_png, err);

    // The enhancer opens the doorway and the shaded wall that the global curve leaves
    // near black, at its default settings.
    Image enhanced;
    if (!tonemap_enhancer(reread, hdr_path, EnhancerSettings{}, 8, enhanced, err))
        return fail(hdr_path, err);
    step("tone-map (gradient-domain enhancer, defaults)", clock.lap());
    const std::string png = dir + "/demo.png", small = dir + "/demo-small.png";
    if (!write_image(png, enhanced, err)) return fail(png, err);
    if (!write_image(small, shrink(enhanced, 3), err)) return fail(small, err);
    step("write demo.png, demo-small.png and demo-simple.png", clock.lap());
    {
        Image contrast;
        {
            ProgressBar bar("contrast optimizer");
            if (!tonemap_optimizer(reread, OptimizerSettings{}, 8,
                                   std::max(1, int(std::thread::hardware_concurrency())),
                                   contrast, err))
                return fail(hdr_path, err);
        }
        const std::string path = dir + "/demo-optimizer.png";
        if (!write_image(path, contrast, err)) return fail(path, err);
        step("tone-map (contrast optimizer, defaults) and write demo-optimizer.png", clock.lap());
    }

    // The same bracket straight to a picture by exposure fusion (it uses the bracket's
    // buffer as working space, so it comes after the merges).
    Image fused;
    {
        ProgressBar bar("fusing");
        FuseSettings blend;
        blend.callback = &ProgressBar::callback;
        if (fuse_bracket(bracket, blend, fused, err) < 0) return fail("fuse", err);
    }
    const std::string fused_png = dir + "/demo-fused.png";
    if (!write_image(fused_png, fused, err)) return fail(fused_png, err);
    step("fuse the bracket and write demo-fused.png", clock.lap());

    std::printf("merge accuracy on %zu recorded pixels (median relative luminance error):\n",
                known.pixels);
    std::printf("  known exposures:   %.2f%% (90th percentile %.2f%%)\n", 100 * known.median_error,
                100 * known.p90_error);
    std::printf("  derived exposures: %.2f%% (90th percentile %.2f%%); derived steps:",
                100 * blind.median_error, 100 * blind.p90_error);
    for (size_t i = 1; i < derived.size(); ++i)
        std::printf(" %.2f", std::log2(derived[i] / derived[i - 1]));
    std::printf(" EV (true 2.00)\n");
    std::printf("results in %s/: demo.hdr, demo.png, demo-small.png, demo-simple.png, "
                "demo-optimizer.png, demo-fused.png, "
                "bracket-1..5.png\n",
                dir.c_str());

    ReportPage page;
    page.title = "lvhdr demo: a synthetic scene from bracket to picture";
    page.summary = {std::to_string(width) + "x" + std::to_string(height) + ", " +
                        std::to_string(int(std::lround(scene_stops(scene)))) +
                        " stops of scene luminance, five frames two stops apart",
                    "Click a picture to see it at full size."};
    std::snprintf(line, sizeof line, "known exposures: median error %.2f%%, 90th percentile %.2f%%",
                  100 * known.median_error, 100 * known.p90_error);
    page.accuracy.push_back(line);
    std::snprintf(line, sizeof line,
                  "exposures derived from the images: median error %.2f%%, 90th percentile %.2f%%",
                  100 * blind.median_error, 100 * blind.p90_error);
    page.accuracy.push_back(line);
    page.accuracy.push_back("measured on " + std::to_string(known.pixels) +
                            " pixels that some frame recorded; the plot is the known-exposure merge");
    page.error_by_luminance = error_by_luminance(scene, hdr, exposures, known.scale);
    if (!add_bracket(dir, frames, exposures, {}, page, err) || !add_hdr_views(dir, hdr, page, err) ||
        !add_results(dir, reread, frames, look, page, err) ||
        !write_report_page(dir, page, err))
        return fail(dir, err);
    step("write the report page and its pictures", clock.lap());
    std::printf("report page: %s/index.html\n", dir.c_str());
    return exit_ok;
}

} // namespace lvhdr
