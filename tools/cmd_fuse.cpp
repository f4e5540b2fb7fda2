// lvhdr fuse: a bracket of photographs straight to a finished picture by exposure fusion.
#include "bracket_decode.h"
#include "cli.h"
#include "commands.h"
#include "fuse_pipeline.h"
#include "hdr_files.h"
#include "interrupt.h"
#include "progress_bar.h"
#include "temp_folder.h"

#include <lumivantor/lumivantor.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>
#include <vector>

namespace lvhdr {
namespace {

const char *fuse_help =
    "usage: lvhdr fuse [options] -o OUT.png|OUT.jpg|OUT.tif IMAGE...\n"
    "\n"
    "Blends a bracket of aligned photographs (8- or 16-bit JPEG, PNG or TIFF, all of one size)\n"
    "into one picture by exposure fusion: each pixel takes most from the photographs that\n"
    "expose it well, blended across a tower of scales so that no seams show. No HDR file is\n"
    "made on the way.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE    the picture to write; its extension picks the format\n"
    "  --method M           plain (default): the blend alone; two-stage: the blend, then a\n"
    "                       local blend with a brightened darkest photograph, which holds\n"
    "                       bright skies and lamps better\n"
    "  --sharpness S        -10..10: how strongly the best-exposed photograph wins a pixel\n"
    "  --prefer P           -10..10: favour the darker (negative) or brighter photographs\n"
    "  --cutoff C           0..10: above 0, highlights near white count for nothing and\n"
    "                       clipped photographs lose their bright end sooner\n"
    "  --detail D           0..10: lift of fine detail in the blend (default 2)\n"
    "  --bits 8|16          sample depth of the output (16 needs .png or .tif)\n"
    "  --threads N          worker threads (default 2)\n"
    "  --low-memory         keep the photographs and weights in temp files while blending\n"
    "                       (plain method, three or more photographs or 16-bit ones)\n"
    "  --max-pixels N       refuse brackets of more than N pixels in all (default 1073741824)\n"
    "  --timings            print how long each step took\n"
    "  -h, --help           show this help\n"
    "\n"
    "Ctrl-C stops the work and leaves no output file.\n";

} // namespace

int fuse_bracket(Bracket &bracket, const FuseSettings &settings, Image &out, std::string &error) {
    float p[LV_TMPARAM_COUNT];
    tmparam_default(settings.two_stage ? 15 : 10, 0, p);
    p[0] = settings.sharpness;
    p[1] = settings.prefer;
    p[2] = settings.cutoff;
    p[8] = settings.detail;
    DimParam d;
    init_dim_param(&d);
    d.width = bracket.width;
    d.height = bracket.height;
    d.bpsIn = bracket.bits;
    d.bpsOut = settings.bits;
    d.strideOut = 3 * bracket.width;
    OptimParam o;
    init_optim_param(&o);
    o.numThreads = settings.threads;
    TempFolder temp;
    if (settings.low_memory) {
        // Ctrl-C cancels through the progress callback, so the folder goes on the way out.
        if (!temp.create("lvhdr-fuse", {"photographs.raw", "weights.raw", "tower.raw"}, false,
                         error))
            return -2;
        o.lowMemory = 1;
        o.sourceFile = temp.file(0);
        o.tempPath1 = temp.file(1);
        o.tempPath2 = temp.file(2);
    }
    // The image tower lies ahead of the sized block; a low-memory run leaves the block
    // empty so that only what its route needs is allocated.
    uint64_t block = 0;
    mem4fusion(settings.two_stage ? 2 : 1, bracket.count, 16, 16, &block, d);
    if (settings.low_memory) block = 0;
    const size_t lead = size_t(2) * 3 * size_t(pyram_len2(d.width, d.height));
    std::unique_ptr<uint8_t[]> memory(new (std::nothrow) uint8_t[lead + block]);
    if (!memory) {
        error = "not enough memory for a bracket of this size";
        return -4;
    }
    std::vector<int> order(size_t(bracket.count), -1); // no selection
    const int rc =
        lv_fusion(settings.callback, p, nullptr, bracket.count, 16, 16, o, d, 0,
                  bracket.samples.data(), order.data(), nullptr, size_t(block), memory.get());
    if (rc < 0) {
        error = rc == -1 ? "interrupted" : "the fusion failed (code " + std::to_string(rc) + ")";
        return rc;
    }
    out.width = d.width;
    out.height = d.height;
    out.bits = d.bpsOut;
    out.pixels.assign(memory.get(), memory.get() + out.bytes());
    return rc;
}

int cmd_fuse(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--method", "-m", true},
                     {"--sharpness", nullptr, true},
                     {"--prefer", nullptr, true},
                     {"--cutoff", nullptr, true},
                     {"--detail", nullptr, true},
                     {"--bits", nullptr, true},
                     {"--threads", nullptr, true},
                     {"--low-memory", nullptr, false},
                     {"--max-pixels", nullptr, true},
                     {"--timings", nullptr, false}},
                    args, err) ||
        !parse_max_pixels(args, err))
        return usage_error("fuse", err);
    if (args.has("--help")) {
        std::fputs(fuse_help, stdout);
        return exit_ok;
    }
    const std::string method = args.get("--method", "plain");
    if (method != "plain" && method != "two-stage")
        return usage_error("fuse", "unknown method '" + method + "' (plain or two-stage)");
    const std::string out_path = args.get("--output");
    if (out_path.empty()) return usage_error("fuse", "no output file given (-o OUT.png)");
    const std::string ext = extension_of(out_path);
    if (ext != "png" && ext != "jpg" && ext != "jpeg" && ext != "tif" && ext != "tiff")
        return usage_error("fuse", "the output must end in .png, .jpg or .tif");
    if (args.positional.empty()) return usage_error("fuse", "no input images given");

    FuseSettings settings;
    settings.two_stage = method == "two-stage";
    struct Slider {
        const char *name;
        float *value;
        double lo, hi;
    } sliders[] = {{"--sharpness", &settings.sharpness, -10, 10},
                   {"--prefer", &settings.prefer, -10, 10},
                   {"--cutoff", &settings.cutoff, 0, 10},
                   {"--detail", &settings.detail, 0, 10}};
    for (const auto &s : sliders) {
        double v = 0;
        if (!args.has(s.name)) continue;
        if (!parse_number(s.name, args.get(s.name), s.lo, s.hi, v, err))
            return usage_error("fuse", err);
        *s.value = float(v);
    }
    double bits = 8, threads = 2;
    if (args.has("--bits") && (!parse_number("--bits", args.get("--bits"), 8, 16, bits, err) ||
                               (bits != 8 && bits != 16)))
        return usage_error("fuse", err.empty() ? "--bits takes 8 or 16" : err);
    if (bits == 16 && (ext == "jpg" || ext == "jpeg"))
        return usage_error("fuse", "JPEG holds 8 bits a sample; use .png or .tif for 16");
    if (args.has("--threads") &&
        !parse_number("--threads", args.get("--threads"), 0, 64, threads, err))
        return usage_error("fuse", err);
    settings.bits = int(bits);
    settings.threads = int(threads);
    settings.low_memory = args.has("--low-memory");

    InterruptGuard guard;
    Stopwatch clock;
    Bracket bracket;
    std::string failed;
    if (!decode_bracket(args.positional, bracket, nullptr, nullptr, failed, err))
        return fail(failed, err);
    const double t_decode = clock.lap();
    if (interrupted()) return fail("fuse", "interrupted");

    const int n = int(args.positional.size());
    const int width = bracket.width, height = bracket.height;
    settings.callback = progress_or_cancel;
    Image picture;
    int rc;
    {
        ProgressBar bar("fusing");
        rc = fuse_bracket(bracket, settings, picture, err);
    }
    const double t_fuse = clock.lap();
    if (interrupted() || rc == -1) return fail("fuse", "interrupted");
    if (rc < 0) return fail("fuse", err);
    if (!write_image(out_path, picture, err)) return fail(out_path, err);
    const double t_write = clock.lap();
    std::printf("fused %d images of %dx%d (%s) into %s, %d-bit\n", n, width, height, method.c_str(),
                out_path.c_str(), settings.bits);
    if (args.has("--timings"))
        std::printf("timings: decode %.3f s, fuse %.3f s, write %.3f s\n", t_decode, t_fuse,
                    t_write);
    return exit_ok;
}

} // namespace lvhdr
