// Stage tm1: the log plane's worked values and holes, the dropped jumps of black pixels,
// flat areas that contribute nothing, identical bytes for any thread count and for the
// low-memory route through temp files, and the codes of temp-file faults.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <unistd.h>
#include <filesystem>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"
#include "frame/band_threads.h"
#include "tonemap/enhancer_stages.h"

namespace {

namespace fs = std::filesystem;

// Planar RGBE scene: a ramp with a bright window.
std::vector<unsigned char> scene(int w, int h) {
    std::vector<unsigned char> px(4L * w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            unsigned char *r = &px[4L * w * y];
            const bool window = x > w / 2 && x < 3 * w / 4 && y > h / 4 && y < h / 2;
            r[x] = static_cast<unsigned char>(128 + (x * 3) % 100);
            r[w + x] = static_cast<unsigned char>(128 + (y * 5) % 100);
            r[2 * w + x] = 160;
            r[3 * w + x] = static_cast<unsigned char>(window ? 140 : 128 + x / 16);
        }
    return px;
}

struct Tm1Run {
    std::vector<float> work, copy;
    float stats[7] = {};
    int result = 0;
};

Tm1Run run_tm1(const std::vector<unsigned char> &img, int w, int h, OptimParam opt, float p16 = 1) {
    float p[60] = {};
    tmparam_default(1, 0, p);
    p[16] = p16;
    float table[256];
    exp_lut(table, -8);
    DimParam dim{};
    dim.width = w, dim.height = h, dim.samplesPerPixel = 3;
    Tm1Run run;
    run.work.assign(static_cast<size_t>(w) * h * 2, 0.0f);
    run.copy.assign(run.work.size(), 0.0f);
    std::memcpy(run.copy.data(), img.data(), img.size());
    if (opt.lowMemory) std::memcpy(run.work.data(), img.data(), img.size());
    run.result = calc_tm1(0, p, 2, run.stats, table, nullptr, dim, opt, nullptr, run.copy.data(),
                          run.work.data());
    return run;
}

TEST(Tm1, LogPlaneHasWorkedValuesAndHolesTakeTheMean) {
    const int w = 10, h = 10;
    std::vector<unsigned char> img(4 * w * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            unsigned char *r = &img[4 * w * y];
            r[x] = r[w + x] = r[2 * w + x] = 100;
            r[3 * w + x] = static_cast<unsigned char>(x == 3 && y == 4 ? 0 : 136 + (x == 0));
        }
    float table[256], stats[3] = {}, plane[12 * 11];
    exp_lut(table, -8);
    ASSERT_EQ(calc_tm0(0, 3, w, 0, 0, w, h, 12, 11, stats, table, nullptr, img.data(), plane), 1);
    const float y100 = 0.2126f * 100 + 0.7152f * 100 + 0.0722f * 100;
    const float l1 = static_cast<float>(std::log(static_cast<double>(y100)));
    const float l2 = static_cast<float>(std::log(static_cast<double>(2.0f * y100)));
    EXPECT_EQ(plane[1], l1);
    EXPECT_EQ(plane[0], l2);
    EXPECT_EQ(plane[11], l1);          // padding repeats the row's last value
    EXPECT_EQ(plane[10 * 12 + 5], l1); // and the last row
    const double mean = (10.0 * l2 + 89.0 * l1) / 99.0;
    EXPECT_FLOAT_EQ(plane[4 * 12 + 3], static_cast<float>(mean)); // the hole
    EXPECT_FLOAT_EQ(stats[2], std::exp(l1));
    EXPECT_EQ(calc_tm0(0, 3, w, 0, 0, w, 9, w, 9, stats, table, nullptr, img.data(), plane), -1);

    // 8-bit samples: a black pixel is held up to the darkest level a sample stands for.
    std::vector<unsigned char> grey(w * h * 3, 0);
    std::vector<float> curve(256);
    for (int i = 0; i < 256; ++i)
        curve[i] = static_cast<float>(i);
    calc_tm0(2, 3, w, 0, w * 3, w, h, w, h, stats, nullptr, curve.data(), grey.data(), plane);
    EXPECT_FLOAT_EQ(plane[0], std::log(255.0f * std::pow(1.0f / 255.0f, 2.2f)));
}

// A plane whose only feature is a vertical step of the given height.
std::vector<float> step_divergence(float jump) {
    const int w = 40, h = 40;
    std::vector<float> work(w * h * 2, 0.0f), copy(w * h * 2, 0.0f);
    for (int y = 0; y < h; ++y)
        for (int x = w / 2; x < w; ++x)
            work[y * w + x] = jump;
    float p[60] = {}, stats[7] = {1.0f, std::exp(jump), 1.0f};
    tmparam_default(1, 0, p);
    DimParam dim{};
    dim.width = w, dim.height = h;
    OptimParam opt{};
    EXPECT_EQ(
        calc_tm1(-1, p, 2, stats, nullptr, nullptr, dim, opt, nullptr, copy.data(), work.data()),
        1);
    work.resize(w * h);
    return work;
}

TEST(Tm1, JumpsFromBlackPixelsAndFlatAreasContributeNothing) {
    for (float v : step_divergence(100.5f))
        ASSERT_EQ(v, 0.0f);
    float largest = 0.0f;
    for (float v : step_divergence(99.5f))
        largest = std::max(largest, std::fabs(v));
    EXPECT_GT(largest, 0.0f);

    float g[4] = {1e-5f, 2e-5f, 0.0f, 1.0f};
    tm1b(4, 1, 0, g, 0.5f, -0.1f, 0.25f);
    EXPECT_EQ(g[0], 0.0f);
    EXPECT_EQ(g[2], 0.0f);
    EXPECT_EQ(g[3], std::pow(1.25f / 0.5f, -0.1f));
}

TEST(Tm1, ThreadCountsAndTheLowMemoryRouteGiveTheSameBytes) {
    const int w = 160, h = 120;
    const auto img = scene(w, h);
    OptimParam opt{};
    opt.numThreads = 1;
    const Tm1Run one = run_tm1(img, w, h, opt);
    ASSERT_EQ(one.result, 1);
    EXPECT_GT(one.stats[6], one.stats[3]);
    for (int threads : {2, 3}) {
        opt.numThreads = threads;
        EXPECT_EQ(run_tm1(img, w, h, opt).work, one.work) << threads;
    }
    // A band whose thread can't start is done on the caller: same bytes again.
    lv_set_thread_create(
        [](pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) { return 1; });
    EXPECT_EQ(run_tm1(img, w, h, opt).work, one.work);
    lv_set_thread_create(nullptr);
    const fs::path dir = fs::temp_directory_path() / ("lv_tm1_" + std::to_string(getpid()));
    fs::create_directories(dir);
    const std::string hdr = (dir / "in.hdr").string(), t0 = (dir / "t0").string(),
                      t2 = (dir / "t2").string();
    ASSERT_EQ(lv_io_rgbe_write(hdr.c_str(), w, h, nullptr, 0, nullptr, img.data()), h);
    OptimParam low{};
    low.lowMemory = 1, low.numThreads = 4;
    low.sourceFile = hdr.c_str(), low.tempPath0 = t0.c_str(), low.tempPath2 = t2.c_str();
    const Tm1Run streamed = run_tm1(img, w, h, low);
    ASSERT_EQ(streamed.result, 1);
    EXPECT_EQ(streamed.work, one.work);

    // Faults: a folder that doesn't exist, a disk that is full.
    const std::string missing = (dir / "no" / "such").string();
    struct Case {
        const char *t0, *t2;
        int code;
    } cases[] = {{missing.c_str(), t2.c_str(), -1},
                 {"/dev/full", t2.c_str(), -2},
                 {t0.c_str(), missing.c_str(), -1},
                 {t0.c_str(), "/dev/full", -2}};
    for (const Case &c : cases) {
        low.tempPath0 = c.t0, low.tempPath2 = c.t2;
        testing::internal::CaptureStdout();
        EXPECT_EQ(run_tm1(img, w, h, low).result, c.code) << c.t0 << " " << c.t2;
        testing::internal::GetCapturedStdout();
    }
    low.tempPath0 = t0.c_str(), low.tempPath2 = t2.c_str();
    EXPECT_EQ(run_tm1(img, w, h, low, 0.0f).result, 1); // the old member runs too
    fs::remove_all(dir);
}

} // namespace
