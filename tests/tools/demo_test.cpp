// The synthetic bracket is what the demo and these tests stand on: it must span the range
// it claims, and the merge of it must come back close to the radiance it was made from.
#ifdef LV_HAVE_LVHDR
#include "hdr_pipeline.h"
#include "synth_bracket.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace lvhdr;

namespace {

// Rendered once: the scene at half the demo's size keeps the suite quick.
struct Fixture {
    Scene scene = render_scene(600, 450);
    std::vector<float> exposures = demo_exposures();
    std::vector<Image> frames = photograph(scene, exposures, Camera{});
};
const Fixture &demo() {
    static const Fixture f;
    return f;
}

Bracket bracket_of(const std::vector<Image> &frames) {
    Bracket b;
    std::string err;
    for (const Image &f : frames)
        EXPECT_TRUE(b.add(f, err)) << err;
    return b;
}

double fraction_at(const Image &im, uint8_t level) {
    size_t n = 0;
    for (uint8_t v : im.pixels)
        n += v == level;
    return double(n) / im.pixels.size();
}

double fraction_below(const Image &im, uint8_t level) {
    size_t n = 0;
    for (uint8_t v : im.pixels)
        n += v < level;
    return double(n) / im.pixels.size();
}

} // namespace

TEST(SyntheticBracket, SpansAtLeastFourteenStopsInFiveFramesTwoStopsApart) {
    const Fixture &d = demo();
    EXPECT_GE(scene_stops(d.scene), 14.0);
    ASSERT_EQ(d.frames.size(), 5u);
    ASSERT_EQ(d.exposures.size(), 5u);
    for (size_t i = 1; i < d.exposures.size(); ++i)
        EXPECT_NEAR(std::log2(d.exposures[i] / d.exposures[i - 1]), 2.0, 1e-6);
    // The darkest frame still clips the sun and leaves the shade in the bottom codes; the
    // brightest clips most of the picture: no single frame holds the scene.
    EXPECT_GT(fraction_at(d.frames.front(), 255), 0.0);
    EXPECT_GT(fraction_below(d.frames.front(), 16), 0.2);
    EXPECT_GT(fraction_at(d.frames.back(), 255), 0.3);
}

TEST(SyntheticBracket, IsRepeatable) {
    const Fixture &d = demo();
    const std::vector<Image> again = photograph(d.scene, d.exposures, Camera{});
    for (size_t i = 0; i < again.size(); ++i)
        EXPECT_EQ(again[i].pixels, d.frames[i].pixels);
}

// Bound on the median relative error with the true exposures: 3%. One code of noise at
// mid-scale is about 1.7% of radiance through a 1/2.2 curve, quantisation adds 0.6%, and
// the RGBE mantissa up to 0.8%; the weighted mean of two or three frames brings the
// median under 2%. A wrong exposure, curve or frame order costs tens of percent.
TEST(SyntheticBracket, MergeWithKnownExposuresIsWithinThreePercentOfTheTruth) {
    const Fixture &d = demo();
    const Bracket bracket = bracket_of(d.frames);
    std::vector<float> used = d.exposures;
    HdrImage hdr;
    float stats[3];
    std::string err;
    ASSERT_TRUE(merge_bracket(bracket, ExposureSource::given, 0, used, hdr, stats, err)) << err;
    const Accuracy a = measure_accuracy(d.scene, hdr, d.exposures);
    EXPECT_GT(a.pixels, size_t(600 * 450 / 2)) << "most of the scene is recorded by some frame";
    EXPECT_LT(a.median_error, 0.03);
    EXPECT_GT(a.scale, 0.0);
}

TEST(SyntheticBracket, AccuracyMeasureCatchesAFrameWithTheWrongExposure) {
    const Fixture &d = demo();
    const Bracket bracket = bracket_of(d.frames);
    std::vector<float> wrong = d.exposures;
    wrong[1] *= 4.0f; // one frame claimed two stops brighter than it was
    wrong[3] /= 4.0f;
    HdrImage hdr;
    float stats[3];
    std::string err;
    ASSERT_TRUE(merge_bracket(bracket, ExposureSource::given, 0, wrong, hdr, stats, err)) << err;
    EXPECT_GT(measure_accuracy(d.scene, hdr, d.exposures).median_error, 0.1);
}

TEST(SyntheticBracket, ExposuresDerivedFromTheImagesRiseWithTheFrames) {
    const Fixture &d = demo();
    std::vector<float> derived;
    HdrImage hdr;
    float stats[3];
    std::string err;
    ASSERT_TRUE(
        merge_bracket(bracket_of(d.frames), ExposureSource::derived, 0, derived, hdr, stats, err))
        << err;
    ASSERT_EQ(derived.size(), 5u);
    // The two brightest frames are mostly clipped and may measure alike, so only the
    // order and the overall spread are held.
    for (size_t i = 1; i < derived.size(); ++i)
        EXPECT_GE(derived[i], derived[i - 1]);
    EXPECT_GT(std::log2(derived.back() / derived.front()), 4.0);
}

#endif
