// The block evaluator: runs the model of a "pure" program over a block of
// observations at a time instead of one observation at a time.
//
// A program qualifies when its instruction list is nothing but OP_LINE
// records, exactly one OP_FUNCTION and the final OP_STOP, and the model tree
// holds only constants, variables, array elements, arithmetic, comparison,
// logical and conditional nodes and built-in calls without effects: no
// assignment, increment, RANDOM, PRINTF or RETURN, and no read of
// "Predicted" or "Residual" (which would carry a value from one observation
// to the next).  For such a program every observation's run is independent
// of every other, and its only effects are the values it leaves in the
// input variables, "Obs", "Predicted", "Residual" and the last predicted and
// observed values.
//
// The tree is flattened once per analysis (batchprepare) into a list of
// operations in the interpreter's evaluation order, each writing one slot of
// `lanes` values.  Operations whose operands do not vary between
// observations (constants, parameters, work variables, and everything built
// on them alone) are computed once per pass on one lane and copied to every
// lane; the others are computed lane by lane for each block.  Each lane goes
// through exactly the floating-point operations the interpreter performs for
// that observation, in the same order, so the values are the same bit for
// bit (nothing here is compiled with reassociation or contraction of its
// own: every operation is a separate statement storing to memory).  The one
// exception is opt-in: with the host's vector math on (vecmath.h), exp,
// sin, cos and ln are SLEEF's vector functions, which may differ from the
// C library's in the last bit.
//
// Run-time errors are not reported here.  Every test through which the
// interpreter would raise an error (division or modulo by zero, a negative
// base to a power it may not take, a failed argument test of a built-in, a
// bad subscript) is made lane by lane, and so is the driver's test of a
// residual that is not finite (the special functions behind GAMMP, ERF and
// PAREA report their rare failures as codes, like the argument tests).  A
// block in which any lane fails is given
// back: batchpass returns the index of its first observation (with the
// error and stop flags as they were), and the caller runs the rest of the
// pass through runprog, which then raises the same error, with the same
// message and flags, as a pass that had used runprog from the start
// (earlier observations cannot influence it).
//
// An element read as an operand has its subscript evaluated twice by the
// interpreter (once as the node's operand, once to find the element).
// Qualifying trees have no effects, so both evaluations give the same
// values and a failure in either fails the lane: evaluating the subscript
// once here yields the same results, and the fallback to runprog gives the
// same messages (twice, as the interpreter reports them).
//
// The blocks of a pass are spread over the analysis's threads (threads.cpp):
// each lane is computed alone, so the values do not depend on which thread
// computes a block or how many there are.  The calling thread's slot
// storage is a fixed pool of this file; each other thread's is made by its
// first pass and freed with the threads (batchrelease), so nothing is left
// allocated between analyses.
#include <atomic>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "exec/evaltree.h"
#include "exec/vecmath.h"

namespace vexor {

int batcheval = 1;

namespace {

constexpr int MAXLANES = 256;          // lanes per block
constexpr int MINLANES = 16;           // a tree too big for this many is left to runprog
constexpr int POOLDOUBLES = 1 << 16;   // slot storage (512 KB)
constexpr int MAXBOPS = 8192;          // operations of one tree
constexpr uint32_t BATCHMAXHEIGHT = 2048;  // height of a tree the planner takes
constexpr int MAXBARGS = 8192;         // argument slots of all calls of one tree
constexpr int MAXSTEPS = 100000;       // instructions walked by the shape test

// Operation kinds beyond the node kinds (which keep their EN_ values).
enum : uint8_t {
  BK_UNIFORM = 100,  // value read once per pass: constant or variable
  BK_COLUMN = 101,   // input variable: a column of the data matrix
  BK_OBS = 102,      // "Obs": observation index + 1
  BK_ELEM1 = 103,    // array element, one subscript
  BK_ELEM2 = 104,    // array element, two subscripts
};

struct BOp {
  uint8_t kind;
  uint8_t funcode;
  uint8_t uniform;  // 1: the same value for every observation of a pass
  uint8_t pad;
  int32_t dst;      // result slot
  int32_t a, b, c;  // operand slots (-1: none)
  int32_t nargs;    // calls: argument count; arguments at args[argbase..]
  int32_t argbase;
  int32_t col;      // BK_COLUMN: column of the data matrix
  Symbol* sym;      // BK_UNIFORM variables, array elements
  double value;     // BK_UNIFORM constants
};

struct Plan {
  int ready;        // 1: the compiled program qualifies
  int32_t nops;
  int32_t nslots;
  int32_t nargslots;
  int32_t lanes;
  int32_t predslot;  // the model's value
  int32_t obsslot;   // the dependent variable's value, -1 when none
  Symbol* dep;
};

Plan plan;
BOp ops[MAXBOPS];
int32_t colops[MAXBOPS];  // the column loads, in operation order
int32_t ncolops = 0;
bool tanplanned = false;  // the Jacobian's tangent plan (below) is this plan's
int32_t argslots[MAXBARGS];
alignas(64) double pool0[POOLDOUBLES];
// The slot storage of the pool's other threads (made by their first pass,
// freed with the pool, batchrelease), and the storage of this thread.
std::vector<double> workerpools[MAXTHREADS];
thread_local double* pool = pool0;

inline double* slot(int32_t s) { return pool + static_cast<std::size_t>(s) * plan.lanes; }

// ---------------------------------------------------------------------------
// Flattening
// ---------------------------------------------------------------------------

struct Builder {
  bool ok = true;
  int32_t varops[MAXBOPS];  // the load operations of variables, one per symbol
  int32_t nvarops = 0;

