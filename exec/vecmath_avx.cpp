// The 4-lane SLEEF loops of vecmath.cpp, compiled for AVX (called only on
// processors that have it).  SLEEF's 4-lane functions choose between their
// AVX and AVX2 versions themselves.
#ifdef VEXOR_HAVE_SLEEF
#include <immintrin.h>
#include <sleef.h>

#include "exec/vecloop.h"

namespace vexor {

namespace {

struct Lanes4 {
  static constexpr int W = 4;
  static __m256d load(const double* p) { return _mm256_loadu_pd(p); }
  static void store(double* p, __m256d v) { _mm256_storeu_pd(p, v); }
};

}  // namespace

void vexp4(const double* x, double* y, int n) { vecloop<Lanes4, Sleef_expd4_u10>(x, y, n); }
void vsin4(const double* x, double* y, int n) { vecloop<Lanes4, Sleef_sind4_u10>(x, y, n); }
void vcos4(const double* x, double* y, int n) { vecloop<Lanes4, Sleef_cosd4_u10>(x, y, n); }
void vlog4(const double* x, double* y, int n) { vecloop<Lanes4, Sleef_logd4_u10>(x, y, n); }

}  // namespace vexor
#endif
