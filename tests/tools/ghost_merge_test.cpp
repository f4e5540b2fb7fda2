// lvhdr's hand-held road on the night bracket: alignment and ghost removal must leave less
// doubling at edges, selections must round-trip, and a batch must survive a bad bracket.
#ifdef LV_HAVE_LVHDR

#include "capture_meta.h"
#include "exif_walk.h"
#include "ghost_tools.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

using namespace lvhdr;
using namespace tooltest;

namespace {

const std::string night = std::string(LV_DATA_DIR) + "/night/small";
const char *const shots[] = {"3869", "3871", "3873", "3875", "3877"};

std::string frame_path(int i) {
    return night + "/IMG_" + shots[i] + ".jpg";
}

// Mean squared log difference of exposure-normalised luminance between neighbouring frames,
// at the strongest edges of the middle frame where both frames are well exposed: what the
// merge turns into doubled edges.
double edge_doubling(const Bracket &b, const std::vector<float> &exposures) {
    const size_t per = size_t(b.width) * b.height * 3;
    const auto level = [&](int f, size_t px) {
        const uint8_t *p = &b.samples[per * size_t(f) + 3 * px];
        return (54 * p[0] + 183 * p[1] + 19 * p[2]) / 256.0;
    };
    std::vector<double> edge;
    for (int y = 1; y + 1 < b.height; ++y)
        for (int x = 1; x + 1 < b.width; ++x) {
            const size_t i = size_t(y) * b.width + x;
            edge.push_back(std::fabs(level(2, i + 1) - level(2, i - 1)) +
                           std::fabs(level(2, i + b.width) - level(2, i - b.width)));
        }
    std::vector<double> sorted = edge;
    std::nth_element(sorted.begin(), sorted.begin() + sorted.size() * 95 / 100, sorted.end());
    const double strong = sorted[sorted.size() * 95 / 100];
    double energy = 0;
    long count = 0;
    for (int y = 1; y + 1 < b.height; ++y)
        for (int x = 1; x + 1 < b.width; ++x) {
            const size_t i = size_t(y) * b.width + x;
            if (edge[size_t(y - 1) * (b.width - 2) + x - 1] < strong) continue;
            for (int f = 0; f + 1 < b.count; ++f) {
                const double a = level(f, i), c = level(f + 1, i);
                if (a < 20 || a > 235 || c < 20 || c > 235) continue;
                const double d = 2.2 * std::log(a / c) - std::log(exposures[f] / exposures[f + 1]);
                energy += d * d;
                ++count;
            }
        }
    return energy / std::max(count, 1L);
}

TEST(HandHeldMerge, AlignAndDeghostLeaveLessDoublingAtEdges) {
    if (!file_exists(frame_path(0))) GTEST_SKIP() << "sample data absent: " << night;
    std::vector<Image> frames(5);
    std::vector<MetadataBuf> meta(5);
    std::string err;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(read_image(frame_path(i), frames[i], err)) << err;
        turn_upright(frames[i], lvtool::read_orientation_file(frame_path(i).c_str()));
        read_capture_metadata(frame_path(i), meta[i]);
    }
    std::vector<float> exposures = exposures_from_metadata(meta);
    const auto bracket_of = [&](const std::vector<Image> &fs) {
        Bracket b;
        b.planned = 5;
        for (const Image &f : fs)
            EXPECT_TRUE(b.add(f, err)) << err;
        return b;
    };
    const double plain = edge_doubling(bracket_of(frames), exposures);
    std::vector<Shift> shifts;
    ASSERT_TRUE(align_frames(frames, shifts, err)) << err;
    Bracket b = bracket_of(frames);
    const double aligned = edge_doubling(b, exposures);
    DeghostReport report;
    ASSERT_TRUE(
        deghost_bracket(b, ExposureSource::given, 0, exposures, DeghostOptions{}, report, err))
        << err;
    const double clean = edge_doubling(b, exposures);
    std::printf(
        "edge doubling: plain %.4f, aligned %.4f, aligned and de-ghosted %.4f (%d regions)\n",
        plain, aligned, clean, report.regions);
    EXPECT_LT(aligned, 0.9 * plain);
    EXPECT_LT(clean, aligned);
}

TEST(HandHeldMerge, SavedSelectionMergesAsDetectedAndBatchSkipsABadBracket) {
    if (!file_exists(frame_path(0))) GTEST_SKIP() << "sample data absent: " << night;
    const std::string dir = scratch_dir();
    std::string all;
    for (int i = 0; i < 5; ++i)
        all += " '" + frame_path(i) + "'";
    RunResult r =
        run_lvhdr("merge --deghost --save-selection '" + dir + "/sel.mask' --ghost-mask '" + dir +
                  "/mask.png' -o '" + dir + "/a.hdr'" + all);
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(file_exists(dir + "/mask.png"));
    const auto regions = [](const std::string &out) { return out.substr(out.find("ghosts:"), 40); };
    const std::string detected = regions(r.out);
    r = run_lvhdr("merge --selection '" + dir + "/sel.mask' -o '" + dir + "/b.hdr'" + all);
    ASSERT_EQ(r.exit_code, 0) << r.err;
    EXPECT_EQ(regions(r.out).substr(0, 16), detected.substr(0, 16)) << detected << " / " << r.out;

    // Frames 1-2 and 3-4 merge; the third bracket holds a file that is not an image.
    FILE *bad = std::fopen((dir + "/zz-bad.jpg").c_str(), "w");
    std::fputs("not a photograph", bad);
    std::fclose(bad);
    r = run_lvhdr("merge --batch 2 -o '" + dir + "/out'" + all.substr(0, all.rfind(" '")) + " '" +
                  dir + "/zz-bad.jpg'");
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_NE(r.out.find("merged 2 of 3 brackets"), std::string::npos) << r.out;
    EXPECT_EQ(count_entries(dir + "/out"), 2);
    r = run_lvhdr("merge --batch auto -o '" + dir + "/auto'" + all);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    EXPECT_TRUE(file_exists(dir + "/auto/IMG_3869.hdr")) << r.out;
}

} // namespace

#endif
