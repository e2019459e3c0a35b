#include "base/date_time.h"

#include <algorithm>
#include <array>

namespace qiro::k7m::impl {
namespace {

constexpr uint64_t kSecondsPerDay = 86400;
constexpr uint32_t kFirstYear = 1904;
constexpr std::array<uint32_t, 12> kDaysBeforeMonth = {0,   31,  59,  90,  120, 151,
                                                       181, 212, 243, 273, 304, 334};

bool IsLeapYear(uint32_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

/// Leap days in the years from 1 up to `year`.
uint64_t LeapDaysThrough(uint32_t year) { return year / 4 - year / 100 + year / 400; }

/// Days from 1 January 1904 to 1 January of `year`; years before 1904 count as 1904.
uint64_t DaysBeforeYear(uint32_t year) {
  if (year <= kFirstYear) {
    return 0;
  }
  return uint64_t{365} * (year - kFirstYear) + LeapDaysThrough(year - 1) -
         LeapDaysThrough(kFirstYear - 1);
}

/// `month` from 1; a month out of range counts as the nearest one.
uint32_t DaysBeforeMonth(uint32_t month, bool isLeapYear) {
  const uint32_t inRange = std::clamp<uint32_t>(month, 1, 12);
  return kDaysBeforeMonth[inRange - 1] + (isLeapYear && inRange > 2 ? 1 : 0);
}

}  // namespace

uint64_t ConvertDateTimeToSeconds(const QiroK7MDateTime& dateTime) {
  const bool isLeapYear = IsLeapYear(dateTime.year);
  const uint64_t days = DaysBeforeYear(dateTime.year) +
                        DaysBeforeMonth(dateTime.month, isLeapYear) +
                        (dateTime.day > 0 ? dateTime.day - 1U : 0U);
  return days * kSecondsPerDay + dateTime.hour * uint64_t{3600} + dateTime.minute * uint64_t{60} +
         dateTime.second;
}

void ConvertSecondsToDateTime(uint64_t seconds, QiroK7MDateTime* dateTime) {
  constexpr uint32_t kLastYear = 65535;
  const uint64_t lastSecond = DaysBeforeYear(kLastYear + 1) * kSecondsPerDay - 1;
  const uint64_t bounded = std::min(seconds, lastSecond);
  const uint64_t days = bounded / kSecondsPerDay;
  const auto secondOfDay = static_cast<uint32_t>(bounded % kSecondsPerDay);

  // 146097 days are 400 years; the estimate is off by one year at most, either way.
  auto year = static_cast<uint32_t>(kFirstYear + days * 400 / 146097);
  while (year > kFirstYear && DaysBeforeYear(year) > days) {
    --year;
  }
  while (DaysBeforeYear(year + 1) <= days) {
    ++year;
  }
  const bool isLeapYear = IsLeapYear(year);
  const auto dayOfYear = static_cast<uint32_t>(days - DaysBeforeYear(year));
  uint32_t month = 12;
  while (DaysBeforeMonth(month, isLeapYear) > dayOfYear) {
    --month;
  }
  dateTime->year = static_cast<uint16_t>(year);
  dateTime->month = static_cast<uint8_t>(month);
  dateTime->day = static_cast<uint8_t>(dayOfYear - DaysBeforeMonth(month, isLeapYear) + 1);
  dateTime->hour = static_cast<uint8_t>(secondOfDay / 3600);
  dateTime->minute = static_cast<uint8_t>(secondOfDay / 60 % 60);
  dateTime->second = static_cast<uint8_t>(secondOfDay % 60);
}

}  // namespace qiro::k7m::impl
