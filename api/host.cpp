// Host settings that are not methods of the analysis object: the reaction
// to a comment left open, stopping a run, its time limit, the memory limit
// of the engine's large arrays, threads and vector math.
#include <cmath>
#include <cstddef>

#include <string>

#include "analysis/analysis.h"
#include "exec/exec.h"
#include "support/support.h"
#include "vexor/vexor.h"

namespace vexor {

LexExitHandler setlexexithandler(LexExitHandler handler) { return setlexexit(handler); }

void cancel() { cancelrun(); }

void setthreads(int count) { runthreads = count > 0 ? count : 0; }

int threads() { return threadcount(); }

void setvectormath(bool on) { vecmath = on ? 1 : 0; }

bool vectormath() { return vecmathactive(); }

void setderivatives(bool exact) { derivexact = exact ? 1 : 0; }

void setboundederrors(bool on) { boundedse = on ? 1 : 0; }

bool boundederrors() { return boundedse != 0; }

bool exactderivatives() { return derivexact != 0; }

const char* differencedcolumns() {
  static std::string text;
  text.clear();
  for (int32_t k = 0; k < nparm && k < static_cast<int32_t>(diffcolumns.size()); ++k) {
    if (!diffcolumns[k]) continue;
    if (!text.empty()) text += ", ";
    text += parms[k]->name;
  }
  if (!text.empty() && !diffreason.empty()) text += ": " + diffreason;
  return text.c_str();
}

void settimelimit(double seconds) {
  runtimelimit = std::isfinite(seconds) && seconds > 0.0 ? seconds : 0.0;
}

double timelimit() { return runtimelimit; }

bool timedout() { return runtimedout != 0; }

void setmemorylimit(double bytes) {
  if (!(bytes > 0.0)) {
    setmemlimit(0);
    return;
  }
  const double most = static_cast<double>(static_cast<std::size_t>(-1) / 2);
  setmemlimit(static_cast<std::size_t>(bytes < most ? bytes : most));
}

}  // namespace vexor
