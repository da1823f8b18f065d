// Elliptic integrals on Bulirsch's general incomplete integral el2 and
// general complete integral cel (R. Bulirsch, Numerical calculation of
// elliptic integrals and elliptic functions, Numer. Math. 7 (1965) 78-90,
// and part III, Numer. Math. 13 (1969) 305-315), and the four integrals of
// the built-ins EI1, EI2, EIC1 and EIC2 on top of them.
//
// Both routines run a Landen/Gauss (arithmetic-geometric mean) transformation
// on the complementary modulus kc: at every step kc becomes 2 sqrt(kc m) and
// the mean m becomes m + kc, which converges quadratically.  Iteration stops
// when kc and the previous mean agree to CA = 1e-8 (half the working
// precision: the next step would square that difference, so the result is
// already good to double precision).
#include <cmath>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr double CA = 1e-8;    // agreement of kc and the mean that ends the iteration
constexpr double CB = 1e-18;   // stands in for a zero y in el2 (10^-(digits+2))
constexpr double PI = 3.141592653589793;
constexpr double HALFPI = 1.5707963267948966;
// The amplitude limit of EI1 and EI2, between the incomplete and the
// complete integral.  It is this system's own constant and has always been
// written 1.5707963267948866, which lies 45 doubles below pi/2 (HALFPI):
// amplitudes from it up to pi/2 take the complete integral.  It is kept
// apart from HALFPI on purpose and must not be "corrected" to pi/2.
constexpr double AMPLIMIT = 1.5707963267948866;

// The arithmetic-geometric means below converge quadratically: for any
// finite kc > 0 they end in well under 30 steps.  Arguments that are not
// finite would keep them going for ever (a NaN never passes the test): those
// give NaN at once, and the loops are capped besides.
constexpr int AGMSTEPS = 100;

bool finite4(double a, double b, double c, double d) {
  return std::isfinite(a) && std::isfinite(b) && std::isfinite(c) && std::isfinite(d);
}

}  // namespace

// General complete elliptic integral
//   cel(kc, p, a, b) = int_0^{pi/2} (a cos^2 t + b sin^2 t)
//                      / ((cos^2 t + p sin^2 t) sqrt(cos^2 t + kc^2 sin^2 t)) dt.
// cel(kc, 1, 1, 1) = K(k) and cel(kc, 1, 1, kc^2) = E(k) with k^2 = 1 - kc^2.
// kc = 0 makes the integral diverge: the result is then +infinity.
double cel(double kc, double p, double a, double b) {
  if (!finite4(kc, p, a, b)) return NAN;
  if (kc == 0.0) return HUGE_VAL;
  double k = std::fabs(kc);
  double e = k;   // kc times the running mean
  double m = 1.0; // running arithmetic mean
  double pp;
  if (p > 0.0) {
    pp = std::sqrt(p);
    b /= pp;
  } else {
    // A negative characteristic p is mapped to a positive one by
    // Bulirsch's transformation (Cauchy principal value).
    double f = kc * kc;
    double q = 1.0 - f;
    double g = 1.0 - p;
    f -= p;
    q *= b - a * p;
    pp = std::sqrt(f / g);
    a = (a - b) / g;
    b = -q / (g * g * pp) + a * pp;
  }
  for (int step = 0; step < AGMSTEPS; ++step) {
    double f = a;
    a += b / pp;
    double g = e / pp;
    b += f * g;
    b += b;
    pp += g;
    double mold = m;
    m += k;
    if (std::fabs(mold - k) <= mold * CA) break;
    k = 2.0 * std::sqrt(e);
    e = k * m;
  }
  return HALFPI * (b + a * m) / (m * (m + pp));
}

