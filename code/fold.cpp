// Constant folding: every operator node and built-in call whose operands are
// all constants is computed once at compile time and replaced, in place, by
// an EN_CONSTANT node.  Mistakes that are certain at compile time (a constant
// division by zero, the logarithm of a constant negative number) become
// compile errors through exprerror, and the node folds to 0.0.
//
// Folding computes as the run time does (builtins/builtins.cpp serves both),
// with these deliberate differences:
//   - x^e folds to pow(x, e) (x*x for e = 2) without the negative-base test,
//     so (-8)^(1/3) folds to the library's not-a-number;
//   - EXP has no range tests; FAC accepts -4..170 instead of -5..169;
//   - failures carry compile-time texts without the value.
// A built-in whose argument test fails and which has no compile-time text
// (ACOS, ASIN, TAN at 90 degrees, an infinite GAMMA, CHEBY with a negative
// order, the elliptic integrals) is left unfolded, so the run-time test and
// its message apply when the program runs.
//
// The incomplete gamma routines behind GAMMP, ERF and PAREA (gser, gcf)
// report their own rare failures (too many terms for a huge a) as failure
// codes without a compile-time text: such a call is left unfolded, so the
// run-time report (with its line) applies when the program runs, exactly as
// for a call whose arguments are not constants.
#include <cmath>

#include "code/code.h"
#include "builtins/builtins.h"
#include "code/walk.h"

namespace vexor {

namespace {

inline bool isconst(const ExprNode* n) { return n && n->kind == EN_CONSTANT; }

// Turns a node into a constant, freeing its operands.
void makeconst(ExprNode* node, double value) {
  if (node->left) freetree(node->left);
  if (node->right) freetree(node->right);
  if (node->cond) freetree(node->cond);
  node->left = node->right = node->cond = nullptr;
  node->value = value;
  node->kind = EN_CONSTANT;
}

// The operator nodes that fold when their operands are constants; the
// binary ones need left and right, the unary ones (- and !) right only.
bool foldable(uint8_t kind, bool* unary) {
  *unary = false;
  switch (kind) {
    case EN_ADD: case EN_SUB: case EN_MUL: case EN_DIV: case EN_MOD: case EN_POW:
    case EN_LT: case EN_LE: case EN_GT: case EN_GE: case EN_EQ: case EN_NE:
    case EN_AND: case EN_OR:
      return true;
    case EN_NEGATE: case EN_NOT:
      *unary = true;
      return true;
    default:
      return false;
  }
}

// Folds one node whose operands are folded already.
void foldnode(ExprNode* node) {
  if (node->kind == EN_COND) {
    if (isconst(node->cond) && isconst(node->left) && isconst(node->right))
      makeconst(node, node->cond->value != 0.0 ? node->left->value : node->right->value);
    return;
  }
  bool unary;
  if (!foldable(node->kind, &unary)) return;  // assignments, ++/--, comma ...
  if (!isconst(node->right) || (!unary && !isconst(node->left))) return;
  double r = node->right->value;
  double l = unary ? 0.0 : node->left->value;
  double v = 0.0;
  switch (node->kind) {
    case EN_ADD: v = l + r; break;
    case EN_SUB: v = l - r; break;
    case EN_MUL: v = l * r; break;
    case EN_DIV:
    case EN_MOD:
      if (r == 0.0) {
        exprerror(node, "Division by zero");
        v = 0.0;
      } else {
        v = node->kind == EN_DIV ? l / r : std::fmod(l, r);
      }
      break;
    case EN_POW: v = r == 2.0 ? l * l : std::pow(l, r); break;
    case EN_LT: v = l < r ? 1.0 : 0.0; break;
    case EN_LE: v = l <= r ? 1.0 : 0.0; break;
    case EN_GT: v = l > r ? 1.0 : 0.0; break;
    case EN_GE: v = l >= r ? 1.0 : 0.0; break;
    case EN_EQ: v = l == r ? 1.0 : 0.0; break;
    case EN_NE: v = l != r ? 1.0 : 0.0; break;
    case EN_AND: v = (l == 0.0 || r == 0.0) ? 0.0 : 1.0; break;
    case EN_OR: v = (l != 0.0 || r != 0.0) ? 1.0 : 0.0; break;
    case EN_NEGATE: v = -r; break;
    case EN_NOT: v = r == 0.0 ? 1.0 : 0.0; break;
    default: return;
  }
  makeconst(node, v);
}

// Folds a call whose arguments are folded already.
void foldcallnode(ExprNode* call);

}  // namespace

// foldexpr: the tree bottom up, on an explicit stack.  A node's operands
// are folded before it, in the order left, right, then the condition of a
// conditional (the order in which compile errors are reported), a call's
// arguments in order before the call; constants, variables and elements
// are left as they are (an element's subscript is not folded here), and so
// are the calls that are never folded, arguments and all.  Every node stays
// where it is (it may become a constant in place), so the root returned is
// the one given.
ExprNode* foldexpr(ExprNode* root) {
  auto take = [](ExprNode* n) {
    switch (n->kind) {
      case EN_CONSTANT:
      case EN_VARIABLE:
      case EN_ELEMENT:
        return false;
      case EN_CALL:  // RANDOM, PRINTF and RETURN vary or act: never folded
        return !(n->flags & ENF_NOFOLD) && n->funcode != FN_RANDOM;
      default:
        return true;
    }
  };
  postorder(root, take, [](ExprNode* n) {
    if (n->kind == EN_CALL)
      foldcallnode(n);
    else
      foldnode(n);
  });
  return root;
}

ExprNode* foldcall(ExprNode* call) {
  if ((call->flags & ENF_NOFOLD) || call->funcode == FN_RANDOM) return call;
  // The arguments first (each is a tree of its own), then the call.
  for (ExprNode* a = call->firstarg; a; a = a->nextarg) foldexpr(a);
  foldcallnode(call);
  return call;
}

namespace {

void foldcallnode(ExprNode* call) {
  // The arguments are folded in place (each node stays where it is); stop
  // here unless all are constants.
  constexpr int MAXFOLDARGS = 30;
  double args[MAXFOLDARGS] = {};
  int nargs = 0;
  bool allconst = true;
  for (ExprNode* f = call->firstarg; f; f = f->nextarg) {
    if (f->kind != EN_CONSTANT)
      allconst = false;
    else if (nargs < MAXFOLDARGS)
      args[nargs] = f->value;
    ++nargs;
  }
  if (!allconst || nargs > MAXFOLDARGS) return;

  uint8_t fail = BF_NONE;
  double bad = 0.0;
  double value = fncompute(call->funcode, args, FNFOLD, &fail, &bad);
  if (fail != BF_NONE) {
    const char* text = fncomptext(fail);
    if (!text) return;  // left for the run time (also a routine that failed inside)
    exprerror(call, text);
    value = 0.0;
  }
  for (ExprNode* a = call->firstarg; a;) {
    ExprNode* next = a->nextarg;
    freenode(a);
    a = next;
  }
  call->firstarg = nullptr;
  call->value = value;
  call->kind = EN_CONSTANT;
}

}  // namespace

}  // namespace vexor
