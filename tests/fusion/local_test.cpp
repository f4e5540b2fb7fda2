// Local fusion: the second stage blending the pyramid-blend picture with a brightened
// darkest photograph.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "frame/band_threads.h"
#include "fusion/local.h"
#include "lumivantor/lumivantor.h"

namespace {

struct Pair {
    int w, h;
    std::vector<uint8_t> images; // picture, then dark photograph, RGB
};

// A picture whose left part is deep shadow and a dark photograph lifted there, elsewhere a
// ramp up to level 200; with texture so that every level has band-pass content.
Pair scene(int w, int h) {
    Pair p{w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h * 6)};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int tex = ((x / 3 + y / 5) % 2) * 12;
            const int base = x < w / 3 ? 8 : 60 + 150 * x / w;
            for (int c = 0; c < 3; ++c) {
                const size_t i = (static_cast<size_t>(y) * w + x) * 3 + c;
                p.images[i] = static_cast<uint8_t>(base + tex + c * 4);
                p.images[static_cast<size_t>(w) * h * 3 + i] =
                    static_cast<uint8_t>(x < w / 3 ? 110 + tex : 200 * (x - w / 3) / (w - w / 3));
            }
        }
    return p;
}

struct Fused {
    int result;
    std::vector<uint8_t> out;
    std::vector<uint8_t> images; // as the call left them
};

Fused fuse(const Pair &p, float *param, int threads = 0, int bps = 8, bool block = false,
           LvProgressCallback cb = nullptr, int swap = 0) {
    DimParam d;
    init_dim_param(&d);
    d.width = p.w, d.height = p.h, d.bpsOut = bps, d.strideOut = p.w * 3, d.swapRedBlue = swap;
    OptimParam o;
    init_optim_param(&o);
    o.numThreads = threads;
    const int64_t pyr = pyram_len2(p.w, p.h), plane = int64_t{p.w} * p.h;
    std::vector<uint8_t> memory(2 * pyr * 3 + 16);
    const size_t need = 4 * pyr + 2 * 3 * (plane + 4 * pyr);
    std::vector<uint8_t> blk(block ? need : 0);
    Fused r{0, {}, p.images};
    r.result = lv_fusion_local(2, cb, param, 0, r.images.data(), nullptr, d, o, nullptr, nullptr,
                               blk.size(), block ? blk.data() : nullptr, memory.data());
    r.out.assign(memory.begin(), memory.begin() + plane * 3 * (bps / 8));
    return r;
}

std::vector<float> params() {
    std::vector<float> p(LV_TMPARAM_COUNT);
    tmparam_default(15, 0, p.data());
    p[18] = 1.0f;
    return p;
}

int mean(const std::vector<uint8_t> &v, int w, int h, int x0, int x1) {
    int64_t s = 0, n = 0;
    for (int y = 0; y < h; ++y)
        for (int x = x0; x < x1; ++x, ++n)
            s += v[(static_cast<size_t>(y) * w + x) * 3 + 1];
    return static_cast<int>(s / n);
}

int calls = 0;
void cancel_second(int *cancel, float) {
    *cancel = ++calls >= 2;
}
int failing_start(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    return 11;
}

class LocalFusion : public ::testing::TestWithParam<int> {
  protected:
    void SetUp() override { InterpolationInterval = static_cast<uint8_t>(GetParam()); }
    void TearDown() override { InterpolationInterval = 0; }
};

TEST_P(LocalFusion, ShadowsComeFromTheLiftedPhotographAndLightsFromThePicture) {
    const Pair p = scene(96, 80);
    for (float smoothed : {0.0f, 1.0f}) { // own weights, or smoothed planes summing to 255
        auto prm = params();
        prm[16] = smoothed;
        const Fused r = fuse(p, prm.data());
        ASSERT_EQ(r.result, 1);
        const int shadow = mean(r.out, p.w, p.h, 4, p.w / 3 - 4);
        EXPECT_GT(shadow, 60) << "the deep shadow of the picture is lifted " << smoothed;
        EXPECT_LT(shadow, 125);
        const int lights = mean(r.out, p.w, p.h, p.w * 2 / 3, p.w);
        EXPECT_GT(lights, mean(p.images, p.w, p.h, p.w * 2 / 3, p.w) - 40) << "lights stay lit";
        EXPECT_EQ(r.images, p.images) << "slider 0 leaves both photographs alone";
    }
}

