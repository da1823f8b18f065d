// The source store, the character reader and the tokenizer.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "kit/literals.h"
#include "langtest.h"

namespace vexor::test {
namespace {

using Lexer = FrontEnd;

// Scans one token and returns a copy of its kind, value and text.
struct Tok {
  int kind = 0;
  int keyword = 0;
  double value = 0;
  std::string text;
  int line = 0;
};

Tok next() {
  Token* t = gettok();
  Tok r;
  r.kind = t->kind;
  r.keyword = t->keyword;
  r.value = t->value;
  if (t->text) r.text = t->text;
  r.line = t->line ? t->line->number : 0;
  freetok(t);
  return r;
}

std::vector<std::string> linetexts() {
  std::vector<std::string> v;
  for (SourceLine* l = firstline; l; l = l->next) v.push_back(std::to_string(l->number) + ":" + l->text);
  return v;
}

// ---- srcread -------------------------------------------------------------

TEST_F(Lexer, SrcreadCutsAfterSemicolonAndLineFeed) {
  source("a;b\r\nc;");
  char buf[100];
  ASSERT_EQ(srcread(buf, 99), 1);
  EXPECT_STREQ(buf, "a;");
  ASSERT_EQ(srcread(buf, 99), 1);
  EXPECT_STREQ(buf, "b\n");  // the CR is dropped
  ASSERT_EQ(srcread(buf, 99), 1);
  EXPECT_STREQ(buf, "c;");
  EXPECT_EQ(srcread(buf, 99), 0);
  EXPECT_EQ(srcpieces, 4);
}

TEST_F(Lexer, SrcreadDropsTheRestOfAnOverlongPiece) {
  source("abcdefgh;xy;");
  char buf[5];
  ASSERT_EQ(srcread(buf, 4), 1);
  EXPECT_STREQ(buf, "abcd");
  ASSERT_EQ(srcread(buf, 4), 1);
  EXPECT_STREQ(buf, "xy;");
}

TEST_F(Lexer, SrcreadSkipsBlankPiecesButNotTabs) {
  source("  ;\n ; \t;");
  char buf[100];
  ASSERT_EQ(srcread(buf, 99), 1);
  EXPECT_STREQ(buf, " \t;");  // a tab is content
  EXPECT_EQ(srcread(buf, 99), 0);
}

TEST_F(Lexer, NoSourceTextReadsNothing) {
  source(nullptr);
  char buf[10];
  EXPECT_EQ(srcread(buf, 9), 0);
  EXPECT_EQ(next().kind, TK_EOF);
}

// ---- edge cases of the source store and the echo ------------------------

TEST_F(Lexer, TwoStatementsOnOneLineAreTwoNumberedLines) {
  source("x = 1; y = 2;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_NAME,
                                       TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_EOF}));
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:x = 1;", "2: y = 2;"}));
  EXPECT_EQ(listing(), "   1: x = 1;\r\n   2:  y = 2;\r\n");
}

TEST_F(Lexer, LastStatementWithoutSemicolonOrNewlineIsLost) {
  source("x = 1;\ny = 2");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_EOF}));
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:x = 1;"}));
}

TEST_F(Lexer, LastStatementWithANewlineIsRead) {
  source("x = 1;\ny = 2\n");
  EXPECT_EQ(kinds().size(), 8u);
}

TEST_F(Lexer, BlankAndSemicolonOnlyLinesAreNotNumbered) {
  source("x = 1;\n  ; ;\n\n\ny = 2;\n");
  // The blank pieces go with their semicolons: no token comes of them.
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_NAME,
                                       TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_EOF}));
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:x = 1;", "2:y = 2;"}));
  EXPECT_EQ(listing(), "   1: x = 1;\r\n   2: y = 2;\r\n");
}

TEST_F(Lexer, EmptyForClausesKeepTheirSemicolons) {
  source("for (;;) x;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_KEYWORD, TK_LPAREN, TK_SEMI, TK_SEMI, TK_RPAREN,
                                       TK_NAME, TK_SEMI, TK_EOF}));
  // "for (;" and ") x;" are the two lines; the lone ";" between them is none.
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:for (;", "2:) x;"}));
  source("for (i = 0;; i++) x;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_KEYWORD, TK_LPAREN, TK_NAME, TK_ASSIGN, TK_NUMBER,
                                       TK_SEMI, TK_SEMI, TK_NAME, TK_INC, TK_RPAREN, TK_NAME,
                                       TK_SEMI, TK_EOF}));
}

