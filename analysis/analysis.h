// The analysis: what Compute runs once a program has compiled.  It checks
// the problem size, allocates the arrays of the run, fits the parameters
// once or over the SWEEP grid, computes the predicted values of every
// observation, and then every result of the run into one record (Results):
// the fit statistics, the descriptive statistics, the correlations, the
// parameters' standard errors, t, Prob(t) and confidence limits, and the
// analysis of variance.  The report renders that record and the host
// interface reads it; nothing here writes a section of the listing.
//
// The output data file of the OUTPUT statement is written here too (see
// writeoutput): its values come from running the program once more per
// observation, and what that program prints lands between them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "compiler/compiler.h"
#include "exec/exec.h"
#include "support/support.h"

namespace vexor {

inline constexpr double VEXOR_VERSION = 5.4;

// ---------------------------------------------------------------------------
// The run
// ---------------------------------------------------------------------------

// Result codes of an analysis (the optimizer's return mapped):
//   6 both parameter and relative function convergence, 5 parameter
//   convergence, 4 relative function convergence, 3 absolute function
//   convergence, 2 singular convergence, 1 false convergence; -1 iteration
//   limit, -2 the function cannot be computed at the starting values, -3 bad
//   parameter values, -4 the Jacobian could not be computed, -6 the
//   function-evaluation limit, -7 fewer observations than parameters, -10
//   aborted.  When the fits ran (whatever their outcome), results.ready is
//   set and the record holds the run's results; a run refused before the
//   fits (-7, no memory, the computation switched off) leaves it clear.
int analyze();

// The arrays of one Compute (tag "comp"; null until the first Compute and
// after the engine reset).
extern double* predvec;   // predicted value of each observation (nobs)
extern double* obsvec;    // observed value of the dependent variable (nobs)
extern double* thirdvec;  // scratch vector of nobs values for the output file
extern double* covmat;    // npar x npar covariance of the estimates, row-major
extern int32_t* ivwork;   // optimizer work arrays, freed at the end of a run
extern double* vwork;
void freeresults();       // frees the arrays and clears the record (engine reset)

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

// Called at every iteration summary after the driver's own bookkeeping;
// for progress displays (the command-line tool's); null by default.
// How the fits get their Jacobian: 0 (the default) forward differences
// of the residuals, the optimizer's own; 1 the program's exact
// derivatives (exec: derivrun), columns without them differenced.  A host
// setting (vexor::setderivatives).  After an analysis in exact mode,
// diffcolumns holds 1 for each parameter whose column was differenced and
// diffreason why (empty when none was).
extern int derivexact;
// Standard errors in a fit with bounds: 0 (the default) none, as the
// language defines it; 1 the covariance of the parameters not held on a
// bound, computed at the solution as for an unbounded fit (heldparms: 1
// for each parameter held, after such a fit).  A host setting
// (vexor::setboundederrors).
extern int boundedse;
extern std::vector<uint8_t> heldparms;
extern std::vector<uint8_t> diffcolumns;
extern std::string diffreason;
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

// ---------------------------------------------------------------------------
// Statistics (plain formulas over arrays; stats.cpp)
// ---------------------------------------------------------------------------

// The residual statistics of one pass over the observations.
struct ResidualStats {
  double regss;         // regression sum of squares, Stot - SSE, not below 0
  double sse;           // sum of squared residuals
  double stot;          // corrected total sum of squares
  double rsquare;
  double adjrsquare;
  double avgdev;        // mean absolute residual
  double maxdev;
  double durbinwatson;
  double sumdev;
  int oneside;          // every residual on one side of the curve
};

// y observed, yhat predicted, n observations, p parameters.
ResidualStats fitstats(const double* y, const double* yhat, int32_t n, int32_t p);

// Standard error, t and Prob(t) of one estimate from the covariance
// diagonal element cov_kk with n - p degrees of freedom.
struct ParmStats {
  double stderror;
  double tval;
  double pval;
};
ParmStats parmstats(double estimate, double cov_kk, int32_t df);

// The analysis of variance from fitstats' sums.
struct Anova {
  int32_t regdf, errdf, totdf;
  double regms, errms, f, probf;
  bool shown;  // Stot > 0 and p >= 2
  bool full;   // the mean-square and F columns
};
Anova anova(double regss, double sse, double stot, int32_t n, int32_t p);

// Descriptive statistics of one column of a row-major matrix.
struct ColumnStats {
  double min, max, mean, sd;
};
ColumnStats colstats(const double* data, int32_t rows, int32_t stride, int32_t col);

// Values of symbols a and b for observation i: from the data matrix when
// both are input variables, else after running the program for i.
void pairvalues(Symbol* a, Symbol* b, int32_t i, double* x, double* y);
// Pearson's r of two symbols over the observations (correlation.cpp).
double corrcoef(Symbol* a, Symbol* b);
// The values of a symbol for each observation (nobs into out; columns.cpp):
// an input variable's from the data, any other's after running the program
// for each observation.  False when a run failed (its messages are in the
// listing; the value is what the run left).
bool symbolvalues(Symbol* s, double* out);

// ---------------------------------------------------------------------------
// The results of the last analysis
// ---------------------------------------------------------------------------

// The statistics GetStatistic returns.
struct FitSummary {
  double sumsq;         // final sum of squared deviations (the driver's)
  double sumdev;        // sum of deviations
  double maxdev;        // largest absolute deviation
  double variance;      // SSE / (n - p); its root is the standard error
  double rsquare;       // proportion of variance explained
  double adjrsquare;    // adjusted coefficient of multiple determination
  double durbinwatson;
  double runtime;       // seconds
};

// Run-time messages raised while a row of the correlation matrix was
// computed (the program runs for a pair that is not two input variables);
// the report puts them back in the listing before that row.
struct CorrNote {
  int32_t block;  // the column block (of CORRBLOCK columns)
  int32_t row;
  LstCapture text;
};
inline constexpr int32_t CORRBLOCK = 5;

// The confidence intervals' state.
enum : uint8_t { CI_NONE = 0, CI_FEWOBS = 1, CI_SHOWN = 2 };

// Everything the report shows and the host reads about the last analysis.
// Values that a run does not compute are 0: in a minimisation the residual
// statistics, in both modes the variance when n - p <= 0.  The per-parameter
// results (standard error, t, Prob(t), confidence limits) are kept in the
// parameters' own Symbol records, where ParameterValue reads them; with
// `full` clear the first three are 0, and the limits are written only when
// the intervals are computed.
struct Results {
  int ready;                 // the record holds a run's results
  int code;                  // the analysis's result code
  int32_t n;                 // observations
  int32_t p;                 // parameters
  int minimize;              // a minimisation: no residual statistics
  int full;                  // standard errors, t and Prob(t) computed
  int32_t iterations;
  long evaluations;          // residual-function calls
  int32_t covstatus;         // > 0 covariance computed; <= 0 why not
  const double* covariance;  // p x p, row-major (covmat)
  int32_t nconstrain;        // CONSTRAIN statements of the program
  ResidualStats rs;          // residual statistics (regression only)
  double funcvalue;          // minimisation: the final function value
  double completed;          // serial time the analysis completed
  FitSummary summary;
  ColumnStats* columns;      // descriptive statistics of each input variable (nvar)
  int32_t ncolumns;
  double* corr;              // ncorr x ncorr correlations, row-major (null when none)
  int32_t ncorrvars;
  CorrNote* corrnotes;       // in order of (block, row)
  int32_t ncorrnotes;
  Anova anova;               // regression only
  uint8_t ci;                // CI_...
  double cilevel;            // the level as requested (the intervals' title)
  // A bounded fit with standard errors (boundedse): 1 for each
  // parameter held on a bound, which has none; empty otherwise.
  std::vector<uint8_t> held;
};
extern Results results;

// Computes the record from the run's state after the final pass: called by
// analyze, and by tests that stand in for the fits.  The order is that of
// the report's sections, since some steps change what later ones see (the
// correlations run the program; the intervals raise a confidence level
// below 0.50001 to 0.50001, the setting itself).
void collectresults(int code);
// Frees the record's arrays and clears it (freeresults does this too).
void clearresults();

// ---------------------------------------------------------------------------
// The fitted model at new points (predict.cpp)
// ---------------------------------------------------------------------------

// One run of the program at the input values `inputs` (nvar values, in
// VARIABLES order) with the parameters at their current values; the value
// the FUNCTION statement computes goes to *value.  False when the run fails
// or never reaches the FUNCTION statement, with the first message of the
// run (set aside, not written to the listing) in message.
bool evalat(const double* inputs, double* value, char* message, std::size_t size);

enum : int { BAND_NONE = 0, BAND_CONFIDENCE = 1, BAND_PREDICTION = 2 };
struct Prediction {
  double value;     // the fitted model at the point
  double se;        // standard error of the band (NaN without one)
  double lower;     // the band's limits (NaN without one)
  double upper;
  char message[200];  // why the point has no value or no band
};
// The model at the point and, with a band, its limits at `level` (e.g.
// 0.95) by the delta method; needs the last analysis's covariance matrix
// and n > p.  False with the reason in out->message.
bool predictat(const double* inputs, int band, double level, Prediction* out);

// ---------------------------------------------------------------------------
// The output files (outputfile.cpp)
// ---------------------------------------------------------------------------

// What the writers of the last run did: the name each used and how it went
// (status 0: not written, 1: written whole, -1: not opened, or a write or
// the close failed; the listing reports only a file that could not be
// opened).  For hosts that must know that a file holds what it should.
struct OutputRecord {
  char name[MAXPATH];
  int status;
};
extern OutputRecord outrecord;  // the OUTPUT file (outmode 1)
extern OutputRecord parrecord;  // the POUTPUT file
void clearoutputrecords();
void setoutputrecord(OutputRecord& r, const char* name, int status);
// The names the writers will use with the current settings ("" for none):
// OUTPUT's file with its default extension, POUTPUT's likewise.
void plannedoutputs(char* out, char* par, std::size_t size);
// Completes a file-name setting (outfile, parfile) with its default
// extension in place, so that the console notices and every later message
// name the file that is written, then resolves it against the reference path
// into result.
void outputname(char* setting, std::size_t settingsize, const char* ext, char* result,
                std::size_t size);

double obsvalue(Symbol* column, int32_t i);
void colformat(const double* values, int32_t count, char* format);  // format: 8 bytes
// The output data (OUTPUT): one line per observation in each column's own
// format; to the named file (outmode 1) or the listing file (outmode -1).
void writeoutput();

}  // namespace vexor
