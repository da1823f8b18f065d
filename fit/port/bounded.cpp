// Steps of the bounded iteration (dg7itb): the permutation kernels, the
// column shift of a QR factorization (dq7rsh), the bounded modified Newton
// step (ds7bqn) and the bounded Levenberg-Marquardt (dl7msb) and
// Goldfeld-Quandt-Trotter (dg7qsb) steps built on it.
//
// The free variables of an iteration come first in the permutation IPIV
// (values are 0-based variable indices); R, Q'r, the scaled gradient TG and
// the scale TD are kept in that order.  A step computed over the first p1
// of them is followed until it meets a bound; the variable that meets it is
// moved behind the free ones and fixed, and the restricted Newton step of
// the same model (same Levenberg-Marquardt parameter) is followed from
// there, until the step is whole or long enough.
//
// Permutation arrays name positions and variables from 0; a variable fixed
// on its lower bound is marked in IPIV by ~j (negative) until the step is
// finished.
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

namespace {

// The 2x2 Householder reflection that maps (a, b) to (c, 0); applied to a
// pair (u, v) as t = x u + y v, u += t, v += t z.
struct Reflection {
  double x = 0.0, y = 0.0, z = 0.0;
  void apply(double& u, double& v) const {
    const double t = x * u + y * v;
    u += t;
    v += t * z;
  }
};

// Returns c = -sign(a) sqrt(a^2 + b^2) (c = a when b = 0, with the identity).
double reflection(double a, double b, Reflection& h) {
  if (b == 0.0) {
    h = Reflection{};
    return a;
  }
  const double scale = std::fabs(a) + std::fabs(b);
  double a1 = a / scale;
  const double b1 = b / scale;
  double t = std::sqrt(a1 * a1 + b1 * b1);
  if (a1 > 0.0) t = -t;
  a1 -= t;
  h.x = a1 / t;
  h.y = b1 / t;
  h.z = b1 / a1;
  return scale * t;
}

// The variable a permutation entry names (entries of fixed-on-lower
// variables are complemented while a step is computed).
int var(int e) { return e < 0 ? ~e : e; }

}  // namespace

// Moves x[k] to the end of x[k..n) and shifts x[k+1..n) down by one.
void i7shft(int n, int k, int* x) {
  if (k >= n - 1) return;
  const int t = x[k];
  for (int i = k; i < n - 1; ++i) x[i] = x[i + 1];
  x[n - 1] = t;
}

void dv7shf(int n, int k, double* x) {
  if (k >= n - 1) return;
  const double t = x[k];
  for (int i = k; i < n - 1; ++i) x[i] = x[i + 1];
  x[n - 1] = t;
}

// x = the inverse of the permutation y: x[y[i]] = i.
void i7pnvr(int n, int* x, const int* y) {
  for (int i = 0; i < n; ++i) x[y[i]] = i;
}

// x[i] <- x[ip[i]], in place: each cycle of ip is followed once, its entries
// complemented while visited and restored afterwards.
void dv7ipr(int n, int* ip, double* x) {
  for (int i = 0; i < n; ++i) {
    if (ip[i] < 0) continue;
    const double t = x[i];
    int j = i;
    for (;;) {
      const int k = ip[j];
      ip[j] = ~k;
      if (k == i) {
        x[j] = t;
        break;
      }
      x[j] = x[k];
      j = k;
    }
  }
  for (int i = 0; i < n; ++i) ip[i] = ~ip[i];
}

namespace {

// Exchanges rows and columns a and b of the symmetric packed matrix h.
void sym_swap(int p, double* h, int a, int b) {
  if (a == b) return;
  if (a > b) std::swap(a, b);
  std::swap(h[pk(a, a)], h[pk(b, b)]);
  for (int k = 0; k < p; ++k) {
    if (k == a || k == b) continue;
    double& ha = h[k <= a ? pk(k, a) : pk(a, k)];
    double& hb = h[k <= b ? pk(k, b) : pk(b, k)];
    std::swap(ha, hb);
  }
}

}  // namespace

// H(i, j) <- H(ip[i], ip[j]) for the symmetric packed H: along each cycle
// (c0, c1 = ip[c0], ...) the exchanges (c0, c1), (c1, c2), ... bring every
// row and column to its place.
void ds7ipr(int p, int* ip, double* h) {
  for (int i = 0; i < p; ++i) {
    if (ip[i] < 0) continue;
    int j = i;
    for (;;) {
      const int k = ip[j];
      ip[j] = ~k;
      if (k == i) break;
      sym_swap(p, h, j, k);
      j = k;
    }
  }
  for (int i = 0; i < p; ++i) ip[i] = ~ip[i];
}

// x = y * z (k >= 0) or y / z (k < 0), componentwise.
void dv7vmp(int n, double* x, const double* y, const double* z, int k) {
  for (int i = 0; i < n; ++i) x[i] = k >= 0 ? y[i] * z[i] : y[i] / z[i];
}

