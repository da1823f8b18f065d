// Drivers dn2f (no bounds) and dn2fb (bounds): the reverse-communication
// loop around drn2g / drn2gb, calling the residual function and building the
// Jacobian by forward differences; dn2g and dn2gb, the same loop with the
// Jacobian from the caller's function.
//
// V layout added by the drivers after the fixed part: D (p), DR (n*p), r (n),
// and RD (n) when it is needed (regression diagnostics asked for by RDREQ,
// or a covariance from a finite-difference Hessian, |COVREQ| 1 or 2, which
// keeps r at x there while it differences); their positions are kept in
// IV(D_POS), IV(DR_POS), IV(R_POS), IV(RD_POS) (0: no RD).  IV(1) = 0 on
// entry asks for divset(1, ...) first.
//
// Forward differences: column j of J is (r(x + h e_j) - r(x)) / h with
//   h = DLTFDJ * max(|x_j|, 1/d_j)  (D set to 1 before the first Jacobian
// unless DINIT gives it).  When r cannot be computed at x + h, h is halved
// and its sign reversed until it falls below 1000 machep, and the Jacobian
// is then reported as not computable.  With bounds every point tried lies
// inside them: the step is reversed when x + h lies above the upper bound,
// a retry keeps the side when only one side is inside, a variable with
// equal bounds gets a zero column, and one whose box is narrower than h on
// both sides makes the Jacobian not computable.
// dn2f sets IV(COVREQ) to minus its absolute value: with residual values
// only, a finite-difference Hessian for the covariance comes from function
// values.  dn2fb sets it to 0: no covariance is computed with bounds.
// The evaluation number handed to the residual function is IV(NFCALL) for
// residual requests and IV(NGCALL) for Jacobian columns.  A negative NF from
// the residual function returns at once, leaving IV(1) at 1 or 2.
#include <cmath>
#include <cstdint>

#include "fit/port/port.h"

