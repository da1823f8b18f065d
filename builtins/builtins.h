// The built-in functions of the language: the function table, the
// evaluation of a call from its argument values with the test that failed
// (fncompute), and the special functions behind the built-ins and the
// statistics of the report (gamma and beta families, Student's t and F,
// Bessel, Chebyshev, elliptic integrals, the compass conversion, RANDOM's
// generator and PRINTF's formatter).  Pure computation: nothing here writes
// a message or touches the interpreter's state.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdio>

#include "lang/lang.h"

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

// Flags of a table row; a call node takes them over as its node flags
// (code.h gives the node flags the same bits).
enum : uint8_t {
  FNF_NOFOLD = 1,    // never folded (RANDOM, PRINTF, RETURN)
  FNF_STRINGS = 2,   // the function accepts string arguments
  FNF_SPARE = 8,     // set by no function
};
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
// Special functions
// ---------------------------------------------------------------------------

double gammln(double x);
double rgamma(double x);
// Their derivatives: of the functions as computed (the six-term form, the
// truncated series with its reduction), so that they match differences of
// gammln and rgamma themselves.
double gammlnderiv(double x);
double rgammaderiv(double x);
// A failure of one of the incomplete-gamma routines: its BF_ code (BF_NONE
// when none) and the value its message shows.
struct SpecFail {
  uint8_t code = 0;
  double bad = 0.0;
};
double gammp(double a, double x, SpecFail* fail = nullptr);
double gser(double a, double x, SpecFail* fail = nullptr);
double gcf(double a, double x, SpecFail* fail = nullptr);
double betai(double a, double b, double x);
double betacf(double a, double b, double x);
double erf1(double x, SpecFail* fail = nullptr);
double parea(double x, SpecFail* fail = nullptr);
double tprob(double t, double df);
double fprob(double f, double df1, double df2);
double tinv(double p, double df);
// Student's t to full precision (studentt.cpp), for the tool's prediction
// bands: P(T <= t) with df degrees of freedom, and its inverse (NaN outside
// 0 < p < 1 or for df <= 0).
double studentcdf(double t, double df);
double studentquantile(double p, double df);
// The standard normal quantile to full precision (NaN outside 0 < p < 1).
double normalquantile(double p);
double el2(double x, double kc, double a, double b);
double cel(double kc, double p, double a, double b);

// RANDOM's generator: the classic 15-bit linear congruential generator
// (state = state * 214013 + 2531011, result = (state >> 16) & 0x7FFF), first
// state 1, never reseeded by the engine, so every process and platform sees
// the same sequence.
extern uint32_t randstate;
int randnext();

// PRINTF's formatter: writes format to f with the values (at most 50 are
// used; missing ones are 0.0) in place of its conversions.
void printvalues(FILE* f, const char* format, const double* values, int nvalues);

// ---------------------------------------------------------------------------
// Built-in evaluation shared by the run time (evlcall) and the constant
// folder (foldcall): fncompute computes the function of the given code from
// its argument values and returns its value, or reports in *fail which test
// failed (BF_NONE when none) and in *bad the value to show in the run-time
// message.  It writes no message itself: evlcall reports fnruntext through
// runerror, foldcall reports fncomptext through exprerror.
// ---------------------------------------------------------------------------

enum : uint8_t {
  BF_NONE = 0,
  BF_ACOS, BF_ASIN, BF_EXP, BF_LOG, BF_LOG10, BF_SQRT, BF_TAN, BF_COT,
  BF_GAMMARANGE, BF_GAMMAINF, BF_GAMMAIRANGE, BF_SEC, BF_CSC, BF_Y0, BF_Y1,
  BF_YN, BF_CHEBY, BF_FACRANGE, BF_FACINF, BF_BETAX, BF_BETAA, BF_BETAB,
  BF_GAMMALN, BF_LOG2, BF_ACOSD, BF_ASIND, BF_TAND, BF_COTD, BF_SECD,
  BF_CSCD, BF_GAMMP, BF_EIC1, BF_EIC2, BF_EI1, BF_EI2, BF_UNKNOWN,
  // Failures inside the incomplete-gamma routines (GAMMP, ERF, PAREA): the
  // call still yields the value the routine computed around its failure.
  BF_GSERNEG, BF_GSERITER, BF_GCFITER,
  BF_COUNT
};
inline bool fnroutinefail(uint8_t fail) { return fail >= BF_GSERNEG && fail <= BF_GCFITER; }

