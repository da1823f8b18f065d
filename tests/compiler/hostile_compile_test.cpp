// Hostile text for the whole statement compiler, through compilesource as a
// host would call it: deeply nested blocks and IF statements, and random
// soups of statement tokens.  Nothing may crash, hang or overrun (the
// sanitizer build runs these too), and the engine reset must give back
// every block the compilations made.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "api/engine.h"
#include "compiler/compiler.h"
#include "exec/exec.h"
#include "kit/kit.h"

namespace vexor::test {
namespace {

using kit::listing;

int count(const std::string& text, const std::string& what) {
  int n = 0;
  for (std::size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
  return n;
}

// n copies of `piece`, with a line end after every `perline` of them.
std::string repeat(const std::string& piece, int n, int perline = 100) {
  std::string r;
  r.reserve(static_cast<std::size_t>(n) * (piece.size() + 1));
  for (int i = 1; i <= n; ++i) {
    r += piece;
    if (i % perline == 0) r += "\n";
  }
  return r + "\n";
}

int exitstatus = -1;
void recordexit(int status) { exitstatus = status; }

class HostileCompile : public ::testing::Test {
 protected:
  void SetUp() override {
    oldexit = setlexexit(recordexit);
    enginereset();
    baseline = memlivecount();
  }
  void TearDown() override {
    enginereset();
    EXPECT_EQ(memlivecount(), baseline) << "blocks left behind";
    setlexexit(oldexit);
  }
  uint32_t state = 4711;
  uint32_t rnd() {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
  }
  long baseline = 0;
  LexExitHandler oldexit = nullptr;
};

constexpr const char* HEAD = "VARIABLES x, y;\nPARAMETERS a;\nDOUBLE c;\n";

TEST_F(HostileCompile, AThousandNestedBlocksCompile) {
  std::string text = std::string(HEAD) + repeat("{", 1000) + "FUNCTION y = a * x;\n" +
                     repeat("}", 1000);
  EXPECT_EQ(compilesource(text.c_str()), 1) << listing().substr(0, 2000);
}

// 1,100 nested blocks and an ELSE IF chain of 1,100 branches (each IF of
// the chain one level deeper) compile and run, as generated models need.
TEST_F(HostileCompile, ElevenHundredNestedBlocksAndAnElseIfChainOf1100) {
  std::string text = std::string(HEAD) + repeat("{", 1100) + "c = 0;\n" + repeat("}", 1100);
  for (int i = 1; i <= 1100; ++i)
    text += (i > 1 ? "else if (x < " : "if (x < ") + std::to_string(i) + ") c = " +
            std::to_string(i) + ";\n";
  text += "FUNCTION y = a * x + c;\nDATA;\n2.5 3.5\n1099.5 1100.5\n";
  EXPECT_EQ(compilesource(text.c_str()), 1) << listing().substr(0, 2000);
  resetwork();
  double p = 0.0, o = 0.0;
  parms[0]->value = 1.0;
  ASSERT_EQ(runprog(0, nullptr, &p, &o), 1);
  EXPECT_EQ(p, 2.5 + 3.0);
  ASSERT_EQ(runprog(1, nullptr, &p, &o), 1);
  EXPECT_EQ(p, 1099.5 + 1100.0);
}

// The block one level beyond MAXSTMTNEST is reported at its line and
// dropped with what it holds; the other braces match.
TEST_F(HostileCompile, TheBlockBeyondTheLimitIsTooDeep) {
  // The (MAXSTMTNEST + 1)th "{" is the first of line 4 + MAXSTMTNEST / 100.
  std::string text = std::string(HEAD) + repeat("{", MAXSTMTNEST + 1) + "FUNCTION y = a * x;\n" +
                     repeat("}", MAXSTMTNEST + 1);
  EXPECT_EQ(compilesource(text.c_str()), 0);
  std::string l = listing();
  EXPECT_EQ(count(l, "Error: Statements are nested too deeply\n"), 1);
  const std::string at = "  " + std::to_string(4 + MAXSTMTNEST / 100) + ": {\nError: Statements are nested too deeply\n";
  EXPECT_NE(l.find(at), std::string::npos);
  EXPECT_EQ(count(l, "Error: "), 1) << l.substr(l.size() > 3000 ? l.size() - 3000 : 0);
}

TEST_F(HostileCompile, OpenBracesBeyondTheLimit) {
  std::string text = std::string(HEAD) + repeat("{", MAXSTMTNEST + 1);
  EXPECT_EQ(compilesource(text.c_str()), 0);
  std::string l = listing();
  EXPECT_EQ(count(l, "Error: Statements are nested too deeply\n"), 1);
  // The blocks that were entered are never closed.
  EXPECT_EQ(count(l, "is not properly matched\n"), MAXSTMTNEST);
  EXPECT_NE(l.find("Error: The open brace on line 4 is not properly matched\n"),
            std::string::npos);
}

TEST_F(HostileCompile, NestedIfStatementsUpToTheLimitCompile) {
  std::string text = std::string(HEAD) + repeat("if (c) ", MAXSTMTNEST) + "c = 1;\nFUNCTION y = a * x;\n";
  EXPECT_EQ(compilesource(text.c_str()), 1) << listing().substr(0, 2000);
}

TEST_F(HostileCompile, NestedIfStatementsBeyondTheLimit) {
  std::string text = std::string(HEAD) + repeat("if (c) ", MAXSTMTNEST + 1000) +
                     "c = 1;\nFUNCTION y = a * x;\n";
  EXPECT_EQ(compilesource(text.c_str()), 0);
  std::string l = listing();
  EXPECT_EQ(count(l, "Error: Statements are nested too deeply\n"), 1);
  // The (MAXSTMTNEST + 1)th IF begins a line of its own; it is dropped
  // through "c = 1;", and the FUNCTION statement after it compiles.
  EXPECT_NE(l.find(std::to_string(4 + MAXSTMTNEST / 100) + ": if (c) if (c)"), std::string::npos);
  EXPECT_EQ(count(l, "Error: "), 1);
}

TEST_F(HostileCompile, ADroppedStatementTakesItsElseParts) {
  std::string text = std::string(HEAD) + repeat("if (c) ", MAXSTMTNEST) +
                     "if (c) { c = 1; } else if (c) c = 2; else for (c = 0; c < 1; c++) c = 3;\n"
                     "FUNCTION y = a * x;\n";
  EXPECT_EQ(compilesource(text.c_str()), 0);
  std::string l = listing();
  EXPECT_EQ(count(l, "Error: "), 1) << l.substr(l.size() > 3000 ? l.size() - 3000 : 0);
  EXPECT_EQ(count(l, "Error: Statements are nested too deeply\n"), 1);
}

TEST_F(HostileCompile, ADroppedDoTakesItsWhile) {
  for (const char* dropped : {"do { c = 1; } while (c < 1);\n",
                              "do if (c) c = 1; else c = 2; while (c < 1);\n",
                              "do do c = 1; while (c < 1); while (c < 2);\n",
                              "do while (c < 1) c = 1; while (c < 2);\n"}) {
    std::string text = std::string(HEAD) + repeat("if (c) ", MAXSTMTNEST) + dropped +
                       "FUNCTION y = a * x;\n";
    EXPECT_EQ(compilesource(text.c_str()), 0) << dropped;
    std::string l = listing();
    EXPECT_EQ(count(l, "Error: "), 1) << dropped << l.substr(l.size() > 2000 ? l.size() - 2000 : 0);
    EXPECT_EQ(count(l, "Error: Statements are nested too deeply\n"), 1) << dropped;
  }
}

TEST_F(HostileCompile, NestedLoopsAndBlocksStopAtTheLoopLimit) {
  std::string text = std::string(HEAD) + repeat("while (c) {", 40) + "c = 1;" +
                     repeat("}", 40) + "FUNCTION y = a * x;\n";
  EXPECT_EQ(compilesource(text.c_str()), 0);
  EXPECT_GE(count(listing(), "Error: Statements are nested too deeply\n"), 1);
}

TEST_F(HostileCompile, RandomStatementSoup) {
  const char* pieces[] = {
      "VARIABLES ", "PARAMETERS ", "DOUBLE ", "CONSTANT ", "FUNCTION ", "MODEL ",
      "CONSTRAIN ", "SWEEP ", "if ", "else ", "while ", "for ", "do ", "break", "continue",
      "STOP", "ITERATIONS ", "TOLERANCE ", "CONFIDENCE ", "CORRELATE ", "OUTPUT ",
      "TITLE ", "ANGLETYPE ", "PLOT ", "RPLOT ", "NPLOT ", "SPLOT ", "XVAR ", "DOMAIN ",
      "DATASKIP ", "DATACOUNT ", "x", "y", "a", "c", "v", " ", "\n", "(", ")", "{", "}",
      "[", "]", ";", ";", ";", ",", "=", "+", "-", "*", "/", "^", "?", ":", "++", "--",
      "!", "<", "==", "&&", "1", "2.5", "0", "1e3", "\"s\"", "sin(", "PRINTF(", "/*",
      "*/", "//", "`", "1.2.3", "\t", "#INCLUDE ", "residual", "PI"};
  const int npieces = sizeof pieces / sizeof pieces[0];
  testing::internal::CaptureStdout();
  int compiled = 0;
  for (int round = 0; round < 1500; ++round) {
    std::string text = "VARIABLES x, y;\nPARAMETERS a;\nDOUBLE c, v[3];\n";
    int len = static_cast<int>(rnd() % 300);
    for (int i = 0; i < len; ++i) text += pieces[rnd() % npieces];
    text += ";\nFUNCTION y = a * x;\n";
    compiled += compilesource(text.c_str());
  }
  testing::internal::GetCapturedStdout();
  EXPECT_GT(compiled, 0);
}

TEST_F(HostileCompile, RandomBytes) {
  testing::internal::CaptureStdout();
  for (int round = 0; round < 300; ++round) {
    std::string text;
    int len = static_cast<int>(rnd() % 3000);
    for (int i = 0; i < len; ++i) text += static_cast<char>(1 + rnd() % 255);
    compilesource(text.c_str());
  }
  testing::internal::GetCapturedStdout();
}

}  // namespace
}  // namespace vexor::test
