// Fuzz target: the input's bytes choose, one decision each, the productions
// of a program of the language: declarations, options, statements and
// expressions over the built-in functions, then records of data.  So nearly
// every input is a program that compiles, and the fuzzer explores what
// compiled programs do when they run (the time limit of the host settings
// ends the endless loops it writes).  Compile, compute (at most 5
// iterations; exact derivatives and standard errors with bounds when the
// first byte says so), and read every result.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "exec/exec.h"
#include "fuzzhost.h"
#include "vexor/vexor.h"

namespace {

class Gen {
 public:
  Gen(const uint8_t* d, size_t n) : d_(d), n_(n) {}

  // The next decision among k choices (0 when the input is used up).
  unsigned pick(unsigned k) { return k == 0 || i_ >= n_ ? 0 : d_[i_++] % k; }
  bool more() const { return i_ < n_; }

  std::string number() {
    static const char* const nums[] = {"0", "1", "2", "0.385", "-1", "2.5E2", "1e300", "1e-300", "1e400",
                                       "90", "3.141592653589793", "2147483647", "1:30", ".5", "170"};
    return nums[pick(sizeof nums / sizeof nums[0])];
  }

  // A variable; elements only while depth is left for their subscripts.
  std::string variable(int depth) {
    static const char* const vars[] = {"x", "y", "a", "b", "w", "k", "Obs", "Predicted", "Residual",
                                       "PI"};
    switch (depth > 0 ? pick(6) : 5) {
      case 0: return "v[" + expr(depth - 1) + "]";
      case 1: return "m[" + expr(depth - 1) + ", " + expr(depth - 1) + "]";
      default: return vars[pick(sizeof vars / sizeof vars[0])];
    }
  }

  std::string call(int depth) {
    const vexor::FuncEntry& f = vexor::functable[pick(vexor::NFUNCS)];
    std::string s = std::string(f.name) + "(";
    int n = f.nargs == vexor::VARARGS ? static_cast<int>(pick(4)) : f.nargs;
    if (f.code == vexor::FN_PRINTF) {
      s += "\"%lG %*.*lf %d\\n\"";
      if (n) s += ", ";
    }
    for (int k = 0; k < n; ++k) s += (k ? ", " : "") + expr(depth - 1);
    return s + ")";
  }

  std::string expr(int depth) {
    if (depth <= 0 || !more()) return pick(2) ? number() : variable(0);
    static const char* const binops[] = {" + ", " - ", " * ", " / ", " % ", " ^ ", " < ", " <= ",
                                         " == ", " != ", " && ", " || ", " > "};
    switch (pick(9)) {
      case 0: return number();
      case 1: return variable(depth - 1);
      case 2: return call(depth);
      case 3: return "(" + expr(depth - 1) + ")";
      case 4: return "-" + expr(depth - 1);
      case 5: return expr(depth - 1) + " ? " + expr(depth - 1) + " : " + expr(depth - 1);
      case 6: return "(w = " + expr(depth - 1) + ")";
      case 7: return pick(2) ? "k++" : "--k";
      default: return expr(depth - 1) + binops[pick(sizeof binops / sizeof binops[0])] + expr(depth - 1);
    }
  }

  std::string statement(int depth) {
    switch (pick(depth > 0 ? 10 : 4)) {
      case 0: return "w = " + expr(3) + ";\n";
      case 1: return "k += " + expr(2) + ";\n";
      case 2: return "v[" + expr(1) + "] = " + expr(2) + ";\n";
      case 3: return "FUNCTION y = " + expr(4) + ";\n";
      case 4: return "IF (" + expr(2) + ") " + statement(depth - 1) + (pick(2) ? "ELSE " + statement(depth - 1) : "");
      case 5: return "WHILE (" + expr(2) + ") " + statement(depth - 1);
      case 6: return "FOR (k = 0; k < " + expr(1) + "; k++) " + statement(depth - 1);
      case 7: return "DO " + statement(depth - 1) + "WHILE (" + expr(2) + ");\n";
      case 8: return "{ " + statement(depth - 1) + statement(depth - 1) + "}\n";
      default: return pick(2) ? "BREAK;\n" : (pick(2) ? "STOP;\n" : "CONTINUE;\n");
    }
  }

  std::string option() {
    switch (pick(12)) {
      case 0: return "CONFIDENCE " + std::string(pick(2) ? "95" : "50") + ";\n";
      case 1: return "COVARIANCE;\n";
      case 2: return "CORRELATE;\n";
      case 3: return "CONSTRAIN a = " + number() + ", " + number() + ";\n";
      case 4: return "SWEEP b = 0.1, " + number() + ", 0.5;\n";
      case 5: return "ANGLETYPE DEGREES;\n";
      case 6: return "TOLERANCE 1e-6;\n";
      case 7: return "TITLE \"fuzz\";\n";
      case 8: return "PLOT;\n";
      case 9: return "DATASKIP " + number() + ";\n";
      case 10: return "DATACOUNT " + number() + ";\n";
      default: return "";
    }
  }

  std::string program() {
    std::string s = pick(5) ? "VARIABLES x, y;\n" : "";
    s += "PARAMETERS a = " + number() + ", b = " + number() + ";\n";
    s += "DOUBLE w, k, v[5], m[3, 3];\nITERATIONS 5;\n";
    for (unsigned k = pick(3); k > 0; --k) s += option();
    for (unsigned k = pick(6); k > 0; --k) s += statement(3);
    s += "FUNCTION y = a * x + b * " + expr(3) + ";\n";
    if (s.compare(0, 9, "VARIABLES") == 0) {
      s += "DATA;\n";
      for (unsigned r = 2 + pick(10); r > 0; --r) s += number() + " " + number() + "\n";
    }
    return s;
  }

 private:
  const uint8_t* d_;
  size_t n_;
  size_t i_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vexor::fuzz::setup(0.05);  // generated programs loop for ever now and then
  Gen g(data, size);
  const std::string program = g.program();
  // VEXOR_FUZZ_SHOW=1 prints the generated program (to see a finding's).
  static const bool show = std::getenv("VEXOR_FUZZ_SHOW") != nullptr;
  if (show) std::fprintf(stderr, "---- program\n%s----\n", program.c_str());
  if (vexor::fuzz::compile(program) == 1) {
    // The input's first byte also chooses exact derivatives and standard
    // errors with bounds, so that those paths meet every program too.
    const uint8_t mode = size > 0 ? data[0] : 0;
    vexor::setderivatives((mode & 1) != 0);
    vexor::setboundederrors((mode & 2) != 0);
    vexor::fuzz::compute();
    vexor::setderivatives(false);
    vexor::setboundederrors(false);
  }
  vexor::fuzz::readresults();
  return 0;
}
