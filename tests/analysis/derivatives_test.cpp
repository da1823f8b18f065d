// Exact derivatives of whole programs (exec: derivrun) against central
// differences of the interpreter's runs: programs with IF/ELSE, FOR and
// WHILE loops, arrays, work variables carried from one observation to the
// next, compound assignments, ?:, powers with a parameter in the exponent,
// MOD and MAX.  And the driver: exact mode fits the same minimum in fewer
// passes, differences the column of a parameter that meets a built-in
// argument without a rule and says why, and a bounded fit's standard
// errors (bounded errors) equal the unbounded fit's when no bound holds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "analysis/analysis.h"
#include "api/engine.h"
#include "kit/kit.h"
#include "vexor/vexor.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

const char* const DATA =
    "DATA;\n0.3 1.2\n0.9 1.6\n1.4 1.1\n2.2 0.7\n2.9 0.9\n3.5 1.4\n4.1 0.6\n";

std::vector<double> predictions(const std::vector<double>& x) {
  for (int32_t k = 0; k < nparm; ++k) parms[k]->value = x[k];
  resetwork();
  std::vector<double> out;
  for (int32_t i = 0; i < nobs; ++i) {
    double pred = 0, obs = 0;
    EXPECT_EQ(runprog(i, nullptr, &pred, &obs), 1) << listing();
    out.push_back(pred);
  }
  return out;
}

// Checks every derivative of every observation's predicted value; returns
// the parameters derivrun marked for differencing.
std::vector<uint8_t> checkjacobian(const std::vector<double>& x) {
  EXPECT_EQ(derivprepare(), 1);
  const int32_t p = nparm;
  for (int32_t k = 0; k < p; ++k) parms[k]->value = x[k];
  resetwork();
  std::vector<uint8_t> marks(static_cast<std::size_t>(p), 0);
  derivreset(&marks);
  std::vector<std::vector<double>> jac;
  std::vector<double> values;
  for (int32_t i = 0; i < nobs; ++i) {
    std::vector<double> tp(p), to(p);
    double pred = 0, obs = 0;
    EXPECT_EQ(derivrun(i, &pred, &obs, tp.data(), to.data()), 1) << listing();
    values.push_back(pred);
    jac.push_back(tp);
    for (double t : to) EXPECT_EQ(t, 0.0);
  }
  // The values are the interpreter's, bit for bit.
  const std::vector<double> plain = predictions(x);
  for (int32_t i = 0; i < nobs; ++i) EXPECT_EQ(values[i], plain[i]) << "observation " << i;
  for (int32_t k = 0; k < p; ++k) {
    if (marks[k]) continue;
    const double h = 1e-5 * std::max(1.0, std::fabs(x[k]));
    std::vector<double> up = x, dn = x, up2 = x, dn2 = x;
    up[k] += h;
    dn[k] -= h;
    up2[k] += h / 2;
    dn2[k] -= h / 2;
    const auto fu = predictions(up), fd = predictions(dn), fu2 = predictions(up2), fd2 = predictions(dn2);
    for (int32_t i = 0; i < nobs; ++i) {
      const double d1 = (fu[i] - fd[i]) / (2 * h), d2 = (fu2[i] - fd2[i]) / h;
      const double diff = (4 * d2 - d1) / 3;
      EXPECT_NEAR(jac[i][k], diff, 1e-7 * std::max(1.0, std::fabs(diff)))
          << parms[k]->name << " at observation " << i;
    }
  }
  derivrelease();
  return marks;
}

class Derivatives : public ::testing::Test {
 protected:
  void TearDown() override {
    setderivatives(false);
    setboundederrors(false);
    enginereset();
  }
};

TEST_F(Derivatives, IfElseAndAWorkVariableCarriedAlong) {
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 1.3, b = 0.4, c = 2;\nDOUBLE w, s = 0;\n"
                                    "IF (x < c) { w = a*exp(-b*x); } ELSE { w = a*exp(-b*c) + (x - c)*b^2; }\n"
                                    "s = s + w*x;\nFUNCTION y = w + 0.01*s;\n") +
                        DATA),
            1)
      << listing();
  EXPECT_EQ(checkjacobian({1.3, 0.4, 2.0}), std::vector<uint8_t>(3, 0));
  EXPECT_EQ(checkjacobian({0.8, -0.2, 3.1}), std::vector<uint8_t>(3, 0));
}

