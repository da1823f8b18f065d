// The command-line tool's door into the engine: what a host on the command
// line needs beyond the analysis object of <vexor/vexor.h>, and why.
//   - The listing is read record by record in place: GetAnalysisReport
//     would copy a listing of some 100 MB twice before a byte is printed.
//   - The compiled program's dump (check --dump) and the progress of the
//     iterations (a live display) have no method of the object.
//   - Before a run, the files it is about to write and the data file it
//     read, so that a run which would overwrite its own program or data is
//     refused; after it, how each output file's writing went, since the
//     listing reports only a file that could not be opened.
//   - The data matrix in place (the check of a million values for Inf and
//     NaN), the whole results record at once (JSON output), the traps of the text
//     (warnings), the plot requests and the values to draw (plots), and the
//     model with its bands at new points (predict): the object offers these
//     only piecemeal or not at all.
// Only the tool uses this header; it is not installed.  It includes nothing
// of the engine but the public headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "vexor/vexor.h"

namespace vexor::tool {

// A program file's name as the BSTR that CompileFile takes (UTF-8 in;
// freed with SysFreeString or VariantClear).
BSTR widen(const char* utf8);

// A string VARIANT as UTF-8 text in buf (cut to size - 1 bytes); false
// when it holds no string.
bool narrow(const VARIANT& v, char* buf, std::size_t size);

// Calls line(text, context) for every record of the listing, in order; the
// texts end their lines with CR LF.
void eachline(void (*line)(const char* text, void* context), void* context);

// Writes the compiled program's instructions and trees.
void dump(FILE* f);

// Called at every iteration of a fit with its number and the sum of
// squares; null (the default) for none.
void setprogress(void (*progress)(int32_t iteration, double sumsq));

// The names the compiled program's OUTPUT and POUTPUT files will have ("" for
// none), and the data file its DATA statement read ("" for none).
void plannedfiles(char* output, char* parameters, std::size_t size);
const char* datafile();

// How the last Compute's output files went: status 0 not written, 1
// written whole, -1 not opened, or a write or the close failed.
struct FileWrite {
  const char* name;
  int status;
};
FileWrite outputwrite();     // OUTPUT
FileWrite parameterwrite();  // POUTPUT

// ---------------------------------------------------------------------------
// The compiled program
// ---------------------------------------------------------------------------

struct Program {
  bool compiled;
  bool minimize;                        // no VARIABLES: a minimisation
  std::vector<std::string> variables;   // VARIABLES, in order
  int dependent;                        // index of the dependent variable, -1 for none
  std::vector<std::string> parameters;
  std::string title;
  double confidence;                    // CONFIDENCE as a fraction, 0 when not set
  double plotwidth;                     // PLOTWIDTH (inches)
};
Program program();

// A trap of the program or data text (legal, read by the language's rules,
// probably not meant).
enum TrapKind : int {
  TRAP_NEGPOW = 1,       // -x^2 is (-x)^2
  TRAP_EXTRAVALUES,      // a data record with more values than variables
  TRAP_DECIMALCOMMA,     // a decimal comma reads as two values
  TRAP_HEADERLIKE,       // a first data record that begins like a name
  TRAP_LONGLINE,         // a line cut at its length limit
  TRAP_COMMENTSEMI,      // a ';' inside a // comment, more text after it
  TRAP_NOLINEFEED,       // text after the last ';' or line feed: never read
};
struct Trap {
  int kind;
  bool datafile;     // a line of the data file, not of the program text
  int32_t line;      // its line in that file (from 1; 0 when unknown)
  int32_t number;    // the listing's line number (0 for none)
  int32_t count;     // how many places (the first is the one located)
  std::string text;  // the text concerned, cut to 80 characters
};
std::vector<Trap> traps();

// The data matrix as it stands: rows x columns doubles, row-major in
// VARIABLES order (null with no data).  Read in place, to check a large
// data set without a call per cell.
const double* data(int32_t* rows, int32_t* cols);

// The limits the traps refer to.
struct Limits {
  int line;          // characters of a program line kept
  int record;        // characters of a data record kept
};
Limits limits();

// ---------------------------------------------------------------------------
// The results of the last Compute
// ---------------------------------------------------------------------------

struct Parameter {
  std::string name;
  double start, estimate;
  double stderror, t, prob;    // NaN without the full statistics, or held on a bound
  double lower, upper;         // NaN without confidence intervals, or held on a bound
};
struct Variable {
  std::string name;
  double min, max, mean, sd;
};
struct Anova {
  int regdf, errdf, totdf;
  double regss, sse, stot;
  bool full;                   // the mean squares, F and Prob(F)
  double regms, errms, f, probf;
};
struct Results {
  bool ready;                  // a Compute ran its fits
  int code;
  std::string stopreason;
  int iterations;
  long evaluations;
  int observations;
  bool minimize;
  bool full;                   // standard errors, t and Prob(t)
  bool intervals;
  double level;                // the intervals' level as requested (fraction)
  std::vector<Parameter> parameters;  // also when no fit ran (starts, values)
  double sumsq, sumdev, avgdev, maxdev;
  bool haserror;               // n > p: the standard error of estimate
  double stderror;             // sqrt(SSE / (n - p))
  double rsquare, adjrsquare, durbinwatson, runtime;
  double funcvalue;            // a minimisation's final function value
  bool hasanova;
  Anova anova;
  std::vector<Variable> variables;          // descriptive statistics
  std::vector<std::string> corrnames;       // the CORRELATE variables
  std::vector<double> correlation;          // their matrix, row-major (empty: none)
  bool hascovariance;
  std::vector<double> covariance;           // p x p, row-major
  std::vector<double> observed, predicted;  // per observation
};
Results results();

// ---------------------------------------------------------------------------
// Plots and predictions
// ---------------------------------------------------------------------------

enum PlotKind : int { PLOT_PLOT = 1, PLOT_RPLOT = 2, PLOT_NPLOT = 3, PLOT_SPLOT = 4 };
struct Plot {
  int kind;
  std::string x, y, x2, y2;            // symbol names ("" for none)
  std::string title, xlabel, ylabel;   // with the defaults filled in
  bool grid, notitle, noxlabel, noylabel, connect, connect2, nomark, nomark2;
  bool domain;
  double domainlo, domainhi;
};
std::vector<Plot> plots();

// The standard normal quantile (the expected scores of a normal plot).
double normalquantile(double p);

// The values of a symbol (by name, any case) for each observation; false
// when there is no such symbol or a run of the program failed.
bool values(const std::string& name, std::vector<double>* out);

// The model at the point (inputs: one value per VARIABLES entry, the
// dependent one ignored); with band 1 (confidence) or 2 (prediction) also
// the limits at `level`.  False with the reason in *message.
struct Point {
  double value, se, lower, upper;
};
bool predict(const std::vector<double>& inputs, int band, double level, Point* out,
             std::string* message);

}  // namespace vexor::tool
