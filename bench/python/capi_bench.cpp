// The C interface as the Python package drives it, without Python:
//   BM_LogisticFit    one four-parameter logistic fit of 12 points: compile,
//                     data in one call, compute, and every result read (what
//                     vexor.fit does), the baseline of its overhead;
//   BM_SetData        1,000,000 rows of 2 columns handed over (vx_set_data),
//                     beside BM_Memcpy, a plain copy of the same 16 MB.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "vexor/vexor_c.h"

namespace {

const char* const logistic =
    "VARIABLES dose, response;\n"
    "PARAMETERS bottom = 0, top = 100, ec50 = 1, hill = 1;\n"
    "FUNCTION response = bottom + (top - bottom) / (1 + (ec50 / dose)^hill);\n";

// Twelve doses, log-spaced from 0.01 to 100, on a curve with a little
// deterministic scatter.
std::vector<double> logisticdata() {
  std::vector<double> d;
  for (int i = 0; i < 12; ++i) {
    const double dose = std::pow(10.0, -2.0 + 4.0 * i / 11.0);
    const double y = 3.0 + 97.0 / (1.0 + std::pow(2.0 / dose, 1.3)) + 1.5 * std::sin(7.0 * i);
    d.push_back(dose);
    d.push_back(y);
  }
  return d;
}

void readall(vx_engine* e, int p, int64_t n) {
  std::vector<double> v(p), cov(p * p), obs(n), pred(n);
  const char* text = nullptr;
  for (int kind = VX_ESTIMATE; kind <= VX_START; ++kind) vx_parameter_values(e, kind, v.data(), p);
  for (int s = 0; s <= VX_STAT_PROB_F; ++s) {
    double x;
    vx_statistic(e, s, &x);
  }
  vx_covariance(e, cov.data(), p * p);
  vx_observed(e, obs.data(), n);
  vx_predicted(e, pred.data(), n);
  vx_stop_reason(e, &text);
  vx_report(e, &text);
  benchmark::DoNotOptimize(text);
}

void BM_LogisticFit(benchmark::State& state) {
  vx_engine* e = vx_create();
  const std::vector<double> d = logisticdata();
  for (auto _ : state) {
    int code = 0;
    vx_compile(e, logistic);
    vx_set_data(e, d.data(), 12, 2);
    vx_compute(e, &code);
    readall(e, 4, 12);
    benchmark::DoNotOptimize(code);
  }
  double evaluations = 0;
  vx_statistic(e, VX_STAT_EVALUATIONS, &evaluations);
  state.counters["evaluations"] = evaluations;
  vx_destroy(e);
}
BENCHMARK(BM_LogisticFit)->Unit(benchmark::kMicrosecond);

constexpr int64_t ROWS = 1000000;

void BM_SetData(benchmark::State& state) {
  vx_engine* e = vx_create();
  vx_compile(e, "VARIABLES x, y; PARAMETERS a = 1; FUNCTION y = a * x;\n");
  std::vector<double> d(2 * ROWS, 1.5);
  for (auto _ : state) vx_set_data(e, d.data(), ROWS, 2);
  state.SetBytesProcessed(state.iterations() * ROWS * 2 * 8);
  vx_destroy(e);
}
BENCHMARK(BM_SetData)->Unit(benchmark::kMillisecond);

void BM_Memcpy(benchmark::State& state) {
  std::vector<double> d(2 * ROWS, 1.5);
  for (auto _ : state) {
    // A fresh block each time, as the engine allocates its matrix.
    std::vector<double> to(2 * ROWS);
    std::memcpy(to.data(), d.data(), d.size() * sizeof(double));
    benchmark::DoNotOptimize(to.data());
  }
  state.SetBytesProcessed(state.iterations() * ROWS * 2 * 8);
}
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);

}  // namespace
