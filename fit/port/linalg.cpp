// Vector and packed-triangle kernels.
//
// Packed storage (see port.h): an upper triangle R, R(i, j) with i <= j, sits
// at pk(i, j) = j*(j+1)/2 + i; the same numbers read as the lower triangle
// L = R' by rows.  Symmetric matrices keep their lower triangle by rows, so
// A(i, j) = A(j, i) sits at pk(min(i, j), max(i, j)).
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

double dd7tpr(int p, const double* x, const double* y) {
  double s = 0.0;
  for (int i = 0; i < p; ++i) s += x[i] * y[i];
  return s;
}

// y_j = dd7tpr(n, a_j, r) for the p columns a_j = a + j lda.  Each sum
// adds its products in row order, as dd7tpr does, so the values are
// dd7tpr's; four columns go through the rows together, their sums being
// independent, so that a long column does not wait on one addition at a
// time.
void dd7tprs(int n, int p, const double* a, long lda, const double* r, double* y) {
  int j = 0;
  for (; j + 4 <= p; j += 4) {
    const double* a0 = a + j * lda;
    const double* a1 = a0 + lda;
    const double* a2 = a1 + lda;
    const double* a3 = a2 + lda;
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    for (int i = 0; i < n; ++i) {
      s0 += a0[i] * r[i];
      s1 += a1[i] * r[i];
      s2 += a2[i] * r[i];
      s3 += a3[i] * r[i];
    }
    y[j] = s0;
    y[j + 1] = s1;
    y[j + 2] = s2;
    y[j + 3] = s3;
  }
  for (; j < p; ++j) y[j] = dd7tpr(n, a + j * lda, r);
}

// Euclidean norm, scaled so that large and tiny elements neither overflow
// nor underflow.
double dv2nrm(int p, const double* x) {
  double scale = 0.0;
  for (int i = 0; i < p; ++i) scale = std::max(scale, std::fabs(x[i]));
  if (scale == 0.0 || !std::isfinite(scale)) return scale;
  double s = 0.0;
  for (int i = 0; i < p; ++i) {
    const double t = x[i] / scale;
    s += t * t;
  }
  return scale * std::sqrt(s);
}

void dv7cpy(int p, double* y, const double* x) {
  for (int i = 0; i < p; ++i) y[i] = x[i];
}

void dv7scp(int p, double* y, double s) {
  for (int i = 0; i < p; ++i) y[i] = s;
}

// w = a*x + y
void dv2axy(int p, double* w, double a, const double* x, const double* y) {
  for (int i = 0; i < p; ++i) w[i] = a * x[i] + y[i];
}

// Relative distance max_i |d_i (x_i - x0_i)| / max_i d_i (|x_i| + |x0_i|).
double drldst(int p, const double* d, const double* x, const double* x0) {
  double emax = 0.0, xmax = 0.0;
  for (int i = 0; i < p; ++i) {
    emax = std::max(emax, std::fabs(d[i] * (x[i] - x0[i])));
    xmax = std::max(xmax, d[i] * (std::fabs(x[i]) + std::fabs(x0[i])));
  }
  return xmax > 0.0 ? emax / xmax : 0.0;
}