  int32_t newop(uint8_t kind) {
    if (plan.nops >= MAXBOPS) {
      ok = false;
      return -1;
    }
    BOp& op = ops[plan.nops++];
    std::memset(&op, 0, sizeof op);
    op.kind = kind;
    op.dst = plan.nslots++;
    op.a = op.b = op.c = -1;
    op.col = -1;
    return plan.nops - 1;
  }

  // The slot of a variable's value: input variables and "Obs" vary with the
  // observation, "Predicted" and "Residual" disqualify the program, every
  // other symbol keeps its value through a pass.  One slot per symbol.
  int32_t variable(Symbol* s) {
    if (!s || s == sympredicted || s == symresidual) {
      ok = false;
      return -1;
    }
    for (int32_t v = 0; v < nvarops; ++v)
      if (ops[varops[v]].sym == s) return ops[varops[v]].dst;
    int32_t col = -1;
    for (int32_t i = 0; i < nvar; ++i)
      if (invars[i] == s) col = i;
    int32_t k;
    if (s == symobs) {
      k = newop(BK_OBS);
    } else if (col >= 0) {
      k = newop(BK_COLUMN);
      if (k >= 0) ops[k].col = col;
    } else {
      k = newop(BK_UNIFORM);
      if (k >= 0) ops[k].uniform = 1;
    }
    if (k < 0) return -1;
    ops[k].sym = s;
    varops[nvarops++] = k;
    return ops[k].dst;
  }

  int32_t constant(double v) {
    int32_t k = newop(BK_UNIFORM);
    if (k < 0) return -1;
    ops[k].uniform = 1;
    ops[k].value = v;
    return ops[k].dst;
  }

  // Every operation has a slot of its own, so a slot's number is its
  // operation's index.
  static bool isuniform(int32_t slotindex) { return ops[slotindex].uniform != 0; }

  // An operand in the interpreter's sense: evaluated unless it is an
  // assignment target (which no qualifying tree holds).
  int32_t operand(ExprNode* n) {
    if (!n) return -1;
    if (n->flags & ENF_TARGET) {
      ok = false;
      return -1;
    }
    return node(n);
  }

  // Returns the slot holding the node's value, after appending the
  // operations of its operands in the order evalexpr evaluates them.
  int32_t node(ExprNode* n) {
    if (!ok) return -1;
    switch (n->kind) {
      case EN_CONSTANT: return constant(n->value);
      case EN_VARIABLE: return variable(n->symbol);
      case EN_END: return constant(0.0);
      case EN_CALL: return call(n);
      case EN_ELEMENT: return element(n);
      case EN_ADD: case EN_SUB: case EN_MUL: case EN_DIV: case EN_MOD: case EN_POW:
      case EN_COMMA: case EN_NEGATE: case EN_NOT: case EN_LT: case EN_LE: case EN_GT:
      case EN_GE: case EN_EQ: case EN_NE: case EN_AND: case EN_OR: case EN_COND:
        break;
      default: ok = false; return -1;  // assignments, strings, parse-only kinds
    }
    int32_t l = operand(n->left);
    int32_t r = operand(n->right);
    int32_t c = -1;
    if (n->kind == EN_COND) {
      if (!n->cond) ok = false;
      c = operand(n->cond);
    }
    // The kinds that use an operand must have it (the interpreter would
    // read 0.0 for a missing one; such a tree is not made by the compiler).
    bool needl = n->kind != EN_NEGATE && n->kind != EN_NOT;
    if ((needl && l < 0) || r < 0) ok = false;
    if (!ok) return -1;
    int32_t k = newop(n->kind);
    if (k < 0) return -1;
    BOp& op = ops[k];
    op.a = l;
    op.b = r;
    op.c = c;
    op.uniform = (l < 0 || isuniform(l)) && isuniform(r) && (c < 0 || isuniform(c));
    return op.dst;
  }

  int32_t call(ExprNode* n) {
    if (n->flags & (ENF_NOFOLD | ENF_SPARE | ENF_STRINGS) || n->funcode == FN_RANDOM ||
        n->funcode == FN_PRINTF || n->funcode == FN_RETURN) {
      ok = false;
      return -1;
    }
    int32_t first[32];
    int32_t count = 0;
    bool uniform = true;
    for (ExprNode* a = n->firstarg; a; a = a->nextarg) {
      if (count == 30 || a->kind == EN_STRING) {  // evlcall's limit; strings
        ok = false;
        return -1;
      }
      int32_t s = node(a);
      if (!ok) return -1;
      first[count++] = s;
      uniform = uniform && isuniform(s);
    }
    if (plan.nargslots + count > MAXBARGS) {
      ok = false;
      return -1;
    }
    int32_t k = newop(EN_CALL);
    if (k < 0) return -1;
    BOp& op = ops[k];
    op.funcode = n->funcode;
    op.nargs = count;
    op.argbase = plan.nargslots;
    for (int32_t i = 0; i < count; ++i) argslots[plan.nargslots++] = first[i];
    op.uniform = uniform;
    return op.dst;
  }

