// The interpreter: runprog, evalexpr, lvaladdr, resetwork and runerror, on
// programs compiled from source and on instruction lists built by hand.
#include <cmath>
#include <cstdio>
#include <string>

#include "runtest.h"
#include "kit/kit.h"

namespace vexor::test {
namespace {

class InterpTest : public RunTest {};

TEST_F(InterpTest, PredictedAndResidual) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  double pred = -1, obsv = -1;
  EXPECT_EQ(runprog(0, nullptr, &pred, &obsv), 1);
  EXPECT_EQ(pred, 2.0);
  EXPECT_EQ(obsv, 3.0);
  EXPECT_EQ(value("Predicted"), 2.0);
  EXPECT_EQ(value("Residual"), 1.0);
  EXPECT_EQ(value("Obs"), 1.0);
  EXPECT_EQ(listing(), "");
}

TEST_F(InterpTest, NoDependentVariable) {
  ASSERT_TRUE(build("VARIABLES x;\nPARAMETERS a = 2.5;\nFUNCTION a*x;\nDATA;\n1.5\n"));
  double pred = -1, obsv = -1;
  EXPECT_EQ(runprog(0, nullptr, &pred, &obsv), 1);
  EXPECT_EQ(pred, 3.75);
  EXPECT_EQ(obsv, 0.0);
  EXPECT_EQ(value("Residual"), 3.75);
  EXPECT_EQ(value("Predicted"), 3.75);
}

TEST_F(InterpTest, InputVectorInsteadOfData) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  const double in[] = {4.25, 10.0};
  double pred = 0, obsv = 0;
  EXPECT_EQ(runprog(6, in, &pred, &obsv), 1);
  EXPECT_EQ(pred, 8.5);
  EXPECT_EQ(obsv, 10.0);
  EXPECT_EQ(value("Obs"), 7.0);
}

TEST_F(InterpTest, FunctionNotExecuted) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nIF (x > 0) FUNCTION y = a;\nDATA;\n-1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error: FUNCTION statement was not executed.\r\n");
  EXPECT_EQ(runline, nullptr);
}

TEST_F(InterpTest, DivisionByZeroShowsTheDividend) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z;\n"
                    "z = x/0;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(),
            "Error executing line 4: z = x/0;\r\nError: Attempted division of 1 by zero\r\n");
}

TEST_F(InterpTest, DivideAssignByZero) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z = 4;\n"
                    "   z /= 0;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z /= 0;\r\nError: Attempted division by zero\r\n");
  EXPECT_EQ(value("z"), 4.0);
}

TEST_F(InterpTest, ModuloByZero) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z, w;\n"
                    "z = 5 % w;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = 5 % w;\r\nError: Modulo 0 attempted\r\n");
}

TEST_F(InterpTest, PowersOfANegativeBase) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z, c, n;\n"
                    "c = x^3;\nn = x^20 + x^0;\nz = x^(1/3);\nFUNCTION y = a*x;\nDATA;\n-8 3\n0 1\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(value("c"), -512.0);
  EXPECT_EQ(value("n"), std::pow(8.0, 20) + 1.0);
  EXPECT_EQ(listing(), "Error executing line 6: z = x^(1/3);\r\n"
                       "Error: Raising negative value (-8) to power (0.333333)\r\n");
  lstclear();
  EXPECT_EQ(runprog(1, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(value("n"), 1.0);  // 0^20 + 0^0
  EXPECT_EQ(value("z"), 0.0);
}

TEST_F(InterpTest, NegativeBaseOutsideWholeZeroToTwenty) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z;\n"
                    "z = x^(-1);\nz = x^21;\nFUNCTION y = a*x;\nDATA;\n-2 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  // The run ends after the first failing instruction.
  EXPECT_EQ(listing(), "Error executing line 4: z = x^(-1);\r\n"
                       "Error: Raising negative value (-2) to power (-1)\r\n");
  const double in[] = {2.0, 0.0};
  lstclear();
  EXPECT_EQ(runprog(0, in, nullptr, nullptr), 1);
  EXPECT_EQ(value("z"), 2097152.0);
}

