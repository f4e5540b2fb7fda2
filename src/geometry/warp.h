// The mirror-ball geometry shared by the 8/16-bit and the RGBE warps: where an output pixel
// of the latitude-longitude panorama lands on the ball, and the weights of the filters that
// sample it there.
#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>

namespace lv::warp {

// An output row's polar angle: its sine and cosine are taken once per row.
struct Row {
    double sin_theta, cos_theta;
};

inline Row row_of(int y, int H) {
    const double theta = y * std::numbers::pi / (H - 1);
    return {std::sin(theta), std::cos(theta)};
}

// Integer place on the ball and the fractions beyond it. The integer place is held to
// columns 1..W-1 and rows 1..H-3, so the fractions may leave 0..1; each filter says what it
// does then.
struct Place {
    int ix, iy;
    double fx, fy;
};

// Output column x of a panorama 2W wide, on the row `row`, seen on a ball W x H.
inline Place place_of(int x, int W, int H, const Row &row) {
    const double cx = W / 2.0, cy = H / 2.0;
    const double phi = (x - (2 * W) / 4) * 2.0 * std::numbers::pi / (2 * W - 1);
    const double a = std::acos(std::sin(phi) * row.sin_theta);
    const double b = std::atan2(row.cos_theta, -std::cos(phi) * row.sin_theta);
    // The mirror-ball law: the radius on the ball is the sine of half the angle from the axis.
    const double r = std::sin(a / 2);
    const double rc = r * std::cos(b), rs = r * std::sin(b);
    const double u = cx + cx * rc, v = cy - cy * rs;
    Place p;
    p.ix = std::min(std::max(static_cast<int>(u), 1), W - 1);
    p.iy = std::max(std::min(static_cast<int>(v), H - 3), 1);
    p.fx = (1 + rc) * cx - p.ix;
    p.fy = (1 - rs) * cy - p.iy;
    return p;
}

// Reads beyond the image are held to its last column and row (and, for tiny images, the
// first).
inline int clamp_index(int i, int n) {
    return std::min(std::max(i, 0), n - 1);
}

// The nearest pixel: one further right or down when the fraction passes a half.
inline void nearest_of(const Place &p, int W, int H, int &col, int &row) {
    col = clamp_index(p.ix + (p.fx > 0.5 ? 1 : 0), W);
    row = clamp_index(p.iy + (p.fy > 0.5 ? 1 : 0), H);
}

// Linear step between two values; fractions at or past the ends take the end value.
inline double lerp_x(double left, double right, double f) {
    if (f <= 0) return left;
    if (f >= 1) return right;
    return left - left * f + right * f;
}
inline double lerp_y(double upper, double lower, double f) {
    if (f <= 0) return upper;
    if (f >= 1) return lower;
    return upper + f * (lower - upper);
}

// Weights of the four-tap 16-point spline at the pixels -1, 0, +1, +2 from the integer place,
// for a fraction held to 0..1.
inline void cubic_weights(double t, double w[4]) {
    t = std::min(std::max(t, 0.0), 1.0);
    w[0] = ((0.8 - t / 3) * t - 0.4666666666666667) * t;
    w[1] = ((t - 1.8) * t - 0.2) * t + 1;
    w[2] = ((1.2 - t) * t + 0.8) * t;
    w[3] = ((t / 3 - 0.2) * t - 0.13333333333333333) * t;
}

// Sum of the sixteen taps around p; at(col, row, out3) gives a pixel's three values.
template <class At> inline void cubic_sum(const Place &p, int W, int H, At at, double out[3]) {
    double wx[4], wy[4];
    cubic_weights(p.fx, wx);
    cubic_weights(p.fy, wy);
    out[0] = out[1] = out[2] = 0;
    for (int j = 0; j < 4; ++j) {
        const int row = clamp_index(p.iy - 1 + j, H);
        for (int i = 0; i < 4; ++i) {
            double v[3];
            at(clamp_index(p.ix - 1 + i, W), row, v);
            const double w = wx[i] * wy[j];
            for (int k = 0; k < 3; ++k)
                out[k] += v[k] * w;
        }
    }
}

inline double clamp255(double v) {
    return std::min(std::max(v, 0.0), 255.0);
}

} // namespace lv::warp
