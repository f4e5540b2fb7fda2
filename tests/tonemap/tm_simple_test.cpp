// The global tone mapper on a merged HDR photograph (or a synthetic scene without the
// sample data): threads, mask layers, column ranges, planar output and output depths.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include "frame/band_threads.h"
#include "hdr_scene.h"
#include "lumivantor/lumivantor.h"

namespace {

using lvtest::HdrScene;

const HdrScene &scene() {
    static const HdrScene s = [] {
        HdrScene real = lvtest::street_scene();
        return real.width > 0 ? real : lvtest::synthetic_scene(640, 420);
    }();
    return s;
}

struct Job {
    DimParam dim{};
    std::vector<float> p = std::vector<float>(LV_TMPARAM_COUNT, 0.0f);
    std::array<float, 6> stats{};
    float exp_table[256];
    std::vector<unsigned char> input;
    std::vector<unsigned char> mask;

    explicit Job(const HdrScene &s, bool floats = false) {
        init_dim_param(&dim);
        dim.width = s.width;
        dim.height = s.height;
        dim.strideOut = 3 * s.width;
        tmparam_default(2, 0, p.data());
        exp_lut(exp_table, -8);
        if (floats) {
            dim.inputFormat = 10;
            dim.strideIn = 3 * s.width;
            input.resize(s.rgb.size() * sizeof(float));
            std::memcpy(input.data(), s.rgb.data(), input.size());
        } else {
            input = s.rgbe;
        }
        // Statistics of the RGBE pixels either way, so both inputs share one curve.
        std::vector<unsigned char> rgbe = s.rgbe;
        logMinMaxMoy(s.width, s.height, exp_table, rgbe.data(), stats.data());
    }
    void add_layer(const float *block) {
        p[55] += 1.0f;
        p.insert(p.end(), block, block + LV_TMPARAM_COUNT);
    }
    size_t out_samples() const {
        const int pitch = std::max(dim.strideOut, dim.samplesPerPixel * dim.width);
        return static_cast<size_t>(pitch) * dim.height;
    }
    // With threads the driver returns the last band's row count, unless it splits planes.
    int expected_result(int threads) const {
        if (threads < 2 || dim.outputLayout == 3) return dim.height;
        return lv::band_of(dim.height, threads - 1, threads).rows;
    }
    int run(std::vector<unsigned char> &out, int threads, unsigned char fill = 0) {
        out.assign(out_samples() * (dim.bpsOut / 8), fill);
        return tm_simple(dim, p.data(), mask.empty() ? nullptr : mask.data(), stats.data(),
                         exp_table, &threads, input.data(), out.data());
    }
};

std::vector<unsigned char> render(Job &job, int threads = 1) {
    std::vector<unsigned char> out;
    EXPECT_EQ(job.run(out, threads), job.expected_result(threads));
    return out;
}

// A block with a warm balance, more saturation, a hue curve and a luminance curve.
std::vector<float> coloured_block() {
    std::vector<float> b(LV_TMPARAM_COUNT, 0.0f);
    b[0] = 3.0f;
    b[12] = 4.0f;
    b[13] = 5.0f;
    b[23] = 8.0f;  // saturation of yellows
    b[35] = -6.0f; // shift blues
    b[44] = 5.0f;  // brighter cyans
    return b;
}

TEST(TmSimple, SameBytesForEveryThreadCount) {
    Job job(scene());
    job.p = coloured_block();
    const auto one = render(job, 1);
    for (int threads : {2, 3, 7, job.dim.height + 5})
        EXPECT_EQ(render(job, threads), one) << threads;

    // A band count above the row count on a five-row strip.
    Job strip(scene());
    strip.dim.height = 5;
    const auto strip_one = render(strip, 1);
    EXPECT_EQ(render(strip, 8), strip_one);
}

TEST(TmSimple, FlatStatisticsAreRefusedWithoutWriting) {
    Job job(scene());
    job.stats[1] = job.stats[0];
    std::vector<unsigned char> out;
    EXPECT_EQ(job.run(out, 2, 0x5A), LV_ERR_STATS);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](unsigned char v) { return v == 0x5A; }));
}

