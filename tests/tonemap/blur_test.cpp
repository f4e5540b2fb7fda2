// Relaxation kernels and the old solver: edge factors with and without wrap, identical
// bytes for every thread count, convergence on a known Poisson problem, and the temp-file
// path of a low-memory run.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "tonemap/enhancer_stages.h"

namespace {

std::vector<float> noise(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    std::vector<float> v(n);
    for (float &x : v)
        x = d(gen);
    return v;
}

// The Neumann Laplacian the kernels invert: the sum of the neighbours present minus their
// count times the pixel.
std::vector<float> laplacian(const std::vector<float> &x, int w, int h) {
    std::vector<float> out(x.size());
    for (int y = 0; y < h; ++y)
        for (int c = 0; c < w; ++c) {
            const int i = y * w + c;
            float s = 0.0f;
            int n = 0;
            if (c > 0) s += x[i - 1], ++n;
            if (c < w - 1) s += x[i + 1], ++n;
            if (y > 0) s += x[i - w], ++n;
            if (y < h - 1) s += x[i + w], ++n;
            out[i] = s - static_cast<float>(n) * x[i];
        }
    return out;
}

TEST(BlurKernels, RimPixelsAverageTheirNeighboursWithTheRightFactor) {
    // 5 x 3 plane, one sweep; the first pixels updated are colour 0 of the top row.
    const int w = 5, h = 3;
    std::vector<float> x(w * h), f(w * h, 1.0f);
    for (int i = 0; i < w * h; ++i)
        x[i] = static_cast<float>(i * i % 7);
    struct Case {
        int wrap, col;
        float expected;
    } cases[] = {
        {0, 0, (x[1] + x[5] - 2.0f * f[0]) * 0.5f},                // corner: two neighbours
        {0, 2, (x[1] + x[3] + x[7] - 2.0f * f[2]) * 0.3333f},      // top edge: three
        {1, 0, (x[4] + x[1] + x[2] + x[5] - 2.0f * f[0]) * 0.25f}, // wrap: seam and middle
    };
    for (const Case &c : cases) {
        std::vector<float> z = x;
        blur2(1, w, h, 1, c.wrap, 0, z.data(), f.data(), 2.0f, nullptr);
        // blur2 updates the top row's colour 0 first, from the original neighbours.
        EXPECT_FLOAT_EQ(z[c.col], c.expected) << "wrap " << c.wrap << " col " << c.col;
    }
}

TEST(BlurKernels, EveryThreadCountGivesTheSameBytes) {
    const int w = 97, h = 331; // odd width, bands from odd rows
    const auto f = noise(w * h, 1), x0 = noise(w * h, 2);
    for (int wrap : {0, 1})
        for (int threads : {1, 2, 3, 4}) {
            std::vector<float> a = x0, b = x0;
            blur1(w, h, 3, wrap, 0, const_cast<float *>(f.data()), a.data(), 0, nullptr, nullptr,
                  1.0f, nullptr);
            blur2(threads, w, h, 3, wrap, 0, b.data(), const_cast<float *>(f.data()), 1.0f,
                  nullptr);
            EXPECT_EQ(a, b) << threads << " threads, wrap " << wrap;
        }
    std::vector<float> even = noise(96 * 331, 3), even2 = even;
    const auto fe = noise(96 * 331, 4);
    blur2(1, 96, 331, 2, 0, 0, even.data(), const_cast<float *>(fe.data()), 1.0f, nullptr);
    blur2(3, 96, 331, 2, 0, 0, even2.data(), const_cast<float *>(fe.data()), 1.0f, nullptr);
    EXPECT_EQ(even, even2);
}

// Solves the old pipeline on one level whose right-hand side is the Laplacian of a known
// smooth plane; the result is exp of the plane up to a constant.
TEST(OldSolver, RecoversAKnownPlaneAndStreamsThroughItsTempFile) {
    const int w = 24, h = 20;
    std::vector<float> truth(w * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            truth[y * w + x] = 0.5f * std::sin(x * 0.2f) + 0.02f * y;
    const auto rhs = laplacian(truth, w, h);
    float p[60] = {};
    p[16] = 0.0f;
    DimParam dim{};
    dim.width = w, dim.height = h;
    OptimParam opt{};
    auto check = [&](const std::vector<float> &plane) {
        const float shift = std::log(plane[0]) - truth[0];
        for (int i = 0; i < w * h; i += 37)
            EXPECT_NEAR(std::log(plane[i]) - shift, truth[i], 2e-3f) << i;
    };
    std::vector<float> work = rhs;
    ASSERT_EQ(calc_tm2old(1, p, nullptr, work.data(), dim, opt, nullptr), 1);
    check(work);

    FILE *file = std::tmpfile();
    ASSERT_TRUE(file);
    fwrite(rhs.data(), 4, rhs.size(), file);
    std::vector<float> streamed(w * h, 7.0f);
    opt.lowMemory = 1;
    ASSERT_EQ(calc_tm2old(1, p, nullptr, streamed.data(), dim, opt, file), 1);
    EXPECT_EQ(streamed, work);
    std::vector<float> back(w * h);
    std::rewind(file);
    ASSERT_EQ(fread(back.data(), 4, back.size(), file), back.size());
    EXPECT_EQ(back, work);
    std::fclose(file);

    // A file that takes no more bytes (a full disk) fails the write-back with -2.
    FILE *full = std::fopen("/dev/full", "wb+");
    if (full) {
        std::vector<float> w2(w * h);
        testing::internal::CaptureStdout();
        EXPECT_EQ(calc_tm2old(1, p, nullptr, w2.data(), dim, opt, full), -2);
        testing::internal::GetCapturedStdout();
        std::fclose(full);
    }
}

} // namespace
