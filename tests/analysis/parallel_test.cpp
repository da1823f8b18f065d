// The passes over the observations in threads, and vector math:
//   - every thread count gives the same listing, byte for byte (examples,
//     a large generated fit, the NIST problems);
//   - with SLEEF's vector functions the estimates of the examples and the
//     NIST problems agree with the C library's to 1e-9 relative.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "analysis/analysis.h"
#include "api/engine.h"
#include "exec/exec.h"
#include "kit/kit.h"

namespace vexor {
namespace {

struct Fit {
  int code = 0;
  int32_t threads = 0;  // the threads the fit's passes had
  std::vector<double> estimates, stderrors;
  std::string listing;
};

Fit run(const std::string& program, int threads, bool vector) {
  runthreads = threads;
  vecmath = vector ? 1 : 0;
  Fit f;
  if (kit::compileprog(program) != 1) {
    f.listing = kit::listing();
    return f;
  }
  f.code = compute();
  f.threads = threadsused;
  for (int32_t k = 0; k < nparm; ++k) {
    f.estimates.push_back(parms[k]->value);
    f.stderrors.push_back(results.full ? parms[k]->stderror : NAN);
  }
  f.listing = kit::maskclock(kit::listing());
  runthreads = 0;
  vecmath = 0;
  return f;
}

std::string readexample(const char* name) {
  return kit::readfile(std::string(VEXOR_SOURCE_DIR) + "/examples/" + name);
}

// y = a exp(-b x) + c sin(d x) over n points with deterministic scatter.
std::string expsin(int n) {
  std::string p = "VARIABLES x, y;\nPARAMETERS a = 1, b = 1, c = 1, d = 2;\nCOVARIANCE;\n"
                  "FUNCTION y = a * exp(-b * x) + c * sin(d * x);\nDATA;\n";
  char row[64];
  for (int i = 0; i < n; ++i) {
    const double x = 10.0 * i / n;
    std::snprintf(row, sizeof row, "%.6f %.6f\n", x, 3 * std::exp(-0.4 * x) + 1.5 * std::sin(2.2 * x) + 0.1 * std::sin(91.0 * i));
    p += row;
  }
  return p;
}

std::vector<std::string> programs() {
  std::vector<std::string> v;
  for (const char* e : {"decay.vex", "michaelis.vex", "piecewise.vex", "sweep.vex", "arrayloop.vex"})
    v.push_back(readexample(e));
  v.push_back(expsin(20000));
  return v;
}

TEST(Threads, EveryCountGivesTheSameListing) {
  for (const std::string& p : programs()) {
    const Fit one = run(p, 1, false);
    ASSERT_NE(one.code, 0) << one.listing;
    EXPECT_EQ(one.threads, 1);
    for (int threads : {2, 7}) {
      const Fit many = run(p, threads, false);
      EXPECT_EQ(many.code, one.code);
      EXPECT_EQ(many.listing, one.listing) << threads << " threads";
      // The examples are too small for threads; the 20,000-point fit has them.
      EXPECT_EQ(many.threads, nobs >= 4096 ? threads : 1);
    }
  }
}

TEST(Threads, WithVectorMathEveryCountGivesTheSameListing) {
  const std::string p = expsin(20000);
  const Fit one = run(p, 1, true);
  for (int threads : {2, 7}) {
    const Fit many = run(p, threads, true);
    EXPECT_EQ(many.threads, threads);
    EXPECT_EQ(many.listing, one.listing) << threads;
  }
}

// A failure in a block handled by another thread is found where the
// interpreter finds it: the same messages and result as with one thread.
// (Threads start from 4096 observations; this fit has 6000.)
TEST(Threads, AFailingObservationIsReportedAsWithOneThread) {
  std::string p = "VARIABLES x, y;\nPARAMETERS a = 1, b = 0.1;\nFUNCTION y = a * ln(b * x);\nDATA;\n";
  for (int i = 1; i <= 6000; ++i) p += std::to_string(i == 5000 ? -1 : i) + " " + std::to_string(std::log(0.1 * i)) + "\n";
  const Fit one = run(p, 1, false);
  const Fit many = run(p, 7, false);
  EXPECT_EQ(many.threads, 7);
  EXPECT_EQ(many.code, one.code);
  EXPECT_EQ(many.listing, one.listing);
}

double relative(double a, double b) { return std::fabs(a - b) / std::max(std::fabs(b), 1e-300); }

// SLEEF's exp, sin, cos and ln differ from the C library's in the last bit
// now and then; a fit that stops on its convergence tests then stops at a
// point a little elsewhere.  How far (measured on this machine, SLEEF's
// AVX2 functions): every estimate of the examples and of the NIST problems
// agrees to 1e-9 relative or to a thousandth of its standard error.  Of
// the 52 NIST cases compared, 28 agree to 1e-9 relative in every estimate;
// the others stop within 5.3e-5 of a standard error of each other (up to
// 7.3e-6 relative, Lanczos3, whose estimates the fit knows to 5 digits).
// Lanczos2 from start 1 ends in false convergence without standard errors
// and agrees to 1.1e-8 relative (held to 2e-8).  The two cases that end at
// the iteration limit (MGH10 and MGH17 from start 1) are not compared:
// their estimates are wherever the last iteration left them.
TEST(VectorMath, EstimatesAgreeWithTheCLibrarysWithinTheirStandardErrors) {
  vecmath = 1;
  const bool sleef = vecmathactive();
  vecmath = 0;
  if (!sleef) GTEST_SKIP() << "this build has no SLEEF";
  auto compare = [](const std::string& what, const Fit& off, const Fit& on, double* worstrel) {
    ASSERT_EQ(on.estimates.size(), off.estimates.size()) << what;
    EXPECT_EQ(on.code, off.code) << what;
    double worstse = 0;
    for (std::size_t k = 0; k < on.estimates.size(); ++k) {
      const double d = std::fabs(on.estimates[k] - off.estimates[k]);
      *worstrel = std::max(*worstrel, relative(on.estimates[k], off.estimates[k]));
      const double rel = relative(on.estimates[k], off.estimates[k]);
      if (std::isfinite(off.stderrors[k]) && off.stderrors[k] > 0) {
        worstse = std::max(worstse, d / off.stderrors[k]);
        EXPECT_TRUE(rel <= 1e-9 || d <= 1e-3 * off.stderrors[k])
            << what << " parameter " << k << ": " << rel << " relative, " << d / off.stderrors[k]
            << " standard errors";
      } else {
        EXPECT_LE(rel, what == "Lanczos2 start 1" ? 2e-8 : 1e-9) << what << " parameter " << k;
      }
    }
    std::printf("%-28s largest difference %.1e relative, %.1e of a standard error\n", what.c_str(), *worstrel,
                worstse);
  };
  for (const std::string& p : programs()) {
    const Fit off = run(p, 0, false), on = run(p, 0, true);
    double rel = 0;
    compare(p.substr(3, 25), off, on, &rel);
  }
  const std::string dir = kit::nistdir(VEXOR_NIST_DIR_DEFAULT);
  if (!std::ifstream(dir + "/Misra1a.dat")) GTEST_SKIP() << "NIST StRD files not found in " << dir;
  int cases = 0, closest = 0;
  for (const auto& [name, model] : kit::nistmodels()) {
    kit::NistProblem pr;
    ASSERT_TRUE(kit::nistparse(dir + "/" + name + ".dat", name, &pr)) << name;
    for (int start = 1; start <= 2; ++start) {
      if (start == 1 && (name == "MGH10" || name == "MGH17")) continue;
      const std::string p = kit::nistprogram(pr, start, dir);
      const Fit off = run(p, 0, false), on = run(p, 0, true);
      double rel = 0;
      compare(name + " start " + std::to_string(start), off, on, &rel);
      ++cases;
      if (rel <= 1e-9) ++closest;
    }
  }
  std::printf("NIST: %d cases compared, %d agree to 1e-9 relative\n", cases, closest);
  EXPECT_EQ(cases, 52);
  EXPECT_GE(closest, 28);
}

}  // namespace
}  // namespace vexor
