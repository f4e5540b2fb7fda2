// lvhdr convert: an HDR image from one file format to another.
#include "cli.h"
#include "commands.h"
#include "hdr_files.h"

#include <cstdio>

namespace lvhdr {
namespace {

const char *convert_help =
    "usage: lvhdr convert [options] IN OUT\n"
    "\n"
    "Converts an HDR image between Radiance (.hdr), 32-bit float TIFF (.tif) and OpenEXR\n"
    "(.exr). IN may also be a float TIFF of any compression, tiling or byte order, or a\n"
    "32-bit PSD; the format of OUT follows its extension. The pixels pass through the\n"
    "library's RGBE form, which keeps 8 bits of mantissa per colour.\n"
    "\n"
    "options:\n"
    "  --half              write OpenEXR with half floats (default: 32-bit floats)\n"
    "  --max-pixels N      refuse inputs of more than N pixels (default 1073741824)\n"
    "  -h, --help          show this help\n";

} // namespace

bool parse_max_pixels(const ParsedArgs &args, std::string &error) {
    if (!args.has("--max-pixels")) return true;
    double limit = 0;
    if (!parse_number("--max-pixels", args.get("--max-pixels"), 1, 1e15, limit, error))
        return false;
    set_max_pixels(uint64_t(limit));
    return true;
}

int cmd_convert(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2, {{"--half", nullptr, false}, {"--max-pixels", nullptr, true}},
                    args, err))
        return usage_error("convert", err);
    if (args.has("--help")) {
        std::fputs(convert_help, stdout);
        return exit_ok;
    }
    if (!parse_max_pixels(args, err)) return usage_error("convert", err);
    if (args.positional.size() != 2) return usage_error("convert", "give one input and one output");
    const std::string &in = args.positional[0], &out = args.positional[1];
    if (!is_hdr_extension(extension_of(out)))
        return usage_error("convert", "the output must end in .hdr, .tif or .exr");
    HdrImage image;
    if (!load_hdr_file(in, image, err)) return fail(in, err);
    HdrWriteOptions options;
    options.exr_half = args.has("--half");
    if (!save_hdr_file(out, image, err, options)) return fail(out, err);
    std::printf("converted %s (%dx%d) to %s\n", in.c_str(), image.width, image.height, out.c_str());
    return exit_ok;
}

} // namespace lvhdr
