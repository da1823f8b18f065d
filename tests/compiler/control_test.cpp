// Control flow: the instruction shapes on the dump, and programs that run.
#include <gtest/gtest.h>

#include <string>

#include "kit/kit.h"
#include "compiler/compiler.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

const char* const head = "VARIABLES x, y; PARAMETERS a; DOUBLE z, s, i;\n";

std::string prog(const std::string& body) { return head + body + "FUNCTION y = a*x;\n"; }

TEST(Control, IfElseShape) {
  ASSERT_EQ(compileprog("VARIABLES x, w; PARAMETERS a; DOUBLE y;\n"
                        "IF (x > 0) y = 1; ELSE y = 2;\nFUNCTION w = a*x;\n"),
            1)
      << listing();
  // The IF line, the conditional jump, the then-part (its line and its
  // EVAL), the jump over the else-part, and the else-part.  The JUMPF lands
  // on the else-part, right after the JUMP; the JUMP lands after the
  // else-part.
  std::string d = kit::dump();
  EXPECT_NE(d.find("     0  LINE      4: IF (x > 0) y = 1;\n"
                   "     1  JUMPF     (> x 0) -> 5\n"
                   "     2  LINE      4: IF (x > 0) y = 1;\n"
                   "     3  EVAL      (= y 1)\n"
                   "     4  JUMP      -> 7\n"
                   "     5  LINE      5: ELSE y = 2;\n"
                   "     6  EVAL      (= y 2)\n"
                   "     7  LINE      6: FUNCTION w = a*x;\n"),
            std::string::npos)
      << d;
}

TEST(Control, WhileShape) {
  ASSERT_EQ(compileprog(prog("while (z < 3) z += 1;\n")), 1) << listing();
  std::string d = kit::dump();
  EXPECT_NE(d.find("     0  LINE      4: while (z < 3) z += 1;\n"
                   "     1  JUMPF     (< z 3) -> 5\n"
                   "     2  LINE      4: while (z < 3) z += 1;\n"
                   "     3  EVAL      (+= z 1)\n"
                   "     4  JUMP      -> 0\n"),
            std::string::npos)
      << d;
}

TEST(Control, DoShape) {
  ASSERT_EQ(compileprog(prog("do z += 1; while (z < 3);\n")), 1) << listing();
  std::string d = kit::dump();
  EXPECT_NE(d.find("     0  LINE      4: do z += 1;\n"
                   "     1  LINE      4: do z += 1;\n"
                   "     2  EVAL      (+= z 1)\n"
                   "     3  LINE      5: while (z < 3);\n"
                   "     4  JUMPF     (< z 3) -> 6\n"
                   "     5  JUMP      -> 0\n"),
            std::string::npos)
      << d;
}

TEST(Control, ForShapeWithBreakAndContinue) {
  ASSERT_EQ(compileprog(prog("for (i = 0; i < 3; i++) { if (i == 1) continue; if (i == 2) break; }\n")), 1)
      << listing();
  std::string d = kit::dump();
  EXPECT_NE(d.find("     0  LINE      4: for (i = 0;\n"
                   "     1  EVAL      (= i 0)\n"
                   "     2  LINE      4: for (i = 0;\n"
                   "     3  JUMPF     (< i 3) -> 13\n"
                   "     4  LINE      6: i++) { if (i == 1) continue;\n"
                   "     5  JUMPF     (== i 1) -> 7\n"
                   "     6  JUMP      -> 10\n"
                   "     7  LINE      7: if (i == 2) break;\n"
                   "     8  JUMPF     (== i 2) -> 10\n"
                   "     9  JUMP      -> 13\n"
                   "    10  LINE      4: for (i = 0;\n"
                   "    11  EVAL      (post++ i)\n"
                   "    12  JUMP      -> 2\n"),
            std::string::npos)
      << d;
}

TEST(Control, ContinueInForRunsTheIncrement) {
  ASSERT_EQ(compileprog(prog("s = 0; for (i = 0; i < 3; i++) { if (i == 1) continue; s += i; }\n") +
                        "DATA;\n1 2\n"),
            1)
      << listing();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("s"), 2.0);  // 0 + 2
  EXPECT_EQ(kit::value("i"), 3.0);
}

