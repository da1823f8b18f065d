// Whole analyses of compiled programs, as a host runs them through the
// VEXOR object: the program is compiled once, the observations are handed
// over with SetDataRows and SetDataValue, and Compute is timed again and
// again (the fit, the final pass over the observations and the listing).
//
// BM_ProgramFit fits y = a exp(-b x) + c sin(d x) with the data of
// bench/fit's BM_FitExpSin (a = 3, b = 0.4, c = 1.5, d = 2.2; x uniform on
// [0, 10]; Gaussian noise, sd 0.1; the same generator and seed) from
// a = b = c = 1, d = 2, with the same optimizer settings (500 iterations,
// 50000 evaluations, tolerance 1e-10, covariance -3), so the two
// benchmarks differ only in how the residuals are computed: by the
// interpreter here, by C++ code there.  BM_ProgramFitNoBlocks switches the
// block evaluator off, so every residual goes through runprog.
// BM_NistPrograms compiles and fits the 27 NIST StRD problems from both
// starts; the files are read from $VEXOR_NIST_DIR, else ../shared/nist
// beside the source tree.
//
// Counters: seconds per fit (or per pass over the 54 NIST fits), the
// result code, iterations, residual-function evaluations, nanoseconds per
// evaluation of one observation (seconds / (evaluations x n)) and the
// fitted a and d.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <vexor/vexor.h>

#include "api/engine.h"
#include "bench/expsin.h"
#include "exec/exec.h"
#include "analysis/analysis.h"
#include "support/support.h"
#include "kit/kit.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0) {
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

using Data = vexor::bench::ExpSinData;
const Data& data(int n) { return vexor::bench::expsin(n); }

// A VARIANT argument and a result slot.
struct Arg {
  VARIANT v;
  explicit Arg(long x) { VariantInit(&v); v.vt = VT_I4; v.lVal = static_cast<LONG>(x); }
  explicit Arg(double x) { VariantInit(&v); v.vt = VT_R8; v.dblVal = x; }
  explicit Arg(const OLECHAR* s) { VariantInit(&v); v.vt = VT_BSTR; v.bstrVal = SysAllocString(s); }
  ~Arg() { VariantClear(&v); }
  VARIANT* operator&() { return &v; }
};
struct Out {
  VARIANT v;
  Out() { VariantInit(&v); }
  ~Out() { VariantClear(&v); }
  VARIANT* operator&() { return &v; }
};

const OLECHAR* const EXPSIN = OLESTR(
    "VARIABLES x, y;\n"
    "PARAMETERS a = 1, b = 1, c = 1, d = 2;\n"
    "FUNCTION y = a*exp(-b*x) + c*sin(d*x);\n");

// Compiles the exp+sin program and hands over n observations; false when
// the program does not compile.
bool setup(VEXOR& engine, int n) {
  Out r;
  Arg none(0L);
  engine.Initialize(&none, &r);
  Arg source(EXPSIN);
  engine.Compile(&source, &r);
  if (r.v.lVal != 1) return false;
  const Data& d = data(n);
  Arg rows(static_cast<long>(n));
  engine.SetDataRows(&rows, &r);
  Arg xcol(0L), ycol(1L);
  for (int i = 0; i < n; ++i) {
    Arg row(static_cast<long>(i)), x(d.x[i]), y(d.y[i]);
    engine.SetDataValue(&row, &xcol, &x, &r);
    engine.SetDataValue(&row, &ycol, &y, &r);
  }
  return true;
}

double parameter(VEXOR& engine, long index) {
  Arg k(index), kind(0L);
  Out r;
  engine.ParameterValue(&k, &kind, &r);
  return r.v.dblVal;
}

