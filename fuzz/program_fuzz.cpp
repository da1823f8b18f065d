// Fuzz target: any bytes as a program text.  Compile, then read the listing
// (and the compiled code's dump); a program that compiles is not run here
// (the data and grammar targets run theirs).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "code/code.h"
#include "fuzzhost.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vexor::fuzz::setup();
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (vexor::fuzz::compile(text) == 1) {
    static FILE* sink = std::fopen("/dev/null", "w");
    if (sink) vexor::dumpprog(sink);
  }
  vexor::fuzz::report();
  return 0;
}
