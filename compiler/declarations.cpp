// The declaring statements: VARIABLES, PARAMETERS, DOUBLE and CONSTANT,
// CONSTRAIN, SWEEP, and the FUNCTION (MODEL) statement, which names the
// dependent variable.  Declarations emit no code; FUNCTION emits its
// OP_FUNCTION.
#include <cstdint>
#include <cstring>

#include "compiler/statements.h"

namespace vexor {

namespace {

// A closing bracket or brace of a DOUBLE declaration is missing: the error
// at the token found instead (kept when it is the end of the text, for the
// statement after), and the rest of the statement skipped.
void closerfail(Token* found, Token* nametok, const char* msg) {
  comperr(found, msg);
  if (found->kind == TK_EOF) ungettok(found); else droptok(found);
  droptok(nametok);
  skipstmt();
}

}  // namespace

// VARIABLES name {, name} ;
void declvariables(Token* stmttok) {
  for (;;) {
    Token* t = gettok();
    if (t->kind != TK_NAME) {
      syntaxfail(t, "Syntax error");
      break;
    }
    symdeclare(t, SYM_INPUT);
    droptok(t);
    if (!listnext(stmttok, LIST_KEYWORD_ENDS)) break;
  }
  droptok(stmttok);
}

// PARAMETERS item {[,] item} ;  item: name [= constant-expression]
// Commas are optional and extra commas are ignored.
void declparameters(Token* stmttok) {
  for (;;) {
    Token* t = gettok();
    if (t->kind == TK_COMMA) {
      droptok(t);
      continue;
    }
    if (t->kind == TK_SEMI) {
      droptok(t);
      break;
    }
    if (t->kind == TK_KEYWORD) {
      comperr(stmttok, "Missing semicolon at end of statement");
      ungettok(t);
      break;
    }
    if (t->kind != TK_NAME) {
      comperr(t, "Syntax error");
      ungettok(t);
      skipstmt();
      break;
    }
    Symbol* s = parmdeclare(t);
    droptok(t);
    double v = 1.0;
    Token* eq = gettok();
    if (eq->kind == TK_ASSIGN) {
      droptok(eq);
      v = constexpr_();
    } else {
      ungettok(eq);
    }
    s->value = v;
    s->initval = v;
    Token* c = gettok();
    if (c->kind == TK_COMMA)
      droptok(c);
    else
      ungettok(c);
  }
  droptok(stmttok);
}

// DOUBLE (or CONSTANT) item {, item} ;
// item: name [ '[' A [, B] ']' ] [ = init ], init a constant expression or
// a brace list of signed numbers.
void decldouble(Token* stmttok, uint8_t kind) {
  for (;;) {
    Token* t = gettok();
    if (t->kind != TK_NAME) {
      syntaxfail(t, "Syntax error");
      break;
    }
    Symbol* s = symdeclare(t, kind);
    Token* nametok = t;

    Token* n = gettok();
    if (n->kind == TK_LBRACKET) {
      droptok(n);
      int64_t a = truncint(constexpr_());
      int64_t b = 0;
      int ndims = 1;
      if (a > 20000) {
        comperrf(nametok, "The maximum allowable array size is %d\n", 20000);
        a = 20000;
      }
      Token* c = gettok();
      if (c->kind == TK_COMMA) {
        droptok(c);
        b = truncint(constexpr_());
        if (a * b > 20000) {
          comperrf(nametok, "The maximum allowable array size is %d\n", 20000);
          b = a != 0 ? 20000 / a : 0;
        }
        ndims = 2;
        c = gettok();
      }
      if (c->kind != TK_RBRACKET) {
        closerfail(c, nametok, "Right bracket missing");
        break;
      }
      droptok(c);
      if (s->elems) {
        memfree(s->elems);
        s->elems = nullptr;
      }
      if (s->initelems) {
        memfree(s->initelems);
        s->initelems = nullptr;
        s->ninit = 0;
      }
      s->ndims = static_cast<uint8_t>(ndims);
      s->dim1 = static_cast<int32_t>(a);
      s->dim2 = static_cast<int32_t>(b);
      s->nelem = static_cast<int32_t>(ndims == 2 ? a * b : a);
      // Room for every element the run-time subscript test admits.  With two
      // subscripts the row may equal the first dimension and the column the
      // second, so element dim2 * dim1 + dim2 must exist; a dimension below
      // 1 admits no row (or column) but 0 and a column up to dim2, which the
      // same count covers once negative dimensions count as 0.  An array
      // within the size limit never needs more than MAXROOM elements; beyond
      // that (a first dimension of 0 or below with a huge second one) the
      // interpreter's bounds check sends the access to element 0.  The
      // count is never below nelem, which the initial-value list fills.
      constexpr int64_t MAXROOM = 2 * 20000 + 1;
      int64_t room = s->nelem;
      if (ndims == 2) {
        const int64_t d1 = s->dim1 > 0 ? s->dim1 : 0;
        const int64_t d2 = s->dim2 > 0 ? s->dim2 : 0;
        int64_t need = d2 * (d1 + 1) + 1;
        if (need > MAXROOM) need = MAXROOM;
        if (need > room) room = need;
      }
      if (room < 1) room = 1;
      s->nalloc = static_cast<int32_t>(room);
      s->elems = static_cast<double*>(memcalloc(static_cast<std::size_t>(room) * sizeof(double), "ary"));
      n = gettok();
    }

    if (n->kind == TK_ASSIGN) {
      droptok(n);
      Token* b = gettok();
      if (b->kind == TK_LBRACE) {
        droptok(b);
        long count = s->ndims ? (s->nelem > 0 ? s->nelem : 0) : 1;
        long k = 0;
        bool reported = false;
        double v;
        while (signednum(&v, 0)) {
          if (k < count) {
            if (s->ndims)
              s->elems[k] = v;
            else
              s->value = v;
          } else if (!reported) {
            comperr(nametok, "Too many initial values specified");
            reported = true;
          }
          ++k;
          Token* c = gettok();
          if (c->kind != TK_COMMA) {
            ungettok(c);
            break;
          }
          droptok(c);
        }
        Token* r = gettok();
        if (r->kind != TK_RBRACE) {
          closerfail(r, nametok, "Right brace missing or misplaced");
          break;
        }
        droptok(r);
        if (s->ndims && k > 0) {
          long keep = k < count ? k : count;
          if (keep > 0) {
            s->initelems = static_cast<double*>(
                memalloc(static_cast<std::size_t>(keep) * sizeof(double), "aryinit"));
            std::memcpy(s->initelems, s->elems, static_cast<std::size_t>(keep) * sizeof(double));
            s->ninit = static_cast<int32_t>(keep);
          }
        }
      } else {
        ungettok(b);
        double v = constexpr_();
        if (s->ndims) {
          if (s->elems) s->elems[0] = v;
          s->initelems = static_cast<double*>(memalloc(sizeof(double), "aryinit"));
          s->initelems[0] = v;
          s->ninit = 1;
        } else {
          s->value = v;
          s->initval = v;
        }
      }
    } else {
      if (kind == SYM_CONST) comperr(n, "CONSTANT variable must have initialization value");
      ungettok(n);
    }
    droptok(nametok);
    if (!listnext(stmttok, LIST_SEMI_KEPT)) break;
  }
  droptok(stmttok);
}

// CONSTRAIN name [=] low [,] high ;
void stmtconstrain(Token* stmttok) {
  ++nconstrain;
  Token* t = gettok();
  if (t->kind != TK_NAME) {
    syntaxfail(t, "Syntax error: parameter name expected");
    droptok(stmttok);
    return;
  }
  Symbol* s = symref(t->text);
  if (s->kind != SYM_PARAM) comperr(t, "Constraints can only apply to parameters");
  droptok(t);
  s->constrained = 1;
  skipeq();
  s->lower = constexpr_();
  optcomma();
  s->upper = constexpr_();
  if (s->upper < s->lower) comperr(stmttok, "Invalid range of values");
  needsemi(stmttok);
  droptok(stmttok);
}

// SWEEP name [=] start [,] end [,] step ;
void stmtsweep(Token* stmttok) {
  Token* t = gettok();
  if (t->kind != TK_NAME) {
    syntaxfail(t, "Syntax error: parameter name expected");
    droptok(stmttok);
    return;
  }
  Symbol* s = symref(t->text);
  if (s->kind != SYM_PARAM) {
    comperr(t, "Sweep can only apply to parameters");
    droptok(t);
    skipstmt();
    droptok(stmttok);
    return;
  }
  droptok(t);
  skipeq();
  SweepEntry e{};
  e.parm = s;
  e.start = constexpr_();
  optcomma();
  e.end = constexpr_();
  optcomma();
  e.step = constexpr_();
  e.current = 0;
  e.count = truncint((e.end - e.start + e.step * 0.0001) / e.step);
  // The table has room for MAXSWEEPS entries; a program asking for more
  // keeps the first ones.
  if (nsweep < MAXSWEEPS) sweeps[nsweep++] = e;
  needsemi(stmttok);
  droptok(stmttok);
}

// FUNCTION [depvar =] expression ;
void stmtfunction(Token* stmttok) {
  hasfunc = 1;
  stmtline(stmttok);
  Symbol* dep = nullptr;
  Token* t = gettok();
  if (t->kind == TK_NAME) {
    Token* eq = gettok();
    if (eq->kind == TK_ASSIGN) {
      Symbol* s = symref(t->text);
      if (s->kind == SYM_PARAM) {
        comperrf(t, "A parameter may not be used as dependent variable: %s", t->text);
      } else {
        if (depvar && depvar != s)
          comperr(t, "A different dependent variable was used in an earlier MODEL");
        depvar = s;
        dep = s;
      }
      droptok(eq);
      droptok(t);
    } else {
      ungettok(eq);
      ungettok(t);
    }
  } else {
    ungettok(t);
  }
  ExprNode* tree = parseexpr(1, 1);
  if (!tree) {
    skipstmt();
    droptok(stmttok);
    return;
  }
  emitop(OP_FUNCTION, dep, tree);
  Token* e = gettok();
  if (e->kind == TK_SEMI) {
    droptok(e);
  } else if (e->kind == TK_KEYWORD) {
    comperr(e, "Missing semicolon at end of statement");
    ungettok(e);
  } else {
    syntaxfail(e, "Invalid Function expression syntax");
  }
  droptok(stmttok);
}

}  // namespace vexor
