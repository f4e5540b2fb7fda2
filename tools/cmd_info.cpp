// lvhdr info: what a picture or HDR file holds.
#include "capture_meta.h"
#include "cli.h"
#include "commands.h"
#include "codecs.h"
#include "hdr_files.h"
#include "hdr_pipeline.h"

#include <cmath>
#include <cstdio>

namespace lvhdr {
namespace {

const char *info_help =
    "usage: lvhdr info [--timings] FILE...\n"
    "\n"
    "Prints each file's size, format and exposure metadata. For an HDR file (Radiance, float\n"
    "TIFF, OpenEXR, 32-bit PSD) it also prints the luminance statistics and the dynamic range\n"
    "in stops; for TIFF and PSD files their samples, depth and ICC profile.\n";

// The layout line of a TIFF or PSD: samples, depth, compression, profile.
void print_layout(const std::string &path, FileKind kind) {
    std::string err;
    if (kind == FileKind::tiff) {
        TiffFacts t;
        if (!describe_tiff(path, t, err)) return;
        static const char *formats[] = {"", "unsigned", "signed", "float"};
        const char *format = t.sample_format >= 1 && t.sample_format <= 3 ? formats[t.sample_format] : "other";
        std::printf("  layout: %d samples, %d-bit %s, %s, %s, %s-endian, ", t.samples, t.bits, format,
                    t.compression == 1 ? "uncompressed" : "compressed", t.tiled ? "tiles" : "strips",
                    t.big_endian ? "big" : "little");
        if (t.profile_bytes > 0)
            std::printf("ICC profile %d bytes\n", t.profile_bytes);
        else
            std::printf("no ICC profile\n");
    } else if (kind == FileKind::psd) {
        ImageFileInfo info{};
        if (getPsdInfo(path.c_str(), &info) < 0) return;
        std::printf("  layout: %d channels, %d-bit, resolution %dx%d, ", info.slot3, info.slot2,
                    info.slot4, info.slot5);
        if (info.profileLength > 0)
            std::printf("ICC profile %d bytes\n", info.profileLength);
        else
            std::printf("no ICC profile\n");
    }
}

bool is_hdr_kind(const std::string &path, FileKind kind) {
    if (kind == FileKind::radiance || kind == FileKind::exr) return true;
    if (kind == FileKind::tiff) return is_float_tiff(path);
    if (kind != FileKind::psd) return false;
    ImageFileInfo info{};
    return getPsdInfo(path.c_str(), &info) >= 0 && info.slot2 == 32;
}

int info_hdr(const std::string &path, FileKind kind, bool timings) {
    std::string err;
    Stopwatch clock;
    HdrImage hdr;
    if (!load_hdr_file(path, hdr, err)) return fail(path, err);
    const double t_read = clock.lap();
    float s[6];
    if (!luminance_stats(hdr, s, err)) return fail(path, err);
    std::printf("%s: %s%s, %dx%d\n", path.c_str(), kind == FileKind::tiff ? "float " : "",
                kind == FileKind::radiance ? "Radiance HDR" : kind_name(kind), hdr.width, hdr.height);
    print_layout(path, kind);
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
    print_layout(path, kind);
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
    if (!parse_args(argc, argv, 2, {{"--timings", nullptr, false}, {"--max-pixels", nullptr, true}},
                    args, err) ||
        !parse_max_pixels(args, err))
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
        else if (is_hdr_kind(path, kind))
            r = info_hdr(path, kind, args.has("--timings"));
        else if (kind == FileKind::unknown)
            r = fail(path, "not a JPEG, PNG, TIFF, PSD, Radiance HDR or OpenEXR file");
        else
            r = info_picture(path, kind);
        if (r != exit_ok) rc = r;
    }
    return rc;
}

} // namespace lvhdr
