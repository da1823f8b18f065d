// The Goldfeld-Quandt-Trotter step of the augmented model (dg7qts).
#include <algorithm>
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

// Goldfeld-Quandt-Trotter step by the More-Hebden technique, as modified
// by More and Sorensen: minimizes psi(s) = g's + s'Hs/2 subject to
// ||D s|| <= V(RADIUS) (accepting [1 + PHMNFC, 1 + PHMXFC] times the
// radius), given dig = D^-1 g and the scaled Hessian dihdi = D^-1 H D^-1
// (lower triangle packed by rows; its diagonal is restored on return).  The
// step solves (H + alpha D^2) s = -g with alpha >= 0 making the matrix
// positive semidefinite; alpha is bracketed by Gerschgorin estimates of the
// extreme eigenvalues and refined by Newton's method on ||D s|| - radius,
// each trial alpha costing a Cholesky factorization into l.  When
// H + alpha D^2 is (nearly) singular the step is completed along an
// approximate eigenvector of the smallest eigenvalue (STPPAR = -alpha).
//   ka: < 0 on the first call for this dig and dihdi; otherwise as left by
//       the last call, to restart with a new V(RADIUS).  On return the
//       number of factorizations tried (0 or STPPAR = 0: the Newton step).
//   w: 4p + 7 elements, kept between restarts.
// Sets V(DGNORM), V(DSTNRM), V(DST0) (||D Newton step|| for positive
// definite H, else minus an estimate of the smallest eigenvalue of dihdi),
// V(GTSTEP), V(NREDUC) (Newton step's predicted reduction, 0 when H is not
// positive definite), V(PREDUC), V(RAD0), V(STPPAR).
void dg7qts(const double* d, const double* dig, double* dihdi, int& ka, double* l, int p,
            double* step, double* v, double* w) {
  constexpr double kEpsfac = 50.0, kKappa = 2.0, kP001 = 1e-3;
  const double big = dr7mdc(6);
  double& dggdmx = w[p];
  double& wemax = w[p + 1];
  double& wemin = w[p + 2];
  double& wlk = w[p + 3];
  double& wphipin = w[p + 4];
  double& wuk = w[p + 5];
  double& wdst = w[p + 6];
  double* diag = w + p + 7;
  double* q = w + 2 * p + 7;  // -D step
  double* xs = w + 3 * p + 7;
  auto dii = [](int i) { return pk(i, i); };

  const double rad = R(v, RADIUS), radsq = rad * rad;
  const double phimax = R(v, PHMXFC) * rad, phimin = R(v, PHMNFC) * rad;
  double psifac = big;
  {
    const double t1 = 2.0 * R(v, EPSLON) /
                      (3.0 * (4.0 * (R(v, PHMNFC) + 1.0) * (kKappa + 1.0) + kKappa + 2.0) * rad);
    if (t1 < big * std::min(rad, 1.0)) psifac = t1 / rad;
  }
  const double eps = R(v, EPSLON);
  double oldphi = 0.0, alphak = 1.0, phi = 1.0, gtsta = 1.0, lk = 0.0, uk = -1.0, dst = 0.0;
  double delta = 0.0, twopsi = 0.0;
  int kamin = 3, irc = 0;
  bool restrt = false;
  int kalim = ka + 50;

  // Smallest-eigenvalue estimate from a failed factorization at row irc:
  // -t / ||L_irc^-T e_irc||^2 with t the failing pivot.
  auto failed_pivot_estimate = [&]() {
    const int j = dii(irc - 1);
    const double t = l[j];
    l[j] = 1.0;
    dv7scp(irc, w, 0.0);
    w[irc - 1] = 1.0;
    dl7itv(irc, w, l, w);
    const double t1 = dv2nrm(irc, w);
    return t / t1 / t1;
  };

  enum Where { TRY0, PD, GERSCH, SHIFT, FACTORED, UPDATE, NEWTON_ACCEPT, ACCEPT,
               RESTART_BOUNDS, SPECIAL, DONE };
  Where at;
  if (ka >= 0) {
    // Restart with a new radius.
    if (R(v, DST0) > 0.0 && R(v, DST0) - rad <= phimax) {
      restrt = true;
      ka += 1;
      for (int i = 0; i < p; ++i) dihdi[dii(i)] = diag[i];
      uk = -1.0;
      at = TRY0;
    } else {
      kamin = ka + 3;
      if (R(v, DGNORM) == 0.0) kamin = 0;
      at = ka == 0 ? PD : RESTART_BOUNDS;
    }
  } else {
    uk = -1.0;
    ka = 0;
    kalim = 50;
    R(v, DGNORM) = dv2nrm(p, dig);
    R(v, NREDUC) = 0.0;
    R(v, DST0) = 0.0;
    kamin = 3;
    if (R(v, DGNORM) == 0.0) kamin = 0;
    for (int i = 0; i < p; ++i) diag[i] = dihdi[dii(i)];
    double t1 = 0.0;
    for (int i = 0; i < p * (p + 1) / 2; ++i) t1 = std::max(t1, std::fabs(dihdi[i]));
    dggdmx = t1;
    at = TRY0;
  }

  for (bool more = true; more;) {
    switch (at) {
      case TRY0:  // alpha = 0
        dl7srt(1, p, l, dihdi, irc);
        if (irc == 0) { at = PD; break; }
        lk = -failed_pivot_estimate();
        R(v, DST0) = -lk;
        at = restrt ? SHIFT : GERSCH;
        break;
      case PD: {  // positive definite H: the unmodified Newton step
        lk = 0.0;
        const double t = dl7svn(p, l, q, q);
        if (t < 1.0 && R(v, DGNORM) >= t * t * big) { at = GERSCH; break; }
        dl7ivm(p, q, l, dig);
        gtsta = dd7tpr(p, q, q);
        R(v, NREDUC) = 0.5 * gtsta;
        dl7itv(p, q, l, q);
        dst = dv2nrm(p, q);
        R(v, DST0) = dst;
        phi = dst - rad;
        if (phi <= phimax) { at = NEWTON_ACCEPT; break; }
        at = restrt ? SHIFT : GERSCH;
        break;
      }
      case GERSCH: {
        // w[i] = sum of |off-diagonal| in row i.
        dv7scp(p, w, 0.0);
        for (int i = 1; i < p; ++i)
          for (int j = 0; j < i; ++j) {
            const double t = std::fabs(dihdi[pk(j, i)]);
            w[i] += t;
            w[j] += t;
          }
        // Under-estimate of the smallest eigenvalue (improved Gerschgorin).
        auto refine = [&](int k, bool smallest) {
          const double sk = w[k], akk = diag[k];
          double t = 0.0;
          for (int i = 0; i < p; ++i) {
            if (i == k) continue;
            const double aki = std::fabs(dihdi[i < k ? pk(i, k) : pk(k, i)]);
            double t1 = smallest ? 0.5 * (akk - diag[i] + w[i] - aki)
                                 : 0.5 * (diag[i] + w[i] - aki - akk);
            t1 = t1 + std::sqrt(t1 * t1 + sk * aki);
            t = std::max(t, t1);
          }
          return smallest ? akk - t : akk + t;
        };
        int k = 0;
        double t1 = diag[0] - w[0];
        for (int i = 1; i < p; ++i)
          if (diag[i] - w[i] < t1) {
            t1 = diag[i] - w[i];
            k = i;
          }
        wemin = refine(k, true);
        uk = R(v, DGNORM) / rad - wemin;
        if (R(v, DGNORM) == 0.0) uk = uk + kP001 + kP001 * uk;
        if (uk <= 0.0) uk = kP001;
        k = 0;
        t1 = diag[0] + w[0];
        for (int i = 1; i < p; ++i)
          if (diag[i] + w[i] > t1) {
            t1 = diag[i] + w[i];
            k = i;
          }
        wemax = refine(k, false);
        lk = std::max(lk, R(v, DGNORM) / rad - wemax);
        alphak = std::fabs(R(v, STPPAR)) * R(v, RAD0) / rad;
        alphak = std::min(uk, std::max(alphak, lk));
        if (irc == 0) {
          // More's lower bound for positive definite H.
          dl7ivm(p, w, l, q);
          const double t = dv2nrm(p, w);
          wphipin = rad / t / t;
          lk = std::max(lk, phi * wphipin);
        }
        at = SHIFT;
        break;
      }
      case SHIFT: {  // safeguard alpha and factor dihdi + alpha I
        ka += 1;
        if (-R(v, DST0) >= alphak || alphak < lk || alphak >= uk)
          alphak = uk * std::max(kP001, std::sqrt(lk / uk));
        if (alphak <= 0.0) alphak = 0.5 * uk;
        if (alphak <= 0.0) alphak = uk;
        for (int i = 0; i < p; ++i) dihdi[dii(i)] = diag[i] + alphak;
        dl7srt(1, p, l, dihdi, irc);
        if (irc == 0) { at = FACTORED; break; }
        // Still indefinite: over-estimate the smallest eigenvalue.
        lk = alphak - failed_pivot_estimate();
        R(v, DST0) = -lk;
        if (uk < lk) uk = lk;
        if (alphak < lk) break;  // SHIFT again
        // Exact Gerschgorin bounds: fudge lk and uk.
        {
          double t = kP001 * alphak;
          if (t <= 0.0) t = kP001;
          lk = alphak + t;
          if (uk <= lk) uk = lk + t;
        }
        break;
      }
      case FACTORED:
        dl7ivm(p, q, l, dig);
        gtsta = dd7tpr(p, q, q);
        dl7itv(p, q, l, q);
        dst = dv2nrm(p, q);
        phi = dst - rad;
        if ((phi <= phimax && phi >= phimin) || phi == oldphi) { at = ACCEPT; break; }
        oldphi = phi;
        if (phi < 0.0) {
          // Decide whether to check for the (nearly) singular special case.
          delta = alphak + std::min(0.0, R(v, DST0));
          twopsi = alphak * dst * dst + gtsta;
          if (ka < kamin && psifac < big && delta >= psifac * twopsi) {
            at = (delta > kEpsfac * dr7mdc(3) * dggdmx) ? UPDATE : ACCEPT;
            break;
          }
          at = SPECIAL;
          break;
        }
        at = UPDATE;
        break;
      case UPDATE: {
        if (ka >= kalim) { at = ACCEPT; break; }
        if (phi < 0.0) uk = std::min(uk, alphak);
        if (kamin == 0) { at = SHIFT; break; }
        dl7ivm(p, w, l, q);
        const double t1 = dv2nrm(p, w);
        alphak = alphak + (phi / t1) * (dst / t1) * (dst / rad);
        lk = std::max(lk, alphak);
        alphak = lk;
        at = SHIFT;
        break;
      }
      case RESTART_BOUNDS: {
        dst = wdst;
        alphak = std::fabs(R(v, STPPAR));
        phi = dst - rad;
        const double t = R(v, DGNORM) / rad;
        uk = t - wemin;
        if (R(v, DGNORM) == 0.0) uk = uk + kP001 + kP001 * uk;
        if (uk <= 0.0) uk = kP001;
        if (rad > R(v, RAD0)) {
          if (alphak > 0.0) uk = std::min(uk, wuk);
          lk = std::max({0.0, -R(v, DST0), t - wemax});
        } else {
          lk = alphak > 0.0 ? wlk : 0.0;
          lk = std::max(lk, t - wemax);
        }
        if (R(v, DST0) > 0.0) lk = std::max(lk, (R(v, DST0) - rad) * wphipin);
        at = UPDATE;
        break;
      }
      case SPECIAL: {
        // One step of inverse iteration from dl7svn's vectors: w becomes a
        // unit approximate eigenvector of the smallest eigenvalue, with
        // t x = (dihdi + alpha I) w.
        double t = dl7svn(p, l, xs, w);
        for (int i = 0; i < p; ++i) w[i] *= t;
        dl7itv(p, w, l, w);
        const double t2 = 1.0 / dv2nrm(p, w);
        for (int i = 0; i < p; ++i) w[i] *= t2;
        t = t2 * t;
        const double sw = dd7tpr(p, q, w);
        const double t1 = (rad + dst) * (rad - dst);
        double root = std::sqrt(sw * sw + t1);
        if (sw < 0.0) root = -root;
        const double si = t1 / (sw + root);
        if ((t2 * si) * (t2 * si) <= eps * (dst * dst + alphak * radsq)) {
          // Special case detected: negate alpha to report it.
          alphak = -alphak;
          R(v, PREDUC) = 0.5 * twopsi;
          double tt1 = 0.0;
          const double tt = si * (alphak * sw - 0.5 * si * (alphak + t * dd7tpr(p, xs, w)));
          if (tt >= eps * twopsi / 6.0) {
            R(v, PREDUC) += tt;
            dst = rad;
            tt1 = -si;
          }
          for (int i = 0; i < p; ++i) {
            q[i] = tt1 * w[i] - q[i];
            step[i] = q[i] / d[i];
          }
          R(v, GTSTEP) = dd7tpr(p, dig, q);
          at = DONE;
          break;
        }
        // Update the upper bound on the smallest eigenvalue (when not
        // positive) and go on, unless the special case cannot be detected
        // in this arithmetic.
        if (R(v, DST0) <= 0.0) R(v, DST0) = std::min(R(v, DST0), t2 * t2 - alphak);
        lk = std::max(lk, -R(v, DST0));
        at = (delta > kEpsfac * dr7mdc(3) * dggdmx) ? UPDATE : ACCEPT;
        break;
      }
      case NEWTON_ACCEPT:
        alphak = 0.0;
        at = ACCEPT;
        break;
      case ACCEPT:
        for (int i = 0; i < p; ++i) step[i] = -q[i] / d[i];
        R(v, GTSTEP) = -gtsta;
        R(v, PREDUC) = 0.5 * (std::fabs(alphak) * dst * dst + gtsta);
        at = DONE;
        break;
      case DONE:
        R(v, DSTNRM) = dst;
        R(v, STPPAR) = alphak;
        wlk = lk;
        wuk = uk;
        R(v, RAD0) = rad;
        wdst = dst;
        for (int i = 0; i < p; ++i) dihdi[dii(i)] = diag[i];
        more = false;
        break;
    }
  }
}

}  // namespace vexor::port
