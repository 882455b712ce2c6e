// Dates and times as the program counts them: the classic date value, days since
// 30 December 1899 with the time of day as the fraction (0.5 is noon on that day; before it,
// -1.25 is 29 December 1899, 06:00).
//
//   base::Date d = base::MakeDate(2026, 11, 15, 5, 30, 12);
//   base::DateParts p = base::SplitDate(d);   // 2026, 11, 15, 5, 30, 12
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace base {

using Date = double;

struct DateParts {
  int year = 1899;
  int month = 12;
  int day = 30;
  int hour = 0;
  int minute = 0;
  int second = 0;
};

// The date of year, month and day plus the time of hour, minute and second, with the usual
// carry of out-of-range values (month 13 is January of the next year, day 0 the last day of the
// month before, second 60 the next minute).
Date MakeDate(int year, int month, int day, int hour, int minute, int second);

// The fields of a date, to the nearest second.
DateParts SplitDate(Date date);

// Writes a date by a format of the letters y (year), m (month), d (day), h (hour), n (minute)
// and s (second): a run of one letter is that field, zero-padded to the run's length ("yyyy"
// four digits, "yy" the last two); every other character is copied. "mm" is always the month.
std::u16string FormatDate(Date date, std::u16string_view format);

// How many minute boundaries (or day boundaries) lie between two dates: the difference of
// their whole minutes (days), so 10:59:59 to 11:00:00 is one minute apart.
std::int64_t MinutesBetween(Date from, Date to);
std::int64_t DaysBetween(Date from, Date to);

}  // namespace base
