// lvhdr's road through the library: merge, Radiance files, statistics, global tone map.
#include "hdr_pipeline.h"

#include "exif_walk.h"
#include "progress_bar.h"

#include <array>
#include <lumivantor/lumivantor.h>

#include <cmath>
#include <cstring>
#include <new>
#include <thread>

namespace lvhdr {

bool Bracket::add(const Image &frame, std::string &error) {
    if (count == 0) {
        width = frame.width;
        height = frame.height;
        bits = frame.bits;
        samples.reserve(frame.bytes() * size_t(planned > 1 ? planned : 1));
    } else if (frame.width != width || frame.height != height) {
        error = "size " + std::to_string(frame.width) + "x" + std::to_string(frame.height) +
                " differs from the bracket's " + std::to_string(width) + "x" +
                std::to_string(height);
        return false;
    } else if (frame.bits != bits) {
        error = std::to_string(frame.bits) + "-bit samples, the bracket has " +
                std::to_string(bits) + "-bit";
        return false;
    }
    samples.insert(samples.end(), frame.pixels.begin(), frame.pixels.begin() + frame.bytes());
    ++count;
    return true;
}

bool merge_bracket(const Bracket &bracket, ExposureSource source, float step,
                   std::vector<float> &exposures, HdrImage &out, float stats[3],
                   std::string &error) {
    const int n = bracket.count;
    if (n < 1) {
        error = "no images to merge";
        return false;
    }
    exposures.resize(size_t(n), 1.0f);
    // The merge takes a step above -0.5 as a request to find the exposures itself: a
    // positive one as an even bracket, zero from the images' brightness.
    float merge_step = -1.0f;
    if (source == ExposureSource::even_step) merge_step = step;
    if (source == ExposureSource::derived) merge_step = 0.0f;
    std::vector<float> curve(bracket.bits == 16 ? 65536 : 256, 0.0f);
    out.width = bracket.width;
    out.height = bracket.height;
    out.rgbe.assign(size_t(4) * bracket.width * bracket.height, 0);
    int rc;
    {
        ProgressBar bar("merging");
        rc = lv_hdr_merge(&ProgressBar::callback, 0, n, bracket.width, bracket.height, 3,
                          bracket.bits, 0, merge_step, curve.data(), exposures.data(),
                          bracket.samples.data(), stats, out.rgbe.data());
    }
    if (rc < 0) {
        error = rc == LV_ERR_NOMEM ? "out of memory" : "merge failed (" + std::to_string(rc) + ")";
        return false;
    }
    return true;
}

std::vector<float> exposures_from_metadata(const std::vector<MetadataBuf> &meta) {
    // Seven fields an image: exposure time and f-number as fractions, APEX shutter, ISO.
    std::vector<float> records(meta.size() * 7, 0.0f);
    for (size_t i = 0; i < meta.size(); ++i)
        lvtool::exposure_record(meta[i], &records[7 * i]);
    get_ev(int(meta.size()), records.data());
    records.resize(meta.size());
    return records;
}

bool write_hdr(const std::string &path, const HdrImage &image, std::string &error) {
    return write_atomically(path, error, [&](const std::string &tmp, std::string &err) {
        const int rc = lv_io_rgbe_write(tmp.c_str(), image.width, image.height, &image.meta, 0, "",
                                        image.rgbe.data());
        if (rc < 0) err = "cannot write the Radiance file (" + std::to_string(rc) + ")";
        return rc >= 0;
    });
}

bool read_hdr(const std::string &path, HdrImage &image, std::string &error) {
    float primaries[8];
    ImageFileInfo info;
    std::memset(&info, 0, sizeof info);
    const int lines = rgbe_dim(path.c_str(), primaries, &info);
    if (lines < 0 || info.width < 1 || info.height < 1) {
        error = lines == -1 ? "cannot open" : "not a readable Radiance HDR header";
        return false;
    }
    image.width = info.width;
    image.height = info.height;
    const size_t bytes = size_t(4) * info.width * info.height;
    if (bytes / 4 / size_t(info.width) != size_t(info.height) || bytes > (size_t(1) << 34)) {
        error = "image too large";
        return false;
    }
    image.rgbe.assign(bytes, 0);
    const int rc = lv_io_read_rgbe(info.width, info.height, path.c_str(), image.rgbe.data());
    if (rc < 0) {
        error = "corrupt Radiance pixel data (" + std::to_string(rc) + ")";
        return false;
    }
    std::memset(&image.meta, 0, sizeof image.meta);
    extract_rgbe_exif(path.c_str(), &image.meta);
    return true;
}

bool luminance_stats(HdrImage &image, float stats[6], std::string &error) {
    float table[256];
    exp_lut(table, -8);
    for (int i = 0; i < 6; ++i)
        stats[i] = 0.0f;
    if (logMinMaxMoy(image.width, image.height, table, image.rgbe.data(), stats) < 0) {
        error = "out of memory";
        return false;
    }
    return true;
}

bool tonemap_simple(HdrImage &image, const ToneSettings &settings, int bits, Image &out,
                    std::string &error) {
    float stats[6];
    if (!luminance_stats(image, stats, error)) return false;
    float p[LV_TMPARAM_COUNT];
    tmparam_default(2, 0, p);
    p[0] = settings.brightness;
    p[1] = settings.compression;
    p[12] = settings.temperature;
    p[13] = settings.saturation;
    float table[256];
    exp_lut(table, -8);
    DimParam dim;
    init_dim_param(&dim);
    dim.width = image.width;
    dim.height = image.height;
    dim.samplesPerPixel = 3;
    dim.bpsOut = bits;
    dim.strideOut = image.width * 3;
    out.width = image.width;
    out.height = image.height;
    out.bits = bits;
    out.pixels.assign(out.bytes(), 0);
    int threads = int(std::thread::hardware_concurrency());
    if (threads < 1) threads = 1;
    const int rc =
        tm_simple(dim, p, nullptr, stats, table, &threads, image.rgbe.data(), out.pixels.data());
    if (rc < 0) {
        error = rc == LV_ERR_STATS ? "the image is flat: no luminance range to map"
                                   : "tone map failed (" + std::to_string(rc) + ")";
        return false;
    }
    return true;
}

void rgbe_pixel(const HdrImage &image, int x, int y, float rgb[3]) {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> t{};
        exp_lut_old(t.data());
        return t;
    }();
    const int w = image.width;
    rgbe2float(image.rgbe.data() + size_t(4) * w * y, table.data(), w, 2 * w, 3 * w, x, rgb);
}

} // namespace lvhdr
