// Whole programs: declarations, FUNCTION, the end-of-compilation checks.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "api/engine.h"
#include "kit/kit.h"
#include "compiler/compiler.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

TEST(Statements, UndeclaredDependentVariable) {
  EXPECT_EQ(compileprog("VARIABLES x; PARAMETERS a; FUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: Undefined variable name: y\n"), std::string::npos) << listing();
}

// A FUNCTION statement whose expression ends at something other than ";"
// or a keyword.
TEST(Statements, FunctionEndingInAStrayToken) {
  EXPECT_EQ(compileprog("VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a*x )\nDOUBLE w;\n"), 0);
  EXPECT_NE(listing().find("     3: FUNCTION y = a*x )\nError: Invalid Function expression syntax\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, ParametersAreLenient) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a b=2, ,c; FUNCTION y = a*x + b + c;\n"), 1)
      << listing();
  ASSERT_EQ(nparm, 3);
  EXPECT_STREQ(parms[0]->name, "a");
  EXPECT_EQ(parms[0]->initval, 1.0);
  EXPECT_STREQ(parms[1]->name, "b");
  EXPECT_EQ(parms[1]->initval, 2.0);
  EXPECT_STREQ(parms[2]->name, "c");
  EXPECT_EQ(parms[2]->initval, 1.0);
}

TEST(Statements, StartMovedIntoConstrainRange) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a=5; CONSTRAIN a = 0, 1; FUNCTION y = a*x;\n"),
            1)
      << listing();
  EXPECT_EQ(parms[0]->value, 1.0);
  EXPECT_EQ(parms[0]->initval, 1.0);
  EXPECT_EQ(parms[0]->constrained, 1);
  EXPECT_EQ(parms[0]->lower, 0.0);
  EXPECT_EQ(nconstrain, 1);
}

TEST(Statements, TooManyInitialValuesReportedOnce) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE v[3] = {1, 2, 3, 4, 5};\n"
                        "FUNCTION y = a*x + v[0];\n"),
            0);
  std::string l = listing();
  std::size_t first = l.find("Error: Too many initial values specified\n");
  ASSERT_NE(first, std::string::npos) << l;
  EXPECT_EQ(l.find("Too many initial values", first + 10), std::string::npos);
  Symbol* v = symfind("v");
  EXPECT_EQ(v->elems[2], 3.0);
  EXPECT_EQ(v->ninit, 3);
}

TEST(Statements, ArraySizeLimit) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE m[200, 200];\nFUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: The maximum allowable array size is 20000\n"), std::string::npos)
      << listing();
  Symbol* m = symfind("m");
  EXPECT_EQ(m->dim1, 200);
  EXPECT_EQ(m->dim2, 100);
  EXPECT_EQ(m->nelem, 20000);
}

TEST(Statements, UnusedParameterEliminatedWithNotice) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a, b; FUNCTION y = a*x;\n"), 1) << listing();
  // The notice's own CR LF is stored with one more CR before the LF.
  std::string raw = kit::listing(true);
  EXPECT_NE(raw.find("Parameter b is never used and is being eliminated.\r\r\n"),
            std::string::npos)
      << raw;
  EXPECT_EQ(nparm, 1);
  EXPECT_STREQ(parms[0]->name, "a");
}

TEST(Statements, NoParametersLeft) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS b; FUNCTION y = 2*x;\n"), 0);
  std::string l = listing();
  EXPECT_NE(l.find("Parameter b is never used and is being eliminated."), std::string::npos);
  EXPECT_NE(l.find("Error: You must use some parameters.\n"), std::string::npos) << l;
}

TEST(Statements, EliminationRenumbersAndDropsSweep) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a, b, c; SWEEP b 1, 2, 1; SWEEP c 0, 1, 0.5;\n"
                        "FUNCTION y = a*x + c;\n"),
            1)
      << listing();
  ASSERT_EQ(nparm, 2);
  EXPECT_STREQ(parms[1]->name, "c");
  EXPECT_EQ(parms[1]->index, 1);
  ASSERT_EQ(nsweep, 1);
  EXPECT_EQ(sweeps[0].parm, parms[1]);
  EXPECT_EQ(sweeps[0].count, 2);
}

