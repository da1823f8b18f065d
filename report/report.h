// Results: the fit statistics kept after an analysis, the listing's result
// sections, the matrices and confidence intervals, and the output files.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lang/lang.h"

namespace vexor {

// The statistics of the last analysis that GetStatistic returns.
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
extern FitSummary fitsummary;

inline constexpr double VEXOR_VERSION = 5.4;

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

// ---------------------------------------------------------------------------
// The listing's result sections
// ---------------------------------------------------------------------------

// The reason text of a result code ("" for a code outside the table).
const char* stopreasontext(int code);
// "Stopped due to: <reason>" with its line end to the listing file and the
// Listing (one line per call); with flag non-zero and stopsuppress clear also
// once more, without a line end, as a status notice on the console (when
// echo is on), never a second time into the Listing.
void stopreason(int code, int flag);
// The covariance warning for covstatus, and the constraints hint.
void covwarning();
// The Analysis of Variance table.
void anovatable(double regss, double sse, double stot);
// The whole "Final Results" section for a result code.
void finalreport(int code);
// The name of the open listing file (lstfile), for the console notice at the
// end of the section; set by whoever opens the listing file, null otherwise.
extern const char* lstfilename;

// ---------------------------------------------------------------------------
// Matrices and confidence intervals
// ---------------------------------------------------------------------------

// Values of symbols a and b for observation i: from the data matrix when
// both are input variables, else after running the program for i.
void pairvalues(Symbol* a, Symbol* b, int32_t i, double* x, double* y);
double corrcoef(Symbol* a, Symbol* b);
void centername(const char* name, char* field);  // field: room for 11 + name
void corrmatrix();
void covmatrix();
void confintervals();

// ---------------------------------------------------------------------------
// Output and parameter files
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
// The names the writers will use with the current settings ("" for none):
// OUTPUT's file with its default extension, POUTPUT's likewise.
void plannedoutputs(char* out, char* par, std::size_t size);

double obsvalue(Symbol* column, int32_t i);
void colformat(const double* values, int32_t count, char* format);  // format: 8 bytes
void writeoutput();
void writeparfile();

}  // namespace vexor
