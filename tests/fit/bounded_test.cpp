// The bounded iteration's kernels and steps: permutations, the column shift
// of a QR factorization, the bounded Newton step followed along the box, and
// whole bounded fits whose solutions are known.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "fit/fit.h"
#include "fit/fit.h"

namespace {

namespace port = vexor::port;
using port::pk;
using port::R;

TEST(BoundedKernels, ShiftAndInvertPermutations) {
  std::vector<int> x = {10, 11, 12, 13, 14};
  port::i7shft(5, 1, x.data());
  EXPECT_EQ(x, (std::vector<int>{10, 12, 13, 14, 11}));
  port::i7shft(5, 4, x.data());  // already last
  EXPECT_EQ(x, (std::vector<int>{10, 12, 13, 14, 11}));
  std::vector<double> y = {0.5, 1.5, 2.5};
  port::dv7shf(3, 0, y.data());
  EXPECT_EQ(y, (std::vector<double>{1.5, 2.5, 0.5}));
  const std::vector<int> perm = {2, 0, 3, 1};
  std::vector<int> inv(4);
  port::i7pnvr(4, inv.data(), perm.data());
  EXPECT_EQ(inv, (std::vector<int>{1, 3, 0, 2}));
}

// x[i] <- x[ip[i]] and H(i, j) <- H(ip[i], ip[j]) for a permutation with
// cycles of length 3 and 2; ip comes back unchanged.
TEST(BoundedKernels, PermuteVectorAndSymmetricMatrix) {
  const int p = 5;
  std::vector<int> ip = {2, 4, 0, 3, 1};
  std::vector<double> x = {0, 10, 20, 30, 40};
  port::dv7ipr(p, ip.data(), x.data());
  EXPECT_EQ(x, (std::vector<double>{20, 40, 0, 30, 10}));
  EXPECT_EQ(ip, (std::vector<int>{2, 4, 0, 3, 1}));
  std::vector<double> h(p * (p + 1) / 2), orig(h.size());
  auto el = [&](const std::vector<double>& m, int i, int j) {
    return i <= j ? m[pk(i, j)] : m[pk(j, i)];
  };
  for (int j = 0; j < p; ++j)
    for (int i = 0; i <= j; ++i) h[pk(i, j)] = orig[pk(i, j)] = 10.0 * (i + 1) + (j + 1);
  port::ds7ipr(p, ip.data(), h.data());
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < p; ++j) EXPECT_EQ(el(h, i, j), el(orig, ip[i], ip[j])) << i << "," << j;
  EXPECT_EQ(ip, (std::vector<int>{2, 4, 0, 3, 1}));
}

TEST(BoundedKernels, DiagonalScalings) {
  const std::vector<double> z = {1, 2, 3}, l = {1, 2, 3, 4, 5, 6};  // packed
  std::vector<double> out(6);
  port::dd7mlp(3, out.data(), z.data(), l.data(), -1);  // rows of L times 1/z
  const double third = 1.0 / 3.0;
  EXPECT_EQ(out, (std::vector<double>{1, 1, 1.5, 4 * third, 5 * third, 6 * third}));
  port::ds7dmp(3, out.data(), l.data(), z.data(), 1);  // diag(z) H diag(z)
  EXPECT_EQ(out, (std::vector<double>{1, 4, 12, 12, 30, 54}));
  std::vector<double> v(3);
  port::dv7vmp(3, v.data(), z.data(), z.data(), 1);
  EXPECT_EQ(v, (std::vector<double>{1, 4, 9}));
}

