// The enhancer driver: its memory plan, argument checks and size query, the initial-guess
// upsampling, and whole runs on a synthetic scene (float input, column ranges, temp-file
// faults).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"
#include "tonemap/enhancer.h"

namespace {

std::vector<float> enhancer_block(float pipeline = 1.0f) {
    std::vector<float> p(LV_TMPARAM_COUNT, 0.0f);
    tmparam_default(1, 0, p.data());
    p[16] = pipeline;
    return p;
}

DimParam rgbe_dim(int w, int h) {
    DimParam d;
    init_dim_param(&d);
    d.width = w;
    d.height = h;
    d.strideIn = d.strideOut = 3 * w;
    return d;
}

TEST(Mem4Enhancer, WorkedPlansForPortraitLandscapeTinyAndOldPipeline) {
    struct Case {
        int w, h;
        float pipeline;
        int levels;
        size_t plane_offset, solver_floats, total;
    };
    const Case cases[] = {
        {1365, 2048, 1.0f, 5, 14913920, 3727552, 29827840},
        {2048, 1365, 1.0f, 5, 14913920, 3727552, 29827840},
        {40, 17, 1.0f, 1, 4040, 860, 8080},
        {601, 401, 0.0f, 5, 1287456, 321864, 2574912}, // two more levels, fixed depth
        {20000, 20, 1.0f, 3, 0, 0, 0},                 // held to the height's octaves
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h);
        std::vector<float> p = enhancer_block(c.pipeline);
        size_t pair[2] = {0, 0}, total = 0;
        EXPECT_EQ(mem4enhancer(0, p.data(), pair, &total, rgbe_dim(c.w, c.h)), c.levels);
        if (c.plane_offset == 0) continue;
        EXPECT_EQ(pair[0], c.plane_offset);
        EXPECT_EQ(pair[1], c.solver_floats);
        EXPECT_EQ(total, c.total);
    }
    std::vector<float> p = enhancer_block();
    EXPECT_EQ(mem4enhancer(0, p.data(), nullptr, nullptr, rgbe_dim(1365, 2048)), 5);
}

TEST(Enhancer, ArgumentChecksMessagesAndSizeQuery) {
    std::vector<float> p = enhancer_block(2.0f);
    float stats[7] = {}, table[256];
    exp_lut(table, -8);
    DimParam d = rgbe_dim(1365, 2048);
    OptimParam o;
    init_optim_param(&o);
    int32_t work[2] = {0, 0};
    auto run = [&](const char *source, unsigned char *input, void *w) {
        o.sourceFile = source;
        testing::internal::CaptureStdout();
        const int r = lv_tm_enhancer(0, p.data(), nullptr, stats, table, nullptr, d, o, nullptr,
                                     input, static_cast<unsigned char *>(w));
        return std::make_pair(r, testing::internal::GetCapturedStdout());
    };
    const std::string not_hdr = "optimParam.sourceFile is not a Radiance (.hdr) file\n";
    EXPECT_EQ(run(nullptr, nullptr, work),
              std::make_pair(-10, std::string("Input buffer is null and optimParam.sourceFile "
                                              "null as well\n")));
    // The last dot decides, and only its first three characters, in one case.
    for (const char *bad : {"a.Hdr", "a.hd", "a.hdr.tmp", "hdr"})
        EXPECT_EQ(run(bad, nullptr, work), std::make_pair(-11, not_hdr)) << bad;
    for (const char *good : {"/no/such/a.HDR", "/no/such/a.hdrx"})
        EXPECT_LT(run(good, nullptr, work).first, -100) << good; // the read fails instead
    EXPECT_EQ(run("/no/such/a.hdr", nullptr, nullptr).first, LV_ERR_NO_WORK);

    // Size query: the portrait's measure is 1536, one halving brings it to 768.
    unsigned char pixel[4] = {};
    o.pyramidMode = 9;
    EXPECT_GT(run(nullptr, pixel, work).first, 0);
    EXPECT_EQ(work[0], 683);
    EXPECT_EQ(work[1], 1024);
}

