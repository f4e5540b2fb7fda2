// Stage tm2: convergence on known Poisson problems (the whole pyramid, with and without
// wrap), the stops on an all-zero or NaN right-hand side, the tolerance table,
// identical bytes for a given thread count, the strip route through temp files, and the
// codes of temp-file faults.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"
#include "street_photos.h"
#include "tonemap/enhancer_stages.h"

namespace {

namespace fs = std::filesystem;

float smooth(float x, float y) {
    return 0.8f * std::sin(x * 3.1f) * std::cos(y * 2.3f) + 0.5f * x;
}

// Right-hand-side pyramid of a known plane: level k samples the plane on its own grid
// and takes the solver's Laplacian of it.
struct Problem {
    int w, h;
    lv::SolverPlan plan;
    std::vector<float> work;
};

Problem make_problem(int w, int h, int levels, int wrap) {
    Problem pb{w, h, lv::solver_plan(w, h, levels), {}};
    pb.work.assign(pb.plan.total + static_cast<long>(w) * h, 0.0f);
    for (int k = 0; k < pb.plan.count; ++k) {
        const int lw = pb.plan.w[k], lh = pb.plan.h[k];
        std::vector<float> truth(static_cast<size_t>(lw) * lh);
        for (int y = 0; y < lh; ++y)
            for (int x = 0; x < lw; ++x)
                truth[y * lw + x] = smooth(static_cast<float>(x) / lw, static_cast<float>(y) / lh);
        tm20m(1, lw, lh, wrap, truth.data(), pb.work.data() + pb.plan.offset[k]);
    }
    return pb;
}

// Largest deviation of log(plane) from the known plane, after removing the constant that
// a Neumann problem leaves free.
float log_error(const std::vector<float> &plane, int w, int h) {
    const float shift = std::log(plane[0]) - smooth(0.0f, 0.0f);
    float worst = 0.0f;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            worst = std::max(
                worst, std::fabs(std::log(plane[y * w + x]) - shift -
                                 smooth(static_cast<float>(x) / w, static_cast<float>(y) / h)));
    return worst;
}

struct Params {
    float p[60] = {};
    DimParam dim{};
    OptimParam opt{};
    Params(int w, int h) {
        tmparam_default(1, 0, p);
        p[18] = 1.0f;
        dim.width = w, dim.height = h;
    }
};

// Convergence is checked through the pyramid solves below, which run on this solver.
TEST(Solver, ConjugateGradientStopsOnAZeroOrNanRightHandSide) {
    const int w = 33, h = 29;
    std::vector<float> rhs(w * h, 0.0f), x(w * h, 0.0f);
    EXPECT_EQ(tm20(w, h, 100, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0,
                   rhs.data(), x.data(), 1e-6f),
              0);
    rhs[5] = NAN;
    EXPECT_LE(tm20(w, h, 100, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0,
                   rhs.data(), x.data(), 1e-6f),
              1);
}

TEST(Solver, LevelsBeyondTheDivergencePyramidAreNeverRead) {
    // 20 x 7 halves once in stage tm1 (to 10 x 4); asked for more, the solver stops there.
    const int w = 20, h = 7;
    Params pr(w, h);
    std::vector<float> work = make_problem(w, h, 2, 0).work;
    work.resize(w * h + 10 * 4); // exactly the two levels: ASan sees any read beyond
    ASSERT_EQ(calc_tm2new2(6, pr.p, nullptr, work.data(), pr.dim, pr.opt), 1);
    EXPECT_LT(log_error(work, w, h), 0.05f);

    const lv::SolverPlan narrow = lv::solver_plan(3, 100, 4); // a side of 3 stops the halving
    EXPECT_EQ(narrow.h[3], 100);
    EXPECT_EQ(narrow.total, 4 * 300);
}

TEST(Solver, PyramidSolveRecoversThePlaneAndRepeatsItsBytes) {
    const int w = 300, h = 250;
    Params pr(w, h);
    pr.opt.numThreads = 2;
    Problem pb = make_problem(w, h, 4, 0);
    std::vector<float> a = pb.work, b = pb.work;
    ASSERT_EQ(calc_tm2new2(4, pr.p, nullptr, a.data(), pr.dim, pr.opt), 1);
    EXPECT_LT(log_error(a, w, h), 0.02f);
    ASSERT_EQ(calc_tm2new2(4, pr.p, nullptr, b.data(), pr.dim, pr.opt), 1);
    EXPECT_EQ(0, std::memcmp(a.data(), b.data(), sizeof(float) * w * h));

    // p[18] = 3 lies past the tolerance table and means 1e-6, as p[18] = 1 does.
    std::vector<float> c = pb.work;
    pr.p[18] = 3.0f;
    calc_tm2new2(4, pr.p, nullptr, c.data(), pr.dim, pr.opt);
    EXPECT_EQ(0, std::memcmp(a.data(), c.data(), sizeof(float) * w * h));
}

TEST(Solver, StripRouteMatchesTheInMemorySolveAndReportsFileFaults) {
    const int w = 96, h = 72;
    Params pr(w, h);
    Problem pb = make_problem(w, h, 4, 1);
    pr.p[15] = 1.0f;
    std::vector<float> mem = pb.work;
    ASSERT_EQ(calc_tm2new2(4, pr.p, nullptr, mem.data(), pr.dim, pr.opt), 1);

    const fs::path dir = fs::temp_directory_path() / ("lv_tm2_" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::string path[6];
    for (int i = 1; i < 6; ++i)
        path[i] = (dir / "t").string() + std::to_string(i);
    pr.opt.lowMemory = 1;
    pr.opt.tempPath1 = path[1].c_str(), pr.opt.tempPath2 = path[2].c_str();
    pr.opt.tempPath3 = path[3].c_str(), pr.opt.tempPath4 = path[4].c_str();
    pr.opt.tempPath5 = path[5].c_str();
    std::vector<float> low = pb.work;
    ASSERT_EQ(calc_tm2new2(4, pr.p, nullptr, low.data(), pr.dim, pr.opt), 1);
    for (int i = 0; i < w * h; i += 7)
        ASSERT_NEAR(low[i], mem[i], 1e-3f * mem[i]) << i;
    std::vector<float> back(w * h);
    FILE *f = std::fopen(path[1].c_str(), "rb");
    ASSERT_TRUE(f);
    EXPECT_EQ(std::fread(back.data(), 4, back.size(), f), back.size());
    std::fclose(f);
    EXPECT_EQ(0, std::memcmp(back.data(), low.data(), sizeof(float) * w * h));

    const std::string missing = (dir / "no" / "x").string();
    struct Case {
        const char **field;
        const char *value;
        int code;
    } cases[] = {{&pr.opt.tempPath1, missing.c_str(), -1},
                 {&pr.opt.tempPath2, missing.c_str(), -20},
                 {&pr.opt.tempPath5, missing.c_str(), -20},
                 {&pr.opt.tempPath2, "/dev/full", -22},
                 {&pr.opt.tempPath1, "/dev/full", -2}};
    for (const Case &c : cases) {
        const char *kept = *c.field;
        *c.field = c.value;
        std::vector<float> work = pb.work;
        testing::internal::CaptureStdout();
        EXPECT_EQ(calc_tm2new2(4, pr.p, nullptr, work.data(), pr.dim, pr.opt), c.code) << c.value;
        testing::internal::GetCapturedStdout();
        *c.field = kept;
    }
    fs::remove_all(dir);
}

} // namespace

// The street bracket merged by the library, through both stages at the enhancer's
// defaults: the plane must be finite and compress the scene's range. (The whole
// enhancer's rendering of it is written as PNG by the tool's real-data test.)
TEST(Stages, StreetBracketGivesAFiniteCompressedPlane) {
    const lvtest::Bracket street = lvtest::street_bracket(true);
    if (street.empty()) GTEST_SKIP() << "no street bracket in " << lvtest::street_dir();
    const int w = street.width, h = street.height;
    const std::vector<unsigned char> &rgbe = street.rgbe;
    float table[256], stats[7] = {};
    exp_lut(table, -8);
    for (float member : {1.0f, 0.0f}) { // the new pipeline, then the old one
        Params pr(w, h);
        pr.opt.numThreads = 2;
        pr.p[16] = member;
        // What the enhancer's memory plan gives for this size (one more for the old one).
        const int levels = member > 0 ? 4 : 5;
        std::vector<float> copy(2L * w * h), work(2L * w * h);
        std::memcpy(copy.data(), rgbe.data(), rgbe.size());
        ASSERT_EQ(calc_tm1(0, pr.p, levels, stats, table, nullptr, pr.dim, pr.opt, nullptr,
                           copy.data(), work.data()),
                  1);
        if (member > 0)
            ASSERT_EQ(calc_tm2new2(levels - 1, pr.p, nullptr, work.data(), pr.dim, pr.opt), 1);
        else
            ASSERT_EQ(calc_tm2old(levels - 1, pr.p, nullptr, work.data(), pr.dim, pr.opt, nullptr),
                      1);

        // Range of the log plane between its 1st and 99th percentiles, against the input's.
        auto spread = [](std::vector<float> v) {
            std::sort(v.begin(), v.end());
            return v[v.size() * 99 / 100] - v[v.size() / 100];
        };
        std::vector<float> in_log(copy.begin(), copy.begin() + long(w) * h), out_log(long(w) * h);
        for (long i = 0; i < long(w) * h; ++i) {
            ASSERT_TRUE(std::isfinite(work[i]) && work[i] > 0.0f) << i;
            out_log[i] = std::log(work[i]);
        }
        EXPECT_LT(spread(out_log), 0.7f * spread(in_log));
    }
}
