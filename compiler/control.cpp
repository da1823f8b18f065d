// Control-flow statements: IF/ELSE, WHILE, FOR, DO ... WHILE, BREAK,
// CONTINUE and STOP, compiled into OP_JUMPF/OP_JUMP with forward jumps
// patched once their target (the next free slot) is known.
//
// BREAK and CONTINUE jumps of one loop level are chained through their
// operand2 until the loop ends and patchchain stores the target in each.
// A loop statement raises loopdepth first; at depth 30 it reports
// "Statements are nested too deeply" and gives up without compiling its body
// and without lowering the depth again.  FOR never lowers the depth when it
// ends: every FOR keeps its level for the rest of the compilation, so thirty
// FOR statements in one program exceed the limit and a BREAK after a FOR loop
// is accepted.  That is this language's rule, kept on purpose.
//
// A consequence: in "while (c) { for (...) ...; break; }" the inner FOR has
// left the depth one level up, so the BREAK is chained at the FOR's level,
// not at the WHILE's.  Every jump chained while a loop's body was compiled
// belongs to that loop, though: the inner loops have patched and emptied
// their own chains when they ended.  So a loop, when it ends, patches the
// chains of every level from its own up to the current depth (at most 29)
// and empties each one.
#include "compiler/statements.h"

namespace vexor {

namespace {

constexpr int MAXDEPTH = 30;

struct LoopLabels {
  OpInstr* breaks;
  OpInstr* continues;
};
LoopLabels looplabels[MAXDEPTH];


// Sets operand1 of every jump on the chain to the next free slot.
void patchchain(OpInstr* head) {
  while (head) {
    OpInstr* next = static_cast<OpInstr*>(head->operand2);
    head->operand1 = emitpos;
    head = next;
  }
}

// The highest level whose chains a loop ending now may hold.
int32_t toplevel() { return loopdepth < MAXDEPTH - 1 ? loopdepth : MAXDEPTH - 1; }

// Patches and empties the CONTINUE chains of levels d and up.
void patchcontinues(int32_t d) {
  for (int32_t k = d, top = toplevel(); k <= top; ++k) {
    patchchain(looplabels[k].continues);
    looplabels[k].continues = nullptr;
  }
}

// Patches and empties the BREAK chains of levels d and up.
void patchbreaks(int32_t d) {
  for (int32_t k = d, top = toplevel(); k <= top; ++k) {
    patchchain(looplabels[k].breaks);
    looplabels[k].breaks = nullptr;
  }
}

// Raises the loop depth; false (with the message) at the limit.
bool enterloop(const Token* stmttok) {
  ++loopdepth;
  if (loopdepth >= MAXDEPTH) {
    comperr(stmttok, "Statements are nested too deeply");
    return false;
  }
  looplabels[loopdepth].breaks = nullptr;
  looplabels[loopdepth].continues = nullptr;
  return true;
}

// The '(' that must open a WHILE condition is parsed with the condition.
// `line` receives the line of the '(', where the condition begins.
bool needlparen(Token* stmttok, SourceLine** line = nullptr) {
  Token* t = gettok();
  if (t->kind != TK_LPAREN) {
    comperr(t, "Missing left parenthesis");
    if (t->kind == TK_EOF) ungettok(t); else droptok(t);
    droptok(stmttok);
    skipstmt();
    return false;
  }
  if (line) *line = t->line;
  ungettok(t);
  return true;
}

}  // namespace

void resetloops() {
  for (LoopLabels& l : looplabels) l = LoopLabels{nullptr, nullptr};
}

// WHILE ( condition ) statement
void stmtwhile(Token* tok) {
  if (!needlparen(tok)) return;
  ExprNode* cond = parseexpr(1, 0);
  if (!cond) {
    droptok(tok);
    skipstmt();
    return;
  }
  if (!enterloop(tok)) {
    freetree(cond);
    droptok(tok);
    return;
  }
  const int32_t d = loopdepth;  // a failed inner loop leaves loopdepth raised
  OpInstr* top = stmtline(tok);
  droptok(tok);
  OpInstr* jf = emitop(OP_JUMPF, cond, nullptr);
  stmt();
  patchcontinues(d);
  emitop(OP_JUMP, top, nullptr);
  jf->operand2 = emitpos;
  patchbreaks(d);
  --loopdepth;
}

// FOR ( init ; condition ; increment ) statement
void stmtfor(Token* tok) {
  Token* t = gettok();
  if (t->kind != TK_LPAREN) {
    comperr(t, "Missing left parenthesis");
    if (t->kind == TK_EOF) ungettok(t); else droptok(t);
    droptok(tok);
    skipstmt();
    return;
  }
  droptok(t);
  ExprNode* init = nullptr;
  ExprNode* cond = nullptr;
  ExprNode* incr = nullptr;
  auto fail = [&] {
    if (init) freetree(init);
    if (cond) freetree(cond);
    if (incr) freetree(incr);
    droptok(tok);
    skipstmt();
  };
  auto need = [&](uint8_t kind, const char* msg) {
    Token* s = gettok();
    if (s->kind == kind) {
      droptok(s);
      return true;
    }
    comperr(s, msg);
    if (s->kind == TK_EOF) ungettok(s); else droptok(s);
    return false;
  };
  if (!(init = parseexpr(1, 0)) || !need(TK_SEMI, "Syntax error")) return fail();
  if (!(cond = parseexpr(1, 0))) return fail();
  if (cond->kind == EN_END) {
    // for (;;): an empty condition is always true.
    cond->kind = EN_CONSTANT;
    cond->value = 1.0;
  }
  if (!need(TK_SEMI, "Syntax error")) return fail();
  if (!(incr = parseexpr(1, 0)) || !need(TK_RPAREN, "Missing right parenthesis")) return fail();
  if (!enterloop(tok)) {
    freetree(init);
    freetree(cond);
    freetree(incr);
    droptok(tok);
    return;
  }
  const int32_t d = loopdepth;
  stmtline(tok);
  emitop(OP_EVAL, init, nullptr);
  OpInstr* top = stmtline(tok);
  OpInstr* jf = emitop(OP_JUMPF, cond, nullptr);
  stmt();
  patchcontinues(d);
  stmtline(tok);
  droptok(tok);
  emitop(OP_EVAL, incr, nullptr);
  emitop(OP_JUMP, top, nullptr);
  jf->operand2 = emitpos;
  patchbreaks(d);
  // The depth is deliberately not lowered.
}

// DO statement WHILE ( condition )
void stmtdo(Token* tok) {
  if (!enterloop(tok)) {
    droptok(tok);
    return;
  }
  const int32_t d = loopdepth;
  OpInstr* top = stmtline(tok);
  stmt();
  Token* w = gettok();
  if (!(w->kind == TK_KEYWORD && w->keyword == KW_WHILE)) {
    comperr(w, "Expected keyword WHILE");
    if (w->kind == TK_EOF) ungettok(w); else droptok(w);
    droptok(tok);
    skipstmt();
    return;
  }
  SourceLine* condline = nullptr;
  if (!needlparen(w, &condline)) {
    droptok(tok);
    return;
  }
  ExprNode* cond = parseexpr(1, 0);
  if (!cond) {
    droptok(w);
    droptok(tok);
    skipstmt();
    return;
  }
  patchcontinues(d);
  // The line marker of the condition carries the condition's own line,
  // where its run-time errors are reported.
  emitop(OP_LINE, condline, nullptr);
  droptok(w);
  droptok(tok);
  OpInstr* jf = emitop(OP_JUMPF, cond, nullptr);
  emitop(OP_JUMP, top, nullptr);
  jf->operand2 = emitpos;
  patchbreaks(d);
  --loopdepth;
}

// BREAK ; and CONTINUE ;
void stmtbreak(Token* tok, int iscontinue) {
  if (loopdepth == 0) {
    comperr(tok, iscontinue ? "CONTINUE statement is not in range of WHILE or FOR statment."
                            : "BREAK statement is not in range of WHILE or FOR statment.");
  } else if (loopdepth < MAXDEPTH) {
    OpInstr*& head = iscontinue ? looplabels[loopdepth].continues : looplabels[loopdepth].breaks;
    head = emitop(OP_JUMP, nullptr, head);
  }
  needsemi(tok);
  droptok(tok);
}

// STOP ;
void stmtstop(Token* tok) {
  stmtline(tok);
  emitop(OP_STOP, nullptr, nullptr);
  needsemi(tok);
  droptok(tok);
}

}  // namespace vexor