TEST_P(LocalFusion, ThreadsBlockPlacementAndFailedThreadStartsGiveIdenticalBytes) {
    const Pair p = scene(64, 420); // bands of at least 100 rows for 2 to 4 threads
    auto prm = params();
    const Fused ref = fuse(p, prm.data());
    ASSERT_EQ(ref.result, 1);
    for (int t : {2, 3, 7})
        EXPECT_EQ(fuse(p, prm.data(), t).out, ref.out) << t << " threads";
    EXPECT_EQ(fuse(p, prm.data(), 2, 8, true).out, ref.out) << "towers in the caller's block";
    lv_set_thread_create(failing_start);
    const Fused failed = fuse(p, prm.data(), 3);
    lv_set_thread_create(nullptr);
    EXPECT_EQ(failed.out, ref.out);

    // 16-bit output carries the 8-bit value in its high byte; a swap exchanges red and blue.
    const Fused r16 = fuse(p, prm.data(), 0, 16), sw = fuse(p, prm.data(), 0, 8, false, nullptr, 1);
    const auto *s16 = reinterpret_cast<const uint16_t *>(r16.out.data());
    for (size_t i = 0; i < ref.out.size(); ++i) {
        ASSERT_EQ(s16[i] >> 8, ref.out[i]) << i;
        ASSERT_EQ(sw.out[i / 3 * 3 + (i % 3 == 1 ? 1 : 2 - i % 3)], ref.out[i]);
    }
}

INSTANTIATE_TEST_SUITE_P(SampledAndExact, LocalFusion, ::testing::Values(1, 0));

TEST(LocalFusionStages, SliderAnchorsCancelAndTinyImages) {
    InterpolationInterval = 1;
    const Pair p = scene(64, 64);
    auto prm = params();
    prm[1] = 5.0f; // brighten the picture
    Fused up = fuse(p, prm.data());
    EXPECT_GT(mean(up.images, p.w, p.h, p.w / 2, p.w), mean(p.images, p.w, p.h, p.w / 2, p.w));
    EXPECT_TRUE(std::equal(p.images.begin() + p.images.size() / 2, p.images.end(),
                           up.images.begin() + p.images.size() / 2));

    prm = params();
    calls = 0;
    EXPECT_EQ(fuse(p, prm.data(), 2, 8, false, cancel_second).result, -1);
    EXPECT_EQ(calls, 2) << "stops at the progress point that asked";

    // The anchors cover the range with the wide interval.
    const int64_t pyr = pyram_len2(64, 64);
    std::vector<uint8_t> towers(2 * pyr * 3);
    std::vector<int16_t> weights(2 * pyr, 16384);
    std::memcpy(towers.data(), p.images.data(), 64 * 64 * 3);
    std::memcpy(towers.data() + pyr * 3, p.images.data() + 64 * 64 * 3, 64 * 64 * 3);
    int anchors[4], second[4], first[4];
    int64_t offsets[4];
    const int valid = fusion_stats(1, 64, 64, 3, nullptr, weights.data(), towers.data(), 1, anchors,
                                   second, first, offsets);
    EXPECT_EQ(std::vector<int>(anchors, anchors + 4), (std::vector<int>{0, 85, 170, 255}));
    // The dark photograph has nothing near white: the last anchor borrows a valid tower.
    EXPECT_TRUE(second[3] == -1 && offsets[3] == offsets[2] && valid == 3);
    EXPECT_NEAR(first[1], 16384, 1);
    InterpolationInterval = 0;

    // One photograph, or sides too short for a level, come out as they went in.
    for (int side : {1, 3}) {
        Pair one{side, side, std::vector<uint8_t>(side * side * 6, 77)};
        prm = params();
        const Fused r = fuse(one, prm.data());
        EXPECT_EQ(r.result, 1);
        for (uint8_t v : r.out)
            EXPECT_NEAR(v, 77, 1);
    }
}

} // namespace

TEST(FusionMemory, SizesLeaveOutTheImageTowerAndTakeTheLargerStageForTwoStages) {
    DimParam d;
    init_dim_param(&d);
    d.width = 100, d.height = 60; // plane 6000, tower room 9000
    uint64_t bytes = 7;
    EXPECT_EQ(mem4fusion(3, 3, 16, 16, &bytes, d), -1);
    EXPECT_EQ(bytes, 7u);
    EXPECT_EQ(mem4fusion(1, 3, 16, 16, &bytes, d), 1);
    EXPECT_EQ(bytes, 2u * (2 * 6000 + 9000) + 2u * 3 * 9000);
    mem4fusion(2, 3, 8, 16, &bytes, d);
    EXPECT_EQ(bytes, 2u * 3 * 9000 + 4 * 9000 + 2u * 3 * (6000 + 4 * 9000));
    mem4fusion(2, 40, 32, 32, &bytes, d);
    EXPECT_EQ(bytes, 4u * (39 * 6000 + 9000) + 4u * 3 * 9000);
}
