// vexor: the command-line tool.
//
//   vexor run [--time-limit SECONDS] PROGRAM_FILE
//   vexor check [--dump] PROGRAM_FILE
//   vexor --version | --help
//
// Exit statuses: see Exit in cli.h and the usage text below.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#ifdef _WIN32
#include <io.h>
#define isatty _isatty
#define fileno _fileno
#else
#include <unistd.h>
#endif

#include <string>

#include "api/tool.h"
#include "cli/cli.h"
#include "vexor/vexor.h"

namespace vexor::cli {

namespace {

const char* const usage =
    "Usage: vexor run [--time-limit SECONDS] PROGRAM_FILE\n"
    "       vexor check [--dump] PROGRAM_FILE\n"
    "       vexor --version | --help\n"
    "\n"
    "VEXOR fits nonlinear models to observations by least squares.\n"
    "\n"
    "Commands:\n"
    "  run PROGRAM_FILE     compile the program, fit it and print the analysis\n"
    "                       listing\n"
    "    --time-limit SECONDS\n"
    "                       stop the fit after that many seconds (the listing\n"
    "                       then ends with \"Analysis was aborted\")\n"
    "  check PROGRAM_FILE   compile the program and print its listing (the\n"
    "                       numbered program and every compile message)\n"
    "    --dump             also print the compiled instructions and trees\n"
    "\n"
    "Options:\n"
    "  --version            print the version and exit\n"
    "  --help               print this text and exit\n"
    "\n"
    "Ctrl-C (SIGINT) or SIGTERM stops a fit: the listing so far is printed;\n"
    "a second one ends the tool at once.\n"
    "\n"
    "Exit status:\n"
    "  0    success (run: the fit converged)\n"
    "  1    the fit did not converge (its result code is 0 or negative), or a\n"
    "       comment is left open at the end of the program\n"
    "  2    the program did not compile or could not be read\n"
    "  3    the command line was not understood, or the program's OUTPUT or\n"
    "       POUTPUT file is its own program or data file (nothing is run)\n"
    "  4    the listing or an output file could not be written\n"
    "  124  the time limit was reached\n"
    "  130  interrupted (SIGINT); 143 terminated (SIGTERM)\n";

const char* const shortusage = "usage: vexor run|check [options] PROGRAM_FILE (vexor --help for more)\n";

// The tool drives the engine through the analysis object, as any host does.
VEXOR engine;

void vmessage(const char* kind, const char* format, va_list ap) {
  std::fflush(stdout);
  std::fprintf(stderr, "vexor: %s", kind);
  std::vfprintf(stderr, format, ap);
  std::fputc('\n', stderr);
}

// A usage error: the message, one line of usage, status 3.
int usageerror(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  vmessage("", format, ap);
  va_end(ap);
  std::fputs(shortusage, stderr);
  return EXIT_USAGE;
}

// CompileFile through the object; true when the program compiled.
bool compilefile(const char* path) {
  VARIANT file, result;
  VariantInit(&file);
  VariantInit(&result);
  file.vt = VT_BSTR;
  file.bstrVal = vexor::tool::widen(path);
  engine.CompileFile(&file, &result);
  VariantClear(&file);
  return result.vt == VT_I4 && result.lVal == 1;
}

// A comment left open at the end of the source ends the process; the
// listing so far is printed first, so the user sees the message.
void lexexit(int status) {
  printlisting();
  std::exit(status);
}

// The listing, and the status when it cannot be written.
int listingwritten(int status) {
  if (printlisting()) return status;
  error("cannot write the listing to standard output: %s", std::strerror(errno));
  return EXIT_WRITE;
}

// After a signal: the listing so far, a note and 128 + the signal.
int interrupted(int sig) {
  int status = listingwritten(EXIT_SIGNAL + sig);
  error("%s; the listing ends where the run stopped", sig == SIGINT ? "interrupted" : "terminated");
  return status;
}

int check(int argc, char** argv) {
  bool dump = false;
  const char* file = nullptr;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--dump") == 0)
      dump = true;
    else if (argv[i][0] == '-' && argv[i][1] != '\0')
      return usageerror("check: unknown option %s", argv[i]);
    else if (!file)
      file = argv[i];
    else
      return usageerror("check: one program file only (%s and %s)", file, argv[i]);
  }
  if (!file) return usageerror("check: the program file is missing");
  vexor::setlexexithandler(lexexit);
  bool ok = compilefile(file);
  int status = listingwritten(ok ? EXIT_OK : EXIT_COMPILE);
  if (ok && dump) vexor::tool::dump(stdout);
  return status;
}

// Progress of a long fit, on standard error when that is a terminal.
void progress(int32_t iteration, double sumsq) {
  std::fprintf(stderr, "\rIteration %d  sum of squares %.8lG   ", static_cast<int>(iteration), sumsq);
  std::fflush(stderr);
}

// A count of seconds: a finite number above 0.
bool seconds(const char* text, double* value) {
  char* end = nullptr;
  errno = 0;
  const double v = std::strtod(text, &end);
  if (end == text || *end != '\0' || errno != 0 || !(v > 0.0) || !std::isfinite(v)) return false;
  *value = v;
  return true;
}

int run(int argc, char** argv) {
  const char* file = nullptr;
  double limit = 0.0;
  for (int i = 0; i < argc; ++i) {
    const char* a = argv[i];
    if (std::strncmp(a, "--time-limit", 12) == 0 && (a[12] == '\0' || a[12] == '=')) {
      const char* value = a[12] == '=' ? a + 13 : (i + 1 < argc ? argv[++i] : nullptr);
      if (!value) return usageerror("run: --time-limit needs a number of seconds");
      if (!seconds(value, &limit))
        return usageerror("run: --time-limit needs a number of seconds above 0, not %s", value);
    } else if (a[0] == '-' && a[1] != '\0') {
      return usageerror("run: unknown option %s", a);
    } else if (!file) {
      file = a;
    } else {
      return usageerror("run: one program file only (%s and %s)", file, a);
    }
  }
  if (!file) return usageerror("run: the program file is missing");
  vexor::setlexexithandler(lexexit);
  catchsignals();
  if (!compilefile(file)) return listingwritten(EXIT_COMPILE);
  if (int sig = caughtsignal()) return interrupted(sig);
  warndata(engine, file);
  if (!checkoutputs(file)) return EXIT_USAGE;

  bool tty = isatty(fileno(stderr)) != 0;
  if (tty) vexor::tool::setprogress(progress);
  vexor::settimelimit(limit);
  VARIANT out;
  VariantInit(&out);
  engine.Compute(&out);
  int result = out.vt == VT_I4 ? static_cast<int>(out.lVal) : 0;
  vexor::tool::setprogress(nullptr);
  if (tty) std::fputs("\r                                                  \r", stderr);

  if (int sig = caughtsignal()) return interrupted(sig);
  int status = listingwritten(result > 0 ? EXIT_OK : EXIT_NOTCONVERGED);
  if (!checkwrites(result) && status != EXIT_WRITE) status = EXIT_WRITE;
  if (vexor::timedout()) {
    error("the time limit of %g seconds was reached; the fit was stopped", limit);
    return EXIT_TIMELIMIT;
  }
  if (result == -2 || result == -3 || result == -4)
    warning("%s: the fit failed (result %d): the sums and statistics in the listing are not those of a fit",
            file, result);
  return status;
}

}  // namespace

