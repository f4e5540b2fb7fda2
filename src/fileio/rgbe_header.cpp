// Radiance header: the end-of-header test, the dimension and primaries inspector and the
// capture metadata carried in the header lines.
#include <climits>
#include <cmath>
#include <cstring>
#include <sys/types.h>

#include "fileio/rgbe_internal.h"
#include "frame/rational.h"

static_assert(sizeof(MetadataBuf) == 176, "MetadataBuf is shared with hosts: 23 ints, 84 bytes");
static_assert(sizeof(ImageFileInfo) == 48, "ImageFileInfo is twelve int32 slots");

extern "C" LV_API int rgbe_end_of_header(const uint8_t *line, int32_t length) {
    const uint8_t first = line[0];
    if (first == 0 || first == '\n') return 1;
    if (first != '\t' && first != ' ') return 0;
    // A line of blanks ends the header too.
    for (int32_t i = 1; i < length && line[i] != 0; ++i) {
        const uint8_t c = line[i];
        if (c != '\t' && c != '\n' && c != ' ') return 0;
    }
    return 1;
}

namespace {

// Default chromaticities of the Radiance primaries, stored when a caller arrives with
// profileLength set and the file names none.
constexpr float kDefaultPrimaries[8] = {0.648431f, 0.330856f, 0.321152f, 0.597871f,
                                        0.155886f, 0.066044f, 0.3101f,   0.3162f};

// Copies the value after a prefix, up to its line feed, into a working copy that carries
// over between lines, then into the field. An empty value leaves the field alone.
void copy_text_value(const char *value, char *work, size_t size, char *field) {
    if (value[0] == '\n' || value[0] == 0) return;
    size_t i = 0;
    while (i < size && value[i] != '\n' && value[i] != 0) {
        work[i] = value[i];
        ++i;
    }
    memcpy(field, work, size);
}

bool starts_with(const char *s, const char *prefix) {
    return strncmp(s, prefix, strlen(prefix)) == 0;
}

} // namespace

extern "C" LV_API int rgbe_dim(const char *path, float *primaries, ImageFileInfo *info) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) return -1;
    if (fseeko(f.get(), 0, SEEK_END) != 0) return -1;
    const off_t size = ftello(f.get());
    if (size < 0 || fseeko(f.get(), 0, SEEK_SET) != 0) return -1;

    float values[8];
    memcpy(values, kDefaultPrimaries, sizeof values);
    char line[lv::kHeaderLine];
    const int lines = lv::walk_header(f.get(), line, [&](const char *text) {
        float p[8];
        if (sscanf(text, "PRIMARIES= %f %f %f %f %f %f %f %f", &p[0], &p[1], &p[2], &p[3], &p[4],
                   &p[5], &p[6], &p[7]) == 8) {
            memcpy(values, p, sizeof values);
            info->profileLength = 32; // the size of the primaries block
        }
    });
    if (lines < 0) return -2;

    int width, height;
    lv::scan_resolution(line, &width, &height);
    // A missing dimension is the failure; a negative one is as unusable.
    if (width <= 0 || height <= 0) return -3;
    info->width = width;
    info->height = height;
    info->slot2 = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(size)));
    if (primaries) {
        if (info->profileLength < 1)
            memset(primaries, 0, sizeof values);
        else
            memcpy(primaries, values, sizeof values);
    }
    return lines;
}

extern "C" LV_API int extract_rgbe_exif(const char *path, MetadataBuf *meta) {
    lv::FilePtr f = lv::open_file(path, "rb");
    if (!f) return -1;
    bool first = true;
    char camera[sizeof meta->camera] = {};
    char date[sizeof meta->captureDate] = {};
    char line[lv::kHeaderLine];
    const int lines = lv::walk_header(f.get(), line, [&](const char *text) {
        if (first) meta->colorProfile = -1; // only once the first line has been read
        first = false;
        if (starts_with(text, "CAMERA="))
            copy_text_value(text + 7, camera, sizeof camera, meta->camera);
        if (starts_with(text, "CAPDATE="))
            copy_text_value(text + 8, date, sizeof date, meta->captureDate);
        if (starts_with(text, "ICC_PROFILE=")) {
            const char *v = text + 12;
            if (starts_with(v, "sRGB"))
                meta->colorProfile = 0;
            else if (starts_with(v, "Adobe RGB"))
                meta->colorProfile = 1;
            else if (starts_with(v, "ProPhoto RGB"))
                meta->colorProfile = 2;
        }
        float v;
        int iso;
        if (sscanf(text, "SHUTTER=%f", &v) == 1)
            lv::to_rational(v, &meta->shutterNum, &meta->shutterDen);
        if (sscanf(text, "APERTURE=%f", &v) == 1)
            lv::to_rational(v, &meta->apertureNum, &meta->apertureDen);
        if (sscanf(text, "ISO=%d", &iso) == 1) meta->iso = iso;
        if (sscanf(text, "FOCAL_LENGTH=%f", &v) == 1)
            lv::to_rational(v, &meta->focalNum, &meta->focalDen);
    });
    return lines < 0 ? -1 : lines;
}
