// Dates and times as the program counts them: the classic date value, days since
// 30 December 1899 with the time of day as the fraction (0.5 is noon on that day; before it,
// -1.25 is 29 December 1899, 06:00).
//
//   base::Date d = base::MakeDate(2026, 11, 15, 5, 30, 12);
//   base::DateParts p = base::SplitDate(d);   // 2026, 11, 15, 5, 30, 12
#pragma once

#include <cstdint>

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

}  // namespace base
