// The optimizer through its C++ entry and through the library-style calls the
// fitting driver makes: driver choice, the residual-function protocol, limits,
// bounds, covariance and storage checks.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <vector>

#include "fit/fit.h"

// Every heap allocation of the test program is counted, so that a test can
// show that the optimizer allocates nothing between residual evaluations.
// (The replaced operators pair malloc with free; GCC's mismatch warning does
// not know that the pair below is the whole replacement.)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
static std::atomic<long> g_allocations{0};

void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using vexor::nlsq_fit;
using vexor::NlsqOptions;
using vexor::NlsqResult;
namespace port = vexor::port;

// y = a * exp(-b t) + noise, a = 2.385, b = 0.4137; the noise is a fixed
// deterministic sequence so that the optimum is not the generating point.
struct Decay {
  std::vector<double> t, y;
  Decay() {
    for (int i = 0; i < 23; ++i) {
      const double ti = 0.37 * i + 0.11;
      t.push_back(ti);
      y.push_back(2.385 * std::exp(-0.4137 * ti) + 0.013 * std::sin(1.7 * i + 0.3));
    }
  }
  int n() const { return static_cast<int>(t.size()); }
  void residual(const double* x, double* r) const {
    for (int i = 0; i < n(); ++i) r[i] = y[i] - x[0] * std::exp(-x[1] * t[i]);
  }
};

// The least-squares minimum of Decay's data (python3, mpmath at 30 digits:
// Newton's method on the gradient of the sum of squares).
constexpr double DECAY_A = 2.38919672125607910360741213968134;
constexpr double DECAY_B = 0.414495778831088699635143344554577;

// IV and V for n residuals and p parameters as divset leaves them, with
// every print control 0 and the given COVREQ.
struct WorkArrays {
  std::vector<int> iv;
  std::vector<double> v;
  WorkArrays(int n, int p, int covreq)
      : iv(vexor::nlsq_liv(p), 0), v(vexor::nlsq_lv(n, p), 0.0) {
    port::divset(1, iv.data(), liv(), lv(), v.data());
    for (int k = port::COVPRT; k <= port::X0PRT; ++k)
      if (k != port::COVREQ && k != port::DTYPE && k != port::MXFCAL && k != port::MXITER)
        port::I(iv.data(), k) = 0;
    port::I(iv.data(), port::COVREQ) = covreq;
  }
  int liv() const { return static_cast<int>(iv.size()); }
  int lv() const { return static_cast<int>(v.size()); }
};

NlsqOptions quiet() {
  NlsqOptions o;
  o.covreq = -3;
  o.mxiter = 500;
  o.mxfcal = 50000;
  o.tol = 1e-10;
  return o;
}

bool converged(int status) { return status >= 3 && status <= 6; }

NlsqResult fit_decay(const Decay& d, std::vector<double> x0, const std::vector<double>& lo = {},
                     const std::vector<double>& hi = {}) {
  auto f = [&](int, int, const double* x, int&, double* r) { d.residual(x, r); };
  return nlsq_fit(d.n(), x0, f, quiet(), lo, hi);
}

TEST(Nlsq, UnboundedDriverWithoutBounds) {
  Decay d;
  const auto res = fit_decay(d, {1.3, 1.1});
  EXPECT_FALSE(res.bounded);
  EXPECT_EQ(port::I(res.iv.data(), port::BOUNDED), 0);
  ASSERT_TRUE(converged(res.status)) << res.status;
  // The least-squares minimum of the data, found by Newton's method on the
  // gradient in python3 with mpmath at 30 digits.
  EXPECT_NEAR(res.x[0], DECAY_A, 1e-9 * DECAY_A);
  EXPECT_NEAR(res.x[1], DECAY_B, 1e-9 * DECAY_B);
  EXPECT_GT(res.covstatus, 0);
}

// With the Jacobian supplied (dn2g): the same minimum, in fewer residual
// evaluations than with forward differences, and a covariance matrix that
// agrees with the differenced one.
TEST(Nlsq, SuppliedJacobian) {
  Decay d;
  const auto fd = fit_decay(d, {1.3, 1.1});
  vexor::NlsqOptions opt = quiet();
  int calls = 0;
  opt.jacobian = [&](int n, int, const double* x, int&, double* dr, const port::JacobianRows*) {
    ++calls;
    for (int i = 0; i < n; ++i) {
      const double e = std::exp(-x[1] * d.t[i]);
      dr[i] = -e;                          // d r_i / d a
      dr[n + i] = x[0] * d.t[i] * e;       // d r_i / d b
    }
  };
  auto f = [&](int, int, const double* x, int&, double* r) { d.residual(x, r); };
  const auto ex = vexor::nlsq_fit(d.n(), {1.3, 1.1}, f, opt);
  ASSERT_TRUE(converged(ex.status)) << ex.status;
  EXPECT_NEAR(ex.x[0], DECAY_A, 1e-9 * DECAY_A);
  EXPECT_NEAR(ex.x[1], DECAY_B, 1e-9 * DECAY_B);
  EXPECT_EQ(calls, ex.ngcall);
  EXPECT_LT(ex.evaluations, fd.evaluations);
  ASSERT_EQ(ex.cov.size(), 4u);
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(ex.cov[k], fd.cov[k], 1e-5 * std::fabs(fd.cov[k])) << k;
  // With bounds (dn2gb): an upper bound on b below the optimum holds b there.
  const auto bd = vexor::nlsq_fit(d.n(), {1.3, 0.3}, f, opt, {-INFINITY, -INFINITY}, {INFINITY, 0.35});
  ASSERT_TRUE(converged(bd.status)) << bd.status;
  EXPECT_TRUE(bd.bounded);
  EXPECT_EQ(bd.x[1], 0.35);
  // A Jacobian that cannot be computed at the start ends the run (IV(1) 15).
  opt.jacobian = [](int, int, const double*, int& nf, double*, const port::JacobianRows*) { nf = 0; };
  EXPECT_EQ(vexor::nlsq_fit(d.n(), {1.3, 1.1}, f, opt).status, 15);
}

