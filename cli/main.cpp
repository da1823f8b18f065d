// vexor: the command-line tool.
//
//   vexor run PROGRAM_FILE              compile, fit and print the listing
//   vexor check [--dump] PROGRAM_FILE   compile and print the listing
//   vexor --version | --help
//
// Exit status: 0 when the command succeeded (for run: the analysis ended
// with a positive result code), 1 when the fit ended with 0 or a negative
// code, 2 when the program did not compile (or could not be read) or the
// command line was not understood.
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

#include "api/coerce.h"
#include "code/code.h"
#include "support/support.h"
#include "fit/driver.h"
#include "vexor/vexor.h"

namespace {

const char* const usage =
    "Usage: vexor run PROGRAM_FILE\n"
    "       vexor check [--dump] PROGRAM_FILE\n"
    "       vexor --version | --help\n"
    "\n"
    "VEXOR fits nonlinear models to observations by least squares.\n"
    "\n"
    "Commands:\n"
    "  run PROGRAM_FILE     compile the program, fit it and print the analysis\n"
    "                       listing; exit 0 when the fit converged, 1 when it\n"
    "                       did not, 2 when the program did not compile\n"
    "  check PROGRAM_FILE   compile the program and print its listing (the\n"
    "                       numbered program and every compile message);\n"
    "                       exit 0 when it compiled, 2 when it did not\n"
    "    --dump             also print the compiled instructions and trees\n"
    "\n"
    "Options:\n"
    "  --version            print the version and exit\n"
    "  --help               print this text and exit\n";

// The tool is a host of the analysis object: it compiles, computes and
// reads the listing through the object's methods, as any host does.
VEXOR engine;

// Prints the listing with LF line ends.  The records are written one by one
// (the listing is the engine's, read in place) rather than fetched through
// GetAnalysisReport, which would copy the whole text twice more (a narrow
// and a wide copy) before a byte is printed: a run that reports an error for
// each of a million observations has a listing of some 100 MB.
void printlisting() {
  vexor::lstforeach([](const char* text) {
    for (const char* p = text; *p;) {
      const char* cr = std::strchr(p, '\r');
      const std::size_t n = cr ? static_cast<std::size_t>(cr - p) : std::strlen(p);
      std::fwrite(p, 1, n, stdout);
      p += n + (cr ? 1 : 0);
    }
  });
  std::fflush(stdout);
}

// CompileFile through the object; true when the program compiled.
bool compilefile(const char* path) {
  VARIANT file, result;
  VariantInit(&file);
  VariantInit(&result);
  file.vt = VT_BSTR;
  file.bstrVal = vexor::towide(path);
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

int check(int argc, char** argv) {
  bool dump = false;
  const char* file = nullptr;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--dump") == 0)
      dump = true;
    else if (!file)
      file = argv[i];
    else
      file = nullptr, argc = -1;
  }
  if (!file || argc < 0) {
    std::fputs(usage, stderr);
    return 2;
  }
  vexor::setlexexithandler(lexexit);
  bool ok = compilefile(file);
  printlisting();
  if (ok && dump) vexor::dumpprog(stdout);
  return ok ? 0 : 2;
}

// Progress of a long fit, on standard error when that is a terminal.
void progress(int32_t iteration, double sumsq) {
  std::fprintf(stderr, "\rIteration %d  sum of squares %.8lG   ", static_cast<int>(iteration), sumsq);
  std::fflush(stderr);
}

int run(int argc, char** argv) {
  if (argc != 1) {
    std::fputs(usage, stderr);
    return 2;
  }
  vexor::setlexexithandler(lexexit);
  if (!compilefile(argv[0])) {
    printlisting();
    return 2;
  }
  bool tty = isatty(fileno(stderr)) != 0;
  if (tty) vexor::progresshook = progress;
  VARIANT out;
  VariantInit(&out);
  engine.Compute(&out);
  int result = out.vt == VT_I4 ? static_cast<int>(out.lVal) : 0;
  vexor::progresshook = nullptr;
  if (tty) std::fputs("\r                                                  \r", stderr);
  printlisting();
  return result > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("VEXOR version 5.4\n");
    return 0;
  }
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::fputs(usage, stdout);
    return 0;
  }
  if (argc >= 2 && std::strcmp(argv[1], "check") == 0) return check(argc - 2, argv + 2);
  if (argc >= 2 && std::strcmp(argv[1], "run") == 0) return run(argc - 2, argv + 2);
  std::fputs(usage, stderr);
  return 2;
}
