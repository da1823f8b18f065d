// The traps the compilation notes: legal text read by the language's rules
// that is probably not what was meant.  Each is noted with its line in the
// file and the listing's line number, and the listing does not change.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/engine.h"
#include "compiler/compiler.h"
#include "kit/kit.h"

namespace vexor {
namespace {

using kit::compileprog;
using kit::listing;

const Trap* find(uint8_t kind) {
  for (int32_t i = 0; i < ntraps; ++i)
    if (traps[i].kind == kind) return &traps[i];
  return nullptr;
}

const char* const head = "VARIABLES x, y;\nPARAMETERS a = 1;\n";

TEST(Traps, UnaryMinusAsTheBaseOfAPower) {
  ASSERT_EQ(compileprog(std::string(head) +
                        "DOUBLE q;\nq = (-a)^2 + 2^-a + -(a)^2; q = -a^2;\nFUNCTION y = a*x;\n"),
            1)
      << listing();
  ASSERT_EQ(ntraps, 2);
  EXPECT_EQ(traps[0].kind, TRAP_NEGPOW);
  EXPECT_EQ(traps[0].fileline, 4);
  EXPECT_EQ(traps[0].number, 4);
  EXPECT_EQ(traps[1].fileline, 4);
  EXPECT_EQ(traps[1].number, 5);  // the second statement of the line
  EXPECT_STREQ(traps[1].text, " q = -a^2;");
}

TEST(Traps, DataRecordsWithMoreValuesAndDecimalCommas) {
  ASSERT_EQ(compileprog(std::string(head) + "FUNCTION y = a*x;\nDATA;\n1 2\n2 4 8\n3 6,5\n"), 1)
      << listing();
  const Trap* extra = find(TRAP_EXTRAVALUES);
  ASSERT_NE(extra, nullptr);
  EXPECT_EQ(extra->fileline, 6);
  EXPECT_EQ(extra->count, 2);  // "3 6,5" reads as three values too
  EXPECT_STREQ(extra->text, "2 4 8");
  const Trap* comma = find(TRAP_DECIMALCOMMA);
  ASSERT_NE(comma, nullptr);
  EXPECT_EQ(comma->fileline, 7);
  EXPECT_EQ(comma->where, TRAPIN_PROGRAM);
  EXPECT_EQ(nobs, 3);  // the data are read as ever
}

// The edges of the record scans: a lone '/' stays in the record (and is a
// value too many) while "//" ends it; a comma at the end of a record or
// between a digit and a blank is no decimal comma, one between digits late
// in the record is; a CR ends a file's record.
TEST(Traps, LoneSlashesCommasAtTheEdgesAndCarriageReturns) {
  ASSERT_TRUE(kit::writefile("traps_edges.dat", "1 2/3 // 9 9\r\n4 5,\r\n6, 7\r\n8 9 10,11\r\n"));
  ASSERT_EQ(compileprog(std::string(head) + "FUNCTION y = a*x;\nDATA \"traps_edges.dat\";\n"), 1) << listing();
  EXPECT_EQ(nobs, 4);
  const Trap* extra = find(TRAP_EXTRAVALUES);
  ASSERT_NE(extra, nullptr);
  EXPECT_EQ(extra->fileline, 1);
  EXPECT_STREQ(extra->text, "1 2/3 ");
  EXPECT_EQ(extra->count, 2);  // "8 9 10,11" too
  const Trap* comma = find(TRAP_DECIMALCOMMA);
  ASSERT_NE(comma, nullptr);
  EXPECT_EQ(comma->fileline, 4);
  EXPECT_EQ(comma->count, 1);
  std::remove("traps_edges.dat");
}

TEST(Traps, AHeaderLineInADataFile) {
  ASSERT_TRUE(kit::writefile("traps_header.dat", "x y\n1 2\n"));
  EXPECT_EQ(compileprog(std::string(head) + "FUNCTION y = a*x;\nDATA \"traps_header.dat\";\n"), 0);
  const Trap* h = find(TRAP_HEADERLIKE);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->where, TRAPIN_DATAFILE);
  EXPECT_EQ(h->fileline, 1);
  EXPECT_EQ(find(TRAP_EXTRAVALUES), nullptr);  // its values could not be read at all
  std::remove("traps_header.dat");
}

TEST(Traps, TextNeverRead) {
  // A last statement without a line feed, and a ';' inside a // comment.
  EXPECT_EQ(compileprog(std::string(head) + "FUNCTION y = a*x; // a note; more\nDATA;\n1 2"), 0);
  const Trap* semi = find(TRAP_COMMENTSEMI);
  ASSERT_NE(semi, nullptr);
  EXPECT_EQ(semi->fileline, 3);
  EXPECT_EQ(semi->number, 5);
  EXPECT_STREQ(semi->text, " more");
  const Trap* nolf = find(TRAP_NOLINEFEED);
  ASSERT_NE(nolf, nullptr);
  EXPECT_EQ(nolf->fileline, 5);
  EXPECT_STREQ(nolf->text, "1 2");
}

TEST(Traps, ALineCutAtItsLimit) {
  // A comment line of more than MAXLINE characters: read, and cut.
  std::string text = std::string(head) + "// " + std::string(MAXLINE, 'c') + "\nFUNCTION y = a*x;\n";
  ASSERT_EQ(compileprog(text), 1) << listing().substr(0, 300);
  const Trap* cut = find(TRAP_LONGLINE);
  ASSERT_NE(cut, nullptr);
  EXPECT_EQ(cut->fileline, 3);
}

TEST(Traps, NoneInAPlainProgramAndClearedByTheNextCompilation) {
  ASSERT_EQ(compileprog(std::string(head) + "FUNCTION y = a*x;\nDATA;\n1 2 3\n"), 1);
  EXPECT_EQ(ntraps, 1);
  ASSERT_EQ(compileprog(std::string(head) + "DOUBLE q;\nq = -(a^2);\nFUNCTION y = a*x;\nDATA;\n1 2\n"), 1);
  EXPECT_EQ(ntraps, 0);
}

}  // namespace
}  // namespace vexor