TEST_F(InterpTest, OneSubscriptUpperBoundIsExclusive) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE v[5];\n"
                    "v[4] = 1.5;\nv[5] = 2.5;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(),
            "Error executing line 5: v[5] = 2.5;\r\nError: Subscript value of 5 is invalid for v\r\n");
  Symbol* v = symfind("v");
  EXPECT_EQ(v->elems[4], 1.5);
  EXPECT_EQ(v->elems[0], 2.5);  // the access goes on at element 0
}

TEST_F(InterpTest, TwoSubscriptsAdmitTheDimensions) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[3,4], r;\n"
                    "m[3,4] = 7.25;\nr = m[3,4] + m[2,3];\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(listing(), "");
  Symbol* m = symfind("m");
  EXPECT_EQ(m->elems[4 * 3 + 4], 7.25);
  EXPECT_EQ(value("r"), 7.25);
}

TEST_F(InterpTest, TwoSubscriptsBeyondTheDimensions) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[3,4];\n"
                    "m[4,-1] = 7.25;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: m[4,-1] = 7.25;\r\n"
                       "Error: Subscript value of 4 is invalid for m\r\n"
                       "Error executing line 4: m[4,-1] = 7.25;\r\n"
                       "Error: Subscript value of -1 is invalid for m\r\n");
  EXPECT_EQ(symfind("m")->elems[0], 7.25);
}

// An element read as an operand: its subscript is evaluated as the node's
// operand and again by lvaladdr, so an effect in it acts twice.
TEST_F(InterpTest, ElementOperandEvaluatesItsSubscriptTwice) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE v[3] = {1.5, 2.5, 3.5}, i, z;\n"
                    "z = v[i++];\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(value("i"), 2.0);
  EXPECT_EQ(value("z"), 2.5);  // v[1]: the second evaluation yields 1
  EXPECT_EQ(listing(), "");
}

TEST_F(InterpTest, ElementOperandWithTwoSubscriptsEvaluatesBothTwice) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[3,4] = {1, 2, 3, 4, 5, 6, 7}, i, j, z;\n"
                    "z = m[i++, j++];\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(value("i"), 2.0);
  EXPECT_EQ(value("j"), 2.0);
  EXPECT_EQ(value("z"), 6.0);  // m[1,1]: element 4 * 1 + 1
}

// An assignment target is not an operand: its subscript is evaluated once,
// by lvaladdr.
TEST_F(InterpTest, ElementTargetEvaluatesItsSubscriptOnce) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE v[3], i;\n"
                    "v[i++] = 7.5;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(value("i"), 1.0);
  Symbol* v = symfind("v");
  EXPECT_EQ(v->elems[0], 7.5);
  EXPECT_EQ(v->elems[1], 0.0);
}

TEST_F(InterpTest, FailingSubscriptOfAnElementOperandReportsTwice) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE v[3] = {1.5, 2.5}, w, z = 9;\n"
                    "z = v[1/w];\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = v[1/w];\r\n"
                       "Error: Attempted division of 1 by zero\r\n"
                       "Error executing line 4: z = v[1/w];\r\n"
                       "Error: Attempted division of 1 by zero\r\n");
  EXPECT_EQ(value("z"), 1.5);  // the failed division gives 0: element 0
}

// Arrays with a dimension below 1 are accepted; whatever their subscripts,
// no access leaves their storage (these tests run under AddressSanitizer
// in CI).  An element number outside the storage is taken as element 0.
TEST_F(InterpTest, ZeroFirstDimensionHoldsTheAdmittedColumns) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[0,5], r, s;\n"
                    "m[0,5] = 7.25; m[0,2] = 1.5;\nr = m[0,5]; s = m[0,2];\n"
                    "FUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(listing(), "");  // row 0 and columns 0..5 pass the test
  Symbol* m = symfind("m");
  ASSERT_GE(m->nalloc, 6);
  EXPECT_EQ(m->elems[5], 7.25);
  EXPECT_EQ(m->elems[2], 1.5);
  EXPECT_EQ(value("r"), 7.25);
  EXPECT_EQ(value("s"), 1.5);
}

