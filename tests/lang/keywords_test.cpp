// The keyword table and the token kinds it produces.
#include <string>

#include "langtest.h"

namespace vexor::test {
namespace {

using Keywords = FrontEnd;

// Looks one word up as the lexer does.
Token word(const char* text) {
  Token t{};
  t.kind = TK_NAME;
  t.text = const_cast<char*>(text);
  kwlookup(&t);
  return t;
}

TEST_F(Keywords, EveryWordHasItsCode) {
  struct {
    const char* word;
    int code;
  } table[] = {
      {"angletype", 35}, {"break", 2},      {"confidence", 38}, {"constant", 1},
      {"connect", 51},   {"connect2", 52},  {"constrain", 32},  {"continue", 16},
      {"covariance", 11}, {"correlate", 48}, {"data", 22},      {"dataskip", 55},
      {"datacount", 56}, {"do", 17},        {"domain", 30},     {"double", 3},
      {"else", 4},       {"for", 7},        {"function", 23},   {"grid", 24},
      {"if", 8},         {"iteration", 26}, {"iterations", 26}, {"model", 23},
      {"noecho", 37},    {"nogrid", 40},    {"nomark", 53},     {"nomark2", 54},
      {"nopause", 29},   {"notitle", 31},   {"noxlabel", 43},   {"noylabel", 44},
      {"nplot", 21},     {"output", 5},     {"parameter", 10},  {"parameters", 10},
      {"plot", 19},      {"poutput", 6},    {"presolution", 27}, {"print", 28},
      {"rplot", 20},     {"splot", 47},     {"stop", 12},       {"sweep", 34},
      {"title", 18},     {"to", 9},         {"tolerance", 13},  {"values", 39},
      {"var", 14},       {"variable", 14},  {"variables", 14},  {"while", 15},
      {"width", 36},     {"xlabel", 41},    {"xvar", 45},       {"xvar2", 49},
      {"ylabel", 42},    {"yvar", 46},      {"yvar2", 50},
  };
  for (auto& e : table) {
    Token t = word(e.word);
    EXPECT_EQ(t.kind, TK_KEYWORD) << e.word;
    EXPECT_EQ(t.keyword, e.code) << e.word;
  }
}

TEST_F(Keywords, NamedCodesHaveTheirValues) {
  EXPECT_EQ(KW_VARIABLES, 14);
  EXPECT_EQ(KW_FUNCTION, 23);
  EXPECT_EQ(KW_RESIDUAL, 25);
  EXPECT_EQ(KW_DATACOUNT, 56);
  EXPECT_EQ(TK_NAME, 1);
  EXPECT_EQ(TK_STRING, 4);
  EXPECT_EQ(TK_SEMI, 6);
  EXPECT_EQ(TK_KEYWORD, 33);
  EXPECT_EQ(TK_COLON, 39);
}

TEST_F(Keywords, VariablesInAnyCaseAndVar) {
  for (const char* w : {"Variables", "VARIABLES", "var", "VaR", "variable"}) {
    Token t = word(w);
    EXPECT_EQ(t.kind, TK_KEYWORD) << w;
    EXPECT_EQ(t.keyword, KW_VARIABLES) << w;
  }
}

TEST_F(Keywords, ModelAndFunctionAreTheSameStatement) {
  EXPECT_EQ(word("model").keyword, KW_FUNCTION);
  EXPECT_EQ(word("FUNCTION").keyword, KW_FUNCTION);
}

TEST_F(Keywords, OtherNamesStayNames) {
  for (const char* w : {"residual", "x", "variablesx", "dat", "", "#include", "sin"}) {
    Token t = word(w);
    EXPECT_EQ(t.kind, TK_NAME) << w;
    EXPECT_EQ(t.keyword, 0) << w;
  }
}

TEST_F(Keywords, KeywordTokenKeepsItsSpelling) {
  source("Model;\n");
  Token* t = gettok();
  EXPECT_EQ(t->kind, TK_KEYWORD);
  EXPECT_EQ(t->keyword, KW_FUNCTION);
  EXPECT_STREQ(t->text, "Model");
}

TEST_F(Keywords, PowerThenAssign) {
  source("x ** = 2; x ** 2; x ^ 2;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_POW, TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_NAME,
                                       TK_POW, TK_NUMBER, TK_SEMI, TK_NAME, TK_POW, TK_NUMBER,
                                       TK_SEMI, TK_EOF}));
}

TEST_F(Keywords, LessGreaterIsTwoTokens) {
  source("a <> b;\n");
  EXPECT_EQ(kinds(),
            (std::vector<int>{TK_NAME, TK_LT, TK_GT, TK_NAME, TK_SEMI, TK_EOF}));
}

// "data" and "to" are reserved words, so a declaration, which needs a
// TK_NAME, cannot use them (the declaring statement reports "Syntax error").
TEST_F(Keywords, DataAndToAreReserved) {
  source("VARIABLES data, to;\n");
  std::vector<int> k;
  std::vector<int> codes;
  for (;;) {
    Token* t = gettok();
    k.push_back(t->kind);
    codes.push_back(t->keyword);
    bool end = t->kind == TK_EOF;
    freetok(t);
    if (end) break;
  }
  EXPECT_EQ(k, (std::vector<int>{TK_KEYWORD, TK_KEYWORD, TK_COMMA, TK_KEYWORD, TK_SEMI, TK_EOF}));
  EXPECT_EQ(codes[1], KW_DATA);
  EXPECT_EQ(codes[3], KW_TO);
}

// The same through the statement compiler.
TEST_F(Keywords, DeclaringDataOrToIsASyntaxError) {
  srclist = 0;
  for (const char* prog : {"VARIABLES data;\n", "DOUBLE to;\n"}) {
    lstclear();
    freetoks();
    freelines();
    symclear();
    srcset(prog);
    EXPECT_EQ(compile(), nullptr) << prog;
    EXPECT_NE(listing().find("Error: Syntax error\r\n"), std::string::npos) << listing();
  }
}

}  // namespace
}  // namespace vexor::test
