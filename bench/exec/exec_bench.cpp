// Interpreter throughput: nanoseconds per evaluation of a compiled program
// for one observation (runprog), for a typical model tree, for a small
// program with statements and an IF, and for one that reads and writes
// array elements, and of the model tree alone (evalexpr).
#include <benchmark/benchmark.h>

#include <cstdio>

#include "compiler/compiler.h"
#include "exec/exec.h"

namespace {

using namespace vexor;

void freeall() {
  freeallnodes();
  freetoks();
  freelines();
  symclear();
  freeopsegs();
  freedata();
  srcfree();
  lstclear();
}

// Compiles the program (with 8 observations) and prepares a pass.
bool setup(const char* text) {
  freeall();
  srcset(text);
  if (!compile()) {
    std::fprintf(stderr, "compilation failed\n");
    return false;
  }
  resetwork();
  return true;
}

constexpr const char* MODEL =
    "VARIABLES x, y;\n"
    "PARAMETERS a = 2.5, b = 0.3, c = 1.2, d = 0.7;\n"
    "FUNCTION y = a*exp(-b*x) + c*sin(d*x);\n"
    "DATA;\n0.5 3.1\n1.5 2.6\n2.5 2.2\n3.5 1.1\n4.5 0.9\n5.5 -0.2\n6.5 -0.4\n7.5 0.3\n";

constexpr const char* PROGRAM =
    "VARIABLES x, y;\n"
    "PARAMETERS a = 2.5, b = 0.3, c = 1.2;\n"
    "DOUBLE u, v, w;\n"
    "u = b*x;\n"
    "v = a*exp(-u);\n"
    "IF (x > 4) { w = c*(x - 4)^2; } ELSE { w = 0; }\n"
    "FUNCTION y = v + w;\n"
    "DATA;\n0.5 3.1\n1.5 2.6\n2.5 2.2\n3.5 1.1\n4.5 0.9\n5.5 -0.2\n6.5 -0.4\n7.5 0.3\n";

// Element reads (whose subscripts are evaluated as operands and again to
// find the element) and writes, one and two subscripts.
constexpr const char* ARRAYS =
    "VARIABLES x, y;\n"
    "PARAMETERS a = 2.5, b = 0.3, c = 1.2;\n"
    "DOUBLE v[8] = {1, 2, 3, 4, 5, 6, 7, 8}, m[3,4], k;\n"
    "k = x - 0.5;\n"
    "m[2, 3] = v[k] * b + v[7 - k];\n"
    "FUNCTION y = a*m[2, 3] + c*v[k];\n"
    "DATA;\n0.5 3.1\n1.5 2.6\n2.5 2.2\n3.5 1.1\n4.5 0.9\n5.5 -0.2\n6.5 -0.4\n7.5 0.3\n";

void runobs(benchmark::State& state, const char* text) {
  if (!setup(text)) {
    state.SkipWithError("compilation failed");
    return;
  }
  int32_t obs = 0;
  double pred = 0.0, observed = 0.0;
  for (auto _ : state) {
    int ok = runprog(obs, nullptr, &pred, &observed);
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(pred);
    if (++obs == nobs) obs = 0;
  }
  freeall();
}

void BM_RunModel(benchmark::State& state) { runobs(state, MODEL); }
void BM_RunProgramWithIf(benchmark::State& state) { runobs(state, PROGRAM); }
void BM_RunProgramWithArrays(benchmark::State& state) { runobs(state, ARRAYS); }

// The model tree alone, without the instruction loop.
void BM_EvalModelTree(benchmark::State& state) {
  if (!setup(MODEL)) {
    state.SkipWithError("compilation failed");
    return;
  }
  ExprNode* tree = nullptr;
  for (OpInstr* p = progstart; p->opcode != OP_STOP; ++p)
    if (p->opcode == OP_FUNCTION) tree = static_cast<ExprNode*>(p->operand2);
  Symbol* x = symfind("x");
  double xv = 0.5;
  for (auto _ : state) {
    x->value = xv;
    benchmark::DoNotOptimize(evalexpr(tree));
    xv = xv < 7.5 ? xv + 1.0 : 0.5;
  }
  freeall();
}

BENCHMARK(BM_RunModel);
BENCHMARK(BM_RunProgramWithIf);
BENCHMARK(BM_RunProgramWithArrays);
BENCHMARK(BM_EvalModelTree);

}  // namespace
