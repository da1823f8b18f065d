// The derivative rules of the built-in functions: for a call with argument
// values a[0..n), fnderiv gives d[k] = df/da[k] at those values, f being the
// function as fncompute computes it there (value).  ORDER BUILTIN: one case
// per function code, in the order of fncompute's.
//
// Functions that are constant between jumps (STEP, PULSE, FLOOR, the
// orders of JN, YN and CHEBY, ...) have derivative 0.  An argument without
// a usable rule is marked in the returned mask (bit k for argument k): the
// modulus of the elliptic integrals, the shape parameters of BETAI and
// GAMMP, a CHEBY order too large to differentiate by the recurrence.  The
// caller then differences the parameters that argument depends on.  Where
// the function fails (an argument out of its domain), the run fails anyway
// and the derivatives do not matter; where it has a pole or a kink at the
// argument (SQRT at 0, ABS at 0) the rule gives what its formula gives
// (infinity, 0), and the caller treats a derivative that is not finite as
// having no rule.
#include <climits>
#include <cmath>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr double LN10 = 2.302585092994046;
constexpr double LOG2E = 1.4426950408889632;
constexpr double TWOOVERSQRTPI = 1.1283791670955126;
constexpr double INVSQRT2PIEXACT = 0.3989422804014327;  // 1 / sqrt(2 pi)

// The argument factor and the result factor of the angle setting (the D
// forms always take and give degrees).
inline double angfactor(bool deg) { return deg ? DEGTORAD : 1.0; }

// d/dx T_n(x) = n U_{n-1}(x), U by its recurrence; the mask when the order
// is beyond what the recurrence should walk.
bool chebyderiv(long n, double x, double* d) {
  if (n == 0) {
    *d = 0.0;
    return true;
  }
  if (n > 1000000) return false;
  double u0 = 1.0, u1 = 2.0 * x;  // U_0, U_1
  if (n == 1) {
    *d = 1.0;
    return true;
  }
  for (long k = 2; k < n; ++k) {
    const double u2 = 2.0 * x * u1 - u0;
    u0 = u1;
    u1 = u2;
  }
  *d = static_cast<double>(n) * u1;  // n U_{n-1}
  return true;
}

}  // namespace

