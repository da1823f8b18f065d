// The C interface against the analysis object: the same numbers to the bit,
// the whole data matrix in one call giving what cell-by-cell SetDataValue
// gives, and every refusal with its message.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "growth.h"
#include "hosttest.h"
#include "kit/kit.h"
#include "support/support.h"
#include "vexor/vexor_c.h"

using namespace vartest;

namespace {

// The growth model with confidence limits.
const std::string growthci = std::string(growth) + "CONFIDENCE 95;\n";

std::vector<double> rowmajor() {
  std::vector<double> d;
  for (std::size_t i = 0; i < xs.size(); ++i) {
    d.push_back(xs[i]);
    d.push_back(ys[i]);
  }
  return d;
}

struct Handle {
  vx_engine* e = vx_create();
  Handle() = default;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() { vx_destroy(e); }
};

bool same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

std::string example(const char* name) { return std::string(VEXOR_SOURCE_DIR) + "/examples/" + name; }

// What the object gives after a fit, every number of it.
struct ObjectFit {
  long code;
  std::vector<std::vector<double>> parms;  // [kind][k]
  std::vector<double> stats, cov, corr;
  std::string report;
};

ObjectFit objectfit(Host& h, int p, int m) {
  ObjectFit f;
  f.code = h.compute();
  for (int kind = 0; kind <= 6; ++kind) {
    std::vector<double> v;
    for (int k = 0; k < p; ++k) v.push_back(h.parm(k, kind));
    f.parms.push_back(v);
  }
  for (int s = 0; s <= 10; ++s) f.stats.push_back(h.stat(s));
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) f.cov.push_back(h.cov(i, j));
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < m; ++j) f.corr.push_back(h.corr(i, j));
  f.report = h.report();
  return f;
}

void expectsame(const ObjectFit& o, vx_engine* e, int p, int m) {
  for (int kind = 0; kind <= 6; ++kind) {
    std::vector<double> v(p);
    ASSERT_EQ(vx_parameter_values(e, kind, v.data(), p), VX_OK) << vx_error(e);
    for (int k = 0; k < p; ++k) EXPECT_TRUE(same(v[k], o.parms[kind][k])) << "kind " << kind << " parameter " << k;
  }
  for (int s = 0; s <= 10; ++s) {
    if (s == VX_STAT_RUNTIME) continue;  // the clock of each run
    double x = -1;
    ASSERT_EQ(vx_statistic(e, s, &x), VX_OK) << vx_error(e);
    EXPECT_TRUE(same(x, o.stats[s])) << "statistic " << s << ": " << x << " vs " << o.stats[s];
  }
  std::vector<double> cov(p * p), corr(m * m);
  ASSERT_EQ(vx_covariance(e, cov.data(), p * p), VX_OK) << vx_error(e);
  for (int i = 0; i < p * p; ++i) EXPECT_TRUE(same(cov[i], o.cov[i]));
  ASSERT_EQ(vx_correlation(e, corr.data(), m * m), VX_OK) << vx_error(e);
  for (int i = 0; i < m * m; ++i) EXPECT_TRUE(same(corr[i], o.corr[i]));
  const char* text = nullptr;
  ASSERT_EQ(vx_report(e, &text), VX_OK);
  EXPECT_EQ(vexor::kit::maskclock(text), vexor::kit::maskclock(vexor::kit::lfonly(o.report)));
}

}  // namespace

