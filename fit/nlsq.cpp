#include "fit/fit.h"

#include <cmath>
#include <cstdint>
#include <utility>

namespace vexor {

using port::I;
using port::R;

int nlsq_liv(int p) { return port::dn2_livneed(p); }
// With the default RDREQ (3) the regression diagnostics are computed, so RD
// is kept.
int nlsq_lv(int n, int p) {
  const long long need = port::dn2_lvneed(n, p, true);
  return need < INT32_MAX ? static_cast<int>(need) : INT32_MAX;
}

NlsqResult nlsq_fit(int n, const std::vector<double>& x0, const ResidualFn& residual,
                    const NlsqOptions& options, const std::vector<double>& lower,
                    const std::vector<double>& upper) {
  NlsqResult res;
  const int p = static_cast<int>(x0.size());
  res.x = x0;
  const int liv = nlsq_liv(p), lv = nlsq_lv(n, p);
  res.iv.assign(liv, 0);
  res.v.assign(lv, 0.0);
  int* iv = res.iv.data();
  double* v = res.v.data();

  port::divset(1, iv, liv, lv, v);
  I(iv, port::COVPRT) = 0;
  I(iv, port::COVREQ) = options.covreq;
  I(iv, port::MXFCAL) = options.mxfcal;
  I(iv, port::MXITER) = options.mxiter;
  for (int k = port::OUTLEV; k <= port::X0PRT; ++k) I(iv, k) = 0;
  R(v, port::AFCTOL) = std::min(R(v, port::AFCTOL), options.tol);
  R(v, port::RFCTOL) = options.tol;

  std::vector<double> b;
  for (int i = 0; i < p; ++i) {
    const double lo = i < static_cast<int>(lower.size()) ? lower[i] : -INFINITY;
    const double hi = i < static_cast<int>(upper.size()) ? upper[i] : INFINITY;
    if (std::isfinite(lo) || std::isfinite(hi)) res.bounded = true;
  }
  // The hook is process-wide; an empty one leaves the installed hook alone.
  port::ItsumHook old;
  if (options.hook) old = port::set_itsum_hook(options.hook);
  if (res.bounded) {
    b.resize(2 * static_cast<size_t>(p));
    for (int i = 0; i < p; ++i) {
      b[2 * i] = i < static_cast<int>(lower.size()) ? lower[i] : -INFINITY;
      b[2 * i + 1] = i < static_cast<int>(upper.size()) ? upper[i] : INFINITY;
    }
    if (options.jacobian)
      port::dn2gb(n, p, res.x.data(), b.data(), residual, options.jacobian, iv, liv, lv, v);
    else
      port::dn2fb(n, p, res.x.data(), b.data(), residual, iv, liv, lv, v);
  } else if (options.jacobian) {
    port::dn2g(n, p, res.x.data(), residual, options.jacobian, iv, liv, lv, v);
  } else {
    port::dn2f(n, p, res.x.data(), residual, iv, liv, lv, v);
  }
  if (options.hook) port::set_itsum_hook(std::move(old));

  res.status = I(iv, port::IV_STATUS);
  res.iterations = I(iv, port::NITER);
  res.nfcall = I(iv, port::NFCALL);
  res.ngcall = I(iv, port::NGCALL);
  res.evaluations = I(iv, port::NFTOTL);
  res.sse = 2.0 * R(v, port::F);
  res.covstatus = I(iv, port::COVMAT);
  if (res.covstatus > 0) {
    const double* c = v + res.covstatus - 1;
    res.cov.assign(static_cast<size_t>(p) * p, 0.0);
    for (int i = 0; i < p; ++i)
      for (int j = 0; j <= i; ++j) {
        const double e = c[i * (i + 1) / 2 + j];
        res.cov[i * p + j] = e;
        res.cov[j * p + i] = e;
      }
  }
  return res;
}

}  // namespace vexor
