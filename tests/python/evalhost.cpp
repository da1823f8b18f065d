// A host of the analysis object for the Python tests: compiles a program
// file, fits it, and prints the object's EvaluateFunction at each point read
// from standard input (one line of VARIABLES values each), with 17
// significant digits.
//   evalhost PROGRAM < points
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "vexor/vexor.h"

namespace {

VARIANT number(double x) {
  VARIANT v;
  VariantInit(&v);
  v.vt = VT_R8;
  v.dblVal = x;
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: evalhost PROGRAM < points\n");
    return 2;
  }
  VEXOR obj;
  std::u16string wide(argv[1], argv[1] + std::char_traits<char>::length(argv[1]));
  VARIANT file, out;
  VariantInit(&file);
  VariantInit(&out);
  file.vt = VT_BSTR;
  file.bstrVal = SysAllocString(wide.c_str());
  obj.CompileFile(&file, &out);
  VariantClear(&file);
  if (out.lVal != 1) {
    std::fprintf(stderr, "evalhost: %s did not compile\n", argv[1]);
    return 1;
  }
  obj.Compute(&out);
  std::string line;
  char buf[4096];
  while (std::fgets(buf, sizeof buf, stdin)) {
    std::istringstream in(buf);
    double x;
    for (int i = 0; in >> x; ++i) {
      VARIANT index = number(i), value = number(x);
      obj.EvaluateValue(&index, &value);
    }
    VARIANT dummy, y;
    VariantInit(&dummy);
    VariantInit(&y);
    obj.EvaluateFunction(&dummy, &y);
    std::printf("%.17g\n", y.dblVal);
  }
  return 0;
}
