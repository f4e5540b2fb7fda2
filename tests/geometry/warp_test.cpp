// Mirror-ball warps: a ball rendered from a known panorama comes back as that panorama where
// the ball sees it, every filter stays inside the caller's buffers, and the documented odd
// results (an unknown filter, 16-bit clipping, refused sizes) hold.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

constexpr double pi = std::numbers::pi;

// A smooth environment, different in each channel, 0..255, of polar angle and longitude.
double environment(double theta, double phi, int k) {
    return 128 + 60 * std::sin(theta) * std::cos(phi + k) + 30 * std::cos(2 * theta + k) +
           30 * std::sin(9 * phi) * std::sin(8 * theta);
}

// Our own mirror-ball renderer: ball pixel (i, j) lies at u = i, v = j; outside the disc is
// black. Channel values come from `environment` in the direction that the ball reflects.
template <class Put> void render_ball(int W, int H, Put put) {
    const double cx = W / 2.0, cy = H / 2.0;
    for (int j = 0; j < H; ++j)
        for (int i = 0; i < W; ++i) {
            const double rc = (i - cx) / cx, rs = (cy - j) / cy, r = std::hypot(rc, rs);
            double v[3] = {0, 0, 0};
            if (r < 1) {
                const double a = 2 * std::asin(r), b = std::atan2(rs, rc);
                const double theta = std::acos(std::sin(a) * std::sin(b));
                const double phi = std::atan2(std::cos(a), -std::sin(a) * std::cos(b));
                for (int k = 0; k < 3; ++k)
                    v[k] = environment(theta, phi, k);
            }
            put(i, j, v);
        }
}

// PSNR between a warped panorama and the environment over the pixels where the ball faces
// the camera (the front hemisphere, away from the poles): get(x, y, k) reads the warp.
template <class Get> double psnr_where_seen(int W, int H, Get get) {
    double err = 0;
    long n = 0;
    for (int y = 0; y < H; ++y) {
        const double theta = y * pi / (H - 1);
        for (int x = 0; x < 2 * W; ++x) {
            const double phi = (x - (2 * W) / 4) * 2 * pi / (2 * W - 1);
            if (std::sin(phi) * std::sin(theta) < 0.2 || std::sin(theta) < 0.3) continue;
            for (int k = 0; k < 3; ++k) {
                const double d = get(x, y, k) - environment(theta, phi, k);
                err += d * d;
                ++n;
            }
        }
    }
    return 10 * std::log10(255.0 * 255.0 / (err / n));
}

struct FilterCase {
    int mode;
    double min_psnr;
};

class MirrorBallFilter : public testing::TestWithParam<FilterCase> {};

TEST_P(MirrorBallFilter, WarpReturnsTheEnvironmentWhereTheBallSeesIt) {
    const int W = 160, H = 160, guard = 64;
    std::vector<uint8_t> ball(W * H * 3);
    render_ball(W, H, [&](int i, int j, const double *v) {
        for (int k = 0; k < 3; ++k)
            ball[(j * W + i) * 3 + k] = static_cast<uint8_t>(std::lround(v[k]));
    });
    std::vector<uint8_t> pano(2 * W * H * 3 + guard, 0xA5);
    ASSERT_EQ(remap_ldr(GetParam().mode, 8, W, H, W * 3, 2 * W * 3, 3, ball.data(), pano.data()),
              H);
    for (int g = 0; g < guard; ++g)
        ASSERT_EQ(pano[2 * W * H * 3 + g], 0xA5) << "written past the panorama";
    const double ldr = psnr_where_seen(
        W, H, [&](int x, int y, int k) { return double(pano[(y * 2 * W + x) * 3 + k]); });
    EXPECT_GT(ldr, GetParam().min_psnr) << "8-bit, mode " << GetParam().mode;

    // The same ball in RGBE rows, values a hundredth of the 8-bit ones.
    std::vector<uint8_t> rgbe(4 * W * H), out(4 * 2 * W * H + guard, 0xA5);
    render_ball(W, H, [&](int i, int j, const double *v) {
        const double m = std::max(v[0], std::max(v[1], v[2])) / 100;
        uint8_t *row = rgbe.data() + 4 * W * j;
        int e = 0;
        const double f = m > 0 ? std::frexp(m, &e) * 256 / m : 0;
        for (int k = 0; k < 3; ++k)
            row[k * W + i] = static_cast<uint8_t>(v[k] / 100 * f);
        row[3 * W + i] = m > 0 ? static_cast<uint8_t>(e + 128) : 0;
    });
    ASSERT_EQ(remap_hdr(GetParam().mode, W, H, rgbe.data(), out.data()), H);
    for (int g = 0; g < guard; ++g)
        ASSERT_EQ(out[4 * 2 * W * H + g], 0xA5);
    const double hdr = psnr_where_seen(W, H, [&](int x, int y, int k) {
        const uint8_t *row = out.data() + 4 * 2 * W * y;
        const int e = row[3 * 2 * W + x];
        return e ? 100 * row[k * 2 * W + x] * std::ldexp(1.0, e - 136) : 0.0;
    });
    EXPECT_GT(hdr, GetParam().min_psnr) << "RGBE, mode " << GetParam().mode;
    std::printf("mode %d: PSNR %.1f dB (8-bit), %.1f dB (RGBE)\n", GetParam().mode, ldr, hdr);
}

