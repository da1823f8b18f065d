// Programs compiled through the engine reset and run by the interpreter.
#include <cstdio>
#include <sstream>

#include "api/engine.h"
#include "exec/exec.h"
#include "kit/kit.h"

namespace vexor::kit {

int compileprog(const std::string& text) { return compilesource(text.c_str()); }

std::string dump() {
  FILE* f = std::tmpfile();
  if (!f) return "";
  dumpprog(f);
  std::string s = readstream(f);
  std::fclose(f);
  return s;
}

std::vector<std::string> opcodes() {
  std::vector<std::string> v;
  std::istringstream in(dump());
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream l(line);
    std::string slot, op;
    l >> slot >> op;
    v.push_back(op);
  }
  return v;
}

int runall() {
  resetwork();
  int failed = 0;
  int32_t n = nobs > 0 && nvar > 0 ? nobs : 1;
  for (int32_t i = 0; i < n; ++i) {
    double p, o;
    if (!runprog(i, nullptr, &p, &o)) ++failed;
  }
  return failed;
}

double value(const char* name) {
  Symbol* s = symfind(name);
  return s ? s->value : -999999.0;
}

}  // namespace vexor::kit
