// Reverse-communication cores of the regression algorithm: drn2g (no
// bounds) and drn2gb (simple bounds).
//
// The caller keeps the residual vector r (n), the Jacobian DR (n x p,
// column-major, leading dimension nd), the scale vector D and x, and answers
// the core's requests:
//   IV(1) = 1: compute r at x; set IV(TOOBIG) = 1 when it cannot be computed.
//   IV(1) = 2: compute DR = dr/dx at x (r at x is in r); set IV(NFGCAL) = 0
//              when it cannot be computed.
// Any other IV(1) on return is final (the codes are listed in port.h).  All
// rows are supplied at once: nd >= n, n1 = 1, n2 = n (66 otherwise).
// Every accepted point's r is kept in RD, so that a run ending on a rejected
// trial step leaves r at the returned x.
//
// Covariance (covariance.cpp): the unbounded core computes it after the
// convergence codes 3 to 6 when RDREQ and COVREQ are nonzero (and the
// regression diagnostics when RDREQ asks for them), asking for the
// Jacobian at the final x and, for |COVREQ| = 1 or 2, for the points of a
// finite-difference Hessian.  The bounded core computes none, as the
// library's bounded regression routines do not: IV(COVMAT) stays 0 there.
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

namespace {

int packed(int p) { return p * (p + 1) / 2; }

// The second packed work triangle also holds dl7mst's work vector of
// p(p+5)/2 + 4 elements together with the first (they are adjacent).
int lwork_len(int p) { return std::max(packed(p), 2 * p + 4); }

// V elements the core needs for itself, the QR row block aside.
int core_fixed(int p) { return 18 * p + 7 + NVSAVE + 3 * packed(p) + lwork_len(p); }

// Rows per QR block: the block buffer (rows*p + rows elements) takes the
// room left in LV = (n + 21 + 2p) p + 200 + 2n once everything else is
// placed (the drivers take 100 + p + np + 2n).  That room is 84 elements
// whatever p is: from p = 42 on it holds one row, and from p = 84 on not
// even that.  There the block gets BIGBLOCKROWS rows of room of its own, so
// that a large problem is factored by blocks of rows (the block size
// changes the rounding of the factorization, so it stays as it was for the
// p that fit the library's LV).
constexpr int BIGBLOCKROWS = 128;
int blk_rows(int p) {
  if (p >= 84) return BIGBLOCKROWS;
  return std::max(1, (20 * p + 2 * p * p + 100 - core_fixed(p)) / (p + 1));
}

// V elements the core allocates for itself after IV(NEXTV).
int core_v_need(int p) { return core_fixed(p) + blk_rows(p) * (p + 1); }

}  // namespace

long long core_vneed(int p) { return core_v_need(p); }
int core_ivneed(int p) { return 4 * p; }

