// Trust-region steps over a subset of the variables, for the bounded
// iteration when some variables are held on their bounds.
//
// Both routines work in the scaled variables u = D s restricted to the free
// variables idx[0..k-1] and look for the Levenberg-Marquardt parameter
// lambda >= 0 with ||u(lambda)|| close to the radius, unless the Newton step
// (lambda = 0) is shorter: within (1 +- EPSLON) * radius for the
// Gauss-Newton model (lm_step_free), within [(1 + PHMNFC), (1 + PHMXFC)] *
// radius for the augmented one (gqt_step_free).  Outputs in V: STPPAR
// (lambda), DSTNRM (||D s||), NREDUC (reduction the model predicts for its
// Newton step, 0 when the model has none), DST0 (||D s|| of the Newton
// step, -1 when none).
#include <algorithm>
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

namespace {

// Next trial lambda when Newton's update leaves the bracket (lo, hi).
double bracket_mid(double lo, double hi) {
  if (lo <= 0.0) return 1e-3 * hi;
  return std::max(std::sqrt(lo * hi), lo + 1e-2 * (hi - lo));
}

void scatter_step(int k, const int* idx, int p, const double* d, const double* u,
                  double* step) {
  dv7scp(p, step, 0.0);
  for (int m = 0; m < k; ++m) step[idx[m]] = u[m] / d[idx[m]];
}

// Scales u (||u|| = un) back to the radius when too_long, scatters it into
// step and records STPPAR and DSTNRM.
void finish_step(int k, const int* idx, int p, const double* d, double* u, bool too_long,
                 double un, double radius, double lambda, double* step, double* v) {
  if (too_long) {
    const double sc = radius / un;
    for (int m = 0; m < k; ++m) u[m] *= sc;
    un = radius;
  }
  scatter_step(k, idx, p, d, u, step);
  R(v, STPPAR) = lambda;
  R(v, DSTNRM) = un;
}

}  // namespace

// Gauss-Newton model over a subset of free variables (bounds): minimize
// ||R s + qtr||^2 over ||D s|| <= radius with the variables outside
// idx[0..k-1] held at 0.  With A = R_F D_F^-1 (re-triangularized) and c the
// matching part of qtr, the step solves [A; sqrt(lambda) I] u ~ [-c; 0];
// each lambda costs one Givens QR of that stacked matrix (More's method).
// Work: t, t2 packed k*(k+1)/2; w 4*k.  Sets STPPAR, DSTNRM, NREDUC, DST0.
void lm_step_free(const double* d, int k, const int* idx, int p, const double* qtr,
                  const double* rmat, double* step, double* v, double* t, double* t2,
                  double* w, double radius) {
  double* c = w;
  double* u = w + k;
  double* q = w + 2 * k;
  double* row = w + 3 * k;
  const double eps = R(v, EPSLON);
  R(v, NREDUC) = 0.0;
  R(v, DST0) = -1.0;
  if (k == 0) {
    dv7scp(p, step, 0.0);
    R(v, STPPAR) = 0.0;
    R(v, DSTNRM) = 0.0;
    return;
  }
  // t = A, c.
  if (k == p) {
    for (int j = 0; j < p; ++j)
      for (int i = 0; i <= j; ++i) t[pk(i, j)] = rmat[pk(i, j)] / d[j];
    dv7cpy(p, c, qtr);
  } else {
    dv7scp(k * (k + 1) / 2, t, 0.0);
    dv7scp(k, c, 0.0);
    for (int i = 0; i < p; ++i) {
      for (int m = 0; m < k; ++m)
        row[m] = idx[m] >= i ? rmat[pk(i, idx[m])] / d[idx[m]] : 0.0;
      dq7row(k, t, c, row, qtr[i]);
    }
  }
  double tmax = 0.0;
  for (int j = 0; j < k; ++j) tmax = std::max(tmax, std::fabs(t[pk(j, j)]));
  bool singular = !(tmax > 0.0);
  for (int j = 0; j < k && !singular; ++j)
    if (std::fabs(t[pk(j, j)]) <= 4.0 * k * d1mach(4) * tmax) singular = true;

  // Scaled gradient A'c and its norm.
  dl7vml(k, q, t, c);
  const double gnorm = dv2nrm(k, q);
  if (gnorm == 0.0) {
    dv7scp(p, step, 0.0);
    R(v, STPPAR) = 0.0;
    R(v, DSTNRM) = 0.0;
    R(v, DST0) = 0.0;
    return;
  }

  double lo = 0.0, hi = gnorm / radius;
  double un = 0.0;
  if (!singular) {
    for (int m = 0; m < k; ++m) q[m] = -c[m];
    dl7itv(k, u, t, q);
    un = dv2nrm(k, u);
    R(v, NREDUC) = 0.5 * dd7tpr(k, c, c);
    R(v, DST0) = un;
    if (un <= (1.0 + eps) * radius) {
      scatter_step(k, idx, p, d, u, step);
      R(v, STPPAR) = 0.0;
      R(v, DSTNRM) = un;
      return;
    }
    dl7ivm(k, q, t, u);
    const double qn = dv2nrm(k, q);
    lo = (un - radius) / radius * (un / qn) * (un / qn);
  }

  double lambda = R(v, STPPAR);
  if (!(lambda > lo && lambda < hi)) lambda = bracket_mid(lo, hi);
  bool have = false;
  for (int it = 0; it < 40; ++it) {
    if (!(lambda > 0.0)) lambda = std::max(1e-3 * hi, 1e-300);
    dv7cpy(k * (k + 1) / 2, t2, t);
    dv7cpy(k, q, c);
    const double sl = std::sqrt(lambda);
    for (int j = 0; j < k; ++j) {
      dv7scp(k, row, 0.0);
      row[j] = sl;
      dq7row(k, t2, q, row, 0.0);
    }
    for (int m = 0; m < k; ++m) q[m] = -q[m];
    dl7itv(k, u, t2, q);
    un = dv2nrm(k, u);
    have = true;
    if (std::fabs(un - radius) <= eps * radius) break;
    if (un > radius) lo = std::max(lo, lambda);
    else hi = std::min(hi, lambda);
    dl7ivm(k, q, t2, u);
    const double qn = dv2nrm(k, q);
    double next = lambda + (un - radius) / radius * (un / qn) * (un / qn);
    if (!(next > lo && next < hi)) next = bracket_mid(lo, hi);
    if (hi - lo <= 1e-12 * hi) break;
    lambda = next;
  }
  finish_step(k, idx, p, d, u, have && un > (1.0 + eps) * radius, un, radius, lambda, step, v);
}

