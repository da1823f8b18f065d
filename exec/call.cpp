// evlcall: the run-time dispatcher of built-in calls.  It gathers the
// argument values, computes the function through fncompute
// (builtins/builtins.cpp) and reports a failed argument test through runerror
// with the offending value; the call then yields 0.0.  RANDOM, PRINTF and
// RETURN, which act or vary and are never folded, are handled here.
#include <cstdio>

#include "exec/evaltree.h"

namespace vexor {

namespace {

constexpr double RANDSCALE = 3.051850947599719e-05;  // 1/32767: RANDOM in 0..1

// PRINTF(format, values...): the text goes to standard output and to the
// output file when one is open.
double printfcall(ExprNode* call, const double* v, int n) {
  if (n < 1) {
    runerror("Function has too few arguments");
    return 0.0;
  }
  ExprNode* fmt = call->firstarg;
  if (!fmt || fmt->kind != EN_STRING || !fmt->text) {
    runerror("Invalid arguments to function");
    return 0.0;
  }
  printvalues(stdout, fmt->text, v + 1, n - 1);
  if (outfp) printvalues(outfp, fmt->text, v + 1, n - 1);
  return 1.0;
}

// RETURN(predicted [, observed]): ends the run with these values.  It does
// not count as an executed FUNCTION statement.
double returncall(int n, const double* v) {
  if (n < 1) {
    runerror("Function has too few arguments");
    return 0.0;
  }
  lastpredicted = v[0];
  lastobserved = n > 1 ? v[1] : 0.0;
  stopflag = 1;
  return 0.0;
}

}  // namespace

double evlcall(ExprNode* call) {
  // Only the first four values need a default: no fixed-count function takes
  // more, and PRINTF fills its missing values itself.
  double v[MAXCALLARGS];
  v[0] = v[1] = v[2] = v[3] = 0.0;
  int n = 0;
  if (!(call->flags & ENF_SPARE)) {
    for (ExprNode* a = call->firstarg; a; a = a->nextarg) {
      if (n == MAXCALLARGS) {
        runerror("Too many function argument values specified");
        return 0.0;
      }
      switch (a->kind) {
        case EN_CONSTANT: v[n] = a->value; break;
        case EN_VARIABLE: v[n] = a->symbol->value; break;
        case EN_STRING: v[n] = 0.0; break;
        default: v[n] = evalexpr(a); break;
      }
      ++n;
    }
  }
  return evlapply(call, v, n);
}

double evlapply(ExprNode* call, const double* v, int n) {
  switch (call->funcode) {
    case FN_RANDOM: return randnext() * RANDSCALE;
    case FN_PRINTF: return printfcall(call, v, n);
    case FN_RETURN: return returncall(n, v);
    default: break;
  }
  uint8_t fail;
  double bad;
  double value = fncompute(call->funcode, v, FNRUN, &fail, &bad);
  if (fail == BF_NONE) return value;
  if (fail == BF_CHEBY)
    runerror(fnruntext(fail), (long)bad);
  else
    runerror(fnruntext(fail), bad);
  // A failed argument test yields 0.0; a routine that failed inside yields
  // what it computed around its failure (its own part being 0.0).
  return fnroutinefail(fail) ? value : 0.0;
}

}  // namespace vexor
