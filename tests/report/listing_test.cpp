// The "Final Results" section: its lines, their order and their exact text,
// the FitSummary and per-parameter values it stores, and its variants.
#include <cmath>
#include <cstdio>
#include <string>

#include "analysis/analysis.h"
#include "report/report.h"
#include "reporttest.h"
#include "kit/kit.h"

namespace vexor {
namespace {

using test::ReportTest;

bool has(const std::string& s, const std::string& part) { return s.find(part) != std::string::npos; }

const char* const linear =
    "TITLE \"Linear test\";\n"
    "VARIABLES x, y;\n"
    "PARAMETERS a = 1.25, b = 0.75;\n"
    "CONFIDENCE 95;\n"
    "COVARIANCE;\n"
    "FUNCTION y = a + b * x;\n"
    "DATA;\n"
    "1.25 2.13\n"
    "2.5 3.87\n"
    "3.75 6.21\n"
    "5.0 7.79\n"
    "6.25 10.16\n";

// The least-squares estimates of the linear data and s^2 (X'X)^-1, computed
// independently in extended precision.
const double linearcov[4] = {0.05222799999999994, -0.011395199999999987,
                             -0.011395199999999987, 0.0030387199999999965};

class FinalReport : public ReportTest {
 protected:
  void linearsetup() {
    compile(linear);
    estimates({0.03799999999999955, 1.5984});
    finalpass();
    covariance({linearcov[0], linearcov[1], linearcov[2], linearcov[3]}, 1);
    iterations = 4;
    finalsumsq = 0.14244;
  }
};

TEST_F(FinalReport, WholeSectionOfALinearFit) {
  linearsetup();
  // The interval lines use the t quantile of the engine's bisection to
  // within 0.0001: for 0.975 and 3 degrees of freedom it ends on
  // 3.182462692260742 (the same bisection run in python3 on mpmath's exact
  // t probability), 1.6e-5 from the exact quantile 3.182446305284263
  // (scipy.stats.t.ppf).
  const double t = 3.182462692260742;
  EXPECT_EQ(tinv((conflevel + 1) / 2, 3), t);
  EXPECT_NEAR(t, 3.182446305284263, 0.0001);
  char ci[400];
  double ha = std::sqrt(0.05222799999999994) * t, hb = std::sqrt(0.0030387199999999965) * t;
  std::snprintf(ci, sizeof ci, "%10s  %16.9G  %16.9G  %16.9G\n%10s  %16.9G  %16.9G  %16.9G\n", "a",
                0.038 - ha, 0.038, 0.038 + ha, "b", 1.5984 - hb, 1.5984, 1.5984 + hb);
  report(6);
  std::string expected =
      "\n\n   ----  Final Results  ----\n\n"
      "VEXOR version 5.4\n"
      "Linear test\n"
      "Number of observations = 5\n"
      "Maximum allowed number of iterations = 500\n"
      "Convergence tolerance factor = 1.000000E-10\n"
      "Stopped due to: Both parameter and relative function convergence.\n"
      "Number of iterations performed = 4\n"
      "Final sum of squared deviations =  1.4244000E-01\n"
      "Final sum of deviations =  1.7763568E-15\n"
      "Standard error of estimate = 0.217899\n"
      "Average deviation = 0.1616\n"
      "Maximum deviation for any observation = 0.24\n"
      "Proportion of variance explained (R^2) = 0.9964  (99.64%)\n"
      "Adjusted coefficient of multiple determination (Ra^2) = 0.9953  (99.53%)\n"
      "Durbin-Watson test for autocorrelation = 3.487\n"
      "Analysis completed XX.  Runtime = XX seconds.\n"
      "\n\n             ----  Descriptive Statistics for Variables  ----\n\n"
      " Variable    Minimum value   Maximum value    Mean value     Standard dev.\n"
      "----------  --------------  --------------  --------------  --------------\n"
      "         x            1.25            6.25            3.75        1.976424\n"
      "         y            2.13           10.16           6.032        3.164746\n"
      "\n\n                   ----  Calculated Parameter Values  ----\n\n"
      " Parameter  Initial guess   Final estimate   Standard error      t      Prob(t)\n"
      "----------  -------------  ----------------  --------------  ---------  -------\n"
      "         a           1.25             0.038       0.2285345       0.17  0.87851\n"
      "         b           0.75            1.5984      0.05512459      29.00  0.00009\n"
      "\n\n                  ----  Analysis of Variance  ----\n\n"
      "  Source     DF   Sum of Squares    Mean Square    F value   Prob(F)\n"
      "----------  ----  --------------  --------------  ---------  -------\n"
      "Regression     1        39.92004        39.92004     840.78  0.00009\n"
      "Error          3         0.14244         0.04748\n"
      "Total          4        40.06248\n"
      "\n\n         ----  95.000% Confidence Intervals  ----\n\n"
      " Parameter     Lower limit      Best estimate      Upper limit\n"
      "----------  ----------------  ----------------  ----------------\n" +
      std::string(ci) +
      "\n\n           ----  Variance-Covariance Matrix  ----\n\n"
      " Parameter          a              b     \n"
      "----------   -------------  -------------\n"
      "         a:       0.052228      -0.011395\n"
      "         b:      -0.011395      0.0030387\n"
      "\n";
  EXPECT_EQ(masked(), expected);
}

TEST_F(FinalReport, ListingStoresCrLf) {
  linearsetup();
  report(6);
  ASSERT_NE(lstfirst(), nullptr);
  EXPECT_STREQ(lstfirst()->text, "\r\n\r\n   ----  Final Results  ----\r\n\r\n");
}

TEST_F(FinalReport, StoresFitSummaryAndParameterStatistics) {
  linearsetup();
  vexor::results.summary = FitSummary{};
  report(6);
  EXPECT_DOUBLE_EQ(vexor::results.summary.sumsq, 0.14244);
  EXPECT_NEAR(vexor::results.summary.sumdev, 0.0, 1e-13);
  EXPECT_NEAR(vexor::results.summary.maxdev, 0.24, 1e-12);
  EXPECT_NEAR(vexor::results.summary.variance, 0.14244 / 3, 1e-12);
  EXPECT_NEAR(vexor::results.summary.rsquare, 1 - 0.14244 / 40.06248, 1e-12);
  EXPECT_NEAR(vexor::results.summary.adjrsquare, 1 - (4.0 / 3.0) * (0.14244 / 40.06248), 1e-12);
  EXPECT_NEAR(vexor::results.summary.durbinwatson, 3.4866329682673425, 1e-9);
  EXPECT_GE(vexor::results.summary.runtime, 0.0);
  EXPECT_LT(vexor::results.summary.runtime, 60.0);
  EXPECT_NEAR(parms[0]->stderror, 0.22853446129632166, 1e-12);
  EXPECT_NEAR(parms[0]->tval, 0.1662768922658369, 1e-9);
  // Prob(t) = 2 (1 - tprob(t, 3)) for the t above, as mpmath's regularised
  // incomplete beta gives it at 40 digits.  The continued fraction stops at
  // a relative change of 3e-7, which leaves 1.2e-12 and 9.4e-16 here.
  EXPECT_NEAR(parms[0]->pval, 0.87851380550743280633, 5e-12);
  EXPECT_NEAR(parms[1]->stderror, 0.05512458616624706, 1e-12);
  EXPECT_NEAR(parms[1]->tval, 28.996136046799112, 1e-8);
  EXPECT_NEAR(parms[1]->pval, 9.0072856555203663522e-05, 5e-15);
  // The confidence limits were stored too, with the bisection's quantile
  // (see WholeSectionOfALinearFit).
  const double t = 3.182462692260742;
  EXPECT_DOUBLE_EQ(parms[1]->cilow, 1.5984 - std::sqrt(0.0030387199999999965) * t);
  EXPECT_DOUBLE_EQ(parms[1]->cihigh, 1.5984 + std::sqrt(0.0030387199999999965) * t);
}

// The section of the minimisation below: (a - 2.25)^2 + (b + 1.125)^2 +
// 0.375 at its minimum after 7 iterations.
const char* const minimisationsection =
    "\n\n   ----  Final Results  ----\n\n"
    "VEXOR version 5.4\n"
    "Maximum allowed number of iterations = 500\n"
    "Convergence tolerance factor = 1.000000E-10\n"
    "Stopped due to: Relative function convergence.\n"
    "Number of iterations performed = 7\n"
    "Final function value =  3.7500000E-01\n"
    "Analysis completed XX.  Runtime = XX seconds.\n"
    "\n\n  ----  Calculated Parameter Values  ----\n\n"
    " Parameter  Initial guess   Final estimate \n"
    "----------  -------------  ----------------\n"
    "         a            1.5              2.25\n"
    "         b           -0.5            -1.125\n"
    "\n";

// Function minimisation: no observation count, "Final function value"
// instead of the two sums, no deviation lines, no descriptive statistics,
// correlation matrix or ANOVA, and the short parameter table.
TEST_F(FinalReport, FunctionMinimisation) {
  compile(
      "PARAMETERS a = 1.5, b = -0.5;\n"
      "FUNCTION (a - 2.25)^2 + (b + 1.125)^2 + 0.375;\n");
  ASSERT_EQ(minimize, 1);
  estimates({2.25, -1.125});
  finalpass();
  covariance({0.5, 0.0, 0.0, 0.5}, 1);
  iterations = 7;
  finalsumsq = 0.375;
  vexor::results.summary = FitSummary{1, 2, 3, 4, 5, 6, 7, 8};
  parms[0]->stderror = parms[0]->tval = parms[0]->pval = 9;
  report(4);
  EXPECT_EQ(masked(), minimisationsection);
  // What is not computed in this mode is stored as 0.
  EXPECT_EQ(vexor::results.summary.sumsq, 0.375);
  EXPECT_EQ(vexor::results.summary.rsquare, 0.0);
  EXPECT_EQ(vexor::results.summary.adjrsquare, 0.0);
  EXPECT_EQ(vexor::results.summary.durbinwatson, 0.0);
  EXPECT_EQ(vexor::results.summary.sumdev, 0.0);
  EXPECT_EQ(vexor::results.summary.variance, 0.0);
  EXPECT_EQ(vexor::results.summary.maxdev, 0.0);
  EXPECT_EQ(parms[0]->stderror, 0.0);
  EXPECT_EQ(parms[0]->tval, 0.0);
  EXPECT_EQ(parms[0]->pval, 0.0);
}

// A minimisation that asks for a correlation matrix (of its work
// variables) gets the same section as one that does not: no matrix.
TEST_F(FinalReport, FunctionMinimisationWithCorrelate) {
  compile(
      "PARAMETERS a = 1.5, b = -0.5;\n"
      "DOUBLE u, v;\n"
      "CORRELATE u, v;\n"
      "u = a; v = b;\n"
      "FUNCTION (a - 2.25)^2 + (b + 1.125)^2 + 0.375;\n");
  ASSERT_EQ(minimize, 1);
  ASSERT_EQ(ncorr, 2);
  estimates({2.25, -1.125});
  finalpass();
  covariance({0.5, 0.0, 0.0, 0.5}, 1);
  iterations = 7;
  finalsumsq = 0.375;
  report(4);
  EXPECT_EQ(masked(), minimisationsection);
}

const char* const fourpoints =
    "VARIABLES x, y;\n"
    "PARAMETERS a = 1, b = 1;\n"
    "FUNCTION y = a + b * x;\n"
    "DATA;\n"
    "1 1\n2 2\n3 3\n4 4\n5 5\n";

// From "Average deviation" to the end of the covariance warning (the
// runtime line follows).
std::string deviations(const std::string& s) {
  std::size_t from = s.find("Average deviation");
  std::size_t to = s.find("Analysis completed");
  if (from == std::string::npos || to == std::string::npos) return "<absent>";
  return s.substr(from, to - from);
}

TEST_F(FinalReport, RSquareZeroHidesRSquareAdjustedAndDurbinWatson) {
  compile(fourpoints);
  finalpass();
  // SSE 40 > Stot 10: R^2 is clamped to 0, Ra^2 is negative.
  values({1, 2, 3, 4, 5}, {5, 4, 3, 2, 1});
  covariance({1, 0, 0, 1}, 1);
  report(4);
  EXPECT_EQ(deviations(text()),
            "Average deviation = 2.4\n"
            "Maximum deviation for any observation = 4\n");
  EXPECT_EQ(vexor::results.summary.rsquare, 0.0);
  EXPECT_DOUBLE_EQ(vexor::results.summary.adjrsquare, 1 - (4.0 / 3.0) * 4.0);
}

TEST_F(FinalReport, DurbinWatsonOfExactlyPointEightGivesNoWarning) {
  compile(fourpoints);
  finalpass();
  // Residuals 1, 1, 1, 1, -1: D = 4, SSE = 5.
  values({11, 21, 31, 41, 51}, {10, 20, 30, 40, 52});
  covariance({1, 0, 0, 1}, 1);
  report(4);
  EXPECT_EQ(vexor::results.summary.durbinwatson, 0.8);
  EXPECT_EQ(deviations(text()),
            "Average deviation = 1\n"
            "Maximum deviation for any observation = 1\n"
            "Proportion of variance explained (R^2) = 0.9950  (99.50%)\n"
            "Adjusted coefficient of multiple determination (Ra^2) = 0.9933  (99.33%)\n"
            "Durbin-Watson test for autocorrelation = 0.800\n");
}

TEST_F(FinalReport, DurbinWatsonBelowPointEightWarns) {
  compile(fourpoints);
  finalpass();
  // Residuals 1, 1, 1, 1, -0.875: D = 3.515625, SSE = 4.765625.
  values({11, 21, 31, 41, 51.125}, {10, 20, 30, 40, 52});
  covariance({1, 0, 0, 1}, 1);
  report(4);
  EXPECT_TRUE(has(text(),
                  "Durbin-Watson test for autocorrelation = 0.738\n"
                  "This Durbin-Watson value indicates autocorrelation or inappropriate function.\n"))
      << text();
}

TEST_F(FinalReport, PerfectFit) {
  compile(fourpoints);
  estimates({0, 1});
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  report(6);
  std::string s = text();
  EXPECT_EQ(vexor::results.summary.sumsq, 0.0);
  EXPECT_EQ(vexor::results.summary.rsquare, 1.0);
  EXPECT_EQ(vexor::results.summary.durbinwatson, 0.0);
  EXPECT_FALSE(has(s, "one side")) << s;
  EXPECT_TRUE(has(s,
                  "Proportion of variance explained (R^2) = 1.0000  (100.00%)\n"
                  "Adjusted coefficient of multiple determination (Ra^2) = 1.0000  (100.00%)\n"
                  "Durbin-Watson test for autocorrelation = 0.000\n"
                  "This Durbin-Watson value indicates autocorrelation or inappropriate function.\n"))
      << s;
}

TEST_F(FinalReport, AllResidualsOnOneSideWarns) {
  compile(fourpoints);
  finalpass();
  values({1.5, 2.5, 3.25, 4.75, 5.5}, {1, 2, 3, 4, 5});
  covariance({1, 0, 0, 1}, 1);
  iterations = 3;
  report(3);
  EXPECT_TRUE(has(text(),
                  "Stopped due to: Absolute function convergence.\n"
                  "Warning: All data points are on one side of the curve.\n"
                  "This indicates the model does not fit the data well.\n"
                  "Number of iterations performed = 3\n"))
      << text();
}

TEST_F(FinalReport, OneResidualNearZeroClearsTheOneSideWarning) {
  compile(fourpoints);
  finalpass();
  values({1.5, 2.5, 3.25, 4.75, 5 + 1e-10}, {1, 2, 3, 4, 5});
  covariance({1, 0, 0, 1}, 1);
  report(3);
  EXPECT_FALSE(has(text(), "one side")) << text();
}

// t of exactly -100000 is printed in exponent form, 999999.99 in fixed
// form; a standard error of 0 gives t = 1e30 and Prob(t) = 0.00001.
TEST_F(FinalReport, TValueForms) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 2, b = 3, c = 0.5;\n"
      "FUNCTION y = a + b * x + c * x * x;\n"
      "DATA;\n"
      "1 1\n2 2.5\n3 2.75\n4 4\n5 5.25\n");
  estimates({-100000, 999999.99, 0.25});
  finalpass();
  covariance({1, 0, 0, 0, 1, 0, 0, 0, 0}, 2);
  report(5);
  EXPECT_TRUE(has(text(),
                  " Parameter  Initial guess   Final estimate   Standard error      t      Prob(t)\n"
                  "----------  -------------  ----------------  --------------  ---------  -------\n"
                  "         a              2           -100000               1   -1.0E+05  0.00001\n"
                  "         b              3         999999.99               1  999999.99  0.00001\n"
                  "         c            0.5              0.25               0    1.0E+30  0.00001\n"))
      << text();
  EXPECT_EQ(parms[2]->tval, 1e30);
  EXPECT_EQ(parms[2]->pval, 1e-5);
}

