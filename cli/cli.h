// The vexor command-line tool: its commands and the pieces they share.
//
// The tool is a host of the engine: it compiles, computes and reads results
// through the analysis object (vexor/vexor.h) and the host settings beside
// it, and reads the few things a command line needs beyond them (the
// listing in place, the dump, the progress, the results record, the traps,
// the plot requests, the model at new points, the files a run writes)
// through its door, api/tool.h.
//
// Everything the tool adds lives here and on standard error: the engine's
// listing and files stay exactly as the engine makes them.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "vexor/vexor.h"

namespace vexor::cli {

// Exit statuses, documented in the usage text and the README.
enum Exit : int {
  EXIT_OK = 0,           // the command succeeded (run: the fit converged)
  EXIT_NOTCONVERGED = 1, // the fit ended with 0 or a negative result code;
                         // also a comment left open at the end of a program
  EXIT_COMPILE = 2,      // the program did not compile or could not be read
  EXIT_USAGE = 3,        // the command line or the input was refused
  EXIT_WRITE = 4,        // the listing or an output file could not be written
  EXIT_TIMELIMIT = 124,  // --time-limit passed; the run was stopped
  EXIT_SIGNAL = 128,     // plus the signal's number: interrupted (SIGINT 130,
                         // SIGTERM 143); the run was stopped
};

// Messages to standard error, prefixed "vexor: ".
void error(const char* format, ...);
void warning(const char* format, ...);
// A message about a place of a file, in the compilers' form
// "FILE:LINE: warning: ..." ("FILE: warning: ..." without a line); kind is
// "warning" or "error".
void located(const std::string& file, long line, const char* kind, const char* format, ...);

// ---------------------------------------------------------------------------
// The command line (args.cpp)
// ---------------------------------------------------------------------------

// One command's options: the words it takes, with or without a value.
struct OptionRule {
  const char* name;  // "--data"
  bool value;        // takes a value (--data FILE or --data=FILE)
};
struct Args {
  std::vector<std::pair<std::string, std::string>> options;  // in order given
  std::vector<std::string> operands;
  bool has(const std::string& name) const;
  std::string get(const std::string& name) const;  // the last value given ("" for none)
};
// Parses argv for a command; false after reporting the bad word (the caller
// then exits with the usage error status).
bool parseargs(const char* command, int argc, char** argv, const std::vector<OptionRule>& rules,
               Args* out);
// A usage error of a command: the message, one line of the command's usage,
// and EXIT_USAGE.
int usageerror(const char* command, const char* format, ...);
// The help text of a command (or the tool's, for "").
const char* helptext(const std::string& command);

// ---------------------------------------------------------------------------
// A session: one program compiled and fitted (session.cpp)
// ---------------------------------------------------------------------------

struct Session {
  VEXOR engine;
  std::string program;       // the program file, "-" for standard input
  std::string shown;         // its name in messages ("<stdin>" for "-")
  FILE* listing = stdout;    // where printlisting writes
  std::string listingfile;   // --listing FILE: written there, whole or not at all
  bool strict = false;
  bool dataoption = false;   // --data replaces the program's own data
  int warnings = 0;          // warnings given before the run
};

// Compiles the session's program (a file, or standard input for "-").
bool compile(Session& s);
// Reads --data (a file or "-") and hands its rows to the engine; false
// after reporting why.
bool supplydata(Session& s, const std::string& name);
// The warnings of the compiled program's text and data (traps), and of data
// values that are not finite; counted in s.warnings.
void warnprogram(Session& s);
// Refuses an OUTPUT or POUTPUT file that is the program file or the data
// file (true when the run may go on).
bool checkoutputs(Session& s);
// Runs the analysis with a progress display and a time limit (0: none);
// the result code.
int fit(Session& s, double timelimit);
// The warnings after a fit (convergence, a failed fit, output files); false
// when an output file could not be written (it is then removed).
bool warnresult(Session& s, int result);
// Writes the listing (LF line ends) where the session says; false when it
// could not be written (the reason has been reported).
bool printlisting(Session& s);

// Standard input read whole (once; later calls give "").
std::string readstdin();

// ---------------------------------------------------------------------------
// Tables of numbers from CSV or TSV text (table.cpp)
// ---------------------------------------------------------------------------

struct Table {
  std::string name;                        // for messages
  bool hasheader = false;
  std::vector<std::string> header;
  std::vector<std::vector<double>> rows;
  std::vector<long> lines;                 // each row's line in the file
  size_t columns = 0;
};
// Reads a table from a file or standard input ("-"): one row per line,
// fields separated by tabs, semicolons, commas or blanks (the first line
// decides which), a first line with a field that is not a number taken as
// the header.  Blank lines and lines starting with '#' are skipped.  False
// with the reason reported.
bool readtable(const std::string& name, Table* t);
// The column of each wanted name in the table (by the header, letters in any
// case), or the columns in order without a header; false with the reason
// reported.  optional[i] marks names that may be missing (column -1).
bool mapcolumns(const Table& t, const std::vector<std::string>& wanted,
                const std::vector<bool>& optional, std::vector<int>* columns);

// ---------------------------------------------------------------------------
// Output (results.cpp, files.cpp)
// ---------------------------------------------------------------------------

// The results as one JSON document (see the README for its schema).
std::string resultsjson(Session& s, int result, bool residuals);
// The parameter table as CSV.
std::string parameterscsv();
// A number in the shortest form that reads back to the same double; NaN and
// the infinities as `none`.
std::string number(double v, const char* none = "null");

// Writes a whole file under a temporary name in the same folder and renames
// it into place, so a failed write never leaves half a file; false with
// errno's reason in *why.
bool writeatomic(const std::string& path, const std::string& text, std::string* why);

// ---------------------------------------------------------------------------
// Plots (plots.cpp, svg.cpp)
// ---------------------------------------------------------------------------

// Draws every plot request of the program (or, without any, the fit and the
// residuals) as SVG files in dir, named <program>-<n>-<kind>.svg; the names
// written go to *written.  False with the reason reported.
bool drawplots(Session& s, const std::string& dir, std::vector<std::string>* written);

struct Series {
  std::vector<double> x, y;
  bool marks = true;           // a mark at each point
  bool line = false;           // joined in order of x
  bool curve = false;          // the fitted curve: a line, NaN breaks it
  const char* colour = "#1f77b4";
};
struct Figure {
  std::string title, xlabel, ylabel;
  bool grid = true;
  double width = 640, height = 480;  // pixels
  std::vector<Series> series;
};
// The figure as an SVG document.  The plot area's group carries its data
// range and pixel box as attributes (data-xmin ... data-height), so a reader
// can map data to pixels.
std::string svg(const Figure& f);

// ---------------------------------------------------------------------------
// Signals (signals.cpp)
// ---------------------------------------------------------------------------

// SIGINT and SIGTERM stop a run in progress (the engine's cancel) and are
// remembered; a second one ends the process at once.
void catchsignals();
int caughtsignal();  // 0 when none

// The commands.
int run(int argc, char** argv);
int check(int argc, char** argv);
int predict(int argc, char** argv);

}  // namespace vexor::cli
