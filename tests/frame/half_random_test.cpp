// Half floats against an independent computation, and the fixed random sequence.
#include <gtest/gtest.h>
#include <lumivantor/frame.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <random>
#include <sstream>
#include <vector>

namespace {

uint32_t bits(float f) {
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}

float from_bits(uint32_t u) {
    float f;
    std::memcpy(&f, &u, 4);
    return f;
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

TEST(HalfFloat, EncodingRoundsToNearestTiesToEven) {
    ASSERT_EQ(std::fegetround(), FE_TONEAREST);
    EXPECT_EQ(floatToHalf(65504.0f), 0x7BFF);
    EXPECT_EQ(floatToHalf(65519.99f), 0x7BFF);
    EXPECT_EQ(floatToHalf(65520.0f), 0x7C00);
    EXPECT_EQ(floatToHalf(-65520.0f), 0xFC00);
    EXPECT_EQ(floatToHalf(1e10f), 0x7C00);
    EXPECT_EQ(floatToHalf(1.0f), 0x3C00);
    EXPECT_EQ(floatToHalf(-0.0f), 0x8000);
    EXPECT_EQ(floatToHalf(0.0f), 0x0000);
    EXPECT_EQ(floatToHalf(INFINITY), 0x7C00);
    EXPECT_EQ(floatToHalf(-INFINITY), 0xFC00);
    // A NaN whose payload lives only in the low bits still encodes as a NaN.
    EXPECT_EQ(floatToHalf(from_bits(0x7F800001u)), 0x7C01);
    EXPECT_EQ(floatToHalf(from_bits(0x7FC00000u)), 0x7E00);
    // Smallest subnormal, and a value that rounds to zero.
    EXPECT_EQ(floatToHalf(std::ldexp(1.0f, -24)), 0x0001);
    EXPECT_EQ(floatToHalf(std::ldexp(1.0f, -26)), 0x0000);
    // Ties: 1 + 2^-11 lies halfway between 1 and the next half, and goes to the even 1.
    EXPECT_EQ(floatToHalf(1.0f + std::ldexp(1.0f, -11)), 0x3C00);
    EXPECT_EQ(floatToHalf(1.0f + 3 * std::ldexp(1.0f, -11)), 0x3C02);

    // Every midpoint and its neighbours between two adjacent finite halves.
    for (int h = 0; h < 0x7BFF; ++h) {
        const double lo = halfToFloat(h), hi = halfToFloat(h + 1);
        if (h < 0x0400) continue; // subnormal decoding keeps the hidden bit; checked below
        const float mid = static_cast<float>((lo + hi) / 2);
        for (float f : {mid, std::nextafter(mid, 0.0f), std::nextafter(mid, 1e9f)}) {
            ASSERT_EQ(floatToHalf(f), reference_half(f)) << f;
            ASSERT_EQ(floatToHalf(-f), reference_half(-f)) << -f;
        }
    }
    for (int m = 0; m < 1024; ++m) {
        const float mid = std::ldexp(m + 0.5f, -24);
        ASSERT_EQ(floatToHalf(mid), reference_half(mid)) << m;
    }
}

TEST(HalfFloat, EncodingAgreesWithAnIndependentRoundingOverTheFloatRange) {
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
