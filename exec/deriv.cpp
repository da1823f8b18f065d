// Derivatives of the compiled program in its parameters, by
// forward-mode automatic differentiation: every value the interpreter
// computes is carried with its tangent, the vector of its p partial
// derivatives, through operators, assignments to work variables, input
// variables and array elements, IF/ELSE and loops (whose branches follow
// the values), and built-in calls (each by its rule, builtins/derivs.cpp).
//
// The run mirrors runprog step for step: the same instructions, the same
// evaluation order (both operands of every operator, an element's subscript
// read twice, arguments in order), the same values through the same
// operator and built-in code, the same run-time errors.  So the residuals of
// a pass of derivpass are those of a pass of runprog, and the tangents are
// their exact derivatives wherever the program is differentiable.
//
// What has no exact derivative is differenced instead, column by column: a
// built-in argument without a rule (the elliptic integrals' modulus, the
// shapes of BETAI and GAMMP), a power with a negative base whose exponent
// depends on a parameter, and a derivative that is not finite (SQRT at 0).
// derivpass marks each parameter whose tangent reached such a place; the
// caller differences those columns.  A tangent of 0 (an input, a constant)
// is never expanded: each temporary carries a flag for it, so a model spends
// tangent work only where parameters enter.
//
// Programs the mirror does not take (derivready() is 0 and every column is
// differenced): a tree higher than SHALLOWTREE (evaluated by evaldeep), an
// assignment to a parameter, a work array whose tangents would pass
// DERIVMAXCELLS doubles.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "exec/evaltree.h"

