// The interpreter: runs the compiled program once for one observation and
// yields its predicted and observed values.  Instructions are walked slot by
// slot (a full block ends in an OP_JUMP to the next one, so blocks cost
// nothing here); expression trees are evaluated by recursive descent with no
// operand stack.  Nothing on this path allocates: constants and variables are
// read in place, and run-time errors are formatted only when they are shown.
//
// Run-time errors (runerror) end the run after the current instruction; the
// expression that raised one goes on evaluating with 0.0 for the failing
// node, so two errors in one expression give two messages.
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "exec/evaltree.h"

namespace vexor {

SourceLine* runline = nullptr;
int stopflag = 0;
int errflag = 0;
int funcexec = 0;
int abortreported = 0;
int computing = 0;
int traceflag = 0;
double lastobserved = 0.0;
double lastpredicted = 0.0;
FILE* outfp = nullptr;

namespace {

// Longest piece of a source line shown in "Error executing line".
constexpr int ERRLINETEXT = 70;

// Operand fetch: constants and variables are read in place.
// A missing operand (a tree such as "c = ,;" keeps operator nodes without
// operands) reads as 0.0.
inline double operand(ExprNode* n) {
  if (!n) return 0.0;
  switch (n->kind) {
    case EN_CONSTANT: return n->value;
    case EN_VARIABLE: return n->symbol->value;
    default: return evalnode(n);
  }
}

// x^e by the power rule (evaltree.h), reporting a negative base with an
// exponent it may not take.
double power(double x, double e) {
  int bad = 0;
  const double p = powerrule(x, e, bad);
  if (bad) runerror("Raising negative value (%lG) to power (%lG)", x, e);
  return p;
}

// An element read as an operand: its subscript (the right operand) is
// evaluated first like any other operand, and lvaladdr evaluates it again
// to find the element.  So a subscript with an effect acts twice
// (z = v[i++] adds 2 to i and reads v[i + 1]) and a failing one reports
// twice; this is the interpreter's evaluation order and is kept.  The first
// evaluation of an inert subscript is skipped: its value is discarded and
// it can be neither seen nor fail.  Kept out of evalexpr so that its
// common path stays small.
double elemoperand(ExprNode* node) {
  ExprNode* sub = node->right;
  if (sub && !(sub->flags & ENF_TARGET) && !inert(sub)) operand(sub);
  double* p = lvaladdr(node);
  return p ? *p : 0.0;
}

}  // namespace

void reportabort() {
  if (!abortreported) {
    runerror("Aborting analysis...");
    abortreported = 1;
  }
}

// Work variables restart from their declared values at every pass over the
// observations (and keep their values from one observation to the next
// within a pass); the input variables take the first observation's values.
void resetwork() {
  for (int32_t i = 0; i < nwork; ++i) {
    Symbol* s = workvars[i];
    if (s->ndims == 0 || !s->elems) {
      s->value = s->initval;
      continue;
    }
    // All of the storage, including the elements beyond dim1 * dim2 that
    // two subscripts equal to the dimensions reach, starts from 0.0.
    for (int32_t k = 0; k < s->nalloc; ++k) s->elems[k] = 0.0;
    if (s->initelems)
      for (int32_t k = 0; k < s->ninit && k < s->nalloc; ++k) s->elems[k] = s->initelems[k];
  }
  if (datamat && nobs > 0)
    for (int32_t i = 0; i < nvar; ++i) invars[i]->value = datamat[i];
  errflag = 0;
}

void startobservation(int32_t obs, const double* input) {
  if (input) {
    for (int32_t i = 0; i < nvar; ++i) invars[i]->value = input[i];
  } else if (datamat) {
    const double* row = datamat + (std::size_t)obs * (std::size_t)nvar;
    for (int32_t i = 0; i < nvar; ++i) invars[i]->value = row[i];
  }
  if (symobs) symobs->value = obs + 1.0;
  stopflag = errflag = funcexec = 0;
}

bool aborting(uint32_t& poll) {
  if (abortflag || (++poll % POLLEVERY == 0 && pastdeadline())) {
    reportabort();
    runline = nullptr;
    return true;
  }
  return false;
}

int runprog(int32_t obs, const double* input, double* predicted, double* observed) {
  startobservation(obs, input);
  OpInstr* pc = progstart;
  uint32_t poll = 0;
  while (pc) {
    if (errflag) break;
    if (aborting(poll)) return 0;
    OpInstr* op = pc++;
    switch (op->opcode) {
      case OP_JUMPF:
        if (evalexpr(static_cast<ExprNode*>(op->operand1)) == 0.0)
          pc = static_cast<OpInstr*>(op->operand2);
        break;
      case OP_JUMP: pc = static_cast<OpInstr*>(op->operand1); break;
      case OP_LINE:
        runline = static_cast<SourceLine*>(op->operand1);
        if (traceflag && runline) lstprintf("--> Line %d: %s\n", runline->number, runline->text);
        break;
      case OP_STOP: stopflag = 1; break;
      case OP_EVAL: evalexpr(static_cast<ExprNode*>(op->operand1)); break;
      case OP_FUNCTION: {
        Symbol* dep = static_cast<Symbol*>(op->operand1);
        double pred = evalexpr(static_cast<ExprNode*>(op->operand2));
        double obsv = dep ? dep->value : 0.0;
        if (sympredicted) sympredicted->value = pred;
        if (symresidual) symresidual->value = dep ? obsv - pred : pred;
        lastpredicted = pred;
        lastobserved = obsv;
        funcexec = 1;
        break;
      }
      default:
        runerror("Invalid opcode in generated code: %d", (int)op->opcode);
        runline = nullptr;
        return 0;
    }
    if (stopflag) break;
  }
  return endrun(predicted, observed);
}

int endrun(double* predicted, double* observed) {
  if (abortflag) {
    reportabort();
    runline = nullptr;
    return 0;
  }
  runline = nullptr;
  if (!funcexec && !errflag) runerror("FUNCTION statement was not executed.");
  if (observed) *observed = lastobserved;
  if (predicted) *predicted = lastpredicted;
  return errflag ? 0 : 1;
}

// The operators' rules once the operands are known, shared by the
// recursive evaluator below and the explicit-stack one (deepeval.cpp).
double applyop(ExprNode* node, double l, double r) {
  switch (node->kind) {
    case EN_ADD: return l + r;
    case EN_SUB: return l - r;
    case EN_MUL: return l * r;
    case EN_DIV:
      if (r == 0.0) {
        runerror("Attempted division of %lG by zero", l);
        return 0.0;
      }
      return l / r;
    case EN_MOD:
      if (r == 0.0) {
        runerror("Modulo 0 attempted");
        return 0.0;
      }
      return std::fmod(l, r);
    case EN_POW: return power(l, r);
    case EN_COMMA: return r;
    case EN_NEGATE: return -r;
    case EN_NOT: return r == 0.0 ? 1.0 : 0.0;
    case EN_LT: return l < r ? 1.0 : 0.0;
    case EN_LE: return l <= r ? 1.0 : 0.0;
    case EN_GT: return l > r ? 1.0 : 0.0;
    case EN_GE: return l >= r ? 1.0 : 0.0;
    case EN_EQ: return l == r ? 1.0 : 0.0;
    case EN_NE: return l != r ? 1.0 : 0.0;
    case EN_AND: return (l == 0.0 || r == 0.0) ? 0.0 : 1.0;
    case EN_OR: return (l != 0.0 || r != 0.0) ? 1.0 : 0.0;
    default:
      std::printf("op = %d\n", (int)node->kind);
      runerror("Invalid item in expression tree");
      return 0.0;
  }
}

double applyassign(ExprNode* node, double* p, double r) {
  if (!p) return 0.0;
  switch (node->kind) {
    case EN_ASSIGN: *p = r; break;
    case EN_ADDASSIGN: *p += r; break;
    case EN_MULASSIGN: *p *= r; break;
    case EN_SUBASSIGN: *p -= r; break;
    default:
      if (r == 0.0) {
        runerror("Attempted division by zero");
        return 0.0;
      }
      *p /= r;
      break;
  }
  return *p;
}

double applyincdec(ExprNode* node, double* p) {
  if (!p) return 0.0;
  double old = *p;
  *p = (node->kind == EN_PREINC || node->kind == EN_POSTINC) ? old + 1.0 : old - 1.0;
  return (node->kind == EN_PREINC || node->kind == EN_PREDEC) ? *p : old;
}

bool isassignment(uint8_t kind) {
  return kind == EN_ASSIGN || kind == EN_ADDASSIGN || kind == EN_MULASSIGN ||
         kind == EN_SUBASSIGN || kind == EN_DIVASSIGN;
}

bool isincdec(uint8_t kind) {
  return kind == EN_PREINC || kind == EN_PREDEC || kind == EN_POSTINC || kind == EN_POSTDEC;
}

// The recursive evaluator, for trees of at most SHALLOWTREE levels (deeper
// ones go to evaldeep, so the recursion is bounded).
double evalnode(ExprNode* node) {
  switch (node->kind) {
    case EN_CONSTANT: return node->value;
    case EN_VARIABLE: return node->symbol->value;
    case EN_CALL: return evlcall(node);
    case EN_ELEMENT: return elemoperand(node);
    case EN_END: return 0.0;  // the empty expression, as in "for (;;)"
    default: break;
  }
  // Both operands are always evaluated: && || and ?: do not short-circuit.
  double l = 0.0, r = 0.0;
  if (node->left && !(node->left->flags & ENF_TARGET)) l = operand(node->left);
  if (node->right && !(node->right->flags & ENF_TARGET)) r = operand(node->right);
  if (isassignment(node->kind)) return applyassign(node, lvaladdr(node->left), r);
  if (isincdec(node->kind)) return applyincdec(node, lvaladdr(node->left));
  if (node->kind == EN_COND) return operand(node->cond) != 0.0 ? l : r;
  return applyop(node, l, r);
}

double evalexpr(ExprNode* node) {
  return node->height > SHALLOWTREE ? evaldeep(node) : evalnode(node);
}

// Storage of a variable or an array element.  Subscripts are truncated
// toward zero.  With two subscripts a row equal to the first dimension and a
// column equal to the second pass the test (the system has always admitted
// them), so array storage holds (dim1 + 1) * dim2 + 1 elements.  An invalid
// subscript is reported and replaced by 0, and the access goes on at
// element 0.  A scalar given a subscript (its dimensions are 0) yields its
// own value after the report.
//
// A dimension below 1 is accepted by the declaration.  Such an array can
// still produce an element number outside its storage (with a negative
// second dimension, dim2 * row is negative for every row above 0): any
// number below 0 or not below the allocated count is taken as element 0,
// so no access ever leaves the array's storage.
double* elemaddress(ExprNode* node, bool two, double v1, double v2) {
  Symbol* s = node->symbol;
  const ElemIndex e = elemindex(s, two, v1, v2);
  if (e.badrow) runerror("Subscript value of %d is invalid for %s", e.row, s->name);
  if (e.badcol) runerror("Subscript value of %d is invalid for %s", e.col, s->name);
  return s->elems ? s->elems + e.index : &s->value;
}

double* lvaladdr(ExprNode* node) {
  if (node && node->kind == EN_VARIABLE) return &node->symbol->value;
  if (!node || node->kind != EN_ELEMENT) {
    runerror("Invalid token type for lvalue");
    return nullptr;
  }
  ExprNode* sub = node->right;
  if (sub && sub->kind == EN_COMMA) {
    const double row = operand(sub->left);
    const double col = operand(sub->right);
    return elemaddress(node, true, row, col);
  }
  return elemaddress(node, false, sub ? operand(sub) : 0.0, 0.0);
}

// Reports a run-time error: the executing line and the message go to the
// listing (and to the output file when one is open) unless errors are hidden
// while the optimizer iterates; the run then stops after the current
// instruction.  Each report ends its line.
void runerror(const char* format, ...) {
  if (!computing || abortflag) {
    if (runline) {
      const char* t = runline->text;
      while (*t == ' ' || *t == '\t') ++t;
      char text[ERRLINETEXT + 1];
      std::size_t n = std::strlen(t);
      if (n > ERRLINETEXT) n = ERRLINETEXT;
      std::memcpy(text, t, n);
      text[n] = '\0';
      char head[ERRLINETEXT + 64];
      std::snprintf(head, sizeof head, "Error executing line %d: %s", (int)runline->number, text);
      lstprintf("%s\n", head);
      if (outfp) std::fprintf(outfp, "\n%s\n", head);
    }
    char msg[LSTMAXTEXT];
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(msg, sizeof msg, format, ap);
    va_end(ap);
    std::size_t n = std::strlen(msg);
    lstprintf(n && msg[n - 1] == '\n' ? "Error: %s" : "Error: %s\n", msg);
    if (outfp) std::fprintf(outfp, "Error: %s\n", msg);
  }
  errflag = 1;
  stopflag = 1;
}

}  // namespace vexor
