// The commands: run, check and predict.
#include <cerrno>
#include <csignal>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

#include "api/tool.h"
#include "cli/cli.h"

namespace vexor::cli {

namespace {

// After a signal: the listing so far, a note and 128 + the signal.
int interrupted(Session& s, int sig) {
  const int status = printlisting(s) ? EXIT_SIGNAL + sig : EXIT_WRITE;
  error("%s; the listing ends where the run stopped", sig == SIGINT ? "interrupted" : "terminated");
  return status;
}

// A count of seconds: a finite number above 0.
bool seconds(const std::string& text, double* value) {
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || errno != 0 || !(v > 0.0) || !std::isfinite(v)) return false;
  *value = v;
  return true;
}

// The one program operand; false after the usage error.
bool programoperand(const char* command, const Args& a, Session& s) {
  if (a.operands.empty()) {
    usageerror(command, "the program file is missing");
    return false;
  }
  if (a.operands.size() > 1) {
    usageerror(command, "one program file only (%s and %s)", a.operands[0].c_str(),
               a.operands[1].c_str());
    return false;
  }
  s.program = a.operands[0];
  return true;
}

// Standard input can be read once: by the program, --data or --at.
bool onestdin(const char* command, const Args& a) {
  int n = a.operands.size() == 1 && a.operands[0] == "-";
  for (const char* o : {"--data", "--at"})
    if (a.has(o) && a.get(o) == "-") ++n;
  if (n > 1) {
    usageerror(command, "only one of PROGRAM, --data and --at can be - (standard input)");
    return false;
  }
  return true;
}

// The common start of run and predict: options checked, the program
// compiled, its data supplied, the warnings given.  Returns -1 to go on,
// or the exit status.
int prepare(const char* command, const Args& a, Session& s, double* limit) {
  if (!programoperand(command, a, s) || !onestdin(command, a)) return EXIT_USAGE;
  *limit = 0.0;
  if (a.has("--time-limit") && !seconds(a.get("--time-limit"), limit))
    return usageerror(command, "--time-limit needs a number of seconds above 0, not %s",
                      a.get("--time-limit").c_str());
  if (a.has("--threads")) {
    const std::string t = a.get("--threads");
    char* end = nullptr;
    const long n = std::strtol(t.c_str(), &end, 10);
    if (end == t.c_str() || *end != '\0' || n < 1 || n > 64)
      return usageerror(command, "--threads needs a whole number from 1 to 64, not %s", t.c_str());
    vexor::setthreads(static_cast<int>(n));
  }
  vexor::setvectormath(a.has("--vector-math"));
  if (a.has("--derivatives")) {
    const std::string d = a.get("--derivatives");
    if (d != "exact" && d != "forward")
      return usageerror(command, "--derivatives takes exact or forward, not %s", d.c_str());
    vexor::setderivatives(d == "exact");
  }
  vexor::setboundederrors(a.has("--bounded-errors"));
  s.strict = a.has("--strict");
  s.listingfile = a.get("--listing");
  catchsignals();
  if (!compile(s)) return printlisting(s) ? EXIT_COMPILE : EXIT_WRITE;
  if (int sig = caughtsignal()) return interrupted(s, sig);
  if (a.has("--data")) {
    s.dataoption = true;
    if (!supplydata(s, a.get("--data"))) return EXIT_USAGE;
  }
  warnprogram(s);
  if (s.strict && s.warnings > 0) {
    error("%s: %d warning%s under --strict; nothing was run", s.shown.c_str(), s.warnings,
          s.warnings == 1 ? "" : "s");
    return EXIT_USAGE;
  }
  if (!checkoutputs(s)) return EXIT_USAGE;
  return -1;
}

// Text to standard output; false when it could not be written.
bool writeout(const std::string& text) {
  const bool ok = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
                  std::fflush(stdout) == 0;
  if (!ok) error("cannot write to standard output: %s", std::strerror(errno));
  return ok;
}

}  // namespace

