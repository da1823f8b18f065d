// Default values of IV and V (divset, dv7dfl) and their range check (dparck).
#include <cmath>
#include <limits>

#include "fit/port/port.h"

namespace vexor::port {

// V defaults.  machep = dr7mdc(3); tolerances are powers of it so that they
// follow the arithmetic: RFCTOL = max(1e-10, machep^(2/3)), XCTOL = sqrt(machep),
// XFTOL = 100*machep, DLTFDC = machep^(1/3), DLTFDJ = DELTA0 = sqrt(machep).
void dv7dfl(int alg, int lv, double* v) {
  if (lv < NVDFLT) return;
  const double machep = dr7mdc(3);
  const double mepcrt = std::cbrt(machep);
  const double sqteps = dr7mdc(4);
  R(v, AFCTOL) = std::max(1e-20, machep * machep);
  R(v, COSMIN) = std::max(1e-6, 100.0 * machep);
  R(v, DECFAC) = 0.5;
  R(v, DELTA0) = sqteps;
  R(v, DFAC) = 0.6;
  R(v, DINIT) = (alg == 1) ? 0.0 : -1.0;
  R(v, DLTFDC) = mepcrt;
  R(v, DLTFDJ) = sqteps;
  R(v, DTINIT) = 1e-6;
  R(v, D0INIT) = 1.0;
  R(v, EPSLON) = 0.1;
  R(v, FUZZ) = 1.5;
  R(v, HUBERC) = 0.7;
  R(v, INCFAC) = 2.0;
  R(v, LMAX0) = 1.0;
  R(v, LMAXS) = 1.0;
  R(v, PHMNFC) = -0.1;
  R(v, PHMXFC) = 0.1;
  R(v, RDFCMN) = 0.1;
  R(v, RDFCMX) = 4.0;
  R(v, RFCTOL) = std::max(1e-10, mepcrt * mepcrt);
  R(v, RLIMIT) = dr7mdc(5);
  R(v, RSPTOL) = 1e-3;
  R(v, SCTOL) = R(v, RFCTOL);
  R(v, SIGMIN) = 1e-4;
  R(v, TUNER1) = 0.1;
  R(v, TUNER2) = 1e-4;
  R(v, TUNER3) = 0.75;
  R(v, TUNER4) = 0.5;
  R(v, TUNER5) = 0.75;
  R(v, XCTOL) = sqteps;
  R(v, XFTOL) = 100.0 * machep;
}

// divset(alg, ...): alg 1 is nonlinear regression, the only kind this build
// supports; any other value ends with IV(1) = 67.
void divset(int alg, int* iv, int liv, int lv, double* v) {
  if (liv < IVLAST_FIXED) {
    if (liv >= 1) I(iv, IV_STATUS) = 14;
    if (liv >= IVNEED) I(iv, IVNEED) = IVLAST_FIXED;
    return;
  }
  for (int k = 1; k <= IVLAST_FIXED; ++k) I(iv, k) = 0;
  if (alg != 1) {
    I(iv, IV_STATUS) = 67;
    return;
  }
  I(iv, ALGSAV) = alg;
  I(iv, LASTIV) = liv;
  I(iv, LASTV) = lv;
  if (lv < VLAST_FIXED) {
    I(iv, IV_STATUS) = 14;
    I(iv, VNEED) = VLAST_FIXED;
    return;
  }
  I(iv, IV_STATUS) = 12;
  I(iv, COVPRT) = 3;
  I(iv, COVREQ) = 1;
  I(iv, DTYPE) = 1;
  I(iv, MXFCAL) = 200;
  I(iv, MXITER) = 150;
  I(iv, OUTLEV) = 1;
  I(iv, PARPRT) = 1;
  I(iv, PRUNIT) = i1mach(2);
  I(iv, SOLPRT) = 1;
  I(iv, STATPR) = 1;
  I(iv, X0PRT) = 1;
  I(iv, INITS) = 0;
  I(iv, RDREQ) = 3;
  I(iv, NEXTIV) = IVLAST_FIXED + 1;
  I(iv, NEXTV) = VLAST_FIXED + 1;
  for (int k = 1; k <= VLAST_FIXED; ++k) R(v, k) = 0.0;
  dv7dfl(alg, lv, v);
}

namespace {
// Allowed range of each checked V element, EPSLON (19) to FUZZ (45): a value
// outside [lo, hi] ends the run with IV(1) = its subscript.
struct Range { double lo, hi; };
}  // namespace

void dparck(int alg, const double* d, int* iv, int liv, int lv, int n, double* v) {
  (void)d;
  (void)liv;
  (void)lv;
  (void)n;
  if (alg != 1) {
    I(iv, IV_STATUS) = 67;
    return;
  }
  const double machep = d1mach(4);
  const double big = d1mach(2);
  const double inf = std::numeric_limits<double>::infinity();
  const Range ranges[] = {
      {1e-10, 1.0 - 1e-10},    // 19 EPSLON
      {-1.0, 0.0},             // 20 PHMNFC
      {0.0, big},              // 21 PHMXFC
      {1e-10, 1.0 - 1e-10},    // 22 DECFAC
      {1.0, big},              // 23 INCFAC
      {1e-10, 1.0},            // 24 RDFCMN
      {1.0, big},              // 25 RDFCMX
      {1e-10, 1.0},            // 26 TUNER1
      {1e-10, 1.0},            // 27 TUNER2
      {1e-10, 1.0},            // 28 TUNER3
      {-1.0, 1.0},             // 29 TUNER4
      {0.0, 1.0},              // 30 TUNER5
      {0.0, 1.0},              // 31 AFCTOL
      {machep, 1.0},           // 32 RFCTOL
      {0.0, 1.0},              // 33 XCTOL
      {0.0, 1.0},              // 34 XFTOL
      {1e-10, big},            // 35 LMAX0
      {1e-10, big},            // 36 LMAXS
      {0.0, 1.0},              // 37 SCTOL
      {-inf, big},             // 38 DINIT
      {-inf, big},             // 39 DTINIT
      {0.0, big},              // 40 D0INIT
      {0.0, 1.0},              // 41 DFAC
      {machep, 1.0},           // 42 DLTFDC
      {machep, 1.0},           // 43 DLTFDJ
      {machep, 1.0},           // 44 DELTA0
      {1e-10, big},            // 45 FUZZ
  };
  for (int k = EPSLON; k <= FUZZ; ++k) {
    const Range& rg = ranges[k - EPSLON];
    const double x = R(v, k);
    if (!(x >= rg.lo && x <= rg.hi)) {
      I(iv, IV_STATUS) = k;
      return;
    }
  }
}

}  // namespace vexor::port
