// Declarations through the statement compiler: the words that declare, the
// reserved words that cannot be declared, a name declared twice.
#include <gtest/gtest.h>

#include "api/engine.h"
#include "compiler/compiler.h"
#include "kit/kit.h"

namespace vexor::test {
namespace {

// The Listing as stored (CR LF line ends).
std::string listing() { return kit::listing(true); }

class Declarations : public ::testing::Test {
 protected:
  void SetUp() override { enginereset(); }
  void TearDown() override { enginereset(); }
};

// A whole program written with MODEL compiles to the FUNCTION instruction.
TEST_F(Declarations, AProgramWithModel) {
  srclist = 0;
  srcset("VARIABLES x, y;\nPARAMETERS a;\nmodel y = a * x;\n");
  OpInstr* start = compile();
  ASSERT_NE(start, nullptr) << listing();
  EXPECT_EQ(hasfunc, 1);
  ASSERT_NE(depvar, nullptr);
  EXPECT_STREQ(depvar->name, "y");
  EXPECT_EQ(start[0].opcode, OP_LINE);
  EXPECT_EQ(static_cast<SourceLine*>(start[0].operand1)->number, 3);
  ASSERT_EQ(start[1].opcode, OP_FUNCTION);
  EXPECT_EQ(start[1].operand1, depvar);
  auto* tree = static_cast<ExprNode*>(start[1].operand2);
  ASSERT_NE(tree, nullptr);
  EXPECT_EQ(tree->kind, EN_MUL);
  EXPECT_EQ(start[2].opcode, OP_STOP);
  EXPECT_EQ(nparm, 1);
  EXPECT_EQ(parms[0]->flags, SYMF_USED | SYMF_INMODEL);
}

// DATA and TO are reserved: declaring either is a syntax error, reported
// at the reserved word's line.
// An array's closing bracket or its initial values' closing brace
// missing: the message at the token found instead, which is dropped, and
// the tokens up to the next semicolon skipped (a recovery, which counts as
// a second compile error).
TEST_F(Declarations, MissingClosersOfArrays) {
  const struct {
    const char* decl;
    const char* message;
  } cases[] = {
      {"DOUBLE w[3;", "Right bracket missing"},
      {"DOUBLE w[3, 2 = {1};", "Right bracket missing"},
      {"DOUBLE w[3] = {1, 2;", "Right brace missing or misplaced"},
      {"DOUBLE v = {1 2};", "Right brace missing or misplaced"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.decl);
    EXPECT_EQ(kit::compileprog(std::string("VARIABLES x, y;\nPARAMETERS a = 1;\n") + c.decl +
                               "\nFUNCTION y = a*x;\n"),
              0);
    EXPECT_NE(listing().find(std::string("     3: ") + c.decl + "\r\nError: " + c.message + "\r\n"),
              std::string::npos)
        << listing();
    EXPECT_EQ(ncomperr, 2) << listing();
  }
}

TEST_F(Declarations, DeclaringDataOrToIsASyntaxError) {
  srclist = 0;
  const struct {
    const char* prog;
    const char* listing;
  } cases[] = {
      {"VARIABLES x;\nVARIABLES data;\n", "     2: VARIABLES data;\r\nError: Syntax error\r\n"},
      {"VARIABLES x;\n\nDOUBLE y,\n   to;\n", "     3: to;\r\nError: Syntax error\r\n"},
  };
  for (const auto& c : cases) {
    enginereset();
    srclist = 0;
    srcset(c.prog);
    EXPECT_EQ(compile(), nullptr) << c.prog;
    EXPECT_EQ(listing(), c.listing) << c.prog;
    EXPECT_EQ(ncomperr, 2) << c.prog;  // the message and the skipped statement
  }
}

// A name declared by VARIABLES and again by DOUBLE, in any letter case.
TEST_F(Declarations, VariableThenDoubleInAProgram) {
  srcset("VARIABLES x; DOUBLE X;\n");
  EXPECT_EQ(compile(), nullptr);
  EXPECT_NE(listing().find("     2: DOUBLE X;\r\nError: Variable defined more than once: X\r\n"),
            std::string::npos)
      << listing();
}

}  // namespace
}  // namespace vexor::test
