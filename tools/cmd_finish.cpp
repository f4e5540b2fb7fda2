// lvhdr finish: exposure, raw gamma, levels, saturation and sharpening on an ordinary 8- or
// 16-bit picture.
#include "cli.h"
#include "commands.h"
#include "image_io.h"
#include "interrupt.h"
#include "progress_bar.h"

#include <lumivantor/lumivantor.h>

#include <cmath>
#include <cstdio>
#include <sstream>

namespace lvhdr {
namespace {

const char *finish_help =
    "usage: lvhdr finish [options] -o OUT.png|OUT.jpg|OUT.tif IN\n"
    "\n"
    "Finishes an ordinary 8- or 16-bit picture (JPEG, PNG or TIFF), such as a tone-mapped or\n"
    "fused result. The steps run in this order, each only when asked for: exposure, raw\n"
    "gamma, levels with gamma and saturation, sharpening.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE      the picture to write; its extension picks the format\n"
    "  --exposure EV          brighter (positive) or darker by EV stops at mid-grey, -4..4;\n"
    "                         lightness is scaled and colours keep their hue\n"
    "  --raw-gamma G          lift midtones while keeping shadows, 1..3 (raw conversions)\n"
    "  --levels B,W           black and white points in percent of the range, 0..100\n"
    "  --gamma G              midtone gamma, 0.2..5; above 1 brightens\n"
    "  --saturation S         colour saturation in percent, 0..300 (100 leaves it)\n"
    "  --sharpen S            unsharp mask on lightness: 1 leaves it, 2 doubles local\n"
    "                         contrast, 0..5\n"
    "  --radius R             sharpening radius in pixels, 0.5..20 (default 2)\n"
    "  --threshold T          leave differences of T lightness levels or less, 0..255\n"
    "                         (default 2), so flat skies stay clean\n"
    "  --bits 8|16            sample depth of the output: 16-bit input may be written as 8\n"
    "  --threads N            worker threads, 1..64 (default 2)\n"
    "  --timings              print how long the work took\n"
    "  -h, --help             show this help\n"
    "\n"
    "Ctrl-C stops the work and leaves no output file.\n";

struct Settings {
    double exposure = 0, raw_gamma = 1, black = 0, white = 100, gamma = 1, saturation = 100;
    double sharpen = 0, radius = 2, threshold = 2, bits = 0, threads = 2;
};

// Exposure bands for DivideWork: the identity table takes samples as they are, so the
// picture keeps its own encoding through the L* scaling.
struct ExposureBand {
    LvWorkContext band;
    Image *image;
    const float *table;
    double factor;
};

void *exposure_band(void *context) {
    auto *c = static_cast<ExposureBand *>(context);
    Image &im = *c->image;
    adjustImageExposure_tile(c->band.bandStart, c->band.bandEnd, im.width, im.bits, im.bits, 3,
                             3 * im.width, 3 * im.width, 0, 0, c->table, im.pixels.data(),
                             im.pixels.data(), c->factor);
    return nullptr;
}

float grey_lightness(double level) {
    const float grey[3] = {float(level), float(level), float(level)};
    float lab[3];
    rgb2Lab(1, grey, nullptr, nullptr, lab);
    return lab[0];
}

// The L* factor that moves a mid-grey (18 % reflectance, encoded with a 2.2 gamma) by EV
// stops; highlights are held at L* 100.
double exposure_factor(double ev) {
    const double mid = std::pow(0.18, 1 / 2.2);
    const double target = std::min(mid * std::pow(2.0, ev / 2.2), 1.0);
    return grey_lightness(target) / grey_lightness(mid);
}

void apply_exposure(Image &im, double ev, int threads) {
    const int levels = 1 << im.bits;
    std::vector<float> table(levels);
    for (int i = 0; i < levels; ++i)
        table[i] = float(i) / float(levels - 1);
    ExposureBand c{{}, &im, table.data(), exposure_factor(ev)};
    DivideWork(0, im.height, threads, exposure_band, &c, sizeof c);
}

// Parses "B,W" into two percentages.
bool parse_levels(const std::string &text, Settings &s, std::string &err) {
    const size_t comma = text.find(',');
    if (comma == std::string::npos) {
        err = "option '--levels' needs two percentages, as in 2,98";
        return false;
    }
    if (!parse_number("--levels", text.substr(0, comma), 0, 100, s.black, err) ||
        !parse_number("--levels", text.substr(comma + 1), 0, 100, s.white, err))
        return false;
    if (s.black > s.white) {
        err = "the black point of '--levels' must not lie above the white point";
        return false;
    }
    return true;
}

} // namespace

int cmd_finish(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--exposure", nullptr, true},
                     {"--raw-gamma", nullptr, true},
                     {"--levels", nullptr, true},
                     {"--gamma", nullptr, true},
                     {"--saturation", nullptr, true},
                     {"--sharpen", nullptr, true},
                     {"--radius", nullptr, true},
                     {"--threshold", nullptr, true},
                     {"--bits", nullptr, true},
                     {"--threads", nullptr, true},
                     {"--timings", nullptr, false}},
                    args, err))
        return usage_error("finish", err);
    if (args.has("--help")) {
        std::fputs(finish_help, stdout);
        return exit_ok;
    }
    const std::string out_path = args.get("--output");
    if (out_path.empty()) return usage_error("finish", "no output file given (-o OUT.png)");
    const std::string ext = extension_of(out_path);
    if (ext != "png" && ext != "jpg" && ext != "jpeg" && ext != "tif" && ext != "tiff")
        return usage_error("finish", "the output must end in .png, .jpg or .tif");
    if (args.positional.size() != 1)
        return usage_error("finish", args.positional.empty() ? "no input picture given"
                                                             : "give exactly one input picture");
    Settings s;
    const struct {
        const char *name;
        double lo, hi;
        double *value;
    } numbers[] = {{"--exposure", -4, 4, &s.exposure},    {"--raw-gamma", 1, 3, &s.raw_gamma},
                   {"--gamma", 0.2, 5, &s.gamma},         {"--saturation", 0, 300, &s.saturation},
                   {"--sharpen", 0, 5, &s.sharpen},       {"--radius", 0.5, 20, &s.radius},
                   {"--threshold", 0, 255, &s.threshold}, {"--bits", 8, 16, &s.bits},
                   {"--threads", 1, 64, &s.threads}};
    for (const auto &n : numbers)
        if (args.has(n.name) && !parse_number(n.name, args.get(n.name), n.lo, n.hi, *n.value, err))
            return usage_error("finish", err);
    if (args.has("--levels") && !parse_levels(args.get("--levels"), s, err))
        return usage_error("finish", err);
    if (s.bits != 0 && s.bits != 8 && s.bits != 16)
        return usage_error("finish", "--bits takes 8 or 16");

    const std::string &in_path = args.positional[0];
    if (sniff_file(in_path) == FileKind::missing) return fail(in_path, "no such file");
    Stopwatch clock;
    Image im;
    if (!read_image(in_path, im, err)) return fail(in_path, err);
    const int bits_out = s.bits == 0 ? im.bits : int(s.bits);
    if (bits_out > im.bits) return fail(in_path, "an 8-bit picture can't be written with 16 bits");
    if (bits_out == 16 && (ext == "jpg" || ext == "jpeg"))
        return usage_error("finish", "JPEG holds 8 bits a sample; use .png or .tif for 16");
    const int threads = int(s.threads);

    InterruptGuard guard;
    {
        ProgressBar bar("finishing");
        if (s.exposure != 0) apply_exposure(im, s.exposure, threads);
        bar.update(0.25f);
        if (s.raw_gamma != 1 && !interrupted() &&
            enhanceRawConvertedImage(threads, im.width, im.height, 3 * im.width, im.bits,
                                     im.pixels.data(), float(s.raw_gamma)) < 0)
            return fail(in_path, "out of memory");
        bar.update(0.5f);
        const bool levels = s.black != 0 || s.white != 100 || s.gamma != 1 || s.saturation != 100 ||
                            bits_out != im.bits;
        if (levels && !interrupted()) {
            // Levels convert 16 to 8 bits on the way; bands can't share one buffer then, as a
            // band's 8-bit rows would land on rows another band has yet to read.
            Image out = im;
            out.bits = bits_out;
            out.pixels.resize(out.bytes());
            if (adjustImageLevels(threads, im.width, im.height, 0, 0, 0, 3 * im.width, 3 * im.width,
                                  im.bits, bits_out, im.pixels.data(), out.pixels.data(),
                                  float(s.gamma), float(s.black), float(s.white), 1.0f,
                                  float(s.saturation)) < 0)
                return fail(in_path, "out of memory");
            im = std::move(out);
        }
        bar.update(0.75f);
        if (s.sharpen != 0 && !interrupted()) {
            std::vector<uint16_t> curve(65536);
            for (int i = 0; i < 65536; ++i)
                curve[i] = uint16_t(i);
            const std::vector<float> hue(360, 0.0f);
            const float controls[3] = {float(s.sharpen), float(s.radius), float(s.threshold)};
            if (post_adj(threads, im.width, im.height, 3, 0, 3 * im.width, im.bits, curve.data(),
                         hue.data(), controls, nullptr, im.pixels.data()) < 0)
                return fail(in_path, "out of memory while sharpening");
        }
        bar.update(1.0f);
    }
    if (interrupted()) return fail("finish", "interrupted");
    const double t_work = clock.lap();
    if (!write_image(out_path, im, err)) return fail(out_path, err);
    std::printf("finished %s (%dx%d) to %s, %d-bit\n", in_path.c_str(), im.width, im.height,
                out_path.c_str(), im.bits);
    if (args.has("--timings")) std::printf("timings: read and finish %.3f s\n", t_work);
    return exit_ok;
}

} // namespace lvhdr
