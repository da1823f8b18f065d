// The fitted model at new points, and its confidence and prediction bands
// by the delta method:
//   yhat = f(x, b),  g_k = df/db_k at (x, b) by central differences,
//   se_fit = sqrt(g' C g)              (C the covariance of the estimates),
//   confidence band  yhat -/+ t se_fit,
//   prediction band  yhat -/+ t sqrt(se_fit^2 + s^2)   (s^2 = SSE / (n - p)),
// t the two-sided quantile of the level on n - p degrees of freedom, to
// full precision.  The step of parameter k is h_k = cbrt(eps) |b_k| (eps
// the double epsilon), or cbrt(eps) when b_k is 0: the step that balances
// truncation against rounding in a central difference.
//
// Each point is a run of the program, like EvaluateFunction: the input
// variables take the point's values, the work variables start afresh.  The
// messages of a run that fails are set aside, not written to the listing,
// and the first of them is handed back.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "analysis/analysis.h"

namespace vexor {

namespace {

constexpr double CBRTEPS = 6.055454452393343e-06;  // cbrt(2^-52)

// The text of the first record of a set-aside list, without its line end.
void firstmessage(const LstCapture& c, char* out, std::size_t size) {
  out[0] = '\0';
  if (!c.first || size == 0) return;
  std::size_t n = 0;
  for (const char* p = c.first->text; *p && *p != '\r' && *p != '\n' && n + 1 < size; ++p)
    out[n++] = *p;
  out[n] = '\0';
}

// One run at the inputs with the parameters as they are.
bool runat(const double* inputs, double* value, char* message, std::size_t size) {
  resetwork();
  lastpredicted = lastobserved = 0.0;
  lstcapture();
  double v = 0.0;
  const int ok = runprog(0, inputs, &v, nullptr);
  const bool good = ok && !errflag && funcexec;
  LstCapture c = lstcaptured();
  // Every failed run says why in the listing (a run-time error, "FUNCTION
  // statement was not executed.", the time limit or the cancel), so its
  // first line is the message.
  if (message && !good) firstmessage(c, message, size);
  *value = v;
  return good;
}

}  // namespace

bool evalat(const double* inputs, double* value, char* message, std::size_t size) {
  if (message && size) message[0] = '\0';
  if (!progstart) {
    if (message) std::snprintf(message, size, "no program has compiled");
    return false;
  }
  startrun();
  return runat(inputs, value, message, size);
}

bool predictat(const double* inputs, int band, double level, Prediction* out) {
  *out = Prediction{};
  out->value = NAN;
  out->lower = out->upper = out->se = NAN;
  if (!evalat(inputs, &out->value, out->message, sizeof out->message)) return false;
  if (band == BAND_NONE) return true;
  const int32_t p = nparm;
  const int32_t df = nobs - nparm;
  if (!results.ready || results.minimize || results.covstatus <= 0 || df <= 0 || !covmat) {
    std::snprintf(out->message, sizeof out->message,
                  "no covariance matrix of the estimates: the listing says why");
    return false;
  }
  // The gradient by central differences, the parameters restored after.
  double* g = memallocdoubles("predict", p > 0 ? p : 1);
  if (!g) {
    std::snprintf(out->message, sizeof out->message, "Insufficient memory space available");
    return false;
  }
  bool ok = true;
  for (int32_t k = 0; k < p && ok; ++k) {
    Symbol* b = parms[k];
    const double keep = b->value;
    const double h = CBRTEPS * (keep != 0.0 ? std::fabs(keep) : 1.0);
    double up = 0.0, down = 0.0;
    b->value = keep + h;
    ok = runat(inputs, &up, out->message, sizeof out->message);
    b->value = keep - h;
    if (ok) ok = runat(inputs, &down, out->message, sizeof out->message);
    b->value = keep;
    g[k] = (up - down) / (2.0 * h);
  }
  if (ok) {
    double var = 0.0;
    for (int32_t i = 0; i < p; ++i)
      for (int32_t j = 0; j < p; ++j) var += g[i] * covmat[static_cast<std::size_t>(i) * p + j] * g[j];
    if (band == BAND_PREDICTION) var += results.summary.variance;
    out->se = std::sqrt(var > 0.0 ? var : 0.0);
    const double t = studentquantile((1.0 + level) / 2.0, df);
    out->lower = out->value - t * out->se;
    out->upper = out->value + t * out->se;
  }
  memfree(g);
  // The last run left the program's state at perturbed parameters: one more
  // at the estimates, so the symbols read as after the point itself.
  double again = 0.0;
  runat(inputs, &again, nullptr, 0);
  return ok;
}

}  // namespace vexor
