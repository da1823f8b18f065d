// Execution: the interpreter that runs a compiled program for one
// observation, the built-in function table and its dispatcher, and the
// special functions behind the statistical built-ins and the report.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

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
// Raised to stop the run (a host's cancel, or the time limit): see
// runlimit.cpp.  Atomic, since another thread or a signal handler sets it.
extern std::atomic<int> abortflag;
extern int abortreported;
extern int computing;        // the optimizer is iterating: errors are hidden
extern int traceflag;
extern double lastobserved;  // values of the last OP_FUNCTION executed
extern double lastpredicted;

// The limits of a run (runlimit.cpp).  startrun begins a run of the
// engine (a Compute, an evaluation for the host): the abort flag and its
// report latch are cleared, and the time limit, when runtimelimit > 0
// seconds, counts from now.  pastdeadline raises the abort flag once the
// deadline has passed (runtimedout then tells why) and says whether the run
// is to stop.  cancelrun raises the flag; it is safe from any thread and
// from a signal handler.
extern double runtimelimit;
extern std::atomic<int> runtimedout;
void startrun();
bool pastdeadline();
void cancelrun();
// Instructions between two looks at the clock in runprog.
inline constexpr uint32_t POLLEVERY = 4096;

void resetwork();
int runprog(int32_t obs, const double* input, double* predicted, double* observed);
double evalexpr(ExprNode* node);
double* lvaladdr(ExprNode* node);
void runerror(const char* format, ...);
double evlcall(ExprNode* call);

// ---------------------------------------------------------------------------
// Block evaluation (batch.cpp).  For a program whose model is pure (only
// OP_LINE, one OP_FUNCTION and OP_STOP; a tree without assignments,
// increments, RANDOM, PRINTF, RETURN or reads of Predicted and Residual),
// the residual pass of the analysis driver evaluates the model over blocks of
// observations, with the same floating-point operations per observation as
// runprog, so the results are the same bit for bit.
// ---------------------------------------------------------------------------

// 1 (default): batchprepare accepts qualifying programs; 0: it accepts none,
// so every pass goes through runprog.
extern int batcheval;

// Analyses the compiled program for the passes that follow (once per
// analysis, after compiling and before the first pass); returns 1 when block
// evaluation applies.  Allocates nothing.
int batchprepare();
int batchready();
int32_t batchlanes();  // observations per block (0 when not ready)

// One pass over observations [0, n) after resetwork, with the parameters'
// current values: stores predicted minus observed for each observation in
// resid (and the predicted value in pred, when given).  Returns n when the
// whole pass succeeded; the symbols and run state are then as runprog's
// runs of every observation in order would have left them.  Otherwise it
// returns the first observation of the block in which some observation
// would raise a run-time error or give a residual that is not finite (0 when
// the program does not qualify): resid holds the values before it, nothing
// else has been changed, and the caller runs the rest through runprog.
int32_t batchpass(int32_t n, double* resid, double* pred);

// ---------------------------------------------------------------------------
// Special functions
// ---------------------------------------------------------------------------

double gammln(double x);
double rgamma(double x);
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
double el2(double x, double kc, double a, double b);
double cel(double kc, double p, double a, double b);

// The open output file of the OUTPUT statement, or null when none is open.
// PRINTF and run-time error reports also go there.
extern FILE* outfp;

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

}  // namespace vexor
