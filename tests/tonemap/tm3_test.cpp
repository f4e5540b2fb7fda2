// The enhancer's last stage on synthetic planes and images: the plane's percentile
// stretch and its clip at 5, identical bytes for every thread count, layout and kind,
// black pixels under a mask, and the low-memory row file's short read.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "lumivantor/lumivantor.h"
#include "tonemap/tm3.h"

namespace {

DimParam dim_of(int w, int h) {
    DimParam d;
    init_dim_param(&d);
    d.width = w;
    d.height = h;
    d.strideIn = d.strideOut = 3 * w;
    return d;
}

std::vector<float> block() {
    std::vector<float> p(LV_TMPARAM_COUNT * 3, 0.0f);
    tmparam_default(1, 0, p.data());
    return p;
}

TEST(Tm30, StretchesBetweenPercentilesAndClipsAtFive) {
    // The white walk never counts the top bin, so white 0 lands on the second highest
    // value; 7 is clipped to 5 first; a constant plane is measured from 0 and ends just
    // above 1; an all-zero plane has white below black.
    const struct {
        std::vector<float> plane, expect;
        int result;
        float tolerance;
    } cases[] = {
        {{1, 2, 3, 4, 5}, {0.0f, 1 / 3.0f, 2 / 3.0f, 1.0f, 4 / 3.0f}, 1, 1e-4f},
        {{1, 7, 3, 5}, {0.0f, 2.0f, 1.0f, 2.0f}, 1, 1e-4f},
        {{2, 2, 2}, {1.0000153f, 1.0000153f, 1.0000153f}, 1, 1e-6f},
        {{0, 0, 0}, {}, LV_ERR_STATS, 0.0f},
    };
    std::vector<float> p = block();
    p[3] = 0.0f;
    for (const auto &c : cases) {
        std::vector<float> plane = c.plane;
        DimParam d = dim_of(int(plane.size()), 1);
        ASSERT_EQ(tm30(&d, p.data(), 0, plane.data()), c.result);
        for (size_t i = 0; i < c.expect.size(); ++i)
            EXPECT_NEAR(plane[i], c.expect[i], c.tolerance) << c.plane[0] << " at " << i;
    }
    DimParam empty = dim_of(4, 0);
    EXPECT_EQ(tm30(&empty, p.data(), 0, nullptr), 0);
}

// A colourful RGBE image (as rows and as floats) with scattered black pixels, a plane
// and a two-layer mask.
struct Image {
    int w, h;
    std::vector<unsigned char> rgbe, mask;
    std::vector<float> plane, floats;
    explicit Image(int w_, int h_)
        : w(w_), h(h_), rgbe(size_t(4) * w * h), mask(size_t(2) * w * h), plane(size_t(w) * h),
          floats(size_t(3) * w * h) {
        float table[256];
        exp_lut(table, -8);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                unsigned char *row = &rgbe[size_t(4) * w * y];
                const size_t i = size_t(w) * y + x;
                row[x] = static_cast<unsigned char>(128 + (x * 5) % 127);
                row[w + x] = static_cast<unsigned char>(128 + (y * 3) % 127);
                row[2 * w + x] = static_cast<unsigned char>(128 + ((x + y) * 2) % 127);
                row[3 * w + x] = (x * 7 + y * 3) % 41 ? 120 + (x + y) % 20 : 0;
                for (int c = 0; c < 3; ++c)
                    floats[3 * i + c] = row[3 * w + x] ? row[c * w + x] * table[row[3 * w + x]] : 0;
                plane[i] = std::log(1.0f + x + 2.0f * y);
                mask[2 * i] = static_cast<unsigned char>((x * 11) % 256);
                mask[2 * i + 1] = static_cast<unsigned char>(y % 3 == 0 ? 255 : y % 2);
            }
    }
};

int render(const Image &im, int kind, int threads, int layout, int bps, bool layers,
           std::vector<unsigned char> &out, OptimParam opt = {}) {
    DimParam d = dim_of(im.w, im.h);
    d.bpsOut = bps;
    d.outputLayout = layout;
    d.inputFormat = kind == 10 ? 10 : 0;
    std::vector<float> p = block();
    if (layers) {
        p[55] = 2;
        p[LV_TMPARAM_COUNT + 2] = 30; // layer 1: more saturation, warmer
        p[LV_TMPARAM_COUNT + 12] = 4;
        p[2 * LV_TMPARAM_COUNT + 8] = 10; // layer 2: a gamma and a hue curve
        p[2 * LV_TMPARAM_COUNT + 31] = 20;
    }
    p[12] = -3; // every optional step of the pixel: temperature, repair, shadow ramp,
    p[9] = 20;  // highlight and shadow saturation
    p[11] = 30;
    p[13] = 10;
    p[14] = -10;
    opt.numThreads = threads;
    float table[256], stats[7] = {0.5f, 40.0f, 0.01f, -1.0f, -2.5f, 0.5f, 1.5f};
    exp_lut(table, -8);
    std::vector<float> plane = im.plane, floats = im.floats;
    std::vector<unsigned char> rgbe = im.rgbe, mask = im.mask;
    out.assign(size_t(3) * im.w * im.h * (bps / 8), 7);
    return calc_tm3(kind, d, p.data(), layers ? mask.data() : nullptr, stats, table, nullptr, opt,
                    nullptr, 0, nullptr,
                    kind == 10 ? reinterpret_cast<unsigned char *>(floats.data()) : rgbe.data(),
                    plane.data(), out.data());
}

TEST(CalcTm3, SameBytesForEveryThreadCountLayoutAndKind) {
    const Image im(53, 37);
    std::vector<unsigned char> one, many;
    for (int kind : {0, 10})
        for (int layout : {0, 3})
            for (int bps : {8, 16})
                for (bool layers : {false, true}) {
                    SCOPED_TRACE(testing::Message()
                                 << kind << " " << layout << " " << bps << " " << layers);
                    EXPECT_EQ(render(im, kind, 1, layout, bps, layers, one), im.h);
                    for (int threads : {2, 3, 40}) {
                        EXPECT_GT(render(im, kind, threads, layout, bps, layers, many), 0);
                        EXPECT_EQ(many, one) << threads;
                    }
                }
}

TEST(CalcTm3, BlackPixelsIgnoreTheMaskAndShortRowFilesFail) {
    Image im(29, 11);
    for (size_t i = 0; i < im.plane.size(); ++i)
        im.mask[2 * i] = 255; // the layer replaces the base everywhere
    std::vector<unsigned char> out;
    render(im, 0, 1, 0, 8, true, out);
    for (size_t i = 0; i < im.plane.size(); ++i) {
        if (im.rgbe[size_t(4) * im.w * (i / im.w) + 3 * im.w + i % im.w] == 0) {
            EXPECT_EQ(out[3 * i] | out[3 * i + 1] | out[3 * i + 2], 0) << i;
        }
    }

    const std::string path = testing::TempDir() + "tm3_rows.bin";
    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    std::fwrite(im.rgbe.data(), 1, im.rgbe.size() - 4 * im.w, f); // one row short
    std::fclose(f);
    OptimParam opt{};
    opt.lowMemory = 1;
    opt.tempPath0 = path.c_str();
    testing::internal::CaptureStdout();
    EXPECT_EQ(render(im, 0, 4, 0, 8, false, out, opt), -312);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "tm3 could not read from input file at 10  - returned  0  instead of 4\n");
    std::remove(path.c_str());
    EXPECT_EQ(render(im, 0, 1, 0, 8, false, out, opt), LV_ERR_ARG);
}

} // namespace
