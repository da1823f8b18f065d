// The statement routines shared by the files of the statement compiler:
// the statement loop, the helpers for the parts of a statement, and one
// routine per statement family.  Used only inside this folder.
#pragma once

#include <cstdint>

#include "compiler/compiler.h"

namespace vexor {

// A number read as a count, dimension or size: truncated toward zero and
// clamped to the int32 range; not-a-number and the infinities give 0.
int32_t truncint(double v);
void stmtlist();
void stmt();
int needsemi(const Token* stmttok);
void skipeq();
void skipstmt();
// Parses a constant expression and returns its value ("constexpr" is a
// reserved word of C++, hence the trailing underscore).
double constexpr_();
int signednum(double* value, int required);
OpInstr* stmtline(const Token* tok);
// Formats a message and reports it as a compile error at the token's line.
void comperrf(const Token* tok, const char* format, ...);
// A token the statement routines are done with (null is allowed).
inline void droptok(Token* tok) {
  if (tok) freetok(tok);
}
// A syntax error at token t: the message at t's line, then t is dropped
// (an end of source is given back, so the statement loop still sees it)
// and the rest of the statement is skipped.
void syntaxfail(Token* t, const char* msg);
// Drops a following ',' if there is one.
void optcomma();
// The end of an item of a list statement (VARIABLES, DOUBLE, CONSTANT,
// OUTPUT): a ',' (dropped) means another item follows, and listnext returns
// true.  Otherwise the statement ends (false): a ';' is dropped, or given
// back with LIST_SEMI_KEPT (the statement loop then reads it as an empty
// statement); a keyword, with LIST_KEYWORD_ENDS, gives "Missing semicolon at
// end of statement" at the statement's line and begins the next statement;
// anything else gives "Syntax error" at its own line, is given back, and the
// rest of the statement is skipped.
enum : unsigned { LIST_SEMI_KEPT = 1, LIST_KEYWORD_ENDS = 2 };
bool listnext(const Token* stmttok, unsigned rules);
// The declaring statements (declarations.cpp), called by stmt() with the
// statement's token.
void declvariables(Token* stmttok);
void declparameters(Token* stmttok);
void decldouble(Token* stmttok, uint8_t kind);
void stmtconstrain(Token* stmttok);
void stmtsweep(Token* stmttok);
void stmtfunction(Token* stmttok);

// The statement families, called by stmt() with the statement's token.
void stmtwhile(Token* tok);
void stmtfor(Token* tok);
void stmtdo(Token* tok);
void stmtbreak(Token* tok, int iscontinue);
void stmtstop(Token* tok);
void stmtoption(Token* tok);
void stmtplot(Token* tok, uint8_t kind);
void plotchecks();
void stmtdata(Token* tok);
void stmtdataopt(Token* tok);
int datanum(const char** pos, double* value, long recno);
// 10^e for e >= 0, as std::pow(10, e) gives it (a table up to 10^22).
double powten(long e);
void resetloops();

}  // namespace vexor