TEST(TmSimple, NeutralSettingsKeepGreysGreyAndHighlightsUnblown) {
    const HdrScene &s = scene();
    // A grey wedge over the scene's own range.
    HdrScene grey = s;
    for (size_t i = 0; i < grey.rgb.size(); i += 3) {
        const float y = 0.2126f * s.rgb[i] + 0.7152f * s.rgb[i + 1] + 0.0722f * s.rgb[i + 2];
        grey.rgb[i] = grey.rgb[i + 1] = grey.rgb[i + 2] = y;
    }
    grey.rgbe = lvtest::floats_to_rgbe(grey.width, grey.height, grey.rgb.data());
    Job job(grey);
    const auto out = render(job, 2);
    for (size_t i = 0; i < static_cast<size_t>(grey.width) * grey.height; ++i)
        ASSERT_TRUE(out[3 * i] == out[3 * i + 1] && out[3 * i + 1] == out[3 * i + 2]) << i;

    // Only what the scene itself clipped may render as full white: pixels below 90% of the
    // brightest luminance keep some detail.
    Job colour(s);
    const auto img = render(colour, 2);
    const size_t pixels = static_cast<size_t>(s.width) * s.height;
    float top = 0.0f;
    for (size_t i = 0; i < pixels; ++i)
        top = std::max(top, grey.rgb[3 * i]);
    size_t blown = 0;
    for (size_t i = 0; i < pixels; ++i)
        blown += grey.rgb[3 * i] < 0.9f * top && img[3 * i] == 255 && img[3 * i + 1] == 255 &&
                 img[3 * i + 2] == 255;
    EXPECT_LT(blown, pixels / 1000) << "highlights below the scene's own clip render as white";
}

TEST(TmSimple, TemperatureWarmsAndCoolsAGrey) {
    HdrScene grey = lvtest::synthetic_scene(64, 8);
    for (size_t i = 0; i < grey.rgb.size(); i += 3)
        grey.rgb[i] = grey.rgb[i + 2] = grey.rgb[i + 1];
    grey.rgbe = lvtest::floats_to_rgbe(grey.width, grey.height, grey.rgb.data());
    Job job(grey);
    const size_t mid = 3 * (64 * 4 + 32);
    job.p[12] = 5.0f; // lower kelvin: warmer
    auto out = render(job);
    EXPECT_GT(out[mid], out[mid + 2]);
    job.p[12] = -5.0f;
    out = render(job);
    EXPECT_LT(out[mid], out[mid + 2]);
}

TEST(TmSimple, MaskWeightsBlendBaseAndLayer) {
    const HdrScene &s = scene();
    Job base(s);
    const auto plain = render(base);
    // The layer's own fields are brightness, temperature, saturation and curves; a run
    // with that block as its base is what weight 255 must give.
    const auto layer_block = coloured_block();
    Job as_base(s);
    std::copy(layer_block.begin(), layer_block.end(), as_base.p.begin());
    const auto layer_only = render(as_base);

    Job job(s);
    job.add_layer(layer_block.data());
    const size_t pixels = static_cast<size_t>(s.width) * s.height;
    job.mask.assign(2 * pixels, 0);
    // Thirds of the rows: weight 0, 128, 255; layer 0 in the first half of the columns
    // and a number past the last layer (which means the last layer) in the second.
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) {
            const size_t i = static_cast<size_t>(y) * s.width + x;
            job.mask[2 * i] = y < s.height / 3 ? 0 : y < 2 * s.height / 3 ? 128 : 255;
            job.mask[2 * i + 1] = x < s.width / 2 ? 0 : 7;
        }
    const auto out = render(job, 3);
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) {
            const size_t i = 3 * (static_cast<size_t>(y) * s.width + x);
            for (int c = 0; c < 3; ++c) {
                const int got = out[i + c];
                if (y < s.height / 3) {
                    ASSERT_EQ(got, plain[i + c]);
                } else if (y >= 2 * s.height / 3) {
                    ASSERT_EQ(got, layer_only[i + c]);
                } else if (plain[i + c] % 255 != 0 && layer_only[i + c] % 255 != 0) {
                    // Blending happens before clipping, so only unclipped levels compare.
                    const double want = (127.0 * plain[i + c] + 129.0 * layer_only[i + c]) / 256.0;
                    ASSERT_NEAR(got, want, 1.01) << x << "," << y;
                }
            }
        }
    // Layer byte 255 means no layer, whatever the weight.
    std::fill(job.mask.begin(), job.mask.end(), 255);
    EXPECT_EQ(render(job), plain);
}

TEST(TmSimple, EmptyRgbePixelsStayBlackUnderAnyMask) {
    HdrScene s = lvtest::synthetic_scene(48, 12);
    Job job(s);
    const auto block = coloured_block();
    job.add_layer(block.data());
    job.mask.assign(2 * 48 * 12, 0);
    for (size_t i = 0; i < job.mask.size() / 2; ++i)
        job.mask[2 * i] = (i % 3) * 127 + (i % 3 == 2);
    int zeros = 0;
    for (size_t i = 0; i < 48 * 12; ++i)
        zeros += job.input[(i / 48) * 4 * 48 + 3 * 48 + i % 48] == 0;
    ASSERT_GT(zeros, 0);
    job.p[0] = 10.0f; // very bright: any leak from an empty pixel would show
    const auto out = render(job, 2);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 48; ++x)
            if (job.input[y * 4 * 48 + 3 * 48 + x] == 0) {
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(out[3 * (y * 48 + x) + c], 0) << x << "," << y;
            }
}

