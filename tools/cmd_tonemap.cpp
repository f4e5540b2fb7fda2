// lvhdr tonemap: a Radiance HDR file to an 8- or 16-bit picture, by the gradient-domain
// enhancer (the default) or the global operator.
#include "cli.h"
#include "commands.h"
#include "hdr_files.h"
#include "hdr_pipeline.h"
#include "progress_bar.h"
#include "tonemap_enhancer.h"
#include "tonemap_optimizer.h"

#include <algorithm>
#include <cstdio>
#include <thread>

namespace lvhdr {
namespace {

const char *tonemap_help =
    "usage: lvhdr tonemap [options] -o OUT.png|OUT.jpg|OUT.tif IN.hdr\n"
    "\n"
    "Tone-maps a Radiance HDR file into an ordinary picture.\n"
    "  enhancer (default): a gradient-domain operator. It squeezes the large jumps between\n"
    "    bright and dark areas and keeps the fine detail, so shadows and highlights both\n"
    "    keep their texture.\n"
    "  simple: the global operator, a photoreceptor curve anchored on the image's median\n"
    "    with the contrast set from its percentiles.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE      the picture to write; its extension picks the format\n"
    "  -m, --method M         enhancer, simple or optimizer (its options follow below)\n"
    "  --bits 8|16            sample depth of the output (16 needs .png or .tif)\n"
    "  --timings              print how long each step took\n"
    "  -h, --help             show this help\n"
    "enhancer sliders (unset ones keep the library's defaults):\n"
    "  --strength S           0..100, how hard large jumps are compressed (default 0)\n"
    "  --detail D             0..20, attenuation of strong gradients (default 0)\n"
    "  --attenuation A        0..20, spares weak gradients, keeping fine detail (default 2)\n"
    "  --saturation S         0..100 (default 46); -10..10 for simple\n"
    "  --white-clip W         0..10 percent of pixels clipped to white (default 0.25)\n"
    "  --black-clip B         0..10 percent of pixels clipped to black (default 0)\n"
    "  --shadow-clip C        0..100, pulls the deepest shadows to near black (default 0)\n"
    "  --gamma G              -10..10, brighter mid-tones for positive values (default none)\n"
    "  --temperature T        -10..10, warmer for positive values (260 K a step)\n"
    "  --low-memory           keep the large arrays in temp files (a private temp folder,\n"
    "                         removed afterwards) instead of memory\n"
    "  --two-resolution       solve a reduced copy first, then refine: faster on large images\n"
    "simple sliders (-10..10, 0 leaves the operator's own choice):\n"
    "  --brightness B, --compression C, --saturation S, --temperature T\n";

struct SliderDef {
    const char *name;
    double lo, hi;
    float *value;
};

// Reads the sliders given on the command line into their fields.
bool read_sliders(const ParsedArgs &args, SliderDef *defs, size_t n, std::string &err) {
    for (size_t i = 0; i < n; ++i) {
        double v = 0;
        if (!args.has(defs[i].name)) continue;
        if (!parse_number(defs[i].name, args.get(defs[i].name), defs[i].lo, defs[i].hi, v, err))
            return false;
        *defs[i].value = float(v);
    }
    return true;
}

// One tone-mapping method: reads its own sliders, then maps, or with no image only checks
// the sliders. On false, err says why and usage tells a wrong command line from failed
// work.
struct Method {
    const char *name;
    bool (*run)(const ParsedArgs &args, HdrImage *hdr, const std::string &in_path, int bits,
                Image &out, bool &usage, std::string &err);
};

bool run_simple(const ParsedArgs &args, HdrImage *hdr, const std::string &, int bits, Image &out,
                bool &usage, std::string &err) {
    ToneSettings s;
    SliderDef defs[] = {{"--brightness", -10, 10, &s.brightness},
                        {"--compression", -10, 10, &s.compression},
                        {"--saturation", -10, 10, &s.saturation},
                        {"--temperature", -10, 10, &s.temperature}};
    for (const char *other :
         {"--strength", "--detail", "--attenuation", "--white-clip", "--black-clip",
          "--shadow-clip", "--gamma", "--low-memory", "--two-resolution"})
        if (args.has(other)) {
            err = std::string(other) + " belongs to the enhancer";
            return !(usage = true);
        }
    if (!read_sliders(args, defs, sizeof defs / sizeof defs[0], err)) return !(usage = true);
    if (!hdr) return true;
    ProgressBar bar("tone mapping");
    return tonemap_simple(*hdr, s, bits, out, err);
}

bool run_enhancer(const ParsedArgs &args, HdrImage *hdr, const std::string &in_path, int bits,
                  Image &out, bool &usage, std::string &err) {
    EnhancerSettings s;
    SliderDef defs[] = {
        {"--strength", 0, 100, &s.strength},       {"--detail", 0, 20, &s.detail},
        {"--attenuation", 0, 20, &s.attenuation},  {"--saturation", 0, 100, &s.saturation},
        {"--white-clip", 0, 10, &s.white_clip},    {"--black-clip", 0, 10, &s.black_clip},
        {"--shadow-clip", 0, 100, &s.shadow_clip}, {"--gamma", -10, 10, &s.gamma},
        {"--temperature", -10, 10, &s.temperature}};
    for (const char *other : {"--brightness", "--compression"})
        if (args.has(other)) {
            err = std::string(other) + " belongs to the simple method";
            return !(usage = true);
        }
    if (!read_sliders(args, defs, sizeof defs / sizeof defs[0], err)) return !(usage = true);
    s.low_memory = args.has("--low-memory");
    if (s.low_memory && hdr && sniff_file(in_path) != FileKind::radiance) {
        err = "--low-memory reads the image from a .hdr file";
        return !(usage = true);
    }
    s.two_resolution = args.has("--two-resolution");
    return !hdr || tonemap_enhancer(*hdr, in_path, s, bits, out, err);
}

bool run_optimizer(const ParsedArgs &args, HdrImage *hdr, const std::string &, int bits, Image &out,
                   bool &usage, std::string &err) {
    OptimizerSettings s;
    SliderDef defs[] = {{"--compression", 0, 100, &s.compression},
                        {"--detail", -5, 10, &s.detail},
                        {"--level-dependence", 0, 100, &s.level_dependence},
                        {"--white-clip", 0, 10, &s.white_clip},
                        {"--black-clip", 0, 10, &s.black_clip},
                        {"--gamma", -10, 10, &s.gamma},
                        {"--saturation", -10, 10, &s.saturation},
                        {"--temperature", -10, 10, &s.temperature}};
    if (args.has("--brightness")) {
        err = "--brightness belongs to the global operator; the optimizer takes --gamma";
        return !(usage = true);
    }
    for (const char *other :
         {"--strength", "--attenuation", "--shadow-clip", "--low-memory", "--two-resolution"})
        if (args.has(other)) {
            err = std::string(other) + " belongs to the enhancer";
            return !(usage = true);
        }
    if (!read_sliders(args, defs, sizeof defs / sizeof defs[0], err)) return !(usage = true);
    if (!hdr) return true;
    ProgressBar bar("contrast optimizer");
    const int threads = std::max(1, int(std::thread::hardware_concurrency()));
    return tonemap_optimizer(*hdr, s, bits, threads, out, err);
}

// Further methods join this table.
const Method methods[] = {
    {"enhancer", run_enhancer}, {"simple", run_simple}, {"optimizer", run_optimizer}};

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
                     {"--strength", nullptr, true},
                     {"--detail", nullptr, true},
                     {"--attenuation", nullptr, true},
                     {"--white-clip", nullptr, true},
                     {"--black-clip", nullptr, true},
                     {"--shadow-clip", nullptr, true},
                     {"--gamma", nullptr, true},
                     {"--low-memory", nullptr, false},
                     {"--two-resolution", nullptr, false},
                     {"--bits", nullptr, true},
                     {"--timings", nullptr, false},
                     {"--level-dependence", nullptr, true}},
                    args, err))
        return usage_error("tonemap", err);
    if (args.has("--help")) {
        std::fputs(tonemap_help, stdout);
        std::fputs(tonemap_optimizer_help, stdout);
        return exit_ok;
    }
    const std::string name = args.get("--method", "enhancer");
    const Method *method = nullptr;
    std::string known;
    for (const Method &m : methods) {
        if (name == m.name) method = &m;
        known += std::string(known.empty() ? "" : ", ") + m.name;
    }
    if (!method)
        return usage_error("tonemap", "unknown method '" + name + "' (available: " + known + ")");
    const std::string out_path = args.get("--output");
    if (out_path.empty()) return usage_error("tonemap", "no output file given (-o OUT.png)");
    const std::string ext = extension_of(out_path);
    if (ext != "png" && ext != "jpg" && ext != "jpeg" && ext != "tif" && ext != "tiff")
        return usage_error("tonemap", "the output must end in .png, .jpg or .tif");
    if (args.positional.size() != 1)
        return usage_error("tonemap", args.positional.empty() ? "no input .hdr file given"
                                                              : "give exactly one input file");
    double bits = 8;
    if (args.has("--bits") && (!parse_number("--bits", args.get("--bits"), 8, 16, bits, err) ||
                               (bits != 8 && bits != 16)))
        return usage_error("tonemap", err.empty() ? "--bits takes 8 or 16" : err);
    if (bits == 16 && (ext == "jpg" || ext == "jpeg"))
        return usage_error("tonemap", "JPEG holds 8 bits a sample; use .png or .tif for 16");

    Image picture;
    bool usage = false;
    if (!method->run(args, nullptr, "", int(bits), picture, usage, err))
        return usage_error("tonemap", err);

    const std::string &in_path = args.positional[0];
    if (sniff_file(in_path) == FileKind::missing) return fail(in_path, "no such file");
    Stopwatch clock;
    HdrImage hdr;
    if (!load_hdr_file(in_path, hdr, err)) return fail(in_path, err);
    const double t_read = clock.lap();
    if (!method->run(args, &hdr, in_path, int(bits), picture, usage, err))
        return usage ? usage_error("tonemap", err) : fail(in_path, err);
    const double t_map = clock.lap();
    if (!write_image(out_path, picture, err)) return fail(out_path, err);
    const double t_write = clock.lap();
    std::printf("tone-mapped %s (%dx%d) to %s with the %s method, %d-bit\n", in_path.c_str(),
                hdr.width, hdr.height, out_path.c_str(), method->name, int(bits));
    if (args.has("--timings"))
        std::printf("timings: read %.3f s, tonemap %.3f s, write %.3f s\n", t_read, t_map, t_write);
    return exit_ok;
}

} // namespace lvhdr
