// lvhdr mirrorball: a photograph of a mirror ball (a light probe) unwrapped into a
// latitude-longitude panorama twice as wide as the photograph.
#include "cli.h"
#include "commands.h"
#include "hdr_files.h"

#include <lumivantor/geometry.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace lvhdr {
namespace {

const char *mirrorball_help =
    "usage: lvhdr mirrorball [options] -o OUT BALL\n"
    "\n"
    "Unwraps BALL, a photograph of a mirror ball cropped to the ball's square (.hdr, .tif,\n"
    ".exr, .png or .jpg), into a latitude-longitude panorama twice as wide and as high.\n"
    "OUT is .hdr (or .tif, .exr) for an HDR panorama, .png for a picture: an HDR ball is\n"
    "tone-mapped with the global operator, an 8-bit ball is written as it is. An ordinary\n"
    "photograph written as .hdr is taken as gamma 2.2. The bilinear and cubic filters work\n"
    "at 8 bits, so a 16-bit photograph is reduced to 8 bits for them.\n"
    "\n"
    "options:\n"
    "  -o, --output FILE   the panorama to write (required)\n"
    "  --filter NAME       nearest, bilinear or cubic (default cubic)\n"
    "  --max-pixels N      refuse inputs of more than N pixels (default 1073741824)\n"
    "  -h, --help          show this help\n";

int filter_mode(const std::string &name) {
    if (name == "nearest") return 0;
    if (name == "bilinear") return 1;
    if (name == "cubic") return 2;
    return -1;
}

// An ordinary picture's samples as linear floats, for an HDR panorama.
void floats_from_picture(const Image &in, FloatImage &out) {
    out.width = in.width;
    out.height = in.height;
    out.rgb.resize(size_t(in.width) * in.height * 3);
    const double top = in.bits == 16 ? 65535.0 : 255.0;
    const auto *s16 = reinterpret_cast<const uint16_t *>(in.pixels.data());
    for (size_t i = 0; i < out.rgb.size(); ++i)
        out.rgb[i] = float(std::pow((in.bits == 16 ? s16[i] : in.pixels[i]) / top, 2.2));
}

// The high byte of each 16-bit sample.
void to_eight_bits(Image &image) {
    const auto *s16 = reinterpret_cast<const uint16_t *>(image.pixels.data());
    std::vector<uint8_t> eight(image.pixels.size() / 2);
    for (size_t i = 0; i < eight.size(); ++i)
        eight[i] = uint8_t(s16[i] >> 8);
    image.pixels.swap(eight);
    image.bits = 8;
}

} // namespace

int cmd_mirrorball(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2,
                    {{"--output", "-o", true},
                     {"--filter", nullptr, true},
                     {"--max-pixels", nullptr, true}},
                    args, err))
        return usage_error("mirrorball", err);
    if (args.has("--help")) {
        std::fputs(mirrorball_help, stdout);
        return exit_ok;
    }
    if (!parse_max_pixels(args, err)) return usage_error("mirrorball", err);
    const int mode = filter_mode(args.get("--filter", "cubic"));
    if (mode < 0) return usage_error("mirrorball", "--filter is nearest, bilinear or cubic");
    if (args.positional.size() != 1) return usage_error("mirrorball", "give one ball photograph");
    const std::string out = args.get("--output"), &in = args.positional[0];
    const std::string ext = extension_of(out);
    const bool hdr_out = is_hdr_extension(ext);
    if (out.empty() || (!hdr_out && ext != "png"))
        return usage_error("mirrorball", "-o must name a .hdr, .tif, .exr or .png file");

    const FileKind kind = sniff_file(in);
    const bool hdr_in = kind == FileKind::radiance || kind == FileKind::exr ||
                        kind == FileKind::psd || (kind == FileKind::tiff && is_float_tiff(in));
    HdrImage pano;
    Image picture;
    if (hdr_in) {
        HdrImage ball;
        if (!load_hdr_file(in, ball, err)) return fail(in, err);
        if (ball.height < 2) return fail(in, "the ball must be at least 2 pixels high");
        pano.width = 2 * ball.width;
        pano.height = ball.height;
        pano.meta = ball.meta;
        pano.rgbe.assign(size_t(4) * pano.width * pano.height, 0);
        remap_hdr(mode, ball.width, ball.height, ball.rgbe.data(), pano.rgbe.data());
        if (!hdr_out && !tonemap_simple(pano, ToneSettings{}, 8, picture, err))
            return fail(in, err);
    } else {
        Image ball;
        if (!read_image(in, ball, err)) return fail(in, err);
        if (ball.height < 2) return fail(in, "the ball must be at least 2 pixels high");
        if (ball.bits == 16 && mode != 0) to_eight_bits(ball);
        picture.width = 2 * ball.width;
        picture.height = ball.height;
        picture.bits = ball.bits;
        picture.pixels.assign(picture.bytes(), 0);
        remap_ldr(mode, ball.bits, ball.width, ball.height, ball.width * 3, picture.width * 3, 3,
                  ball.pixels.data(), picture.pixels.data());
        if (hdr_out) {
            FloatImage floats;
            floats_from_picture(picture, floats);
            hdr_from_floats(floats, pano);
        }
    }
    const bool ok = hdr_out ? save_hdr_file(out, pano, err) : write_image(out, picture, err);
    if (!ok) return fail(out, err);
    std::printf("unwrapped %s into %s (%dx%d)\n", in.c_str(), out.c_str(),
                hdr_out ? pano.width : picture.width, hdr_out ? pano.height : picture.height);
    return exit_ok;
}

} // namespace lvhdr
