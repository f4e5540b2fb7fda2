// Fusion driver: storage routes, temp-file failures, the two-stage method and its re-run.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

#include "fusion/driver.h"
#include "fusion/local.h"
#include "lumivantor/lumivantor.h"

namespace {

// n frames of a scene with a shadowed left half and a bright right half, a stop apart,
// at 8 or 16 bits.
std::vector<uint8_t> bracket(int w, int h, int n, int bits) {
    const size_t samples = size_t(w) * h * 3;
    std::vector<uint8_t> out(samples * n * bits / 8);
    for (int k = 0; k < n; ++k)
        for (size_t i = 0; i < samples; ++i) {
            const int x = int(i / 3 % w), y = int(i / 3 / w);
            const double scene = (x < w / 2 ? 0.02 : 0.5) * (1 + 0.3 * ((x / 4 + y / 4) % 2));
            const double v = std::min(1.0, scene * (1 << k) * (1 + 0.05 * (i % 3)));
            if (bits == 8)
                out[k * samples + i] = uint8_t(v * 255);
            else
                reinterpret_cast<uint16_t *>(out.data())[k * samples + i] = uint16_t(v * 65535);
        }
    return out;
}

struct Job {
    int w = 48, h = 40, n = 3, bitsIn = 8, bitsOut = 8, method = 10, threads = 0, wbits = 16;
    OptimParam opt{};
    std::vector<float> p;
    std::vector<uint8_t> saved;
    LvProgressCallback cb = nullptr;
    Job() {
        init_optim_param(&opt);
        p.assign(LV_TMPARAM_COUNT, 0);
    }
    int run(std::vector<uint8_t> &out, bool fresh = true, bool use_saved = false) {
        if (fresh) tmparam_default(method, 0, p.data());
        DimParam d;
        init_dim_param(&d);
        d.width = w, d.height = h, d.bpsIn = bitsIn, d.bpsOut = bitsOut, d.strideOut = 3 * w;
        opt.numThreads = threads;
        uint64_t bytes = 0;
        mem4fusion(method == 15 ? 2 : 1, n, wbits, 16, &bytes, d);
        const size_t lead = 2 * 3 * size_t(pyram_len2(w, h));
        std::vector<uint8_t> memory(lead + bytes);
        std::vector<uint8_t> images = bracket(w, h, n, bitsIn);
        if (use_saved && saved.empty()) saved.resize(size_t(w) * h * 3 * 2);
        std::vector<int> order(size_t(n), -1);
        const int r = lv_fusion5(cb, p.data(), nullptr, n, wbits, 16, opt, d, 0,
                                 use_saved ? saved.data() : nullptr, images.data(), order.data(),
                                 nullptr, opt.lowMemory ? 0 : bytes, memory.data());
        out.assign(memory.begin(), memory.begin() + size_t(w) * h * 3 * bitsOut / 8);
        return r;
    }
};

std::string temp_dir() {
    char templ[] = "/tmp/lv-fusion-XXXXXX";
    return mkdtemp(templ);
}

TEST(FusionDriver, LevelCountIsExactAtPowersOfTwo) {
    const int cases[][4] = {{4, 9, 8, 1},     {2, 2, 8, 0},      {8, 8, 8, 2},   {64, 64, 8, 5},
                            {128, 200, 8, 6}, {128, 128, 32, 5}, {64, 64, 32, 5}};
    for (const auto &c : cases)
        EXPECT_EQ(lv::blend_levels(c[0], c[1], c[2]), c[3]) << c[0] << "x" << c[1];
}

// How the blend looks is judged on the sample brackets (realdata_test.cpp).
TEST(FusionDriver, ThreadsDoNotChangeABit) {
    Job job;
    std::vector<uint8_t> ref, out;
    ASSERT_EQ(job.run(ref), 1);
    for (int t : {1, 2, 3, 7}) {
        job.threads = t;
        job.run(out);
        EXPECT_EQ(out, ref) << t << " threads";
    }
}

TEST(FusionDriver, LowMemoryRouteGivesTheSameBytesAndFailsOrFallsBackAsDocumented) {
    const std::string dir = temp_dir();
    const std::string src = dir + "/src", w1 = dir + "/w1", w2 = dir + "/w2";
    for (int bits : {8, 16}) {
        Job job;
        job.bitsIn = bits;
        job.n = bits == 8 ? 3 : 2; // 16-bit photographs take the files from two on
        std::vector<uint8_t> ref, out;
        ASSERT_EQ(job.run(ref), 1);
        job.opt.lowMemory = 1;
        job.opt.sourceFile = src.c_str(), job.opt.tempPath1 = w1.c_str();
        job.opt.tempPath2 = w2.c_str();
        ASSERT_EQ(job.run(out), 1);
        EXPECT_EQ(out, ref) << bits << "-bit through temp files";
        job.wbits = 8; // level 0 of 8-bit weights comes through the row buffer
        const int lowmem = job.opt.lowMemory;
        job.opt.lowMemory = 0;
        std::vector<uint8_t> ref8;
        ASSERT_EQ(job.run(ref8), 1);
        job.opt.lowMemory = lowmem;
        ASSERT_EQ(job.run(out), 1);
        EXPECT_EQ(out, ref8) << bits << "-bit with 8-bit weights through temp files";
        job.wbits = 16;
        EXPECT_EQ(access(src.c_str(), F_OK), 0) << "the files are left for the caller";

        const std::string missing = dir + "/no/such/folder";
        job.opt.tempPath1 = missing.c_str(); // can't open: the memory route runs
        EXPECT_EQ(job.run(out), 1);
        EXPECT_EQ(out, ref);
        job.opt.tempPath1 = w1.c_str();
        job.opt.sourceFile = "/dev/full"; // the first big write falls short: memory route
        EXPECT_EQ(job.run(out), 1);
        EXPECT_EQ(out, ref);
        job.opt.sourceFile = src.c_str();
        job.opt.tempPath1 = "/dev/full"; // a later write falls short: failure
        EXPECT_EQ(job.run(out), LV_ERR_IO);
        job.opt.tempPath1 = w1.c_str();
        job.opt.tempPath2 = "/dev/full";
        EXPECT_EQ(job.run(out), LV_ERR_IO);
    }
    for (const auto &f : {src, w1, w2})
        std::remove(f.c_str());
    rmdir(dir.c_str());
}

int calls = 0;
void cancel_late(int *cancel, float) {
    *cancel = ++calls > 4;
}

TEST(FusionDriver, TwoStageEditsItsSlotsReRunsFromTheSavedResultAndCanBeCancelled) {
    InterpolationInterval = 0;
    Job job;
    job.method = 15;
    std::vector<uint8_t> two, plain, again;
    tmparam_default(15, 0, job.p.data());
    job.p[1] = 3.0f, job.p[2] = 2.0f;
    ASSERT_EQ(job.run(two, false, true), 1);
    EXPECT_EQ(InterpolationInterval, 1);
    // Slot 1 comes back; the others keep what the second stage set.
    EXPECT_EQ((std::vector<float>{job.p[0], job.p[1], job.p[2], job.p[10], job.p[18]}),
              (std::vector<float>{0, 3, 0, 5.625f, 1}));
    const std::vector<uint8_t> saved = job.saved;
    EXPECT_TRUE(std::equal(two.begin(), two.end(), saved.begin())) << "result before colour";

    tmparam_default(15, 0, job.p.data());
    job.p[19] = 1.0f; // colour only: the saved result comes back
    ASSERT_EQ(job.run(again, false, true), 1);
    EXPECT_EQ(again, two);

    Job flat;
    ASSERT_EQ(flat.run(plain), 1);
    EXPECT_NE(plain, two);
    calls = 0;
    job.cb = cancel_late;
    EXPECT_EQ(job.run(again), -1);
    InterpolationInterval = 0;
}

} // namespace
