// Conversions between days and dates after H. Hinnant, "chrono-Compatible Low-Level Date
// Algorithms" (days_from_civil, civil_from_days). Years begin in March there, so that a leap day is
// a year's last day, and are counted in eras of 400 years, which all have the same number of days.
// From the year 1 on, all numbers here are positive.
#include <algorithm>

#include "vex/vex.h"

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kDaysPerEra = 146097;
constexpr int64_t kEpochDay = 719468;        // 1970-01-01, counted from 0000-03-01
constexpr int64_t kUtcFirst = -62135596800;  // 0001-01-01 00:00:00
constexpr int64_t kUtcLast = 253402300799;   // 9999-12-31 23:59:59

constexpr int kMinuteShift = 6;
constexpr int kHourShift = 12;
constexpr int kDayShift = 17;
constexpr int kMonthShift = 22;
constexpr int kYearShift = 26;

struct Date {
  int64_t year;
  int64_t month;  // 1 to 12
  int64_t day;    // 1 to 31
};

// day: counted from 0000-03-01, not negative.
Date DateOfDay(int64_t day) {
  const int64_t era = day / kDaysPerEra;
  const int64_t day_of_era = day % kDaysPerEra;
  const int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int64_t month_from_march = (5 * day_of_year + 2) / 153;
  Date date;
  date.day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
  date.month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
  date.year = era * 400 + year_of_era + (date.month <= 2 ? 1 : 0);
  return date;
}

// Counted from 0000-03-01. What is no date gives some other day.
int64_t DayOfDate(const Date& date) {
  const int64_t year = date.month <= 2 ? date.year - 1 : date.year;
  const int64_t era = year / 400;
  const int64_t year_of_era = year % 400;
  const int64_t month_from_march = date.month > 2 ? date.month - 3 : date.month + 9;
  const int64_t day_of_year = (153 * month_from_march + 2) / 5 + date.day - 1;
  return era * kDaysPerEra + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
}

// The field of a packed value that begins at bit `shift` and ends below bit `end`.
constexpr int64_t Bits(vexdatetime_t packed, int shift, int end) {
  return (packed >> shift) & ((int64_t{1} << (end - shift)) - 1);
}

}  // namespace

void vex_utctime_to_vexdatetime(vexdatetime_t* out, time_t utc) {
  if (out == nullptr) return;
  const int64_t seconds =
      std::clamp<int64_t>(utc, kUtcFirst, kUtcLast) + kEpochDay * kSecondsPerDay;
  const Date date = DateOfDay(seconds / kSecondsPerDay);
  const int64_t second_of_day = seconds % kSecondsPerDay;
  *out = date.year << kYearShift | date.month << kMonthShift | date.day << kDayShift |
         (second_of_day / 3600) << kHourShift | (second_of_day / 60 % 60) << kMinuteShift |
         second_of_day % 60;
}

int vex_vexdatetime_to_utctime(time_t* out, vexdatetime_t datetime) {
  if (out == nullptr) return kVexInvalidArgument;
  const Date date{datetime >> kYearShift, Bits(datetime, kMonthShift, kYearShift),
                  Bits(datetime, kDayShift, kMonthShift)};
  const int64_t second_of_day = Bits(datetime, kHourShift, kDayShift) * 3600 +
                                Bits(datetime, kMinuteShift, kHourShift) * 60 +
                                Bits(datetime, 0, kMinuteShift);
  const int64_t utc = (DayOfDate(date) - kEpochDay) * kSecondsPerDay + second_of_day;

  // What was no date and time (February 30, minute 61, year 0) comes back as a different one.
  vexdatetime_t packed = 0;
  vex_utctime_to_vexdatetime(&packed, utc);
  if (packed != datetime) return kVexBadDateTime;
  *out = utc;
  return kVexOk;
}
