// The enhancer's last stage on synthetic planes and images: the plane's percentile
// stretch and its clip at 5, identical bytes for every thread count and layout, column
// ranges, black pixels under a mask, the kept plane and the low-memory row file.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "frame/band_threads.h"
#include "lumivantor/lumivantor.h"
#include "tonemap/tm3.h"

namespace {

DimParam dim_of(int w, int h) {
    DimParam d;
    init_dim_param(&d);
    d.width = w;
    d.height = h;
    d.strideIn = 3 * w;
    d.strideOut = 3 * w;
    return d;
}

std::vector<float> enhancer_block() {
    std::vector<float> p(LV_TMPARAM_COUNT * 3, 0.0f);
    tmparam_default(1, 0, p.data());
    return p;
}

TEST(Tm30, StretchesBetweenPercentilesAndClipsAtFive) {
    struct Case {
        const char *what;
        std::vector<float> plane;
        float white, black;
        int result;
        std::vector<float> expect; // empty: only the result is checked
    };
    const std::vector<Case> cases = {
        // Black 0 takes the minimum; the white walk never counts the top bin, so white 0
        // lands on the second highest value and the highest stays above 1.
        {"ramp", {1, 2, 3, 4, 5}, 0.0f, 0.0f, 1, {0.0f, 1 / 3.0f, 2 / 3.0f, 1.0f, 4 / 3.0f}},
        // A constant plane is measured from 0 and comes out just above 1.
        {"constant", {2, 2, 2, 2}, 0.0f, 0.0f, 1, {}},
        // 7 is clipped to 5 before the histogram, so it lands where 5 does; the top bin
        // never counts towards the white walk, which stops at 3.
        {"clip", {1, 7, 3, 5}, 0.0f, 0.0f, 1, {0.0f, 2.0f, 1.0f, 2.0f}},
        // An all-zero plane has white below black.
        {"zeros", {0, 0, 0}, 0.0f, 0.0f, LV_ERR_STATS, {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<float> plane = c.plane;
        DimParam d = dim_of(int(plane.size()), 1);
        std::vector<float> p = enhancer_block();
        p[3] = c.white;
        p[4] = c.black;
        ASSERT_EQ(tm30(&d, p.data(), 0, plane.data()), c.result);
        for (size_t i = 0; i < c.expect.size(); ++i)
            EXPECT_NEAR(plane[i], c.expect[i], 1e-4) << i;
        if (std::string(c.what) == "constant") {
            for (float v : plane) {
                EXPECT_GT(v, 1.0f);
                EXPECT_LT(v, 1.0001f);
            }
        }
    }
    DimParam empty = dim_of(4, 0);
    std::vector<float> p = enhancer_block();
    EXPECT_EQ(tm30(&empty, p.data(), 0, nullptr), 0);
}

// A smooth RGBE image with a dark corner, colour and a few black pixels, and its plane.
struct Image {
    int w, h;
    std::vector<unsigned char> rgbe;
    std::vector<float> plane, floats;
    std::vector<unsigned char> mask;
};

Image make_image(int w, int h) {
    Image im{w,
             h,
             std::vector<unsigned char>(size_t(4) * w * h),
             std::vector<float>(size_t(w) * h),
             std::vector<float>(size_t(3) * w * h),
             std::vector<unsigned char>(size_t(2) * w * h)};
    float table[256];
    exp_lut(table, -8);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            unsigned char *row = &im.rgbe[size_t(4) * w * y];
            const bool black = (x * 7 + y * 3) % 41 == 0;
            row[x] = static_cast<unsigned char>(128 + (x * 5) % 127);
            row[w + x] = static_cast<unsigned char>(128 + (y * 3) % 127);
            row[2 * w + x] = static_cast<unsigned char>(128 + ((x + y) * 2) % 127);
            row[3 * w + x] = black ? 0 : static_cast<unsigned char>(120 + (x + y) % 20);
            const size_t i = size_t(w) * y + x;
            for (int c = 0; c < 3; ++c)
                im.floats[3 * i + c] = black ? 0.0f : row[c * w + x] * table[row[3 * w + x]];
            im.plane[i] = std::log(1.0f + x + 2.0f * y);
            im.mask[2 * i] = static_cast<unsigned char>((x * 11) % 256);
            im.mask[2 * i + 1] = static_cast<unsigned char>(y % 3 == 0 ? 255 : y % 2);
        }
    return im;
}

struct Run {
    int kind = 0;
    int threads = 1;
    int layout = 0;
    int bps = 8;
    bool layers = false;
};

std::vector<unsigned char> render(const Image &im, const Run &r, std::vector<float> p,
                                  int *result) {
    DimParam d = dim_of(im.w, im.h);
    d.bpsOut = r.bps;
    d.outputLayout = r.layout;
    if (r.kind == 10) {
        d.inputFormat = 10;
        d.bpsIn = 32;
    }
    if (r.layers) {
        p[55] = 2;
        p[LV_TMPARAM_COUNT + 2] = 30;      // layer 1: more saturation
        p[LV_TMPARAM_COUNT + 12] = 4;      // and warmer
        p[2 * LV_TMPARAM_COUNT + 8] = 10;  // layer 2: a gamma
        p[2 * LV_TMPARAM_COUNT + 31] = 20; // and a hue curve
    }
    p[12] = -3; // cooler base
    p[9] = 20;  // white repair
    p[11] = 30; // shadow ramp
    p[13] = 10;
    p[14] = -10;
    OptimParam opt;
    init_optim_param(&opt);
    opt.numThreads = r.threads;
    float table[256], stats[7] = {0.5f, 40.0f, 0.01f, -1.0f, -2.5f, 0.5f, 1.5f};
    exp_lut(table, -8);
    std::vector<float> plane = im.plane;
    std::vector<float> floats = im.floats;
    std::vector<unsigned char> rgbe = im.rgbe, mask = im.mask;
    unsigned char *input =
        r.kind == 10 ? reinterpret_cast<unsigned char *>(floats.data()) : rgbe.data();
    std::vector<unsigned char> out(size_t(3) * im.w * im.h * (r.bps / 8), 7);
    *result = calc_tm3(r.kind, d, p.data(), r.layers ? mask.data() : nullptr, stats, table, nullptr,
                       opt, nullptr, 0, nullptr, input, plane.data(), out.data());
    return out;
}

TEST(CalcTm3, SameBytesForEveryThreadCountLayoutAndKind) {
    const Image im = make_image(53, 37);
    for (int kind : {0, 10})
        for (int layout : {0, 3})
            for (int bps : {8, 16})
                for (bool layers : {false, true}) {
                    SCOPED_TRACE(testing::Message()
                                 << kind << " " << layout << " " << bps << " " << layers);
                    int r1 = 0;
                    const auto one =
                        render(im, {kind, 1, layout, bps, layers}, enhancer_block(), &r1);
                    EXPECT_EQ(r1, im.h);
                    for (int threads : {2, 3, 40}) {
                        int r = 0;
                        EXPECT_EQ(
                            render(im, {kind, threads, layout, bps, layers}, enhancer_block(), &r),
                            one)
                            << threads;
                        EXPECT_GT(r, 0);
                    }
                }
}

TEST(CalcTm3, BlackPixelsColumnRangeAndGreys) {
    Image im = make_image(29, 11);
    int r = 0;
    // Black pixels write 0 whatever their mask says, a layer at weight 255 included.
    for (size_t i = 0; i < im.plane.size(); ++i)
        im.mask[2 * i] = 255;
    const auto out = render(im, {0, 1, 0, 8, true}, enhancer_block(), &r);
    for (int y = 0; y < im.h; ++y)
        for (int x = 0; x < im.w; ++x)
            if (im.rgbe[size_t(4) * im.w * y + 3 * im.w + x] == 0) {
                for (int c = 0; c < 3; ++c)
                    EXPECT_EQ(out[size_t(3) * (im.w * y + x) + c], 0);
            }

    // A column range touches only its columns.
    std::vector<float> p = enhancer_block();
    p[19] = 1.0f; // the plane is taken as it stands
    p[56] = 5;
    p[57] = 9;
    const auto part = render(im, {0, 2, 0, 8, false}, p, &r);
    for (int y = 0; y < im.h; ++y)
        for (int x = 0; x < im.w; ++x)
            EXPECT_EQ(part[size_t(3) * (im.w * y + x)] == 7, x < 5 || x >= 9) << x << "," << y;

    // Grey input stays grey at default settings.
    for (int y = 0; y < im.h; ++y) {
        unsigned char *row = &im.rgbe[size_t(4) * im.w * y];
        std::copy(row, row + im.w, row + im.w);
        std::copy(row, row + im.w, row + 2 * im.w);
    }
    DimParam d = dim_of(im.w, im.h);
    OptimParam opt;
    init_optim_param(&opt);
    float table[256], stats[7] = {0.5f, 40.0f, 0.01f, -1.0f, -2.5f, 0.5f, 1.5f};
    exp_lut(table, -8);
    std::vector<float> plane = im.plane, kept(plane.size(), -1.0f);
    std::vector<unsigned char> grey(size_t(3) * im.w * im.h);
    p = enhancer_block();
    ASSERT_EQ(calc_tm3(0, d, p.data(), nullptr, stats, table, nullptr, opt, nullptr, 1, kept.data(),
                       im.rgbe.data(), plane.data(), grey.data()),
              im.h);
    EXPECT_EQ(kept, plane); // the normalised plane is kept for re-finishing
    for (size_t i = 0; i < grey.size(); i += 3) {
        EXPECT_NEAR(grey[i], grey[i + 1], 1);
        EXPECT_NEAR(grey[i + 1], grey[i + 2], 1);
    }
}

TEST(CalcTm3, LowMemoryReadsRowsFromTheTempFile) {
    const Image im = make_image(31, 17);
    const std::string path = testing::TempDir() + "tm3_rows.bin";
    DimParam d = dim_of(im.w, im.h);
    OptimParam opt;
    init_optim_param(&opt);
    float table[256], stats[7] = {0.5f, 40.0f, 0.01f, -1.0f, -2.5f, 0.5f, 1.5f};
    exp_lut(table, -8);
    std::vector<float> p = enhancer_block();
    std::vector<float> plane = im.plane;
    std::vector<unsigned char> rgbe = im.rgbe, plain(size_t(3) * im.w * im.h), low(plain.size());
    ASSERT_EQ(calc_tm3(0, d, p.data(), nullptr, stats, table, nullptr, opt, nullptr, 0, nullptr,
                       rgbe.data(), plane.data(), plain.data()),
              im.h);

    FILE *f = std::fopen(path.c_str(), "wb");
    ASSERT_TRUE(f);
    std::fwrite(im.rgbe.data(), 1, im.rgbe.size(), f);
    std::fclose(f);
    opt.lowMemory = 1;
    opt.numThreads = 4; // low-memory runs use one thread whatever is asked
    opt.tempPath0 = path.c_str();
    plane = im.plane;
    EXPECT_EQ(calc_tm3(0, d, p.data(), nullptr, stats, table, nullptr, opt, nullptr, 0, nullptr,
                       nullptr, plane.data(), low.data()),
              im.h);
    EXPECT_EQ(low, plain);

    // A file one row short fails at that row; a missing file fails to open.
    f = std::fopen(path.c_str(), "wb");
    std::fwrite(im.rgbe.data(), 1, im.rgbe.size() - 4 * im.w, f);
    std::fclose(f);
    plane = im.plane;
    testing::internal::CaptureStdout();
    EXPECT_EQ(calc_tm3(0, d, p.data(), nullptr, stats, table, nullptr, opt, nullptr, 0, nullptr,
                       nullptr, plane.data(), low.data()),
              -312);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "tm3 could not read from input file at 16  - returned  0  instead of 4\n");
    std::remove(path.c_str());
    EXPECT_EQ(calc_tm3(0, d, p.data(), nullptr, stats, table, nullptr, opt, nullptr, 0, nullptr,
                       nullptr, plane.data(), low.data()),
              LV_ERR_ARG);
}

} // namespace