namespace vexor {

namespace {

constexpr long long DERIVMAXCELLS = 1LL << 24;  // tangent doubles of the work arrays (128 MB)

int ready = 0;
int32_t np = 0;

// Tangent storage of the assignable symbols: work variables (with their
// elements) and input variables, np doubles a cell, and a flag a cell that
// says whether the tangent may be nonzero.
struct Cells {
  std::vector<double> t;
  std::vector<uint8_t> nz;
  void clear() { std::fill(nz.begin(), nz.end(), 0); }
};
std::vector<Cells> worktan;  // by the work variable's index
std::vector<Cells> intan;    // by the input variable's index

// Temporaries: tangents taken and given back in stack order, in blocks that
// never move.
constexpr std::size_t BLOCK = 64;
std::vector<std::unique_ptr<double[]>> blocks;
std::size_t top = 0;

double* take() {
  const std::size_t b = top / BLOCK;
  if (b == blocks.size()) blocks.push_back(std::make_unique<double[]>(BLOCK * static_cast<std::size_t>(np)));
  double* t = blocks[b].get() + (top % BLOCK) * static_cast<std::size_t>(np);
  ++top;
  return t;
}

// The run's predicted and observed tangents (OP_FUNCTION, RETURN).
std::vector<double> predtan, obstan;
bool prednz = false, obsnz = false;

// Parameters whose columns must be differenced, and why (the first reason
// of the pass).
std::vector<uint8_t>* marks = nullptr;
char reason[200];
bool reasoned = false;

const char* funcname(uint8_t code) {
  for (const FuncEntry& f : functable)
    if (f.code == code) return f.name;
  return "?";
}

// Marks the parameters on which a tangent depends.  what: the built-in's
// code, or 0 for the power operator; arg: its argument (from 0); norule:
// no rule for it, else its derivative was not finite there.
void mark(const double* t, uint8_t what, int arg, bool norule) {
  bool any = false;
  for (int32_t j = 0; j < np; ++j)
    if (t[j] != 0.0 || std::isnan(t[j])) {
      if (marks) (*marks)[j] = 1;
      any = true;
    }
  if (any) derivnote(what, arg, norule);
}

}  // namespace

void derivnote(uint8_t what, int arg, bool norule) {
  if (reasoned) return;
  reasoned = true;
  if (what == 0)
    std::snprintf(reason, sizeof reason, "%s",
                  norule ? "a power of a negative base has no derivative in its exponent"
                         : "a power's derivative is not finite at a base of 0");
  else if (norule)
    std::snprintf(reason, sizeof reason, "%s has no derivative rule for its argument %d", funcname(what), arg + 1);
  else
    std::snprintf(reason, sizeof reason, "the derivative of %s is not finite at its argument %d", funcname(what),
                  arg + 1);
}

namespace {

inline void zero(double* t) { std::memset(t, 0, static_cast<std::size_t>(np) * sizeof(double)); }
inline void copy(double* to, const double* from) {
  std::memcpy(to, from, static_cast<std::size_t>(np) * sizeof(double));
}

// A cell's tangent: where it is stored, and its flag.  Parameters and
// read-only symbols have no cell (t null).
struct Cell {
  double* t = nullptr;
  uint8_t* nz = nullptr;
};

Cell cellof(Symbol* s, int64_t index) {
  Cells* c = nullptr;
  if (s->kind == SYM_WORK && s->index >= 0 && s->index < static_cast<int32_t>(worktan.size()))
    c = &worktan[s->index];
  else if (s->kind == SYM_INPUT && s->index >= 0 && s->index < static_cast<int32_t>(intan.size()))
    c = &intan[s->index];
  if (!c) return {};
  const std::size_t cells = c->nz.size();
  if (index < 0 || static_cast<std::size_t>(index) >= cells) index = 0;
  return {c->t.data() + static_cast<std::size_t>(index) * np, c->nz.data() + index};
}

// The tangent of reading a symbol's cell into t; returns whether it may be
// nonzero.
bool readcell(Symbol* s, int64_t index, double* t) {
  if (s->kind == SYM_PARAM) {
    zero(t);
    t[s->index] = 1.0;
    return true;
  }
  Cell c = cellof(s, index);
  if (!c.t || !*c.nz) return false;
  copy(t, c.t);
  return true;
}

void writecell(Cell c, const double* t, bool nz) {
  if (!c.t) return;
  *c.nz = nz ? 1 : 0;
  if (nz) copy(c.t, t);
}

double dual(ExprNode* n, double* t, bool& nz);

// An operand: absent reads 0 with no tangent.
inline double operand(ExprNode* n, double* t, bool& nz) {
  nz = false;
  if (!n) return 0.0;
  switch (n->kind) {
    case EN_CONSTANT: return n->value;
    case EN_VARIABLE: nz = readcell(n->symbol, 0, t); return n->symbol->value;
    default: return dual(n, t, nz);
  }
}

// The storage of an assignment target and its tangent cell, its subscripts
// evaluated as lvaladdr does (row, then column).
double* target(ExprNode* node, Cell* cell) {
  *cell = {};
  if (node && node->kind == EN_VARIABLE) {
    *cell = cellof(node->symbol, 0);
    return &node->symbol->value;
  }
  if (!node || node->kind != EN_ELEMENT) {
    runerror("Invalid token type for lvalue");
    return nullptr;
  }
  const std::size_t mark0 = top;
  double* scratch = take();
  bool nzs = false;
  ExprNode* sub = node->right;
  double row = 0.0, col = 0.0;
  bool two = sub && sub->kind == EN_COMMA;
  if (two) {
    row = operand(sub->left, scratch, nzs);
    col = operand(sub->right, scratch, nzs);
  } else {
    row = sub ? operand(sub, scratch, nzs) : 0.0;
  }
  top = mark0;
  Symbol* s = node->symbol;
  double* p = elemaddress(node, two, row, col);
  const ElemIndex e = elemindex(s, two, row, col);
  *cell = cellof(s, s->elems ? e.index : 0);
  return p;
}

// A call: the arguments and their tangents in order, the value by the
// interpreter's code, the tangent by the function's rule.
double dualcall(ExprNode* call, double* t, bool& nz) {
  nz = false;
  double v[MAXCALLARGS];
  v[0] = v[1] = v[2] = v[3] = 0.0;
  double* at[MAXCALLARGS];
  bool anz[MAXCALLARGS];
  int n = 0;
  const std::size_t mark0 = top;
  if (!(call->flags & ENF_SPARE)) {
    for (ExprNode* a = call->firstarg; a; a = a->nextarg) {
      if (n == MAXCALLARGS) {
        top = mark0;
        runerror("Too many function argument values specified");
        return 0.0;
      }
      at[n] = take();
      anz[n] = false;
      if (a->kind == EN_STRING)
        v[n] = 0.0;
      else
        v[n] = operand(a, at[n], anz[n]);
      ++n;
    }
  }
  const double value = evlapply(call, v, n);
  if (call->funcode == FN_RETURN) {
    // RETURN(predicted [, observed]) sets the run's values: their tangents
    // follow.
    prednz = n > 0 && anz[0];
    if (prednz) copy(predtan.data(), at[0]);
    obsnz = n > 1 && anz[1];
    if (obsnz) copy(obstan.data(), at[1]);
    top = mark0;
    return value;
  }
  bool any = false;
  for (int k = 0; k < n; ++k) any = any || anz[k];
  if (any) {
    double d[MAXCALLARGS];
    const uint32_t norule = fnderiv(call->funcode, v, n, value, d);
    zero(t);
    for (int k = 0; k < n; ++k) {
      if (!anz[k]) continue;
      if ((norule & (1u << k)) || !std::isfinite(d[k])) {
        mark(at[k], call->funcode, k, (norule & (1u << k)) != 0);
        continue;
      }
      if (d[k] == 0.0) continue;
      for (int32_t j = 0; j < np; ++j) t[j] += d[k] * at[k][j];
      nz = true;
    }
  }
  top = mark0;
  return value;
}

// x^e: the value by the interpreter's rule; d/dx = e x^(e-1) (from the
// value where x is not 0), d/de = x^e ln x for x > 0 (0 for x = 0 and
// e > 0; no rule for a negative base).
double dualpow(ExprNode* node, double l, const double* tl, bool lnz, double r, const double* tr, bool rnz,
               double* t, bool& nz) {
  const double v = applyop(node, l, r);
  nz = false;
  if (!lnz && !rnz) return v;
  zero(t);
  if (lnz) {
    double dx;
    if (r == 0.0) dx = 0.0;
    else if (l != 0.0) dx = r * v / l;
    else dx = r == 1.0 ? 1.0 : (r > 1.0 ? 0.0 : INFINITY);
    if (!std::isfinite(dx)) {
      mark(tl, 0, 0, false);
    } else if (dx != 0.0) {
      for (int32_t j = 0; j < np; ++j) t[j] += dx * tl[j];
      nz = true;
    }
  }
  if (rnz) {
    if (l > 0.0) {
      const double de = v * std::log(l);
      for (int32_t j = 0; j < np; ++j) t[j] += de * tr[j];
      nz = true;
    } else if (l < 0.0) {
      mark(tr, 0, 1, true);
    }
  }
  return v;
}

double dual(ExprNode* node, double* t, bool& nz) {
  nz = false;
  switch (node->kind) {
    case EN_CONSTANT: return node->value;
    case EN_VARIABLE: nz = readcell(node->symbol, 0, t); return node->symbol->value;
    case EN_CALL: return dualcall(node, t, nz);
    case EN_ELEMENT: {
      // The subscript once as an operand (unless inert), then the element.
      ExprNode* sub = node->right;
      const std::size_t mark0 = top;
      if (sub && !(sub->flags & ENF_TARGET) && !inert(sub)) {
        double* s = take();
        bool snz = false;
        operand(sub, s, snz);
      }
      top = mark0;
      Cell c;
      double* p = target(node, &c);
      if (c.t && *c.nz) {
        copy(t, c.t);
        nz = true;
      }
      return p ? *p : 0.0;
    }
    case EN_END: return 0.0;
    default: break;
  }
  const std::size_t mark0 = top;
  double* tl = take();
  double* tr = take();
  bool lnz = false, rnz = false;
  double l = 0.0, r = 0.0;
  if (node->left && !(node->left->flags & ENF_TARGET)) l = operand(node->left, tl, lnz);
  if (node->right && !(node->right->flags & ENF_TARGET)) r = operand(node->right, tr, rnz);
  double v = 0.0;
  if (isassignment(node->kind)) {
    Cell c;
    double* p = target(node->left, &c);
    const double old = p ? *p : 0.0;
    double* told = take();
    const bool oldnz = c.t && *c.nz;
    if (oldnz) copy(told, c.t);
    v = applyassign(node, p, r);
    if (p) {
      // The new tangent from the old one and the right side's.
      zero(t);
      switch (node->kind) {
        case EN_ASSIGN:
          if (rnz) copy(t, tr), nz = true;
          break;
        case EN_ADDASSIGN:
        case EN_SUBASSIGN: {
          const double sign = node->kind == EN_ADDASSIGN ? 1.0 : -1.0;
          if (oldnz) copy(t, told), nz = true;
          if (rnz) {
            for (int32_t j = 0; j < np; ++j) t[j] += sign * tr[j];
            nz = true;
          }
          break;
        }
        case EN_MULASSIGN:
          if (oldnz) {
            for (int32_t j = 0; j < np; ++j) t[j] += r * told[j];
            nz = true;
          }
          if (rnz) {
            for (int32_t j = 0; j < np; ++j) t[j] += old * tr[j];
            nz = true;
          }
          break;
        default:  // EN_DIVASSIGN: (told - v tr) / r
          if (r != 0.0) {
            if (oldnz) {
              for (int32_t j = 0; j < np; ++j) t[j] += told[j] / r;
              nz = true;
            }
            if (rnz) {
              for (int32_t j = 0; j < np; ++j) t[j] -= v * tr[j] / r;
              nz = true;
            }
          }
          break;
      }
      writecell(c, t, nz);
    }
    top = mark0;
    return v;
  }
  if (isincdec(node->kind)) {
    Cell c;
    double* p = target(node->left, &c);
    v = applyincdec(node, p);
    if (c.t && *c.nz) {
      copy(t, c.t);
      nz = true;
    }
    top = mark0;
    return v;
  }
  if (node->kind == EN_COND) {
    double* tc = take();
    bool cnz = false;
    const double cv = operand(node->cond, tc, cnz);
    if (cv != 0.0) {
      if (lnz) copy(t, tl);
      nz = lnz;
      v = l;
    } else {
      if (rnz) copy(t, tr);
      nz = rnz;
      v = r;
    }
    top = mark0;
    return v;
  }
  switch (node->kind) {
    case EN_ADD:
    case EN_SUB: {
      v = applyop(node, l, r);
      const double sign = node->kind == EN_ADD ? 1.0 : -1.0;
      if (lnz || rnz) {
        if (lnz) copy(t, tl); else zero(t);
        if (rnz)
          for (int32_t j = 0; j < np; ++j) t[j] += sign * tr[j];
        nz = true;
      }
      break;
    }
    case EN_MUL:
      v = applyop(node, l, r);
      if (lnz || rnz) {
        zero(t);
        if (lnz)
          for (int32_t j = 0; j < np; ++j) t[j] += r * tl[j];
        if (rnz)
          for (int32_t j = 0; j < np; ++j) t[j] += l * tr[j];
        nz = true;
      }
      break;
    case EN_DIV:
      v = applyop(node, l, r);
      if ((lnz || rnz) && r != 0.0) {
        zero(t);
        if (lnz)
          for (int32_t j = 0; j < np; ++j) t[j] += tl[j] / r;
        if (rnz)
          for (int32_t j = 0; j < np; ++j) t[j] -= v * tr[j] / r;
        nz = true;
      }
      break;
    case EN_MOD:
      // fmod(l, r) = l - q r with q = trunc(l / r) whole.
      v = applyop(node, l, r);
      if ((lnz || rnz) && r != 0.0) {
        zero(t);
        if (lnz) copy(t, tl);
        if (rnz) {
          const double q = std::round((l - v) / r);
          for (int32_t j = 0; j < np; ++j) t[j] -= q * tr[j];
        }
        nz = true;
      }
      break;
    case EN_POW:
      v = dualpow(node, l, tl, lnz, r, tr, rnz, t, nz);
      break;
    case EN_COMMA:
      v = applyop(node, l, r);
      if (rnz) copy(t, tr);
      nz = rnz;
      break;
    case EN_NEGATE:
      v = applyop(node, l, r);
      if (rnz) {
        for (int32_t j = 0; j < np; ++j) t[j] = -tr[j];
        nz = true;
      }
      break;
    default:  // comparisons and logic: piecewise constant
      v = applyop(node, l, r);
      break;
  }
  top = mark0;
  return v;
}

// Whether a tree is one the mirror takes: no deeper than SHALLOWTREE, no
// assignment to a parameter.
bool takes(const ExprNode* n) {
  if (!n) return true;
  if (n->height > SHALLOWTREE) return false;
  if ((isassignment(n->kind) || isincdec(n->kind)) && n->left && n->left->symbol &&
      n->left->symbol->kind == SYM_PARAM)
    return false;
  if (n->kind == EN_CALL) {
    for (const ExprNode* a = n->firstarg; a; a = a->nextarg)
      if (!takes(a)) return false;
    return true;
  }
  return takes(n->left) && takes(n->right) && takes(n->cond);
}

}  // namespace

namespace {
int prepare();
}  // namespace

int derivprepare() {
  try {
    return prepare();
  } catch (const std::bad_alloc&) {
    derivrelease();
    return 0;
  }
}

namespace {

int prepare() {
  derivrelease();
  np = nparm;
  if (np <= 0 || !progstart) return 0;
  // Every expression of the program, block by block.
  for (OpSeg* seg = opseghead; seg; seg = seg->next) {
    const long count = seg == opsegtail ? static_cast<long>(emitpos - seg->block) : OPSEGSIZE;
    for (long k = 0; k < count; ++k) {
      const OpInstr& op = seg->block[k];
      const ExprNode* tree = op.opcode == OP_JUMPF || op.opcode == OP_EVAL
                                 ? static_cast<const ExprNode*>(op.operand1)
                                 : op.opcode == OP_FUNCTION ? static_cast<const ExprNode*>(op.operand2) : nullptr;
      if (!takes(tree)) return 0;
    }
  }
  long long cells = 0;
  worktan.assign(static_cast<std::size_t>(nwork), Cells{});
  for (int32_t i = 0; i < nwork; ++i) {
    const Symbol* s = workvars[i];
    const long long n = s->elems && s->nalloc > 0 ? s->nalloc : 1;
    cells += n * np;
    if (cells > DERIVMAXCELLS) {
      derivrelease();
      return 0;
    }
    worktan[i].t.assign(static_cast<std::size_t>(n * np), 0.0);
    worktan[i].nz.assign(static_cast<std::size_t>(n), 0);
  }
  intan.assign(static_cast<std::size_t>(nvar), Cells{});
  for (int32_t i = 0; i < nvar; ++i) {
    intan[i].t.assign(static_cast<std::size_t>(np), 0.0);
    intan[i].nz.assign(1, 0);
  }
  predtan.assign(static_cast<std::size_t>(np), 0.0);
  obstan.assign(static_cast<std::size_t>(np), 0.0);
  ready = 1;
  return 1;
}

}  // namespace

int derivready() { return ready; }

void derivrelease() {
  ready = 0;
  worktan.clear();
  intan.clear();
  blocks.clear();
  top = 0;
  predtan.clear();
  obstan.clear();
}

const char* derivreason() { return reasoned ? reason : nullptr; }

int derivrun(int32_t obs, double* predicted, double* observed, double* tpred, double* tobs) {
  if (!ready) return 0;
  for (Cells& c : intan) c.clear();
  startobservation(obs, nullptr);
  prednz = obsnz = false;
  top = 0;
  double* scratch = take();

  OpInstr* pc = progstart;
  uint32_t poll = 0;
  while (pc) {
    if (errflag) break;
    if (aborting(poll)) return 0;
    OpInstr* op = pc++;
    bool nz = false;
    switch (op->opcode) {
      case OP_JUMPF:
        if (operand(static_cast<ExprNode*>(op->operand1), scratch, nz) == 0.0)
          pc = static_cast<OpInstr*>(op->operand2);
        break;
      case OP_JUMP: pc = static_cast<OpInstr*>(op->operand1); break;
      case OP_LINE: runline = static_cast<SourceLine*>(op->operand1); break;
      case OP_STOP: stopflag = 1; break;
      case OP_EVAL: operand(static_cast<ExprNode*>(op->operand1), scratch, nz); break;
      case OP_FUNCTION: {
        Symbol* dep = static_cast<Symbol*>(op->operand1);
        const double pred = operand(static_cast<ExprNode*>(op->operand2), predtan.data(), prednz);
        const double obsv = dep ? dep->value : 0.0;
        obsnz = dep ? readcell(dep, 0, obstan.data()) : false;
        // Predicted and Residual as the interpreter sets them, with their
        // tangents.
        if (sympredicted) {
          sympredicted->value = pred;
          writecell(cellof(sympredicted, 0), predtan.data(), prednz);
        }
        if (symresidual) {
          symresidual->value = dep ? obsv - pred : pred;
          Cell c = cellof(symresidual, 0);
          if (c.t) {
            zero(scratch);
            bool rnz = false;
            if (dep) {
              if (obsnz) copy(scratch, obstan.data()), rnz = true;
              if (prednz) {
                for (int32_t j = 0; j < np; ++j) scratch[j] -= predtan[j];
                rnz = true;
              }
            } else if (prednz) {
              copy(scratch, predtan.data());
              rnz = true;
            }
            writecell(c, scratch, rnz);
          }
        }
        lastpredicted = pred;
        lastobserved = obsv;
        funcexec = 1;
        break;
      }
      default:
        runerror("Invalid opcode in generated code: %d", static_cast<int>(op->opcode));
        runline = nullptr;
        return 0;
    }
    if (stopflag) break;
  }
  if (tpred) {
    if (prednz) copy(tpred, predtan.data()); else zero(tpred);
  }
  if (tobs) {
    if (obsnz) copy(tobs, obstan.data()); else zero(tobs);
  }
  return endrun(predicted, observed);
}

void derivreset(std::vector<uint8_t>* needdiff) {
  for (Cells& c : worktan) c.clear();
  marks = needdiff;
  reasoned = false;
}

}  // namespace vexor
