// Percentiles, log statistics, exponent tables and histograms.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "frame/statistics.h"

namespace {

// Planar RGBE rows from (r, g, b, e) per pixel.
struct Rgbe {
    int w, h;
    std::vector<unsigned char> data;
    Rgbe(int w_, int h_) : w(w_), h(h_), data(static_cast<size_t>(4) * w_ * h_) {}
    void set(int x, int y, int r, int g, int b, int e) {
        unsigned char *row = data.data() + static_cast<size_t>(4) * w * y;
        row[x] = static_cast<unsigned char>(r);
        row[w + x] = static_cast<unsigned char>(g);
        row[2 * w + x] = static_cast<unsigned char>(b);
        row[3 * w + x] = static_cast<unsigned char>(e);
    }
};

TEST(Percentile, FirstBinPastTheTruncatedShareOrBinsWhenNone) {
    int hist[4] = {1, 1, 1, 1};
    EXPECT_EQ(percentile(4, 4, hist, 0.5f), 2);   // threshold 2: running 1, 2, 3
    EXPECT_EQ(percentile(4, 4, hist, 0.74f), 2);  // trunc(2.96) = 2
    EXPECT_EQ(percentile(4, 4, hist, 0.0f), 0);
    EXPECT_EQ(percentile(4, 4, hist, 1.0f), 4) << "a sum equal to the total never exceeds it";
    EXPECT_EQ(percentile(4, 0, hist, 0.5f), 0);
}

TEST(Percentile, LogHistogramClampsOutliersAndAddsToWhatIsThere) {
    std::vector<int> hist(10, 0);
    hist[5] = 7;
    float data[] = {-100.0f, 0.0f, 0.5f, 0.999f, 1.0f, 50.0f, NAN};
    EXPECT_EQ(log_histo(7, 10, data, hist.data(), 0.0f, 1.0f), 1);
    EXPECT_EQ(hist[0], 3);  // -100, 0 and the NaN
    EXPECT_EQ(hist[4], 1);  // trunc(0.5 * 9)
    EXPECT_EQ(hist[8], 1);  // trunc(0.999 * 9)
    EXPECT_EQ(hist[9], 2);  // 1.0 and 50
    EXPECT_EQ(hist[5], 7);
    EXPECT_EQ(log_histo(1, 10, data, hist.data(), 1.0f, 1.0f), -1);
    EXPECT_EQ(log_histo(0, 10, data, hist.data(), 0.0f, 1.0f), 1);
}

TEST(Percentile, VerifiedCountLandsBetweenBins15And235) {
    std::vector<unsigned> hist(512, 0);
    unsigned *plane1 = hist.data() + 256;
    for (int i = 0; i < 256; ++i) plane1[i] = 10;
    // Count 2400 points at bin 240: pulled down by 5% steps until inside.
    const int down = verifPercentile(hist.data(), 1, 2400);
    EXPECT_LT(down, 2360);
    EXPECT_GE(down, 150);
    EXPECT_EQ(verifPercentile(hist.data(), 1, 1000), 1000);
    const int up = verifPercentile(hist.data(), 1, 40);
    EXPECT_GE(up, 150);
    EXPECT_LT(up, 160);
    // A count that can never be placed (an empty plane) still returns.
    EXPECT_EQ(verifPercentile(hist.data(), 0, 500), 0);
}

TEST(Percentile, AdjustmentRoundsAreCountedAcrossCalls) {
    std::vector<int> hist(100, 0);
    hist[99] = 1000; // every fraction lands in the last bin: never acceptable
    GlobalCntAdjust = 0;
    LvPercentileAdjust r = adjust_percentile(1000, 100, hist.data(), 0.5f);
    EXPECT_EQ(GlobalCntAdjust, 40);
    EXPECT_FLOAT_EQ(r.total, 1000.0f);
    EXPECT_LT(r.fraction, 0.5f * 0.68f);
    // The second call in the same job has no rounds left and returns the fraction as given.
    r = adjust_percentile(1000, 100, hist.data(), 0.5f);
    EXPECT_EQ(r.fraction, 0.5f);
    EXPECT_EQ(GlobalCntAdjust, 40);

    // An acceptable bin stops after one counted round.
    std::vector<int> flat(100, 10);
    GlobalCntAdjust = 0;
    r = adjust_percentile(1000, 100, flat.data(), 0.5f);
    EXPECT_EQ(r.fraction, 0.5f);
    EXPECT_EQ(GlobalCntAdjust, 1);
    // A low bin is pushed up by 1% a round until it reaches a quarter of the range.
    GlobalCntAdjust = 0;
    r = adjust_percentile(1000, 100, flat.data(), 0.2f);
    EXPECT_GE(r.fraction, 0.24f);
    EXPECT_LT(r.fraction, 0.26f);
    EXPECT_GT(GlobalCntAdjust, 10);
    GlobalCntAdjust = 0;
}

TEST(ExponentTable, BiasFoldsTheMantissaScale) {
    float t[256], old[256];
    EXPECT_EQ(exp_lut(t, -8), 256);
    EXPECT_EQ(exp_lut_old(old), 256);
    EXPECT_EQ(0, std::memcmp(t, old, sizeof t));
    EXPECT_EQ(t[136], 1.0f);
    EXPECT_EQ(t[137], 2.0f);
    EXPECT_EQ(t[0], std::ldexp(1.0f, -136));
    EXPECT_EQ(exp_lut(t, 0), 256);
    EXPECT_EQ(t[128], 1.0f);
}

TEST(LogStatistics, SmallImageSamplesEveryPixel) {
    // 10x10 float image whose luminances are e^0 .. e^99, one per pixel.
    const int w = 10, h = 10;
    std::vector<float> img(static_cast<size_t>(w) * h * 3);
    for (int i = 0; i < w * h; ++i)
        img[3 * i] = img[3 * i + 1] = img[3 * i + 2] = std::exp(static_cast<float>(i) * 0.1f);
    float stats[6] = {32.0f, 3.0f, 0, 0, 0, -9.0f};
    EXPECT_EQ(logMinMaxMoy(w, h, nullptr, reinterpret_cast<unsigned char *>(img.data()), stats), h);
    EXPECT_NEAR(stats[0], 0.0f, 1e-6);
    EXPECT_NEAR(stats[1], 9.9f, 1e-3);
    EXPECT_NEAR(stats[2], 4.95f, 1e-3);            // mean of 0 .. 9.9
    EXPECT_NEAR(stats[3], 5.0f, 0.01);             // 51st of 100 samples
    EXPECT_NEAR(stats[4], 9.9f, 0.01);             // the last sample
    EXPECT_NEAR(stats[5], 3.3f, 0.01);             // 34th sample
}

TEST(LogStatistics, DarkImageReportsAMaximumOfZero) {
    Rgbe img(4, 3);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) img.set(x, y, 100, 100, 100, 128); // 100 * 2^-8 < 1
    float t[256];
    exp_lut(t, -8);
    float stats[6] = {0, 0, 0, 0, 0, -9.0f};
    EXPECT_EQ(logMinMaxMoy(4, 3, t, img.data.data(), stats), 3);
    EXPECT_LT(stats[0], 0.0f);
    EXPECT_EQ(stats[1], 0.0f) << "the maximum starts at 0 and is never reported below it";
    // The false range 0..min puts every sample in the first bin: all percentiles are min.
    EXPECT_EQ(stats[3], stats[0]);
    EXPECT_EQ(stats[4], stats[0]);
    EXPECT_EQ(stats[5], stats[0]);
}

