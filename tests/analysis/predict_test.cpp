// The fitted model at new points and its bands (the delta method): on a
// straight line the central differences are exact, so the bands can be
// written out from the covariance matrix.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "analysis/analysis.h"
#include "api/engine.h"
#include "kit/kit.h"

namespace vexor {
namespace {

const char* const line =
    "VARIABLES x, y;\nPARAMETERS a = 1, b = 1;\nCOVARIANCE;\nFUNCTION y = a + b * x;\n"
    "DATA;\n1 2.9\n2 5.1\n3 7.2\n4 8.8\n5 11.1\n";

class Predict : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kit::compileprog(line), 1) << kit::listing();
    ASSERT_GT(compute(), 0) << kit::listing();
  }
  void TearDown() override { enginereset(); }
};

TEST_F(Predict, TheModelAtAPoint) {
  const double in[] = {7.5, 0.0};
  double v = 0.0;
  char why[100];
  ASSERT_TRUE(evalat(in, &v, why, sizeof why)) << why;
  EXPECT_NEAR(v, parms[0]->value + parms[1]->value * 7.5, 1e-12);
}

TEST_F(Predict, ConfidenceAndPredictionBands) {
  const double c00 = covmat[0], c01 = covmat[1], c11 = covmat[3];
  const double s2 = results.summary.variance;
  const double t = 3.1824463052837084359;  // t(0.975, 3), mpmath
  for (double x : {0.0, 2.5, 9.0}) {
    const double in[] = {x, 0.0};
    const double fit = parms[0]->value + parms[1]->value * x;
    const double se = std::sqrt(c00 + 2 * x * c01 + x * x * c11);
    Prediction p{};
    ASSERT_TRUE(predictat(in, BAND_CONFIDENCE, 0.95, &p)) << p.message;
    EXPECT_NEAR(p.value, fit, 1e-12);
    EXPECT_NEAR(p.se, se, 1e-7 * se);
    EXPECT_NEAR(p.lower, fit - t * se, 1e-7 * se);
    EXPECT_NEAR(p.upper, fit + t * se, 1e-7 * se);
    ASSERT_TRUE(predictat(in, BAND_PREDICTION, 0.95, &p)) << p.message;
    EXPECT_NEAR(p.upper - p.value, t * std::sqrt(se * se + s2), 1e-7 * se);
  }
  // The parameters are as the fit left them.
  const double in[] = {1.0, 0.0};
  double v = 0.0;
  ASSERT_TRUE(evalat(in, &v, nullptr, 0));
  EXPECT_NEAR(v, parms[0]->value + parms[1]->value, 1e-12);
}

TEST_F(Predict, AFailedRunSaysWhyAndLeavesTheListingAlone) {
  ASSERT_EQ(kit::compileprog("VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a * sqrt(x);\n"
                             "DATA;\n1 1\n4 2.1\n9 2.9\n"),
            1);
  ASSERT_GT(compute(), 0);
  const std::string before = kit::listing();
  const double in[] = {-4.0, 0.0};
  Prediction p{};
  EXPECT_FALSE(predictat(in, BAND_NONE, 0.95, &p));
  EXPECT_STREQ(p.message, "Error executing line 3: FUNCTION y = a * sqrt(x);");
  EXPECT_EQ(kit::listing(), before);
}

TEST_F(Predict, NoBandWithoutACovarianceMatrix) {
  ASSERT_EQ(kit::compileprog("VARIABLES x, y;\nPARAMETERS a = 1;\nCONSTRAIN a = 0, 5;\n"
                             "FUNCTION y = a * x;\nDATA;\n1 1\n2 2.1\n3 2.9\n"),
            1);
  ASSERT_GT(compute(), 0);
  const double in[] = {2.0, 0.0};
  Prediction p{};
  EXPECT_FALSE(predictat(in, BAND_CONFIDENCE, 0.95, &p));
  EXPECT_STREQ(p.message, "no covariance matrix of the estimates: the listing says why");
  EXPECT_TRUE(std::isfinite(p.value));
}

TEST_F(Predict, NoProgramOrNoFunctionSaysSo) {
  enginereset();
  const double in[] = {2.0, 0.0};
  double v = 0.0;
  char why[100] = "";
  EXPECT_FALSE(evalat(in, &v, why, sizeof why));
  EXPECT_STREQ(why, "no program has compiled");
  // A run that stops before the FUNCTION statement.
  ASSERT_EQ(kit::compileprog("VARIABLES x, y;\nPARAMETERS a = 1;\nIF (x > 5) STOP;\nFUNCTION y = a * x;\n"
                             "DATA;\n1 1\n2 2.1\n3 2.9\n"),
            1);
  const double far[] = {7.0, 0.0};
  EXPECT_FALSE(evalat(far, &v, why, sizeof why));
  EXPECT_STREQ(why, "Error: FUNCTION statement was not executed.");
  EXPECT_TRUE(evalat(in, &v, why, sizeof why)) << why;
  EXPECT_EQ(v, 2.0);
}

}  // namespace
}  // namespace vexor
