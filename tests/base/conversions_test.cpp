#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/fixed_point.h"
#include "base/time.h"
#include "base/uuid.h"

namespace qiro::k7m::impl {
namespace {

TEST(FixedPoint, A88NumberIsDividedBy256) {
  EXPECT_EQ(Convert88ToFloat(0), 0.0F);
  EXPECT_EQ(Convert88ToFloat(0x0100), 1.0F);
  EXPECT_EQ(Convert88ToFloat(0x0180), 1.5F);
  EXPECT_EQ(Convert88ToFloat(0x0001), 0.00390625F);
  EXPECT_EQ(Convert88ToFloat(0xFFFF), 255.99609375F);
}

TEST(FixedPoint, A1616NumberIsDividedBy65536) {
  EXPECT_EQ(Convert1616ToFloat(0x00010000), 1.0F);
  EXPECT_EQ(Convert1616ToFloat(0x00480000), 72.0F);
  EXPECT_EQ(Convert1616ToFloat(0x00008000), 0.5F);
  EXPECT_EQ(Convert1616ToFloat(0xBB800000), 48000.0F);  // Unsigned: not a negative number.
  EXPECT_EQ(Convert1616ToFloat(1), 1.0F / 65536.0F);
}

TEST(FixedPoint, BothWaysOfReading1616Agree) {
  for (uint32_t value = 0; value < 0xFFF00000U; value += 0x000FABCDU) {
    EXPECT_EQ((ConvertToFloat32<16, 16>(value)), Convert1616ToFloat(value)) << value;
  }
}

TEST(FixedPoint, WritingTruncates) {
  EXPECT_EQ(ConvertFloatTo88(1.0F), 0x0100);
  EXPECT_EQ(ConvertFloatTo88(1.999F), 0x01FF);
  EXPECT_EQ(ConvertFloatTo88(0.0039F), 0x0000);
  EXPECT_EQ(ConvertFloatTo1616(1.0F), 0x00010000U);
  EXPECT_EQ(ConvertFloatTo1616(0.99999F), 0xFFFFU);
  EXPECT_EQ(ConvertFloatTo1616(48000.0F), 0xBB800000U);
}

TEST(FixedPoint, WritingKeepsTheLowBits) {
  EXPECT_EQ(ConvertFloatTo88(256.0F), 0);
  EXPECT_EQ(ConvertFloatTo88(257.0F), 0x0100);
  EXPECT_EQ(ConvertFloatTo1616(65537.0F), 0x00010000U);
  EXPECT_EQ(ConvertFloatTo88(-1.0F), 0xFF00);
}

TEST(FixedPoint, WritingNumbersBeyondAllRangesGivesZero) {
  const float infinity = std::numeric_limits<float>::infinity();
  for (const float value : {infinity, -infinity, std::nanf(""), 3e38F, -3e38F}) {
    EXPECT_EQ(ConvertFloatTo88(value), 0) << value;
    EXPECT_EQ(ConvertFloatTo1616(value), 0U) << value;
  }
}

TEST(FixedPoint, A88NumberSurvivesTheRoundTrip) {
  for (uint32_t value = 0; value <= 0xFFFF; ++value) {
    const auto number = static_cast<uint16_t>(value);
    ASSERT_EQ(ConvertFloatTo88(Convert88ToFloat(number)), number);
  }
}

TEST(Rounding, FloorNearestAndCeilOfFiveHalves) {
  EXPECT_EQ(RoundFloor(5, 2), 2U);
  EXPECT_EQ(RoundNearest(5, 2), 2U);
  EXPECT_EQ(RoundCeil(5, 2), 3U);
}

TEST(Rounding, NearestRoundsAnExactHalfDownAndMoreUp) {
  for (const uint32_t divisor : {1U, 2U, 3U, 4U, 5U, 7U, 10U, 1000U, 1001U}) {
    for (uint64_t value = 0; value < 5000; ++value) {
      const uint64_t twiceRemainder = 2 * (value % divisor);
      const uint64_t expected = value / divisor + (twiceRemainder > divisor ? 1 : 0);
      ASSERT_EQ(RoundNearest(value, divisor), expected) << value << " / " << divisor;
      ASSERT_EQ(RoundCeil(value, divisor), value / divisor + (value % divisor != 0 ? 1 : 0));
      ASSERT_EQ(RoundFloor(value, divisor), value / divisor);
    }
  }
}

TEST(Rounding, SumsBeyond64BitsWrap) {
  EXPECT_EQ(RoundCeil(UINT64_MAX, 2), 0U);
  EXPECT_EQ(RoundNearest(UINT64_MAX, 3), 0U);
  EXPECT_EQ(RoundFloor(UINT64_MAX, UINT32_MAX), UINT64_MAX / UINT32_MAX);
}

TEST(ConvertTimeScale, EqualScalesLeaveTheValueUntouched) {
  EXPECT_EQ(Time::ConvertTimeScale(UINT64_MAX, 600, 600), UINT64_MAX);
  EXPECT_EQ(Time::ConvertTimeScale(7, 0, 0), 7U);
}

TEST(ConvertTimeScale, RoundsToTheNearestUnit) {
  EXPECT_EQ(Time::ConvertTimeScale(1000, 1000, 600), 600U);
  EXPECT_EQ(Time::ConvertTimeScale(1, 3, 1), 0U);
  EXPECT_EQ(Time::ConvertTimeScale(2, 3, 1), 1U);
  EXPECT_EQ(Time::ConvertTimeScale(1, 2, 1), 0U);  // An exact half rounds down.
  EXPECT_EQ(Time::ConvertTimeScale(3, 2, 1), 1U);
  EXPECT_EQ(Time::ConvertTimeScale(1001, 30000, 90000), 3003U);
}

TEST(ConvertTimeScale, TheProductWrapsAt64Bits) {
  // 2^63 * 2 wraps to 0; (2^63 + 5) * 2 to 10.
  EXPECT_EQ(Time::ConvertTimeScale(uint64_t{1} << 63, 1, 2), 0U);
  EXPECT_EQ(Time::ConvertTimeScale((uint64_t{1} << 63) + 5, 3, 2), 3U);
  EXPECT_EQ(Time::ConvertTimeScale(UINT64_MAX, 1, 3), UINT64_MAX - 2);
}

TEST(ConvertTimeScale, TheRoundingWrapsAfterTheProduct) {
  EXPECT_EQ(Time::ConvertTimeScale(UINT64_MAX, 3, 1), 0U);
}

TEST(ConvertTimeScale, ToScaleZeroEverythingIsZero) {
  EXPECT_EQ(Time::ConvertTimeScale(12345, 600, 0), 0U);
  EXPECT_EQ(Time::ConvertTimeScale(UINT64_MAX, 1, 0), 0U);
}

TEST(ConvertTimeScale, FromScaleZeroEverythingIsZero) {
  EXPECT_EQ(Time::ConvertTimeScale(12345, 0, 600), 0U);
  EXPECT_EQ(Time::ConvertTimeScale(UINT64_MAX, 0, 1), 0U);
}

TEST(Time, HoldsItsValueAndScale) {
  const Time time(1500, 1000);
  EXPECT_EQ(time.GetValueInUnits(), 1500U);
  EXPECT_EQ(time.GetTimeScale(), 1000U);
  EXPECT_EQ(time.GetValueInTimeScaleUnits(600), 900U);
  EXPECT_EQ(time.GetValueInTimeScaleUnits(1000), 1500U);
}

TEST(CompareUuids, AreEqualOnlyWhenAll16BytesAre) {
  QiroK7MUUID a{};
  for (uint8_t i = 0; i < 16; ++i) {
    a[i] = static_cast<uint8_t>(i * 17);
  }
  EXPECT_EQ(CompareUuids(a, a), 1);
  for (size_t i = 0; i < 16; ++i) {
    QiroK7MUUID b = a;
    b[i] ^= 0x80;
    EXPECT_EQ(CompareUuids(a, b), 0) << i;
  }
}

}  // namespace
}  // namespace qiro::k7m::impl
