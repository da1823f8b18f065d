// The analysis object driven as a host drives it: every method, the edge
// cases of the object and of its argument coercion, and calls in orders that
// make no sense.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "api/engine.h"
#include "analysis/analysis.h"
#include "growth.h"
#include "hosttest.h"
#include "lang/lang.h"
#include "report/report.h"

using namespace vartest;

namespace {


// A function minimisation (no VARIABLES): least metal for a 32-litre box.
const char* const box =
    "CONSTANT volume = 32;\n"
    "PARAMETERS x = 1, y = 7;\n"
    "DOUBLE h;\n"
    "COVARIANCE;\n"
    "CORRELATE h, x;\n"
    "h = volume / (x * y);\n"
    "FUNCTION x*y + 2*h*(x + y);\n";

void supply(Host& h) {
  for (std::size_t i = 0; i < xs.size(); ++i) {
    h.setvalue(static_cast<long>(i), 0, xs[i]);
    h.setvalue(static_cast<long>(i), 1, ys[i]);
  }
}

// Computes the growth model and checks that every statistic but the version
// has a value, so that a later 0.0 shows a reset and not an empty run.
void computewithstatistics(Host& h) {
  ASSERT_EQ(h.compile(growth), 1) << h.report();
  supply(h);
  ASSERT_GE(h.compute(), 3) << h.report();
  // So short a run may take no measurable time: give the runtime a value of
  // its own, so that its clearing shows too.
  if (h.stat(9) == 0.0) vexor::results.summary.runtime = 0.125;
  for (long k = 0; k <= 9; ++k) ASSERT_NE(h.stat(k), 0.0) << "statistic " << k;
}

void expectnostatistics(Host& h) {
  for (long k = 0; k <= 9; ++k) EXPECT_EQ(h.stat(k), 0.0) << "statistic " << k;
  EXPECT_EQ(h.stat(10), 5.4);
}

class Object : public ::testing::Test {
 protected:
  void SetUp() override {
    takeerror();
    h.init();
  }
  Host h;
};

}  // namespace

// ---------------------------------------------------------------------------
// A whole analysis
// ---------------------------------------------------------------------------