// Moving column k of R to the end keeps R upper triangular and gives the
// factorization of the permuted columns: R~'R~ = P'R'RP and R~'Q~'r = P'R'Q'r.
TEST(BoundedKernels, QrColumnShift) {
  const int p = 5;
  for (int k = 0; k < p; ++k) {
    std::vector<double> r(p * (p + 1) / 2), qtr(p), w(p);
    for (int j = 0; j < p; ++j) {
      for (int i = 0; i < j; ++i) r[pk(i, j)] = std::sin(1.0 + 3 * i + j);
      r[pk(j, j)] = 1.0 + 0.5 * j;
      qtr[j] = std::cos(0.3 + j);
    }
    auto rtr = [&](const std::vector<double>& m, int i, int j) {
      double s = 0.0;
      for (int q = 0; q <= std::min(i, j); ++q) s += m[pk(q, i)] * m[pk(q, j)];
      return s;
    };
    auto rtq = [&](const std::vector<double>& m, const std::vector<double>& q, int i) {
      double s = 0.0;
      for (int t = 0; t <= i; ++t) s += m[pk(t, i)] * q[t];
      return s;
    };
    const std::vector<double> r0 = r, q0 = qtr;
    std::vector<int> order = {0, 1, 2, 3, 4};
    port::i7shft(p, k, order.data());
    port::dq7rsh(k, p, true, qtr.data(), r.data(), w.data());
    for (int i = 0; i < p; ++i) {
      for (int j = 0; j < p; ++j)
        EXPECT_NEAR(rtr(r, i, j), rtr(r0, order[i], order[j]), 1e-13) << k << ": " << i << "," << j;
      EXPECT_NEAR(rtq(r, qtr, i), rtq(r0, q0, order[i]), 1e-13) << k << ": " << i;
    }
  }
}

// The bounded Newton step on q(z) = g'z + z'z/2 with g = (-2, -1) (Newton
// step (2, 1)) and x0 <= 1: the step runs to x0 = 1 (t = 1/2, at (1, 0.5)),
// fixes x0, and the restricted step then takes x1 to its own minimum 1.
// Predicted reduction q(0) - q(1, 1) = 2.
TEST(BoundedSteps, NewtonStepFollowsTheBox) {
  const int p = 2;
  std::vector<int> iv(port::IVLAST_FIXED + 4 * p);
  std::vector<double> v(port::VLAST_FIXED);
  R(v.data(), port::RADIUS) = 100.0;
  R(v.data(), port::PHMXFC) = 0.1;
  R(v.data(), port::PHMNFC) = -0.1;
  R(v.data(), port::STPPAR) = 0.0;
  R(v.data(), port::GTSTEP) = -5.0;
  const std::vector<double> b = {-10, 1, -10, 10}, d = {1, 1}, x0 = {0, 0};
  std::vector<double> dst(p), step = {2, 1}, td = {1, 1}, tg = {-2, -1}, w(p), x = x0;
  std::vector<double> l = {1, 0, 1};
  std::vector<int> ipiv = {0, 1}, ipiv1(p), ipiv2(p);
  int kb = -1, ns = 0, p1 = p;
  port::ds7bqn(b.data(), d.data(), dst.data(), ipiv.data(), ipiv1.data(), ipiv2.data(), kb,
               l.data(), ns, p, p1, step.data(), td.data(), tg.data(), v.data(), w.data(),
               x.data(), x0.data());
  EXPECT_EQ(kb, 1);
  EXPECT_EQ(ns, 1);
  EXPECT_EQ(p1, 1);
  EXPECT_EQ(ipiv, (std::vector<int>{1, 0}));
  EXPECT_DOUBLE_EQ(step[0], 1.0);
  EXPECT_DOUBLE_EQ(step[1], 1.0);
  EXPECT_DOUBLE_EQ(x[0], 1.0);
  EXPECT_DOUBLE_EQ(x[1], 1.0);
  EXPECT_DOUBLE_EQ(R(v.data(), port::PREDUC), 2.0);
  EXPECT_DOUBLE_EQ(R(v.data(), port::DSTNRM), std::sqrt(2.0));
}

