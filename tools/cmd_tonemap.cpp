// lvhdr tonemap: a Radiance HDR file to an 8- or 16-bit picture.
#include "cli.h"
#include "commands.h"
#include "hdr_files.h"
#include "hdr_pipeline.h"
#include "progress_bar.h"
#include "tonemap_optimizer.h"

#include <cstdio>

namespace lvhdr {
namespace {

const char *tonemap_help =
    "usage: lvhdr tonemap [options] -o OUT.png|OUT.jpg|OUT.tif IN.hdr\n"
    "\n"
    "Tone-maps a Radiance HDR file into an ordinary picture with the global operator: a\n"
    "photoreceptor curve anchored on the image's median, with the contrast set from its\n"
    "percentiles. Sliders run from -10 to 10; 0 leaves the operator's own choice.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE      the picture to write; its extension picks the format\n"
    "  --method simple        the operator (only 'simple', the global one, for now)\n"
    "  --brightness B         brighter for positive values\n"
    "  --compression C        more contrast compression for positive values\n"
    "  --saturation S         more colour for positive values\n"
    "  --temperature T        warmer for positive values, cooler for negative (260 K a step)\n"
    "  --bits 8|16            sample depth of the output (16 needs .png or .tif)\n"
    "  --timings              print how long each step took\n"
    "  -h, --help             show this help\n";

} // namespace

int cmd_tonemap(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--method", "-m", true},
                     {"--brightness", nullptr, true},
                     {"--compression", nullptr, true},
                     {"--saturation", nullptr, true},
                     {"--temperature", nullptr, true},
                     {"--bits", nullptr, true},
                     {"--timings", nullptr, false},
                     {"--detail", nullptr, true},
                     {"--level-dependence", nullptr, true},
                     {"--white-clip", nullptr, true},
                     {"--black-clip", nullptr, true},
                     {"--gamma", nullptr, true}},
                    args, err))
        return usage_error("tonemap", err);
    if (args.has("--help")) {
        std::fputs(tonemap_help, stdout);
        std::fputs(tonemap_optimizer_help, stdout);
        return exit_ok;
    }
    const std::string method = args.get("--method", "simple");
    if (method == "optimizer") return cmd_tonemap_optimizer(args);
    if (method != "simple")
        return usage_error("tonemap", "unknown method '" + method + "' (available: simple)");
    const std::string out_path = args.get("--output");
    if (out_path.empty()) return usage_error("tonemap", "no output file given (-o OUT.png)");
    const std::string ext = extension_of(out_path);
    if (ext != "png" && ext != "jpg" && ext != "jpeg" && ext != "tif" && ext != "tiff")
        return usage_error("tonemap", "the output must end in .png, .jpg or .tif");
    if (args.positional.size() != 1)
        return usage_error("tonemap", args.positional.empty() ? "no input .hdr file given"
                                                              : "give exactly one input file");
    ToneSettings settings;
    struct Slider {
        const char *name;
        float *value;
    } sliders[] = {{"--brightness", &settings.brightness},
                   {"--compression", &settings.compression},
                   {"--saturation", &settings.saturation},
                   {"--temperature", &settings.temperature}};
    for (const auto &s : sliders) {
        double v = 0;
        if (args.has(s.name) && !parse_number(s.name, args.get(s.name), -10, 10, v, err))
            return usage_error("tonemap", err);
        *s.value = float(v);
    }
    double bits = 8;
    if (args.has("--bits") && (!parse_number("--bits", args.get("--bits"), 8, 16, bits, err) ||
                               (bits != 8 && bits != 16)))
        return usage_error("tonemap", err.empty() ? "--bits takes 8 or 16" : err);
    if (bits == 16 && (ext == "jpg" || ext == "jpeg"))
        return usage_error("tonemap", "JPEG holds 8 bits a sample; use .png or .tif for 16");

    const std::string &in_path = args.positional[0];
    if (sniff_file(in_path) == FileKind::missing) return fail(in_path, "no such file");
    Stopwatch clock;
    HdrImage hdr;
    if (!load_hdr_file(in_path, hdr, err)) return fail(in_path, err);
    const double t_read = clock.lap();
    Image picture;
    {
        ProgressBar bar("tone mapping");
        if (!tonemap_simple(hdr, settings, int(bits), picture, err)) return fail(in_path, err);
    }
    const double t_map = clock.lap();
    if (!write_image(out_path, picture, err)) return fail(out_path, err);
    const double t_write = clock.lap();
    std::printf("tone-mapped %s (%dx%d) to %s, %d-bit\n", in_path.c_str(), hdr.width, hdr.height,
                out_path.c_str(), int(bits));
    if (args.has("--timings"))
        std::printf("timings: read %.3f s, tonemap %.3f s, write %.3f s\n", t_read, t_map, t_write);
    return exit_ok;
}

} // namespace lvhdr
