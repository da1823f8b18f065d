// The built-ins of an integer order: the Bessel functions J0, J1, JN, Y0,
// Y1, YN (the C library's j0, j1, jn, y0, y1, yn) and the Chebyshev
// polynomials of CHEBY.  The order is the first argument truncated toward
// zero and clamped to the int range, so it may be as large as 2147483647;
// each function answers in bounded time at every order.
#include <cmath>
#include <complex>

#include "builtins/builtins.h"

#ifdef _WIN32
// The Windows C runtime spells its Bessel functions with a leading
// underscore, and its header hides them in strict standard mode.
extern "C" {
double _j0(double);
double _j1(double);
double _jn(int, double);
double _y0(double);
double _y1(double);
double _yn(int, double);
}
#endif

namespace vexor {

namespace {

#ifdef _WIN32
double libj0(double x) { return ::_j0(x); }
double libj1(double x) { return ::_j1(x); }
double libjn(int n, double x) { return ::_jn(n, x); }
double liby0(double x) { return ::_y0(x); }
double liby1(double x) { return ::_y1(x); }
double libyn(int n, double x) { return ::_yn(n, x); }
#else
double libj0(double x) { return ::j0(x); }
double libj1(double x) { return ::j1(x); }
double libjn(int n, double x) { return ::jn(n, x); }
double liby0(double x) { return ::y0(x); }
double liby1(double x) { return ::y1(x); }
double libyn(int n, double x) { return ::yn(n, x); }
#endif

// T_0 .. T_4 written out: the starting values of both evaluations below.
inline double chebylow(long n, double x) {
  switch (n) {
    case 0: return 1.0;
    case 1: return x;
    case 2: return 2.0 * x * x - 1.0;
    case 3: return 4.0 * x * x * x - 3.0 * x;
    default: {
      double x2 = x * x;
      return 8.0 * x2 * x2 - 8.0 * x2 + 1.0;
    }
  }
}

}  // namespace

double besselj0(double x) { return libj0(x); }
double besselj1(double x) { return libj1(x); }
double bessely0(double x) { return liby0(x); }
double bessely1(double x) { return liby1(x); }

namespace {

using LD = long double;

// Debye's polynomials u_k(t), k = 0..4 (DLMF 10.41.10), in Horner form, for
// a real or an imaginary t.
template <class T>
void debyeu(T t, T u[5]) {
  const T t2 = t * t;
  u[0] = T(1);
  u[1] = t * (T(3) - T(5) * t2) / T(24);
  u[2] = t2 * (T(81) + t2 * (T(-462) + t2 * T(385))) / T(1152);
  u[3] = t * t2 * (T(30375) + t2 * (T(-369603) + t2 * (T(765765) + t2 * T(-425425)))) /
         T(414720);
  u[4] = t2 * t2 *
         (T(4465125) + t2 * (T(-94121676) + t2 * (T(349922430) + t2 * (T(-446185740) + t2 * T(185910725))))) /
         T(39813120);
}

// s - atanh(s) (below = true) or s - atan(s), for 0 < s < 1.  Near the
// turning point s is small and the difference far smaller than either
// term, so it comes from its series there: -(s^3/3 + s^5/5 + ...) and
// s^3/3 - s^5/5 + ... .
LD lessinverse(LD s, bool below) {
  if (s > 0.125L) return below ? s - std::atanh(s) : s - std::atan(s);
  const LD s2 = s * s;
  LD term = s * s2, sum = 0;
  for (int k = 3; k < 60; k += 2, term *= s2) {
    const LD t = term / k;
    sum += below || k % 4 == 3 ? t : -t;
    if (t < sum * 1e-21L) break;
  }
  return below ? -sum : sum;
}

// J_nu(x) for 0 < x < nu, away from the turning point (DLMF 10.19.3):
// with x = nu sech(alpha),
//   J ~ exp(nu (tanh alpha - alpha)) / sqrt(2 pi nu tanh alpha)
//       * sum_k u_k(coth alpha) / nu^k.
// (1 - sech alpha comes from nu - x, which is exact.)
LD debyebelow(LD nu, LD x) {
  const LD q = (nu - x) / nu;                    // 1 - sech alpha
  const LD th = std::sqrt(q * (2 - q));          // tanh alpha
  LD u[5];
  debyeu(1 / th, u);
  LD sum = 0, f = 1;
  for (int k = 0; k < 5; ++k, f /= nu) sum += u[k] * f;
  return std::exp(nu * lessinverse(th, true)) /
         std::sqrt(2 * 3.141592653589793238462643383279L * nu * th) * sum;
}

// J_nu(x) for x > nu, away from the turning point (DLMF 10.19.6): with
// x = nu sec(beta), xi = nu (tan beta - beta) - pi/4,
//   J ~ sqrt(2 / (pi nu tan beta))
//       * (cos xi sum_k u_2k(i cot beta) / nu^2k
//          - i sin xi sum_k u_2k+1(i cot beta) / nu^(2k+1)).
LD debyeabove(LD nu, LD x) {
  const LD q = (x - nu) / nu;                     // sec beta - 1
  const LD tb = std::sqrt(q * (2 + q));           // tan beta
  const LD pi = 3.141592653589793238462643383279L;
  const LD xi = nu * (tb < 1 ? lessinverse(tb, false) : tb - std::atan(tb)) - pi / 4;
  std::complex<LD> u[5];
  debyeu(std::complex<LD>(0, 1 / tb), u);
  std::complex<LD> even = 0, odd = 0;
  LD f = 1;
  for (int k = 0; k < 5; ++k, f /= nu) (k % 2 ? odd : even) += u[k] * f;
  const std::complex<LD> s = std::cos(xi) * even - std::complex<LD>(0, 1) * std::sin(xi) * odd;
  return std::sqrt(2 / (pi * nu * tb)) * s.real();
}

// J_n(x), n > 0 and x > 0 both large (n beyond JNDIRECT): Debye's forms
// where x lies TURNING * x^(1/3) or more from n, and, near the turning
// point x = n, backward recurrence J_(k-1) = (2k / x) J_k - J_(k+1) from
// the two orders M + 1 and M, M = x + TURNING x^(1/3), given by the first
// form (downward the recurrence is stable, J being the solution that
// decays as the order grows).  Five terms of the expansions leave a
// relative error of about 1e-9 at the edge of the turning region (the
// terms fall like (2 TURNING)^(-3k/2)), far less away from it; the
// recurrence takes at most 2 TURNING x^(1/3) steps (100,000 at x = 2^31).
constexpr LD TURNING = 20;

}  // namespace

double besseljlarge(long long n, double xd) {
  const LD x = xd, nu = static_cast<LD>(n);
  const LD band = TURNING * std::cbrt(x);
  if (nu - x >= band) return static_cast<double>(debyebelow(nu, x));
  if (x - nu >= band) return static_cast<double>(debyeabove(nu, x));
  const long long m = static_cast<long long>(std::ceil(x + band));
  LD above = debyebelow(static_cast<LD>(m + 1), x), at = debyebelow(static_cast<LD>(m), x);
  for (long long k = m; k > n; --k) {
    const LD below = (2 * static_cast<LD>(k) / x) * at - above;
    above = at;
    at = below;
  }
  return static_cast<double>(at);
}

// The library's jn works in time proportional to the order (about 6 ns per
// order here, 13 s at order 2^31 - 1).  Orders up to JNDIRECT, and
// arguments that are not finite (which jn answers at once), go to jn.
// Beyond it:
//   - Since |J_n(x)| <= |x/2|^n / n! for n >= 0, an order whose bound lies
//     below 2^-1100 (a margin of some 25 binades under the smallest
//     subnormal) gives the zero jn would give, with jn's sign: J_{-n}(x) =
//     J_n(-x), and J_n(-x) = (-1)^n J_n(x), so the zero is negative exactly
//     when the order is odd and the argument, taken with the order's sign,
//     is negative.  (J_n(0) is such a zero too.)
//   - Otherwise (|x| then lies within a few tenths of the order or beyond
//     it) the value comes from Debye's expansions (besseljlarge), with the
//     same symmetries; its last digits may differ from jn's.
double besseljn(long n, double x) {
  const long long m = n < 0 ? -static_cast<long long>(n) : n;
  if (m <= JNDIRECT || !std::isfinite(x)) return libjn(static_cast<int>(n), x);
  const double xe = n < 0 ? -x : x;
  const bool negative = m % 2 == 1 && std::signbit(xe);
  const double logbound = static_cast<double>(m) * std::log(std::fabs(x) / 2.0) -
                          std::lgamma(static_cast<double>(m) + 1.0);
  if (logbound < -1100.0 * 0.6931471805599453) return negative ? -0.0 : 0.0;
  const double v = besseljlarge(m, std::fabs(x));
  return negative ? -v : v;
}

// yn stops its recurrence at the first infinite value, so it is fast at
// every order.
double besselyn(long n, double x) { return libyn(static_cast<int>(n), x); }

// Chebyshev polynomial T_n(x), n >= 0: T_0 .. T_4 written out, higher
// orders by the plain double recursion T_n = 2x T_{n-1} - T_{n-2}.  Each
// level calls both lower orders again, so the work grows exponentially with
// n (like the Fibonacci numbers: order 40 makes about 8e7 calls, within
// about a second); this is how the function has always computed and it is
// kept for the orders where it finishes.
double chebyrecursive(long n, double x) {
  if (n <= 4) return chebylow(n, x);
  return 2.0 * x * chebyrecursive(n - 1, x) - chebyrecursive(n - 2, x);
}

// The same recurrence by a loop from the written-out T_3 and T_4.  Every
// order is computed from the same two lower values by the same operations
// (2.0 * x, times T_{n-1}, minus T_{n-2}) as in the recursion, so the values
// are the recursion's bit for bit; only the time differs (linear in n).
// Once a value is not a number every later one is that same value (x86
// arithmetic hands on the first operand's NaN: 2x times it, then minus the
// previous value), so the loop stops there.  For |x| > 1 the values grow
// like cosh(n acosh|x|), overflow after about 710 / acosh|x| orders and turn
// into a NaN two orders later.
double chebyiterative(long n, double x) {
  if (n <= 4) return chebylow(n, x);
  double t2 = chebylow(3, x);
  double t1 = chebylow(4, x);
  for (long k = 5; k <= n; ++k) {
    double t = 2.0 * x * t1 - t2;
    t2 = t1;
    t1 = t;
    if (t1 != t1) break;
  }
  return t1;
}

// T_n(x) from its closed form, for orders where the loop would take long:
// cos(n acos x) for |x| <= 1 and (sign) cosh(n acosh|x|) beyond, with the
// angle formed in long double so that n times it keeps its last digits of
// the double result.  A value beyond the double range is the NaN the
// recurrence ends in (its values overflow and then subtract infinities).
double chebyclosed(long n, double x) {
  const long double ln = static_cast<long double>(n);
  if (std::fabs(x) <= 1.0) return static_cast<double>(std::cos(ln * std::acos(static_cast<long double>(x))));
  const long double v = std::cosh(ln * std::acosh(std::fabs(static_cast<long double>(x))));
  if (!(v <= static_cast<long double>(1.7976931348623157e308))) return std::nan("");
  const double d = static_cast<double>(v);
  return (x < 0.0 && n % 2 == 1) ? -d : d;
}

// CHEBY: the recursion up to CHEBYRECMAX (past order 40 it would soon run
// for hours, and from orders of about 1e5 on overflow the stack), the loop
// up to CHEBYLOOPMAX and wherever it ends early on a NaN (|x| > 1, when
// 800 / acosh|x| orders reach the overflow), and the closed form for the
// remaining high orders, whose last digits may differ from the loop's.
double cheby(long n, double x) {
  if (n <= CHEBYRECMAX) return chebyrecursive(n, x);
  if (n <= CHEBYLOOPMAX || x != x) return chebyiterative(n, x);
  if (std::fabs(x) > 1.0 && std::acosh(std::fabs(x)) * static_cast<double>(CHEBYLOOPMAX) > 800.0)
    return chebyiterative(n, x);
  return chebyclosed(n, x);
}

}  // namespace vexor
