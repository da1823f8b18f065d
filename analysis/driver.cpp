// The analysis driver.
//
// analyze() is what Compute runs: it checks the problem size, allocates the
// arrays of the run, fits the parameters once (or over the SWEEP grid, then
// once more from the best grid point), runs the program for every
// observation at the final estimates, and computes the results record
// (results.cpp).  The optimizer sees the model through residual(): one pass
// of the program over the observations per call.
//
// Run-time messages are hidden only while the optimizer iterates (the
// interpreter's `computing` flag is set around each optimizer call); the
// final pass, the output passes and the size check show theirs.
#include "analysis/analysis.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "fit/fit.h"

namespace vexor {

double* predvec = nullptr;
double* obsvec = nullptr;
double* thirdvec = nullptr;
double* covmat = nullptr;
int32_t* ivwork = nullptr;
double* vwork = nullptr;

int32_t iterations = 0;
double finalsumsq = 0.0;
double curfuncval = 0.0;
int32_t covstatus = 0;
long nevaluations = 0;
int32_t nfits = 0;
int hasresults = 0;
double starttime = 0.0;
int sweepactive = 0;
int32_t sweeppoint = 0;
int computeon = 1;
ProgressHook progresshook = nullptr;
FitHook fithook = nullptr;
int derivexact = 0;
int boundedse = 0;
std::vector<uint8_t> heldparms;
std::vector<uint8_t> diffcolumns;
std::string diffreason;

namespace {

int32_t hookiterations = 0;  // iteration count kept by the iteration hook
int32_t liv = 0;
int32_t lv = 0;

void release(void*& p) {
  if (p) memfree(p);
  p = nullptr;
}

template <class T>
void release(T*& p) {
  void* q = p;
  release(q);
  p = nullptr;
}

double* zeroed(long count) {
  double* p = memallocdoubles("comp", count > 0 ? count : 1);
  if (p) std::memset(p, 0, static_cast<std::size_t>(count > 0 ? count : 1) * sizeof(double));
  return p;
}

// The residual vector at x: predicted minus observed for every observation,
// or, in a minimisation, sqrt(|f|)/sqrt(n) repeated n times so that the sum
// of squares is |f|.  A run that fails or yields a value that is not finite
// makes the point unusable (nf = 0): the optimizer shortens its step.
// The start of a pass over the data at x: counted, stopped (nf = -1) at
// the time limit, else the parameters set and the work variables reset.
bool startpass(int p, const double* x, int& nf) {
  ++nevaluations;
  if (pastdeadline()) {
    nf = -1;
    return false;
  }
  for (int k = 0; k < p; ++k) parms[k]->value = x[k];
  resetwork();
  return true;
}

void residual(int n, int p, const double* x, int& nf, double* r) {
  if (!startpass(p, x, nf)) return;
  double pred = 0.0, obs = 0.0;
  if (!minimize) {
    // A pure model goes through the block evaluator, which gives the same
    // values; from the first block it cannot take (a run-time error or a
    // residual that is not finite) runprog does the rest, so every failure
    // is found and flagged by the interpreter itself.
    const int first = batchready() ? batchpass(n, r, nullptr) : 0;
    for (int i = first; i < n; ++i) {
      int ok = runprog(i, nullptr, &pred, &obs);
      double ri = pred - obs;
      if (!ok || errflag || !std::isfinite(ri)) {
        r[i] = 0.0;
        nf = 0;
        return;
      }
      r[i] = ri;
    }
    return;
  }
  int ok = runprog(0, nullptr, &pred, &obs);
  double f = pred - obs;
  double r0 = std::sqrt(std::fabs(f)) / std::sqrt(static_cast<double>(nobs));
  if (!ok || errflag || !std::isfinite(r0)) {
    for (int i = 0; i < n; ++i) r[i] = 0.0;
    nf = 0;
    return;
  }
  for (int i = 0; i < n; ++i) r[i] = r0;
}

// The Jacobian of the residuals at x from the program's derivatives
// (derivrun), for the optimizer's dn2g and dn2gb: column j of dr holds
// d r_i / d x_j.  A regression's residual is predicted minus observed; a
// minimisation's, sqrt(|f| / n) for every i, has the derivative
// sign(f) f' / (2 sqrt(|f| n)).  The columns of the parameters marked in
// diffcolumns (their derivatives met a built-in argument without a rule,
// or were not finite), and any column that is not finite, are forward
// differences with the optimizer's relative step (DLTFDJ, the square root
// of the machine precision, times max(|x_j|, 1)), taken towards the inside
// of the bounds.  The residuals at x come from the same runs.
const double* fitbounds = nullptr;  // the bounds of the fit (2 per parameter), or null

void exactjacobianpass(int n, int p, const double* x, int& nf, double* dr,
                       const port::JacobianRows* rows);

// The Jacobian, or none (nf = 0) when the memory for it runs out.  rows
// (when not null) is told of the rows finished by a pass by blocks, so
// that the optimizer factors them while the rest are computed, and told
// to forget them when a column is then differenced.
void exactjacobian(int n, int p, const double* x, int& nf, double* dr,
                   const port::JacobianRows* rows) {
  try {
    exactjacobianpass(n, p, x, nf, dr, rows);
  } catch (const std::bad_alloc&) {
    if (rows) (*rows)(-1);
    nf = 0;
  }
}

void exactjacobianpass(int n, int p, const double* x, int& nf, double* dr,
                       const port::JacobianRows* rows) {
  if (!startpass(p, x, nf)) return;
  derivreset(&diffcolumns);
  std::vector<double> tp(static_cast<std::size_t>(p)), to(static_cast<std::size_t>(p));
  // The residuals at x, for the columns differenced: kept by the
  // interpreter's pass; after a pass by blocks (which keeps none, to hold
  // no n values more than the Jacobian) computed again when some column
  // needs them.
  std::vector<double> r0;
  // Per column: 1 when it holds a value that is not finite, 0 when not, 2
  // when not yet known.
  std::vector<uint8_t> nonfinite(static_cast<std::size_t>(p), 2);
  double pred = 0.0, obs = 0.0;
  std::function<void(int32_t)> follow;
  if (rows) follow = [rows](int32_t k) { (*rows)(k); };
  if (!minimize && batchready() &&
      batchjacobian(n, nullptr, dr, &diffcolumns, &nonfinite, rows ? &follow : nullptr) == n) {
    bool differenced = false;
    for (int j = 0; j < p && !differenced; ++j) differenced = diffcolumns[j] != 0 || nonfinite[j] != 0;
    if (differenced) {
      if (rows) (*rows)(-1);
      r0.resize(static_cast<std::size_t>(n));
      residual(n, p, x, nf, r0.data());
      if (nf <= 0) return;
    }
  } else if (!minimize) {
    // (A pass by blocks that gave up has changed nothing.)
    r0.resize(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
      const int ok = derivrun(i, &pred, &obs, tp.data(), to.data());
      r0[i] = pred - obs;
      if (!ok || errflag || !std::isfinite(r0[i])) {
        nf = 0;
        return;
      }
      for (int j = 0; j < p; ++j) dr[static_cast<std::size_t>(j) * n + i] = tp[j] - to[j];
    }
  } else {
    const int ok = derivrun(0, &pred, &obs, tp.data(), to.data());
    const double f = pred - obs;
    const double root = std::sqrt(std::fabs(f)) / std::sqrt(static_cast<double>(nobs));
    if (!ok || errflag || !std::isfinite(root)) {
      nf = 0;
      return;
    }
    const double scale = (f < 0 ? -1.0 : 1.0) / (2.0 * std::sqrt(std::fabs(f)) * std::sqrt(static_cast<double>(nobs)));
    r0.assign(static_cast<std::size_t>(n), root);
    for (int j = 0; j < p; ++j) {
      const double g = (tp[j] - to[j]) * scale;
      for (int i = 0; i < n; ++i) dr[static_cast<std::size_t>(j) * n + i] = g;
    }
  }
  if (const char* why = derivreason())
    if (diffreason.empty()) diffreason = why;
  // The columns differenced.
  std::vector<double> xh(x, x + p);
  for (int j = 0; j < p; ++j) {
    double* col = dr + static_cast<std::size_t>(j) * n;
    bool finite = nonfinite[j] == 0;
    if (nonfinite[j] == 2) {
      finite = true;
      for (int i = 0; i < n && finite; ++i) finite = std::isfinite(col[i]);
    }
    if (!finite && !diffcolumns[j]) {
      diffcolumns[j] = 1;
      if (diffreason.empty()) diffreason = "a derivative was not finite";
    }
    if (!diffcolumns[j]) continue;
    const double hlim = 1e3 * port::d1mach(4);
    double h = std::sqrt(port::d1mach(4)) * std::max(std::fabs(x[j]), 1.0);
    if (fitbounds && x[j] + h > fitbounds[2 * j + 1]) h = -h;
    for (;;) {
      xh[j] = x[j] + h;
      int nfh = 1;
      residual(n, p, xh.data(), nfh, col);
      xh[j] = x[j];
      if (nfh < 0) {
        nf = -1;
        return;
      }
      if (nfh > 0) break;
      h *= -0.5;
      if (std::fabs(h) < hlim) {
        nf = 0;
        return;
      }
    }
    for (int i = 0; i < n; ++i) col[i] = (col[i] - r0[i]) / h;
  }
  for (int k = 0; k < p; ++k) parms[k]->value = x[k];
}

// The covariance of the estimates of a bounded fit at its solution x, as
// an unbounded fit computes it there: sigma^2 (J'J)^-1 with sigma^2 =
// RSS / (n - p), over the parameters not held on a bound (x_k at b_k's
// lower or upper end); the rows and columns of the held ones are 0 and
// they are marked in heldparms.  J is the exact Jacobian in exact mode,
// else forward differences with the optimizer's relative step, taken
// towards the inside of the bounds.  Returns 1, or 0 when J'J is not
// positive definite (or the model cannot be run at x).
int boundedcovariance(int n, int p, const double* x, const double* b, double rss) {
  heldparms.assign(static_cast<std::size_t>(p), 0);
  std::vector<int> freeidx;
  for (int k = 0; k < p; ++k) {
    if (x[k] <= b[2 * k] || x[k] >= b[2 * k + 1]) heldparms[k] = 1;
    else freeidx.push_back(k);
  }
  std::memset(covmat, 0, static_cast<std::size_t>(p) * p * sizeof(double));
  const int m = static_cast<int>(freeidx.size());
  if (m == 0 || n <= p) return 0;
  std::vector<double> jac(static_cast<std::size_t>(n) * p), r0(static_cast<std::size_t>(n));
  int nf = 1;
  const int keep = computing;
  computing = 1;
  if (derivexact && derivready()) {
    fitbounds = b;
    exactjacobian(n, p, x, nf, jac.data(), nullptr);
    fitbounds = nullptr;
  } else {
    std::vector<double> xh(x, x + p);
    residual(n, p, xh.data(), nf, r0.data());
    for (int idx = 0; idx < m && nf > 0; ++idx) {
      const int j = freeidx[idx];
      double h = std::sqrt(port::d1mach(4)) * std::max(std::fabs(x[j]), 1.0);
      if (x[j] + h > b[2 * j + 1]) h = -h;
      xh[j] = x[j] + h;
      double* col = jac.data() + static_cast<std::size_t>(j) * n;
      residual(n, p, xh.data(), nf, col);
      xh[j] = x[j];
      for (int i = 0; i < n; ++i) col[i] = (col[i] - r0[i]) / h;
    }
  }
  computing = keep;
  for (int k = 0; k < p; ++k) parms[k]->value = x[k];
  if (nf <= 0) return 0;
  // A = J_F' J_F, its Cholesky factor L, then A^-1 column by column.
  std::vector<double> a(static_cast<std::size_t>(m) * m);
  for (int r = 0; r < m; ++r)
    for (int c = 0; c <= r; ++c) {
      const double* jr = jac.data() + static_cast<std::size_t>(freeidx[r]) * n;
      const double* jc = jac.data() + static_cast<std::size_t>(freeidx[c]) * n;
      double sum = 0.0;
      for (int i = 0; i < n; ++i) sum += jr[i] * jc[i];
      a[static_cast<std::size_t>(r) * m + c] = a[static_cast<std::size_t>(c) * m + r] = sum;
    }
  std::vector<double> l(static_cast<std::size_t>(m) * m, 0.0);
  for (int r = 0; r < m; ++r)
    for (int c = 0; c <= r; ++c) {
      double sum = a[static_cast<std::size_t>(r) * m + c];
      for (int k = 0; k < c; ++k) sum -= l[static_cast<std::size_t>(r) * m + k] * l[static_cast<std::size_t>(c) * m + k];
      if (r == c) {
        if (!(sum > 0.0)) return 0;
        l[static_cast<std::size_t>(r) * m + r] = std::sqrt(sum);
      } else {
        l[static_cast<std::size_t>(r) * m + c] = sum / l[static_cast<std::size_t>(c) * m + c];
      }
    }
  const double sigma2 = rss / (n - p);
  std::vector<double> e(static_cast<std::size_t>(m));
  for (int c = 0; c < m; ++c) {
    // Solve L L' e = unit vector c.
    for (int r = 0; r < m; ++r) {
      double sum = r == c ? 1.0 : 0.0;
      for (int k = 0; k < r; ++k) sum -= l[static_cast<std::size_t>(r) * m + k] * e[k];
      e[r] = sum / l[static_cast<std::size_t>(r) * m + r];
    }
    for (int r = m - 1; r >= 0; --r) {
      double sum = e[r];
      for (int k = r + 1; k < m; ++k) sum -= l[static_cast<std::size_t>(k) * m + r] * e[k];
      e[r] = sum / l[static_cast<std::size_t>(r) * m + r];
    }
    for (int r = 0; r < m; ++r)
      covmat[static_cast<std::size_t>(freeidx[r]) * p + freeidx[c]] = sigma2 * e[r];
  }
  return 1;
}

// Called first thing in every iteration summary of the optimizer.
void iterationhook(const int* iv, const double* v) {
  pastdeadline();  // the next residual request then stops the run
  hookiterations = port::I(iv, port::NITER);
  curfuncval = 2.0 * port::R(v, port::F);
  if (minimize && echo)
    std::printf("  Iteration %3d.  Absolute value of function =%13.5lE\n",
                static_cast<int>(hookiterations), curfuncval);
  if (progresshook) progresshook(hookiterations, curfuncval);
}

// The engine's result code for the optimizer's return code IV(1).
int mapcode(int ivcode) {
  switch (ivcode) {
    case 3: return 5;
    case 4: return 4;
    case 5: return 6;
    case 6: return 3;
    case 7: return 2;
    case 8: return 1;
    case 9: return -6;
    case 10: return -1;
    case 13: return -2;
    case 15: return -4;
    default: return -3;
  }
}

// One optimizer run from the parameters' current values.
int fit() {
  ++nfits;
  const int32_t p = nparm;
  const int32_t n = nobs;
  int* iv = ivwork;
  double* v = vwork;
  std::memset(iv, 0, static_cast<std::size_t>(liv) * sizeof(int32_t));
  std::memset(v, 0, static_cast<std::size_t>(lv) * sizeof(double));
  port::divset(1, iv, liv, lv, v);
  double afcdefault = port::R(v, port::AFCTOL);
  port::I(iv, port::COVPRT) = 0;
  port::I(iv, port::COVREQ) = covreq;
  port::I(iv, port::MXFCAL) = evallimit(maxiter);
  port::I(iv, port::MXITER) = maxiter;
  port::I(iv, port::OUTLEV) = 0;
  port::I(iv, port::PARPRT) = 0;
  port::I(iv, port::SOLPRT) = 0;
  port::I(iv, port::STATPR) = 0;
  port::I(iv, port::X0PRT) = 0;
  port::R(v, port::RFCTOL) = tolerance;
  port::R(v, port::AFCTOL) = afcdefault < tolerance ? afcdefault : tolerance;
  // The regression diagnostics are never reported, so only the covariance
  // is asked for, and the routines keep no second residual vector (RD):
  // n doubles less on a large problem (see allocate).
  port::I(iv, port::RDREQ) = 1;

  // x, then the starting values kept for fithook.
  double* x = memallocdoubles("comp", 2 * p);
  double* start = x + p;
  for (int32_t k = 0; k < p; ++k) start[k] = x[k] = parms[k]->value;
  int nbounded = 0;
  for (int32_t k = 0; k < p; ++k)
    if (parms[k]->constrained) ++nbounded;

  port::Calcr calcr = residual;
  const bool exact = derivexact && derivready();
  port::Calcj calcj = exactjacobian;
  // With an exact Jacobian a TOLERANCE below the default is reached only
  // when the singular-convergence tolerance follows it: otherwise a full
  // Gauss-Newton step that promises less than the default's share of f ends
  // the fit as singular convergence, at the point a larger TOLERANCE would
  // have called relative function convergence.  With differences the
  // singular-convergence tolerance keeps its default.
  if (exact) port::R(v, port::SCTOL) = std::min(port::R(v, port::SCTOL), tolerance);
  computing = 1;
  if (nbounded > 0) {
    double* b = static_cast<double*>(memalloc(static_cast<std::size_t>(2 * (p + 2)) * sizeof(double), "bvec"));
    for (int32_t k = 0; k < p; ++k) {
      b[2 * k] = parms[k]->lower;
      b[2 * k + 1] = parms[k]->upper;
    }
    fitbounds = b;
    if (exact)
      port::dn2gb(n, p, x, b, calcr, calcj, iv, liv, lv, v);
    else
      port::dn2fb(n, p, x, b, calcr, iv, liv, lv, v);
    fitbounds = nullptr;
    memfree(b);
  } else if (exact) {
    port::dn2g(n, p, x, calcr, calcj, iv, liv, lv, v);
  } else {
    port::dn2f(n, p, x, calcr, iv, liv, lv, v);
  }
  computing = 0;

  int covpos = port::I(iv, port::COVMAT);
  heldparms.clear();
  if (nbounded > 0 && boundedse && !minimize) {
    // Standard errors of the parameters not held on a bound.
    double* bb = static_cast<double*>(memalloc(static_cast<std::size_t>(2 * (p + 2)) * sizeof(double), "bvec"));
    for (int32_t k = 0; k < p; ++k) {
      bb[2 * k] = parms[k]->lower;
      bb[2 * k + 1] = parms[k]->upper;
    }
    const int ivs = port::I(iv, port::IV_STATUS);
    const bool converged = ivs >= 3 && ivs <= 6;
    int ok = 0;
    try {
      ok = converged && !abortflag && boundedcovariance(n, p, x, bb, 2.0 * port::R(v, port::F));
    } catch (const std::bad_alloc&) {
      ok = 0;
    }
    covstatus = ok ? 1 : -1;
    memfree(bb);
    if (covstatus < 0) std::memset(covmat, 0, static_cast<std::size_t>(p) * p * sizeof(double));
  } else if (covpos < 1) {
    covstatus = covpos;
    if (nbounded > 0 && covprint) {
      covstatus = -3;
      covprint = 0;
    }
    covreq = 0;  // later fits of this program ask for no covariance
    std::memset(covmat, 0, static_cast<std::size_t>(p) * p * sizeof(double));
  } else {
    covstatus = covpos;
    // The packed lower triangle, row by row: (i, j) for j <= i.
    const double* packed = v + (covpos - 1);
    for (int32_t i = 0, k = 0; i < p; ++i) {
      for (int32_t j = 0; j <= i; ++j, ++k) {
        covmat[i * p + j] = packed[k];
        covmat[j * p + i] = packed[k];
      }
    }
  }
  if (!abortflag) {
    iterations = port::I(iv, port::NITER);
    finalsumsq = 2.0 * port::R(v, port::F);
  }
  int result = abortflag ? -10 : mapcode(port::I(iv, port::IV_STATUS));
  for (int32_t k = 0; k < p; ++k) parms[k]->value = x[k];
  if (fithook) {
    FitRecord rec{};
    rec.number = nfits;
    rec.sweeppoint = sweepactive ? sweeppoint : 0;
    rec.bounded = nbounded > 0;
    rec.ivstatus = port::I(iv, port::IV_STATUS);
    rec.mxfcal = port::I(iv, port::MXFCAL);
    rec.mxiter = port::I(iv, port::MXITER);
    rec.niter = port::I(iv, port::NITER);
    rec.result = result;
    rec.npar = p;
    rec.start = start;
    rec.final = x;
    fithook(rec);
  }
  memfree(x);
  return result;
}

void freearrays() {
  release(predvec);
  release(obsvec);
  release(thirdvec);
  release(covmat);
  release(ivwork);
  release(vwork);
  hasresults = 0;
}

// Allocates the arrays the fits need: the covariance matrix and the
// optimizer's work arrays, IV and V, of the lengths the routines need (for
// p >= 84 more than the library's LV formula gives, for a large n less,
// since no RD is kept).  The three per-observation vectors come later
// (allocateresults), once IV and V are freed, so that a problem of millions
// of observations never holds both: the peak is the data, the Jacobian and
// one residual vector.
bool allocate() {
  freearrays();
  const long p = nparm;
  const long long need = port::dn2_lvneed(nobs, nparm, port::dn2_keeprd(1, covreq));
  if (need > INT32_MAX) return false;
  liv = port::dn2_livneed(nparm);
  lv = static_cast<int32_t>(need);
  covmat = zeroed(p * p);
  ivwork = memallocints("comp", liv);
  vwork = static_cast<double*>(memalloczero(static_cast<std::size_t>(lv) * sizeof(double), "comp"));
  if (!covmat || !ivwork || !vwork) return false;
  std::memset(ivwork, 0, static_cast<std::size_t>(liv) * sizeof(int32_t));
  return true;
}

// The per-observation vectors of the run, zero-filled.
bool allocateresults() {
  const long n = nobs;
  predvec = zeroed(n);
  obsvec = zeroed(n);
  thirdvec = zeroed(n);
  return predvec && obsvec && thirdvec;
}

// The SWEEP grid: every combination of the swept parameters' steps, the
// last swept parameter fastest, then one final fit from the best point.
int sweepgrid(int result) {
  double best = 1e20;
  double bestvalue[MAXSWEEPS];
  for (int32_t s = 0; s < nsweep; ++s) {
    sweeps[s].current = 0;
    bestvalue[s] = sweeps[s].parm->initval;
  }
  sweepactive = 1;
  for (int32_t k = 1;; ++k) {
    sweeppoint = k;
    for (int32_t j = 0; j < nparm; ++j) parms[j]->value = parms[j]->initval;
    for (int32_t s = 0; s < nsweep; ++s)
      sweeps[s].parm->value = sweeps[s].start + sweeps[s].current * sweeps[s].step;
    int r = fit();
    if (r > 2 && finalsumsq < best) {
      if (r > result) result = r;
      best = finalsumsq;
      for (int32_t s = 0; s < nsweep; ++s)
        bestvalue[s] = sweeps[s].start + sweeps[s].current * sweeps[s].step;
    }
    // The odometer.
    int32_t s = nsweep - 1;
    while (s >= 0) {
      if (++sweeps[s].current <= sweeps[s].count) break;
      sweeps[s].current = 0;
      --s;
    }
    if (s < 0 || abortflag) break;
  }
  sweepactive = 0;
  if (abortflag) return result;
  for (int32_t j = 0; j < nparm; ++j) parms[j]->value = parms[j]->initval;
  for (int32_t s = 0; s < nsweep; ++s) {
    sweeps[s].parm->value = bestvalue[s];
    sweeps[s].parm->initval = bestvalue[s];
  }
  return fit();
}

}  // namespace

// 100 evaluations per iteration, but 16000 when that is below 20000: so
// limits of 161 to 199 iterations get fewer than 100 per iteration and
// limits below 160 get more.
int32_t evallimit(int32_t maxiterations) {
  // 100 per iteration, worked out wide so that a huge ITERATIONS setting
  // gives the largest count instead of overflowing.
  int64_t limit = int64_t{100} * maxiterations;
  if (limit > INT32_MAX) limit = INT32_MAX;
  return limit < 20000 ? 16000 : static_cast<int32_t>(limit);
}

void freeresults() {
  freearrays();
  clearresults();
}

int analyze() {
  results.ready = 0;
  iterations = 1;
  startrun();
  clearoutputrecords();
  sweepactive = 0;
  curfuncval = 0.0;
  hookiterations = 0;
  nevaluations = 0;
  nfits = 0;
  computing = 0;
  if (nvar > 0 && nobs < nparm) {
    runerror("Fewer data observations than parameters");
    return -7;
  }
  starttime = anaclock();
  if (!computeon) return 1;

  if (!allocate()) {
    freearrays();
    runerror("Insufficient memory space available");
    return -3;
  }
  port::ItsumHook oldhook = port::set_itsum_hook(iterationhook);
  // Whether the residual passes of this Compute go by blocks, and then
  // the threads that share the blocks of each pass: from 4096 observations
  // (16 blocks) on; below that a pass takes less than the threads' start.
  threadsused = 1;
  if (batchprepare() && nobs >= 4096) threadsstart();
  diffcolumns.assign(static_cast<std::size_t>(nparm), 0);
  diffreason.clear();
  if (derivexact && !derivprepare()) {
    // The program's derivatives cannot be followed: every column by
    // differences.
    diffcolumns.assign(static_cast<std::size_t>(nparm), 1);
    diffreason = "the program cannot be differentiated exactly (a very deep expression, an assignment to a "
                 "parameter, or work arrays too large)";
  }
  int result = 2;
  outprintf("\nBeginning computation...\n");
  if (nsweep == 0) {
    for (int32_t j = 0; j < nparm; ++j) parms[j]->value = parms[j]->initval;
    result = fit();
  } else {
    result = sweepgrid(result);
  }
  port::set_itsum_hook(oldhook);
  if (abortflag) {
    result = -10;
    iterations = hookiterations;
  }
  release(ivwork);
  release(vwork);
  if (!allocateresults()) {
    threadsstop();
    freearrays();
    runerror("Insufficient memory space available");
    return -3;
  }

  if (!abortflag) {
    // The predicted and observed values at the estimates: by blocks where
    // the program allows (the same values as runprog's; the rest, from a
    // block that fails, by runprog, which reports what it must).
    resetwork();
    const int32_t first = batchready() ? batchpass(nobs, nullptr, predvec, obsvec) : 0;
    for (int32_t i = first; i < nobs; ++i) runprog(i, nullptr, &predvec[i], &obsvec[i]);
    lstprintf("Completed analysis\n");
  }
  threadsstop();
  derivrelease();
  batchjacobianrelease();
  if (result > -2 && !abortflag) hasresults = 1;
  collectresults(result);
  return result;
}

}  // namespace vexor
