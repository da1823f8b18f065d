// The error of exp, sin, cos and ln as the block evaluator computes them
// (exec/vecmath.h: SLEEF's vector functions with vector math on, the C
// library's with it off), in units in the last place of the double result,
// against the long-double functions (64-bit significand: their own error
// is about 1/2048 of a double ULP), over 1,000,000 arguments spread evenly
// (in value, or in exponent for ln) across each range.
//   vecmath_ulps
#include <cmath>
#include <cstdio>
#include <vector>

#include "exec/exec.h"

namespace {

struct Range {
  const char* name;
  void (*f)(const double*, double*, int);
  long double (*ref)(long double);
  double lo, hi;
  bool logspaced;
};

// |y - ref| in ULPs of ref's double neighbourhood.
double ulps(double y, long double ref) {
  const double r = static_cast<double>(ref);
  const double ulp = std::nextafter(std::fabs(r), INFINITY) - std::fabs(r);
  return static_cast<double>(std::fabs(static_cast<long double>(y) - ref) / ulp);
}

}  // namespace

int main() {
  const Range ranges[] = {
      {"exp", vexor::vexp, expl, -700.0, 500.0, false},
      {"exp", vexor::vexp, expl, -1.0, 1.0, false},
      {"sin", vexor::vsin, sinl, -1e4, 1e4, false},
      {"sin", vexor::vsin, sinl, -3.2, 3.2, false},
      {"cos", vexor::vcos, cosl, -1e4, 1e4, false},
      {"cos", vexor::vcos, cosl, -3.2, 3.2, false},
      {"ln", vexor::vlog, logl, 1e-300, 1e300, true},
      {"ln", vexor::vlog, logl, 0.5, 2.0, false},
  };
  const int n = 1000000;
  std::vector<double> x(n), y(n);
  std::printf("| function | arguments | %s: max, mean ULP | C library: max, mean ULP |\n", "SLEEF");
  std::printf("|---|---|---|---|\n");
  for (const Range& r : ranges) {
    for (int i = 0; i < n; ++i) {
      const double t = (i + 0.5) / n;
      x[i] = r.logspaced ? std::exp(std::log(r.lo) + t * (std::log(r.hi) - std::log(r.lo)))
                         : r.lo + t * (r.hi - r.lo);
    }
    double stats[2][2];
    for (int v = 1; v >= 0; --v) {
      vexor::vecmath = v;
      r.f(x.data(), y.data(), n);
      double worst = 0, sum = 0;
      for (int i = 0; i < n; ++i) {
        const double u = ulps(y[i], r.ref(static_cast<long double>(x[i])));
        worst = u > worst ? u : worst;
        sum += u;
      }
      stats[v][0] = worst;
      stats[v][1] = sum / n;
    }
    vexor::vecmath = 1;
    std::printf("| %s | [%g, %g]%s | %.3f, %.4f | %.3f, %.4f |\n", r.name, r.lo, r.hi,
                r.logspaced ? " (log-spaced)" : "", stats[1][0], stats[1][1], stats[0][0], stats[0][1]);
  }
  std::printf("(vector math: %s)\n", vexor::vecmathname());
  return 0;
}