// Rotates the row (a, b) into the triangle R and the vector qtr by Givens
// rotations: afterwards R'R gains a a' and qtr keeps Q'r.  a is destroyed,
// and c (p elements) is work.
//
// Rotation j takes R(j, j) and a_j (as the rotations before it left a_j) to
// t = sqrt(R(j, j)^2 + a_j^2), c_j = R(j, j) / t, s_j = a_j / t, and turns
// every later pair (R(j, k), a_k) into (c_j R(j, k) + s_j a_k,
// c_j a_k - s_j R(j, k)); a rotation whose a_j is 0 is skipped.  The
// rotations are carried out column by column: column k receives rotations
// 0 .. k-1 in that order, and then yields rotation k.  Every element thus
// sees the same operations in the same order as when each rotation sweeps
// its row of R in turn, and a column of R, packed by columns, is read in one
// contiguous run (a row is spread over the whole triangle, which for a
// large p costs a cache miss per element).  s_j is kept in a_j and c_j in
// c_j; a skipped rotation is marked by c_j = 2.
void dq7row(int p, double* rmat, double* qtr, double* a, double b, double* c) {
  for (int k = 0; k < p; ++k) {
    double* col = rmat + pk(0, k);
    double ak = a[k];
    for (int j = 0; j < k; ++j) {
      const double cj = c[j];
      if (cj > 1.5) continue;
      const double r0 = col[j];
      col[j] = cj * r0 + a[j] * ak;
      ak = cj * ak - a[j] * r0;
    }
    if (ak == 0.0) {
      c[k] = 2.0;
      continue;
    }
    double* rkk = col + k;
    // sqrt(r^2 + a^2) without hypot's cost; hypot only where squares could
    // overflow or underflow.
    const double big = std::max(std::fabs(*rkk), std::fabs(ak));
    const double t = (big < 1e150 && big > 1e-150) ? std::sqrt(*rkk * *rkk + ak * ak)
                                                   : std::hypot(*rkk, ak);
    const double ck = *rkk / t, sk = ak / t;
    *rkk = t;
    c[k] = ck;
    a[k] = sk;
    const double q0 = qtr[k];
    qtr[k] = ck * q0 + sk * b;
    b = ck * b - sk * q0;
  }
}

// QR of the n x p column-major matrix w (leading dimension ldw) with the
// right-hand side y: R (packed upper, p x p) and qtr = first p elements of
// Q'y are updated with the rows of w, so starting from R = 0, qtr = 0 they
// become the factors of w.  w is unchanged.  Rows are taken nn at a time
// into blk (nn*p elements, column-major) and each block is folded into
// [R; block] by p Householder reflections: per column j, with x0 = R(j,j)
// and c the block's column j,
//   beta = -sign(x0) sqrt(x0^2 + |c|^2),  tau = (beta - x0)/beta,
//   v = (1, c/(x0 - beta)),  [R(j,k); B(:,k)] -= tau (v'[R(j,k); B(:,k)]) v.
// The diagonal of R may come out negative.  ybl: nn elements of work.
void dq7rad(int n, int nn, int p, double* qtr, bool qtrset, double* rmat, double* w,
            double* y) {
  const int m = n;
  for (int j = 0; j < p; ++j) {
    double* c = w + static_cast<long>(j) * nn;
    double cmax = 0.0;
    for (int i = 0; i < m; ++i) cmax = std::max(cmax, std::fabs(c[i]));
    if (cmax == 0.0) continue;
    const double x0 = rmat[pk(j, j)];
    // alpha = sqrt(x0^2 + |c|^2), scaled so that no square overflows; the
    // scaling divides (1 / big overflows when big is subnormal).
    const double big = std::max(cmax, std::fabs(x0));
    double sum = (x0 / big) * (x0 / big);
    for (int i = 0; i < m; ++i) sum += (c[i] / big) * (c[i] / big);
    const double alpha = big * std::sqrt(sum);
    const double beta = x0 >= 0.0 ? -alpha : alpha;
    const double tau = (beta - x0) / beta;
    const double den = x0 - beta;
    for (int i = 0; i < m; ++i) c[i] /= den;
    rmat[pk(j, j)] = beta;
    for (int k = j + 1; k < p; ++k) {
      double* bk = w + static_cast<long>(k) * nn;
      double& rjk = rmat[pk(j, k)];
      double t = rjk;
      for (int i = 0; i < m; ++i) t += c[i] * bk[i];
      t *= tau;
      rjk -= t;
      for (int i = 0; i < m; ++i) bk[i] -= t * c[i];
    }
    if (qtrset) {
      double t = qtr[j];
      for (int i = 0; i < m; ++i) t += c[i] * y[i];
      t *= tau;
      qtr[j] -= t;
      for (int i = 0; i < m; ++i) y[i] -= t * c[i];
    }
  }
}