TEST(TmSimple, ColumnRangeWritesOnlyItsColumns) {
    const HdrScene &s = scene();
    Job job(s);
    const auto full = render(job);
    struct Range {
        float first, end;
        int x0, x1;
    };
    const int w = s.width;
    for (const Range r : {Range{10, 60, 10, 60}, Range{0, 0, 0, w}, Range{5, float(w), 5, w},
                          Range{float(w - 1), 20, 0, 20}, Range{-3, float(w + 9), 0, w}}) {
        job.p[56] = r.first;
        job.p[57] = r.end;
        std::vector<unsigned char> out;
        ASSERT_EQ(job.run(out, 2, 0xEE), job.expected_result(2));
        for (int y = 0; y < s.height; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < 3; ++c) {
                    const size_t i = 3 * (static_cast<size_t>(y) * w + x) + c;
                    ASSERT_EQ(out[i], x >= r.x0 && x < r.x1 ? full[i] : 0xEE)
                        << r.first << ".." << r.end << " at " << x;
                }
    }
}

TEST(TmSimple, PlanarOutputMatchesInterleavedAndReusesFloatInput) {
    const HdrScene &s = scene();
    const size_t plane = static_cast<size_t>(s.width) * s.height;
    for (bool floats : {false, true}) {
        Job job(s, floats);
        const auto inter = render(job, 1);
        const auto original_input = job.input;
        job.dim.outputLayout = 3;
        for (int threads : {1, 2}) {
            // One thread writes plane rows of strideOut samples; bands write packed pixels.
            job.dim.strideOut = threads == 1 ? s.width : 3 * s.width;
            job.input = original_input;
            std::vector<unsigned char> out;
            ASSERT_EQ(job.run(out, threads), s.height);
            for (size_t i = 0; i < plane; ++i)
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(out[c * plane + i], inter[3 * i + c]) << floats << threads << i;
            const bool overwritten = job.input != original_input;
            EXPECT_EQ(overwritten, floats && threads > 1)
                << "only threaded planar output of float input uses the input as scratch";
        }
    }
}

TEST(TmSimple, SixteenBitOutputAndRedBlueSwap) {
    const HdrScene &s = scene();
    Job job(s);
    job.p = coloured_block();
    const auto eight = render(job, 2);
    job.dim.bpsOut = 16;
    const auto raw16 = render(job, 2);
    const auto *sixteen = reinterpret_cast<const uint16_t *>(raw16.data());
    const size_t n = static_cast<size_t>(3) * s.width * s.height;
    for (size_t i = 0; i < n; ++i)
        ASSERT_NEAR(sixteen[i] / 257.0, eight[i], 2.0) << i;

    job.dim.bpsOut = 8;
    job.dim.swapRedBlue = 1;
    job.dim.samplesPerPixel = 4;
    job.dim.strideOut = 4 * s.width;
    std::vector<unsigned char> bgra;
    ASSERT_EQ(job.run(bgra, 2, 0x77), job.expected_result(2));
    for (size_t i = 0; i < static_cast<size_t>(s.width) * s.height; ++i) {
        ASSERT_EQ(bgra[4 * i + 3], eight[3 * i]);     // red in the last slot
        ASSERT_EQ(bgra[4 * i + 1], eight[3 * i + 1]); // green in the middle
        ASSERT_EQ(bgra[4 * i], eight[3 * i + 2]);     // blue first
        ASSERT_EQ(bgra[4 * i + 2], 0x77);             // the spare sample is untouched
    }
}

int fail_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *) {
    return 11;
}

TEST(TmSimple, ThreadThatCannotStartIsReported) {
    Job job(lvtest::synthetic_scene(32, 16));
    std::vector<unsigned char> out;
    lv_set_thread_create(fail_create);
    const int r = job.run(out, 3);
    lv_set_thread_create(nullptr);
    EXPECT_EQ(r, LV_ERR_IO);
}

