// Analysis option statements: they set engine-wide settings at compile time
// and emit no code.  The settings stay in force until the engine reset, so a
// program that does not set one inherits the previous program's value.
#include <cctype>
#include <cstring>

#include "compiler/statements.h"

namespace vexor {

namespace {

bool nocasecmp(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b)
    if (std::toupper(static_cast<unsigned char>(*a)) != std::toupper(static_cast<unsigned char>(*b)))
      return false;
  return *a == *b;
}

// A plain number token, or the message and skipstmt (null then).  The
// caller drops the token once it has checked the value, so that a value
// out of range is reported at the number's own line.
Token* number(const char* msg) {
  Token* t = gettok();
  if (t->kind != TK_NUMBER) {
    syntaxfail(t, msg);
    return nullptr;
  }
  return t;
}

void stmtiterations(Token* tok) {
  skipeq();
  Token* n = number("Syntax error: numeric value missing");
  if (!n) return;
  maxiter = truncint(n->value);
  if (maxiter < 2) {
    comperr(n, "The number of iterations must be at least 2");
    maxiter = 2;
  }
  droptok(n);
  needsemi(tok);
}

void stmttolerance(Token* tok) {
  skipeq();
  Token* n = number("Syntax error: numeric value missing");
  if (!n) return;
  const double v = n->value;
  if (v >= 1e-15 && v <= 0.1) {
    tolerance = v;
  } else {
    comperr(n, "TOLERANCE value must be in the range 1E-15 to 1E-1.\n");
    tolerance = 1e-10;
  }
  droptok(n);
  needsemi(tok);
}

void stmtconfidence(Token* tok) {
  skipeq();
  Token* t = gettok();
  if (t->kind != TK_NUMBER) {
    ungettok(t);
    conflevel = 0.9;
  } else {
    double x = t->value;
    if (x < 50 || x > 99.999) {
      comperr(t, "Value must be in the range 50 to 99.999");
      x = 90;
    }
    conflevel = x * 0.01;
    droptok(t);
  }
  needsemi(tok);
}

void stmtcorrelate(Token* tok) {
  Token* t = gettok();
  if (t->kind == TK_SEMI) {
    droptok(t);
    for (int32_t i = 0; i < nvar; ++i) corrvars[i] = invars[i];
    ncorr = nvar;
    return;
  }
  // Names, each followed by one optional comma; the first token that is
  // not a name ends the list (so a leading or a doubled comma ends it too).
  // A second CORRELATE adds to the list.
  while (t->kind == TK_NAME) {
    if (ncorr < MAXCORR) corrvars[ncorr++] = symref(t->text);
    droptok(t);
    optcomma();
    t = gettok();
  }
  ungettok(t);
  needsemi(tok);
  if (ncorr < 2) comperr(tok, "There must be at least 2 variables for correlation matrix");
}

void stmtangletype(Token* tok) {
  Token* t = gettok();
  if (t->kind != TK_NAME) {
    syntaxfail(t, "Syntax error");
    return;
  }
  if (nocasecmp(t->text, "DEGREES"))
    degrees = 1;
  else if (nocasecmp(t->text, "RADIANS"))
    degrees = 0;
  else
    comperr(t, "Angle type must be DEGREES or RADIANS");
  droptok(t);
  needsemi(tok);
}

void stmtpresolution(Token* tok) {
  skipeq();
  Token* t = number("Syntax numeric value missing");
  if (!t) return;
  int32_t n = truncint(t->value);
  if (n == 150)
    presolution = 1;
  else if (n == 300)
    presolution = 2;
  else {
    comperr(t, "The resolution value must be 150 or 300.");
    presolution = n;
  }
  droptok(t);
  needsemi(tok);
}

void stmtwidth(Token* tok) {
  skipeq();
  Token* t = number("Syntax numeric value missing");
  if (!t) return;
  plotwidth = t->value;
  droptok(t);
  needsemi(tok);
}

void stmttitle(Token* tok) {
  Token* t = gettok();
  if (t->kind != TK_STRING) {
    syntaxfail(t, "Syntax error.  Title string must be in quotes.");
    return;
  }
  std::snprintf(title, sizeof title, "%s", t->text);
  droptok(t);
  needsemi(tok);
}

bool ispseudo(const char* name) {
  return nocasecmp(name, "$OBS") || nocasecmp(name, "$PREDICTED") || nocasecmp(name, "$RESIDUAL");
}

// OUTPUT [TO] ["file"] name {, name} ;
void stmtoutput(Token* tok) {
  Token* t = gettok();
  if (t->kind == TK_KEYWORD && t->keyword == KW_TO) {
    droptok(t);
    t = gettok();
  }
  if (t->kind == TK_STRING) {
    srcpath(t->text, outfile, sizeof outfile);
    defext(outfile, "out", sizeof outfile);
    outmode = 1;
    droptok(t);
  } else {
    ungettok(t);
    outmode = -1;
  }
  for (;;) {
    t = gettok();
    if (t->kind != TK_NAME) {
      syntaxfail(t, "Syntax error");
      return;
    }
    // $OBS, $PREDICTED and $RESIDUAL name columns of their own and need no
    // declaration.
    Symbol* s = symfind(t->text);
    if (!s) s = ispseudo(t->text) ? symnew(t->text, SYM_UNDEF) : symref(t->text);
    if (s->kind == SYM_PARAM) comperr(t, "A parameter may not be used with OUTPUT");
    if (noutvars < MAXOUTVARS)
      outvars[noutvars++] = s;
    else
      comperrf(t, "VEXOR can only handle %d output variables", MAXOUTVARS);
    droptok(t);
    if (!listnext(tok, LIST_SEMI_KEPT)) return;
  }
}

// POUTPUT "file" ;
void stmtpoutput(Token* tok) {
  Token* t = gettok();
  if (t->kind != TK_STRING) {
    syntaxfail(t, "Syntax error.  File name must be in quotes.");
    return;
  }
  srcpath(t->text, parfile, sizeof parfile);
  // The default-extension step of this statement completes the output data
  // file's name, with "par", when that name has no extension yet; the
  // parameter file keeps its name as written.  This is the language's rule.
  if (outfile[0]) defext(outfile, "par", sizeof outfile);
  droptok(t);
  needsemi(tok);
}

}  // namespace

void stmtoption(Token* tok) {
  switch (tok->keyword) {
    case KW_ITERATIONS:
      stmtiterations(tok);
      break;
    case KW_TOLERANCE:
      stmttolerance(tok);
      break;
    case KW_CONFIDENCE:
      stmtconfidence(tok);
      break;
    case KW_COVARIANCE:
      covreq = -3;
      covprint = 1;
      needsemi(tok);
      break;
    case KW_CORRELATE:
      stmtcorrelate(tok);
      break;
    case KW_ANGLETYPE:
      stmtangletype(tok);
      break;
    case KW_PRESOLUTION:
      stmtpresolution(tok);
      break;
    case KW_WIDTH:
      stmtwidth(tok);
      break;
    case KW_NOECHO:
      echo = 0;
      needsemi(tok);
      break;
    case KW_TITLE:
      stmttitle(tok);
      break;
    case KW_OUTPUT:
      stmtoutput(tok);
      break;
    case KW_POUTPUT:
      stmtpoutput(tok);
      break;
    default:
      break;
  }
  freetok(tok);
}

}  // namespace vexor
