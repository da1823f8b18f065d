// The elementary functions over arrays: each implementation (SLEEF's 8, 4
// and 2 lanes where the build has SLEEF and the processor the width, the C
// library's) names itself, gives values within one unit in the last place
// of the C library's, and gives an element the same value wherever it
// stands in the array (the tail of an odd length included); SLEEF's widths
// give the same value for every argument.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "exec/vecmath.h"

namespace vexor::test {
namespace {

// The distance of two finite doubles of the same sign in units in the last
// place.
int64_t ulps(double a, double b) {
  int64_t ia, ib;
  std::memcpy(&ia, &a, sizeof a);
  std::memcpy(&ib, &b, sizeof b);
  return ia > ib ? ia - ib : ib - ia;
}

struct Fn {
  const char* name;
  void (*vec)(const double*, double*, int);
  double (*lib)(double);
  double lo, hi;
};

const Fn FNS[] = {
    {"exp", vexp, [](double x) { return std::exp(x); }, -700.0, 700.0},
    {"sin", vsin, [](double x) { return std::sin(x); }, -1e4, 1e4},
    {"cos", vcos, [](double x) { return std::cos(x); }, -1e4, 1e4},
    {"log", vlog, [](double x) { return std::log(x); }, 1e-300, 1e300},
};

std::vector<double> arguments(const Fn& f, int n) {
  std::vector<double> x(n);
  for (int i = 0; i < n; ++i) {
    const double t = (i + 0.5) / n;
    x[i] = f.name[0] == 'l' ? std::exp(std::log(f.lo) + t * (std::log(f.hi) - std::log(f.lo)))
                            : f.lo + t * (f.hi - f.lo);
  }
  return x;
}

void checkall(const char* setting) {
  const int n = 10001;  // odd: the last element is a tail in every lane width
  for (const Fn& f : FNS) {
    SCOPED_TRACE(std::string(setting) + " " + f.name);
    const std::vector<double> x = arguments(f, n);
    std::vector<double> y(n);
    f.vec(x.data(), y.data(), n);
    int64_t worst = 0;
    for (int i = 0; i < n; ++i) {
      const double want = f.lib(x[i]);
      if (want == 0.0 || std::signbit(want) != std::signbit(y[i])) {
        EXPECT_LE(std::fabs(y[i] - want), 1e-300) << x[i];
        continue;
      }
      worst = std::max(worst, ulps(y[i], want));
    }
    EXPECT_LE(worst, 1);
    // Each element alone, at the head of an array, gives what it gave in
    // its place.
    for (int i : {0, 1, 2, 3, n - 3, n - 2, n - 1}) {
      double one = 0;
      f.vec(&x[i], &one, 1);
      EXPECT_EQ(std::memcmp(&one, &y[i], sizeof one), 0) << x[i];
    }
  }
}

TEST(VectorMath, EveryImplementationNamesItselfAndAgreesWithTheCLibrary) {
  const int keep = vecmath;
  vecmath = 0;
  EXPECT_STREQ(vecmathname(), "C library");
  EXPECT_FALSE(vecmathactive());
  checkall("C library");
  vecmath = 1;
  const std::string widest = vecmathname();
  if (vecmathactive()) {
    EXPECT_TRUE(widest == "SLEEF AVX-512" || widest == "SLEEF AVX" || widest == "SLEEF SSE2") << widest;
    checkall(widest.c_str());
    vecmath = 3;
    EXPECT_STREQ(vecmathname(), widest == "SLEEF AVX-512" ? "SLEEF AVX" : widest.c_str());
    EXPECT_TRUE(vecmathactive());
    checkall(vecmathname());
    vecmath = 2;
    EXPECT_STREQ(vecmathname(), "SLEEF SSE2");
    EXPECT_TRUE(vecmathactive());
    checkall("SLEEF SSE2");
  } else {
    EXPECT_EQ(widest, "C library");  // a build without SLEEF
  }
  vecmath = keep;
}

// Whatever width the processor gives, a fit with vector math has the same
// values: SLEEF's 8-, 4- and 2-lane functions agree bit for bit over the
// ranges above, 200,001 arguments each.
TEST(VectorMath, EveryWidthGivesTheSameValues) {
  const int keep = vecmath;
  vecmath = 1;
  if (!vecmathactive()) {
    vecmath = keep;
    GTEST_SKIP() << "a build without SLEEF";
  }
  const int n = 200001;
  for (const Fn& f : FNS) {
    SCOPED_TRACE(f.name);
    const std::vector<double> x = arguments(f, n);
    std::vector<std::vector<double>> got;
    std::vector<std::string> names;
    for (int setting : {1, 3, 2}) {
      vecmath = setting;
      got.emplace_back(n);
      names.emplace_back(vecmathname());
      f.vec(x.data(), got.back().data(), n);
    }
    for (std::size_t w = 1; w < got.size(); ++w) {
      long differ = 0;
      for (int i = 0; i < n; ++i) differ += std::memcmp(&got[w][i], &got[0][i], sizeof(double)) != 0;
      EXPECT_EQ(differ, 0) << names[w] << " against " << names[0];
    }
  }
  vecmath = keep;
}

}  // namespace
}  // namespace vexor::test
