// Execution: the interpreter that runs a compiled program for one
// observation (with the dispatcher of built-in calls and the limits of a
// run), and the block evaluator that runs a pure model over many
// observations at once.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <vector>

#include "builtins/builtins.h"
#include "code/code.h"
#include "exec/vecmath.h"  // vector math for the block evaluator (the door passes it on)

namespace vexor {

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
// resid, the predicted value in pred and the observed value of the
// dependent variable (0 without one) in obs, each when given.  Returns n when the
// whole pass succeeded; the symbols and run state are then as runprog's
// runs of every observation in order would have left them.  Otherwise it
// returns the first observation of the block in which some observation
// would raise a run-time error or give a residual that is not finite (0 when
// the program does not qualify): resid holds the values before it, nothing
// else has been changed, and the caller runs the rest through runprog.
int32_t batchpass(int32_t n, double* resid, double* pred, double* obs = nullptr);
// Frees the slot storage of the pool's threads (threadsstop calls it).
void batchrelease();

// The threads of the residual passes (threads.cpp).  runthreads is the
// host's setting: 0 (default) as many as the processor has cores, at most
// MAXTHREADS.  threadsstart makes the pool for an analysis (returns the
// threads it has, the caller included) and threadsstop ends it; between
// them threadsrun(items, job) calls job(worker, item) for every item in
// [0, items), worker 0 being the caller, and returns when all are done.
// Without a pool it runs every item on the caller.
inline constexpr int32_t MAXTHREADS = 64;
extern int32_t runthreads;
extern int32_t threadsused;  // threads of the last pool made, the caller included
int32_t threadcount();
int32_t threadsstart();
void threadsstop();
int32_t threadsactive();
void threadsrun(int32_t items, const std::function<void(int, int32_t)>& job);

// ---------------------------------------------------------------------------
// Derivatives in the parameters (deriv.cpp): forward-mode
// automatic differentiation of the program, run for run alongside runprog.
// ---------------------------------------------------------------------------

// Analyses the compiled program (once per analysis) and makes the tangent
// storage; 1 when the program's derivatives can be followed (0: a tree
// deeper than the recursive evaluator's, an assignment to a parameter, or
// tangents of the work arrays too large; the caller differences).
int derivprepare();
int derivready();
void derivrelease();
// Starts a pass (after resetwork): the work variables' tangents are 0;
// parameters whose tangents reach a place without a derivative rule are
// marked 1 in *needdiff (p entries) from then on.
void derivreset(std::vector<uint8_t>* needdiff);
// runprog for observation obs, with the predicted and observed values'
// derivatives in the p parameters in tpred and tobs.  The
// values, errors and effects are runprog's.
int derivrun(int32_t obs, double* predicted, double* observed, double* tpred, double* tobs);
// The same for a whole pass by blocks of the block evaluator, where the
// program qualifies: the residuals into resid (when not null) and dr (n by p, column j at
// dr + j n) the derivatives of each residual; n when the pass succeeded, 0
// when the caller is to use derivrun (a lane failed, or the program or its
// tangents do not fit the blocks).  When nonfinite is not null, its entry j
// (p entries) is set to 1 when column j holds a value that is not finite,
// else 0: the workers look while the columns are in their caches.  When
// follow is not null it is called on the calling thread with k whenever
// rows 0 .. k-1 of dr and resid are stored, between the blocks it computes
// itself (so that it may work on them while the pool's other threads go
// on), and with n at the end of a pass that succeeded.
int32_t batchjacobian(int32_t n, double* resid, double* dr, std::vector<uint8_t>* marks,
                      std::vector<uint8_t>* nonfinite = nullptr,
                      const std::function<void(int32_t)>* follow = nullptr);
void batchjacobianrelease();
// Records why a parameter's column is differenced (the first reason of a
// pass is kept): what the built-in's code, 0 for the power operator; arg
// its argument from 0; norule whether it has no rule (else its derivative
// was not finite).
void derivnote(uint8_t what, int arg, bool norule);
// Why the first parameter was marked in this pass, as a sentence ("EI1 has
// no derivative rule for its argument 1"); null when none was.
const char* derivreason();

// The open output file of the OUTPUT statement, or null when none is open.
// PRINTF and run-time error reports also go there.
extern FILE* outfp;

}  // namespace vexor
