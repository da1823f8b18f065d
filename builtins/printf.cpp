// PRINTF's formatter.  Every value a program has is a 64-bit float, so the
// format's conversions are meant to be floating-point ones ("%lG", "%8.3lf").
// The format is user text, so it is walked here conversion by conversion
// instead of being handed to the C library whole: each conversion is printed
// with one library call and the right argument type, and nothing in a format
// can read past the values or write through a pointer.
//   - f F e E g G a A: the next value (an l or L length modifier is dropped);
//   - d i: the next value truncated to an integer; u o x X likewise,
//     unsigned; c: the character of that code;
//   - "%%": a percent sign; "*" as width or precision takes the next value;
//   - s, p, n and anything else unknown are written out as they stand, taking
//     no value (there is nothing for them to print).
// Values beyond those supplied are 0.0; at most 50 are used.
#include <cstring>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr int MAXPRINTVALUES = 50;

long long tointeger(double v) {
  if (v >= -9.2e18 && v <= 9.2e18) return (long long)v;
  return 0;
}

long long clampint(long long v, long long lo, long long hi) { return v < lo ? lo : v > hi ? hi : v; }

}  // namespace

void printvalues(FILE* f, const char* format, const double* values, int nvalues) {
  if (nvalues > MAXPRINTVALUES) nvalues = MAXPRINTVALUES;
  int next = 0;
  auto take = [&]() { return next < nvalues ? values[next++] : (++next, 0.0); };
  const char* p = format;
  while (*p) {
    if (*p != '%') {
      const char* q = std::strchr(p, '%');
      std::size_t n = q ? (std::size_t)(q - p) : std::strlen(p);
      std::fwrite(p, 1, n, f);
      p += n;
      continue;
    }
    if (p[1] == '%') {
      std::fputc('%', f);
      p += 2;
      continue;
    }
    // One conversion: % flags width .precision length conversion.
    const char* start = p++;
    char conv_fmt[64];
    std::size_t len = 0;
    conv_fmt[len++] = '%';
    int width = 0, prec = 0;
    bool starwidth = false, starprec = false, hasprec = false;
    while (*p && std::strchr("-+ #0", *p) && len < 10) conv_fmt[len++] = *p++;
    if (*p == '*') {
      starwidth = true;
      ++p;
    } else {
      while (*p >= '0' && *p <= '9') width = width < 100000 ? width * 10 + (*p++ - '0') : (p++, width);
    }
    if (*p == '.') {
      hasprec = true;
      ++p;
      if (*p == '*') {
        starprec = true;
        ++p;
      } else {
        while (*p >= '0' && *p <= '9') prec = prec < 100000 ? prec * 10 + (*p++ - '0') : (p++, prec);
      }
    }
    while (*p && std::strchr("hlLqjzt", *p)) ++p;
    char conv = *p;
    if (!conv || !std::strchr("fFeEgGaAdiuoxXc", conv)) {
      // Not a conversion we can serve: write it out as it stands.
      std::size_t n = (std::size_t)(p - start) + (conv ? 1 : 0);
      std::fwrite(start, 1, n, f);
      p += conv ? 1 : 0;
      continue;
    }
    ++p;
    // A width or precision taken from a value is clamped while it is still
    // a 64-bit integer, so that no value (INT_MIN among them) can overflow
    // the int the library wants.
    if (starwidth) width = (int)clampint(tointeger(take()), -100000, 100000);
    if (starprec) prec = (int)clampint(tointeger(take()), -1, 1000);
    if (width < 0) {  // a negative width means left-justified, as in C
      conv_fmt[len++] = '-';
      width = -width;
    }
    if (width > 100000) width = 100000;
    if (prec < 0) hasprec = false;
    if (prec > 1000) prec = 1000;
    if (width > 0) len += (std::size_t)std::snprintf(conv_fmt + len, sizeof conv_fmt - len, "%d", width);
    if (hasprec) len += (std::size_t)std::snprintf(conv_fmt + len, sizeof conv_fmt - len, ".%d", prec);
    double v = take();
    if (std::strchr("fFeEgGaA", conv)) {
      conv_fmt[len++] = conv;
      conv_fmt[len] = '\0';
      std::fprintf(f, conv_fmt, v);
    } else if (conv == 'c') {
      conv_fmt[len++] = 'c';
      conv_fmt[len] = '\0';
      std::fprintf(f, conv_fmt, (int)(unsigned char)tointeger(v));
    } else {
      conv_fmt[len++] = 'l';
      conv_fmt[len++] = 'l';
      conv_fmt[len++] = conv;
      conv_fmt[len] = '\0';
      if (conv == 'd' || conv == 'i')
        std::fprintf(f, conv_fmt, tointeger(v));
      else
        std::fprintf(f, conv_fmt, (unsigned long long)tointeger(v));
    }
  }
  std::fflush(f);
}

}  // namespace vexor