// r = x - c with c outside the box [-1, 1]^3 in two coordinates: the
// Gauss-Newton step from 0 meets both bounds at once and the third
// coordinate goes on to its own optimum; the bounded fit ends at
// (1, -1, 0.5) exactly, the two bounded coordinates on their bounds.
TEST(BoundedSteps, FitEndsOnTheBoundsItMeets) {
  const std::vector<double> c = {5.0, -5.0, 0.5};
  vexor::ResidualFn f = [&](int n, int, const double* x, int&, double* r) {
    for (int i = 0; i < n; ++i) r[i] = x[i] - c[i];
  };
  const auto res = vexor::nlsq_fit(3, {0.0, 0.0, 0.0}, f, {}, {-1, -1, -1}, {1, 1, 1});
  EXPECT_TRUE(res.status >= 3 && res.status <= 6) << res.status;
  EXPECT_EQ(res.x[0], 1.0);
  EXPECT_EQ(res.x[1], -1.0);
  EXPECT_NEAR(res.x[2], 0.5, 1e-12);
  EXPECT_NEAR(res.sse, 16.0 + 16.0, 1e-10);
}

// A variable that starts on its bound with the gradient pointing into the
// box is free from the first iteration: r = (x0 - 3, x1 - x0) from
// x = (0, 0) with 0 <= x0 <= 2 ends at (2, 2) (x1 to the accuracy of the
// forward-difference Jacobian: the sum of squares has converged long
// before).
TEST(BoundedSteps, VariableOnItsBoundMovesInward) {
  vexor::ResidualFn f = [](int, int, const double* x, int&, double* r) {
    r[0] = x[0] - 3.0;
    r[1] = x[1] - x[0];
  };
  const auto res = vexor::nlsq_fit(2, {0.0, 0.0}, f, {}, {0.0, -INFINITY}, {2.0, INFINITY});
  EXPECT_TRUE(res.status >= 3 && res.status <= 6) << res.status;
  EXPECT_EQ(res.x[0], 2.0);
  EXPECT_NEAR(res.x[1], 2.0, 1e-7);
}

}  // namespace

namespace {

// Input errors end the run before any evaluation: a lower bound above its
// upper bound (IV(1) = 82), no residuals or no parameters (66).
TEST(BoundedSteps, InputErrors) {
  int calls = 0;
  vexor::ResidualFn f = [&](int n, int, const double* x, int&, double* r) {
    ++calls;
    for (int i = 0; i < n; ++i) r[i] = x[0] - i;
  };
  EXPECT_EQ(vexor::nlsq_fit(3, {0.5}, f, {}, {1.0}, {0.0}).status, 82);
  EXPECT_EQ(vexor::nlsq_fit(0, {0.5}, f).status, 66);
  EXPECT_EQ(vexor::nlsq_fit(3, {}, f).status, 66);
  EXPECT_EQ(calls, 0);
}

}  // namespace

namespace {

// Every point the bounded driver evaluates lies inside the box, Jacobian
// steps included: x0 sits on its upper bound (the optimum lies beyond it),
// x1 on the lower end of a box 1e-7 wide (its difference step, DLTFDJ =
// 1.5e-8 at first, can only go up), and x2 has equal bounds (a zero
// column, never moved).  A box
// narrower than the step on both sides leaves the Jacobian not computable
// (IV(1) = 15), again without a point outside.
TEST(BoundedSteps, EveryEvaluationInsideTheBox) {
  for (double width : {1e-7, 1e-8}) {
    const std::vector<double> lo = {-1.0, 0.3, 2.0}, hi = {1.0, 0.3 + width, 2.0};
    int outside = 0, calls = 0;
    vexor::ResidualFn f = [&](int n, int p, const double* x, int&, double* r) {
      ++calls;
      for (int j = 0; j < p; ++j)
        if (x[j] < lo[j] || x[j] > hi[j]) ++outside;
      for (int i = 0; i < n; ++i) r[i] = x[0] - 3.0 + 0.1 * i * x[2] + 0.01 * i * i * x[1];
    };
    const auto res = vexor::nlsq_fit(4, {1.0, 0.3, 2.0}, f, {}, lo, hi);
    EXPECT_EQ(outside, 0) << width;
    if (width > 5e-8) {
      EXPECT_TRUE(res.status >= 3 && res.status <= 6) << res.status;
      EXPECT_GT(calls, 3);
      EXPECT_EQ(res.x[0], 1.0);
      EXPECT_EQ(res.x[2], 2.0);
    } else {
      EXPECT_EQ(res.status, 15);
      EXPECT_EQ(calls, 2);  // r at the start, then x0's column
    }
  }
}

}  // namespace
