// The 8-lane SLEEF loops of vecmath.cpp, compiled for AVX-512F (called only
// on processors that have it).  SLEEF's 8-lane functions run the same
// steps as its 4- and 2-lane ones, fused multiply-adds included, so every
// value is the one the narrower loops give (vecmath_test checks this
// element by element); eight lanes only take half the instructions.
#ifdef VEXOR_HAVE_SLEEF
#include <immintrin.h>
#include <sleef.h>

namespace vexor {

namespace {

// Eight lanes at a time; the last one to seven elements in a padded vector.
template <auto F>
void run8(const double* x, double* y, int n) {
  int i = 0;
  for (; i + 8 <= n; i += 8) _mm512_storeu_pd(y + i, F(_mm512_loadu_pd(x + i)));
  if (i < n) {
    double in[8] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, out[8];
    for (int k = 0; i + k < n; ++k) in[k] = x[i + k];
    _mm512_storeu_pd(out, F(_mm512_loadu_pd(in)));
    for (int k = 0; i + k < n; ++k) y[i + k] = out[k];
  }
}

}  // namespace

void vexp8(const double* x, double* y, int n) { run8<Sleef_expd8_u10>(x, y, n); }
void vsin8(const double* x, double* y, int n) { run8<Sleef_sind8_u10>(x, y, n); }
void vcos8(const double* x, double* y, int n) { run8<Sleef_cosd8_u10>(x, y, n); }
void vlog8(const double* x, double* y, int n) { run8<Sleef_logd8_u10>(x, y, n); }

}  // namespace vexor
#endif
