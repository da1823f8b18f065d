// The expression parser: recursive descent over the statement lexer's
// tokens, which nexttok turns into ExprNode records one by one.  The nodes
// read become the tree; parseexpr folds it (foldexpr) and hands it back.
//
// Grammar, loosest first (ORDER EN for the node kinds):
//    1 list        assignment ["," list]              right-nested EN_COMMA
//    2 assignment  conditional [op assignment]        = += -= *= /=
//                  (only when the left side is a variable or an element)
//    3 conditional or ["?" conditional ":" conditional]
//    4 or          and {op and}                       || |
//    5 and         equality {op equality}             && &
//    6 equality    relational {op relational}         == !=
//    7 relational  additive {op additive}             < <= > >=
//    8 additive    multiplicative {op multiplicative} + -
//    9 multiplic.  power {op power}                   * / %
//   10 power       incdec [op power]                  ^ **  (right assoc.)
//   11 incdec      ("++"|"--") target | unary ["++"|"--"]
//   12 unary       "+" primary | "-" primary | "!" primary | primary
//   13 primary     name | name "(" args ")" | constant | string
//                  | "(" assignment ")" | name "[" list "]"
//
// Deliberate consequences kept from the language's definition: unary minus
// binds tighter than power (-x^2 is (-x)^2, 2^-1 is 0.5); only one unary
// operator may stand before an operand; "(a, b)" is "Missing right
// parenthesis"; commas between call arguments are optional; "PI" in a
// variable reference is always the constant, even when a variable of that
// name exists (only a CONSTANT named PI, resolved in nexttok, keeps its own
// value); no operator short-circuits.
//
// A primary that is not an operand stands for itself: "c = ,;" assigns the
// comma node, which has no operands and reads as 0.0 when it runs, and in
// "d = - -c;" the parse ends before "c", which the statement compiler then
// meets as the start of a new statement.  The parser reports only what the
// levels above find (a missing right operand is the end node there).
//
// The descent is not made of recursive calls: each rule is a frame on a
// work stack (support/workstack.h) and a call of a rule pushes its frame,
// so an expression may nest as deep as memory allows without touching the
// machine stack.  The frames keep the rules' locals and the point where
// each resumes; the rules are written below as those steps, each with the
// grammar line it implements.  Parentheses, calls and subscripts count one
// level of nesting each; beyond MAXEXPRNEST levels, or a finished tree
// higher than MAXEXPRHEIGHT, the message is "Expression is too complex"
// (code.h).
//
// Every rule returns null after a compile error (exprerr is then set) and
// parsing unwinds at once; parseexpr frees every node made since it began,
// so an error anywhere leaks nothing.
#include <cstdio>
#include <cstring>

#include "code/code.h"
#include "builtins/builtins.h"
#include "code/walk.h"

