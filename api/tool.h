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
// Only the tool uses this header; it is not installed.  It includes nothing
// of the engine but the public headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

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

}  // namespace vexor::tool