TEST(Control, EndlessForEndsThroughBreak) {
  ASSERT_EQ(compileprog(prog("z = 0; for (;;) { if (z > 5) break; z++; }\n") + "DATA;\n1 2\n"), 1)
      << listing();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("z"), 6.0);
}

TEST(Control, DoRunsItsBodyAtLeastOnce) {
  ASSERT_EQ(compileprog(prog("z = 10; do { z++; } while (z < 3);\n") + "DATA;\n1 2\n"), 1) << listing();
  EXPECT_EQ(kit::runall(), 0);
  EXPECT_EQ(kit::value("z"), 11.0);
}

TEST(Control, WhileAndStop) {
  ASSERT_EQ(compileprog(head + std::string("z = 0; while (z < 100) { z += 1; if (z == 7) STOP; }\n"
                                           "FUNCTION y = a*x;\nDATA;\n1 2\n")),
            1)
      << listing();
  // STOP ends the run before FUNCTION: the run fails with its message.
  EXPECT_EQ(kit::runall(), 1);
  EXPECT_EQ(kit::value("z"), 7.0);
  EXPECT_NE(listing().find("Error: FUNCTION statement was not executed.\n"), std::string::npos)
      << listing();
}

TEST(Control, DoConditionLineIsTheConditionsOwn) {
  // The line marker before the condition carries the line where the
  // condition begins (its '('), not the WHILE keyword's.
  ASSERT_EQ(compileprog(prog("do z += 1; while\n(z < 3);\n")), 1) << listing();
  std::string d = kit::dump();
  EXPECT_NE(d.find("     3  LINE      6: (z < 3);\n"
                   "     4  JUMPF     (< z 3) -> 6\n"),
            std::string::npos)
      << d;
  // A run-time error in the condition names that line.
  ASSERT_EQ(compileprog(prog("do z += 1; while\n(z / 0 < 3);\n") + "DATA;\n1 2\n"), 1)
      << listing();
  EXPECT_EQ(kit::runall(), 1);
  EXPECT_NE(listing().find("Error executing line 6: (z / 0 < 3);\n"), std::string::npos)
      << listing();
}

TEST(Control, WhileTargetsOfContinueAndBreak) {
  // CONTINUE goes to the jump back to the top, BREAK to the slot after the
  // loop.
  ASSERT_EQ(compileprog(prog("while (z < 3) { z += 1; if (z == 1) continue; if (z == 2) break; }\n")),
            1)
      << listing();
  std::string d = kit::dump();
  EXPECT_NE(d.find("     0  LINE      4: while (z < 3) { z += 1;\n"
                   "     1  JUMPF     (< z 3) -> 11\n"
                   "     2  LINE      4: while (z < 3) { z += 1;\n"
                   "     3  EVAL      (+= z 1)\n"
                   "     4  LINE      5: if (z == 1) continue;\n"
                   "     5  JUMPF     (== z 1) -> 7\n"
                   "     6  JUMP      -> 10\n"
                   "     7  LINE      6: if (z == 2) break;\n"
                   "     8  JUMPF     (== z 2) -> 10\n"
                   "     9  JUMP      -> 11\n"
                   "    10  JUMP      -> 0\n"
                   "    11  LINE      8: FUNCTION y = a*x;\n"),
            std::string::npos)
      << d;
}

TEST(Control, DoTargetsOfContinueAndBreak) {
  // CONTINUE goes to the line marker before the condition, BREAK to the
  // slot after the loop.
  ASSERT_EQ(compileprog(prog("do { z += 1; if (z == 1) continue; if (z == 2) break; } while (z < 3);\n")),
            1)
      << listing();
  std::string d = kit::dump();
  EXPECT_NE(d.find("     0  LINE      4: do { z += 1;\n"
                   "     1  LINE      4: do { z += 1;\n"
                   "     2  EVAL      (+= z 1)\n"
                   "     3  LINE      5: if (z == 1) continue;\n"
                   "     4  JUMPF     (== z 1) -> 6\n"
                   "     5  JUMP      -> 9\n"
                   "     6  LINE      6: if (z == 2) break;\n"
                   "     7  JUMPF     (== z 2) -> 9\n"
                   "     8  JUMP      -> 12\n"
                   "     9  LINE      7: } while (z < 3);\n"
                   "    10  JUMPF     (< z 3) -> 12\n"
                   "    11  JUMP      -> 0\n"
                   "    12  LINE      8: FUNCTION y = a*x;\n"),
            std::string::npos)
      << d;
}

