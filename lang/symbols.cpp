// The symbol table: one Symbol record per name, on one list (newest first),
// with the kind lists invars, parms and workvars giving each record of those
// kinds its index.  Names compare without regard to case.
#include <cstdio>
#include <cstring>

#include "lang/lang.h"

namespace vexor {

Symbol* symlist = nullptr;
Symbol* invars[MAXINVARS];
int32_t nvar = 0;
Symbol* parms[MAXPARMS];
int32_t nparm = 0;
Symbol* workvars[MAXWORKVARS];
int32_t nwork = 0;
Symbol* depvar = nullptr;
Symbol* sympredicted = nullptr;
Symbol* symresidual = nullptr;
Symbol* symobs = nullptr;

namespace {

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

bool samename(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b)
    if (upper(*a) != upper(*b)) return false;
  return *a == '\0' && *b == '\0';
}

Symbol* newrecord(const char* name, uint8_t kind) {
  auto* s = static_cast<Symbol*>(memcalloc(sizeof(Symbol), "vd"));
  std::snprintf(s->name, sizeof s->name, "%s", name ? name : "");
  s->kind = kind;
  s->next = symlist;
  symlist = s;
  return s;
}

void report(const SourceLine* line, const char* format, const char* name) {
  char msg[128];
  std::snprintf(msg, sizeof msg, format, name);
  comperrl(line, msg);
}

}  // namespace

Symbol* symfind(const char* name) {
  if (!name) return nullptr;
  for (Symbol* s = symlist; s; s = s->next)
    if (samename(s->name, name)) return s;
  return nullptr;
}

// symnew: a new record at the head of the list; input and work variables
// also go to their kind list.  A full list is a compile error without a line
// and leaves the record outside the list.  The messages differ in word order
// and punctuation; they are kept as the program has always written them.
Symbol* symnew(const char* name, uint8_t kind) {
  Symbol* s = newrecord(name, kind);
  char msg[80];
  if (kind == SYM_INPUT) {
    if (nvar < MAXINVARS) {
      s->index = static_cast<int16_t>(nvar);
      invars[nvar++] = s;
    } else {
      std::snprintf(msg, sizeof msg, "VEXOR can handle only %d input variables", MAXINVARS);
      comperrl(nullptr, msg);
    }
  } else if (kind == SYM_WORK) {
    if (nwork < MAXWORKVARS) {
      s->index = static_cast<int16_t>(nwork);
      workvars[nwork++] = s;
    } else {
      std::snprintf(msg, sizeof msg, "VEXOR can only handle %d work variables", MAXWORKVARS);
      comperrl(nullptr, msg);
    }
  }
  return s;
}

// symref: a use of a name.  An unknown name is reported once: the SYM_UNDEF
// record created here is found by every later use.
Symbol* symref(const char* name) {
  Symbol* s = symfind(name);
  if (s) return s;
  report(curline, "Undefined variable name: %s", name ? name : "");
  return symnew(name, SYM_UNDEF);
}

Symbol* parmnew(const char* name) {
  Symbol* s = newrecord(name, SYM_PARAM);
  s->lower = -1e50;
  s->upper = 1e50;
  s->constrained = 0;
  return s;
}

int parmenter(Symbol* sym, const SourceLine* line) {
  if (nparm >= MAXPARMS) {
    char msg[80];
    std::snprintf(msg, sizeof msg, "VEXOR can only handle %d parameters.", MAXPARMS);
    comperrl(line, msg);
    return 0;
  }
  sym->index = static_cast<int16_t>(nparm);
  parms[nparm++] = sym;
  return 1;
}

Symbol* symdeclare(const Token* name, uint8_t kind) {
  const char* text = name && name->text ? name->text : "";
  Symbol* s = symfind(text);
  if (s) {
    report(name ? name->line : nullptr, "Variable defined more than once: %s", text);
    return s;
  }
  return symnew(text, kind);
}

Symbol* parmdeclare(const Token* name) {
  const char* text = name && name->text ? name->text : "";
  const SourceLine* line = name ? name->line : nullptr;
  Symbol* s = symfind(text);
  if (s)
    report(line, "Parameter defined more than once: %s", text);
  else
    s = parmnew(text);
  parmenter(s, line);
  return s;
}

// symclear: frees every record with its element storage.  The kind lists
// and the built-in references are emptied too, so that nothing refers to a
// freed record.
void symclear() {
  while (symlist) {
    Symbol* next = symlist->next;
    if (symlist->elems) memfree(symlist->elems);
    if (symlist->initelems) memfree(symlist->initelems);
    memfree(symlist);
    symlist = next;
  }
  depvar = nullptr;
  nvar = nparm = nwork = 0;
  sympredicted = symresidual = symobs = nullptr;
}

void symbuiltins() {
  sympredicted = symnew("Predicted", SYM_WORK);
  symresidual = symnew("Residual", SYM_WORK);
  symobs = symnew("Obs", SYM_WORK);
}

}  // namespace vexor
