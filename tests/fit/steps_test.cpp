// The step routines, the secant update and the step assessment on small
// hand-made problems: each result is checked against the equations it is
// meant to satisfy, not against recorded numbers.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "fit/fit.h"

namespace {

namespace port = vexor::port;
using port::I;
using port::pk;
using port::R;

constexpr int kP = 4;

// Upper triangle R (packed by columns), Q'r, scale D and g = R'Q'r of a
// well-conditioned 4-parameter problem.
struct Ls {
  std::vector<double> r, qtr, d, g;
  Ls() : r(kP * (kP + 1) / 2), qtr(kP), d(kP), g(kP) {
    for (int j = 0; j < kP; ++j) {
      for (int i = 0; i < j; ++i) r[pk(i, j)] = 0.3 * std::sin(1.0 + i + 2.0 * j);
      r[pk(j, j)] = 1.5 + 0.4 * j;
      qtr[j] = 0.7 * std::cos(0.5 + j);
      d[j] = 0.8 + 0.3 * j;
    }
    for (int i = 0; i < kP; ++i) {
      double s = 0.0;
      for (int k = 0; k <= i; ++k) s += r[pk(k, i)] * qtr[k];
      g[i] = s;
    }
  }
  // (R'R s)_i.
  std::vector<double> rtr(const std::vector<double>& s) const {
    std::vector<double> rs(kP, 0.0), out(kP, 0.0);
    for (int i = 0; i < kP; ++i)
      for (int j = i; j < kP; ++j) rs[i] += r[pk(i, j)] * s[j];
    for (int j = 0; j < kP; ++j)
      for (int i = 0; i <= j; ++i) out[j] += r[pk(i, j)] * rs[i];
    return out;
  }
};

double dnorm(const std::vector<double>& d, const std::vector<double>& s) {
  double t = 0.0;
  for (int i = 0; i < kP; ++i) t += (d[i] * s[i]) * (d[i] * s[i]);
  return std::sqrt(t);
}

std::vector<double> defaults() {
  std::vector<int> iv(200, 0);
  std::vector<double> v(400, 0.0);
  port::divset(1, iv.data(), 200, 400, v.data());
  return v;
}

TEST(Steps, Dl7mstTakesTheGaussNewtonStepWhenItFits) {
  Ls ls;
  std::vector<double> v = defaults(), w(kP * (kP + 5) / 2 + 4), s(kP);
  const int ipivot[kP] = {0, 1, 2, 3};
  R(v.data(), port::RADIUS) = 1e3;
  int ka = -1;
  port::dl7mst(ls.d.data(), ls.g.data(), 0, ipivot, ka, kP, ls.qtr.data(), ls.r.data(), s.data(),
               v.data(), w.data());
  EXPECT_EQ(ka, 0);
  EXPECT_EQ(R(v.data(), port::STPPAR), 0.0);
  // R s = -Q'r.
  for (int i = 0; i < kP; ++i) {
    double t = 0.0;
    for (int j = i; j < kP; ++j) t += ls.r[pk(i, j)] * s[j];
    EXPECT_NEAR(t, -ls.qtr[i], 1e-13);
  }
  double qq = 0.0;
  for (double q : ls.qtr) qq += q * q;
  EXPECT_NEAR(R(v.data(), port::NREDUC), 0.5 * qq, 1e-14);
  EXPECT_NEAR(R(v.data(), port::PREDUC), 0.5 * qq, 1e-13);
  EXPECT_NEAR(R(v.data(), port::DST0), dnorm(ls.d, s), 1e-13);
  EXPECT_NEAR(R(v.data(), port::DSTNRM), dnorm(ls.d, s), 1e-13);
}

TEST(Steps, Dl7mstLevenbergMarquardtStepAndRestart) {
  Ls ls;
  std::vector<double> v = defaults(), w(kP * (kP + 5) / 2 + 4), s(kP);
  const int ipivot[kP] = {0, 1, 2, 3};
  for (double radius : {0.05, 0.2}) {
    R(v.data(), port::RADIUS) = radius;
    R(v.data(), port::STPPAR) = 0.0;
    R(v.data(), port::RAD0) = 0.0;
    int ka = -1;
    port::dl7mst(ls.d.data(), ls.g.data(), 0, ipivot, ka, kP, ls.qtr.data(), ls.r.data(),
                 s.data(), v.data(), w.data());
    const double alpha = R(v.data(), port::STPPAR);
    ASSERT_GT(alpha, 0.0) << radius;
    EXPECT_GT(ka, 0);
    // ||D s|| within [1 + PHMNFC, 1 + PHMXFC] times the radius.
    const double dst = dnorm(ls.d, s);
    EXPECT_GE(dst, 0.9 * radius * (1 - 1e-12));
    EXPECT_LE(dst, 1.1 * radius * (1 + 1e-12));
    EXPECT_NEAR(R(v.data(), port::DSTNRM), dst, 1e-14);
    // (R'R + alpha D^2) s = -g.
    const std::vector<double> h = ls.rtr(s);
    for (int i = 0; i < kP; ++i)
      EXPECT_NEAR(h[i] + alpha * ls.d[i] * ls.d[i] * s[i], -ls.g[i], 1e-12) << radius;
    // PREDUC is the Gauss-Newton model's reduction -g's - s'R'Rs/2.
    double gs = 0.0, shs = 0.0;
    for (int i = 0; i < kP; ++i) {
      gs += ls.g[i] * s[i];
      shs += s[i] * h[i];
    }
    EXPECT_NEAR(R(v.data(), port::PREDUC), -gs - 0.5 * shs, 1e-12);
    // A restart with another radius gives a step for that radius.
    R(v.data(), port::RADIUS) = radius * 0.5;
    port::dl7mst(ls.d.data(), ls.g.data(), 0, ipivot, ka, kP, ls.qtr.data(), ls.r.data(),
                 s.data(), v.data(), w.data());
    const double dst2 = dnorm(ls.d, s);
    EXPECT_GE(dst2, 0.9 * 0.5 * radius * (1 - 1e-12));
    EXPECT_LE(dst2, 1.1 * 0.5 * radius * (1 + 1e-12));
    EXPECT_GT(R(v.data(), port::STPPAR), alpha);
  }
}

// dihdi = D^-1 H D^-1 packed by rows for H = R'R + c I.
std::vector<double> scaled_h(const Ls& ls, double c) {
  std::vector<double> h(kP * (kP + 1) / 2);
  for (int i = 0; i < kP; ++i)
    for (int j = 0; j <= i; ++j) {
      double t = (i == j) ? c : 0.0;
      for (int m = 0; m <= j; ++m) t += ls.r[pk(m, i)] * ls.r[pk(m, j)];
      h[pk(j, i)] = t / (ls.d[i] * ls.d[j]);
    }
  return h;
}

// (H s)_i with H = D dihdi D.
std::vector<double> hs(const Ls& ls, const std::vector<double>& dihdi, const std::vector<double>& s) {
  std::vector<double> out(kP, 0.0);
  for (int i = 0; i < kP; ++i)
    for (int j = 0; j < kP; ++j)
      out[i] += ls.d[i] * dihdi[i >= j ? pk(j, i) : pk(i, j)] * ls.d[j] * s[j];
  return out;
}

TEST(Steps, Dg7qtsNewtonStepAndConstrainedStep) {
  Ls ls;
  std::vector<double> dig(kP);
  for (int i = 0; i < kP; ++i) dig[i] = ls.g[i] / ls.d[i];
  for (double c : {0.5, -2.5}) {  // positive definite, then indefinite
    std::vector<double> v = defaults(), w(4 * kP + 7), s(kP), l(kP * (kP + 1) / 2);
    std::vector<double> dihdi = scaled_h(ls, c);
    const std::vector<double> keep = dihdi;
    for (double radius : {1e3, 0.1}) {
      R(v.data(), port::RADIUS) = radius;
      R(v.data(), port::STPPAR) = 0.0;
      R(v.data(), port::RAD0) = 0.0;
      int ka = -1;
      port::dg7qts(ls.d.data(), dig.data(), dihdi.data(), ka, l.data(), kP, s.data(), v.data(),
                   w.data());
      EXPECT_EQ(dihdi, keep) << "the diagonal is restored";
      const double alpha = R(v.data(), port::STPPAR);
      const std::vector<double> h = hs(ls, dihdi, s);
      double gs = 0.0, shs = 0.0;
      for (int i = 0; i < kP; ++i) {
        gs += ls.g[i] * s[i];
        shs += s[i] * h[i];
      }
      if (c > 0 && radius > 1.0) {
        // Newton step: H s = -g.
        EXPECT_EQ(alpha, 0.0);
        for (int i = 0; i < kP; ++i) EXPECT_NEAR(h[i], -ls.g[i], 1e-12);
        EXPECT_NEAR(R(v.data(), port::NREDUC), -0.5 * gs, 1e-12);
      } else {
        // (H + alpha D^2) s = -g with the step on the trust region's edge.
        ASSERT_NE(alpha, 0.0) << c << " " << radius;
        const double a = std::fabs(alpha);
        for (int i = 0; i < kP; ++i)
          EXPECT_NEAR(h[i] + a * ls.d[i] * ls.d[i] * s[i], -ls.g[i], 1e-9) << c << " " << radius;
        const double dst = dnorm(ls.d, s);
        EXPECT_GE(dst, 0.9 * radius * (1 - 1e-12));
        EXPECT_LE(dst, 1.1 * radius * (1 + 1e-12));
      }
      EXPECT_NEAR(R(v.data(), port::GTSTEP), gs, 1e-12);
      EXPECT_NEAR(R(v.data(), port::PREDUC), -gs - 0.5 * shs, 1e-9);
      EXPECT_GT(R(v.data(), port::PREDUC), 0.0);
      if (c < 0) {
        EXPECT_LT(R(v.data(), port::DST0), 0.0) << "indefinite: -(smallest eigenvalue)";
      }
    }
  }
}

TEST(Steps, Ds7lupSatisfiesTheSecantCondition) {
  const int p = 3;
  std::vector<double> a = {0.4, 0.1, 0.3, -0.2, 0.05, 0.6};  // packed by rows
  const std::vector<double> a0 = a;
  const double step[p] = {0.3, -0.1, 0.2}, y[p] = {0.11, -0.05, 0.13};
  const double wchmtd[p] = {0.5, -0.2, 0.4};
  double u[p], w[p], wscale = 0.0;
  const double size = 0.7;
  port::ds7lup(a.data(), 1e-6, p, size, step, u, w, wchmtd, wscale, y);
  EXPECT_EQ(wscale, 1.0);
  double as[p];
  port::ds7lvm(p, as, a.data(), step);
  for (int i = 0; i < p; ++i) EXPECT_NEAR(as[i], y[i], 1e-15);
  // The update is size*A0 plus a rank-2 term in u and w.
  for (int i = 0; i < p; ++i)
    for (int j = 0; j <= i; ++j)
      EXPECT_NEAR(a[pk(j, i)], size * a0[pk(j, i)] + u[i] * w[j] + w[i] * u[j], 1e-15);
  // A direction nearly orthogonal to the step damps the update.
  std::vector<double> b = a0;
  const double orth[p] = {0.1, 0.3, 1e-12};  // step . orth = 2e-13
  port::ds7lup(b.data(), 1e-6, p, 1.0, step, u, w, orth, wscale, y);
  EXPECT_LT(wscale, 1e-5);
  EXPECT_GT(wscale, 0.0);
}

// One assessment from the scalars in V.
struct Assess {
  std::vector<int> iv = std::vector<int>(200, 0);
  std::vector<double> v = defaults();
  Assess() {
    I(iv.data(), port::STGLIM) = 2;
    I(iv.data(), port::MODEL) = 1;
    I(iv.data(), port::NFCALL) = 5;
    I(iv.data(), port::IRC) = port::IRC_ACCEPT;
    R(v.data(), port::F0) = 10.0;
    R(v.data(), port::PREDUC) = 1.0;
    R(v.data(), port::GTSTEP) = -2.0;
    R(v.data(), port::DSTNRM) = 1.0;
    R(v.data(), port::DST0) = 3.0;
    R(v.data(), port::NREDUC) = 2.0;
    R(v.data(), port::STPPAR) = 0.1;
    R(v.data(), port::RELDX) = 0.01;
  }
  int run(double f) {
    R(v.data(), port::F) = f;
    port::da7sst(iv.data(), 200, static_cast<int>(v.size()), v.data());
    return I(iv.data(), port::IRC);
  }
};

TEST(Steps, Da7sstDecisions) {
  {
    // Reduction as predicted, and more than TUNER3 of the linear
    // prediction -g's, by a Levenberg-Marquardt step well short of the Newton
    // step: recompute with a larger radius, keeping this point.
    Assess a;
    R(a.v.data(), port::GTSTEP) = -1.2;
    EXPECT_EQ(a.run(9.0), port::IRC_RECOMPUTE);
    EXPECT_DOUBLE_EQ(R(a.v.data(), port::RADFAC), 3.0);  // 0.5 g's / (g's + fdif)
    EXPECT_EQ(I(a.iv.data(), port::RESTOR), 2);
    EXPECT_EQ(R(a.v.data(), port::FLSTGD), 9.0);
  }
  {
    // As predicted but less than TUNER3 of -g's: accept, and let the
    // gradient tests decide on the radius.
    Assess a;
    EXPECT_EQ(a.run(9.0), port::IRC_ACCEPT_TEST);
    EXPECT_EQ(R(a.v.data(), port::RADFAC), 1.0);
  }
  {
    // f increased: restore x0 and f0, switch models or shrink.
    Assess a;
    EXPECT_EQ(a.run(10.5), port::IRC_SMALLER);
    EXPECT_EQ(I(a.iv.data(), port::RESTOR), 1);
    EXPECT_EQ(R(a.v.data(), port::F), 10.0);
    EXPECT_LT(R(a.v.data(), port::RADFAC), 1.0);
    EXPECT_GE(R(a.v.data(), port::RADFAC), R(a.v.data(), port::RDFCMN));
  }
  {
    // A decrease of a twentieth of the prediction: switch models or accept.
    Assess a;
    EXPECT_EQ(a.run(9.95), port::IRC_SWITCH_OR_ACCEPT);
  }
  {
    // A Newton step whose predicted reduction is below RFCTOL * f0:
    // relative function convergence.
    Assess a;
    R(a.v.data(), port::STPPAR) = 0.0;
    R(a.v.data(), port::PREDUC) = 5e-10;
    R(a.v.data(), port::NREDUC) = 5e-10;
    R(a.v.data(), port::GTSTEP) = -1e-9;
    EXPECT_EQ(a.run(10.0 - 5e-10), 8);
  }
  {
    // The same with a relative step below XCTOL: both tests (9).
    Assess a;
    R(a.v.data(), port::STPPAR) = 0.0;
    R(a.v.data(), port::PREDUC) = 5e-10;
    R(a.v.data(), port::NREDUC) = 5e-10;
    R(a.v.data(), port::GTSTEP) = -1e-9;
    R(a.v.data(), port::RELDX) = 1e-9;
    EXPECT_EQ(a.run(10.0 - 5e-10), 9);
  }
  {
    // |f| below AFCTOL: absolute function convergence.
    Assess a;
    R(a.v.data(), port::F0) = 1e-18;
    R(a.v.data(), port::PREDUC) = 1e-18;
    R(a.v.data(), port::NREDUC) = 1e-18;
    R(a.v.data(), port::GTSTEP) = -2e-18;
    EXPECT_EQ(a.run(1e-21), 10);
  }
  {
    // No decrease and a relative step below XFTOL: false convergence.
    Assess a;
    R(a.v.data(), port::RELDX) = 1e-15;
    EXPECT_EQ(a.run(10.0), 12);
  }
}

}  // namespace
