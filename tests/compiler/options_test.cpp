// Option statements and the engine-wide settings they make.
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

std::string prog(const std::string& opts) {
  return "VARIABLES x, y; PARAMETERS a;\n" + opts + "\nFUNCTION y = a*x;\n";
}

bool has(const std::string& text) { return listing().find(text) != std::string::npos; }

TEST(Options, Iterations) {
  EXPECT_EQ(compileprog(prog("ITERATIONS 1;")), 0);
  EXPECT_TRUE(has("Error: The number of iterations must be at least 2\n")) << listing();
  EXPECT_EQ(maxiter, 2);
  EXPECT_EQ(compileprog(prog("ITERATIONS = 25.9;")), 1);
  EXPECT_EQ(maxiter, 25);
  EXPECT_EQ(compileprog(prog("ITERATION x;")), 0);
  EXPECT_TRUE(has("Error: Syntax error: numeric value missing\n"));
}

TEST(Options, Tolerance) {
  EXPECT_EQ(compileprog(prog("TOLERANCE 0.1;")), 1);
  EXPECT_EQ(tolerance, 0.1);
  EXPECT_EQ(compileprog(prog("TOLERANCE 0.2;")), 0);
  EXPECT_TRUE(has("Error: TOLERANCE value must be in the range 1E-15 to 1E-1.\n")) << listing();
  EXPECT_EQ(tolerance, 1e-10);
}

TEST(Options, Confidence) {
  EXPECT_EQ(compileprog(prog("CONFIDENCE;")), 1);
  EXPECT_DOUBLE_EQ(conflevel, 0.9);
  EXPECT_EQ(compileprog(prog("CONFIDENCE 95;")), 1);
  EXPECT_DOUBLE_EQ(conflevel, 0.95);
  EXPECT_EQ(compileprog(prog("CONFIDENCE 40;")), 0);
  EXPECT_TRUE(has("Error: Value must be in the range 50 to 99.999\n"));
  EXPECT_DOUBLE_EQ(conflevel, 0.9);
  EXPECT_EQ(compileprog(prog("CONFIDENCE = 99.999;")), 1);
  EXPECT_DOUBLE_EQ(conflevel, 0.99999);
}

TEST(Options, Presolution) {
  EXPECT_EQ(compileprog(prog("PRESOLUTION 200;")), 0);
  EXPECT_TRUE(has("Error: The resolution value must be 150 or 300.\n"));
  EXPECT_EQ(presolution, 200);
  EXPECT_EQ(compileprog(prog("PRESOLUTION 300;")), 1);
  EXPECT_EQ(presolution, 2);
  EXPECT_EQ(compileprog(prog("PRESOLUTION x;")), 0);
  EXPECT_TRUE(has("Error: Syntax numeric value missing\n"));
  EXPECT_EQ(compileprog(prog("WIDTH = 6.5;")), 1);
  EXPECT_EQ(plotwidth, 6.5);
}

TEST(Options, CorrelateNeedsTwoVariables) {
  EXPECT_EQ(compileprog(prog("CORRELATE x;")), 0);
  EXPECT_TRUE(has("Error: There must be at least 2 variables for correlation matrix\n"))
      << listing();
  EXPECT_EQ(compileprog(prog("CORRELATE;")), 1);
  EXPECT_EQ(ncorr, 2);
  EXPECT_EQ(corrvars[1], invars[1]);
  EXPECT_EQ(compileprog(prog("CORRELATE x y; CORRELATE y;")), 1);
  EXPECT_EQ(ncorr, 3);  // two statements add up
}