inline constexpr int FNRUN = 0;   // run-time rules
inline constexpr int FNFOLD = 1;  // compile-time rules (EXP, FAC, CHEBY differ)

// args holds at least the function's argument count of values (missing ones
// 0.0).  RANDOM, PRINTF and RETURN are not computed here (BF_UNKNOWN).
double fncompute(uint8_t code, const double* args, int mode, uint8_t* fail, double* bad);
// The derivative rules (derivs.cpp): d[k] = df/dargs[k] (k < n) of the
// function of the given code at args, value being its value there.  The
// result has bit k set for each argument without a usable rule (the
// modulus of the elliptic integrals, the shapes of BETAI and GAMMP, a
// CHEBY order beyond a million).
uint32_t fnderiv(uint8_t code, const double* args, int n, double value, double* d);
// The run-time message format of a failure (printf-style; %lG takes the bad
// value, CHEBY's %ld the order as a long).
const char* fnruntext(uint8_t fail);
// The compile-time text of a failure, or null when the failure has none and
// the call is left for the run time to test.
const char* fncomptext(uint8_t fail);

// The integer-order built-ins (orders.cpp).  The Bessel functions are the C
// library's, but for orders beyond JNDIRECT whose J_n(x) underflows, which
// besseljn answers with jn's signed zero at once (jn itself would take time
// in proportion to the order).
inline constexpr long JNDIRECT = 1000000;
double besselj0(double x);
double besselj1(double x);
double besseljn(long n, double x);
// J_n(x) from Debye's expansions (and, near x = n, backward recurrence from
// them), for large n > 0 and x > 0 where it does not underflow: what
// besseljn gives beyond JNDIRECT.
double besseljlarge(long long n, double x);
double bessely0(double x);
double bessely1(double x);
double besselyn(long n, double x);

// CHEBY's evaluations of T_n(x) = 2x T_{n-1}(x) - T_{n-2}(x) (n >= 0): the
// plain recursion, used up to order CHEBYRECMAX; a loop over the same
// operations, which gives the same values bit for bit, up to CHEBYLOOPMAX
// (and beyond it where the values overflow within that many orders); and
// the closed form cos(n acos x) (cosh for |x| > 1) above it.
inline constexpr long CHEBYRECMAX = 40;
inline constexpr long CHEBYLOOPMAX = 16777216;
double chebyrecursive(long n, double x);
double chebyiterative(long n, double x);
double chebyclosed(long n, double x);
double cheby(long n, double x);

// The compass conversion of PTOC and CTOP (compass.cpp): c = pi/2 - theta
// brought into [0, 2 pi) by steps of 2 pi, exactly as a loop of single steps
// would, with the steps counted a binade at a time from |c| = countfrom on.
inline constexpr double COMPASSCOUNT = 1048576.0;
double compass(double theta);
double compasssteps(double c, double countfrom);

// Elliptic integrals of the built-ins (angles in radians).  On a failed
// argument test they set *fail and *bad and still compute a value.
double ellipk(double alpha, uint8_t* fail, double* bad);                // EIC1
double ellipe(double alpha, uint8_t* fail, double* bad);                // EIC2
double ellipf(double alpha, double phi, double phiraw, uint8_t* fail, double* bad);   // EI1
double ellipe2(double alpha, double phi, double phiraw, uint8_t* fail, double* bad);  // EI2
// d/dphi of ellipf (second false) or ellipe2 (second true) at the same
// arguments: 1 / sqrt(cos^2 + kc^2 sin^2) or its reciprocal below the
// amplitude limit, 0 above it (the complete integral).
double ellipamplitudederiv(double alpha, double phi, double phiraw, bool second);

// The order of JN, YN and CHEBY: truncation toward zero, clamped to the
// int range (an order beyond it is meaningless and the conversion would be
// undefined).
inline long truncorder(double x) {
  if (!(x > (double)INT_MIN)) return x != x ? 0 : INT_MIN;
  if (!(x < (double)INT_MAX)) return INT_MAX;
  return (long)x;
}

}  // namespace vexor
