// PLOT requests: options, conversions and defaults.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kit/kit.h"
#include "compiler/compiler.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

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

// Each option that needs "=" or a name after it, without one: the message
// and the rest of the statement skipped (a second compile error).
TEST(Plots, OptionsWithoutTheirEqualSignOrName) {
  const struct {
    const char* option;
    const char* message;
  } cases[] = {
      {"XLABEL \"a\"", "Missing equal sign after XLABEL"},
      {"YLABEL 3", "Missing equal sign after YLABEL"},
      {"DOMAIN 3, 4", "Missing equal sign after DOMAIN"},
      {"XVAR2", "Syntax error: variable name must follow XVAR2"},
      {"YVAR 3", "Syntax error: variable name must follow YVAR"},
      {"YVAR2, GRID", "Syntax error: variable name must follow YVAR2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.option);
    const std::string plot = std::string("PLOT ") + c.option + ";";
    EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a;\n" + plot + "\nFUNCTION y = a*x;\n"), 0);
    EXPECT_TRUE(has("     3: " + plot + "\nError: " + c.message + "\n")) << listing();
    EXPECT_EQ(ncomperr, 2) << listing();
  }
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

TEST(Plots, ComputedVariableMakesAScatterPlotOfTheFit) {
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; DOUBLE t;\nt = 2*x; PLOT;\n"
                        "FUNCTION y = a*t;\n"),
            1)
      << listing();
  EXPECT_TRUE(has("Function uses computed variables.")) << listing();
  EXPECT_TRUE(has("Converting PLOT to SPLOT with CONNECT2 and NOMARK2 options.")) << listing();
  PlotRequest* r = plotfirst;
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->kind, PLOT_SPLOT);
  EXPECT_STREQ(r->yvar->name, "y");
  EXPECT_EQ(r->yvar2, sympredicted);
  EXPECT_STREQ(r->xvar->name, "t");
  EXPECT_EQ(r->xvar2, r->xvar);
  EXPECT_EQ(r->flags2, PF2_CONNECT2 | PF2_NOMARK2);
  EXPECT_STREQ(r->xlabel, "t");
  EXPECT_STREQ(r->ylabel, "y");
  // An input variable given as X is kept, and the second series follows it.
  ASSERT_EQ(compileprog("VARIABLES x, y, w; PARAMETERS a; DOUBLE t;\nt = 2*x;\n"
                        "PLOT XVAR w;\nFUNCTION y = a*t;\n"),
            1)
      << listing();
  EXPECT_EQ(plotfirst->kind, PLOT_SPLOT);
  EXPECT_STREQ(plotfirst->xvar->name, "w");
  EXPECT_EQ(plotfirst->xvar2, plotfirst->xvar);
  EXPECT_EQ(plotfirst->yvar2, sympredicted);
}

TEST(Plots, IndependentVariableRequired) {
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; SPLOT;\nFUNCTION y = a;\n"), 0);
  EXPECT_TRUE(has("Error: You must specify the independent variable for plot\n")) << listing();
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; PLOT;\nFUNCTION y = a;\n"), 0);
  EXPECT_TRUE(has("Error: You must specify the independent variable for plot\n")) << listing();
  // NPLOT needs none.
  EXPECT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; NPLOT;\nFUNCTION y = a;\n"), 1) << listing();
}

TEST(Plots, MissingEqualSigns) {
  for (const char* opt : {"XLABEL", "YLABEL", "DOMAIN"}) {
    std::string text = std::string("VARIABLES x, y; PARAMETERS a;\nPLOT ") + opt +
                       " \"t\";\nFUNCTION y = a*x;\n";
    EXPECT_EQ(compileprog(text), 0) << opt;
    EXPECT_TRUE(has(std::string("     3: PLOT ") + opt + " \"t\";\nError: Missing equal sign after " +
                    opt + "\n"))
        << listing();
  }
}

TEST(Plots, VariableNamesMustFollowAxisOptions) {
  for (const char* opt : {"YVAR", "XVAR2", "YVAR2"}) {
    std::string text = std::string("VARIABLES x, y; PARAMETERS a;\nPLOT ") + opt +
                       " = 1;\nFUNCTION y = a*x;\n";
    EXPECT_EQ(compileprog(text), 0) << opt;
    EXPECT_TRUE(has(std::string("     3: PLOT ") + opt +
                    " = 1;\nError: Syntax error: variable name must follow " + opt + "\n"))
        << listing();
  }
  ASSERT_EQ(compileprog("VARIABLES x, y, z; PARAMETERS a;\nSPLOT XVAR x YVAR y XVAR2 = z YVAR2 y;\n"
                        "FUNCTION y = a*x + z;\n"),
            1)
      << listing();
  EXPECT_STREQ(plotfirst->xvar2->name, "z");
  EXPECT_STREQ(plotfirst->yvar2->name, "y");
}

TEST(Plots, NoTitleAndNoLabelsSuppressTheDefaults) {
  ASSERT_EQ(compileprog("TITLE \"Decay\"; VARIABLES x, y; PARAMETERS a;\n"
                        "PLOT NOTITLE NOXLABEL NOYLABEL; RPLOT NOTITLE; NPLOT NOXLABEL NOYLABEL;\n"
                        "FUNCTION y = a*x;\n"),
            1)
      << listing();
  PlotRequest* r = plotfirst;
  EXPECT_STREQ(r->title, "");
  EXPECT_STREQ(r->xlabel, "");
  EXPECT_STREQ(r->ylabel, "");
  EXPECT_EQ(r->flags & PF_NOTITLE, PF_NOTITLE);
  EXPECT_EQ(r->flags2, PF2_NOXLABEL | PF2_NOYLABEL);
  r = r->next;
  EXPECT_STREQ(r->title, "");
  EXPECT_STREQ(r->xlabel, "x");
  EXPECT_STREQ(r->ylabel, "Residual");
  r = r->next;
  EXPECT_STREQ(r->title, "Normal probability plot of residuals");
  EXPECT_STREQ(r->xlabel, "");
  EXPECT_STREQ(r->ylabel, "");
}

TEST(Plots, ResidualPlotFallsBackToTheDependentVariable) {
  // With two independent variables, or none, the residuals are plotted
  // against the dependent variable.
  ASSERT_EQ(compileprog("VARIABLES u, v, y; PARAMETERS a; RPLOT;\nFUNCTION y = a*u + v;\n"), 1)
      << listing();
  EXPECT_STREQ(plotfirst->xvar->name, "y");
  EXPECT_STREQ(plotfirst->xlabel, "y");
  ASSERT_EQ(compileprog("VARIABLES x, y; PARAMETERS a; RPLOT;\nFUNCTION y = a;\n"), 1) << listing();
  EXPECT_STREQ(plotfirst->xvar->name, "y");
}

TEST(Plots, MinimisationDiscardsPlots) {
  ASSERT_EQ(compileprog("PARAMETERS a; PLOT;\nFUNCTION (a-2)^2;\n"), 1) << listing();
  EXPECT_TRUE(has("Cannot do plots with function minimization type analysis."));
  EXPECT_EQ(plotfirst, nullptr);
}

}  // namespace
}  // namespace vexor