TEST_F(Derivatives, LoopsArraysAndBuiltins) {
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 0.7, b = 1.1;\nDOUBLE v[5], k, t;\n"
                                    "FOR (k = 0; k < 5; k++) v[k] = a^k * sin(b*x + k);\n"
                                    "t = 0; k = 0;\nWHILE (k < 5) { t += v[k] / (1 + k); k = k + 1; }\n"
                                    "FUNCTION y = t * MAX(a, b) + MOD(x*b, a) + SQRT(a*a + x);\n") +
                        DATA),
            1)
      << listing();
  EXPECT_EQ(checkjacobian({0.7, 1.1}), std::vector<uint8_t>(2, 0));
  EXPECT_EQ(checkjacobian({1.4, 0.9}), std::vector<uint8_t>(2, 0));
}

TEST_F(Derivatives, CompoundAssignmentsConditionalsAndPowers) {
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 1.5, b = 0.3;\nDOUBLE u;\n"
                                    "u = x; u *= a; u /= (1 + b*x); u -= b; u += a*b;\n"
                                    "FUNCTION y = (x > 2 ? u^b : x^a) + ABS(u - 1) + 2^(a*x);\n") +
                        DATA),
            1)
      << listing();
  EXPECT_EQ(checkjacobian({1.5, 0.3}), std::vector<uint8_t>(2, 0));
}

// A parameter inside the modulus of EI1 has no rule: its column is marked
// for differencing, the other one is exact.
TEST_F(Derivatives, AnArgumentWithoutARuleMarksItsParameters) {
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 0.5, b = 1;\n"
                                    "FUNCTION y = EI1(a, x) * b + EI2(0.3, x*b);\n") +
                        DATA),
            1)
      << listing();
  EXPECT_EQ(checkjacobian({0.5, 1.0}), std::vector<uint8_t>({1, 0}));
  EXPECT_STREQ(derivreason(), "EI1 has no derivative rule for its argument 1");
}

// A model without side effects: the block evaluator's Jacobian pass gives
// the residuals of batchpass and the derivatives derivrun gives.
TEST_F(Derivatives, TheBlocksGiveTheInterpretersDerivatives) {
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 1.3, b = 0.4, c = 2, d = 0.7;\n"
                                    "FUNCTION y = a*exp(-b*x) + c*sin(d*x) - SQRT(a + x)/c + ATAN(b*x)^2 "
                                    "+ (x > 2 ? a : b)*GAMMA(1 + d) + x^b + MOD(x, d);\n") +
                        DATA),
            1)
      << listing();
  ASSERT_EQ(batchprepare(), 1);
  ASSERT_EQ(derivprepare(), 1);
  const int32_t n = nobs, p = nparm;
  resetwork();
  std::vector<uint8_t> marks(p, 0);
  derivreset(&marks);
  std::vector<double> r(n), dr(static_cast<std::size_t>(n) * p);
  ASSERT_EQ(batchjacobian(n, r.data(), dr.data(), &marks), n);
  EXPECT_EQ(marks, std::vector<uint8_t>(p, 0));
  std::vector<double> rb(n);
  resetwork();
  ASSERT_EQ(batchpass(n, rb.data(), nullptr), n);
  resetwork();
  derivreset(&marks);
  for (int32_t i = 0; i < n; ++i) {
    std::vector<double> tp(p), to(p);
    double pred = 0, obs = 0;
    ASSERT_EQ(derivrun(i, &pred, &obs, tp.data(), to.data()), 1);
    EXPECT_EQ(r[i], rb[i]);
    EXPECT_EQ(r[i], pred - obs);
    for (int32_t j = 0; j < p; ++j)
      EXPECT_NEAR(dr[static_cast<std::size_t>(j) * n + i], tp[j], 1e-14 * std::max(1.0, std::fabs(tp[j])))
          << "observation " << i << " parameter " << j;
  }
  derivrelease();
  batchjacobianrelease();
  // A modulus without a rule: its parameter is marked, with the reason.
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 0.5, b = 1;\n"
                                    "FUNCTION y = EIC1(a) * b + x;\n") +
                        DATA),
            1);
  ASSERT_EQ(batchprepare(), 1);
  resetwork();
  std::vector<uint8_t> m2(2, 0);
  derivreset(&m2);
  std::vector<double> r2(n), dr2(static_cast<std::size_t>(n) * 2);
  ASSERT_EQ(batchjacobian(n, r2.data(), dr2.data(), &m2), n);
  EXPECT_EQ(m2, std::vector<uint8_t>({1, 0}));
  EXPECT_STREQ(derivreason(), "EIC1 has no derivative rule for its argument 1");
  batchjacobianrelease();
}

