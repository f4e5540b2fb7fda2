// RGB to L*a*b*: the one arithmetic of rgb2Lab, and for the per-pixel finishing passes the
// same results without a pow call per channel: the companding power comes from a table of
// quartic pieces, and pow is asked only when a piece can't settle the rounding to float.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

namespace lv {

// Linear Adobe RGB to L*a*b* (D65) with the companding power above the knee given by
// power(ratio), which must return ratio^0.33333 narrowed to float.
template <class Power>
inline void lab_from_linear(float r, float g, float b, float *out, Power power) {
    auto f = [&](double ratio, double linear_part) {
        if (ratio > 0.008856) return power(ratio);
        return static_cast<float>(linear_part * 0.008620689655172414 + 0.13793103448275862);
    };
    const float x = static_cast<float>(0.5767309 * r + 0.185554 * g + 0.1881852 * b);
    const float y = static_cast<float>(0.2973769 * r + 0.6273491 * g + 0.0752741 * b);
    const float z = static_cast<float>(0.0270343 * r + 0.0706872 * g + 0.9911085 * b);
    const float fx = f(x * 1.0521111, x * 950.372);
    const float fy = f(y, y * 903.3);
    const float fz = f(z * 0.91841704, z * 829.6061);
    out[0] = fy * 116.0f - 16.0f;
    out[1] = (fx - fy) * 500.0f;
    out[2] = (fy - fz) * 200.0f;
}

class FastLab {
  public:
    FastLab() {
        for (int e = 0; e < kOctaves; ++e)
            for (int i = 0; i < kPieces; ++i) {
                // Piece centre mc in [1, 2) of octave 2^(e + kLowest); Taylor terms of
                // (mc + dm)^a around it.
                const double mc = 1.0 + (i + 0.5) / kPieces;
                const double p = std::pow(std::ldexp(mc, e + kLowest), kPower);
                double *c = coef_[e][i];
                c[0] = p;
                c[1] = kPower * p / mc;
                c[2] = kPower * (kPower - 1) / 2 * p / (mc * mc);
                c[3] = kPower * (kPower - 1) * (kPower - 2) / 6 * p / (mc * mc * mc);
                c[4] = kPower * (kPower - 1) * (kPower - 2) * (kPower - 3) / 24 * p /
                       (mc * mc * mc * mc);
            }
    }

    // ratio^0.33333 narrowed to float, as std::pow gives it.
    float power(double ratio) const {
        const uint64_t bits = std::bit_cast<uint64_t>(ratio);
        const int octave = static_cast<int>(bits >> 52) - 1023 - kLowest;
        if (octave < 0 || octave >= kOctaves) return static_cast<float>(std::pow(ratio, kPower));
        const int piece = static_cast<int>((bits >> (52 - kPieceBits)) & (kPieces - 1));
        const double m =
            std::bit_cast<double>((bits & ((uint64_t(1) << 52) - 1)) | (uint64_t(1023) << 52));
        const double dm = m - (1.0 + (piece + 0.5) / kPieces);
        const double *c = coef_[octave][piece];
        const double y = c[0] + dm * (c[1] + dm * (c[2] + dm * (c[3] + dm * c[4])));
        // The true power lies within kSlack of y; when that whole interval narrows to one
        // float, so does the power.
        const float lo = static_cast<float>(y * (1.0 - kSlack));
        if (lo == static_cast<float>(y * (1.0 + kSlack))) return lo;
        return static_cast<float>(std::pow(ratio, kPower));
    }

    // The arithmetic of rgb2Lab on linear components.
    void lab(float r, float g, float b, float *out) const {
        lab_from_linear(r, g, b, out, [this](double ratio) { return power(ratio); });
    }

  private:
    static constexpr double kPower = 0.33333;
    static constexpr int kLowest = -8;  // 2^-8 lies below the knee at 0.008856
    static constexpr int kOctaves = 10; // up to 4
    static constexpr int kPieceBits = 7;
    static constexpr int kPieces = 1 << kPieceBits;
    static constexpr double kSlack = 1e-12;

    double coef_[kOctaves][kPieces][5];
};

} // namespace lv
