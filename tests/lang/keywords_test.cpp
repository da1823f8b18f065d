// The keyword table and the token kinds it produces.
#include <string>
#include <vector>

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
}

// Every token kind with its fixed code (3 and 5 are unused).
TEST_F(Keywords, EveryTokenKindHasItsCode) {
  const int table[][2] = {
      {TK_NAME, 1},       {TK_NUMBER, 2},     {TK_STRING, 4},     {TK_SEMI, 6},
      {TK_EOF, 7},        {TK_PLUS, 8},       {TK_MINUS, 9},      {TK_DIV, 10},
      {TK_POW, 11},       {TK_MOD, 12},       {TK_LPAREN, 13},    {TK_RPAREN, 14},
      {TK_LBRACE, 15},    {TK_RBRACE, 16},    {TK_MUL, 17},       {TK_AND, 18},
      {TK_OR, 19},        {TK_NE, 20},        {TK_NOT, 21},       {TK_GE, 22},
      {TK_GT, 23},        {TK_LE, 24},        {TK_LT, 25},        {TK_EQ, 26},
      {TK_ASSIGN, 27},    {TK_COMMA, 28},     {TK_ADDASSIGN, 29}, {TK_MULASSIGN, 30},
      {TK_DIVASSIGN, 31}, {TK_SUBASSIGN, 32}, {TK_KEYWORD, 33},   {TK_INC, 34},
      {TK_DEC, 35},       {TK_LBRACKET, 36},  {TK_RBRACKET, 37},  {TK_QUESTION, 38},
      {TK_COLON, 39},
  };
  ASSERT_EQ(sizeof table / sizeof table[0], 37u);
  for (const auto& k : table) EXPECT_EQ(k[0], k[1]);
  // And the characters that make them.
  source("x 1 \"s\" ; + - / ^ % ( ) { } * && || != ! >= > <= < == = , += *= /= -= if ++ -- [ ] ? :\n");
  std::vector<int> expect;
  for (const auto& k : table)
    if (k[1] != TK_EOF) expect.push_back(k[1]);
  expect.push_back(TK_EOF);
  EXPECT_EQ(kinds(), expect);
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

}  // namespace
}  // namespace vexor::test
