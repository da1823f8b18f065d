// Secant update of S, the approximation of the second-order part
// sum_i r_i * Hessian(r_i) of the Hessian of f = ||r||^2 / 2.
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

// With the step s taken, y = g_new - g_old and y# = g_new - J_old' r_new
// (the change of the gradient not explained by the change of J'J):
//   size:   S <- tau S,  tau = min(1, |s'y#| / |s'Ss|)
//   update: u = y# - S s,
//           S <- S + (u y' + y u') / (y's) - (u's) y y' / (y's)^2
// The update is skipped (S only sized) when the cosine of (s, y) is below
// COSMIN.  s is unchanged; w needs p elements.  S is symmetric packed.
void ds7lup(double* s_mat, double cosmin, int p, const double* step, const double* y,
            const double* yhash, double* w) {
  ds7lvm(p, w, s_mat, step);
  const double sss = dd7tpr(p, step, w);
  const double syh = dd7tpr(p, step, yhash);
  if (sss != 0.0) {
    const double tau = std::min(1.0, std::fabs(syh) / std::fabs(sss));
    if (tau < 1.0) {
      for (int k = 0; k < p * (p + 1) / 2; ++k) s_mat[k] *= tau;
      for (int i = 0; i < p; ++i) w[i] *= tau;
    }
  }
  const double ys = dd7tpr(p, y, step);
  const double yn = dv2nrm(p, y), sn = dv2nrm(p, step);
  if (!(ys > cosmin * yn * sn) || ys == 0.0) return;
  for (int i = 0; i < p; ++i) w[i] = yhash[i] - w[i];  // u
  const double us = dd7tpr(p, w, step);
  const double a = 1.0 / ys, b = us / (ys * ys);
  for (int i = 0; i < p; ++i)
    for (int j = 0; j <= i; ++j)
      s_mat[pk(j, i)] += a * (w[i] * y[j] + y[i] * w[j]) - b * y[i] * y[j];
}

}  // namespace vexor::port
