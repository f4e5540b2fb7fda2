// lvhdr: the example host of the lumivantor library. From a bracket of ordinary photographs
// to an HDR file and finished pictures, from the command line.
#include "cli.h"
#include "commands.h"

#include <cstdio>
#include <cstring>

namespace {

const char *main_help =
    "usage: lvhdr COMMAND [options]\n"
    "\n"
    "commands:\n"
    "  demo      make a synthetic bracket, merge it, tone-map it, and measure the merge\n"
    "  merge     merge a bracket of JPEG, PNG or TIFF photographs into a .hdr file\n"
    "  tonemap   tone-map a .hdr file into a PNG, JPEG or TIFF picture\n"
    "  fuse      blend a bracket straight into a picture by exposure fusion\n"
    "  convert   convert an HDR image between .hdr, float .tif and .exr\n"
    "  info      print a file's size, format, exposure and (for .hdr) dynamic range\n"
    "  mirrorball  unwrap a mirror-ball photograph into a latitude-longitude panorama\n"
    "  probe     print one pixel's values, luminance and stops in an HDR image\n"
    "  view      write the brightness-adapting viewer square around a pixel as a PNG\n"
    "  finish    levels, exposure, saturation and sharpening on a finished picture\n"
    "  single    an HDR look from one photograph: simulated exposures, fused\n"
    "  report    merge a bracket and show every tone mapper and fusion method on one page\n"
    "\n"
    "'lvhdr COMMAND --help' describes each command.\n";

struct Command {
    const char *name;
    int (*run)(int, char **);
};

const Command commands[] = {{"demo", lvhdr::cmd_demo},
                            {"merge", lvhdr::cmd_merge},
                            {"tonemap", lvhdr::cmd_tonemap},
                            {"info", lvhdr::cmd_info},
                            {"fuse", lvhdr::cmd_fuse},
                            {"convert", lvhdr::cmd_convert},
                            {"mirrorball", lvhdr::cmd_mirrorball},
                            {"probe", lvhdr::cmd_probe},
                            {"view", lvhdr::cmd_view},
                            {"finish", lvhdr::cmd_finish},
                            {"single", lvhdr::cmd_single},
                            {"report", lvhdr::cmd_report}};

} // namespace

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fputs(main_help, stderr);
        return lvhdr::exit_usage;
    }
    if (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") ||
        !std::strcmp(argv[1], "help")) {
        std::fputs(main_help, stdout);
        return lvhdr::exit_ok;
    }
    for (const Command &c : commands)
        if (!std::strcmp(argv[1], c.name)) return c.run(argc, argv);
    std::fprintf(stderr, "lvhdr: unknown command '%s' (see 'lvhdr --help')\n", argv[1]);
    return lvhdr::exit_usage;
}