// Exact fits by blocks over threads: the same estimates, bit for bit, for
// 1, 2 and 7 threads.
TEST_F(Derivatives, ExactFitsAreTheSameForAnyThreadCount) {
  std::string prog = "VARIABLES x, y;\nPARAMETERS a = 1, b = 1, c = 1, d = 2;\n"
                     "FUNCTION y = a * exp(-b * x) + c * sin(d * x);\nDATA;\n";
  for (int i = 0; i < 20000; ++i) {
    const double x = i / 2000.0;
    char rec[80];
    std::snprintf(rec, sizeof rec, "%.6f %.9f\n", x, 3 * std::exp(-0.4 * x) + 1.5 * std::sin(2.2 * x) + 0.01 * std::sin(91.0 * i));
    prog += rec;
  }
  setderivatives(true);
  std::vector<std::vector<double>> est;
  for (int t : {1, 2, 7}) {
    setthreads(t);
    ASSERT_EQ(compileprog(prog), 1);
    ASSERT_GE(compute(), 1) << listing();
    EXPECT_EQ(threadsused, t);
    std::vector<double> e;
    for (int32_t k = 0; k < nparm; ++k) e.push_back(parms[k]->value);
    est.push_back(e);
  }
  setthreads(0);
  EXPECT_EQ(est[0], est[1]);
  EXPECT_EQ(est[0], est[2]);
  EXPECT_NEAR(est[0][1], 0.4, 0.01);
}

// A pass by blocks tells of its stored rows as it goes, on the calling
// thread: counts that only grow, each one's rows already what the pass
// leaves, the last one n; for 1, 2 and 7 threads.  (Blocks hold at most
// 256 rows.)
TEST_F(Derivatives, TheBlocksTellOfTheRowsTheyHaveStored) {
  std::string prog = "VARIABLES x, y;\nPARAMETERS a = 1.3, b = 0.4, c = 1.5, d = 2.2;\n"
                     "FUNCTION y = a * exp(-b * x) + c * sin(d * x);\nDATA;\n";
  for (int i = 0; i < 20000; ++i) {
    char rec[80];
    std::snprintf(rec, sizeof rec, "%.6f %.6f\n", i / 2000.0, std::cos(0.37 * i));
    prog += rec;
  }
  ASSERT_EQ(compileprog(prog), 1) << listing();
  ASSERT_EQ(batchprepare(), 1);
  ASSERT_EQ(derivprepare(), 1);
  const int32_t n = nobs, p = nparm;
  std::vector<uint8_t> marks(p, 0);
  std::vector<double> want(static_cast<std::size_t>(n) * p);
  resetwork();
  derivreset(&marks);
  ASSERT_EQ(batchjacobian(n, nullptr, want.data(), &marks), n);
  for (int t : {1, 2, 7}) {
    SCOPED_TRACE(t);
    setthreads(t);
    ASSERT_EQ(threadsstart(), t);
    const std::thread::id caller = std::this_thread::get_id();
    std::vector<double> dr(want.size(), -1.0);
    std::vector<int32_t> told;
    bool rowsright = true, onecaller = true;
    const std::function<void(int32_t)> follow = [&](int32_t k) {
      onecaller = onecaller && std::this_thread::get_id() == caller;
      const int32_t from = told.empty() ? 0 : told.back();
      for (int32_t j = 0; j < p; ++j)
        for (int32_t i = from; i < k; ++i)
          rowsright = rowsright && dr[static_cast<std::size_t>(j) * n + i] == want[static_cast<std::size_t>(j) * n + i];
      told.push_back(k);
    };
    resetwork();
    derivreset(&marks);
    ASSERT_EQ(batchjacobian(n, nullptr, dr.data(), &marks, nullptr, &follow), n);
    threadsstop();
    EXPECT_TRUE(rowsright);
    EXPECT_TRUE(onecaller);
    // One thread tells after every block; with more, the calling thread
    // tells when it finds rows stored after a block of its own, which the
    // others may all have taken.
    ASSERT_GE(told.size(), t == 1 ? static_cast<std::size_t>((n + 255) / 256) : 1u);
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), n);
    EXPECT_EQ(dr, want);
  }
  setthreads(0);
  derivrelease();
  batchjacobianrelease();
}

