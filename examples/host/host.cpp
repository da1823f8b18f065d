// A host of the VEXOR object: compile a model, hand over the observations
// cell by cell, fit, and read back estimates, statistics, matrices, values
// of the fitted model and the listing.  The same file builds unchanged for
// Windows against the static engine library: the Windows build makes it
// tests/com/vexor_host.exe, and tests/com/run checks that it prints what
// the Linux build prints.
#include <cstdio>
#include <string>

#include <vexor/vexor.h>

namespace {

// A VARIANT argument holding a long, a double or a string.
struct Arg {
  VARIANT v;
  explicit Arg(int x) { VariantInit(&v); v.vt = VT_I4; v.lVal = x; }
  explicit Arg(long x) { VariantInit(&v); v.vt = VT_I4; v.lVal = static_cast<LONG>(x); }
  explicit Arg(double x) { VariantInit(&v); v.vt = VT_R8; v.dblVal = x; }
  explicit Arg(const OLECHAR* s) { VariantInit(&v); v.vt = VT_BSTR; v.bstrVal = SysAllocString(s); }
  ~Arg() { VariantClear(&v); }
  VARIANT* operator&() { return &v; }
};

// A result slot.
struct Out {
  VARIANT v;
  Out() { VariantInit(&v); }
  ~Out() { VariantClear(&v); }
  VARIANT* operator&() { return &v; }
};

// A BSTR result as narrow text (ASCII here; the listing is plain ASCII).
std::string text(const Out& r) {
  std::string s;
  for (UINT i = 0; i < SysStringLen(r.v.bstrVal); ++i) s += static_cast<char>(r.v.bstrVal[i]);
  return s;
}

// The program: an exponential decay on a constant background, without DATA.
const OLECHAR* const program = OLESTR(
    "TITLE \"Decay of a counting sample\";\n"
    "VARIABLES t, counts;\n"
    "PARAMETERS a = 1000, k = 0.3, bg = 50;\n"
    "CONFIDENCE 95;\n"
    "COVARIANCE;\n"
    "CORRELATE t, counts;\n"
    "FUNCTION counts = a * exp(-k * t) + bg;\n");

const double hours[] = {0.0, 0.5, 1.0, 1.5, 2.0, 3.0, 4.0, 5.0, 6.0, 8.0, 10.0, 12.0};
const double counts[] = {1051.2, 877.4, 741.9, 632.0, 545.3, 415.8, 326.1,
                         262.5, 219.7, 162.0, 131.9, 113.6};
const LONG nrows = sizeof hours / sizeof hours[0];

}  // namespace

int main() {
  VEXOR vexor;
  Out r;

  Arg source(program);
  vexor.Compile(&source, &r);
  if (r.v.lVal != 1) {
    Out listing;
    Arg none(0L);
    vexor.GetAnalysisReport(&none, &listing);
    std::printf("The program did not compile:\n%s", text(listing).c_str());
    return 1;
  }

  // The observations, cell by cell: columns in VARIABLES order.
  Arg rows(nrows);
  vexor.SetDataRows(&rows, &r);
  for (LONG i = 0; i < nrows; ++i) {
    Arg row(i), t(0L), c(1L), x(hours[i]), y(counts[i]);
    vexor.SetDataValue(&row, &t, &x, &r);
    vexor.SetDataValue(&row, &c, &y, &r);
  }

  vexor.Compute(&r);
  LONG code = r.v.lVal;
  std::printf("Compute returned %ld\n", static_cast<long>(code));

  // Estimates with their standard errors and 95% limits.
  Out np;
  vexor.NumParameters(&np);
  for (LONG p = 0; p < np.v.lVal; ++p) {
    Arg idx(p), est(0L), se(1L), lo(4L), hi(5L);
    Out name, e, s, l, h;
    vexor.ParameterName(&idx, &name);
    vexor.ParameterValue(&idx, &est, &e);
    vexor.ParameterValue(&idx, &se, &s);
    vexor.ParameterValue(&idx, &lo, &l);
    vexor.ParameterValue(&idx, &hi, &h);
    std::printf("%-3s = %10.4f  (standard error %.4f, limits %.4f to %.4f)\n", text(name).c_str(),
                e.v.dblVal, s.v.dblVal, l.v.dblVal, h.v.dblVal);
  }

  // Fit statistics.
  const char* const names[] = {"observations", "iterations", "sum of squares", "sum of deviations",
                               "largest deviation", "standard error", "R^2", "adjusted R^2",
                               "Durbin-Watson", "runtime", "version"};
  for (LONG k = 0; k <= 10; ++k) {
    if (k == 9) continue;  // the runtime differs from run to run
    Arg which(k);
    Out value;
    vexor.GetStatistic(&which, &value);
    std::printf("%-18s %.6g\n", names[k], value.v.dblVal);
  }

  // The correlation of t and counts, and the covariance of the estimates.
  Arg zero(0L), one(1L), two(2L);
  Out corr;
  vexor.GetCorrelationValue(&zero, &one, &corr);
  std::printf("correlation(t, counts) = %.4f\n", corr.v.dblVal);
  for (LONG i = 0; i < np.v.lVal; ++i) {
    std::printf("covariance row %ld:", static_cast<long>(i));
    for (LONG j = 0; j < np.v.lVal; ++j) {
      Arg row(i), col(j);
      Out c;
      vexor.GetCovarianceValue(&row, &col, &c);
      std::printf(" %12.5g", c.v.dblVal);
    }
    std::printf("\n");
  }

  // The fitted model at new times.
  for (double t : {2.5, 7.0, 20.0}) {
    Arg var(0L), value(t), dummy(0L);
    Out y;
    vexor.EvaluateValue(&var, &value);
    vexor.EvaluateFunction(&dummy, &y);
    std::printf("counts(%.1f) = %.2f\n", t, y.v.dblVal);
  }

  // The listing (its lines end in CR LF).
  Out listing;
  vexor.GetAnalysisReport(&zero, &listing);
  std::string report = text(listing);
  std::string lf;
  for (char c : report)
    if (c != '\r') lf += c;
  std::printf("\n%s", lf.c_str());
  return code > 0 ? 0 : 1;
}