TEST_F(Lexer, BlankPieceSemicolonsCountOnlyInsideParentheses) {
  // Between statements a lone ";" piece is dropped ...
  source("if (c) x = 1;; else x = 2;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_KEYWORD, TK_LPAREN, TK_NAME, TK_RPAREN, TK_NAME,
                                       TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_KEYWORD, TK_NAME,
                                       TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_EOF}));
  // ... inside parentheses it is handed out, once for each ';' it held,
  // before the next line's characters and with the line before it.
  source("f(a;;;\n;b);\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_LPAREN, TK_NAME, TK_SEMI, TK_SEMI,
                                       TK_SEMI, TK_SEMI, TK_NAME, TK_RPAREN, TK_SEMI, TK_EOF}));
  // An unmatched ')' does not take the count below 0.
  source(")) (;;x;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_RPAREN, TK_RPAREN, TK_LPAREN, TK_SEMI, TK_SEMI,
                                       TK_NAME, TK_SEMI, TK_EOF}));
  EXPECT_EQ(lexparens, 1);
  source("x;;\n");
  EXPECT_EQ(lexparens, 0);  // the lexer reset starts the count again
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_SEMI, TK_EOF}));
}

TEST_F(Lexer, TrailingBlankPieceSemicolonsAreDropped) {
  source("x;;");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_SEMI, TK_EOF}));
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:x;"}));
  // Inside parentheses they still come, before the end.
  source("(x;;");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_LPAREN, TK_NAME, TK_SEMI, TK_SEMI, TK_EOF}));
}

TEST_F(Lexer, IndentedNoechoIsAnOrdinaryComment) {
  echo = 1;
  testing::internal::CaptureStdout();
  source(" // NOECHO\nx;\n");
  std::vector<int> k = kinds();
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(echo, 1);
  EXPECT_EQ(k, (std::vector<int>{TK_NAME, TK_SEMI, TK_EOF}));
  EXPECT_EQ(out, "   1:  // NOECHO\n   2: x;\n");
}

TEST_F(Lexer, NoechoAtTheStartOfALineSilencesTheConsoleOnly) {
  echo = 1;
  testing::internal::CaptureStdout();
  source("a;\n// NOECHO\nb;\n");
  kinds();
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(echo, 0);
  EXPECT_EQ(out, "   1: a;\n");
  // The Listing always has the numbered program.
  EXPECT_EQ(listing(), "   1: a;\r\n   2: // NOECHO\r\n   3: b;\r\n");
}

TEST_F(Lexer, ZuprakLineIsNeitherEchoedNorNumbered) {
  echo = 1;
  testing::internal::CaptureStdout();
  source("// ZUPRAK secret\nx = 1;\n");
  std::vector<int> k = kinds();
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(echo, 0);
  EXPECT_EQ(k, (std::vector<int>{TK_NAME, TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_EOF}));
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:x = 1;"}));
  EXPECT_EQ(listing(), "   1: x = 1;\r\n");
  EXPECT_EQ(out, "");
}

TEST_F(Lexer, EchoExpandsTabsToMultiplesOfFour) {
  source("\tx\t= 1;\n");
  kinds();
  EXPECT_EQ(listing(), "   1:     x   = 1;\r\n");
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:\tx\t= 1;"}));
}

TEST_F(Lexer, ConsoleEchoKeepsTheWholeLine) {
  // 1005 characters: the console gets all of them; the Listing, whose text
  // limit is LSTMAXTEXT characters a write, keeps "%4d: " and the first 592
  // and then the line end.
  std::string text = "x = 1";
  while (text.size() < 1004) text += " + 1";
  text.resize(1004);
  text += ";";
  ASSERT_EQ(text.size(), 1005u);
  echo = 1;
  testing::internal::CaptureStdout();
  source((text + "\n").c_str());
  kinds();
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "   1: " + text + "\n");
  EXPECT_EQ(listing(), "   1: " + text.substr(0, LSTMAXTEXT - 2 - 6) + "\r\n");
  EXPECT_EQ(echo, 1);
}

TEST_F(Lexer, ConsoleEchoStopsAt19994Characters) {
  std::string text(25000, 'x');
  echo = 1;
  testing::internal::CaptureStdout();
  source((text + ";\n").c_str());
  kinds();
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "   1: " + std::string(19994, 'x') + "\n");
}