TEST(Statements, MinimisationWithoutVariables) {
  ASSERT_EQ(compileprog("PARAMETERS a = 1, b = 2; FUNCTION (a - 3)^2 + (b + 1)^2;\n"), 1)
      << listing();
  EXPECT_EQ(minimize, 1);
  EXPECT_EQ(nobs, 2);
  EXPECT_EQ(nparm, 2);
}

TEST(Statements, NumberStartingAStatement) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; 1; FUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: Syntax error (missing DATA statement?)\n"), std::string::npos)
      << listing();
}

TEST(Statements, MissingFunction) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a;\n"), 0);
  EXPECT_NE(listing().find("Error: Program must have a FUNCTION statement\n"), std::string::npos);
}

TEST(Statements, RedeclarationAcrossKinds) {
  EXPECT_EQ(compileprog("VARIABLES x; DOUBLE X;\n"), 0);
  EXPECT_NE(listing().find("Error: Variable defined more than once: X\n"), std::string::npos)
      << listing();
}

TEST(Statements, FirstDoubleIsWorkVariableThree) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE w; FUNCTION y = a*x + w;\n"), 1);
  EXPECT_EQ(symfind("w")->index, 3);
  EXPECT_EQ(nwork, 4);
}

TEST(Statements, BuiltinsNeedNoDeclaration) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE z;\n"
                        "z = obs + PREDICTED + residual; FUNCTION y = a*x;\n"),
            1)
      << listing();
}

TEST(Statements, KeywordCannotBeAVariable) {
  EXPECT_EQ(compileprog("VARIABLES data;\n"), 0);
  EXPECT_NE(listing().find("Error: Syntax error\n"), std::string::npos) << listing();
  EXPECT_EQ(compileprog("VARIABLES to;\n"), 0);
  EXPECT_NE(listing().find("Error: Syntax error\n"), std::string::npos);
}

TEST(Statements, ConstantNeedsAValue) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; CONSTANT k; FUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: CONSTANT variable must have initialization value\n"),
            std::string::npos);
}

TEST(Statements, ConstantFoldsIntoTrees) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; CONSTANT k = 2*3;\nFUNCTION y = a*x*k;\n"), 1);
  EXPECT_NE(kit::dump().find("FUNCTION  y = (* (* a x) 6)"), std::string::npos) << kit::dump();
}

TEST(Statements, ConstantExpressionRequired) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a = x; FUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: Only a constant expression may be specified.\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, ParameterAsDependentVariable) {
  EXPECT_EQ(compileprog("VARIABLES x; PARAMETERS a, b; FUNCTION a = b*x;\n"), 0);
  EXPECT_NE(listing().find("Error: A parameter may not be used as dependent variable: a\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, DifferentDependentVariables) {
  EXPECT_EQ(compileprog("VARIABLES x, y, z; PARAMETERS a;\nIF (x > 0) FUNCTION y = a*x;\n"
                        "ELSE FUNCTION z = a;\n"),
            0);
  EXPECT_NE(listing().find("Error: A different dependent variable was used in an earlier MODEL\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, ConstrainAndSweepErrors) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; CONSTRAIN x 0, 1; CONSTRAIN a 2, 1;\n"
                        "SWEEP x 0, 1, 1; CONSTRAIN 5;\nFUNCTION y = a*x;\n"),
            0);
  std::string l = listing();
  EXPECT_NE(l.find("Error: Constraints can only apply to parameters\n"), std::string::npos) << l;
  EXPECT_NE(l.find("Error: Invalid range of values\n"), std::string::npos);
  EXPECT_NE(l.find("Error: Sweep can only apply to parameters\n"), std::string::npos);
  EXPECT_NE(l.find("Error: Syntax error: parameter name expected\n"), std::string::npos);
}

TEST(Statements, ErrorReportLayout) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a;\n\t\t  FUNCTION y = a*q;\n"), 0);
  EXPECT_NE(listing().find("     3: FUNCTION y = a*q;\nError: Unrecognized word or variable: q\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, MissingSemicolon) {
  EXPECT_EQ(compileprog("VARIABLES x, y\nPARAMETERS a; FUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: Missing semicolon at end of statement\n"), std::string::npos)
      << listing();
}

TEST(Statements, UnrecognisedStatementAndStrayBrace) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; GRID; } ELSE;\nFUNCTION y = a*x;\n"), 0);
  std::string l = listing();
  EXPECT_NE(l.find("Error: Unrecognized statement\n"), std::string::npos) << l;
  EXPECT_NE(l.find("Error: There is no matching open brace for this close brace\n"),
            std::string::npos);
  EXPECT_NE(l.find("Error: This ELSE is not within an IF statement\n"), std::string::npos);
}

TEST(Statements, UnmatchedOpenBrace) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a;\n{ FUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: The open brace on line 3 is not properly matched\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, MisusedNot) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; ! comment;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: Misuse of '!' character (comments begin with '//')\n"),
            std::string::npos);
}