TEST_F(Object, FitWithDataSuppliedCellByCell) {
  ASSERT_EQ(h.compile(growth), 1) << h.report();
  EXPECT_EQ(h.numvars(), 2);
  EXPECT_EQ(h.varname(0), "x");
  EXPECT_EQ(h.varname(1), "y");
  EXPECT_EQ(h.numparms(), 2);
  EXPECT_EQ(h.parmname(0), "a");
  EXPECT_EQ(h.parmname(1), "b");
  EXPECT_EQ(h.setrows(6), 0);
  supply(h);
  EXPECT_EQ(h.numrows(), 6);
  EXPECT_EQ(h.getvalue(3, 1), 13.6);
  long code = h.compute();
  ASSERT_GE(code, 3) << h.report();  // converged
  double a = h.parm(0, 0), b = h.parm(1, 0);

  // The estimates solve the normal equations: the residuals are orthogonal
  // to both columns of the Jacobian.
  double ga = 0, gb = 0, na = 0, nb = 0, sse = 0, sumdev = 0, maxdev = 0, sy = 0, syy = 0;
  for (std::size_t i = 0; i < xs.size(); ++i) {
    double e = std::exp(b * xs[i]);
    double r = ys[i] - a * e;
    ga += r * e;
    gb += r * a * xs[i] * e;
    na += e * e;
    nb += (a * xs[i] * e) * (a * xs[i] * e);
    sse += r * r;
    sumdev += r;
    maxdev = std::max(maxdev, std::fabs(r));
    sy += ys[i];
    syy += ys[i] * ys[i];
  }
  EXPECT_LT(std::fabs(ga) / std::sqrt(na * sse), 1e-5);
  EXPECT_LT(std::fabs(gb) / std::sqrt(nb * sse), 1e-5);

  // Statistics, against the same quantities computed here.
  const double n = 6, p = 2;
  EXPECT_EQ(h.stat(0), 6.0);
  EXPECT_GE(h.stat(1), 1.0);
  EXPECT_NEAR(h.stat(2), sse, 1e-9 * sse);
  EXPECT_NEAR(h.stat(3), sumdev, 1e-9);
  EXPECT_NEAR(h.stat(4), maxdev, 1e-9);
  EXPECT_NEAR(h.stat(5), std::sqrt(sse / (n - p)), 1e-9);
  double stot = syy - sy * sy / n;
  EXPECT_NEAR(h.stat(6), 1 - sse / stot, 1e-9);
  EXPECT_NEAR(h.stat(7), 1 - (n - 1) / (n - p) * sse / stot, 1e-9);
  EXPECT_GE(h.stat(9), 0.0);
  EXPECT_EQ(h.stat(10), 5.4);

  // Parameter statistics and the covariance matrix agree.
  for (long k = 0; k < 2; ++k) {
    double se = h.parm(k, 1);
    EXPECT_GT(se, 0.0);
    EXPECT_NEAR(se, std::sqrt(h.cov(k, k)), 1e-12 * se);
    EXPECT_NEAR(h.parm(k, 2), h.parm(k, 0) / se, 1e-9 * std::fabs(h.parm(k, 2)));
    EXPECT_GT(h.parm(k, 3), 0.0);
    EXPECT_LE(h.parm(k, 3), 1.0);
  }
  EXPECT_EQ(h.cov(0, 1), h.cov(1, 0));
  EXPECT_NE(h.cov(0, 1), 0.0);
  EXPECT_EQ(h.cov(2, 0), 0.0);
  EXPECT_EQ(h.cov(0, -1), 0.0);

  // The correlation of x and y, computed here.
  double mx = 0, my = 0;
  for (std::size_t i = 0; i < xs.size(); ++i) mx += xs[i] / n, my += ys[i] / n;
  double sxy = 0, sxx = 0, syy2 = 0;
  for (std::size_t i = 0; i < xs.size(); ++i) {
    sxy += (xs[i] - mx) * (ys[i] - my);
    sxx += (xs[i] - mx) * (xs[i] - mx);
    syy2 += (ys[i] - my) * (ys[i] - my);
  }
  EXPECT_NEAR(h.corr(0, 1), sxy / std::sqrt(sxx * syy2), 1e-12);
  EXPECT_EQ(h.corr(1, 0), h.corr(0, 1));
  EXPECT_EQ(h.corr(0, 0), 1.0);
  EXPECT_EQ(h.corr(0, 2), 0.0);
  EXPECT_EQ(h.corr(-1, 0), 0.0);

  // The fitted model at new points.
  h.evalvalue(0, 2.385);
  EXPECT_NEAR(h.evalfn(), a * std::exp(b * 2.385), 1e-12 * a * std::exp(b * 2.385));
  h.evalvalue(0, -0.75);
  h.evalvalue(5, 100.0);  // no such variable: nothing happens
  EXPECT_NEAR(h.evalfn(), a * std::exp(b * -0.75), 1e-12);

  // The listing holds the program and the results.
  std::string listing = h.report();
  EXPECT_NE(listing.find("   1: VARIABLES x, y;\r\n"), std::string::npos) << listing;
  EXPECT_NE(listing.find("Final Results"), std::string::npos) << listing;
}

TEST_F(Object, DataInTheProgramGivesTheSameFit) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  ASSERT_GE(h.compute(), 3);
  double a = h.parm(0, 0), b = h.parm(1, 0), sse = h.stat(2);
  std::string program = growth;
  program += "DATA;\n";
  for (std::size_t i = 0; i < xs.size(); ++i)
    program += std::to_string(xs[i]) + " " + std::to_string(ys[i]) + "\n";
  ASSERT_EQ(h.compile(program), 1) << h.report();
  EXPECT_EQ(h.numrows(), 6);
  ASSERT_GE(h.compute(), 3);
  EXPECT_NEAR(h.parm(0, 0), a, 1e-6 * a);
  EXPECT_NEAR(h.parm(1, 0), b, 1e-6 * b);
  EXPECT_NEAR(h.stat(2), sse, 1e-6 * sse);
}

// ---------------------------------------------------------------------------
// Edge cases of the object
// ---------------------------------------------------------------------------

// A minimisation that asks for a correlation matrix: none in the listing,
// and GetCorrelationValue gives 0.
TEST_F(Object, MinimisationWithCorrelateHasNoCorrelationMatrix) {
  ASSERT_EQ(h.compile("PARAMETERS a = 1.5, b = -0.5;\nDOUBLE u, v;\nCORRELATE u, v;\nu = a; v = b;\n"
                      "FUNCTION (a - 2.25)^2 + (b + 1.125)^2 + 0.375;\n"),
            1);
  ASSERT_GE(h.compute(), 1);
  EXPECT_EQ(h.corr(0, 1), 0.0);
  EXPECT_EQ(h.corr(0, 0), 0.0);
  const std::string report = h.report();
  EXPECT_EQ(report.find("Correlation Matrix"), std::string::npos) << report;
  EXPECT_NE(report.find("Final function value =  3.7500000E-01"), std::string::npos) << report;
}

