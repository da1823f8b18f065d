// The iteration of the adaptive method over the p parameters (dg7lit) and
// the assessment of each trial step (da7sst).
//
// dg7lit asks its caller (drn2g) for f(x) with IV(1) = 1 and for the
// Jacobian quantities at x (g = J'r, R and Q'r of J = QR) with IV(1) = 2;
// it ends with IV(1) = a final code:
//   3 x-convergence, 4 relative function convergence, 5 both, 6 absolute
//   function convergence, 7 singular convergence, 8 false convergence,
//   9 function evaluation limit, 10 iteration limit, 13 f(x0) cannot be
//   computed, 15 the Jacobian cannot be computed.
// Two models of f near x0 are kept: Gauss-Newton, q1(s) = f0 + g's + |Rs|^2/2,
// and the augmented model q2(s) = q1(s) + s'Ss/2 with the secant matrix S.
#include <cmath>
#include <limits>

#include "fit/port/port.h"

namespace vexor::port {

// Phases of IV(MODE).
enum { PH_START = 0, PH_F0 = 1, PH_G = 2, PH_TRIAL = 3, PH_DONE = 9 };

// Decisions left in IV(IRC) by da7sst.
enum { IRC_ACCEPT = 1, IRC_SHRINK = 2, IRC_SWITCH = 3, IRC_DONE = 4 };

// Assesses the trial step from the scalars in V: sets IV(IRC), and on
// convergence IV(CNVCOD) with IV(RESTOR) = 1 when x0 is to be kept.
// With ared = f0 - f, preduc the current model's predicted reduction and
// emax = RFCTOL*|f0|:
//   accepted         ared >= TUNER2 * preduc (f computable)
//   relative conv.   0 < NREDUC <= emax and |ared| <= 2 emax
//   x-convergence    RELDX <= XCTOL, the step was the model's Newton step
//                    and ared >= -2 max(preduc, emax)
//   absolute conv.   accepted and f <= AFCTOL
//   singular conv.   PREDS <= SCTOL*|f0| and |ared| <= 2 SCTOL*|f0|
//   false conv.      step rejected and RELDX <= XFTOL
// Otherwise the radius is updated: after a rejected step by the minimizer of
// the quadratic through f0, g's and f along the step, clamped to
// [RDFCMN, DECFAC], and by RDFCMN after a point where r cannot be computed; after an accepted step it halves when the ratio
// ared/preduc is below TUNER1 and grows to max(radius, INCFAC*||Ds||) (at most
// RDFCMX*radius) when it exceeds TUNER3.  A rejected step is retried once per
// iteration with the other model when that one predicted ared better, and an
// accepted step with a poor ratio hands the next iteration to the other model
// on the same condition.
void da7sst(int* iv, int liv, int lv, double* v) {
  (void)liv;
  (void)lv;
  const bool toobig = I(iv, TOOBIG) != 0;
  const double f0 = R(v, F0), f = R(v, F);
  const double preduc = R(v, PREDUC), other = R(v, PRED2);
  const double ared = toobig ? -std::numeric_limits<double>::infinity() : f0 - f;
  R(v, FDIF) = ared;
  const double emax = R(v, RFCTOL) * std::fabs(f0);
  const bool accepted = !toobig && (preduc > 0.0 ? ared >= R(v, TUNER2) * preduc : ared > 0.0);

  int code = 0;
  if (!toobig) {
    const double nred = R(v, NREDUC);
    const bool rel = nred > 0.0 && nred <= emax && std::fabs(ared) <= 2.0 * emax;
    const bool xc = R(v, RELDX) <= R(v, XCTOL) && R(v, STPPAR) == 0.0 &&
                    I(iv, TRUNC) == 0 && ared >= -2.0 * std::max(preduc, emax);
    if (rel && xc) code = 5;
    else if (xc) code = 3;
    else if (rel) code = 4;
    if (code == 0 && accepted && f <= R(v, AFCTOL)) code = 6;
    if (code == 0) {
      const double stol = R(v, SCTOL) * std::fabs(f0);
      const double preds = R(v, PREDS);
      if (preds >= 0.0 && preds <= stol && std::fabs(ared) <= 2.0 * stol) code = 7;
    }
  }
  if (code == 0 && !accepted && R(v, RELDX) <= R(v, XFTOL)) code = 8;
  if (code != 0) {
    I(iv, CNVCOD) = code;
    I(iv, RESTOR) = accepted ? 0 : 1;
    I(iv, IRC) = IRC_DONE;
    return;
  }

  const double dst = R(v, DSTNRM);
  if (accepted) {
    I(iv, RESTOR) = 0;
    const double rho = preduc > 0.0 ? ared / preduc : 1.0;
    if (rho < R(v, TUNER1)) {
      R(v, RADFAC) = R(v, DECFAC);
      R(v, RADIUS) = R(v, DECFAC) * dst;
    } else if (rho > R(v, TUNER3)) {
      const double grow = std::min(R(v, INCFAC) * dst, R(v, RDFCMX) * R(v, RADIUS));
      R(v, RADFAC) = R(v, INCFAC);
      R(v, RADIUS) = std::max(R(v, RADIUS), grow);
    } else {
      R(v, RADFAC) = 1.0;
    }
    if (std::fabs(1.0 - rho) > 1.0 - R(v, TUNER3) &&
        std::fabs(ared - other) < std::fabs(ared - preduc))
      I(iv, MODEL) = 3 - I(iv, MODEL);
    R(v, FLSTGD) = f;
    R(v, PLSTGD) = preduc;
    R(v, GTSLST) = R(v, GTSTEP);
    R(v, DSTSAV) = dst;
    I(iv, IRC) = IRC_ACCEPT;
    return;
  }
  I(iv, RESTOR) = 1;
  if (!toobig && I(iv, SWITCH) == 0 &&
      std::fabs(ared - other) < std::fabs(ared - preduc)) {
    I(iv, IRC) = IRC_SWITCH;
    return;
  }
  double radfac = R(v, RDFCMN);
  if (!toobig) {
    const double gts = R(v, GTSTEP);
    const double den = 2.0 * (ared + gts);
    double t = den < 0.0 ? gts / den : R(v, RDFCMN);
    radfac = std::min(R(v, DECFAC), std::max(R(v, RDFCMN), t));
  }
  R(v, RADFAC) = radfac;
  R(v, RADIUS) = radfac * dst;
  I(iv, IRC) = IRC_SHRINK;
}

namespace {

struct Layout {
  const double* y;
  double *x0, *step, *glast, *qtr, *w, *rmat, *s, *lmat, *lwork;
  int* idx;
};

Layout layout(int* iv, double* v, const double* y) {
  Layout a;
  a.x0 = v + I(iv, X0_POS) - 1;
  a.step = v + I(iv, STEP_POS) - 1;
  a.y = y;
  a.glast = v + I(iv, GLAST_POS) - 1;
  a.qtr = v + I(iv, QTR_POS) - 1;
  a.w = v + I(iv, W_POS) - 1;
  a.rmat = v + I(iv, RMAT_POS) - 1;
  a.s = v + I(iv, S_POS) - 1;
  a.lmat = v + I(iv, LMAT_POS) - 1;
  a.lwork = v + I(iv, LWORK_POS) - 1;
  a.idx = iv + I(iv, IPIVOT) - 1;
  return a;
}

// Free variables for this iteration: a variable on a bound whose gradient
// component pushes it outward stays fixed (as does one with equal bounds).
void free_set(int* iv, int p, const double* x, const double* g, const double* b,
              int* idx) {
  int k = 0;
  for (int i = 0; i < p; ++i) {
    if (b) {
      const double lo = b[2 * i], hi = b[2 * i + 1];
      if (lo >= hi) continue;
      if (x[i] <= lo && g[i] > 0.0) continue;
      if (x[i] >= hi && g[i] < 0.0) continue;
    }
    idx[k++] = i;
  }
  I(iv, NFREE) = k;
}

// The current model's step for the given radius into out (p values).
void model_step(int* iv, int p, const double* d, const double* g, double* v,
                const Layout& a, double radius, double* out) {
  const int k = I(iv, NFREE);
  if (I(iv, MODEL) == 1) {
    dl7mst(d, k, a.idx, p, a.qtr, a.rmat, out, v, a.lmat, a.lwork, a.w, radius);
    I(iv, KAGQT) = 0;  // lmat was used as work
  } else {
    if (I(iv, KAGQT) == 0) {
      // H = R'R + S, symmetric packed.
      for (int i = 0; i < p; ++i)
        for (int j = 0; j <= i; ++j) {
          double h = a.s[pk(j, i)];
          for (int m = 0; m <= j; ++m) h += a.rmat[pk(m, i)] * a.rmat[pk(m, j)];
          a.lmat[pk(j, i)] = h;
        }
      I(iv, KAGQT) = 1;
    }
    dg7qts(d, g, a.lmat, k, a.idx, p, a.lwork, out, v, a.w, radius);
  }
}

// Reductions both models predict for the step s: gauss = -g's - |Rs|^2/2 and
// augmented = gauss - s'Ss/2.
void predictions(int p, const double* g, const Layout& a, const double* s,
                 double* work, double& gauss, double& augmented, double& gts) {
  dl7tvm(p, work, a.rmat, s);
  const double q1 = dd7tpr(p, work, work);
  ds7lvm(p, work, a.s, s);
  const double q2 = dd7tpr(p, s, work);
  gts = dd7tpr(p, g, s);
  gauss = -gts - 0.5 * q1;
  augmented = gauss - 0.5 * q2;
}

// Computes the trial point x = x0 + step (kept inside the bounds) and the
// scalars da7sst needs.
void trial_step(int* iv, int p, double* d, const double* g, double* v, double* x,
                const double* b, const Layout& a) {
  double* work = a.w + 5 * p;
  double* tmp = a.w + 4 * p;
  for (;;) {
    model_step(iv, p, d, g, v, a, R(v, RADIUS), a.step);
    if (!b) break;
    // A free variable on a bound whose step would leave the box is fixed for
    // the rest of the iteration, and the step recomputed without it.
    const int k = I(iv, NFREE);
    int kept = 0;
    for (int m = 0; m < k; ++m) {
      const int i = a.idx[m];
      const bool out = (a.x0[i] <= b[2 * i] && a.step[i] < 0.0) ||
                       (a.x0[i] >= b[2 * i + 1] && a.step[i] > 0.0);
      if (!out) a.idx[kept++] = i;
    }
    if (kept == k) break;
    I(iv, NFREE) = kept;
  }
  // Singular-convergence reference: reduction predicted within ||Ds|| <= LMAXS.
  const double nred = R(v, NREDUC), dst0 = R(v, DST0);
  if (dst0 >= 0.0 && dst0 <= R(v, LMAXS) && nred > 0.0) {
    R(v, PREDS) = nred;
  } else {
    const double keep[4] = {R(v, STPPAR), R(v, DSTNRM), R(v, NREDUC), R(v, DST0)};
    model_step(iv, p, d, g, v, a, R(v, LMAXS), tmp);
    double pg, pa, gt;
    predictions(p, g, a, tmp, work, pg, pa, gt);
    R(v, PREDS) = std::max(0.0, I(iv, MODEL) == 1 ? pg : pa);
    R(v, STPPAR) = keep[0];
    R(v, DSTNRM) = keep[1];
    R(v, NREDUC) = keep[2];
    R(v, DST0) = keep[3];
  }
  I(iv, TRUNC) = 0;
  for (int i = 0; i < p; ++i) {
    double xi = a.x0[i] + a.step[i];
    if (b) {
      const double c = std::min(b[2 * i + 1], std::max(b[2 * i], xi));
      if (c != xi) I(iv, TRUNC) = 1;
      xi = c;
    }
    tmp[i] = xi - a.x0[i];
  }
  double pg, pa, gts;
  predictions(p, g, a, tmp, work, pg, pa, gts);
  if (b && I(iv, TRUNC) && (I(iv, MODEL) == 1 ? pg : pa) <= 0.0) {
    // The bent step lost the model's decrease: shorten the straight step to
    // the first bound it meets instead.
    double alpha = 1.0;
    for (int i = 0; i < p; ++i) {
      const double si = a.step[i];
      if (si > 0.0 && a.x0[i] + si > b[2 * i + 1])
        alpha = std::min(alpha, (b[2 * i + 1] - a.x0[i]) / si);
      if (si < 0.0 && a.x0[i] + si < b[2 * i])
        alpha = std::min(alpha, (b[2 * i] - a.x0[i]) / si);
    }
    alpha = std::max(0.0, alpha);
    for (int i = 0; i < p; ++i) tmp[i] = alpha * a.step[i];
    predictions(p, g, a, tmp, work, pg, pa, gts);
  }
  dv7cpy(p, a.step, tmp);
  for (int i = 0; i < p; ++i) {
    x[i] = a.x0[i] + a.step[i];
    if (b) x[i] = std::min(b[2 * i + 1], std::max(b[2 * i], x[i]));
  }
  for (int i = 0; i < p; ++i) tmp[i] = d[i] * a.step[i];
  R(v, DSTNRM) = dv2nrm(p, tmp);
  R(v, GTSTEP) = gts;
  R(v, PREDUC) = I(iv, MODEL) == 1 ? pg : pa;
  R(v, PRED2) = I(iv, MODEL) == 1 ? pa : pg;
  R(v, RELDX) = drldst(p, d, x, a.x0);
}

void finish(int* iv, int code) {
  I(iv, IV_STATUS) = code;
  I(iv, CNVCOD) = code;
  I(iv, MODE) = PH_DONE;
}

// Requests f at the trial point unless the evaluation limit is reached.
void request_trial(int* iv, int p, double* v, double* x, const Layout& a) {
  if (I(iv, NFCALL) >= I(iv, MXFCAL)) {
    dv7cpy(p, x, a.x0);
    R(v, F) = R(v, F0);
    I(iv, RESTOR) = 1;
    I(iv, JCUR) = 1;
    finish(iv, 9);
    return;
  }
  I(iv, NFCALL) += 1;
  I(iv, MODE) = PH_TRIAL;
  I(iv, IV_STATUS) = 1;
}

}  // namespace

namespace {

void iteration(const double* b, double* d, const double* g, int* iv, int liv, int lv, int p,
               double* v, double* x, const double* yvec) {
  const Layout a = layout(iv, v, yvec);
  switch (I(iv, MODE)) {
    case PH_START:
      I(iv, NITER) = 0;
      I(iv, MODEL) = 1;
      I(iv, NFCALL) = 1;
      I(iv, NGCALL) = 0;
      I(iv, KAGQT) = 0;
      I(iv, JCUR) = 0;
      R(v, RADIUS) = -1.0;
      R(v, STPPAR) = 0.0;
      I(iv, MODE) = PH_F0;
      I(iv, IV_STATUS) = 1;
      return;

    case PH_F0:
      if (I(iv, TOOBIG)) {
        finish(iv, 13);
        return;
      }
      I(iv, NGCALL) += 1;
      I(iv, NFGCAL) = I(iv, NFCALL);
      I(iv, MODE) = PH_G;
      I(iv, IV_STATUS) = 2;
      return;

    case PH_G: {
      if (I(iv, NFGCAL) == 0) {
        I(iv, JCUR) = 0;
        finish(iv, 15);
        return;
      }
      I(iv, JCUR) = 1;
      I(iv, RESTOR) = 0;
      double* w = a.w;
      if (I(iv, NITER) > 0) {
        // y = g - g_old (into w+p), y# = g - J_old' r_new (into w+2p).
        for (int i = 0; i < p; ++i) {
          w[p + i] = g[i] - a.glast[i];
          w[2 * p + i] = g[i] - a.y[i];
        }
        ds7lup(a.s, R(v, COSMIN), p, a.step, w + p, w + 2 * p, w);
      }
      I(iv, KAGQT) = 0;
      ditsum(d, g, iv, liv, lv, p, v, x);
      if (R(v, F) <= R(v, AFCTOL)) {
        finish(iv, 6);
        return;
      }
      if (I(iv, NITER) >= I(iv, MXITER)) {
        finish(iv, 10);
        return;
      }
      I(iv, NITER) += 1;
      dv7cpy(p, a.x0, x);
      dv7cpy(p, a.glast, g);
      for (int i = 0; i < p; ++i) w[i] = g[i] / d[i];
      R(v, DGNORM) = dv2nrm(p, w);
      R(v, F0) = R(v, F);
      if (R(v, RADIUS) <= 0.0) R(v, RADIUS) = R(v, LMAX0);
      I(iv, SWITCH) = 0;
      I(iv, STGLIM) = 0;
      free_set(iv, p, x, g, b, a.idx);
      trial_step(iv, p, d, g, v, x, b, a);
      request_trial(iv, p, v, x, a);
      return;
    }

    case PH_TRIAL: {
      da7sst(iv, liv, lv, v);
      const int irc = I(iv, IRC);
      if (irc == IRC_DONE) {
        if (I(iv, RESTOR)) {
          dv7cpy(p, x, a.x0);
          R(v, F) = R(v, F0);
          I(iv, JCUR) = 1;
        } else {
          I(iv, JCUR) = 0;
        }
        finish(iv, I(iv, CNVCOD));
        return;
      }
      if (irc == IRC_ACCEPT) {
        I(iv, JCUR) = 0;
        I(iv, NGCALL) += 1;
        I(iv, NFGCAL) = I(iv, NFCALL);
        I(iv, MODE) = PH_G;
        I(iv, IV_STATUS) = 2;
        return;
      }
      if (irc == IRC_SWITCH) {
        I(iv, MODEL) = 3 - I(iv, MODEL);
        I(iv, SWITCH) = 1;
      }
      I(iv, STGLIM) += 1;
      R(v, F) = R(v, F0);
      trial_step(iv, p, d, g, v, x, b, a);
      request_trial(iv, p, v, x, a);
      return;
    }

    default:
      return;
  }
}

}  // namespace

void dg7lit(double* d, const double* g, int* iv, int liv, int lv, int p, int ps,
            double* v, double* x, const double* y) {
  (void)ps;
  iteration(nullptr, d, g, iv, liv, lv, p, v, x, y);
}

void dg7itb(const double* b, double* d, const double* g, int* iv, int liv, int lv, int p,
            int ps, double* v, double* x, const double* y) {
  (void)ps;
  iteration(b, d, g, iv, liv, lv, p, v, x, y);
}

}  // namespace vexor::port