TEST_F(Lexer, NoEchoWhenSourceListingIsOff) {
  srclist = 0;
  source("x;\n");
  kinds();
  EXPECT_EQ(listing(), "");
}

TEST_F(Lexer, TokensPointAtTheirLines) {
  source("a;\n\nb c;\n");
  EXPECT_EQ(next().line, 1);
  EXPECT_EQ(next().line, 1);
  EXPECT_EQ(next().line, 2);
  EXPECT_EQ(next().line, 2);
}

TEST_F(Lexer, CommentToEndOfLine) {
  source("a // b c\nd;\n");
  Tok t = next();
  EXPECT_EQ(t.text, "a");
  t = next();
  EXPECT_EQ(t.text, "d");
}

// ---- strings --------------------------------------------------------------

TEST_F(Lexer, DoubleSlashInsideAStringEndsTheLine) {
  srclist = 0;
  source("\"a//b\";\n");
  Tok t = next();
  EXPECT_EQ(t.kind, TK_STRING);
  EXPECT_EQ(t.text, "a");
  EXPECT_EQ(ncomperr, 1);
  EXPECT_EQ(listing(), "     1: \"a//b\";\r\nError: Missing quote at end of string\r\n");
}

TEST_F(Lexer, BackslashTIsNoEscapeAndBackslashBIsLost) {
  source("\"tab\\there\" \"x\\by\";\n");
  EXPECT_EQ(next().text, "tabthere");
  EXPECT_EQ(next().text, "xy");
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Lexer, EscapedQuoteInsideAString) {
  source("\"say \\\"hi\\\"\";\n");
  Tok t = next();
  EXPECT_EQ(t.kind, TK_STRING);
  EXPECT_EQ(t.text, "say \"hi\"");
  EXPECT_EQ(next().kind, TK_SEMI);
}

TEST_F(Lexer, StringIsCutAt999Characters) {
  std::string text = "\"" + std::string(1500, 'q') + "\";\n";
  source(text.c_str());
  Tok t = next();
  EXPECT_EQ(t.text.size(), 999u);
  EXPECT_EQ(next().kind, TK_SEMI);
}

TEST_F(Lexer, UnescapeTable) {
  char s1[] = "a\\nb\\rc\\ad\\\\e\\\"f";
  unescape(s1);
  EXPECT_STREQ(s1, "a\nb\rc\ad\\e\"f");
  char s2[] = "\\x41\\x4a\\x141\\x7";
  unescape(s2);
  EXPECT_STREQ(s2, "AJA\x07");  // 0x141 is taken modulo 256
  char s3[] = "p\\'q\\fr\\b";
  unescape(s3);
  EXPECT_STREQ(s3, "pqr");
  char s4[] = "\\z\\t\\%";
  unescape(s4);
  EXPECT_STREQ(s4, "zt%");
  char s5[] = "end\\";
  unescape(s5);
  EXPECT_STREQ(s5, "end\\");
}

// ---- numbers --------------------------------------------------------------

TEST_F(Lexer, Numbers) {
  source("1.5E3 2:30 1:00:00 .5 0.1 25e-1 7d2 3E+2 1e400;\n");
  EXPECT_EQ(next().value, 1500.0);
  EXPECT_EQ(next().value, 150.0);
  EXPECT_EQ(next().value, 3600.0);
  EXPECT_EQ(next().value, 0.5);
  EXPECT_EQ(next().value, 0.1);  // 1 / 10: a division, exactly 0.1
  EXPECT_EQ(next().value, 2.5);
  EXPECT_EQ(next().value, 700.0);
  EXPECT_EQ(next().value, 300.0);
  EXPECT_TRUE(std::isinf(next().value));
  EXPECT_EQ(next().kind, TK_SEMI);
  // Plain double arithmetic: 0e400 is 0 * 10^400, which is 0 * infinity.
  source("0e400 1e-400 0.000 0e5;\n");
  EXPECT_TRUE(std::isnan(next().value));
  EXPECT_EQ(next().value, 0.0);
  EXPECT_EQ(next().value, 0.0);
  EXPECT_EQ(next().value, 0.0);
  EXPECT_EQ(nerrors, 0);
}

