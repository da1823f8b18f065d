// Serial date and time.
//
// A serial time is a count of seconds (a double, with fractions for
// milliseconds).  The serial day of a date of the proleptic Gregorian
// calendar is
//
//   D(y, m, d) = 365 y + floor((y-1)/4) - floor((y-1)/100) + floor((y-1)/400)
//                + C[m] + d - 1  (+1 when y is a leap year and m > 2)
//
// with C the days before each month of a common year, and the serial time
// is D * 86400 + (hour * 60 + minute) * 60 + second.
//
// The formatter works on fields taken from t as follows: with t' = t + 0.49
// (rounding to the nearest second) hour, minute and second are
// floor(fmod(t'/3600, 24)), floor(fmod(t'/60, 60)), floor(fmod(t', 60)); the
// millisecond is floor(fmod(t * 1000, 1000)) of the unrounded t; the weekday
// is floor(fmod((t + 0.4)/86400, 7)) + 1 (1 is Sunday); year, month and day
// come from the serial day of t' (so a time rounded up past midnight shows
// the next day, in step with its hour).
#include <cmath>
#include <cstring>
#include <ctime>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/time.h>
#endif

#include "support/support.h"

namespace vexor {

int dateorder = 0;

namespace {

const int daysbefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
const char* const daynames[8] = {"", "Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const monthnames[13] = {"",    "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

long floordiv(long a, long b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// Days before 1 January of year y.
long yearstart(long y) {
  return 365 * y + floordiv(y - 1, 4) - floordiv(y - 1, 100) + floordiv(y - 1, 400);
}

void fromday(long day, int* year, int* month, int* mday) {
  if (day <= 0) {
    *year = *month = *mday = 0;
    return;
  }
  long y = static_cast<long>(day / 365.2425);
  while (y > 1 && yearstart(y) > day) --y;
  while (yearstart(y + 1) <= day) ++y;
  if (y < 1) {
    *year = *month = *mday = 0;
    return;
  }
  long doy = day - yearstart(static_cast<int>(y));  // 0-based day of the year
  bool leap = isleapyear(static_cast<int>(y));
  int m = 12;
  while (m > 1) {
    long before = daysbefore[m - 1] + ((leap && m > 2) ? 1 : 0);
    if (doy >= before) break;
    --m;
  }
  long before = daysbefore[m - 1] + ((leap && m > 2) ? 1 : 0);
  *year = static_cast<int>(y);
  *month = m;
  *mday = static_cast<int>(doy - before + 1);
}

struct Fields {
  int year, month, day, hour, minute, second, millisecond, weekday;
};

// Serial times beyond this (year 950 million or so) or not finite have no
// calendar date: they format like the time 0.
constexpr double MAXSERIAL = 3.0e16;

bool hasdate(double t) { return std::isfinite(t) && std::fabs(t) <= MAXSERIAL; }

Fields fieldsof(double t) {
  Fields f{};
  if (!hasdate(t)) t = 0.0;
  double tr = t + 0.49;
  f.hour = static_cast<int>(std::floor(std::fmod(tr / 3600.0, 24.0)));
  f.minute = static_cast<int>(std::floor(std::fmod(tr / 60.0, 60.0)));
  f.second = static_cast<int>(std::floor(std::fmod(tr, 60.0)));
  f.millisecond = static_cast<int>(std::floor(std::fmod(t * 1000.0, 1000.0)));
  f.weekday = static_cast<int>(std::floor(std::fmod((t + 0.4) / 86400.0, 7.0))) + 1;
  if (f.weekday < 1 || f.weekday > 7) f.weekday = 1;
  calendar(tr, &f.year, &f.month, &f.day);
  return f;
}

// Bounded appender for the formatter.
struct Out {
  char* dst;
  std::size_t size;
  std::size_t len;
  void put(const char* s) {
    while (*s && len + 1 < size) dst[len++] = *s++;
    dst[len] = '\0';
  }
};

const char* monthname(int m) { return (m >= 1 && m <= 12) ? monthnames[m] : "   "; }

// The numeric date in the date-order setting; nothing for an unknown order.
void numericdate(Out& o, const Fields& f) {
  char b[64];
  int yy = f.year % 100;
  if (dateorder < 0 || dateorder > 2) return;
  if (f.year == 0) {
    o.put("00/00/00");
    return;
  }
  if (dateorder == 0)
    std::snprintf(b, sizeof b, "%02d/%02d/%02d", f.month, f.day, yy);
  else if (dateorder == 1)
    std::snprintf(b, sizeof b, "%02d/%02d/%02d", f.day, f.month, yy);
  else
    std::snprintf(b, sizeof b, "%02d.%02d.%02d", yy, f.month, f.day);
  o.put(b);
}

}  // namespace

bool isleapyear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

long serialday(int year, int month, int day) {
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > 31) return 0;
  long d = yearstart(year) + daysbefore[month - 1] + day - 1;
  if (isleapyear(year) && month > 2) ++d;
  return d;
}

double serialtime(int year, int month, int day, int hour, int minute, double second) {
  return static_cast<double>(serialday(year, month, day)) * 86400.0 +
         (hour * 60.0 + minute) * 60.0 + second;
}

void calendar(double t, int* year, int* month, int* day) {
  if (!(t > 0) || !hasdate(t)) {
    *year = *month = *day = 0;
    return;
  }
  fromday(static_cast<long>(std::floor(t / 86400.0)), year, month, day);
}

int dayofyear(double t) {
  int y, m, d;
  calendar(t, &y, &m, &d);
  if (y == 0) return 0;
  return static_cast<int>(serialday(y, m, d) - serialday(y, 1, 1) + 1);
}

double anaclock() {
#ifdef _WIN32
  SYSTEMTIME st;
  GetLocalTime(&st);
  return serialtime(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond) +
         st.wMilliseconds * 0.001;
#else
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  struct tm lt;
  localtime_r(&ts.tv_sec, &lt);
  long ms = ts.tv_nsec / 1000000;
  return serialtime(lt.tm_year + 1900, lt.tm_mon + 1, lt.tm_mday, lt.tm_hour, lt.tm_min,
                    lt.tm_sec) +
         static_cast<double>(ms) * 0.001;
#endif
}

void timefmt(char* dst, std::size_t size, const char* format, double t) {
  if (size == 0) return;
  Out o{dst, size, 0};
  dst[0] = '\0';
  Fields f = fieldsof(t);
  int yy = f.year % 100;
  char b[128];
  for (const char* p = format; *p; ++p) {
    if (*p != '%') {
      char one[2] = {*p, '\0'};
      o.put(one);
      continue;
    }
    char c = *++p;
    if (c == '\0') break;
    b[0] = '\0';
    switch (c) {
      case 'a':
      case 'A':
        o.put(daynames[f.weekday]);
        break;
      case 'b':
      case 'B':
        o.put(monthname(f.month));
        break;
      case 'c':
        o.put(monthname(f.month));
        std::snprintf(b, sizeof b, " %2d %02d:%02d:%02d %4d", f.day, f.hour, f.minute, f.second,
                      f.year);
        o.put(b);
        break;
      case 'd':
        std::snprintf(b, sizeof b, "%d", f.day);
        o.put(b);
        break;
      case 'e':
      case 'E':
        if (f.year == 0)
          o.put("00/00/00");
        else {
          std::snprintf(b, sizeof b, "%02d/%02d/%02d", f.month, f.day, yy);
          o.put(b);
        }
        if (c == 'E') {
          std::snprintf(b, sizeof b, " %02d:%02d", f.hour, f.minute);
          o.put(b);
        }
        break;
      case 'f':
      case 'F':
        numericdate(o, f);
        if (c == 'F' && dateorder >= 0 && dateorder <= 2) {
          std::snprintf(b, sizeof b, " %02d:%02d", f.hour, f.minute);
          o.put(b);
        }
        break;
      case 'h':
        std::snprintf(b, sizeof b, "%02d:%02d", f.hour, f.minute);
        o.put(b);
        break;
      case 'H':
        std::snprintf(b, sizeof b, "%d", f.hour);
        o.put(b);
        break;
      case 'I':
        std::snprintf(b, sizeof b, "%d", f.hour % 12 == 0 ? 12 : f.hour % 12);
        o.put(b);
        break;
      case 'j':
        std::snprintf(b, sizeof b, "%d", f.year ? static_cast<int>(serialday(f.year, f.month, f.day) -
                                                                   serialday(f.year, 1, 1) + 1)
                                                : 0);
        o.put(b);
        break;
      case 'm':
        std::snprintf(b, sizeof b, "%d", f.month);
        o.put(b);
        break;
      case 'M':
        std::snprintf(b, sizeof b, "%d", f.minute);
        o.put(b);
        break;
      case 'N':
        if (f.year == 0)
          std::snprintf(b, sizeof b, "000000 %02d%02d%02d", f.hour, f.minute, f.second);
        else
          std::snprintf(b, sizeof b, "%02d%02d%02d %02d%02d%02d", yy, f.month, f.day, f.hour,
                        f.minute, f.second);
        o.put(b);
        break;
      case 'p':
        o.put(f.hour < 12 ? "AM" : "PM");
        break;
      case 'Q': {
        // The date, then the time written from the eleventh character on.
        // The short zero date "00-00-00" is padded with two blanks to reach
        // it, so the time keeps its column.
        char q[64];
        if (f.year == 0)
          std::snprintf(q, sizeof q, "00-00-00");
        else
          std::snprintf(q, sizeof q, "%02d-%02d-%04d", f.month, f.day, f.year);
        std::size_t ql = std::strlen(q);
        while (ql < 10) q[ql++] = ' ';
        std::snprintf(q + 10, sizeof q - 10, " %02d:%02d:%02d", f.hour, f.minute, f.second);
        o.put(q);
        break;
      }
      case 'S':
        std::snprintf(b, sizeof b, "%d", f.second);
        o.put(b);
        break;
      case 't':
        std::snprintf(b, sizeof b, "%03d", f.millisecond);
        o.put(b);
        break;
      case 'u':
        std::snprintf(b, sizeof b, "%s, %d %s %d %2.2d:%2.2d:%2.2d", daynames[f.weekday], f.day,
                      monthname(f.month), f.year, f.hour, f.minute, f.second);
        o.put(b);
        break;
      case 'w':
        std::snprintf(b, sizeof b, "%d", f.weekday);
        o.put(b);
        break;
      case 'x':
        o.put(monthname(f.month));
        std::snprintf(b, sizeof b, " %d, %4d", f.day, f.year);
        o.put(b);
        break;
      case 'X':
        std::snprintf(b, sizeof b, "%02d:%02d:%02d", f.hour, f.minute, f.second);
        o.put(b);
        break;
      case 'y':
        std::snprintf(b, sizeof b, "%02d", yy);
        o.put(b);
        break;
      case 'Y':
        std::snprintf(b, sizeof b, "%d", f.year);
        o.put(b);
        break;
      case 'z':
      case 'Z': {
        // "%2d-mmm-%04d", the month name written over the "mmm".
        std::snprintf(b, sizeof b, "%2d-mmm-%04d", f.day, f.year);
        std::memcpy(b + 3, monthname(f.month), 3);
        o.put(b);
        if (c == 'Z') {
          std::snprintf(b, sizeof b, " %02d:%02d", f.hour, f.minute);
          o.put(b);
        }
        break;
      }
      default: {
        char one[2] = {c, '\0'};  // "%%" gives "%", "%" and any other gives it
        o.put(one);
        break;
      }
    }
  }
}

}  // namespace vexor