TEST_F(InterpTest, NegativeFirstDimensionRejectsEveryRow) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[-1,5], r;\n"
                    "m[0,5] = 7.25;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: m[0,5] = 7.25;\r\n"
                       "Error: Subscript value of 0 is invalid for m\r\n");
  Symbol* m = symfind("m");
  ASSERT_GE(m->nalloc, 6);
  EXPECT_EQ(m->elems[5], 7.25);  // row replaced by 0, column 5 kept

  // A read goes the same way: row 2 fails, column 5 is kept.
  RunTest::freeall();
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[-1,5], r;\n"
                    "r = (m[0,5] = 7.25) + m[2,5];\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: r = (m[0,5] = 7.25) + m[2,5];\r\n"
                       "Error: Subscript value of 0 is invalid for m\r\n"
                       "Error executing line 4: r = (m[0,5] = 7.25) + m[2,5];\r\n"
                       "Error: Subscript value of 2 is invalid for m\r\n");
  EXPECT_EQ(value("r"), 14.5);
}

TEST_F(InterpTest, NegativeSecondDimensionStaysInsideTheStorage) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[3,-2], big[1000,-2], r;\n"
                    "m[2,0] = 7.25;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  // The column fails its test and becomes 0; the element number -2 * 2 is
  // outside the storage, so element 0 is written.
  EXPECT_EQ(listing(), "Error executing line 4: m[2,0] = 7.25;\r\n"
                       "Error: Subscript value of 0 is invalid for m\r\n");
  Symbol* m = symfind("m");
  EXPECT_GE(m->nalloc, 1);
  EXPECT_EQ(m->elems[0], 7.25);

  // Writes and reads in one statement (a failing statement ends the run):
  // every element number here is negative, so all of them use element 0.
  RunTest::freeall();
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[3,-2], big[1000,-2], r;\n"
                    "r = (m[0,0] = 1.5) + (big[1000,0] = 2.5) + m[3,5] + big[999,-7];\n"
                    "FUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  std::string l = listing();
  std::size_t reports = 0;
  for (std::size_t p = l.find("Error: Subscript value of "); p != std::string::npos;
       p = l.find("Error: Subscript value of ", p + 1))
    ++reports;
  EXPECT_EQ(reports, 4u) << l;
  EXPECT_EQ(symfind("m")->elems[0], 1.5);
  EXPECT_EQ(symfind("big")->elems[0], 2.5);
  EXPECT_EQ(value("r"), 1.5 + 2.5 + 1.5 + 2.5);
}

TEST_F(InterpTest, NegativeDimensionsWithInitialValues) {
  // Both dimensions negative: their product is the element count the
  // initial-value list may fill.
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[-2,-3] = {1, 2, 3, 4, 5, 6}, r;\n"
                    "r = m[0,0];\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  Symbol* m = symfind("m");
  ASSERT_GE(m->nalloc, 6);
  EXPECT_EQ(m->elems[5], 6.0);
  resetwork();
  EXPECT_EQ(m->elems[5], 6.0);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);  // every row and column fails
  EXPECT_EQ(value("r"), 1.0);
}

TEST_F(InterpTest, HugeSecondDimensionBeyondTheStorageUsesElementZero) {
  // A first dimension of 0 places no limit on the second; the storage stops
  // at the most any array within the size limit can need, and columns
  // beyond it (which pass the test) reach element 0.
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[0,100000], r;\n"
                    "m[0,100000] = 7.25; m[0,40000] = 1.5; r = m[0,99999];\n"
                    "FUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(listing(), "");
  Symbol* m = symfind("m");
  ASSERT_EQ(m->nalloc, 40001);
  EXPECT_EQ(m->elems[0], 7.25);
  EXPECT_EQ(m->elems[40000], 1.5);
  EXPECT_EQ(value("r"), 7.25);
}

