// Frame alignment for hand-held brackets through median threshold bitmaps: each frame is
// reduced to "above its own median" bits, which look alike whatever the exposure, and the
// shift that best matches the reference's bits is searched coarse to fine.
#include "ghost_tools.h"

#include <opencv2/photo.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace lvhdr {
namespace {

// 8-bit grey of an RGB frame (high bytes of 16-bit samples), as the bitmaps need.
cv::Mat grey_of(const Image &frame) {
    cv::Mat grey(frame.height, frame.width, CV_8UC1);
    const size_t count = size_t(frame.width) * frame.height;
    const auto *p8 = frame.pixels.data();
    const auto *p16 = reinterpret_cast<const uint16_t *>(frame.pixels.data());
    for (size_t i = 0; i < count; ++i) {
        int rgb[3];
        for (int c = 0; c < 3; ++c)
            rgb[c] = frame.bits == 16 ? p16[3 * i + c] >> 8 : p8[3 * i + c];
        grey.data[i] = static_cast<uint8_t>((54 * rgb[0] + 183 * rgb[1] + 19 * rgb[2]) >> 8);
    }
    return grey;
}

} // namespace

bool align_frames(std::vector<Image> &frames, std::vector<Shift> &shifts, std::string &error) {
    const int n = int(frames.size());
    shifts.assign(size_t(n), Shift{});
    if (n < 2) return true;
    const int ref = n / 2;
    const int w = frames[0].width, h = frames[0].height;
    try {
        // Shifts of up to 2^6 = 64 pixels; values within 4 of the median are left out of the
        // bitmaps, where noise decides the side.
        cv::Ptr<cv::AlignMTB> mtb = cv::createAlignMTB(6, 4, false);
        const cv::Mat reference = grey_of(frames[size_t(ref)]);
        for (int i = 0; i < n; ++i) {
            if (i == ref) continue;
            const cv::Point p = mtb->calculateShift(reference, grey_of(frames[size_t(i)]));
            shifts[size_t(i)] = Shift{p.x, p.y};
        }
    } catch (const cv::Exception &e) {
        error = std::string("alignment failed: ") + e.what();
        return false;
    }
    // The area every frame covers, in reference coordinates.
    int x0 = 0, y0 = 0, x1 = w, y1 = h;
    for (const Shift &s : shifts) {
        x0 = std::max(x0, s.dx);
        y0 = std::max(y0, s.dy);
        x1 = std::min(x1, w + s.dx);
        y1 = std::min(y1, h + s.dy);
    }
    if (x1 - x0 < 8 || y1 - y0 < 8) {
        error = "the frames don't overlap after alignment";
        return false;
    }
    for (int i = 0; i < n; ++i) {
        Image &f = frames[size_t(i)];
        const size_t px = size_t(3 * (f.bits / 8));
        Image out;
        out.width = x1 - x0;
        out.height = y1 - y0;
        out.bits = f.bits;
        out.pixels.resize(out.bytes());
        const Shift s = shifts[size_t(i)];
        for (int y = 0; y < out.height; ++y)
            std::memcpy(&out.pixels[size_t(y) * out.width * px],
                        &f.pixels[(size_t(y + y0 - s.dy) * w + size_t(x0 - s.dx)) * px],
                        size_t(out.width) * px);
        f = std::move(out);
    }
    return true;
}

} // namespace lvhdr

namespace lvhdr {

bool align_and_report(std::vector<Image> &frames, const std::vector<std::string> &names,
                      std::string &error) {
    std::vector<Shift> shifts;
    if (!align_frames(frames, shifts, error)) return false;
    std::printf("aligned on %s, cropped to %dx%d\n", names[names.size() / 2].c_str(),
                frames.empty() ? 0 : frames[0].width, frames.empty() ? 0 : frames[0].height);
    for (size_t i = 0; i < shifts.size(); ++i)
        std::printf("  %-40s shift %+d, %+d px\n", names[i].c_str(), shifts[i].dx, shifts[i].dy);
    return true;
}

} // namespace lvhdr
