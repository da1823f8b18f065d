// The correlation and variance-covariance matrices in their column blocks,
// correlation values, centred column heads and the confidence intervals.
#include <cmath>
#include <cstdio>
#include <string>

#include "kit/kit.h"
#include "report/report.h"
#include "reporttest.h"

namespace vexor {
namespace {

using test::ReportTest;

std::string centred(const char* name) {
  char field[64];
  centername(name, field);
  return field;
}

TEST(CenterName, PadsShortNamesAndKeepsLongOnes) {
  EXPECT_EQ(centred("a"), "     a    ");
  EXPECT_EQ(centred("beta"), "   beta   ");
  EXPECT_EQ(centred("epsilon"), "  epsilon ");
  EXPECT_EQ(centred("abcdefghi"), " abcdefghi");
  EXPECT_EQ(centred("abcdefghij"), "abcdefghij");
  EXPECT_EQ(centred("abcdefghijklmn"), "abcdefghijklmn");
  EXPECT_EQ(centred(""), "          ");
}

const char* const sixvars =
    "VARIABLES u1, v2, w3, x4, y5, zeta6;\n"
    "PARAMETERS a = 1;\n"
    "CORRELATE;\n"
    "FUNCTION zeta6 = a * u1;\n"
    "DATA;\n"
    "1.5 2.25 -0.75 4.125 3.5 0.625\n"
    "2.75 1.5 0.25 3.875 2.25 1.875\n"
    "3.25 3.75 1.5 2.125 4.75 -0.5\n"
    "4.5 2.5 0.875 1.25 1.125 2.375\n"
    "5.125 4.25 2.0 0.5 3.0 1.25\n";

// Values computed independently from the same data.
TEST_F(ReportTest, CorrelationMatrixOfSixVariablesInTwoBlocks) {
  compile(sixvars);
  ASSERT_EQ(ncorr, 6);
  collect();
  corrmatrix();
  EXPECT_EQ(text(),
            "\n\n           ----  Correlation Matrix  ----\n\n"
            " Variable        u1          v2          w3          x4          y5      \n"
            "----------   ----------  ----------  ----------  ----------  ----------\n"
            "        u1:     1.000       0.605       0.866      -0.955      -0.357  \n"
            "        v2:     0.605       1.000       0.815      -0.770       0.482  \n"
            "        w3:     0.866       0.815       1.000      -0.881       0.122  \n"
            "        x4:    -0.955      -0.770      -0.881       1.000       0.164  \n"
            "        y5:    -0.357       0.482       0.122       0.164       1.000  \n"
            "     zeta6:     0.357      -0.482      -0.110      -0.138      -0.986  \n"
            "\n\n           ----  Correlation Matrix (continued)  ----\n\n"
            " Variable       zeta6    \n"
            "----------   ----------\n"
            "        u1:     0.357  \n"
            "        v2:    -0.482  \n"
            "        w3:    -0.110  \n"
            "        x4:    -0.138  \n"
            "        y5:    -0.986  \n"
            "     zeta6:     1.000  \n");
}

// A work variable whose program fails for an observation: the messages of
// the runs made for a row's coefficients stand right before that row (none
// for a variable with itself, which needs no run).  Coefficients checked
// against numpy.corrcoef with w = 0 for x = 1 (the failed assignment stores
// 0.0).
TEST_F(ReportTest, CorrelationMessagesStandBeforeTheirRows) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1;\n"
      "DOUBLE w;\n"
      "w = sqrt(x - 2);\n"
      "CORRELATE x, w, y;\n"
      "FUNCTION y = a * x;\n"
      "DATA;\n"
      "1 1.1\n2 2.3\n3 2.9\n4 4.2\n5 4.8\n6 6.1\n7 7.2\n");
  finalpass();
  lstclear();
  collect();
  EXPECT_EQ(text(), "");  // set aside until the matrix is rendered
  corrmatrix();
  const std::string err =
      "Error executing line 4: w = sqrt(x - 2);\n"
      "Error: Attempt to take square root of negative number: -1\n";
  EXPECT_EQ(text(),
            "\n\n           ----  Correlation Matrix  ----\n\n"
            " Variable         x           w           y      \n"
            "----------   ----------  ----------  ----------\n" +
                err + "         x:     1.000       0.971       0.997  \n" + err + err +
                "         w:     0.971       1.000       0.954  \n" + err +
                "         y:     0.997       0.954       1.000  \n");
}

// The listing file receives what the Listing receives.
TEST_F(ReportTest, CorrelationMatrixInTheListingFile) {
  compile(sixvars);
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  lstfile = f;
  collect();
  corrmatrix();
  lstfile = nullptr;
  std::string file = kit::readstream(f);
  std::fclose(f);
  EXPECT_EQ(file, text());
}

// A variable with itself is 1 without reading the data: a constant column
// would otherwise give 0/0.
TEST_F(ReportTest, CorrelationDiagonalIsOneWithoutTheData) {
  compile(
      "VARIABLES x, k, y;\n"
      "PARAMETERS a = 1;\n"
      "FUNCTION y = a * x;\n"
      "DATA;\n"
      "1 4 2\n2 4 3.5\n3 4 7\n");
  Symbol* k = symfind("k");
  ASSERT_NE(k, nullptr);
  EXPECT_EQ(corrcoef(k, k), 1.0);
  EXPECT_TRUE(std::isnan(corrcoef(k, symfind("x"))));
}