TEST_F(Object, VersionStatisticAtAnyTime) {
  EXPECT_EQ(h.stat(10), 5.4);  // after a reset, before any compile
  h.compile("this is no program;\n");
  EXPECT_EQ(h.stat(10), 5.4);
  h.compile(growth);
  EXPECT_EQ(h.stat(10), 5.4);
  supply(h);
  h.compute();
  EXPECT_EQ(h.stat(10), 5.4);
}

TEST_F(Object, UnknownStatisticCodesGiveZero) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  ASSERT_GE(h.compute(), 3);
  ASSERT_NE(h.stat(0), 0.0);  // the known codes do have values
  ASSERT_NE(h.stat(2), 0.0);
  EXPECT_EQ(h.stat(-1), 0.0);
  EXPECT_EQ(h.stat(11), 0.0);
  EXPECT_EQ(h.stat(-2147483647), 0.0);
}

TEST_F(Object, InitializeClearsTheStatistics) {
  ASSERT_NO_FATAL_FAILURE(computewithstatistics(h));
  EXPECT_EQ(h.init(), 0);
  expectnostatistics(h);
}

TEST_F(Object, CompilingAnotherProgramClearsTheStatistics) {
  ASSERT_NO_FATAL_FAILURE(computewithstatistics(h));
  ASSERT_EQ(h.compile("VARIABLES u, v;\nPARAMETERS k = 2.385;\nFUNCTION v = k * u;\n"), 1) << h.report();
  expectnostatistics(h);
  // A failed compilation resets the engine just the same.
  ASSERT_NO_FATAL_FAILURE(computewithstatistics(h));
  EXPECT_EQ(h.compile("this is no program;\n"), 0);
  expectnostatistics(h);
}

TEST_F(Object, CompileFileClearsTheStatisticsEvenWhenTheFileIsMissing) {
  ASSERT_NO_FATAL_FAILURE(computewithstatistics(h));
  EXPECT_EQ(h.compilefile("/no/such/dir/model.vex"), 0);
  expectnostatistics(h);
}

TEST_F(Object, ParameterValueSelectors) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  ASSERT_GE(h.compute(), 3);
  EXPECT_EQ(h.parm(0, 6), 1.0);  // starting values
  EXPECT_EQ(h.parm(1, 6), 0.5);
  EXPECT_NE(h.parm(0, 0), 1.0);  // estimates
  // The least-squares minimum (python3, mpmath at 30 digits: Newton's
  // method on the gradient of the sum of squares).
  EXPECT_NEAR(h.parm(0, 0), 1.97834167508502787833940786790235, 1e-9 * 1.98);
  EXPECT_NEAR(h.parm(1, 0), 0.837199975294330049191121323529751, 1e-9 * 0.84);
  EXPECT_EQ(h.parm(0, 7), 0.0);
  EXPECT_EQ(h.parm(0, -1), 0.0);
  EXPECT_EQ(h.parm(2, 0), 0.0);
  EXPECT_EQ(h.parm(-1, 0), 0.0);
}

TEST_F(Object, ConfidenceLimitsBracketTheEstimate) {
  std::string program = growth;
  program += "CONFIDENCE 95;\n";
  ASSERT_EQ(h.compile(program), 1) << h.report();
  supply(h);
  ASSERT_GE(h.compute(), 3);
  for (long k = 0; k < 2; ++k) {
    double lo = h.parm(k, 4), est = h.parm(k, 0), hi = h.parm(k, 5);
    EXPECT_LT(lo, est);
    EXPECT_GT(hi, est);
    EXPECT_NEAR(est - lo, hi - est, 1e-9 * (hi - lo));
  }
}

TEST_F(Object, SetDataValueBadColumnAndRow) {
  ASSERT_EQ(h.compile(growth), 1);
  long r = 0;
  EXPECT_EQ(h.setvalue(0, 2, 2.385, &r), 8);  // nvars = 2
  EXPECT_EQ(r, -999);                         // left as the caller passed it
  EXPECT_EQ(h.setvalue(0, -1, 2.385, &r), 8);
  EXPECT_EQ(r, -999);
  EXPECT_EQ(h.setvalue(-1, 0, 2.385, &r), 7);
  EXPECT_EQ(r, -999);
  EXPECT_EQ(h.setvalue(1, 1, 2.385, &r), S_OK);
  EXPECT_EQ(r, 0);
  EXPECT_EQ(h.getvalue(1, 1), 2.385);
}