// A Jacobian function that tells the optimizer of finished rows has them
// factored at once, by the same row blocks, so the fit is the one without
// telling, bit for bit: told in steps that are not the blocks', all at the
// end, with and without bounds.  That the early factors are the ones used
// shows in a function that tells of rows and changes them after (the fit
// then differs); telling of the change (k = -1) restores the fit.
TEST(Nlsq, RowsToldOfAreFactoredAsTheyCome) {
  const int n = 500;  // many blocks of rows (26 rows a block for p = 2)
  std::vector<double> t(n), y(n);
  for (int i = 0; i < n; ++i) {
    t[i] = 0.02 * i + 0.11;
    y[i] = 2.385 * std::exp(-0.4137 * t[i]) + 0.013 * std::sin(1.7 * i + 0.3);
  }
  auto f = [&](int, int, const double* x, int&, double* r) {
    for (int i = 0; i < n; ++i) r[i] = y[i] - x[0] * std::exp(-x[1] * t[i]);
  };
  auto fill = [&](const double* x, double* dr, int from, int to, double scale) {
    for (int i = from; i < to; ++i) {
      const double e = std::exp(-x[1] * t[i]);
      dr[i] = -e * scale;
      dr[n + i] = x[0] * t[i] * e * scale;
    }
  };
  // step 0: never tells; else tells after every step rows; wrong: the rows
  // told of are off by a factor 2 and put right afterwards, with revoke
  // saying so or not.
  auto fit = [&](int step, bool wrong, bool revoke, bool bounded) {
    vexor::NlsqOptions opt = quiet();
    opt.jacobian = [&](int, int, const double* x, int&, double* dr, const port::JacobianRows* rows) {
      if (!step) {
        fill(x, dr, 0, n, 1.0);
        return;
      }
      for (int k = 0; k < n; k += step) {
        const int to = std::min(n, k + step);
        fill(x, dr, k, to, wrong ? 2.0 : 1.0);
        (*rows)(to);
      }
      if (wrong) {
        fill(x, dr, 0, n, 1.0);
        if (revoke) (*rows)(-1);
      }
    };
    if (bounded) return vexor::nlsq_fit(n, {1.3, 0.3}, f, opt, {-INFINITY, -INFINITY}, {INFINITY, 0.35});
    return vexor::nlsq_fit(n, {1.3, 1.1}, f, opt);
  };
  auto same = [](const vexor::NlsqResult& a, const vexor::NlsqResult& b) {
    return a.status == b.status && a.iterations == b.iterations && a.evaluations == b.evaluations &&
           a.x == b.x && a.cov == b.cov;
  };
  for (bool bounded : {false, true}) {
    SCOPED_TRACE(bounded ? "bounded" : "unbounded");
    const auto plain = fit(0, false, false, bounded);
    ASSERT_TRUE(converged(plain.status)) << plain.status;
    EXPECT_GT(plain.iterations, 2);
    EXPECT_TRUE(same(fit(7, false, false, bounded), plain));
    EXPECT_TRUE(same(fit(26, false, false, bounded), plain));
    EXPECT_TRUE(same(fit(n, false, false, bounded), plain));
    EXPECT_FALSE(same(fit(7, true, false, bounded), plain));
    EXPECT_TRUE(same(fit(7, true, true, bounded), plain));
  }
}

TEST(Nlsq, BoundedDriverWhenAnyBoundIsFinite) {
  Decay d;
  // One finite bound among four infinite ones selects the bounded driver.
  const auto res = fit_decay(d, {1.3, 1.1}, {-INFINITY, -INFINITY}, {INFINITY, 7.5});
  EXPECT_TRUE(res.bounded);
  EXPECT_EQ(port::I(res.iv.data(), port::BOUNDED), 1);
  ASSERT_TRUE(converged(res.status)) << res.status;
  // The bounded core computes no covariance.
  EXPECT_EQ(res.covstatus, 0);
  EXPECT_TRUE(res.cov.empty());
}

TEST(Nlsq, BoundsContainingTheOptimumChangeNothing) {
  Decay d;
  const auto free = fit_decay(d, {1.3, 1.1});
  const auto boxed = fit_decay(d, {1.3, 1.1}, {0.5, 0.05}, {9.0, 3.0});
  ASSERT_TRUE(converged(free.status));
  ASSERT_TRUE(converged(boxed.status));
  EXPECT_NEAR(boxed.x[0], free.x[0], 1e-7 * std::fabs(free.x[0]));
  EXPECT_NEAR(boxed.x[1], free.x[1], 1e-7 * std::fabs(free.x[1]));
  EXPECT_NEAR(boxed.sse, free.sse, 1e-9 * free.sse);
}

