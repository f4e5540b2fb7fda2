// Parameter-block defaults and the threshold sliders.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <map>
#include <vector>

namespace {

using Defaults = std::map<int, float>;

void expect_block(int method, int variant, const Defaults &want) {
    std::vector<float> p(LV_TMPARAM_COUNT * 2, -1.0f);
    EXPECT_EQ(tmparam_default(method, variant, p.data()), 0);
    for (int i = 0; i < LV_TMPARAM_COUNT; ++i) {
        auto it = want.find(i);
        EXPECT_EQ(p[i], it == want.end() ? 0.0f : it->second)
            << "method " << method << " index " << i;
    }
    EXPECT_EQ(p[LV_TMPARAM_COUNT], -1.0f) << "only one block is written";
}

TEST(ParameterBlock, DefaultsOfEveryMethod) {
    const Defaults enhancer = {{1, 70}, {2, 46}, {3, 0.25f}, {5, 1}, {7, 2}, {8, 50}, {16, 1}};
    expect_block(1, 0, enhancer);
    expect_block(1, -3, enhancer);
    Defaults variant = enhancer;
    variant[1] = 40;
    expect_block(1, 1, variant);
    expect_block(3, 0, {{0, 50}, {2, 20}, {3, 0.6000000238418579f}, {4, 0.25f}});
    expect_block(10, 0, {{8, 2}});
    expect_block(11, 0, {{2, 70}});
    expect_block(12, 0, {{8, 2}, {9, 1}});
    expect_block(15, 0, {{8, 2}, {9, 1}});
    for (int m : {-1, 0, 2, 4, 5, 6, 7, 8, 9, 13, 14, 16, 100})
        expect_block(m, 0, {});
}

TEST(ParameterBlock, LayerBlocksFollowAtAStrideOfSixty) {
    std::vector<float> p(3 * LV_TMPARAM_COUNT, 0.0f);
    tmparam_default(1, 0, p.data() + 2 * LV_TMPARAM_COUNT);
    EXPECT_EQ(p[2 * LV_TMPARAM_COUNT + 2], 46.0f) << "the third block's saturation is p[122]";
    EXPECT_EQ(&p[133], &p[2 * LV_TMPARAM_COUNT + 13]);
}

TEST(Sliders, GammaShapedThresholdScale) {
    EXPECT_EQ(param2slider(200000.0f, 1.0), 100);
    EXPECT_EQ(param2slider(0.0f, 2.0), 0);
    EXPECT_EQ(param2slider(100000.0f, 1.0), 50);
    EXPECT_EQ(param2slider(400000.0f, 1.0), 200) << "no clamp above the range";
    for (double g : {0.25, 0.5, 1.0, 3.0})
        EXPECT_EQ(slider2param(100, g), 200000);
    EXPECT_EQ(slider2param(50, 2.0), 50000);
    EXPECT_EQ(slider2param(0, 1.0), 0);
    // Both raise to their gamma, so a host pairs g with 1/g: positions then survive a
    // round trip through the threshold.
    for (double g : {0.5, 1.0, 2.0})
        for (int s = 0; s <= 100; ++s)
            EXPECT_EQ(param2slider(static_cast<float>(slider2param(s, g)), 1.0 / g), s)
                << "slider " << s << " gamma " << g;
}

} // namespace