// A negative row changes nothing: not the count, not the matrix, not the
// capacity (the count of observations never runs ahead of the data).
TEST_F(Object, NegativeRowsChangeNothing) {
  ASSERT_EQ(h.compile(growth), 1);
  long r = -999;
  EXPECT_EQ(h.setvalue(-2, 0, 2.385, &r), 7);
  EXPECT_EQ(h.setvalue(-600, 1, 2.385, &r), 7);
  EXPECT_EQ(r, -999);
  EXPECT_EQ(h.numrows(), 0);
  EXPECT_EQ(vexor::datamat, nullptr);
  supply(h);
  const double* before = vexor::datamat;
  EXPECT_EQ(h.setvalue(-1, 0, 2.385, &r), 7);
  EXPECT_EQ(h.setvalue(-700, 1, 2.385, &r), 7);
  EXPECT_EQ(h.numrows(), 6);
  EXPECT_EQ(vexor::datacap, 501);
  EXPECT_EQ(vexor::datamat, before);
  for (std::size_t i = 0; i < xs.size(); ++i) {
    EXPECT_EQ(h.getvalue(static_cast<long>(i), 0), xs[i]);
    EXPECT_EQ(h.getvalue(static_cast<long>(i), 1), ys[i]);
  }
}

TEST_F(Object, SetDataValueGrowsAnEmptyEngine) {
  ASSERT_EQ(h.compile(growth), 1);
  long r = -1;
  EXPECT_EQ(h.setvalue(10, 0, 7.25, &r), S_OK);
  EXPECT_EQ(r, 0);
  EXPECT_EQ(h.numrows(), 11);
  EXPECT_EQ(vexor::datacap, 511);
  for (long i = 0; i < 10; ++i) {
    EXPECT_EQ(h.getvalue(i, 0), 0.0);
    EXPECT_EQ(h.getvalue(i, 1), 0.0);
  }
  EXPECT_EQ(h.getvalue(10, 0), 7.25);
  // Within the capacity only the count moves; beyond it the matrix grows
  // and keeps what it held.
  h.setvalue(20, 1, 1.5);
  EXPECT_EQ(h.numrows(), 21);
  EXPECT_EQ(vexor::datacap, 511);
  h.setvalue(600, 1, 2.5);
  EXPECT_EQ(h.numrows(), 601);
  EXPECT_EQ(vexor::datacap, 1101);
  EXPECT_EQ(h.getvalue(10, 0), 7.25);
  EXPECT_EQ(h.getvalue(20, 1), 1.5);
  EXPECT_EQ(h.getvalue(600, 1), 2.5);
  h.setvalue(3, 0, 0.5);  // an earlier row: the count stays
  EXPECT_EQ(h.numrows(), 601);
}

TEST_F(Object, SetDataRowsReplacesTheData) {
  ASSERT_EQ(h.compile(growth), 1);
  h.setvalue(4, 1, 9.5);
  EXPECT_EQ(h.setrows(3), 0);
  EXPECT_EQ(h.numrows(), 3);
  EXPECT_EQ(h.getvalue(2, 1), 0.0);
  EXPECT_EQ(h.getvalue(3, 0), 0.0);  // beyond the rows
  EXPECT_EQ(vexor::invars[0]->lower, 1e30);
  EXPECT_EQ(vexor::invars[1]->upper, -1e30);
  // A count that cannot be allocated leaves no data and 0 rows, not the
  // count asked for.
  EXPECT_EQ(h.setrows(-4), 5);  // no such matrix
  EXPECT_EQ(h.numrows(), 0);
  EXPECT_EQ(h.getvalue(0, 0), 0.0);
  // 32 GB: beyond the memory the engine may use (a limit of 64 MB here, so
  // that the failure does not depend on the machine).
  vexor::setmemlimit(64 << 20);
  EXPECT_EQ(h.setrows(2000000000), 5);
  vexor::setmemlimit(0);
  EXPECT_EQ(h.numrows(), 0);
  EXPECT_EQ(h.setrows(0), 0);
  EXPECT_EQ(h.numrows(), 0);
}

// A failed allocation or resize leaves no data and 0 rows, not the row + 1
// observations the growth would have made.
// The engine's memory is limited to 64 MB here, so that the failures do not
// depend on the machine.
TEST_F(Object, SetDataValueBeyondTheLimitGivesFive) {
  ASSERT_EQ(h.compile(growth), 1);
  vexor::setmemlimit(64 << 20);
  long r = -1;
  EXPECT_EQ(h.setvalue(2147483647, 0, 1.0, &r), S_OK);
  EXPECT_EQ(r, 5);
  EXPECT_EQ(h.numrows(), 0);
  h.setvalue(2, 0, 1.0);
  EXPECT_EQ(h.setvalue(200000000, 0, 1.0, &r), S_OK);  // a growth that fails
  EXPECT_EQ(r, 5);
  vexor::setmemlimit(0);
  EXPECT_EQ(h.numrows(), 0);
  EXPECT_EQ(h.getvalue(2, 0), 0.0);
}

