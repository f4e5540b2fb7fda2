// Composition of the command lines that would copy metadata and extract a thumbnail with
// an external tool. Nothing here starts a process: the text is built and dropped, and the
// entry points answer -1, "nothing was run". Paths are quoted but not escaped.
#include "metadata/copy_commands.h"

#include <lumivantor/metadata.h>

#include <array>

namespace {

std::string text(const char *s) {
    return s ? std::string(s) : std::string();
}

// Appended piece by piece: that keeps the compiler's overlap checker quiet about
// literal-plus-temporary concatenations.
std::string quoted(const char *s) {
    std::string q(1, '"');
    q += text(s);
    q += '"';
    return q;
}

// tool, options, the quoted source, and the tool's output sent to the quoted file.
std::string output_to_file(const char *tool, const char *options, const char *source,
                           const char *file) {
    std::string cmd = text(tool);
    cmd += options;
    cmd += quoted(source);
    cmd += " > ";
    cmd += quoted(file);
    return cmd;
}

} // namespace

namespace lv {

std::span<const std::string> imageTags2Preserve() {
    static const std::array<std::string, 15> tags = {"Artist",
                                                     "BitsPerSample",
                                                     "Compression",
                                                     "Copyright",
                                                     "DateTime",
                                                     "InterColorProfile",
                                                     "Make",
                                                     "Model",
                                                     "PhotometricInterpretation",
                                                     "PlanarConfiguration",
                                                     "ResolutionUnit",
                                                     "SamplesPerPixel",
                                                     "Software",
                                                     "XResolution",
                                                     "YResolution"};
    return tags;
}

std::span<const std::string> gpsTags2Preserve() {
    static const std::array<std::string, 9> tags = {
        "GPSAltitude",  "GPSAltitudeRef",  "GPSDateStamp", "GPSLatitude", "GPSLatitudeRef",
        "GPSLongitude", "GPSLongitudeRef", "GPSTimeStamp", "GPSVersionID"};
    return tags;
}

std::span<const std::string> photoTags2Preserve() {
    static const std::array<std::string, 29> tags = {"Aperture",
                                                     "ColorSpace",
                                                     "CustomRendered",
                                                     "DateTimeDigitized",
                                                     "DateTimeOriginal",
                                                     "DigitalZoomRatio",
                                                     "ExposureBias",
                                                     "ExposureMode",
                                                     "ExposureProgram",
                                                     "ExposureTime",
                                                     "Flash",
                                                     "FNumber",
                                                     "FocalLength",
                                                     "FocalPlaneResolutionUnit",
                                                     "FocalPlaneXResolution",
                                                     "FocalPlaneYResolution",
                                                     "ISOSpeedRatings",
                                                     "LensModel",
                                                     "LensSpecification",
                                                     "MaxAperture",
                                                     "MeteringMode",
                                                     "SceneCaptureType",
                                                     "ShutterSpeed",
                                                     "SubjectDistanceRange",
                                                     "SubSecTime",
                                                     "SubSecTimeDigitized",
                                                     "SubSecTimeOriginal",
                                                     "WhiteBalance",
                                                     "FocalLengthIn35mmFilm"};
    return tags;
}

std::string compose_copy_metadata(const char *source, const char *destination, const char *tool,
                                  const char *thumbnail, const char *software, int withThumbnail,
                                  int withColorTemperature) {
    std::string cmd = text(tool);
    cmd += " -q -overwrite_original -tagsfromfile ";
    cmd += quoted(source);
    // Everything of the source but the sizes and orientation, which the result has its own.
    cmd += " -exif:all --exif:XResolution --exif:YResolution --exif:ExifImageWidth"
           " --exif:ExifImageHeight --exif:orientation -GPS:all -XMP:all";
    // A result whose temperature was changed must not claim the camera's white balance:
    // the colour temperature is set empty, which clears it.
    if (withColorTemperature) cmd += " --XMP:WhiteBalance -XMP:ColorTemperature=";
    cmd += " --xmp-crs:AlreadyApplied ";
    cmd += "-Software=";
    cmd += quoted(software);
    cmd += " ";
    if (withThumbnail) {
        cmd += "\"-ThumbnailImage<=";
        cmd += text(thumbnail);
        cmd += "\" ";
    }
    cmd += quoted(destination);
    return cmd;
}

std::string compose_read_thumbnail(const char *source, const char *destination, const char *tool) {
    return output_to_file(tool, " -b -ThumbnailImage ", source, destination);
}

std::string compose_list_tags(const char *source, const char *tool, const char *fourth) {
    return output_to_file(tool, " -Pkyv ", source, fourth);
}

} // namespace lv

extern "C" {

LV_API bool shouldCopyTag(std::string tag, std::string *table, int count) {
    if (!table) return false;
    for (int i = 0; i < count; ++i)
        if (table[i] == tag) return true;
    return false;
}

// The composed text is dropped: a build that wants the copy done runs it itself. Length
// and allocation errors stay inside, since nothing may throw across the C boundary.
LV_API int exiv2WrapperCopyMetadata(char *source, char *destination, char *tool, char *thumbnail,
                                    int /*ignored*/, char *software, int withThumbnail,
                                    int withColorTemperature) {
    try {
        (void)lv::compose_copy_metadata(source, destination, tool, thumbnail, software,
                                        withThumbnail, withColorTemperature);
    } catch (...) {
    }
    return -1;
}

LV_API int wrapMetadata(char *source, char *destination, char *tool, char *thumbnail,
                        int /*ignored*/, char *software, int withThumbnail,
                        int withColorTemperature) {
    exiv2WrapperCopyMetadata(source, destination, tool, thumbnail, withColorTemperature, software,
                             withThumbnail, withColorTemperature);
    return -1;
}

LV_API int old_exiv2WrapperCopyMetadata(char *source, char * /*destination*/, char *tool,
                                        char *fourth, char * /*fifth*/) {
    try {
        // The tables are built first, as the filtering form of this command needs them.
        (void)lv::imageTags2Preserve();
        (void)lv::gpsTags2Preserve();
        (void)lv::photoTags2Preserve();
        (void)lv::compose_list_tags(source, tool, fourth);
    } catch (...) {
    }
    return -1;
}

LV_API int readThumbnailIntoFile(char *source, char *destination, char *tool) {
    try {
        (void)lv::compose_read_thumbnail(source, destination, tool);
    } catch (...) {
    }
    return -1;
}

} // extern "C"
