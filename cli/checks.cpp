// What the tool checks around a run, beyond what the engine reports in its
// listing (which stays as it is):
//   - before the fit, an OUTPUT or POUTPUT file that is the program file or
//     the data file, which the run would overwrite: refused;
//   - after compiling, data values that are infinite or not a number;
//   - after the run, output files written by a fit that did not converge,
//     and output files that could not be written (the listing reports only
//     a file that could not be opened, and nothing of a full disk).
// The files come through the tool's door (api/tool.h): the analysis object
// offers no method for them; the data are read through the object.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "api/tool.h"
#include "cli/cli.h"

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
  char out[1024], par[1024];
  tool::plannedfiles(out, par, sizeof out);
  const std::string data = tool::datafile();
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

// The data are read cell by cell through the object, as a host would.
void warndata(VEXOR& engine, const std::string& program) {
  VARIANT in, in2, out;
  VariantInit(&in);
  VariantInit(&in2);
  VariantInit(&out);
  engine.NumDataRows(&out);
  const long rows = out.vt == VT_I4 ? out.lVal : 0;
  engine.NumInputVariables(&out);
  const long cols = out.vt == VT_I4 ? out.lVal : 0;
  in.vt = in2.vt = VT_I4;
  long named = 0, more = 0;
  for (long i = 0; i < rows; ++i) {
    for (long c = 0; c < cols; ++c) {
      in.lVal = i;
      in2.lVal = c;
      engine.GetDataValue(&in, &in2, &out);
      const double v = out.vt == VT_R8 ? out.dblVal : 0.0;
      if (std::isfinite(v)) continue;
      if (named < MAXNAMED) {
        VARIANT name;
        VariantInit(&name);
        engine.InputVariableName(&in2, &name);
        char text[64];
        if (!tool::narrow(name, text, sizeof text)) text[0] = '\0';
        VariantClear(&name);
        warning("%s: data record %ld, variable %s: the value is %s", program.c_str(), i + 1, text,
                std::isnan(v) ? "not a number" : "infinite");
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
  const tool::FileWrite writes[] = {tool::outputwrite(), tool::parameterwrite()};
  for (const tool::FileWrite& w : writes) {
    if (w.status < 0) {
      error("%s could not be written", w.name);
      ok = false;
    } else if (w.status > 0 && result <= 0) {
      warning("%s holds the values of a fit that did not converge (result %d)", w.name, result);
    }
  }
  return ok;
}

}  // namespace vexor::cli
