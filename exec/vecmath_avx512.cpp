// The 8-lane SLEEF loops of vecmath.cpp, compiled for AVX-512F (called only
// on processors that have it).  SLEEF's 8-lane functions run the same
// steps as its 4- and 2-lane ones, fused multiply-adds included, so every
// value is the one the narrower loops give (vecmath_test checks this
// element by element); eight lanes only take half the instructions.
#ifdef VEXOR_HAVE_SLEEF
#include <immintrin.h>
#include <sleef.h>

#include "exec/vecloop.h"

namespace vexor {

namespace {

struct Lanes8 {
  static constexpr int W = 8;
  static __m512d load(const double* p) { return _mm512_loadu_pd(p); }
  static void store(double* p, __m512d v) { _mm512_storeu_pd(p, v); }
};

}  // namespace

void vexp8(const double* x, double* y, int n) { vecloop<Lanes8, Sleef_expd8_u10>(x, y, n); }
void vsin8(const double* x, double* y, int n) { vecloop<Lanes8, Sleef_sind8_u10>(x, y, n); }
void vcos8(const double* x, double* y, int n) { vecloop<Lanes8, Sleef_cosd8_u10>(x, y, n); }
void vlog8(const double* x, double* y, int n) { vecloop<Lanes8, Sleef_logd8_u10>(x, y, n); }

}  // namespace vexor
#endif
