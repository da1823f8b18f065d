// The correlation matrix of the CORRELATE variables, the variance-covariance
// matrix of the estimates and the confidence intervals of the estimates.
//
// Matrices are printed in column blocks (5 correlation columns, 4 covariance
// columns per block); every block repeats all rows.  Each line is built in a
// buffer and written with one outprintf call.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "exec/exec.h"
#include "fit/driver.h"
#include "report/report.h"

namespace vexor {

namespace {

// Appends formatted text to a line buffer of LSTMAXTEXT bytes.
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
void addf(char* line, int* len, const char* format, ...) {
  if (*len >= LSTMAXTEXT - 1) return;
  va_list ap;
  va_start(ap, format);
  int n = std::vsnprintf(line + *len, LSTMAXTEXT - *len, format, ap);
  va_end(ap);
  if (n > 0) *len = std::min(*len + n, LSTMAXTEXT - 1);
}

}  // namespace

// Both input variables: straight from the data matrix.  Otherwise the
// program runs for observation i (its run-time errors are reported by the
// interpreter) and the symbols' current values are taken.
void pairvalues(Symbol* a, Symbol* b, int32_t i, double* x, double* y) {
  if (a->kind == SYM_INPUT && b->kind == SYM_INPUT && datamat) {
    const double* row = datamat + static_cast<std::size_t>(i) * nvar;
    *x = row[a->index];
    *y = row[b->index];
    return;
  }
  double predicted, observed;
  runprog(i, nullptr, &predicted, &observed);
  *x = a->value;
  *y = b->value;
}

// Pearson's r by the one-pass sums:
//   r = (Sxy - Sy Sx / n) / sqrt((Syy - Sy^2 / n) (Sxx - Sx^2 / n))
// with no guard, so a constant variable gives whatever the division gives.
// A pass that runs the program starts, like every pass over the
// observations, from the work variables' initial values.
double corrcoef(Symbol* a, Symbol* b) {
  if (a == b) return 1.0;
  if (a->kind != SYM_INPUT || b->kind != SYM_INPUT) resetwork();
  double sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
  for (int32_t i = 0; i < nobs; ++i) {
    double x, y;
    pairvalues(a, b, i, &x, &y);
    sx += x;
    sy += y;
    sxx += x * x;
    syy += y * y;
    sxy += x * y;
  }
  double n = nobs;
  return (sxy - sy * sx / n) / std::sqrt((syy - sy * sy / n) * (sxx - sx * sx / n));
}

// pad = (11 - length) / 2 blanks, the name, then blanks up to 10 characters;
// a name of 10 characters or more is copied whole.
void centername(const char* name, char* field) {
  int len = static_cast<int>(std::strlen(name));
  int pad = (11 - len) / 2;
  int k = 0;
  for (int j = 0; j < pad; ++j) field[k++] = ' ';
  std::memcpy(field + k, name, static_cast<std::size_t>(len));
  k += len;
  while (k < 10) field[k++] = ' ';
  field[k] = '\0';
}

void corrmatrix() {
  for (int32_t start = 0; start < ncorr; start += 5) {
    int32_t end = std::min(start + 5, ncorr);
    outprintf(start == 0 ? "\n\n           ----  Correlation Matrix  ----\n\n"
                         : "\n\n           ----  Correlation Matrix (continued)  ----\n\n");
    // The head starts with " Variable    " in the listing file and the
    // Listing, with " Variable " on the console.
    char line[LSTMAXTEXT];
    int len = 0;
    line[0] = '\0';
    for (int32_t c = start; c < end; ++c) {
      char field[MAXNAME + 16];
      centername(corrvars[c]->name, field);
      addf(line, &len, "%10s  ", field);
    }
    if (echo) {
      std::printf(" Variable %s", line);
      std::fflush(stdout);
    }
    if (lstfile) std::fprintf(lstfile, " Variable    %s", line);
    if (lstenabled) lstprintf(" Variable    %s", line);

    len = 0;
    addf(line, &len, "\n---------- ");
    for (int32_t c = start; c < end; ++c) addf(line, &len, "  ----------");
    outprintf("%s\n", line);

    for (int32_t r = 0; r < ncorr; ++r) {
      len = 0;
      addf(line, &len, "%10s:", corrvars[r]->name);
      for (int32_t c = start; c < end; ++c)
        addf(line, &len, "    %6.3lf  ", corrcoef(corrvars[r], corrvars[c]));
      outprintf("%s\n", line);
    }
  }
}

void covmatrix() {
  const int32_t p = nparm;
  for (int32_t start = 0; start < p; start += 4) {
    int32_t end = std::min(start + 4, p);
    outprintf(start == 0 ? "\n\n           ----  Variance-Covariance Matrix  ----\n\n"
                         : "\n\n           ----  Variance-Covariance Matrix (continued)  ----\n\n");
    char line[LSTMAXTEXT];
    int len = 0;
    addf(line, &len, " Parameter ");
    for (int32_t c = start; c < end; ++c) {
      char field[MAXNAME + 16];
      centername(parms[c]->name, field);
      addf(line, &len, "    %10s ", field);
    }
    outprintf("%s", line);

    len = 0;
    addf(line, &len, "\n---------- ");
    for (int32_t c = start; c < end; ++c) addf(line, &len, "  -------------");
    outprintf("%s\n", line);

    for (int32_t r = 0; r < p; ++r) {
      len = 0;
      addf(line, &len, "%10s:", parms[r]->name);
      for (int32_t c = start; c < end; ++c)
        addf(line, &len, "  %13.5lG", covmat[static_cast<std::size_t>(r) * p + c]);
      outprintf("%s\n", line);
    }
  }
}

// Limits estimate -/+ sqrt(C(k,k)) * t with t the two-sided quantile of the
// level on n - p degrees of freedom.  A level below 0.50001 is raised to
// 0.50001 (the setting itself changes) after the title has shown the level
// as requested, so CONFIDENCE 50 is titled 50.000.
void confintervals() {
  const int32_t n = nobs;
  const int32_t p = nparm;
  if (n <= p) {
    outprintf("\nUnable to compute confidence interval with this few observations.\n");
    return;
  }
  outprintf("\n\n         ---- %7.3lf%% Confidence Intervals  ----\n\n", 100 * conflevel);
  outprintf(" Parameter     Lower limit      Best estimate      Upper limit\n");
  outprintf("----------  ----------------  ----------------  ----------------\n");
  if (conflevel < 0.50001) conflevel = 0.50001;
  double t = tinv((conflevel + 1) / 2, n - p);
  for (int32_t k = 0; k < p; ++k) {
    Symbol* s = parms[k];
    double h = std::sqrt(covmat[static_cast<std::size_t>(k) * p + k]) * t;
    s->cilow = s->value - h;
    s->cihigh = s->value + h;
    outprintf("%10s  %16.9lG  %16.9lG  %16.9lG\n", s->name, s->cilow, s->value, s->cihigh);
  }
}

}  // namespace vexor
