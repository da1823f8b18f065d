// A session of the tool: one program compiled (from a file or standard
// input), its data supplied, the fit run with a progress display and a time
// limit, and the listing printed.  What the commands share.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#ifdef _WIN32
#include <io.h>
#define isatty _isatty
#define fileno _fileno
#else
#include <unistd.h>
#endif

#include "api/tool.h"
#include "cli/cli.h"

namespace vexor::cli {

namespace {

// The session whose listing a comment left open must print before the
// process ends (see lexexit).
Session* current = nullptr;

// A comment left open at the end of the source ends the process; the
// listing so far is printed first, so the user sees the message.
void lexexit(int status) {
  if (current) printlisting(*current);
  std::exit(status);
}

VARIANT longvariant(long v) {
  VARIANT x;
  VariantInit(&x);
  x.vt = VT_I4;
  x.lVal = v;
  return x;
}

// Progress of a long fit, on standard error when that is a terminal.
void progress(int32_t iteration, double sumsq) {
  std::fprintf(stderr, "\rIteration %d  sum of squares %.8lG   ", static_cast<int>(iteration), sumsq);
  std::fflush(stderr);
}

// Whether two names denote the same existing file.
bool samefile(const std::string& a, const std::string& b) {
  if (a.empty() || b.empty()) return false;
  std::error_code ec;
  const bool same = std::filesystem::equivalent(a, b, ec);
  return !ec && same;
}

}  // namespace

std::string readstdin() {
  static bool read = false;
  if (read) return "";
  read = true;
  std::string s((std::istreambuf_iterator<char>(std::cin)), std::istreambuf_iterator<char>());
  return s;
}

bool compile(Session& s) {
  current = &s;
  s.shown = s.program == "-" ? "<stdin>" : s.program;
  vexor::setlexexithandler(lexexit);
  VARIANT in, result;
  VariantInit(&in);
  VariantInit(&result);
  in.vt = VT_BSTR;
  if (s.program == "-") {
    const std::string text = readstdin();
    in.bstrVal = tool::widen(text.c_str());
    s.engine.Compile(&in, &result);
  } else {
    in.bstrVal = tool::widen(s.program.c_str());
    s.engine.CompileFile(&in, &result);
  }
  VariantClear(&in);
  return result.vt == VT_I4 && result.lVal == 1;
}

bool supplydata(Session& s, const std::string& name) {
  const tool::Program p = tool::program();
  if (p.variables.empty()) {
    error("%s: --data needs a program with VARIABLES", s.shown.c_str());
    return false;
  }
  Table t;
  if (!readtable(name, &t)) return false;
  std::vector<int> columns;
  if (!mapcolumns(t, p.variables, std::vector<bool>(p.variables.size(), false), &columns)) return false;
  if (!t.hasheader && t.columns > p.variables.size())
    warning("%s: %zu columns and no header: the first %zu are taken as %s", t.name.c_str(), t.columns,
            p.variables.size(), "the VARIABLES in order");
  VARIANT rows = longvariant(static_cast<long>(t.rows.size())), result;
  VariantInit(&result);
  s.engine.SetDataRows(&rows, &result);
  if (result.vt != VT_I4 || result.lVal != 0) {
    error("%s: no memory for %zu rows of data", t.name.c_str(), t.rows.size());
    return false;
  }
  for (std::size_t i = 0; i < t.rows.size(); ++i) {
    for (std::size_t c = 0; c < columns.size(); ++c) {
      VARIANT row = longvariant(static_cast<long>(i)), col = longvariant(static_cast<long>(c)), value;
      VariantInit(&value);
      value.vt = VT_R8;
      value.dblVal = t.rows[i][static_cast<std::size_t>(columns[c])];
      s.engine.SetDataValue(&row, &col, &value, &result);
    }
  }
  return true;
}

bool checkoutputs(Session& s) {
  char out[1024], par[1024];
  tool::plannedfiles(out, par, sizeof out);
  const std::string data = tool::datafile();
  const std::string program = s.program == "-" ? "" : s.program;
  struct Planned {
    const char* statement;
    const char* name;
  } planned[] = {{"OUTPUT", out}, {"POUTPUT", par}};
  for (const Planned& p : planned) {
    if (!p.name[0]) continue;
    if (samefile(p.name, program)) {
      error("%s: %s would overwrite the program file %s; nothing was run", s.shown.c_str(),
            p.statement, p.name);
      return false;
    }
    if (samefile(p.name, data)) {
      error("%s: %s would overwrite the data file %s; nothing was run", s.shown.c_str(),
            p.statement, p.name);
      return false;
    }
  }
  if (out[0] && samefile(out, par)) {
    error("%s: OUTPUT and POUTPUT name the same file %s; nothing was run", s.shown.c_str(), out);
    return false;
  }
  return true;
}

int fit(Session& s, double timelimit) {
  const bool tty = isatty(fileno(stderr)) != 0;
  if (tty) tool::setprogress(progress);
  vexor::settimelimit(timelimit);
  VARIANT out;
  VariantInit(&out);
  s.engine.Compute(&out);
  tool::setprogress(nullptr);
  if (tty) std::fputs("\r                                                  \r", stderr);
  return out.vt == VT_I4 ? static_cast<int>(out.lVal) : 0;
}

bool warnresult(Session& s, int result) {
  if (vexor::exactderivatives() && *vexor::differencedcolumns())
    located(s.shown, 0, "note", "exact derivatives: forward differences for the columns of %s",
            vexor::differencedcolumns());
  if (result == 1)
    located(s.shown, 0, "warning",
            "false convergence: the estimates may not be a minimum; try other starting values");
  else if (result == 2)
    located(s.shown, 0, "warning",
            "singular convergence: the estimates may not be unique (are some parameters mutually "
            "dependent?)");
  else if (result == -2 || result == -3 || result == -4)
    located(s.shown, 0, "warning",
            "the fit failed (result %d): the sums and statistics in the listing are not those of a fit",
            result);
  bool ok = true;
  const tool::FileWrite writes[] = {tool::outputwrite(), tool::parameterwrite()};
  for (const tool::FileWrite& w : writes) {
    if (w.status < 0) {
      // A file left half written is worse than none (only a regular file
      // is removed: the name may be a device such as /dev/full).
      std::error_code ec;
      const bool removed = std::filesystem::is_regular_file(w.name, ec) &&
                           std::filesystem::remove(w.name, ec);
      error("%s could not be written%s", w.name, removed ? "; the partial file was removed" : "");
      ok = false;
    } else if (w.status > 0 && result <= 0) {
      warning("%s holds the values of a fit that did not converge (result %d)", w.name, result);
    }
  }
  return ok;
}

// The records are written one by one (the listing is the engine's, read in
// place) rather than fetched through GetAnalysisReport, which would copy the
// whole text twice more before a byte is printed: a run that reports an
// error for each of a million observations has a listing of some 100 MB.
// Every CR is dropped (the records end their lines with CR LF).
bool printlisting(Session& s) {
  std::string text;
  FILE* f = s.listing;
  const bool tofile = !s.listingfile.empty();
  struct Sink {
    FILE* f;
    std::string* text;
  } sink{f, tofile ? &text : nullptr};
  tool::eachline(
      [](const char* line, void* context) {
        auto* k = static_cast<Sink*>(context);
        for (const char* p = line; *p;) {
          const char* cr = std::strchr(p, '\r');
          const std::size_t n = cr ? static_cast<std::size_t>(cr - p) : std::strlen(p);
          if (k->text)
            k->text->append(p, n);
          else
            std::fwrite(p, 1, n, k->f);
          p += n + (cr ? 1 : 0);
        }
      },
      &sink);
  if (tofile) {
    std::string why;
    if (writeatomic(s.listingfile, text, &why)) return true;
    error("cannot write the listing to %s: %s", s.listingfile.c_str(), why.c_str());
    return false;
  }
  if (std::fflush(f) == 0 && !std::ferror(f)) return true;
  error("cannot write the listing to %s: %s", f == stdout ? "standard output" : "standard error",
        std::strerror(errno));
  return false;
}

}  // namespace vexor::cli
