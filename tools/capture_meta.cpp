// EXIF capture metadata for lvhdr.
#include "capture_meta.h"

#include "exif_walk.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace lvhdr {

bool read_capture_metadata(const std::string &path, MetadataBuf &meta) {
    if (!lvtool::read_metadata_file(path.c_str(), &meta, nullptr)) {
        std::memset(&meta, 0, sizeof meta);
        return false;
    }
    return meta.shutterNum > 0 && meta.shutterDen > 0;
}

std::string describe_exposure(const MetadataBuf &meta) {
    std::string s;
    char buf[64];
    if (meta.shutterNum > 0 && meta.shutterDen > 0) {
        const double t = double(meta.shutterNum) / meta.shutterDen;
        if (t < 0.5)
            std::snprintf(buf, sizeof buf, "1/%.0f s", 1.0 / t);
        else
            std::snprintf(buf, sizeof buf, "%.3g s", t);
        s += buf;
    }
    if (meta.apertureNum > 0 && meta.apertureDen > 0) {
        std::snprintf(buf, sizeof buf, "%sf/%.2g", s.empty() ? "" : " ",
                      double(meta.apertureNum) / meta.apertureDen);
        s += buf;
    }
    if (meta.iso > 0) {
        std::snprintf(buf, sizeof buf, "%sISO %d", s.empty() ? "" : " ", int(meta.iso));
        s += buf;
    }
    return s;
}

} // namespace lvhdr