// X = diag(y)^k Z for lower triangles packed by rows (k = 1 or -1).
void dd7mlp(int n, double* x, const double* y, const double* z, int k) {
  for (int i = 0; i < n; ++i) {
    const double t = k >= 0 ? y[i] : 1.0 / y[i];
    for (int j = 0; j <= i; ++j) x[pk(j, i)] = t * z[pk(j, i)];
  }
}

// X = diag(z)^k Y diag(z)^k for symmetric packed matrices (k = 1 or -1).
void ds7dmp(int n, double* x, const double* y, const double* z, int k) {
  for (int i = 0; i < n; ++i) {
    const double ti = k >= 0 ? z[i] : 1.0 / z[i];
    for (int j = 0; j <= i; ++j) {
      const double tj = k >= 0 ? z[j] : 1.0 / z[j];
      x[pk(j, i)] = ti * y[pk(j, i)] * tj;
    }
  }
}

// Moves column k of the upper triangle R (p x p, packed by columns) to the
// last place and makes R triangular again with 2x2 reflections on rows
// (j-1, j), applied to qtr too when havqtr.  w: p elements of scratch.
void dq7rsh(int k, int p, bool havqtr, double* qtr, double* r, double* w) {
  if (k >= p - 1) return;
  for (int i = 0; i <= k; ++i) w[i] = r[pk(i, k)];
  for (int i = k + 1; i < p; ++i) w[i] = 0.0;
  for (int j = k + 1; j < p; ++j) {
    // Old column j becomes column j - 1; its entry in row j is eliminated.
    Reflection h;
    const double c = reflection(r[pk(j - 1, j)], r[pk(j, j)], h);
    for (int i = 0; i < j - 1; ++i) r[pk(i, j - 1)] = r[pk(i, j)];
    r[pk(j - 1, j - 1)] = c;
    for (int m = j + 1; m < p; ++m) h.apply(r[pk(j - 1, m)], r[pk(j, m)]);
    h.apply(w[j - 1], w[j]);
    if (havqtr) h.apply(qtr[j - 1], qtr[j]);
  }
  for (int i = 0; i < p; ++i) r[pk(i, p - 1)] = w[i];
}

