// Fuzz target: any bytes as the data section of a fixed program (two input
// variables, a model of two parameters).  Compile, compute, and read every
// result a host can read.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzzhost.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vexor::fuzz::setup();
  std::string text =
      "VARIABLES x, y;\nPARAMETERS a = 1, b = 0.5;\nCONFIDENCE 95;\nCOVARIANCE;\nCORRELATE;\n"
      "FUNCTION y = a * exp(-b * x);\nDATA;\n";
  text.append(reinterpret_cast<const char*>(data), size);
  if (vexor::fuzz::compile(text) == 1) vexor::fuzz::compute();
  vexor::fuzz::readresults();
  return 0;
}
