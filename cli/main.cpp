// vexor: the command-line tool.
//
//   vexor run [options] PROGRAM
//   vexor predict [options] PROGRAM
//   vexor check [options] PROGRAM
//   vexor help [COMMAND] | --help | --version
//
// The commands are in commands.cpp; the help texts and the option parsing
// in args.cpp; exit statuses in cli.h.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "cli/cli.h"

namespace vexor::cli {

namespace {

void vmessage(const char* kind, const char* format, va_list ap) {
  std::fflush(stdout);
  std::fprintf(stderr, "vexor: %s", kind);
  std::vfprintf(stderr, format, ap);
  std::fputc('\n', stderr);
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

void located(const std::string& file, long line, const char* kind, const char* format, ...) {
  std::fflush(stdout);
  if (line > 0)
    std::fprintf(stderr, "%s:%ld: %s: ", file.c_str(), line, kind);
  else
    std::fprintf(stderr, "%s: %s: ", file.c_str(), kind);
  va_list ap;
  va_start(ap, format);
  std::vfprintf(stderr, format, ap);
  va_end(ap);
  std::fputc('\n', stderr);
}

}  // namespace vexor::cli

int main(int argc, char** argv) {
  using namespace vexor::cli;
  if (argc < 2) return usageerror("", "a command is missing");
  const std::string command = argv[1];
  if (command == "--version" || command == "version") {
    std::printf("VEXOR version 5.4\n");
    return EXIT_OK;
  }
  if (command == "--help" || command == "-h" || command == "help") {
    if (command == "help" && argc > 2) {
      const std::string of = argv[2];
      if (of != "run" && of != "predict" && of != "check")
        return usageerror("", "no help for %s: the commands are run, predict and check", argv[2]);
      std::fputs(helptext(of), stdout);
    } else {
      std::fputs(helptext(""), stdout);
    }
    return EXIT_OK;
  }
  if (command == "run") return run(argc - 2, argv + 2);
  if (command == "predict") return predict(argc - 2, argv + 2);
  if (command == "check") return check(argc - 2, argv + 2);
  if (command[0] == '-') return usageerror("", "unknown option %s", argv[1]);
  return usageerror("", "unknown command %s", argv[1]);
}