namespace vexor::port {

namespace {

// V elements the drivers place before the core's own: D, DR, r and, when
// kept, RD.
long long driver_v(int n, int p, bool keeprd) {
  return p + static_cast<long long>(n) * p + n + (keeprd ? n : 0);
}

bool setup(int n, int p, int* iv, int liv, int lv, double* v) {
  if (I(iv, IV_STATUS) == 0) divset(1, iv, liv, lv, v);
  if (I(iv, IV_STATUS) != 12) return I(iv, IV_STATUS) < 3;
  if (n <= 0 || p <= 0) {
    I(iv, IV_STATUS) = 66;
    return false;
  }
  const bool keeprd = dn2_keeprd(I(iv, RDREQ), I(iv, COVREQ));
  int next = I(iv, NEXTV);
  const long long need = next + driver_v(n, p, keeprd) - 1;
  if (need > lv) {
    I(iv, VNEED) = need < INT32_MAX ? static_cast<int>(need) : INT32_MAX;
    I(iv, IV_STATUS) = 14;
    return false;
  }
  I(iv, D_POS) = next;
  next += p;
  I(iv, DR_POS) = next;
  next += n * p;
  I(iv, R_POS) = next;
  next += n;
  I(iv, RD_POS) = keeprd ? next : 0;
  if (keeprd) next += n;
  I(iv, NEXTV) = next;
  I(iv, NFTOTL) = 0;
  return true;
}

// Forward-difference Jacobian into dr; returns false when NF < 0 was seen.
bool jacobian(int n, int p, double* x, const double* b, const Calcr& calcr, int* iv,
              double* v) {
  double* d = v + I(iv, D_POS) - 1;
  // Before the first Jacobian the scale is 1 unless the caller chose one
  // (DINIT != 0); the first scale update then starts from it.
  if (I(iv, NGCALL) == 1 && R(v, DINIT) == 0.0) dv7scp(p, d, 1.0);
  double* dr = v + I(iv, DR_POS) - 1;
  const double* r = v + I(iv, R_POS) - 1;
  const double delta = R(v, DLTFDJ);
  const double hlim = 1e3 * d1mach(4);
  for (int j = 0; j < p; ++j) {
    double* col = dr + static_cast<long>(j) * n;
    const double xj = x[j];
    if (b && b[2 * j] >= b[2 * j + 1]) {
      // A variable its bounds fix has a zero column.
      dv7scp(n, col, 0.0);
      continue;
    }
    double h = delta * std::max(std::fabs(xj), 1.0 / d[j]);
    // Retries halve h and try the other side (t = -1/2), unless only one
    // side lies inside the bounds (t = 1/2); with neither side inside, the
    // Jacobian cannot be formed.
    double t = -0.5;
    if (b) {
      const bool below = xj - h >= b[2 * j], above = xj + h <= b[2 * j + 1];
      if (!below || !above) t = 0.5;
      if (!above) h = -h;
      if (!below && !above) {
        I(iv, NFGCAL) = 0;
        return true;
      }
    }
    for (;;) {
      x[j] = xj + h;
      int nf = I(iv, NGCALL);
      calcr(n, p, x, nf, col);
      I(iv, NFTOTL) += 1;
      x[j] = xj;
      if (nf < 0) return false;
      if (nf > 0) break;
      // r cannot be computed at x + h: try again with t h, down to 1000
      // machep.
      h *= t;
      if (std::fabs(h) < hlim) {
        I(iv, NFGCAL) = 0;
        return true;
      }
    }
    for (int i = 0; i < n; ++i) col[i] = (col[i] - r[i]) / h;
  }
  return true;
}

// The caller's Jacobian into dr; returns false when NF < 0 was seen.  One
// Jacobian counts as one evaluation in IV(NFTOTL).  The rows the function
// tells of are factored as they come (RowFactor).
bool suppliedjacobian(int n, int p, double* x, const Calcj& calcj, int* iv, double* v) {
  double* d = v + I(iv, D_POS) - 1;
  if (I(iv, NGCALL) == 1 && R(v, DINIT) == 0.0) dv7scp(p, d, 1.0);
  double* dr = v + I(iv, DR_POS) - 1;
  RowFactor factor(iv, v, n, n, p, dr, v + I(iv, R_POS) - 1);
  const JacobianRows rows = [&factor](int k) { factor.rows(k); };
  int nf = I(iv, NGCALL);
  calcj(n, p, x, nf, dr, &rows);
  I(iv, NFTOTL) += 1;
  if (nf < 0) return false;
  if (nf == 0) I(iv, NFGCAL) = 0;
  factor.finish(d);
  return true;
}

void drive(int n, int p, double* x, const double* b, const Calcr& calcr, const Calcj* calcj,
           int* iv, int liv, int lv, double* v) {
  // A call with IV(1) = 1 or 2 resumes a run stopped by NF < 0: the pending
  // request is served first.
  bool pending = I(iv, IV_STATUS) == 1 || I(iv, IV_STATUS) == 2;
  if (I(iv, IV_STATUS) == 0) divset(1, iv, liv, lv, v);
  // Only residual values are at hand: a covariance from a finite-difference
  // Hessian uses function values (COVREQ < 0), never gradient differences.
  // With bounds no covariance is computed (COVREQ 0).
  if (liv >= IVLAST_FIXED) I(iv, COVREQ) = b ? 0 : -std::abs(I(iv, COVREQ));
  if (!pending && !setup(n, p, iv, liv, lv, v)) return;
  for (;;) {
    double* d = v + I(iv, D_POS) - 1;
    double* dr = v + I(iv, DR_POS) - 1;
    double* r = v + I(iv, R_POS) - 1;
    double* rd = I(iv, RD_POS) > 0 ? v + I(iv, RD_POS) - 1 : nullptr;
    if (!pending) {
      if (b) drn2gb(b, d, dr, iv, liv, lv, n, n, 1, n, p, r, rd, v, x);
      else drn2g(d, dr, iv, liv, lv, n, n, 1, n, p, r, rd, v, x);
    }
    pending = false;
    const int req = I(iv, IV_STATUS);
    if (req == 1) {
      int nf = I(iv, NFCALL);
      calcr(n, p, x, nf, r);
      I(iv, NFTOTL) += 1;
      if (nf < 0) return;
      I(iv, TOOBIG) = nf == 0 ? 1 : 0;
    } else if (req == 2) {
      if (calcj ? !suppliedjacobian(n, p, x, *calcj, iv, v) : !jacobian(n, p, x, b, calcr, iv, v))
        return;
    } else {
      return;
    }
  }
}

}  // namespace

bool dn2_keeprd(int rdreq, int covreq) {
  return rdreq % 4 >= 2 || std::abs(covreq) == 1 || std::abs(covreq) == 2;
}

long long dn2_lvneed(int n, int p, bool keeprd) {
  return VLAST_FIXED + driver_v(n, p, keeprd) + core_vneed(p);
}

int dn2_livneed(int p) { return IVLAST_FIXED + core_ivneed(p); }

void dn2f(int n, int p, double* x, const Calcr& calcr, int* iv, int liv, int lv,
          double* v) {
  drive(n, p, x, nullptr, calcr, nullptr, iv, liv, lv, v);
}

void dn2fb(int n, int p, double* x, const double* b, const Calcr& calcr, int* iv,
           int liv, int lv, double* v) {
  drive(n, p, x, b, calcr, nullptr, iv, liv, lv, v);
}

void dn2g(int n, int p, double* x, const Calcr& calcr, const Calcj& calcj, int* iv, int liv,
          int lv, double* v) {
  drive(n, p, x, nullptr, calcr, &calcj, iv, liv, lv, v);
}

void dn2gb(int n, int p, double* x, const double* b, const Calcr& calcr, const Calcj& calcj,
           int* iv, int liv, int lv, double* v) {
  drive(n, p, x, b, calcr, &calcj, iv, liv, lv, v);
}

}  // namespace vexor::port