TEST(CInterface, WholeMatrixGivesWhatTheObjectGivesCellByCell) {
  Host h;
  ASSERT_EQ(h.compile(growthci), 1);
  for (std::size_t i = 0; i < xs.size(); ++i) {
    h.setvalue(static_cast<long>(i), 0, xs[i]);
    h.setvalue(static_cast<long>(i), 1, ys[i]);
  }
  const ObjectFit o = objectfit(h, 2, 2);
  ASSERT_GE(o.code, 1);

  Handle c;
  ASSERT_EQ(vx_compile(c.e, growthci.c_str()), VX_OK) << vx_error(c.e);
  const std::vector<double> d = rowmajor();
  ASSERT_EQ(vx_set_data(c.e, d.data(), static_cast<int64_t>(xs.size()), 2), VX_OK) << vx_error(c.e);
  int code = 0;
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  EXPECT_EQ(code, o.code);
  expectsame(o, c.e, 2, 2);

  int flags = 0;
  ASSERT_EQ(vx_available(c.e, &flags), VX_OK);
  EXPECT_EQ(flags, VX_HAS_STATISTICS | VX_HAS_INTERVALS | VX_HAS_COVARIANCE | VX_HAS_CORRELATION | VX_HAS_RESIDUALS);
  const char* name = nullptr;
  ASSERT_EQ(vx_correlation_name(c.e, 1, &name), VX_OK);
  EXPECT_STREQ(name, "y");
  int64_t n = 0;
  ASSERT_EQ(vx_observation_count(c.e, &n), VX_OK);
  ASSERT_EQ(n, 6);
  std::vector<double> obs(6), pred(6);
  ASSERT_EQ(vx_observed(c.e, obs.data(), 6), VX_OK);
  ASSERT_EQ(vx_predicted(c.e, pred.data(), 6), VX_OK);
  double b[2];
  vx_parameter_values(c.e, VX_ESTIMATE, b, 2);
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(obs[i], ys[i]);
    EXPECT_NEAR(pred[i], b[0] * std::exp(b[1] * xs[i]), 1e-12 * std::fabs(pred[i]));
  }
  const char* reason = nullptr;
  ASSERT_EQ(vx_stop_reason(c.e, &reason), VX_OK);
  EXPECT_NE(std::string(reason), "");
  double df = 0, evals = 0;
  vx_statistic(c.e, VX_STAT_DF, &df);
  vx_statistic(c.e, VX_STAT_EVALUATIONS, &evals);
  EXPECT_EQ(df, 4.0);
  EXPECT_GT(evals, 3.0);
}

TEST(CInterface, ProgramFileWithItsOwnDataAsTheObjectFitsIt) {
  Host h;
  ASSERT_EQ(h.compilefile(example("decay.vex")), 1);
  const ObjectFit o = objectfit(h, 3, 0);
  Handle c;
  ASSERT_EQ(vx_compile_file(c.e, example("decay.vex").c_str()), VX_OK) << vx_error(c.e);
  int code = 0;
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  EXPECT_EQ(code, o.code);
  for (int kind = 0; kind <= 6; ++kind) {
    double v[3];
    ASSERT_EQ(vx_parameter_values(c.e, kind, v, 3), VX_OK) << vx_error(c.e);
    for (int k = 0; k < 3; ++k) EXPECT_TRUE(same(v[k], o.parms[kind][k]));
  }
  int32_t m = -1;
  ASSERT_EQ(vx_correlation_size(c.e, &m), VX_OK);
  EXPECT_EQ(m, 0);
  double corr = 0;
  EXPECT_EQ(vx_correlation(c.e, &corr, 0), VX_ERROR_UNAVAILABLE);
  EXPECT_STREQ(vx_error(c.e), "the fit has no correlation matrix (CORRELATE): the listing says why");
}

