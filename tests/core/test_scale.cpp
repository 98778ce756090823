// The integer scale-factor rule shared by every Sfs function.
#include <cmath>
#include <cstdint>

#include <gtest/gtest.h>

#include "core/scale.h"

namespace {

using pvx::base::scaleRoundHalfEven;
using pvx::base::scaleSaturate;

// Independent reference: exact division by 2^s in long double, rounded to
// nearest with ties to even (the default rounding of nearbyintl).
long double referenceScale(std::int64_t v, int s)
{
    return std::nearbyintl(std::ldexp(static_cast<long double>(v), -s));
}

}  // namespace

TEST(ScaleFactor, RoundsHalvesToEven)
{
    const int s1[][2] = {{1, 0}, {3, 2}, {5, 2}, {7, 4}, {-1, 0}, {-3, -2}, {-5, -2}, {-7, -4}};
    for (auto [v, expected] : s1)
        EXPECT_EQ(scaleRoundHalfEven(v, 1), expected) << v;
    const int s2[][2] = {{2, 0}, {6, 2}, {10, 2}, {14, 4}, {-2, 0}, {-6, -2}};
    for (auto [v, expected] : s2)
        EXPECT_EQ(scaleRoundHalfEven(v, 2), expected) << v;
}

TEST(ScaleFactor, MatchesExactDivisionForEveryFactor)
{
    for (int s = -40; s <= 40; ++s)
        for (std::int64_t v : {0LL, 1LL, -1LL, 2LL, 3LL, 255LL, 256LL, 511LL, 65535LL, -32768LL, 131071LL,
                               -131071LL, 1LL << 31, -(1LL << 31), (1LL << 33) + 12345}) {
            const long double exact = referenceScale(v, s);
            const std::int64_t got = scaleRoundHalfEven(v, s);
            if (std::fabs(exact) < 9.0e18L)
                EXPECT_EQ(static_cast<long double>(got), exact) << "v=" << v << " s=" << s;
            else
                EXPECT_EQ(got > 0, exact > 0) << "v=" << v << " s=" << s;  // clamped, sign kept
        }
}

TEST(ScaleFactor, SaturatesToTheDestinationType)
{
    EXPECT_EQ(scaleSaturate<std::uint8_t>(300, 0), 255);
    EXPECT_EQ(scaleSaturate<std::uint8_t>(-5, 0), 0);
    EXPECT_EQ(scaleSaturate<std::int16_t>(-40000, 0), -32768);
    EXPECT_EQ(scaleSaturate<std::int16_t>(40000, 0), 32767);
    EXPECT_EQ(scaleSaturate<std::uint16_t>(70000, 0), 65535);
    EXPECT_EQ(scaleSaturate<std::int32_t>(1LL << 40, 0), INT32_MAX);
    EXPECT_EQ(scaleSaturate<std::int32_t>(-(1LL << 40), 0), INT32_MIN);
    // Negative factors multiply: 1 * 2^8 saturates 8u, 1 * 2^7 does not.
    EXPECT_EQ(scaleSaturate<std::uint8_t>(1, -8), 255);
    EXPECT_EQ(scaleSaturate<std::uint8_t>(1, -7), 128);
    EXPECT_EQ(scaleSaturate<std::int16_t>(-1, -100), -32768);
    // 8u sums are at most 510: a factor above 9 rounds every one to 0.
    EXPECT_EQ(scaleSaturate<std::uint8_t>(510, 10), 0);
    EXPECT_EQ(scaleSaturate<std::uint8_t>(510, 9), 1);
}
