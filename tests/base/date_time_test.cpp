#include "base/date_time.h"

#include <gtest/gtest.h>

#include <array>
#include <ostream>
#include <tuple>

namespace {

std::tuple<int, int, int, int, int, int> Fields(const QiroK7MDateTime& date) {
  return {date.year, date.month, date.day, date.hour, date.minute, date.second};
}

QiroK7MDateTime Date(uint16_t year, uint8_t month, uint8_t day, uint8_t hour = 0,
                     uint8_t minute = 0, uint8_t second = 0) {
  return {0, day, month, year, hour, minute, second};
}

/// A calendar that is moved on day by day: the model that the conversions are held against.
class Calendar {
 public:
  void NextDay() {
    static constexpr std::array<int, 12> kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const int daysInMonth =
        kDays[static_cast<size_t>(month - 1)] + (month == 2 && IsLeap() ? 1 : 0);
    if (++day <= daysInMonth) {
      return;
    }
    day = 1;
    if (++month > 12) {
      month = 1;
      ++year;
    }
  }
  bool IsLeap() const {
    if (year % 400 == 0) {
      return true;
    }
    return year % 100 != 0 && year % 4 == 0;
  }
  int year = 1904;
  int month = 1;
  int day = 1;
};

}  // namespace

namespace qiro::k7m::impl {
namespace {

QiroK7MDateTime FromSeconds(uint64_t seconds) {
  QiroK7MDateTime date{};
  ConvertSecondsToDateTime(seconds, &date);
  return date;
}

TEST(DateTime, SecondZeroIsTheFirstOfJanuary1904) {
  EXPECT_EQ(Fields(FromSeconds(0)), Fields(Date(1904, 1, 1)));
  EXPECT_EQ(ConvertDateTimeToSeconds(Date(1904, 1, 1)), 0U);
}

TEST(DateTime, TheUnixEpochIs2082844800SecondsLater) {
  EXPECT_EQ(Fields(FromSeconds(2082844800)), Fields(Date(1970, 1, 1)));
  EXPECT_EQ(ConvertDateTimeToSeconds(Date(1970, 1, 1)), 2082844800U);
}

TEST(DateTime, TimeOfDayIsDividedOut) {
  EXPECT_EQ(Fields(FromSeconds(86399)), Fields(Date(1904, 1, 1, 23, 59, 59)));
  EXPECT_EQ(Fields(FromSeconds(86400)), Fields(Date(1904, 1, 2)));
  EXPECT_EQ(ConvertDateTimeToSeconds(Date(1904, 1, 2, 3, 4, 5)), 86400U + 3 * 3600 + 4 * 60 + 5);
}

TEST(DateTime, EveryDayOf6000YearsIsTheCalendarsAndComesBack) {
  Calendar calendar;
  for (uint64_t day = 0; calendar.year < 7904; ++day, calendar.NextDay()) {
    const uint64_t seconds = day * 86400 + day % 86400;
    const QiroK7MDateTime date = FromSeconds(seconds);
    ASSERT_EQ(date.year, calendar.year) << day;
    ASSERT_EQ(date.month, calendar.month) << day;
    ASSERT_EQ(date.day, calendar.day) << day;
    ASSERT_EQ(ConvertDateTimeToSeconds(date), seconds);
  }
}

TEST(DateTime, EveryYearUpTo65535BeginsWhereTheCalendarSays) {
  uint64_t days = 0;
  Calendar calendar;
  for (calendar.year = 1904; calendar.year <= 65535; ++calendar.year) {
    const auto year = static_cast<uint16_t>(calendar.year);
    ASSERT_EQ(ConvertDateTimeToSeconds(Date(year, 1, 1)), days * 86400);
    ASSERT_EQ(Fields(FromSeconds(days * 86400)), Fields(Date(year, 1, 1)));
    days += calendar.IsLeap() ? 366 : 365;
    ASSERT_EQ(Fields(FromSeconds(days * 86400 - 1)), Fields(Date(year, 12, 31, 23, 59, 59)));
  }
}

TEST(DateTime, CenturyYearsAreLeapYearsOnlyEvery400Years) {
  const uint64_t day28In2000 = ConvertDateTimeToSeconds(Date(2000, 2, 28));
  const uint64_t day28In2100 = ConvertDateTimeToSeconds(Date(2100, 2, 28));
  EXPECT_EQ(Fields(FromSeconds(day28In2000 + 86400)), Fields(Date(2000, 2, 29)));
  EXPECT_EQ(Fields(FromSeconds(day28In2100 + 86400)), Fields(Date(2100, 3, 1)));
}

TEST(DateTime, YearsBeyond65535SaturateToTheLastSecondOf65535) {
  const auto last = Date(65535, 12, 31, 23, 59, 59);
  const uint64_t lastSecond = ConvertDateTimeToSeconds(last);
  for (const uint64_t seconds : {lastSecond, lastSecond + 1, lastSecond + 86400, uint64_t{1} << 63,
                                 UINT64_MAX - 1, UINT64_MAX}) {
    EXPECT_EQ(Fields(FromSeconds(seconds)), Fields(last)) << seconds;
  }
  EXPECT_EQ(Fields(FromSeconds(lastSecond - 1)), Fields(Date(65535, 12, 31, 23, 59, 58)));
}

TEST(DateTime, TheFirstByteIsLeftAsItIs) {
  QiroK7MDateTime date{};
  date.unused = 0xA5;
  ConvertSecondsToDateTime(123456789, &date);
  EXPECT_EQ(date.unused, 0xA5);
  QiroK7MDateTime other = date;
  other.unused = 0;
  EXPECT_EQ(ConvertDateTimeToSeconds(date), ConvertDateTimeToSeconds(other));
}

}  // namespace
}  // namespace qiro::k7m::impl