TEST(CInterface, EvaluateIsTheObjectsEvaluateFunction) {
  Host h;
  ASSERT_EQ(h.compilefile(example("decay.vex")), 1);
  h.compute();
  const std::vector<double> ts = {0.0, 0.25, 7.0, 15.0, -3.0};
  std::vector<double> want;
  for (double t : ts) {
    h.evalvalue(0, t);
    want.push_back(h.evalfn());
  }
  Handle c;
  ASSERT_EQ(vx_compile_file(c.e, example("decay.vex").c_str()), VX_OK);
  int code = 0;
  vx_compute(c.e, &code);
  std::vector<double> points, got(ts.size()), lo(ts.size()), hi(ts.size()), mid(ts.size());
  for (double t : ts) {
    points.push_back(t);
    points.push_back(12345.0);  // the dependent's column is ignored
  }
  ASSERT_EQ(vx_evaluate(c.e, points.data(), static_cast<int64_t>(ts.size()), 2, got.data()), VX_OK);
  for (std::size_t i = 0; i < ts.size(); ++i) EXPECT_TRUE(same(got[i], want[i])) << ts[i];
  ASSERT_EQ(vx_predict(c.e, points.data(), static_cast<int64_t>(ts.size()), 2, 2, 0.95, mid.data(), lo.data(),
                       hi.data()),
            VX_OK)
      << vx_error(c.e);
  for (std::size_t i = 0; i < ts.size(); ++i) {
    EXPECT_TRUE(same(mid[i], want[i]));
    EXPECT_LT(lo[i], mid[i]);
    EXPECT_GT(hi[i], mid[i]);
    EXPECT_NEAR(mid[i] - lo[i], hi[i] - mid[i], 1e-9 * (hi[i] - lo[i]));
  }
  // At parameters set by the host: a * exp(-k t) + bg by hand.
  const double b[3] = {900.0, 0.25, 40.0};
  ASSERT_EQ(vx_set_parameters(c.e, b, 3), VX_OK);
  double v = 0;
  const double at[2] = {2.0, 0.0};
  ASSERT_EQ(vx_evaluate(c.e, at, 1, 2, &v), VX_OK);
  EXPECT_DOUBLE_EQ(v, 900.0 * std::exp(-0.25 * 2.0) + 40.0);
}

TEST(CInterface, APointWhereTheProgramFailsIsNaN) {
  Handle c;
  ASSERT_EQ(vx_compile(c.e, "VARIABLES x, y; PARAMETERS a = 1;\nFUNCTION y = a * sqrt(x);\n"), VX_OK);
  const double at[4] = {4.0, 0.0, -1.0, 0.0};
  double v[2];
  ASSERT_EQ(vx_evaluate(c.e, at, 2, 2, v), VX_OK);
  EXPECT_EQ(v[0], 2.0);
  EXPECT_TRUE(std::isnan(v[1]));
}

TEST(CInterface, CompileErrorsComeWithTheirLines) {
  Handle c;
  EXPECT_EQ(vx_compile(c.e, "VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a * q;\n"), VX_ERROR_COMPILE);
  EXPECT_EQ(std::string(vx_error(c.e)).rfind("the program did not compile (", 0), 0u) << vx_error(c.e);
  int32_t count = 0;
  ASSERT_EQ(vx_message_count(c.e, &count), VX_OK);
  ASSERT_GE(count, 1);
  const char* text = nullptr;
  int32_t line = 0;
  ASSERT_EQ(vx_message(c.e, 0, &text, &line), VX_OK);
  EXPECT_EQ(line, 3);
  EXPECT_NE(std::string(text), "");
  EXPECT_NE(std::string(vx_error(c.e)), "x");  // a successful call clears the message
  EXPECT_STREQ(vx_error(c.e), "");
  EXPECT_EQ(vx_message(c.e, count, &text, &line), VX_ERROR_ARGUMENT);
  // The listing has the same message.
  ASSERT_EQ(vx_message(c.e, 0, &text, &line), VX_OK);
  const std::string message = text;
  const char* report = nullptr;
  ASSERT_EQ(vx_report(c.e, &report), VX_OK);
  EXPECT_NE(std::string(report).find("Error: " + message), std::string::npos);
}

TEST(CInterface, ComputeAfterAFailedCompileIsRefused) {
  Handle c;
  ASSERT_EQ(vx_compile_file(c.e, example("decay.vex").c_str()), VX_OK);
  EXPECT_EQ(vx_compile_file(c.e, "/no/such/program.vex"), VX_ERROR_FILE);
  EXPECT_STREQ(vx_error(c.e), "Unable to open VEXOR source file: /no/such/program.vex");
  EXPECT_EQ(vx_compile_file(c.e, "/"), VX_ERROR_FILE);  // a folder cannot be read either
  int code = 99;
  EXPECT_EQ(vx_compute(c.e, &code), VX_ERROR_STATE);
  EXPECT_STREQ(vx_error(c.e), "the last compilation failed: there is no program");
  EXPECT_EQ(code, 99);
}