// A work variable is correlated through runs of the program.
TEST_F(ReportTest, CorrelationWithAWorkVariable) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1;\n"
      "DOUBLE w, c = 0;\n"
      "w = 3.5 - 2 * x;\n"
      "c = c + 1;\n"
      "FUNCTION y = a * x;\n"
      "DATA;\n"
      "1 2.25\n2 3.5\n4 7.125\n");
  Symbol* x = symfind("x");
  Symbol* w = symfind("w");
  Symbol* c = symfind("c");
  double u, v;
  pairvalues(x, w, 2, &u, &v);
  EXPECT_EQ(u, 4.0);
  EXPECT_EQ(v, -4.5);
  EXPECT_NEAR(corrcoef(x, w), -1.0, 1e-12);
  // Each pass starts from the work variables' initial values, so the
  // counter runs 1, 2, 3 again: x = 1, 2, 4 against c = 1, 2, 3.
  EXPECT_NEAR(corrcoef(x, c), 0.9819805060619656, 1e-12);
  EXPECT_NEAR(corrcoef(x, c), 0.9819805060619656, 1e-12);
}

TEST_F(ReportTest, CovarianceMatrixOfFiveParametersInTwoBlocks) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS alpha = 1, beta = 1, gamma = 1, delta = 1, epsilon = 1;\n"
      "FUNCTION y = alpha + beta * x + gamma * x^2 + delta * x^3 + epsilon * x^4;\n");
  finalpass();
  covariance({2500000.015625, 0.03125, 0.046875, 0.0625, 0.078125,
              0.03125, 0.0625, 0.09375, 0.124999625, 0.15625,
              0.046875, 0.09375, 0.140625, 0.1875, 0.234375,
              0.0625, 0.124999625, 0.1875, 0.25, 0.3125,
              0.078125, 0.15625, 0.234375, 0.3125, 0.390625}, 1);
  collect();
  covmatrix();
  EXPECT_EQ(text(),
            "\n\n           ----  Variance-Covariance Matrix  ----\n\n"
            " Parameter        alpha          beta           gamma          delta   \n"
            "----------   -------------  -------------  -------------  -------------\n"
            "     alpha:        2.5E+06        0.03125       0.046875         0.0625\n"
            "      beta:        0.03125         0.0625        0.09375          0.125\n"
            "     gamma:       0.046875        0.09375        0.14062         0.1875\n"
            "     delta:         0.0625          0.125         0.1875           0.25\n"
            "   epsilon:       0.078125        0.15625        0.23438         0.3125\n"
            "\n\n           ----  Variance-Covariance Matrix (continued)  ----\n\n"
            " Parameter       epsilon  \n"
            "----------   -------------\n"
            "     alpha:       0.078125\n"
            "      beta:        0.15625\n"
            "     gamma:        0.23438\n"
            "     delta:         0.3125\n"
            "   epsilon:        0.39062\n");
}

const char* const threepoints =
    "VARIABLES x, y;\n"
    "PARAMETERS a = 1, b = 1;\n"
    "CONFIDENCE 50;\n"
    "FUNCTION y = a + b * x;\n"
    "DATA;\n"
    "1 2.25\n2 2.5\n3 4.125\n4 4.75\n";

// The title shows the level as requested; the limits use 0.50001, and the
// setting itself is raised.
TEST_F(ReportTest, ConfidenceFiftyIsTitledFiftyAndComputedAtFiftyPointZeroZeroOne) {
  compile(threepoints);
  EXPECT_DOUBLE_EQ(conflevel, 0.5);
  estimates({1.125, 0.9});
  finalpass();
  covariance({0.25, -0.0625, -0.0625, 0.0390625}, 1);
  collect();
  confintervals();
  EXPECT_EQ(conflevel, 0.50001);
  double t = tinv((0.50001 + 1) / 2, 2);
  // The 75.0005% quantile of t on 2 degrees of freedom is 0.816518...;
  // the bisection is good to 0.0001.
  EXPECT_NEAR(t, 0.81651835438762, 0.0001);
  EXPECT_NE(t, tinv(0.75, 2));
  char rows[300];
  std::snprintf(rows, sizeof rows, "%10s  %16.9G  %16.9G  %16.9G\n%10s  %16.9G  %16.9G  %16.9G\n",
                "a", 1.125 - 0.5 * t, 1.125, 1.125 + 0.5 * t, "b", 0.9 - 0.19764235376052372 * t, 0.9,
                0.9 + 0.19764235376052372 * t);
  EXPECT_EQ(text(),
            "\n\n         ----  50.000% Confidence Intervals  ----\n\n"
            " Parameter     Lower limit      Best estimate      Upper limit\n"
            "----------  ----------------  ----------------  ----------------\n" +
                std::string(rows));
  EXPECT_DOUBLE_EQ(parms[0]->cilow, 1.125 - 0.5 * t);
  EXPECT_DOUBLE_EQ(parms[0]->cihigh, 1.125 + 0.5 * t);
  EXPECT_NEAR(parms[1]->cihigh - parms[1]->cilow, 2 * 0.19764235376052372 * t, 1e-12);
}

TEST_F(ReportTest, ConfidenceIntervalsNeedMoreObservationsThanParameters) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1;\n"
      "CONFIDENCE 95;\n"
      "FUNCTION y = a + b * x;\n"
      "DATA;\n"
      "1 2.25\n2 2.5\n");
  finalpass();
  covariance({1, 0, 0, 1}, 1);
  parms[0]->cilow = 7.5;
  collect();
  confintervals();
  EXPECT_EQ(text(), "\nUnable to compute confidence interval with this few observations.\n");
  EXPECT_EQ(parms[0]->cilow, 7.5);
}

TEST(TInverse, NinetyFivePercentWithLargeDegreesOfFreedom) {
  EXPECT_NEAR(tinv(0.975, 1e6), 1.95996635681411, 0.0001);
  EXPECT_NEAR(tinv(0.975, 100000), 1.95998770753461, 0.0001);
}

}  // namespace
}  // namespace vexor
