// Secant update of S, the approximation of the second-order part
// sum_i r_i * Hessian(r_i) of the Hessian of f = ||r||^2 / 2.
#include <cmath>

#include "fit/port/port.h"

namespace vexor::port {

// Makes the packed symmetric A satisfy A step = y after sizing it by SIZE:
//   A <- size A + u w' + w u',  w = wscale wchmtd / (step'wchmtd),
//   u = y - size A step + t w,  t = (size step'A step - step'y) / 2,
// so that (A step) = y exactly when wscale = 1.  wscale = min(1,
// |step'wchmtd| / (COSMIN ||step|| ||wchmtd||)) damps the update when step
// and wchmtd are nearly orthogonal.  u and w are p-vectors of work (left
// holding the update's two vectors).
void ds7lup(double* a, double cosmin, int p, double size, const double* step, double* u,
            double* w, const double* wchmtd, double& wscale, const double* y) {
  const double sdotwm = dd7tpr(p, step, wchmtd);
  const double denmin = cosmin * dv2nrm(p, step) * dv2nrm(p, wchmtd);
  wscale = 1.0;
  if (denmin != 0.0) wscale = std::min(1.0, std::fabs(sdotwm / denmin));
  const double scale = sdotwm != 0.0 ? wscale / sdotwm : 0.0;
  for (int i = 0; i < p; ++i) w[i] = scale * wchmtd[i];
  ds7lvm(p, u, a, step);
  const double t = 0.5 * (size * dd7tpr(p, step, u) - dd7tpr(p, step, y));
  for (int i = 0; i < p; ++i) u[i] = t * w[i] + y[i] - size * u[i];
  for (int i = 0; i < p; ++i)
    for (int j = 0; j <= i; ++j) {
      double& e = a[pk(j, i)];
      e = size * e + u[i] * w[j] + w[i] * u[j];
    }
}

}  // namespace vexor::port