// Malformed statements that still compile ("c = =;", "c = ?;", a missing
// subscript): missing operands read as 0.0 and a missing assignment target
// is an error of the run, never a crash.
TEST_F(InterpTest, MissingOperandsReadAsZero) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE c = 5, m[2, 2];\n"
                    "c = ?;\nFUNCTION y = a*x + c;\nDATA;\n1 3\n"));
  double pred = 0;
  EXPECT_EQ(runprog(0, nullptr, &pred, nullptr), 1);
  EXPECT_EQ(pred, 2.0);  // c = 0.0
  EXPECT_EQ(listing(), "");
}

TEST_F(InterpTest, MissingSubscriptsReadAsZero) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE c = 5, m[2, 2];\n"
                    "m[1, 1] = 7;\nc = m[,];\nFUNCTION y = a*x + c;\nDATA;\n1 3\n"));
  double pred = 0;
  EXPECT_EQ(runprog(0, nullptr, &pred, nullptr), 1);
  EXPECT_EQ(pred, 2.0);  // m[0, 0]
  EXPECT_EQ(listing(), "");
}

TEST_F(InterpTest, MissingAssignmentTargetIsAnError) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE c;\n"
                    "c = =;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: c = =;\r\nError: Invalid token type for lvalue\r\n");
}

TEST_F(InterpTest, TwoErrorsInOneExpression) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z, w;\n"
                    "z = x/w + 2.5/w;\nz = 1;\nFUNCTION y = a*x;\nDATA;\n1.5 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = x/w + 2.5/w;\r\n"
                       "Error: Attempted division of 1.5 by zero\r\n"
                       "Error executing line 4: z = x/w + 2.5/w;\r\n"
                       "Error: Attempted division of 2.5 by zero\r\n");
  EXPECT_EQ(value("z"), 0.0);  // the run stopped before z = 1
}

TEST_F(InterpTest, ErrorLineIsShownWithoutIndentationAndCut) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z, w;\n"
                    "\t  z = x/w + 1.0000000000 + 2.0000000000 + 3.0000000000 + 4.0000000000 + 5;\n"
                    "FUNCTION y = a*x;\nDATA;\n1.5 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: "
                       "z = x/w + 1.0000000000 + 2.0000000000 + 3.0000000000 + 4.0000000000 + \r\n"
                       "Error: Attempted division of 1.5 by zero\r\n");
}

TEST_F(InterpTest, ErrorsAreHiddenWhileComputing) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z;\n"
                    "z = x/0;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  computing = 1;
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "");
  computing = 0;
}

TEST_F(InterpTest, ErrorsGoToTheOutputFile) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z;\n"
                    "z = x/0;\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  outfp = f;
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  outfp = nullptr;
  std::string written = kit::readstream(f);
  std::fclose(f);
  EXPECT_EQ(written,
            "\nError executing line 4: z = x/0;\nError: Attempted division of 1 by zero\n");
}

