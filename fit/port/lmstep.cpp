// The Levenberg-Marquardt step of the Gauss-Newton model (dl7mst), the
// smallest singular value estimate it uses (dl7svn) and the largest one
// (dl7svx).
#include <algorithm>
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

// Estimate of the smallest singular value of the lower triangle L (packed
// by rows; the same storage as an upper triangle R = L' packed by columns).
// Inverse iteration on L L' from a start chosen, as in the LINPACK condition
// estimator, to make the solution of L z = e large.  On return x is a unit
// vector and y = L^-1 x, and the value is 1/||y||; 0 when a diagonal
// element of L is 0.
double dl7svn(int p, const double* l, double* x, double* y) {
  for (int i = 0; i < p; ++i)
    if (l[pk(i, i)] == 0.0) return 0.0;
  // L z = e with e_i = +-1 chosen to grow |z| (z kept in x).
  for (int i = 0; i < p; ++i) {
    double s = 0.0;
    for (int j = 0; j < i; ++j) s += l[pk(j, i)] * x[j];
    x[i] = ((s >= 0.0 ? -1.0 : 1.0) - s) / l[pk(i, i)];
  }
  for (int it = 0; it < 3; ++it) {
    const double xn = dv2nrm(p, x);
    if (!(xn > 0.0) || !std::isfinite(xn)) return 0.0;
    for (int i = 0; i < p; ++i) x[i] /= xn;
    if (it == 2) break;
    dl7ivm(p, y, l, x);  // L y = x
    dl7itv(p, x, l, y);  // L'x = y
  }
  dl7ivm(p, y, l, x);
  const double yn = dv2nrm(p, y);
  if (!(yn > 0.0) || !std::isfinite(yn)) return 0.0;
  return 1.0 / yn;
}

// Estimate of the largest singular value of the lower triangle L (packed by
// rows): power iteration on L'L from the vector of ones.  On return x is a
// unit vector and y = L x; the value is ||y||.
double dl7svx(int p, const double* l, double* x, double* y) {
  for (int i = 0; i < p; ++i) x[i] = 1.0;
  double norm = 0.0;
  for (int it = 0; it < 6; ++it) {
    const double xn = dv2nrm(p, x);
    if (!(xn > 0.0) || !std::isfinite(xn)) return 0.0;
    for (int i = 0; i < p; ++i) x[i] /= xn;
    dl7vml(p, y, l, x);  // y = L x
    norm = dv2nrm(p, y);
    if (it == 5) break;
    dl7tvm(p, x, l, y);  // x = L'y
  }
  return norm;
}

// Levenberg-Marquardt step for the Gauss-Newton model by the More-Hebden
// technique.  R (packed by columns) and qtr = Q'r come from J = QR; the step
// minimizes ||R s + qtr|| subject to ||D s|| <= V(RADIUS), accepting
// ||D s|| within [1 + PHMNFC, 1 + PHMXFC] times the radius.  The Marquardt
// parameter alpha is bracketed by [lk, uk], lk from More's bound for a
// nonsingular R, uk = ||D^-1 g|| / radius, and refined by Newton's method on
// phi(alpha) = ||D s(alpha)|| - radius; each trial alpha costs a Givens QR
// of [R; sqrt(alpha) D].  When R is (nearly) singular and the radius large,
// a step whose predicted reduction is within EPSLON of optimal is taken
// with STPPAR = -alpha.
//   ierr: 0 when R has full rank, else 1 + the rank (Q'r counted that far)
//   ipivot: the column permutation of the factorization
//   ka: < 0 on the first call for this R and qtr; 0 to recompute the step
//       from scratch with NREDUC kept; > 0 (as left by the last call) to
//       restart from the last step with a new V(RADIUS).  On return the
//       number of trial alphas (0: the Gauss-Newton step).
//   w: p(p+5)/2 + 4 elements, kept between restarts.
// Sets V(DGNORM), V(DSTNRM), V(DST0) (||D Gauss-Newton step||, -1 when
// not computed), V(GTSTEP), V(NREDUC) (0.5 ||qtr||^2), V(PREDUC), V(RAD0),
// V(STPPAR).
void dl7mst(const double* d, const double* g, int ierr, const int* ipivot, int& ka, int p,
            const double* qtr, const double* r, double* step, double* v, double* w) {
  // w layout: [0, p) work, then lk, 1/phi'(0), uk, ||D s|| of the last
  // step, then a copy of R (packed) and of qtr.
  double* wk = w;
  double& wlk = w[p];
  double& wphipin = w[p + 1];
  double& wuk = w[p + 2];
  double& wdst = w[p + 3];
  double* rmat = w + p + 4;
  const int pp1o2 = p * (p + 1) / 2;
  double* res = rmat + pp1o2;

  const double rad = R(v, RADIUS);
  double psifac = 1.0;
  if (rad > 0.0) psifac = R(v, EPSLON) / ((8.0 * (R(v, PHMNFC) + 1.0) + 3.0) * rad * rad);
  const double big = dr7mdc(6);
  const double phimax = R(v, PHMXFC) * rad, phimin = R(v, PHMNFC) * rad;
  double oldphi = 0.0, lk = 0.0, uk = 0.0, alphak = 1.0, dst = 0.0, phi = 0.0;
  int kalim = ka + 12;

  enum Where { GN_TRY, U0, LOOP, UPDATE_MIN, UPDATE, NEWTON, SPECIAL, GN_ACCEPT, ACCEPT, HARD, DONE };
  Where at;
  if (ka < 0) {
    ka = 0;
    kalim = 12;
    const int k = ierr != 0 ? std::abs(ierr) - 1 : p;
    R(v, NREDUC) = 0.5 * dd7tpr(k, qtr, qtr);
    at = GN_TRY;
  } else if (ka == 0) {
    at = GN_TRY;
  } else {
    // Restart with a new radius from the last step.
    lk = wlk;
    uk = wuk;
    if (R(v, DST0) > 0.0 && R(v, DST0) - rad <= phimax) {
      at = GN_TRY;
    } else {
      alphak = std::fabs(R(v, STPPAR));
      dst = wdst;
      phi = dst - rad;
      const double t = R(v, DGNORM) / rad;
      if (rad > R(v, RAD0)) {
        if (alphak <= 0.0 || uk > t) uk = t;
        lk = 0.0;
      } else {
        uk = t;
        if (alphak <= 0.0) lk = 0.0;
      }
      if (R(v, DST0) > 0.0) lk = std::max(lk, (R(v, DST0) - rad) * wphipin);
      at = UPDATE_MIN;
    }
  }

  for (bool more = true; more;) {
    switch (at) {
      case GN_TRY: {
        R(v, DST0) = -1.0;
        at = U0;
        if (ierr != 0) break;
        const double t = dl7svn(p, r, step, res);
        if (t < 1.0 && dv2nrm(p, qtr) >= big * t) break;
        // Gauss-Newton step: wk = R^-1 qtr, s = -wk; step holds -D s for now.
        dl7itv(p, wk, r, qtr);
        for (int i = 0; i < p; ++i) step[i] = d[ipivot[i]] * wk[i];
        dst = dv2nrm(p, step);
        R(v, DST0) = dst;
        phi = dst - rad;
        if (phi <= phimax) { at = GN_ACCEPT; break; }
        if (ka > 0) { at = LOOP; break; }
        // More's lower bound lk = phi / phi'(0).
        for (int i = 0; i < p; ++i) step[i] = d[ipivot[i]] * (step[i] / dst);
        dl7ivm(p, step, r, step);
        const double tt = 1.0 / dv2nrm(p, step);
        wphipin = (tt / rad) * tt;
        lk = phi * wphipin;
        break;
      }
      case U0: {
        for (int i = 0; i < p; ++i) wk[i] = g[i] / d[i];
        R(v, DGNORM) = dv2nrm(p, wk);
        uk = R(v, DGNORM) / rad;
        if (!(uk > 0.0)) { at = SPECIAL; break; }
        alphak = std::fabs(R(v, STPPAR)) * R(v, RAD0) / rad;
        alphak = std::min(uk, std::max(alphak, lk));
        at = LOOP;
        break;
      }
      case LOOP: {
        ka += 1;
        dv7cpy(pp1o2, rmat, r);
        dv7cpy(p, res, qtr);
        if (alphak <= 0.0 || alphak < lk || alphak >= uk)
          alphak = uk * std::max(1e-3, std::sqrt(lk / uk));
        if (alphak <= 0.0) alphak = 0.5 * uk;
        const double sqrtak = std::sqrt(alphak);
        // Append the rows sqrt(alpha) D e_i (in pivot order) to R.
        // (step is work for the rotations here; it is set again below.)
        for (int i = 0; i < p; ++i) {
          dv7scp(p, wk, 0.0);
          wk[i] = sqrtak * d[ipivot[i]];
          dq7row(p, rmat, res, wk, 0.0, step);
        }
        dl7itv(p, res, rmat, res);
        for (int i = 0; i < p; ++i) {
          const int j1 = ipivot[i];
          const double t = res[i];
          step[j1] = -t;
          res[i] = t * d[j1];
        }
        dst = dv2nrm(p, res);
        phi = dst - rad;
        if ((phi <= phimax && phi >= phimin) || oldphi == phi) { at = ACCEPT; break; }
        oldphi = phi;
        // A step too long is shortened by Newton's method on phi, which
        // converges in a few trials; when the scales are near overflow
        // (1e300 in the model) its values go nowhere and the trials would
        // go on for ever, so after kalim + 100 of them the step is taken as
        // it is (the trust-region test then judges it).
        if (phi > 0.0) { at = ka >= kalim + 100 ? ACCEPT : UPDATE; break; }
        if (ka >= kalim) { at = ACCEPT; break; }
        const double twopsi = alphak * dst * dst - dd7tpr(p, step, g);
        if (alphak >= twopsi * psifac) { at = UPDATE; break; }
        R(v, STPPAR) = -alphak;
        at = HARD;
        break;
      }
      case UPDATE_MIN:  // restart: the last step is too long or too short
        if (phi < 0.0) uk = std::min(uk, alphak);
        at = NEWTON;
        break;
      case UPDATE:  // unacceptable step
        if (phi < 0.0) uk = alphak;
        at = NEWTON;
        break;
      case NEWTON: {
        // Newton's step on phi: alpha += (phi / rad) / ||R_alpha'^-1 D (D s)/dst||^2.
        for (int i = 0; i < p; ++i) step[i] = d[ipivot[i]] * (res[i] / dst);
        dl7ivm(p, step, rmat, step);
        const double t = 1.0 / dv2nrm(p, step);
        alphak = alphak + t * phi * t / rad;
        lk = std::max(lk, alphak);
        alphak = lk;
        at = LOOP;
        break;
      }
      case SPECIAL:
        R(v, STPPAR) = 0.0;
        dst = 0.0;
        lk = uk = 0.0;
        R(v, GTSTEP) = 0.0;
        R(v, PREDUC) = 0.0;
        dv7scp(p, step, 0.0);
        at = DONE;
        break;
      case GN_ACCEPT:
        alphak = 0.0;
        for (int i = 0; i < p; ++i) step[ipivot[i]] = -wk[i];
        at = ACCEPT;
        break;
      case ACCEPT:
        R(v, STPPAR) = alphak;
        at = HARD;
        break;
      case HARD:
        R(v, GTSTEP) = std::min(dd7tpr(p, step, g), 0.0);
        R(v, PREDUC) = 0.5 * (std::fabs(alphak) * dst * dst - R(v, GTSTEP));
        at = DONE;
        break;
      case DONE:
        R(v, DSTNRM) = dst;
        wdst = dst;
        wlk = lk;
        wuk = uk;
        R(v, RAD0) = rad;
        more = false;
        break;
    }
  }
}

}  // namespace vexor::port