// A FOR keeps its loop level when it ends, so a BREAK or CONTINUE after an
// inner FOR is chained one level up; the enclosing loop must still patch it.
const char* const head2 = "VARIABLES x, y; PARAMETERS a; DOUBLE z, s, i, j;\n";

TEST(Control, BreakInAWhileAfterAnInnerFor) {
  ASSERT_EQ(compileprog(std::string(head2) +
                        "while (i < 10) { for (j = 0; j < 2; j++) s += 1; i++; if (i > 3) break; }\n"
                        "FUNCTION y = a*x;\nDATA;\n1 2\n"),
            1)
      << listing();
  std::string d = kit::dump();
  EXPECT_EQ(d.find("-> -1"), std::string::npos) << d;
  // The BREAK (slot 15), chained at the inner FOR's level, jumps to the
  // slot after the WHILE (17), like the loop's own exit (slot 1).
  EXPECT_NE(d.find("     1  JUMPF     (< i 10) -> 17\n"), std::string::npos) << d;
  EXPECT_NE(d.find("    13  LINE      8: if (i > 3) break;\n"
                   "    14  JUMPF     (> i 3) -> 16\n"
                   "    15  JUMP      -> 17\n"
                   "    16  JUMP      -> 0\n"
                   "    17  LINE      10: FUNCTION y = a*x;\n"),
            std::string::npos)
      << d;
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("i"), 4.0);
  EXPECT_EQ(kit::value("s"), 8.0);
}

TEST(Control, ContinueInAForAfterAnInnerFor) {
  ASSERT_EQ(compileprog(std::string(head2) +
                        "for (i = 0; i < 4; i++) { for (j = 0; j < 2; j++) s += 1; "
                        "if (i == 1) continue; z += 1; }\n"
                        "FUNCTION y = a*x;\nDATA;\n1 2\n"),
            1)
      << listing();
  std::string d = kit::dump();
  EXPECT_EQ(d.find("-> -1"), std::string::npos) << d;
  // The CONTINUE (slot 15) goes to the outer FOR's increment (slot 18).
  EXPECT_NE(d.find("    15  JUMP      -> 18\n"
                   "    16  LINE      10: z += 1;\n"
                   "    17  EVAL      (+= z 1)\n"
                   "    18  LINE      4: for (i = 0;\n"
                   "    19  EVAL      (post++ i)\n"
                   "    20  JUMP      -> 2\n"),
            std::string::npos)
      << d;
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("s"), 8.0);
  EXPECT_EQ(kit::value("z"), 3.0);  // not at i = 1
  EXPECT_EQ(kit::value("i"), 4.0);
}

TEST(Control, BreakInADoAfterAnInnerFor) {
  ASSERT_EQ(compileprog(std::string(head2) +
                        "do { for (j = 0; j < 2; j++) s += 1; i++; if (i > 2) break; } while (i < 10);\n"
                        "FUNCTION y = a*x;\nDATA;\n1 2\n"),
            1)
      << listing();
  std::string d = kit::dump();
  EXPECT_EQ(d.find("-> -1"), std::string::npos) << d;
  // The BREAK (slot 14) goes to the slot after the DO (slot 18).
  EXPECT_NE(d.find("    14  JUMP      -> 18\n"
                   "    15  LINE      9: } while (i < 10);\n"
                   "    16  JUMPF     (< i 10) -> 18\n"
                   "    17  JUMP      -> 0\n"
                   "    18  LINE      10: FUNCTION y = a*x;\n"),
            std::string::npos)
      << d;
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("i"), 3.0);
  EXPECT_EQ(kit::value("s"), 6.0);
}

