// The parameter file of the POUTPUT statement: one final estimate per line,
// "%25.18lG" without its leading blanks.  Files are opened with mode "w"
// (text mode).
#include <cstdio>

#include "report/report.h"

namespace vexor {

// A file that cannot be opened is reported and the report goes on.
void writeparfile() {
  char name[MAXPATH];
  outputname(parfile, sizeof parfile, "PAR", name, sizeof name);
  FILE* f = std::fopen(name, "w");
  if (!f) {
    outprintf("Error: unable to open parameter output file: %s\n", name);
    setoutputrecord(parrecord, name, -1);
    return;
  }
  for (int32_t k = 0; k < nparm; ++k) {
    char text[64];
    std::snprintf(text, sizeof text, "%25.18lG\n", parms[k]->value);
    const char* t = text;
    while (*t == ' ') ++t;
    std::fputs(t, f);
  }
  const bool bad = std::ferror(f) != 0;
  setoutputrecord(parrecord, name, std::fclose(f) != 0 || bad ? -1 : 1);
}

}  // namespace vexor
