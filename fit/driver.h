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

// One optimizer run as it ended.  The driver hands it to fithook after every
// run of a Compute (each SWEEP grid point and the final fit included), for
// tools and tests that follow a Compute fit by fit: where each run started,
// which optimizer ran, the limits it was given and how it stopped.  The two
// vectors are valid only during the call.
struct FitRecord {
  int32_t number;          // 1 for the first run of the Compute
  int32_t sweeppoint;      // the grid point of a SWEEP run, 0 for any other
  int bounded;             // 1 when the bounded optimizer ran
  int32_t ivstatus;        // the optimizer's return code IV(1)
  int32_t mxfcal;          // IV(17), the function-evaluation limit given
  int32_t mxiter;          // IV(18), the iteration limit given
  int32_t niter;           // IV(31), iterations performed
  int result;              // the result code IV(1) maps to
  int32_t npar;
  const double* start;     // parameter values the run started from (npar)
  const double* final;     // parameter values it ended with (npar)
};
using FitHook = void (*)(const FitRecord& fit);
extern FitHook fithook;      // null by default

}  // namespace vexor