TEST(Control, BreaksBeforeAndInsideAnInnerForKeepTheirOwnLoops) {
  // The outer BREAK comes before the inner FOR; the inner FOR's own BREAK
  // must still leave only the inner loop.
  ASSERT_EQ(compileprog(std::string(head2) +
                        "while (1) { if (i >= 3) break; "
                        "for (j = 0; j < 5; j++) { if (j == 2) break; s += 1; } i++; }\n"
                        "FUNCTION y = a*x;\nDATA;\n1 2\n"),
            1)
      << listing();
  EXPECT_EQ(kit::dump().find("-> -1"), std::string::npos) << kit::dump();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("i"), 3.0);
  EXPECT_EQ(kit::value("s"), 6.0);
}

std::string nested(const char* open, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += open;
  s += "z = 1;\n";
  return s;
}

TEST(Control, TwentyNineNestedWhileLoopsCompile) {
  ASSERT_EQ(compileprog(prog(nested("while (z < 1) ", 29))), 1) << listing();
}

TEST(Control, ThirtiethNestedLoopIsTooDeep) {
  EXPECT_EQ(compileprog(prog(nested("while (z < 1) ", 30))), 0);
  EXPECT_NE(listing().find("Error: Statements are nested too deeply\n"), std::string::npos);
}

TEST(Control, ThirtyForLoopsInSequenceAreTooDeep) {
  std::string body;
  for (int k = 0; k < 29; ++k) body += "for (i = 0; i < 1; i++) z = 1;\n";
  ASSERT_EQ(compileprog(prog(body)), 1) << listing();
  body += "for (i = 0; i < 1; i++) z = 1;\n";
  EXPECT_EQ(compileprog(prog(body)), 0);
  EXPECT_NE(listing().find("Error: Statements are nested too deeply\n"), std::string::npos);
}

TEST(Control, BreakOutsideLoops) {
  EXPECT_EQ(compileprog(prog("BREAK;\n")), 0);
  EXPECT_NE(listing().find("Error: BREAK statement is not in range of WHILE or FOR statment.\n"),
            std::string::npos)
      << listing();
  EXPECT_EQ(compileprog(prog("continue;\n")), 0);
  EXPECT_NE(listing().find("Error: CONTINUE statement is not in range of WHILE or FOR statment.\n"),
            std::string::npos);
}

TEST(Control, BreakAfterAForLoopIsAccepted) {
  ASSERT_EQ(compileprog(prog("for (i = 0; i < 2; i++) z = 1;\nBREAK;\n")), 1) << listing();
}

TEST(Control, SyntaxErrors) {
  EXPECT_EQ(compileprog(prog("while z < 1) z = 1;\n")), 0);
  EXPECT_NE(listing().find("Error: Missing left parenthesis\n"), std::string::npos) << listing();
  EXPECT_EQ(compileprog(prog("for (i = 0, i < 1; i++) z = 1;\n")), 0);
  EXPECT_NE(listing().find("Error: Syntax error\n"), std::string::npos) << listing();
  EXPECT_EQ(compileprog(prog("for (i = 0; i < 1; i++ z = 1;\n")), 0);
  EXPECT_NE(listing().find("Error: Missing right parenthesis\n"), std::string::npos) << listing();
  EXPECT_EQ(compileprog(prog("do z = 1; until (z);\n")), 0);
  EXPECT_NE(listing().find("Error: Expected keyword WHILE\n"), std::string::npos) << listing();
}

TEST(Control, LongProgramsFlowThroughLinkingJumps) {
  // 300 statements of two instructions each fill more than one block.
  std::string body = "s = 0;\n";
  for (int k = 0; k < 300; ++k) body += "s += 1;\n";
  ASSERT_EQ(compileprog(prog(body) + "DATA;\n1 2\n"), 1) << listing();
  EXPECT_NE(kit::dump().find("   499  JUMP      -> 500\n"), std::string::npos);
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("s"), 300.0);
}

TEST(Control, LoopBackAcrossBlocks) {
  std::string body = "s = 0; z = 0;\nwhile (z < 3) {\n";
  for (int k = 0; k < 300; ++k) body += "s += 1;\n";
  body += "z += 1; }\n";
  ASSERT_EQ(compileprog(prog(body) + "DATA;\n1 2\n"), 1) << listing();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("s"), 900.0);
}

}  // namespace
}  // namespace vexor
