#include "base/date.h"

#include <gtest/gtest.h>

#include <array>

namespace {

TEST(Date, MakeAndSplit) {
  struct Row {
    int y, mo, d, h, mi, s;
    double value;
    int ey, emo, ed, eh, emi, es;  // the fields it reads back as
  } rows[] = {
      {1899, 12, 30, 0, 0, 0, 0.0, 1899, 12, 30, 0, 0, 0},
      {1899, 12, 31, 12, 0, 0, 1.5, 1899, 12, 31, 12, 0, 0},
      {1900, 1, 1, 0, 0, 0, 2.0, 1900, 1, 1, 0, 0, 0},
      {2026, 11, 15, 5, 30, 12, 46341.229305555556, 2026, 11, 15, 5, 30, 12},
      {1899, 12, 29, 6, 0, 0, -1.25, 1899, 12, 29, 6, 0, 0},
      {2024, 13, 1, 0, 0, 0, 45658.0, 2025, 1, 1, 0, 0, 0},    // month 13
      {2024, 3, 0, 0, 0, 0, 45351.0, 2024, 2, 29, 0, 0, 0},    // day 0: leap day
      {2024, 1, 1, 23, 59, 60, 45293.0, 2024, 1, 2, 0, 0, 0},  // second 60
      {1601, 1, 1, 0, 0, 0, -109205.0, 1601, 1, 1, 0, 0, 0},
  };
  for (const Row& r : rows) {
    base::Date date = base::MakeDate(r.y, r.mo, r.d, r.h, r.mi, r.s);
    EXPECT_NEAR(date, r.value, 1e-9) << r.y << "-" << r.mo << "-" << r.d;
    const base::DateParts p = base::SplitDate(date);
    EXPECT_EQ((std::array{p.year, p.month, p.day, p.hour, p.minute, p.second}),
              (std::array{r.ey, r.emo, r.ed, r.eh, r.emi, r.es}));
  }
}

}  // namespace
