// Whole fits of y = a exp(-b x) + c sin(d x) + noise (a = 3, b = 0.4,
// c = 1.5, d = 2.2; x uniform on [0, 10]; Gaussian noise, sd 0.1, fixed
// seed) from a = b = c = 1, d = 2, with a C++ residual function, through the
// unbounded driver (forward-difference Jacobian, covariance -3).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <vector>

#include "bench/expsin.h"
#include "exec/exec.h"
#include "fit/fit.h"

namespace {

using Data = vexor::bench::ExpSinData;
const Data& data(int n) { return vexor::bench::expsin(n); }

// Fits from a = b = c = 1, d = 2 as long as the benchmark asks; the last
// fit's result and the seconds per fit.
template <class Residual>
vexor::NlsqResult timefits(benchmark::State& state, int n, const Residual& residual, double* perfit) {
  vexor::NlsqOptions opt;
  double seconds = 0.0;
  long fits = 0;
  vexor::NlsqResult last;
  for (auto _ : state) {
    const auto t0 = std::chrono::steady_clock::now();
    last = vexor::nlsq_fit(n, {1.0, 1.0, 1.0, 2.0}, residual, opt);
    seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    ++fits;
    benchmark::DoNotOptimize(last.x.data());
  }
  *perfit = seconds / static_cast<double>(fits);
  return last;
}

void BM_FitExpSin(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Data& d = data(n);
  auto residual = [&](int nn, int, const double* b, int&, double* r) {
    const double* x = d.x.data();
    const double* y = d.y.data();
    for (int i = 0; i < nn; ++i)
      r[i] = y[i] - (b[0] * std::exp(-b[1] * x[i]) + b[2] * std::sin(b[3] * x[i]));
  };
  double per_fit = 0.0;
  const vexor::NlsqResult last = timefits(state, n, residual, &per_fit);
  state.counters["seconds"] = per_fit;
  state.counters["status"] = last.status;
  state.counters["iterations"] = last.iterations;
  state.counters["evaluations"] = last.evaluations;
  state.counters["ns_per_obs_eval"] = per_fit * 1e9 / (static_cast<double>(last.evaluations) * n);
  state.counters["a"] = last.x[0];
  state.counters["d"] = last.x[3];
}

BENCHMARK(BM_FitExpSin)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// The same fit with a hand-written residual that uses the engine's vector
// functions (SLEEF's exp and sin, exec/vecmath.h) over blocks of 256: the
// mark for a compiled program with vector math on one thread
// (bench/analysis, BM_ProgramFitVectorOneThread).
void BM_FitExpSinVector(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const Data& d = data(n);
  vexor::vecmath = 1;
  auto residual = [&](int nn, int, const double* b, int&, double* r) {
    constexpr int L = 256;
    double u[L], e[L], v[L], s[L];
    for (int first = 0; first < nn; first += L) {
      const int m = nn - first < L ? nn - first : L;
      const double* x = d.x.data() + first;
      const double* y = d.y.data() + first;
      for (int i = 0; i < m; ++i) u[i] = -b[1] * x[i];
      for (int i = 0; i < m; ++i) v[i] = b[3] * x[i];
      vexor::vexp(u, e, m);
      vexor::vsin(v, s, m);
      for (int i = 0; i < m; ++i) r[first + i] = y[i] - (b[0] * e[i] + b[2] * s[i]);
    }
  };
  double per_fit = 0.0;
  const vexor::NlsqResult last = timefits(state, n, residual, &per_fit);
  vexor::vecmath = 0;
  state.counters["seconds"] = per_fit;
  state.counters["evaluations"] = last.evaluations;
  state.counters["ns_per_obs_eval"] = per_fit * 1e9 / (static_cast<double>(last.evaluations) * n);
}

BENCHMARK(BM_FitExpSinVector)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace
