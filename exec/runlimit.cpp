// The run's abort flag and what raises it: a host's cancel (from any thread,
// or from a signal handler) and the time limit of a run.
//
// The flag is an atomic, so that another thread or a signal handler may set
// it while the interpreter reads it before every instruction.  The time
// limit costs no thread: the interpreter (every POLLEVERY instructions), the
// block evaluator (every block), the residual function and the optimizer's
// iteration hook ask pastdeadline(), which reads the clock and raises the
// abort flag once the deadline has passed.  A run whose abort flag is up
// ends as the engine ends an aborted run: "Aborting analysis..." and the
// result -10 ("Analysis was aborted").
#include <chrono>

#include "exec/exec.h"

namespace vexor {

std::atomic<int> abortflag{0};
std::atomic<int> runtimedout{0};
double runtimelimit = 0.0;

namespace {

using Clock = std::chrono::steady_clock;
bool armed = false;
Clock::time_point deadline;

}  // namespace

void startrun() {
  abortflag = 0;
  abortreported = 0;
  runtimedout = 0;
  armed = runtimelimit > 0.0;
  if (armed) {
    // A limit too large for the clock's range is no limit.
    const double maxsec = 1e9;
    const double s = runtimelimit < maxsec ? runtimelimit : maxsec;
    deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                  std::chrono::duration<double>(s));
  }
}

bool pastdeadline() {
  if (abortflag) return true;
  if (!armed || Clock::now() < deadline) return false;
  runtimedout = 1;
  abortflag = 1;
  return true;
}

void cancelrun() { abortflag = 1; }

}  // namespace vexor