// Solves L x = y, L lower triangular packed by rows (= R' with R packed).
void dl7ivm(int p, double* x, const double* l, const double* y) {
  for (int i = 0; i < p; ++i) {
    double s = y[i];
    for (int j = 0; j < i; ++j) s -= l[pk(j, i)] * x[j];
    x[i] = s / l[pk(i, i)];
  }
}

// Solves L' x = y.
void dl7itv(int p, double* x, const double* l, const double* y) {
  for (int i = p - 1; i >= 0; --i) {
    double s = y[i];
    for (int j = i + 1; j < p; ++j) s -= l[pk(i, j)] * x[j];
    x[i] = s / l[pk(i, i)];
  }
}

// x = L y.
void dl7vml(int p, double* x, const double* l, const double* y) {
  for (int i = p - 1; i >= 0; --i) {
    double s = 0.0;
    for (int j = 0; j <= i; ++j) s += l[pk(j, i)] * y[j];
    x[i] = s;
  }
}

// x = L' y  (= R y for R packed upper).
void dl7tvm(int p, double* x, const double* l, const double* y) {
  for (int i = 0; i < p; ++i) {
    double s = 0.0;
    for (int j = i; j < p; ++j) s += l[pk(i, j)] * y[j];
    x[i] = s;
  }
}

// Cholesky factor L of the symmetric packed matrix a, rows n1..n (1-based;
// rows before n1 of l are already factored).  Returns 0, or the 1-based row
// at which a is found not positive definite.  l may alias a.
void dl7srt(int n1, int n, double* l, const double* a, int& irc) {
  irc = 0;
  for (int i = n1 - 1; i < n; ++i) {
    for (int j = 0; j <= i; ++j) {
      double s = a[pk(j, i)];
      for (int k = 0; k < j; ++k) s -= l[pk(k, i)] * l[pk(k, j)];
      if (j < i) {
        l[pk(j, i)] = s / l[pk(j, j)];
      } else {
        if (!(s > 0.0)) {
          l[pk(i, i)] = s;  // the failing pivot, for eigenvalue estimates
          irc = i + 1;
          return;
        }
        l[pk(i, i)] = std::sqrt(s);
      }
    }
  }
}

// lin = L^-1 (lower triangular, packed by rows).  lin may alias l.
void dl7nvr(int p, double* lin, const double* l) {
  // Row i of L^-1 needs row i of L and rows < i of L^-1; each row is
  // written from its first element on, so lin may alias l.
  for (int i = 0; i < p; ++i) {
    const double lii = l[pk(i, i)];
    for (int j = 0; j < i; ++j) {
      double s = 0.0;
      for (int k = j; k < i; ++k) s += l[pk(k, i)] * lin[pk(j, k)];
      lin[pk(j, i)] = -s / lii;
    }
    lin[pk(i, i)] = 1.0 / lii;
  }
}

// a = L' L for L lower triangular packed by rows; a symmetric packed, may
// alias l.
void dl7tsq(int p, double* a, const double* l) {
  for (int i = 0; i < p; ++i) {
    for (int j = 0; j <= i; ++j) {
      double s = 0.0;
      for (int k = i; k < p; ++k) s += l[pk(i, k)] * l[pk(j, k)];
      a[pk(j, i)] = s;
    }
  }
}

// a = L L' for L lower triangular packed by rows; a may alias l (rows are
// produced from the last to the first, each needing only rows <= it).
void dl7sqr(int p, double* a, const double* l) {
  for (int i = p - 1; i >= 0; --i) {
    for (int j = i; j >= 0; --j) {
      double s = 0.0;
      for (int k = 0; k <= j; ++k) s += l[pk(k, i)] * l[pk(k, j)];
      a[pk(j, i)] = s;
    }
  }
}

// y = S x for S symmetric packed.
void ds7lvm(int p, double* y, const double* s, const double* x) {
  for (int i = 0; i < p; ++i) {
    double t = 0.0;
    for (int j = 0; j < p; ++j) t += s[j <= i ? pk(j, i) : pk(i, j)] * x[j];
    y[i] = t;
  }
}

}  // namespace vexor::port