  // lvaladdr's subscripts: a comma pair gives row and column (its two
  // sides, not the comma node itself, are evaluated), anything else one
  // subscript, none the subscript 0.
  int32_t element(ExprNode* n) {
    Symbol* s = n->symbol;
    if (!s || s == sympredicted || s == symresidual) {
      ok = false;
      return -1;
    }
    ExprNode* sub = n->right;
    int32_t a, b = -1;
    uint8_t kind;
    if (sub && sub->kind == EN_COMMA) {
      a = operand(sub->left);
      b = operand(sub->right);
      if (!sub->left || !sub->right) ok = false;
      kind = BK_ELEM2;
    } else {
      a = sub ? operand(sub) : constant(0.0);
      kind = BK_ELEM1;
    }
    if (!ok) return -1;
    int32_t k = newop(kind);
    if (k < 0) return -1;
    BOp& op = ops[k];
    op.sym = s;
    op.a = a;
    op.b = b;
    op.uniform = isuniform(a) && (b < 0 || isuniform(b));
    return op.dst;
  }
};

// The lane loops are compiled twice where the compiler can choose between
// versions at load time (GCC and Clang on x86-64 Linux): for AVX2, four
// lanes an instruction, and for the baseline's two.  Every lane operation
// is one IEEE operation on each element (no multiply-add is contracted:
// -ffp-contract=off), so the two give the same values.  Not under
// ThreadSanitizer, whose instrumented version chooser would run before
// the sanitizer is ready.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VEXOR_UNDER_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__)
#define VEXOR_UNDER_TSAN 1
#endif
#if defined(__GNUC__) && defined(__x86_64__) && defined(__linux__) && !defined(VEXOR_UNDER_TSAN)
#define VEXOR_LANES_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define VEXOR_LANES_CLONES
#endif

// ---------------------------------------------------------------------------
// Lane arithmetic: each function performs the interpreter's operations for
// one observation and reports in `bad` where the interpreter raises an error.
// ---------------------------------------------------------------------------

// The interpreter's rules (evaltree.h): the power rule, and lvaladdr's
// element, read.
inline double powlane(double x, double e, int& bad) { return powerrule(x, e, bad); }

inline double elemlane(const Symbol* s, double sub1, double sub2, bool two, int& bad) {
  const ElemIndex e = elemindex(s, two, sub1, sub2);
  if (e.badrow || e.badcol) bad = 1;
  return s->elems ? s->elems[e.index] : s->value;
}

// One operation over lanes [0, m).  Returns nonzero when some lane fails.
VEXOR_LANES_CLONES
int runop(const BOp& op, int32_t m) {
  double* d = slot(op.dst);
  const double* a = op.a >= 0 ? slot(op.a) : nullptr;
  const double* b = op.b >= 0 ? slot(op.b) : nullptr;
  int bad = 0;
  switch (op.kind) {
    case EN_ADD: for (int32_t j = 0; j < m; ++j) d[j] = a[j] + b[j]; break;
    case EN_SUB: for (int32_t j = 0; j < m; ++j) d[j] = a[j] - b[j]; break;
    case EN_MUL: for (int32_t j = 0; j < m; ++j) d[j] = a[j] * b[j]; break;
    case EN_DIV:
      for (int32_t j = 0; j < m; ++j) {
        bad |= b[j] == 0.0;
        d[j] = a[j] / b[j];
      }
      break;
    case EN_MOD:
      for (int32_t j = 0; j < m; ++j) {
        if (b[j] == 0.0) {
          bad = 1;
          d[j] = 0.0;
        } else {
          d[j] = std::fmod(a[j], b[j]);
        }
      }
      break;
    case EN_POW:
      for (int32_t j = 0; j < m; ++j) d[j] = powlane(a[j], b[j], bad);
      break;
    case EN_COMMA: for (int32_t j = 0; j < m; ++j) d[j] = b[j]; break;
    case EN_NEGATE: for (int32_t j = 0; j < m; ++j) d[j] = -b[j]; break;
    case EN_NOT: for (int32_t j = 0; j < m; ++j) d[j] = b[j] == 0.0 ? 1.0 : 0.0; break;
    case EN_LT: for (int32_t j = 0; j < m; ++j) d[j] = a[j] < b[j] ? 1.0 : 0.0; break;
    case EN_LE: for (int32_t j = 0; j < m; ++j) d[j] = a[j] <= b[j] ? 1.0 : 0.0; break;
    case EN_GT: for (int32_t j = 0; j < m; ++j) d[j] = a[j] > b[j] ? 1.0 : 0.0; break;
    case EN_GE: for (int32_t j = 0; j < m; ++j) d[j] = a[j] >= b[j] ? 1.0 : 0.0; break;
    case EN_EQ: for (int32_t j = 0; j < m; ++j) d[j] = a[j] == b[j] ? 1.0 : 0.0; break;
    case EN_NE: for (int32_t j = 0; j < m; ++j) d[j] = a[j] != b[j] ? 1.0 : 0.0; break;
    case EN_AND:
      for (int32_t j = 0; j < m; ++j) d[j] = (a[j] == 0.0 || b[j] == 0.0) ? 0.0 : 1.0;
      break;
    case EN_OR:
      for (int32_t j = 0; j < m; ++j) d[j] = (a[j] != 0.0 || b[j] != 0.0) ? 1.0 : 0.0;
      break;
    case EN_COND: {
      const double* c = slot(op.c);
      for (int32_t j = 0; j < m; ++j) d[j] = c[j] != 0.0 ? a[j] : b[j];
      break;
    }
    case BK_ELEM1:
      for (int32_t j = 0; j < m; ++j) d[j] = elemlane(op.sym, a[j], 0.0, false, bad);
      break;
    case BK_ELEM2:
      for (int32_t j = 0; j < m; ++j) d[j] = elemlane(op.sym, a[j], b[j], true, bad);
      break;
    case EN_CALL: {
      // The common one-argument functions with fncompute's formulas and
      // tests written out; every other function through fncompute itself.
      const double* x = op.nargs > 0 ? slot(argslots[op.argbase]) : nullptr;
      switch (op.nargs == 1 ? op.funcode : 0) {
        // exp, sin, cos and ln over the whole block (vecmath.h: SLEEF's
        // vector functions where the build has them), then fncompute's
        // tests lane by lane.
        case FN_EXP: {
          double e[MAXLANES];
          vexp(x, e, m);
          // Without branches, so that the AVX2 version tests four lanes
          // at once (a NaN argument keeps exp's NaN).
          uint64_t over = 0;
          for (int32_t j = 0; j < m; ++j) {
            const double v = x[j];
            double r = e[j];
            if (v < -700.0) r = 0.0;
            if (v > 500.0) r = 0.0;
            d[j] = r;
            over |= v > 500.0 ? 1 : 0;
          }
          return over != 0;
        }
        case FN_SIN:
        case FN_COS: {
          const double* a = x;
          double scaled[MAXLANES];
          if (degrees) {
            for (int32_t j = 0; j < m; ++j) scaled[j] = x[j] * DEGTORAD;
            a = scaled;
          }
          if (op.funcode == FN_SIN)
            vsin(a, d, m);
          else
            vcos(a, d, m);
          return 0;
        }
        case FN_LN: {
          double l[MAXLANES];
          vlog(x, l, m);
          uint64_t out = 0;
          for (int32_t j = 0; j < m; ++j) {
            double r = l[j];
            if (x[j] <= 0.0) r = 0.0;
            d[j] = r;
            out |= x[j] <= 0.0 ? 1 : 0;
          }
          return out != 0;
        }
        case FN_SQRT:
          for (int32_t j = 0; j < m; ++j) {
            if (x[j] < 0.0) {
              bad = 1;
              d[j] = 0.0;
            } else {
              d[j] = std::sqrt(x[j]);
            }
          }
          return bad;
        case FN_ABS:
          for (int32_t j = 0; j < m; ++j) d[j] = std::fabs(x[j]);
          return 0;
        default: break;
      }
      // As evlcall: the first four values default to 0.0, and no function
      // reads beyond them.
      const double* argp[4] = {nullptr, nullptr, nullptr, nullptr};
      const int32_t nused = op.nargs < 4 ? op.nargs : 4;
      for (int32_t i = 0; i < nused; ++i) argp[i] = slot(argslots[op.argbase + i]);
      for (int32_t j = 0; j < m; ++j) {
        double v[4] = {0.0, 0.0, 0.0, 0.0};
        for (int32_t i = 0; i < nused; ++i) v[i] = argp[i][j];
        uint8_t fail;
        double badvalue;
        const double value = fncompute(op.funcode, v, FNRUN, &fail, &badvalue);
        if (fail != BF_NONE) {
          bad = 1;
          d[j] = 0.0;
        } else {
          d[j] = value;
        }
      }
      break;
    }
    default: bad = 1; break;  // loads are done by the caller
  }
  return bad;
}

// Fills the slots of every column load for observations [first, first +
// m), row by row: each record of the data matrix is read once, whole.
VEXOR_LANES_CLONES
void loadcolumns(int32_t first, int32_t m) {
  const double* row = datamat + static_cast<std::size_t>(first) * nvar;
  // The records of the block after next are asked for now, so that they
  // arrive while this block and the next compute: a copy alone cannot hide
  // the memory's latency, and on a large fit that wait was a tenth of the
  // pass.  (Two blocks ahead: with two threads taking blocks in turn, that
  // is most often this thread's next one.)
  {
    const std::size_t from = (static_cast<std::size_t>(first) + 2 * static_cast<std::size_t>(m)) * nvar;
    const std::size_t to = std::min(static_cast<std::size_t>(first) + 3 * static_cast<std::size_t>(m),
                                    static_cast<std::size_t>(nobs)) * nvar;
    for (std::size_t k = from; k < to; k += 8) __builtin_prefetch(datamat + k);
  }
  if (ncolops == 1) {
    double* d = slot(ops[colops[0]].dst);
    const int32_t c = ops[colops[0]].col;
    for (int32_t j = 0; j < m; ++j, row += nvar) d[j] = row[c];
    return;
  }
  if (ncolops == 2) {
    double* d0 = slot(ops[colops[0]].dst);
    double* d1 = slot(ops[colops[1]].dst);
    const int32_t c0 = ops[colops[0]].col, c1 = ops[colops[1]].col;
    for (int32_t j = 0; j < m; ++j, row += nvar) {
      d0[j] = row[c0];
      d1[j] = row[c1];
    }
    return;
  }
  for (int32_t j = 0; j < m; ++j, row += nvar)
    for (int32_t k = 0; k < ncolops; ++k) slot(ops[colops[k]].dst)[j] = row[ops[colops[k]].col];
}

// Fills the slot of the observation-number load for observations [first,
// first + m) (the columns come by loadcolumns).
void load(const BOp& op, int32_t first, int32_t m) {
  double* d = slot(op.dst);
  switch (op.kind) {
    case BK_OBS:
      for (int32_t j = 0; j < m; ++j) d[j] = static_cast<int32_t>(first + j) + 1.0;
      break;
    default: break;
  }
}

// 1 when x is an infinity or a NaN (its exponent bits all ones), else 0:
// a test without a branch, so that a loop ORing it over a block's lanes
// runs several lanes an instruction.
inline uint64_t nonfinitebit(double x) {
  uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return (~bits & 0x7FF0000000000000ULL) == 0 ? 1 : 0;
}

// Whether one of v[0 .. m) is not finite.
VEXOR_LANES_CLONES
bool anynonfinite(const double* v, int32_t m) {
  uint64_t any = 0;
  for (int32_t j = 0; j < m; ++j) any |= nonfinitebit(v[j]);
  return any != 0;
}

// rr[j] = ps[j] - os[j] (os null: 0) for the m lanes; nonzero when one
// of them is not finite.
VEXOR_LANES_CLONES
int residuals(const double* ps, const double* os, int32_t m, double* rr) {
  uint64_t any = 0;
  for (int32_t j = 0; j < m; ++j) {
    const double ri = ps[j] - (os ? os[j] : 0.0);
    rr[j] = ri;
    any |= nonfinitebit(ri);
  }
  return any != 0;
}

// The values of one block, observations [first, first + m): its columns
// loaded, every operation that varies run in order, after(k) called after
// each operation k while no lane has failed, then the driver's residual,
// predicted minus observed, of each lane into rr with its finiteness
// test.  Returns nonzero when some lane failed.
template <class After>
int runblock(int32_t first, int32_t m, double* rr, After after) {
  int bad = pastdeadline() ? 1 : 0;
  if (!bad) loadcolumns(first, m);
  for (int32_t k = 0; k < plan.nops && !bad; ++k) {
    const BOp& op = ops[k];
    if (!op.uniform && op.kind != BK_COLUMN) {
      if (op.kind == BK_OBS)
        load(op, first, m);
      else
        bad |= runop(op, m);
    }
    if (!bad) after(k);
  }
  if (bad) return bad;
  return residuals(slot(plan.predslot), plan.obsslot >= 0 ? slot(plan.obsslot) : nullptr, m, rr);
}

// Values that do not change within a pass, on lane 0 and then on every
// lane, in this thread's slots and in those of the pool's other threads.
// False when one fails: a failure of every observation.
bool uniforms() {
  const int32_t lanes = plan.lanes;
  for (int32_t k = 0; k < plan.nops; ++k) {
    const BOp& op = ops[k];
    if (!op.uniform) continue;
    double* d = slot(op.dst);
    if (op.kind == BK_UNIFORM) {
      d[0] = op.sym ? op.sym->value : op.value;
    } else if (runop(op, 1)) {
      return false;
    }
  }
  for (int32_t k = 0; k < plan.nops; ++k) {
    if (!ops[k].uniform) continue;
    double* d = slot(ops[k].dst);
    for (int32_t j = 1; j < lanes; ++j) d[j] = d[0];
  }
  const int32_t workers = threadsactive();
  for (int w = 1; w < workers; ++w) {
    std::vector<double>& wp = workerpools[w];
    if (wp.size() < static_cast<std::size_t>(POOLDOUBLES)) wp.assign(POOLDOUBLES, 0.0);
    for (int32_t k = 0; k < plan.nops; ++k) {
      if (!ops[k].uniform) continue;
      const std::size_t at = static_cast<std::size_t>(ops[k].dst) * lanes;
      std::memcpy(wp.data() + at, pool0 + at, static_cast<std::size_t>(lanes) * sizeof(double));
    }
  }
  return true;
}

}  // namespace

int batchprepare() {
  std::memset(&plan, 0, sizeof plan);
  tanplanned = false;
  if (!batcheval || !progstart || minimize || nvar <= 0 || !datamat) return 0;

  // The shape: OP_LINE records, one OP_FUNCTION, OP_STOP (a block's linking
  // OP_JUMP is followed).
  ExprNode* tree = nullptr;
  Symbol* dep = nullptr;
  int nfunc = 0;
  OpInstr* pc = progstart;
  for (int steps = 0;; ++steps) {
    if (!pc || steps == MAXSTEPS) return 0;
    if (pc->opcode == OP_STOP) break;
    switch (pc->opcode) {
      case OP_LINE: ++pc; break;
      case OP_JUMP: pc = static_cast<OpInstr*>(pc->operand1); break;
      case OP_FUNCTION:
        if (nfunc++) return 0;
        dep = static_cast<Symbol*>(pc->operand1);
        tree = static_cast<ExprNode*>(pc->operand2);
        ++pc;
        break;
      default: return 0;
    }
  }
  // The planner recurses along the tree: a higher tree goes to the
  // interpreter, which is not limited by height.
  if (nfunc != 1 || !tree || tree->height > BATCHMAXHEIGHT) return 0;

  static Builder bld;  // large: kept off the stack
  bld.ok = true;
  bld.nvarops = 0;
  plan.predslot = bld.node(tree);
  plan.obsslot = dep ? bld.variable(dep) : -1;
  if (!bld.ok || plan.predslot < 0) {
    std::memset(&plan, 0, sizeof plan);
    return 0;
  }
  plan.dep = dep;
  int32_t lanes = POOLDOUBLES / plan.nslots;
  if (lanes > MAXLANES) lanes = MAXLANES;
  lanes &= ~7;
  if (lanes < MINLANES) {
    std::memset(&plan, 0, sizeof plan);
    return 0;
  }
  plan.lanes = lanes;
  ncolops = 0;
  for (int32_t k = 0; k < plan.nops; ++k)
    if (ops[k].kind == BK_COLUMN) colops[ncolops++] = k;
  plan.ready = 1;
  return 1;
}

int batchready() { return plan.ready; }
int32_t batchlanes() { return plan.ready ? plan.lanes : 0; }

void batchrelease() {
  for (std::vector<double>& wp : workerpools) std::vector<double>().swap(wp);
}

int32_t batchpass(int32_t n, double* resid, double* pred, double* obs) {
  if (!plan.ready || !batcheval || traceflag || abortflag || n <= 0 || n > nobs || !datamat)
    return 0;
  const int32_t lanes = plan.lanes;

  // Nothing here reports or changes the run state (a built-in's failure,
  // its special functions' included, comes back as a code and fails the
  // lane), so a block given back leaves everything as it was.
  auto giveback = [](int32_t first) { return first; };

  if (!uniforms()) return giveback(0);

  // The blocks, spread over the pool's threads (threads.cpp), each worker
  // with slot storage of its own holding the uniform values.  A block that
  // fails is noted (the first of them is what the pass gives back); the
  // blocks before it are all stored, whichever thread did them.
  const int32_t nblocks = (n + lanes - 1) / lanes;
  std::atomic<int32_t> failed{nblocks};
  double lastpred = 0.0, lastobs = 0.0;
  threadsrun(nblocks, [&](int worker, int32_t block) {
    if (block > failed.load(std::memory_order_relaxed)) return;
    pool = worker == 0 ? pool0 : workerpools[worker].data();
    const int32_t first = block * lanes;
    const int32_t m = n - first < lanes ? n - first : lanes;
    // The block is stored only when every lane passed.
    double rr[MAXLANES];
    const int bad = runblock(first, m, rr, [](int32_t) {});
    const double* ps = slot(plan.predslot);
    const double* os = plan.obsslot >= 0 ? slot(plan.obsslot) : nullptr;
    if (bad) {
      for (int32_t f = failed.load(); block < f && !failed.compare_exchange_weak(f, block);) {
      }
      return;
    }
    if (resid) std::memcpy(resid + first, rr, static_cast<std::size_t>(m) * sizeof(double));
    if (pred) std::memcpy(pred + first, ps, static_cast<std::size_t>(m) * sizeof(double));
    if (obs) {
      if (os)
        std::memcpy(obs + first, os, static_cast<std::size_t>(m) * sizeof(double));
      else
        std::memset(obs + first, 0, static_cast<std::size_t>(m) * sizeof(double));
    }
    if (block == nblocks - 1) {
      lastpred = ps[m - 1];
      lastobs = os ? os[m - 1] : 0.0;
    }
  });
  pool = pool0;
  if (failed.load() < nblocks) return giveback(failed.load() * lanes);

  // What the interpreter's run of the last observation leaves behind.
  const int32_t last = n - 1;
  const double* row = datamat + static_cast<std::size_t>(last) * nvar;
  for (int32_t i = 0; i < nvar; ++i) invars[i]->value = row[i];
  if (symobs) symobs->value = last + 1.0;
  if (sympredicted) sympredicted->value = lastpred;
  if (symresidual) symresidual->value = plan.dep ? lastobs - lastpred : lastpred;
  lastpredicted = lastpred;
  lastobserved = lastobs;
  funcexec = 1;
  stopflag = 1;
  errflag = 0;
  runline = nullptr;
  return n;
}

}  // namespace vexor