TEST(CInterface, CallsOutOfOrderAreRefused) {
  Handle c;
  int32_t n = 0;
  double x = 0;
  int code = 0;
  EXPECT_EQ(vx_parameter_count(c.e, &n), VX_ERROR_STATE);
  EXPECT_STREQ(vx_error(c.e), "no program has been compiled with this handle");
  EXPECT_EQ(vx_compute(c.e, &code), VX_ERROR_STATE);
  ASSERT_EQ(vx_statistic(c.e, VX_STAT_VERSION, &x), VX_OK);
  EXPECT_EQ(x, 5.4);
  EXPECT_STREQ(vx_version(), "5.4");
  ASSERT_EQ(vx_compile(c.e, growth), VX_OK);
  EXPECT_EQ(vx_statistic(c.e, VX_STAT_R2, &x), VX_ERROR_STATE);
  EXPECT_STREQ(vx_error(c.e), "no fit has been computed: call vx_compute first");
  EXPECT_EQ(vx_statistic(c.e, 16, &x), VX_ERROR_ARGUMENT);
  EXPECT_EQ(vx_statistic(c.e, -1, &x), VX_ERROR_ARGUMENT);
  // Estimates before a fit are the starting values.
  double b[2];
  ASSERT_EQ(vx_parameter_values(c.e, VX_ESTIMATE, b, 2), VX_OK);
  EXPECT_EQ(b[0], 1.0);
  EXPECT_EQ(b[1], 0.5);
  EXPECT_EQ(vx_parameter_values(c.e, VX_STDERR, b, 2), VX_ERROR_STATE);
  EXPECT_EQ(vx_parameter_values(c.e, VX_ESTIMATE, b, 3), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(c.e), "room for 3 values; the program has 2 parameters");
  EXPECT_EQ(vx_parameter_values(c.e, 7, b, 2), VX_ERROR_ARGUMENT);
  // No data: the fit runs and fails as the object's does.
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  EXPECT_EQ(code, -7);
  EXPECT_EQ(vx_statistic(c.e, VX_STAT_R2, &x), VX_ERROR_STATE);
  EXPECT_STREQ(vx_error(c.e), "the last vx_compute ran no fit (result code -7): the listing says why");
  // Null handles and pointers.
  EXPECT_EQ(vx_compile(nullptr, growth), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(nullptr), "no handle (null)");
  EXPECT_EQ(vx_compile(c.e, nullptr), VX_ERROR_ARGUMENT);
  EXPECT_EQ(vx_parameter_count(c.e, nullptr), VX_ERROR_ARGUMENT);
  vx_destroy(nullptr);
}

