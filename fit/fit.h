// The optimizer: nonlinear least squares by the adaptive NL2SOL routines
// (port/port.h: the drivers dn2f and dn2fb, their IV and V work arrays and
// the iteration hook, which the analysis driver uses directly), and a C++
// entry over them, nlsq_fit, for the tests and the benchmarks.  It depends on
// no other part of the engine.
#pragma once

#include <functional>
#include <vector>

#include "fit/port/port.h"

namespace vexor {

// Residual function: r (n values) at x (p values).  nf: evaluation number on
// entry; set 0 when r cannot be computed at x, negative to stop the run.
using ResidualFn = port::Calcr;

// Work array lengths for n residuals and p parameters: what the routines
// need (port::dn2_livneed, port::dn2_lvneed with RD kept for the regression
// diagnostics).
int nlsq_liv(int p);
int nlsq_lv(int n, int p);

struct NlsqOptions {
  int covreq = -3;        // IV(COVREQ)
  int mxiter = 500;       // IV(MXITER)
  int mxfcal = 50000;     // IV(MXFCAL)
  double tol = 1e-10;     // V(RFCTOL) = tol, V(AFCTOL) = min(default, tol)
  port::ItsumHook hook;   // installed for this fit when not empty (see ditsum)
  port::Calcj jacobian;   // when not empty: the Jacobian (dn2g, dn2gb), not differences
};

struct NlsqResult {
  int status = 0;          // IV(1): final code 3..15, or 1/2 after NF < 0
  int iterations = 0;      // IV(NITER)
  int nfcall = 0;          // IV(NFCALL): residual evaluations of the iteration
  int ngcall = 0;          // IV(NGCALL): Jacobians
  int evaluations = 0;     // every call of the residual function
  double sse = 0.0;        // 2 V(F): residual sum of squares at x
  int covstatus = 0;       // IV(COVMAT): > 0 computed, else none (see port/regression.cpp)
  bool bounded = false;    // true when the bounded driver ran
  std::vector<double> x;   // final parameters
  std::vector<double> cov; // p*p row-major covariance (empty when none)
  std::vector<int> iv;     // the work arrays as the run left them
  std::vector<double> v;
};

// Fits x (start values in, p = x.size()) to n residuals.  lower/upper are
// either empty or p values each; infinite entries mean no bound.  The
// bounded driver dn2fb (dn2gb with a Jacobian) runs when any bound is
// finite, dn2f (dn2g) otherwise.  IV and
// V are allocated once per call.
NlsqResult nlsq_fit(int n, const std::vector<double>& x0, const ResidualFn& residual,
                    const NlsqOptions& options = {},
                    const std::vector<double>& lower = {},
                    const std::vector<double>& upper = {});

}  // namespace vexor