// ---------------------------------------------------------------------------
// The Jacobian by blocks: the residuals and their derivatives in the
// parameters in one pass, each operation carrying the tangents of
// its value (p of them a lane) beside the value.  Only the operations whose
// values depend on a parameter have tangents; an exp, sin, cos or ln is
// computed once, its value serving the derivative where it can (exp's is
// its value).  The values are batchpass's, so the residuals are too.
// ---------------------------------------------------------------------------

namespace vexor {

namespace {

constexpr std::size_t TANMAX = std::size_t{1} << 20;  // tangent doubles of one worker (8 MB)

std::vector<int32_t> tanof;  // per operation: its tangent block, -1 when its value depends on no parameter
std::vector<uint8_t> tandep;  // per operation and parameter (op * tp + j): 1 when the value depends on it
int32_t ntan = 0;
int32_t tp = 0;  // parameters
std::vector<double> tanpools[MAXTHREADS];
thread_local double* tpool = nullptr;

// Tangent j of operation k, lanes in a row.
inline double* tangent(int32_t k, int32_t j) {
  return tpool + (static_cast<std::size_t>(tanof[k]) * tp + j) * plan.lanes;
}
inline bool hastan(int32_t k) { return k >= 0 && tanof[k] >= 0; }
// Whether operation k's value depends on parameter j.  A tangent that does
// not is never computed nor read: it is 0, and the rules add nothing for it
// (a*exp(-b*x) carries tangents in a and b only, not in every parameter).
inline bool depends(int32_t k, int32_t j) { return k >= 0 && tandep[static_cast<std::size_t>(k) * tp + j]; }
// Tangent j of operation k, or null when it is 0.
inline const double* tangentif(int32_t k, int32_t j) { return depends(k, j) ? tangent(k, j) : nullptr; }

// Which operations depend on the parameters (once per plan): a parameter's load, and every
// arithmetic operation or call with such an operand.  Comparisons, logic
// and array elements (whose subscripts only choose) have derivative 0.
void plantangents() {
  tp = nparm;
  tanof.assign(static_cast<std::size_t>(plan.nops), -1);
  tandep.assign(static_cast<std::size_t>(plan.nops) * static_cast<std::size_t>(tp), 0);
  ntan = 0;
  for (int32_t k = 0; k < plan.nops; ++k) {
    const BOp& op = ops[k];
    bool any = false;
    for (int32_t j = 0; j < tp; ++j) {
      bool dep = false;
      switch (op.kind) {
        case BK_UNIFORM: dep = op.sym && op.sym->kind == SYM_PARAM && op.sym->index == j; break;
        case EN_ADD: case EN_SUB: case EN_MUL: case EN_DIV: case EN_MOD: case EN_POW: case EN_COND:
          dep = depends(op.a, j) || depends(op.b, j);
          break;
        case EN_COMMA: case EN_NEGATE: dep = depends(op.b, j); break;
        case EN_CALL:
          for (int32_t i = 0; i < op.nargs; ++i) dep = dep || depends(argslots[op.argbase + i], j);
          break;
        default: break;
      }
      tandep[static_cast<std::size_t>(k) * tp + j] = dep;
      any = any || dep;
    }
    if (any) tanof[k] = ntan++;
  }
}

// The derivatives of a call over the lanes, by its rule: d[i][lane] for
// argument i.  Returns in *norule the arguments without a rule.
void callderivs(const BOp& op, int32_t m, double (*d)[MAXLANES], uint32_t* norule) {
  *norule = 0;
  const double* x = op.nargs > 0 ? slot(argslots[op.argbase]) : nullptr;
  const double* v = slot(op.dst);
  const double ci = degrees ? DEGTORAD : 1.0;
  switch (op.nargs == 1 ? op.funcode : 0) {
    case FN_EXP:
      for (int32_t j = 0; j < m; ++j) d[0][j] = v[j];
      return;
    case FN_LN:
      for (int32_t j = 0; j < m; ++j) d[0][j] = 1.0 / x[j];
      return;
    case FN_SQRT:
      for (int32_t j = 0; j < m; ++j) d[0][j] = 0.5 / v[j];
      return;
    case FN_SIN:
    case FN_COS: {
      double a[MAXLANES] = {}, c[MAXLANES];
      for (int32_t j = 0; j < m; ++j) a[j] = x[j] * ci;
      if (op.funcode == FN_SIN) {
        vcos(a, c, m);
        for (int32_t j = 0; j < m; ++j) d[0][j] = c[j] * ci;
      } else {
        vsin(a, c, m);
        for (int32_t j = 0; j < m; ++j) d[0][j] = -c[j] * ci;
      }
      return;
    }
    default: break;
  }
  for (int32_t j = 0; j < m; ++j) {
    double args[MAXCALLARGS] = {0.0, 0.0, 0.0, 0.0};
    for (int32_t i = 0; i < op.nargs; ++i) args[i] = slot(argslots[op.argbase + i])[j];
    double dd[MAXCALLARGS];
    *norule |= fnderiv(op.funcode, args, op.nargs, v[j], dd);
    for (int32_t i = 0; i < op.nargs; ++i) d[i][j] = dd[i];
  }
}

// The first place (operation, argument) where a parameter met no rule or a
// derivative that is not finite, of one worker.
struct Miss {
  int32_t op = INT32_MAX;
  int32_t arg = 0;
  bool norule = false;
};

// Marks the parameters whose tangents are nonzero on some lane of t.
void markfrom(int32_t k, int32_t arg, bool norule, int32_t m, uint8_t* marks, Miss* miss) {
  const int32_t a = ops[k].kind == EN_CALL ? argslots[ops[k].argbase + arg] : (arg == 0 ? ops[k].a : ops[k].b);
  bool any = false;
  for (int32_t j = 0; j < tp; ++j) {
    const double* t = tangentif(a, j);
    if (!t) continue;
    for (int32_t l = 0; l < m; ++l)
      if (t[l] != 0.0 || std::isnan(t[l])) {
        marks[j] = 1;
        any = true;
        break;
      }
  }
  if (any && k < miss->op) *miss = Miss{k, arg, norule};
}

// The tangents of operation k over lanes [0, m).
void runtangent(int32_t k, int32_t m, uint8_t* marks, Miss* miss) {
  const BOp& op = ops[k];
  const double* a = op.a >= 0 ? slot(op.a) : nullptr;
  const double* b = op.b >= 0 ? slot(op.b) : nullptr;
  const double* v = slot(op.dst);
  const bool tb = hastan(op.b);
  for (int32_t j = 0; j < tp; ++j) {
    if (!depends(k, j)) continue;
    double* t = tangent(k, j);
    const double* x = tangentif(op.a, j);
    const double* y = tangentif(op.b, j);
    switch (op.kind) {
      case BK_UNIFORM:
        for (int32_t l = 0; l < m; ++l) t[l] = 1.0;
        break;
      case EN_ADD:
      case EN_SUB: {
        const double sign = op.kind == EN_ADD ? 1.0 : -1.0;
        for (int32_t l = 0; l < m; ++l) t[l] = (x ? x[l] : 0.0) + sign * (y ? y[l] : 0.0);
        break;
      }
      case EN_MUL:
        for (int32_t l = 0; l < m; ++l) t[l] = (x ? b[l] * x[l] : 0.0) + (y ? a[l] * y[l] : 0.0);
        break;
      case EN_DIV:
        for (int32_t l = 0; l < m; ++l) t[l] = ((x ? x[l] : 0.0) - (y ? v[l] * y[l] : 0.0)) / b[l];
        break;
      case EN_MOD:
        for (int32_t l = 0; l < m; ++l)
          t[l] = (x ? x[l] : 0.0) - (y ? std::round((a[l] - v[l]) / b[l]) * y[l] : 0.0);
        break;
      case EN_POW:
        for (int32_t l = 0; l < m; ++l) {
          double s = 0.0;
          if (x) {
            const double e = b[l];
            const double dx = e == 0.0 ? 0.0 : a[l] != 0.0 ? e * v[l] / a[l] : e == 1.0 ? 1.0 : e > 1.0 ? 0.0 : INFINITY;
            s += dx * x[l];
          }
          if (y && y[l] != 0.0) s += a[l] > 0.0 ? v[l] * std::log(a[l]) * y[l] : a[l] == 0.0 ? 0.0 : NAN;
          t[l] = s;
        }
        break;
      case EN_COMMA:
      case EN_NEGATE: {
        const double sign = op.kind == EN_NEGATE ? -1.0 : 1.0;
        for (int32_t l = 0; l < m; ++l) t[l] = sign * y[l];
        break;
      }
      case EN_COND: {
        const double* c = slot(op.c);
        for (int32_t l = 0; l < m; ++l) t[l] = c[l] != 0.0 ? (x ? x[l] : 0.0) : (y ? y[l] : 0.0);
        break;
      }
      default: break;  // calls below
    }
  }
  if (op.kind == EN_POW) {
    // A power whose derivative is not finite (0 to a power below 1) or has
    // none (a negative base with the exponent depending on a parameter):
    // the parameters concerned are differenced.
    for (int32_t j = 0; j < tp; ++j) {
      const double* t = tangentif(k, j);
      if (!t) continue;
      for (int32_t l = 0; l < m; ++l)
        if (!std::isfinite(t[l])) {
          markfrom(k, (tb && !(a[l] >= 0.0)) ? 1 : 0, !(a[l] >= 0.0), m, marks, miss);
          break;
        }
    }
    return;
  }
  if (op.kind != EN_CALL) return;
  static thread_local double d[MAXCALLARGS][MAXLANES];
  uint32_t norule = 0;
  callderivs(op, m, d, &norule);
  for (int32_t j = 0; j < tp; ++j) {
    if (!depends(k, j)) continue;
    double* t = tangent(k, j);
    for (int32_t l = 0; l < m; ++l) t[l] = 0.0;
  }
  for (int32_t i = 0; i < op.nargs; ++i) {
    const int32_t ai = argslots[op.argbase + i];
    if (!hastan(ai)) continue;
    bool finite = true;
    for (int32_t l = 0; l < m; ++l) finite = finite && std::isfinite(d[i][l]);
    if ((norule & (1u << i)) || !finite) {
      markfrom(k, i, (norule & (1u << i)) != 0, m, marks, miss);
      continue;
    }
    for (int32_t j = 0; j < tp; ++j) {
      const double* x = tangentif(ai, j);
      if (!x) continue;
      double* t = tangent(k, j);
      for (int32_t l = 0; l < m; ++l) t[l] += d[i][l] * x[l];
    }
  }
}

}  // namespace

int32_t batchjacobian(int32_t n, double* resid, double* dr, std::vector<uint8_t>* marks,
                      std::vector<uint8_t>* nonfinite, const std::function<void(int32_t)>* follow) {
  if (!plan.ready || !batcheval || traceflag || abortflag || n <= 0 || n > nobs || !datamat) return 0;
  if (!tanplanned) plantangents();
  tanplanned = true;
  const int32_t lanes = plan.lanes;
  if (tp <= 0 || (plan.obsslot >= 0 && hastan(plan.obsslot))) return 0;
  const std::size_t need = static_cast<std::size_t>(ntan) * tp * lanes;
  if (need > TANMAX) return 0;
  if (!uniforms()) return 0;
  const int32_t workers = threadsactive() > 0 ? threadsactive() : 1;
  std::vector<std::vector<uint8_t>> wmarks(static_cast<std::size_t>(workers),
                                           std::vector<uint8_t>(static_cast<std::size_t>(tp), 0));
  std::vector<Miss> misses(static_cast<std::size_t>(workers));
  std::vector<std::vector<uint8_t>> wbad(static_cast<std::size_t>(workers),
                                         std::vector<uint8_t>(static_cast<std::size_t>(tp), 0));
  try {
    for (int w = 0; w < workers; ++w)
      if (tanpools[w].size() < need) tanpools[w].assign(need, 0.0);
  } catch (const std::bad_alloc&) {
    batchjacobianrelease();
    return 0;
  }
  const int32_t nblocks = (n + lanes - 1) / lanes;
  std::atomic<int> failed{0};
  // For follow: the blocks stored (each flag set by the thread that stored
  // the block, after storing it) and how many of the first are, as the
  // calling thread last looked.
  std::vector<std::atomic<uint8_t>> stored(follow ? static_cast<std::size_t>(nblocks) : 0);
  int32_t ready = 0;
  threadsrun(nblocks, [&](int worker, int32_t block) {
    if (failed.load(std::memory_order_relaxed)) return;
    pool = worker == 0 ? pool0 : workerpools[worker].data();
    tpool = tanpools[worker].data();
    const int32_t first = block * lanes;
    const int32_t m = n - first < lanes ? n - first : lanes;
    double rr[MAXLANES];
    const int bad = runblock(first, m, rr, [&](int32_t k) {
      if (tanof[k] >= 0) runtangent(k, m, wmarks[worker].data(), &misses[worker]);
    });
    if (!bad && resid) std::memcpy(resid + first, rr, static_cast<std::size_t>(m) * sizeof(double));
    if (bad) {
      failed.store(1);
      return;
    }
    for (int32_t j = 0; j < tp; ++j) {
      double* col = dr + static_cast<std::size_t>(j) * n + first;
      if (depends(plan.predslot, j)) {
        const double* t = tangent(plan.predslot, j);
        std::memcpy(col, t, static_cast<std::size_t>(m) * sizeof(double));
        if (anynonfinite(t, m)) wbad[worker][j] = 1;
      } else {
        std::memset(col, 0, static_cast<std::size_t>(m) * sizeof(double));
      }
    }
    if (follow) {
      stored[block].store(1, std::memory_order_release);
      if (worker == 0) {
        const int32_t before = ready;
        while (ready < nblocks && stored[ready].load(std::memory_order_acquire)) ++ready;
        if (ready > before && ready < nblocks) (*follow)(ready * lanes);
      }
    }
  });
  pool = pool0;
  tpool = nullptr;
  if (failed.load()) return 0;
  if (follow) (*follow)(n);
  if (nonfinite) {
    nonfinite->assign(static_cast<std::size_t>(tp), 0);
    for (int w = 0; w < workers; ++w)
      for (int32_t j = 0; j < tp; ++j) (*nonfinite)[j] |= wbad[w][j];
  }
  Miss first;
  for (int w = 0; w < workers; ++w) {
    for (int32_t j = 0; j < tp; ++j)
      if (wmarks[w][j] && marks) (*marks)[j] = 1;
    if (misses[w].op < first.op) first = misses[w];
  }
  if (first.op != INT32_MAX) {
    const BOp& op = ops[first.op];
    derivnote(op.kind == EN_CALL ? op.funcode : 0, first.arg, first.norule);
  }
  return n;
}

void batchjacobianrelease() {
  for (std::vector<double>& tpl : tanpools) std::vector<double>().swap(tpl);
}

}  // namespace vexor