TEST_F(Object, CompileFileWithAMissingFileKeepsTheLastProgram) {
  std::string program = growth;
  program += "DATA;\n0.5 3.1\n1.1 4.9\n1.7 8.2\n2.3 13.6\n";
  ASSERT_EQ(h.compile(program), 1);
  EXPECT_EQ(h.compilefile("/no/such/dir/model.vex"), 0);
  std::string listing = h.report();
  EXPECT_NE(listing.find("Unable to open VEXOR source file: /no/such/dir/model.vex"), std::string::npos)
      << listing;
  // The compiled-successfully flag survived the reset and the failed read:
  // Compute runs the driver (which never answers 0) instead of refusing.
  EXPECT_EQ(vexor::compiledok, 1);
  EXPECT_NE(h.compute(), 0);
}

TEST_F(Object, CompileFileReadsAFile) {
  std::filesystem::path dir = std::filesystem::temp_directory_path() / "vexor_api_test";
  std::filesystem::create_directories(dir);
  std::string path = (dir / "growth.vex").string();
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs(growth, f);
  std::fclose(f);
  EXPECT_EQ(h.compilefile(path), 1) << h.report();
  EXPECT_EQ(h.numparms(), 2);
  std::filesystem::remove(path);
}

TEST_F(Object, CompileFileCutsTheNameTo499Characters) {
  // A file whose full name is exactly 499 characters long, named with 101
  // more characters after it: only the cut name finds the file.
  std::filesystem::path base = std::filesystem::temp_directory_path() / "vexor_api_long";
  std::string path = base.string();
  while (path.size() < 499 - 60) path += "/" + std::string(50, 'd');
  std::filesystem::create_directories(path);
  path += "/";
  path += std::string(499 - path.size(), 'f');
  ASSERT_EQ(path.size(), 499u);
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs(growth, f);
  std::fclose(f);
  std::string named = path + std::string(101, 'z');
  ASSERT_EQ(named.size(), 600u);
  EXPECT_EQ(h.compilefile(named), 1) << h.report();
  EXPECT_EQ(h.numvars(), 2);
  std::filesystem::remove_all(base);
  // Missing, the name in the message is the cut one.
  EXPECT_EQ(h.compilefile(named), 0);
  std::string listing = h.report();
  EXPECT_NE(listing.find("Unable to open VEXOR source file: " + path + "\r\n"), std::string::npos);
  EXPECT_EQ(listing.find(path + "z"), std::string::npos);
}

TEST_F(Object, MinimisationHasNoCorrelationOrCovariance) {
  ASSERT_EQ(h.compile(box), 1) << h.report();
  EXPECT_EQ(h.numvars(), 0);
  long code = h.compute();
  EXPECT_GE(code, 1) << h.report();
  EXPECT_NEAR(h.parm(0, 0), 4.0, 1e-3);
  EXPECT_NEAR(h.parm(1, 0), 4.0, 1e-3);
  // The CORRELATE list is there; only the kind of analysis rules it out
  // (a variable correlated with itself would give 1.0).
  ASSERT_EQ(vexor::ncorr, 2);
  EXPECT_EQ(h.corr(0, 1), 0.0);
  EXPECT_EQ(h.corr(0, 0), 0.0);
  // This fit has no usable covariance matrix of its own (its residuals all
  // repeat the one value of the function, so with two parameters their
  // Jacobian is singular), so the covariance reads 0.0 for
  // more than one reason here; MinimisationHasNoCovarianceEvenWithAMatrix
  // isolates the minimisation rule.
  EXPECT_EQ(h.cov(0, 0), 0.0);
  EXPECT_EQ(h.cov(0, 1), 0.0);
  // The model at the optimum: the least surface, 48 square decimetres.
  EXPECT_NEAR(h.evalfn(), 48.0, 1e-5);
}

