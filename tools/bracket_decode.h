// Decoding a bracket of ordinary image files into one buffer, shared by the commands that
// take photographs (merge, fuse): the same checks and the same one-line errors.
#pragma once

#include "hdr_pipeline.h"

#include <string>
#include <vector>

namespace lvhdr {

// Decodes every file, refuses a bracket of more than max_pixels() pixels in all, turns it upright
// by its EXIF orientation and appends it to `bracket`, with a progress bar. `meta`, when given,
// receives each file's capture metadata, and `all_have_exif` whether every file gave an exposure
// time. With `frames` given, the upright frames are kept there instead of going into the bracket
// (alignment needs them all first). On failure returns false with the file in `failed` and the
// reason in `error`.
bool decode_bracket(const std::vector<std::string> &paths, Bracket &bracket,
                    std::vector<MetadataBuf> *meta, bool *all_have_exif, std::string &failed,
                    std::string &error, std::vector<Image> *frames = nullptr);

} // namespace lvhdr
