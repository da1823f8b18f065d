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
// Each iteration starts with the model that did better last, tries the
// other one when the step's actual reduction disagrees with the prediction
// (up to IV(STGLIM) = 2 models an iteration), and grows or shrinks the trust
// radius as da7sst recommends.  The evaluation of r at the accepted point is
// repeated when the best point of the iteration was not the last one
// evaluated, so that the Jacobian is always formed at the r in hand.
#include <cmath>
#include <limits>

#include "fit/port/port.h"

namespace vexor::port {

// Phases of IV(MODE).
enum { PH_START = 0, PH_F0 = 1, PH_G0 = 2, PH_RUN = 3, PH_REEVAL = 4, PH_DONE = 9 };

namespace {

// W (10p + 7 elements) holds, in order: the step routines' work vector
// (4p + 7, kept between restarts of dg7qts), the trial step inside the
// bounds, a work vector, H s for the gradient tests, g - g0, and D^-1 g.
// The secant update uses the first 4p after the new gradient.
struct Layout {
  const double* y;
  double *x0, *step, *g0, *qtr, *w, *rmat, *s, *lmat, *lwork, *stlstg, *vsave;
  double *tmp, *work, *hs, *gdiff, *dig;
  int* idx;
};

Layout layout(int* iv, double* v, const double* y, int p) {
  Layout a;
  a.x0 = v + I(iv, X0_POS) - 1;
  a.step = v + I(iv, STEP_POS) - 1;
  a.y = y;
  a.g0 = v + I(iv, GLAST_POS) - 1;
  a.qtr = v + I(iv, QTR_POS) - 1;
  a.w = v + I(iv, W_POS) - 1;
  a.rmat = v + I(iv, RMAT_POS) - 1;
  a.s = v + I(iv, S_POS) - 1;
  a.lmat = v + I(iv, LMAT_POS) - 1;
  a.lwork = v + I(iv, LWORK_POS) - 1;
  a.stlstg = v + I(iv, STLSTG) - 1;
  a.vsave = v + I(iv, VSAVE) - 1;
  a.idx = iv + I(iv, IPIVOT) - 1;
  a.tmp = a.w + 4 * p + 7;
  a.work = a.tmp + p;
  a.hs = a.work + p;
  a.gdiff = a.hs + p;
  a.dig = a.gdiff + p;
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

// Marks the scaled Hessian of the augmented model (kept in LMAT, position
// IV(H) when positive) as out of date.
void invalidate_h(int* iv) {
  I(iv, H_POS) = -std::abs(I(iv, LMAT_POS));
  I(iv, KAGQT) = -1;
}

// The augmented model's Hessian H = R'R + S into LMAT (lower triangle packed
// by rows), scaled to D^-1 H D^-1 when d is given.
void form_h(int p, const Layout& a, const double* d) {
  for (int i = 0; i < p; ++i)
    for (int j = 0; j <= i; ++j) {
      double h = a.s[pk(j, i)];
      for (int m = 0; m <= j; ++m) h += a.rmat[pk(m, i)] * a.rmat[pk(m, j)];
      a.lmat[pk(j, i)] = d ? h / (d[i] * d[j]) : h;
    }
}

// The current model's step for V(RADIUS) into out (p values).
void model_step(int* iv, int p, const double* d, const double* g, double* v,
                const Layout& a, double* out) {
  const int k = I(iv, NFREE);
  const double radius = R(v, RADIUS);
  if (I(iv, MODEL) == 1) {
    if (k == p) {
      // All variables free: idx is the identity.  dl7mst's work vector is
      // LMAT and LWORK together (adjacent, p(p+5)/2 + 4 elements).
      dl7mst(d, g, 0, a.idx, I(iv, KALM), p, a.qtr, a.rmat, out, v, a.lmat);
    } else {
      lm_step_free(d, k, a.idx, p, a.qtr, a.rmat, out, v, a.lmat, a.lwork, a.w, radius);
      I(iv, KALM) = -1;
    }
    invalidate_h(iv);  // LMAT was used as work
    return;
  }
  if (k == p) {
    for (int i = 0; i < p; ++i) a.dig[i] = g[i] / d[i];
    if (I(iv, H_POS) <= 0) {
      form_h(p, a, d);
      I(iv, H_POS) = I(iv, LMAT_POS);
      I(iv, KAGQT) = -1;
    }
    dg7qts(d, a.dig, a.lmat, I(iv, KAGQT), a.lwork, p, out, v, a.w);
  } else {
    form_h(p, a, nullptr);  // unscaled for the subset routine
    gqt_step_free(d, g, a.lmat, k, a.idx, p, a.lwork, out, v, a.w, radius);
    invalidate_h(iv);
  }
  // dl7mst's saved state is gone with LMAT: its next call starts from the
  // Gauss-Newton step again (NREDUC kept).
  if (I(iv, KALM) > 0) I(iv, KALM) = 0;
}

// Reduction the Gauss-Newton model predicts for the step s, -g's - |Rs|^2/2,
// and g's.
double predicted(int p, const double* g, const Layout& a, const double* s, double* work,
                 double& gts) {
  dl7tvm(p, work, a.rmat, s);
  gts = dd7tpr(p, g, s);
  return -gts - 0.5 * dd7tpr(p, work, work);
}

// J'J s = R'R s.
void jtj_times(int p, const Layout& a, const double* s, double* out) {
  dl7tvm(p, out, a.rmat, s);
  dl7vml(p, out, a.rmat, out);
}

// 0.5 s'Ss.
double half_sss(int p, const Layout& a, const double* s, double* work) {
  ds7lvm(p, work, a.s, s);
  return 0.5 * dd7tpr(p, s, work);
}

// Computes the current model's step for V(RADIUS) into STEP (kept inside the
// bounds when there are any) with DSTNRM, GTSTEP and PREDUC for the step
// taken.
void compute_step(int* iv, int p, double* d, const double* g, double* v, const double* b,
                  const Layout& a) {
  double* work = a.work;
  double* tmp = a.tmp;
  for (;;) {
    model_step(iv, p, d, g, v, a, a.step);
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
  const bool gauss = I(iv, MODEL) == 1;
  if (!b) return;  // dl7mst or dg7qts set DSTNRM, GTSTEP and PREDUC
  bool bent = false;  // the bounds cut the step
  for (int i = 0; i < p; ++i) {
    const double xi = a.x0[i] + a.step[i];
    const double c = std::min(b[2 * i + 1], std::max(b[2 * i], xi));
    if (c != xi) bent = true;
    tmp[i] = c - a.x0[i];
  }
  // With every variable free and the step inside the box, dl7mst or dg7qts
  // set DSTNRM, GTSTEP and PREDUC as without bounds.
  if (!bent && I(iv, NFREE) == p) return;
  double gts;
  double pred = predicted(p, g, a, tmp, work, gts);
  if (!gauss) pred -= half_sss(p, a, tmp, work);
  if (bent && pred <= 0.0) {
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
    pred = predicted(p, g, a, tmp, work, gts);
    if (!gauss) pred -= half_sss(p, a, tmp, work);
  }
  // A step the bounds bent or shortened is not the model's Newton step: a
  // nonzero STPPAR keeps the x-convergence test from taking it for one.
  if (bent) R(v, STPPAR) = std::max(R(v, STPPAR), d1mach(1));
  dv7cpy(p, a.step, tmp);
  for (int i = 0; i < p; ++i) tmp[i] = d[i] * a.step[i];
  R(v, DSTNRM) = dv2nrm(p, tmp);
  R(v, GTSTEP) = gts;
  R(v, PREDUC) = pred;
}

// x = x0 + step, inside the bounds.
void take_step(int p, double* x, const double* b, const Layout& a) {
  for (int i = 0; i < p; ++i) {
    x[i] = a.x0[i] + a.step[i];
    if (b) x[i] = std::min(b[2 * i + 1], std::max(b[2 * i], x[i]));
  }
}

void finish(int* iv, int code) {
  I(iv, IV_STATUS) = code;
  I(iv, CNVCOD) = code;
  I(iv, MODE) = PH_DONE;
  I(iv, JCUR) = 1;
}

// Requests the gradient at x (the point being accepted), evaluating r there
// first when the last evaluation was another point.
void request_gradient(int* iv, int p, const double* g, const Layout& a) {
  dv7cpy(p, a.g0, g);
  I(iv, TOOBIG) = 0;
  if (I(iv, NFGCAL) != I(iv, NFCALL)) {
    I(iv, NFCALL) += 1;
    I(iv, MODE) = PH_REEVAL;
    I(iv, IV_STATUS) = 1;
    return;
  }
  I(iv, NGCALL) += 1;
  I(iv, JCUR) = 0;
  I(iv, IV_STATUS) = 2;
}

// Where the iteration goes on (see iteration()).
enum Label { NEXT_ITERATION, TRY_STEP, COMPUTE_STEP, ASSESS_EVALUATED };

void run(const double* b, double* d, const double* g, int* iv, int liv, int lv, int p,
         double* v, double* x, const Layout& a, Label at) {
  int rstrst = 3;
  for (;;) {
    switch (at) {
      case NEXT_ITERATION: {
        ditsum(d, g, iv, liv, lv, p, v, x);
        const int k = I(iv, NITER);
        if (k >= I(iv, MXITER)) {
          finish(iv, 10);
          return;
        }
        I(iv, NITER) = k + 1;
        if (k > 0) {
          // New radius from the factor the last assessment chose and the
          // accepted step in the current scale.
          for (int i = 0; i < p; ++i) a.tmp[i] = d[i] * a.step[i];
          const double t = R(v, RADFAC) * dv2nrm(p, a.tmp);
          if (R(v, RADFAC) < 1.0 || t > R(v, RADIUS)) R(v, RADIUS) = t;
        }
        R(v, F0) = R(v, F);
        I(iv, IRC) = IRC_ACCEPT;
        invalidate_h(iv);
        I(iv, SUSED) = I(iv, MODEL);
        dv7cpy(p, a.x0, x);
        free_set(iv, p, x, g, b, a.idx);
        at = TRY_STEP;
        break;
      }
      case TRY_STEP:
        if (I(iv, NFCALL) >= I(iv, MXFCAL)) {
          // Evaluation limit: end at x0.
          dv7cpy(p, x, a.x0);
          R(v, F) = R(v, F0);
          I(iv, RESTOR) = 1;
          finish(iv, 9);
          return;
        }
        at = COMPUTE_STEP;
        break;
      case COMPUTE_STEP:
        compute_step(iv, p, d, g, v, b, a);
        if (I(iv, IRC) == IRC_LMAXS) {
          rstrst = I(iv, RESTOR) == 2 ? 2 : 3;
          at = ASSESS_EVALUATED;
          continue;
        }
        I(iv, TOOBIG) = 0;
        if (R(v, DSTNRM) <= 0.0) {
          rstrst = 3;
          at = ASSESS_EVALUATED;
          continue;
        }
        if (I(iv, IRC) == IRC_RECOMPUTE && R(v, RADFAC) > 1.0 &&
            R(v, PREDUC) <= 1.2 * R(v, FDIF)) {
          // The longer step promises no more than the last one achieved.
          rstrst = I(iv, RESTOR) == 2 ? 0 : 3;
          at = ASSESS_EVALUATED;
          continue;
        }
        take_step(p, x, b, a);
        I(iv, NFCALL) += 1;
        I(iv, IV_STATUS) = 1;
        return;
      case ASSESS_EVALUATED: {
        R(v, RELDX) = drldst(p, d, x, a.x0);
        da7sst(iv, liv, lv, v);
        switch (I(iv, RESTOR)) {
          case 1:
            dv7cpy(p, x, a.x0);
            break;
          case 2:
            dv7cpy(p, a.stlstg, a.step);
            break;
          case 3:
            dv7cpy(p, a.step, a.stlstg);
            take_step(p, x, b, a);
            R(v, RELDX) = drldst(p, d, x, a.x0);
            I(iv, RESTOR) = rstrst;
            break;
          default:
            break;
        }
        rstrst = 3;
        if (I(iv, SWITCH)) {
          // The new model did worse: back to the old one's step values.
          invalidate_h(iv);
          I(iv, SUSED) += 2;
          dv7cpy(NVSAVE, v, a.vsave);
        }
        const int l = I(iv, IRC) - 4;
        const int stpmod = I(iv, MODEL);
        if (l == 1) {  // recompute with the new radius
          R(v, RADIUS) = R(v, RADFAC) * R(v, DSTNRM);
          at = TRY_STEP;
          continue;
        }
        if (l == 2) {  // step of length LMAXS for the singular test
          R(v, RADIUS) = R(v, LMAXS);
          at = COMPUTE_STEP;
          continue;
        }
        if (l >= 3 && l <= 8) {  // convergence or false convergence
          I(iv, CNVCOD) = l;
          if (R(v, F) >= R(v, F0) || I(iv, XIRC) == IRC_GRADIENT) {
            finish(iv, l);
            return;
          }
          I(iv, XIRC) = IRC_GRADIENT;
        } else if (l > 8) {
          finish(iv, 50);
          return;
        } else {
          // Switch models when the other one predicted the actual reduction
          // better by the factor FUZZ.
          const double e = R(v, PREDUC) - R(v, FDIF);
          double sttsst = half_sss(p, a, a.step, a.work);
          if (I(iv, MODEL) == 1) sttsst = -sttsst;
          if (std::fabs(e + sttsst) * R(v, FUZZ) < std::fabs(e)) {
            I(iv, MODEL) = 3 - I(iv, MODEL);
            if (l <= -2) {
              // Recompute the step of this iteration with the other model.
              invalidate_h(iv);
              I(iv, SUSED) += 2;
              dv7cpy(NVSAVE, a.vsave, v);
              at = TRY_STEP;
              continue;
            }
          } else if (l <= -3) {
            R(v, RADIUS) = R(v, RADFAC) * R(v, DSTNRM);
            at = TRY_STEP;
            continue;
          }
        }
        // The step is accepted: the gradient at x is next.
        I(iv, COVMAT) = 0;
        if (I(iv, IRC) == IRC_ACCEPT_TEST) {
          // H s of the model used, for the gradient tests.
          jtj_times(p, a, a.step, a.hs);
          if (stpmod != 1) {
            ds7lvm(p, a.work, a.s, a.step);
            for (int i = 0; i < p; ++i) a.hs[i] += a.work[i];
          }
        }
        request_gradient(iv, p, g, a);
        return;
      }
    }
  }
}

// The gradient at the accepted point has arrived: set the radius factor by
// the gradient tests when the assessment asked for them, then update S.
void after_gradient(double* d, const double* g, int* iv, int p, double* v,
                    const Layout& a) {
  double* w = a.w;
  for (int i = 0; i < p; ++i) a.gdiff[i] = g[i] - a.g0[i];
  if (I(iv, IRC) == IRC_ACCEPT_TEST) {
    double* hs = a.hs;
    for (int i = 0; i < p; ++i) hs[i] = (hs[i] - a.gdiff[i]) / d[i];
    if (dv2nrm(p, hs) <= R(v, DGNORM) * R(v, TUNER4) ||
        dd7tpr(p, g, a.step) < R(v, GTSTEP) * R(v, TUNER5))
      R(v, RADFAC) = R(v, INCFAC);
  }
  // y# = g - J_old' r_new = (J - J_old)' r; S is first sized by
  // min(1, |s'y#| / |s'Ss|), then updated so that S s = y# with the update
  // direction wchmtd = J'J s + y# (Fletcher and Al-Baali's choice).
  double* yh = w + 2 * p;
  double* wchmtd = w + 3 * p;
  for (int i = 0; i < p; ++i) yh[i] = g[i] - a.y[i];
  ds7lvm(p, w, a.s, a.step);
  const double t1 = std::fabs(dd7tpr(p, a.step, w));
  const double t = std::fabs(dd7tpr(p, a.step, yh));
  R(v, SIZE) = t < t1 ? t / t1 : 1.0;
  jtj_times(p, a, a.step, wchmtd);
  for (int i = 0; i < p; ++i) wchmtd[i] += yh[i];
  ds7lup(a.s, R(v, COSMIN), p, R(v, SIZE), a.step, w, w + p, wchmtd, R(v, WSCALE), yh);
}

// One call of the iteration: IV(1) says what the caller has just computed
// (1: r and f at x, 2: the Jacobian quantities at x).
void iteration(const double* b, double* d, const double* g, int* iv, int liv, int lv, int p,
               double* v, double* x, const double* yvec) {
  const Layout a = layout(iv, v, yvec, p);
  const int req = I(iv, IV_STATUS);
  switch (I(iv, MODE)) {
    case PH_START:
      I(iv, NITER) = 0;
      I(iv, NFCALL) = 1;
      I(iv, NGCALL) = 0;
      I(iv, NFGCAL) = 1;
      I(iv, STGLIM) = 2;
      I(iv, TOOBIG) = 0;
      I(iv, CNVCOD) = 0;
      I(iv, COVMAT) = 0;
      I(iv, RADINC) = 0;
      I(iv, RESTOR) = 0;
      I(iv, XIRC) = 0;
      invalidate_h(iv);
      I(iv, JCUR) = 0;
      I(iv, MODEL) = 1;
      R(v, RAD0) = 0.0;
      R(v, STPPAR) = 0.0;
      R(v, RADIUS) = R(v, LMAX0) / (1.0 + R(v, PHMXFC));
      I(iv, MODE) = PH_F0;
      I(iv, IV_STATUS) = 1;
      return;
    case PH_F0:
      if (I(iv, TOOBIG)) {
        finish(iv, 13);
        return;
      }
      I(iv, NGCALL) += 1;
      I(iv, MODE) = PH_G0;
      I(iv, IV_STATUS) = 2;
      return;
    case PH_REEVAL:
      // r at the accepted point again, for its Jacobian.
      I(iv, NFGCAL) = I(iv, NFCALL);
      I(iv, MODE) = PH_RUN;
      I(iv, NGCALL) += 1;
      I(iv, JCUR) = 0;
      I(iv, IV_STATUS) = 2;
      return;
    case PH_G0:
    case PH_RUN:
      break;
    default:
      return;
  }
  if (req == 1) {
    run(b, d, g, iv, liv, lv, p, v, x, a, ASSESS_EVALUATED);
    return;
  }
  // req == 2: the Jacobian quantities at x.
  if (I(iv, NFGCAL) == 0) {
    finish(iv, 15);
    I(iv, JCUR) = 0;
    return;
  }
  I(iv, JCUR) = 1;
  invalidate_h(iv);
  I(iv, KALM) = -1;
  double* w = a.w;
  for (int i = 0; i < p; ++i) w[i] = g[i] / d[i];
  R(v, DGNORM) = dv2nrm(p, w);
  if (I(iv, CNVCOD) != 0) {
    finish(iv, I(iv, CNVCOD));
    return;
  }
  if (I(iv, MODE) == PH_G0) {
    I(iv, MODE) = PH_RUN;
    R(v, F0) = R(v, F);
  } else {
    after_gradient(d, g, iv, p, v, a);
  }
  I(iv, RESTOR) = 0;
  run(b, d, g, iv, liv, lv, p, v, x, a, NEXT_ITERATION);
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