void error(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  vmessage("", format, ap);
  va_end(ap);
}

void warning(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  vmessage("warning: ", format, ap);
  va_end(ap);
}

// Prints the listing with LF line ends.  The records are written one by one
// (the listing is the engine's, read in place) rather than fetched through
// GetAnalysisReport, which would copy the whole text twice more (a narrow
// and a wide copy) before a byte is printed: a run that reports an error for
// each of a million observations has a listing of some 100 MB.
bool printlisting() {
  vexor::tool::eachline(
      [](const char* text, void*) {
        for (const char* p = text; *p;) {
          const char* cr = std::strchr(p, '\r');
          const std::size_t n = cr ? static_cast<std::size_t>(cr - p) : std::strlen(p);
          std::fwrite(p, 1, n, stdout);
          p += n + (cr ? 1 : 0);
        }
      },
      nullptr);
  return std::fflush(stdout) == 0 && !std::ferror(stdout);
}

}  // namespace vexor::cli

int main(int argc, char** argv) {
  using namespace vexor::cli;
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("VEXOR version 5.4\n");
    return EXIT_OK;
  }
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::fputs(usage, stdout);
    return EXIT_OK;
  }
  if (argc >= 2 && std::strcmp(argv[1], "check") == 0) return check(argc - 2, argv + 2);
  if (argc >= 2 && std::strcmp(argv[1], "run") == 0) return run(argc - 2, argv + 2);
  if (argc < 2) return usageerror("a command is missing");
  return usageerror("unknown command %s", argv[1]);
}