TEST_F(Object, MinimisationHasNoCovarianceEvenWithAMatrix) {
  // One parameter: the optimizer does compute a covariance for this
  // minimisation (an enormous one, the function being flat at its least
  // value).  The looser tolerance stops the fit a little short of the exact
  // least value, where the derivative, and with it J'J, would vanish.
  ASSERT_EQ(h.compile("PARAMETERS x = 1;\nCOVARIANCE;\nTOLERANCE 1e-6;\n"
                      "FUNCTION (x - 2.385)^2 + 1.5;\n"), 1)
      << h.report();
  ASSERT_GE(h.compute(), 1) << h.report();
  EXPECT_NEAR(h.parm(0, 0), 2.385, 1e-3);
  // Rows set by the host give it more observations than parameters, so
  // every other condition for reading the matrix holds.
  EXPECT_EQ(h.setrows(5), 0);
  EXPECT_EQ(h.numrows(), 5);
  ASSERT_EQ(vexor::minimize, 1);
  ASSERT_GT(vexor::covstatus, 0);
  ASSERT_NE(vexor::covreq, 0);
  ASSERT_NE(vexor::covmat, nullptr);
  ASSERT_NE(vexor::covmat[0], 0.0);
  EXPECT_EQ(h.cov(0, 0), 0.0);
}

TEST_F(Object, CovarianceNeedsMoreObservationsThanParameters) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  ASSERT_GE(h.compute(), 3) << h.report();
  double c00 = h.cov(0, 0), c01 = h.cov(0, 1);
  ASSERT_NE(c00, 0.0);
  ASSERT_NE(c01, 0.0);
  // As many rows as parameters, then fewer: the matrix of the fit is still
  // there, but reads 0.0.
  EXPECT_EQ(h.setrows(2), 0);
  ASSERT_NE(vexor::covmat, nullptr);
  EXPECT_EQ(vexor::covmat[0], c00);
  EXPECT_EQ(h.cov(0, 0), 0.0);
  EXPECT_EQ(h.cov(0, 1), 0.0);
  EXPECT_EQ(h.setrows(1), 0);
  EXPECT_EQ(h.cov(1, 1), 0.0);
  // One row more than parameters and it reads again.
  EXPECT_EQ(h.setrows(3), 0);
  EXPECT_EQ(h.cov(0, 0), c00);
  EXPECT_EQ(h.cov(0, 1), c01);
}

TEST_F(Object, ReportTwiceGivesTheSameText) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  h.compute();
  std::string first = h.report();
  EXPECT_FALSE(first.empty());
  EXPECT_EQ(h.report(), first);
  h.init();
  EXPECT_EQ(h.report(), "");
  EXPECT_EQ(h.report(), "");
}

TEST_F(Object, FailedCompileLeavesItsMessages) {
  EXPECT_EQ(h.compile("VARIABLES x, y;\nPARAMETERS a;\nFUNCTION y = a * q;\n"), 0);
  std::string listing = h.report();
  EXPECT_NE(listing.find("Error"), std::string::npos) << listing;
  EXPECT_EQ(h.compute(), 0);
}

TEST_F(Object, UnclosedCommentWithAReturningHandler) {
  vexor::LexExitHandler old = vexor::setlexexithandler([](int) {});
  EXPECT_EQ(h.compile("VARIABLES x, y;\n/* never closed\n"), 0);
  vexor::setlexexithandler(old);
  EXPECT_EQ(h.compute(), 0);
}

// ---------------------------------------------------------------------------
// Call orders that make no sense
// ---------------------------------------------------------------------------

TEST_F(Object, ComputeBeforeAnyCompileReturnsZero) {
  h.compile("no program;\n");  // the last compilation failed
  h.init();
  EXPECT_EQ(h.compute(), 0);
  EXPECT_EQ(h.report(), "");  // nothing ran
}

TEST_F(Object, InitializeKeepsTheCompiledSuccessfullyFlag) {
  ASSERT_EQ(h.compile(growth), 1);
  EXPECT_EQ(h.init(), 0);
  EXPECT_EQ(h.report(), "");
  // The program is gone with the reset, but Compute still runs the driver
  // (which never answers 0) rather than refusing, and the run leaves its
  // listing.
  EXPECT_NE(h.compute(), 0);
  EXPECT_NE(h.report().find("Beginning computation..."), std::string::npos) << h.report();
}

TEST_F(Object, ReadsBeforeACompile) {
  h.compile("no program;\n");
  h.init();
  EXPECT_EQ(h.numvars(), 0);
  EXPECT_EQ(h.numparms(), 0);
  EXPECT_EQ(h.numrows(), 0);
  EXPECT_EQ(h.varname(0), "");
  EXPECT_EQ(h.parmname(0), "");
  EXPECT_EQ(h.parm(0, 0), 0.0);
  EXPECT_EQ(h.getvalue(0, 0), 0.0);
  EXPECT_EQ(h.corr(0, 0), 0.0);
  EXPECT_EQ(h.cov(0, 0), 0.0);
  EXPECT_EQ(h.evalfn(), 0.0);
  EXPECT_EQ(h.stat(0), 0.0);
  EXPECT_EQ(h.report(), "");
}