uint32_t fnderiv(uint8_t code, const double* a, int n, double value, double* d) {
  for (int k = 0; k < n; ++k) d[k] = 0.0;
  const double x = a[0];
  const bool deg = degrees != 0;
  const double ci = angfactor(deg);        // argument in the angle setting
  const double co = deg ? RADTODEG : 1.0;  // result in the angle setting
  switch (code) {
    case FN_ACOS: d[0] = -co / std::sqrt(1.0 - x * x); break;
    case FN_ASIN: d[0] = co / std::sqrt(1.0 - x * x); break;
    case FN_ATAN: d[0] = co / (1.0 + x * x); break;
    case FN_COS: d[0] = -std::sin(x * ci) * ci; break;
    case FN_EXP: d[0] = value; break;  // 0 below -700, where the value is 0
    case FN_ABS: d[0] = x > 0.0 ? 1.0 : x < 0.0 ? -1.0 : 0.0; break;
    case FN_LN: d[0] = 1.0 / x; break;
    case FN_LOG10: d[0] = 1.0 / (x * LN10); break;
    case FN_SIN: d[0] = std::cos(x * ci) * ci; break;
    case FN_SQRT: d[0] = 0.5 / value; break;
    case FN_TAN: {
      const double c = std::cos(x * ci);
      d[0] = ci / (c * c);
      break;
    }
    case FN_DEG: d[0] = RADTODEG; break;
    case FN_RAD: d[0] = DEGTORAD; break;
    case FN_COT: {
      // 0 where the zero rule gave 0, else -1 / sin^2.
      const double sn = std::sin(x * ci);
      d[0] = value == 0.0 ? 0.0 : -ci / (sn * sn);
      break;
    }
    case FN_HAV: d[0] = std::sin(x * ci) * ci / 2.0; break;
    case FN_COSH: d[0] = std::sinh(x); break;
    case FN_SINH: d[0] = std::cosh(x); break;
    case FN_TANH: d[0] = 1.0 - value * value; break;
    case FN_NORMAL: d[0] = -x * value; break;
    case FN_MAX:
      if (a[1] <= x) d[0] = 1.0; else d[1] = 1.0;
      break;
    case FN_MIN:
      if (x <= a[1]) d[0] = 1.0; else d[1] = 1.0;
      break;
    case FN_STEP:
    case FN_PULSE: break;
    case FN_GAMMA: {
      // Gamma = 1 / rgamma: -rgamma' / rgamma^2.
      const double r = rgamma(x);
      d[0] = -rgammaderiv(x) / (r * r);
      break;
    }
    case FN_GAMMAI: d[0] = rgammaderiv(x); break;
    case FN_SEC: {
      const double c = std::cos(x * ci);
      d[0] = std::sin(x * ci) / (c * c) * ci;
      break;
    }
    case FN_CSC: {
      const double sn = std::sin(x * ci);
      d[0] = -std::cos(x * ci) / (sn * sn) * ci;
      break;
    }
    case FN_J0: d[0] = -besselj1(x); break;
    case FN_J1: d[0] = x == 0.0 ? 0.5 : besselj0(x) - besselj1(x) / x; break;
    case FN_JN: {
      const long m = truncorder(x);
      d[1] = m == LONG_MIN || m == INT_MIN || m == INT_MAX
                 ? 0.0
                 : (besseljn(m - 1, a[1]) - besseljn(m + 1, a[1])) / 2.0;
      break;
    }
    case FN_Y0: d[0] = -bessely1(x); break;
    case FN_Y1: d[0] = bessely0(x) - bessely1(x) / x; break;
    case FN_YN: {
      const long m = truncorder(x);
      d[1] = m == INT_MIN || m == INT_MAX ? 0.0 : (besselyn(m - 1, a[1]) - besselyn(m + 1, a[1])) / 2.0;
      break;
    }
    case FN_CHEBY:
      if (!chebyderiv(truncorder(x), a[1], &d[1])) return 1u << 1;
      break;
    case FN_FAC: {
      const double r = rgamma(x + 1.0);
      d[0] = -rgammaderiv(x + 1.0) / (r * r);
      break;
    }
    case FN_SEL:
      if (a[1] <= x) d[3] = 1.0; else d[2] = 1.0;
      break;
    case FN_EI1:
    case FN_EI1D:
    case FN_EI2:
    case FN_EI2D: {
      const bool dd = code == FN_EI1D || code == FN_EI2D || deg;
      const double f = angfactor(dd);
      const bool second = code == FN_EI2 || code == FN_EI2D;
      d[1] = ellipamplitudederiv(x * f, a[1] * f, a[1], second) * f;
      return 1u << 0;  // the modulus: no rule
    }
    case FN_EIC1:
    case FN_EIC1D:
    case FN_EIC2:
    case FN_EIC2D: return 1u << 0;
    case FN_BETAI: {
      // dI_x(a, b)/dx = x^(a-1) (1-x)^(b-1) / B(a, b); none for a and b.
      const double pa = a[1], pb = a[2];
      if (x > 0.0 && x < 1.0)
        d[0] = std::exp(gammln(pa + pb) - gammln(pa) - gammln(pb) + (pa - 1.0) * std::log(x) +
                        (pb - 1.0) * std::log(1.0 - x));
      return (1u << 1) | (1u << 2);
    }
    case FN_GAMMALN: d[0] = gammlnderiv(x); break;
    case FN_PAREA: d[0] = INVSQRT2PIEXACT * std::exp(-x * x / 2.0); break;
    case FN_ERF: d[0] = TWOOVERSQRTPI * std::exp(-x * x); break;
    case FN_LOG2: d[0] = LOG2E / x; break;
    case FN_NPD: {
      const double mu = a[1], sg = a[2], z = (x - mu) / (sg * sg);
      d[0] = -value * z;
      d[1] = value * z;
      d[2] = value * ((x - mu) * (x - mu) / (sg * sg * sg) - 1.0 / sg);
      break;
    }
    case FN_RTOPA:
    case FN_RTOPAD: {
      // pi/2 - atan2(x, y): d/dx = -y / (x^2 + y^2), d/dy = x / (x^2 + y^2).
      const double y = a[1], q = x * x + y * y;
      const double f = code == FN_RTOPAD ? RADTODEG : co;
      d[0] = -y / q * f;
      d[1] = x / q * f;
      break;
    }
    case FN_RTOPD: {
      const double r = std::sqrt(x * x + a[1] * a[1]);
      d[0] = x / r;
      d[1] = a[1] / r;
      break;
    }
    case FN_PTORX:
    case FN_PTORXD: {
      const double f = code == FN_PTORXD ? DEGTORAD : ci;
      d[0] = -a[1] * std::sin(x * f) * f;
      d[1] = std::cos(x * f);
      break;
    }
    case FN_PTORY:
    case FN_PTORYD: {
      const double f = code == FN_PTORYD ? DEGTORAD : ci;
      d[0] = a[1] * std::cos(x * f) * f;
      d[1] = std::sin(x * f);
      break;
    }
    // pi/2 - theta, brought into [0, 2 pi) by whole turns: -1 in the unit
    // of its argument and result alike.
    case FN_PTOC:
    case FN_CTOP:
    case FN_PTOCD:
    case FN_CTOPD: d[0] = -1.0; break;
    case FN_MOD: {
      // fmod(x, y) = x - q y with q = trunc(x / y) whole: 1 and -q.
      const double y = a[1];
      d[0] = 1.0;
      d[1] = y != 0.0 ? -std::round((x - value) / y) : 0.0;
      break;
    }
    case FN_FLOOR:
    case FN_CEIL:
    case FN_ROUND:
    case FN_RANDOM:
    case FN_PRINTF: break;
    case FN_RETURN: break;  // its values are the predicted and observed ones; the caller follows them
    case FN_ACOSD: d[0] = -RADTODEG / std::sqrt(1.0 - x * x); break;
    case FN_ASIND: d[0] = RADTODEG / std::sqrt(1.0 - x * x); break;
    case FN_ATAND: d[0] = RADTODEG / (1.0 + x * x); break;
    case FN_COSD: d[0] = -std::sin(x * DEGTORAD) * DEGTORAD; break;
    case FN_SIND: d[0] = std::cos(x * DEGTORAD) * DEGTORAD; break;
    case FN_TAND: {
      const double c = std::cos(x * DEGTORAD);
      d[0] = DEGTORAD / (c * c);
      break;
    }
    case FN_COTD: {
      const double sn = std::sin(x * DEGTORAD);
      d[0] = value == 0.0 ? 0.0 : -DEGTORAD / (sn * sn);
      break;
    }
    case FN_HAVD: d[0] = std::sin(x * DEGTORAD) * DEGTORAD / 2.0; break;
    case FN_SECD: {
      const double c = std::cos(x * DEGTORAD);
      d[0] = std::sin(x * DEGTORAD) / (c * c) * DEGTORAD;
      break;
    }
    case FN_CSCD: {
      const double sn = std::sin(x * DEGTORAD);
      d[0] = -std::cos(x * DEGTORAD) / (sn * sn) * DEGTORAD;
      break;
    }
    case FN_GAMMP: {
      // dP(a, x)/dx = e^-x x^(a-1) / Gamma(a); none for a.
      const double pa = x, xx = a[1];
      if (xx > 0.0) d[1] = std::exp(-xx + (pa - 1.0) * std::log(xx) - gammln(pa));
      return 1u << 0;
    }
    default: break;
  }
  return 0;
}

}  // namespace vexor