TEST_F(FinalReport, OneParameterHasNoAnovaTable) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS b = 1;\n"
      "FUNCTION y = b * x;\n"
      "DATA;\n"
      "1 1.25\n2 1.75\n3 3.5\n");
  estimates({1.0625});
  finalpass();
  covariance({0.015625}, 1);
  report(4);
  EXPECT_TRUE(has(text(), "Calculated Parameter Values")) << text();
  EXPECT_FALSE(has(text(), "Analysis of Variance")) << text();
}

// n = p: no standard error of estimate, no parameter statistics, Ra^2 = 0,
// the ANOVA table without its mean-square and F columns and with the
// unindented title, and no confidence intervals.
TEST_F(FinalReport, AsManyObservationsAsParameters) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "CONFIDENCE 90;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 2.5\n3 3.5\n");
  estimates({2.25, 0.5});
  finalpass();
  // The second observation is missed by 0.25 (not a least-squares fit).
  values({2.5, 3.5}, {2.75, 3.25});
  covariance({1, 0, 0, 1}, 1);
  report(4);
  std::string s = masked();
  std::size_t end = s.find("Analysis completed");
  ASSERT_NE(end, std::string::npos);
  EXPECT_EQ(s.substr(s.find("Final sum of squared"), end - s.find("Final sum of squared")),
            "Final sum of squared deviations =  0.0000000E+00\n"
            "Final sum of deviations =  0.0000000E+00\n"
            "Average deviation = 0.25\n"
            "Maximum deviation for any observation = 0.25\n"
            "Proportion of variance explained (R^2) = 0.7500  (75.00%)\n"
            "Adjusted coefficient of multiple determination (Ra^2) = 0.0000  (0.00%)\n"
            "Durbin-Watson test for autocorrelation = 2.000\n");
  EXPECT_EQ(s.substr(s.find("\n\n  ----  Calculated")),
            "\n\n  ----  Calculated Parameter Values  ----\n\n"
            " Parameter  Initial guess   Final estimate \n"
            "----------  -------------  ----------------\n"
            "         a              1              2.25\n"
            "         b              1               0.5\n"
            "\n\n----  Analysis of Variance  ----\n\n"
            "  Source     DF   Sum of Squares\n"
            "----------  ----  --------------\n"
            "Regression     1           0.375\n"
            "Error          0           0.125\n"
            "Total          1             0.5\n"
            "\nUnable to compute confidence interval with this few observations.\n"
            "\n");
  EXPECT_EQ(vexor::results.summary.adjrsquare, 0.0);
  EXPECT_EQ(vexor::results.summary.variance, 0.0);
  EXPECT_EQ(parms[0]->stderror, 0.0);
}

