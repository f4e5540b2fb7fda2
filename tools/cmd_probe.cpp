// lvhdr probe: the true values of one pixel of an HDR image, its luminance, and where it lies
// in stops between the image's darkest and brightest pixels.
#include "cli.h"
#include "commands.h"
#include "hdr_files.h"

#include <lumivantor/geometry.h>

#include <cmath>
#include <cstdio>

namespace lvhdr {
namespace {

const char *probe_help =
    "usage: lvhdr probe [options] FILE X Y\n"
    "\n"
    "Prints the red, green and blue values of pixel (X, Y) of an HDR image (.hdr, .tif,\n"
    ".exr), counted from the top-left corner, its luminance, and its place in stops between\n"
    "the darkest and the brightest pixel of the image that aren't black.\n"
    "\n"
    "options:\n"
    "  --max-pixels N      refuse inputs of more than N pixels (default 1073741824)\n"
    "  -h, --help          show this help\n";

// Values as the library reads them out: 256 times the file's scale.
struct Readout {
    float luminance = 0, place[4] = {0, 0, 0, 0};
};

Readout read_out(const HdrImage &image, int x, int y, float log_start = 0, float log_range = 0) {
    Readout r;
    GetHdrPixelsValuesFor(x, y, image.width, image.height, &r.luminance, &r.place[0], &r.place[1],
                          &r.place[2], &r.place[3], image.rgbe.data(), log_start, log_range);
    return r;
}

} // namespace

int cmd_probe(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2, {{"--max-pixels", nullptr, true}}, args, err))
        return usage_error("probe", err);
    if (args.has("--help")) {
        std::fputs(probe_help, stdout);
        return exit_ok;
    }
    if (!parse_max_pixels(args, err)) return usage_error("probe", err);
    if (args.positional.size() != 3) return usage_error("probe", "give a file, X and Y");
    const std::string &in = args.positional[0];
    double x = 0, y = 0;
    if (!parse_number("X", args.positional[1], 0, 1e9, x, err) ||
        !parse_number("Y", args.positional[2], 0, 1e9, y, err))
        return usage_error("probe", err);
    HdrImage image;
    if (!load_hdr_file(in, image, err)) return fail(in, err);
    const int px = int(x), py = int(y);
    if (px >= image.width || py >= image.height)
        return fail(in, "pixel " + std::to_string(px) + "," + std::to_string(py) +
                            " lies outside the " + std::to_string(image.width) + "x" +
                            std::to_string(image.height) + " image");

    // The image's range of luminance, black pixels left out, sets the axis in stops.
    float lo = 0, hi = 0;
    for (int j = 0; j < image.height; ++j)
        for (int i = 0; i < image.width; ++i) {
            const float l = read_out(image, i, j).luminance;
            if (l <= 0) continue;
            if (lo == 0 || l < lo) lo = l;
            hi = std::max(hi, l);
        }
    const float start = lo > 0 ? std::log2(lo) : 0, range = hi > lo ? std::log2(hi) - start : 0;
    const Readout r = read_out(image, px, py, start, range);

    float rgb[3];
    rgbe_pixel(image, px, py, rgb);
    std::printf("%s pixel %d,%d\n", in.c_str(), px, py);
    std::printf("  red %.6g  green %.6g  blue %.6g\n", rgb[0], rgb[1], rgb[2]);
    std::printf("  luminance %.6g\n", r.luminance / 256);
    if (r.luminance <= 0) {
        std::printf("  black: below every stop of the image\n");
    } else {
        const double stops = std::log2(r.luminance) - start;
        std::printf("  %.2f stops above the darkest pixel, %.2f below the brightest "
                    "(image range %.2f stops)\n",
                    stops, range - stops, range);
    }
    return exit_ok;
}

} // namespace lvhdr