// Renders the merged street photograph at defaults and with colour work, for a person
// to look at: build/tonemap_street_default.png and build/tonemap_street_colour.png.
TEST(TmSimple, WritesTheRenderedPhotographAsPng) {
    const HdrScene &s = scene();
    if (!s.real) GTEST_SKIP() << "sample photographs not found in " << LV_DATA_DIR;
    Job job(s);
    auto out = render(job, 2);
    ASSERT_TRUE(lvtest::write_png_rgb(std::string(LV_BINARY_DIR) + "/tonemap_street_default.png",
                                      s.width, s.height, 8, out.data()));
    job.p = coloured_block();
    job.p[0] = 0.0f;
    job.p[12] = 0.0f;
    out = render(job, 2);
    ASSERT_TRUE(lvtest::write_png_rgb(std::string(LV_BINARY_DIR) + "/tonemap_street_colour.png",
                                      s.width, s.height, 8, out.data()));
}

} // namespace

namespace {

// The photoreceptor curve worked in double precision, for one linear grey level.
double reference_level(const std::vector<float> &p, const float *st, double lum) {
    const double lo = st[0], hi = st[1], med = st[3], p995 = st[4];
    const double d = p995 - med;
    const double s = std::exp((d > 4 ? 0.5 - 0.5 * d : -1.5) - med);
    const double a =
        p[2] > 0 && p[1] > 0 ? ((1 + 0.1 * p[1]) * 10 + p[2]) / (2 * p[1] + 20) : 0.5 + 0.05 * p[2];
    const double avg = (1 - a) * std::exp(med) * s;
    const double m0 = 0.3 + 0.6 * std::pow((p995 - med) / (hi - lo), 1.4);
    const double c = p[1];
    const double m = c > 0   ? 0.9 + (0.1 * c - 1) * (0.9 - m0)
                     : c < 0 ? 0.01 + (1 + 0.1 * c) * (m0 - 0.01)
                             : m0;
    const double b = p[0];
    const double g = b > 0 ? (0.4 - 0.01 * b) * b : b > -6 ? 0.5 * b : (-0.1 * b - 0.1) * b;
    const double f = std::exp(-g);
    auto curve = [&](double i, double adapt) { return 255 * i / (i + std::pow(f * adapt, m)); };
    const double imax = std::exp(std::log(s) + hi), imin = std::exp(std::log(s) + lo);
    const double vhi = curve(imax, a * imax + avg), vlo = curve(imin, a * imin + avg);
    const double black = vlo + 0.02 * p[4] * (vhi - vlo);
    const double white = vhi - 0.03 * p[3] * (vhi - vlo);
    const double i = lum * s;
    const double r = (curve(i, a * i + avg) - black) / (white - black);
    return std::clamp(r, 0.0, 1.0) * 255;
}

TEST(TmSimple, GreyLevelsFollowThePhotoreceptorCurve) {
    // One row of greys over 16 stops, RGBE-exact (mantissa 128, rising exponent).
    const int w = 16;
    std::vector<unsigned char> rgbe(4 * w);
    float table[256];
    exp_lut(table, -8);
    for (int x = 0; x < w; ++x) {
        rgbe[x] = rgbe[w + x] = rgbe[2 * w + x] = 128;
        rgbe[3 * w + x] = static_cast<unsigned char>(120 + x);
    }
    const float stats[6] = {-9.0f, 7.0f, 0.0f, -1.0f, 5.5f, 0.0f};
    DimParam dim;
    init_dim_param(&dim);
    dim.width = w;
    dim.height = 1;
    dim.strideOut = 3 * w;
    struct Settings {
        float brightness, compression, mix, white, black;
    };
    // The same levels as floats: both input forms must read the same scene values.
    std::vector<float> floats(3 * w);
    for (int x = 0; x < w; ++x)
        floats[3 * x] = floats[3 * x + 1] = floats[3 * x + 2] = 128 * table[120 + x];
    for (const Settings set : {Settings{0, 0, 0, 0, 0}, Settings{4, 5, 0, 0, 0},
                               Settings{-3, -6, 8, 2, 3}, Settings{-8, 3, 5, 0, 0}})
        for (int form : {0, 10}) {
            dim.inputFormat = form;
            unsigned char *in =
                form ? reinterpret_cast<unsigned char *>(floats.data()) : rgbe.data();
            std::vector<float> p(LV_TMPARAM_COUNT, 0.0f);
            p[0] = set.brightness;
            p[1] = set.compression;
            p[2] = set.mix;
            p[3] = set.white;
            p[4] = set.black;
            std::vector<unsigned char> out(3 * w);
            int threads = 1;
            std::vector<float> st(stats, stats + 6);
            ASSERT_EQ(tm_simple(dim, p.data(), nullptr, st.data(), table, &threads, in, out.data()),
                      1);
            for (int x = 0; x < w; ++x) {
                const double lum = 128.0 * table[120 + x];
                ASSERT_NEAR(out[3 * x], reference_level(p, stats, lum), 1.0)
                    << "input " << form << " brightness " << set.brightness << " compression "
                    << set.compression << " at " << x;
            }
        }
}

} // namespace
