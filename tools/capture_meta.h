// Capture metadata (exposure time, f-number, ISO, camera, date) of a photograph, read
// from its EXIF block through the library's metadata functions.
#pragma once

#include <lumivantor/fileio.h>

#include <string>

namespace lvhdr {

// Fills `meta` from the file's EXIF block. Returns true when the block gives an exposure
// time, which is what a bracket's exposures are made from.
bool read_capture_metadata(const std::string &path, MetadataBuf &meta);

// "1/250 s f/1.8 ISO 1000", or "" when nothing is known.
std::string describe_exposure(const MetadataBuf &meta);

} // namespace lvhdr
