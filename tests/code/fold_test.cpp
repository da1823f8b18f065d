// Constant folding: operator nodes and built-in calls with constant operands
// become constants at compile time, with the compile-time messages and the
// differences from the run time that folding keeps on purpose.
//
// Reference values as in builtins_test.cpp (python3 with mpmath 1.3.0);
// the fold-equals-run test compares the folded value with the run-time value
// of the same call, which builtins_test.cpp checks against those references.
#include <cmath>
#include <string>
#include <vector>

#include "runtest.h"

namespace vexor::test {
namespace {

class FoldTest : public RunTest {
 protected:
  // The tree of the first OP_EVAL of the compiled program.
  ExprNode* firsteval() {
    for (OpInstr* p = progstart; p && p->opcode != OP_STOP; ++p)
      if (p->opcode == OP_EVAL) return static_cast<ExprNode*>(p->operand1);
    return nullptr;
  }
  // The right side of "z = ..." in the first OP_EVAL.
  ExprNode* assigned() {
    ExprNode* t = firsteval();
    EXPECT_NE(t, nullptr);
    if (!t) return nullptr;
    EXPECT_EQ(t->kind, EN_ASSIGN);
    return t->right;
  }
  // Compiles a program that must fail and returns its listing.
  std::string failing(const char* text) {
    srcset(text);
    EXPECT_EQ(compile(), nullptr);
    return listing();
  }
};

constexpr const char* HEAD = "VARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z, w = -1;\n";
std::string prog(const std::string& stmt) {
  return std::string(HEAD) + stmt + "\nFUNCTION y = a*x;\nDATA;\n1 3\n";
}

TEST_F(FoldTest, ArithmeticFoldsToOneConstant) {
  ASSERT_TRUE(build(prog("z = 2*3+1;").c_str()));
  int evals = 0;
  for (OpInstr* p = progstart; p->opcode != OP_STOP; ++p) evals += p->opcode == OP_EVAL;
  EXPECT_EQ(evals, 1);
  ExprNode* t = firsteval();
  ASSERT_EQ(t->kind, EN_ASSIGN);
  EXPECT_EQ(t->left->kind, EN_VARIABLE);
  ASSERT_EQ(t->right->kind, EN_CONSTANT);
  EXPECT_EQ(t->right->value, 7.0);
}

TEST_F(FoldTest, PiTimesTwo) {
  ASSERT_TRUE(build(prog("z = PI*2;").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_EQ(r->value, 6.283185307179586);
}

TEST_F(FoldTest, SquareRootOfANegativeConstant) {
  std::string l = failing(prog("z = SQRT(-1);").c_str());
  EXPECT_NE(l.find("     4: z = SQRT(-1);\r\nError: Attempt to take square root of negative number\r\n"),
            std::string::npos)
      << l;
}

TEST_F(FoldTest, SquareRootOfANegativeVariableFailsAtRunTime) {
  ASSERT_TRUE(build(prog("z = SQRT(w);").c_str()));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = SQRT(w);\r\n"
                       "Error: Attempt to take square root of negative number: -1\r\n");
}

TEST_F(FoldTest, DivisionAndModuloByZero) {
  std::string l = failing(prog("z = 1/0;").c_str());
  EXPECT_NE(l.find("Error: Division by zero\r\n"), std::string::npos) << l;
  RunTest::freeall();
  l = failing(prog("z = 5 % 0;").c_str());
  EXPECT_NE(l.find("Error: Division by zero\r\n"), std::string::npos) << l;
}

TEST_F(FoldTest, RandomIsNeverFolded) {
  ASSERT_TRUE(build(prog("z = RANDOM();").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CALL);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  double first = value("z");
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_NE(value("z"), first);
}

TEST_F(FoldTest, OperatorsFoldAsAtRunTime) {
  struct Case { const char* expr; double v; } cases[] = {
      {"z = 7.5 - 2.25;", 5.25},       {"z = 2.5 / 4;", 0.625},
      {"z = -7.5 % 2;", -1.5},         {"z = 3 ^ 2;", 9.0},
      {"z = 2 ^ 0.5;", std::sqrt(2.0)}, {"z = -2 ^ 2;", 4.0},
      {"z = 1 < 2;", 1.0},             {"z = 2 <= 1;", 0.0},
      {"z = 3 > 2;", 1.0},             {"z = 3 >= 4;", 0.0},
      {"z = 2 == 2;", 1.0},            {"z = 2 != 2;", 0.0},
      {"z = 2 && 0;", 0.0},            {"z = 0 || 0.5;", 1.0},
      {"z = !0;", 1.0},                {"z = 0 ? 2.5 : 3.5;", 3.5},
      {"z = 1 ? 2.5 : 3.5;", 2.5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expr);
    RunTest::freeall();
    ASSERT_TRUE(build(prog(c.expr).c_str()));
    ExprNode* r = assigned();
    ASSERT_EQ(r->kind, EN_CONSTANT);
    EXPECT_EQ(r->value, c.v);
  }
}

TEST_F(FoldTest, NegativeBaseFoldsWithoutTheRunTimeTest) {
  ASSERT_TRUE(build(prog("z = (-8)^(1/3);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_TRUE(std::isnan(r->value));
}

TEST_F(FoldTest, OperandsThatAreNotConstantStay) {
  ASSERT_TRUE(build(prog("z = x * (2 + 3);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_MUL);
  EXPECT_EQ(r->left->kind, EN_VARIABLE);
  ASSERT_EQ(r->right->kind, EN_CONSTANT);
  EXPECT_EQ(r->right->value, 5.0);
}

TEST_F(FoldTest, CallArgumentsFoldEvenWhenTheCallCannot) {
  ASSERT_TRUE(build(prog("z = MAX(x, 2*3);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CALL);
  ASSERT_EQ(r->firstarg->kind, EN_VARIABLE);
  ASSERT_EQ(r->firstarg->nextarg->kind, EN_CONSTANT);
  EXPECT_EQ(r->firstarg->nextarg->value, 6.0);
}

TEST_F(FoldTest, CompileTimeTexts) {
  struct Case { const char* stmt; const char* msg; } cases[] = {
      {"z = LN(0);", "Attempt to take log of negative or zero value"},
      {"z = LOG(-2.385);", "Attempt to take log of negative or zero value"},
      {"z = LOG10(0);", "Attempt to take log10 of negative or zero value"},
      {"z = LOG2(-1);", "Attempt to take log of negative or zero number"},
      {"z = SQRT(-2.385);", "Attempt to take square root of negative number"},
      {"z = CSC(0);", "Invalid argument to cosecant function"},
      {"z = CSCD(0);", "Invalid argument to CSCD function"},
      {"z = GAMMA(171);", "Gamma function argument out of range"},
      {"z = GAMMA(-4.5);", "Gamma function argument out of range"},
      {"z = GAMMAI(-5);", "Gamma function argument out of range"},
      {"z = Y0(0);", "Argument to Bessel function is negative or zero"},
      {"z = Y1(-1);", "Argument to Bessel function is negative or zero"},
      {"z = YN(1, 0);", "Argument to Bessel function is negative or zero"},
      {"z = BETAI(1.5, 2, 3);", "Invalid x value for BETAI function"},
      {"z = BETAI(0.5, 0, 3);", "Invalid a argument for BETAI function"},
      {"z = BETAI(0.5, 2, -3);", "Invalid b argument for BETAI function"},
      {"z = GAMMALN(0);", "Invalid argument to gammln function"},
      {"z = GAMMP(0, 1);", "Invalid arguments for gammp function"},
      {"z = GAMMP(1, -1);", "Invalid arguments for gammp function"},
      {"z = FAC(-4.5);", "Invalid argument to factorial function"},
      {"z = FAC(170.5);", "Invalid argument to factorial function"},
      {"z = FAC(-1);", "Invalid argument to inverse gamma function"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.stmt);
    RunTest::freeall();
    std::string l = failing(prog(c.stmt).c_str());
    std::string want = std::string("     4: ") + c.stmt + "\r\nError: " + c.msg + "\r\n";
    EXPECT_NE(l.find(want), std::string::npos) << l;
  }
}

TEST_F(FoldTest, FailedCallFoldsToZero) {
  // Directly: the failing call becomes the constant 0 after its report.
  ExprNode* c = call(FN_LN, {num(-1.0)});
  EXPECT_EQ(foldcall(c), c);
  EXPECT_EQ(c->kind, EN_CONSTANT);
  EXPECT_EQ(c->value, 0.0);
  EXPECT_EQ(c->firstarg, nullptr);
  EXPECT_EQ(exprerr, 1);
  EXPECT_EQ(listing(), "Error: Attempt to take log of negative or zero value\r\n");
  exprerr = 0;
}

TEST_F(FoldTest, ExpHasNoRangeTestsWhenFolded) {
  ASSERT_TRUE(build(prog("z = EXP(800); w = EXP(-750);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_TRUE(std::isinf(r->value));
}

// Below -700 the run time yields 0.0 without calling the exponential; the
// folder calls it: EXP(-701) folds to the library's value, about 3.6e-305
// (e^-701 = 3.6271...e-305, python3 math.exp).
TEST_F(FoldTest, ExpBelowTheRunTimeLimitFoldsToTheLibraryValue) {
  ASSERT_TRUE(build(prog("z = EXP(-701);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_EQ(r->value, std::exp(-701.0));
  EXPECT_NEAR(r->value, 3.6271e-305, 1e-4 * 3.6271e-305);
  RunTest::freeall();
  ASSERT_TRUE(build(prog("z = EXP(x - 702);").c_str()));  // x = 1
  EXPECT_EQ(assigned()->kind, EN_CALL);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(value("z"), 0.0);
}

TEST_F(FoldTest, FactorialRangeDiffersFromRunTime) {
  // FAC(170) folds (170! = 7.257415615307999e306, python3 math.factorial),
  // while at run time it is out of range.
  ASSERT_TRUE(build(prog("z = FAC(170); w = FAC(-4);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_NEAR(r->value, 7.257415615307999e306, 2e-8 * 7.257415615307999e306);
  // FAC(-4) folds to 1/rgamma(-3): the truncated series of Abramowitz and
  // Stegun 6.1.34 with its printed coefficients at z = -3 (summed by
  // python3 with mpmath at 40 digits).  Gamma has a pole at -3; the series
  // does not.
  OpInstr* p = progstart;
  while (p->opcode != OP_EVAL) ++p;
  ++p;
  while (p->opcode != OP_EVAL) ++p;
  ExprNode* second = static_cast<ExprNode*>(p->operand1);
  ASSERT_EQ(second->kind, EN_ASSIGN);
  ASSERT_EQ(second->right->kind, EN_CONSTANT);
  EXPECT_NEAR(second->right->value, 2844.5458773518906416, 1e-10 * 2844.5458773518906416);
  RunTest::freeall();
  ASSERT_TRUE(build(prog("z = FAC(x + 169);").c_str()));
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = FAC(x + 169);\r\n"
                       "Error: Factorial function argument out of range: 170\r\n");
}

TEST_F(FoldTest, CallsWithoutCompileTimeTextAreLeftForTheRunTime) {
  ASSERT_TRUE(build(prog("z = CHEBY(-1, 0.5);").c_str()));
  EXPECT_EQ(assigned()->kind, EN_CALL);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = CHEBY(-1, 0.5);\r\n"
                       "Error: Arg 1 (order) negative for Chebyshev function: -1\r\n");

  RunTest::freeall();
  ASSERT_TRUE(build(prog("z = ACOS(2);").c_str()));
  EXPECT_EQ(assigned()->kind, EN_CALL);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = ACOS(2);\r\n"
                       "Error: ACOS argument 2 not in range -1 to 1\r\n");
}

// A routine that fails while a constant call is computed (gser runs out of
// terms for GAMMP(1e6, 1e6)) shows nothing in the listing and leaves the
// call for the run time, which reports it with its line.
TEST_F(FoldTest, RoutineFailureLeavesTheCallForTheRunTime) {
  srcset(prog("z = GAMMP(1e6, 1e6);").c_str());
  ASSERT_NE(compile(), nullptr) << listing();
  EXPECT_EQ(listing().find("Error"), std::string::npos) << listing();
  EXPECT_EQ(errflag, 0);
  EXPECT_EQ(stopflag, 0);
  EXPECT_EQ(computing, 0);
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CALL);
  ASSERT_NE(r->firstarg, nullptr);
  EXPECT_EQ(r->firstarg->kind, EN_CONSTANT);
  lstclear();
  resetwork();
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 4: z = GAMMP(1e6, 1e6);\r\n"
                       "Error: a too large or itmax too small in routine gser\r\n");
}

TEST_F(FoldTest, RoutineFailureWhileFoldingKeepsTheRunState) {
  stopflag = 1;
  computing = 0;
  ExprNode* c = call(FN_GAMMP, {num(1e6), num(1e6)});
  EXPECT_EQ(foldcall(c), c);
  EXPECT_EQ(c->kind, EN_CALL);
  EXPECT_EQ(c->firstarg->kind, EN_CONSTANT);
  EXPECT_EQ(c->firstarg->nextarg->kind, EN_CONSTANT);
  EXPECT_EQ(errflag, 0);
  EXPECT_EQ(stopflag, 1);
  EXPECT_EQ(computing, 0);
  EXPECT_EQ(exprerr, 0);
  EXPECT_EQ(listing(), "");
  stopflag = 0;
  // A call that computes normally still folds.
  ExprNode* ok = call(FN_GAMMP, {num(2.5), num(1.385)});
  foldcall(ok);
  ASSERT_EQ(ok->kind, EN_CONSTANT);
  EXPECT_NEAR(ok->value, 0.26460681613876284, 3e-7);
}

// High CHEBY orders fold through the loop: no deep recursion at compile
// time (T_n(0.5) = cos(n pi / 3), -0.5 for n = 1e7).
TEST_F(FoldTest, ChebyshevOfHighOrderFolds) {
  ASSERT_TRUE(build(prog("z = CHEBY(1e7, 0.5);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_EQ(r->value, chebyiterative(10000000, 0.5));
  EXPECT_NEAR(r->value, -0.5, 1e-6);
}

// JN(2147483647, x) and CHEBY(1e70, x) folded as constants: the compile
// answers at once with the run-time values.
TEST_F(FoldTest, Jn2147483647AndCheby1e70Fold) {
  ASSERT_TRUE(build(prog("z = JN(2147483647, 0.385) + CHEBY(1e70, 0.385);").c_str()));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_EQ(r->value, cheby(2147483647L, 0.385));
  EXPECT_NEAR(r->value, -0.025500696890292630102, 1e-9);
}

TEST_F(FoldTest, TanAt90DegreesIsLeftForTheRunTime) {
  ASSERT_TRUE(build("ANGLETYPE DEGREES;\nVARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z, w;\n"
                    "z = TAN(90); w = TAN(45);\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  EXPECT_EQ(assigned()->kind, EN_CALL);
  EXPECT_EQ(runprog(0, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(listing(), "Error executing line 5: z = TAN(90);\r\n"
                       "Error: TAN function argument = 90 degrees\r\n");
  degrees = 0;
}

TEST_F(FoldTest, AngleSettingAppliesWhenFolding) {
  ASSERT_TRUE(build("ANGLETYPE DEGREES;\nVARIABLES x, y;\nPARAMETERS a = 2;\nDOUBLE z;\n"
                    "z = SIN(30);\nFUNCTION y = a*x;\nDATA;\n1 3\n"));
  ExprNode* r = assigned();
  ASSERT_EQ(r->kind, EN_CONSTANT);
  EXPECT_NEAR(r->value, 0.5, 1e-15);
  degrees = 0;
}

TEST_F(FoldTest, PrintfAndReturnAreNeverFolded) {
  ExprNode* p = call(FN_PRINTF, {str("%lG"), op(EN_ADD, num(1.0), num(2.0))});
  EXPECT_EQ(foldcall(p), p);
  EXPECT_EQ(p->kind, EN_CALL);
  EXPECT_EQ(p->firstarg->nextarg->kind, EN_ADD);
  ExprNode* r = call(FN_RETURN, {num(1.0)});
  EXPECT_EQ(foldcall(r)->kind, EN_CALL);
}

// Every function that folds gives exactly its run-time value.
TEST_F(FoldTest, FoldedValueEqualsRunTimeValue) {
  struct Case { uint8_t code; std::vector<double> args; } cases[] = {
      {FN_ACOS, {0.385}}, {FN_ASIN, {0.385}}, {FN_ATAN, {2.385}}, {FN_COS, {2.385}},
      {FN_EXP, {2.385}}, {FN_ABS, {-2.385}}, {FN_LN, {2.385}}, {FN_LOG10, {2.385}},
      {FN_SIN, {2.385}}, {FN_SQRT, {2.385}}, {FN_TAN, {1.385}}, {FN_DEG, {2.385}},
      {FN_RAD, {23.85}}, {FN_COT, {1.385}}, {FN_HAV, {2.385}}, {FN_COSH, {1.385}},
      {FN_SINH, {1.385}}, {FN_TANH, {1.385}}, {FN_NORMAL, {1.385}}, {FN_MAX, {1.5, 2.5}},
      {FN_MIN, {1.5, 2.5}}, {FN_STEP, {1.0, 2.0}}, {FN_PULSE, {1.0, 2.0, 3.0}},
      {FN_GAMMA, {2.385}}, {FN_GAMMAI, {0.385}}, {FN_SEC, {1.385}}, {FN_CSC, {1.385}},
      {FN_J0, {2.385}}, {FN_J1, {2.385}}, {FN_JN, {2.9, 2.385}}, {FN_Y0, {2.385}},
      {FN_Y1, {2.385}}, {FN_YN, {3.2, 2.385}}, {FN_CHEBY, {7.0, 0.385}}, {FN_FAC, {4.385}},
      {FN_SEL, {2.0, 1.5, 10.0, 20.0}}, {FN_EI1, {0.6, 0.9}}, {FN_EI2, {0.6, 0.9}},
      {FN_EIC1, {0.6}}, {FN_EIC2, {0.6}}, {FN_BETAI, {0.385, 2.5, 3.5}},
      {FN_GAMMALN, {2.385}}, {FN_PAREA, {1.385}}, {FN_ERF, {0.385}}, {FN_LOG2, {2.385}},
      {FN_NPD, {2.385, 1.5, 0.8}}, {FN_RTOPA, {1.2, -0.7}}, {FN_RTOPD, {1.2, -0.7}},
      {FN_PTORX, {0.385, 2.5}}, {FN_PTORY, {0.385, 2.5}}, {FN_PTOC, {2.385}},
      {FN_CTOP, {0.385}}, {FN_MOD, {7.385, 2.5}}, {FN_FLOOR, {-2.5}}, {FN_CEIL, {2.385}},
      {FN_ROUND, {-2.5}}, {FN_EI1D, {35.0, 1.2}}, {FN_EI2D, {35.0, 1.2}},
      {FN_EIC1D, {35.0}}, {FN_EIC2D, {35.0}}, {FN_ACOSD, {0.385}}, {FN_ASIND, {0.385}},
      {FN_ATAND, {2.385}}, {FN_COSD, {23.85}}, {FN_SIND, {23.85}}, {FN_TAND, {23.85}},
      {FN_COTD, {23.85}}, {FN_HAVD, {23.85}}, {FN_SECD, {23.85}}, {FN_CSCD, {23.85}},
      {FN_RTOPAD, {1.2, -0.7}}, {FN_PTORXD, {23.85, 2.5}}, {FN_PTORYD, {23.85, 2.5}},
      {FN_PTOCD, {123.85}}, {FN_CTOPD, {326.15}}, {FN_GAMMP, {2.5, 1.385}},
  };
  for (int deg = 0; deg <= 1; ++deg)
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::Message() << "code " << (int)c.code << " degrees " << deg);
      degrees = deg;
      ExprNode* n = newnode();
      n->kind = EN_CALL;
      n->funcode = c.code;
      ExprNode** link = &n->firstarg;
      for (double v : c.args) {
        *link = num(v);
        link = &(*link)->nextarg;
      }
      std::vector<double> a = c.args;
      a.resize(4, 0.0);
      double run = runcall(c.code, {a[0], a[1], a[2], a[3]});
      foldcall(n);
      ASSERT_EQ(n->kind, EN_CONSTANT);
      EXPECT_EQ(n->value, run);
      freetree(n);
    }
  degrees = 0;
  EXPECT_EQ(listing(), "");
}

}  // namespace
}  // namespace vexor::test