TEST(Nlsq, OptimumOutsideTheBoundsEndsOnTheBound) {
  Decay d;
  const auto free = fit_decay(d, {1.3, 1.1});
  ASSERT_TRUE(converged(free.status));
  // Upper bound on a below its optimum.
  const auto up = fit_decay(d, {1.3, 1.1}, {0.0, 0.0}, {2.17, 5.0});
  ASSERT_TRUE(converged(up.status)) << up.status;
  EXPECT_EQ(up.x[0], 2.17);
  EXPECT_GT(up.sse, free.sse);
  // Lower bound on b above its optimum.
  const auto low = fit_decay(d, {3.1, 0.9}, {0.0, 0.493}, {10.0, 5.0});
  ASSERT_TRUE(converged(low.status)) << low.status;
  EXPECT_EQ(low.x[1], 0.493);
  EXPECT_GT(low.sse, free.sse);
  // A start outside the box is moved into it first.
  const auto out = fit_decay(d, {1.3, 6.0}, {0.0, 0.0}, {2.17, 5.0});
  ASSERT_TRUE(converged(out.status)) << out.status;
  EXPECT_EQ(out.x[0], 2.17);
  EXPECT_NEAR(out.x[1], up.x[1], 1e-6);
}

TEST(Nlsq, NegativeNfStopsAtOnce) {
  Decay d;
  int calls = 0;
  auto f = [&](int, int, const double* x, int& nf, double* r) {
    ++calls;
    d.residual(x, r);
    if (calls == 5) nf = -1;
  };
  const auto res = nlsq_fit(d.n(), {1.3, 1.1}, f, quiet());
  EXPECT_EQ(calls, 5);  // no call after the stop request
  EXPECT_EQ(res.evaluations, 5);
  EXPECT_TRUE(res.status == 1 || res.status == 2) << res.status;
  EXPECT_FALSE(res.status >= 3 && res.status <= 15);
}

TEST(Nlsq, NegativeNfOnFirstCall) {
  Decay d;
  int calls = 0;
  auto f = [&](int, int, const double*, int& nf, double*) {
    ++calls;
    nf = -3;
  };
  const auto res = nlsq_fit(d.n(), {1.3, 1.1}, f, quiet());
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(res.status, 1);
}

TEST(Nlsq, IterationLimitOne) {
  Decay d;
  NlsqOptions o = quiet();
  o.mxiter = 1;
  auto f = [&](int, int, const double* x, int&, double* r) { d.residual(x, r); };
  const auto res = nlsq_fit(d.n(), {1.3, 1.1}, f, o);
  EXPECT_EQ(res.status, 10);
  EXPECT_EQ(res.iterations, 1);
  EXPECT_EQ(res.covstatus, 0);
}

TEST(Nlsq, EvaluationLimit) {
  Decay d;
  NlsqOptions o = quiet();
  o.mxfcal = 3;
  auto f = [&](int, int, const double* x, int&, double* r) { d.residual(x, r); };
  const auto res = nlsq_fit(d.n(), {1.3, 1.1}, f, o);
  EXPECT_EQ(res.status, 9);
  EXPECT_EQ(res.nfcall, 3);
}

TEST(Nlsq, UncomputablePointsShortenTheStep) {
  Decay d;
  // The model cannot be evaluated for b < 0.3 (think of a square root of
  // b - 0.3 elsewhere in a larger program); the optimum is b ~ 0.414 and
  // steps from b = 0.93 overshoot into that region twice on the way.
  int failures = 0;
  auto f = [&](int, int, const double* x, int& nf, double* r) {
    d.residual(x, r);
    if (x[1] < 0.3) {
      ++failures;
      nf = 0;
    }
  };
  const auto res = nlsq_fit(d.n(), {1.1, 0.93}, f, quiet());
  ASSERT_TRUE(converged(res.status)) << res.status;
  EXPECT_GE(failures, 1);
  const auto ref = fit_decay(d, {1.1, 0.93});
  EXPECT_NEAR(res.x[0], ref.x[0], 1e-6 * ref.x[0]);
  EXPECT_NEAR(res.x[1], ref.x[1], 1e-6 * ref.x[1]);
  EXPECT_GT(res.x[1], 0.3);
}

TEST(Nlsq, StartPointNotComputable) {
  Decay d;
  auto f = [&](int, int, const double* x, int& nf, double* r) {
    d.residual(x, r);
    if (x[1] > 1.0) nf = 0;
  };
  const auto res = nlsq_fit(d.n(), {1.1, 1.25}, f, quiet());
  EXPECT_EQ(res.status, 13);
  EXPECT_EQ(res.evaluations, 1);
}

TEST(Nlsq, JacobianNotComputable) {
  Decay d;
  // Fails at every point except the start itself.
  auto f = [&](int, int, const double* x, int& nf, double* r) {
    d.residual(x, r);
    if (x[0] != 1.1 || x[1] != 0.93) nf = 0;
  };
  const auto res = nlsq_fit(d.n(), {1.1, 0.93}, f, quiet());
  EXPECT_EQ(res.status, 15);
}

TEST(Nlsq, NoAllocationWhileIterating) {
  Decay d;
  std::vector<long> counts;
  counts.reserve(100000);
  auto f = [&](int, int, const double* x, int&, double* r) {
    counts.push_back(g_allocations.load());
    d.residual(x, r);
  };
  for (int bounded = 0; bounded < 2; ++bounded) {
    counts.clear();
    const auto res = bounded ? nlsq_fit(d.n(), {1.3, 1.1}, f, quiet(), {0.0, 0.0}, {2.2, 5.0})
                             : nlsq_fit(d.n(), {1.3, 1.1}, f, quiet());
    ASSERT_TRUE(converged(res.status)) << res.status;
    ASSERT_GT(counts.size(), 10u);
    EXPECT_EQ(counts.front(), counts.back()) << "bounded " << bounded;
  }
}