// Every reason a column is differenced, each with its sentence.
TEST_F(Derivatives, EveryReasonForDifferencing) {
  struct Case {
    const char* model;
    std::vector<double> at;
    std::vector<uint8_t> marked;
    const char* reason;
  } cases[] = {
      {"FUNCTION y = SQRT(a*x - x) + b;", {1.0, 0.5}, {1, 0}, "the derivative of SQRT is not finite at its argument 1"},
      {"FUNCTION y = (a - 1)^0.5 + b*x;", {1.0, 0.5}, {1, 0}, "a power's derivative is not finite at a base of 0"},
      {"DOUBLE m;\nm = 0 - 2;\nFUNCTION y = m^b + a*x;", {1.0, 2.0}, {0, 1},
       "a power of a negative base has no derivative in its exponent"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.model);
    ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 1, b = 1;\n") + c.model + "\n" + DATA), 1)
        << listing();
    ASSERT_EQ(derivprepare(), 1);
    for (int32_t k = 0; k < nparm; ++k) parms[k]->value = c.at[k];
    resetwork();
    std::vector<uint8_t> marks(2, 0);
    derivreset(&marks);
    std::vector<double> tp(2), to(2);
    double pred = 0, obs = 0;
    for (int32_t i = 0; i < nobs; ++i) ASSERT_EQ(derivrun(i, &pred, &obs, tp.data(), to.data()), 1) << listing();
    EXPECT_EQ(marks, c.marked);
    EXPECT_STREQ(derivreason(), c.reason);
    derivrelease();
  }
  // A derivative that overflows where the value does not: exp(499) times
  // x = 1e92 is beyond the doubles, exp(499) times 1e-200 is not.
  setderivatives(true);
  ASSERT_EQ(compileprog("VARIABLES x, y;\nPARAMETERS a = 4.99e-90, b = 1;\nFUNCTION y = EXP(a*x)*1e-200 + b;\n"
                        "DATA;\n1e92 5e16\n0.9999999e92 5e16\n0.9999998e92 5e16\n"),
            1);
  compute();
  EXPECT_STREQ(differencedcolumns(), "a: a derivative was not finite");
  // A program the differentiation does not follow: every column differenced.
  std::string deep = "VARIABLES x, y;\nPARAMETERS a = 1, b = 0.5;\nFUNCTION y = a*x";
  for (int i = 0; i < 300; ++i) deep += " + b";
  ASSERT_EQ(compileprog(deep + ";\n" + DATA), 1) << listing();
  EXPECT_EQ(derivprepare(), 0);
  ASSERT_GE(compute(), 1) << listing();
  EXPECT_STREQ(differencedcolumns(),
               "a, b: the program cannot be differentiated exactly (a very deep expression, an assignment to a "
               "parameter, or work arrays too large)");
}

// A decay with a slope, its statement before the FUNCTION (an option), and
// its least-squares minimum on DATA (python3, mpmath at 30 digits: Newton's
// method on the gradient).
std::string decay(const char* statement) {
  return std::string("VARIABLES x, y;\nPARAMETERS a = 1, b = 0.5, c = 0.1;\n") + statement +
         "\nFUNCTION y = a*exp(-b*x) + c*x;\n" + DATA;
}
const double decaymin[] = {1.40264091800270875523427120427679, 0.160291527053414333922778464044979,
                           0.0283585142317498932375713690162392};

// The whole fit: the minimum the forward differences find, in fewer passes
// over the data, with the differenced column named.
TEST_F(Derivatives, ExactFitsReachTheSameMinimumInFewerPasses) {
  const std::string prog = decay("COVARIANCE;");
  ASSERT_EQ(compileprog(prog), 1);
  ASSERT_GE(compute(), 1) << listing();
  std::vector<double> fd, fdse;
  for (int32_t k = 0; k < nparm; ++k) {
    fd.push_back(parms[k]->value);
    fdse.push_back(parms[k]->stderror);
  }
  const long fdpasses = nevaluations;
  setderivatives(true);
  ASSERT_EQ(compileprog(prog), 1);
  ASSERT_GE(compute(), 1) << listing();
  EXPECT_STREQ(differencedcolumns(), "");
  // Both against the least-squares minimum: the fits stop where the
  // relative function tolerance lets them, the exact one closer.
  const double* truth = decaymin;
  for (int32_t k = 0; k < nparm; ++k) {
    EXPECT_NEAR(parms[k]->value, truth[k], 2e-6 * truth[k]) << parms[k]->name;
    EXPECT_NEAR(fd[k], truth[k], 1e-5 * truth[k]) << parms[k]->name;
    EXPECT_LE(std::fabs(parms[k]->value - truth[k]), std::fabs(fd[k] - truth[k])) << parms[k]->name;
    EXPECT_NEAR(parms[k]->stderror, fdse[k], 1e-4 * fdse[k]) << parms[k]->name;
  }
  EXPECT_LT(nevaluations, fdpasses);
  // A column without a rule is differenced, and the host is told.
  ASSERT_EQ(compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 0.5, b = 1;\n"
                                    "FUNCTION y = EI1(a, x) * b;\n") +
                        DATA),
            1);
  ASSERT_GE(compute(), 1) << listing();
  EXPECT_STREQ(differencedcolumns(), "a: EI1 has no derivative rule for its argument 1");
}

