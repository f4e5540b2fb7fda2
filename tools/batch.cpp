// lvhdr merge --batch: a shoot of many brackets, one .hdr per bracket named after its first
// frame. Each bracket goes through the ordinary merge command with the same options, so a
// batch merges exactly as the single command would; a bracket that fails is reported and
// the others go on.
#include "capture_meta.h"
#include "commands.h"
#include "ghost_tools.h"
#include "progress_bar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace lvhdr {
namespace {

namespace fs = std::filesystem;

// The image files of a folder in name order, or the paths as given.
std::vector<std::string> batch_inputs(const std::vector<std::string> &positional) {
    std::error_code ec;
    if (positional.size() != 1 || !fs::is_directory(positional[0], ec)) return positional;
    std::vector<std::string> files;
    for (const auto &entry : fs::directory_iterator(positional[0], ec)) {
        const std::string ext = extension_of(entry.path().string());
        if (entry.is_regular_file(ec) &&
            (ext == "jpg" || ext == "jpeg" || ext == "png" || ext == "tif" || ext == "tiff"))
            files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Groups of `size` frames in order; with size 0, a new bracket starts whenever a frame's
// EXIF exposure comes back to the exposure that opened the current bracket.
bool group_frames(const std::vector<std::string> &files, int size,
                  std::vector<std::vector<std::string>> &groups, std::string &error) {
    if (size > 0) {
        for (size_t i = 0; i < files.size(); i += size_t(size))
            groups.emplace_back(files.begin() + std::ptrdiff_t(i),
                                files.begin() +
                                    std::ptrdiff_t(std::min(files.size(), i + size_t(size))));
        return true;
    }
    std::vector<MetadataBuf> meta(files.size());
    for (size_t i = 0; i < files.size(); ++i)
        if (!read_capture_metadata(files[i], meta[i])) {
            error = files[i] + ": no EXIF exposure to group by (give --batch N)";
            return false;
        }
    const std::vector<float> exposure = exposures_from_metadata(meta);
    float opening = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        if (!(exposure[i] > 0)) {
            error = files[i] + ": no EXIF exposure to group by (give --batch N)";
            return false;
        }
        if (groups.empty() || std::fabs(std::log2(exposure[i] / opening)) < 0.1) {
            groups.emplace_back();
            opening = exposure[i];
        }
        groups.back().push_back(files[i]);
    }
    return true;
}

} // namespace

int run_batch(const ParsedArgs &args) {
    const std::string grouping = args.get("--batch");
    int size = 0;
    if (grouping != "auto") {
        double v = 0;
        std::string err;
        if (!parse_number("--batch", grouping, 2, 64, v, err) || v != std::floor(v))
            return usage_error("merge",
                               "--batch takes a whole number of frames from 2 to 64, or auto");
        size = int(v);
    }
    for (const char *single : {"--selection", "--save-selection", "--ghost-mask", "--times"})
        if (args.has(single))
            return usage_error("merge", std::string(single) + " is for one bracket, not --batch");
    const std::string outdir = args.get("--output");
    if (outdir.empty()) return usage_error("merge", "no output folder given (-o OUTDIR)");
    std::error_code ec;
    fs::create_directories(outdir, ec);
    if (!fs::is_directory(outdir, ec)) return fail(outdir, "can't make the output folder");

    const std::vector<std::string> files = batch_inputs(args.positional);
    std::vector<std::vector<std::string>> groups;
    std::string err;
    if (files.empty()) return usage_error("merge", "no input images given");
    if (!group_frames(files, size, groups, err)) return fail("--batch auto", err);

    // The other options go to every bracket's merge as they were given.
    std::vector<std::string> common = {"lvhdr", "merge"};
    for (const auto &[name, value] : args.options) {
        if (name == "--batch" || name == "--output") continue;
        common.push_back(name);
        if (!value.empty()) common.push_back(value);
    }
    int merged = 0;
    std::vector<std::string> failed;
    ProgressBar bar("batch");
    for (size_t g = 0; g < groups.size(); ++g) {
        std::vector<std::string> argv_s = common;
        argv_s.push_back("-o");
        argv_s.push_back((fs::path(outdir) / fs::path(groups[g][0]).stem()).string() + ".hdr");
        argv_s.insert(argv_s.end(), groups[g].begin(), groups[g].end());
        std::vector<char *> argv;
        for (std::string &a : argv_s)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        std::printf("bracket %zu of %zu: %zu frames from %s\n", g + 1, groups.size(),
                    groups[g].size(), groups[g][0].c_str());
        std::fflush(stdout);
        if (cmd_merge(int(argv.size()) - 1, argv.data()) == exit_ok)
            ++merged;
        else
            failed.push_back(groups[g][0]);
        bar.update(float(g + 1) / float(groups.size()));
    }
    bar.done();
    std::printf("merged %d of %zu brackets into %s\n", merged, groups.size(), outdir.c_str());
    for (const std::string &f : failed)
        std::printf("  skipped the bracket that starts with %s\n", f.c_str());
    return failed.empty() ? exit_ok : exit_failed;
}

} // namespace lvhdr
