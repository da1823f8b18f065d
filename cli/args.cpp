// The command line: each command's options and help text, and the parsing
// that names the word it cannot take.
#include <cstdarg>
#include <cstring>

#include "cli/cli.h"

namespace vexor::cli {

namespace {

const char* const toolhelp =
    "Usage: vexor run [options] PROGRAM\n"
    "       vexor predict [options] PROGRAM\n"
    "       vexor check [options] PROGRAM\n"
    "       vexor help [COMMAND] | --help | --version\n"
    "\n"
    "VEXOR fits nonlinear models to observations by least squares.\n"
    "PROGRAM is a file of the modelling language, or - for standard input.\n"
    "\n"
    "Commands:\n"
    "  run       compile the program, fit it, and print the analysis listing\n"
    "            (or the results as JSON or CSV)\n"
    "  predict   fit, then write the fitted model at new points as CSV, with\n"
    "            confidence or prediction bands\n"
    "  check     compile the program and print its listing and warnings\n"
    "\n"
    "vexor COMMAND --help (or vexor help COMMAND) describes a command.\n"
    "\n"
    "Ctrl-C (SIGINT) or SIGTERM stops a fit: the listing so far is printed;\n"
    "a second one ends the tool at once.\n"
    "\n"
    "Exit status:\n"
    "  0    success (run, predict: the fit converged)\n"
    "  1    the fit did not converge (its result code is 0 or negative), or a\n"
    "       comment is left open at the end of the program\n"
    "  2    the program did not compile or could not be read\n"
    "  3    the command line or an input was refused, or a warning under\n"
    "       --strict (nothing is run); also an OUTPUT or POUTPUT file that is\n"
    "       the program's own program or data file\n"
    "  4    the listing or an output file could not be written\n"
    "  124  the time limit was reached\n"
    "  130  interrupted (SIGINT); 143 terminated (SIGTERM)\n";

const char* const runhelp =
    "Usage: vexor run [options] PROGRAM\n"
    "\n"
    "Compiles PROGRAM (a file, or - for standard input), fits it, and prints\n"
    "the analysis listing.\n"
    "\n"
    "Options:\n"
    "  --data FILE           the observations from a CSV or TSV file (- for\n"
    "                        standard input) instead of the program's DATA: a\n"
    "                        header line names the columns (matched to the\n"
    "                        VARIABLES in any order, extra columns ignored);\n"
    "                        without one, the columns are the VARIABLES in order\n"
    "  --format FORMAT       listing (the default), json (the results as one\n"
    "                        JSON document) or csv (the parameter table)\n"
    "  --listing FILE        write the listing to FILE (default: standard\n"
    "                        output; with --format json or csv, standard error)\n"
    "  --residuals           with --format json: also the observed, predicted\n"
    "                        and residual value of each observation\n"
    "  --plots DIR           draw the program's PLOT, RPLOT, NPLOT and SPLOT\n"
    "                        requests (without any: the fit and the residuals)\n"
    "                        as SVG files in DIR\n"
    "  --time-limit SECONDS  stop the fit after that many seconds (the listing\n"
    "                        then ends with \"Analysis was aborted\")\n"
    "  --threads N           threads for the passes over the observations\n"
    "                        (default: one per core); the results are the same\n"
    "                        for any N\n"
    "  --vector-math         exp, sin, cos and ln of a model without side effects\n"
    "                        by SLEEF's vectorised functions: faster, and the\n"
    "                        results may move in their last digits\n"
    "  --derivatives KIND    forward (the default: the optimizer differences the\n"
    "                        residuals) or exact (the program's derivatives in\n"
    "                        its parameters, by automatic differentiation; a\n"
    "                        column without them is\n"
    "                        differenced, and a note says which)\n"
    "  --bounded-errors      standard errors in a fit with CONSTRAIN bounds: of\n"
    "                        the parameters not held on a bound, as for an\n"
    "                        unbounded fit at the solution\n"
    "  --strict              treat warnings about the program and its data as\n"
    "                        errors: exit status 3, nothing is run\n"
    "  --help                print this text\n";

const char* const predicthelp =
    "Usage: vexor predict [options] PROGRAM\n"
    "\n"
    "Fits PROGRAM (a file, or - for standard input), then writes the fitted\n"
    "model at new points as CSV to standard output: the values of the input\n"
    "variables, then \"predicted\" (and \"lower\", \"upper\" with a band).\n"
    "\n"
    "Options:\n"
    "  --at FILE             the points, a CSV or TSV file (- for standard\n"
    "                        input): a header names the input variables; without\n"
    "                        one, the columns are the VARIABLES in order, less\n"
    "                        the dependent variable.  Default: the observations\n"
    "  --band KIND           confidence (of the fitted curve) or prediction (of\n"
    "                        a new observation): the limits at the program's\n"
    "                        CONFIDENCE level (95% when it sets none), by the\n"
    "                        delta method\n"
    "  --data FILE           the observations, as for vexor run\n"
    "  --listing FILE        also write the analysis listing to FILE\n"
    "  --time-limit SECONDS  stop the fit after that many seconds\n"
    "  --threads N           threads for the passes over the observations\n"
    "  --vector-math         SLEEF's vectorised exp, sin, cos and ln (see run)\n"
    "  --derivatives KIND    forward (the default) or exact (see run)\n"
    "  --bounded-errors      standard errors in a bounded fit (see run)\n"
    "  --strict              treat warnings as errors (exit status 3)\n"
    "  --help                print this text\n";

const char* const checkhelp =
    "Usage: vexor check [options] PROGRAM\n"
    "\n"
    "Compiles PROGRAM (a file, or - for standard input) and prints its listing\n"
    "(the numbered program and every compile message); warnings about the\n"
    "program and its data go to standard error.\n"
    "\n"
    "Options:\n"
    "  --dump                also print the compiled instructions and trees\n"
    "  --strict              treat warnings as errors (exit status 3)\n"
    "  --help                print this text\n";

const char* usageline(const char* command) {
  if (std::strcmp(command, "run") == 0) return "usage: vexor run [options] PROGRAM (vexor run --help for more)\n";
  if (std::strcmp(command, "predict") == 0)
    return "usage: vexor predict [options] PROGRAM (vexor predict --help for more)\n";
  if (std::strcmp(command, "check") == 0)
    return "usage: vexor check [options] PROGRAM (vexor check --help for more)\n";
  return "usage: vexor run|predict|check [options] PROGRAM (vexor --help for more)\n";
}

}  // namespace

const char* helptext(const std::string& command) {
  if (command == "run") return runhelp;
  if (command == "predict") return predicthelp;
  if (command == "check") return checkhelp;
  return toolhelp;
}

int usageerror(const char* command, const char* format, ...) {
  std::fflush(stdout);
  std::fputs("vexor: ", stderr);
  if (command && *command) std::fprintf(stderr, "%s: ", command);
  va_list ap;
  va_start(ap, format);
  std::vfprintf(stderr, format, ap);
  va_end(ap);
  std::fputc('\n', stderr);
  std::fputs(usageline(command ? command : ""), stderr);
  return EXIT_USAGE;
}

bool Args::has(const std::string& name) const {
  for (const auto& o : options)
    if (o.first == name) return true;
  return false;
}

std::string Args::get(const std::string& name) const {
  std::string v;
  for (const auto& o : options)
    if (o.first == name) v = o.second;
  return v;
}

// "--name value" and "--name=value"; "-" alone is an operand (standard
// input); "--" ends the options.
bool parseargs(const char* command, int argc, char** argv, const std::vector<OptionRule>& rules,
               Args* out) {
  bool optionsdone = false;
  for (int i = 0; i < argc; ++i) {
    const std::string a = argv[i];
    if (optionsdone || a == "-" || a.empty() || a[0] != '-') {
      out->operands.push_back(a);
      continue;
    }
    if (a == "--") {
      optionsdone = true;
      continue;
    }
    const std::size_t eq = a.find('=');
    const std::string name = a.substr(0, eq);
    const OptionRule* rule = nullptr;
    for (const OptionRule& s : rules)
      if (name == s.name) rule = &s;
    if (!rule) {
      usageerror(command, "unknown option %s", name.c_str());
      return false;
    }
    if (!rule->value) {
      if (eq != std::string::npos) {
        usageerror(command, "%s takes no value", name.c_str());
        return false;
      }
      out->options.emplace_back(name, "");
      continue;
    }
    std::string value;
    if (eq != std::string::npos) {
      value = a.substr(eq + 1);
    } else if (i + 1 < argc) {
      value = argv[++i];
    } else {
      usageerror(command, "%s needs a value", name.c_str());
      return false;
    }
    if (value.empty()) {
      usageerror(command, "%s needs a value", name.c_str());
      return false;
    }
    out->options.emplace_back(name, value);
  }
  return true;
}

}  // namespace vexor::cli