TEST_F(InterpTest, AbortIsReportedOnce) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nFUNCTION y = a*x;\nDATA;\n1 3\n2 5\n"));
  computing = 1;
  abortflag = 1;
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(runprog(1, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error: Aborting analysis...\r\n");
  EXPECT_EQ(abortreported, 1);
  abortflag = 0;
  computing = 0;
}

TEST_F(InterpTest, WorkVariablesAccumulateWithinAPass) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE s = 10, v[3] = {1, 2};\n"
                    "s += x;\nv[2] += x;\nFUNCTION y = a*s;\nDATA;\n1 3\n2 5\n4 9\n"));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(runprog(i, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(value("s"), 17.0);
  EXPECT_EQ(symfind("v")->elems[2], 7.0);
  resetwork();
  EXPECT_EQ(value("s"), 10.0);
  Symbol* v = symfind("v");
  EXPECT_EQ(v->elems[0], 1.0);
  EXPECT_EQ(v->elems[1], 2.0);
  EXPECT_EQ(v->elems[2], 0.0);
  EXPECT_EQ(value("x"), 1.0);  // the first observation
  EXPECT_EQ(value("y"), 3.0);
}

// The elements that two subscripts equal to the dimensions reach lie
// beyond dim1 * dim2; they restart from 0.0 at every pass like the others.
TEST_F(InterpTest, ElementsBeyondTheDimensionsRestartEachPass) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE m[3,4] = {5}, v[3,4];\n"
                    "m[3,4] += 1; m[2,4] += x; v[2,3] += 1;\nFUNCTION y = a*x;\nDATA;\n1 3\n2 5\n"));
  Symbol* m = symfind("m");
  Symbol* v = symfind("v");
  for (int pass = 0; pass < 3; ++pass) {
    SCOPED_TRACE(pass);
    resetwork();
    EXPECT_EQ(m->elems[4 * 3 + 4], 0.0);
    EXPECT_EQ(m->elems[4 * 2 + 4], 0.0);
    EXPECT_EQ(m->elems[0], 5.0);
    for (int i = 0; i < nobs; ++i) EXPECT_EQ(runprog(i, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(m->elems[4 * 3 + 4], 2.0);
    EXPECT_EQ(m->elems[4 * 2 + 4], 3.0);
    EXPECT_EQ(v->elems[4 * 2 + 3], 2.0);
  }
}

TEST_F(InterpTest, OperatorsAndControlFlow) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\n"
                    "DOUBLE i, s, t, p, q, c, k;\n"
                    "s = 0;\nfor (i = 0; i < 5; i++) { if (i == 2) continue; s += i; }\n"
                    "t = 0; while (1) { t++; if (t >= 3) break; }\n"
                    "p = (x > 1) && (x < 3) || !(x == 2);\n"
                    "q = x > 1 ? x * 10 : -x;\n"
                    "c = 7.5; c -= 2; c *= 2; c /= 4;\n"
                    "k = 5; k = k++ + --k;\n"
                    "FUNCTION y = a*x;\nDATA;\n2 3\n"));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(listing(), "");
  EXPECT_EQ(value("s"), 8.0);
  EXPECT_EQ(value("t"), 3.0);
  EXPECT_EQ(value("p"), 1.0);
  EXPECT_EQ(value("q"), 20.0);
  EXPECT_EQ(value("c"), 2.75);
  EXPECT_EQ(value("k"), 10.0);  // 5 (k becomes 6), then --k gives 5
}

TEST_F(InterpTest, StopEndsTheRunAndLastFunctionWins) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z;\n"
                    "FUNCTION y = a*x;\nFUNCTION y = a + x;\nSTOP;\nz = 1;\nDATA;\n1.5 3\n"));
  double pred = 0;
  EXPECT_EQ(runprog(0, nullptr, &pred, nullptr), 1);
  EXPECT_EQ(pred, 3.5);
  EXPECT_EQ(value("z"), 0.0);
}

TEST_F(InterpTest, ReturnWithoutFunctionFails) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nIF (x > 5) FUNCTION y = a*x;\n"
                    "RETURN(2.5, 4);\nDATA;\n1.5 3\n"));
  double pred = 0, obsv = 0;
  EXPECT_EQ(runprog(0, nullptr, &pred, &obsv), 0);
  EXPECT_EQ(listing(), "Error: FUNCTION statement was not executed.\r\n");
  EXPECT_EQ(pred, 2.5);
  EXPECT_EQ(obsv, 4.0);
}

TEST_F(InterpTest, TraceEchoesLines) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2;\nFUNCTION y = a*x;\nDATA;\n1.5 3\n"));
  traceflag = 1;
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  traceflag = 0;
  EXPECT_EQ(listing(), "--> Line 3: FUNCTION y = a*x;\r\n");
}