// Every refusal of the C interface with the sentence vx_error gives.
TEST(CInterface, EveryRefusalSaysWhy) {
  Handle c;
  vx_engine* e = c.e;
  auto says = [&](int got, int want, const char* text) {
    EXPECT_EQ(got, want) << text;
    EXPECT_STREQ(vx_error(e), text);
  };
  says(vx_compile(e, nullptr), VX_ERROR_ARGUMENT, "no program text (null)");
  says(vx_compile_file(e, nullptr), VX_ERROR_ARGUMENT, "no file name (null)");
  says(vx_compile(e, "PARAMETERS a = 1;\nFUNCTION a*;\n"), VX_ERROR_COMPILE,
       "the program did not compile (1 error): line 2: Syntax error");
  says(vx_compile(e, "PARAMETERS a = 1;\nFUNCTION a*;\nFUNCTION a/;\n"), VX_ERROR_COMPILE,
       "the program did not compile (2 errors): line 2: Syntax error");
  const char* text = nullptr;
  says(vx_message_count(e, nullptr), VX_ERROR_ARGUMENT, "a null pointer");
  says(vx_message(e, 2, &text, nullptr), VX_ERROR_ARGUMENT, "no message 2 (there are 2)");
  says(vx_set_time_limit(e, -1.0), VX_ERROR_ARGUMENT, "a time limit is a number of seconds, 0 or more");
  says(vx_set_time_limit(e, INFINITY), VX_ERROR_ARGUMENT, "a time limit is a number of seconds, 0 or more");

  ASSERT_EQ(vx_compile(e, growth), VX_OK);
  says(vx_variable_name(e, 2, &text), VX_ERROR_ARGUMENT, "no variable 2 (there are 2)");
  says(vx_parameter_name(e, -1, &text), VX_ERROR_ARGUMENT, "no parameter -1 (there are 2)");
  double b[2] = {0, 0};
  says(vx_parameter_values(e, 7, b, 2), VX_ERROR_ARGUMENT, "no parameter value of kind 7 (0 to 6)");
  double x = 0;
  says(vx_statistic(e, 16, &x), VX_ERROR_ARGUMENT, "no statistic 16 (0 to 15)");
  double v = 0;
  says(vx_evaluate(e, b, -1, 2, &v), VX_ERROR_ARGUMENT, "a negative number of points (-1)");
  says(vx_evaluate(e, b, 1, 2, nullptr), VX_ERROR_ARGUMENT, "a null array");
  double lo = 0, hi = 0;
  says(vx_predict(e, b, 1, 2, 3, 0.95, &v, &lo, &hi), VX_ERROR_ARGUMENT,
       "no band 3 (0 none, 1 confidence, 2 prediction)");
  says(vx_predict(e, b, 1, 2, 1, 1.0, &v, &lo, &hi), VX_ERROR_ARGUMENT,
       "a band needs a level between 0 and 1 and arrays for its limits");
  says(vx_predict(e, b, 1, 2, 2, 0.95, &v, nullptr, &hi), VX_ERROR_ARGUMENT,
       "a band needs a level between 0 and 1 and arrays for its limits");
  // The engine's memory bound refuses a data matrix beyond it.
  const std::vector<double> d = rowmajor();
  vexor::setmemlimit(vexor::membytes() + 1000);
  says(vx_set_data(e, d.data(), 1000, 2), VX_ERROR_MEMORY, "no memory for 1000 rows of data");
  vexor::setmemlimit(0);

  ASSERT_EQ(vx_compile(e, growth), VX_OK);
  ASSERT_EQ(vx_set_data(e, d.data(), 6, 2), VX_OK);
  int code = 0;
  ASSERT_EQ(vx_compute(e, &code), VX_OK);
  ASSERT_GE(code, 1);
  says(vx_correlation_name(e, 2, &text), VX_ERROR_ARGUMENT, "no correlation variable 2 (there are 2)");
  double cov[4];
  says(vx_covariance(e, cov, 3), VX_ERROR_ARGUMENT, "room for 3 values; the matrix has 4");
  says(vx_correlation(e, cov, 5), VX_ERROR_ARGUMENT, "room for 5 values; the matrix has 4");
  double obs[6];
  says(vx_observed(e, obs, 5), VX_ERROR_ARGUMENT, "room for 5 values; there are 6 observations");
  says(vx_predicted(e, nullptr, 6), VX_ERROR_ARGUMENT, "room for 6 values; there are 6 observations");

  ASSERT_EQ(vx_compile(e, "PARAMETERS p = 1;\nFUNCTION (p - 3)^2 + 1;\n"), VX_OK);
  ASSERT_EQ(vx_compute(e, &code), VX_OK);
  says(vx_observed(e, obs, 1), VX_ERROR_UNAVAILABLE,
       "the fit has no observed and predicted values (a minimisation): the listing says why");
}

TEST(CInterface, DataOfTheWrongShapeAreRefused) {
  Handle c;
  ASSERT_EQ(vx_compile(c.e, growth), VX_OK);
  const std::vector<double> d = rowmajor();
  EXPECT_EQ(vx_set_data(c.e, d.data(), 4, 3), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(c.e), "the data have 3 columns; the program has 2 variables");
  EXPECT_EQ(vx_set_data(c.e, d.data(), -1, 2), VX_ERROR_ARGUMENT);
  EXPECT_EQ(vx_set_data(c.e, nullptr, 3, 2), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(c.e), "no data (null)");
  double v = 0;
  EXPECT_EQ(vx_evaluate(c.e, d.data(), 1, 1, &v), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(c.e), "the points have 1 columns; the program has 2 variables");
  ASSERT_EQ(vx_compile(c.e, "PARAMETERS x = 1; FUNCTION (x - 3)^2;\n"), VX_OK);
  EXPECT_EQ(vx_set_data(c.e, d.data(), 1, 0), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(c.e), "the program has no VARIABLES (a minimisation): it takes no data");
}

