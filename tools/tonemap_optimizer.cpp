// lvhdr tonemap --method optimizer: the local-Laplacian contrast optimizer, sized by its
// work-space query, with the sliders of its parameter block and a progress bar.
#include "tonemap_optimizer.h"

#include "progress_bar.h"

#include <lumivantor/lumivantor.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <thread>
#include <vector>

namespace lvhdr {

const char *tonemap_optimizer_help =
    "\n"
    "--method optimizer, the local contrast optimizer (crisp local contrast, no halos):\n"
    "  --compression C        0..100 (50): how strongly large luminance steps shrink\n"
    "  --detail D             -5..10 (0): the step below which contrast counts as detail\n"
    "  --level-dependence L   0..100 (20): compress coarse structure more than fine\n"
    "  --white-clip W         0..10 (0.6): percent of pixels clipped at white\n"
    "  --black-clip B         0..10 (0.25): percent of pixels clipped at black\n"
    "  --gamma G              -10..10 (0): darker midtones for positive values\n"
    "  --saturation S, --temperature T   as for the global operator\n";

bool tonemap_optimizer(HdrImage &image, const OptimizerSettings &s, int bits, int threads,
                       Image &out, std::string &error) {
    float p[LV_TMPARAM_COUNT];
    tmparam_default(3, 0, p);
    p[0] = s.compression;
    p[1] = s.detail;
    p[2] = s.level_dependence;
    p[3] = s.white_clip;
    p[4] = s.black_clip;
    p[8] = s.gamma;
    p[12] = s.temperature;
    p[13] = s.saturation;
    DimParam dim;
    init_dim_param(&dim);
    dim.width = image.width;
    dim.height = image.height;
    dim.bpsIn = 32;
    dim.bpsOut = bits;
    dim.strideOut = image.width * 3;
    OptimParam opt;
    init_optim_param(&opt);
    opt.numThreads = threads;

    // The block: the image area (RGBE input counts as three 32-bit samples a pixel), then
    // the work space the library asks for.
    int64_t work = 0;
    mem4contrast_optimizer(0, dim, &work);
    const int64_t pixels = int64_t(image.width) * image.height;
    const int64_t size = pixels * 12 + work;
    std::unique_ptr<unsigned char[]> memory(new (std::nothrow) unsigned char[size_t(size)]);
    if (!memory) {
        error = "out of memory";
        return false;
    }
    const int rc = lv_tm_optimizer(dim, opt, ProgressBar::callback, p, nullptr, 0, nullptr,
                                   image.rgbe.data(), size, memory.get());
    if (rc < 0) {
        error =
            rc == LV_ERR_NOMEM ? "out of memory" : "tone map failed (" + std::to_string(rc) + ")";
        return false;
    }
    out.width = image.width;
    out.height = image.height;
    out.bits = bits;
    out.pixels.assign(memory.get(), memory.get() + out.bytes());
    return true;
}

int cmd_tonemap_optimizer(const ParsedArgs &args) {
    std::string err;
    OptimizerSettings s;
    struct Slider {
        const char *name;
        double lo, hi;
        float *value;
    } sliders[] = {{"--compression", 0, 100, &s.compression},
                   {"--detail", -5, 10, &s.detail},
                   {"--level-dependence", 0, 100, &s.level_dependence},
                   {"--white-clip", 0, 10, &s.white_clip},
                   {"--black-clip", 0, 10, &s.black_clip},
                   {"--gamma", -10, 10, &s.gamma},
                   {"--saturation", -10, 10, &s.saturation},
                   {"--temperature", -10, 10, &s.temperature}};
    for (const auto &sl : sliders) {
        double v = 0;
        if (!args.has(sl.name)) continue;
        if (!parse_number(sl.name, args.get(sl.name), sl.lo, sl.hi, v, err))
            return usage_error("tonemap", err);
        *sl.value = float(v);
    }
    if (args.has("--brightness"))
        return usage_error("tonemap", "--brightness belongs to the global operator; the "
                                      "optimizer takes --gamma");
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

    const std::string &in_path = args.positional[0];
    const FileKind kind = sniff_file(in_path);
    if (kind == FileKind::missing) return fail(in_path, "no such file");
    if (kind != FileKind::radiance) return fail(in_path, "not a Radiance HDR file");
    Stopwatch clock;
    HdrImage hdr;
    if (!read_hdr(in_path, hdr, err)) return fail(in_path, err);
    const double t_read = clock.lap();
    const int threads = std::max(1, int(std::thread::hardware_concurrency()));
    Image picture;
    {
        ProgressBar bar("contrast optimizer");
        if (!tonemap_optimizer(hdr, s, int(bits), threads, picture, err)) return fail(in_path, err);
    }
    const double t_map = clock.lap();
    if (!write_image(out_path, picture, err)) return fail(out_path, err);
    const double t_write = clock.lap();
    std::printf("tone-mapped %s (%dx%d) to %s with the contrast optimizer, %d-bit\n",
                in_path.c_str(), hdr.width, hdr.height, out_path.c_str(), int(bits));
    if (args.has("--timings"))
        std::printf("timings: read %.3f s, tonemap %.3f s, write %.3f s\n", t_read, t_map, t_write);
    return exit_ok;
}

} // namespace lvhdr