// Bounded modified Newton step.  On entry the first p1 entries of step hold
// the step of the current model for the free variables (in the order of
// ipiv), tg = D^-1 g and td = D in that order, l the Cholesky factor of the
// model's scaled Hessian (with the Levenberg-Marquardt shift |STPPAR|), and
// dst the scaled step taken so far from x0 (set to 0 when kb < 0).  The
// step is followed from there until a bound stops it; that variable is
// fixed (moved to place p1 - 1 of ipiv, l, tg and dst, p1 reduced) and the
// restricted Newton step of the same model followed next, while the total
// length ||dst|| stays within (1 + PHMXFC) 1.0001 times the radius.
//   ns: number of variables fixed here (their old places in ipiv2)
//   kb: 1 when the step is finished, 0 when the caller should compute a new
//       step over the remaining variables from the point reached
// On return step = D^-1 dst in the variables' own order, x = x0 + step (a
// variable fixed on a bound pushed just past it, so that projecting x onto
// the box puts it exactly there), and V(DSTNRM), V(PREDUC) are set.
void ds7bqn(const double* b, const double* d, double* dst, int* ipiv, int* ipiv1,
            int* ipiv2, int& kb, double* l, int& ns, int p, int& p1, double* step,
            double* td, double* tg, double* v, double* w, double* x, const double* x0) {
  const double dstmax = 1.0001 * (1.0 + R(v, PHMXFC)) * R(v, RADIUS);
  const double dstmin = (1.0 + R(v, PHMNFC)) * R(v, RADIUS);
  const double meps2 = 2.0 * dr7mdc(3);
  double dst1 = 0.0;
  const int p0 = p1;
  ns = 0;
  for (int i = 0; i < p; ++i) {
    ipiv1[i] = i;
    ipiv2[i] = i;
  }
  for (int i = 0; i < p1; ++i) w[i] = -step[i] * td[i];
  const double alpha = std::fabs(R(v, STPPAR));
  R(v, PREDUC) = 0.0;
  double gts = -R(v, GTSTEP);
  if (kb < 0) dv7scp(p, dst, 0.0);
  kb = 1;
  for (;;) {
    // -w = D times the restricted step from x + D^-1 dst: the largest
    // t <= 1 keeping x + D^-1 (dst - t w) inside the bounds.
    double t = 1.0;
    int k = 0;  // 1 + place of the variable stopping the step (negative: lower bound)
    for (int i = 0; i < p1; ++i) {
      const int j = var(ipiv[i]);
      const double dx = w[i] / d[j];
      const double xj = x0[j] + dst[i] / d[j];
      const double xi = xj - dx;
      double ti;
      int ki;
      if (xi < b[2 * j]) {
        ti = (xj - b[2 * j]) / dx;
        ki = -(i + 1);
      } else if (xi > b[2 * j + 1]) {
        ti = (xj - b[2 * j + 1]) / dx;
        ki = i + 1;
      } else {
        continue;
      }
      if (ti < t) {
        t = ti;
        k = ki;
      }
    }
    for (int i = p1; i < p; ++i) step[i] = dst[i];
    for (int i = 0; i < p1; ++i) step[i] = dst[i] - t * w[i];
    const double dst0 = dst1;
    dst1 = dv2nrm(p, step);
    if (dst1 > dstmax) {
      if (p1 < p0) {
        // Too long after fixing a variable: end at the last point, and ask
        // for a new step over the rest when that point is short.
        if (dst0 < dstmin) kb = 0;
        break;
      }
      k = 0;  // the first piece is longer than allowed: take it whole
    }
    R(v, DSTNRM) = dst1;
    dv7cpy(p1, dst, step);
    // The model's gradient at the new point and the reduction of this piece.
    const double t1 = 1.0 - t;
    for (int i = 0; i < p1; ++i) tg[i] *= t1;
    if (alpha > 0.0) dv2axy(p1, tg, t * alpha, w, tg);
    R(v, PREDUC) += t * ((1.0 - 0.5 * t) * gts + 0.5 * alpha * t * dd7tpr(p1, w, w));
    if (k == 0) break;
    // Fix the variable at place j: move it behind the free ones.
    const int j = std::abs(k) - 1;
    if (j != p1 - 1) {
      ++ns;
      ipiv2[p1 - 1] = j;
      dq7rsh(j, p1, false, tg, l, w);
      i7shft(p1, j, ipiv);
      i7shft(p1, j, ipiv1);
      dv7shf(p1, j, tg);
      dv7shf(p1, j, dst);
    }
    if (k < 0) ipiv[p1 - 1] = ~ipiv[p1 - 1];
    --p1;
    if (p1 <= 0) break;
    // Restricted Newton step of the remaining variables: w = (L L')^-1 tg.
    dl7ivm(p1, w, l, tg);
    gts = dd7tpr(p1, w, w);
    dl7itv(p1, w, l, w);
  }
  // Unscale the step.
  for (int i = 0; i < p; ++i) {
    const int j = var(ipiv[i]);
    step[j] = dst[i] / d[j];
  }
  // Push each variable fixed here a little past its bound, so that the
  // projection of x puts it exactly on the bound.
  for (int i = p1; i < p0; ++i) {
    int j = ipiv[i];
    double t = meps2;
    if (j < 0) {
      t = -t;
      j = ~j;
      ipiv[i] = j;
    }
    t *= std::max(std::fabs(x[j]), std::fabs(x0[j]));
    step[j] += t;
  }
  for (int i = 0; i < p; ++i) x[i] = x0[i] + step[i];
  if (ns > 0) dv7ipr(p0, ipiv1, td);
}

namespace {

// What dl7msb and dg7qsb share: the restart state of the unbounded step
// routine (ka and p0, and NREDUC and DST0 of the iteration's first step),
// and the loop that computes a step over the free variables with the radius
// left and follows it along the box (ds7bqn) until it is finished.
//   model(k, p1): the step over the first p1 variables of ipiv into step;
//     returns the Cholesky factor of the model's scaled Hessian for ds7bqn
//   moved(p10, pfirst, p1): ds7bqn fixed variables, the free ones going
//     from p10 (pfirst at the start) to p1
//   onward(pfirst): a new step is to be computed from the point reached
template <class Model, class Moved, class Onward>
void follow_along_box(const double* b, const double* d, const double* g, int* ipiv,
                      int* ipiv1, int* ipiv2, int& ka, int p, int& p0, int pc, double* step,
                      double* dst, double* td, double* tg, double* v, double* w, double* x,
                      const double* x0, Model model, Moved moved, Onward onward) {
  int p1 = pc;
  double nred = 0.0, ds0 = 0.0;
  if (ka < 0) {
    p0 = 0;
    ka = -1;
  } else {
    nred = R(v, NREDUC);
    ds0 = R(v, DST0);
  }
  int kinit = p0 == p1 ? ka : -1;
  dv7cpy(p, x, x0);
  double pred = 0.0;
  const double rad = R(v, RADIUS);
  int kb = -1;
  R(v, DSTNRM) = 0.0;
  if (p1 <= 0) {
    nred = ds0 = 0.0;
    dv7scp(p, step, 0.0);
  } else {
    dv7cpy(p, td, d);
    dv7ipr(p, ipiv, td);
    dv7vmp(p, tg, g, d, -1);
    dv7ipr(p, ipiv, tg);
    const int pfirst = p1;
    for (;;) {
      int k = kinit;
      kinit = -1;
      R(v, RADIUS) = rad - R(v, DSTNRM);
      double* l = model(k, p1);
      p0 = p1;
      if (ka < 0) {
        nred = R(v, NREDUC);
        ds0 = R(v, DST0);
      }
      ka = k;
      R(v, RADIUS) = rad;
      const int p10 = p1;
      int ns = 0;
      ds7bqn(b, d, dst, ipiv, ipiv1, ipiv2, kb, l, ns, p, p1, step, td, tg, v, w, x, x0);
      pred += R(v, PREDUC);
      if (ns != 0) {
        p0 = 0;
        moved(p10, pfirst, p1);
      }
      if (kb > 0) break;
      onward(pfirst);
    }
  }
  R(v, DST0) = ds0;
  R(v, NREDUC) = nred;
  R(v, PREDUC) = pred;
  R(v, GTSTEP) = dd7tpr(p, g, step);
}

}  // namespace

