// The analysis driver: what Compute runs once a program has compiled.  It
// checks the problem size, allocates the result and work arrays, fits the
// parameters once or over the SWEEP grid, computes the predicted values of
// every observation and hands over to the listing writer.
#pragma once

#include <cstdint>

namespace vexor {

// Result codes of an analysis (the optimizer's return mapped):
//   6 both parameter and relative function convergence, 5 parameter
//   convergence, 4 relative function convergence, 3 absolute function
//   convergence, 2 singular convergence, 1 false convergence; -1 iteration
//   limit, -2 the function cannot be computed at the starting values, -3 bad
//   parameter values, -4 the Jacobian could not be computed, -6 the
//   function-evaluation limit, -7 fewer observations than parameters, -10
//   aborted.
int analyze();

// The arrays of one Compute (tag "comp"; null until the first Compute and
// after the engine reset).
extern double* predvec;   // predicted value of each observation (nobs)
extern double* obsvec;    // observed value of the dependent variable (nobs)
extern double* thirdvec;  // scratch vector of nobs values for the report
extern double* covmat;    // npar x npar covariance of the estimates, row-major
extern int32_t* ivwork;   // optimizer work arrays, freed at the end of a run
extern double* vwork;
void freeresults();       // frees the six arrays (engine reset)

// Run state.
extern int32_t iterations;   // iterations performed
extern double finalsumsq;    // final sum of squared residuals
extern double curfuncval;    // current sum of squares, for progress displays
extern int32_t covstatus;    // > 0 covariance computed; <= 0 why not
extern long nevaluations;    // residual-function calls of the last Compute
extern int32_t nfits;        // optimizer runs of the last Compute

// The optimizer's function-evaluation limit for an iteration limit.
int32_t evallimit(int32_t maxiterations);
extern int hasresults;       // the last analysis produced results
extern double starttime;     // serial time at the start of the run
extern int sweepactive;
extern int32_t sweeppoint;
extern int computeon;        // 0 switches the computation off (default 1)
extern int stopsuppress;     // 1 keeps stopreason's extra listing copy out

// Called at every iteration summary after the driver's own bookkeeping;
// for progress displays (the command-line tool's); null by default.
using ProgressHook = void (*)(int32_t iteration, double sumsq);
extern ProgressHook progresshook;

}  // namespace vexor