TEST(Statements, SemicolonMissingBeforeNextStatement) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE z;\nz = 1\nFUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("Error: Semicolon missing at end of previous statement\n"),
            std::string::npos)
      << listing();
}

TEST(Statements, CompileFileReadsAndReports) {
  kit::writefile("prog_ok.vex", "VARIABLES x, y;\nPARAMETERS a;\nFUNCTION y = a*x;\n");
  EXPECT_EQ(compilefile("prog_ok.vex"), 1);
  EXPECT_EQ(compiledok, 1);
  EXPECT_EQ(compilefile("no_such_file.vex"), 0);
  EXPECT_EQ(listing(), "Error: Unable to open VEXOR source file: no_such_file.vex\n");
  EXPECT_EQ(compiledok, 1);  // kept when the file could not be read
}

TEST(Statements, EchoNumbersEveryPiece) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a;\nFUNCTION y = a*x;\n"), 1);
  EXPECT_EQ(listing(), "   1: VARIABLES x, y;\n   2:  PARAMETERS a;\n   3: FUNCTION y = a*x;\n");
}

TEST(Statements, CompileFileOnADirectory) {
  // A directory opens for reading on some systems and then fails to read.
  EXPECT_EQ(compilefile("."), 0);
  EXPECT_EQ(listing(), "Error: Unable to open VEXOR source file: .\n");
}

TEST(Statements, RecompilingAndResettingFreeEveryNode) {
  const char* text =
      "VARIABLES x, y; PARAMETERS a, b; DOUBLE z;\n"
      "z = (x + 1) * sin(a) - (b ? 2 : 3);\n"
      "if (z > 0) z = -z; else z = max(z, 1);\n"
      "FUNCTION y = a*exp(-b*x) + z;\n";
  enginereset();
  const long before = memlivecount();
  ASSERT_EQ(compilesource(text), 1) << listing();
  EXPECT_NE(livenodes, nullptr);
  ASSERT_EQ(compilesource(text), 1) << listing();
  ASSERT_EQ(compilesource("VARIABLES x; FUNCTION y = q;\n"), 0);  // a failed one too
  EXPECT_EQ(livenodes, nullptr);  // nothing of the failed program is kept
  ASSERT_EQ(compilesource(text), 1) << listing();
  enginereset();
  EXPECT_EQ(livenodes, nullptr);
  EXPECT_EQ(memlivecount(), before);
}

TEST(Statements, TheParameterAfter2000IsReportedAndLeftOut) {
  std::string names;
  for (int i = 0; i < 2000; ++i) names += "p" + std::to_string(i) + (i % 20 == 19 ? ",\n" : ", ");
  // The 2001st name stands on line 102 (2 lines before, 100 of names).
  std::string text = "VARIABLES x, y;\nPARAMETERS " + names + "extra = 3;\nFUNCTION y = p0*x;\n";
  EXPECT_EQ(compileprog(text), 0);
  const std::string l = listing();
  const std::string report = "   102: extra = 3;\nError: VEXOR can only handle 2000 parameters.\n";
  EXPECT_NE(l.find(report), std::string::npos) << l.substr(l.size() - 300);
  EXPECT_EQ(l.find("Error:"), l.find(report) + report.find("Error:"));  // the only error
  EXPECT_EQ(l.rfind("Error:"), l.find("Error:"));
  EXPECT_EQ(nparm, 2000);
  EXPECT_STREQ(parms[1999]->name, "p1999");
  Symbol* extra = symfind("extra");
  ASSERT_NE(extra, nullptr);
  EXPECT_EQ(extra->kind, SYM_PARAM);
  EXPECT_EQ(extra->initval, 3.0);
  for (int32_t i = 0; i < nparm; ++i) EXPECT_NE(parms[i], extra);
}

