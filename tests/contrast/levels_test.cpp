// Worked values of the optimizer's pieces: level count, reduce weights at borders,
// corners and with wrap, expand and difference in every mode, the 16-bit store's clamp,
// the reference grid, the map's percentiles and failure codes, and the finish's mask mix.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "contrast/contrast.h"
#include "lumivantor/lumivantor.h"

namespace {

// ln(side) x 1.4426950408889634 lands a hair below the integer for sides 8, 64 and 4096,
// which then get one level fewer than log2 says.
TEST(ContrastLevels, TopLevelTruncatesTheDoubleProductBelowSomePowersOfTwo) {
    struct Case {
        int w, h, top;
    } cases[] = {{1, 1, 0},    {2, 1000, 1},     {3, 3, 1},        {8, 9, 2},
                 {64, 100, 5}, {1024, 2000, 10}, {4096, 5000, 11}, {4095, 4095, 11}};
    for (const Case &c : cases)
        EXPECT_EQ(co_top_level(c.w, c.h), c.top) << c.w << "x" << c.h;
}

// Reduces a 5 x 5 (or 4 x 3 wrapped) plane holding a single 1 and returns the 3 x 3 result.
std::vector<float> reduce_impulse(int w, int h, int wrap, int x, int y) {
    const int w2 = (w + 1) / 2, h2 = (h + 1) / 2;
    std::vector<float> t(size_t(w * h + w2 * h2), 0.0f);
    t[size_t(y) * w + x] = 1.0f;
    co_down(w, h, w2, h2, wrap, 0, w * h, 1, t.data());
    return std::vector<float>(t.begin() + w * h, t.end());
}

TEST(ContrastLevels, ReduceWeightsRenormaliseAtBordersCornersAndWrap) {
    struct Case {
        int w, h, wrap, x, y; // the impulse
        int tx, ty;           // the target pixel read
        float weight;
    } cases[] = {
        {5, 5, 0, 2, 2, 1, 1, 0.25f},   {5, 5, 0, 1, 1, 1, 1, 0.0625f},      // interior
        {5, 5, 0, 2, 0, 1, 0, 0.333f},  {5, 5, 0, 1, 1, 1, 0, 0.083333336f}, // edge
        {5, 5, 0, 0, 0, 0, 0, 0.444f},  {5, 5, 0, 1, 1, 0, 0, 0.111f},       // corner
        {5, 5, 0, 4, 4, 2, 2, 0.444f},  {4, 4, 0, 3, 3, 1, 1, 0.0625f},      // odd, even size
        {4, 3, 1, 3, 0, 0, 0, 0.1667f}, {4, 3, 0, 3, 0, 0, 0, 0.0f},         // west wraps round
    };
    for (const Case &c : cases) {
        const auto out = reduce_impulse(c.w, c.h, c.wrap, c.x, c.y);
        EXPECT_EQ(out[size_t(c.ty) * ((c.w + 1) / 2) + c.tx], c.weight)
            << c.w << "x" << c.h << " wrap " << c.wrap << " impulse " << c.x << "," << c.y;
    }
}

TEST(ContrastLevels, ExpandAndDifferenceAgreeInEveryMode) {
    const float coarse[4] = {1.0f, 2.0f, 3.0f, 4.0f}; // 2 x 2
    struct Case {
        int w, h, wrap;
        std::vector<float> up;
    } cases[] = {
        {3, 3, 0, {1, 1.5f, 2, 2, 2.5f, 3, 3, 3.5f, 4}},
        {4, 3, 0, {1, 1.5f, 2, 2, 2, 2.5f, 3, 3, 3, 3.5f, 4, 4}},
        {4, 3, 1, {1, 1.5f, 2, 1.5f, 2, 2.5f, 3, 2.5f, 3, 3.5f, 4, 3.5f}},
    };
    for (const Case &c : cases) {
        std::vector<float> up(c.up.size()), fine(c.up.size(), 10.0f), diff(c.up.size());
        co_up(c.w, c.h, 2, 2, c.wrap, coarse, up.data());
        EXPECT_EQ(up, c.up) << c.w << " wrap " << c.wrap;
        co_diff(c.w, c.h, 2, 2, 32, c.wrap, 0, coarse, fine.data(), diff.data(), 1.0f);
        for (size_t i = 0; i < up.size(); ++i) {
            EXPECT_EQ(diff[i], 10.0f - up[i]);
            float one = 0.0f;
            co_diff(c.w, c.h, 2, 2, -1, c.wrap, int64_t(i), coarse, fine.data(), &one, 1.0f);
            EXPECT_EQ(one, diff[i]) << "single coefficient " << i;
        }
    }
    // The 16-bit store truncates toward zero and holds to +-32767.
    const float fine[4] = {1.0f + 0.0157f, 2.0f - 0.0157f, 1000.0f, -1000.0f};
    const float flat[1] = {0.0f};
    int16_t store[4];
    co_diff(2, 2, 1, 1, 16, 0, 0, flat, fine, store, 100.0f);
    EXPECT_EQ(store[0], 101);
    EXPECT_EQ(store[1], 198);
    EXPECT_EQ(store[2], 32767);
    EXPECT_EQ(store[3], -32767);
}

TEST(ContrastLevels, ReferenceGridOfAFlatAndOfASpreadImage) {
    float p[LV_TMPARAM_COUNT];
    tmparam_default(3, 0, p);
    p[10] = 2.0f;
    const int w = 64, h = 64, levels = co_top_level(w, h) + 1;
    std::vector<float> tower(size_t(pyram_len2(w, h)), 0.7f);
    float refs[CO_MAX_REFERENCES];
    // Flat: scale 1, a zero step, every reference at the one value; range held at 2.5.
    ASSERT_EQ(tm_stats(levels, w, h, p, tower.data(), refs), 4);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(refs[i], 0.7f);
    EXPECT_EQ(p[18], 2.5f);

    // A ramp over 12 log units: references 0.644 apart, 4 to 8 of them, ascending.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            tower[size_t(y) * w + x] = -6.0f + 12.0f * float(y * w + x) / (w * h - 1);
    int64_t off = 0;
    for (int l = 0, lw = w, lh = h; l < levels; ++l, lw = (lw + 1) / 2, lh = (lh + 1) / 2) {
        if (l + 1 < levels)
            co_down(lw, lh, (lw + 1) / 2, (lh + 1) / 2, 0, off, off + lw * lh, 1, tower.data());
        off += lw * lh;
    }
    const int k = tm_stats(levels, w, h, p, tower.data(), refs);
    EXPECT_GE(k, 4);
    EXPECT_LE(k, 8);
    for (int i = 1; i < k; ++i)
        EXPECT_NEAR(refs[i] - refs[i - 1], 0.644f, 0.001f);
    EXPECT_EQ(p[18], 8.5f); // the level's range is above the clamp
}

TEST(ContrastLevels, MapScalingClipsItsPercentilesAndRefusesNegatives) {
    float p[LV_TMPARAM_COUNT];
    tmparam_default(3, 0, p);
    DimParam dim;
    init_dim_param(&dim);
    dim.width = 100, dim.height = 100;
    std::vector<float> lum(10000), map(10000, -7.0f);
    for (int i = 0; i < 10000; ++i)
        lum[i] = 1.0f + i;
    ASSERT_EQ(co_map_scaling(p, lum.data(), map.data(), dim), 10000);
    int black = 0, over = 0;
    for (float v : map) {
        black += v == 0.0f;
        over += v >= 1.0f;
    }
    // 0.25 % at black. The white bin lies below the top 0.6 %, but since the map is
    // (value - black) / white a pixel reaches 1 only at white + black: 37 of them, not 60.
    EXPECT_EQ(black, 25);
    EXPECT_EQ(over, 37);
    EXPECT_GT(map.back(), 1.0f); // not held at 1

    lum[5] = -1.0f;
    EXPECT_EQ(co_map_scaling(p, lum.data(), map.data(), dim), -101);
    lum.assign(10000, NAN);
    EXPECT_EQ(co_map_scaling(p, lum.data(), map.data(), dim), -101);
    dim.height = 0;
    EXPECT_EQ(co_map_scaling(p, lum.data(), map.data(), dim), -102);
}

TEST(ContrastLevels, FinishMixesLayersByWeightAndKeepsBlackBlack) {
    // Three pixels of one colour (RGBE mantissas) and a black one; a layer warms and
    // saturates.
    DimParam dim;
    init_dim_param(&dim);
    dim.width = 4, dim.height = 1, dim.bpsIn = 32, dim.strideOut = 12;
    const unsigned char rgbe[16] = {200, 200, 200, 0, 120, 120, 120, 0,
                                    60,  60,  60,  0, 140, 140, 140, 0};
    std::vector<float> p(2 * LV_TMPARAM_COUNT, 0.0f);
    tmparam_default(3, 0, p.data());
    p[18] = 5.0f;
    p[55] = 1;
    p[LV_TMPARAM_COUNT + 12] = 6.0f, p[LV_TMPARAM_COUNT + 13] = 8.0f;
    const float map[4] = {0.25f, 0.25f, 0.25f, 0.9f}; // nothing clips before the mix
    OptimParam opt;
    init_optim_param(&opt);
    auto run = [&](int weight) {
        unsigned char mask[8] = {0, 255, 0, 255, 0, 255, 0, 255};
        for (int x = 0; x < 4; ++x)
            mask[2 * x] = (unsigned char)weight, mask[2 * x + 1] = 0;
        std::vector<unsigned char> out(12, 7);
        EXPECT_EQ(co_final(dim, opt, nullptr, p.data(), mask, const_cast<unsigned char *>(rgbe),
                           const_cast<float *>(map), out.data()),
                  1);
        return out;
    };
    const auto base = run(0), layer = run(255), half = run(128);
    EXPECT_NE(base, layer);
    for (int c = 9; c < 12; ++c) // the black source pixel, whatever the map says
        EXPECT_EQ(base[c] | layer[c] | half[c], 0);
    for (int c = 0; c < 3; ++c) {
        // A weight of 128 leaves the base 127 / 256 of the mix; the truncated levels land
        // within one step of the mix of the two outputs.
        const float mix = base[c] * (127.0f / 256.0f) + layer[c] * (1.0f - 127 * 0.00390625f);
        EXPECT_NEAR(half[c], mix, 1.0f) << c;
    }
    // A gamma outside 0.2..1.41 falls back on 1 / 2.2 on either side: p[18] + p[8] of 20
    // gives 1.475 and of -10 gives 0.125.
    p[8] = 15.0f;
    const auto high = run(0);
    p[8] = -15.0f;
    EXPECT_EQ(high, run(0));
    EXPECT_NE(high, base);
}

// The vectorised interior of a reduced row against the weights applied one pixel at a time.
TEST(ContrastLevels, VectorReduceGivesTheScalarValues) {
    uint32_t state[LV_MT_STATE_WORDS];
    mt_init(state);
    const int w = 41, w2 = 21;
    std::vector<float> rows(3 * w), out(w2);
    for (float &v : rows)
        v = float(int(mt_random(state) % 20001) - 10000) * 0.00137f;
    const float *up = rows.data(), *mid = up + w, *down = mid + w;
    co_reduce_row(w, w2, 0, up, mid, down, out.data());
    for (int x = 1; x < w2 - 1; ++x) {
        const int s = 2 * x;
        const float a = ((up[s] + down[s]) + mid[s - 1]) + mid[s + 1];
        const float b = ((up[s - 1] + up[s + 1]) + down[s - 1]) + down[s + 1];
        ASSERT_EQ(out[x], mid[s] * 0.25f + a * 0.125f + b * 0.0625f) << x;
    }
}

// The vectorised remapping against the one-value form, on values that straddle the band's
// edges, sit exactly on them, and include infinities.
TEST(ContrastLevels, VectorRemapGivesTheScalarValues) {
    uint32_t state[LV_MT_STATE_WORDS];
    mt_init(state);
    for (float alpha : {0.55f, 1.0f, 0.0f})
        for (float g : {-3.7f, 0.0f, 12.25f}) {
            const lv::CoRemap map = lv::co_remap_for(g, alpha, 0.92f);
            std::vector<float> in(1003), out(in.size());
            for (float &v : in)
                v = g + (float(mt_random(state) % 20001) - 10000.0f) * 0.0003f;
            in[5] = float(map.hi), in[6] = float(map.lo), in[7] = map.f_hi, in[8] = map.f_lo;
            in[9] = INFINITY, in[10] = -INFINITY;
            bool any = false;
            for (size_t i = 0; i < in.size(); ++i)
                any |= lv::co_remap(map, in[i]) != in[i];
            EXPECT_EQ(lv::co_remap_row(map, in.data(), out.data(), int64_t(in.size())), any);
            for (size_t i = 0; i < in.size(); ++i) {
                const float want = lv::co_remap(map, in[i]);
                ASSERT_EQ(std::memcmp(&out[i], &want, 4), 0) << i << " alpha " << alpha;
            }
            // The float bounds decide as the double ones do.
            for (float v : in) {
                ASSERT_EQ(v > map.f_hi, double(v) > map.hi) << v;
                ASSERT_EQ(v < map.f_lo, double(v) < map.lo) << v;
            }
        }
}

// The store is read at the pixel's bracket: the first reference alone at its value, the
// last alone at or above its value, a linear mix between; outside the references the
// exact path runs, and with alpha held at 1 it leaves the plain coefficient.
TEST(ContrastLevels, StoreBracketAtTheFirstAndLastReferenceAndExactOutside) {
    float p[LV_TMPARAM_COUNT];
    tmparam_default(3, 0, p);
    p[0] = -20.0f; // compression slope above 1, held to 1: the remapping is the identity
    p[10] = 0.0f;
    p[11] = 1.0f / 3.051851e-05f;
    const float refs[3] = {0.0f, 1.0f, 2.0f};
    const int64_t offsets[3] = {0, 4, 8};
    const int16_t store[12] = {10, 10, 10, 10, 20, 20, 20, 20, 40, 40, 40, 40};
    const float g[4] = {0.0f, 2.0f, 1.5f, 2.5f};
    const float log_image[4] = {0.0f, 2.0f, 1.5f, 2.5f};
    float out[4] = {-1.0f, -1.0f, -1.0f, -7.0f};
    std::vector<float> work(64);
    EXPECT_EQ(co_process_level(2, 2, 2, 2, 0, p, 3, refs, offsets, store, 1, work.data(), log_image,
                               0, g, out),
              2);
    EXPECT_FLOAT_EQ(out[0], 10.0f);
    EXPECT_FLOAT_EQ(out[1], 40.0f);
    EXPECT_FLOAT_EQ(out[2], 30.0f);
    EXPECT_EQ(out[3], -7.0f);
}

} // namespace
