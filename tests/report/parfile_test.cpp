// The parameter file (POUTPUT), compared whole.
#include <cstdio>
#include <string>

#include "report/report.h"
#include "reporttest.h"

namespace vexor {
namespace {

using test::ReportTest;

TEST_F(ReportTest, ParameterFile) {
  compile(
      "VARIABLES x, y;\n"
      "PARAMETERS a = 1, b = 1, c = 1;\n"
      "POUTPUT \"PARMS\";\n"
      "FUNCTION y = a + b * x + c * x * x;\n");
  estimates({1.5, 0.1, -2.5e-7});
  writeparfile();
  EXPECT_EQ(readfile("PARMS.PAR"), "1.5\n0.100000000000000006\n-2.49999999999999989E-07\n");
  EXPECT_STREQ(parfile, "PARMS.PAR");
  std::remove("PARMS.PAR");
}

}  // namespace
}  // namespace vexor
