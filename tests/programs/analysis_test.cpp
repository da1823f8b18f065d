// The analysis driver through whole programs: the size check, the
// evaluation limit, SWEEP's grid, minimisation, bounds, the iteration limit
// and a run cancelled through the abort flag.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "api/engine.h"
#include "exec/exec.h"
#include "fit/driver.h"
#include "harness.h"
#include "lang/lang.h"

namespace vexor {
namespace {

using test::compileprog;
using test::listing;

int count(const std::string& text, const std::string& part) {
  int n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(Analysis, EvaluationLimitRule) {
  EXPECT_EQ(evallimit(150), 16000);
  EXPECT_EQ(evallimit(160), 16000);
  EXPECT_EQ(evallimit(199), 16000);  // fewer than 100 per iteration
  EXPECT_EQ(evallimit(200), 20000);
  EXPECT_EQ(evallimit(500), 50000);
  EXPECT_EQ(evallimit(2), 16000);
}

const char* const line3 = "VARIABLES x, y; PARAMETERS a, b, c;\nFUNCTION y = a + b*x + c*x*x;\nDATA;\n";

TEST(Analysis, ObservationsEqualToParametersAreAccepted) {
  ASSERT_EQ(compileprog(std::string(line3) + "1 6.5\n2 11.5\n3 18.5\n"), 1) << listing();
  int r = analyze();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 3.5, 1e-6);
  EXPECT_NEAR(parms[1]->value, 2.0, 1e-6);
  EXPECT_NEAR(parms[2]->value, 1.0, 1e-6);
}

TEST(Analysis, TooFewObservations) {
  ASSERT_EQ(compileprog(std::string(line3) + "1 6.5\n2 11.5\n"), 1);
  EXPECT_EQ(analyze(), -7);
  EXPECT_EQ(count(listing(), "Error: Fewer data observations than parameters\n"), 1) << listing();
  EXPECT_EQ(count(listing(), "Error: Error:"), 0);
}

TEST(Analysis, SweepGridOrderAndFinalFit) {
  // freq: 0..3 steps, phase: 0..2 steps -> 12 grid fits, then one more.
  std::string p = "VARIABLES t, y; PARAMETERS amp = 1, freq = 1, phase = 0;\n"
                  "SWEEP freq = 1, 2.5, 0.5;\nSWEEP phase = 0, 1, 0.5;\n"
                  "FUNCTION y = amp * sin(freq * t + phase);\nDATA;\n";
  for (int i = 0; i < 25; ++i) {
    double t = 0.3 * i;
    p += std::to_string(t) + " " + std::to_string(1.8 * std::sin(2.1 * t + 0.4)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1) << listing();
  EXPECT_EQ(sweeps[0].count, 3);
  EXPECT_EQ(sweeps[1].count, 2);
  int r = analyze();
  EXPECT_GT(r, 2) << listing();
  EXPECT_EQ(sweeppoint, 12);
  EXPECT_EQ(nfits, 13);
  EXPECT_NEAR(parms[1]->value, 2.1, 1e-4);
}

TEST(Analysis, SweepWithoutAConvergedPointStillFitsFromTheStart) {
  // Two iterations are never enough here: every grid fit ends on the
  // iteration limit, the best values stay the starting values, and the final
  // fit starts from them.
  std::string p = "VARIABLES t, y; PARAMETERS amp = 1, freq = 1.25, phase = 0;\n"
                  "ITERATIONS 2;\nSWEEP freq = 1, 2, 0.5;\n"
                  "FUNCTION y = amp * sin(freq * t + phase);\nDATA;\n";
  for (int i = 0; i < 25; ++i) {
    double t = 0.3 * i;
    p += std::to_string(t) + " " + std::to_string(1.8 * std::sin(2.1 * t + 0.4)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1) << listing();
  int r = analyze();
  EXPECT_EQ(r, -1) << listing();
  EXPECT_EQ(nfits, 4);
  EXPECT_EQ(parms[1]->initval, 1.25);
}

TEST(Analysis, MinimisationFinalValueIsTheAbsoluteValue) {
  ASSERT_EQ(compileprog("PARAMETERS a = 3, b = -2;\nFUNCTION (a - 1)^2 + (b + 2)^2 + 7.5;\n"), 1)
      << listing();
  int r = analyze();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 1.0, 1e-4);
  EXPECT_NEAR(parms[1]->value, -2.0, 1e-4);
  EXPECT_NEAR(finalsumsq, 7.5, 1e-8);
  EXPECT_NE(listing().find("Final function value =  7.5000000E+00\n"), std::string::npos)
      << listing();
}

TEST(Analysis, BoundsEndOnTheBound) {
  std::string p = "VARIABLES x, y; PARAMETERS a = 1, b = 0.5;\nCONSTRAIN b = 0, 0.8;\n"
                  "FUNCTION y = a * exp(b * x);\nDATA;\n";
  for (int i = 0; i < 10; ++i) {
    double x = 0.2 * i;
    p += std::to_string(x) + " " + std::to_string(2.0 * std::exp(1.1 * x)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1) << listing();
  int r = analyze();
  EXPECT_GT(r, 0) << listing();
  EXPECT_EQ(parms[1]->value, 0.8);
  EXPECT_LE(covstatus, 0);
}

TEST(Analysis, IterationLimitOfOne) {
  std::string p = "VARIABLES x, y; PARAMETERS a = 1, b = 0.1;\nFUNCTION y = a * exp(b * x);\nDATA;\n";
  for (int i = 0; i < 10; ++i) {
    double x = 0.2 * i;
    p += std::to_string(x) + " " + std::to_string(2.0 * std::exp(1.1 * x)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1);
  maxiter = 1;  // below what ITERATIONS accepts
  EXPECT_EQ(analyze(), -1) << listing();
  EXPECT_NE(listing().find("Stopped due to: Function did not converge before iteration limit reached.\n"),
            std::string::npos);
}

int abortafter = 0;
void aborting(int32_t iteration, double) {
  if (iteration >= abortafter) abortflag = 1;
}

TEST(Analysis, AbortStopsTheOptimizerAtOnce) {
  std::string p = "VARIABLES x, y; PARAMETERS a = 1, b = 0.1;\nFUNCTION y = a * exp(b * x);\nDATA;\n";
  for (int i = 0; i < 10; ++i) {
    double x = 0.2 * i;
    p += std::to_string(x) + " " + std::to_string(2.0 * std::exp(1.1 * x)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1);
  abortafter = 2;
  progresshook = aborting;
  int r = analyze();
  progresshook = nullptr;
  EXPECT_EQ(r, -10);
  EXPECT_EQ(iterations, 2);
  EXPECT_EQ(hasresults, 0);
  EXPECT_NE(listing().find("Stopped due to: Analysis was aborted\n"), std::string::npos) << listing();
  abortflag = 0;
}

TEST(Analysis, FailedPointsShortenTheStep) {
  // sqrt(x - c) cannot be computed for c above the smallest x: the optimizer
  // must stay where the model exists.
  std::string p = "VARIABLES x, y; PARAMETERS a = 1, c = 0;\nFUNCTION y = a * sqrt(x - c);\nDATA;\n";
  for (int i = 1; i <= 12; ++i) {
    double x = 0.5 * i;
    p += std::to_string(x) + " " + std::to_string(3.0 * std::sqrt(x - 0.4)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1);
  int r = analyze();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 3.0, 1e-3);
  EXPECT_NEAR(parms[1]->value, 0.4, 1e-3);
}

TEST(Analysis, ResultsOfTheLastRun) {
  ASSERT_EQ(compileprog(std::string(line3) + "1 6.5\n2 11.5\n3 18.6\n4 27.4\n"), 1);
  int r = analyze();
  EXPECT_GT(r, 0);
  EXPECT_EQ(hasresults, 1);
  ASSERT_NE(predvec, nullptr);
  EXPECT_EQ(obsvec[3], 27.4);
  EXPECT_GT(covstatus, 0);
  EXPECT_GT(nevaluations, 3);
  enginereset();
  EXPECT_EQ(predvec, nullptr);
  EXPECT_EQ(hasresults, 0);
}

}  // namespace
}  // namespace vexor