namespace {

// G and X0 take 2p each: y = J_old' r_new follows g, and the best step of
// the iteration follows x0.  W lies just before LMAT: the bounded
// Levenberg-Marquardt step's work runs from W's last 2p + 4 elements on
// into LMAT.  IV gets IPIVOT (p) and PERM (3p: the saved inverse of
// IPIVOT and two scratch permutations).
void allocate(int* iv, int p, bool bounded) {
  int next = I(iv, NEXTV);
  auto take = [&](int slot, int count) {
    I(iv, slot) = next;
    next += count;
  };
  take(G_POS, 2 * p);
  take(X0_POS, 2 * p);
  take(STEP_POS, p);
  take(GLAST_POS, p);
  take(VSAVE, NVSAVE);
  take(QTR_POS, p);
  take(JCN, p);
  take(RMAT_POS, packed(p));
  take(S_POS, packed(p));
  take(W_POS, 10 * p + 7);
  take(LMAT_POS, packed(p));
  take(LWORK_POS, lwork_len(p));
  I(iv, BLK_ROWS) = blk_rows(p);
  take(BLK_POS, blk_rows(p) * (p + 1));
  I(iv, NEXTV) = next;
  // IV(41) and IV(48) are PC and P0 in the bounded iteration.
  if (!bounded) {
    I(iv, Y_POS) = I(iv, G_POS) + p;
    I(iv, STLSTG) = I(iv, X0_POS) + p;
  }
  I(iv, IPIVOT) = I(iv, NEXTIV);
  I(iv, PERM) = I(iv, NEXTIV) + p;
  I(iv, NEXTIV) += 4 * p;
}

// Rows [from, to) of the Jacobian DR (leading dimension nd) and of r
// folded into RMAT and QTR, by blocks of m rows copied into blk (m(p+1)
// elements) and handed to dq7rad: from is a multiple of m, and so is to
// unless it is n.  With update_d, jcn_j becomes the largest |J_ij| of column
// j seen so far, taken from each block as it is copied (a maximum does not
// depend on the order its values come in, and a NaN is passed over either
// way).
void factor_rows(const double* dr, int nd, int p, const double* r, int m, double* blk,
                 double* rmat, double* qtr, double* jcn, bool update_d, int from, int to) {
  double* yblk = blk + static_cast<long>(m) * p;
  for (int i0 = from; i0 < to; i0 += m) {
    const int rows = std::min(m, to - i0);
    for (int k = 0; k < p; ++k) {
      const double* col = dr + i0 + static_cast<long>(k) * nd;
      double* into = blk + k * m;
      for (int i = 0; i < rows; ++i) into[i] = col[i];
      if (update_d) {
        double t = jcn[k];
        for (int i = 0; i < rows; ++i) t = std::max(t, std::fabs(col[i]));
        jcn[k] = t;
      }
    }
    for (int i = 0; i < rows; ++i) yblk[i] = r[i0 + i];
    dq7rad(rows, m, p, qtr, true, rmat, blk, yblk);
  }
}

// After the rows: g = R'Q'r = J'r and, with update_d, the scale update
// (dd7upd): t_j = V(JCN)_j, raised to sqrt(S_jj) when that is larger, and
// replaced by max(D0INIT, DTINIT) when below DTINIT, d_j = max(DFAC d_j, t_j).
void factor_finish(double* d, int* iv, int p, double* v, bool update_d) {
  dl7vml(p, v + I(iv, G_POS) - 1, v + I(iv, RMAT_POS) - 1, v + I(iv, QTR_POS) - 1);
  if (!update_d) return;
  const double* s = v + I(iv, S_POS) - 1;
  const double* jcn = v + I(iv, JCN) - 1;
  for (int j = 0; j < p; ++j) {
    double t = jcn[j];
    if (s[pk(j, j)] > 0.0) t = std::max(t, std::sqrt(s[pk(j, j)]));
    if (t < R(v, DTINIT)) t = std::max(R(v, D0INIT), R(v, DTINIT));
    d[j] = std::max(R(v, DFAC) * d[j], t);
  }
}

// QR of the Jacobian at x with r: RMAT, QTR, g = R'Q'r = J'r, and, when
// update_d, the scale update, where jcn_j is the largest |J_ij| of column j
// seen so far in the run (kept in V(JCN)).
void factor_jacobian(double* d, const double* dr, int* iv, int n, int nd, int p,
                     const double* r, double* v, bool update_d) {
  double* rmat = v + I(iv, RMAT_POS) - 1;
  double* qtr = v + I(iv, QTR_POS) - 1;
  dv7scp(packed(p), rmat, 0.0);
  dv7scp(p, qtr, 0.0);
  factor_rows(dr, nd, p, r, I(iv, BLK_ROWS), v + I(iv, BLK_POS) - 1, rmat, qtr, v + I(iv, JCN) - 1,
              update_d, 0, n);
  factor_finish(d, iv, p, v, update_d);
}

// Whether the core factors the Jacobian it has asked for as an iteration
// does (not in a covariance phase), and with the scale update or without.
bool iteration_factors(const int* iv) { return I(iv, COVPH) == 0 || I(iv, COVPH) == 9; }
bool scale_update(const int* iv) { return I(iv, DTYPE) > 0 || I(iv, NITER) == 0; }

// One step of the iteration, with or without bounds.
void iterate(const double* b, double* d, int* iv, int liv, int lv, int p, double* v,
             double* x) {
  const double* g = v + I(iv, G_POS) - 1;
  const double* y = v + I(iv, G_POS) - 1 + p;
  if (b) dg7itb(b, d, g, iv, liv, lv, p, p, v, x, y);
  else dg7lit(d, g, iv, liv, lv, p, p, v, x, y);
}

void core(const double* b, double* d, double* dr, int* iv, int liv, int lv, int n,
          int nd, int n1, int n2, int p, double* r, double* rd, double* v, double* x) {
  const int status = I(iv, IV_STATUS);
  if (status == 12) {
    if (p <= 0 || n <= 0 || nd < n || n1 != 1 || n2 != n) {
      I(iv, IV_STATUS) = 66;
      return;
    }
    if (liv < I(iv, NEXTIV) + 4 * p - 1) {
      I(iv, IVNEED) = I(iv, NEXTIV) + 4 * p - 1;
      I(iv, IV_STATUS) = 14;
      return;
    }
    if (lv < I(iv, NEXTV) + core_v_need(p) - 1) {
      I(iv, VNEED) = I(iv, NEXTV) + core_v_need(p) - 1;
      I(iv, IV_STATUS) = 14;
      return;
    }
    dparck(I(iv, ALGSAV), d, iv, liv, lv, n, v);
    if (I(iv, IV_STATUS) != 12) return;
    if (b) {
      for (int i = 0; i < p; ++i) {
        if (b[2 * i] > b[2 * i + 1]) {
          I(iv, IV_STATUS) = 82;
          return;
        }
        x[i] = std::min(b[2 * i + 1], std::max(b[2 * i], x[i]));
      }
    }
    allocate(iv, p, b != nullptr);
    dv7scp(p, v + I(iv, JCN) - 1, 0.0);
    dv7scp(packed(p), v + I(iv, S_POS) - 1, 0.0);
    if (R(v, DINIT) >= 0.0) dv7scp(p, d, R(v, DINIT));
    I(iv, BOUNDED) = b ? 1 : 0;
    I(iv, COVMAT) = 0;
    I(iv, REGD) = 0;
    R(v, RCOND) = 0.0;
    I(iv, NFCOV) = 0;
    I(iv, NGCOV) = 0;
    I(iv, COVPH) = 0;
    I(iv, JOLD) = 0;
    I(iv, QRDONE) = 0;
    I(iv, TOOBIG) = 0;
    I(iv, MODE) = 0;
    iterate(b, d, iv, liv, lv, p, v, x);
    return;
  }

  const int covph = I(iv, COVPH);
  if (covph != 0 && covph != 9) {
    // Covariance phase: the answer belongs to covariance_continue.
    if (status == 2 && covph == 1 && I(iv, NFGCAL) != 0)
      factor_jacobian(d, dr, iv, n, nd, p, r, v, false);
    if (status == 1 || status == 2) covariance_continue(iv, n, nd, p, d, dr, r, rd, v, x);
    else I(iv, IV_STATUS) = 50;
    if (I(iv, IV_STATUS) >= 3) {
      ditsum(d, v + I(iv, G_POS) - 1, iv, liv, lv, p, v, x);
      if (I(iv, COVMAT) > 0) dn2cvp(iv, liv, lv, p, v);
    }
    return;
  }
  if (status == 1) {
    if (!I(iv, TOOBIG)) {
      const double rn = dv2nrm(n, r);
      if (!(rn <= R(v, RLIMIT))) I(iv, TOOBIG) = 1;
      else R(v, F) = 0.5 * rn * rn;
    }
    iterate(b, d, iv, liv, lv, p, v, x);
  } else if (status == 2) {
    if (I(iv, NFGCAL) != 0) {
      // Factored already while the caller computed it (RowFactor)?
      if (I(iv, QRDONE)) I(iv, QRDONE) = 0;
      else factor_jacobian(d, dr, iv, n, nd, p, r, v, scale_update(iv));
      I(iv, JOLD) = 1;
    }
    iterate(b, d, iv, liv, lv, p, v, x);
  } else {
    if (status < 3 || status > 15) I(iv, IV_STATUS) = 50;
    return;
  }

  const int req = I(iv, IV_STATUS);
  if (req == 1) return;
  if (req == 2) {
    // Accepted point: keep J_old' r_new for the secant update and r itself
    // (r at the last accepted point is needed if a later trial is rejected
    // at convergence).
    if (I(iv, JOLD)) {
      double* y = v + I(iv, G_POS) - 1 + p;
      dd7tprs(n, p, dr, nd, r, y);
    }
    if (rd) dv7cpy(n, rd, r);
    return;
  }

  // Final code from dg7lit.
  const int code = req;
  if (rd && I(iv, RESTOR) && I(iv, JOLD)) dv7cpy(n, r, rd);
  if (code >= 3 && code <= 6 && I(iv, RDREQ) != 0 && I(iv, COVREQ) != 0 && !b) {
    covariance_begin(iv, n, nd, p, d, dr, r, rd, v, x);
    if (I(iv, IV_STATUS) < 3) return;
  }
  ditsum(d, v + I(iv, G_POS) - 1, iv, liv, lv, p, v, x);
  if (I(iv, COVMAT) > 0) dn2cvp(iv, liv, lv, p, v);
}

}  // namespace