TEST_F(FinalReport, ConstantDependentVariable) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 2.5\n2 2.5\n3 2.5\n");
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  report(4);
  EXPECT_EQ(vexor::results.summary.rsquare, 0.0);
  EXPECT_EQ(vexor::results.summary.adjrsquare, 0.0);
  EXPECT_FALSE(has(text(), "Analysis of Variance")) << text();
  EXPECT_FALSE(has(text(), "R^2")) << text();
}

TEST_F(FinalReport, OneObservationHasStandardDeviationZero) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS b = 1;\n"
      "FUNCTION y = b * x;\n"
      "DATA;\n"
      "2.5 3.75\n");
  estimates({1.5});
  finalpass();
  report(4);
  EXPECT_TRUE(has(text(),
                  "         x             2.5             2.5             2.5               0\n"
                  "         y            3.75            3.75            3.75               0\n"))
      << text();
}

TEST_F(FinalReport, FileLinesAndParameterFile) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "OUTPUT \"vals\" x;\n"
      "POUTPUT \"pvals.txt\";\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 1\n2 2\n3 3\n4 4\n5 5\n");
  estimates({0, 1.5});
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  report(4);
  EXPECT_TRUE(has(masked(),
                  "Output values will be written to vals.out\n"
                  "Parameter values will be written to pvals.txt\n"
                  "Analysis completed XX."))
      << text();
  EXPECT_EQ(readfile("pvals.txt"), "0\n1.5\n");
  std::remove("pvals.txt");
}