TEST(CInterface, AMinimisationHasNoResidualsAndNoCovariance) {
  Handle c;
  ASSERT_EQ(vx_compile(c.e, "PARAMETERS x = 1; COVARIANCE;\nFUNCTION (x - 3)^2 + 1;\n"), VX_OK);
  int code = 0;
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  EXPECT_GE(code, 1);
  double x = 0;
  ASSERT_EQ(vx_parameter_values(c.e, VX_ESTIMATE, &x, 1), VX_OK);
  EXPECT_NEAR(x, 3.0, 1e-6);
  double cov = 0;
  EXPECT_EQ(vx_covariance(c.e, &cov, 1), VX_ERROR_UNAVAILABLE);
  EXPECT_EQ(vx_observed(c.e, &cov, 1), VX_ERROR_UNAVAILABLE);
  int flags = -1;
  ASSERT_EQ(vx_available(c.e, &flags), VX_OK);
  EXPECT_EQ(flags & (VX_HAS_COVARIANCE | VX_HAS_RESIDUALS), 0);
  // The function at a point: no inputs, one value.
  double v = 0;
  ASSERT_EQ(vx_evaluate(c.e, nullptr, 1, 0, &v), VX_OK);
  EXPECT_NEAR(v, 1.0, 1e-9);
}

TEST(CInterface, ABoundedFitHasNoStandardErrors) {
  Handle c;
  const std::string bounded = std::string(growth) + "CONSTRAIN b = 0, 0.5;\n";
  ASSERT_EQ(vx_compile(c.e, bounded.c_str()), VX_OK) << vx_error(c.e);
  const std::vector<double> d = rowmajor();
  ASSERT_EQ(vx_set_data(c.e, d.data(), 6, 2), VX_OK);
  int code = 0;
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  double se[2];
  EXPECT_EQ(vx_parameter_values(c.e, VX_STDERR, se, 2), VX_ERROR_UNAVAILABLE);
  EXPECT_STREQ(vx_error(c.e), "the fit has no standard errors: the listing says why");
  double lo[3], mid[3], hi[3];
  const double at[2] = {1.0, 0.0};
  EXPECT_EQ(vx_predict(c.e, at, 1, 2, 1, 0.95, mid, lo, hi), VX_ERROR_UNAVAILABLE);
}

