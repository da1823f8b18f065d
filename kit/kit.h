// The kit shared by the tests and the benchmarks: the Listing as one
// string, the listing with its clock masked, whole files read and written,
// programs compiled and run through the engine, and the NIST StRD problem
// files read.
//
// Two libraries: vexor_kit (the engine's support part below it; the Listing,
// files, NIST) and vexor_kit_programs (the whole engine below it; compiling
// and running programs).
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace vexor::kit {

// ---------------------------------------------------------------------------
// The Listing and files (kit.cpp)
// ---------------------------------------------------------------------------

// The Listing joined: with `crlf` as stored (every line ending CR LF),
// otherwise with CR LF shown as LF (a lone CR stays).
std::string listing(bool crlf = false);
// The text with every CR LF turned into LF (a lone CR stays).
std::string lfonly(const std::string& text);
// The text with the completion time and the runtime of "Analysis completed
// <time>.  Runtime = <s> seconds." replaced by `when` and `runtime`, the only
// parts of a listing that change from run to run.
std::string maskclock(const std::string& text, const std::string& when = "XX",
                      const std::string& runtime = "XX");
// What an open stream holds, from its start.
std::string readstream(FILE* f);
// The whole content of a file, "<missing>" when it cannot be read.
std::string readfile(const std::string& name);
// Writes text to a file (binary, as it is); false when it cannot.
bool writefile(const std::string& name, const std::string& text);

// ---------------------------------------------------------------------------
// Programs (programs.cpp, library vexor_kit_programs)
// ---------------------------------------------------------------------------

// Resets the engine and compiles the program; 1 on success.
int compileprog(const std::string& text);
// The compiled program as the dump writes it.
std::string dump();
// The dump's opcode names in slot order ("LINE", "JUMPF", ...).
std::vector<std::string> opcodes();
// Runs the compiled program over every observation (or once with no data),
// after resetwork; returns the number of runs that failed.
int runall();
// The value of a symbol after the last run (-999999 when there is none).
double value(const char* name);

// ---------------------------------------------------------------------------
// The NIST StRD nonlinear regression problems (nist.cpp)
// ---------------------------------------------------------------------------

// The folder of the problem files: $VEXOR_NIST_DIR when set, else fallback.
std::string nistdir(const char* fallback);

struct NistProblem {
  std::string name;
  int npar = 0;
  std::vector<double> start1, start2, cert, certsd;
  double certrss = 0.0;                   // certified residual sum of squares
  int datastart = 0;                      // lines before the first data record
  int npred = 1;                          // predictor columns
  std::vector<std::vector<double>> rows;  // y, x1, x2, ...
};

// The model of each problem in the modelling language ("y = ..."; Nelson's
// is for ly = log(y)).
const std::map<std::string, std::string>& nistmodels();
// Reads a problem file: starting values, certified values and their
// standard deviations, the certified residual sum of squares, where the data
// begin, and the data.  False when it cannot be read or lacks either the
// parameters or the data heading.
bool nistparse(const std::string& path, const std::string& name, NistProblem* pr);
// The program that fits the problem from start 1 or 2, reading the data
// from dir; with parfile not empty it also writes the estimates there.
// statements (e.g. "TOLERANCE 1E-15;\n") go before the FUNCTION statement.
std::string nistprogram(const NistProblem& pr, int start, const std::string& dir,
                        const std::string& parfile = "", const std::string& statements = "");

}  // namespace vexor::kit
