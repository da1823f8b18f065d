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
// (4p + 7, kept between restarts of dg7qts), then five p-vectors: a work
// vector, another, H s for the gradient tests, g - g0, and D^-1 g; the
// secant update uses the first 4p after the new gradient.  The bounded
// augmented step uses the first three of those p-vectors for TD, TG and the
// scaled step; the bounded Levenberg-Marquardt step keeps them in dg7qts's
// area instead, its moved copy of Q'r in G0 (free while a step is
// computed) and its own work from 8p + 3 on into LMAT (W lies just before
// LMAT).
struct Layout {
  const double* y;
  double *x0, *step, *g0, *qtr, *w, *rmat, *s, *lmat, *lwork, *stlstg, *vsave;
  double *tmp, *work, *hs, *gdiff, *dig;
  int *idx, *perm;
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
  a.stlstg = a.x0 + p;
  a.vsave = v + I(iv, VSAVE) - 1;
  a.idx = iv + I(iv, IPIVOT) - 1;
  a.perm = iv + I(iv, PERM) - 1;
  a.tmp = a.w + 4 * p + 7;
  a.work = a.tmp + p;
  a.hs = a.work + p;
  a.gdiff = a.hs + p;
  a.dig = a.gdiff + p;
  return a;
}

// The bounded iteration's order of the variables for a new gradient (R and
// Q'r have just been formed in the variables' own order, IPIVOT is the
// identity): a variable with equal bounds, or on a bound with the gradient
// pushing it out, is moved behind the free ones, in IPIVOT and in R and Q'r
// (dq7rsh).  A variable freed now that was fixed in the last iteration
// (PERM holds the last order's inverse) cancels a pending convergence.
void choose_order(int* iv, int p, const double* x, const double* g, const double* b,
                  const Layout& a) {
  const int k = I(iv, PC);
  int p1 = p;
  for (int pos = p - 1; pos >= 0; --pos) {
    const int i1 = a.idx[pos];
    const double lo = b[2 * i1], hi = b[2 * i1 + 1];
    const bool fixed = lo >= hi || (x[i1] <= lo && g[i1] > 0.0) || (x[i1] >= hi && g[i1] < 0.0);
    if (!fixed) {
      if (a.perm[i1] >= k) I(iv, CNVCOD) = 0;
      continue;
    }
    if (pos < p1 - 1) {
      i7shft(p1, pos, a.idx);
      dq7rsh(pos, p1, true, a.qtr, a.rmat, a.w);
    }
    --p1;
  }
  I(iv, PC) = p1;
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

// The current model's step for V(RADIUS) into out (p values), no bounds.
void model_step(int* iv, int p, const double* d, const double* g, double* v,
                const Layout& a, double* out) {
  if (I(iv, MODEL) == 1) {
    // dl7mst's work vector is LMAT and LWORK together (adjacent,
    // p(p+5)/2 + 4 elements); idx is the identity.
    dl7mst(d, g, 0, a.idx, I(iv, KALM), p, a.qtr, a.rmat, out, v, a.lmat);
    invalidate_h(iv);  // LMAT was used as work
    return;
  }
  for (int i = 0; i < p; ++i) a.dig[i] = g[i] / d[i];
  if (I(iv, H_POS) <= 0) {
    form_h(p, a, d);
    I(iv, H_POS) = I(iv, LMAT_POS);
    I(iv, KAGQT) = -1;
  }
  dg7qts(d, a.dig, a.lmat, I(iv, KAGQT), a.lwork, p, out, v, a.w);
  // dl7mst's saved state is gone with LMAT: its next call starts from the
  // Gauss-Newton step again (NREDUC kept).
  if (I(iv, KALM) > 0) I(iv, KALM) = 0;
}

// The bounded step of the current model (dl7msb or dg7qsb) over the PC free
// variables, kept inside the bounds, into STEP with DSTNRM, GTSTEP and
// PREDUC.
void bounded_step(int* iv, int p, const double* d, const double* g, double* v,
                  const double* b, double* x, const Layout& a) {
  double* td = a.tmp;
  double* tg = a.work;
  double* dst = a.hs;
  int* ipiv1 = a.perm + p;
  int* ipiv2 = a.perm + 2 * p;
  const int pc = I(iv, PC);
  if (I(iv, MODEL) == 1) {
    // dg7qts's work area is free here: w, TD, TG and the scaled step take
    // its first 4p elements; the Levenberg-Marquardt work starts at 8p + 3.
    dl7msb(b, d, g, 0, a.idx, ipiv1, ipiv2, I(iv, KALM), a.lwork, p, I(iv, P0), pc, a.qtr,
           a.rmat, a.step, a.w + 3 * p, a.g0, a.w + p, a.w + 2 * p, v, a.w, a.w + 8 * p + 3,
           x, a.x0);
    invalidate_h(iv);  // the Levenberg-Marquardt work ran over LMAT
    return;
  }
  if (I(iv, H_POS) <= 0) {
    // H = D^-1 (R'R + S) D^-1 over the free variables, in the order PERM
    // (a copy of IPIVOT that the step may rearrange).
    for (int i = 0; i < p; ++i) a.perm[i] = a.idx[i];
    dl7sqr(pc, a.lmat, a.rmat);
    dv7cpy(p * (p + 1) / 2, a.lwork, a.s);
    ds7ipr(p, a.perm, a.lwork);
    dv2axy(pc * (pc + 1) / 2, a.lmat, 1.0, a.lwork, a.lmat);
    dv7cpy(p, td, d);
    dv7ipr(p, a.perm, td);
    ds7dmp(pc, a.lmat, a.lmat, td, -1);
    I(iv, H_POS) = I(iv, LMAT_POS);
    I(iv, KAGQT) = -1;
  }
  dg7qsb(b, d, a.lmat, g, a.perm, ipiv1, ipiv2, I(iv, KAGQT), a.lwork, p, I(iv, P0), pc,
         a.step, dst, td, tg, v, a.w, x, a.x0);
  if (I(iv, KALM) > 0) I(iv, KALM) = 0;
}

// J'J s = P R'R P' s, R formed for the variables in the order IPIVOT (P);
// work: p elements.
void jtj_times(int p, const Layout& a, const double* s, double* out, double* work) {
  for (int i = 0; i < p; ++i) work[i] = s[a.idx[i]];
  dl7tvm(p, work, a.rmat, work);
  dl7vml(p, work, a.rmat, work);
  for (int i = 0; i < p; ++i) out[a.idx[i]] = work[i];
}

// 0.5 s'Ss.
double half_sss(int p, const Layout& a, const double* s, double* work) {
  ds7lvm(p, work, a.s, s);
  return 0.5 * dd7tpr(p, s, work);
}

// Computes the current model's step for V(RADIUS) into STEP with DSTNRM,
// GTSTEP and PREDUC for the step taken.
void compute_step(int* iv, int p, double* d, const double* g, double* v, const double* b,
                  double* x, const Layout& a) {
  if (b) bounded_step(iv, p, d, g, v, b, x, a);
  else model_step(iv, p, d, g, v, a, a.step);
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
void request_gradient(int* iv, int p, const double* g, const double* b, const Layout& a) {
  dv7cpy(p, a.g0, g);
  I(iv, TOOBIG) = 0;
  if (b) {
    // The new R comes in the variables' own order: keep the inverse of the
    // last order (for choose_order) and start again from the identity.
    i7pnvr(p, a.perm, a.idx);
    for (int i = 0; i < p; ++i) a.idx[i] = i;
  }
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
        compute_step(iv, p, d, g, v, b, x, a);
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
          if (!(R(v, RADIUS) > 0.0)) {
            // The radius has shrunk to nothing (or to NaN) with no step
            // accepted: what the model predicts is not finite (a Jacobian
            // near overflow), and no shorter step will change that.  Ending
            // here with false convergence, instead of shrinking a zero
            // radius for ever without another evaluation.
            finish(iv, 8);
            return;
          }
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
          jtj_times(p, a, a.step, a.hs, a.tmp);
          if (stpmod != 1) {
            ds7lvm(p, a.work, a.s, a.step);
            for (int i = 0; i < p; ++i) a.hs[i] += a.work[i];
          }
        }
        request_gradient(iv, p, g, b, a);
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
  jtj_times(p, a, a.step, wchmtd, a.tmp);
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
      for (int i = 0; i < p; ++i) a.idx[i] = i;
      if (b) I(iv, PC) = p;
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
  if (b) {
    choose_order(iv, p, x, g, b, a);
    // ||D^-1 g|| over the free variables.
    for (int i = 0; i < p; ++i) a.dig[i] = g[a.idx[i]] / d[a.idx[i]];
    R(v, DGNORM) = I(iv, PC) > 0 ? dv2nrm(I(iv, PC), a.dig) : 0.0;
  } else {
    double* w = a.w;
    for (int i = 0; i < p; ++i) w[i] = g[i] / d[i];
    R(v, DGNORM) = dv2nrm(p, w);
  }
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
