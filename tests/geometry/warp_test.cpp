// Mirror-ball warps: a ball rendered from a known panorama comes back as that panorama where
// the ball sees it, every filter stays inside exactly sized buffers (ASan checks reads and
// writes), and the documented odd results (an unknown filter, 16-bit clipping, refused sizes)
// hold.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "lumivantor/lumivantor.h"

namespace {

constexpr double pi = std::numbers::pi;

// A smooth environment with some detail, different in each channel, 0..255.
double environment(double theta, double phi, int k) {
    return 128 + 60 * std::sin(theta) * std::cos(phi + k) + 30 * std::cos(2 * theta + k) +
           30 * std::sin(9 * phi) * std::sin(8 * theta);
}

// Our own renderer of the ball that reflects `environment`: ball pixel (i, j) lies at u = i,
// v = j, and the radius on the ball is the sine of half the angle from the axis.
template <class Put> void render_ball(int W, int H, Put put) {
    for (int j = 0; j < H; ++j)
        for (int i = 0; i < W; ++i) {
            const double rc = (i - W / 2.0) / (W / 2.0), rs = (H / 2.0 - j) / (H / 2.0);
            const double r = std::hypot(rc, rs), a = 2 * std::asin(std::min(r, 1.0));
            const double b = std::atan2(rs, rc);
            const double theta = std::acos(std::sin(a) * std::sin(b));
            const double phi = std::atan2(std::cos(a), -std::sin(a) * std::cos(b));
            double v[3];
            for (int k = 0; k < 3; ++k)
                v[k] = r < 1 ? environment(theta, phi, k) : 0;
            put(i, j, v);
        }
}

// PSNR against the environment over the panorama's pixels that the ball faces (the front
// hemisphere, away from the poles); get(x, y, k) reads the warp.
template <class Get> double psnr_where_seen(int W, int H, Get get) {
    double err = 0;
    long n = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < 2 * W; ++x) {
            const double theta = y * pi / (H - 1), phi = (x - W / 2) * 2 * pi / (2 * W - 1);
            if (std::sin(phi) * std::sin(theta) < 0.2 || std::sin(theta) < 0.3) continue;
            for (int k = 0; k < 3; ++k, ++n)
                err += std::pow(get(x, y, k) - environment(theta, phi, k), 2);
        }
    return 10 * std::log10(255.0 * 255.0 / (err / n));
}

TEST(MirrorBall, EachFilterReturnsTheEnvironmentWhereTheBallSeesIt) {
    const int W = 160, H = 160;
    std::vector<uint8_t> ball(W * H * 3), rgbe(4 * W * H);
    render_ball(W, H, [&](int i, int j, const double *v) {
        // 8-bit, and RGBE rows at a hundredth of the 8-bit values.
        const double m = std::max(v[0], std::max(v[1], v[2])) / 100;
        int e = 0;
        const double f = m > 0 ? std::frexp(m, &e) * 256 / m : 0;
        for (int k = 0; k < 3; ++k) {
            ball[(j * W + i) * 3 + k] = static_cast<uint8_t>(std::lround(v[k]));
            rgbe[4 * W * j + k * W + i] = static_cast<uint8_t>(v[k] / 100 * f);
        }
        rgbe[4 * W * j + 3 * W + i] = m > 0 ? static_cast<uint8_t>(e + 128) : 0;
    });
    const double min_psnr[3] = {38, 45, 45}; // nearest, bilinear, cubic
    for (int mode = 0; mode < 3; ++mode) {
        std::vector<uint8_t> pano(2 * W * H * 3), out(8 * W * H);
        ASSERT_EQ(remap_ldr(mode, 8, W, H, W * 3, 2 * W * 3, 3, ball.data(), pano.data()), H);
        ASSERT_EQ(remap_hdr(mode, W, H, rgbe.data(), out.data()), H);
        const double ldr = psnr_where_seen(
            W, H, [&](int x, int y, int k) { return double(pano[(y * 2 * W + x) * 3 + k]); });
        const double hdr = psnr_where_seen(W, H, [&](int x, int y, int k) {
            const uint8_t *row = out.data() + 8 * W * y;
            const int e = row[6 * W + x];
            return e ? 100 * row[k * 2 * W + x] * std::ldexp(1.0, e - 136) : 0.0;
        });
        EXPECT_GT(ldr, min_psnr[mode]) << "8-bit, mode " << mode;
        EXPECT_GT(hdr, min_psnr[mode]) << "RGBE, mode " << mode;
        std::printf("mode %d: PSNR %.1f dB (8-bit), %.1f dB (RGBE)\n", mode, ldr, hdr);
    }
}

TEST(MirrorBall, TinyBallsReadOnlyInsideTheirExactBuffers) {
    // Buffers of exactly the image's size: ASan reports any read past the right or bottom
    // edge, or any write past the panorama.
    for (int W : {1, 2, 3, 5})
        for (int H : {2, 3, 4, 7})
            for (int mode = 0; mode < 3; ++mode)
                for (int nc : {1, 3, 4}) {
                    std::vector<uint8_t> src(W * H * nc, 200), dst(2 * W * H * nc, 0);
                    ASSERT_EQ(
                        remap_ldr(mode, 8, W, H, W * nc, 2 * W * nc, nc, src.data(), dst.data()),
                        H);
                    std::vector<uint8_t> rgbe(4 * W * H, 129), out(8 * W * H);
                    ASSERT_EQ(remap_hdr(mode, W, H, rgbe.data(), out.data()), H);
                    // A flat ball stays flat (the spline's weights may sum a hair below 1).
                    EXPECT_NEAR(dst[nc * (2 * W * H - 1)], 200, 1) << W << "x" << H;
                }
}

TEST(MirrorBall, OddModesDepthsAndSizesAreLeftAlone) {
    const int W = 8, H = 8;
    std::vector<uint16_t> src(W * H * 4, 40000), dst(2 * W * H * 4, 7);
    auto *in = reinterpret_cast<uint8_t *>(src.data()),
         *out = reinterpret_cast<uint8_t *>(dst.data());
    // An unknown filter writes nothing; a refused depth or height returns 0.
    EXPECT_EQ(remap_ldr(3, 16, W, H, W * 4, 2 * W * 4, 4, src.data(), dst.data()) +
                  remap_hdr(-1, W, H, in, out),
              2 * H);
    EXPECT_EQ(remap_ldr(0, 12, W, H, W * 4, 2 * W * 4, 4, src.data(), dst.data()) +
                  remap_hdr(0, W, 1, in, out),
              0);
    EXPECT_EQ(dst, std::vector<uint16_t>(dst.size(), 7));
    // Nearest keeps 16-bit samples; bilinear and cubic hold them to 255. A fourth sample is
    // never written.
    const int expected[3] = {40000, 255, 255};
    for (int mode = 0; mode < 3; ++mode) {
        remap_ldr(mode, 16, W, H, W * 4, 2 * W * 4, 4, src.data(), dst.data());
        EXPECT_EQ(dst[(5 * 2 * W + 9) * 4 + 1], expected[mode]) << mode;
        EXPECT_EQ(dst[(5 * 2 * W + 9) * 4 + 3], 7) << mode;
    }
}

} // namespace