TEST_F(Object, ReadsAfterACompileBeforeCompute) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  EXPECT_EQ(h.parm(0, 0), 1.0);  // the starting value, still current
  EXPECT_EQ(h.parm(1, 6), 0.5);
  EXPECT_EQ(h.parm(0, 1), 0.0);
  EXPECT_EQ(h.cov(0, 0), 0.0);  // no fit yet
  h.evalvalue(0, 2.0);
  EXPECT_NEAR(h.evalfn(), std::exp(1.0), 1e-15);  // at the starting values
  EXPECT_EQ(h.stat(10), 5.4);
}

TEST_F(Object, SetDataValueBeforeCompile) {
  h.compile("no program;\n");
  h.init();  // no input variables: every column is out of range
  long r = -999;
  EXPECT_EQ(h.setvalue(0, 0, 1.5, &r), 8);
  EXPECT_EQ(r, -999);
  EXPECT_EQ(h.setvalue(-3, 0, 1.5, &r), 7);
  EXPECT_EQ(h.getvalue(0, 0), 0.0);
  EXPECT_EQ(h.setrows(4), 0);
  EXPECT_EQ(h.compute(), 0);
}

TEST_F(Object, TooFewObservations) {
  ASSERT_EQ(h.compile(growth), 1);
  h.setvalue(0, 0, 1.0);
  h.setvalue(0, 1, 2.0);
  EXPECT_EQ(h.compute(), -7);
  EXPECT_NE(h.report().find("Error: Fewer data observations than parameters"), std::string::npos);
  EXPECT_EQ(h.cov(0, 0), 0.0);
}

TEST_F(Object, ComputeTwice) {
  ASSERT_EQ(h.compile(growth), 1);
  supply(h);
  ASSERT_GE(h.compute(), 3);
  double a = h.parm(0, 0);
  ASSERT_GE(h.compute(), 3);
  EXPECT_NEAR(h.parm(0, 0), a, 1e-9 * a);
}

TEST_F(Object, TwoObjectsShareTheEngine) {
  Host other;
  ASSERT_EQ(h.compile(growth), 1);
  EXPECT_EQ(other.numvars(), 2);
  for (std::size_t i = 0; i < xs.size(); ++i) {
    other.setvalue(static_cast<long>(i), 0, xs[i]);
    h.setvalue(static_cast<long>(i), 1, ys[i]);
  }
  EXPECT_EQ(h.numrows(), 6);
  EXPECT_EQ(other.getvalue(5, 1), 40.3);
  ASSERT_GE(other.compute(), 3);
  EXPECT_EQ(h.parm(1, 0), other.parm(1, 0));
  EXPECT_EQ(h.report(), other.report());
  other.init();
  EXPECT_EQ(h.numparms(), 0);
  EXPECT_EQ(h.report(), "");
}