TEST(LogStatistics, EmptyImageAndSkippedExponents) {
    float t[256];
    exp_lut(t, -8);
    float stats[6] = {0, 0, 0, 0, 0, 0};
    unsigned char none[4] = {0, 0, 0, 0};
    EXPECT_EQ(logMinMaxMoy(1, 0, t, none, stats), 0);
    EXPECT_EQ(stats[0], 1e11f);
    EXPECT_EQ(stats[1], 0.0f);
    EXPECT_EQ(stats[2], 0.0f);

    // Exponent 0 pixels are skipped entirely.
    Rgbe img(2, 1);
    img.set(0, 0, 255, 255, 255, 0);
    img.set(1, 0, 128, 128, 128, 140); // 128 * 2^4 = 2048
    float s2[6] = {0, 0, 0, 0, 0, 0};
    logMinMaxMoy(2, 1, t, img.data.data(), s2);
    EXPECT_NEAR(s2[0], std::log(2048.0f), 1e-4);
    EXPECT_EQ(s2[0], s2[1]);
}

TEST(RangeFinder, ExtremeExponentsCountInTheMeanButNotTheRange) {
    Rgbe img(3, 1);
    img.set(0, 0, 128, 128, 128, 128); // grey 128 * 2^0
    img.set(1, 0, 128, 128, 128, 210); // beyond 199: clipping
    img.set(2, 0, 128, 128, 128, 130); // 512
    float mn, mx, mean;
    EXPECT_EQ(hdrMinMaxNew(3, 1, img.data.data(), &mn, &mx, &mean), 1);
    EXPECT_EQ(mn, 128.0f);
    EXPECT_EQ(mx, 512.0f);
    EXPECT_FLOAT_EQ(mean, (128.0f + std::ldexp(128.0f, 82) + 512.0f) / 3.0f);
    EXPECT_EQ(hdrMinMaxNew(0, 5, img.data.data(), &mn, &mx, &mean), 0);
}

