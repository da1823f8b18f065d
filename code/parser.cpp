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
// Hostile text must not exhaust the stack, so the recursion is bounded (see
// MAXEXPRNEST and MAXEXPRHEIGHT in code.h): parentheses, calls and
// subscripts count one level of nesting each, the right-associative chains
// (= += ..., ^ and ?:) count against the tree height while they are parsed,
// and a finished tree is measured before anything walks it recursively.
// Beyond either limit the message is "Expression is too complex".
//
// Every sub-parse returns null after a compile error (exprerr is then set)
// and parsing unwinds at once; parseexpr frees every node made since it
// began, so an error anywhere leaks nothing.
#include <cstdio>
#include <cstring>

#include "code/code.h"
#include "exec/exec.h"

namespace vexor {

int exprerr = 0;

namespace {

constexpr double PIVALUE = 3.141592653589793;
constexpr uint8_t INTREE = 0x80;  // node flag used only inside parseexpr

ExprNode* saved = nullptr;  // the push-back slot of pushtok
int modelflag = 0;          // mark symbols as used in the FUNCTION statement
int nest = 0;               // open parentheses, calls and subscripts
int chain = 0;              // open right-associative operators

// One unit of `counter` for as long as it lives; past `limit` it reports
// "Expression is too complex" (once: the parse unwinds at the error).
struct Guard {
  int& counter;
  bool ok;
  Guard(int& c, int limit, const ExprNode* at) : counter(c), ok(++c <= limit) {
    if (!ok) exprerror(at, "Expression is too complex");
  }
  ~Guard() { --counter; }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
};

// A parenthesis, call or subscript level.
struct Nest : Guard {
  explicit Nest(const ExprNode* at) : Guard(nest, MAXEXPRNEST, at) {}
};
// One more operator of a right-associative chain; each adds a level to the
// tree, so the tree height limit bounds them.
struct Chain : Guard {
  explicit Chain(const ExprNode* at) : Guard(chain, MAXEXPRHEIGHT, at) {}
};

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

ExprNode* plist();
ExprNode* passign();
ExprNode* pcond();
ExprNode* pbinary(int level);
ExprNode* ppower();
ExprNode* pincdec();
ExprNode* punary();
ExprNode* pprimary();

// list -> assignment {"," assignment}, built as a right-nested chain
// a, b, c = COMMA(a, COMMA(b, c)) without recursion.
ExprNode* plist() {
  ExprNode* result = passign();
  if (!result) return nullptr;
  ExprNode** hole = &result;  // the place of the last item in the chain
  for (;;) {
    ExprNode* comma = nexttok();
    if (comma->kind != EN_COMMA) {
      pushtok(comma);
      return result;
    }
    ExprNode* item = passign();
    if (!item) return nullptr;
    comma->left = *hole;
    comma->right = item;
    *hole = comma;
    hole = &comma->right;
  }
}

// assignment -> conditional [op assignment]
ExprNode* passign() {
  ExprNode* left = pcond();
  if (!left) return nullptr;
  if (!islvalue(left)) return left;  // "x + 1 = 3": the "=" is left over
  ExprNode* op = nexttok();
  if (!isassignop(op->kind)) {
    pushtok(op);
    return left;
  }
  Chain guard(op);
  if (!guard.ok) return nullptr;
  ExprNode* right = passign();
  if (!right) return nullptr;
  if (right->kind == EN_END) {
    exprerror(right, "Invalid syntax");
    return nullptr;
  }
  op->left = left;
  op->right = right;
  left->flags |= ENF_TARGET;
  if (left->symbol && left->symbol->kind == SYM_INPUT) {
    exprerror(left, "Input variables may not be assigned values");
    return nullptr;
  }
  if (left->symbol && left->symbol->kind == SYM_PARAM) {
    exprerror(left, "Parameters may not be assigned values");
    return nullptr;
  }
  return op;
}

// conditional -> or ["?" conditional ":" conditional]
ExprNode* pcond() {
  ExprNode* c = pbinary(4);
  if (!c) return nullptr;
  ExprNode* q = nexttok();
  if (q->kind != EN_COND) {
    pushtok(q);
    return c;
  }
  Chain guard(q);
  if (!guard.ok) return nullptr;
  ExprNode* t = pcond();
  if (!t) return nullptr;
  if (t->kind == EN_END) {
    exprerror(t, "Syntax error");
    return nullptr;
  }
  ExprNode* colon = nexttok();
  if (colon->kind != EN_COLON) {
    exprerror(colon, "Syntax error");
    freenode(colon);
    return nullptr;
  }
  freenode(colon);
  ExprNode* f = pcond();
  if (!f) return nullptr;
  if (f->kind == EN_END) {
    exprerror(f, "Syntax error");
    return nullptr;
  }
  q->cond = c;
  q->left = t;
  q->right = f;
  return q;
}

// The left-associative binary levels 4 to 9.  A missing right operand is
// reported at the node that ended the expression (its line is the one the
// user has to look at when the expression runs over several lines).
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

ExprNode* operand(int level) { return level >= 9 ? ppower() : pbinary(level + 1); }

// level -> next {op next}
ExprNode* pbinary(int level) {
  ExprNode* left = operand(level);
  if (!left) return nullptr;
  for (;;) {
    ExprNode* op = nexttok();
    if (!isop(level, op->kind)) {
      pushtok(op);
      return left;
    }
    ExprNode* right = operand(level);
    if (!right) return nullptr;
    if (right->kind == EN_END) {
      exprerror(right, "Syntax error");
      return nullptr;
    }
    op->left = left;
    op->right = right;
    left = op;
  }
}

// power -> incdec [op power]   (right associative)
ExprNode* ppower() {
  ExprNode* left = pincdec();
  if (!left) return nullptr;
  ExprNode* op = nexttok();
  if (op->kind != EN_POW) {
    pushtok(op);
    return left;
  }
  Chain guard(op);
  if (!guard.ok) return nullptr;
  ExprNode* right = ppower();
  if (!right) return nullptr;
  if (right->kind == EN_END) {
    exprerror(right, "Syntax error");
    return nullptr;
  }
  op->left = left;
  op->right = right;
  return op;
}

ExprNode* varref(ExprNode* n);

const char* incdecmsg(const ExprNode* op) {
  return op->kind == EN_PREINC || op->kind == EN_POSTINC ? "Invalid use of ++ operator"
                                                           : "Invalid use of -- operator";
}

// incdec -> ("++" | "--") target | unary ["++" | "--"]
// The input-variable and parameter checks belong to the five assignment
// operators only, so ++ and -- accept any variable.
ExprNode* pincdec() {
  ExprNode* op = nexttok();
  if (op->kind == EN_PREINC || op->kind == EN_PREDEC) {
    ExprNode* t = nexttok();
    if (t->kind == EN_WORD || t->kind == EN_VARIABLE) {
      t = varref(t);
      if (!t) return nullptr;
    }
    if (!islvalue(t)) {
      exprerror(op, incdecmsg(op));
      return nullptr;
    }
    op->left = t;
    t->flags |= ENF_TARGET;
    return op;
  }
  pushtok(op);
  ExprNode* e = punary();
  if (!e) return nullptr;
  ExprNode* post = nexttok();
  if (post->kind != EN_PREINC && post->kind != EN_PREDEC) {
    pushtok(post);
    return e;
  }
  if (!islvalue(e)) {
    exprerror(post, incdecmsg(post));
    return nullptr;
  }
  post->kind = post->kind == EN_PREINC ? EN_POSTINC : EN_POSTDEC;
  post->left = e;
  e->flags |= ENF_TARGET;
  return post;
}

// unary -> "+" primary | "-" primary | "!" primary | primary
ExprNode* punary() {
  ExprNode* op = nexttok();
  if (op->kind == EN_ADD) {
    freenode(op);
    return pprimary();
  }
  if (op->kind == EN_SUB || op->kind == EN_NOT) {
    ExprNode* p = pprimary();
    if (!p) return nullptr;
    if (op->kind == EN_SUB) op->kind = EN_NEGATE;
    op->right = p;
    return op;
  }
  pushtok(op);
  return pprimary();
}

// A variable reference: the name (EN_WORD or EN_VARIABLE from nexttok),
// with its subscript when "[" follows.
ExprNode* varref(ExprNode* n) {
  if (ispi(n->name)) {
    n->kind = EN_CONSTANT;
    n->value = PIVALUE;
    n->symbol = nullptr;
    return n;
  }
  Symbol* s = n->symbol ? n->symbol : symfind(n->name);
  if (!s) {
    n->kind = EN_END;
    errorname(n, "Unrecognized word or variable: %s", n->name);
    return nullptr;
  }
  n->kind = EN_VARIABLE;
  n->symbol = s;
  markused(s);
  ExprNode* open = nexttok();
  if (open->kind != EN_LBRACKET) {
    pushtok(open);
    if (s->ndims > 0) {
      errorname(n, "Array variable does not have a subscript: %s", n->name);
      return nullptr;
    }
    return n;
  }
  freenode(open);
  n->kind = EN_ELEMENT;
  Nest guard(n);
  if (!guard.ok) return nullptr;
  ExprNode* sub = plist();
  if (!sub) return nullptr;
  n->right = sub;
  ExprNode* close = nexttok();
  if (close->kind != EN_RBRACKET) {
    exprerror(close, "Missing right bracket for subscript");
    pushtok(close);
    return nullptr;
  }
  freenode(close);
  // A scalar with a subscript is accepted here and fails when it runs.
  if (s->ndims == 1 && sub->kind == EN_COMMA) {
    errorname(n, "Array variable should have only single subscript: %s", n->name);
    return nullptr;
  }
  if (s->ndims == 2 && sub->kind != EN_COMMA) {
    errorname(n, "Array variable should have two subscripts: %s", n->name);
    return nullptr;
  }
  return n;
}

// A call of a built-in function; "name (" has been read.  Commas between
// the arguments are optional and one before the first is skipped.  The name
// is upper-cased in the node before the lookup, so "Unrecognized function
// name: %s" shows it in upper case.
ExprNode* pcall(ExprNode* n) {
  n->kind = EN_CALL;
  n->symbol = nullptr;
  for (char* p = n->name; *p; ++p) *p = upper(*p);
  const FuncEntry* f = funclookup(n->name);
  if (!f) {
    errorname(n, "Unrecognized function name: %s", n->name);
    return nullptr;
  }
  n->funcode = f->code;
  n->flags |= f->flags & (ENF_NOFOLD | ENF_STRINGS | ENF_SPARE);
  Nest guard(n);
  if (!guard.ok) return nullptr;
  int count = 0;
  ExprNode** tail = &n->firstarg;
  for (;;) {
    ExprNode* a = nexttok();
    if (a->kind == EN_RPAREN) {
      freenode(a);
      break;
    }
    if (a->kind == EN_END) {
      exprerror(a, "Missing right parenthesis");
      return nullptr;
    }
    if (a->kind == EN_COMMA)
      freenode(a);
    else
      pushtok(a);
    ExprNode* arg = passign();
    if (!arg) return nullptr;
    ++count;
    *tail = arg;
    tail = &arg->nextarg;
    if (arg->kind == EN_STRING && !(n->flags & ENF_STRINGS)) {
      exprerror(arg, "Invalid argument to function");
      return nullptr;
    }
  }
  if (f->nargs != VARARGS && f->nargs != count) {
    exprerror(n, "Incorrect number of arguments for function");
    return nullptr;
  }
  return n;
}

// primary -> name | call | constant | string | "(" assignment ")"
// A ")" becomes the end of the expression and its token goes back to the
// statement lexer, so that an enclosing construct sees it.  Any other node
// (an operator, a comma, a bracket, the end node) stands for itself, as a
// leaf without operands.
ExprNode* pprimary() {
  ExprNode* n = nexttok();
  switch (n->kind) {
    case EN_WORD:
    case EN_VARIABLE: {
      ExprNode* after = nexttok();
      if (after->kind == EN_LPAREN) {
        freenode(after);
        return pcall(n);
      }
      pushtok(after);
      return varref(n);
    }
    case EN_CONSTANT:
    case EN_STRING:
      return n;
    case EN_LPAREN: {
      Nest guard(n);
      if (!guard.ok) return nullptr;
      ExprNode* e = passign();
      if (!e) return nullptr;
      ExprNode* close = nexttok();
      if (close->kind != EN_RPAREN) {
        exprerror(close, "Missing right parenthesis");
        return nullptr;
      }
      freenode(close);
      freenode(n);
      return e;
    }
    case EN_RPAREN:
      n->kind = EN_END;
      ungettok(n->token);
      n->token = nullptr;
      return n;
    default:
      return n;
  }
}

// The height check of a finished tree: folding, evaluation, freetree and
// the dump all recurse along the tree, so no tree higher than MAXEXPRHEIGHT
// leaves the parser.  A long left-associative chain ("1+x+x+...", built
// without recursion) is what reaches the limit here.  The check itself
// stops one level past the limit.
void checkheight(ExprNode* n, int depth) {
  if (!n || exprerr) return;
  if (depth > MAXEXPRHEIGHT) {
    exprerror(n, "Expression is too complex");
    return;
  }
  checkheight(n->cond, depth + 1);
  checkheight(n->left, depth + 1);
  checkheight(n->right, depth + 1);
  for (ExprNode* a = n->firstarg; a && !exprerr; a = a->nextarg) checkheight(a, depth + 1);
}

// Marks the nodes of a finished tree and releases their statement-level
// tokens: the position copied into each node is all a tree needs later.
void claimtree(ExprNode* n) {
  if (!n) return;
  n->flags |= INTREE;
  if (n->token) {
    freetok(n->token);
    n->token = nullptr;
  }
  claimtree(n->cond);
  claimtree(n->left);
  claimtree(n->right);
  for (ExprNode* a = n->firstarg; a; a = a->nextarg) claimtree(a);
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
  exprerr = 0;
  modelflag = 0;
  nest = 0;
  chain = 0;
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
  chain = 0;
  ExprNode* mark = livenodes;

  ExprNode* tree = allowlist ? plist() : passign();
  if (tree && !exprerr && tree->kind == EN_WORD) exprerror(tree, "Invalid expression");
  if (tree && !exprerr) checkheight(tree, 1);
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
