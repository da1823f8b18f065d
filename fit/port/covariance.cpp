// Covariance of the estimates after convergence, as selected by COVREQ.
//
// With f = ||r||^2 / 2 at the final x, sigma^2 = 2 f / max(1, n - p), J the
// Jacobian and H the Hessian of f at x estimated by finite differences:
//   |COVREQ| = 1:  C = sigma^2 H^-1 (J'J) H^-1
//   |COVREQ| = 2:  C = sigma^2 H^-1
//   |COVREQ| = 3:  C = sigma^2 (J'J)^-1        (no extra evaluations)
// H comes from differences of gradients g = J'r when COVREQ > 0 (one
// residual vector and one Jacobian per parameter) and from differences of f
// alone when COVREQ < 0 (p + p(p+1)/2 residual vectors), both with steps
// h_k = DLTFDC * max(|x_k|, 1/d_k), the sign of x_k.  (The gradients here are
// forward differences themselves, so DELTA0 = sqrt(machep), the library's
// step for analytic gradients, would leave noise of the order of H itself.)
//   H_ij = (f(x + h_i e_i + h_j e_j) - f(x + h_i e_i) - f(x + h_j e_j) + f(x)) / (h_i h_j).
// Gradient differences are symmetrized, H = (G + G')/2.
// IV(COVMAT): the position of C (packed lower triangle by rows) when
// computed; -1 when H (or J'J) is not positive definite; -2 when a
// perturbed point or its Jacobian could not be evaluated even with the step
// reversed.  IV(NFCOV) and IV(NGCOV) count the evaluations spent here.
//
// RDREQ (default 3) asks for C when odd and for regression diagnostics
// when RDREQ % 4 >= 2.  Regression diagnostics, once C is computed: with L
// the Cholesky factor of the matrix whose inverse C is made of (J'J for
// |COVREQ| = 3, H otherwise) and J_i the row of the Jacobian at x for
// observation i, the leverage h_i = ||L^-1 J_i'||^2 and
//   RD(i) = |r_i| sqrt(h_i / (1 - h_i)) / sqrt(f)   (-1 when h_i >= 1),
// f taken as 1 when it is 0.  IV(REGD) is then 1 (0 when none were
// computed).  With COVREQ = 1 or 2 the Jacobian at x is evaluated once more
// for them, the one in hand belonging to the last perturbed point.
#include <cmath>
#include <vector>

#include "fit/port/port.h"

