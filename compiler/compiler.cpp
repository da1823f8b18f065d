// The statement compiler: the compilation entry, the statement loop and
// dispatcher, blocks, expression statements, the helpers every statement
// routine shares, and the checks made after the last statement.
//
// Compilation never stops at an error: each is reported at its line and
// counted in ncomperr, and compile() fails at the end when the count is not
// zero.  A statement routine that meets a syntax error calls skipstmt, which
// counts one more error and drops the rest of the statement.
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "compiler/statements.h"

namespace vexor {

int hasfunc = 0;
int32_t loopdepth = 0;
int32_t nconstrain = 0;
SweepEntry sweeps[MAXSWEEPS];
int32_t nsweep = 0;

namespace {

void endchecks();

// Open statements that hold statements: blocks, IF, WHILE, FOR and DO (see
// MAXSTMTNEST).
int32_t stmtnest = 0;

// Drops a statement that is nested too deeply, with everything it holds.
// The tokens are counted, not parsed, so this works without recursion
// however deep the dropped text goes on nesting.  The statement is read in
// units: a unit ends with the ';' that stands outside all brackets opened
// in it (so the ';' of a FOR header does not end it), or with the '}' that
// closes the first brace opened in it (a block).  After a unit, an ELSE
// continues the statement with one more unit, and so does the WHILE that
// ends a DO met outside braces in the statement.  A '}' that closes an
// enclosing block, and the end of the source, are given back.
void skipnested(Token* tok) {
  int32_t dos = 0;  // DO statements whose WHILE part is still to come
  Token* t = tok;
  for (;;) {
    int32_t braces = 0;
    int32_t parens = 0;
    for (;;) {
      if (t->kind == TK_EOF) {
        ungettok(t);
        return;
      }
      bool done = false;
      if (t->kind == TK_LBRACE) {
        ++braces;
      } else if (t->kind == TK_RBRACE) {
        if (braces == 0) {
          ungettok(t);
          return;
        }
        done = --braces == 0 && parens == 0;
      } else if (t->kind == TK_LPAREN) {
        ++parens;
      } else if (t->kind == TK_RPAREN) {
        if (parens > 0) --parens;
      } else if (t->kind == TK_SEMI) {
        done = braces == 0 && parens == 0;
      } else if (t->kind == TK_KEYWORD && t->keyword == KW_DO && braces == 0) {
        ++dos;
      }
      droptok(t);
      if (done) break;
      t = gettok();
    }
    t = gettok();
    if (t->kind == TK_KEYWORD && t->keyword == KW_ELSE) {
      droptok(t);
      t = gettok();
    } else if (t->kind == TK_KEYWORD && t->keyword == KW_WHILE && dos > 0) {
      --dos;  // the unit from this WHILE on ends at its ';'
    } else {
      ungettok(t);
      return;
    }
  }
}

// Enters one more level of statement nesting for the statement that `tok`
// begins; at the limit the statement is reported and dropped instead.
bool nestin(Token* tok) {
  if (stmtnest < MAXSTMTNEST) {
    ++stmtnest;
    return true;
  }
  comperr(tok, "Statements are nested too deeply");
  skipnested(tok);
  return false;
}

// Compiles a loop statement one nesting level deeper.  Loops nest at most
// 29 deep (control.cpp), so compiling their bodies by recursion is bounded;
// blocks and IF statements, which nest without such a limit, are compiled
// by stmt on an explicit stack.
void nested(Token* tok, void (*routine)(Token*)) {
  if (!nestin(tok)) return;
  routine(tok);
  --stmtnest;
}

// An open block or IF statement, waiting for the statement it holds.
enum Open : uint8_t {
  O_BLOCK,   // a block: the statements up to its '}'
  O_THEN,    // IF: the then-part
  O_ELSE,    // IF: the else-part
};
struct OpenStmt {
  Open kind;
  int32_t openline;  // O_BLOCK: the line of its '{'
  OpInstr* jump;     // O_THEN: the JUMPF over the then-part; O_ELSE: the JUMP over the else-part
};

// Begins one statement.  A block or an IF opens an OpenStmt (returns true:
// the statement it holds is to follow); any other statement is compiled
// whole (false).
bool beginstmt(WorkStack<OpenStmt>& open);

}  // namespace

int32_t truncint(double v) {
  if (std::isnan(v) || std::isinf(v)) return 0;
  if (v >= 2147483647.0) return INT32_MAX;
  if (v <= -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(v);  // truncates toward zero
}

void comperrf(const Token* tok, const char* format, ...) {
  char buf[LSTMAXTEXT];
  va_list ap;
  va_start(ap, format);
  std::vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  comperr(tok, buf);
}

void syntaxfail(Token* t, const char* msg) {
  comperr(t, msg);
  if (t->kind == TK_EOF)
    ungettok(t);
  else
    freetok(t);
  skipstmt();
}

void optcomma() {
  Token* c = gettok();
  if (c->kind == TK_COMMA)
    freetok(c);
  else
    ungettok(c);
}

bool listnext(const Token* stmttok, unsigned rules) {
  Token* t = gettok();
  if (t->kind == TK_COMMA) {
    droptok(t);
    return true;
  }
  if (t->kind == TK_SEMI) {
    if (rules & LIST_SEMI_KEPT)
      ungettok(t);  // read again by the statement loop as an empty statement
    else
      droptok(t);
  } else if (t->kind == TK_KEYWORD && (rules & LIST_KEYWORD_ENDS)) {
    comperr(stmttok, "Missing semicolon at end of statement");
    ungettok(t);
  } else {
    comperr(t, "Syntax error");
    ungettok(t);
    skipstmt();
  }
  return false;
}

// needsemi: the next token must be ';' (consumed).
int needsemi(const Token* stmttok) {
  Token* t = gettok();
  if (t->kind == TK_SEMI) {
    droptok(t);
    return 1;
  }
  comperr(stmttok, "Missing semicolon at end of statement");
  ungettok(t);
  return 0;
}

// skipeq: an optional '='.
void skipeq() {
  Token* t = gettok();
  if (t->kind == TK_ASSIGN)
    droptok(t);
  else
    ungettok(t);
}

// skipstmt: one more error, then drop tokens through the next ';'.
void skipstmt() {
  ++ncomperr;
  for (;;) {
    Token* t = gettok();
    if (t->kind == TK_EOF) {
      ungettok(t);
      return;
    }
    bool semi = t->kind == TK_SEMI;
    droptok(t);
    if (semi) return;
  }
}

double constexpr_() {
  ExprNode* tree = parseexpr(0, 0);
  if (!tree) return 0.0;
  if (tree->kind == EN_CONSTANT) {
    double v = tree->value;
    freetree(tree);
    return v;
  }
  comperrl(curline, "Only a constant expression may be specified.");
  freetree(tree);
  return 0.0;
}

// signednum: [+|-] number.
int signednum(double* value, int required) {
  Token* t = gettok();
  double sign = 1.0;
  Token* sgn = nullptr;
  if (t->kind == TK_PLUS || t->kind == TK_MINUS) {
    if (t->kind == TK_MINUS) sign = -1.0;
    sgn = t;
    t = gettok();
  }
  if (t->kind == TK_NUMBER) {
    *value = sign * t->value;
    droptok(t);
    droptok(sgn);
    return 1;
  }
  if (required) {
    comperr(t, "Syntax error: numeric value missing");
    droptok(t);
    droptok(sgn);
  } else {
    ungettok(t);
    if (sgn) ungettok(sgn);
  }
  return 0;
}

OpInstr* stmtline(const Token* tok) { return emitop(OP_LINE, tok ? tok->line : curline, nullptr); }

// compile: the whole program, then the end-of-compilation checks.
OpInstr* compile() {
  ncomperr = 0;
  loopdepth = 0;
  hasfunc = 0;
  nwork = 0;
  nvar = 0;
  nparm = 0;
  nsweep = 0;
  nconstrain = 0;
  nobs = 0;
  minimize = 0;
  depvar = nullptr;
  parfile[0] = '\0';
  datafile[0] = '\0';
  stmtnest = 0;
  cleartraps();
  lexreset();
  resetloops();
  // The previous program goes, with the expression trees it carried.
  freeopsegs();
  freeallnodes();
  freeplots();
  symbuiltins();
  OpInstr* start = newopseg();
  progstart = start;
  emitpos = start;
  opcount = 0;
  stmtlist();
  emitop(OP_STOP, nullptr, nullptr);
  if (ncomperr == 0) endchecks();
  if (ncomperr > 0) {
    freeopsegs();
    freeallnodes();
    progstart = nullptr;
    return nullptr;
  }
  return start;
}

void stmtlist() {
  for (;;) {
    stmt();
    Token* t = gettok();
    ungettok(t);
    if (t->kind == TK_EOF) return;
  }
}

namespace {

// A block '{': one level of nesting, then its statements.
bool beginblock(WorkStack<OpenStmt>& open, Token* tok) {
  if (!nestin(tok)) return false;
  const int32_t line = tok->line ? tok->line->number : 0;
  droptok(tok);
  open.push(OpenStmt{O_BLOCK, line, nullptr});
  return true;
}

// IF condition statement [ELSE statement]: one level of nesting; the
// condition, its line marker and the jump over the then-part, then the
// then-part.
bool beginif(WorkStack<OpenStmt>& open, Token* tok) {
  if (!nestin(tok)) return false;
  ExprNode* cond = parseexpr(1, 0);
  if (!cond) {
    droptok(tok);
    skipstmt();
    --stmtnest;
    return false;
  }
  stmtline(tok);
  droptok(tok);
  OpInstr* jf = emitop(OP_JUMPF, cond, nullptr);
  open.push(OpenStmt{O_THEN, 0, jf});
  return true;
}

bool beginstmt(WorkStack<OpenStmt>& open) {
  Token* tok = gettok();
  switch (tok->kind) {
    case TK_EOF:
      ungettok(tok);
      return false;
    case TK_NOT:
      comperr(tok, "Misuse of '!' character (comments begin with '//')");
      droptok(tok);
      skipstmt();
      return false;
    case TK_NUMBER:
      comperr(tok, "Syntax error (missing DATA statement?)");
      break;  // compiled as an expression statement below
    case TK_SEMI:
      droptok(tok);
      return false;
    case TK_LBRACE:
      return beginblock(open, tok);
    case TK_RBRACE:
      comperr(tok, "There is no matching open brace for this close brace");
      droptok(tok);
      return false;
    case TK_KEYWORD:
      switch (tok->keyword) {
        case KW_CONSTANT:
          decldouble(tok, SYM_CONST);
          return false;
        case KW_DOUBLE:
          decldouble(tok, SYM_WORK);
          return false;
        case KW_VARIABLES:
          declvariables(tok);
          return false;
        case KW_PARAMETERS:
          declparameters(tok);
          return false;
        case KW_CONSTRAIN:
          stmtconstrain(tok);
          return false;
        case KW_SWEEP:
          stmtsweep(tok);
          return false;
        case KW_FUNCTION:
          stmtfunction(tok);
          return false;
        case KW_IF:
          return beginif(open, tok);
        case KW_WHILE:
          nested(tok, stmtwhile);
          return false;
        case KW_FOR:
          nested(tok, stmtfor);
          return false;
        case KW_DO:
          nested(tok, stmtdo);
          return false;
        case KW_BREAK:
          stmtbreak(tok, 0);
          return false;
        case KW_CONTINUE:
          stmtbreak(tok, 1);
          return false;
        case KW_STOP:
          stmtstop(tok);
          return false;
        case KW_ELSE:
          comperr(tok, "This ELSE is not within an IF statement");
          droptok(tok);
          return false;
        case KW_OUTPUT:
        case KW_POUTPUT:
        case KW_COVARIANCE:
        case KW_TOLERANCE:
        case KW_TITLE:
        case KW_ITERATIONS:
        case KW_PRESOLUTION:
        case KW_ANGLETYPE:
        case KW_WIDTH:
        case KW_NOECHO:
        case KW_CONFIDENCE:
        case KW_CORRELATE:
          stmtoption(tok);
          return false;
        case KW_PLOT:
          stmtplot(tok, PLOT_PLOT);
          return false;
        case KW_RPLOT:
          stmtplot(tok, PLOT_RPLOT);
          return false;
        case KW_NPLOT:
          stmtplot(tok, PLOT_NPLOT);
          return false;
        case KW_SPLOT:
          stmtplot(tok, PLOT_SPLOT);
          return false;
        case KW_DATA:
          stmtdata(tok);
          return false;
        case KW_DATASKIP:
        case KW_DATACOUNT:
          stmtdataopt(tok);
          return false;
        default:
          comperr(tok, "Unrecognized statement");
          droptok(tok);
          return false;
      }
    default:
      break;
  }
  // An expression statement: an assignment or a call.
  stmtline(tok);
  ungettok(tok);
  ExprNode* tree = parseexpr(1, 0);
  if (!tree) {
    skipstmt();
    return false;
  }
  emitop(OP_EVAL, tree, nullptr);
  Token* t = gettok();
  if (t->kind == TK_SEMI) {
    droptok(t);
  } else if (t->kind == TK_KEYWORD || t->kind == TK_NAME) {
    comperr(t, "Semicolon missing at end of previous statement");
    ungettok(t);
  } else {
    comperr(t, "Syntax error");
    if (t->kind == TK_EOF)
      ungettok(t);
    else
      droptok(t);
    skipstmt();
  }
  return false;
}

}  // namespace

// stmt: one statement, chosen by its first token.  A block or an IF holds
// statements of its own; rather than compiling them by recursion, stmt
// keeps the open ones on a stack and finishes each when the statement it
// waits for is complete, so blocks and IFs nest as deep as MAXSTMTNEST
// without deep recursion:
//   block:  after each statement, a '}' ends it; the end of the source
//           gives "The open brace on line %d is not properly matched";
//           anything else begins its next statement;
//   IF:     after the then-part, an ELSE emits the jump over the else-part,
//           lands the JUMPF after it and begins the else-part; otherwise the
//           JUMPF lands after the then-part; after the else-part the jump
//           lands after it.
void stmt() {
  WorkStack<OpenStmt> open;
  bool begin = true;
  for (;;) {
    if (begin) {
      begin = beginstmt(open);
      continue;
    }
    if (open.empty()) return;
    OpenStmt& o = open.top();
    Token* t = nullptr;
    switch (o.kind) {
      case O_BLOCK:
        t = gettok();
        if (t->kind == TK_RBRACE) {
          droptok(t);
          break;
        }
        if (t->kind == TK_EOF) {
          char msg[96];
          std::snprintf(msg, sizeof msg, "The open brace on line %d is not properly matched",
                        static_cast<int>(o.openline));
          comperrl(nullptr, msg);
          ungettok(t);
          break;
        }
        ungettok(t);
        begin = true;
        continue;
      case O_THEN:
        t = gettok();
        if (t->kind == TK_KEYWORD && t->keyword == KW_ELSE) {
          droptok(t);
          OpInstr* j = emitop(OP_JUMP, nullptr, nullptr);
          o.jump->operand2 = emitpos;
          o = OpenStmt{O_ELSE, 0, j};
          begin = true;
          continue;
        }
        ungettok(t);
        o.jump->operand2 = emitpos;
        break;
      case O_ELSE:
        o.jump->operand1 = emitpos;
        break;
    }
    // The open statement is complete.
    open.pop();
    --stmtnest;
  }
}

namespace {

// After the last statement, when no error occurred.
void endchecks() {
  if (!hasfunc) comperrl(nullptr, "Program must have a FUNCTION statement");
  for (int32_t i = 0; i < nparm;) {
    Symbol* p = parms[i];
    if (p->flags & SYMF_USED) {
      // Starting estimates are moved into their CONSTRAIN range.
      if (p->value < p->lower)
        p->value = p->initval = p->lower;
      else if (p->value > p->upper)
        p->value = p->initval = p->upper;
      ++i;
      continue;
    }
    char msg[96];
    std::snprintf(msg, sizeof msg, "Parameter %s is never used and is being eliminated.\r\n",
                  p->name);
    notice(nullptr, msg);
    for (int32_t j = i; j + 1 < nparm; ++j) {
      parms[j] = parms[j + 1];
      parms[j]->index = static_cast<int16_t>(j);
    }
    --nparm;
    for (int32_t k = 0; k < nsweep; ++k) {
      if (sweeps[k].parm != p) continue;
      for (int32_t j = k; j + 1 < nsweep; ++j) sweeps[j] = sweeps[j + 1];
      --nsweep;
      break;
    }
  }
  if (nparm == 0) comperrl(nullptr, "You must use some parameters.");
  if (nvar == 0) {
    minimize = 1;
    nobs = nparm;
    if (plotfirst) {
      notice(nullptr, "Cannot do plots with function minimization type analysis.");
      freeplots();
    }
  } else {
    minimize = 0;
  }
  plotchecks();
}

}  // namespace

}  // namespace vexor