TEST(Options, RangeErrorsAreReportedAtTheNumbersLine) {
  // prog() puts the options on line 3; the number follows on line 4.
  const struct {
    const char* opts;
    const char* report;
  } cases[] = {
      {"ITERATIONS =\n 1;", "     4: 1;\nError: The number of iterations must be at least 2\n"},
      {"TOLERANCE\n  0.5;", "     4: 0.5;\nError: TOLERANCE value must be in the range 1E-15 to 1E-1.\n"},
      {"PRESOLUTION =\n200;", "     4: 200;\nError: The resolution value must be 150 or 300.\n"},
      {"CONFIDENCE\n 20;", "     4: 20;\nError: Value must be in the range 50 to 99.999\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(compileprog(prog(c.opts)), 0) << c.opts;
    EXPECT_TRUE(has(c.report)) << listing();
  }
}

TEST(Options, CorrelateTakesOneOptionalCommaAfterEachName) {
  EXPECT_EQ(compileprog(prog("CORRELATE x, y,;")), 1) << listing();
  EXPECT_EQ(ncorr, 2);
  EXPECT_EQ(compileprog(prog("CORRELATE x y;")), 1) << listing();
  EXPECT_EQ(ncorr, 2);
  // A leading comma ends the list at once.
  EXPECT_EQ(compileprog(prog("CORRELATE , x y;")), 0);
  EXPECT_EQ(ncorr, 0);
  EXPECT_TRUE(has("     3: CORRELATE , x y;\nError: Missing semicolon at end of statement\n"
                  "     3: CORRELATE , x y;\nError: There must be at least 2 variables for "
                  "correlation matrix\n"))
      << listing();
  // So does a doubled one.
  EXPECT_EQ(compileprog(prog("CORRELATE x,, y;")), 0);
  EXPECT_EQ(ncorr, 1);
  EXPECT_TRUE(has("     3: CORRELATE x,, y;\nError: Missing semicolon at end of statement\n"
                  "     3: CORRELATE x,, y;\nError: There must be at least 2 variables for "
                  "correlation matrix\n"))
      << listing();
}

TEST(Options, NumbersBeyondTheIntegerRange) {
  // Truncated toward zero and kept within the 32-bit range; an infinite
  // value counts as 0.
  EXPECT_EQ(compileprog(prog("ITERATIONS 1e10;")), 1) << listing();
  EXPECT_EQ(maxiter, INT32_MAX);
  EXPECT_EQ(compileprog(prog("ITERATIONS 1e400;")), 0);
  EXPECT_TRUE(has("Error: The number of iterations must be at least 2\n"));
  EXPECT_EQ(maxiter, 2);
  EXPECT_EQ(compileprog(prog("PRESOLUTION 1e12;")), 0);
  EXPECT_EQ(presolution, INT32_MAX);
  EXPECT_EQ(compileprog(prog("PRESOLUTION 300.7;")), 1);
  EXPECT_EQ(presolution, 2);
}

TEST(Options, OutputFiles) {
  EXPECT_EQ(compileprog(prog("OUTPUT \"res\" x, y;")), 1) << listing();
  EXPECT_STREQ(outfile, "res.out");
  EXPECT_EQ(outmode, 1);
  EXPECT_EQ(noutvars, 2);
  EXPECT_EQ(compileprog(prog("OUTPUT x;")), 1);
  EXPECT_EQ(outmode, -1);
  EXPECT_EQ(compileprog(prog("OUTPUT TO \"RES\" $obs, $Predicted, $RESIDUAL, x;")), 1) << listing();
  EXPECT_STREQ(outfile, "RES.OUT");
  EXPECT_EQ(noutvars, 4);
  EXPECT_EQ(compileprog(prog("OUTPUT a;")), 0);
  EXPECT_TRUE(has("Error: A parameter may not be used with OUTPUT\n"));
}

// OUTPUT keeps 2005 columns; the next one is refused once, the rest of
// the list is read on (each further one refused too).
TEST(Options, OutputTakes2005Columns) {
  std::string list = "x";
  for (int i = 1; i < 2005; ++i) list += ", y";
  EXPECT_EQ(compileprog(prog("OUTPUT " + list + ";")), 1) << listing().substr(0, 300);
  EXPECT_EQ(noutvars, 2005);
  EXPECT_EQ(compileprog(prog("OUTPUT " + list + ", x, y;")), 0);
  EXPECT_EQ(noutvars, 2005);
  const std::string l = listing();
  const std::string msg = "Error: VEXOR can only handle 2005 output variables\n";
  ASSERT_NE(l.find(msg), std::string::npos) << l.substr(l.size() > 400 ? l.size() - 400 : 0);
  EXPECT_NE(l.find(msg, l.find(msg) + 1), std::string::npos);  // once for each
  EXPECT_EQ(ncomperr, 2);
}

TEST(Options, ParameterFile) {
  EXPECT_EQ(compileprog(prog("POUTPUT \"parms\";")), 1);
  EXPECT_STREQ(parfile, "parms");
  // The statement's extension step completes an output file name that
  // has no extension yet.
  EXPECT_EQ(compileprog(prog("OUTPUT \"r.1\" x; POUTPUT \"p\";")), 1);
  EXPECT_STREQ(outfile, "r.1");
  EXPECT_EQ(compileprog(prog("POUTPUT parms;")), 0);
  EXPECT_TRUE(has("Error: Syntax error.  File name must be in quotes.\n"));
}

TEST(Options, AngleTypeAndTitle) {
  EXPECT_EQ(compileprog(prog("ANGLETYPE degrees;")), 1);
  EXPECT_EQ(degrees, 1);
  EXPECT_EQ(compileprog(prog("ANGLETYPE Radians;")), 1);
  EXPECT_EQ(degrees, 0);
  EXPECT_EQ(compileprog(prog("ANGLETYPE grads;")), 0);
  EXPECT_TRUE(has("Error: Angle type must be DEGREES or RADIANS\n"));
  EXPECT_EQ(compileprog(prog("TITLE \"Decay of 14C\";")), 1);
  EXPECT_STREQ(title, "Decay of 14C");
  EXPECT_EQ(compileprog(prog("TITLE Decay;")), 0);
  EXPECT_TRUE(has("Error: Syntax error.  Title string must be in quotes.\n"));
}

TEST(Options, SettingsSurviveUntilTheEngineReset) {
  // Compile and CompileFile reset the engine first, which restores every
  // setting; so a setting carries over only into compilations that follow
  // without a reset.
  ASSERT_EQ(compileprog(prog("ITERATIONS 42; COVARIANCE; ANGLETYPE DEGREES;")), 1);
  EXPECT_EQ(maxiter, 42);
  EXPECT_EQ(covprint, 1);
  srcset("VARIABLES x, y; PARAMETERS a; FUNCTION y = a*x;\n");
  freetoks();
  freelines();
  symclear();
  ASSERT_NE(compile(), nullptr);
  EXPECT_EQ(maxiter, 42);
  EXPECT_EQ(degrees, 1);
  enginereset();
  EXPECT_EQ(maxiter, 500);
  EXPECT_EQ(tolerance, 1e-10);
  EXPECT_EQ(covreq, -3);
  EXPECT_EQ(covprint, 0);
  EXPECT_EQ(degrees, 0);
  EXPECT_EQ(conflevel, 0.0);
}

TEST(Options, NoEcho) {
  // The engine reset turns the echo off; a host that wants it turns it on
  // before compiling.
  enginereset();
  echo = 1;
  srcset(prog("NOECHO;").c_str());
  testing::internal::CaptureStdout();
  EXPECT_NE(compile(), nullptr);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(echo, 0);
  EXPECT_NE(out.find("   1: VARIABLES x, y;"), std::string::npos);  // before NOECHO
  EXPECT_EQ(out.find("FUNCTION"), std::string::npos);
  EXPECT_TRUE(has("FUNCTION y = a*x;"));  // the listing keeps every line
}

}  // namespace
}  // namespace vexor