namespace vexor::port {

namespace {

enum { CP_NONE = 0, CP_FINALJ = 1, CP_GR = 3, CP_GJ = 4, CP_FR = 5, CP_DIAGJ = 6, CP_DONE = 9 };

int packed(int p) { return p * (p + 1) / 2; }

double* at(double* v, int* iv, int slot) { return v + I(iv, slot) - 1; }

// V(RCOND): 1/cond of the lower triangle l as dl7svn and dl7svx estimate it.
void set_rcond(int p, const double* l, double* v, int* iv) {
  double* x = at(v, iv, W_POS);
  double* y = x + p;
  const double big = dl7svx(p, l, x, y);
  R(v, RCOND) = big > 0.0 ? dl7svn(p, l, x, y) / big : 0.0;
}

// C = sigma^2 (R'R)^-1 from RMAT at x.
int covariance3(int* iv, int n, int p, double* v) {
  const double* rmat = at(v, iv, RMAT_POS);
  double* rinv = at(v, iv, LWORK_POS);
  double* cov = at(v, iv, LMAT_POS);
  // Singular when a pivot is within the Jacobian's own error of zero: the
  // forward-difference columns carry relative errors of about DLTFDJ, so
  // |R_jj| <= 10 * DLTFDJ * ||J e_j|| (column norms of R are those of J)
  // means that column is a combination of the others as far as J is known.
  // The test does not depend on the units of the parameters, unlike a bound
  // on the condition of R itself (the library asks 1/cond(R) > sqrt(machep)):
  // at the certified NIST solutions that bound would refuse Hahn1, Nelson,
  // Roszman1, MGH10 and Bennett5 (1/cond(R) 6.5e-10 to 1e-8), whose columns,
  // scaled to unit length, are far from dependent (1/cond 1.4e-3 to 1.7e-5).
  const double tiny = 10.0 * R(v, DLTFDJ);
  for (int j = 0; j < p; ++j) {
    double cn = 0.0;
    for (int i = 0; i <= j; ++i) cn += rmat[pk(i, j)] * rmat[pk(i, j)];
    if (!(std::fabs(rmat[pk(j, j)]) > tiny * std::sqrt(cn))) return -1;
  }
  // R = L' with L = R' packed by rows: R^-1 = (L^-1)', (R'R)^-1 = (L^-1)'(L^-1).
  set_rcond(p, rmat, v, iv);
  dl7nvr(p, rinv, rmat);
  dl7tsq(p, cov, rinv);
  const double sigma2 = 2.0 * R(v, F) / std::max(1, n - p);
  for (int k = 0; k < packed(p); ++k) {
    cov[k] *= sigma2;
    if (!std::isfinite(cov[k])) return -1;
  }
  return I(iv, LMAT_POS);
}

// Diagnostics need RD, which the drivers keep whenever RDREQ asks for them.
bool want_diagnostics(const int* iv, const double* rd) { return I(iv, RDREQ) % 4 >= 2 && rd; }

// RD from the Jacobian DR and r at x, L^-1 in LWORK (see the top).
void diagnostics(int* iv, int n, int nd, int p, const double* dr, const double* r,
                 double* rd, double* v) {
  const double* linv = at(v, iv, LWORK_POS);
  double* ji = at(v, iv, W_POS);
  double* z = ji + p;
  const double f = std::fabs(R(v, F));
  const double ff = f != 0.0 ? 1.0 / std::sqrt(f) : 1.0;
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < p; ++j) ji[j] = dr[i + static_cast<long>(j) * nd];
    dl7vml(p, z, linv, ji);
    const double h = dd7tpr(p, z, z);
    rd[i] = h < 1.0 ? std::sqrt(r[i] * r[i] * h / (1.0 - h)) * ff : -1.0;
  }
  I(iv, REGD) = 1;
}

void finish(int* iv, int status) {
  // RDREQ 2: the diagnostics were wanted, the covariance was not.
  if (status > 0 && I(iv, RDREQ) % 2 == 0) status = 0;
  I(iv, COVMAT) = status;
  I(iv, COVPH) = CP_DONE;
  I(iv, IV_STATUS) = I(iv, CNVCOD);
}

// Where the point of difference number k lies; requests r there.
void request_point(int* iv, int p, double* v, double* x) {
  const double* xf = at(v, iv, STEP_POS);
  const double* h = at(v, iv, W_POS) + 8 * p;
  const int k = I(iv, FDSTEP);
  dv7cpy(p, x, xf);
  if (I(iv, COVREQ) > 0 || k < p) {
    x[k] += h[k];
  } else {
    int m = k - p, i = 0;
    while (m > i) m -= ++i;  // (i, m) with m <= i
    x[i] += h[i];
    x[m] += h[m];
  }
  I(iv, NFCOV) += 1;
  I(iv, COVPH) = I(iv, COVREQ) > 0 ? CP_GR : CP_FR;
  I(iv, IV_STATUS) = 1;
}

void begin_hessian(int* iv, int n, int nd, int p, const double* d, const double* dr,
                   double* r, double* rd, double* v, double* x) {
  if (std::abs(I(iv, COVREQ)) == 3) {
    const int status = covariance3(iv, n, p, v);
    if (status > 0 && want_diagnostics(iv, rd)) diagnostics(iv, n, nd, p, dr, r, rd, v);
    finish(iv, status);
    return;
  }
  dv7cpy(p, at(v, iv, STEP_POS), x);              // x final
  dv7cpy(p, at(v, iv, Y_POS), at(v, iv, G_POS));  // g at x final
  dv7cpy(n, rd, r);                               // r at x final
  R(v, FHESS) = R(v, F);
  double* h = at(v, iv, W_POS) + 8 * p;
  const double rel = R(v, DLTFDC);
  for (int k = 0; k < p; ++k) {
    h[k] = rel * std::max(std::fabs(x[k]), d[k] > 0.0 ? 1.0 / d[k] : 1.0);
    if (x[k] < 0.0) h[k] = -h[k];
  }
  dv7scp(packed(p), at(v, iv, S_POS), 0.0);
  I(iv, FDSTEP) = 0;
  I(iv, FLIPPED) = 0;
  request_point(iv, p, v, x);
}

