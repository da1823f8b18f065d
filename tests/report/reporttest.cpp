#include "reporttest.h"

#include <cstdio>
#include <regex>

#include "api/engine.h"
#include "exec/exec.h"
#include "fit/driver.h"
#include "lang/lang.h"
#include "report/report.h"
#include "support/support.h"

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

void ReportTest::results() {
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

std::string ReportTest::text() {
  std::string s;
  lstforeach([&](const char* t) {
    for (const char* p = t; *p; ++p)
      if (!(p[0] == '\r' && p[1] == '\n')) s += *p;
  });
  return s;
}

std::string ReportTest::masked() {
  static const std::regex when(
      "Analysis completed [ 0-9]{2}-[A-Z][a-z]{2}-[0-9]{4} [0-9]{2}:[0-9]{2}\\.  Runtime = "
      "-?[0-9]+\\.[0-9]{2} seconds\\.");
  return std::regex_replace(text(), when, "Analysis completed XX.  Runtime = XX seconds.");
}

std::string ReportTest::readfile(const std::string& name) {
  FILE* f = std::fopen(name.c_str(), "rb");
  if (!f) return "<missing>";
  std::string s;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
  std::fclose(f);
  return s;
}

}  // namespace vexor::test
