// Golden listings: each program of this folder is compiled and run through
// the engine, and its whole listing is compared with expected/<name>.lst.
// Only the time in "Analysis completed ..." and the runtime are masked.  The
// listing is stored with CR LF line ends; the expected files hold LF, so
// every CR LF is turned into LF first (after checking that no LF stands
// without its CR).  Output and parameter files are compared whole.
#include <gtest/gtest.h>

#include <string>

#include "api/engine.h"
#include "kit/kit.h"

namespace vexor {
namespace {

std::string runlisting(const std::string& name, int* result) {
  std::string prog = std::string(VEXOR_GOLDEN_DIR) + "/" + name + ".vex";
  *result = compilefile(prog.c_str()) ? compute() : 99;
  std::string raw = kit::listing(true);
  enginereset();
  return raw;
}

void check(const std::string& name, int expectresult) {
  int result = 0;
  std::string raw = runlisting(name, &result);
  EXPECT_EQ(result, expectresult);
  for (std::size_t i = 0; i < raw.size(); ++i)
    if (raw[i] == '\n') {
      ASSERT_TRUE(i > 0 && raw[i - 1] == '\r') << "bare LF at " << i;
    }
  std::string expect = kit::readfile(std::string(VEXOR_GOLDEN_DIR) + "/expected/" + name + ".lst");
  ASSERT_NE(expect, "<missing>");
  ASSERT_FALSE(expect.empty());
  EXPECT_EQ(kit::maskclock(kit::lfonly(raw), "<time>", "<runtime>"), expect);
}

TEST(Golden, Regression) { check("regression", 4); }
TEST(Golden, Minimisation) { check("minimize", 4); }
TEST(Golden, BoundsWithCovarianceWarning) { check("bounds", 6); }
// Bounds without a COVARIANCE statement: no warning, but the hint about the
// constraints still ends the statistics.
TEST(Golden, BoundsWithoutCovarianceRequest) { check("constrained", 6); }
TEST(Golden, FunctionCannotBeComputed) { check("failed", -2); }
TEST(Golden, IterationLimit) { check("limit", -1); }
TEST(Golden, Sweep) { check("sweep", 6); }

TEST(Golden, AllOptionalSectionsAndFiles) {
  std::remove("sections.out");
  std::remove("sections.par");
  check("sections", 4);
  EXPECT_EQ(kit::readfile("sections.out"), kit::readfile(std::string(VEXOR_GOLDEN_DIR) + "/expected/sections.out"));
  EXPECT_EQ(kit::readfile("sections.par"), kit::readfile(std::string(VEXOR_GOLDEN_DIR) + "/expected/sections.par"));
}

}  // namespace
}  // namespace vexor