void end_hessian(int* iv, int n, int nd, int p, double* dr, double* r, double* rd,
                 double* v, double* x) {
  dv7cpy(p, x, at(v, iv, STEP_POS));
  dv7cpy(n, r, rd);
  R(v, F) = R(v, FHESS);
  const double* hm = at(v, iv, S_POS);
  double* l = at(v, iv, LWORK_POS);
  double* cov = at(v, iv, LMAT_POS);
  dv7cpy(packed(p), l, hm);
  int irc;
  dl7srt(1, p, l, l, irc);
  if (irc != 0) {
    finish(iv, -1);
    return;
  }
  set_rcond(p, l, v, iv);
  dl7nvr(p, l, l);     // L^-1
  dl7tsq(p, cov, l);   // H^-1 = L^-T L^-1
  // With only function values differenced, DR is still the Jacobian at x
  // (and is about to serve as work for COVREQ = -1).
  if (want_diagnostics(iv, rd) && I(iv, COVREQ) < 0) diagnostics(iv, n, nd, p, dr, r, rd, v);
  const double sigma2 = 2.0 * R(v, F) / std::max(1, n - p);
  if (std::abs(I(iv, COVREQ)) == 1) {
    // K = R H^-1 (p x p, column-major in DR's room), C = K'K.
    if (static_cast<long>(nd) * p < static_cast<long>(p) * p) {
      finish(iv, -1);
      return;
    }
    const double* rmat = at(v, iv, RMAT_POS);
    double* kmat = dr;
    for (int c = 0; c < p; ++c)
      for (int i = 0; i < p; ++i) {
        double s = 0.0;
        for (int m = i; m < p; ++m) s += rmat[pk(i, m)] * cov[m <= c ? pk(m, c) : pk(c, m)];
        kmat[i + c * p] = s;
      }
    for (int i = 0; i < p; ++i)
      for (int j = 0; j <= i; ++j) cov[pk(j, i)] = dd7tpr(p, kmat + i * p, kmat + j * p);
  }
  for (int k = 0; k < packed(p); ++k) {
    cov[k] *= sigma2;
    if (!std::isfinite(cov[k])) {
      I(iv, REGD) = 0;
      finish(iv, -1);
      return;
    }
  }
  if (!want_diagnostics(iv, rd) || I(iv, COVREQ) < 0) {
    finish(iv, I(iv, LMAT_POS));
  } else {
    // L^-1 stays in LWORK; the Jacobian at x is next.
    I(iv, COVMAT) = I(iv, LMAT_POS);
    I(iv, COVPH) = CP_DIAGJ;
    I(iv, NGCOV) += 1;
    I(iv, NFGCAL) = I(iv, NFCALL);
    I(iv, IV_STATUS) = 2;
  }
}

// A perturbed point could not be evaluated: reverse its step once.
bool retry(int* iv, int p, double* v, double* x) {
  if (I(iv, FLIPPED) || I(iv, COVREQ) < 0) return false;
  double* h = at(v, iv, W_POS) + 8 * p;
  h[I(iv, FDSTEP)] = -h[I(iv, FDSTEP)];
  I(iv, FLIPPED) = 1;
  request_point(iv, p, v, x);
  return true;
}

void next(int* iv, int n, int nd, int p, double* dr, double* r, double* rd, double* v,
          double* x) {
  I(iv, FDSTEP) += 1;
  I(iv, FLIPPED) = 0;
  const int total = I(iv, COVREQ) > 0 ? p : p + packed(p);
  if (I(iv, FDSTEP) < total) request_point(iv, p, v, x);
  else end_hessian(iv, n, nd, p, dr, r, rd, v, x);
}