TEST(Enhancer, InitialGuessUpsamplingAndShadowCubic) {
    // A ramp along x stays a ramp between the coarse samples (so the blend's weights sum
    // to one), and the last column repeats the edge.
    const int cw = 4, ch = 3, w = 8, h = 6;
    std::vector<float> ramp(cw * ch), fine(w * h);
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x)
            ramp[y * cw + x] = float(x);
    EXPECT_EQ(tm1_init(w, h, cw, ch, 0, ramp.data(), fine.data()), h);
    EXPECT_NEAR(fine[2 * w + 3], 1.5f, 1e-5); // odd column: between 1 and 2
    EXPECT_NEAR(fine[2 * w + 2], 1.0f, 1e-5); // even: the 3 x 3 blend of a ramp
    EXPECT_NEAR(fine[2 * w + 7], 3.0f, 1e-5); // last odd column: the edge repeats
    // With wrap the last odd column reaches across to column 0.
    tm1_init(w, h, cw, ch, 1, ramp.data(), fine.data());
    EXPECT_NEAR(fine[2 * w + 7], 1.5f, 1e-5);

    float a, b, c, dd;
    const float first = coeffPoly3(&a, &b, &c, &dd, -3.0f, 1.0f, -2.0f, 0.5f);
    EXPECT_EQ(first, a);
    auto f = [&](float x) { return ((a * x + b) * x + c) * x + dd; };
    EXPECT_NEAR(f(-3.0f), 1.0f, 1e-5);
    EXPECT_NEAR(f(-2.0f), 0.5f, 1e-5);
    EXPECT_NEAR(3 * a * 9 - 2 * b * 3 + c, 0.0f, 1e-4); // flat at x0
    EXPECT_NEAR(6 * a * -2.0f + 2 * b, 0.0f, 1e-5);     // inflection at x1
    EXPECT_EQ(coeffPoly3(&a, &b, &c, &dd, 1.0f, 1.0f, 1.0f, 0.0f), 0.0f);
    EXPECT_EQ(dd, 0.0f);
}

// A scene of about 14 stops: a bright window in a dark wall with fine texture and a
// coloured band, as planar RGBE rows.
std::vector<unsigned char> scene(int w, int h) {
    std::vector<unsigned char> rgbe(size_t(4) * w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const bool window = x > w / 2 && x < 3 * w / 4 && y > h / 4 && y < h / 2;
            const double tex = 1.0 + 0.3 * std::sin(x * 0.9) * std::cos(y * 0.7);
            double v[3] = {0.01 * tex, 0.01 * tex, 0.012 * tex};
            if (window) v[0] = v[1] = v[2] = 80.0 * tex;
            if (y > 3 * h / 4) v[0] *= 3.0; // a red band
            const double mx = std::max({v[0], v[1], v[2]});
            int e;
            std::frexp(mx, &e); // mx = f x 2^e, f in [0.5, 1)
            unsigned char *row = &rgbe[size_t(4) * w * y];
            for (int c = 0; c < 3; ++c)
                row[c * w + x] = static_cast<unsigned char>(std::ldexp(v[c], 8 - e));
            row[3 * w + x] = static_cast<unsigned char>(e + 128);
        }
    return rgbe;
}

struct Job {
    int w = 90, h = 70;
    std::vector<float> p = enhancer_block();
    OptimParam opt{};
    float stats[7] = {};
    std::vector<unsigned char> work;
    bool floats = false; // interleaved float input instead of RGBE rows
    int run(const unsigned char *input) {
        float table[256];
        exp_lut(table, -8);
        DimParam d = rgbe_dim(w, h);
        if (floats) d.inputFormat = 10, d.bpsIn = 32;
        size_t pair[2], total;
        mem4enhancer(0, p.data(), pair, &total, d);
        if (work.empty()) work.resize(opt.lowMemory ? pair[0] : total);
        return lv_tm_enhancer(0, p.data(), nullptr, stats, table, nullptr, d, opt, nullptr,
                              const_cast<unsigned char *>(input), work.data());
    }
    std::vector<unsigned char> output() const { return {work.begin(), work.begin() + 3L * w * h}; }
};

