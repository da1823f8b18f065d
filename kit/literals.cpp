// Generated number literals and their independent reading (literals.h).
#include "kit/literals.h"

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace vexor::kit {

std::vector<std::string> numberliterals(uint32_t seed, int count) {
  auto next = [&](uint32_t n) {
    seed = seed * 1664525u + 1013904223u;
    return (seed >> 8) % n;
  };
  auto digits = [&](uint32_t n) {
    std::string d;
    for (uint32_t i = 0; i < n; ++i) d += static_cast<char>('0' + next(10));
    return d;
  };
  std::vector<std::string> out;
  out.reserve(static_cast<std::size_t>(count));
  while (static_cast<int>(out.size()) < count) {
    std::string before = next(6) == 0 ? std::string(1 + next(4), '0') : "";
    before += digits(next(26));
    std::string t = before;
    if (next(3) != 0) {
      std::string after = digits(next(26));
      if (next(5) == 0) after += std::string(1 + next(6), '0');
      t += "." + after;
    }
    if (t.find_first_of("0123456789") == std::string::npos) continue;
    if (next(2) == 0) {
      t += "EeDd"[next(4)];
      const uint32_t s = next(3);
      if (s == 1) t += '+';
      if (s == 2) t += '-';
      if (next(8) == 0) t += std::string(1 + next(3), '0');
      t += std::to_string(next(331));
    }
    out.push_back(t);
  }
  return out;
}

namespace {

struct Parts {
  std::string digits;  // every digit before and after the point, in order
  long exponent = 0;   // the written exponent less the digits after the point
};

Parts split(const std::string& text) {
  Parts p;
  std::size_t i = 0;
  long after = 0;
  bool point = false;
  for (; i < text.size(); ++i) {
    const char c = text[i];
    if (c >= '0' && c <= '9') {
      p.digits += c;
      if (point) ++after;
    } else if (c == '.') {
      point = true;
    } else {
      break;
    }
  }
  long e = 0, sign = 1;
  if (i < text.size()) {
    ++i;  // E, e, D or d
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) sign = text[i++] == '-' ? -1 : 1;
    for (; i < text.size(); ++i) e = e * 10 + (text[i] - '0');
  }
  p.exponent = sign * e - after;
  return p;
}

}  // namespace

LiteralVerdict literalfault(const std::string& text, double value) {
  LiteralVerdict v;
  std::string mapped = text;
  for (char& c : mapped)
    if (c == 'D' || c == 'd') c = 'E';
  v.reference = std::strtod(mapped.c_str(), nullptr);
  const Parts p = split(text);

  // The digit steps that round: once m reaches 2^53, m * 10 + digit is no
  // longer exact in general.  m is followed in 128-bit integers, which hold
  // 38 digits; past that every step is counted as rounding.
  const unsigned __int128 limit = static_cast<unsigned __int128>(1) << 53;
  unsigned __int128 m = 0;
  int rounding = 0;
  bool big = false;
  for (char c : p.digits) {
    if (big || m >= limit / 10 + 1) {
      big = big || m > (~static_cast<unsigned __int128>(0)) / 20;
      ++rounding;
    }
    if (!big) m = m * 10 + static_cast<unsigned>(c - '0');
  }
  const bool zero = p.digits.find_first_not_of('0') == std::string::npos;
  const long e = p.exponent;
  const long ae = e < 0 ? -e : e;

  auto fail = [&](const char* why) { v.fault = why; };
  if (std::isfinite(v.reference) && v.reference != 0.0) {
    const double ulp = std::nextafter(std::fabs(v.reference), INFINITY) - std::fabs(v.reference);
    v.ulps = std::fabs(value - v.reference) / ulp;
  } else if (value != v.reference) {
    v.ulps = INFINITY;
  }

  if (ae > 308 && !(zero && e < 0)) {
    // 10^|e| is infinite: v / inf is 0, 0 * inf is NaN, v * inf is inf.
    v.cls = LIT_NOPOWER;
    if (e < 0) {
      if (value != 0.0) fail("a negative exponent past 10^308 must give 0");
    } else if (zero) {
      if (!std::isnan(value)) fail("0 times an infinite power of ten must give NaN");
    } else if (!std::isinf(value)) {
      fail("a positive exponent past 10^308 must give infinity");
    }
    return v;
  }
  if (std::isinf(v.reference)) {
    v.cls = LIT_OVERFLOW;
    // The rule's roundings may also keep a value just over the largest
    // double under it.
    if (!std::isinf(value) && !(std::fabs(value) >= DBL_MAX * (1 - 8 * DBL_EPSILON)))
      fail("a value beyond the doubles must give infinity");
    return v;
  }
  if (rounding == 0 && ae <= 22) {
    v.cls = LIT_EXACT;
    if (value != v.reference || std::signbit(value) != std::signbit(v.reference))
      fail("exact digits and an exact power of ten must give strtod's value");
    return v;
  }
  v.cls = LIT_ROUNDED;
  if (std::isinf(value)) {
    // The rule's roundings may carry a value just under the largest double
    // over it.
    if (std::fabs(v.reference) < DBL_MAX * (1 - 8 * DBL_EPSILON)) fail("infinity for a finite value");
    return v;
  }
  const double bound = (rounding + 3) * std::ldexp(1.0, -53) * std::fabs(v.reference) +
                       std::numeric_limits<double>::denorm_min();
  if (!(std::fabs(value - v.reference) <= bound)) fail("further from strtod than the rule's roundings allow");
  return v;
}

}  // namespace vexor::kit
