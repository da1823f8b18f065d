// The special functions against independently computed values.
//
// Reference values: python3 with mpmath 1.3.0 at 30 digits (loggamma,
// rgamma, gammainc(regularized), betainc(regularized), erf, ncdf, ellipf,
// ellipe, ellipk, ellippi, and findroot on the t probability for tinv); the
// t probability was also checked by numerical integration of the density.
// Tolerances are those the specified algorithms give: the iterations of
// gser, gcf and betacf stop at a relative change of 3e-7, the six-term
// Lanczos form of gammln is good to about 2e-10, the reciprocal gamma series
// with the 16-decimal table coefficients to about 2e-8 relative near x = 2,
// and Bulirsch's el2 and cel to double precision.
#include <cmath>

#include <gtest/gtest.h>

#include "builtins/builtins.h"
#include "kit/kit.h"

namespace vexor::test {
namespace {

using kit::listing;

// The routines write nothing: every test starts and ends with an empty
// Listing, in radians.
class SpecfunTest : public ::testing::Test {
 protected:
  void SetUp() override {
    lstclear();
    degrees = 0;
  }
  void TearDown() override { lstclear(); }
};

TEST_F(SpecfunTest, GammlnOfOneAndTwoIsZero) {
  EXPECT_NEAR(gammln(1.0), 0.0, 1e-10);
  EXPECT_NEAR(gammln(2.0), 0.0, 1e-10);
}

TEST_F(SpecfunTest, GammlnValues) {
  EXPECT_NEAR(gammln(2.385), 0.20712390650750364, 2e-10);
  EXPECT_NEAR(gammln(0.385), 0.83593571156255476, 2e-10);
  EXPECT_NEAR(gammln(37.5), 97.521775222888204, 2e-9);
}

TEST_F(SpecfunTest, ReciprocalGamma) {
  EXPECT_NEAR(rgamma(0.385), 0.43346868994551778, 1e-12);
  EXPECT_NEAR(rgamma(0.5), 0.5641895835477563, 1e-12);  // 1/sqrt(pi)
  // Reduced from 3.385 to 1.385: 1/Gamma(3.385) = 1/1.2301349840677545/2.385.
  EXPECT_NEAR(rgamma(3.385) * 1.2301349840677545 * 2.385, 1.0, 1e-7);
  // Exact zeros of the series at 0 (a pole of Gamma).
  EXPECT_EQ(rgamma(0.0), 0.0);
  // 1/Gamma(-1.385) = 1/2.7301046518716061.
  EXPECT_NEAR(rgamma(-1.385), 1.0 / 2.7301046518716061, 1e-9);
}

TEST_F(SpecfunTest, IncompleteGamma) {
  EXPECT_NEAR(gammp(2.5, 1.385), 0.26460681613876284, 3e-7);  // series
  EXPECT_NEAR(gammp(2.5, 4.385), 0.88140269378304226, 3e-7);  // continued fraction
  EXPECT_NEAR(gser(2.5, 1.385), 0.26460681613876284, 3e-7);
  EXPECT_NEAR(gcf(2.5, 4.385), 1.0 - 0.88140269378304226, 3e-7);
  EXPECT_EQ(gammp(2.5, 0.0), 0.0);
  EXPECT_EQ(listing(), "");
}

// The routines' failures come back as codes, with the value their message
// shows; they write nothing themselves (the interpreter reports them with
// the line, through the texts of fnruntext).
TEST_F(SpecfunTest, IncompleteGammaRejectsBadArguments) {
  SpecFail f;
  EXPECT_EQ(gammp(0.0, 1.0, &f), 0.0);
  EXPECT_EQ(f.code, BF_GAMMP);
  EXPECT_STREQ(fnruntext(f.code), "Invalid arguments for gammp function");
  EXPECT_EQ(listing(), "");
}

TEST_F(SpecfunTest, GserRejectsNegativeX) {
  SpecFail f;
  EXPECT_EQ(gser(1.5, -0.25, &f), 0.0);
  EXPECT_EQ(f.code, BF_GSERNEG);
  EXPECT_EQ(f.bad, -0.25);
  EXPECT_STREQ(fnruntext(f.code), "x is negative in gser: %lG\n");
}

TEST_F(SpecfunTest, GserExhaustsItsTerms) {
  // a = x = 1e6 needs far more than 400 terms.
  SpecFail f;
  EXPECT_EQ(gser(1e6, 1e6, &f), 0.0);
  EXPECT_EQ(f.code, BF_GSERITER);
  EXPECT_STREQ(fnruntext(f.code), "a too large or itmax too small in routine gser\n");
}

TEST_F(SpecfunTest, GcfExhaustsItsIterations) {
  SpecFail f;
  EXPECT_EQ(gcf(1e7, 1e7 + 2, &f), 0.0);
  EXPECT_EQ(f.code, BF_GCFITER);
  EXPECT_STREQ(fnruntext(f.code), "a too large, itmax too small in gcf\n");
}

TEST_F(SpecfunTest, IncompleteBeta) {
  EXPECT_NEAR(betai(2.5, 3.5, 0.385), 0.45808920507923009, 1e-6);
  EXPECT_NEAR(betai(2.5, 3.5, 0.85), 0.99157530865886291, 1e-6);
  EXPECT_EQ(betai(2.5, 3.5, 1.5), -1.0);
  EXPECT_EQ(betai(2.5, 3.5, -0.5), -1.0);
}

TEST_F(SpecfunTest, IncompleteBetaAtTheEnds) {
  for (double a : {0.5, 2.385, 7.0})
    for (double b : {0.5, 1.75, 12.0}) {
      EXPECT_EQ(betai(a, b, 0.0), 0.0);
      EXPECT_EQ(betai(a, b, 1.0), 1.0);
    }
}

TEST_F(SpecfunTest, ErrorFunctionAndNormalArea) {
  EXPECT_NEAR(erf1(0.385), 0.41388344109406071, 3e-7);
  EXPECT_NEAR(erf1(1.9), 0.99279042923525747, 3e-7);
  EXPECT_NEAR(parea(1.385), 0.91697376631753674, 3e-7);
  EXPECT_NEAR(parea(-0.7), 0.24196365222307303, 3e-7);
  EXPECT_EQ(parea(0.0), 0.5);
  for (double x : {0.1, 0.385, 1.2, 2.7}) EXPECT_EQ(erf1(-x), -erf1(x));
}

TEST_F(SpecfunTest, StudentT) {
  EXPECT_NEAR(tprob(2.385, 7), 0.97573794114637093, 1e-6);
  EXPECT_NEAR(tprob(-2.385, 7), 0.97573794114637093, 1e-6);  // P(T <= |t|)
  for (double df : {1.0, 2.0, 5.0, 17.0, 250.0}) EXPECT_EQ(tprob(0.0, df), 0.5);
}

// The bisection's output is deterministic: the bracket's growth and halving
// are exact operations on doubles, and only the comparisons F(mid) < p
// depend on the t probability.  Each value below is the bisection run in
// python3 on the exact probability (mpmath betainc at 40 digits).  Beside
// each case is the closest any midpoint's probability came to p: the
// engine's t probability would have to be that far off for one branch to
// differ, so the engine must end on the same double.
TEST_F(SpecfunTest, InverseTIsTheBisectionsDouble) {
  const struct {
    double p, nu, t;
  } cases[] = {
      {0.975, 10, 2.228118896484375},    // closest 4.5e-7
      {0.95, 3, 2.353372573852539},      // 1.2e-6
      {0.995, 30, 2.749969482421875},    // 5.3e-8
      {0.975, 1, 12.706235885620117},    // 1.0e-8
      {0.975, 2, 4.302629470825195},     // 1.4e-7
      {0.9, 4, 1.5332183837890625},      // 4.0e-6
      {0.975, 5, 2.570587158203125},     // 7.6e-7
      {0.975, 1000, 1.962310791015625},  // 1.3e-7
      {0.750005, 2, 0.8165435791015625}, // 4.7e-6, below the first bracket
  };
  for (const auto& c : cases) EXPECT_EQ(tinv(c.p, c.nu), c.t) << c.p << " " << c.nu;
}

TEST_F(SpecfunTest, FisherF) {
  EXPECT_NEAR(fprob(3.2, 3, 12), 0.062277550565349628, 1e-6);
}

TEST_F(SpecfunTest, InverseT) {
  // The bisection stops at a bracket width of 0.0001.
  EXPECT_NEAR(tinv(0.975, 10), 2.2281388519862742, 1e-4);
  EXPECT_NEAR(tinv(0.95, 3), 2.3533634348018229, 1e-4);
  EXPECT_NEAR(tinv(0.995, 30), 2.749995653567225, 1e-4);
  EXPECT_NEAR(tinv(0.6, 4), 0.2707222, 1e-4);  // below the first bracket at 2
}

TEST_F(SpecfunTest, InverseTEndsOutsideItsDomain) {
  // No finite answer: the search still ends.
  EXPECT_TRUE(std::isinf(tinv(1.0, 10)) || tinv(1.0, 10) > 1e300);
  EXPECT_NEAR(tinv(0.5, 10), 0.0, 1e-4);
}

TEST_F(SpecfunTest, BulirschCompleteIntegral) {
  // K and E for k = 0.1, 0.9, 0.999999 (mpmath ellipk, ellipe with m = k^2).
  struct Case { double k, kk, ee; } cases[] = {
      {0.1, 1.574745561517356, 1.5668619420216683},
      {0.9, 2.2805491384227703, 1.1716970527816142},
      {0.999999, 7.9474797735424367, 1.0000074474777245},
  };
  for (const Case& c : cases) {
    double kc = std::sqrt(1.0 - c.k * c.k);
    EXPECT_NEAR(cel(kc, 1.0, 1.0, 1.0), c.kk, 1e-14 * c.kk);
    EXPECT_NEAR(cel(kc, 1.0, 1.0, kc * kc), c.ee, 1e-14 * c.ee);
  }
  // Third kind, p = 2.5 and p = -0.5 (principal value), kc = 0.6:
  // cel(kc, p, 1, 1) = Pi(1 - p, k), mpmath ellippi (real part for p < 0).
  EXPECT_NEAR(cel(0.6, 2.5, 1.0, 1.0), 1.193231635772352, 1e-14);
  EXPECT_NEAR(cel(0.6, -0.5, 1.0, 1.0), -0.73406841361793651, 1e-14);
  EXPECT_TRUE(std::isinf(cel(0.0, 1.0, 1.0, 1.0)));
}

TEST_F(SpecfunTest, BulirschIncompleteIntegral) {
  // F(phi, k) and E(phi, k), mpmath ellipf and ellipe with m = k^2.
  struct Case { double k, phi, ff, ee; } cases[] = {
      {0.1, 0.3, 0.30004421437748036, 0.29995579726988381},
      {0.5, 1.0, 1.0373561200021773, 0.96487645426862745},
      {0.9, 1.5, 2.118703576982774, 1.1407282103950198},
      {0.99, -0.7, -0.76368953519704907, -0.64542065164752893},
  };
  for (const Case& c : cases) {
    double kc = std::sqrt(1.0 - c.k * c.k);
    EXPECT_NEAR(el2(std::tan(c.phi), kc, 1.0, 1.0), c.ff, 1e-14);
    EXPECT_NEAR(el2(std::tan(c.phi), kc, 1.0, kc * kc), c.ee, 1e-14);
  }
  EXPECT_EQ(el2(0.0, 0.5, 1.0, 1.0), 0.0);
}

// Student's t to full precision (the tool's bands), against mpmath 1.3.0 at
// 40 digits (regularized incomplete beta, findroot).
TEST_F(SpecfunTest, StudentQuantileToFullPrecision) {
  const struct {
    double p, df, t;
  } cases[] = {
      {0.975, 1, 12.706204736174693314},   {0.975, 9, 2.2621571627982049992},
      {0.995, 3, 5.8409093097333554113},   {0.9, 30, 1.3104150253913957112},
      {0.975, 1e6, 1.9599663568141066553}, {0.6, 2.5, 0.28145951274854759175},
      {0.999999, 5, 24.771029720372488564},
  };
  for (const auto& c : cases) {
    EXPECT_NEAR(studentquantile(c.p, c.df), c.t, 1e-13 * c.t) << c.p << " " << c.df;
    EXPECT_NEAR(studentquantile(1.0 - c.p, c.df), -c.t, 1e-12 * c.t) << c.p << " " << c.df;
  }
  EXPECT_EQ(studentquantile(0.5, 7), 0.0);
  EXPECT_TRUE(std::isnan(studentquantile(0.0, 7)));
  EXPECT_TRUE(std::isnan(studentquantile(1.0, 7)));
  EXPECT_TRUE(std::isnan(studentquantile(0.9, 0)));
}

// The normal quantile against mpmath (sqrt(2) erfinv(2p - 1), 40 digits).
TEST_F(SpecfunTest, NormalQuantileToFullPrecision) {
  const struct {
    double p, z;
  } cases[] = {{0.975, 1.9599639845400538556},  {1e-10, -6.3613409024040561991},
               {0.3, -0.52440051270804081597},  {0.9999999, 5.1993375822906610937},
               {0.02, -2.0537489106318230443}};
  for (const auto& c : cases) EXPECT_NEAR(normalquantile(c.p), c.z, 2e-15 * std::fabs(c.z)) << c.p;
  EXPECT_TRUE(std::isnan(normalquantile(0.0)));
  EXPECT_TRUE(std::isnan(normalquantile(1.0)));
}

TEST_F(SpecfunTest, StudentDistributionFunction) {
  EXPECT_NEAR(studentcdf(2.0, 9), 0.9617235881146494794, 1e-15);
  EXPECT_NEAR(studentcdf(-1.5, 4), 0.104, 1e-15);
  EXPECT_NEAR(studentcdf(0.3, 1), 0.59277357907774234032, 1e-15);
  // Beyond 10,000 degrees of freedom, through the Cornish-Fisher expansion.
  EXPECT_NEAR(studentcdf(2.5, 1e6), 0.9937902552489183769, 1e-15);
  EXPECT_NEAR(studentcdf(-0.7, 5e4), 0.24196528062116269748, 1e-15);
  EXPECT_EQ(studentcdf(INFINITY, 3), 1.0);
  EXPECT_EQ(studentcdf(-INFINITY, 3), 0.0);
  EXPECT_TRUE(std::isnan(studentcdf(NAN, 3)));
  EXPECT_EQ(listing(), "");
}

// Arguments that are not finite end the means at once with NaN (they used
// to keep them going for ever: found by the grammar fuzzer, EIC1 of a
// modular angle whose sine is NaN).
TEST_F(SpecfunTest, EllipticIntegralsOfArgumentsThatAreNotFinite) {
  EXPECT_TRUE(std::isnan(cel(NAN, 1.0, 1.0, 1.0)));
  EXPECT_TRUE(std::isnan(cel(INFINITY, 1.0, 1.0, 1.0)));
  EXPECT_TRUE(std::isnan(el2(NAN, 0.5, 1.0, 1.0)));
  EXPECT_TRUE(std::isnan(el2(1.0, INFINITY, 1.0, 1.0)));
  uint8_t fail = BF_NONE;
  double bad = 0.0;
  EXPECT_TRUE(std::isnan(ellipk(INFINITY, &fail, &bad)));
  // E and F raise their complementary modulus to at least 1e-15 (a NaN
  // one too), so they end with the values near k = 1.
  EXPECT_TRUE(std::isfinite(ellipe(NAN, &fail, &bad)));
  EXPECT_TRUE(std::isfinite(ellipf(NAN, 0.5, 0.5, &fail, &bad)));
  // Finite arguments are as ever: K(sin 30 degrees) and a huge modulus.
  EXPECT_NEAR(ellipk(0.5235987755982988, &fail, &bad), 1.685750354812596, 1e-13);
  EXPECT_TRUE(std::isfinite(cel(1e-300, 1.0, 1.0, 1.0)));
}

}  // namespace
}  // namespace vexor::test