TEST(Nlsq, IterationHookSeesEveryIteration) {
  Decay d;
  std::vector<int> seen;
  std::vector<double> sse;
  NlsqOptions o = quiet();
  o.hook = [&](const int* iv, const double* v) {
    seen.push_back(port::I(iv, port::NITER));
    sse.push_back(2.0 * port::R(v, port::F));
  };
  auto f = [&](int, int, const double* x, int&, double* r) { d.residual(x, r); };
  const auto res = nlsq_fit(d.n(), {1.3, 1.1}, f, o);
  ASSERT_TRUE(converged(res.status));
  ASSERT_GE(seen.size(), static_cast<size_t>(res.iterations));
  for (size_t k = 1; k < seen.size(); ++k) {
    EXPECT_GE(seen[k], seen[k - 1]);
    EXPECT_LE(sse[k], sse[k - 1] * (1 + 1e-12));
  }
  EXPECT_EQ(seen.back(), res.iterations);
  EXPECT_DOUBLE_EQ(sse.back(), res.sse);
}

// Function minimization as the fitting driver maps it: n = p equal
// residuals sqrt(|F(x)|/n), whose sum of squares is |F(x)|.
TEST(Nlsq, MinimizationOfAbsoluteValue) {
  auto F = [](const double* x) {
    return (x[0] - 1.3) * (x[0] - 1.3) + 2.0 * (x[1] + 0.7) * (x[1] + 0.7) +
           0.25 * (x[0] - 1.3) * (x[1] + 0.7) + 0.5;
  };
  const int n = 2;
  auto f = [&](int nn, int, const double* x, int& nf, double* r) {
    const double value = F(x);
    if (!std::isfinite(value)) {
      nf = 0;
      return;
    }
    const double r0 = std::sqrt(std::fabs(value)) / std::sqrt(static_cast<double>(nn));
    for (int i = 0; i < nn; ++i) r[i] = r0;
  };
  const auto res = nlsq_fit(n, {0.2, 0.4}, f, quiet());
  EXPECT_TRUE(converged(res.status)) << res.status;
  EXPECT_NEAR(res.x[0], 1.3, 1e-5);
  EXPECT_NEAR(res.x[1], -0.7, 1e-5);
  EXPECT_NEAR(res.sse, 0.5, 1e-8);
}

