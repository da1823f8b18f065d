// PLOT, RPLOT, NPLOT and SPLOT statements.  They record plot requests (axes,
// titles, labels, drawing options) for a drawing front end; the checks after
// the last statement complete and validate them.
#include <cctype>
#include <cstring>

#include "compiler/statements.h"

namespace vexor {

PlotRequest* plotfirst = nullptr;
PlotRequest* plotlast = nullptr;
int32_t nplotiter = 0;
int32_t nplotvalues = 0;

namespace {

bool isresidualword(const Token* t) {
  if (t->kind != TK_NAME || !t->text) return false;
  const char* w = "RESIDUAL";
  const char* p = t->text;
  for (; *p && *w; ++p, ++w)
    if (std::toupper(static_cast<unsigned char>(*p)) != *w) return false;
  return *p == '\0' && *w == '\0';
}

// '=' after TITLE, XLABEL, YLABEL and DOMAIN.
bool needeq(const char* msg) {
  Token* t = gettok();
  if (t->kind == TK_ASSIGN) {
    droptok(t);
    return true;
  }
  syntaxfail(t, msg);
  return false;
}

bool text(char* field, const char* msg) {
  Token* t = gettok();
  if (t->kind != TK_STRING) {
    syntaxfail(t, msg);
    return false;
  }
  std::snprintf(field, PLOTTEXT, "%s", t->text);
  droptok(t);
  return true;
}

// XVAR [=] name and its three companions.
bool axis(Symbol** field, const char* msg) {
  skipeq();
  Token* t = gettok();
  if (t->kind != TK_NAME) {
    syntaxfail(t, msg);
    return false;
  }
  Symbol* s = symref(t->text);
  if (s->kind == SYM_PARAM) comperr(t, "A parameter may not be used as a plot variable");
  *field = s;
  droptok(t);
  return true;
}

// Parses the option list; false when the statement was abandoned.
bool options(PlotRequest* r) {
  Token* t = gettok();
  if (t->kind == TK_COMMA) {
    droptok(t);
    t = gettok();
  }
  for (;;) {
    if (t->kind == TK_SEMI) {
      ungettok(t);
      return true;
    }
    uint8_t code = 0;
    if (t->kind == TK_KEYWORD)
      code = t->keyword;
    else if (isresidualword(t))
      code = KW_RESIDUAL;
    switch (code) {
      case KW_TITLE:
        droptok(t);
        if (!needeq("Missing equal sign after TITLE")) return false;
        if (!text(r->title, "Syntax error.  Title string must be in quotes.")) return false;
        break;
      case KW_XLABEL:
        droptok(t);
        if (!needeq("Missing equal sign after XLABEL")) return false;
        if (!text(r->xlabel, "Syntax error.  Label string must be in quotes.")) return false;
        break;
      case KW_YLABEL:
        droptok(t);
        if (!needeq("Missing equal sign after YLABEL")) return false;
        if (!text(r->ylabel, "Syntax error.  Label string must be in quotes.")) return false;
        break;
      case KW_XVAR:
        droptok(t);
        if (!axis(&r->xvar, "Syntax error: variable name must follow XVAR")) return false;
        break;
      case KW_XVAR2:
        droptok(t);
        if (!axis(&r->xvar2, "Syntax error: variable name must follow XVAR2")) return false;
        break;
      case KW_YVAR:
        droptok(t);
        if (!axis(&r->yvar, "Syntax error: variable name must follow YVAR")) return false;
        break;
      case KW_YVAR2:
        droptok(t);
        if (!axis(&r->yvar2, "Syntax error: variable name must follow YVAR2")) return false;
        break;
      case KW_DOMAIN: {
        Token* dt = t;
        if (!needeq("Missing equal sign after DOMAIN")) {
          droptok(dt);
          return false;
        }
        double lo = 0, hi = 0;
        signednum(&lo, 1);
        optcomma();
        signednum(&hi, 1);
        r->domainlo = lo;
        r->domainhi = hi;
        r->flags |= PF_DOMAIN;
        if (lo >= hi) comperr(dt, "Invalid domain");
        droptok(dt);
        break;
      }
      case KW_GRID: r->flags |= PF_GRID; droptok(t); break;
      case KW_NOGRID: r->flags &= static_cast<uint8_t>(~PF_GRID); droptok(t); break;
      case KW_RESIDUAL: r->flags |= PF_RESIDUAL; droptok(t); break;
      case KW_ITERATIONS: r->flags |= PF_ITERATIONS; droptok(t); break;
      case KW_PRINT: r->flags |= PF_PRINT; droptok(t); break;
      case KW_NOPAUSE: r->flags |= PF_NOPAUSE; droptok(t); break;
      case KW_NOTITLE: r->flags |= PF_NOTITLE; droptok(t); break;
      case KW_VALUES: r->flags |= PF_VALUES; droptok(t); break;
      case KW_NOXLABEL: r->flags2 |= PF2_NOXLABEL; droptok(t); break;
      case KW_NOYLABEL: r->flags2 |= PF2_NOYLABEL; droptok(t); break;
      case KW_CONNECT: r->flags2 |= PF2_CONNECT; droptok(t); break;
      case KW_CONNECT2: r->flags2 |= PF2_CONNECT2; droptok(t); break;
      case KW_NOMARK: r->flags2 |= PF2_NOMARK; droptok(t); break;
      case KW_NOMARK2: r->flags2 |= PF2_NOMARK2; droptok(t); break;
      default: {
        // The option list ends here; the rest of the statement is compiled
        // as further statements.
        comperrf(t, "Invalid item in plot option list: %s", t->text ? t->text : "");
        if (t->kind == TK_EOF) ungettok(t); else droptok(t);
        return true;
      }
    }
    t = gettok();
    if (t->kind == TK_COMMA) {
      droptok(t);
      t = gettok();
    }
  }
}

// Copies value into a text field of PLOTTEXT characters, cut if longer.
void settext(char* field, const char* value) {
  std::size_t n = std::strlen(value);
  if (n > PLOTTEXT - 1) n = PLOTTEXT - 1;
  std::memcpy(field, value, n);
  field[n] = '\0';
}

}  // namespace

void freeplots() {
  PlotRequest* r = plotfirst;
  while (r) {
    PlotRequest* next = r->next;
    memfree(r);
    r = next;
  }
  plotfirst = plotlast = nullptr;
  nplotiter = 0;
  nplotvalues = 0;
}

void stmtplot(Token* tok, uint8_t kind) {
  auto* r = static_cast<PlotRequest*>(memcalloc(sizeof(PlotRequest), "plot"));
  r->kind = kind;
  if (kind != PLOT_NPLOT) r->flags = PF_GRID;
  if (plotlast)
    plotlast->next = r;
  else
    plotfirst = r;
  plotlast = r;
  if (options(r)) {
    if (r->kind == PLOT_PLOT && r->xvar && r->xvar->kind != SYM_INPUT) {
      char msg[96];
      std::snprintf(msg, sizeof msg, "%s is not an input variable. Scatter plot will be generated.",
                    r->xvar->name);
      notice(tok->line, msg);
      r->kind = PLOT_SPLOT;
    }
    needsemi(tok);
  }
  freetok(tok);
}

// Completes and validates every request, after the last statement.
void plotchecks() {
  int nin = 0, nwk = 0;
  Symbol* lastin = nullptr;
  Symbol* lastwk = nullptr;
  for (int32_t i = 0; i < nvar; ++i) {
    Symbol* s = invars[i];
    if (s != depvar && (s->flags & SYMF_INMODEL)) {
      ++nin;
      lastin = s;
    }
  }
  for (int32_t i = 0; i < nwork; ++i) {
    Symbol* s = workvars[i];
    if (s->flags & SYMF_INMODEL) {
      ++nwk;
      lastwk = s;
    }
  }
  for (PlotRequest* r = plotfirst; r; r = r->next) {
    if (r->kind == PLOT_PLOT && !depvar) {
      notice(nullptr, "No dependent variable in function, so PLOT statement converted to RPLOT.");
      r->kind = PLOT_RPLOT;
      r->yvar = nullptr;
    }
    if ((r->kind == PLOT_PLOT || r->kind == PLOT_SPLOT) && !r->yvar) r->yvar = depvar;
    bool skip = false;
    switch (r->kind) {
      case PLOT_PLOT:
        if (nin > 1) {
          comperrl(nullptr, "Function has more than one independent variable. Cannot plot.");
          comperrl(nullptr, "You may be able to use SPLOT statement rather than PLOT.");
          skip = true;
          break;
        }
        if (!r->xvar && nin == 1) r->xvar = lastin;
        if (nin == 0 && nwk == 1) {
          notice(nullptr, "Function uses computed variables.");
          notice(nullptr, "Converting PLOT to SPLOT with CONNECT2 and NOMARK2 options.");
          r->kind = PLOT_SPLOT;
          r->yvar = depvar;
          r->yvar2 = sympredicted;
          if (!r->xvar) r->xvar = lastwk;
          r->flags2 |= PF2_CONNECT2 | PF2_NOMARK2;
          r->xvar2 = r->xvar;
        }
        break;
      case PLOT_SPLOT:
        if (!r->xvar && nin == 1) r->xvar = lastin;
        break;
      case PLOT_RPLOT:
        if (!r->xvar) r->xvar = nin == 1 ? lastin : depvar;
        break;
      default:
        break;
    }
    if (skip) continue;
    if (r->kind != PLOT_NPLOT && !r->xvar) {
      comperrl(nullptr, "You must specify the independent variable for plot");
      continue;
    }
    if (!r->title[0] && !(r->flags & PF_NOTITLE)) {
      if (r->kind == PLOT_PLOT || r->kind == PLOT_SPLOT)
        settext(r->title, title);
      else if (r->kind == PLOT_RPLOT)
        settext(r->title, "Plot of Residuals");
      else
        settext(r->title, "Normal probability plot of residuals");
    }
    if (!r->xlabel[0] && !(r->flags2 & PF2_NOXLABEL)) {
      if (r->kind == PLOT_NPLOT)
        settext(r->xlabel, "Expected residuals");
      else if (r->xvar)
        settext(r->xlabel, r->xvar->name);
    }
    if (!r->ylabel[0] && !(r->flags2 & PF2_NOYLABEL)) {
      if (r->kind == PLOT_PLOT || r->kind == PLOT_SPLOT) {
        if (r->yvar) settext(r->ylabel, r->yvar->name);
      } else if (r->kind == PLOT_RPLOT) {
        settext(r->ylabel, "Residual");
      } else {
        settext(r->ylabel, "Actual residuals");
      }
    }
    if (r->xvar && r->xvar == r->yvar && r->kind != PLOT_NPLOT) {
      char msg[128];
      std::snprintf(msg, sizeof msg, "The same variable (%s) is specified for plot X and Y axes.",
                    r->xvar->name);
      comperrl(nullptr, msg);
    }
    if (r->yvar2 && !r->xvar2) r->xvar2 = r->xvar;
    if (r->flags & PF_ITERATIONS) ++nplotiter;
    if (r->flags & PF_VALUES) ++nplotvalues;
  }
}

}  // namespace vexor
