// The evaluation rules of expression trees, inside the execution folder:
// the recursive evaluator and the explicit-stack one (deepeval.cpp) share
// them, and the block evaluator (batch.cpp) the arithmetic ones (power,
// subscripts), so that every path computes the same values.
#pragma once

#include <cmath>
#include <cstdint>

#include "exec/exec.h"

namespace vexor {

// Trees up to this height are evaluated by recursion (evalnode); a higher
// tree goes to evaldeep, which works on an explicit stack and hands its
// subtrees of this height or less back to evalnode.  The recursion is thus
// never deeper than this, whatever the program.
inline constexpr uint32_t SHALLOWTREE = 256;

double evalnode(ExprNode* node);
double evaldeep(ExprNode* node);

// The operators once their operands are known: the arithmetic, comparison,
// logical, comma and unary kinds (applyop), the five assignments given the
// target's storage, and ++/-- likewise.  Failures are reported through
// runerror, and the node yields 0.0.
double applyop(ExprNode* node, double l, double r);
double applyassign(ExprNode* node, double* p, double r);
double applyincdec(ExprNode* node, double* p);
bool isassignment(uint8_t kind);
bool isincdec(uint8_t kind);

// The storage of array element `node` for its subscript values (two: row
// and column), with the subscript tests and their reports.
double* elemaddress(ExprNode* node, bool two, double v1, double v2);

// Reports "Aborting analysis..." once per run (the time limit or a cancel).
void reportabort();
// The start of a run for observation obs (runprog's and derivrun's): the
// input variables from input, or else from the data matrix, "Obs", and the
// run's flags cleared.
void startobservation(int32_t obs, const double* input);
// Whether the run is to stop now (a cancel, or the time limit looked at
// every POLLEVERY instructions), after reporting it.
bool aborting(uint32_t& poll);
// The end of a run once its instructions are done (runprog's and
// derivrun's): the abort report, the test that a FUNCTION statement ran,
// the predicted and observed values; 1 when the run succeeded.
int endrun(double* predicted, double* observed);

// A built-in call once its argument values are gathered (v holds at least
// four values, the missing ones 0.0).
double evlapply(ExprNode* call, const double* v, int n);
inline constexpr int MAXCALLARGS = 30;  // argument values of one call

// Double to int by truncation toward zero; values beyond the int range (and
// not-a-number) become INT_MIN, which every subscript test rejects.
inline int32_t subscript(double v) {
  if (v > -2147483648.0 && v < 2147483648.0) return static_cast<int32_t>(v);
  return INT32_MIN;
}

// x^e: whole exponents 0..20 by repeated multiplication (the only powers a
// negative base may take); otherwise pow for a non-negative base.  A
// negative base with any other exponent sets bad (the caller reports it).
inline double powerrule(double x, double e, int& bad) {
  if (e == 2.0) return x * x;
  if (e == 3.0) return x * x * x;
  if (e >= 0.0 && e <= 20.0 && e == std::floor(e)) {
    double p = 1.0;
    for (int n = static_cast<int>(e); n > 0; --n) p *= x;
    return p;
  }
  if (x >= 0.0 || e == 0.0) return std::pow(x, e);
  bad = 1;
  return 0.0;
}

// The element number of an array element for its subscript values (two:
// row and column), with the subscript tests: a row above the first
// dimension or a column above the second fails (with two subscripts a row
// equal to the first dimension and a column equal to the second pass, as
// the language has always admitted, so the storage holds (dim1 + 1) *
// dim2 + 1 elements), one subscript fails from the first dimension on.  A
// failing subscript is replaced by 0 and its converted value stored in
// badrow or badcol (which are set to 0 otherwise); the access then goes on.
// A number outside the allocated storage (arrays with a dimension below 1)
// becomes element 0.
struct ElemIndex {
  int64_t index;
  bool badrow, badcol;
  int32_t row, col;  // the converted subscripts, as reported when bad
};
inline ElemIndex elemindex(const Symbol* s, bool two, double v1, double v2) {
  ElemIndex e{};
  if (two) {
    e.row = subscript(v1);
    e.col = subscript(v2);
    int32_t row = e.row, col = e.col;
    if (row < 0 || row > s->dim1) {
      e.badrow = true;
      row = 0;
    }
    if (col < 0 || col > s->dim2) {
      e.badcol = true;
      col = 0;
    }
    e.index = static_cast<int64_t>(s->dim2) * row + col;
  } else {
    e.row = subscript(v1);
    int32_t i = e.row;
    if (i < 0 || i >= s->dim1) {
      e.badrow = true;
      i = 0;
    }
    e.index = i;
  }
  if (e.index < 0 || e.index >= s->nalloc) e.index = 0;
  return e;
}

constexpr uint64_t kindbit(int kind) { return uint64_t{1} << kind; }
constexpr uint64_t LEAFKINDS = kindbit(EN_CONSTANT) | kindbit(EN_VARIABLE);
constexpr uint64_t PAIRKINDS = kindbit(EN_ADD) | kindbit(EN_SUB) | kindbit(EN_MUL) |
                               kindbit(EN_COMMA) | kindbit(EN_LT) | kindbit(EN_LE) |
                               kindbit(EN_GT) | kindbit(EN_GE) | kindbit(EN_EQ) | kindbit(EN_NE);
static_assert(EN_COLON < 64, "node kinds must fit the kind masks");

inline bool leaf(const ExprNode* n) { return n && n->kind < 64 && (kindbit(n->kind) & LEAFKINDS); }

// Whether evaluating the node has nothing to show: no effect and no
// possible run-time error.  Constants, variables, and sums, differences,
// products, negations, comparisons and comma pairs of those (the common
// subscripts i + 1, 2*k, i, j); anything deeper counts as not inert.  Kind
// masks rather than a switch keep this to a few predictable branches.
inline bool inert(const ExprNode* n) {
  if (n->kind >= 64) return false;
  const uint64_t k = kindbit(n->kind);
  if (k & LEAFKINDS) return true;
  if (k & PAIRKINDS) return leaf(n->left) && leaf(n->right);
  return n->kind == EN_NEGATE && leaf(n->right);
}

}  // namespace vexor