// Exact derivatives and bounded errors are settings of the handle: the
// engine's own settings are as they were after each call.
TEST(CInterface, DerivativesAndBoundedErrorsAreSettingsOfTheHandle) {
  Handle fd, ex;
  const std::vector<double> d = rowmajor();
  int code = 0;
  ASSERT_EQ(vx_compile(fd.e, growth), VX_OK);
  ASSERT_EQ(vx_set_data(fd.e, d.data(), 6, 2), VX_OK);
  ASSERT_EQ(vx_compute(fd.e, &code), VX_OK);
  double bf[2], sf[2], evf = 0;
  ASSERT_EQ(vx_parameter_values(fd.e, VX_ESTIMATE, bf, 2), VX_OK);
  ASSERT_EQ(vx_parameter_values(fd.e, VX_STDERR, sf, 2), VX_OK);
  ASSERT_EQ(vx_statistic(fd.e, VX_STAT_EVALUATIONS, &evf), VX_OK);
  const char* text = nullptr;
  ASSERT_EQ(vx_differenced_columns(fd.e, &text), VX_OK);
  EXPECT_STREQ(text, "");

  ASSERT_EQ(vx_set_derivatives(ex.e, 1), VX_OK);
  ASSERT_EQ(vx_compile(ex.e, growth), VX_OK);
  ASSERT_EQ(vx_set_data(ex.e, d.data(), 6, 2), VX_OK);
  ASSERT_EQ(vx_compute(ex.e, &code), VX_OK);
  EXPECT_FALSE(vexor::exactderivatives());
  double be[2], se[2], eve = 0;
  ASSERT_EQ(vx_parameter_values(ex.e, VX_ESTIMATE, be, 2), VX_OK);
  ASSERT_EQ(vx_parameter_values(ex.e, VX_STDERR, se, 2), VX_OK);
  ASSERT_EQ(vx_statistic(ex.e, VX_STAT_EVALUATIONS, &eve), VX_OK);
  for (int k = 0; k < 2; ++k) {
    EXPECT_NEAR(be[k], bf[k], 1e-3 * sf[k]);
    EXPECT_NEAR(se[k], sf[k], 1e-4 * sf[k]);
  }
  EXPECT_LT(eve, evf);
  ASSERT_EQ(vx_differenced_columns(ex.e, &text), VX_OK);
  EXPECT_STREQ(text, "");

  // Bounded errors: b held at 0.5 has no standard error; a has one.
  ASSERT_EQ(vx_set_bounded_errors(ex.e, 1), VX_OK);
  const std::string bounded = std::string(growth) + "CONSTRAIN b = 0, 0.5;\n";
  ASSERT_EQ(vx_compile(ex.e, bounded.c_str()), VX_OK);
  ASSERT_EQ(vx_set_data(ex.e, d.data(), 6, 2), VX_OK);
  ASSERT_EQ(vx_compute(ex.e, &code), VX_OK);
  EXPECT_FALSE(vexor::boundederrors());
  ASSERT_EQ(vx_parameter_values(ex.e, VX_ESTIMATE, be, 2), VX_OK);
  ASSERT_EQ(vx_parameter_values(ex.e, VX_STDERR, se, 2), VX_OK);
  EXPECT_EQ(be[1], 0.5);
  EXPECT_GT(se[0], 0.0);
  EXPECT_EQ(se[1], 0.0);
  const char* report = nullptr;
  ASSERT_EQ(vx_report(ex.e, &report), VX_OK);
  EXPECT_NE(std::string(report).find("Standard errors are those of the parameters not held at a bound; held: b.\n"),
            std::string::npos);
}

TEST(CInterface, AnotherHandleTakesTheEngine) {
  Handle a, b;
  ASSERT_EQ(vx_compile(a.e, growth), VX_OK);
  ASSERT_EQ(vx_compile_file(b.e, example("decay.vex").c_str()), VX_OK);
  int32_t n = 0;
  EXPECT_EQ(vx_parameter_count(a.e, &n), VX_ERROR_STATE);
  EXPECT_STREQ(vx_error(a.e), "another handle has compiled a program since this one did");
  ASSERT_EQ(vx_parameter_count(b.e, &n), VX_OK);
  EXPECT_EQ(n, 3);
  const char* name = nullptr;
  ASSERT_EQ(vx_parameter_name(b.e, 2, &name), VX_OK);
  EXPECT_STREQ(name, "bg");
  ASSERT_EQ(vx_variable_name(b.e, 1, &name), VX_OK);
  EXPECT_STREQ(name, "counts");
  int32_t dep = 0;
  ASSERT_EQ(vx_dependent(b.e, &dep), VX_OK);
  EXPECT_EQ(dep, 1);
  EXPECT_EQ(vx_parameter_name(b.e, 3, &name), VX_ERROR_ARGUMENT);
}

TEST(CInterface, TheTimeLimitStopsAnEndlessProgram) {
  Handle c;
  ASSERT_EQ(vx_compile(c.e, "VARIABLES x, y; PARAMETERS a = 1; DOUBLE i;\n"
                            "WHILE (1) i = i + 1;\nFUNCTION y = a * x;\nDATA;\n1 1\n2 2\n"),
            VX_OK)
      << vx_error(c.e);
  EXPECT_EQ(vx_set_time_limit(c.e, -1.0), VX_ERROR_ARGUMENT);
  ASSERT_EQ(vx_set_time_limit(c.e, 0.2), VX_OK);
  int code = 0;
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  EXPECT_EQ(code, -10);
  EXPECT_EQ(vexor::timelimit(), 0.0);  // the handle's limit was for its own runs
}