void programfit(benchmark::State& state, int blocks, int vector = 0, int threads = 0) {
  const int n = static_cast<int>(state.range(0));
  VEXOR engine;
  if (!setup(engine, n)) {
    state.SkipWithError("the exp+sin program did not compile");
    return;
  }
  const int saved = vexor::batcheval;
  vexor::batcheval = blocks;
  vexor::vecmath = vector;
  vexor::runthreads = threads;
  double seconds = 0.0;
  long fits = 0;
  long result = 0;
  for (auto _ : state) {
    Out r;
    const auto t0 = Clock::now();
    engine.Compute(&r);
    seconds += since(t0);
    ++fits;
    result = r.v.lVal;
    // Every Compute adds its listing; only the last one is of interest.
    state.PauseTiming();
    vexor::lstclear();
    state.ResumeTiming();
  }
  vexor::batcheval = saved;
  vexor::vecmath = 0;
  vexor::runthreads = 0;
  const double per_fit = seconds / static_cast<double>(fits);
  state.counters["seconds"] = per_fit;
  state.counters["status"] = static_cast<double>(result);
  state.counters["iterations"] = vexor::iterations;
  state.counters["evaluations"] = static_cast<double>(vexor::nevaluations);
  state.counters["ns_per_obs_eval"] =
      per_fit * 1e9 / (static_cast<double>(vexor::nevaluations) * n);
  state.counters["a"] = parameter(engine, 0);
  state.counters["d"] = parameter(engine, 3);
  vexor::enginereset();
}

void BM_ProgramFit(benchmark::State& state) { programfit(state, 1); }
void BM_ProgramFitNoBlocks(benchmark::State& state) { programfit(state, 0); }
// With vector math, on one thread: beside bench/fit's BM_FitExpSinVector,
// a C++ residual with the same vector functions.
void BM_ProgramFitVectorOneThread(benchmark::State& state) { programfit(state, 1, 1, 1); }
void BM_ProgramFitVector(benchmark::State& state) { programfit(state, 1, 1, 0); }
BENCHMARK(BM_ProgramFitVectorOneThread)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProgramFitVector)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

BENCHMARK(BM_ProgramFit)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ProgramFitNoBlocks)->Arg(1000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

// The 54 NIST fits, each compiled (which reads its data file) and computed.
void BM_NistPrograms(benchmark::State& state) {
  const std::string dir = vexor::kit::nistdir(VEXOR_NIST_DIR_DEFAULT);
  if (!std::ifstream(dir + "/Misra1a.dat")) {
    const std::string msg =
        "NIST StRD files not found in " + dir + " (set VEXOR_NIST_DIR): skipped";
    std::fprintf(stderr, "%s\n", msg.c_str());
    state.SkipWithError(msg.c_str());
    return;
  }
  std::vector<std::string> programs;
  for (const auto& [name, model] : vexor::kit::nistmodels()) {
    vexor::kit::NistProblem pr;
    if (!vexor::kit::nistparse(dir + "/" + name + ".dat", name, &pr)) {
      state.SkipWithError(("cannot read " + dir + "/" + name + ".dat").c_str());
      return;
    }
    for (int start = 1; start <= 2; ++start) programs.push_back(vexor::kit::nistprogram(pr, start, dir));
  }
  double compute = 0.0, compile = 0.0;
  long passes = 0, converged = 0, evaluations = 0;
  for (auto _ : state) {
    converged = evaluations = 0;
    for (const std::string& text : programs) {
      auto t0 = Clock::now();
      int ok = vexor::compilesource(text.c_str());
      compile += since(t0);
      if (!ok) {
        state.SkipWithError("a NIST program did not compile");
        return;
      }
      t0 = Clock::now();
      int result = vexor::compute();
      compute += since(t0);
      if (result > 0) ++converged;
      evaluations += vexor::nevaluations;
    }
    ++passes;
  }
  vexor::enginereset();
  state.counters["seconds"] = compute / static_cast<double>(passes);
  state.counters["compile_seconds"] = compile / static_cast<double>(passes);
  state.counters["fits"] = static_cast<double>(programs.size());
  state.counters["converged"] = static_cast<double>(converged);
  state.counters["evaluations"] = static_cast<double>(evaluations);
}

BENCHMARK(BM_NistPrograms)->Unit(benchmark::kMillisecond);

}  // namespace
