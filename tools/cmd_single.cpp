// lvhdr single: one photograph turned into simulated exposures and fused, for a
// high-dynamic-range look when there is no bracket.
#include "cli.h"
#include "commands.h"
#include "fuse_pipeline.h"
#include "image_io.h"
#include "interrupt.h"
#include "progress_bar.h"

#include <lumivantor/lumivantor.h>

#include <cstdio>
#include <sstream>

namespace lvhdr {
namespace {

const char *single_help =
    "usage: lvhdr single [options] -o OUT.png|OUT.jpg|OUT.tif IN\n"
    "\n"
    "Turns one 8- or 16-bit photograph into four simulated exposures and fuses a choice of\n"
    "them, with the photograph itself, by exposure fusion: an HDR look from a single frame.\n"
    "The four: 0 brighter midtones (gamma 2); 1 lifted shadows, black point at 20 %, more\n"
    "colour; 2 and 3 half and 0.8 of a stop up in lightness from gamma-encoded levels, which\n"
    "makes them very bright on ordinary photographs. By default the photograph, 0 and 1 are\n"
    "fused and 2 and 3 are left out; --use picks others (a dark photograph gains from them).\n"
    "\n"
    "options:\n"
    "  -o, --output FILE    the picture to write; its extension picks the format\n"
    "  --use LIST           what to fuse, from photo,0,1,2,3 (default photo,0,1)\n"
    "  --method M           plain (default) or two-stage fusion\n"
    "  --write-exposures P  also write the four exposures as P0.png .. P3.png\n"
    "  --threads N          worker threads, 1..64 (default 2)\n"
    "  --timings            print how long the work took\n"
    "  -h, --help           show this help\n"
    "\n"
    "Ctrl-C stops the work and leaves no output file.\n";

// Parses "photo,0,1" into flags: index 4 is the photograph, 0..3 the exposures.
bool parse_use(const std::string &text, bool use[5], std::string &err) {
    std::fill(use, use + 5, false);
    std::stringstream in(text);
    int picked = 0;
    for (std::string item; std::getline(in, item, ',');) {
        if (item == "photo")
            use[4] = true;
        else if (item.size() == 1 && item[0] >= '0' && item[0] <= '3')
            use[item[0] - '0'] = true;
        else {
            err = "option '--use' takes photo, 0, 1, 2 or 3, not '" + item + "'";
            return false;
        }
        ++picked;
    }
    if (std::count(use, use + 5, true) < 2) {
        err = "option '--use' needs at least two pictures to fuse";
        return false;
    }
    return picked > 0;
}

} // namespace

int cmd_single(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--use", nullptr, true},
                     {"--method", "-m", true},
                     {"--write-exposures", nullptr, true},
                     {"--threads", nullptr, true},
                     {"--timings", nullptr, false}},
                    args, err))
        return usage_error("single", err);
    if (args.has("--help")) {
        std::fputs(single_help, stdout);
        return exit_ok;
    }
    const std::string out_path = args.get("--output");
    if (out_path.empty()) return usage_error("single", "no output file given (-o OUT.png)");
    const std::string ext = extension_of(out_path);
    if (ext != "png" && ext != "jpg" && ext != "jpeg" && ext != "tif" && ext != "tiff")
        return usage_error("single", "the output must end in .png, .jpg or .tif");
    if (args.positional.size() != 1)
        return usage_error("single", args.positional.empty() ? "no input photograph given"
                                                             : "give exactly one photograph");
    bool use[5];
    if (!parse_use(args.get("--use", "photo,0,1"), use, err)) return usage_error("single", err);
    const std::string method = args.get("--method", "plain");
    if (method != "plain" && method != "two-stage")
        return usage_error("single", "unknown method '" + method + "' (plain or two-stage)");
    double threads = 2;
    if (args.has("--threads") &&
        !parse_number("--threads", args.get("--threads"), 1, 64, threads, err))
        return usage_error("single", err);

    const std::string &in_path = args.positional[0];
    if (sniff_file(in_path) == FileKind::missing) return fail(in_path, "no such file");
    Stopwatch clock;
    Image photo;
    if (!read_image(in_path, photo, err)) return fail(in_path, err);

    InterruptGuard guard;
    std::vector<uint8_t> fakes(4 * photo.bytes());
    {
        ProgressBar bar("exposures");
        const int w = photo.width;
        if (createFakeExposures(int(threads), w, photo.height, 3, 3 * w, 3 * w, 0, 0, photo.bits,
                                photo.bits, photo.pixels.data(), fakes.data(),
                                progress_or_cancel) < 0)
            return fail("single", "interrupted");
    }
    Bracket bracket;
    bracket.planned = int(std::count(use, use + 5, true));
    for (int k = 0; k < 5; ++k) {
        Image frame = photo;
        if (k < 4)
            frame.pixels.assign(fakes.begin() + k * photo.bytes(),
                                fakes.begin() + (k + 1) * photo.bytes());
        if (k < 4 && args.has("--write-exposures") &&
            !write_image(args.get("--write-exposures") + std::to_string(k) + ".png", frame, err))
            return fail(args.get("--write-exposures") + std::to_string(k) + ".png", err);
        if (use[k] && !bracket.add(frame, err)) return fail(in_path, err);
    }
    fakes = {};

    FuseSettings settings;
    settings.two_stage = method == "two-stage";
    settings.bits = photo.bits == 16 && ext != "jpg" && ext != "jpeg" ? 16 : 8;
    settings.threads = int(threads);
    settings.callback = progress_or_cancel;
    Image out;
    {
        ProgressBar bar("fusing");
        if (fuse_bracket(bracket, settings, out, err) < 0 || interrupted())
            return fail("single", interrupted() ? "interrupted" : err);
    }
    const double t_work = clock.lap();
    if (!write_image(out_path, out, err)) return fail(out_path, err);
    std::printf("fused %d pictures of %s (%dx%d) into %s\n", bracket.count, in_path.c_str(),
                out.width, out.height, out_path.c_str());
    if (args.has("--timings")) std::printf("timings: read, expose and fuse %.3f s\n", t_work);
    return exit_ok;
}

} // namespace lvhdr
