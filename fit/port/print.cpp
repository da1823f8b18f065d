// Iteration summary, covariance and diagnostics printing.
//
// This build has no output unit: the printing routines keep their places in
// the algorithm (the cores call them where the library prints) but write
// nothing whatever the print controls say.  ditsum first calls the hook that
// the embedding installed, which is how the engine follows the iterations.
#include <utility>

#include "fit/port/port.h"

namespace vexor::port {

namespace {
ItsumHook& hook_slot() {
  static ItsumHook hook;
  return hook;
}
}  // namespace

ItsumHook set_itsum_hook(ItsumHook hook) {
  ItsumHook old = std::move(hook_slot());
  hook_slot() = std::move(hook);
  return old;
}

void ditsum(const double* d, const double* g, int* iv, int liv, int lv, int p,
            const double* v, const double* x) {
  (void)d; (void)g; (void)liv; (void)lv; (void)p; (void)x;
  if (const ItsumHook& hook = hook_slot()) hook(iv, v);
  if (I(iv, OUTLEV) == 0) return;
  // Nonzero OUTLEV: nothing to print to (see the file comment).
}

void dn2cvp(int* iv, int liv, int lv, int p, const double* v) {
  (void)iv; (void)liv; (void)lv; (void)p; (void)v;
}

void dn2rdp(int* iv, int liv, int lv, int n, const double* rd, const double* v) {
  (void)iv; (void)liv; (void)lv; (void)n; (void)rd; (void)v;
}

}  // namespace vexor::port