TEST_F(Lexer, SecondDecimalPointIsInvalidNumber) {
  srclist = 0;
  source("1.2.3;\n");
  Tok t = next();
  EXPECT_EQ(t.kind, TK_NUMBER);
  EXPECT_EQ(t.value, 0.0);
  t = next();
  EXPECT_EQ(t.kind, TK_NUMBER);  // what follows the second point
  EXPECT_EQ(t.value, 3.0);
  EXPECT_EQ(listing(), "Error: Invalid number\r\n");
  EXPECT_EQ(nerrors, 1);
  EXPECT_EQ(ncomperr, 0);  // a general error does not fail a compilation
}

TEST_F(Lexer, ExponentLetterWithoutDigits) {
  source("2e ;2Ex;\n");
  Tok t = next();
  EXPECT_EQ(t.value, 2.0);
  EXPECT_EQ(next().kind, TK_SEMI);
  t = next();
  EXPECT_EQ(t.kind, TK_NUMBER);
  EXPECT_EQ(t.value, 2.0);
  t = next();
  EXPECT_EQ(t.kind, TK_NAME);
  EXPECT_EQ(t.text, "x");
}

TEST_F(Lexer, ScannumDirectly) {
  source("25;\n");
  Token tok{};
  scannum('1', &tok);  // the digit already read, then "25"
  EXPECT_EQ(tok.kind, TK_NUMBER);
  EXPECT_EQ(tok.value, 125.0);
}

// The lexer's numbers against strtod over 300,000 generated literals:
// equal bit for bit wherever the lexer's rule is exact (every literal of up
// to 15 digits with a power of ten up to 10^22, among others), within the
// rule's roundings elsewhere, and as the rule says past 10^308.  Every
// literal that differs is counted by its class, and the first fault is
// shown with its literal.
TEST_F(Lexer, NumbersAgreeWithAnIndependentReading) {
  srclist = 0;
  const std::vector<std::string> lits = kit::numberliterals(1789, 300000);
  int count[4] = {}, differ[4] = {};
  double maxulps = 0;
  std::size_t done = 0;
  while (done < lits.size()) {
    const std::size_t n = std::min<std::size_t>(400, lits.size() - done);
    std::string text;
    for (std::size_t i = 0; i < n; ++i) text += lits[done + i] + "\n";
    freetoks();
    freelines();
    source(text.c_str());
    for (std::size_t i = 0; i < n; ++i) {
      const std::string& lit = lits[done + i];
      const Tok t = next();
      ASSERT_EQ(t.kind, TK_NUMBER) << lit;
      const kit::LiteralVerdict v = kit::literalfault(lit, t.value);
      ASSERT_EQ(v.fault, "") << lit << ": the lexer gives " << t.value << ", strtod " << v.reference;
      ++count[v.cls];
      if (std::memcmp(&t.value, &v.reference, sizeof(double)) != 0 && ++differ[v.cls] <= 2)
        std::printf("differs (class %d): %s reads %.17g, strtod %.17g\n", static_cast<int>(v.cls), lit.c_str(),
                    t.value, v.reference);
      if (v.cls == kit::LIT_ROUNDED) maxulps = std::max(maxulps, v.ulps);
    }
    EXPECT_EQ(next().kind, TK_EOF);
    done += n;
  }
  EXPECT_EQ(nerrors, 0);
  std::printf("literals: %d exact (%d differ), %d rounded (%d differ, at most %.2f units), "
              "%d past 10^308 (%d differ), %d overflowing (%d differ)\n",
              count[0], differ[0], count[1], differ[1], maxulps, count[2], differ[2], count[3], differ[3]);
  // Every class is well represented, and the exact one is large.
  EXPECT_GT(count[kit::LIT_EXACT], 50000);
  EXPECT_GT(count[kit::LIT_ROUNDED], 50000);
  EXPECT_GT(count[kit::LIT_NOPOWER], 1000);
  EXPECT_GT(count[kit::LIT_OVERFLOW], 1000);
}

