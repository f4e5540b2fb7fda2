// Percentiles, log statistics, exponent tables and histograms.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <cmath>
#include <vector>

#include "frame/statistics.h"

namespace {

// Planar RGBE rows, every pixel grey at level v with exponent e.
std::vector<unsigned char> grey_rgbe(const std::vector<std::pair<int, int>> &pixels) {
    const size_t w = pixels.size();
    std::vector<unsigned char> row(4 * w);
    for (size_t x = 0; x < w; ++x) {
        row[x] = row[w + x] = row[2 * w + x] = static_cast<unsigned char>(pixels[x].first);
        row[3 * w + x] = static_cast<unsigned char>(pixels[x].second);
    }
    return row;
}

TEST(Percentile, FirstBinPastTheTruncatedShareOrBinsWhenNone) {
    int hist[4] = {1, 1, 1, 1};
    EXPECT_EQ(percentile(4, 4, hist, 0.5f), 2);
    EXPECT_EQ(percentile(4, 4, hist, 0.74f), 2) << "threshold trunc(2.96) = 2";
    EXPECT_EQ(percentile(4, 4, hist, 1.0f), 4) << "a sum equal to the total never exceeds it";
    EXPECT_EQ(percentile(4, 0, hist, 0.5f), 0);

    std::vector<int> h(10, 0);
    h[5] = 7;
    float data[] = {-100.0f, 0.0f, 0.5f, 1.0f, 50.0f, NAN};
    EXPECT_EQ(log_histo(6, 10, data, h.data(), 0.0f, 1.0f), 1);
    EXPECT_EQ(h[0], 3) << "below the range, the low end and NaN clamp into the first bin";
    EXPECT_EQ(h[4], 1);
    EXPECT_EQ(h[9], 2) << "the high end and above clamp into the last bin";
    EXPECT_EQ(h[5], 7) << "the histogram is added to, not cleared";
    EXPECT_EQ(log_histo(1, 10, data, h.data(), 1.0f, 1.0f), -1);
}

TEST(Percentile, VerifiedCountLandsBetweenBins15And235AndAlwaysReturns) {
    std::vector<unsigned> hist(512, 0);
    for (int i = 256; i < 512; ++i)
        hist[i] = 10;
    const int down = verifPercentile(hist.data(), 1, 2400); // starts at bin 240
    EXPECT_TRUE(down >= 150 && down < 2360) << down;
    EXPECT_EQ(verifPercentile(hist.data(), 1, 1000), 1000);
    const int up = verifPercentile(hist.data(), 1, 40); // starts at bin 4
    EXPECT_TRUE(up >= 150 && up < 160) << up;
    EXPECT_EQ(verifPercentile(hist.data(), 0, 500), 0) << "an empty plane can't hold any count";
}

TEST(Percentile, AdjustmentRoundsAreCountedAcrossCalls) {
    std::vector<int> last(100, 0);
    last[99] = 1000; // every fraction lands in the last bin
    GlobalCntAdjust = 0;
    LvPercentileAdjust r = adjust_percentile(1000, 100, last.data(), 0.5f);
    EXPECT_EQ(GlobalCntAdjust, 40);
    EXPECT_EQ(r.total, 1000.0f);
    EXPECT_LT(r.fraction, 0.5f * 0.68f);
    r = adjust_percentile(1000, 100, last.data(), 0.5f);
    EXPECT_EQ(r.fraction, 0.5f) << "the second call of a job has no rounds left";

    std::vector<int> flat(100, 10);
    GlobalCntAdjust = 0;
    EXPECT_EQ(adjust_percentile(1000, 100, flat.data(), 0.5f).fraction, 0.5f);
    EXPECT_EQ(GlobalCntAdjust, 1);
    GlobalCntAdjust = 0;
    r = adjust_percentile(1000, 100, flat.data(), 0.2f);
    EXPECT_TRUE(r.fraction >= 0.24f && r.fraction < 0.26f) << "pushed up to a quarter";
    GlobalCntAdjust = 0;
}

TEST(LogStatistics, SmallFloatImageSamplesEveryPixel) {
    // 10x10 floats whose luminances are e^0, e^0.1, ... e^9.9.
    std::vector<float> img(300);
    for (int i = 0; i < 100; ++i)
        img[3 * i] = img[3 * i + 1] = img[3 * i + 2] = std::exp(i * 0.1f);
    float stats[6] = {32.0f, 3.0f, 0, 0, 0, 0};
    EXPECT_EQ(logMinMaxMoy(10, 10, nullptr, reinterpret_cast<unsigned char *>(img.data()), stats),
              10);
    const float want[6] = {0.0f, 9.9f, 4.95f, 5.0f, 9.9f, 3.3f};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(stats[i], want[i], 0.01) << "stat " << i;
}

TEST(LogStatistics, DarkEmptyAndSkippedPixels) {
    float t[256];
    EXPECT_EQ(exp_lut(t, -8), 256);
    EXPECT_EQ(t[136], 1.0f);
    float old[256];
    exp_lut_old(old);
    EXPECT_EQ(old[0], t[0]);

    // Every luminance below 1: the maximum still reports 0, and the false range puts
    // every sample in the first bin.
    auto dark = grey_rgbe({{100, 128}, {100, 128}, {100, 128}});
    float s[6] = {};
    EXPECT_EQ(logMinMaxMoy(3, 1, t, dark.data(), s), 1);
    EXPECT_LT(s[0], 0.0f);
    EXPECT_EQ(s[1], 0.0f);
    EXPECT_EQ(s[3], s[0]);

    float e[6] = {};
    EXPECT_EQ(logMinMaxMoy(1, 0, t, dark.data(), e), 0);
    EXPECT_EQ(e[0], 1e11f);
    EXPECT_EQ(e[1], 0.0f);

    auto skip = grey_rgbe({{255, 0}, {128, 140}}); // exponent 0 is no pixel at all
    logMinMaxMoy(2, 1, t, skip.data(), s);
    EXPECT_NEAR(s[0], std::log(2048.0f), 1e-4);
    EXPECT_EQ(s[0], s[1]);
}

TEST(RangeFinder, ExtremeExponentsCountInTheMeanButNotTheRange) {
    auto img = grey_rgbe({{128, 128}, {128, 210}, {128, 130}});
    float mn, mx, mean;
    EXPECT_EQ(hdrMinMaxNew(3, 1, img.data(), &mn, &mx, &mean), 1);
    EXPECT_EQ(mn, 128.0f);
    EXPECT_EQ(mx, 512.0f);
    EXPECT_FLOAT_EQ(mean, (128.0f + std::ldexp(128.0f, 82) + 512.0f) / 3.0f);
    EXPECT_EQ(hdrMinMaxNew(0, 5, img.data(), &mn, &mx, &mean), 0);

    float range[2] = {1.0f, 1.0f};
    std::vector<unsigned> hist(65536, 0);
    EXPECT_EQ(getHisto32(3, 1, img.data(), range, hist.data()), -1);
    range[1] = 4096.0f;
    EXPECT_EQ(getHisto32(3, 1, img.data(), range, hist.data()), 1);
    EXPECT_EQ(hist[static_cast<int>(std::log(128.0) * 65535 / std::log(4096.0))], 1u);
    EXPECT_EQ(hist[65535], 1u) << "a value above the range clamps into the last bin";
}

TEST(HistogramInfo, FractionsOutsideTheirBoundsFallBackToDefaults) {
    std::vector<int> hist(65536, 0);
    for (int i = 0; i < 1000; ++i)
        hist[i] = 1;
    float range[2] = {1.0f, 65536.0f};
    const double b = std::log(65536.0) / 65536.0;
    auto level = [&](int bin) { return static_cast<float>(std::exp(b * bin)); };

    float info[10] = {0.05f, 0.9f, 1.0f};
    EXPECT_EQ(hist32info(range, 0, hist.data(), info), 500);
    EXPECT_FLOAT_EQ(info[6], level(2)) << "0.05 is refused: 0.002 of 1000";
    EXPECT_FLOAT_EQ(info[7], level(999)) << "0.9 is refused: 0.9995";
    EXPECT_FLOAT_EQ(info[5], level(500));
    EXPECT_FLOAT_EQ(info[1], 256.0f);
    EXPECT_FLOAT_EQ(info[9], info[7] / info[6]);

    float given[10] = {0.01f, 0.95f, 1.0f};
    hist32info(range, 0, hist.data(), given);
    EXPECT_FLOAT_EQ(given[6], level(10));
    EXPECT_FLOAT_EQ(given[7], level(950));
    float ignored[10] = {0.01f, 0.95f, 0.0f};
    hist32info(range, 0, hist.data(), ignored);
    EXPECT_FLOAT_EQ(ignored[6], info[6]);

    float bad[2] = {0.0f, 1.0f}, reversed[2] = {2.0f, 1.0f};
    EXPECT_EQ(hist32info(bad, 0, hist.data(), info), -1);
    EXPECT_EQ(hist32info(reversed, 0, hist.data(), info), -1);
}

TEST(HistogramInfo, DeepDarksAreIgnored) {
    std::vector<int> hist(65536, 0);
    float range[2] = {1e-6f, 1.0f};
    const double b = -std::log(1e-6) / 65536.0;
    const int k0 = static_cast<int>((-9.210340397238308 - std::log(1e-6f)) / b);
    for (int i = 0; i < 100; ++i)
        hist[i] = 50; // all darker than 0.0001
    hist[k0 + 10] = 10;
    float info[10] = {};
    EXPECT_EQ(hist32info(range, 0, hist.data(), info), k0 + 10);
    EXPECT_NEAR(std::log(info[4]), std::log(1e-6f) + b * (k0 + 10), 1e-4);
}

TEST(DisplayHistograms, GreyAndChannelsWithSwapDepthsAndGreyImages) {
    const unsigned char px[4] = {10, 20, 30, 99}; // RGBA: blue is the last sample
    std::vector<unsigned> c(1024, 0), s(1024, 0);
    histo4preview(1, 1, 4, 0, 4, px, c.data());
    EXPECT_EQ(c[(54 * 10 + 183 * 20 + 19 * 99) >> 8], 1u);
    EXPECT_EQ(c[256 + 10] + c[512 + 20] + c[768 + 99], 3u);
    histo4preview(1, 1, 4, 1, 4, px, s.data());
    EXPECT_EQ(s[768 + 10] + s[256 + 99], 2u);

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
    EXPECT_EQ(col[5] + col[256 + 6] + col[512 + 7], 3u) << "one sample counts in all three sets";

    std::vector<unsigned> c16(512, 0);
    float lo = -1, hi = -1;
    hist16(2, 1, 6, 3, wide, &lo, &hi, c16.data());
    const unsigned v0 = 19u * 0x1000 + 183u * 0x2000 + 54u * 0x3000;
    EXPECT_EQ(c16[v0 >> 15], 1u);
    EXPECT_EQ(lo, static_cast<float>(v0 >> 8));
    EXPECT_EQ(hi, static_cast<float>(0xFF00));
}

} // namespace
