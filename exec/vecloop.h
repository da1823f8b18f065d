// The loop of one of SLEEF's vector functions over an array, shared by the
// files compiled for each instruction set (vecmath.cpp, vecmath_avx.cpp,
// vecmath_avx512.cpp).  Lanes is a description of the vector type: W
// doubles, load and store of W unaligned doubles.
#pragma once

namespace vexor {

// y[i] = F(x[i]) for i < n, W lanes at a time; the last elements go through
// F in a vector padded with zeros, so that every element, wherever it
// stands, gets the value F gives it.
template <class Lanes, auto F>
void vecloop(const double* x, double* y, int n) {
  constexpr int W = Lanes::W;
  int i = 0;
  for (; i + W <= n; i += W) Lanes::store(y + i, F(Lanes::load(x + i)));
  if (i < n) {
    double in[W] = {}, out[W];
    for (int k = 0; i + k < n; ++k) in[k] = x[i + k];
    Lanes::store(out, F(Lanes::load(in)));
    for (int k = 0; i + k < n; ++k) y[i + k] = out[k];
  }
}

}  // namespace vexor
