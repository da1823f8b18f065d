// The vexor command-line tool: its commands and the pieces they share.
//
// The tool is a host of the engine: it compiles, computes and reads results
// through the analysis object (vexor/vexor.h) and the host settings beside
// it, and reads the few things a command line needs beyond them (the
// listing in place, the dump, the progress, the files a run is about to
// write and how the writes went) through its door, api/tool.h.
#pragma once

#include <string>

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

// Prints the engine's listing to standard output with LF line ends; false
// when standard output could not be written (the reason in errno).
bool printlisting();

// Signals: SIGINT and SIGTERM stop a run in progress (the engine's cancel)
// and are remembered; a second one ends the process at once.
void catchsignals();
int caughtsignal();  // 0 when none

// Checks around a run (checks.cpp).  Before the fit: refuse an OUTPUT or
// POUTPUT file that is the program file or the data file (true when the
// run may go on).  After compiling: warn of data that are not finite.
// After the run: warn of files that hold an unconverged state or could not
// be written (true when every file was written).
bool checkoutputs(const std::string& program);
void warndata(VEXOR& engine, const std::string& program);
bool checkwrites(int result);

}  // namespace vexor::cli