// Bounded Levenberg-Marquardt step of the Gauss-Newton model.  rmat and qtr
// hold R and Q'r in the order of ipiv, whose first pc variables are free;
// variables fixed while the step is found are moved behind the free ones in
// ipiv, rmat and qtr.  step, dst, qcopy: the three columns of the
// library's STEP(P,3) (the step, the scaled step, a copy of qtr moved along
// with the step), p each; td, tg, w: p each; wlm: the
// Levenberg-Marquardt work of dl7mst, p(p+5)/2 + 4; lmat: p(p+1)/2.
// ka and p0 carry dl7mst's restart state between calls of one iteration.
void dl7msb(const double* b, const double* d, const double* g, int ierr, int* ipiv,
            int* ipiv1, int* ipiv2, int& ka, double* lmat, int p, int& p0, int pc,
            double* qtr, double* rmat, double* step, double* dst, double* qcopy, double* td,
            double* tg, double* v, double* w, double* wlm, double* x, const double* x0) {
  dv7cpy(p, qcopy, qtr);
  auto model = [&](int& k, int p1) {
    dv7vmp(p1, tg, tg, td, 1);
    for (int i = 0; i < p1; ++i) ipiv1[i] = i;
    const int k0 = std::max(0, k);
    dl7mst(td, tg, ierr, ipiv1, k, p1, qcopy, rmat, step, v, wlm);
    dv7vmp(p1, tg, tg, td, -1);
    // The Cholesky factor of the scaled model Hessian D^-1 (R'R + alpha
    // D^2) D^-1: R itself for the Gauss-Newton step, else the factor of the
    // last Levenberg-Marquardt trial that dl7mst left in wlm.
    dd7mlp(p1, lmat, td, k <= k0 ? rmat : wlm + p1 + 4, -1);
    return lmat;
  };
  auto moved = [&](int, int pfirst, int p1) {
    // The same moves on R and Q'r, the first fixed first.
    for (int j = pfirst - 1; j >= p1; --j) {
      const int i = ipiv2[j];
      if (i < j) dq7rsh(i, j + 1, true, qtr, rmat, w);
    }
  };
  auto onward = [&](int pfirst) {
    // Q'r at the point reached, for the step over the remaining variables:
    // Q'r + R s with s = D^-1 dst (R, Q'r and dst in the new order).
    dv7vmp(pfirst, w, dst, td, -1);
    dl7tvm(pfirst, w, rmat, w);
    dv2axy(pfirst, qcopy, 1.0, w, qtr);
  };
  follow_along_box(b, d, g, ipiv, ipiv1, ipiv2, ka, p, p0, pc, step, dst, td, tg, v, w, x, x0,
                   model, moved, onward);
}

// Bounded Goldfeld-Quandt-Trotter step of the augmented model.  dihdi holds
// D^-1 H D^-1 over the first pc variables of ipiv (in that order), l is
// dg7qts's factor, w its work (4p + 7); step and dst: the first two
// columns of the library's STEP(P,2), p each.
void dg7qsb(const double* b, const double* d, double* dihdi, const double* g, int* ipiv,
            int* ipiv1, int* ipiv2, int& ka, double* l, int p, int& p0, int pc,
            double* step, double* dst, double* td, double* tg, double* v, double* w,
            double* x, const double* x0) {
  auto model = [&](int& k, int p1) {
    dg7qts(td, tg, dihdi, k, l, p1, step, v, w);
    return l;
  };
  auto moved = [&](int p10, int, int) { ds7ipr(p10, ipiv1, dihdi); };
  auto onward = [](int) {};
  follow_along_box(b, d, g, ipiv, ipiv1, ipiv2, ka, p, p0, pc, step, dst, td, tg, v, w, x, x0,
                   model, moved, onward);
}

}  // namespace vexor::port