// A TOLERANCE below the default: with differences the fit ends in singular
// convergence (result 2) once a full Gauss-Newton step promises less than
// the default singular-convergence share of f, as the method has it; with
// exact derivatives that test follows the tolerance, and the fit goes on to
// the least-squares minimum.
TEST_F(Derivatives, ATightToleranceIsReachedWithExactDerivatives) {
  const std::string prog = decay("TOLERANCE 1E-15;");
  ASSERT_EQ(compileprog(prog), 1);
  EXPECT_EQ(compute(), 2) << listing();
  setderivatives(true);
  ASSERT_EQ(compileprog(prog), 1);
  const int32_t result = compute();
  EXPECT_GE(result, 3) << listing();
  EXPECT_LE(result, 6) << listing();
  // The minimum now to 5e-8 (the default tolerance: 2e-6); x-convergence
  // (relative steps below 1.5e-8) ends it.
  for (int32_t k = 0; k < nparm; ++k)
    EXPECT_NEAR(parms[k]->value, decaymin[k], 5e-8 * decaymin[k]) << parms[k]->name;
}

// Bounded errors: a box that holds the optimum inside gives the unbounded
// fit's standard errors; a bound that holds a parameter removes exactly its
// row and column, and the listing names it.
TEST_F(Derivatives, BoundedFitsGetTheStandardErrorsOfTheirFreeParameters) {
  const std::string model = "VARIABLES x, y;\nPARAMETERS a = 1, b = 0.5, c = 0.1;\nCOVARIANCE;\n"
                            "FUNCTION y = a*exp(-b*x) + c*x;\n";
  ASSERT_EQ(compileprog(model + DATA), 1);
  ASSERT_GE(compute(), 1);
  std::vector<double> est, se;
  for (int32_t k = 0; k < nparm; ++k) {
    est.push_back(parms[k]->value);
    se.push_back(parms[k]->stderror);
  }
  setboundederrors(true);
  ASSERT_EQ(compileprog(model + "CONSTRAIN a = -10, 10;\nCONSTRAIN b = -5, 5;\n" + DATA), 1);
  ASSERT_GE(compute(), 1) << listing();
  ASSERT_GT(covstatus, 0);
  for (int32_t k = 0; k < nparm; ++k) {
    EXPECT_NEAR(parms[k]->value, est[k], 1e-6 * std::fabs(est[k]));
    EXPECT_NEAR(parms[k]->stderror, se[k], 1e-6 * se[k]) << parms[k]->name;
  }
  EXPECT_NE(listing().find("Standard errors are those of the parameters not held at a bound.\n"),
            std::string::npos);
  // b held at 0.1 (below its optimum): no standard error for b, the others
  // those of the fit with b fixed there.
  ASSERT_EQ(compileprog(model + "CONSTRAIN b = 0.01, 0.1;\n" + DATA), 1);
  ASSERT_GE(compute(), 1) << listing();
  EXPECT_EQ(parms[1]->value, 0.1);
  EXPECT_EQ(parms[1]->stderror, 0.0);
  EXPECT_GT(parms[0]->stderror, 0.0);
  EXPECT_GT(parms[2]->stderror, 0.0);
  for (int32_t k = 0; k < nparm; ++k) {
    EXPECT_EQ(covmat[1 * nparm + k], 0.0);
    EXPECT_EQ(covmat[k * nparm + 1], 0.0);
  }
  const std::string l = listing();
  EXPECT_NE(l.find("Standard errors are those of the parameters not held at a bound; held: b.\n"), std::string::npos)
      << l;
  EXPECT_NE(l.find("         b            0.1               0.1  held at a bound: no standard error\n"),
            std::string::npos)
      << l;
}

}  // namespace
}  // namespace vexor
