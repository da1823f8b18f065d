// The analysis driver through whole programs: the size check, the
// evaluation limit, SWEEP's grid, minimisation, bounds, the iteration limit,
// the result codes and a run cancelled through the abort flag.  fithook shows
// each optimizer run of a Compute: where it started, which optimizer ran,
// the limits it was given and its return code IV(1).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "api/engine.h"
#include "analysis/analysis.h"
#include "kit/kit.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

int count(const std::string& text, const std::string& part) {
  int n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(Analysis, EvaluationLimitRule) {
  EXPECT_EQ(evallimit(2147483647), 2147483647);  // no overflow: the largest count
  EXPECT_EQ(evallimit(21474837), 2147483647);
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
  int r = compute();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 3.5, 1e-6);
  EXPECT_NEAR(parms[1]->value, 2.0, 1e-6);
  EXPECT_NEAR(parms[2]->value, 1.0, 1e-6);
}

TEST(Analysis, TooFewObservations) {
  ASSERT_EQ(compileprog(std::string(line3) + "1 6.5\n2 11.5\n"), 1);
  EXPECT_EQ(compute(), -7);
  EXPECT_EQ(count(listing(), "Error: Fewer data observations than parameters\n"), 1) << listing();
  EXPECT_EQ(count(listing(), "Error: Error:"), 0);
}

// A Jacobian column near overflow (1e300 times the data) makes the model's
// predicted reduction infinite: the step could neither be shortened to the
// trust region nor accepted, and the optimizer went on for ever without
// evaluating the function again (a grammar-fuzzer finding).  It now ends in
// false convergence.
TEST(Analysis, AJacobianNearOverflowEndsInFalseConvergence) {
  ASSERT_EQ(compileprog("VARIABLES x, y;\nPARAMETERS a = 0, b = 0;\nITERATIONS 5;\n"
                        "FUNCTION y = a * x + b * 1e300;\nDATA;\n0 0\n0 0\n"
                        "3.141592653589793 2147483647\n90 .5\n"),
            1)
      << listing();
  compute();
  EXPECT_EQ(count(listing(), "Stopped due to: False convergence. (Answers may not be correct.)\n"), 2) << listing();
}

// A minimisation with the console echo on shows each iteration's function
// value on standard output, one line per iteration summary.
TEST(Analysis, MinimisationShowsItsIterationsOnTheConsole) {
  ASSERT_EQ(compileprog("PARAMETERS p = 1;\nFUNCTION (p - 3)^2 + 1;\n"), 1) << listing();
  echo = 1;
  testing::internal::CaptureStdout();
  const int code = compute();
  const std::string console = testing::internal::GetCapturedStdout();
  echo = 0;
  ASSERT_GT(code, 0) << listing();
  // "  Iteration %3d.  Absolute value of function =%13.5lE": the numbers
  // count from 0 (the starting point) to the iterations taken, and the
  // last value is the minimum's square, 1.
  std::vector<std::string> lines;
  for (std::size_t at = 0, end; (end = console.find('\n', at)) != std::string::npos; at = end + 1)
    if (console.compare(at, 12, "  Iteration ") == 0) lines.push_back(console.substr(at, end - at));
  ASSERT_GE(lines.size(), 2u) << console;
  char want[100];
  std::snprintf(want, sizeof want, "  Iteration %3d.  Absolute value of function =", 0);
  EXPECT_EQ(lines[0].substr(0, std::strlen(want)), want);
  std::snprintf(want, sizeof want, "  Iteration %3d.  Absolute value of function =  1.00000E+00",
                static_cast<int>(lines.size()) - 1);
  EXPECT_EQ(lines.back(), want);
  EXPECT_EQ(static_cast<int>(lines.size()) - 1, iterations);
  EXPECT_EQ(lines[0].size(), lines.back().size());
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
  int r = compute();
  EXPECT_GT(r, 2) << listing();
  EXPECT_EQ(sweeppoint, 12);
  EXPECT_EQ(nfits, 13);
  EXPECT_NEAR(parms[1]->value, 2.1, 1e-4);
}

