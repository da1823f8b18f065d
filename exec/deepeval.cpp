// The evaluator of trees higher than SHALLOWTREE: the recursive evaluator's
// steps (interp.cpp, evalnode and lvaladdr) carried out on an explicit
// stack of tasks, so that a tree of any height (a sum of a hundred thousand
// terms, a chain of conditionals as long) is evaluated without deep
// recursion.  Every subtree of SHALLOWTREE levels or less is handed to
// evalnode whole; only the deep part of a tree goes through the tasks.
//
// The order of evaluation is the recursive evaluator's, step for step, since
// it is observable (assignments, ++ and --, PRINTF, and the order of
// run-time messages):
//   - an operator node: its left operand, then its right (an assignment
//     target is no operand), then for ?: the condition, then the rule;
//   - an assignment or ++/--: the right side, then the target's storage,
//     whose subscripts are evaluated there;
//   - an element read as an operand: its subscript once as an operand
//     (unless inert), then again to find the element (row, then column);
//   - a call: its arguments in order (strings count 0.0), at most 30.
#include "exec/evaltree.h"

namespace vexor {

namespace {

enum What : uint8_t {
  W_EVAL,  // the node's value
  W_ADDR,  // the storage of the assignment target `node`
};

struct Task {
  ExprNode* n;
  What what;
  uint8_t step;
  double l;          // left operand (W_EVAL); the row subscript (W_ADDR)
  double r;          // right operand
  ExprNode* arg;     // a call's next argument
  int32_t argbase;   // where the call's values start on the value stack
  int32_t argc;
};

Task task(ExprNode* n, What what) {
  Task t{};
  t.n = n;
  t.what = what;
  return t;
}

}  // namespace

double evaldeep(ExprNode* root) {
  WorkStack<Task> st;
  WorkStack<double> values;  // call arguments
  double retv = 0.0;         // the value the last task returned
  double* reta = nullptr;    // the storage the last W_ADDR task returned
  st.push(task(root, W_EVAL));

  // Within a step: t is the top task, copied.  EVAL(x, next) obtains the
  // operand x in retv and goes on at step next: at once when x is absent (0),
  // a constant or a variable, or shallow enough for evalnode; otherwise by a
  // task of its own.  ADDR(x, next) pushes the task for x's storage.  VALUE
  // and ADDRESS return from the task.
#define GOTO(next)   \
  {                  \
    t.step = (next); \
    st.top() = t;    \
    continue;        \
  }
#define EVAL(x, next)                                                      \
  {                                                                        \
    ExprNode* x_ = (x);                                                    \
    t.step = (next);                                                       \
    st.top() = t;                                                          \
    if (!x_) {                                                             \
      retv = 0.0;                                                          \
    } else if (x_->kind == EN_CONSTANT) {                                  \
      retv = x_->value;                                                    \
    } else if (x_->kind == EN_VARIABLE) {                                  \
      retv = x_->symbol->value;                                            \
    } else if (x_->height <= SHALLOWTREE) {                                \
      retv = evalnode(x_);                                                 \
    } else if (!st.push(task(x_, W_EVAL))) {                               \
      runerror("Insufficient memory space available");                     \
      return 0.0;                                                          \
    }                                                                      \
    continue;                                                              \
  }
#define ADDR(x, next)                                \
  {                                                  \
    t.step = (next);                                 \
    st.top() = t;                                    \
    if (!st.push(task((x), W_ADDR))) {               \
      runerror("Insufficient memory space available"); \
      return 0.0;                                    \
    }                                                \
    continue;                                        \
  }
#define VALUE(v)  \
  {               \
    retv = (v);   \
    st.pop();     \
    continue;     \
  }
#define ADDRESS(p) \
  {                \
    reta = (p);    \
    st.pop();      \
    continue;      \
  }

  while (!st.empty()) {
    Task t = st.top();
    ExprNode* n = t.n;
    if (t.what == W_ADDR) {
      // lvaladdr: a variable's storage, or an element's for its subscripts.
      ExprNode* sub = n ? n->right : nullptr;
      switch (t.step) {
        case 0:
          if (n && n->kind == EN_VARIABLE) ADDRESS(&n->symbol->value);
          if (!n || n->kind != EN_ELEMENT) {
            runerror("Invalid token type for lvalue");
            ADDRESS(nullptr);
          }
          if (sub && sub->kind == EN_COMMA) EVAL(sub->left, 1);
          EVAL(sub, 3);
        case 1:
          t.l = retv;
          EVAL(sub->right, 2);
        case 2:
          ADDRESS(elemaddress(n, true, t.l, retv));
        default:
          ADDRESS(elemaddress(n, false, retv, 0.0));
      }
    }
    switch (t.step) {
      case 0:
        switch (n->kind) {
          case EN_CONSTANT: VALUE(n->value);
          case EN_VARIABLE: VALUE(n->symbol->value);
          case EN_END: VALUE(0.0);
          default: break;
        }
        if (n->height <= SHALLOWTREE) VALUE(evalnode(n));
        if (n->kind == EN_CALL) {
          t.argbase = static_cast<int32_t>(values.size());
          t.argc = 0;
          t.arg = (n->flags & ENF_SPARE) ? nullptr : n->firstarg;
          GOTO(1);
        }
        if (n->kind == EN_ELEMENT) {
          ExprNode* sub = n->right;
          if (sub && !(sub->flags & ENF_TARGET) && !inert(sub)) EVAL(sub, 10);
          GOTO(10);
        }
        if (n->left && !(n->left->flags & ENF_TARGET)) EVAL(n->left, 20);
        retv = 0.0;
        GOTO(20);

      // A call: the arguments in order, then the function.
      case 1: {
        ExprNode* a = t.arg;
        if (!a) {
          double v[MAXCALLARGS];
          v[0] = v[1] = v[2] = v[3] = 0.0;
          for (int32_t i = 0; i < t.argc; ++i) v[i] = values[static_cast<std::size_t>(t.argbase + i)];
          while (static_cast<int32_t>(values.size()) > t.argbase) values.pop();
          VALUE(evlapply(n, v, t.argc));
        }
        if (t.argc == MAXCALLARGS) {
          runerror("Too many function argument values specified");
          while (static_cast<int32_t>(values.size()) > t.argbase) values.pop();
          VALUE(0.0);
        }
        if (a->kind == EN_STRING) {
          retv = 0.0;
          GOTO(2);
        }
        EVAL(a, 2);
      }
      case 2:
        if (!values.push(retv)) {
          runerror("Insufficient memory space available");
          return 0.0;
        }
        ++t.argc;
        t.arg = t.arg->nextarg;
        GOTO(1);

      // An element read as an operand (its subscript's first evaluation is
      // done): the element's storage, then its value.
      case 10: ADDR(n, 11);
      case 11: VALUE(reta ? *reta : 0.0);

      // Operators: left (in retv), right, then the rule.
      case 20:
        t.l = retv;
        if (n->right && !(n->right->flags & ENF_TARGET)) EVAL(n->right, 21);
        retv = 0.0;
        GOTO(21);
      case 21:
        t.r = retv;
        if (isassignment(n->kind) || isincdec(n->kind)) ADDR(n->left, 23);
        if (n->kind == EN_COND) EVAL(n->cond, 22);
        VALUE(applyop(n, t.l, t.r));
      case 22: VALUE(retv != 0.0 ? t.l : t.r);
      default:
        VALUE(isassignment(n->kind) ? applyassign(n, reta, t.r) : applyincdec(n, reta));
    }
  }
#undef GOTO
#undef EVAL
#undef ADDR
#undef VALUE
#undef ADDRESS
  return retv;
}

}  // namespace vexor
