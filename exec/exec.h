// Execution: the interpreter that runs a compiled program for one
// observation, the built-in function table and its dispatcher, and the
// special functions behind the statistical built-ins and the report.
#pragma once

#include <cstdint>

#include "code/code.h"

namespace vexor {

// ---------------------------------------------------------------------------
// Built-in function table (ORDER BUILTIN: codes are fixed; see functable.cpp)
// ---------------------------------------------------------------------------
enum : uint8_t {
  FN_ACOS = 1, FN_ASIN, FN_ATAN, FN_COS, FN_EXP, FN_ABS, FN_LN, FN_LOG10, FN_SIN,
  FN_SQRT, FN_TAN, FN_DEG, FN_RAD, FN_COT, FN_HAV, FN_COSH, FN_SINH, FN_TANH,
  FN_NORMAL, FN_MAX, FN_MIN, FN_STEP, FN_PULSE, FN_GAMMA, FN_GAMMAI, FN_SEC,
  FN_CSC, FN_J0, FN_J1, FN_JN, FN_Y0, FN_Y1, FN_YN, FN_CHEBY, FN_FAC, FN_SEL,
  FN_EI1, FN_EI2, FN_EIC1, FN_EIC2, FN_BETAI, FN_GAMMALN, FN_PAREA, FN_ERF,
  FN_LOG2, FN_NPD, FN_RTOPA, FN_RTOPD, FN_PTORX, FN_PTORY, FN_PTOC, FN_CTOP,
  FN_MOD, FN_FLOOR, FN_CEIL, FN_ROUND, FN_RANDOM, FN_PRINTF, FN_RETURN, FN_EI1D,
  FN_EI2D, FN_EIC1D, FN_EIC2D, FN_ACOSD, FN_ASIND, FN_ATAND, FN_COSD, FN_SIND,
  FN_TAND, FN_COTD, FN_HAVD, FN_SECD, FN_CSCD, FN_RTOPAD, FN_PTORXD, FN_PTORYD,
  FN_PTOCD, FN_CTOPD, FN_GAMMP,
};
static_assert(FN_GAMMP == 79, "function codes out of step with the table");

inline constexpr uint8_t VARARGS = 255;
inline constexpr int NFUNCS = 89;

// Flags of a table row (the same bits as the node flags ENF_NOFOLD,
// ENF_STRINGS and ENF_SPARE).
struct FuncEntry {
  const char* name;  // upper case
  uint8_t code;
  uint8_t nargs;     // VARARGS: any number
  uint8_t flags;
};
extern const FuncEntry functable[NFUNCS];
// The row for an upper-case name, searched in table order; null when none.
const FuncEntry* funclookup(const char* upper);

inline constexpr double DEGTORAD = 0.0174532925199433;
inline constexpr double RADTODEG = 57.29577951308232;

// ---------------------------------------------------------------------------
// Interpreter
// ---------------------------------------------------------------------------

extern SourceLine* runline;  // line of the last OP_LINE, null outside a run
extern int stopflag;
extern int errflag;
extern int funcexec;
extern int abortflag;
extern int abortreported;
extern int computing;        // the optimizer is iterating: errors are hidden
extern int traceflag;
extern double lastobserved;  // values of the last OP_FUNCTION executed
extern double lastpredicted;

void resetwork();
int runprog(int32_t obs, const double* input, double* predicted, double* observed);
double evalexpr(ExprNode* node);
double* lvaladdr(ExprNode* node);
void runerror(const char* format, ...);
double evlcall(ExprNode* call);

// ---------------------------------------------------------------------------
// Special functions
// ---------------------------------------------------------------------------

double gammln(double x);
double rgamma(double x);
double gammp(double a, double x);
double gser(double a, double x);
double gcf(double a, double x);
double betai(double a, double b, double x);
double betacf(double a, double b, double x);
double erf1(double x);
double parea(double x);
double tprob(double t, double df);
double fprob(double f, double df1, double df2);
double tinv(double p, double df);
double el2(double x, double kc, double a, double b);
double cel(double kc, double p, double a, double b);

}  // namespace vexor
