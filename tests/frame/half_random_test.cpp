// Half floats against an independent computation, and the fixed random sequence.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <bit>
#include <cfenv>
#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <utility>
#include <vector>

namespace {

uint32_t bits(float f) {
    return std::bit_cast<uint32_t>(f);
}
float from_bits(uint32_t u) {
    return std::bit_cast<float>(u);
}

// Correctly rounded (ties to even) binary16 of a finite or infinite float, computed in
// double arithmetic: exact scaling by powers of two, then nearbyint.
uint16_t reference_half(float f) {
    const uint16_t sign = std::signbit(f) ? 0x8000 : 0;
    const double a = std::fabs(static_cast<double>(f));
    if (std::isnan(f)) return 0; // handled by the caller
    if (a >= 65520.0) return sign | 0x7C00;
    if (a < std::ldexp(1.0, -14)) {
        const double q = std::nearbyint(a * std::ldexp(1.0, 24)); // may round up to 1024
        return static_cast<uint16_t>(sign | static_cast<uint16_t>(q));
    }
    int e;
    std::frexp(a, &e); // a = f * 2^e, f in [0.5, 1)
    const int he = e - 1 + 15;
    double m = std::nearbyint(std::ldexp(a, 11 - e)); // 1024..2048
    int exp_field = he;
    if (m == 2048.0) {
        m = 1024.0;
        ++exp_field;
    }
    if (exp_field >= 31) return sign | 0x7C00;
    return static_cast<uint16_t>(sign | (exp_field << 10) | (static_cast<int>(m) - 1024));
}

TEST(HalfFloat, EveryHalfCodeDecodesAsTheFormatSays) {
    for (int h = 0; h < 65536; ++h) {
        const int s = h >> 15, e = (h >> 10) & 31, m = h & 1023;
        const float got = halfToFloat(h);
        if (e == 31) {
            if (m == 0) {
                EXPECT_TRUE(std::isinf(got)) << h;
            } else {
                EXPECT_TRUE(std::isnan(got)) << h;
                EXPECT_EQ(bits(got) & 0x7FFFFF, static_cast<uint32_t>(m) << 13) << h;
            }
            EXPECT_EQ(std::signbit(got), s == 1) << h;
            continue;
        }
        double v;
        if (e == 0 && m == 0) {
            v = 0.0;
        } else if (e == 0) {
            v = std::ldexp(1.0 + m / 1024.0, -14); // the kept hidden bit of old files
        } else {
            v = std::ldexp(1.0 + m / 1024.0, e - 15);
        }
        if (s) v = -v;
        EXPECT_EQ(bits(got), bits(static_cast<float>(v))) << "code " << h;
    }
}

TEST(HalfFloat, EncodingRoundsToNearestTiesToEvenOverTheFloatRange) {
    ASSERT_EQ(std::fegetround(), FE_TONEAREST);
    // Where overflow starts, signed zero, the smallest subnormal and below, a tie to even.
    const std::pair<float, uint16_t> worked[] = {
        {65519.99f, 0x7BFF}, {65520.0f, 0x7C00}, {-65520.0f, 0xFC00},     {-0.0f, 0x8000},
        {0x1p-24f, 0x0001},  {0x1p-26f, 0},      {1.0f + 0x1p-11f, 0x3C00}};
    for (const auto &[f, h] : worked)
        EXPECT_EQ(floatToHalf(f), h) << f;
    // A NaN whose payload lives only in the low bits still encodes as a NaN.
    EXPECT_EQ(floatToHalf(from_bits(0x7F800001u)), 0x7C01);
    EXPECT_EQ(floatToHalf(from_bits(0x7FC00000u)), 0x7E00);

    // Every midpoint and its neighbours between two adjacent normal halves, the subnormal
    // midpoints, then a sweep of the float codes.
    for (int h = 0x0400; h < 0x7BFF; ++h) {
        const float mid = static_cast<float>((double(halfToFloat(h)) + halfToFloat(h + 1)) / 2);
        for (float f : {mid, std::nextafter(mid, 0.0f), std::nextafter(mid, 1e9f), -mid})
            ASSERT_EQ(floatToHalf(f), reference_half(f)) << f;
    }
    for (int m = 0; m < 1024; ++m)
        ASSERT_EQ(floatToHalf(std::ldexp(m + 0.5f, -24)), reference_half(std::ldexp(m + 0.5f, -24)));
    for (uint64_t u = 0; u <= 0xFFFFFFFFull; u += 4093) {
        const float f = from_bits(static_cast<uint32_t>(u));
        if (std::isnan(f)) continue;
        ASSERT_EQ(floatToHalf(f), reference_half(f)) << std::hex << u;
    }
}

// ---- Random numbers ----

// The untempered output, recovered from a standard engine primed with the same state.
uint32_t untemper(uint32_t y) {
    y ^= y >> 18;
    y ^= (y << 15) & 0xEFC60000u;
    uint32_t x = y;
    for (int i = 0; i < 5; ++i)
        x = y ^ ((x << 7) & 0x9D2C5680u);
    y = x;
    x = y;
    for (int i = 0; i < 3; ++i)
        x = y ^ (x >> 11);
    return x;
}

TEST(RandomNumbers, OneFixedSequenceOfUntemperedTwisterWords) {
    uint32_t a[LV_MT_STATE_WORDS], b[LV_MT_STATE_WORDS];
    mt_init(a);
    mt_init(b);
    std::vector<uint32_t> first;
    for (int i = 0; i < 2000; ++i) {
        const uint32_t x = mt_random(a);
        EXPECT_EQ(x, mt_random(b));
        first.push_back(x);
    }
    EXPECT_NE(first[0], 0u) << "the first draw comes after a refill, not from the seed pattern";

    // A standard engine whose state words are 0..623 and whose position forces a twist
    // produces the same words once its tempering is undone.
    std::stringstream state;
    for (int i = 0; i < 624; ++i)
        state << i << ' ';
    state << 624;
    std::mt19937 engine;
    state >> engine;
    ASSERT_FALSE(state.fail());
    for (int i = 0; i < 2000; ++i)
        ASSERT_EQ(untemper(engine()), first[i]) << "draw " << i;
}

} // namespace
