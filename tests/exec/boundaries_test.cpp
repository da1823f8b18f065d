// Every built-in with a comparison or a domain limit, at the limit, just
// inside it and just outside it ("just" meaning the neighbouring double,
// where the function's own arithmetic lets one reach it).  A wrong
// comparison (< for <=, a limit one off) changes one of these cases.
//
// Reference values: python3 with mpmath 1.3.0 at 30 digits (exp, Gamma,
// log-gamma, the elliptic and Bessel functions, Chebyshev polynomials), and
// python3's own doubles for the products and roundings that decide a case
// (90 * 0.0174532925199433 against its neighbours, 0.49999999999999994 +
// 0.5 == 1.0, the neighbour of 1e-10 / 0.0174532925199433).
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "exectest.h"

namespace vexor::test {
namespace {

const double TINY = std::numeric_limits<double>::denorm_min();
double below(double x) { return std::nextafter(x, -INFINITY); }
double above(double x) { return std::nextafter(x, INFINITY); }

class Boundaries : public ExecTest {
 protected:
  // The value of a run-time call that must not fail.
  double ok(uint8_t code, std::initializer_list<double> args, int deg = 0) {
    degrees = deg;
    lstclear();
    errflag = stopflag = 0;
    const double v = runcall(code, args);
    EXPECT_EQ(errflag, 0);
    EXPECT_EQ(listing(), "");
    degrees = 0;
    return v;
  }
  // The listing of a run-time call that must fail (it yields 0.0).
  std::string fails(uint8_t code, std::initializer_list<double> args, int deg = 0) {
    degrees = deg;
    lstclear();
    errflag = stopflag = 0;
    EXPECT_EQ(runcall(code, args), 0.0);
    EXPECT_EQ(errflag, 1);
    degrees = 0;
    return listing();
  }
};

TEST_F(Boundaries, InverseCosineAndSineTakeMinusOneToOne) {
  EXPECT_EQ(ok(FN_ACOS, {1.0}), 0.0);
  EXPECT_EQ(ok(FN_ACOS, {-1.0}), 3.141592653589793);
  EXPECT_EQ(ok(FN_ACOS, {-1.0}, 1), 180.0);
  EXPECT_EQ(ok(FN_ASIN, {1.0}), 1.5707963267948966);
  EXPECT_EQ(ok(FN_ASIN, {-1.0}, 1), -90.0);
  EXPECT_EQ(ok(FN_ASIND, {1.0}), 90.0);
  EXPECT_EQ(ok(FN_ACOSD, {-1.0}), 180.0);
  EXPECT_EQ(ok(FN_ACOS, {below(1.0)}), std::acos(below(1.0)));
  EXPECT_EQ(ok(FN_ASIN, {above(-1.0)}), std::asin(above(-1.0)));
  // Just outside: %lG prints six digits, so the neighbour of 1 reads 1.
  EXPECT_EQ(fails(FN_ACOS, {above(1.0)}), "Error: ACOS argument 1 not in range -1 to 1\r\n");
  EXPECT_EQ(fails(FN_ACOS, {below(-1.0)}), "Error: ACOS argument -1 not in range -1 to 1\r\n");
  EXPECT_EQ(fails(FN_ASIN, {above(1.0)}), "Error: ASIN argument 1 not in range -1 to 1\r\n");
  EXPECT_EQ(fails(FN_ASIN, {below(-1.0)}), "Error: ASIN argument -1 not in range -1 to 1\r\n");
  EXPECT_EQ(fails(FN_ACOSD, {above(1.0)}), "Error: ACOSD argument 1 not in range -1 to 1\r\n");
  EXPECT_EQ(fails(FN_ASIND, {below(-1.0)}), "Error: ASIND argument -1 not in range -1 to 1\r\n");
}

TEST_F(Boundaries, ExponentialBetweenMinus700And500) {
  EXPECT_EQ(ok(FN_EXP, {500.0}), std::exp(500.0));
  EXPECT_EQ(fails(FN_EXP, {above(500.0)}), "Error: Argument to exp function is too large (500)\r\n");
  // -700 itself is computed; only below it is the value 0 without a call.
  EXPECT_NEAR(ok(FN_EXP, {-700.0}), 9.85967654375977085670537294785e-305, 1e-319);
  EXPECT_GT(ok(FN_EXP, {-700.0}), 0.0);
  EXPECT_EQ(ok(FN_EXP, {below(-700.0)}), 0.0);
}

TEST_F(Boundaries, LogarithmsNeedAPositiveArgument) {
  EXPECT_EQ(ok(FN_LN, {TINY}), -744.4400719213812);
  EXPECT_EQ(ok(FN_LOG10, {TINY}), std::log10(TINY));
  EXPECT_NEAR(ok(FN_LOG2, {TINY}), -1074.0, 1e-12);
  EXPECT_EQ(fails(FN_LN, {0.0}), "Error: Attempt to take log of zero or negative: 0\r\n");
  EXPECT_EQ(fails(FN_LN, {-0.0}), "Error: Attempt to take log of zero or negative: -0\r\n");
  EXPECT_EQ(fails(FN_LOG10, {-TINY}), "Error: Attempt to take log of zero or negative: -4.94066E-324\r\n");
  EXPECT_EQ(fails(FN_LOG2, {0.0}), "Error: attempt to take log2 of zero or negative: 0\r\n");
}

TEST_F(Boundaries, SquareRootOfZeroButNotBelow) {
  EXPECT_EQ(ok(FN_SQRT, {0.0}), 0.0);
  const double negzero = ok(FN_SQRT, {-0.0});  // -0 is not below 0
  EXPECT_EQ(negzero, 0.0);
  EXPECT_TRUE(std::signbit(negzero));
  EXPECT_EQ(fails(FN_SQRT, {-TINY}), "Error: Attempt to take square root of negative number: -4.94066E-324\r\n");
}

TEST_F(Boundaries, TangentFailsAtHalfPiOnly) {
  const double halfpi = 1.5707963267948966;
  EXPECT_EQ(fails(FN_TAN, {halfpi}), "Error: TAN function argument = 90 degrees\r\n");
  EXPECT_GT(ok(FN_TAN, {below(halfpi)}), 1e15);
  EXPECT_LT(ok(FN_TAN, {above(halfpi)}), -1e15);
  // In degrees the argument's product with 0.0174532925199433 is compared
  // with 90's: both neighbours of 90 give other products, so no error.
  EXPECT_EQ(fails(FN_TAN, {90.0}, 1), "Error: TAN function argument = 90 degrees\r\n");
  EXPECT_GT(ok(FN_TAN, {below(90.0)}, 1), 1e15);
  EXPECT_LT(ok(FN_TAN, {above(90.0)}, 1), -1e15);
  EXPECT_EQ(fails(FN_TAND, {90.0}), "Error: TAND function argument = 90 degrees\r\n");
  EXPECT_GT(ok(FN_TAND, {below(90.0)}), 1e15);
  EXPECT_LT(ok(FN_TAND, {above(90.0)}), -1e15);
  // Under radians 90 is just an angle.
  EXPECT_EQ(ok(FN_TAN, {90.0}), std::tan(90.0));
}

TEST_F(Boundaries, CotangentIsZeroWithin1e10OfAMultipleOfHalfPi) {
  // |fmod(x, pi/2)| < 1e-10 gives 0; 1e-10 itself does not.
  EXPECT_EQ(ok(FN_COT, {below(1e-10)}), 0.0);
  EXPECT_EQ(ok(FN_COT, {-below(1e-10)}), 0.0);
  EXPECT_EQ(ok(FN_COT, {1e-10}), 1.0 / std::tan(1e-10));
  EXPECT_EQ(ok(FN_COT, {-1e-10}), 1.0 / std::tan(-1e-10));
  EXPECT_EQ(ok(FN_COT, {1.5707963267948966}), 0.0);
  // COTD: the product with 0.0174532925199433 decides.  5.72957795130823e-9
  // gives 9.999999999999998e-11, its upper neighbour 1e-10 exactly.
  EXPECT_EQ(ok(FN_COTD, {5.72957795130823e-09}), 0.0);
  const double x = 5.729577951308231e-09;
  EXPECT_EQ(ok(FN_COTD, {x}), 1.0 / std::tan(x * 0.0174532925199433));
  EXPECT_EQ(ok(FN_COT, {5.72957795130823e-09}, 1), 0.0);
}

TEST_F(Boundaries, StepAndPulseIncludeTheirEdges) {
  EXPECT_EQ(ok(FN_STEP, {2.0, 2.0}), 1.0);
  EXPECT_EQ(ok(FN_STEP, {below(2.0), 2.0}), 1.0);
  EXPECT_EQ(ok(FN_STEP, {above(2.0), 2.0}), 0.0);
  EXPECT_EQ(ok(FN_PULSE, {1.0, 1.0, 3.0}), 1.0);
  EXPECT_EQ(ok(FN_PULSE, {1.0, 3.0, 3.0}), 1.0);
  EXPECT_EQ(ok(FN_PULSE, {2.0, 2.0, 2.0}), 1.0);
  EXPECT_EQ(ok(FN_PULSE, {1.0, below(1.0), 3.0}), 0.0);
  EXPECT_EQ(ok(FN_PULSE, {1.0, above(3.0), 3.0}), 0.0);
}

TEST_F(Boundaries, MaxMinAndSelAtEquality) {
  // At equality MAX and MIN give their first argument and SEL its fourth;
  // the signed zeros, equal but told apart by their sign, show which.
  EXPECT_FALSE(std::signbit(ok(FN_MAX, {0.0, -0.0})));
  EXPECT_TRUE(std::signbit(ok(FN_MAX, {-0.0, 0.0})));
  EXPECT_FALSE(std::signbit(ok(FN_MIN, {0.0, -0.0})));
  EXPECT_TRUE(std::signbit(ok(FN_MIN, {-0.0, 0.0})));
  EXPECT_EQ(ok(FN_SEL, {1.0, 1.0, 10.0, 20.0}), 20.0);
  EXPECT_EQ(ok(FN_SEL, {1.0, above(1.0), 10.0, 20.0}), 10.0);
  EXPECT_EQ(ok(FN_MAX, {1.0, above(1.0)}), above(1.0));
  EXPECT_EQ(ok(FN_MIN, {1.0, below(1.0)}), below(1.0));
}

TEST_F(Boundaries, GammaTakesMinus4To170) {
  // At -4 the truncated series of 1/Gamma does not vanish: the value is
  // the one FAC(-5) gives (the series summed by mpmath at 40 digits).
  EXPECT_NEAR(ok(FN_GAMMA, {-4.0}), 1.6297073459533969507, 1e-10 * 1.63);
  EXPECT_NEAR(ok(FN_GAMMAI, {-4.0}), 1.0 / 1.6297073459533969507, 1e-10);
  EXPECT_NEAR(ok(FN_GAMMA, {170.0}), 4.2690680090047052749e+304, 2e-8 * 4.27e304);
  EXPECT_NEAR(ok(FN_GAMMAI, {170.0}), 2.3424316452460099975e-305, 2e-8 * 2.35e-305);
  EXPECT_EQ(fails(FN_GAMMA, {below(-4.0)}), "Error: Gamma function argument out of range: -4\r\n");
  EXPECT_EQ(fails(FN_GAMMA, {above(170.0)}), "Error: Gamma function argument out of range: 170\r\n");
  EXPECT_EQ(fails(FN_GAMMAI, {below(-4.0)}), "Error: Gammai function argument out of range: -4\r\n");
  EXPECT_EQ(fails(FN_GAMMAI, {above(170.0)}), "Error: Gammai function argument out of range: 170\r\n");
}

TEST_F(Boundaries, FactorialTakesMinus5To169AtRunTime) {
  EXPECT_NEAR(ok(FN_FAC, {169.0}), 4.2690680090047052749e+304, 2e-8 * 4.27e304);
  EXPECT_NEAR(ok(FN_FAC, {-5.0}), 1.6297073459533969507, 1e-10 * 1.63);
  EXPECT_EQ(fails(FN_FAC, {above(169.0)}), "Error: Factorial function argument out of range: 169\r\n");
  EXPECT_EQ(fails(FN_FAC, {below(-5.0)}), "Error: Factorial function argument out of range: -5\r\n");
}

TEST_F(Boundaries, FactorialTakesMinus4To170WhenFolded) {
  double args[1];
  uint8_t fail = 0;
  double bad = 0;
  args[0] = 170.0;
  EXPECT_NEAR(fncompute(FN_FAC, args, FNFOLD, &fail, &bad), 7.2574156153079989674e+306, 2e-8 * 7.26e306);
  EXPECT_EQ(fail, BF_NONE);
  args[0] = -4.0;  // 1 / rgamma(-3): finite, like the run time's -5
  EXPECT_TRUE(std::isfinite(fncompute(FN_FAC, args, FNFOLD, &fail, &bad)));
  EXPECT_EQ(fail, BF_NONE);
  for (double x : {above(170.0), below(-4.0)}) {
    args[0] = x;
    EXPECT_EQ(fncompute(FN_FAC, args, FNFOLD, &fail, &bad), 0.0);
    EXPECT_STREQ(fncomptext(fail), "Invalid argument to factorial function");
  }
  // The run time's range is not the compile time's: 170 and -4.5 fail there
  // only.
  EXPECT_EQ(fails(FN_FAC, {170.0}), "Error: Factorial function argument out of range: 170\r\n");
  args[0] = -4.5;
  fncompute(FN_FAC, args, FNFOLD, &fail, &bad);
  EXPECT_EQ(fail, BF_FACRANGE);
  EXPECT_TRUE(std::isfinite(ok(FN_FAC, {-4.5})));
}

TEST_F(Boundaries, BesselOfTheSecondKindNeedsAPositiveArgument) {
  EXPECT_NEAR(ok(FN_Y0, {TINY}), -473.999073423004309840862760117, 1e-12 * 474);
  EXPECT_TRUE(std::isinf(ok(FN_Y1, {TINY})));  // -infinity, the library's value
  EXPECT_LT(ok(FN_YN, {2.0, 1e-300}), -1e300);
  EXPECT_EQ(fails(FN_Y0, {-0.0}), "Error: Argument to Y0 function is negative or zero: -0\r\n");
  EXPECT_EQ(fails(FN_Y1, {0.0}), "Error: Argument to Y1 function is negative or zero: 0\r\n");
  EXPECT_EQ(fails(FN_YN, {2.0, -TINY}), "Error: Argument to YN function is negative or zero: -4.94066E-324\r\n");
  EXPECT_EQ(fails(FN_YN, {2.0, 0.0}), "Error: Argument to YN function is negative or zero: 0\r\n");
}

TEST_F(Boundaries, BesselOrdersAreTruncatedTowardZero) {
  const double x = 2.385;
  EXPECT_EQ(ok(FN_JN, {-0.9, x}), ok(FN_J0, {x}));
  EXPECT_EQ(ok(FN_JN, {0.9, x}), ok(FN_J0, {x}));
  EXPECT_EQ(ok(FN_JN, {below(2.0), x}), ok(FN_J1, {x}));
  EXPECT_NEAR(ok(FN_JN, {2.0, x}), 0.428542254217880494442464223428, 1e-14);
  EXPECT_NEAR(ok(FN_JN, {-2.9, x}), 0.428542254217880494442464223428, 1e-14);  // J(-2) = J(2)
  EXPECT_NEAR(ok(FN_YN, {-1.5, x}), -0.0934295826863938377987599022682, 1e-14);  // Y(-1) = -Y(1)
  EXPECT_EQ(ok(FN_YN, {below(1.0), x}), ok(FN_Y0, {x}));
}

TEST_F(Boundaries, ChebyshevOrderZeroUpAndTheFormsMeetAtFour) {
  // A negative order fails only when it truncates below zero.
  EXPECT_EQ(ok(FN_CHEBY, {-0.9, 0.3}), 1.0);
  EXPECT_EQ(ok(FN_CHEBY, {0.0, 0.3}), 1.0);
  EXPECT_EQ(fails(FN_CHEBY, {-1.0, 0.3}), "Error: Arg 1 (order) negative for Chebyshev function: -1\r\n");
  // Order 4 is written out, order 5 the first by the recursion.
  EXPECT_NEAR(ok(FN_CHEBY, {4.0, 0.3}), 0.344800000000000043698378249246, 1e-15);
  EXPECT_NEAR(ok(FN_CHEBY, {5.0, 0.3}), 0.99887999999999999724664689893, 1e-15);
  EXPECT_NEAR(ok(FN_CHEBY, {below(5.0), 0.3}), 0.344800000000000043698378249246, 1e-15);
}

TEST_F(Boundaries, IncompleteBetaTakesXFrom0To1AndPositiveShapes) {
  EXPECT_EQ(ok(FN_BETAI, {0.0, 2.5, 3.5}), 0.0);
  EXPECT_EQ(ok(FN_BETAI, {1.0, 2.5, 3.5}), 1.0);
  EXPECT_TRUE(std::isfinite(ok(FN_BETAI, {0.5, 1e-300, 3.5})));
  EXPECT_TRUE(std::isfinite(ok(FN_BETAI, {0.5, 2.5, 1e-300})));
  EXPECT_EQ(fails(FN_BETAI, {above(1.0), 2.5, 3.5}), "Error: Invalid x value for BETAI function: 1\r\n");
  EXPECT_EQ(fails(FN_BETAI, {-TINY, 2.5, 3.5}), "Error: Invalid x value for BETAI function: -4.94066E-324\r\n");
  EXPECT_EQ(fails(FN_BETAI, {0.5, 0.0, 3.5}), "Error: Invalid a argument for BETAI function: 0\r\n");
  EXPECT_EQ(fails(FN_BETAI, {0.5, 2.5, -0.0}), "Error: Invalid b argument for BETAI function: -0\r\n");
}

TEST_F(Boundaries, LogGammaAndIncompleteGammaAtZero) {
  EXPECT_NEAR(ok(FN_GAMMALN, {1e-6}), 13.815509980749431669207826871, 1e-8);
  // The approximation starts from y = x - 1, which loses an x below about
  // 1e-16 entirely: y + 1 is then 0 and the series' first term infinite.
  // No error, the value is +infinity.
  EXPECT_EQ(ok(FN_GAMMALN, {1e-300}), INFINITY);
  EXPECT_EQ(fails(FN_GAMMALN, {0.0}), "Error: Invalid argument to gammln function: 0\r\n");
  EXPECT_EQ(fails(FN_GAMMALN, {-TINY}), "Error: Invalid argument to gammln function: -4.94066E-324\r\n");
  // P(a, 0) is 0; a must be above 0 and x at least 0 (-0 is not below it).
  EXPECT_EQ(ok(FN_GAMMP, {2.5, 0.0}), 0.0);
  EXPECT_EQ(ok(FN_GAMMP, {2.5, -0.0}), 0.0);
  EXPECT_EQ(fails(FN_GAMMP, {2.5, -TINY}), "Error: Invalid arguments for gammp function\r\n");
  EXPECT_EQ(fails(FN_GAMMP, {-0.0, 1.0}), "Error: Invalid arguments for gammp function\r\n");
  EXPECT_TRUE(std::isfinite(ok(FN_GAMMP, {1e-300, 1.0})));
}

TEST_F(Boundaries, CompleteEllipticOfTheFirstKindNeedsKBelowOne) {
  // sin(1.5707963) = 0.9999999999999997 in doubles, so m = 1 - s^2 =
  // 6.661338147750939e-16 > 0: the largest K this argument reaches.
  EXPECT_NEAR(ok(FN_EIC1, {1.5707963}), 18.8588149113444167920750028464, 1e-8);
  EXPECT_EQ(fails(FN_EIC1, {1.5707963267948966}), "Error: Error: Invalid argument to EIC1 function: 0\r\n");
  EXPECT_EQ(fails(FN_EIC1, {90.0}, 1), "Error: Error: Invalid argument to EIC1 function: 0\r\n");
  // The second kind takes m = 0: E(k = 1) = 1, with kc raised to 1e-15.
  EXPECT_NEAR(ok(FN_EIC2, {1.5707963267948966}), 1.0, 1e-12);
  EXPECT_NEAR(ok(FN_EIC2D, {90.0}), 1.0, 1e-12);
  // The incomplete integral at k = 1 below the amplitude limit: kc is
  // raised to 1e-14, F(1 | k = 1) = atanh(sin 1).
  EXPECT_NEAR(ok(FN_EI1, {1.5707963267948966, 1.0}), 1.22619117088351707081306096747, 1e-10);
}

TEST_F(Boundaries, RoundAddsAHalfAndTakesTheFloor) {
  EXPECT_EQ(ok(FN_ROUND, {0.5}), 1.0);
  EXPECT_EQ(ok(FN_ROUND, {-0.5}), -1.0);
  // 0.49999999999999994 + 0.5 rounds to 1.0 in doubles, so the rule gives
  // 1 (where a correctly rounding round would give 0).
  EXPECT_EQ(ok(FN_ROUND, {below(0.5)}), 1.0);
  EXPECT_EQ(ok(FN_ROUND, {-below(0.5)}), -1.0);
  EXPECT_EQ(ok(FN_ROUND, {below(0.25)}), 0.0);
  EXPECT_EQ(ok(FN_FLOOR, {-TINY}), -1.0);
  EXPECT_EQ(ok(FN_CEIL, {TINY}), 1.0);
}

}  // namespace
}  // namespace vexor::test