int run(int argc, char** argv) {
  Args a;
  if (!parseargs("run", argc, argv,
                 {{"--data", true}, {"--format", true}, {"--listing", true}, {"--residuals", false},
                  {"--plots", true}, {"--time-limit", true}, {"--threads", true}, {"--vector-math", false},
                  {"--derivatives", true}, {"--bounded-errors", false}, {"--strict", false}, {"--help", false}},
                 &a))
    return EXIT_USAGE;
  if (a.has("--help")) {
    std::fputs(helptext("run"), stdout);
    return EXIT_OK;
  }
  const std::string format = a.has("--format") ? a.get("--format") : "listing";
  if (format != "listing" && format != "json" && format != "csv")
    return usageerror("run", "--format takes listing, json or csv, not %s", format.c_str());
  if (a.has("--residuals") && format != "json")
    return usageerror("run", "--residuals goes with --format json");
  Session s;
  s.listing = format == "listing" ? stdout : stderr;
  double limit = 0.0;
  if (int status = prepare("run", a, s, &limit); status >= 0) return status;

  const int result = fit(s, limit);
  if (int sig = caughtsignal()) return interrupted(s, sig);
  int status = result > 0 ? EXIT_OK : EXIT_NOTCONVERGED;
  if (!printlisting(s)) status = EXIT_WRITE;
  if (format == "json" && !writeout(resultsjson(s, result, a.has("--residuals")))) status = EXIT_WRITE;
  if (format == "csv" && !writeout(parameterscsv())) status = EXIT_WRITE;
  if (!warnresult(s, result)) status = EXIT_WRITE;
  if (a.has("--plots")) {
    std::vector<std::string> written;
    if (!drawplots(s, a.get("--plots"), &written)) status = EXIT_WRITE;
  }
  if (vexor::timedout()) {
    error("the time limit of %g seconds was reached; the fit was stopped", limit);
    return EXIT_TIMELIMIT;
  }
  return status;
}

int check(int argc, char** argv) {
  Args a;
  if (!parseargs("check", argc, argv, {{"--dump", false}, {"--strict", false}, {"--help", false}}, &a))
    return EXIT_USAGE;
  if (a.has("--help")) {
    std::fputs(helptext("check"), stdout);
    return EXIT_OK;
  }
  Session s;
  if (!programoperand("check", a, s)) return EXIT_USAGE;
  s.strict = a.has("--strict");
  const bool ok = compile(s);
  int status = ok ? EXIT_OK : EXIT_COMPILE;
  if (!printlisting(s)) status = EXIT_WRITE;
  warnprogram(s);
  if (ok && a.has("--dump")) tool::dump(stdout);
  if (status == EXIT_OK && s.strict && s.warnings > 0) {
    error("%s: %d warning%s under --strict", s.shown.c_str(), s.warnings, s.warnings == 1 ? "" : "s");
    status = EXIT_USAGE;
  }
  return status;
}

