// What the tool checks around a run, beyond what the engine reports in its
// listing (which stays as it is):
//   - before the fit, an OUTPUT or POUTPUT file that is the program file or
//     the data file, which the run would overwrite: refused;
//   - after compiling, data values that are infinite or not a number;
//   - after the run, output files written by a fit that did not converge,
//     and output files that could not be written (the listing reports only
//     a file that could not be opened, and nothing of a full disk).
// These read the engine's settings and records directly: the analysis
// object offers no method for them.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "cli/cli.h"
#include "lang/lang.h"
#include "report/report.h"

namespace vexor::cli {

namespace {

// Whether two names denote the same existing file.
bool samefile(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ec;
  const bool same = std::filesystem::equivalent(a, b, ec);
  return !ec && same;
}

}  // namespace

bool checkoutputs(const std::string& program) {
  char out[MAXPATH], par[MAXPATH];
  plannedoutputs(out, par, sizeof out);
  const std::string data = datafile;
  struct Planned {
    const char* statement;
    const char* name;
  } planned[] = {{"OUTPUT", out}, {"POUTPUT", par}};
  for (const Planned& p : planned) {
    if (!p.name[0]) continue;
    if (samefile(p.name, program)) {
      error("%s: %s would overwrite the program file %s; nothing was run", program.c_str(),
            p.statement, p.name);
      return false;
    }
    if (samefile(p.name, data)) {
      error("%s: %s would overwrite the data file %s; nothing was run", program.c_str(),
            p.statement, p.name);
      return false;
    }
  }
  if (out[0] && samefile(out, par)) {
    error("%s: OUTPUT and POUTPUT name the same file %s; nothing was run", program.c_str(), out);
    return false;
  }
  return true;
}

// At most this many values are named; the rest are counted.
constexpr int MAXNAMED = 5;

void warndata(const std::string& program) {
  if (!datamat || nvar <= 0) return;
  long named = 0, more = 0;
  for (int32_t i = 0; i < nobs; ++i) {
    const double* row = datamat + static_cast<std::size_t>(i) * nvar;
    for (int32_t c = 0; c < nvar; ++c) {
      if (std::isfinite(row[c])) continue;
      if (named < MAXNAMED) {
        warning("%s: data record %ld, variable %s: the value is %s", program.c_str(),
                static_cast<long>(i) + 1, invars[c]->name,
                std::isnan(row[c]) ? "not a number" : "infinite");
        ++named;
      } else {
        ++more;
      }
    }
  }
  if (more > 0) warning("%s: %ld more values are infinite or not a number", program.c_str(), more);
}

bool checkwrites(int result) {
  bool ok = true;
  const OutputRecord* records[] = {&outrecord, &parrecord};
  for (const OutputRecord* r : records) {
    if (r->status < 0) {
      error("%s could not be written", r->name);
      ok = false;
    } else if (r->status > 0 && result <= 0) {
      warning("%s holds the values of a fit that did not converge (result %d)", r->name, result);
    }
  }
  return ok;
}

}  // namespace vexor::cli
