// Serial date and time and the formatter.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/support.h"

namespace vexor {
namespace {

std::string fmt(const char* f, double t) {
  char b[256];
  timefmt(b, sizeof b, f, t);
  return b;
}

TEST(DateTime, SerialDayFormula) {
  // 365 y + floor((y-1)/4) - floor((y-1)/100) + floor((y-1)/400) + C[m] + d - 1
  EXPECT_EQ(serialday(1, 1, 1), 365);
  EXPECT_EQ(serialday(2026, 11, 15), 365L * 2026 + 506 - 20 + 5 + 304 + 14);
  EXPECT_EQ(serialday(2000, 3, 1) - serialday(2000, 2, 28), 2);  // 29 Feb 2000
  EXPECT_EQ(serialday(1900, 3, 1) - serialday(1900, 2, 28), 1);  // no 29 Feb 1900
}

TEST(DateTime, LeapYears) {
  EXPECT_FALSE(isleapyear(1900));
  EXPECT_TRUE(isleapyear(2000));
  EXPECT_TRUE(isleapyear(2024));
  EXPECT_FALSE(isleapyear(2026));
}

TEST(DateTime, InvalidDatesHaveDayZero) {
  EXPECT_EQ(serialday(0, 1, 1), 0);
  EXPECT_EQ(serialday(2026, 13, 1), 0);
  EXPECT_EQ(serialday(2026, 0, 1), 0);
  EXPECT_EQ(serialday(2026, 1, 32), 0);
  EXPECT_EQ(serialday(2026, 1, 0), 0);
}

TEST(DateTime, CalendarInvertsSerialDay) {
  for (int y : {1, 2, 1899, 1900, 1999, 2000, 2024, 2026, 2100}) {
    for (int m = 1; m <= 12; ++m) {
      for (int d : {1, 15, 28}) {
        int yy, mm, dd;
        calendar(serialtime(y, m, d, 12, 0, 0), &yy, &mm, &dd);
        EXPECT_EQ(yy, y);
        EXPECT_EQ(mm, m);
        EXPECT_EQ(dd, d);
      }
    }
  }
  int yy, mm, dd;
  calendar(serialtime(2000, 2, 29, 0, 0, 0), &yy, &mm, &dd);
  EXPECT_EQ(mm, 2);
  EXPECT_EQ(dd, 29);
  calendar(serialtime(2000, 12, 31, 23, 0, 0), &yy, &mm, &dd);
  EXPECT_EQ(yy, 2000);
  EXPECT_EQ(mm, 12);
  EXPECT_EQ(dd, 31);
}

TEST(DateTime, NonPositiveTimeGivesZeroDate) {
  int y = 9, m = 9, d = 9;
  calendar(0, &y, &m, &d);
  EXPECT_EQ(y, 0);
  EXPECT_EQ(m, 0);
  EXPECT_EQ(d, 0);
  calendar(-5, &y, &m, &d);
  EXPECT_EQ(y, 0);
  EXPECT_EQ(fmt("%e", 0), "00/00/00");
  EXPECT_EQ(fmt("%f", -10), "00/00/00");
  EXPECT_EQ(fmt("%N", 0), "000000 000000");
  // %Q's time starts at the eleventh character, after the short zero date.
  EXPECT_EQ(fmt("%Q", 1), "00-00-00   00:00:01");
}

// Times that are not finite, or far beyond any calendar, format like 0.
TEST(DateTime, UnrepresentableTimesFormatLikeZero) {
  const double bad[] = {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e30, -1e30};
  for (double t : bad) {
    int y = 9, m = 9, d = 9;
    calendar(t, &y, &m, &d);
    EXPECT_EQ(y, 0);
    EXPECT_EQ(m, 0);
    EXPECT_EQ(d, 0);
    EXPECT_EQ(fmt("%e %X", t), fmt("%e %X", 0));
    EXPECT_EQ(dayofyear(t), 0);
  }
}

TEST(DateTime, DayOfYear) {
  EXPECT_EQ(dayofyear(serialtime(2026, 1, 1, 0, 0, 0)), 1);
  EXPECT_EQ(dayofyear(serialtime(2024, 12, 31, 0, 0, 0)), 366);
  EXPECT_EQ(dayofyear(serialtime(2026, 3, 1, 0, 0, 0)), 60);
  EXPECT_EQ(fmt("%j", serialtime(2000, 3, 1, 0, 0, 0)), "61");
}

TEST(DateTime, RoundingToTheNearestSecond) {
  double t = serialtime(2026, 11, 15, 0, 42, 7);
  EXPECT_EQ(fmt("%X", t + 0.51), "00:42:08");
  EXPECT_EQ(fmt("%X", t + 0.50), "00:42:07");
  EXPECT_EQ(fmt("%X", t + 0.75), "00:42:08");
  EXPECT_EQ(fmt("%t", t + 0.75), "750");
}

TEST(DateTime, ListingFormZ) {
  double t = serialtime(2026, 11, 15, 0, 42, 30);
  EXPECT_EQ(fmt("%Z", t), "15-Nov-2026 00:42");
  EXPECT_EQ(fmt("%Z", serialtime(2026, 3, 5, 17, 3, 0)), " 5-Mar-2026 17:03");
  EXPECT_EQ(fmt("%z", t), "15-Nov-2026");
}

TEST(DateTime, EveryFormatCode) {
  // Sunday 15 November 2026, 13:05:09.250
  double t = serialtime(2026, 11, 15, 13, 5, 9) + 0.25;
  EXPECT_EQ(fmt("%a %A", t), "Sun Sun");
  EXPECT_EQ(fmt("%b %B", t), "Nov Nov");
  EXPECT_EQ(fmt("%c", t), "Nov 15 13:05:09 2026");
  EXPECT_EQ(fmt("%d", t), "15");
  EXPECT_EQ(fmt("%e", t), "11/15/26");
  EXPECT_EQ(fmt("%E", t), "11/15/26 13:05");
  EXPECT_EQ(fmt("%f", t), "11/15/26");
  EXPECT_EQ(fmt("%F", t), "11/15/26 13:05");
  EXPECT_EQ(fmt("%h", t), "13:05");
  EXPECT_EQ(fmt("%H", t), "13");
  EXPECT_EQ(fmt("%I", t), "1");
  EXPECT_EQ(fmt("%j", t), "319");
  EXPECT_EQ(fmt("%m", t), "11");
  EXPECT_EQ(fmt("%M", t), "5");
  EXPECT_EQ(fmt("%N", t), "261115 130509");
  EXPECT_EQ(fmt("%p", t), "PM");
  EXPECT_EQ(fmt("%Q", t), "11-15-2026 13:05:09");
  EXPECT_EQ(fmt("%S", t), "9");
  EXPECT_EQ(fmt("%t", t), "250");
  EXPECT_EQ(fmt("%u", t), "Sun, 15 Nov 2026 13:05:09");
  EXPECT_EQ(fmt("%w", t), "1");
  EXPECT_EQ(fmt("%x", t), "Nov 15, 2026");
  EXPECT_EQ(fmt("%X", t), "13:05:09");
  EXPECT_EQ(fmt("%y", t), "26");
  EXPECT_EQ(fmt("%Y", t), "2026");
  EXPECT_EQ(fmt("%%|%q|plain", t), "%|q|plain");
  EXPECT_EQ(fmt("%I %p", serialtime(2026, 11, 15, 0, 5, 0)), "12 AM");
}

TEST(DateTime, Weekdays) {
  EXPECT_EQ(fmt("%a", serialtime(2026, 11, 16, 8, 0, 0)), "Mon");
  EXPECT_EQ(fmt("%a", serialtime(2000, 1, 1, 8, 0, 0)), "Sat");
  EXPECT_EQ(fmt("%w", serialtime(2026, 11, 21, 8, 0, 0)), "7");
}

TEST(DateTime, DateOrders) {
  double t = serialtime(2026, 11, 5, 9, 7, 0);
  dateorder = 1;
  EXPECT_EQ(fmt("%f", t), "05/11/26");
  dateorder = 2;
  EXPECT_EQ(fmt("%F", t), "26.11.05 09:07");
  dateorder = 3;
  EXPECT_EQ(fmt("[%f][%F]", t), "[][]");
  dateorder = 0;
}

TEST(DateTime, ClockIsNearNow) {
  double a = anaclock();
  int y, m, d;
  calendar(a, &y, &m, &d);
  EXPECT_GE(y, 2024);
  double b = anaclock();
  EXPECT_GE(b, a);
  EXPECT_LT(b - a, 5.0);
}

TEST(DateTime, OutputIsBounded) {
  char small[6];
  timefmt(small, sizeof small, "%u", serialtime(2026, 11, 15, 1, 2, 3));
  EXPECT_STREQ(small, "Sun, ");
}

}  // namespace
}  // namespace vexor