namespace vexor {

int exprerr = 0;

namespace {

constexpr double PIVALUE = 3.141592653589793;
constexpr uint8_t INTREE = 0x80;  // node flag used only inside parseexpr

ExprNode* saved = nullptr;  // the push-back slot of pushtok
int modelflag = 0;          // mark symbols as used in the FUNCTION statement
int nest = 0;               // open parentheses, calls and subscripts
// The last negation made by a unary minus and not (yet) enclosed in
// parentheses: as the base of a power it is the trap -x^2 = (-x)^2.
ExprNode* bareneg = nullptr;

// Notes the trap at the minus sign's line.
void negpowtrap(const ExprNode* neg) {
  const SourceLine* l = neg->position;
  notetrap(TRAP_NEGPOW, TRAPIN_PROGRAM, l ? l->fileline : 0, l ? l->number : 0,
           l ? l->text : "", false);
}

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

bool ispi(const char* name) {
  return upper(name[0]) == 'P' && upper(name[1]) == 'I' && name[2] == '\0';
}

void markused(Symbol* s) {
  s->flags |= SYMF_USED;
  if (modelflag) s->flags |= SYMF_INMODEL;
}

void errorname(const ExprNode* at, const char* format, const char* name) {
  char msg[128];
  std::snprintf(msg, sizeof msg, format, name);
  exprerror(at, msg);
}

bool isassignop(uint8_t k) {
  return k == EN_ASSIGN || k == EN_ADDASSIGN || k == EN_SUBASSIGN || k == EN_MULASSIGN ||
         k == EN_DIVASSIGN;
}

bool islvalue(const ExprNode* n) { return n->kind == EN_VARIABLE || n->kind == EN_ELEMENT; }

// The left-associative binary levels 4 to 9.
bool isop(int level, uint8_t k) {
  switch (level) {
    case 4: return k == EN_OR;
    case 5: return k == EN_AND;
    case 6: return k == EN_EQ || k == EN_NE;
    case 7: return k == EN_LT || k == EN_LE || k == EN_GT || k == EN_GE;
    case 8: return k == EN_ADD || k == EN_SUB;
    default: return k == EN_MUL || k == EN_DIV || k == EN_MOD;
  }
}

// A right operand the rule needs: none after an error, and the end node
// (the expression stopped where an operand belongs) reported with msg.
bool operandok(ExprNode* n, const char* msg) {
  if (!n) return false;
  if (n->kind != EN_END) return true;
  exprerror(n, msg);
  return false;
}

const char* incdecmsg(const ExprNode* op) {
  return op->kind == EN_PREINC || op->kind == EN_POSTINC ? "Invalid use of ++ operator"
                                                           : "Invalid use of -- operator";
}

// The rules, and one frame of the descent: the rule, the step to resume at,
// the binary level, whether the frame holds a level of nesting (released
// when it returns), and the rule's locals.
enum Rule : uint8_t { R_LIST, R_ASSIGN, R_COND, R_BINARY, R_POWER, R_INCDEC, R_UNARY, R_PRIMARY,
                      R_VARREF, R_CALL };
struct Frame {
  Rule rule;
  uint8_t step;
  uint8_t level;
  bool nested;
  ExprNode* a;
  ExprNode* b;
  ExprNode* c;
  const FuncEntry* fe;
  int count;
};

Frame frame(Rule rule, int level = 0, ExprNode* a = nullptr) {
  Frame f{};
  f.rule = rule;
  f.level = static_cast<uint8_t>(level);
  f.a = a;
  return f;
}

// One more level of nesting held by the frame f; past the limit the error
// is reported (the level is still held, and released as f returns).
bool enternest(Frame& f, const ExprNode* at) {
  f.nested = true;
  if (++nest <= MAXEXPRNEST) return true;
  exprerror(at, "Expression is too complex");
  return false;
}

// Runs the descent from the rule `start` to its result.
ExprNode* descend(Rule start) {
  WorkStack<Frame> st;
  if (!st.push(frame(start))) return nullptr;
  ExprNode* ret = nullptr;  // the value the last rule returned
  // Within a step: `f` is the top frame, copied; CALL stores it back and
  // pushes the callee, RETURN pops it, TAIL turns it into the callee.
  // (Plain blocks, not do-while: their `continue` must reach the loop.)
#define CALL(rule_, level_, a_, next)                              \
  {                                                                \
    f.step = (next);                                               \
    st.top() = f;                                                  \
    if (!st.push(frame((rule_), (level_), (a_)))) return nullptr;  \
    continue;                                                      \
  }
#define RETURN(v)         \
  {                       \
    ret = (v);            \
    if (f.nested) --nest; \
    st.pop();             \
    continue;             \
  }
#define TAIL(rule_, a_)                  \
  {                                      \
    st.top() = frame((rule_), 0, (a_));  \
    continue;                            \
  }
  while (!st.empty()) {
    Frame f = st.top();
    switch (f.rule) {
      // list -> assignment {"," assignment}, a right-nested chain
      // a, b, c = COMMA(a, COMMA(b, c)); a: the chain, b: its last comma.
      case R_LIST:
        switch (f.step) {
          case 0: CALL(R_ASSIGN, 0, nullptr, 1);
          case 1:
            if (!ret) RETURN(nullptr);
            f.a = ret;
            f.b = nullptr;
            [[fallthrough]];
          case 2: {
            ExprNode* comma = nexttok();
            if (comma->kind != EN_COMMA) {
              pushtok(comma);
              RETURN(f.a);
            }
            f.c = comma;
            CALL(R_ASSIGN, 0, nullptr, 3);
          }
          default: {
            if (!ret) RETURN(nullptr);
            ExprNode* comma = f.c;
            comma->left = f.b ? f.b->right : f.a;
            comma->right = ret;
            if (f.b)
              f.b->right = comma;
            else
              f.a = comma;
            f.b = comma;
            f.step = 2;
            st.top() = f;
            continue;
          }
        }
      // assignment -> conditional [op assignment], taken only when the left
      // side is a variable or an element ("x + 1 = 3": the "=" is left over).
      case R_ASSIGN:
        switch (f.step) {
          case 0: CALL(R_COND, 0, nullptr, 1);
          case 1: {
            ExprNode* left = ret;
            if (!left) RETURN(nullptr);
            if (!islvalue(left)) RETURN(left);
            ExprNode* op = nexttok();
            if (!isassignop(op->kind)) {
              pushtok(op);
              RETURN(left);
            }
            f.a = left;
            f.b = op;
            CALL(R_ASSIGN, 0, nullptr, 2);
          }
          default: {
            ExprNode* right = ret;
            if (!operandok(right, "Invalid syntax")) RETURN(nullptr);
            ExprNode *left = f.a, *op = f.b;
            op->left = left;
            op->right = right;
            left->flags |= ENF_TARGET;
            if (left->symbol && left->symbol->kind == SYM_INPUT) {
              exprerror(left, "Input variables may not be assigned values");
              RETURN(nullptr);
            }
            if (left->symbol && left->symbol->kind == SYM_PARAM) {
              exprerror(left, "Parameters may not be assigned values");
              RETURN(nullptr);
            }
            RETURN(op);
          }
        }
      // conditional -> or ["?" conditional ":" conditional]
      case R_COND:
        switch (f.step) {
          case 0: CALL(R_BINARY, 4, nullptr, 1);
          case 1: {
            if (!ret) RETURN(nullptr);
            ExprNode* q = nexttok();
            if (q->kind != EN_COND) {
              pushtok(q);
              RETURN(ret);
            }
            f.a = ret;
            f.b = q;
            CALL(R_COND, 0, nullptr, 2);
          }
          case 2: {
            ExprNode* t = ret;
            if (!operandok(t, "Syntax error")) RETURN(nullptr);
            f.c = t;
            ExprNode* colon = nexttok();
            if (colon->kind != EN_COLON) {
              exprerror(colon, "Syntax error");
              freenode(colon);
              RETURN(nullptr);
            }
            freenode(colon);
            CALL(R_COND, 0, nullptr, 3);
          }
          default: {
            ExprNode* fl = ret;
            if (!operandok(fl, "Syntax error")) RETURN(nullptr);
            ExprNode* q = f.b;
            q->cond = f.a;
            q->left = f.c;
            q->right = fl;
            RETURN(q);
          }
        }
      // level -> next {op next}, levels 4 to 9 (next: level + 1, or power
      // after 9).  A missing right operand is reported at the node that
      // ended the expression (its line is the one the user has to look at
      // when the expression runs over several lines).  a: the left side so
      // far, b: the operator.
      case R_BINARY: {
        const Rule next = f.level >= 9 ? R_POWER : R_BINARY;
        const int nextlevel = f.level >= 9 ? 0 : f.level + 1;
        switch (f.step) {
          case 0: CALL(next, nextlevel, nullptr, 1);
          case 1:
            if (!ret) RETURN(nullptr);
            f.a = ret;
            [[fallthrough]];
          case 2: {
            ExprNode* op = nexttok();
            if (!isop(f.level, op->kind)) {
              pushtok(op);
              RETURN(f.a);
            }
            f.b = op;
            CALL(next, nextlevel, nullptr, 3);
          }
          default: {
            ExprNode* right = ret;
            if (!operandok(right, "Syntax error")) RETURN(nullptr);
            f.b->left = f.a;
            f.b->right = right;
            f.a = f.b;
            f.step = 2;
            st.top() = f;
            continue;
          }
        }
      }
      // power -> incdec [op power]   (right associative)
      case R_POWER:
        switch (f.step) {
          case 0: CALL(R_INCDEC, 0, nullptr, 1);
          case 1: {
            if (!ret) RETURN(nullptr);
            ExprNode* op = nexttok();
            if (op->kind != EN_POW) {
              pushtok(op);
              RETURN(ret);
            }
            if (ret == bareneg && ret->kind == EN_NEGATE) negpowtrap(ret);
            f.a = ret;
            f.b = op;
            CALL(R_POWER, 0, nullptr, 2);
          }
          default: {
            ExprNode* right = ret;
            if (!operandok(right, "Syntax error")) RETURN(nullptr);
            f.b->left = f.a;
            f.b->right = right;
            RETURN(f.b);
          }
        }
      // incdec -> ("++" | "--") target | unary ["++" | "--"]
      // The input-variable and parameter checks belong to the five
      // assignment operators only, so ++ and -- accept any variable.
      // a: the prefix operator.
      case R_INCDEC:
        switch (f.step) {
          case 0: {
            ExprNode* op = nexttok();
            if (op->kind == EN_PREINC || op->kind == EN_PREDEC) {
              f.a = op;
              ExprNode* t = nexttok();
              if (t->kind == EN_WORD || t->kind == EN_VARIABLE) CALL(R_VARREF, 0, t, 1);
              ret = t;  // step 1 with the node as it is
              f.step = 1;
              st.top() = f;
              continue;
            }
            pushtok(op);
            CALL(R_UNARY, 0, nullptr, 2);
          }
          case 1: {
            ExprNode* t = ret;
            if (!t) RETURN(nullptr);
            if (!islvalue(t)) {
              exprerror(f.a, incdecmsg(f.a));
              RETURN(nullptr);
            }
            f.a->left = t;
            t->flags |= ENF_TARGET;
            RETURN(f.a);
          }
          default: {
            ExprNode* e = ret;
            if (!e) RETURN(nullptr);
            ExprNode* post = nexttok();
            if (post->kind != EN_PREINC && post->kind != EN_PREDEC) {
              pushtok(post);
              RETURN(e);
            }
            if (!islvalue(e)) {
              exprerror(post, incdecmsg(post));
              RETURN(nullptr);
            }
            post->kind = post->kind == EN_PREINC ? EN_POSTINC : EN_POSTDEC;
            post->left = e;
            e->flags |= ENF_TARGET;
            RETURN(post);
          }
        }
      // unary -> "+" primary | "-" primary | "!" primary | primary
      case R_UNARY:
        switch (f.step) {
          case 0: {
            ExprNode* op = nexttok();
            if (op->kind == EN_ADD) {
              freenode(op);
              TAIL(R_PRIMARY, nullptr);
            }
            if (op->kind == EN_SUB || op->kind == EN_NOT) {
              f.a = op;
              CALL(R_PRIMARY, 0, nullptr, 1);
            }
            pushtok(op);
            TAIL(R_PRIMARY, nullptr);
          }
          default: {
            if (!ret) RETURN(nullptr);
            if (f.a->kind == EN_SUB) {
              f.a->kind = EN_NEGATE;
              bareneg = f.a;
            }
            f.a->right = ret;
            RETURN(f.a);
          }
        }
      // primary -> name | call | constant | string | "(" assignment ")"
      // A ")" becomes the end of the expression and its token goes back to
      // the statement lexer, so that an enclosing construct sees it.  Any
      // other node (an operator, a comma, a bracket, the end node) stands
      // for itself, as a leaf without operands.  a: the "(".
      case R_PRIMARY:
        switch (f.step) {
          case 0: {
            ExprNode* n = nexttok();
            switch (n->kind) {
              case EN_WORD:
              case EN_VARIABLE: {
                ExprNode* after = nexttok();
                if (after->kind == EN_LPAREN) {
                  freenode(after);
                  TAIL(R_CALL, n);
                }
                pushtok(after);
                TAIL(R_VARREF, n);
              }
              case EN_LPAREN:
                if (!enternest(f, n)) RETURN(nullptr);
                f.a = n;
                CALL(R_ASSIGN, 0, nullptr, 1);
              case EN_RPAREN:
                n->kind = EN_END;
                ungettok(n->token);
                n->token = nullptr;
                RETURN(n);
              default:  // constants, strings, and nodes that stand for themselves
                RETURN(n);
            }
          }
          default: {
            ExprNode* e = ret;
            if (!e) RETURN(nullptr);
            ExprNode* close = nexttok();
            if (close->kind != EN_RPAREN) {
              exprerror(close, "Missing right parenthesis");
              RETURN(nullptr);
            }
            freenode(close);
            freenode(f.a);
            if (e == bareneg) bareneg = nullptr;  // (-x) is grouped on purpose
            RETURN(e);
          }
        }
      // A variable reference: the name a (EN_WORD or EN_VARIABLE from
      // nexttok), with its subscript when "[" follows.
      case R_VARREF:
        switch (f.step) {
          case 0: {
            ExprNode* n = f.a;
            if (ispi(n->name)) {
              n->kind = EN_CONSTANT;
              n->value = PIVALUE;
              n->symbol = nullptr;
              RETURN(n);
            }
            Symbol* s = n->symbol ? n->symbol : symfind(n->name);
            if (!s) {
              n->kind = EN_END;
              errorname(n, "Unrecognized word or variable: %s", n->name);
              RETURN(nullptr);
            }
            n->kind = EN_VARIABLE;
            n->symbol = s;
            markused(s);
            ExprNode* open = nexttok();
            if (open->kind != EN_LBRACKET) {
              pushtok(open);
              if (s->ndims > 0) {
                errorname(n, "Array variable does not have a subscript: %s", n->name);
                RETURN(nullptr);
              }
              RETURN(n);
            }
            freenode(open);
            n->kind = EN_ELEMENT;
            if (!enternest(f, n)) RETURN(nullptr);
            CALL(R_LIST, 0, nullptr, 1);
          }
          default: {
            ExprNode* n = f.a;
            ExprNode* sub = ret;
            if (!sub) RETURN(nullptr);
            n->right = sub;
            ExprNode* close = nexttok();
            if (close->kind != EN_RBRACKET) {
              exprerror(close, "Missing right bracket for subscript");
              pushtok(close);
              RETURN(nullptr);
            }
            freenode(close);
            // A scalar with a subscript is accepted here and fails when it
            // runs.
            Symbol* s = n->symbol;
            if (s->ndims == 1 && sub->kind == EN_COMMA) {
              errorname(n, "Array variable should have only single subscript: %s", n->name);
              RETURN(nullptr);
            }
            if (s->ndims == 2 && sub->kind != EN_COMMA) {
              errorname(n, "Array variable should have two subscripts: %s", n->name);
              RETURN(nullptr);
            }
            RETURN(n);
          }
        }
      // A call of a built-in function a; "name (" has been read.  Commas
      // between the arguments are optional and one before the first is
      // skipped.  The name is upper-cased in the node before the lookup, so
      // "Unrecognized function name: %s" shows it in upper case.  c: the
      // last argument, count: the arguments read.
      case R_CALL:
        switch (f.step) {
          case 0: {
            ExprNode* n = f.a;
            n->kind = EN_CALL;
            n->symbol = nullptr;
            for (char* p = n->name; *p; ++p) *p = upper(*p);
            f.fe = funclookup(n->name);
            if (!f.fe) {
              errorname(n, "Unrecognized function name: %s", n->name);
              RETURN(nullptr);
            }
            n->funcode = f.fe->code;
            n->flags |= f.fe->flags & (ENF_NOFOLD | ENF_STRINGS | ENF_SPARE);
            if (!enternest(f, n)) RETURN(nullptr);
            f.count = 0;
            f.c = nullptr;
            [[fallthrough]];
          }
          case 1: {
            ExprNode* a = nexttok();
            if (a->kind == EN_RPAREN) {
              freenode(a);
              if (f.fe->nargs != VARARGS && f.fe->nargs != f.count) {
                exprerror(f.a, "Incorrect number of arguments for function");
                RETURN(nullptr);
              }
              RETURN(f.a);
            }
            if (a->kind == EN_END) {
              exprerror(a, "Missing right parenthesis");
              RETURN(nullptr);
            }
            if (a->kind == EN_COMMA)
              freenode(a);
            else
              pushtok(a);
            CALL(R_ASSIGN, 0, nullptr, 2);
          }
          default: {
            ExprNode* arg = ret;
            if (!arg) RETURN(nullptr);
            ++f.count;
            if (f.c)
              f.c->nextarg = arg;
            else
              f.a->firstarg = arg;
            f.c = arg;
            if (arg->kind == EN_STRING && !(f.a->flags & ENF_STRINGS)) {
              exprerror(arg, "Invalid argument to function");
              RETURN(nullptr);
            }
            f.step = 1;
            st.top() = f;
            continue;
          }
        }
    }
  }
#undef CALL
#undef RETURN
#undef TAIL
  return ret;
}

// The children of a node in the order the tree walkers take them: cond,
// left, right, then the arguments.
template <class F>
void eachchild(ExprNode* n, F f) {
  if (n->cond) f(n->cond);
  if (n->left) f(n->left);
  if (n->right) f(n->right);
  for (ExprNode* a = n->firstarg; a; a = a->nextarg) f(a);
}

// The height check of a finished tree: no tree higher than MAXEXPRHEIGHT
// leaves the parser (a long left-associative chain, "1+x+x+...", is what
// reaches it).  Reported at the first node found beyond the limit, depth
// first.
void checkheight(ExprNode* root) {
  struct At {
    ExprNode* n;
    int32_t depth;
  };
  WorkStack<At> st;
  WorkStack<ExprNode*> kids;
  st.push(At{root, 1});
  while (!st.empty() && !exprerr) {
    At at = st.top();
    st.pop();
    if (at.depth > MAXEXPRHEIGHT) {
      exprerror(at.n, "Expression is too complex");
      return;
    }
    // Pushed in reverse, so that they come off in walking order.
    kids.clear();
    eachchild(at.n, [&](ExprNode* k) { kids.push(k); });
    for (std::size_t k = kids.size(); k > 0; --k) st.push(At{kids[k - 1], at.depth + 1});
  }
}

// Marks the nodes of a finished tree, releases their statement-level
// tokens (the position copied into each node is all a tree needs later),
// and sets every node's height.
void claimtree(ExprNode* root) {
  postorder(root, [](ExprNode*) { return true; }, [](ExprNode* n) {
    n->flags |= INTREE;
    if (n->token) {
      freetok(n->token);
      n->token = nullptr;
    }
    uint32_t h = 0;
    eachchild(n, [&](ExprNode* k) { h = k->height > h ? k->height : h; });
    n->height = h + 1;
  });
}

}  // namespace

void exprerror(const ExprNode* node, const char* msg) {
  comperrl(node ? node->position : curline, msg);
  exprerr = 1;
}

// nexttok: the pushed-back node, or the statement lexer's next token made
// into a node.  Names are resolved at once; a token that cannot belong to
// an expression becomes EN_END and goes straight back to the lexer.
ExprNode* nexttok() {
  if (saved) {
    ExprNode* n = saved;
    saved = nullptr;
    return n;
  }
  Token* tok = gettok();
  ExprNode* n = newnode();
  n->token = tok;
  n->position = tok->line;
  switch (tok->kind) {
    case TK_NAME: {
      std::snprintf(n->name, sizeof n->name, "%s", tok->text ? tok->text : "");
      Symbol* s = symfind(n->name);
      if (s && s->kind == SYM_CONST && s->ndims == 0) {
        n->kind = EN_CONSTANT;
        n->value = s->value;
        markused(s);
      } else if (s) {
        n->kind = EN_VARIABLE;
        n->symbol = s;
        markused(s);
      } else if (ispi(n->name)) {
        n->kind = EN_CONSTANT;
        n->value = PIVALUE;
      } else {
        n->kind = EN_WORD;
      }
      break;
    }
    case TK_NUMBER: n->kind = EN_CONSTANT; n->value = tok->value; break;
    case TK_STRING:
      n->kind = EN_STRING;
      n->text = tok->text;  // the text moves to the node
      tok->text = nullptr;
      break;
    case TK_PLUS: n->kind = EN_ADD; break;
    case TK_MINUS: n->kind = EN_SUB; break;
    case TK_MUL: n->kind = EN_MUL; break;
    case TK_DIV: n->kind = EN_DIV; break;
    case TK_MOD: n->kind = EN_MOD; break;
    case TK_POW: n->kind = EN_POW; break;
    case TK_LPAREN: n->kind = EN_LPAREN; break;
    case TK_RPAREN: n->kind = EN_RPAREN; break;
    case TK_LBRACKET: n->kind = EN_LBRACKET; break;
    case TK_RBRACKET: n->kind = EN_RBRACKET; break;
    case TK_COMMA: n->kind = EN_COMMA; break;
    case TK_QUESTION: n->kind = EN_COND; break;
    case TK_COLON: n->kind = EN_COLON; break;
    case TK_LT: n->kind = EN_LT; break;
    case TK_LE: n->kind = EN_LE; break;
    case TK_GT: n->kind = EN_GT; break;
    case TK_GE: n->kind = EN_GE; break;
    case TK_EQ: n->kind = EN_EQ; break;
    case TK_NE: n->kind = EN_NE; break;
    case TK_AND: n->kind = EN_AND; break;  // "&" too: the lexer reported it
    case TK_OR: n->kind = EN_OR; break;    // "|" too
    case TK_NOT: n->kind = EN_NOT; break;
    case TK_ASSIGN: n->kind = EN_ASSIGN; break;
    case TK_ADDASSIGN: n->kind = EN_ADDASSIGN; break;
    case TK_SUBASSIGN: n->kind = EN_SUBASSIGN; break;
    case TK_MULASSIGN: n->kind = EN_MULASSIGN; break;
    case TK_DIVASSIGN: n->kind = EN_DIVASSIGN; break;
    case TK_INC: n->kind = EN_PREINC; break;
    case TK_DEC: n->kind = EN_PREDEC; break;
    default:  // ";", "{", "}", keywords, the end of the source
      n->kind = EN_END;
      ungettok(tok);
      n->token = nullptr;
      break;
  }
  return n;
}

// pushtok: one node of look-ahead.  Correct grammar never pushes twice.
void pushtok(ExprNode* node) {
  if (saved) std::printf("** Saving over saved token\n");
  saved = node;
}

void exprreset() {
  saved = nullptr;
  bareneg = nullptr;
  exprerr = 0;
  modelflag = 0;
  nest = 0;
}

void freeexprsince(ExprNode* mark) {
  while (livenodes && livenodes != mark) freenode(livenodes);
}

// parseexpr: one expression (a comma list at the top when allowlist is set),
// measured, folded, and with the first token after it back in the lexer.
ExprNode* parseexpr(int allowlist, int model) {
  modelflag = model;
  exprerr = 0;
  if (saved) freenode(saved);
  saved = nullptr;
  nest = 0;
  bareneg = nullptr;
  ExprNode* mark = livenodes;

  ExprNode* tree = descend(allowlist ? R_LIST : R_ASSIGN);
  if (tree && !exprerr && tree->kind == EN_WORD) exprerror(tree, "Invalid expression");
  if (tree && !exprerr) checkheight(tree);
  if (tree && !exprerr) tree = foldexpr(tree);

  if (saved) {
    ExprNode* n = saved;
    saved = nullptr;
    if (n->token) {
      ungettok(n->token);
      n->token = nullptr;
    }
    freenode(n);
  }
  if (!tree || exprerr) {
    freeexprsince(mark);
    return nullptr;
  }
  // Keep the tree; anything else made during this parse is dropped.
  claimtree(tree);
  for (ExprNode* n = livenodes; n && n != mark;) {
    ExprNode* next = n->next;
    if (n->flags & INTREE)
      n->flags &= static_cast<uint8_t>(~INTREE);
    else
      freenode(n);
    n = next;
  }
  return tree;
}

}  // namespace vexor