// General incomplete elliptic integral
//   el2(x, kc, a, b) = int_0^{atan x} (a + b tan^2 t)
//                      / sqrt((1 + tan^2 t)^3 (1 + kc^2 tan^2 t)) dt,
// so el2(tan phi, kc, 1, 1) = F(phi, k) and el2(tan phi, kc, 1, kc^2) = E(phi, k)
// with k^2 = 1 - kc^2.  The amplitude is carried as the cotangent y of the
// transformed angle; l counts the half turns it has made, so the final angle
// is atan(m/y) + l pi.  kc must not be 0 (the callers raise it to at least
// 1e-15).
double el2(double x, double kc, double a, double b) {
  if (!finite4(x, kc, a, b)) return NAN;
  if (x == 0.0) return 0.0;
  double c = x * x;
  double d = 1.0 + c;
  double p = std::sqrt((1.0 + kc * kc * c) / d);
  d = x / d;
  c = d / (p + p);
  double z = a - b;  // the part of the integrand that integrates in closed form
  double ik = a;
  a = (a + b) / 2.0;
  double y = std::fabs(1.0 / x);
  double f = 0.0;
  double l = 0.0;
  double m = 1.0;
  double k = std::fabs(kc);
  for (int step = 0; step < AGMSTEPS; ++step) {
    b = ik * k + b;
    double e = m * k;
    double g = e / p;
    d = f * g + d;
    f = c;
    ik = a;
    p = g + p;
    c = (d / p + c) / 2.0;
    double mold = m;
    m = k + m;
    a = (b / m + a) / 2.0;
    y = -e / y + y;
    if (y == 0.0) y = std::sqrt(e) * CB;
    if (std::fabs(mold - k) <= CA * mold) break;
    k = 2.0 * std::sqrt(e);
    l += l;
    if (y < 0.0) l += 1.0;
  }
  if (y < 0.0) l += 1.0;
  double r = (std::atan(m / y) + PI * l) * a / m;
  if (x < 0.0) r = -r;
  return r + c * z;
}

// The integrals of the built-ins.  alpha is the modular angle (k = sin alpha)
// and phi the amplitude, both already in radians; phiraw is the amplitude as
// the program gave it (degrees or radians), which decides between the
// incomplete and the complete integral: below AMPLIMIT (just under pi/2)
// the incomplete integral is taken, otherwise the complete one, also in
// degrees, where that means an amplitude of 1.5708 degrees or more (this
// system's long-standing rule).
// A failed test sets *fail and *bad (the value 1 - sin^2 alpha) and the
// value is computed all the same.

namespace {

// kc = sqrt(1 - sin^2 alpha), the complementary modulus.  A negative
// 1 - sin^2 alpha (and, with zerofails, a zero one, where the complete
// integral of the first kind is infinite) sets *fail to code.
double complementary(double alpha, bool zerofails, uint8_t code, uint8_t* fail, double* bad) {
  const double s = std::sin(alpha);
  const double m = 1.0 - s * s;
  if (m < 0.0 || (zerofails && m == 0.0)) {
    *fail = code;
    *bad = m;
  }
  return std::sqrt(m);
}

}  // namespace

double ellipk(double alpha, uint8_t* fail, double* bad) {
  const double kc = complementary(alpha, true, BF_EIC1, fail, bad);
  return cel(kc, 1.0, 1.0, 1.0);
}

double ellipe(double alpha, uint8_t* fail, double* bad) {
  double kc = complementary(alpha, false, BF_EIC2, fail, bad);
  if (!(kc >= 1e-15)) kc = 1e-15;
  return cel(kc, 1.0, 1.0, kc * kc);
}

double ellipf(double alpha, double phi, double phiraw, uint8_t* fail, double* bad) {
  double kc = complementary(alpha, false, BF_EI1, fail, bad);
  if (!(kc >= 1e-14)) kc = 1e-14;
  if (phiraw < AMPLIMIT) return el2(std::tan(phi), kc, 1.0, 1.0);
  return ellipk(alpha, fail, bad);
}

double ellipe2(double alpha, double phi, double phiraw, uint8_t* fail, double* bad) {
  double kc = complementary(alpha, false, BF_EI2, fail, bad);
  if (!(kc >= 1e-14)) kc = 1e-14;
  if (phiraw < AMPLIMIT) return el2(std::tan(phi), kc, 1.0, kc * kc);
  return ellipe(alpha, fail, bad);
}

// The integrands: d F(phi, k)/dphi = 1 / sqrt(1 - k^2 sin^2 phi) =
// 1 / sqrt(cos^2 phi + kc^2 sin^2 phi), E's the square root itself, with kc
// raised as ellipf and ellipe2 raise it.
double ellipamplitudederiv(double alpha, double phi, double phiraw, bool second) {
  if (!(phiraw < AMPLIMIT)) return 0.0;
  uint8_t fail = 0;
  double bad = 0.0;
  double kc = complementary(alpha, false, BF_EI1, &fail, &bad);
  if (!(kc >= 1e-14)) kc = 1e-14;
  const double c = std::cos(phi), sn = std::sin(phi);
  const double q = std::sqrt(c * c + kc * kc * sn * sn);
  return second ? q : 1.0 / q;
}

}  // namespace vexor
