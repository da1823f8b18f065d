// The 4-lane SLEEF loops of vecmath.cpp, compiled for AVX (called only on
// processors that have it).  SLEEF's 4-lane functions choose between their
// AVX and AVX2 versions themselves.
#ifdef VEXOR_HAVE_SLEEF
#include <immintrin.h>
#include <sleef.h>

namespace vexor {

namespace {

// Four lanes at a time; the last one to three elements in a padded vector.
template <auto F>
void run4(const double* x, double* y, int n) {
  int i = 0;
  for (; i + 4 <= n; i += 4) _mm256_storeu_pd(y + i, F(_mm256_loadu_pd(x + i)));
  if (i < n) {
    double in[4] = {0.0, 0.0, 0.0, 0.0}, out[4];
    for (int k = 0; i + k < n; ++k) in[k] = x[i + k];
    _mm256_storeu_pd(out, F(_mm256_loadu_pd(in)));
    for (int k = 0; i + k < n; ++k) y[i + k] = out[k];
  }
}

}  // namespace

void vexp4(const double* x, double* y, int n) { run4<Sleef_expd4_u10>(x, y, n); }
void vsin4(const double* x, double* y, int n) { run4<Sleef_sind4_u10>(x, y, n); }
void vcos4(const double* x, double* y, int n) { run4<Sleef_cosd4_u10>(x, y, n); }
void vlog4(const double* x, double* y, int n) { run4<Sleef_logd4_u10>(x, y, n); }

}  // namespace vexor
#endif