// The engine's calling sequence on the library routines, on a straight line
// y = a + b t where sigma^2 (J'J)^-1 has a closed form.
TEST(Port, StraightLineCovarianceThroughDn2f) {
  const int n = 9, p = 2;
  std::vector<double> t(n), y(n);
  for (int i = 0; i < n; ++i) {
    t[i] = 1.25 * i - 2.5;
    y[i] = 0.731 + 1.913 * t[i] + 0.05 * ((i * 7) % 5 - 2);
  }
  std::vector<int> iv(vexor::nlsq_liv(p), 0);
  std::vector<double> v(vexor::nlsq_lv(n, p), 0.0);
  port::divset(1, iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  EXPECT_EQ(port::I(iv.data(), 1), 12);
  EXPECT_EQ(port::I(iv.data(), port::MXFCAL), 200);
  EXPECT_EQ(port::I(iv.data(), port::MXITER), 150);
  EXPECT_EQ(port::I(iv.data(), port::COVPRT), 3);
  EXPECT_EQ(port::I(iv.data(), port::COVREQ), 1);
  EXPECT_EQ(port::I(iv.data(), port::RDREQ), 3);
  EXPECT_EQ(port::R(v.data(), port::RFCTOL), 1e-10);
  EXPECT_EQ(port::R(v.data(), port::FUZZ), 1.5);
  EXPECT_EQ(port::R(v.data(), port::TUNER4), 0.5);
  EXPECT_EQ(port::R(v.data(), port::TUNER5), 0.75);
  port::I(iv.data(), 14) = 0;
  port::I(iv.data(), 15) = -3;
  port::I(iv.data(), 17) = 50000;
  port::I(iv.data(), 18) = 500;
  for (int k = 19; k <= 24; ++k) port::I(iv.data(), k) = 0;
  port::R(v.data(), 31) = std::min(port::R(v.data(), 31), 1e-10);
  port::R(v.data(), 32) = 1e-10;
  std::vector<double> x = {0.1, 0.2};
  port::dn2f(n, p, x.data(), [&](int, int, const double* b, int&, double* r) {
    for (int i = 0; i < n; ++i) r[i] = y[i] - (b[0] + b[1] * t[i]);
  }, iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  const int status = port::I(iv.data(), 1);
  ASSERT_TRUE(converged(status)) << status;
  // Closed-form least squares.
  double st = 0, sy = 0, stt = 0, sty = 0;
  for (int i = 0; i < n; ++i) {
    st += t[i]; sy += y[i]; stt += t[i] * t[i]; sty += t[i] * y[i];
  }
  const double det = n * stt - st * st;
  const double b = (n * sty - st * sy) / det, a = (sy - b * st) / n;
  EXPECT_NEAR(x[0], a, 1e-8);
  EXPECT_NEAR(x[1], b, 1e-8);
  double sse = 0;
  for (int i = 0; i < n; ++i) sse += std::pow(y[i] - a - b * t[i], 2);
  EXPECT_NEAR(2.0 * port::R(v.data(), 10), sse, 1e-12 + 1e-9 * sse);
  const int cov = port::I(iv.data(), 26);
  ASSERT_GT(cov, 0);
  const double s2 = sse / (n - p);
  const double* c = v.data() + cov - 1;  // (0,0), (1,0), (1,1)
  EXPECT_NEAR(c[0], s2 * stt / det, 1e-6 * s2 * stt / det);
  EXPECT_NEAR(c[1], -s2 * st / det, 1e-6 * s2 * stt / det);
  EXPECT_NEAR(c[2], s2 * n / det, 1e-6 * s2 * n / det);
  EXPECT_GE(port::I(iv.data(), 31), 1);
}

// The lengths the routines say they need are enough for every shape, n = p
// included (function minimization hands over n = p residuals), and for the
// parameter counts (84, 200) where the library's LV falls short.
TEST(Port, WorkArrayLengthsSuffice) {
  for (int p : {1, 2, 3, 7, 20, 45, 84, 200}) {
    for (int n : {p, p + 1, 3 * p + 5}) {
      for (int bounded = 0; bounded < 2; ++bounded) {
        std::vector<int> iv(vexor::nlsq_liv(p), 0);
        std::vector<double> v(vexor::nlsq_lv(n, p), 0.0);
        port::divset(1, iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
        port::I(iv.data(), port::COVREQ) = -3;
        std::vector<double> x(p, 0.25), b;
        for (int j = 0; j < p; ++j) {
          b.push_back(-10.0);
          b.push_back(10.0);
        }
        // r_i = sum_j (x_j - c_ij)^2 / 2 + x_i-ish: smooth, solvable.
        auto f = [&](int nn, int pp, const double* xx, int&, double* r) {
          for (int i = 0; i < nn; ++i) {
            double s = 0.0;
            for (int j = 0; j < pp; ++j) s += (i % pp == j ? 1.7 : 0.01 * (i + j)) * xx[j];
            r[i] = s - 0.3 * (i + 1);
          }
        };
        if (bounded)
          port::dn2fb(n, p, x.data(), b.data(), f, iv.data(), static_cast<int>(iv.size()),
                      static_cast<int>(v.size()), v.data());
        else
          port::dn2f(n, p, x.data(), f, iv.data(), static_cast<int>(iv.size()),
                     static_cast<int>(v.size()), v.data());
        const int status = port::I(iv.data(), 1);
        EXPECT_TRUE(converged(status)) << "n " << n << " p " << p << " bounded " << bounded
                                       << " IV(1) " << status;
        EXPECT_LE(port::I(iv.data(), port::NEXTV) - 1, static_cast<int>(v.size()));
        EXPECT_LE(port::I(iv.data(), port::NEXTIV) - 1, static_cast<int>(iv.size()));
      }
    }
  }
}

// A model of 84 parameters: the library's LV = (n + 21 + 2p) p + 200 + 2n
// has no room for this implementation's QR row block, and a run given it
// stops at once with IV(1) = 14 (storage too small) and the V it needs in
// IV(VNEED), which is what dn2_lvneed says.  One element less than the need
// is too little, the need itself is enough; without RD the need is n less.
TEST(Port, EightyFourParametersNeedMoreThanTheLibrarysLv) {
  const int p = 84, n = 90;
  const long long library = (n + 21 + 2LL * p) * p + 200 + 2LL * n;
  const long long need = port::dn2_lvneed(n, p, true);
  EXPECT_GT(need, library);
  EXPECT_EQ(port::dn2_lvneed(n, p, false), need - n);
  EXPECT_LE(port::dn2_lvneed(n, 83, true), (n + 21 + 2LL * 83) * 83 + 200 + 2LL * n);
  auto f = [](int nn, int pp, const double* x, int&, double* r) {
    for (int i = 0; i < nn; ++i) r[i] = (i < pp ? x[i] : 0.0) - 0.01 * (i + 1);
  };
  for (long long lv : {library, need - 1, need}) {
    std::vector<int> iv(port::dn2_livneed(p), 0);
    std::vector<double> v(static_cast<std::size_t>(lv), 0.0), x(p, 1.0);
    port::divset(1, iv.data(), static_cast<int>(iv.size()), static_cast<int>(lv), v.data());
    port::dn2f(n, p, x.data(), f, iv.data(), static_cast<int>(iv.size()), static_cast<int>(lv),
               v.data());
    if (lv < need) {
      EXPECT_EQ(port::I(iv.data(), 1), 14) << lv;
      EXPECT_EQ(port::I(iv.data(), port::VNEED), need) << lv;
    } else {
      EXPECT_TRUE(converged(port::I(iv.data(), 1))) << port::I(iv.data(), 1);
      EXPECT_NEAR(x[83], 0.84, 1e-9);
    }
  }
}

// The most parameters a program may declare: 2000 of them, each with a
// residual of its own, r_i = x_i - c_i + 0.01 sin(x_i), started near the
// solution.  The routines' own sizes hold the run and it converges.  (The
// sanitizer build, ten times slower, fits 500: the same arrays and code
// paths; the covariance, O(p^3), is not asked for.)
#if defined(__SANITIZE_ADDRESS__)
constexpr int MOSTPARMS = 500;
#else
constexpr int MOSTPARMS = 2000;
#endif
TEST(Port, TwoThousandParametersFit) {
  const int p = MOSTPARMS, n = MOSTPARMS;
  std::vector<double> x0(p);
  auto c = [](int i) { return 0.5 + 0.001 * i; };
  for (int i = 0; i < p; ++i) x0[i] = c(i) + 1e-3;
  vexor::ResidualFn f = [&](int nn, int pp, const double* x, int&, double* r) {
    for (int i = 0; i < nn; ++i) r[i] = x[i % pp] - c(i % pp) + 0.01 * std::sin(x[i % pp]);
  };
  vexor::NlsqOptions options;
  options.covreq = 0;
  const auto res = vexor::nlsq_fit(n, x0, f, options);
  EXPECT_TRUE(converged(res.status)) << res.status;
  EXPECT_LT(res.sse, 1e-20);
  // The solution of x + 0.01 sin x = c, at both ends.
  for (int i : {0, p - 1}) {
    const double x = res.x[i];
    EXPECT_NEAR(x + 0.01 * std::sin(x), c(i), 1e-12) << i;
  }
}

// The straight line y = b0 + b1 t with a little noise: J = [-1, -t], and
// the Hessian of f is J'J exactly.
struct Line {
  int n = 11;
  std::vector<double> t, y;
  double st = 0, stt = 0;
  Line() {
    for (int i = 0; i < n; ++i) {
      t.push_back(0.85 * i - 3.1);
      y.push_back(4.137 - 0.583 * t.back() + 0.07 * std::cos(2.3 * i));
      st += t.back();
      stt += t.back() * t.back();
    }
  }
  void residual(const double* b, double* r) const {
    for (int i = 0; i < n; ++i) r[i] = y[i] - (b[0] + b[1] * t[i]);
  }
  // sigma^2 (J'J)^-1, packed lower triangle by rows.
  std::vector<double> covariance(double sse) const {
    const double s2 = sse / (n - 2), det = n * stt - st * st;
    return {s2 * stt / det, -s2 * st / det, s2 * n / det};
  }
};

// Every COVREQ through the drivers, which have residual values only: they
// make IV(COVREQ) negative, so the finite-difference Hessians come from
// function values (p + p(p+1)/2 residual vectors), and must give
// sigma^2 (J'J)^-1 again.
TEST(Nlsq, CovarianceKinds) {
  const Line line;
  for (int covreq : {3, -3, 2, -2, 1, -1}) {
    NlsqOptions o = quiet();
    o.covreq = covreq;
    int calls = 0;
    auto counted = [&](int, int, const double* b, int&, double* r) {
      ++calls;
      line.residual(b, r);
    };
    const auto res = nlsq_fit(line.n, {1.0, 1.0}, counted, o);
    ASSERT_TRUE(converged(res.status)) << covreq;
    ASSERT_GT(res.covstatus, 0) << covreq;
    const int* iv = res.iv.data();
    EXPECT_EQ(port::I(iv, port::COVREQ), -std::abs(covreq));
    // J'J comes from forward differences of residuals about 4 in size with
    // steps about 1e-8, which carry relative errors of a few 1e-8; f is
    // quadratic here, so function-value differences are exact but for
    // rounding.
    const double tol = std::abs(covreq) == 3 ? 1e-7 : 1e-6;
    const auto want = line.covariance(res.sse);
    EXPECT_NEAR(res.cov[0], want[0], tol * want[0]) << covreq;
    EXPECT_NEAR(res.cov[1], want[1], tol * want[0]) << covreq;
    EXPECT_NEAR(res.cov[3], want[2], tol * want[2]) << covreq;
    EXPECT_EQ(port::I(iv, port::NFCOV), std::abs(covreq) == 3 ? 0 : 5) << covreq;
    EXPECT_EQ(calls, res.evaluations);
  }
}

// The regression core itself, answering its requests with r and the exact
// Jacobian, as a caller with derivatives does: COVREQ 1 and 2 difference
// gradients (one residual vector and one Jacobian per parameter).
TEST(Nlsq, CovarianceFromGradientDifferences) {
  const Line line;
  const int n = line.n, p = 2;
  for (int covreq : {2, 1}) {
    WorkArrays w(n, p, covreq);
    std::vector<int>& iv = w.iv;
    std::vector<double>& v = w.v;
    std::vector<double> d(p), dr(n * p), r(n), rd(n), x = {1.0, 1.0};
    for (int guard = 0; guard < 1000; ++guard) {
      port::drn2g(d.data(), dr.data(), iv.data(), w.liv(), w.lv(), n, n, 1, n, p, r.data(),
                  rd.data(), v.data(), x.data());
      const int req = port::I(iv.data(), 1);
      if (req == 1) {
        line.residual(x.data(), r.data());
      } else if (req == 2) {
        for (int i = 0; i < n; ++i) {
          dr[i] = -1.0;
          dr[i + n] = -line.t[i];
        }
      } else {
        break;
      }
    }
    ASSERT_TRUE(converged(port::I(iv.data(), 1))) << covreq;
    const int cov = port::I(iv.data(), port::COVMAT);
    ASSERT_GT(cov, 0) << covreq;
    const auto want = line.covariance(2.0 * R(v.data(), port::F));
    const double* c = v.data() + cov - 1;
    // Differences of exact gradients of a quadratic: exact but for rounding.
    EXPECT_NEAR(c[0], want[0], 1e-6 * want[0]) << covreq;
    EXPECT_NEAR(c[1], want[1], 1e-6 * want[0]) << covreq;
    EXPECT_NEAR(c[2], want[2], 1e-6 * want[2]) << covreq;
    EXPECT_EQ(port::I(iv.data(), port::NFCOV), p) << covreq;
    // p Jacobians for the differences, one more at x for the diagnostics.
    EXPECT_EQ(port::I(iv.data(), port::NGCOV), p + 1) << covreq;
    ASSERT_EQ(port::I(iv.data(), port::REGD), 1) << covreq;
    const double fhalf = R(v.data(), port::F), det = n * line.stt - line.st * line.st;
    for (int i = 0; i < n; ++i) {
      const double ti = line.t[i];
      const double h = (line.stt - 2 * ti * line.st + n * ti * ti) / det;  // leverage
      const double want_rd = std::fabs(r[i]) * std::sqrt(h / (1.0 - h)) / std::sqrt(fhalf);
      EXPECT_NEAR(rd[i], want_rd, 1e-6 * want_rd + 1e-12) << covreq << " observation " << i;
    }
  }
}

// Regression diagnostics on the straight line, for every COVREQ: the
// leverage of observation i is h_i = 1/n + (t_i - mean)^2 / Stt, and
// RD(i) = |r_i| sqrt(h_i / (1 - h_i)) / sqrt(f).  RDREQ = 1 asks for the
// covariance alone, 2 for the diagnostics alone.  V(RCOND) estimates the
// reciprocal condition of the Cholesky factor of J'J (or H).
TEST(Nlsq, RegressionDiagnostics) {
  const int n = 9;
  std::vector<double> t(n), y(n);
  for (int i = 0; i < n; ++i) {
    t[i] = 0.6 * i * i - 2.0;
    y[i] = 1.5 + 0.25 * t[i] + 0.1 * std::sin(1.7 * i);
  }
  double mean = 0, stt = 0;
  for (double ti : t) mean += ti / n;
  for (double ti : t) stt += (ti - mean) * (ti - mean);
  auto f = [&](int, int, const double* b, int&, double* r) {
    for (int i = 0; i < n; ++i) r[i] = y[i] - (b[0] + b[1] * t[i]);
  };
  for (int covreq : {-3, 3, -2, 2, -1, 1}) {
    NlsqOptions o = quiet();
    o.covreq = covreq;
    const auto res = nlsq_fit(n, {0.0, 0.0}, f, o);
    ASSERT_TRUE(converged(res.status)) << covreq;
    ASSERT_GT(res.covstatus, 0) << covreq;
    const int* iv = res.iv.data();
    ASSERT_EQ(port::I(iv, port::REGD), 1) << covreq;
    // V(RCOND): 1/cond(R), R'R = J'J = [n, St; St, Stt], here estimated.
    {
      double st = 0, stt2 = 0;
      for (double ti : t) {
        st += ti;
        stt2 += ti * ti;
      }
      const double tr = n + stt2, det = n * stt2 - st * st;
      const double lmax = 0.5 * (tr + std::sqrt(tr * tr - 4 * det)), lmin = det / lmax;
      EXPECT_NEAR(R(res.v.data(), port::RCOND), std::sqrt(lmin / lmax),
                  1e-2 * std::sqrt(lmin / lmax)) << covreq;
    }
    const double* rd = res.v.data() + port::I(iv, port::RD_POS) - 1;
    const double fhalf = 0.5 * res.sse;
    const double tol = std::abs(covreq) == 3 ? 1e-7 : 1e-5;
    for (int i = 0; i < n; ++i) {
      const double h = 1.0 / n + (t[i] - mean) * (t[i] - mean) / stt;
      const double ri = y[i] - (res.x[0] + res.x[1] * t[i]);
      const double want = std::fabs(ri) * std::sqrt(h / (1.0 - h)) / std::sqrt(fhalf);
      EXPECT_NEAR(rd[i], want, tol * want + 1e-12) << covreq << " observation " << i;
    }
  }
  // RDREQ 1: the covariance alone; 2: the diagnostics alone.
  for (int rdreq : {1, 2}) {
    WorkArrays w(n, 2, -3);
    std::vector<int>& iv = w.iv;
    port::I(iv.data(), port::RDREQ) = rdreq;
    std::vector<double> x = {0.0, 0.0};
    port::dn2f(n, 2, x.data(), f, iv.data(), w.liv(), w.lv(), w.v.data());
    ASSERT_TRUE(converged(port::I(iv.data(), 1))) << rdreq;
    EXPECT_EQ(port::I(iv.data(), port::COVMAT) > 0, rdreq == 1) << rdreq;
    EXPECT_EQ(port::I(iv.data(), port::REGD), rdreq == 2 ? 1 : 0) << rdreq;
  }
}

// Two parameters that enter only as their product: J'J is singular (the two
// columns are proportional), and at the minimum no step of length LMAXS
// promises a relative decrease of SCTOL: the run ends in singular
// convergence (IV(1) = 7, no covariance), with the product of the two and
// the rate determined.  (With a sum instead, the forward-difference columns
// of the two differ in their rounding, the Gauss-Newton model promises
// decreases along the sum's null direction that never come, and the run
// may end in false convergence.)
TEST(Nlsq, RankDeficientModelEndsInSingularConvergence) {
  Decay d;
  auto f = [&](int, int, const double* b, int&, double* r) {
    for (int i = 0; i < d.n(); ++i) r[i] = d.y[i] - b[0] * b[2] * std::exp(-b[1] * d.t[i]);
  };
  const auto res = nlsq_fit(d.n(), {1.3, 1.1, 1.5}, f, quiet());
  EXPECT_EQ(res.status, 7);
  EXPECT_EQ(res.covstatus, 0);
  EXPECT_TRUE(res.cov.empty());
  const auto ref = fit_decay(d, {1.3, 1.1});
  EXPECT_NEAR(res.x[0] * res.x[2], ref.x[0], 1e-5 * ref.x[0]);
  EXPECT_NEAR(res.x[1], ref.x[1], 1e-5 * ref.x[1]);
}

// A fit that converges where J'J is singular: exact data (absolute function
// convergence) and a third parameter the residuals do not depend on, whose
// Jacobian column is exactly zero; the covariance reports IV(COVMAT) = -1.
TEST(Nlsq, CovarianceOfSingularJacobian) {
  std::vector<double> t, y;
  for (int i = 0; i < 12; ++i) {
    t.push_back(0.5 * i);
    y.push_back(2.385 * std::exp(-0.4137 * t.back()));
  }
  auto f = [&](int n, int, const double* b, int&, double* r) {
    for (int i = 0; i < n; ++i) r[i] = y[i] - b[0] * std::exp(-b[1] * t[i]) + 0.0 * b[2];
  };
  const auto res = nlsq_fit(12, {2.0, 0.5, 1.0}, f, quiet());
  EXPECT_EQ(res.status, 6);
  EXPECT_NEAR(res.x[0], 2.385, 1e-8);
  EXPECT_NEAR(res.x[1], 0.4137, 1e-8);
  EXPECT_EQ(res.covstatus, -1);
  EXPECT_TRUE(res.cov.empty());
}

// IV(RDREQ) = 0 asks for neither covariance nor diagnostics: a converged
// fit leaves IV(COVMAT) at 0.
TEST(Port, NoCovarianceWithoutRdreq) {
  Decay d;
  const int n = d.n(), p = 2;
  WorkArrays w(n, p, -3);
  std::vector<int>& iv = w.iv;
  port::I(iv.data(), port::RDREQ) = 0;
  std::vector<double> x = {1.3, 1.1};
  port::dn2f(n, p, x.data(), [&](int, int, const double* b, int&, double* r) { d.residual(b, r); },
             iv.data(), w.liv(), w.lv(), w.v.data());
  ASSERT_TRUE(converged(port::I(iv.data(), 1))) << port::I(iv.data(), 1);
  EXPECT_EQ(port::I(iv.data(), port::COVMAT), 0);
}

TEST(Port, StorageTooSmall) {
  const int n = 10, p = 3;
  std::vector<int> iv(vexor::nlsq_liv(p), 0);
  std::vector<double> v(100 + n * p, 0.0);  // no room for the rest
  port::divset(1, iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  std::vector<double> x = {1, 2, 3};
  int calls = 0;
  port::dn2f(n, p, x.data(), [&](int, int, const double*, int&, double*) { ++calls; },
             iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  EXPECT_EQ(port::I(iv.data(), 1), 14);
  EXPECT_EQ(calls, 0);
}

TEST(Port, BadAlgorithmKind) {
  std::vector<int> iv(120, 0);
  std::vector<double> v(400, 0.0);
  port::divset(3, iv.data(), 120, 400, v.data());
  EXPECT_EQ(port::I(iv.data(), 1), 67);
}

TEST(Port, OutOfRangeTolerance) {
  Decay d;
  const int n = d.n(), p = 2;
  std::vector<int> iv(vexor::nlsq_liv(p), 0);
  std::vector<double> v(vexor::nlsq_lv(n, p), 0.0);
  port::divset(1, iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  port::R(v.data(), port::RFCTOL) = 2.0;
  std::vector<double> x = {1.3, 1.1};
  port::dn2f(n, p, x.data(), [&](int, int, const double* b, int&, double* r) { d.residual(b, r); },
             iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  EXPECT_EQ(port::I(iv.data(), 1), port::RFCTOL);
}

TEST(Port, MachineConstants) {
  EXPECT_EQ(port::d1mach(4), std::ldexp(1.0, -52));
  EXPECT_EQ(port::d1mach(3), std::ldexp(1.0, -53));
  EXPECT_EQ(port::i1mach(14), 53);
  EXPECT_GT(port::d1mach(2), 1e308);
  EXPECT_EQ(port::dr7mdc(3), std::ldexp(1.0, -52));
  EXPECT_EQ(port::dr7mdc(4), std::ldexp(1.0, -26));
  EXPECT_EQ(port::dr7mdc(6), port::d1mach(2));
  EXPECT_NEAR(port::dr7mdc(5), std::sqrt(port::d1mach(2)), 1e-15 * std::sqrt(port::d1mach(2)));
  EXPECT_EQ(port::dr7mdc(1), port::d1mach(1));
  // RLIMIT's default: residual norms up to sqrt(big).
  std::vector<int> iv(vexor::nlsq_liv(1), 0);
  std::vector<double> v(vexor::nlsq_lv(1, 1), 0.0);
  port::divset(1, iv.data(), static_cast<int>(iv.size()), static_cast<int>(v.size()), v.data());
  EXPECT_EQ(port::R(v.data(), port::RLIMIT), port::dr7mdc(5));
}

}  // namespace
