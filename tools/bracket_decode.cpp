// Decoding of a bracket for lvhdr's commands.
#include "bracket_decode.h"

#include "capture_meta.h"
#include "exif_walk.h"
#include "progress_bar.h"

namespace lvhdr {

bool decode_bracket(const std::vector<std::string> &paths, Bracket &bracket,
                    std::vector<MetadataBuf> *meta, bool *all_have_exif, std::string &failed,
                    std::string &error, std::vector<Image> *frames) {
    const int n = int(paths.size());
    if (frames) frames->assign(size_t(n), Image{});
    bracket.planned = n;
    if (meta) meta->assign(size_t(n), MetadataBuf{});
    if (all_have_exif) *all_have_exif = true;
    ProgressBar bar("decoding");
    for (int i = 0; i < n; ++i) {
        const std::string &path = paths[size_t(i)];
        failed = path;
        Image frame;
        if (!read_image(path, frame, error)) return false;
        if (uint64_t(frame.width) * uint64_t(frame.height) * uint64_t(n) > max_pixels()) {
            error = "a bracket of " + std::to_string(n) + " images of " +
                    std::to_string(frame.width) + "x" + std::to_string(frame.height) +
                    " is more than the limit of " + std::to_string(max_pixels()) +
                    " pixels (raise it with --max-pixels)";
            return false;
        }
        // Phones store frames sideways and say so in EXIF; use them upright.
        turn_upright(frame, lvtool::read_orientation_file(path.c_str()));
        if (frames)
            (*frames)[size_t(i)] = std::move(frame);
        else if (!bracket.add(frame, error))
            return false;
        if (meta && !read_capture_metadata(path, (*meta)[size_t(i)]) && all_have_exif)
            *all_have_exif = false;
        bar.update(float(i + 1) / n);
    }
    failed.clear();
    return true;
}

} // namespace lvhdr