// What fithook saw of each optimizer run.
struct Run {
  int32_t sweeppoint;
  int bounded;
  int32_t ivstatus, mxfcal, mxiter;
  int result;
  std::vector<double> start;
};
std::vector<Run> runs;

void record(const FitRecord& f) {
  runs.push_back({f.sweeppoint, f.bounded, f.ivstatus, f.mxfcal, f.mxiter, f.result,
                  std::vector<double>(f.start, f.start + f.npar)});
}

// Runs the analysis of the compiled program with fithook recording.
int analyzerecorded() {
  runs.clear();
  fithook = record;
  int r = compute();
  fithook = nullptr;
  return r;
}

std::string sweepprogram(const char* constrain) {
  std::string p = "VARIABLES t, y; PARAMETERS amp = 1, freq = 1, phase = 0;\n";
  p += constrain;
  p += "SWEEP freq = 1, 2.5, 0.5;\nSWEEP phase = 0, 1, 0.5;\n"
       "FUNCTION y = amp * sin(freq * t + phase);\nDATA;\n";
  for (int i = 0; i < 25; ++i) {
    double t = 0.3 * i;
    p += std::to_string(t) + " " + std::to_string(1.8 * std::sin(2.1 * t + 0.4)) + "\n";
  }
  return p;
}

TEST(Analysis, SweepVisitsTheGridLastParameterFastest) {
  ASSERT_EQ(compileprog(sweepprogram("")), 1) << listing();
  int r = analyzerecorded();
  EXPECT_GT(r, 2) << listing();
  ASSERT_EQ(runs.size(), 13u);
  // (freq index, phase index): (0,0), (0,1), (0,2), (1,0), ... (3,2); every
  // other parameter starts from its starting value.
  int k = 0;
  for (int i = 0; i <= 3; ++i) {
    for (int j = 0; j <= 2; ++j, ++k) {
      SCOPED_TRACE("grid point " + std::to_string(k + 1));
      EXPECT_EQ(runs[k].sweeppoint, k + 1);
      EXPECT_EQ(runs[k].start[0], 1.0);
      EXPECT_EQ(runs[k].start[1], 1.0 + i * 0.5);
      EXPECT_EQ(runs[k].start[2], 0.0 + j * 0.5);
    }
  }
  // The final fit starts from the best grid point, which became the swept
  // parameters' starting values.
  EXPECT_EQ(runs[12].sweeppoint, 0);
  EXPECT_EQ(runs[12].start[0], 1.0);
  EXPECT_EQ(runs[12].start[1], parms[1]->initval);
  EXPECT_EQ(runs[12].start[2], parms[2]->initval);
  EXPECT_NE(parms[1]->initval, 1.0);
}

TEST(Analysis, BoundedOptimizerForEveryFitOfASweepWithConstraints) {
  ASSERT_EQ(compileprog(sweepprogram("CONSTRAIN amp = 0, 5;\n")), 1) << listing();
  int r = analyzerecorded();
  EXPECT_GT(r, 2) << listing();
  ASSERT_EQ(runs.size(), 13u);
  for (std::size_t k = 0; k < runs.size(); ++k) EXPECT_EQ(runs[k].bounded, 1) << "fit " << k + 1;
  // Without CONSTRAIN every fit runs the unbounded optimizer.
  ASSERT_EQ(compileprog(sweepprogram("")), 1) << listing();
  analyzerecorded();
  ASSERT_EQ(runs.size(), 13u);
  for (std::size_t k = 0; k < runs.size(); ++k) EXPECT_EQ(runs[k].bounded, 0) << "fit " << k + 1;
}

TEST(Analysis, IterationsSetTheOptimizerLimits) {
  const struct {
    const char* statement;
    int32_t mxiter, mxfcal;
  } cases[] = {
      {"ITERATIONS 150;\n", 150, 16000},
      {"ITERATIONS 200;\n", 200, 20000},
      {"ITERATIONS 500;\n", 500, 50000},
      {"", 500, 50000},  // the default
  };
  for (const auto& c : cases) {
    ASSERT_EQ(compileprog(std::string("VARIABLES x, y; PARAMETERS a, b, c;\n") + c.statement +
                          "FUNCTION y = a + b*x + c*x*x;\nDATA;\n1 6.5\n2 11.5\n3 18.6\n4 27.4\n"),
              1)
        << listing();
    analyzerecorded();
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].mxiter, c.mxiter) << c.statement;
    EXPECT_EQ(runs[0].mxfcal, c.mxfcal) << c.statement;
  }
}