TEST(Statements, ParameterDeclaredTwiceIsEnteredAgain) {
  EXPECT_EQ(compileprog("VARIABLES x, y;\nPARAMETERS a,\n a = 2;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_NE(listing().find("     3: a = 2;\nError: Parameter defined more than once: a\n"),
            std::string::npos)
      << listing();
  EXPECT_EQ(nparm, 2);
  EXPECT_EQ(parms[0], parms[1]);
  EXPECT_EQ(parms[0]->initval, 2.0);
}

TEST(Statements, HugeArrayDimensionsAreClamped) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE v[1e30], m[1e30, 1e30], n[0e400];\n"
                        "FUNCTION y = a*x;\n"),
            0);
  std::string l = listing();
  std::size_t first = l.find("Error: The maximum allowable array size is 20000\n");
  ASSERT_NE(first, std::string::npos) << l;
  Symbol* v = symfind("v");
  EXPECT_EQ(v->dim1, 20000);
  Symbol* m = symfind("m");
  EXPECT_EQ(m->dim1, 20000);
  EXPECT_EQ(m->dim2, 1);  // 20000 / 20000
  Symbol* n = symfind("n");
  EXPECT_EQ(n->ndims, 1);
  EXPECT_EQ(n->dim1, 0);  // not-a-number counts as 0
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE w[-1e30];\nFUNCTION y = a*x;\n"), 1)
      << listing();
  EXPECT_EQ(symfind("w")->dim1, INT32_MIN);
}

TEST(Statements, SweepWithAZeroStep) {
  // (end - start) / 0 is infinite, or not a number when end equals start:
  // the count is 0 either way, so the sweep visits its start value only.
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a, b; SWEEP a 1, 2, 0; SWEEP b 1, 1, 0;\n"
                        "FUNCTION y = a*x + b;\n"),
            1)
      << listing();
  ASSERT_EQ(nsweep, 2);
  EXPECT_EQ(sweeps[0].count, 0);
  EXPECT_EQ(sweeps[1].count, 0);
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; SWEEP a 0, 1e12, 1e-3;\n"
                        "FUNCTION y = a*x;\n"),
            1);
  EXPECT_EQ(sweeps[0].count, INT32_MAX);
}

TEST(Statements, DoubledSemicolonsBeforeElseAndWhile) {
  // A lone ";" between statements is no statement: ELSE and the WHILE of a
  // DO still follow their statements.
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE c, z, n;\n"
                        "c = x > 1;\n"
                        "if (c) z = 1;; else z = 2;\n"
                        "do n++;; while (n < 3);\n"
                        "FUNCTION y = a*x;\nDATA;\n2 0\n"),
            1)
      << listing();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("z"), 1.0);
  EXPECT_EQ(kit::value("n"), 3.0);
  // Inside parentheses the lone ";" still counts.
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE i, s;\n"
                        "for (i = 0;; i++) { if (i > 4) break; s += i; }\n"
                        "FUNCTION y = a*x;\nDATA;\n2 0\n"),
            1)
      << listing();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(kit::value("s"), 10.0);
}

TEST(Statements, OperatorsStandingAsOperands) {
  // A primary that is not an operand is a leaf of its own, which reads as
  // 0.0 when the program runs.
  testing::internal::CaptureStdout();
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE c, d;\n"
                        "c = 5; c = ,;\n"
                        "d = PRINTF(\"[%lg %lg]\",,c);\n"
                        "FUNCTION y = a*x;\nDATA;\n2 0\n"),
            1)
      << listing();
  EXPECT_EQ(kit::runall(), 0) << listing();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "[0 0]");
  EXPECT_EQ(kit::value("c"), 0.0);
  EXPECT_EQ(kit::value("d"), 1.0);
  EXPECT_NE(kit::dump().find("EVAL      (= c (,))\n"), std::string::npos) << kit::dump();
  // Only one unary operator stands before an operand: "- -c" ends after
  // the second "-", and "c" starts a statement of its own.
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE c, d;\n"
                        "d = - -\nc;\nFUNCTION y = a*x;\n"),
            0);
  EXPECT_EQ(ncomperr, 1);
  EXPECT_EQ(listing().substr(listing().find("\n   5:") + 1),
            "   5: c;\n"
            "     5: c;\nError: Semicolon missing at end of previous statement\n"
            "   6: FUNCTION y = a*x;\n");
}

}  // namespace
}  // namespace vexor