TEST(LogHistogram, FillsFromRgbeAndReadsBackPercentiles) {
    float range[2] = {1.0f, 1.0f};
    std::vector<unsigned> hist(65536, 0);
    Rgbe img(2, 1);
    img.set(0, 0, 128, 128, 128, 128);
    img.set(1, 0, 128, 128, 128, 140);
    EXPECT_EQ(getHisto32(2, 1, img.data.data(), range, hist.data()), -1);
    range[1] = 4096.0f;
    EXPECT_EQ(getHisto32(2, 1, img.data.data(), range, hist.data()), 1);
    const double lo = std::log(1.0), hi = std::log(4096.0);
    EXPECT_EQ(hist[static_cast<int>((std::log(128.0) - lo) * 65535 / (hi - lo))], 1u);
    EXPECT_EQ(hist[65535], 1u) << "128 * 2^12 clamps into the last bin";
}

TEST(HistogramInfo, FractionsOutsideTheirBoundsFallBackToDefaults) {
    // One count in each of bins 0 .. 999.
    std::vector<int> hist(65536, 0);
    for (int i = 0; i < 1000; ++i) hist[i] = 1;
    float range[2] = {1.0f, 65536.0f};
    const double b = std::log(65536.0) / 65536.0;

    float info[10] = {0.05f, 0.9f, 1.0f};
    EXPECT_EQ(hist32info(range, 0, hist.data(), info), 500);
    EXPECT_FLOAT_EQ(info[6], static_cast<float>(std::exp(b * 2)));   // 0.002 of 1000
    EXPECT_FLOAT_EQ(info[7], static_cast<float>(std::exp(b * 999))); // 0.9995
    EXPECT_FLOAT_EQ(info[5], static_cast<float>(std::exp(b * 500)));
    EXPECT_FLOAT_EQ(info[3], 65536.0f);
    EXPECT_FLOAT_EQ(info[1], 256.0f);
    EXPECT_EQ(info[8], 1.0f);
    EXPECT_FLOAT_EQ(info[9], info[7] / info[6]);
    EXPECT_NEAR(std::log(info[4]), b * 499.5, 1e-5);

    float given[10] = {0.01f, 0.95f, 1.0f};
    hist32info(range, 0, hist.data(), given);
    EXPECT_FLOAT_EQ(given[6], static_cast<float>(std::exp(b * 10)));
    EXPECT_FLOAT_EQ(given[7], static_cast<float>(std::exp(b * 950)));

    float ignored[10] = {0.01f, 0.95f, 0.0f};
    hist32info(range, 0, hist.data(), ignored);
    EXPECT_FLOAT_EQ(ignored[6], info[6]);
}