// The console's closing notices: the listing file a host has opened, and
// the output file of OUTPUT.
TEST_F(FinalReport, ConsoleNamesTheListingAndOutputFiles) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "OUTPUT \"fitted\" x, $PREDICTED;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 1\n2 2\n3 3\n4 4\n5 5\n");
  estimates({0, 1});
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  lstfile = f;
  lstfilename = "fit.lst";
  echo = 1;
  testing::internal::CaptureStdout();
  report(4);
  std::string console = testing::internal::GetCapturedStdout();
  echo = 0;
  lstfile = nullptr;
  lstfilename = nullptr;
  std::fclose(f);
  EXPECT_TRUE(has(console, "VEXOR analysis listing has been written to fit.lst\n")) << console;
  EXPECT_TRUE(has(console, "Output values have been written to " + std::string(outfile) + "\n")) << console;
  EXPECT_EQ(std::string(outfile), "fitted.out");
  std::remove("fitted.out");
}

TEST_F(FinalReport, ParameterFileNameIsCompletedForLaterMessages) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "POUTPUT \"PARMS\";\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 1\n2 2\n3 3\n4 4\n5 5\n");
  estimates({0, 1.5});
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  echo = 1;
  testing::internal::CaptureStdout();
  report(4);
  std::string console = testing::internal::GetCapturedStdout();
  echo = 0;
  // The name is completed where the file is written, after the line that
  // announces it; the console notice at the end names the file written.
  EXPECT_TRUE(has(masked(), "Parameter values will be written to PARMS\n")) << text();
  EXPECT_TRUE(has(console, "Parameter values have been written to PARMS.PAR\n")) << console;
  EXPECT_STREQ(parfile, "PARMS.PAR");
  EXPECT_EQ(readfile("PARMS.PAR"), "0\n1.5\n");
  // A second report of the same compile names the real file throughout.
  lstclear();
  report(4);
  EXPECT_TRUE(has(masked(), "Parameter values will be written to PARMS.PAR\n")) << text();
  std::remove("PARMS.PAR");
}

