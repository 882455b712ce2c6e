#include "base/date.h"

#include <cmath>

namespace base {
namespace {

// Days from 1 January 1970 to a date of the proleptic Gregorian calendar (month 1 to 12).
std::int64_t DaysFromCivil(std::int64_t y, std::int64_t m, std::int64_t d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const std::int64_t yoe = y - era * 400;
  const std::int64_t doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const std::int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(std::int64_t z, int* year, int* month, int* day) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const std::int64_t doe = z - era * 146097;
  const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const std::int64_t mp = (5 * doy + 2) / 153;
  const std::int64_t d = doy - (153 * mp + 2) / 5 + 1;
  const std::int64_t m = mp < 10 ? mp + 3 : mp - 9;
  *year = static_cast<int>(yoe + era * 400 + (m <= 2));
  *month = static_cast<int>(m);
  *day = static_cast<int>(d);
}

const std::int64_t kEpoch = DaysFromCivil(1899, 12, 30);

std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  return a / b - ((a % b != 0) && ((a < 0) != (b < 0)));
}

}  // namespace

Date MakeDate(int year, int month, int day, int hour, int minute, int second) {
  // Months carry into years first; days, hours, minutes and seconds then carry through a count
  // of seconds.
  std::int64_t months = static_cast<std::int64_t>(year) * 12 + (month - 1);
  std::int64_t y = FloorDiv(months, 12);
  std::int64_t m = months - y * 12 + 1;
  std::int64_t days = DaysFromCivil(y, m, 1) + (day - 1) - kEpoch;
  std::int64_t seconds = days * 86400 + static_cast<std::int64_t>(hour) * 3600 +
                         static_cast<std::int64_t>(minute) * 60 + second;
  std::int64_t whole = FloorDiv(seconds, 86400);
  double fraction = static_cast<double>(seconds - whole * 86400) / 86400.0;
  return whole >= 0 ? static_cast<double>(whole) + fraction : static_cast<double>(whole) - fraction;
}

DateParts SplitDate(Date date) {
  double whole = std::trunc(date);
  double fraction = std::fabs(date - whole);
  auto seconds = static_cast<std::int64_t>(std::llround(fraction * 86400.0));
  auto days = static_cast<std::int64_t>(whole);
  if (seconds >= 86400) {
    seconds -= 86400;
    days += date >= 0 ? 1 : -1;
  }
  DateParts p;
  CivilFromDays(days + kEpoch, &p.year, &p.month, &p.day);
  p.hour = static_cast<int>(seconds / 3600);
  p.minute = static_cast<int>(seconds / 60 % 60);
  p.second = static_cast<int>(seconds % 60);
  return p;
}

namespace {

// Whole seconds since the epoch of the date value, whatever the sign of its fraction.
std::int64_t TotalSeconds(Date date) {
  DateParts p = SplitDate(date);
  std::int64_t days = DaysFromCivil(p.year, p.month, p.day) - kEpoch;
  return days * 86400 + p.hour * 3600 + p.minute * 60 + p.second;
}

void AppendPadded(std::u16string& out, std::int64_t value, std::size_t width) {
  std::u16string digits;
  std::int64_t v = value < 0 ? -value : value;
  do {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + v % 10));
    v /= 10;
  } while (v != 0);
  while (digits.size() < width) digits.insert(digits.begin(), u'0');
  if (value < 0) out.push_back(u'-');
  out += digits;
}

}  // namespace

std::u16string FormatDate(Date date, std::u16string_view format) {
  const DateParts p = SplitDate(date);
  std::u16string out;
  std::size_t i = 0;
  while (i < format.size()) {
    char16_t c = format[i];
    char16_t lower = c >= u'A' && c <= u'Z' ? c + 32 : c;
    std::size_t run = 1;
    while (i + run < format.size() && format[i + run] == c) ++run;
    switch (lower) {
      case u'y':
        AppendPadded(out, run <= 2 ? p.year % 100 : p.year, run <= 2 ? 2 : run);
        break;
      case u'm':
        AppendPadded(out, p.month, run);
        break;
      case u'd':
        AppendPadded(out, p.day, run);
        break;
      case u'h':
        AppendPadded(out, p.hour, run);
        break;
      case u'n':
        AppendPadded(out, p.minute, run);
        break;
      case u's':
        AppendPadded(out, p.second, run);
        break;
      default:
        out.append(run, c);
        break;
    }
    i += run;
  }
  return out;
}

std::int64_t MinutesBetween(Date from, Date to) {
  return FloorDiv(TotalSeconds(to), 60) - FloorDiv(TotalSeconds(from), 60);
}

std::int64_t DaysBetween(Date from, Date to) {
  return FloorDiv(TotalSeconds(to), 86400) - FloorDiv(TotalSeconds(from), 86400);
}

}  // namespace base
