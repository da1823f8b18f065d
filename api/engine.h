// The engine as a whole: the reset that starts every analysis, compiling a
// program from text or from a file, and the flags that survive between the
// calls of a host.  The analysis object a host drives is built on these.
#pragma once

#include <cstdint>

namespace vexor {

// Frees the code, the plot requests, the data matrix, the previous run's
// arrays, the source text and the listing, clears the previous run's fit
// statistics and iteration count, and restores every engine-wide setting to
// its default.
void enginereset();

// Resets the engine and compiles the program text; returns 1 when the
// compilation succeeded and 0 when it failed (the messages are in the
// listing either way).
int compilesource(const char* text);

// Resets the engine, reads the whole file and compiles it.  A file that
// cannot be read gives "Unable to open VEXOR source file: %s" in the listing
// and 0, and leaves the compiled-successfully flag as it was; *unreadable
// (when given) tells that case (the file unreadable or too large) apart
// from a compilation that failed.
int compilefile(const char* path, bool* unreadable = nullptr);

// Compute: the analysis of the compiled program; when its fits ran, the
// stop reason and the "Final Results" section of its results, then the
// output data file (OUTPUT).  Returns the analysis's result code.
int compute();

// The result of the last compiler run (kept across a reset and a file that
// could not be read).
extern int compiledok;

// Reads a whole file into a new NUL-terminated text (tag "progsource"), or
// returns null when the file cannot be opened or read.  A file of more than
// MAXSOURCEREAD bytes is not read (null, and *toolarge set when given), so
// that an endless device cannot hold the engine.
inline constexpr long long MAXSOURCEREAD = 1LL << 30;
char* readsource(const char* path, int* toolarge = nullptr);

}  // namespace vexor