TEST_F(FinalReport, ParameterFileThatCannotBeOpened) {
  compile(std::string("POUTPUT \"no-such-dir/sub/parms\";\n") + fourpoints);
  estimates({0, 1.5});
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  report(4);
  // Reported where the file would be written; the report goes on.
  EXPECT_TRUE(has(text(),
                  "         b              1               1.5               1       1.50  0.23058\n"
                  "Error: unable to open parameter output file: no-such-dir/sub/parms.par\n"
                  "\n\n                  ----  Analysis of Variance  ----\n\n"))
      << text();
}

// ---------------------------------------------------------------------------
// The stop reason
// ---------------------------------------------------------------------------

TEST_F(ReportTest, StopReasonTexts) {
  struct {
    int code;
    const char* text;
  } const table[] = {
      {-10, "Analysis was aborted"},
      {-6, "Function did not converge before max allowed function calls."},
      {-5, "Singular matrix.  Possibly mutually dependent parameters"},
      {-4, "Jacobian could not be computed."},
      {-3, "Bad parameter values."},
      {-2, "Function cannot be computed at starting parameter values."},
      {-1, "Function did not converge before iteration limit reached."},
      {1, "False convergence. (Answers may not be correct.)"},
      {2, "Singular convergence.  Mutually dependent parameters?"},
      {3, "Absolute function convergence."},
      {4, "Relative function convergence."},
      {5, "Parameter convergence."},
      {6, "Both parameter and relative function convergence."},
  };
  for (const auto& row : table) {
    lstclear();
    stopreason(row.code, 0);
    EXPECT_EQ(text(), std::string("Stopped due to: ") + row.text + "\n");
  }
}

