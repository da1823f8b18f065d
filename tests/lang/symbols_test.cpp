// The symbol table and its kind lists.
#include <string>

#include "langtest.h"

namespace vexor::test {
namespace {

class Symbols : public FrontEnd {
 protected:
  void SetUp() override {
    FrontEnd::SetUp();
    srclist = 0;
    nvar = nparm = nwork = 0;
  }
  // A name token as the lexer makes it, on line 1 of `text`.
  Token* name(const char* text) {
    std::string src = std::string(text) + ";\n";
    srcset(src.c_str());
    return gettok();
  }
};

TEST_F(Symbols, NewSymbolsGoToTheirKindLists) {
  Symbol* x = symnew("x", SYM_INPUT);
  Symbol* y = symnew("y", SYM_INPUT);
  Symbol* w = symnew("w", SYM_WORK);
  Symbol* c = symnew("c", SYM_CONST);
  EXPECT_EQ(nvar, 2);
  EXPECT_EQ(invars[0], x);
  EXPECT_EQ(invars[1], y);
  EXPECT_EQ(y->index, 1);
  EXPECT_EQ(nwork, 1);
  EXPECT_EQ(workvars[0], w);
  EXPECT_EQ(c->index, 0);
  EXPECT_EQ(c->kind, SYM_CONST);
  EXPECT_EQ(symlist, c);  // newest first
  EXPECT_STREQ(memtag(c), "vd");
}

TEST_F(Symbols, NamesCompareWithoutCase) {
  Symbol* s = symnew("Alpha", SYM_WORK);
  EXPECT_EQ(symfind("ALPHA"), s);
  EXPECT_EQ(symfind("alpha"), s);
  EXPECT_EQ(symfind("alph"), nullptr);
  EXPECT_STREQ(s->name, "Alpha");
}

TEST_F(Symbols, ParmnewSetsUnboundedLimits) {
  Symbol* p = parmnew("a");
  EXPECT_EQ(p->kind, SYM_PARAM);
  EXPECT_EQ(p->lower, -1e50);
  EXPECT_EQ(p->upper, 1e50);
  EXPECT_EQ(p->constrained, 0);
  EXPECT_EQ(nparm, 0);  // the PARAMETERS statement enters it in parms
}

TEST_F(Symbols, VariableThenDoubleOfTheSameNameIsReported) {
  Token* x = name("x");
  Symbol* sx = symdeclare(x, SYM_INPUT);
  Token* big = name("X");
  Symbol* again = symdeclare(big, SYM_WORK);
  EXPECT_EQ(again, sx);
  EXPECT_EQ(ncomperr, 1);
  EXPECT_EQ(listing(), "     1: X;\r\nError: Variable defined more than once: X\r\n");
  EXPECT_EQ(nwork, 0);
}

TEST_F(Symbols, ParameterDeclaredTwice) {
  Token* a = name("a");
  Symbol* s = parmdeclare(a);
  Symbol* t = parmdeclare(name("A"));
  EXPECT_EQ(s, t);
  EXPECT_EQ(nparm, 2);  // the known record is entered all the same
  EXPECT_EQ(listing(), "     1: A;\r\nError: Parameter defined more than once: A\r\n");
}

TEST_F(Symbols, BuiltinsNeedNoDeclaration) {
  symbuiltins();
  EXPECT_EQ(symref("obs"), symobs);
  EXPECT_EQ(symref("PREDICTED"), sympredicted);
  EXPECT_EQ(symref("residual"), symresidual);
  EXPECT_EQ(ncomperr, 0);
  EXPECT_EQ(workvars[0], sympredicted);
  EXPECT_EQ(workvars[1], symresidual);
  EXPECT_EQ(workvars[2], symobs);
  EXPECT_STREQ(sympredicted->name, "Predicted");
  EXPECT_STREQ(symresidual->name, "Residual");
  EXPECT_STREQ(symobs->name, "Obs");
}

TEST_F(Symbols, FirstDoubleIsWorkVariableThree) {
  symbuiltins();
  Symbol* d = symdeclare(name("d"), SYM_WORK);
  EXPECT_EQ(d->index, 3);
  EXPECT_EQ(workvars[3], d);
  EXPECT_EQ(nwork, 4);
}

TEST_F(Symbols, TheParameterAfter2000IsReportedAndLeftOut) {
  char n[16];
  for (int i = 0; i < 2000; ++i) {
    std::snprintf(n, sizeof n, "p%d", i);
    parmenter(parmnew(n), nullptr);
  }
  EXPECT_EQ(nparm, 2000);
  EXPECT_EQ(ncomperr, 0);
  Symbol* extra = parmdeclare(name("extra"));
  EXPECT_EQ(nparm, 2000);
  EXPECT_NE(parms[1999], extra);
  EXPECT_EQ(extra->kind, SYM_PARAM);
  EXPECT_EQ(ncomperr, 1);
  EXPECT_EQ(listing(), "     1: extra;\r\nError: VEXOR can only handle 2000 parameters.\r\n");
}

TEST_F(Symbols, TheInputVariableAfter2000IsReportedWithoutALine) {
  char n[16];
  for (int i = 0; i < 2000; ++i) {
    std::snprintf(n, sizeof n, "x%d", i);
    symnew(n, SYM_INPUT);
  }
  EXPECT_EQ(ncomperr, 0);
  srcset("here;\n");
  Token* t = gettok();  // a current line exists, yet none is shown
  (void)t;
  Symbol* s = symnew("last", SYM_INPUT);
  EXPECT_EQ(nvar, 2000);
  EXPECT_EQ(s->kind, SYM_INPUT);
  EXPECT_EQ(symfind("last"), s);
  EXPECT_EQ(listing(), "Error: VEXOR can handle only 2000 input variables\r\n");
}

TEST_F(Symbols, TheWorkVariableAfter1000IsReported) {
  symbuiltins();
  char n[16];
  for (int i = 3; i < 1000; ++i) {
    std::snprintf(n, sizeof n, "w%d", i);
    symnew(n, SYM_WORK);
  }
  EXPECT_EQ(nwork, 1000);
  EXPECT_EQ(ncomperr, 0);
  symnew("more", SYM_WORK);
  EXPECT_EQ(nwork, 1000);
  EXPECT_EQ(listing(), "Error: VEXOR can only handle 1000 work variables\r\n");
}

TEST_F(Symbols, AnUndeclaredNameIsReportedOnce) {
  srcset("q + q;\n");
  Token* t = gettok();
  Symbol* a = symref(t->text);
  Symbol* b = symref("Q");
  EXPECT_EQ(a, b);
  EXPECT_EQ(a->kind, SYM_UNDEF);
  EXPECT_EQ(ncomperr, 1);
  EXPECT_EQ(listing(), "     1: q + q;\r\nError: Undefined variable name: q\r\n");
}

TEST_F(Symbols, SymclearFreesEverything) {
  long before = memlivecount();
  symbuiltins();
  Symbol* a = symnew("arr", SYM_WORK);
  a->elems = static_cast<double*>(memcalloc(8 * sizeof(double), "ary"));
  a->initelems = static_cast<double*>(memcalloc(2 * sizeof(double), "aryinit"));
  depvar = a;
  symclear();
  EXPECT_EQ(memlivecount(), before);
  EXPECT_EQ(symlist, nullptr);
  EXPECT_EQ(depvar, nullptr);
  EXPECT_EQ(symfind("arr"), nullptr);
}

TEST_F(Symbols, LongNamesAreCutToTheRecord) {
  std::string longname(100, 'n');
  Symbol* s = symnew(longname.c_str(), SYM_WORK);
  EXPECT_EQ(std::string(s->name), std::string(35, 'n'));
}

}  // namespace
}  // namespace vexor::test
