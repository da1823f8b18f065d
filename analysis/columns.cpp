// The values of one symbol over the observations, for tools that draw or
// tabulate them: an input variable's from the data matrix, any other
// symbol's as the program leaves it after running for each observation (a
// pass that starts, like every pass, from the work variables' initial
// values).
#include "analysis/analysis.h"

namespace vexor {

bool symbolvalues(Symbol* s, double* out) {
  if (s->kind == SYM_INPUT && datamat) {
    for (int32_t i = 0; i < nobs; ++i) out[i] = datamat[static_cast<std::size_t>(i) * nvar + s->index];
    return true;
  }
  if (!progstart) return false;
  startrun();
  resetwork();
  bool ok = true;
  double predicted, observed;
  for (int32_t i = 0; i < nobs; ++i) {
    if (!runprog(i, nullptr, &predicted, &observed) || errflag) ok = false;
    out[i] = s->value;
  }
  return ok;
}

}  // namespace vexor