INSTANTIATE_TEST_SUITE_P(Filters, MirrorBallFilter,
                         testing::Values(FilterCase{0, 38}, FilterCase{1, 45}, FilterCase{2, 45}));

TEST(MirrorBall, TinyBallsReadOnlyInsideTheirExactBuffers) {
    // Buffers of exactly the image's size: ASan reports any read past the right or bottom.
    for (int W : {1, 2, 3, 5})
        for (int H : {2, 3, 4, 7})
            for (int mode : {0, 1, 2})
                for (int ncomp : {1, 3, 4}) {
                    std::vector<uint8_t> src(W * H * ncomp, 200), dst(2 * W * H * ncomp, 0);
                    ASSERT_EQ(remap_ldr(mode, 8, W, H, W * ncomp, 2 * W * ncomp, ncomp, src.data(),
                                        dst.data()),
                              H);
                    std::vector<uint8_t> rgbe(4 * W * H, 129), out(8 * W * H);
                    ASSERT_EQ(remap_hdr(mode, W, H, rgbe.data(), out.data()), H);
                    // A flat ball warps to the same flat colour with every filter (the
                    // spline's weights may sum a hair below one, and the sum truncates).
                    EXPECT_NEAR(dst[ncomp * (2 * W * H - 1)], 200, 1) << W << "x" << H;
                }
}

TEST(MirrorBall, OddModesDepthsAndSizesAreLeftAlone) {
    const int W = 8, H = 8;
    std::vector<uint16_t> src(W * H * 4, 40000), dst(2 * W * H * 4, 7);
    // An unknown filter writes nothing; a refused depth or height returns 0.
    EXPECT_EQ(remap_ldr(3, 16, W, H, W * 4, 2 * W * 4, 4, src.data(), dst.data()), H);
    EXPECT_EQ(remap_hdr(-1, W, H, reinterpret_cast<uint8_t *>(src.data()),
                        reinterpret_cast<uint8_t *>(dst.data())),
              H);
    EXPECT_EQ(remap_ldr(0, 12, W, H, W * 4, 2 * W * 4, 4, src.data(), dst.data()), 0);
    EXPECT_EQ(remap_hdr(0, W, 1, reinterpret_cast<uint8_t *>(src.data()),
                        reinterpret_cast<uint8_t *>(dst.data())),
              0);
    for (uint16_t v : dst)
        ASSERT_EQ(v, 7);
    // Nearest keeps 16-bit samples; bilinear and cubic hold them to 255. The fourth sample
    // of a pixel is never written.
    const int expected[3] = {40000, 255, 255};
    for (int mode : {0, 1, 2}) {
        remap_ldr(mode, 16, W, H, W * 4, 2 * W * 4, 4, src.data(), dst.data());
        EXPECT_EQ(dst[(5 * 2 * W + 9) * 4 + 1], expected[mode]) << mode;
        EXPECT_EQ(dst[(5 * 2 * W + 9) * 4 + 3], 7) << mode;
    }
}

} // namespace