// Literals a reader can get wrong at one place: an effective exponent of
// +1 and -1, exactly 22 and 23, 2^53 and one past it, and the largest and
// smallest powers of ten.
TEST_F(Lexer, NumbersAtTheirBoundaries) {
  srclist = 0;
  const char* lits[] = {"2.5E2",  "2.5e0",  "25E-2", "25e-1",  "1.0d1",   "1D22",   "1d23",
                        "4.5e21", "4.5E22", "1e-22", "1e-23",  "9007199254740992", "9007199254740993",
                        "1e308",  "1.8e308", "1E-308", "4.9e-324", "123456789012345678901234567890"};
  for (const char* lit : lits) {
    freetoks();
    freelines();
    source((std::string(lit) + ";\n").c_str());
    const Tok t = next();
    const kit::LiteralVerdict v = kit::literalfault(lit, t.value);
    EXPECT_EQ(v.fault, "") << lit << ": " << t.value << " vs " << v.reference;
  }
  freetoks();
  freelines();
  source("2.5E2 25e-1 1D22 9007199254740993;\n");
  EXPECT_EQ(next().value, 250.0);
  EXPECT_EQ(next().value, 2.5);
  EXPECT_EQ(next().value, 1e22);
  EXPECT_EQ(next().value, 9007199254740992.0);  // 2^53 + 1 rounds to even
}

// ---- names ----------------------------------------------------------------

TEST_F(Lexer, NamesKeepThirtyCharacters) {
  std::string forty = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN";
  std::string text = forty + " " + forty.substr(0, 30) + ";\n";
  source(text.c_str());
  Tok a = next(), b = next();
  EXPECT_EQ(a.text, forty.substr(0, 30));
  EXPECT_EQ(a.text, b.text);
}

TEST_F(Lexer, NameCharacters) {
  source("_a#1$ $x #y9;\n");
  EXPECT_EQ(next().text, "_a#1$");
  EXPECT_EQ(next().text, "$x");
  EXPECT_EQ(next().text, "#y9");
}

TEST_F(Lexer, IncludeIsAcceptedAndIgnored) {
  source("#include x; #INCLUDE;\n");
  Tok t = next();
  EXPECT_EQ(t.text, "x");
  EXPECT_EQ(next().kind, TK_SEMI);
  EXPECT_EQ(next().kind, TK_SEMI);
  EXPECT_EQ(next().kind, TK_EOF);
}

// ---- operators ------------------------------------------------------------

TEST_F(Lexer, EveryOperator) {
  source("+ - / ^ ** % ( ) { } * && || != ! >= > <= < == = , += *= /= -= ++ -- [ ] ? : ;\n");
  EXPECT_EQ(kinds(),
            (std::vector<int>{TK_PLUS, TK_MINUS, TK_DIV, TK_POW, TK_POW, TK_MOD, TK_LPAREN,
                              TK_RPAREN, TK_LBRACE, TK_RBRACE, TK_MUL, TK_AND, TK_OR, TK_NE,
                              TK_NOT, TK_GE, TK_GT, TK_LE, TK_LT, TK_EQ, TK_ASSIGN, TK_COMMA,
                              TK_ADDASSIGN, TK_MULASSIGN, TK_DIVASSIGN, TK_SUBASSIGN, TK_INC,
                              TK_DEC, TK_LBRACKET, TK_RBRACKET, TK_QUESTION, TK_COLON, TK_SEMI,
                              TK_EOF}));
  EXPECT_EQ(nerrors, 0);
}

TEST_F(Lexer, TwoCharacterOperatorsAreGreedy) {
  source("a+++b ---c a<=>b;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_INC, TK_PLUS, TK_NAME, TK_DEC, TK_MINUS,
                                       TK_NAME, TK_NAME, TK_LE, TK_GT, TK_NAME, TK_SEMI,
                                       TK_EOF}));
}

TEST_F(Lexer, PowerWrittenBothWays) {
  source("a ** b a ^ b;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_POW, TK_NAME, TK_NAME, TK_POW, TK_NAME,
                                       TK_SEMI, TK_EOF}));
}

TEST_F(Lexer, LoneAmpersandAndBarAreReportedAndKept) {
  srclist = 0;
  source("a & b | c;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_AND, TK_NAME, TK_OR, TK_NAME, TK_SEMI,
                                       TK_EOF}));
  EXPECT_EQ(listing(), "Error: Invalid operator: &\r\nError: Invalid operator: |\r\n");
  EXPECT_EQ(nerrors, 2);
  EXPECT_EQ(ncomperr, 0);
}

TEST_F(Lexer, BacktickIsACompileError) {
  srclist = 0;
  source("x = `;\n");
  Tok t = next();
  next();
  t = next();
  EXPECT_EQ(t.kind, TK_STRING);
  EXPECT_EQ(t.text, "`");
  EXPECT_EQ(ncomperr, 1);
  EXPECT_EQ(listing(),
            "     1: x = `;\r\nError: Invalid character \"`\" in string. Missing quotes?\r\n");
}