void abandon(int* iv, int n, int p, double* r, double* rd, double* v, double* x) {
  dv7cpy(p, x, at(v, iv, STEP_POS));
  dv7cpy(n, r, rd);
  R(v, F) = R(v, FHESS);
  finish(iv, -2);
}

}  // namespace

// Starts the covariance at convergence: the Jacobian at x is requested first
// unless RMAT and G already belong to x.
void covariance_begin(int* iv, int n, int nd, int p, const double* d, double* dr,
                      double* r, double* rd, double* v, double* x) {
  I(iv, CNVCOD) = I(iv, IV_STATUS);
  if (I(iv, JCUR)) {
    begin_hessian(iv, n, nd, p, d, dr, r, rd, v, x);
    return;
  }
  I(iv, COVPH) = CP_FINALJ;
  I(iv, NGCOV) += 1;
  I(iv, NFGCAL) = I(iv, NFCALL);
  I(iv, IV_STATUS) = 2;
}

// Continues the covariance with the caller's answer (IV(1) = 1 or 2 on entry).
// At CP_FINALJ the caller (drn2g) has already factored the new Jacobian.
void covariance_continue(int* iv, int n, int nd, int p, const double* d, double* dr,
                         double* r, double* rd, double* v, double* x) {
  switch (I(iv, COVPH)) {
    case CP_FINALJ:
      if (I(iv, NFGCAL) == 0) {
        finish(iv, -2);
        return;
      }
      begin_hessian(iv, n, nd, p, d, dr, r, rd, v, x);
      return;
    case CP_GR:
      if (I(iv, TOOBIG)) {
        if (!retry(iv, p, v, x)) abandon(iv, n, p, r, rd, v, x);
        return;
      }
      I(iv, NGCOV) += 1;
      I(iv, NFGCAL) = 1;
      I(iv, COVPH) = CP_GJ;
      I(iv, IV_STATUS) = 2;
      return;
    case CP_GJ: {
      if (I(iv, NFGCAL) == 0) {
        if (!retry(iv, p, v, x)) abandon(iv, n, p, r, rd, v, x);
        return;
      }
      const int k = I(iv, FDSTEP);
      const double hk = (at(v, iv, W_POS) + 8 * p)[k];
      const double* g0 = at(v, iv, Y_POS);
      double* hm = at(v, iv, S_POS);
      std::vector<double> gnew(static_cast<std::size_t>(p));
      dd7tprs(n, p, dr, nd, r, gnew.data());
      for (int i = 0; i < p; ++i) {
        const double col = (gnew[i] - g0[i]) / hk;  // H(i, k)
        if (i < k) hm[pk(i, k)] = 0.5 * (hm[pk(i, k)] + col);
        else hm[pk(k, i)] = col;
      }
      next(iv, n, nd, p, dr, r, rd, v, x);
      return;
    }
    case CP_DIAGJ:
      if (I(iv, NFGCAL) != 0) diagnostics(iv, n, nd, p, dr, r, rd, v);
      finish(iv, I(iv, COVMAT));
      return;
    case CP_FR: {
      if (I(iv, TOOBIG)) {
        abandon(iv, n, p, r, rd, v, x);
        return;
      }
      const double rn = dv2nrm(n, r);
      if (!(rn <= R(v, RLIMIT))) {
        abandon(iv, n, p, r, rd, v, x);
        return;
      }
      const double fk = 0.5 * rn * rn;
      const int k = I(iv, FDSTEP);
      double* fi = at(v, iv, W_POS) + 7 * p;
      const double* h = at(v, iv, W_POS) + 8 * p;
      if (k < p) {
        fi[k] = fk;
      } else {
        int m = k - p, i = 0;
        while (m > i) m -= ++i;
        at(v, iv, S_POS)[pk(m, i)] = (fk - fi[i] - fi[m] + R(v, FHESS)) / (h[i] * h[m]);
      }
      next(iv, n, nd, p, dr, r, rd, v, x);
      return;
    }
    default:
      return;
  }
}

}  // namespace vexor::port
