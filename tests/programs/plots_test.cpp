// PLOT requests: options, conversions and defaults.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "harness.h"
#include "lang/lang.h"

namespace vexor {
namespace {

using test::compileprog;
using test::listing;

bool has(const std::string& text) { return listing().find(text) != std::string::npos; }

TEST(Plots, PlotOfTheModel) {
  ASSERT_EQ(compileprog("TITLE \"Decay\"; VARIABLES x, y; PARAMETERS a; PLOT;\nFUNCTION y = a*x;\n"),
            1)
      << listing();
  ASSERT_NE(plotfirst, nullptr);
  EXPECT_EQ(plotfirst->kind, PLOT_PLOT);
  EXPECT_STREQ(plotfirst->xvar->name, "x");
  EXPECT_STREQ(plotfirst->yvar->name, "y");
  EXPECT_STREQ(plotfirst->title, "Decay");
  EXPECT_STREQ(plotfirst->xlabel, "x");
  EXPECT_STREQ(plotfirst->ylabel, "y");
  EXPECT_TRUE(plotfirst->flags & PF_GRID);
}

TEST(Plots, ResidualPlotLabels) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; RPLOT;\nFUNCTION y = a*x;\n"), 1);
  EXPECT_STREQ(plotfirst->ylabel, "Residual");
  EXPECT_STREQ(plotfirst->title, "Plot of Residuals");
  EXPECT_STREQ(plotfirst->xvar->name, "x");
}

TEST(Plots, NormalPlotHasNoGridUnlessAsked) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; NPLOT; NPLOT GRID;\nFUNCTION y = a*x;\n"), 1);
  EXPECT_FALSE(plotfirst->flags & PF_GRID);
  EXPECT_TRUE(plotfirst->next->flags & PF_GRID);
  EXPECT_STREQ(plotfirst->xlabel, "Expected residuals");
  EXPECT_STREQ(plotfirst->ylabel, "Actual residuals");
  EXPECT_STREQ(plotfirst->title, "Normal probability plot of residuals");
}

TEST(Plots, WorkVariableOnXGivesScatterPlot) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE t; t = x; PLOT xvar=t;\n"
                        "FUNCTION y = a*x;\n"),
            1)
      << listing();
  EXPECT_TRUE(has("t is not an input variable. Scatter plot will be generated.")) << listing();
  EXPECT_EQ(plotfirst->kind, PLOT_SPLOT);
}

TEST(Plots, InvalidDomain) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT DOMAIN = 5, 1;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: Invalid domain\n")) << listing();
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT DOMAIN = -1 5;\nFUNCTION y = a*x;\n"), 1);
  EXPECT_EQ(plotfirst->domainlo, -1.0);
  EXPECT_EQ(plotfirst->domainhi, 5.0);
  EXPECT_TRUE(plotfirst->flags & PF_DOMAIN);
}

TEST(Plots, TwoIndependentVariables) {
  EXPECT_EQ(compileprog("VARIABLES u, v, y; PARAMETERS a; PLOT;\nFUNCTION y = a*u + v;\n"), 0);
  EXPECT_TRUE(has("Error: Function has more than one independent variable. Cannot plot.\n"))
      << listing();
  EXPECT_TRUE(has("Error: You may be able to use SPLOT statement rather than PLOT.\n"));
}

TEST(Plots, NoDependentVariableMakesResidualPlot) {
  ASSERT_EQ(compileprog("VARIABLES x; PARAMETERS a; PLOT;\nFUNCTION a*x - 1;\n"), 1) << listing();
  EXPECT_TRUE(has("No dependent variable in function, so PLOT statement converted to RPLOT."));
  EXPECT_EQ(plotfirst->kind, PLOT_RPLOT);
}

TEST(Plots, OptionsAndFlags) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a;\n"
                        "SPLOT, TITLE = \"T\", XLABEL = \"X\" YLABEL = \"Y\", XVAR x, YVAR = y,\n"
                        " residual ITERATIONS PRINT NOPAUSE NOGRID VALUES CONNECT NOMARK;\n"
                        "FUNCTION y = a*x;\n"),
            1)
      << listing();
  PlotRequest* r = plotfirst;
  EXPECT_STREQ(r->title, "T");
  EXPECT_STREQ(r->xlabel, "X");
  EXPECT_STREQ(r->ylabel, "Y");
  EXPECT_EQ(r->flags, PF_RESIDUAL | PF_ITERATIONS | PF_PRINT | PF_NOPAUSE | PF_VALUES);
  EXPECT_EQ(r->flags2, PF2_CONNECT | PF2_NOMARK);
  EXPECT_EQ(nplotiter, 1);
  EXPECT_EQ(nplotvalues, 1);
}

TEST(Plots, OptionErrors) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT TITLE \"t\";\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: Missing equal sign after TITLE\n"));
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT XLABEL = x;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: Syntax error.  Label string must be in quotes.\n"));
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT XVAR = 3;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: Syntax error: variable name must follow XVAR\n"));
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT XVAR = a;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: A parameter may not be used as a plot variable\n"));
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT bogus;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: Invalid item in plot option list: bogus\n")) << listing();
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT xvar = y;\nFUNCTION y = a*x;\n"), 0);
  EXPECT_TRUE(has("Error: The same variable (y) is specified for plot X and Y axes.\n")) << listing();
}

TEST(Plots, MinimisationDiscardsPlots) {
  ASSERT_EQ(compileprog("PARAMETERS a; PLOT;\nFUNCTION (a-2)^2;\n"), 1) << listing();
  EXPECT_TRUE(has("Cannot do plots with function minimization type analysis."));
  EXPECT_EQ(plotfirst, nullptr);
}

}  // namespace
}  // namespace vexor
