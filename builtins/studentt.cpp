// Student's t distribution to full double precision, for the prediction
// bands of the command-line tool: the report keeps its own quantile (tinv,
// bisection to 0.0001), which the listing's confidence limits are defined
// by.
//
// The distribution function goes through the regularized incomplete beta
// function I_x(a, b), by its continued fraction (modified Lentz) on the side
// of x where it converges fast:
//   P(T > |t|) = I_x(df/2, 1/2) / 2,  x = df / (df + t^2),
// with the logarithms of x and 1 - x and the ratio of gamma functions in
// front of the fraction computed without cancellation.  That is good to a
// relative 1e-13 up to 10,000 degrees of freedom; beyond, the fraction
// loses digits near the centre, and the quantile comes from the
// Cornish-Fisher expansion in the normal quantile z (Abramowitz and Stegun
// 26.7.5), whose first omitted term is below 1e-15 there:
//   t = z + g1/df + g2/df^2 + g3/df^3 + g4/df^4,
//   g1 = (z^3 + z)/4,  g2 = (5z^5 + 16z^3 + 3z)/96,
//   g3 = (3z^7 + 19z^5 + 17z^3 - 15z)/384,
//   g4 = (79z^9 + 776z^7 + 1482z^5 - 1920z^3 - 945z)/92160,
// and the distribution function from inverting it by Newton's method.
// The quantile brackets the root by doubling from 1, then takes Newton steps
// on the density, falling back to bisection whenever a step would leave the
// bracket, to a relative 1e-14.
#include <cmath>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr double PI = 3.14159265358979323846;

// The continued fraction of I_x(a, b) (the betacf form), to a relative
// change of 1e-16.
double betafraction(double a, double b, double x) {
  constexpr double TINY = 1e-300;
  const double qab = a + b, qap = a + 1.0, qam = a - 1.0;
  double c = 1.0, d = 1.0 - qab * x / qap;
  if (std::fabs(d) < TINY) d = TINY;
  d = 1.0 / d;
  double h = d;
  for (int m = 1; m <= 10000; ++m) {
    const int m2 = 2 * m;
    double aa = m * (b - m) * x / ((qam + m2) * (a + m2));
    d = 1.0 + aa * d;
    if (std::fabs(d) < TINY) d = TINY;
    c = 1.0 + aa / c;
    if (std::fabs(c) < TINY) c = TINY;
    d = 1.0 / d;
    h *= d * c;
    aa = -(a + m) * (qab + m) * x / ((a + m2) * (qap + m2));
    d = 1.0 + aa * d;
    if (std::fabs(d) < TINY) d = TINY;
    c = 1.0 + aa / c;
    if (std::fabs(c) < TINY) c = TINY;
    d = 1.0 / d;
    const double del = d * c;
    h *= del;
    if (std::fabs(del - 1.0) < 1e-16) break;
  }
  return h;
}

// ln(Gamma(a + 1/2) / Gamma(a)).  For a large, lgamma's two values are
// large and nearly equal; their difference comes from Stirling's series
// instead, in terms that are all small:
//   a ln(1 + 1/(2a)) + ln(a)/2 - 1/2 + [B(a + 1/2) - B(a)],
//   B(z) = 1/(12 z) - 1/(360 z^3) + 1/(1260 z^5).
double lgammahalf(double a) {
  if (a < 100.0) return std::lgamma(a + 0.5) - std::lgamma(a);
  auto tail = [](double z) {
    const double z2 = z * z;
    return 1.0 / (12.0 * z) - 1.0 / (360.0 * z * z2) + 1.0 / (1260.0 * z * z2 * z2);
  };
  return a * std::log1p(0.5 / a) + 0.5 * std::log(a) - 0.5 + (tail(a + 0.5) - tail(a));
}

// P(T > |t|) = I_x(df/2, 1/2) / 2 with x = df / (df + t^2), to a relative
// precision of the tail itself (so that quantiles far out stay exact).
double uppertail(double t, double df) {
  if (t == 0.0) return 0.5;
  const double a = df / 2.0, b = 0.5;
  const double t2 = t * t;
  const double x = df / (df + t2);
  const double lnx = -std::log1p(t2 / df);            // ln x
  const double ln1x = std::log(t2) - std::log(df + t2);  // ln(1 - x)
  const double lfront = a * lnx + b * ln1x + lgammahalf(a) - 0.5 * std::log(PI);
  const double front = std::exp(lfront);
  double i;
  if (x < (a + 1.0) / (a + b + 2.0))
    i = front * betafraction(a, b, x) / a;
  else
    i = 1.0 - front * betafraction(b, a, 1.0 - x) / b;
  return 0.5 * i;
}

constexpr double CORNISHFISHER = 10000.0;  // degrees of freedom beyond which it serves

// t(z) of the expansion, and dt/dz.
double cornishfisher(double z, double df, double* slope) {
  const double z2 = z * z;
  const double g1 = (z2 + 1.0) * z / 4.0;
  const double g2 = ((5.0 * z2 + 16.0) * z2 + 3.0) * z / 96.0;
  const double g3 = (((3.0 * z2 + 19.0) * z2 + 17.0) * z2 - 15.0) * z / 384.0;
  const double g4 = ((((79.0 * z2 + 776.0) * z2 + 1482.0) * z2 - 1920.0) * z2 - 945.0) * z / 92160.0;
  const double d1 = (3.0 * z2 + 1.0) / 4.0;
  const double d2 = ((25.0 * z2 + 48.0) * z2 + 3.0) / 96.0;
  const double d3 = (((21.0 * z2 + 95.0) * z2 + 51.0) * z2 - 15.0) / 384.0;
  const double d4 = ((((711.0 * z2 + 5432.0) * z2 + 7410.0) * z2 - 5760.0) * z2 - 945.0) / 92160.0;
  const double v = 1.0 / df;
  if (slope) *slope = 1.0 + v * (d1 + v * (d2 + v * (d3 + v * d4)));
  return z + v * (g1 + v * (g2 + v * (g3 + v * g4)));
}