TEST_F(ReportTest, StopReasonOutsideTheTable) {
  EXPECT_STREQ(stopreasontext(0), "");
  EXPECT_STREQ(stopreasontext(-7), "");
  stopreason(7, 0);
  EXPECT_EQ(text(), "Stopped due to: \n");
}

// With flag 1 the Listing receives exactly one line, with its line end; the
// listing file receives the same line.
TEST_F(ReportTest, StopReasonWithFlagWritesOneListingLine) {
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  lstfile = f;
  stopreason(5, 1);
  stopsuppress = 1;
  stopreason(2, 1);
  lstfile = nullptr;
  long count = 0;
  lstforeach([&](const char*) { ++count; });
  EXPECT_EQ(count, 2);
  EXPECT_EQ(text(), "Stopped due to: Parameter convergence.\n"
                    "Stopped due to: Singular convergence.  Mutually dependent parameters?\n");
  std::string written = kit::readstream(f);
  std::fclose(f);
  EXPECT_EQ(written, "Stopped due to: Parameter convergence.\n"
                                 "Stopped due to: Singular convergence.  Mutually dependent parameters?\n");
}

// ---------------------------------------------------------------------------
// Covariance warnings
// ---------------------------------------------------------------------------

TEST_F(ReportTest, CovarianceWarnings) {
  compile(fourpoints);
  struct {
    int status;
    const char* text;
  } const table[] = {
      {-1, "\nWarning: Covariance matrix could not be computed because\n"
           "the finite-difference Hessian was indefinite.\n"},
      {-2, "\nWarning: Covariance matrix could not be computed because a\n"
           "successful finite-differencing step could not be found.\n"},
      {-3, "\nWarning: Covariance matrix could not be computed because\n"
           "constraints were specified for parameters.\n"},
      {-4, "\nWarning: Covariance matrix could not be computed.\n"},
      {-99, "\nWarning: Covariance matrix could not be computed.\n"},
      {0, ""},
      {3, ""},
  };
  for (const auto& row : table) {
    lstclear();
    covwarningfor(row.status);
    EXPECT_EQ(text(), row.text) << row.status;
  }
}