// Re-finishing twice and coming back to the first settings is covered on the photographs;
// here the float input and the column range, which they don't reach.
TEST(Enhancer, FloatInputRunsAndAColumnRangeReFinishesOnlyItsColumns) {
    Job a;
    const std::vector<unsigned char> img = scene(a.w, a.h);
    a.opt.numThreads = 2;
    a.p[19] = 2.0f;
    ASSERT_EQ(a.run(img.data()), a.h - a.h / 2); // the last band's rows
    const auto first = a.output();

    std::vector<float> rgb(size_t(3) * a.w * a.h);
    float table[256];
    exp_lut(table, -8);
    for (int i = 0; i < a.w * a.h; ++i)
        for (int c = 0; c < 3; ++c) {
            const unsigned char *row = &img[size_t(4) * a.w * (i / a.w)];
            rgb[3 * i + c] = row[c * a.w + i % a.w] * table[row[3 * a.w + i % a.w]];
        }
    Job f;
    f.floats = true;
    EXPECT_GT(f.run(reinterpret_cast<unsigned char *>(rgb.data())), 0);
    const auto shown = f.output();
    EXPECT_GT(*std::max_element(shown.begin(), shown.end()), 200);

    // Columns 20 to 39 re-finished with more saturation over the old output.
    a.p[19] = 1.0f;
    a.p[2] = 90.0f;
    ASSERT_GT(a.run(img.data()), 0);
    const auto vivid = a.output();
    EXPECT_NE(vivid, first);
    a.p[2] = 46.0f; // back to the first output, then the range over it
    a.run(img.data());
    a.p[2] = 90.0f;
    a.p[56] = 20;
    a.p[57] = 40;
    a.run(img.data());
    const auto part = a.output();
    for (size_t i = 0; i < part.size(); ++i) {
        const int x = int(i / 3 % a.w);
        ASSERT_EQ(part[i], (x >= 20 && x < 40 ? vivid : first)[i]) << i;
    }
}

// How close the low-memory route comes to the plain one is measured on the photographs;
// here every temp-file fault must end the run with a code.
TEST(Enhancer, LowMemoryRunsAndTempFaultsFailCleanly) {
    const std::string dir = testing::TempDir();
    const std::string hdr = dir + "enhancer_scene.hdr";
    Job plain;
    const std::vector<unsigned char> img = scene(plain.w, plain.h);
    ASSERT_EQ(lv_io_rgbe_write(hdr.c_str(), plain.w, plain.h, nullptr, 0, nullptr, img.data()),
              plain.h);
    std::vector<std::string> temps;
    for (int i = 0; i < 6; ++i)
        temps.push_back(dir + "enhancer_temp" + std::to_string(i));
    auto low_job = [&](const std::string &bad, int which) {
        Job j;
        j.opt.lowMemory = 1;
        j.opt.sourceFile = hdr.c_str();
        const char **paths[] = {&j.opt.tempPath0, &j.opt.tempPath1, &j.opt.tempPath2,
                                &j.opt.tempPath3, &j.opt.tempPath4, &j.opt.tempPath5};
        for (int i = 0; i < 6; ++i)
            *paths[i] = i == which ? bad.c_str() : temps[size_t(i)].c_str();
        return j;
    };
    Job low = low_job("", -1);
    ASSERT_EQ(low.run(nullptr), low.h);

    for (const std::string bad : {"/no/such/folder/t", "/dev/full"})
        for (int which = 0; which < 3; ++which) { // the solver streams only larger images
            Job j = low_job(bad, which);
            testing::internal::CaptureStdout();
            const int r = j.run(nullptr);
            testing::internal::GetCapturedStdout();
            EXPECT_LT(r, 0) << bad << " as temp file " << which;
        }
    for (const std::string &t : temps)
        std::remove(t.c_str());
    std::remove(hdr.c_str());
}

} // namespace
