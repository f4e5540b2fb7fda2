// The global tone mapper on the street bracket merged by the library: threads, mask
// layers, column ranges, planar output, output depths, and the rendering written as PNG for a
// person to look at.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "frame/band_threads.h"
#include "lumivantor/lumivantor.h"
#include "street_photos.h"

namespace {

using Scene = lvtest::Bracket;

// The merged street bracket, without its frames.
const Scene &scene() {
    static const Scene s = [] {
        Scene street = lvtest::street_bracket(true);
        std::vector<uint8_t>().swap(street.rgb);
        return street;
    }();
    return s;
}

struct TmSimple : ::testing::Test {
    void SetUp() override {
        if (scene().empty()) GTEST_SKIP() << "street bracket not found in " << lvtest::street_dir();
    }
};

struct Job {
    DimParam dim{};
    std::vector<float> p = std::vector<float>(LV_TMPARAM_COUNT, 0.0f);
    std::array<float, 6> stats{};
    float exp_table[256];
    std::vector<unsigned char> input, mask;

    explicit Job(const Scene &s, bool floats = false) : input(s.rgbe) {
        init_dim_param(&dim);
        dim.width = s.width, dim.height = s.height, dim.strideOut = 3 * s.width;
        tmparam_default(2, 0, p.data());
        exp_lut(exp_table, -8);
        // Statistics of the RGBE pixels either way, so both inputs share one curve.
        logMinMaxMoy(s.width, s.height, exp_table, input.data(), stats.data());
        if (!floats) return;
        dim.inputFormat = 10;
        dim.strideIn = 3 * s.width;
        input.resize(sizeof(float) * 3 * s.width * s.height);
        auto *rgb = reinterpret_cast<float *>(input.data());
        for (size_t i = 0; i < size_t(s.width) * s.height; ++i)
            rgbe2float(&s.rgbe[4 * s.width * (i / s.width)], exp_table, s.width, 2 * s.width,
                       3 * s.width, int(i % s.width), &rgb[3 * i]);
    }
    // With threads the driver returns the last band's row count, unless it splits planes.
    int expected_result(int threads) const {
        if (threads < 2 || dim.outputLayout == 3) return dim.height;
        return lv::band_of(dim.height, threads - 1, threads).rows;
    }
    int run(std::vector<unsigned char> &out, int threads, unsigned char fill = 0) {
        const int pitch = std::max(dim.strideOut, dim.samplesPerPixel * dim.width);
        out.assign(size_t(pitch) * dim.height * (dim.bpsOut / 8), fill);
        return tm_simple(dim, p.data(), mask.empty() ? nullptr : mask.data(), stats.data(),
                         exp_table, &threads, input.data(), out.data());
    }
    std::vector<unsigned char> render(int threads = 1) {
        std::vector<unsigned char> out;
        EXPECT_EQ(run(out, threads), expected_result(threads));
        return out;
    }
};

// A block that brightens, warms and saturates, saturates yellows more, shifts blues and
// brightens cyans.
std::vector<float> coloured_block() {
    std::vector<float> b(LV_TMPARAM_COUNT, 0.0f);
    b[0] = 3, b[12] = 4, b[13] = 5, b[23] = 8, b[35] = -6, b[44] = 5;
    return b;
}

TEST_F(TmSimple, SameBytesForEveryThreadCountDepthsAndOrderButFlatStatisticsWriteNothing) {
    Job job(scene());
    job.p = coloured_block();
    const auto eight = job.render(1);
    for (int threads : {2, 3, 7, job.dim.height + 5})
        EXPECT_EQ(job.render(threads), eight) << threads;
    job.dim.bpsOut = 16;
    const auto raw16 = job.render(2);
    const auto *sixteen = reinterpret_cast<const uint16_t *>(raw16.data());
    for (size_t i = 0; i < eight.size(); ++i)
        ASSERT_NEAR(sixteen[i] / 257.0, eight[i], 2.0) << i;

    job.dim.bpsOut = 8;
    job.dim.swapRedBlue = 1;
    job.dim.samplesPerPixel = 4;
    job.dim.strideOut = 4 * job.dim.width;
    std::vector<unsigned char> bgra;
    ASSERT_EQ(job.run(bgra, 2, 0x77), job.expected_result(2));
    // Blue first, green in the middle, red in the last slot; the spare sample untouched.
    for (size_t i = 0; i < eight.size() / 3; ++i)
        ASSERT_TRUE(bgra[4 * i] == eight[3 * i + 2] && bgra[4 * i + 1] == eight[3 * i + 1] &&
                    bgra[4 * i + 2] == 0x77 && bgra[4 * i + 3] == eight[3 * i])
            << i;

    job.stats[1] = job.stats[0];
    std::vector<unsigned char> out;
    EXPECT_EQ(job.run(out, 2, 0x5A), LV_ERR_STATS);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](unsigned char v) { return v == 0x5A; }));
}