int predict(int argc, char** argv) {
  Args a;
  if (!parseargs("predict", argc, argv,
                 {{"--at", true}, {"--band", true}, {"--data", true}, {"--listing", true},
                  {"--time-limit", true}, {"--threads", true}, {"--vector-math", false},
                  {"--derivatives", true}, {"--bounded-errors", false}, {"--strict", false}, {"--help", false}},
                 &a))
    return EXIT_USAGE;
  if (a.has("--help")) {
    std::fputs(helptext("predict"), stdout);
    return EXIT_OK;
  }
  int band = 0;
  if (a.has("--band")) {
    const std::string b = a.get("--band");
    if (b == "confidence")
      band = 1;
    else if (b == "prediction")
      band = 2;
    else
      return usageerror("predict", "--band takes confidence or prediction, not %s", b.c_str());
  }
  Session s;
  // The listing goes to --listing FILE only; standard error shows it when
  // the program does not compile.
  s.listing = stderr;
  double limit = 0.0;
  const std::string listingfile = a.get("--listing");
  if (int status = prepare("predict", a, s, &limit); status >= 0) return status;
  const tool::Program p = tool::program();
  if (p.minimize || p.variables.empty()) {
    error("%s: predict needs a program with VARIABLES (this one asks for a minimum)", s.shown.c_str());
    return EXIT_USAGE;
  }
  const double level = p.confidence > 0.0 ? p.confidence : 0.95;

  // The points: named input variables (the dependent one may be missing).
  std::vector<std::string> names = p.variables;
  std::vector<bool> optional(names.size(), false);
  if (p.dependent >= 0) optional[static_cast<std::size_t>(p.dependent)] = true;
  Table at;
  std::vector<int> columns;
  if (a.has("--at")) {
    if (!readtable(a.get("--at"), &at) || !mapcolumns(at, names, optional, &columns)) return EXIT_USAGE;
  }

  const int result = fit(s, limit);
  if (int sig = caughtsignal()) return interrupted(s, sig);
  int status = result > 0 ? EXIT_OK : EXIT_NOTCONVERGED;
  if (!listingfile.empty() && !printlisting(s)) status = EXIT_WRITE;
  if (!warnresult(s, result)) status = EXIT_WRITE;
  if (vexor::timedout()) {
    error("the time limit of %g seconds was reached; the fit was stopped", limit);
    return EXIT_TIMELIMIT;
  }
  if (result <= 0)
    located(s.shown, 0, "warning",
            "the fit did not converge (result %d); the values are those of where it stopped", result);
  if (band) {
    const tool::Results r = tool::results();
    if (!r.hascovariance || r.observations <= static_cast<int>(r.parameters.size())) {
      error("%s: --band needs the covariance matrix of the estimates, which this fit has not "
            "(the listing says why)",
            s.shown.c_str());
      return EXIT_USAGE;
    }
  }

  // Without --at, the observations themselves.
  if (!a.has("--at")) {
    at.name = s.shown;
    VARIANT rows, r, c, v;
    VariantInit(&rows);
    VariantInit(&v);
    s.engine.NumDataRows(&rows);
    const long n = rows.vt == VT_I4 ? rows.lVal : 0;
    r.vt = c.vt = VT_I4;
    for (long i = 0; i < n; ++i) {
      std::vector<double> row(names.size());
      for (std::size_t k = 0; k < names.size(); ++k) {
        r.lVal = i;
        c.lVal = static_cast<long>(k);
        s.engine.GetDataValue(&r, &c, &v);
        row[k] = v.vt == VT_R8 ? v.dblVal : 0.0;
      }
      at.rows.push_back(row);
      at.lines.push_back(0);
    }
    columns.clear();
    for (std::size_t k = 0; k < names.size(); ++k) columns.push_back(static_cast<int>(k));
  }

  std::string out;
  for (std::size_t k = 0; k < names.size(); ++k)
    if (static_cast<int>(k) != p.dependent) out += names[k] + ",";
  out += band ? "predicted,lower,upper\n" : "predicted\n";
  for (std::size_t i = 0; i < at.rows.size(); ++i) {
    std::vector<double> inputs(names.size(), 0.0);
    for (std::size_t k = 0; k < names.size(); ++k)
      if (columns[k] >= 0) inputs[k] = at.rows[i][static_cast<std::size_t>(columns[k])];
    for (std::size_t k = 0; k < names.size(); ++k)
      if (static_cast<int>(k) != p.dependent) out += number(inputs[k], "") + ",";
    tool::Point pt{};
    std::string why;
    const bool ok = tool::predict(inputs, band, level, &pt, &why);
    if (!ok) {
      if (at.lines[i] > 0)
        located(at.name, at.lines[i], "warning", "no value at this point: %s", why.c_str());
      else
        warning("%s: observation %zu: no value: %s", at.name.c_str(), i + 1, why.c_str());
    }
    out += number(ok ? pt.value : NAN, "");
    if (band) out += "," + number(pt.lower, "") + "," + number(pt.upper, "");
    out += "\n";
  }
  if (!writeout(out)) status = EXIT_WRITE;
  return status;
}

}  // namespace vexor::cli
