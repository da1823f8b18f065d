// Engine reset and compilation entry points.
#include "api/engine.h"

#include <cstdio>
#include <cstring>

#include "code/code.h"
#include "exec/exec.h"
#include "fit/driver.h"
#include "lang/lang.h"
#include "report/report.h"
#include "support/support.h"

namespace vexor {

int compiledok = 0;

// The engine reset, in this order:
//   1. the front end and the results: the lexer's tokens and lines, the
//      expression parser's pending state, the code, the plot requests, the
//      data matrix and the symbols; then the six arrays of the last Compute,
//      the fit statistics and the iteration count that GetStatistic reads;
//      the analysis-has-results flag cleared;
//   2. the source text;
//   3. the listing;
//   4. every engine-wide setting back to its default;
//   5. the analysis-has-results flag cleared again.
// The compiled-successfully flag is left as it is.
void enginereset() {
  // 1. The front end and the results.  The OUTPUT column list is a setting
  // (outvars, step 4) and its file is closed by its writer before a run ends,
  // so nothing of it is left to free here.
  freeallnodes();
  freetoks();
  freelines();
  exprreset();
  freeopsegs();
  progstart = nullptr;
  freeplots();
  freedata();
  symclear();
  ndataerr = 0;
  nerrors = 0;
  freeresults();
  // The statistics of the last analysis go with its results, so that after a
  // reset GetStatistic reads 0.0 for every code but the version, as it does
  // before the first analysis.
  fitsummary = FitSummary{};
  iterations = 0;
  finalsumsq = 0.0;
  hasresults = 0;
  // 2. The source text.
  srcfree();
  // 3. The listing.
  lstclear();
  // 4. Every engine-wide setting.
  resetsettings();
  // 5.
  hasresults = 0;
}

namespace {

int runcompiler() {
  compiledok = compile() != nullptr ? 1 : 0;
  return compiledok;
}

}  // namespace

int compilesource(const char* text) {
  enginereset();
  srcset(text ? text : "");
  return runcompiler();
}

int compilefile(const char* path) {
  enginereset();
  char name[500];
  std::snprintf(name, sizeof name, "%s", path ? path : "");
  char* text = readsource(name);
  if (!text) {
    char msg[600];
    std::snprintf(msg, sizeof msg, "Unable to open VEXOR source file: %s", name);
    comperrl(nullptr, msg);
    return 0;
  }
  srcset(text);
  memfree(text);
  return runcompiler();
}

// Reads lines of up to 20,000 bytes; the buffer starts at 20 bytes and grows
// by the line's length plus 1000 whenever the next line would fill it.
char* readsource(const char* path) {
  FILE* f = std::fopen(path, "r");
  if (!f) return nullptr;
  std::size_t cap = 20;
  std::size_t len = 0;
  char* text = static_cast<char*>(memalloc(cap, "progsource"));
  text[0] = '\0';
  static char line[20001];
  while (std::fgets(line, sizeof line, f)) {
    std::size_t n = std::strlen(line);
    if (len + n + 1 >= cap) {
      std::size_t ncap = cap + n + 1000;
      char* grown = static_cast<char*>(memalloc(ncap, "progsource"));
      std::memcpy(grown, text, len + 1);
      memfree(text);
      text = grown;
      cap = ncap;
    }
    std::memcpy(text + len, line, n + 1);
    len += n;
  }
  // A read error (a directory opens but cannot be read) is a file that
  // cannot be read.
  const bool failed = std::ferror(f) != 0;
  std::fclose(f);
  if (failed) {
    memfree(text);
    return nullptr;
  }
  return text;
}

}  // namespace vexor