// Augmented model over a subset of free variables (bounds): minimize
// g's + s'Hs/2 (H = R'R + S, symmetric packed, possibly indefinite) over
// ||D s|| <= radius, by the More-Sorensen iteration on Cholesky factors of
// Ht + lambda I, Ht = D^-1 H D^-1 restricted to the free variables idx.  lambda is bracketed by
//   max(0, -min diag Ht, ||gt||/radius - ||Ht||_1) <= lambda <= ||gt||/radius + ||Ht||_1.
// A step shorter than the radius at the bracket's low end (the "hard case")
// is taken as it is.  Work: l packed k*(k+1)/2; w 3*k.
void gqt_step_free(const double* d, const double* g, const double* h, int k,
                   const int* idx, int p, double* l, double* step, double* v, double* w,
                   double radius) {
  double* gt = w;
  double* u = w + k;
  double* y = w + 2 * k;
  // The step is accepted when (1 + PHMNFC) radius <= ||D s|| <= (1 + PHMXFC)
  // radius; the Newton step when it is no longer than (1 + PHMXFC) radius.
  const double lowfac = 1.0 + R(v, PHMNFC), highfac = 1.0 + R(v, PHMXFC);
  R(v, NREDUC) = 0.0;
  R(v, DST0) = -1.0;
  for (int m = 0; m < k; ++m) gt[m] = g[idx[m]] / d[idx[m]];
  const double gn = dv2nrm(k, gt);
  if (k == 0 || gn == 0.0) {
    dv7scp(p, step, 0.0);
    R(v, STPPAR) = 0.0;
    R(v, DSTNRM) = 0.0;
    R(v, DST0) = 0.0;
    return;
  }
  auto hs = [&](int a, int b) {
    const int i = idx[a], j = idx[b];
    return h[i <= j ? pk(i, j) : pk(j, i)] / (d[i] * d[j]);
  };
  auto factor = [&](double lambda) {
    for (int a = 0; a < k; ++a)
      for (int b = 0; b <= a; ++b) l[pk(b, a)] = hs(a, b) + (a == b ? lambda : 0.0);
    int irc;
    dl7srt(1, k, l, l, irc);
    return irc == 0;
  };
  auto solve = [&]() {  // u = -(Ht + lambda I)^-1 gt, y = L^-1 gt
    dl7ivm(k, y, l, gt);
    dl7itv(k, u, l, y);
    for (int m = 0; m < k; ++m) u[m] = -u[m];
  };

  double un = 0.0;
  if (factor(0.0)) {
    solve();
    un = dv2nrm(k, u);
    R(v, NREDUC) = 0.5 * dd7tpr(k, y, y);
    R(v, DST0) = un;
    if (un <= highfac * radius) {
      scatter_step(k, idx, p, d, u, step);
      R(v, STPPAR) = 0.0;
      R(v, DSTNRM) = un;
      return;
    }
  }
  double hnorm = 0.0, dmin = 0.0;
  for (int a = 0; a < k; ++a) {
    double rs = 0.0;
    for (int b = 0; b < k; ++b) rs += std::fabs(hs(a, b));
    hnorm = std::max(hnorm, rs);
    dmin = (a == 0) ? hs(a, a) : std::min(dmin, hs(a, a));
  }
  double lo = std::max({0.0, -dmin, gn / radius - hnorm});
  double hi = gn / radius + hnorm;
  double lambda = R(v, STPPAR);
  if (!(lambda > lo && lambda < hi)) lambda = bracket_mid(lo, hi);
  bool have = false;
  double lam_ok = 0.0;
  for (int it = 0; it < 60; ++it) {
    if (!factor(lambda)) {
      lo = std::max(lo, lambda);
      if (hi - lo <= 1e-13 * hi) break;
      lambda = bracket_mid(lo, hi);
      continue;
    }
    solve();
    un = dv2nrm(k, u);
    have = true;
    lam_ok = lambda;
    if (un >= lowfac * radius && un <= highfac * radius) break;
    if (un < radius) hi = lambda;
    else lo = lambda;
    dl7ivm(k, y, l, u);
    const double yn = dv2nrm(k, y);
    double next = lambda + (un / yn) * (un / yn) * (un - radius) / radius;
    if (!(next > lo && next < hi)) next = bracket_mid(lo, hi);
    if (hi - lo <= 1e-13 * hi) break;
    lambda = next;
  }
  if (!have) {
    // No positive definite shift found: steepest descent to the radius.
    for (int m = 0; m < k; ++m) u[m] = -radius * gt[m] / gn;
    un = radius;
    lam_ok = hi;
  }
  finish_step(k, idx, p, d, u, have && un > highfac * radius, un, radius, lam_ok, step, v);
}

}  // namespace vexor::port
