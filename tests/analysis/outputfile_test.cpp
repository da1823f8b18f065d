// Column formats and the output data file (to a file or to the listing
// file), compared whole.
#include <cstdio>
#include <string>
#include <vector>

#include "analysis/analysis.h"
#include "reporttest.h"
#include "kit/kit.h"

namespace vexor {
namespace {

using test::ReportTest;

std::string format(const std::vector<double>& v) {
  char f[8];
  colformat(v.data(), static_cast<int32_t>(v.size()), f);
  return f;
}

TEST(ColFormat, IntegersOneTo250) {
  std::vector<double> v;
  for (int i = 1; i <= 250; ++i) v.push_back(i);
  EXPECT_EQ(format(v), "%3.0lf");
}

TEST(ColFormat, NegativeWithTwoDecimals) { EXPECT_EQ(format({-3.25, 10}), "%6.2lf"); }

TEST(ColFormat, LargeMagnitudesUseExponents) {
  EXPECT_EQ(format({2e9, 15.5}), "%12.5lE");
  EXPECT_EQ(format({2e9, -15.5}), "%13.5lE");
  EXPECT_EQ(format({1e9}), "%10.0lf");
}

TEST(ColFormat, SmallMagnitudesUseExponents) {
  EXPECT_EQ(format({3.5e-6, 1.25e-7}), "%12.5lE");
  EXPECT_EQ(format({-3.5e-6}), "%13.5lE");
}

TEST(ColFormat, AllZeros) { EXPECT_EQ(format({0, 0, 0}), "%1.0lf"); }

TEST(ColFormat, EmptyColumn) { EXPECT_EQ(format({}), "%1.0lf"); }

TEST(ColFormat, WidthPlusDecimalsLimitedToNine) {
  EXPECT_EQ(format({123456.123456}), "%9.2lf");
  EXPECT_EQ(format({-123456789.5}), "%11.0lf");
}

TEST(ColFormat, DecimalsUpToSix) {
  EXPECT_EQ(format({0.125}), "%5.3lf");
  EXPECT_EQ(format({0.1}), "%3.1lf");
  EXPECT_EQ(format({2.0 / 3.0}), "%8.6lf");
}

const char* const decay =
    "VARIABLES t, counts;\n"
    "PARAMETERS a = 10, k = 0.5;\n"
    "DOUBLE sq, n = 0;\n"
    "sq = t * t;\n"
    "n = n + 1;\n"
    "FUNCTION counts = a - k * t;\n"
    "DATA;\n"
    "1 9.5\n2 9.25\n3 8.5\n4 8.125\n";

class OutputFile : public ReportTest {
 protected:
  void setup(const char* columns) {
    compile(decay);
    outmode = 1;
    noutvars = 0;
    std::string names(columns);
    std::size_t pos = 0;
    while (pos < names.size()) {
      std::size_t comma = names.find(',', pos);
      std::string name = names.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
      Symbol* s = symfind(name.c_str());
      if (!s) s = symnew(name.c_str(), SYM_UNDEF);
      outvars[noutvars++] = s;
      pos = comma == std::string::npos ? names.size() : comma + 1;
    }
    estimates({10, 0.5});
    finalpass();
  }
};

// The columns in their own formats, two blanks between them, no header; the
// work variables start again from their initial values for the data pass
// (the counter n runs 1..4).  Every column differs from the others, so a
// column written in another's place shows.
TEST_F(OutputFile, WholeFile) {
  compile(
      "VARIABLES t, counts;\n"
      "PARAMETERS a = 10, k = 0.5;\n"
      "DOUBLE sq, n = 0;\n"
      "OUTPUT \"decayout\" $obs, t, $Predicted, $RESIDUAL, sq, n;\n"
      "sq = t * t;\n"
      "n = n + 1;\n"
      "FUNCTION counts = a - k * t;\n"
      "DATA;\n"
      "3 8.5\n5 7.75\n7 6.5\n9 5.625\n");
  ASSERT_STREQ(outfile, "decayout.out");
  estimates({10, 0.5});
  finalpass();
  writeoutput();
  EXPECT_EQ(readfile("decayout.out"),
            "1  3  8.5  0.000   9  1\n"
            "2  5  7.5  0.250  25  2\n"
            "3  7  6.5  0.000  49  3\n"
            "4  9  5.5  0.125  81  4\n");
  EXPECT_EQ(text(), "");
  EXPECT_EQ(outfp, nullptr);
  std::remove("decayout.out");
}

TEST_F(OutputFile, PseudoVariablesInAnyLetterCase) {
  setup("$Obs,$predicted,$residual");
  EXPECT_EQ(obsvalue(outvars[0], 2), 3.0);
  EXPECT_EQ(obsvalue(outvars[1], 2), 8.5);
  EXPECT_EQ(obsvalue(outvars[2], 3), 8.125 - 8.0);
  Symbol* t = symfind("t");
  EXPECT_EQ(obsvalue(t, 1), 2.0);
}

TEST_F(OutputFile, DefaultExtensionFollowsTheNamesCase) {
  setup("$OBS");
  // The setting itself is completed, so later messages name the file.
  std::snprintf(outfile, MAXPATH, "%s", "RESULT");
  writeoutput();
  EXPECT_EQ(readfile("RESULT.OUT"), "1\n2\n3\n4\n");
  EXPECT_STREQ(outfile, "RESULT.OUT");
  std::snprintf(outfile, MAXPATH, "%s", "result");
  writeoutput();
  EXPECT_EQ(readfile("result.out"), "1\n2\n3\n4\n");
  EXPECT_STREQ(outfile, "result.out");
  std::snprintf(outfile, MAXPATH, "%s", "res.ult");
  writeoutput();
  EXPECT_STREQ(outfile, "res.ult");
  EXPECT_EQ(readfile("res.ult"), "1\n2\n3\n4\n");
  std::remove("RESULT.OUT");
  std::remove("result.out");
  std::remove("res.ult");
}

// Reported, then nothing more: there is nowhere to write the data.
TEST_F(OutputFile, FileThatCannotBeOpened) {
  setup("$OBS");
  std::snprintf(outfile, MAXPATH, "%s", "no-such-dir/sub/data");
  writeoutput();
  EXPECT_EQ(text(), "Error: unable to open output file: no-such-dir/sub/data.out\n");
  EXPECT_EQ(outfp, nullptr);
}

// Without a file name the data go to the listing file, after their heading,
// and never into the Listing.
TEST_F(OutputFile, IntoTheListingFile) {
  setup("t,$RESIDUAL");
  outmode = -1;
  FILE* f = std::tmpfile();
  ASSERT_NE(f, nullptr);
  lstfile = f;
  writeoutput();
  lstfile = nullptr;
  std::string written = kit::readstream(f);
  std::fclose(f);
  EXPECT_EQ(written,
            "\n\n   ---   Output Data   ---\n"
            "1  0.000\n"
            "2  0.250\n"
            "3  0.000\n"
            "4  0.125\n");
  EXPECT_EQ(text(), "");
}

TEST_F(OutputFile, IntoTheListingFileWithoutOne) {
  setup("t");
  outmode = -1;
  writeoutput();
  EXPECT_EQ(text(), "");
}

}  // namespace
}  // namespace vexor
