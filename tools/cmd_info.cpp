// lvhdr info: what a picture or HDR file holds.
#include "capture_meta.h"
#include "cli.h"
#include "commands.h"
#include "hdr_pipeline.h"

#include <cmath>
#include <cstdio>

namespace lvhdr {
namespace {

const char *info_help =
    "usage: lvhdr info [--timings] FILE...\n"
    "\n"
    "Prints each file's size, format and exposure metadata. For a Radiance HDR file it also\n"
    "prints the luminance statistics and the dynamic range in stops.\n";

int info_hdr(const std::string &path, bool timings) {
    std::string err;
    Stopwatch clock;
    HdrImage hdr;
    if (!read_hdr(path, hdr, err)) return fail(path, err);
    const double t_read = clock.lap();
    float s[6];
    if (!luminance_stats(hdr, s, err)) return fail(path, err);
    std::printf("%s: Radiance HDR, %dx%d\n", path.c_str(), hdr.width, hdr.height);
    const std::string settings = describe_exposure(hdr.meta);
    if (hdr.meta.camera[0] || !settings.empty())
        std::printf("  capture: %.64s%s%s\n", hdr.meta.camera, hdr.meta.camera[0] ? "  " : "",
                    settings.c_str());
    if (!(s[1] > s[0])) {
        std::printf("  luminance: flat or empty\n");
        return exit_ok;
    }
    const double ln2 = std::log(2.0);
    std::printf("  luminance: min %.4g, median %.4g, mean (log) %.4g, 99.5%% %.4g, max %.4g\n",
                std::exp(s[0]), std::exp(s[3]), std::exp(s[2]), std::exp(s[4]), std::exp(s[1]));
    std::printf("  dynamic range: %.1f stops (min to max), %.1f stops (min to 99.5%%)\n",
                (s[1] - s[0]) / ln2, (s[4] - s[0]) / ln2);
    if (timings) std::printf("  timings: read %.3f s\n", t_read);
    return exit_ok;
}

int info_picture(const std::string &path, FileKind kind) {
    std::string err;
    Image image;
    if (!read_image(path, image, err)) return fail(path, err);
    std::printf("%s: %s, %dx%d, %d-bit RGB\n", path.c_str(), kind_name(kind), image.width,
                image.height, image.bits);
    MetadataBuf meta;
    const bool exposed = read_capture_metadata(path, meta);
    const std::string settings = describe_exposure(meta);
    if (meta.camera[0]) std::printf("  camera: %.64s\n", meta.camera);
    if (meta.captureDate[0]) std::printf("  taken: %.20s\n", meta.captureDate);
    std::printf("  exposure: %s\n", exposed ? settings.c_str() : "no EXIF exposure");
    return exit_ok;
}

} // namespace

int cmd_info(int argc, char **argv) {
    ParsedArgs args;
    std::string err;
    if (!parse_args(argc, argv, 2, {{"--timings", nullptr, false}}, args, err))
        return usage_error("info", err);
    if (args.has("--help")) {
        std::fputs(info_help, stdout);
        return exit_ok;
    }
    if (args.positional.empty()) return usage_error("info", "no file given");
    int rc = exit_ok;
    for (const std::string &path : args.positional) {
        const FileKind kind = sniff_file(path);
        int r;
        if (kind == FileKind::missing)
            r = fail(path, "no such file");
        else if (kind == FileKind::radiance)
            r = info_hdr(path, args.has("--timings"));
        else if (kind == FileKind::unknown)
            r = fail(path, "not a JPEG, PNG, TIFF or Radiance HDR file");
        else
            r = info_picture(path, kind);
        if (r != exit_ok) rc = r;
    }
    return rc;
}

} // namespace lvhdr