TEST(CInterface, ThreadsAndVectorMathAreSettingsOfTheHandle) {
  Handle c;
  EXPECT_EQ(vx_set_threads(c.e, -1), VX_ERROR_ARGUMENT);
  EXPECT_STREQ(vx_error(c.e), "a thread count is 0 (one per core) to 64, not -1");
  EXPECT_EQ(vx_set_threads(c.e, 65), VX_ERROR_ARGUMENT);
  ASSERT_EQ(vx_set_threads(c.e, 3), VX_OK);
  ASSERT_EQ(vx_set_vector_math(c.e, 1), VX_OK);
  // A fit large enough for threads gives the same estimates with 3 threads
  // as with 1, and the engine's own settings are as they were after it.
  std::string program = "VARIABLES x, y;\nPARAMETERS a = 1, b = 1;\nFUNCTION y = a * exp(-b * x);\n";
  std::vector<double> d;
  for (int i = 0; i < 10000; ++i) {
    d.push_back(i / 1000.0);
    d.push_back(3.0 * std::exp(-0.4 * i / 1000.0) + 0.01 * std::sin(91.0 * i));
  }
  double many[2], one[2];
  int code = 0;
  ASSERT_EQ(vx_compile(c.e, program.c_str()), VX_OK);
  ASSERT_EQ(vx_set_data(c.e, d.data(), 10000, 2), VX_OK);
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  ASSERT_EQ(vx_parameter_values(c.e, VX_ESTIMATE, many, 2), VX_OK);
  EXPECT_FALSE(vexor::vectormath());  // the engine's own setting, as it was
  ASSERT_EQ(vx_set_threads(c.e, 1), VX_OK);
  ASSERT_EQ(vx_compute(c.e, &code), VX_OK);
  ASSERT_EQ(vx_parameter_values(c.e, VX_ESTIMATE, one, 2), VX_OK);
  EXPECT_EQ(many[0], one[0]);
  EXPECT_EQ(many[1], one[1]);
  EXPECT_NEAR(one[1], 0.4, 1e-3);
}

TEST(CInterface, ACommentLeftOpenFailsTheCompileWithoutEndingTheProcess) {
  Handle c;
  EXPECT_EQ(vx_compile(c.e, "VARIABLES x, y; /* never closed\n"), VX_ERROR_COMPILE);
  const char* text = nullptr;
  int32_t line = 0;
  ASSERT_EQ(vx_message(c.e, 0, &text, &line), VX_OK);
  EXPECT_NE(std::string(text).find("Hit end of file while processing comment"), std::string::npos) << text;
}

// Calls from two threads are serialised: each thread's sequences either see
// their own program or are told another handle took the engine, never a
// crash or a number from the wrong program.
TEST(CInterface, TwoThreadsAreSerialised) {
  auto work = [](const char* program, int p, int* good, int* refused) {
    Handle c;
    for (int i = 0; i < 50; ++i) {
      int code = 0;
      if (vx_compile(c.e, program) != VX_OK) continue;
      if (vx_compute(c.e, &code) != VX_OK) {
        ++*refused;
        continue;
      }
      std::vector<double> b(p);
      const int r = vx_parameter_values(c.e, VX_ESTIMATE, b.data(), p);
      if (r == VX_OK)
        ++*good;
      else if (r == VX_ERROR_STATE || r == VX_ERROR_ARGUMENT)
        ++*refused;
    }
  };
  const std::string one = std::string(growth) + "DATA;\n0.5 3.1\n1.1 4.9\n1.7 8.2\n2.3 13.6\n";
  const std::string two = "PARAMETERS u = 1, v = 2, w = 3; FUNCTION (u-1)^2 + (v-2)^2 + (w-4)^2;\n";
  int good1 = 0, refused1 = 0, good2 = 0, refused2 = 0;
  std::thread t1(work, one.c_str(), 2, &good1, &refused1);
  std::thread t2(work, two.c_str(), 3, &good2, &refused2);
  t1.join();
  t2.join();
  EXPECT_EQ(good1 + refused1, 50);
  EXPECT_EQ(good2 + refused2, 50);
}