// The density of t with df degrees of freedom.
double tdensity(double t, double df) {
  const double l = lgammahalf(df / 2.0) - 0.5 * std::log(df * PI) -
                   (df + 1.0) / 2.0 * std::log1p(t * t / df);
  return std::exp(l);
}

}  // namespace

// Acklam's rational approximation (relative error 1.15e-9), then one step of
// Halley's method on the exact distribution function (erfc), which brings
// it to full double precision.
double normalquantile(double p) {
  if (!(p > 0.0 && p < 1.0)) return NAN;
  static const double a[] = {-3.969683028665376e+01, 2.209460984245205e+02, -2.759285104469687e+02,
                             1.383577518672690e+02, -3.066479806614716e+01, 2.506628277459239e+00};
  static const double b[] = {-5.447609879822406e+01, 1.615858368580409e+02, -1.556989798598866e+02,
                             6.680131188771972e+01, -1.328068155288572e+01};
  static const double c[] = {-7.784894002430293e-03, -3.223964580411365e-01, -2.400758277161838e+00,
                             -2.549732539343734e+00, 4.374664141464968e+00, 2.938163982698783e+00};
  static const double d[] = {7.784695709041462e-03, 3.224671290700398e-01, 2.445134137142996e+00,
                             3.754408661907416e+00};
  constexpr double PLOW = 0.02425;
  double x;
  if (p < PLOW) {
    const double q = std::sqrt(-2.0 * std::log(p));
    x = (((((c[0] * q + c[1]) * q + c[2]) * q + c[3]) * q + c[4]) * q + c[5]) /
        ((((d[0] * q + d[1]) * q + d[2]) * q + d[3]) * q + 1.0);
  } else if (p <= 1.0 - PLOW) {
    const double q = p - 0.5, r = q * q;
    x = (((((a[0] * r + a[1]) * r + a[2]) * r + a[3]) * r + a[4]) * r + a[5]) * q /
        (((((b[0] * r + b[1]) * r + b[2]) * r + b[3]) * r + b[4]) * r + 1.0);
  } else {
    const double q = std::sqrt(-2.0 * std::log1p(-p));
    x = -(((((c[0] * q + c[1]) * q + c[2]) * q + c[3]) * q + c[4]) * q + c[5]) /
        ((((d[0] * q + d[1]) * q + d[2]) * q + d[3]) * q + 1.0);
  }
  // Halley's step on the side of the smaller tail, where erfc keeps its
  // relative precision.
  const double e = x < 0.0 ? 0.5 * std::erfc(-x / std::sqrt(2.0)) - p
                           : (1.0 - p) - 0.5 * std::erfc(x / std::sqrt(2.0));
  const double u = e * std::sqrt(2.0 * PI) * std::exp(x * x / 2.0);
  return x - u / (1.0 + x * u / 2.0);
}

double studentcdf(double t, double df) {
  if (std::isnan(t) || !(df > 0.0)) return NAN;
  if (std::isinf(t)) return t > 0 ? 1.0 : 0.0;
  if (df > CORNISHFISHER) {
    // z with t(z) = t; then P(T <= t) = Phi(z).
    double z = t;
    for (int i = 0; i < 50; ++i) {
      double slope;
      const double step = (cornishfisher(z, df, &slope) - t) / slope;
      z -= step;
      if (std::fabs(step) <= 1e-16 * (1.0 + std::fabs(z))) break;
    }
    return 0.5 * std::erfc(-z / std::sqrt(2.0));
  }
  const double tail = uppertail(t, df);
  return t >= 0.0 ? 1.0 - tail : tail;
}

// The upper half is solved on the tail, q = 1 - p (exact for p >= 1/2), so
// the precision is relative to q however small it is.
double studentquantile(double p, double df) {
  if (!(p > 0.0 && p < 1.0) || !(df > 0.0)) return NAN;
  if (p == 0.5) return 0.0;
  if (p < 0.5) return -studentquantile(1.0 - p, df);
  if (df > CORNISHFISHER) return cornishfisher(normalquantile(p), df, nullptr);
  const double q = 1.0 - p;
  // A bracket [lo, hi] with tail(lo) >= q >= tail(hi).
  double lo = 0.0, hi = 1.0;
  while (uppertail(hi, df) > q) {
    lo = hi;
    hi *= 2.0;
    if (hi > 1e300) return INFINITY;
  }
  double t = 0.5 * (lo + hi);
  for (int i = 0; i < 300; ++i) {
    const double f = uppertail(t, df) - q;  // decreasing in t
    if (f > 0.0)
      lo = t;
    else
      hi = t;
    const double dens = tdensity(t, df);
    double next = dens > 0.0 ? t + f / dens : 0.5 * (lo + hi);
    if (!(next > lo && next < hi)) next = 0.5 * (lo + hi);  // Newton left the bracket
    if (std::fabs(next - t) <= 1e-15 * std::fabs(next)) return next;
    t = next;
  }
  return t;
}

}  // namespace vexor