// Programs that make the optimizer stop with each return code IV(1), and the
// result code and stop reason the driver makes of it.  IV(1) = 9 (the
// function-evaluation limit) cannot be reached through a program: the limit
// is at least 100 evaluations per allowed iteration, and every evaluation
// that does not complete an iteration shrinks the trust radius at least
// tenfold, so the run ends in false convergence (or underflows the step to
// nothing) after a few hundred evaluations at most.
TEST(Analysis, ResultCodesFromTheOptimizersReturn) {
  const std::string decaydata =
      "DATA;\n0.0 1051.2\n0.5 877.4\n1.0 745.1\n1.5 628.0\n2.0 540.9\n3.0 402.3\n"
      "4.0 302.7\n5.0 236.5\n6.0 188.1\n8.0 129.9\n10.0 97.4\n12.0 78.8\n";
  const struct {
    const char* what;
    std::string program;
    int32_t ivstatus;
    int result;
    const char* reason;
  } cases[] = {
      {"x-convergence on an exact straight line",
       "VARIABLES x, y; PARAMETERS a = 1, b = 0.5;\nFUNCTION y = a * x + b;\n"
       "DATA;\n1 3\n2 5\n3 7\n4 9\n",
       3, 5, "Parameter convergence."},
      {"relative function convergence (with a looser tolerance)",
       "VARIABLES t, counts; PARAMETERS a = 1000, k = 0.3, bg = 50;\nTOLERANCE 1e-6;\n"
       "FUNCTION counts = a * exp(-k * t) + bg;\n" + decaydata,
       4, 4, "Relative function convergence."},
      {"both",
       "VARIABLES x, y; PARAMETERS a = 2, b = 1;\nFUNCTION y = a * exp(b * x);\n"
       "DATA;\n0 2.05\n0.5 3.38\n1 6.10\n1.5 10.2\n2 18.0\n2.5 31.5\n",
       5, 6, "Both parameter and relative function convergence."},
      {"absolute function convergence on exact data",
       "VARIABLES x, y; PARAMETERS a = 1, b = 0.5;\nFUNCTION y = a * exp(-b*x);\nDATA;\n"
       "0 2\n1 1.2130613194252668\n2 0.7357588823428847\n3 0.44626032029685964\n"
       "4 0.2706705664732254\n",
       6, 3, "Absolute function convergence."},
      {"singular convergence: b acts through steps of 0.001 only",
       "VARIABLES x, y; PARAMETERS a = 1, b = 0.5;\nFUNCTION y = a * x + floor(b*1000)/1000;\n"
       "DATA;\n1 3.1\n2 5.9\n3 9.2\n4 11.8\n",
       7, 2, "Singular convergence.  Mutually dependent parameters?"},
      {"false convergence at a cusp",
       "PARAMETERS a = 1, b = 0.5;\nFUNCTION sqrt(abs(a-2)) + sqrt(abs(b-1)) + 1;\n", 8, 1,
       "False convergence. (Answers may not be correct.)"},
      {"iteration limit",
       "VARIABLES x, y; PARAMETERS a = 1, b = 0.1;\nITERATIONS 2;\nFUNCTION y = a * exp(b * x);\n"
       "DATA;\n0 2.05\n0.5 3.38\n1 6.10\n1.5 10.2\n2 18.0\n2.5 31.5\n",
       10, -1, "Function did not converge before iteration limit reached."},
      {"the model cannot be computed at the starting values",
       "VARIABLES x, y; PARAMETERS a = 1, c = 2;\nFUNCTION y = a * sqrt(x - c);\n"
       "DATA;\n1 0.5\n2 1.2\n3 1.9\n4 2.2\n",
       13, -2, "Function cannot be computed at starting parameter values."},
      {"the Jacobian cannot be computed: any change of b leaves the domain",
       "VARIABLES x, y; PARAMETERS a = 1, b = 1;\nFUNCTION y = a * x + sqrt(-((b-1)^2));\n"
       "DATA;\n0 2\n1 1.1\n2 0.1\n3 1\n4 2.1\n",
       15, -4, "Jacobian could not be computed."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(compileprog(c.program), 1) << listing();
    int r = analyzerecorded();
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].ivstatus, c.ivstatus) << listing();
    EXPECT_EQ(runs[0].result, c.result);
    EXPECT_EQ(r, c.result);
    EXPECT_EQ(count(listing(), std::string("Stopped due to: ") + c.reason + "\n"), 2) << listing();
  }
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
  int r = compute();
  EXPECT_EQ(r, -1) << listing();
  EXPECT_EQ(nfits, 4);
  EXPECT_EQ(parms[1]->initval, 1.25);
}

