// Elementary functions over arrays (see vecmath.h): the choice of
// implementation, the 2-lane SLEEF loops, and the C library's.
#include "exec/vecmath.h"

#include <cmath>

#ifdef VEXOR_HAVE_SLEEF
#include <emmintrin.h>
#include <sleef.h>

#include "exec/vecloop.h"
#endif

namespace vexor {

int vecmath = 0;

#ifdef VEXOR_HAVE_SLEEF
// The 4-lane loops, in a file compiled for AVX (vecmath_avx.cpp).
void vexp4(const double* x, double* y, int n);
void vsin4(const double* x, double* y, int n);
void vcos4(const double* x, double* y, int n);
void vlog4(const double* x, double* y, int n);
// The 8-lane loops, in a file compiled for AVX-512F (vecmath_avx512.cpp).
void vexp8(const double* x, double* y, int n);
void vsin8(const double* x, double* y, int n);
void vcos8(const double* x, double* y, int n);
void vlog8(const double* x, double* y, int n);
#endif

namespace {

enum Impl { LIBC, SSE2, AVX, AVX512 };

Impl choose() {
#ifdef VEXOR_HAVE_SLEEF
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
  if (__builtin_cpu_supports("avx512f")) return AVX512;
  if (__builtin_cpu_supports("avx")) return AVX;
#endif
  return SSE2;
#else
  return LIBC;
#endif
}

Impl impl() {
  static const Impl chosen = choose();
  if (!vecmath) return LIBC;
  // 2 and 3 ask for a narrower path than the processor's widest.
  if (vecmath == 2 && chosen != LIBC) return SSE2;
  if (vecmath == 3 && chosen == AVX512) return AVX;
  return chosen;
}

#ifdef VEXOR_HAVE_SLEEF
struct Lanes2 {
  static constexpr int W = 2;
  static __m128d load(const double* p) { return _mm_loadu_pd(p); }
  static void store(double* p, __m128d v) { _mm_storeu_pd(p, v); }
};
#endif

}  // namespace

bool vecmathactive() { return impl() != LIBC; }

const char* vecmathname() {
  switch (impl()) {
    case AVX512: return "SLEEF AVX-512";
    case AVX: return "SLEEF AVX";
    case SSE2: return "SLEEF SSE2";
    default: return "C library";
  }
}

#ifdef VEXOR_HAVE_SLEEF
#define VEXOR_VECTOR(eight, four, two)                 \
  switch (impl()) {                                    \
    case AVX512: eight(x, y, n); return;               \
    case AVX: four(x, y, n); return;                   \
    case SSE2: vecloop<Lanes2, two>(x, y, n); return;  \
    default: break;                                    \
  }
#else
#define VEXOR_VECTOR(eight, four, two)
#endif

void vexp(const double* x, double* y, int n) {
  VEXOR_VECTOR(vexp8, vexp4, Sleef_expd2_u10)
  for (int i = 0; i < n; ++i) y[i] = std::exp(x[i]);
}

void vsin(const double* x, double* y, int n) {
  VEXOR_VECTOR(vsin8, vsin4, Sleef_sind2_u10)
  for (int i = 0; i < n; ++i) y[i] = std::sin(x[i]);
}

void vcos(const double* x, double* y, int n) {
  VEXOR_VECTOR(vcos8, vcos4, Sleef_cosd2_u10)
  for (int i = 0; i < n; ++i) y[i] = std::cos(x[i]);
}

void vlog(const double* x, double* y, int n) {
  VEXOR_VECTOR(vlog8, vlog4, Sleef_logd2_u10)
  for (int i = 0; i < n; ++i) y[i] = std::log(x[i]);
}

}  // namespace vexor