TEST_F(FinalReport, ConstraintsHintAndNoCovarianceSections) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "CONSTRAIN a = -5, 5;\n"
      "CONFIDENCE 95;\n"
      "COVARIANCE;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 1.5\n2 2\n3 3.5\n");
  estimates({0.25, 1});
  finalpass();
  covariance({0, 0, 0, 0}, -3);
  report(4);
  std::string s = masked();
  EXPECT_TRUE(has(s,
                  "\nWarning: Covariance matrix could not be computed because\n"
                  "constraints were specified for parameters.\n"
                  "Try removing constraints on parameters.\n"
                  "Analysis completed XX."))
      << s;
  // Without the covariance matrix: the short parameter table, and neither
  // the intervals nor the matrix.
  EXPECT_TRUE(has(s, "\n\n  ----  Calculated Parameter Values  ----\n\n")) << s;
  EXPECT_FALSE(has(s, "Confidence Intervals")) << s;
  EXPECT_FALSE(has(s, "Variance-Covariance")) << s;
}

TEST_F(ReportTest, ConstraintsHintWithOrWithoutAWarning) {
  // With a CONSTRAIN statement the hint follows whatever the status is: after
  // the warning when there is one, alone when there is none.
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "CONSTRAIN b = 0, 10;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 1\n2 2\n3 3\n4 4\n5 5\n");
  const char* const hint = "Try removing constraints on parameters.\n";
  for (int status : {0, 3}) {
    lstclear();
    covwarningfor(status);
    EXPECT_EQ(text(), hint) << status;
  }
  lstclear();
  covwarningfor(-2);
  EXPECT_EQ(text(), std::string("\nWarning: Covariance matrix could not be computed because a\n"
                                "successful finite-differencing step could not be found.\n") +
                        hint);
  // Without one, neither the hint nor anything else for a status >= 0.
  compile(fourpoints);
  for (int status : {0, 3}) {
    lstclear();
    covwarningfor(status);
    EXPECT_EQ(text(), "") << status;
  }
}