TEST_F(InterpTest, RunningAllocatesNothing) {
  ASSERT_TRUE(build("VARIABLES x, y;\nPARAMETERS a = 2.5, b = 0.3, c = 1.2, d = 0.7;\n"
                    "DOUBLE v[4], z;\nv[1] = x; z = MAX(x, 2) + v[1]^2;\n"
                    "IF (x > 1) { z += 1; }\nFUNCTION y = a*exp(-b*x) + c*sin(d*x) + z;\n"
                    "DATA;\n1 3\n2 5\n4 9\n"));
  uint32_t serial = memserial();
  long live = memlivecount();
  for (int pass = 0; pass < 3; ++pass) {
    resetwork();
    for (int i = 0; i < nobs; ++i) EXPECT_EQ(runprog(i, nullptr, nullptr, nullptr), 1);
  }
  // A failing run whose message is hidden while the optimizer iterates.
  computing = 1;
  const double in[] = {2000.0, 0.0};  // exp(0.3 * 2000): "too large"
  symfind("b")->value = -0.3;
  EXPECT_EQ(runprog(0, in, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "");
  computing = 0;
  EXPECT_EQ(memserial(), serial);
  EXPECT_EQ(memlivecount(), live);
}

// Hand-built instruction lists: the opcode test and block chaining.

class InterpCodeTest : public RunTest {
 protected:
  void SetUp() override {
    RunTest::SetUp();
    symbuiltins();
    progstart = emitpos = newopseg();
    opcount = 0;
  }
};

TEST_F(InterpCodeTest, InvalidOpcode) {
  emitop(OP_EVAL, num(1.0), nullptr);
  emitop(4, nullptr, nullptr);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error: Invalid opcode in generated code: 4\r\n");
}

TEST_F(InterpCodeTest, InvalidNodeKind) {
  testing::internal::CaptureStdout();
  emitop(OP_EVAL, op(EN_LPAREN, nullptr, nullptr), nullptr);
  emitop(OP_FUNCTION, nullptr, num(1.0));
  emitop(OP_STOP, nullptr, nullptr);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "op = 12\n");
  EXPECT_EQ(listing(), "Error: Invalid item in expression tree\r\n");
}

TEST_F(InterpCodeTest, InvalidLvalue) {
  emitop(OP_EVAL, op(EN_ASSIGN, num(1.0), num(2.0)), nullptr);
  emitop(OP_STOP, nullptr, nullptr);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error: Invalid token type for lvalue\r\n");
}

TEST_F(InterpCodeTest, EmptyExpressionIsZero) {
  EXPECT_EQ(evalexpr(op(EN_END, nullptr, nullptr)), 0.0);
  emitop(OP_EVAL, op(EN_END, nullptr, nullptr), nullptr);
  emitop(OP_FUNCTION, nullptr, num(2.5));
  emitop(OP_STOP, nullptr, nullptr);
  double pred = 0;
  EXPECT_EQ(runprog(0, nullptr, &pred, nullptr), 1);
  EXPECT_EQ(pred, 2.5);
  EXPECT_EQ(listing(), "");
}

TEST_F(InterpCodeTest, FlowsThroughChainedBlocks) {
  // 499 instructions fill the first block; the loop top lies in it and the
  // backward jump in the second block.
  Symbol* n = symnew("n", SYM_WORK);
  for (int i = 0; i < 497; ++i) emitop(OP_EVAL, num(i), nullptr);
  OpInstr* top = emitop(OP_EVAL, op(EN_PREINC, target(n), nullptr), nullptr);  // slot 498
  OpInstr* test = emitop(OP_JUMPF, op(EN_LT, var(n), num(3.0)), nullptr);     // slot 499
  EXPECT_EQ(progstart[OPSEGSIZE - 1].opcode, OP_JUMP);
  OpInstr* back = emitop(OP_JUMP, top, nullptr);  // first slot of block 2
  EXPECT_NE(back, progstart + OPSEGSIZE - 1);
  test->operand2 = emitop(OP_FUNCTION, nullptr, var(n));
  emitop(OP_STOP, nullptr, nullptr);
  double pred = 0;
  EXPECT_EQ(runprog(0, nullptr, &pred, nullptr), 1);
  EXPECT_EQ(pred, 3.0);
}

}  // namespace
}  // namespace vexor::test
