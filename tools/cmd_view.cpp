// lvhdr view: the adaptive viewer square that a host shows under the pointer, written as a
// picture: brightened from the values in its middle, with the pixel readout beside it.
#include "cli.h"
#include "commands.h"
#include "hdr_files.h"

#include <lumivantor/frame.h>
#include <lumivantor/geometry.h>

#include <cstdio>
#include <utility>

namespace lvhdr {
namespace {

const char *view_help =
    "usage: lvhdr view [options] --at X,Y -o OUT.png FILE\n"
    "\n"
    "Writes the viewer square around pixel (X, Y) of an HDR image (.hdr, .tif, .exr): the\n"
    "square is kept inside the image and brightened so that its middle half reads well,\n"
    "and the values of the pixel under the pointer are printed.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE   the PNG to write (required)\n"
    "  --at X,Y            the pointer, counted from the top-left corner (required)\n"
    "  --size N            the side of the square in pixels (default 256)\n"
    "  --max-pixels N      refuse inputs of more than N pixels (default 1073741824)\n"
    "  -h, --help          show this help\n";

bool parse_at(const std::string &text, int &x, int &y, std::string &err) {
    const size_t comma = text.find(',');
    double a = 0, b = 0;
    if (comma == std::string::npos) {
        err = "--at takes X,Y";
        return false;
    }
    if (!parse_number("--at", text.substr(0, comma), 0, 1e9, a, err) ||
        !parse_number("--at", text.substr(comma + 1), 0, 1e9, b, err))
        return false;
    x = int(a), y = int(b);
    return true;
}

} // namespace

int cmd_view(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--at", nullptr, true},
                     {"--size", nullptr, true},
                     {"--max-pixels", nullptr, true}},
                    args, err))
        return usage_error("view", err);
    if (args.has("--help")) {
        std::fputs(view_help, stdout);
        return exit_ok;
    }
    if (!parse_max_pixels(args, err)) return usage_error("view", err);
    if (args.positional.size() != 1) return usage_error("view", "give one HDR image");
    const std::string out = args.get("--output"), &in = args.positional[0];
    if (extension_of(out) != "png") return usage_error("view", "-o must name a .png file");
    int x = 0, y = 0;
    if (!parse_at(args.get("--at"), x, y, err)) return usage_error("view", err);
    double size = 256;
    if (args.has("--size") && !parse_number("--size", args.get("--size"), 4, 4096, size, err))
        return usage_error("view", err);
    HdrImage image;
    if (!load_hdr_file(in, image, err)) return fail(in, err);
    if (x >= image.width || y >= image.height)
        return fail(in, "--at lies outside the " + std::to_string(image.width) + "x" +
                            std::to_string(image.height) + " image");

    // A square no larger than the image, so that it stays whole inside it.
    const int side = std::min({int(size), image.width, image.height});
    float table[256];
    exp_lut_old(table);
    Image view;
    view.width = view.height = side;
    view.pixels.assign(view.bytes(), 0);
    hdr_display(image.width, image.height, 32, x, y, side, side, table, image.rgbe.data(),
                view.pixels.data());
    for (size_t i = 0; i + 2 < view.pixels.size(); i += 3) // the viewer writes B, G, R
        std::swap(view.pixels[i], view.pixels[i + 2]);
    if (!write_image(out, view, err)) return fail(out, err);
    std::printf("wrote the %dx%d viewer around %d,%d of %s to %s\n", side, side, x, y, in.c_str(),
                out.c_str());
    std::printf("  probe: luminance %.6g, red %.6g, green %.6g, blue %.6g (255 for 1)\n", table[0],
                table[1], table[2], table[3]);
    return exit_ok;
}

} // namespace lvhdr
