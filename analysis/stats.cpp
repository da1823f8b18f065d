// Fit statistics: residual statistics, per-parameter statistics, the
// analysis of variance and the descriptive statistics of the variables.
// Plain double arithmetic; the guards against division are exactly these:
// Stot = 0 (or not a number) for R^2, Stot <= 1e-20 or n - p <= 0 for Ra^2,
// SSE <= 0 for Durbin-Watson, |s_k| < 1e-20 for t, an error mean square of
// 0 for F.
#include <cmath>

#include "analysis/analysis.h"

namespace vexor {

ResidualStats fitstats(const double* y, const double* yhat, int32_t n, int32_t p) {
  ResidualStats r{};
  double m = 0, sy = 0, syy = 0, sabs = 0, d = 0, prev = 0;
  long pos = 0, neg = 0;
  for (int32_t i = 0; i < n; ++i) {
    m += 1;
    sy += y[i];
    syy += y[i] * y[i];
    double ri = y[i] - yhat[i];
    r.sse += ri * ri;
    r.sumdev += ri;
    sabs += std::fabs(ri);
    if (std::fabs(ri) > r.maxdev) r.maxdev = std::fabs(ri);
    if (i >= 1) d += (ri - prev) * (ri - prev);
    prev = ri;
    // A residual within 1e-9 of zero lies on both sides of the curve.
    if (std::fabs(ri) < 1e-9) {
      ++pos;
      ++neg;
    } else if (ri > 0) {
      ++pos;
    } else if (ri < 0) {
      ++neg;
    }
  }
  r.stot = m > 0 ? syy - sy * sy / m : 0.0;
  if (r.stot == 0 || std::isnan(r.stot))
    r.rsquare = 0;
  else if (r.sse >= r.stot)
    r.rsquare = 0;
  else
    r.rsquare = 1 - r.sse / r.stot;
  // Ra^2 is not clamped: it may be negative even where R^2 was set to 0.
  int32_t df = n - p;
  r.adjrsquare = (df > 0 && r.stot > 1e-20)
                     ? 1 - (static_cast<double>(n - 1) / df) * (r.sse / r.stot)
                     : 0.0;
  r.durbinwatson = r.sse > 0 ? d / r.sse : 0.0;
  r.regss = r.stot - r.sse;
  if (r.regss < 0) r.regss = 0;
  r.avgdev = m > 0 ? sabs / m : 0.0;
  r.oneside = ((pos == 0) != (neg == 0)) ? 1 : 0;
  return r;
}

ParmStats parmstats(double estimate, double cov_kk, int32_t df) {
  ParmStats s{};
  s.stderror = std::sqrt(cov_kk);
  if (std::fabs(s.stderror) < 1e-20 || std::isnan(s.stderror))
    s.tval = 1e30;
  else
    s.tval = estimate / s.stderror;
  s.pval = 2.0 * (1.0 - tprob(s.tval, df));
  if (s.pval < 1e-5) s.pval = 1e-5;
  return s;
}

Anova anova(double regss, double sse, double stot, int32_t n, int32_t p) {
  Anova a{};
  a.regdf = p - 1;
  a.errdf = n - p;
  a.totdf = n - 1;
  a.regms = a.regdf >= 1 ? regss / a.regdf : 0.0;
  a.errms = a.errdf >= 1 ? sse / a.errdf : 0.0;
  a.shown = stot > 0 && p >= 2;
  a.full = a.errms > 0 && a.errdf >= 1 && a.regdf >= 1;
  if (a.errms > 0) {
    a.f = a.regms / a.errms;
    a.probf = fprob(a.f, a.regdf, a.errdf);
    if (a.probf < 1e-5) a.probf = 1e-5;
  }
  return a;
}

ColumnStats colstats(const double* data, int32_t rows, int32_t stride, int32_t col) {
  ColumnStats c{};
  if (rows <= 0) return c;
  double sx = 0, sxx = 0;
  c.min = c.max = data[col];
  for (int32_t i = 0; i < rows; ++i) {
    double x = data[static_cast<std::size_t>(i) * stride + col];
    if (x < c.min) c.min = x;
    if (x > c.max) c.max = x;
    sx += x;
    sxx += x * x;
  }
  c.mean = sx / rows;
  c.sd = rows > 1 ? std::sqrt((sxx - sx * sx / rows) / (rows - 1)) : 0.0;
  return c;
}

}  // namespace vexor