TEST(Analysis, MinimisationFinalValueIsTheAbsoluteValue) {
  ASSERT_EQ(compileprog("PARAMETERS a = 3, b = -2;\nFUNCTION (a - 1)^2 + (b + 2)^2 + 7.5;\n"), 1)
      << listing();
  int r = compute();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 1.0, 1e-4);
  EXPECT_NEAR(parms[1]->value, -2.0, 1e-4);
  EXPECT_NEAR(finalsumsq, 7.5, 1e-8);
  EXPECT_NE(listing().find("Final function value =  7.5000000E+00\n"), std::string::npos)
      << listing();
}

// The function is negative at its minimum: the optimizer minimises its
// absolute value, and the listing shows the function's own signed value for
// the first observation, while the driver's sum of squares is |f|.
TEST(Analysis, MinimisationOfANegativeFunctionShowsTheSignedValue) {
  ASSERT_EQ(compileprog("PARAMETERS a = 0.5;\nFUNCTION 0 - (a - 2)^2 - 3;\n"), 1) << listing();
  int r = compute();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 2.0, 1e-3);
  EXPECT_NEAR(finalsumsq, 3.0, 1e-6);
  EXPECT_LT(predvec[0], 0.0);
  EXPECT_EQ(count(listing(), "Final function value = -3.0000000E+00\n"), 1) << listing();
}

// Each residual call starts from the work variables' initial values, in a
// minimisation as in a regression: c is 1 at every call, never more.
TEST(Analysis, MinimisationResetsWorkVariablesAtEveryCall) {
  ASSERT_EQ(compileprog("PARAMETERS a = 5;\nDOUBLE c = 0;\nc = c + 1;\nFUNCTION (a - 2)^2 + c;\n"), 1)
      << listing();
  int r = compute();
  EXPECT_GT(r, 0) << listing();
  EXPECT_GT(nevaluations, 5);
  EXPECT_NEAR(parms[0]->value, 2.0, 1e-3);
  EXPECT_NEAR(finalsumsq, 1.0, 1e-6);
  EXPECT_EQ(count(listing(), "Final function value =  1.0000000E+00\n"), 1) << listing();
}

TEST(Analysis, BoundsEndOnTheBound) {
  std::string p = "VARIABLES x, y; PARAMETERS a = 1, b = 0.5;\nCONSTRAIN b = 0, 0.8;\n"
                  "FUNCTION y = a * exp(b * x);\nDATA;\n";
  for (int i = 0; i < 10; ++i) {
    double x = 0.2 * i;
    p += std::to_string(x) + " " + std::to_string(2.0 * std::exp(1.1 * x)) + "\n";
  }
  ASSERT_EQ(compileprog(p), 1) << listing();
  int r = compute();
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
  EXPECT_EQ(compute(), -1) << listing();
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
  int r = compute();
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
  int r = compute();
  EXPECT_GT(r, 0) << listing();
  EXPECT_NEAR(parms[0]->value, 3.0, 1e-3);
  EXPECT_NEAR(parms[1]->value, 0.4, 1e-3);
}

TEST(Analysis, ResultsOfTheLastRun) {
  ASSERT_EQ(compileprog(std::string(line3) + "1 6.5\n2 11.5\n3 18.6\n4 27.4\n"), 1);
  int r = compute();
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
