// Pearson's correlation coefficient of two symbols over the observations,
// for the correlation matrix of the results and for GetCorrelationValue.
#include <cmath>

#include "analysis/analysis.h"

namespace vexor {

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

}  // namespace vexor
