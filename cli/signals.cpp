// SIGINT (Ctrl-C) and SIGTERM: the run in progress is stopped through the
// engine's cancel, which is safe in a signal handler (it stores an atomic
// flag), so the run ends as an aborted one and the listing so far is
// printed.  The handler puts the default action back, so a second signal
// ends the process at once, for a user whose run does not stop soon enough.
#include <csignal>

#include "cli/cli.h"
#include "vexor/vexor.h"

namespace vexor::cli {

namespace {

volatile std::sig_atomic_t caught = 0;

extern "C" void onsignal(int sig) {
  caught = sig;
  vexor::cancel();
  std::signal(sig, SIG_DFL);
}

}  // namespace

void catchsignals() {
  std::signal(SIGINT, onsignal);
  std::signal(SIGTERM, onsignal);
}

int caughtsignal() { return caught; }

}  // namespace vexor::cli