TEST_F(Lexer, InvalidCharacterIsSkipped) {
  srclist = 0;
  source("a @ . b;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_NAME, TK_SEMI, TK_EOF}));
  EXPECT_EQ(listing(),
            "Error: Invalid character in program: @ (0x40)\r\n"
            "Error: Invalid character in program: . (0x2E)\r\n");
  EXPECT_EQ(ncomperr, 0);
  EXPECT_EQ(nerrors, 2);
}

TEST_F(Lexer, HighByteOutsideAStringEndsTheProgram) {
  source("x = 1; \xE9 y = 2;\n");
  EXPECT_EQ(kinds(), (std::vector<int>{TK_NAME, TK_ASSIGN, TK_NUMBER, TK_SEMI, TK_EOF}));
}

TEST_F(Lexer, HighBytesInsideStringsAndCommentsAreKept) {
  source("\"\xE9t\xE9\" /* \xFF\xE9 */ x;\n");
  Tok t = next();
  EXPECT_EQ(t.text, "\xE9t\xE9");
  EXPECT_EQ(next().text, "x");
}

// ---- comments -------------------------------------------------------------

TEST_F(Lexer, BlockCommentsSpanLinesAndDoNotNest) {
  source("a /* one\ntwo /* three */ b */ c;\n");
  EXPECT_EQ(next().text, "a");
  EXPECT_EQ(next().text, "b");
  EXPECT_EQ(next().kind, TK_MUL);
  EXPECT_EQ(next().kind, TK_DIV);
  EXPECT_EQ(next().text, "c");
}

TEST_F(Lexer, CommentLeftOpenEndsThroughTheHandler) {
  srclist = 0;
  source("a;\nb /* open\nmore;\n");
  EXPECT_EQ(next().text, "a");
  EXPECT_EQ(next().kind, TK_SEMI);
  EXPECT_EQ(next().text, "b");
  EXPECT_EQ(exitstatus(), -1);
  Tok t = next();
  EXPECT_EQ(exitstatus(), 1);
  EXPECT_EQ(t.kind, TK_EOF);
  EXPECT_EQ(listing(),
            "Error: Hit end of file while processing comment that started on line 2\r\n\r\n");
  EXPECT_EQ(nerrors, 1);
  EXPECT_GT(ncomperr, 0);  // the compilation fails when the handler returns
}

TEST(LexerExit, DefaultHandlerEndsTheProcessWithStatusOne) {
  EXPECT_EXIT(
      {
        srclist = 0;
        srcset("/* never closed;\n");
        gettok();
      },
      ::testing::ExitedWithCode(1), "");
}

// ---- push-back ------------------------------------------------------------

TEST_F(Lexer, UngettokIsLastInFirstOut) {
  source("a b c;\n");
  Token* a = gettok();
  Token* b = gettok();
  ungettok(a);
  ungettok(b);
  EXPECT_EQ(gettok(), b);
  EXPECT_EQ(gettok(), a);
  Token* c = gettok();
  EXPECT_STREQ(c->text, "c");
}

TEST_F(Lexer, SrcungetcKeepsOneCharacter) {
  source("xy;\n");
  SourceLine* l;
  signed char c = srcgetc(&l);
  EXPECT_EQ(c, 'x');
  srcungetc('p', l);
  srcungetc('q', l);  // replaces the first
  EXPECT_EQ(srcgetc(&l), 'q');
  EXPECT_EQ(srcgetc(&l), 'y');
  EXPECT_EQ(srcgetc(&l), ';');
  EXPECT_EQ(srcgetc(&l), 0);
  EXPECT_EQ(srcgetc(&l), -1);
  EXPECT_EQ(srcgetc(&l), -1);
}

TEST_F(Lexer, LexresetStartsTheNumberingAgain) {
  source("a;\n");
  kinds();
  freelines();
  srcset("b;\n");
  kinds();
  EXPECT_EQ(linetexts(), (std::vector<std::string>{"1:b;"}));
}

TEST_F(Lexer, MemoryTags) {
  source("abc \"s\";\n");
  Token* t = gettok();
  EXPECT_STREQ(memtag(t), "li");
  EXPECT_STREQ(memtag(t->text), "listr");
  EXPECT_STREQ(memtag(t->line), "slb");
  EXPECT_STREQ(memtag(srctext), "DynamicString");
}

}  // namespace
}  // namespace vexor::test
