// Engine reset and compilation entry points.
#include "api/engine.h"

#include <cstdio>
#include <cstring>

#include "report/report.h"

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
  clearcompmsgs();
  // The statistics of the last analysis go with its results (freeresults
  // clears the record), so that after a reset GetStatistic reads 0.0 for
  // every code but the version, as it does before the first analysis.
  freeresults();
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

int compute() {
  const int code = analyze();
  if (!results.ready) return code;
  stopreason(code, 1);
  finalreport();
  if (outmode != 0) writeoutput();
  return code;
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

int compilefile(const char* path, bool* unreadable) {
  enginereset();
  if (unreadable) *unreadable = false;
  char name[500];
  std::snprintf(name, sizeof name, "%s", path ? path : "");
  int toolarge = 0;
  char* text = readsource(name, &toolarge);
  if (!text) {
    char msg[600];
    if (toolarge)
      std::snprintf(msg, sizeof msg, "VEXOR source file is larger than %lld bytes: %s",
                    static_cast<long long>(MAXSOURCEREAD), name);
    else
      std::snprintf(msg, sizeof msg, "Unable to open VEXOR source file: %s", name);
    comperrl(nullptr, msg);
    if (unreadable) *unreadable = true;
    return 0;
  }
  srcset(text);
  memfree(text);
  return runcompiler();
}

// Reads the file a piece at a time, as lines of up to 20,000 bytes (the
// rest of a longer line is the next piece) of which only the text before a
// NUL byte is kept, so a line holding a NUL loses what follows it there.
// The text grows geometrically (doubling), so reading is linear in the
// file's size.  Reading stops at MAXSOURCEREAD bytes, whatever the file is
// (an endless device such as /dev/zero yields NUL bytes for ever and would
// otherwise never end): the file then counts as too large.
char* readsource(const char* path, int* toolarge) {
  if (toolarge) *toolarge = 0;
  FILE* f = std::fopen(path, "r");
  if (!f) return nullptr;
  std::size_t cap = 4096;
  std::size_t len = 0;
  char* text = static_cast<char*>(memalloc(cap, "progsource"));
  if (!text) {
    std::fclose(f);
    return nullptr;
  }
  text[0] = '\0';
  static char chunk[65536];
  std::size_t got = 0;
  long long total = 0;
  std::size_t piece = 0;   // bytes of the current 20,000-byte piece
  bool dropping = false;   // a NUL has been seen in the current piece
  bool failed = false;
  while ((got = std::fread(chunk, 1, sizeof chunk, f)) > 0) {
    total += static_cast<long long>(got);
    if (total > MAXSOURCEREAD) {
      if (toolarge) *toolarge = 1;
      failed = true;
      break;
    }
    if (len + got + 1 > cap) {
      std::size_t ncap = cap;
      while (len + got + 1 > ncap) ncap *= 2;
      char* grown = static_cast<char*>(memrealloc(text, ncap));
      if (!grown) {
        failed = true;
        break;
      }
      text = grown;
      cap = ncap;
    }
    for (std::size_t i = 0; i < got; ++i) {
      const char c = chunk[i];
      if (c == '\0') dropping = true;
      if (!dropping) text[len++] = c;
      if (c == '\n' || ++piece == 20000) {
        piece = 0;
        dropping = false;
      }
    }
  }
  text[len] = '\0';
  // A read error (a directory opens but cannot be read) is a file that
  // cannot be read.
  if (std::ferror(f)) failed = true;
  std::fclose(f);
  if (failed) {
    memfree(text);
    return nullptr;
  }
  return text;
}

}  // namespace vexor
