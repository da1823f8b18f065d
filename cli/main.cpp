// vexor: the command-line tool.
//
//   vexor check [--dump] PROGRAM_FILE   compile and print the listing
//   vexor --version | --help
//
// Exit status: 0 when the command succeeded, 2 when the program did not
// compile (or could not be read) or the command line was not understood.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/engine.h"
#include "code/code.h"
#include "lang/lang.h"
#include "support/support.h"

namespace {

const char* const usage =
    "Usage: vexor check [--dump] PROGRAM_FILE\n"
    "       vexor --version | --help\n"
    "\n"
    "VEXOR fits nonlinear models to observations by least squares.\n"
    "\n"
    "Commands:\n"
    "  check PROGRAM_FILE   compile the program and print its listing (the\n"
    "                       numbered program and every compile message);\n"
    "                       exit 0 when it compiled, 2 when it did not\n"
    "    --dump             also print the compiled instructions and trees\n"
    "\n"
    "Options:\n"
    "  --version            print the version and exit\n"
    "  --help               print this text and exit\n";

// Prints the listing with LF line ends.
void printlisting() {
  vexor::lstforeach([](const char* text) {
    for (const char* p = text; *p; ++p)
      if (*p != '\r') std::fputc(*p, stdout);
  });
  std::fflush(stdout);
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
  int ok = vexor::compilefile(file);
  printlisting();
  if (ok && dump) vexor::dumpprog(stdout);
  return ok ? 0 : 2;
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
  std::fputs(usage, stderr);
  return 2;
}
