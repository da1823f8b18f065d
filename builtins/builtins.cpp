// The built-in functions: fncompute, which computes a function from its code
// and argument values under either the run-time or the compile-time rules,
// and the message texts of its failures.  The run time (evlcall, call.cpp)
// and the constant folder (foldcall, code/fold.cpp) both go through here, so
// a folded call and a run-time call compute the same value.
//
// Angle rule: a function without a D at the end of its name takes (or, for
// the inverse functions, returns) degrees when ANGLETYPE is DEGREES
// (`degrees` set) and radians otherwise; the D forms always use degrees.
#include <climits>
#include <cmath>

#include "builtins/builtins.h"

namespace vexor {

namespace {

constexpr double HALFPI = 1.5707963267948966;
constexpr double TWOPI = 6.283185307179586;
constexpr double LOG2E = 1.4426950408889632;
constexpr double INVSQRT2PI = 0.39894228034270457;
constexpr double SQRT2PI = 2.5066282746310002;

// Run-time formats and compile-time texts, indexed by BF_ code.  A null
// compile-time text means the call is not folded when the test fails, so the
// run-time test (with its message) applies when the program runs: so for
// ACOS, ASIN, TAN at 90 degrees, the infinite gamma, CHEBY's negative order
// and the elliptic integrals, for which no compile-time text exists.
struct FailText {
  const char* run;
  const char* comp;
};
constexpr FailText FAILTEXT[BF_COUNT] = {
    {"", nullptr},                                                      // BF_NONE
    {"ACOS argument %lG not in range -1 to 1", nullptr},                // BF_ACOS
    {"ASIN argument %lG not in range -1 to 1", nullptr},                // BF_ASIN
    {"Argument to exp function is too large (%lG)", nullptr},           // BF_EXP
    {"Attempt to take log of zero or negative: %lG",
     "Attempt to take log of negative or zero value"},                   // BF_LOG
    {"Attempt to take log of zero or negative: %lG",
     "Attempt to take log10 of negative or zero value"},                 // BF_LOG10
    {"Attempt to take square root of negative number: %lG",
     "Attempt to take square root of negative number"},                  // BF_SQRT
    {"TAN function argument = 90 degrees", nullptr},                    // BF_TAN
    {"COT function is infinite", "Invalid argument to cotangent function"},  // BF_COT
    {"Gamma function argument out of range: %lG",
     "Gamma function argument out of range"},                            // BF_GAMMARANGE
    {"Gamma function is infinite", nullptr},                            // BF_GAMMAINF
    {"Gammai function argument out of range: %lG",
     "Gamma function argument out of range"},                            // BF_GAMMAIRANGE
    {"SEC function is infinite", "Invalid argument to secent function"},  // BF_SEC
    {"CSC function is infinite", "Invalid argument to cosecant function"},  // BF_CSC
    {"Argument to Y0 function is negative or zero: %lG",
     "Argument to Bessel function is negative or zero"},                 // BF_Y0
    {"Argument to Y1 function is negative or zero: %lG",
     "Argument to Bessel function is negative or zero"},                 // BF_Y1
    {"Argument to YN function is negative or zero: %lG",
     "Argument to Bessel function is negative or zero"},                 // BF_YN
    {"Arg 1 (order) negative for Chebyshev function: %ld", nullptr},    // BF_CHEBY
    {"Factorial function argument out of range: %lG",
     "Invalid argument to factorial function"},                          // BF_FACRANGE
    {"Factorial function is infinite",
     "Invalid argument to inverse gamma function"},                      // BF_FACINF
    {"Invalid x value for BETAI function: %lG", "Invalid x value for BETAI function"},
    {"Invalid a argument for BETAI function: %lG", "Invalid a argument for BETAI function"},
    {"Invalid b argument for BETAI function: %lG", "Invalid b argument for BETAI function"},
    {"Invalid argument to gammln function: %lG", "Invalid argument to gammln function"},
    {"attempt to take log2 of zero or negative: %lG",
     "Attempt to take log of negative or zero number"},                  // BF_LOG2
    {"ACOSD argument %lG not in range -1 to 1", nullptr},               // BF_ACOSD
    {"ASIND argument %lG not in range -1 to 1", nullptr},               // BF_ASIND
    {"TAND function argument = 90 degrees", nullptr},                   // BF_TAND
    {"COTD function is infinite", "Invalid argument to COTD function"},  // BF_COTD
    {"SECD function is infinite", "Invalid argument to SECD function"},  // BF_SECD
    {"CSCD function is infinite", "Invalid argument to CSCD function"},  // BF_CSCD
    {"Invalid arguments for gammp function", "Invalid arguments for gammp function"},
    {"Error: Invalid argument to EIC1 function: %lG\n", nullptr},       // BF_EIC1
    {"Error: Invalid argument to EIC2 function: %lG\n", nullptr},       // BF_EIC2
    {"Error: Invalid first argument to EI1 function: %lG\n", nullptr},  // BF_EI1
    {"Error: Invalid first argument to EI2 function: %lG\n", nullptr},  // BF_EI2
    {"Unknown function", nullptr},                                      // BF_UNKNOWN
    {"x is negative in gser: %lG\n", nullptr},                         // BF_GSERNEG
    {"a too large or itmax too small in routine gser\n", nullptr},     // BF_GSERITER
    {"a too large, itmax too small in gcf\n", nullptr},                // BF_GCFITER
};

inline double angin(double x) { return degrees ? x * DEGTORAD : x; }
inline double angout(double r) { return degrees ? r * RADTODEG : r; }


// Rectangular (x, y) to the polar angle in [0, 2 pi): pi/2 - atan2(x, y).
double polarangle(double x, double y) {
  double a = HALFPI - std::atan2(x, y);
  if (a < 0.0) a += TWOPI;
  return a;
}

// Cotangent with the zero rule: within 1e-10 of a multiple of pi/2 the
// result is 0.0 without an error.
// *infinite is set when tan x is exactly 0.
double cotangent(double x, bool* infinite) {
  if (std::fabs(std::fmod(x, HALFPI)) < 1e-10) return 0.0;
  double t = std::tan(x);
  if (t == 0.0) {
    *infinite = true;
    return 0.0;
  }
  return 1.0 / t;
}

// A routine's value, with its failure (if any) handed on.
inline double routine(double value, const SpecFail& sf, uint8_t* fail, double* bad) {
  if (sf.code != BF_NONE) {
    *fail = sf.code;
    *bad = sf.bad;
  }
  return value;
}

inline double failed(uint8_t* fail, uint8_t code) {
  *fail = code;
  return 0.0;
}

}  // namespace

const char* fnruntext(uint8_t fail) {
  return fail < BF_COUNT ? FAILTEXT[fail].run : FAILTEXT[BF_UNKNOWN].run;
}

const char* fncomptext(uint8_t fail) {
  return fail < BF_COUNT ? FAILTEXT[fail].comp : nullptr;
}

// ORDER BUILTIN: one case per function code.
double fncompute(uint8_t code, const double* args, int mode, uint8_t* fail, double* bad) {
  const double x = args[0];
  *fail = BF_NONE;
  *bad = x;
  SpecFail sf;
  switch (code) {
    case FN_ACOS:
      if (x < -1.0 || x > 1.0) return failed(fail, BF_ACOS);
      return angout(std::acos(x));
    case FN_ASIN:
      if (x < -1.0 || x > 1.0) return failed(fail, BF_ASIN);
      return angout(std::asin(x));
    case FN_ATAN: return angout(std::atan(x));
    case FN_COS: return std::cos(angin(x));
    case FN_EXP:
      if (mode == FNFOLD) return std::exp(x);  // no range tests when folding
      if (x < -700.0) return 0.0;
      if (x > 500.0) return failed(fail, BF_EXP);
      return std::exp(x);
    case FN_ABS: return std::fabs(x);
    case FN_LN:
      if (x <= 0.0) return failed(fail, BF_LOG);
      return std::log(x);
    case FN_LOG10:
      if (x <= 0.0) return failed(fail, BF_LOG10);
      return std::log10(x);
    case FN_SIN: return std::sin(angin(x));
    case FN_SQRT:
      if (x < 0.0) return failed(fail, BF_SQRT);
      return std::sqrt(x);
    case FN_TAN: {
      // The limit goes through the same conversion as the argument, so
      // TAN(90) in degrees is caught; TAN(270) is not.
      double r = angin(x);
      double lim = degrees ? 90.0 * DEGTORAD : HALFPI;
      if (std::fabs(r - lim) < 1e-20) return failed(fail, BF_TAN);
      return std::tan(r);
    }
    case FN_DEG: return x * RADTODEG;
    case FN_RAD: return x * DEGTORAD;
    case FN_COT: {
      bool f = false;
      double v = cotangent(angin(x), &f);
      if (f) return failed(fail, BF_COT);
      return v;
    }
    case FN_HAV: return (1.0 - std::cos(angin(x))) / 2.0;
    case FN_COSH: return std::cosh(x);
    case FN_SINH: return std::sinh(x);
    case FN_TANH: return std::tanh(x);
    case FN_NORMAL: return std::exp(-x * x / 2.0) * INVSQRT2PI;
    case FN_MAX: return args[1] <= x ? x : args[1];
    case FN_MIN: return x <= args[1] ? x : args[1];
    case FN_STEP: return x <= args[1] ? 1.0 : 0.0;
    case FN_PULSE: return (x <= args[1] && args[1] <= args[2]) ? 1.0 : 0.0;
    case FN_GAMMA: {
      if (x < -4.0 || x > 170.0) {
        *fail = BF_GAMMARANGE;
        return 0.0;
      }
      double r = rgamma(x);
      if (r == 0.0) {
        *fail = BF_GAMMAINF;
        return 0.0;
      }
      return 1.0 / r;
    }
    case FN_GAMMAI:
      if (x < -4.0 || x > 170.0) {
        *fail = BF_GAMMAIRANGE;
        return 0.0;
      }
      return rgamma(x);
    case FN_SEC: {
      double c = std::cos(angin(x));
      if (c == 0.0) return failed(fail, BF_SEC);
      return 1.0 / c;
    }
    case FN_CSC: {
      double s = std::sin(angin(x));
      if (s == 0.0) return failed(fail, BF_CSC);
      return 1.0 / s;
    }
    case FN_J0: return besselj0(x);
    case FN_J1: return besselj1(x);
    case FN_JN: return besseljn(truncorder(x), args[1]);
    case FN_Y0:
      if (x <= 0.0) return failed(fail, BF_Y0);
      return bessely0(x);
    case FN_Y1:
      if (x <= 0.0) return failed(fail, BF_Y1);
      return bessely1(x);
    case FN_YN:
      if (args[1] <= 0.0) {
        *bad = args[1];
        return failed(fail, BF_YN);
      }
      return besselyn(truncorder(x), args[1]);
    case FN_CHEBY: {
      long n = truncorder(x);
      if (n < 0) {
        *bad = (double)n;
        return failed(fail, BF_CHEBY);
      }
      return cheby(n, args[1]);
    }
    case FN_FAC: {
      // Run time: -5 <= x <= 169; compile time: -4 <= x <= 170.  The two
      // ranges have always differed and are kept.
      bool inrange = mode == FNFOLD ? (x >= -4.0 && x <= 170.0) : (x >= -5.0 && x <= 169.0);
      if (!inrange) {
        *fail = BF_FACRANGE;
        return 0.0;
      }
      double r = rgamma(x + 1.0);
      if (r == 0.0) {
        *fail = BF_FACINF;
        return 0.0;
      }
      return 1.0 / r;
    }
    case FN_SEL: return args[1] <= x ? args[3] : args[2];
    case FN_EI1:
    case FN_EI1D: {
      bool d = code == FN_EI1D || degrees;
      double a = d ? x * DEGTORAD : x, p = d ? args[1] * DEGTORAD : args[1];
      return ellipf(a, p, args[1], fail, bad);
    }
    case FN_EI2:
    case FN_EI2D: {
      bool d = code == FN_EI2D || degrees;
      double a = d ? x * DEGTORAD : x, p = d ? args[1] * DEGTORAD : args[1];
      return ellipe2(a, p, args[1], fail, bad);
    }
    case FN_EIC1:
    case FN_EIC1D: {
      bool d = code == FN_EIC1D || degrees;
      return ellipk(d ? x * DEGTORAD : x, fail, bad);
    }
    case FN_EIC2:
    case FN_EIC2D: {
      bool d = code == FN_EIC2D || degrees;
      return ellipe(d ? x * DEGTORAD : x, fail, bad);
    }
    case FN_BETAI:
      // x, a, b tested in that order.
      if (x < 0.0 || x > 1.0) {
        *fail = BF_BETAX;
        return 0.0;
      }
      if (args[1] <= 0.0) {
        *fail = BF_BETAA;
        *bad = args[1];
        return 0.0;
      }
      if (args[2] <= 0.0) {
        *fail = BF_BETAB;
        *bad = args[2];
        return 0.0;
      }
      return betai(args[1], args[2], x);
    case FN_GAMMALN:
      if (x <= 0.0) return failed(fail, BF_GAMMALN);
      return gammln(x);
    case FN_PAREA: return routine(parea(x, &sf), sf, fail, bad);
    case FN_ERF: return routine(erf1(x, &sf), sf, fail, bad);
    case FN_LOG2:
      if (x <= 0.0) return failed(fail, BF_LOG2);
      return std::log(x) * LOG2E;
    case FN_NPD: {
      double dx = x - args[1], s = args[2];
      return std::exp(-dx * dx / (2.0 * s * s)) / (SQRT2PI * s);
    }
    case FN_RTOPA: return angout(polarangle(x, args[1]));
    case FN_RTOPD: return std::sqrt(x * x + args[1] * args[1]);
    case FN_PTORX: return args[1] * std::cos(angin(x));
    case FN_PTORY: return args[1] * std::sin(angin(x));
    case FN_PTOC:
    case FN_CTOP: return angout(compass(angin(x)));
    case FN_MOD: return std::fmod(x, args[1]);
    case FN_FLOOR: return std::floor(x);
    case FN_CEIL: return std::ceil(x);
    case FN_ROUND: return x >= 0.0 ? std::floor(x + 0.5) : std::ceil(x - 0.5);
    case FN_ACOSD:
      if (x < -1.0 || x > 1.0) return failed(fail, BF_ACOSD);
      return std::acos(x) * RADTODEG;
    case FN_ASIND:
      if (x < -1.0 || x > 1.0) return failed(fail, BF_ASIND);
      return std::asin(x) * RADTODEG;
    case FN_ATAND: return std::atan(x) * RADTODEG;
    case FN_COSD: return std::cos(x * DEGTORAD);
    case FN_SIND: return std::sin(x * DEGTORAD);
    case FN_TAND: {
      double r = x * DEGTORAD;
      if (std::fabs(r - 90.0 * DEGTORAD) < 1e-20) return failed(fail, BF_TAND);
      return std::tan(r);
    }
    case FN_COTD: {
      bool f = false;
      double v = cotangent(x * DEGTORAD, &f);
      if (f) return failed(fail, BF_COTD);
      return v;
    }
    case FN_HAVD: return (1.0 - std::cos(x * DEGTORAD)) / 2.0;
    case FN_SECD: {
      double c = std::cos(x * DEGTORAD);
      if (c == 0.0) return failed(fail, BF_SECD);
      return 1.0 / c;
    }
    case FN_CSCD: {
      double s = std::sin(x * DEGTORAD);
      if (s == 0.0) return failed(fail, BF_CSCD);
      return 1.0 / s;
    }
    case FN_RTOPAD: return polarangle(x, args[1]) * RADTODEG;
    case FN_PTORXD: return args[1] * std::cos(x * DEGTORAD);
    case FN_PTORYD: return args[1] * std::sin(x * DEGTORAD);
    case FN_PTOCD:
    case FN_CTOPD: return compass(x * DEGTORAD) * RADTODEG;
    case FN_GAMMP:
      if (x <= 0.0 || args[1] < 0.0) return failed(fail, BF_GAMMP);
      return routine(gammp(x, args[1], &sf), sf, fail, bad);
    default:  // RANDOM, PRINTF and RETURN are handled by evlcall itself
      *fail = BF_UNKNOWN;
      return 0.0;
  }
  return 0.0;
}

}  // namespace vexor