TEST_F(FinalReport, ConstraintsWithoutCovarianceRequest) {
  // A bounded fit without COVARIANCE: the status stays 0, so there is no
  // warning and no standard error, and the hint says why.
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "CONSTRAIN a = -5, 5;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 1.5\n2 2\n3 3.5\n");
  estimates({0.25, 1});
  finalpass();
  covariance({0, 0, 0, 0}, 0);
  report(4);
  std::string s = masked();
  EXPECT_TRUE(has(s, "Durbin-Watson test for autocorrelation = 2.667\n"
                     "Try removing constraints on parameters.\n"
                     "Analysis completed XX."))
      << s;
  EXPECT_FALSE(has(s, "Warning: Covariance")) << s;
  EXPECT_TRUE(has(s, "\n\n  ----  Calculated Parameter Values  ----\n\n")) << s;
}

// ---------------------------------------------------------------------------
// The analysis of variance on its own
// ---------------------------------------------------------------------------

TEST_F(ReportTest, AnovaTableForms) {
  compile(fourpoints);  // n = 5, p = 2
  anovafor(0, 1, 0);
  EXPECT_EQ(text(), "");
  // F of 1e6 or more in exponent form.
  anovafor(4000000, 3, 4000003);
  EXPECT_EQ(text(),
            "\n\n                  ----  Analysis of Variance  ----\n\n"
            "  Source     DF   Sum of Squares    Mean Square    F value   Prob(F)\n"
            "----------  ----  --------------  --------------  ---------  -------\n"
            "Regression     1         4000000         4000000    4.0E+06  0.00001\n"
            "Error          3               3               1\n"
            "Total          4         4000003\n");
  // An error mean square of 0: the short form.
  lstclear();
  anovafor(2.5, 0, 2.5);
  EXPECT_EQ(text(),
            "\n\n----  Analysis of Variance  ----\n\n"
            "  Source     DF   Sum of Squares\n"
            "----------  ----  --------------\n"
            "Regression     1             2.5\n"
            "Error          3               0\n"
            "Total          4             2.5\n");
}

}  // namespace
}  // namespace vexor