TEST(HistogramInfo, DeepDarksAreIgnoredAndBadRangesRefused) {
    std::vector<int> hist(65536, 0);
    float range[2] = {1e-6f, 1.0f};
    const double b = -std::log(1e-6) / 65536.0;
    const int k0 = static_cast<int>((-9.210340397238308 - std::log(1e-6f)) / b);
    for (int i = 0; i < 100; ++i) hist[i] = 50; // all below 0.0001
    hist[k0 + 10] = 10;
    float info[10] = {};
    EXPECT_EQ(hist32info(range, 0, hist.data(), info), k0 + 10);
    EXPECT_NEAR(std::log(info[4]), std::log(1e-6f) + b * (k0 + 10), 1e-4);

    float bad[2] = {0.0f, 1.0f};
    EXPECT_EQ(hist32info(bad, 0, hist.data(), info), -1);
    float reversed[2] = {2.0f, 1.0f};
    EXPECT_EQ(hist32info(reversed, 0, hist.data(), info), -1);
}

TEST(DisplayHistograms, PreviewCountsGreyAndChannelsWithSwap) {
    const unsigned char px[4] = {10, 20, 30, 99}; // one RGBA pixel
    std::vector<unsigned> c(1024, 0);
    histo4preview(1, 1, 4, 0, 4, px, c.data());
    EXPECT_EQ(c[(54 * 10 + 183 * 20 + 19 * 99) >> 8], 1u);
    EXPECT_EQ(c[256 + 10], 1u);
    EXPECT_EQ(c[512 + 20], 1u);
    EXPECT_EQ(c[768 + 99], 1u) << "blue is the last sample";
    std::vector<unsigned> s(1024, 0);
    histo4preview(1, 1, 4, 1, 4, px, s.data());
    EXPECT_EQ(s[768 + 10], 1u);
    EXPECT_EQ(s[256 + 99], 1u);
}

TEST(DisplayHistograms, GreyAndChannelCountsAtBothDepths) {
    const uint16_t wide[6] = {0x1000, 0x2000, 0x3000, 0xFF00, 0xFF00, 0xFF00};
    std::vector<unsigned> lum(256, 0);
    histlum(2, 1, 6, 3, 16, wide, lum.data());
    EXPECT_EQ(lum[(19 * 0x10 + 183 * 0x20 + 54 * 0x30) >> 8], 1u);
    EXPECT_EQ(lum[255], 1u);
    histlum(2, 1, 6, 3, 12, wide, lum.data());
    EXPECT_EQ(lum[255], 1u) << "other depths count nothing";

    const unsigned char grey[3] = {5, 6, 7};
    std::vector<unsigned> col(768, 0);
    histcolors(3, 1, 3, 1, 8, grey, col.data());
    EXPECT_EQ(col[5], 1u);
    EXPECT_EQ(col[256 + 6], 1u) << "one sample a pixel counts in all three sets";
    EXPECT_EQ(col[512 + 7], 1u);

    std::vector<unsigned> c16(512, 0);
    float lo = -1, hi = -1;
    hist16(2, 1, 6, 3, wide, &lo, &hi, c16.data());
    const unsigned v0 = 19u * 0x1000 + 183u * 0x2000 + 54u * 0x3000;
    EXPECT_EQ(c16[v0 >> 15], 1u);
    EXPECT_EQ(lo, static_cast<float>(v0 >> 8));
    EXPECT_EQ(hi, static_cast<float>((256u * 0xFF00) >> 8));
}

} // namespace
