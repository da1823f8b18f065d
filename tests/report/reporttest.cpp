#include "reporttest.h"

#include "api/engine.h"
#include "kit/kit.h"
#include "report/report.h"

namespace vexor::test {

namespace {

void release(double*& v) {
  if (v) memfree(v);
  v = nullptr;
}

double* doubles(int32_t count) {
  return static_cast<double*>(memcalloc(sizeof(double) * (count > 0 ? count : 1), "comp"));
}

}  // namespace

void ReportTest::TearDown() {
  release(predvec);
  release(obsvec);
  release(thirdvec);
  release(covmat);
  covstatus = 0;
  iterations = 0;
  finalsumsq = 0;
  stopsuppress = 0;
  if (lstfile) lstfile = nullptr;
  enginereset();
}

void ReportTest::compile(const std::string& program) {
  ASSERT_EQ(compilesource(program.c_str()), 1) << text();
  lstclear();
}

void ReportTest::estimates(std::initializer_list<double> v) {
  int32_t k = 0;
  for (double x : v) {
    ASSERT_LT(k, nparm);
    parms[k++]->value = x;
  }
}

void ReportTest::finalpass() {
  release(predvec);
  release(obsvec);
  release(thirdvec);
  release(covmat);
  predvec = doubles(nobs);
  obsvec = doubles(nobs);
  thirdvec = doubles(nobs);
  covmat = doubles(nparm * nparm);
  resetwork();
  for (int32_t i = 0; i < nobs; ++i) runprog(i, nullptr, &predvec[i], &obsvec[i]);
  starttime = anaclock();
}

void ReportTest::values(const std::vector<double>& observed, const std::vector<double>& predicted) {
  ASSERT_EQ(static_cast<int32_t>(observed.size()), nobs);
  ASSERT_EQ(static_cast<int32_t>(predicted.size()), nobs);
  for (int32_t i = 0; i < nobs; ++i) {
    obsvec[i] = observed[i];
    predvec[i] = predicted[i];
  }
}

void ReportTest::covariance(const std::vector<double>& c, int status) {
  ASSERT_EQ(static_cast<int32_t>(c.size()), nparm * nparm);
  for (std::size_t i = 0; i < c.size(); ++i) covmat[i] = c[i];
  covstatus = status;
}

void ReportTest::collect(int code) {
  if (!predvec) finalpass();
  collectresults(code);
}

void ReportTest::report(int code) {
  collect(code);
  finalreport();
}

void ReportTest::covwarningfor(int status) {
  vexor::results.covstatus = status;
  vexor::results.nconstrain = nconstrain;
  covwarning();
}

void ReportTest::anovafor(double regss, double sse, double stot) {
  vexor::results.rs.regss = regss;
  vexor::results.rs.sse = sse;
  vexor::results.rs.stot = stot;
  vexor::results.anova = anova(regss, sse, stot, nobs, nparm);
  anovatable();
}

std::string ReportTest::text() { return kit::listing(); }

std::string ReportTest::masked() { return kit::maskclock(text()); }

std::string ReportTest::readfile(const std::string& name) { return kit::readfile(name); }

}  // namespace vexor::test
