// Fit statistics with their guards and deliberate asymmetries.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "analysis/analysis.h"

namespace vexor {
namespace {

TEST(FitStats, PerfectFit) {
  std::vector<double> y{1.5, 2.25, 4.125, 3.0};
  ResidualStats r = fitstats(y.data(), y.data(), 4, 2);
  EXPECT_EQ(r.sse, 0.0);
  EXPECT_EQ(r.rsquare, 1.0);
  EXPECT_EQ(r.durbinwatson, 0.0);
  EXPECT_EQ(r.oneside, 0);  // every residual counts on both sides
}

TEST(FitStats, OneSideFlag) {
  std::vector<double> y{1.0, 2.0, 3.0}, yh{0.5, 1.5, 2.5};
  EXPECT_EQ(fitstats(y.data(), yh.data(), 3, 1).oneside, 1);
  std::vector<double> y2{1.0, 2.0, 3.0 + 1e-10}, yh2{0.5, 1.5, 3.0};
  EXPECT_EQ(fitstats(y2.data(), yh2.data(), 3, 1).oneside, 0);
}

TEST(FitStats, RSquareClampedButAdjustedNot) {
  std::vector<double> y{1.0, 2.0, 3.0, 4.0}, yh{4.0, 3.0, 2.0, 1.0};
  ResidualStats r = fitstats(y.data(), yh.data(), 4, 2);
  EXPECT_GT(r.sse, r.stot);
  EXPECT_EQ(r.rsquare, 0.0);
  EXPECT_LT(r.adjrsquare, 0.0);
  EXPECT_DOUBLE_EQ(r.adjrsquare, 1 - (3.0 / 2.0) * (20.0 / 5.0));
  EXPECT_EQ(r.regss, 0.0);
}

TEST(FitStats, ConstantDependentVariable) {
  std::vector<double> y{2.5, 2.5, 2.5}, yh{2.0, 3.0, 2.5};
  ResidualStats r = fitstats(y.data(), yh.data(), 3, 1);
  EXPECT_EQ(r.stot, 0.0);
  EXPECT_EQ(r.rsquare, 0.0);
  EXPECT_EQ(r.adjrsquare, 0.0);
  EXPECT_FALSE(anova(r.regss, r.sse, r.stot, 3, 1).shown);
}

TEST(FitStats, SumsAndDurbinWatson) {
  std::vector<double> y{1.0, 3.0, 2.0, 5.0}, yh{1.5, 2.0, 2.5, 4.0};
  // residuals -0.5, 1, -0.5, 1
  ResidualStats r = fitstats(y.data(), yh.data(), 4, 2);
  EXPECT_DOUBLE_EQ(r.sse, 2.5);
  EXPECT_DOUBLE_EQ(r.sumdev, 1.0);
  EXPECT_DOUBLE_EQ(r.avgdev, 0.75);
  EXPECT_DOUBLE_EQ(r.maxdev, 1.0);
  EXPECT_DOUBLE_EQ(r.durbinwatson, (2.25 * 3) / 2.5);
  EXPECT_DOUBLE_EQ(r.stot, 39.0 - 121.0 / 4);
}

TEST(FitStats, NEqualsP) {
  std::vector<double> y{1.0, 3.0}, yh{1.5, 2.0};
  ResidualStats r = fitstats(y.data(), yh.data(), 2, 2);
  EXPECT_EQ(r.adjrsquare, 0.0);
  Anova a = anova(r.regss, r.sse, r.stot, 2, 2);
  EXPECT_TRUE(a.shown);
  EXPECT_FALSE(a.full);
}

TEST(ParmStats, ZeroStandardError) {
  ParmStats s = parmstats(2.5, 0.0, 10);
  EXPECT_EQ(s.tval, 1e30);
  EXPECT_EQ(s.pval, 1e-5);
}

TEST(ParmStats, TwoSidedProbability) {
  // t = 2.228 with 10 degrees of freedom is the 97.5% point: Prob(t) ~ 0.05.
  ParmStats s = parmstats(2.228, 1.0, 10);
  EXPECT_DOUBLE_EQ(s.stderror, 1.0);
  EXPECT_NEAR(s.pval, 0.05, 2e-4);
}

TEST(Anova, FullTable) {
  Anova a = anova(90.0, 10.0, 100.0, 12, 3);
  EXPECT_TRUE(a.shown);
  EXPECT_TRUE(a.full);
  EXPECT_EQ(a.regdf, 2);
  EXPECT_EQ(a.errdf, 9);
  EXPECT_DOUBLE_EQ(a.regms, 45.0);
  EXPECT_DOUBLE_EQ(a.f, 45.0 / (10.0 / 9.0));
  // With 2 numerator degrees of freedom the upper tail is
  // (1 + F * 2 / 9)^(-9/2) = 10^(-4.5) here.
  EXPECT_NEAR(a.probf, std::pow(10.0, -4.5), 1e-10);
  EXPECT_EQ(anova(99.0, 1.0, 100.0, 12, 3).probf, 1e-5);  // floored
  EXPECT_FALSE(anova(90.0, 10.0, 100.0, 12, 1).shown);  // p = 1: no table
}

TEST(ColumnStats, OneObservation) {
  double d[] = {4.5};
  ColumnStats c = colstats(d, 1, 1, 0);
  EXPECT_EQ(c.sd, 0.0);
  EXPECT_EQ(c.mean, 4.5);
}

TEST(ColumnStats, SampleStandardDeviation) {
  double d[] = {1, 10, 2, 20, 3, 30, 4, 40};  // two columns
  ColumnStats c = colstats(d, 4, 2, 1);
  EXPECT_EQ(c.min, 10.0);
  EXPECT_EQ(c.max, 40.0);
  EXPECT_EQ(c.mean, 25.0);
  EXPECT_DOUBLE_EQ(c.sd, std::sqrt(500.0 / 3.0));
}

}  // namespace
}  // namespace vexor