TEST_F(TmSimple, GreysStayGreyHighlightsUnblownAndTemperatureTints) {
    const Scene &s = scene();
    const size_t pixels = size_t(s.width) * s.height;
    Scene grey = s; // the green plane copied to red and blue
    for (size_t row = 0; row < 4 * pixels; row += 4 * s.width)
        for (int c : {0, 2})
            std::copy_n(&s.rgbe[row + s.width], s.width, &grey.rgbe[row + c * s.width]);
    Job job(grey);
    auto out = job.render(2);
    for (size_t i = 0; i < pixels; ++i)
        ASSERT_TRUE(out[3 * i] == out[3 * i + 1] && out[3 * i + 1] == out[3 * i + 2]) << i;

    // Only what the scene itself clipped may render as white: greys below 90% of the
    // brightest keep some detail.
    const Job decoded(grey, true);
    const auto *level = reinterpret_cast<const float *>(decoded.input.data());
    const float top = *std::max_element(level, level + 3 * pixels);
    size_t blown = 0;
    for (size_t i = 0; i < pixels; ++i)
        blown += level[3 * i] < 0.9f * top && out[3 * i] == 255;
    EXPECT_LT(blown, pixels / 1000) << "highlights below the scene's own clip render as white";

    // Lower kelvin warms the greys, higher cools them.
    for (float temperature : {5.0f, -5.0f}) {
        job.p[12] = temperature;
        out = job.render(2);
        long red_minus_blue = 0;
        for (size_t i = 0; i < pixels; ++i)
            red_minus_blue += out[3 * i] - out[3 * i + 2];
        EXPECT_GT(red_minus_blue * temperature, 0) << temperature;
    }
}

TEST_F(TmSimple, MaskWeightsBlendBaseAndLayerAndEmptyPixelsStayBlack) {
    Scene s = scene();
    const size_t w = s.width, h = s.height, pixels = w * h;
    for (size_t i = 0; i < pixels; i += 7) // every seventh pixel empty (exponent 0)
        for (size_t c = 0; c < 4; ++c)
            s.rgbe[4 * w * (i / w) + c * w + i % w] = 0;
    // The layer's own fields are brightness, temperature, saturation and curves; a run
    // with that block as its base is what weight 255 must give.
    Job job(s);
    const auto base = job.p;
    const auto plain = job.render();
    job.p = coloured_block();
    const auto layer_only = job.render();
    job.p.insert(job.p.begin(), base.begin(), base.end());
    job.p[55] = 1.0f;
    // Thirds of the rows: weight 0, 128, 255; layer 0 in the first half of the columns
    // and a number past the last layer (which means the last layer) in the second.
    auto third = [&](size_t pixel) { return pixel / w * 3 / h; };
    job.mask.resize(2 * pixels);
    for (size_t i = 0; i < pixels; ++i) {
        job.mask[2 * i] = third(i) == 0 ? 0 : third(i) == 1 ? 128 : 255;
        job.mask[2 * i + 1] = i % w < w / 2 ? 0 : 7;
    }
    const auto out = job.render(3);
    for (size_t i = 0; i < 3 * pixels; ++i) {
        if (i / 3 % 7 == 0) {
            ASSERT_EQ(out[i], 0) << "empty pixel " << i / 3;
        } else if (third(i / 3) != 1) {
            ASSERT_EQ(out[i], third(i / 3) == 0 ? plain[i] : layer_only[i]) << i / 3;
        } else if (plain[i] % 255 != 0 && layer_only[i] % 255 != 0) {
            // Blending happens before clipping, so only unclipped levels compare.
            ASSERT_NEAR(out[i], (127.0 * plain[i] + 129.0 * layer_only[i]) / 256.0, 1.01) << i / 3;
        }
    }
    // Layer byte 255 means no layer, whatever the weight.
    std::fill(job.mask.begin(), job.mask.end(), 255);
    EXPECT_EQ(job.render(), plain);
}

TEST_F(TmSimple, ColumnRangeWritesOnlyItsColumns) {
    const Scene &s = scene();
    Job job(s);
    const auto full = job.render();
    const int w = s.width;
    // p[56], p[57], then the columns written: an end of 0 or past the row means the whole
    // row, a first column past the end means column 0.
    const int ranges[][4] = {
        {10, 60, 10, 60}, {0, 0, 0, w}, {5, w, 5, w}, {w - 1, 20, 0, 20}, {-3, w + 9, 0, w}};
    for (const auto &r : ranges) {
        job.p[56] = float(r[0]), job.p[57] = float(r[1]);
        std::vector<unsigned char> out;
        ASSERT_EQ(job.run(out, 2, 0xEE), job.expected_result(2));
        for (size_t i = 0; i < out.size(); ++i) {
            const int x = int(i / 3 % w);
            ASSERT_EQ(out[i], x >= r[2] && x < r[3] ? full[i] : 0xEE) << r[0] << ".." << r[1];
        }
    }
}

TEST_F(TmSimple, FloatInputMatchesRgbeAndPlanarOutputReusesIt) {
    const Scene &s = scene();
    const size_t plane = size_t(s.width) * s.height;
    const auto from_rgbe = Job(s).render();
    // The street at defaults for a person to look at: build/tonemap_street_default.png.
    ASSERT_TRUE(lvtest::write_png(std::string(LV_BINARY_DIR) + "/tonemap_street_default.png",
                                  s.width, s.height, 3, from_rgbe.data()));
    for (bool floats : {false, true}) {
        Job job(s, floats);
        EXPECT_EQ(job.render(), from_rgbe) << "float input reads the same scene values";
        const auto original_input = job.input;
        job.dim.outputLayout = 3;
        for (int threads : {1, 2}) {
            // One thread writes plane rows of strideOut samples; bands write packed pixels.
            job.dim.strideOut = threads == 1 ? s.width : 3 * s.width;
            job.input = original_input;
            std::vector<unsigned char> out;
            ASSERT_EQ(job.run(out, threads), s.height);
            for (size_t i = 0; i < 3 * plane; ++i)
                ASSERT_EQ(out[i % 3 * plane + i / 3], from_rgbe[i]) << floats << threads << i;
            EXPECT_EQ(job.input != original_input, floats && threads > 1)
                << "only threaded planar output of float input uses the input as scratch";
        }
    }
}

} // namespace
