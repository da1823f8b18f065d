// The built-ins' derivative rules against central differences of the
// functions as computed: at one or more points of each function's domain
// (away from its kinks and jumps: orders are taken between whole numbers), in both angle settings where the
// function takes or gives an angle, every argument with a rule agrees with
// (f(a + h) - f(a - h)) / 2h to 1e-7 relative (the scale of the derivative
// being at least 1e-3 of the function's own, so that a derivative near 0 is
// held absolutely), and the arguments without one are the ones documented.
// The difference is taken with h = 1e-5 |a| and refined by one
// Richardson step, (4 D(h/2) - D(h)) / 3, which leaves an error far below
// the tolerance for smooth functions.  The iterative functions (ERF, PAREA,
// BETAI in x, GAMMP in x) stop their series at a relative change of 3e-7,
// so their computed values carry that much noise: they are held to the
// exact derivative of the function they approximate at 1e-6 instead, with
// the difference as a check of the sign and size at 1e-2.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "builtins/builtins.h"

namespace vexor::test {
namespace {

struct Case {
  uint8_t code;
  std::vector<double> args;
  int deg;            // ANGLETYPE DEGREES
  uint32_t norule;    // arguments documented without a rule
};

const Case CASES[] = {
    {FN_ACOS, {0.385}, 0, 0}, {FN_ACOS, {-0.9}, 1, 0}, {FN_ASIN, {0.385}, 0, 0}, {FN_ASIN, {0.7}, 1, 0},
    {FN_ATAN, {2.385}, 0, 0}, {FN_ATAN, {-0.3}, 1, 0}, {FN_COS, {2.385}, 0, 0}, {FN_COS, {23.85}, 1, 0},
    {FN_EXP, {2.385}, 0, 0}, {FN_EXP, {-30.5}, 0, 0}, {FN_ABS, {-2.385}, 0, 0}, {FN_ABS, {1.5}, 0, 0},
    {FN_LN, {2.385}, 0, 0}, {FN_LN, {1e-3}, 0, 0}, {FN_LOG10, {2.385}, 0, 0}, {FN_SIN, {2.385}, 0, 0},
    {FN_SIN, {123.85}, 1, 0}, {FN_SQRT, {2.385}, 0, 0}, {FN_SQRT, {1e-4}, 0, 0}, {FN_TAN, {1.385}, 0, 0},
    {FN_TAN, {-23.85}, 1, 0}, {FN_DEG, {2.385}, 0, 0}, {FN_RAD, {23.85}, 0, 0}, {FN_COT, {1.385}, 0, 0},
    {FN_COT, {23.85}, 1, 0}, {FN_HAV, {2.385}, 0, 0}, {FN_HAV, {23.85}, 1, 0}, {FN_COSH, {1.385}, 0, 0},
    {FN_SINH, {-1.385}, 0, 0}, {FN_TANH, {0.385}, 0, 0}, {FN_NORMAL, {1.385}, 0, 0},
    {FN_MAX, {2.385, -1.5}, 0, 0}, {FN_MAX, {-1.5, 2.385}, 0, 0}, {FN_MIN, {2.385, -1.5}, 0, 0},
    {FN_MIN, {-1.5, 2.385}, 0, 0}, {FN_STEP, {1.0, 2.0}, 0, 0}, {FN_PULSE, {1.0, 2.0, 3.0}, 0, 0},
    {FN_GAMMA, {2.385}, 0, 0}, {FN_GAMMA, {0.5}, 0, 0}, {FN_GAMMA, {-1.385}, 0, 0}, {FN_GAMMA, {7.3}, 0, 0},
    {FN_GAMMAI, {0.385}, 0, 0}, {FN_GAMMAI, {5.5}, 0, 0}, {FN_SEC, {1.385}, 0, 0}, {FN_SEC, {23.85}, 1, 0},
    {FN_CSC, {1.385}, 0, 0}, {FN_CSC, {23.85}, 1, 0}, {FN_J0, {2.385}, 0, 0}, {FN_J1, {2.385}, 0, 0},
    {FN_J1, {0.01}, 0, 0}, {FN_JN, {2.9, 2.385}, 0, 0}, {FN_JN, {5.5, 7.5}, 0, 0}, {FN_Y0, {2.385}, 0, 0},
    {FN_Y1, {2.385}, 0, 0}, {FN_YN, {3.2, 2.385}, 0, 0}, {FN_CHEBY, {7.5, 0.385}, 0, 0},
    {FN_CHEBY, {3.5, 1.7}, 0, 0}, {FN_CHEBY, {1.5, 0.3}, 0, 0}, {FN_FAC, {3.5}, 0, 0}, {FN_FAC, {0.385}, 0, 0},
    {FN_SEL, {2.0, 1.5, 10.0, 20.0}, 0, 0}, {FN_SEL, {1.0, 1.5, 10.0, 20.0}, 0, 0},
    {FN_EI1, {0.6, 0.9}, 0, 1}, {FN_EI1, {35.0, 1.2}, 1, 1}, {FN_EI1, {0.6, 1.6}, 0, 1},
    {FN_EI2, {0.6, 0.9}, 0, 1}, {FN_EI2, {-0.3, -1.1}, 0, 1}, {FN_EIC1, {0.6}, 0, 1}, {FN_EIC2, {0.6}, 0, 1},
    {FN_GAMMALN, {2.385}, 0, 0}, {FN_GAMMALN, {0.2}, 0, 0}, {FN_GAMMALN, {35.5}, 0, 0},
    {FN_LOG2, {2.385}, 0, 0}, {FN_NPD, {2.385, 1.5, 0.8}, 0, 0}, {FN_NPD, {-1.0, 0.5, 2.5}, 0, 0},
    {FN_RTOPA, {1.2, -0.7}, 0, 0}, {FN_RTOPA, {-0.3, 0.8}, 1, 0}, {FN_RTOPD, {1.2, -0.7}, 0, 0},
    {FN_PTORX, {0.385, 2.5}, 0, 0}, {FN_PTORX, {23.85, 2.5}, 1, 0}, {FN_PTORY, {0.385, 2.5}, 0, 0},
    {FN_PTORY, {23.85, 2.5}, 1, 0}, {FN_PTOC, {0.385}, 0, 0}, {FN_PTOC, {123.85}, 1, 0},
    {FN_CTOP, {1.1857963267948965}, 0, 0}, {FN_MOD, {7.385, 2.5}, 0, 0}, {FN_MOD, {-7.385, 2.5}, 0, 0},
    {FN_FLOOR, {2.385}, 0, 0}, {FN_CEIL, {2.385}, 0, 0}, {FN_ROUND, {2.385}, 0, 0},
    {FN_EI1D, {35.0, 1.2}, 0, 1}, {FN_EI2D, {35.0, 1.2}, 0, 1}, {FN_EIC1D, {35.0}, 0, 1},
    {FN_EIC2D, {35.0}, 0, 1}, {FN_ACOSD, {0.385}, 0, 0}, {FN_ASIND, {0.385}, 0, 0},
    {FN_ATAND, {2.385}, 0, 0}, {FN_COSD, {23.85}, 0, 0}, {FN_SIND, {23.85}, 0, 0},
    {FN_TAND, {23.85}, 0, 0}, {FN_COTD, {23.85}, 0, 0}, {FN_HAVD, {23.85}, 0, 0},
    {FN_SECD, {23.85}, 0, 0}, {FN_CSCD, {23.85}, 0, 0}, {FN_RTOPAD, {1.2, -0.7}, 0, 0},
    {FN_PTORXD, {23.85, 2.5}, 0, 0}, {FN_PTORYD, {23.85, 2.5}, 0, 0}, {FN_PTOCD, {123.85}, 0, 0},
    {FN_CTOPD, {326.15}, 0, 0},
};

double f(uint8_t code, std::vector<double> a) {
  a.resize(4, 0.0);
  uint8_t fail = 0;
  double bad = 0;
  const double v = fncompute(code, a.data(), FNRUN, &fail, &bad);
  EXPECT_EQ(fail, BF_NONE) << static_cast<int>(code);
  return v;
}

double central(uint8_t code, const std::vector<double>& a, int k, double h) {
  std::vector<double> up = a, dn = a;
  up[k] += h;
  dn[k] -= h;
  return (f(code, up) - f(code, dn)) / (2 * h);
}

TEST(Derivatives, EveryRuleAgreesWithDifferences) {
  bool seen[FN_GAMMP + 1] = {};
  for (const Case& c : CASES) {
    degrees = c.deg;
    const double value = f(c.code, c.args);
    std::vector<double> d(4, -99.0), args = c.args;
    args.resize(4, 0.0);
    const uint32_t norule = fnderiv(c.code, args.data(), static_cast<int>(c.args.size()), value, d.data());
    EXPECT_EQ(norule, c.norule) << static_cast<int>(c.code);
    for (int k = 0; k < static_cast<int>(c.args.size()); ++k) {
      if (norule & (1u << k)) continue;
      const double h = 1e-5 * (c.args[k] != 0.0 ? std::fabs(c.args[k]) : 1.0);
      const double diff = (4 * central(c.code, c.args, k, h / 2) - central(c.code, c.args, k, h)) / 3;
      const double scale = std::max({std::fabs(diff), 1e-3 * std::fabs(value), 1e-12});
      EXPECT_LE(std::fabs(d[k] - diff), 1e-7 * scale)
          << "code " << static_cast<int>(c.code) << " argument " << k << " at " << c.args[0]
          << (c.deg ? " degrees" : "") << ": rule " << d[k] << ", difference " << diff;
    }
    seen[c.code] = true;
  }
  degrees = 0;
  for (int code = 1; code <= FN_GAMMP; ++code) {
    if (code == FN_RANDOM || code == FN_PRINTF || code == FN_RETURN || code == FN_ERF || code == FN_PAREA ||
        code == FN_BETAI || code == FN_GAMMP)
      continue;  // no arguments, no values of their own, or below
    EXPECT_TRUE(seen[code]) << "no derivative test for code " << code;
  }
}

// The iterative functions: their rules are the exact derivatives of what
// they approximate (mpmath: d erf = 2/sqrt(pi) e^-x^2, the normal density,
// the incomplete beta's and gamma's integrands).
TEST(Derivatives, IterativeFunctionsHaveTheExactRules) {
  struct Exact {
    uint8_t code;
    std::vector<double> args;
    int k;
    double want;  // python3, mpmath at 30 digits
    uint32_t norule;
  } cases[] = {
      {FN_ERF, {0.385}, 0, 0.972930369193343881988663616702, 0},
      {FN_PAREA, {1.385}, 0, 0.152887788799253690249617110139, 0},
      {FN_BETAI, {0.385, 2.5, 3.5}, 0, 1.9246320853535564699899038209, 6},
      {FN_GAMMP, {2.5, 1.385}, 1, 0.306930892986268573969876758351, 1},
  };
  for (const Exact& c : cases) {
    const double value = f(c.code, c.args);
    std::vector<double> d(4, -99.0), args = c.args;
    args.resize(4, 0.0);
    EXPECT_EQ(fnderiv(c.code, args.data(), static_cast<int>(c.args.size()), value, d.data()), c.norule);
    EXPECT_NEAR(d[c.k], c.want, 1e-6 * std::fabs(c.want)) << static_cast<int>(c.code);
    const double h = 1e-3;
    EXPECT_NEAR(central(c.code, c.args, c.k, h), c.want, 1e-2 * std::fabs(c.want)) << static_cast<int>(c.code);
  }
}

}  // namespace
}  // namespace vexor::test