TEST_F(Object, NullArgumentsNeverCrash) {
  VEXOR& o = h.obj;
  for (int round = 0; round < 2; ++round) {
    if (round == 1) {
      ASSERT_EQ(h.compile(growth), 1);
      supply(h);
    }
    EXPECT_EQ(o.Initialize(nullptr, nullptr), S_OK);
    if (round == 1) {
      ASSERT_EQ(h.compile(growth), 1);
      supply(h);
    }
    EXPECT_EQ(o.GetAnalysisReport(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.Compute(nullptr), S_OK);
    EXPECT_EQ(o.NumInputVariables(nullptr), S_OK);
    EXPECT_EQ(o.InputVariableName(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.NumParameters(nullptr), S_OK);
    EXPECT_EQ(o.ParameterName(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.ParameterValue(nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(o.GetStatistic(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.GetDataValue(nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(o.GetCorrelationValue(nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(o.GetCovarianceValue(nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(o.EvaluateValue(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.EvaluateFunction(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.NumDataRows(nullptr), S_OK);
    // Row 0 and column 0 after the failed coercions.
    EXPECT_EQ(o.SetDataValue(nullptr, nullptr, nullptr, nullptr), round == 0 ? 8 : S_OK);
    EXPECT_EQ(o.SetDataRows(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.Compile(nullptr, nullptr), S_OK);
    EXPECT_EQ(o.CompileFile(nullptr, nullptr), S_OK);
  }
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
}

// ---------------------------------------------------------------------------
// Argument coercion through the object
// ---------------------------------------------------------------------------

TEST_F(Object, StringIndexesThroughTheObject) {
  ASSERT_EQ(h.compile(growth), 1);
  Var row, col, val, out;
  setbstr(row.p(), u"12abc");
  setlong(col.p(), 1);
  setbstr(val.p(), u"2.385");
  EXPECT_EQ(h.obj.SetDataValue(row.p(), col.p(), val.p(), out.p()), S_OK);
  EXPECT_EQ(h.getvalue(12, 1), 2.385);
  EXPECT_EQ(takeerror(), "");
  setbstr(row.p(), u"abc");  // letters only: row 0, no report
  EXPECT_EQ(h.obj.SetDataValue(row.p(), col.p(), val.p(), out.p()), S_OK);
  EXPECT_EQ(h.getvalue(0, 1), 2.385);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Object, DoubleIndexIsTruncated) {
  ASSERT_EQ(h.compile(growth), 1);
  Var row, col, val, out;
  setdouble(row.p(), -2.7);  // row -2
  setlong(col.p(), 0);
  setdouble(val.p(), 1.0);
  EXPECT_EQ(h.obj.SetDataValue(row.p(), col.p(), val.p(), out.p()), 7);
  setdouble(row.p(), 1.9);
  EXPECT_EQ(h.obj.InputVariableName(row.p(), out.p()), S_OK);
  EXPECT_EQ(narrow(out.v.bstrVal), "y");
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Object, BoolOrEmptyIndexReportsAndReadsZero) {
  ASSERT_EQ(h.compile(growth), 1);
  Var idx, out;
  idx.v.vt = VT_BOOL;
  idx.v.boolVal = VARIANT_TRUE;
  EXPECT_EQ(h.obj.InputVariableName(idx.p(), out.p()), S_OK);
  EXPECT_EQ(narrow(out.v.bstrVal), "x");  // index 0
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
  VariantClear(out.p());
  VariantClear(idx.p());  // VT_EMPTY
  EXPECT_EQ(h.obj.ParameterName(idx.p(), out.p()), S_OK);
  EXPECT_EQ(narrow(out.v.bstrVal), "a");
  EXPECT_EQ(takeerror(), "Invalid data type passed where long integer expected");
}

TEST_F(Object, BadValueAndSourceTypesReportAndGoOn) {
  ASSERT_EQ(h.compile(growth), 1);
  Var row, col, val, out;
  setlong(row.p(), 1);
  setlong(col.p(), 0);
  val.v.vt = VT_BOOL;
  EXPECT_EQ(h.obj.SetDataValue(row.p(), col.p(), val.p(), out.p()), S_OK);
  EXPECT_EQ(out.v.lVal, 0);
  EXPECT_EQ(h.getvalue(1, 0), 0.0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where double (float) expected");
  Var src;
  setlong(src.p(), 5);
  EXPECT_EQ(h.obj.Compile(src.p(), out.p()), S_OK);
  EXPECT_EQ(out.v.vt, VT_I4);
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
  EXPECT_EQ(h.obj.CompileFile(src.p(), out.p()), S_OK);
  EXPECT_EQ(out.v.lVal, 0);
  EXPECT_EQ(takeerror(), "Invalid data type passed where string expected");
}

TEST_F(Object, ArgumentsByReference) {
  ASSERT_EQ(h.compile(growth), 1);
  LONG r = 3, c = 1;
  DOUBLE x = 6.125;
  VARIANT row, col, val, out;
  row.vt = VT_I4 | VT_BYREF;
  row.plVal = &r;
  col.vt = VT_I4 | VT_BYREF;
  col.plVal = &c;
  val.vt = VT_R8 | VT_BYREF;
  val.pdblVal = &x;
  VariantInit(&out);
  EXPECT_EQ(h.obj.SetDataValue(&row, &col, &val, &out), S_OK);
  EXPECT_EQ(h.getvalue(3, 1), 6.125);
  BSTR text = SysAllocString(OLESTR("VARIABLES u; PARAMETERS k; FUNCTION u = k;\n"));
  VARIANT src;
  src.vt = VT_BSTR | VT_BYREF;
  src.pbstrVal = &text;
  EXPECT_EQ(h.obj.Compile(&src, &out), S_OK);
  EXPECT_EQ(out.lVal, 1);
  EXPECT_EQ(h.varname(0), "u");
  SysFreeString(text);
  EXPECT_EQ(takeerror(), "");
}

TEST_F(Object, NonAsciiTextRoundTrips) {
  ASSERT_EQ(h.compile("TITLE \"Z\xc3\xbcrich \xe2\x80\x94 test\";\nVARIABLES x, y;\nPARAMETERS a;\n"
                      "FUNCTION y = a * x;\n"),
            1);
  EXPECT_NE(h.report().find("Z\xc3\xbcrich \xe2\x80\x94 test"), std::string::npos);
}