RowFactor::RowFactor(int* iv, double* v, int n, int nd, int p, const double* dr, const double* r)
    : iv_(iv), v_(v), n_(n), nd_(nd), p_(p), dr_(dr), r_(r) {
  I(iv, QRDONE) = 0;
  if (I(iv, IV_STATUS) != 2 || !iteration_factors(iv)) return;
  m_ = I(iv, BLK_ROWS);
  update_d_ = scale_update(iv);
  work_.assign(static_cast<std::size_t>(packed(p) + 2 * p + m_ * (p + 1)), 0.0);
  const double* jcn = v + I(iv, JCN) - 1;
  std::copy(jcn, jcn + p, work_.begin() + packed(p) + p);
  on_ = true;
}

void RowFactor::rows(int k) {
  if (!on_) return;
  if (k < 0 || k > n_) {
    on_ = false;  // rows already given have changed: the core factors
    return;
  }
  double* rmat = work_.data();
  double* qtr = rmat + packed(p_);
  double* jcn = qtr + p_;
  double* blk = jcn + p_;
  // Whole blocks only, and the last one once every row is there, so that
  // the blocks are the core's.
  const int to = k == n_ ? n_ : k - k % m_;
  if (to <= done_) return;
  factor_rows(dr_, nd_, p_, r_, m_, blk, rmat, qtr, jcn, update_d_, done_, to);
  done_ = to;
}

void RowFactor::finish(double* d) {
  if (!on_ || done_ != n_ || I(iv_, NFGCAL) == 0) return;
  const int np = packed(p_);
  std::copy(work_.begin(), work_.begin() + np, v_ + I(iv_, RMAT_POS) - 1);
  std::copy(work_.begin() + np, work_.begin() + np + p_, v_ + I(iv_, QTR_POS) - 1);
  std::copy(work_.begin() + np + p_, work_.begin() + np + 2 * p_, v_ + I(iv_, JCN) - 1);
  factor_finish(d, iv_, p_, v_, update_d_);
  I(iv_, QRDONE) = 1;
}

void drn2g(double* d, double* dr, int* iv, int liv, int lv, int n, int nd, int n1,
           int n2, int p, double* r, double* rd, double* v, double* x) {
  core(nullptr, d, dr, iv, liv, lv, n, nd, n1, n2, p, r, rd, v, x);
}

void drn2gb(const double* b, double* d, double* dr, int* iv, int liv, int lv, int n,
            int nd, int n1, int n2, int p, double* r, double* rd, double* v, double* x) {
  core(b, d, dr, iv, liv, lv, n, nd, n1, n2, p, r, rd, v, x);
}

}  // namespace vexor::port
