// vexor: the command-line tool.
#include <cstdio>
#include <cstring>

namespace {

const char* const usage =
    "Usage: vexor [--version | --help]\n"
    "\n"
    "VEXOR fits nonlinear models to observations by least squares.\n"
    "\n"
    "Options:\n"
    "  --version   print the version and exit\n"
    "  --help      print this text and exit\n";

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
  std::fputs(usage, stderr);
  return 2;
}
